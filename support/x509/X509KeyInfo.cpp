#include "support/x509/X509KeyInfo.h"

namespace {

const unsigned char kOidRsaEncryption[] = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01};  // 1.2.840.113549.1.1.1 rsaEncryption
const unsigned char kOidRsaPss[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                    0x0d, 0x01, 0x01, 0x0a};  // 1.2.840.113549.1.1.10 id-RSASSA-PSS
const unsigned char kOidDsa[] = {0x2a, 0x86, 0x48, 0xce,
                                 0x38, 0x04, 0x01};  // 1.2.840.10040.4.1 id-dsa
const unsigned char kOidEcPublicKey[] = {0x2a, 0x86, 0x48, 0xce,
                                         0x3d, 0x02, 0x01};  // 1.2.840.10045.2.1 id-ecPublicKey
const unsigned char kOidEd25519[] = {0x2b, 0x65, 0x70};      // 1.3.101.112 id-Ed25519
const unsigned char kOidEd448[] = {0x2b, 0x65, 0x71};        // 1.3.101.113 id-Ed448

struct Curve {
    unsigned char oid[10];
    unsigned oidLen;
    unsigned bits;
};
const Curve kCurves[] = {
    {{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07}, 8, 256},  // 1.2.840.10045.3.1.7 prime256v1
    {{0x2b, 0x81, 0x04, 0x00, 0x22}, 5, 384},                    // 1.3.132.0.34 secp384r1
    {{0x2b, 0x81, 0x04, 0x00, 0x23}, 5, 521},                    // 1.3.132.0.35 secp521r1
    {{0x2b, 0x81, 0x04, 0x00, 0x21}, 5, 224},                    // 1.3.132.0.33 secp224r1
    {{0x2b, 0x81, 0x04, 0x00, 0x0a}, 5, 256},                    // 1.3.132.0.10 secp256k1
    {{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x01}, 8, 192},  // 1.2.840.10045.3.1.1 prime192v1
    {{0x2b, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x07}, 9, 256},  // brainpoolP256r1
    {{0x2b, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x0b}, 9, 384},  // brainpoolP384r1
    {{0x2b, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x0d}, 9, 512},  // brainpoolP512r1
};

bool is(DerInput oid, const unsigned char* p, size_t n) {
    return oid.equals(p, n);
}

// The bit length of the first INTEGER of a SEQUENCE (RSA modulus, DSA p).
bool firstIntegerBits(DerInput seqElement, unsigned* bits) {
    DerParser outer(seqElement);
    DerParser seq;
    DerInput n;
    if (!outer.readSequence(&seq) || !seq.readIntegerBytes(&n)) return false;
    *bits = X509KeyInfo::bitLength(n);
    return true;
}

}  // namespace

unsigned X509KeyInfo::bitLength(DerInput m) {
    size_t i = 0;
    while (i < m.size() && m[i] == 0) ++i;
    if (i == m.size()) return 0;
    unsigned top = 0;
    for (unsigned char b = m[i]; b; b >>= 1) ++top;
    return static_cast<unsigned>((m.size() - i - 1) * 8) + top;
}

bool X509KeyInfo::typeAndBits(DerInput spki, int* keyType, unsigned* bits) {
    *keyType = kUnknown;
    *bits = 0;
    //   SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier,
    //                                       subjectPublicKey BIT STRING }
    DerParser outer(spki);
    DerParser seq, alg;
    DerInput oid, key;
    unsigned unused = 0;
    if (!outer.readSequence(&seq) || !seq.readSequence(&alg) || !alg.readOid(&oid) ||
        !seq.readBitString(&key, &unused))
        return false;
    DerElement params;
    bool haveParams = alg.hasMore() && alg.readAny(&params);

    if (is(oid, kOidRsaEncryption, sizeof kOidRsaEncryption) ||
        is(oid, kOidRsaPss, sizeof kOidRsaPss)) {
        //   RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
        if (!firstIntegerBits(key, bits)) return false;
        *keyType = kRsa;
        return true;
    }
    if (is(oid, kOidEcPublicKey, sizeof kOidEcPublicKey)) {
        *keyType = kEcdsa;
        if (haveParams && params.tag == der::kOid) {
            for (const Curve& c : kCurves) {
                if (params.contents.equals(c.oid, c.oidLen)) {
                    *bits = c.bits;
                    return true;
                }
            }
        }
        // Explicit or unknown curves: an uncompressed point 04 || X || Y holds
        // two coordinates of the field size.
        if (key.size() > 1 && key[0] == 0x04) *bits = static_cast<unsigned>((key.size() - 1) * 4);
        return true;
    }
    if (is(oid, kOidEd25519, sizeof kOidEd25519)) {
        *keyType = kEdDsa;
        *bits = 256;
        return true;
    }
    if (is(oid, kOidEd448, sizeof kOidEd448)) {
        // EdDSA's type code stands for Ed25519 alone; Ed448 keys are "unknown"
        // to the code but still report their size.
        *bits = 448;
        return true;
    }
    if (is(oid, kOidDsa, sizeof kOidDsa)) {
        //   Dss-Parms ::= SEQUENCE { p INTEGER, q INTEGER, g INTEGER }
        *keyType = kDsa;
        if (haveParams && params.tag == der::kSequence) {
            unsigned b = 0;
            if (firstIntegerBits(params.whole, &b)) *bits = b;
        }
        return true;
    }
    return true;
}
