// Export forms of a certificate: DER, PEM, PkiPath, file. Every form is made
// from the DER the parser holds; nothing here re-encodes the certificate.
#include "cert/CertCore.h"
#include "support/asn1/Asn1Node.h"
#include "support/base/ContentCoding.h"

// The caller holds the lock. False without a parsed certificate or when its
// DER comes out empty.
bool CertCore::copyCertDer(DataBuffer& der) const {
    OrvaneX509* x = getX509();
    if (!x) return false;
    x->getCertDer(der);
    return der.getSize() != 0;
}

bool CertCore::getDEREncodedCert(DataBuffer& out) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    if (!x) return false;
    unsigned before = out.getSize();
    x->getCertDer(out);
    return out.getSize() > before;
}

unsigned CertCore::getDEREncodedCertSize() {
    if (m_magic != kMagic) return 0;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    return x ? x->getCertDerSize() : 0;
}

bool CertCore::getEncodedCertForPem(StringBuffer& out, LogBase& /*log*/) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    DataBuffer der;
    if (!copyCertDer(der)) return false;
    ContentCoding cc;
    cc.setLineLength(64);
    cc.encodeBase64(der.getData2(), der.getSize(), out);
    return true;
}

bool CertCore::getPem(StringBuffer& out, LogBase& log) {
    StringBuffer body;
    if (!getEncodedCertForPem(body, log)) return false;
    if (out.getSize() != 0 && !out.endsWith("\r\n")) out.append("\r\n");
    out.append("-----BEGIN CERTIFICATE-----\r\n");
    out.append(body);
    if (!out.endsWith("\r\n")) out.append("\r\n");
    out.append("-----END CERTIFICATE-----\r\n");
    return true;
}

bool CertCore::getX509PKIPathv1(StringBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    DataBuffer der;
    if (!copyCertDer(der)) return false;

    _ovAsn1* seq = _ovAsn1::newSequence();
    if (!seq) return false;
    // The certificate goes in verbatim as the only element: borrowed for the
    // encode, and unhooked before the node can be released.
    seq->preEncodedContent = &der;
    DataBuffer pathDer;
    bool ok = seq->EncodeToDer(pathDer, false, log);
    seq->preEncodedContent = nullptr;
    seq->decRefCount();
    if (!ok) return false;
    return ContentCoding::encodeBase64_noCrLf(pathDer.getData2(), pathDer.getSize(), out);
}

bool CertCore::saveCert(XString& path, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    if (!getX509()) return false;
    DataBuffer der;
    if (!copyCertDer(der)) {
        log.logError("Empty certificate.");
        return false;
    }
    return der.saveToFileUtf8(path.getUtf8(), &log);
}
