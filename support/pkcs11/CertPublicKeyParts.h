// CertPublicKeyParts: a certificate's subject public key in the pieces that a
// PKCS#11 token keeps on its key objects, so that the token's private key for the
// certificate can be recognised by value.
#pragma once

#include "support/asn1/DerReader.h"
#include "support/crypto/KeyDer.h"

class LogBase;

// The key-type codes (kRsa, kEcdsa, ...) are the ones the certificate object reports.
class CertPublicKeyParts : public KeyTypeCode {
  public:
    // Reads the SubjectPublicKeyInfo of one DER certificate and keeps views into
    // certDer, which the caller must keep unchanged while this object is used.
    // Returns false, with one error line, when the bytes are not a certificate or
    // the key of a known algorithm is malformed. A key algorithm we cannot match by
    // value (anything but RSA, RSA-PSS, EC, DSA, Ed25519) is not a failure: the
    // key type stays kUnknown. Replaces whatever an earlier call found.
    bool parseCertificate(DerInput certDer, LogBase& log);
    // The same from the SubjectPublicKeyInfo element alone, for callers whose
    // certificate is parsed already (the certificate object's SPKI view).
    bool parseSpki(DerInput spkiDer, LogBase& log);

    int keyType() const { return m_keyType; }

    // Size in bytes of one signature that the matching private key produces
    // through PKCS#11: the modulus length for RSA; r||s for ECDSA and DSA (PKCS#11
    // mechanisms return the two halves raw, each as long as the group order);
    // 64 for Ed25519. 0 when not known.
    int expectedSigSize() const;

    // Comparisons against attribute values read from a token. Each returns false
    // when this certificate's key is not of the kind the attribute belongs to.
    //
    // CKA_MODULUS of an RSA key. Leading zero bytes are ignored on both sides:
    // tokens store big integers unsigned, DER INTEGERs carry a sign byte.
    bool matchesModulus(DerInput tokenModulus) const;
    // CKA_EC_POINT of an EC or Edwards key: the DER OCTET STRING wrapping the point
    // (what PKCS#11 prescribes) or the bare point (what some tokens store).
    bool matchesEcPoint(DerInput tokenPoint) const;
    // CKA_EC_PARAMS. For EC, the DER of the certificate's curve parameters; for
    // Ed25519 (whose certificate names no curve), the id-Ed25519 OID or the
    // PrintableString "edwards25519" that PKCS#11 3.0 tokens write.
    bool matchesEcParams(DerInput tokenParams) const;
    // CKA_VALUE of a DSA public key (y).
    bool matchesDsaPublicValue(DerInput tokenValue) const;

    // Views into the certificate DER; empty when not applicable.
    DerInput rsaModulus() const { return m_rsaModulus; }
    DerInput ecParams() const { return m_ecParams; }
    DerInput ecPoint() const { return m_ecPoint; }

  private:
    void reset();
    bool parseRsaKey(DerInput bits, LogBase& log);
    bool parseDsaKey(DerInput params, DerInput bits, LogBase& log);

    int m_keyType = kUnknown;
    DerInput m_rsaModulus;  // without leading zero bytes
    DerInput m_ecParams;    // the whole parameters element (usually a namedCurve OID)
    DerInput m_ecPoint;     // the subjectPublicKey bits: 04||X||Y, 02/03||X, or 32 Ed25519 bytes
    DerInput m_dsaQ;        // without leading zero bytes; empty when parameters are inherited
    DerInput m_dsaY;
};
