// How a certificate's key is matched against the attribute values a token keeps.
// The SubjectPublicKeyInfo reading itself is the shared key DER reader's, tested
// with the crypto code; the token tests find keys by these values end to end.
#include "support/pkcs11/CertPublicKeyParts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/pkcs11/Pkcs11KeyFinder.h"
#include "support_common/TestUtil.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Parts = CertPublicKeyParts;

Bytes fixture(const std::string& name) {  // made by tests/data/pkcs11/make.sh
    return ovtest::readFileBytes(ovtest::dataPath("pkcs11/" + name + ".cert.der"));
}

DerInput view(const Bytes& b) {
    return DerInput(b.data(), b.size());
}

Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// PKCS#11 signatures are raw: r||s as wide as the group order, whatever the point
// encoding (P-521 rounds up to 66 bytes per half), and the modulus length for RSA.
// A key algorithm nobody assigned leaves the certificate readable, its key
// unmatched. One object reads every row: each call replaces what the last found.
TEST(CertPublicKeyParts, KeyTypeAndSignatureSize) {
    enum Change { None, TrailingByte, UnassignedAlgorithm };
    struct Case {
        const char* file;
        Change change;
        int keyType, sigSize;
    } const cases[] = {
        {"rsa_cert", None, Parts::kRsa, 256},
        {"ec256_key", TrailingByte, Parts::kUnknown, 0},
        {"ec256c", None, Parts::kEcdsa, 64},
        {"ec256_key", UnassignedAlgorithm, Parts::kUnknown, 0},
        {"ec521", None, Parts::kEcdsa, 132},
        {"ed25519", None, Parts::kEdDsa, 64},
        {"dsa", None, Parts::kDsa, 64},  // 256-bit q
    };
    Parts parts;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file + std::to_string(c.change));
        Bytes der = fixture(c.file);
        if (c.change == TrailingByte) der.push_back(0);
        if (c.change == UnassignedAlgorithm) {  // id-ecPublicKey 1.2.840.10045.2.1 -> ...2.9
            const unsigned char oid[] = {0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
            auto at = std::search(der.begin(), der.end(), std::begin(oid), std::end(oid));
            ASSERT_NE(at, der.end());
            at[8] = 0x09;
        }
        LogTree log;
        EXPECT_EQ(parts.parseCertificate(view(der), log), c.change != TrailingByte);
        EXPECT_EQ(log.numErrors(), c.change == TrailingByte) << log.text();
        EXPECT_EQ(parts.keyType(), c.keyType);
        EXPECT_EQ(parts.expectedSigSize(), c.sigSize);
    }
}

TEST(CertPublicKeyParts, TokenValuesAreComparedInEveryEncodingTokensUse) {
    const Bytes rsaDer = fixture("rsa_cert"), ecDer = fixture("ec256_key"),
                edDer = fixture("ed25519");
    LogTree log;
    Parts rsa, ec, ed;
    ASSERT_TRUE(rsa.parseCertificate(view(rsaDer), log) && ec.parseCertificate(view(ecDer), log) &&
                ed.parseCertificate(view(edDer), log))
        << log.text();

    // Tokens store big integers unsigned, DER INTEGERs carry a sign byte.
    const DerInput m = rsa.rsaModulus(), pt = ec.ecPoint();
    const Bytes modulus(m.data(), m.data() + m.size()), point(pt.data(), pt.data() + pt.size());
    Bytes otherModulus = modulus;
    otherModulus.back() ^= 1;
    const unsigned char n = static_cast<unsigned char>(point.size());
    const Bytes p256 = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};  // prime256v1

    enum Kind { Modulus, Point, Params };
    struct Case {
        const char* name;
        const Parts* cert;
        Kind kind;
        Bytes token;
        bool want;
    } const cases[] = {
        {"modulus as stored", &rsa, Modulus, modulus, true},
        {"modulus with a leading zero", &rsa, Modulus, cat({0}, modulus), true},
        {"other modulus", &rsa, Modulus, otherModulus, false},
        {"point wrapped in OCTET STRING", &ec, Point, cat({0x04, n}, point), true},
        {"bare point", &ec, Point, point, true},
        {"wrapped point with trailing byte", &ec, Point, cat(cat({0x04, n}, point), {0}), false},
        {"point wrapped in BIT STRING", &ec, Point, cat({0x03, n}, point), false},
        {"same curve", &ec, Params, p256, true},
        {"secp384r1", &ec, Params, {0x06, 0x05, 0x2b, 0x81, 0x04, 0x00, 0x22}, false},
        {"id-Ed25519", &ed, Params, {0x06, 0x03, 0x2b, 0x65, 0x70}, true},
        // A PrintableString, as PKCS#11 3.0 tokens write.
        {"Ed25519 by name", &ed, Params,
         cat({0x13, 0x0c}, {'e', 'd', 'w', 'a', 'r', 'd', 's', '2', '5', '5', '1', '9'}), true},
        {"id-Ed448 for an Ed25519 key", &ed, Params, {0x06, 0x03, 0x2b, 0x65, 0x71}, false},
        {"curve asked of an RSA certificate", &rsa, Params, p256, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const DerInput t = view(c.token);
        EXPECT_EQ(c.kind == Modulus ? c.cert->matchesModulus(t)
                  : c.kind == Point ? c.cert->matchesEcPoint(t)
                                    : c.cert->matchesEcParams(t),
                  c.want);
    }
}

// The code a token's key is linked with: an Edwards key is Ed25519 (5) unless its
// curve is Ed448, which has no code of its own.
TEST(CertPublicKeyParts, TokenKeyTypeCodes) {
    const Bytes ed25519 = {0x06, 0x03, 0x2b, 0x65, 0x70}, ed448 = {0x06, 0x03, 0x2b, 0x65, 0x71},
                ed25519Gnu = {0x06, 0x09, 0x2b, 0x06, 0x01, 0x04, 0x01, 0xda, 0x47, 0x0f, 0x01},
                ed448Name = cat({0x13, 0x0a}, {'e', 'd', 'w', 'a', 'r', 'd', 's', '4', '4', '8'});
    struct Case {
        CK_KEY_TYPE ckk;
        const Bytes* params;
        int want;
    } const cases[] = {
        {CKK_RSA, nullptr, 1},
        {CKK_DSA, nullptr, 2},
        {CKK_EC, nullptr, 3},
        {CKK_EC_EDWARDS, nullptr, 5},
        {CKK_EC_EDWARDS, &ed25519, 5},
        {CKK_EC_EDWARDS, &ed448, 0},
        {CKK_EC_EDWARDS, &ed448Name, 0},
        {CKK_EC_EDWARDS, &ed25519Gnu, 5},
        {CKK_AES, nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        const DerInput params = c.params ? view(*c.params) : DerInput();
        EXPECT_EQ(Pkcs11KeyFinder::keyTypeFor(c.ckk, c.params ? &params : nullptr), c.want);
    }
}

}  // namespace
