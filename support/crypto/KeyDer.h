// Reading and re-encoding the DER forms of public and private keys without
// OpenSSL: SubjectPublicKeyInfo, PKCS#1, PKCS#8, SEC1 and the traditional DSA
// sequence. Facts (type, size, the key id input) come from here; OpenSSL is
// asked only for what needs arithmetic (KeyOssl.h).
#pragma once

#include "support/asn1/DerReader.h"

class DataBuffer;
class LogBase;
class StringBuffer;

enum class KeyKind { None, Rsa, Dsa, Ec, Ed25519, Ed448, Other };

// The key type codes that the certificate object, the key container and the
// token key matcher report. Ed448 has no code of its own and reports kUnknown.
struct KeyTypeCode {
    static constexpr int kUnknown = 0;
    static constexpr int kRsa = 1;
    static constexpr int kDsa = 2;
    static constexpr int kEcdsa = 3;
    static constexpr int kEdDsa = 5;
    static int of(KeyKind kind);
};

namespace keyoid {
constexpr const char* kRsaEncryption = "1.2.840.113549.1.1.1";  // rsaEncryption
constexpr const char* kRsaPss = "1.2.840.113549.1.1.10";        // id-RSASSA-PSS
constexpr const char* kDsa = "1.2.840.10040.4.1";               // id-dsa
constexpr const char* kEcPublicKey = "1.2.840.10045.2.1";       // id-ecPublicKey
constexpr const char* kEd25519 = "1.3.101.112";                 // id-Ed25519
constexpr const char* kEd448 = "1.3.101.113";                   // id-Ed448
}  // namespace keyoid

// A named elliptic curve we know the size of without asking OpenSSL.
struct CurveInfo {
    const char* oid;
    const char* name;
    unsigned bits;        // the size reported for keys on the curve
    unsigned fieldBytes;  // length of one coordinate
};
// Null when the curve is not in the table.
const CurveInfo* findCurve(const char* oidText);

// A SubjectPublicKeyInfo, as views into the caller's bytes.
//   SubjectPublicKeyInfo ::= SEQUENCE {
//     algorithm         AlgorithmIdentifier,
//     subjectPublicKey  BIT STRING }
struct SpkiView {
    DerInput whole;
    DerInput algId;    // the whole AlgorithmIdentifier element
    DerInput params;   // the whole parameters element; empty when absent
    DerInput keyBits;  // subjectPublicKey without its unused-bits byte
    KeyKind kind = KeyKind::None;
    char oidText[80] = {0};
};

// What the public part tells about a key.
struct KeyFacts {
    KeyKind kind = KeyKind::None;
    unsigned bits = 0;
    char curveOid[40] = {0};  // EC only: the named curve, dotted
};

// The forms loadAnyDer recognises, told apart by structure alone.
enum class DerForm {
    Unknown,
    Spki,
    RsaPublic,       // PKCS#1 RSAPublicKey
    Pkcs8,           // PrivateKeyInfo / OneAsymmetricKey
    EncryptedPkcs8,  // EncryptedPrivateKeyInfo
    RsaPrivate,      // PKCS#1 RSAPrivateKey
    EcPrivate,       // SEC1 ECPrivateKey
    DsaPrivate       // OpenSSL's traditional DSA sequence
};

namespace keyder {

// Which form the bytes hold. The outer SEQUENCE must cover all of them.
DerForm detectForm(DerInput der);

// Splits an SPKI. False (with a log line) when it is malformed.
bool parseSpki(DerInput der, SpkiView* out, LogBase& log);

// Type and size of the key in an SPKI; false for a malformed key of a known
// type or an unsupported EC curve. Unknown algorithms give KeyKind::Other, 0 bits.
bool spkiFacts(const SpkiView& spki, KeyFacts* out, LogBase& log);

// Appends the bytes the key id is the digest of: a type label, a zero byte, and
//   RSA: the modulus without leading zero bytes
//   DSA: y without leading zero bytes
//   EC: the curve OID's content octets, then the point in uncompressed form
//   Ed25519, Ed448: the raw public key
//   others: the algorithm OID's content octets, then the subjectPublicKey bits
bool keyIdInput(const SpkiView& spki, DataBuffer& out, LogBase& log);

// Appends the 64-bit key id of the SPKI as 16 upper-case hex digits: the first 8
// bytes of SHA-256 over keyIdInput.
bool keyId64(DerInput spki, StringBuffer& out, LogBase& log);

// PKCS#1 RSAPublicKey to an SPKI (appended).
bool spkiFromRsaPublic(DerInput rsaPublicKey, DataBuffer& spki, LogBase& log);

// Turns any private form into PKCS#8 (appended to pkcs8, which the caller marks
// secure) and, when the input carries the public key, an SPKI (appended to spki).
// spki stays empty when the public key must be computed (KeyOssl).
bool normalisePrivate(DerForm form, DerInput der, DataBuffer& pkcs8, DataBuffer& spki,
                      LogBase& log);

// The traditional encoding of a PKCS#8 key, appended, with the PEM label that
// goes with it: RSAPrivateKey ("RSA PRIVATE KEY"), SEC1 ECPrivateKey with curve
// and public key ("EC PRIVATE KEY"), the DSA sequence ("DSA PRIVATE KEY"). Keys
// without a traditional form (EdDSA, RSA-PSS) are written as PKCS#8 with the
// label "PRIVATE KEY".
bool traditionalFromPkcs8(DerInput pkcs8, DerInput spki, DataBuffer& out, const char** pemLabel,
                          LogBase& log);

// Whether two SPKIs hold the same public key, decided from the DER alone.
enum class SameKey { Yes, No, Undecided };
// RSA: modulus and exponent (leading zero bytes ignored); EC: the curve and the
// point, an uncompressed point against a compressed one by X and the parity of
// Y; Ed25519, Ed448: the key bytes; DSA: y, and the parameters when both carry
// them. Keys of different kinds differ. Undecided for hybrid EC points and for
// other algorithms whose SPKIs are not byte-for-byte equal.
SameKey samePublicKey(const SpkiView& a, const SpkiView& b);

// Number of significant bits of an INTEGER's content octets (0 for zero or a
// negative value).
unsigned integerBits(DerInput integerContents);

}  // namespace keyder
