#include "support/pkcs11/CertPublicKeyParts.h"

#include "support/base/LogBase.h"

namespace {

// CKA_EC_PARAMS forms that name Ed25519 on a token.
const unsigned char kEd25519ParamsOid[] = {0x06, 0x03, 0x2b, 0x65, 0x70};  // 1.3.101.112 id-Ed25519
const unsigned char kEd25519ParamsName[] = {0x13, 0x0c, 'e', 'd', 'w', 'a', 'r',
                                            'd',  's',  '2', '5', '5', '1', '9'};

constexpr size_t kEd25519KeyBytes = 32;
constexpr int kEd25519SigBytes = 64;

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
    DerParser cert, tbs;
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
    DerElement spkiElement;
    if (!ok || !tbs.readElement(der::kSequence, &spkiElement)) {
        log.logError("The certificate's public key info is not valid.");
        return false;
    }
    return parseSpki(spkiElement.whole, log);
}

bool CertPublicKeyParts::parseSpki(DerInput spkiDer, LogBase& log) {
    reset();
    SpkiView spki;
    LogNull quiet;  // one error line of our own below
    if (!keyder::parseSpki(spkiDer, &spki, quiet)) {
        log.logError("The certificate's public key info is not valid.");
        return false;
    }

    switch (spki.kind) {
        case KeyKind::Rsa:
            return parseRsaKey(spki.keyBits, log);
        case KeyKind::Ec:
            // ECParameters: a namedCurve OID in practice; implicitCurve (NULL) leaves
            // nothing to compare with the token, so the point alone must decide.
            if (spki.keyBits.empty()) {
                log.logError("The certificate's EC public key is empty.");
                return false;
            }
            if (!spki.params.empty() && spki.params[0] != der::kNull) m_ecParams = spki.params;
            m_ecPoint = spki.keyBits;
            m_keyType = kEcdsa;
            return true;
        case KeyKind::Ed25519:
            if (spki.keyBits.size() != kEd25519KeyBytes) {
                log.logError("The certificate's Ed25519 public key is not 32 bytes.");
                return false;
            }
            m_ecPoint = spki.keyBits;
            m_keyType = kEdDsa;
            return true;
        case KeyKind::Dsa:
            return parseDsaKey(spki.params, spki.keyBits, log);
        default:
            // Another algorithm: only a certificate object on the token can lead to its key.
            return true;
    }
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

bool CertPublicKeyParts::parseDsaKey(DerInput params, DerInput bits, LogBase& log) {
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
    if (!params.empty() && params[0] == der::kSequence) {
        DerParser outer(params), seq;
        DerInput p, q;
        if (!outer.readSequence(&seq) || !seq.readIntegerBytes(&p) || !seq.readIntegerBytes(&q)) {
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
