// Export forms of a certificate: DER, PEM, PkiPath, file. Every form is made
// from the DER the parser holds; nothing here re-encodes the certificate.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "support/asn1/Asn1Node.h"
#include "support/base/ContentCoding.h"
#include "support/base/RefPtr.h"

using certquery::locked;

namespace {

// A copy of the certificate's DER, for the writers that take a buffer; false
// when it comes out empty.
bool copyDer(const OrvaneX509& x, DataBuffer& der) {
    x.getCertDer(der);
    return der.getSize() != 0;
}

}  // namespace

bool CertCore::getDEREncodedCert(DataBuffer& out) {
    return locked(*this, false, [&](OrvaneX509* x) {
        unsigned before = out.getSize();
        x->getCertDer(out);
        return out.getSize() > before;
    });
}

unsigned CertCore::getDEREncodedCertSize() {
    return locked(*this, 0u, [](OrvaneX509* x) { return x->getCertDerSize(); });
}

bool CertCore::getEncodedCertForPem(StringBuffer& out, LogBase& /*log*/) {
    return locked(*this, false, [&](OrvaneX509* x) {
        DerInput der = x->certDer();
        if (der.empty()) return false;
        ContentCoding cc;
        cc.setLineLength(64);
        cc.encodeBase64(der.data(), static_cast<unsigned>(der.size()), out);
        return true;
    });
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
    return locked(*this, false, [&](OrvaneX509* x) {
        DataBuffer der;
        if (!copyDer(*x, der)) return false;
        auto seq = RefPtr<_ovAsn1>::adopt(_ovAsn1::newSequence());
        if (!seq) return false;
        // The certificate goes in verbatim as the only element: borrowed for the
        // encode, and unhooked before the node can be released.
        seq->preEncodedContent = &der;
        DataBuffer pathDer;
        bool ok = seq->EncodeToDer(pathDer, false, log);
        seq->preEncodedContent = nullptr;
        return ok && ContentCoding::encodeBase64_noCrLf(pathDer.getData2(), pathDer.getSize(), out);
    });
}

bool CertCore::saveCert(XString& path, LogBase& log) {
    return locked(*this, false, [&](OrvaneX509* x) {
        DataBuffer der;
        if (!copyDer(*x, der)) {
            log.logError("Empty certificate.");
            return false;
        }
        return der.saveToFileUtf8(path.getUtf8(), &log);
    });
}
