#include "support/pkcs11/CertPublicKeyParts.h"

#include "support/base/LogBase.h"

namespace {

// Content octets of the algorithm OIDs we match by value.
const unsigned char kOidRsaEncryption[] = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01};  // 1.2.840.113549.1.1.1 rsaEncryption
const unsigned char kOidRsaPss[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                    0x0d, 0x01, 0x01, 0x0a};  // 1.2.840.113549.1.1.10 id-RSASSA-PSS
const unsigned char kOidEcPublicKey[] = {0x2a, 0x86, 0x48, 0xce,
                                         0x3d, 0x02, 0x01};  // 1.2.840.10045.2.1 id-ecPublicKey
const unsigned char kOidDsa[] = {0x2a, 0x86, 0x48, 0xce,
                                 0x38, 0x04, 0x01};      // 1.2.840.10040.4.1 id-dsa
const unsigned char kOidEd25519[] = {0x2b, 0x65, 0x70};  // 1.3.101.112 id-Ed25519

// CKA_EC_PARAMS forms that name Ed25519 on a token.
const unsigned char kEd25519ParamsOid[] = {0x06, 0x03, 0x2b, 0x65, 0x70};  // 1.3.101.112 id-Ed25519
const unsigned char kEd25519ParamsName[] = {0x13, 0x0c, 'e', 'd', 'w', 'a', 'r',
                                            'd',  's',  '2', '5', '5', '1', '9'};

constexpr size_t kEd25519KeyBytes = 32;
constexpr int kEd25519SigBytes = 64;

bool oidIs(DerInput oid, const unsigned char* want, size_t n) {
    return oid.equals(want, n);
}

DerInput stripLeadingZeros(DerInput v) {
    size_t i = 0;
    while (i < v.size() && v[i] == 0) ++i;
    return v.sub(i, v.size() - i);
}

bool sameUnsigned(DerInput a, DerInput b) {
    DerInput x = stripLeadingZeros(a);
    return !x.empty() && x.equals(stripLeadingZeros(b));
}

}  // namespace

void CertPublicKeyParts::reset() {
    *this = CertPublicKeyParts();
}

bool CertPublicKeyParts::parseCertificate(DerInput certDer, LogBase& log) {
    reset();
    DerParser top(certDer);
    DerParser cert, tbs, spki, alg;
    // Certificate  ::=  SEQUENCE  {
    //      tbsCertificate       TBSCertificate,
    if (!top.readSequence(&cert) || top.hasMore() || !cert.readSequence(&tbs)) {
        log.logError("The certificate DER is not valid.");
        return false;
    }
    // TBSCertificate  ::=  SEQUENCE  {
    //      version         [0]  EXPLICIT Version DEFAULT v1,
    //      serialNumber         CertificateSerialNumber,
    //      signature            AlgorithmIdentifier,
    //      issuer               Name,
    //      validity             Validity,
    //      subject              Name,
    //      subjectPublicKeyInfo SubjectPublicKeyInfo,
    bool ok = true;
    if (tbs.nextIs(der::contextConstructed(0))) ok = tbs.skip();
    for (int i = 0; ok && i < 5; ++i) ok = tbs.skip();
    // SubjectPublicKeyInfo  ::=  SEQUENCE  {
    //      algorithm            AlgorithmIdentifier,
    //      subjectPublicKey     BIT STRING  }
    // AlgorithmIdentifier  ::=  SEQUENCE  {
    //      algorithm               OBJECT IDENTIFIER,
    //      parameters              ANY DEFINED BY algorithm OPTIONAL  }
    DerInput oid, bits;
    unsigned unusedBits = 0;
    DerElement params;
    bool hasParams = false;
    ok = ok && tbs.readSequence(&spki) && spki.readSequence(&alg) && alg.readOid(&oid);
    if (ok && alg.hasMore()) {
        ok = alg.readAny(&params) && !alg.hasMore();
        hasParams = ok;
    }
    ok = ok && spki.readBitString(&bits, &unusedBits) && unusedBits == 0 && !spki.hasMore();
    if (!ok) {
        log.logError("The certificate's public key info is not valid.");
        return false;
    }

    if (oidIs(oid, kOidRsaEncryption, sizeof kOidRsaEncryption) ||
        oidIs(oid, kOidRsaPss, sizeof kOidRsaPss)) {
        return parseRsaKey(bits, log);
    }
    if (oidIs(oid, kOidEcPublicKey, sizeof kOidEcPublicKey)) {
        // ECParameters: a namedCurve OID in practice; implicitCurve (NULL) leaves
        // nothing to compare with the token, so the point alone must decide.
        if (bits.empty()) {
            log.logError("The certificate's EC public key is empty.");
            return false;
        }
        if (hasParams && params.tag != der::kNull) m_ecParams = params.whole;
        m_ecPoint = bits;
        m_keyType = kEcdsa;
        return true;
    }
    if (oidIs(oid, kOidEd25519, sizeof kOidEd25519)) {
        if (bits.size() != kEd25519KeyBytes) {
            log.logError("The certificate's Ed25519 public key is not 32 bytes.");
            return false;
        }
        m_ecPoint = bits;
        m_keyType = kEdDsa;
        return true;
    }
    if (oidIs(oid, kOidDsa, sizeof kOidDsa))
        return parseDsaKey(hasParams ? &params : nullptr, bits, log);
    return true;  // another algorithm: only a certificate object on the token can lead to its key
}

bool CertPublicKeyParts::parseRsaKey(DerInput bits, LogBase& log) {
    // RSAPublicKey ::= SEQUENCE {
    //     modulus           INTEGER,  -- n
    //     publicExponent    INTEGER   -- e
    // }
    DerParser outer(bits), rsa;
    DerInput n, e;
    if (!outer.readSequence(&rsa) || !rsa.readIntegerBytes(&n) || !rsa.readIntegerBytes(&e) ||
        stripLeadingZeros(n).empty()) {
        log.logError("The certificate's RSA public key is not valid.");
        return false;
    }
    m_rsaModulus = stripLeadingZeros(n);
    m_keyType = kRsa;
    return true;
}

bool CertPublicKeyParts::parseDsaKey(const DerElement* params, DerInput bits, LogBase& log) {
    // DSAPublicKey ::= INTEGER -- public key, Y
    DerParser keyParser(bits);
    DerInput y;
    if (!keyParser.readIntegerBytes(&y) || keyParser.hasMore()) {
        log.logError("The certificate's DSA public key is not valid.");
        return false;
    }
    // Dss-Parms  ::=  SEQUENCE  {
    //     p             INTEGER,
    //     q             INTEGER,
    //     g             INTEGER  }
    // Absent parameters are inherited from the issuer; then the signature size
    // stays unknown but the key can still be matched by y.
    if (params && params->tag == der::kSequence) {
        DerParser seq(params->contents);
        DerInput p, q;
        if (!seq.readIntegerBytes(&p) || !seq.readIntegerBytes(&q)) {
            log.logError("The certificate's DSA parameters are not valid.");
            return false;
        }
        m_dsaQ = stripLeadingZeros(q);
    }
    m_dsaY = stripLeadingZeros(y);
    m_keyType = kDsa;
    return true;
}

int CertPublicKeyParts::expectedSigSize() const {
    switch (m_keyType) {
        case kRsa:
            return static_cast<int>(m_rsaModulus.size());
        case kEcdsa:
            if (m_ecPoint.empty()) return 0;
            // SEC 1 point encodings: 04||X||Y uncompressed, 02/03||X compressed.
            if (m_ecPoint[0] == 0x04 && m_ecPoint.size() % 2 == 1)
                return static_cast<int>(m_ecPoint.size() - 1);
            if ((m_ecPoint[0] == 0x02 || m_ecPoint[0] == 0x03) && m_ecPoint.size() > 1)
                return static_cast<int>(2 * (m_ecPoint.size() - 1));
            return 0;
        case kEdDsa:
            return kEd25519SigBytes;
        case kDsa:
            return static_cast<int>(2 * m_dsaQ.size());
        default:
            return 0;
    }
}

bool CertPublicKeyParts::matchesModulus(DerInput tokenModulus) const {
    return m_keyType == kRsa && sameUnsigned(m_rsaModulus, tokenModulus);
}

bool CertPublicKeyParts::matchesEcPoint(DerInput tokenPoint) const {
    if ((m_keyType != kEcdsa && m_keyType != kEdDsa) || m_ecPoint.empty()) return false;
    if (tokenPoint.equals(m_ecPoint)) return true;
    DerParser p(tokenPoint);
    DerInput wrapped;
    return p.read(der::kOctetString, &wrapped) && !p.hasMore() && wrapped.equals(m_ecPoint);
}

bool CertPublicKeyParts::matchesEcParams(DerInput tokenParams) const {
    if (m_keyType == kEdDsa) {
        return tokenParams.equals(kEd25519ParamsOid, sizeof kEd25519ParamsOid) ||
               tokenParams.equals(kEd25519ParamsName, sizeof kEd25519ParamsName);
    }
    if (m_keyType != kEcdsa) return false;
    // A certificate without a named curve has nothing to compare; the point decides.
    return m_ecParams.empty() || tokenParams.equals(m_ecParams);
}

bool CertPublicKeyParts::matchesDsaPublicValue(DerInput tokenValue) const {
    return m_keyType == kDsa && sameUnsigned(m_dsaY, tokenValue);
}
