#include <gtest/gtest.h>

#include <string>

#include "CryptoTestUtil.h"
#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"
#include "support/crypto/SigVerify.h"

using cryptotest::fixture;
using cryptotest::opensslCli;
using cryptotest::toDb;
using cryptotest::toStr;
using ovtest::shq;

namespace {

DerInput in(const std::string& s) {
    return DerInput(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

std::string fromHex(const char* hex) {
    std::string out;
    for (size_t i = 0; hex[i] && hex[i + 1]; i += 2)
        out += static_cast<char>(std::stoi(std::string(hex + i, 2), nullptr, 16));
    return out;
}

// The pieces of a certificate a verifier needs, as copies so tests can alter them.
struct CertParts {
    std::string tbs, sigAlg, signature, spki;
};

//   Certificate ::= SEQUENCE { tbsCertificate, signatureAlgorithm, signatureValue BIT STRING }
//   TBSCertificate ::= SEQUENCE { [0] version, serialNumber, signature, issuer, validity,
//                                 subject, subjectPublicKeyInfo, ... }
bool splitCert(const std::string& pemFile, CertParts* out) {
    std::string der;
    if (!opensslCli("x509 -in " + shq(pemFile) + " -outform DER", &der)) return false;
    DerParser top(in(der));
    DerParser cert;
    DerElement tbs, alg;
    DerInput bits;
    unsigned unused = 0;
    if (!top.readSequence(&cert) || !cert.readElement(der::kSequence, &tbs) ||
        !cert.readElement(der::kSequence, &alg) || !cert.readBitString(&bits, &unused))
        return false;
    DerParser t(tbs.contents);
    DerElement e;
    if (t.nextIs(der::contextConstructed(0)) && !t.skip()) return false;
    for (int i = 0; i < 5; ++i) {  // serial, signature, issuer, validity, subject
        if (!t.skip()) return false;
    }
    if (!t.readElement(der::kSequence, &e)) return false;
    auto str = [](DerInput d) {
        return std::string(reinterpret_cast<const char*>(d.data()), d.size());
    };
    out->tbs = str(tbs.whole);
    out->sigAlg = str(alg.whole);
    out->signature = str(bits);
    out->spki = str(e.whole);
    return true;
}

std::string spkiOfKey(const std::string& name) {
    std::string der;
    EXPECT_TRUE(
        opensslCli("pkey -in " + shq(fixture(name + ".key.pem")) + " -pubout -outform DER", &der));
    return der;
}

bool verify(const CertParts& c, const std::string& spki, LogBase& log) {
    return ovVerifySignature(in(spki), in(c.sigAlg), in(c.tbs), in(c.signature), log);
}

struct SignedCase {
    const char* cert;    // fixture file
    const char* issuer;  // key name of the signer
};

const SignedCase kSigned[] = {
    {"rsa-sha1.pem", "rsa2048"},
    {"rsa-sha224.pem", "rsa2048"},
    {"rsa-sha256.pem", "rsa2048"},
    {"rsa-sha384.pem", "rsa2048"},
    {"rsa-sha512.pem", "rsa2048"},
    {"rsa-pss-sha1.pem", "rsa2048"},
    {"rsa-pss-sha256.pem", "rsa2048"},
    {"rsa-pss-sha512.pem", "rsa2048"},
    {"pss-key-sha256.pem", "rsapss2048"},
    {"ecdsa-sha1.pem", "p256"},
    {"ecdsa-sha256.pem", "p256"},
    {"ecdsa-sha384.pem", "p384"},
    {"ecdsa-sha512.pem", "p521"},
    {"ecdsa-k1-sha256.pem", "secp256k1"},
    {"ed25519-signed.pem", "ed25519"},
    {"ed448-signed.pem", "ed448"},
    {"dsa-sha1.pem", "dsa2048"},
    {"dsa-sha256.pem", "dsa2048"},
    {"rsa2048.self.pem", "rsa2048"},
    {"rsapss2048.self.pem", "rsapss2048"},
    {"p256.self.pem", "p256"},
    {"p521.self.pem", "p521"},
    {"ed25519.self.pem", "ed25519"},
    {"ed448.self.pem", "ed448"},
    {"dsa2048.self.pem", "dsa2048"},
};

class SigVerifyTest : public cryptotest::OsslTest {};

// Each certificate verifies under its issuer's key, and no longer once a byte of
// the signed part or of the signature changes.
TEST_F(SigVerifyTest, IssuedCertificatesVerifyAndTamperingIsCaught) {
    for (const SignedCase& c : kSigned) {
        SCOPED_TRACE(c.cert);
        CertParts parts;
        ASSERT_TRUE(splitCert(fixture(c.cert), &parts));
        const std::string spki = spkiOfKey(c.issuer);
        LogTree log;
        EXPECT_TRUE(verify(parts, spki, log)) << log.text();
        EXPECT_FALSE(log.hasErrors());

        CertParts tbsFlipped = parts;
        tbsFlipped.tbs[tbsFlipped.tbs.size() / 2] ^= 0x01;
        LogTree log2;
        EXPECT_FALSE(verify(tbsFlipped, spki, log2));
        EXPECT_TRUE(log2.hasErrors());

        for (size_t pos : {size_t(0), parts.signature.size() / 2, parts.signature.size() - 1}) {
            SCOPED_TRACE(pos);
            CertParts sigFlipped = parts;
            sigFlipped.signature[pos] ^= 0x40;
            LogTree log3;
            EXPECT_FALSE(verify(sigFlipped, spki, log3));
            EXPECT_TRUE(log3.hasErrors());
        }
        LogTree log4;
        CertParts cut = parts;
        cut.signature.pop_back();
        EXPECT_FALSE(verify(cut, spki, log4));
    }
}

TEST_F(SigVerifyTest, WrongKeyIsRefused) {
    struct Case {
        const char* cert;
        const char* key;
        const char* error;
    };
    const char* kNoVerify = "The signature does not verify.";
    const char* kMismatch = "The signature algorithm does not match the key type.";
    const Case cases[] = {
        {"rsa-sha256.pem", "rsa1024", kNoVerify},
        {"rsa-pss-sha256.pem", "rsa2047", kNoVerify},
        {"ecdsa-sha256.pem", "secp256k1", kNoVerify},
        {"ecdsa-sha384.pem", "p256", kNoVerify},
        {"ed25519-signed.pem", "ed25519-other", kNoVerify},
        {"dsa-sha256.pem", "dsa1024", kNoVerify},
        {"rsa-sha256.pem", "p256", kMismatch},
        {"ecdsa-sha256.pem", "rsa2048", kMismatch},
        {"ed25519-signed.pem", "ed448", kMismatch},
        {"ed448-signed.pem", "ed25519", kMismatch},
        {"dsa-sha256.pem", "p256", kMismatch},
        // A PSS-restricted key signs nothing but PSS.
        {"rsa-sha256.pem", "rsapss2048", kMismatch},
    };
    ASSERT_TRUE(opensslCli("genpkey -algorithm ED25519 -out " + shq(tmp.file("o.pem"))));
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.cert) + " / " + c.key);
        CertParts parts;
        ASSERT_TRUE(splitCert(fixture(c.cert), &parts));
        std::string spki;
        if (std::string(c.key) == "ed25519-other") {
            ASSERT_TRUE(
                opensslCli("pkey -in " + shq(tmp.file("o.pem")) + " -pubout -outform DER", &spki));
        } else {
            spki = spkiOfKey(c.key);
        }
        LogTree log;
        EXPECT_FALSE(verify(parts, spki, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
    }
}

TEST_F(SigVerifyTest, AlgorithmIdentifierIsChecked) {
    CertParts rsa, pss, md5;
    ASSERT_TRUE(splitCert(fixture("rsa-sha256.pem"), &rsa));
    ASSERT_TRUE(splitCert(fixture("rsa-pss-sha256.pem"), &pss));
    ASSERT_TRUE(splitCert(fixture("rsa-md5.pem"), &md5));
    // The PSS salt length is the last byte of its parameters (32 here).
    ASSERT_EQ('\x20', pss.sigAlg.back());
    std::string pssSalt20 = pss.sigAlg;
    pssSalt20.back() = '\x14';
    struct Case {
        const char* name;
        const CertParts* cert;
        std::string sigAlg;
        bool ok;
        const char* error;
    };
    const Case cases[] = {
        {"RSA with absent parameters", &rsa, fromHex("300B06092A864886F70D01010B"), true, nullptr},
        {"RSA with NULL parameters", &rsa, fromHex("300D06092A864886F70D01010B0500"), true,
         nullptr},
        {"RSA with other parameters", &rsa, fromHex("300E06092A864886F70D01010B020100"), false,
         "Unexpected signature algorithm parameters."},
        {"digest differs from the signature's", &rsa, fromHex("300D06092A864886F70D01010C0500"),
         false, "The signature does not verify."},
        {"unknown OID", &rsa, fromHex("300706032A03040500"), false,
         "Unsupported signature algorithm: 1.2.3.4"},
        {"MD5", &md5, md5.sigAlg, false,
         "MD2 and MD5 signatures are not accepted: 1.2.840.113549.1.1.4"},
        {"PSS with other salt length", &pss, pssSalt20, false, "The signature does not verify."},
        {"PSS without parameters", &pss, fromHex("300B06092A864886F70D01010A"), false,
         "RSA-PSS signature parameters are missing."},
        {"PSS with trailer 2", &pss, fromHex("301206092A864886F70D01010A3005A303020102"), false,
         "Unsupported RSA-PSS trailer field."},
        {"not a SEQUENCE", &rsa, fromHex("06092A864886F70D01010B"), false,
         "Invalid signature algorithm identifier."},
    };
    const std::string rsaKey = spkiOfKey("rsa2048");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CertParts parts = *c.cert;
        parts.sigAlg = c.sigAlg;
        LogTree log;
        EXPECT_EQ(c.ok, verify(parts, rsaKey, log)) << log.text();
        if (c.error) {
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
        }
    }
}

// Signatures made with the OpenSSL key a container builds verify under the
// container's own SPKI.
TEST_F(SigVerifyTest, ContainerKeysSignWhatTheVerifierAccepts) {
    struct Case {
        const char* key;
        const char* md;  // null for EdDSA
        const char* sigAlgHex;
    };
    const Case cases[] = {
        {"rsa2048", "SHA256", "300D06092A864886F70D01010B0500"},
        {"p256", "SHA256", "300A06082A8648CE3D040302"},
        {"p384", "SHA384", "300C06082A8648CE3D0403030500"},  // NULL tolerated for ECDSA
        {"ed25519", nullptr, "300506032B6570"},
        {"ed448", nullptr, "300506032B6571"},
        {"dsa2048", "SHA256", "300B0609608648016503040302"},
    };
    const std::string msg = "signed by the container";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key);
        LogTree log;
        _ovPublicKey k;
        XString pem(ovtest::readFile(fixture(std::string(c.key) + ".key.pem")).c_str());
        ASSERT_TRUE(k.loadPem(true, pem, log));
        EVP_PKEY* pkey = k.evpKey(log);
        ASSERT_NE(nullptr, pkey) << log.text();
        ossl::MdCtxPtr ctx(EVP_MD_CTX_new());
        ASSERT_EQ(1,
                  EVP_DigestSignInit_ex(ctx.get(), nullptr, c.md, nullptr, nullptr, pkey, nullptr));
        size_t len = 0;
        const auto* m = reinterpret_cast<const unsigned char*>(msg.data());
        ASSERT_EQ(1, EVP_DigestSign(ctx.get(), nullptr, &len, m, msg.size()));
        std::string sig(len, '\0');
        ASSERT_EQ(1, EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(&sig[0]), &len, m,
                                    msg.size()));
        sig.resize(len);
        DataBuffer spki;
        ASSERT_TRUE(k.toPubKeyDer(true, spki, log));
        std::string s = toStr(spki);
        EXPECT_TRUE(ovVerifySignature(in(s), in(fromHex(c.sigAlgHex)), in(msg), in(sig), log))
            << log.text();
        EXPECT_FALSE(
            ovVerifySignature(in(s), in(fromHex(c.sigAlgHex)), in(msg + "!"), in(sig), log));
    }
}

}  // namespace
