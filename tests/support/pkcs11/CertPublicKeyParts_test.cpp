#include "support/pkcs11/CertPublicKeyParts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support_common/TestUtil.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes fixture(const std::string& name) {
    Bytes b = ovtest::readFileBytes(ovtest::dataPath("pkcs11/" + name + ".cert.der"));
    EXPECT_FALSE(b.empty()) << "fixture missing: " << name << " (run tests/data/pkcs11/make.sh)";
    return b;
}

DerInput view(const Bytes& b) {
    return DerInput(b.data(), b.size());
}

std::string hexUpper(DerInput v) {
    static const char* digits = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < v.size(); ++i) {
        s += digits[v[i] >> 4];
        s += digits[v[i] & 15];
    }
    return s;
}

// openssl's DER output for a command, read back as bytes.
Bytes opensslDer(const std::string& cmd) {
    ovtest::TempDir dir;
    std::string out = dir.file("out.der");
    EXPECT_EQ(ovtest::run(cmd + " -outform DER -out " + ovtest::shq(out)), 0) << cmd;
    return ovtest::readFileBytes(out);
}

TEST(CertPublicKeyParts, KeyTypeSignatureSizeAndKeyPartsAgreeWithOpenssl) {
    struct Case {
        const char* name;
        const char* file;
        int keyType;
        int sigSize;
        size_t pointLen;    // EC and Ed25519 only
        const char* curve;  // openssl name of the named curve, EC only
    };
    const Case cases[] = {
        {"RSA 2048", "rsa_cert", CertPublicKeyParts::kRsa, 256, 0, nullptr},
        {"P-256", "ec256_key", CertPublicKeyParts::kEcdsa, 64, 65, "prime256v1"},
        {"P-256 compressed point", "ec256c", CertPublicKeyParts::kEcdsa, 64, 33, "prime256v1"},
        {"P-384", "ec384_cert", CertPublicKeyParts::kEcdsa, 96, 97, "secp384r1"},
        {"P-521", "ec521", CertPublicKeyParts::kEcdsa, 132, 133, "secp521r1"},
        {"Ed25519", "ed25519", CertPublicKeyParts::kEdDsa, 64, 32, nullptr},
        {"DSA 2048/256", "dsa", CertPublicKeyParts::kDsa, 64, 0, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes der = fixture(c.file);
        LogTree log;
        CertPublicKeyParts parts;
        ASSERT_TRUE(parts.parseCertificate(view(der), log)) << log.text();
        EXPECT_EQ(parts.keyType(), c.keyType);
        EXPECT_EQ(parts.expectedSigSize(), c.sigSize);
        const std::string path = ovtest::shq(ovtest::dataPath("pkcs11/") + c.file + ".cert.der");
        if (c.keyType == CertPublicKeyParts::kRsa) {
            std::string out;
            ASSERT_EQ(ovtest::run("openssl x509 -inform DER -noout -modulus -in " + path, &out), 0);
            EXPECT_EQ("Modulus=" + hexUpper(parts.rsaModulus()) + "\n", out);
        }
        if (c.pointLen) {
            // The point is the tail of the SubjectPublicKeyInfo openssl exports.
            Bytes spki = opensslDer("openssl x509 -inform DER -noout -pubkey -in " + path +
                                    " | openssl pkey -pubin");
            ASSERT_EQ(parts.ecPoint().size(), c.pointLen);
            ASSERT_GT(spki.size(), c.pointLen);
            EXPECT_TRUE(parts.ecPoint().equals(spki.data() + spki.size() - c.pointLen, c.pointLen));
        }
        if (c.curve) {
            Bytes oid = opensslDer(std::string("openssl ecparam -name ") + c.curve);
            EXPECT_TRUE(parts.ecParams().equals(oid.data(), oid.size()));
        }
    }
}

TEST(CertPublicKeyParts, EveryTruncationFailsCleanly) {
    Bytes der = fixture("ec256_key");
    ASSERT_FALSE(der.empty());
    for (size_t n = 0; n < der.size(); ++n) {
        LogTree log;
        CertPublicKeyParts parts;
        EXPECT_FALSE(parts.parseCertificate(DerInput(der.data(), n), log)) << "length " << n;
        EXPECT_EQ(parts.keyType(), CertPublicKeyParts::kUnknown);
        EXPECT_EQ(log.numErrors(), 1);
    }
    Bytes trailing = der;
    trailing.push_back(0);
    LogTree log;
    CertPublicKeyParts parts;
    EXPECT_FALSE(parts.parseCertificate(view(trailing), log));
    EXPECT_TRUE(log.hasError("The certificate DER is not valid.")) << log.text();
}

TEST(CertPublicKeyParts, UnknownAlgorithmParsesWithoutKeyType) {
    Bytes der = fixture("ec256_key");
    // Turn id-ecPublicKey (1.2.840.10045.2.1) into 1.2.840.10045.2.9, which
    // nobody assigned: the certificate stays readable, its key unmatched.
    const unsigned char oid[] = {0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
    auto at = std::search(der.begin(), der.end(), std::begin(oid), std::end(oid));
    ASSERT_NE(at, der.end());
    at[8] = 0x09;
    LogTree log;
    CertPublicKeyParts parts;
    EXPECT_TRUE(parts.parseCertificate(view(der), log)) << log.text();
    EXPECT_EQ(parts.keyType(), CertPublicKeyParts::kUnknown);
    EXPECT_EQ(parts.expectedSigSize(), 0);
    EXPECT_FALSE(parts.matchesEcPoint(parts.ecPoint()));
}

TEST(CertPublicKeyParts, TokenValuesAreComparedInEveryEncodingTokensUse) {
    Bytes rsaDer = fixture("rsa_cert"), ecDer = fixture("ec256_key"), edDer = fixture("ed25519");
    LogTree log;
    CertPublicKeyParts rsa, ec, ed;
    ASSERT_TRUE(rsa.parseCertificate(view(rsaDer), log));
    ASSERT_TRUE(ec.parseCertificate(view(ecDer), log));
    ASSERT_TRUE(ed.parseCertificate(view(edDer), log));

    Bytes modulus(rsa.rsaModulus().data(), rsa.rsaModulus().data() + rsa.rsaModulus().size());
    Bytes padded = modulus;
    padded.insert(padded.begin(), 0);
    Bytes otherModulus = modulus;
    otherModulus.back() ^= 1;

    Bytes point(ec.ecPoint().data(), ec.ecPoint().data() + ec.ecPoint().size());
    Bytes wrapped = {0x04, static_cast<unsigned char>(point.size())};
    wrapped.insert(wrapped.end(), point.begin(), point.end());
    Bytes wrappedTrailing = wrapped;
    wrappedTrailing.push_back(0);
    Bytes bitStringWrapped = wrapped;
    bitStringWrapped[0] = 0x03;
    Bytes otherPoint = point;
    otherPoint[10] ^= 0x80;
    Bytes shortPoint(point.begin(), point.end() - 1);

    const Bytes p256 = {0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};  // prime256v1
    const Bytes p384 = {0x06, 0x05, 0x2b, 0x81, 0x04, 0x00, 0x22};                    // secp384r1
    const Bytes edOid = {0x06, 0x03, 0x2b, 0x65, 0x70};                               // id-Ed25519
    const Bytes ed448Oid = {0x06, 0x03, 0x2b, 0x65, 0x71};                            // id-Ed448
    const std::string edName =
        "\x13\x0c"
        "edwards25519";
    const Bytes edNameBytes(edName.begin(), edName.end());

    enum Kind { Modulus, Point, Params };
    struct Case {
        const char* name;
        const CertPublicKeyParts* cert;
        Kind kind;
        Bytes token;
        bool want;
    };
    const Case cases[] = {
        {"modulus as stored", &rsa, Modulus, modulus, true},
        {"modulus with a leading zero", &rsa, Modulus, padded, true},
        {"other modulus", &rsa, Modulus, otherModulus, false},
        {"empty modulus", &rsa, Modulus, {}, false},
        {"modulus asked of an EC certificate", &ec, Modulus, modulus, false},
        {"point wrapped in OCTET STRING", &ec, Point, wrapped, true},
        {"bare point", &ec, Point, point, true},
        {"wrapped point with trailing byte", &ec, Point, wrappedTrailing, false},
        {"point wrapped in BIT STRING", &ec, Point, bitStringWrapped, false},
        {"other point", &ec, Point, otherPoint, false},
        {"point one byte short", &ec, Point, shortPoint, false},
        {"point asked of an RSA certificate", &rsa, Point, point, false},
        {"same curve", &ec, Params, p256, true},
        {"other curve", &ec, Params, p384, false},
        {"Ed25519 by OID", &ed, Params, edOid, true},
        {"Ed25519 by name", &ed, Params, edNameBytes, true},
        {"Ed448 for an Ed25519 key", &ed, Params, ed448Oid, false},
        {"curve asked of an RSA certificate", &rsa, Params, p256, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DerInput t(c.token.data(), c.token.size());
        bool got = c.kind == Modulus ? c.cert->matchesModulus(t)
                   : c.kind == Point ? c.cert->matchesEcPoint(t)
                                     : c.cert->matchesEcParams(t);
        EXPECT_EQ(got, c.want);
    }
}

}  // namespace
