// Identity queries of CertCore: serial number, validity, fingerprints, the DER
// of selected parts, the signature and its verification.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "support/asn1/Asn1Node.h"
#include "support/asn1/MpMath.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"

using certquery::locked;
using certquery::replacing;

bool CertCore::getSerialNumber(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->get_SerialNumber(out, log); });
}

bool CertCore::getSerialDecimal(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        XString hex;
        if (!x->get_SerialNumber(hex, log)) return false;
        // Unsigned whatever the first bit: serials are identifiers, and
        // negative ones issued by careless CAs are shown by their octets.
        DataBuffer bytes;
        bytes.appendEncoded(hex.getUtf8(), "hex");
        mp_int n;
        if (MpMath::mpint_from_bytes(n, bytes.getData2(), static_cast<int>(bytes.getSize()))) {
            MpMath::mpToRadixString(n, out.getUtf8Sb_rw(), 10);
        }
        return !out.isEmpty();
    });
}

// notBefore (from) or notAfter into t; t untouched without a certificate.
static void validity(CertCore& cert, bool from, OrvaneSysTime& t, LogBase& log) {
    locked(cert, false, [&](OrvaneX509* x) { return x->get_Valid_To_or_From_UTC(from, t, log); });
}

void CertCore::getValidFrom(OrvaneSysTime& out, LogBase& log) {
    validity(*this, true, out, log);
}

void CertCore::getValidTo(OrvaneSysTime& out, LogBase& log) {
    validity(*this, false, out, log);
}

// Writes a date even when there is none to read: callers that build text
// from several fields expect one, so the default record's text stands in.
static void validitySb(CertCore& cert, bool from, StringBuffer& out, LogBase& log) {
    out.clear();
    OrvaneSysTime t;
    validity(cert, from, t, log);
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
    return locked(*this, false, [&](OrvaneX509* x) { return x->isCertExpired(log); });
}

bool CertCore::getOrvaneKeyId64(StringBuffer& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->getOrvaneKeyId64(out, log); });
}

bool CertCore::getPartDer(int part, DataBuffer& out, LogBase& log) {
    out.clear();
    if (part == 2) return getPublicKeyAsDER(out, log);
    if (part != 0 && part != 1) return getPublicKeyForOCSP(out, log);

    _ovAsn1* name = locked(*this, static_cast<_ovAsn1*>(nullptr),
                           [&](OrvaneX509* x) { return x->getDnAsn(part == 1, log); });
    if (!name) return false;
    bool ok = name->EncodeToDer(out, false, log);
    name->decRefCount();
    return ok;
}

bool CertCore::getPublicKeyAsDER(DataBuffer& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->get_PublicKey(out, log); });
}

bool CertCore::getPublicKeyForOCSP(DataBuffer& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->get_PublicKeyForOCSP(out, log); });
}

bool CertCore::getSpkiFingerprint(XString& hashAlg, XString& encoding, XString& out, LogBase& log) {
    // Appends: never cleared.
    return locked(*this, false, [&](OrvaneX509* x) {
        return x->getSpkiFingerprint(hashAlg.getUtf8Sb(), encoding.getUtf8Sb(), out, log);
    });
}

// The thumbprint operations answer true for any parsed certificate: callers
// treat false as "no certificate", not as a hashing problem.
bool CertCore::getSha1Thumbprint(DataBuffer& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        x->get_Sha1Thumbprint(out, log);
        return true;
    });
}

bool CertCore::getSha1ThumbprintX(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        x->get_Sha1ThumbprintX(out, log);
        return true;
    });
}

bool CertCore::getCertSignature(DataBuffer& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->get_SignatureValue(out, log); });
}

bool CertCore::verifyCertSignature(CertCore* issuer, LogBase& log) {
    return locked(*this, false, [&](OrvaneX509* x) {
        // The issuer is read without its lock: certificates are immutable once
        // parsed, and locking two objects here could deadlock against a caller
        // verifying the other way round. An issuer object with nothing parsed
        // hands over its empty parser, which fails; passing null instead would
        // quietly turn the call into a self-signature check.
        return x->verifyCertSignature(issuer ? issuer->m_x509Holder.getX509() : nullptr, log);
    });
}

bool CertCore::toXml(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->getXml(out, log); });
}
