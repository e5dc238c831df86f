// How a certificate's key is matched against the attribute values a token keeps.
// The SubjectPublicKeyInfo reading itself is the shared key DER reader's, tested
// with the crypto code; the token tests find keys by these values end to end.
#include "support/pkcs11/CertPublicKeyParts.h"

#include <gtest/gtest.h>

#include <string>

#include "support/base/LogBase.h"
#include "support/pkcs11/Pkcs11KeyFinder.h"
#include "support_common/TestUtil.h"

namespace {

using namespace std::string_literals;
using Parts = CertPublicKeyParts;

std::string fixture(const std::string& name) {  // made by tests/data/pkcs11/make.sh
    return ovtest::readFile(ovtest::dataPath("pkcs11/" + name + ".cert.der"));
}
DerInput view(const std::string& b) {
    return DerInput(reinterpret_cast<const unsigned char*>(b.data()), b.size());
}
std::string str(const DerInput& d) {
    return std::string(reinterpret_cast<const char*>(d.data()), d.size());
}

const std::string kP256 = "\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07"s,  // prime256v1
    kEd25519 = "\x06\x03\x2b\x65\x70"s, kEd448 = "\x06\x03\x2b\x65\x71"s;

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
        std::string der = fixture(c.file);
        if (c.change == TrailingByte) der += '\0';
        if (c.change == UnassignedAlgorithm) {  // id-ecPublicKey 1.2.840.10045.2.1 -> ...2.9
            const size_t at = der.find("\x06\x07\x2a\x86\x48\xce\x3d\x02\x01");
            ASSERT_NE(at, std::string::npos);
            der[at + 8] = 0x09;
        }
        LogTree log;
        EXPECT_EQ(parts.parseCertificate(view(der), log), c.change != TrailingByte);
        EXPECT_EQ(log.numErrors(), c.change == TrailingByte) << log.text();
        EXPECT_EQ(parts.keyType(), c.keyType);
        EXPECT_EQ(parts.expectedSigSize(), c.sigSize);
    }
}

TEST(CertPublicKeyParts, TokenValuesAreComparedInEveryEncodingTokensUse) {
    const std::string rsaDer = fixture("rsa_cert"), ecDer = fixture("ec256_key"),
                      edDer = fixture("ed25519");
    LogTree log;
    Parts rsa, ec, ed;
    ASSERT_TRUE(rsa.parseCertificate(view(rsaDer), log) && ec.parseCertificate(view(ecDer), log) &&
                ed.parseCertificate(view(edDer), log))
        << log.text();

    // Tokens store big integers unsigned, DER INTEGERs carry a sign byte.
    const std::string modulus = str(rsa.rsaModulus()), point = str(ec.ecPoint());
    std::string otherModulus = modulus;
    otherModulus.back() ^= 1;
    const std::string octets = "\x04"s + static_cast<char>(point.size()) + point;

    enum Kind { Modulus, Point, Params };
    struct Case {
        const char* name;
        const Parts* cert;
        Kind kind;
        std::string token;
        bool want;
    } const cases[] = {
        {"modulus as stored", &rsa, Modulus, modulus, true},
        {"modulus with a leading zero", &rsa, Modulus, '\0' + modulus, true},
        {"other modulus", &rsa, Modulus, otherModulus, false},
        {"point wrapped in OCTET STRING", &ec, Point, octets, true},
        {"bare point", &ec, Point, point, true},
        {"wrapped point with trailing byte", &ec, Point, octets + '\0', false},
        {"point wrapped in BIT STRING", &ec, Point, '\x03' + octets.substr(1), false},
        {"same curve", &ec, Params, kP256, true},
        {"secp384r1", &ec, Params, "\x06\x05\x2b\x81\x04\x00\x22"s, false},
        {"id-Ed25519", &ed, Params, kEd25519, true},
        // A PrintableString, as PKCS#11 3.0 tokens write.
        {"Ed25519 by name", &ed, Params, "\x13\x0c"s + "edwards25519", true},
        {"id-Ed448 for an Ed25519 key", &ed, Params, kEd448, false},
        {"curve asked of an RSA certificate", &rsa, Params, kP256, false},
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
    struct Case {
        CK_KEY_TYPE ckk;
        std::string params;  // none when empty
        int want;
    } const cases[] = {
        {CKK_RSA, "", 1},
        {CKK_DSA, "", 2},
        {CKK_EC, "", 3},
        {CKK_EC_EDWARDS, "", 5},
        {CKK_EC_EDWARDS, kEd25519, 5},
        {CKK_EC_EDWARDS, kEd448, 0},
        {CKK_EC_EDWARDS, "\x13\x0a"s + "edwards448", 0},
        {CKK_EC_EDWARDS, "\x06\x09\x2b\x06\x01\x04\x01\xda\x47\x0f\x01", 5},  // Ed25519, GnuPG arc
        {CKK_AES, "", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        const DerInput params = view(c.params);
        EXPECT_EQ(Pkcs11KeyFinder::keyTypeFor(c.ckk, c.params.empty() ? nullptr : &params), c.want);
    }
}

}  // namespace
