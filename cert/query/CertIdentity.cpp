// Identity queries of CertCore: serial number, validity, fingerprints, the DER
// of selected parts, the signature and its verification.
#include "cert/CertCore.h"
#include "support/asn1/Asn1Node.h"
#include "support/asn1/MpMath.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"

bool CertCore::getSerialNumber(XString& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->get_SerialNumber(out, log) : false;
}

bool CertCore::getSerialDecimal(XString& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    XString hex;
    if (getSerialNumber(hex, log)) {
        // Unsigned whatever the first bit: serials are identifiers, and
        // negative ones issued by careless CAs are shown by their octets.
        DataBuffer bytes;
        bytes.appendEncoded(hex.getUtf8(), "hex");
        mp_int n;
        if (MpMath::mpint_from_bytes(n, bytes.getData2(), static_cast<int>(bytes.getSize()))) {
            MpMath::mpToRadixString(n, out.getUtf8Sb_rw(), 10);
        }
    }
    return !out.isEmpty();
}

void CertCore::getValidFrom(OrvaneSysTime& out, LogBase& log) {
    if (m_magic != kMagic) return;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    if (x) x->get_Valid_To_or_From_UTC(true, out, log);
}

void CertCore::getValidTo(OrvaneSysTime& out, LogBase& log) {
    if (m_magic != kMagic) return;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    if (x) x->get_Valid_To_or_From_UTC(false, out, log);
}

// Writes a date even when there is none to read: callers that build text
// from several fields expect one, so the default record's text stands in.
static void validitySb(CertCore& cert, bool from, StringBuffer& out, LogBase& log) {
    out.clear();
    OrvaneSysTime t;
    if (cert.m_magic == CertCore::kMagic) {
        CritSecExitor lock(&cert);
        OrvaneX509* x = cert.getX509();
        if (x) x->get_Valid_To_or_From_UTC(from, t, log);
    }
    _ovDateParser::checkFixSystemTime(t);
    _ovDateParser::SysTimeToRfc3339(t, false, false, out, true);
}

void CertCore::getValidFromSb(StringBuffer& out, LogBase& log) {
    validitySb(*this, true, out, log);
}

void CertCore::getValidToSb(StringBuffer& out, LogBase& log) {
    validitySb(*this, false, out, log);
}

bool CertCore::isCertExpired(LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    return x ? x->isCertExpired(log) : false;
}

bool CertCore::getOrvaneKeyId64(StringBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->getOrvaneKeyId64(out, log) : false;
}

bool CertCore::getPartDer(int part, DataBuffer& out, LogBase& log) {
    out.clear();
    if (part == 2) return getPublicKeyAsDER(out, log);
    if (part != 0 && part != 1) return getPublicKeyForOCSP(out, log);

    if (m_magic != kMagic) return false;
    _ovAsn1* name = nullptr;
    {
        CritSecExitor lock(this);
        OrvaneX509* x = getX509();
        if (!x) return false;
        name = x->getDnAsn(part == 1, log);
    }
    if (!name) return false;
    bool ok = name->EncodeToDer(out, false, log);
    name->decRefCount();
    return ok;
}

bool CertCore::getPublicKeyAsDER(DataBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->get_PublicKey(out, log) : false;
}

bool CertCore::getPublicKeyForOCSP(DataBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->get_PublicKeyForOCSP(out, log) : false;
}

bool CertCore::getSpkiFingerprint(XString& hashAlg, XString& encoding, XString& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    if (!x) return false;
    return x->getSpkiFingerprint(hashAlg.getUtf8Sb(), encoding.getUtf8Sb(), out, log);
}

// The thumbprint operations answer true for any parsed certificate: callers
// treat false as "no certificate", not as a hashing problem.
bool CertCore::getSha1Thumbprint(DataBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    if (!x) return false;
    x->get_Sha1Thumbprint(out, log);
    return true;
}

bool CertCore::getSha1ThumbprintX(XString& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    if (!x) return false;
    x->get_Sha1ThumbprintX(out, log);
    return true;
}

bool CertCore::getCertSignature(DataBuffer& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->get_SignatureValue(out, log) : false;
}

bool CertCore::verifyCertSignature(CertCore* issuer, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    OrvaneX509* x = getX509();
    if (!x) return false;
    // The issuer is read without its lock: certificates are immutable once
    // parsed, and locking two objects here could deadlock against a caller
    // verifying the other way round. An issuer object with nothing parsed hands
    // over its empty parser, which fails; passing null instead would quietly
    // turn the call into a self-signature check.
    return x->verifyCertSignature(issuer ? issuer->m_x509Holder.getX509() : nullptr, log);
}

bool CertCore::toXml(XString& out, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    out.clear();
    OrvaneX509* x = getX509();
    return x ? x->getXml(out, log) : false;
}
