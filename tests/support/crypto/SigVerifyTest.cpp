#include <gtest/gtest.h>

#include <string>

#include "CryptoTestUtil.h"
#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/crypto/SigVerify.h"

using namespace cryptotest;
using ovtest::shq;

namespace {

std::string str(DerInput d) {
    return std::string(reinterpret_cast<const char*>(d.data()), d.size());
}

// The signed part, the signature algorithm and the signature of a certificate,
// as copies so tests can alter them.
//   Certificate ::= SEQUENCE { tbsCertificate, signatureAlgorithm, signatureValue BIT STRING }
struct CertParts {
    std::string tbs, sigAlg, signature;
};

CertParts splitCert(const std::string& name) {
    std::string bytes;
    EXPECT_TRUE(opensslCli("x509 -in " + shq(fixture(name)) + " -outform DER", &bytes)) << name;
    DerParser top(in(bytes)), cert;
    DerElement tbs, alg;
    DerInput bits;
    unsigned unused = 0;
    EXPECT_TRUE(top.readSequence(&cert) && cert.readElement(der::kSequence, &tbs) &&
                cert.readElement(der::kSequence, &alg) && cert.readBitString(&bits, &unused))
        << name;
    return {str(tbs.whole), str(alg.whole), str(bits)};
}

bool verify(const CertParts& c, const std::string& spki, LogBase& log) {
    return ovVerifySignature(in(spki), in(c.sigAlg), in(c.tbs), in(c.signature), log);
}

class SigVerifyTest : public cryptotest::OsslTest {};

// Each certificate verifies under its issuer's key, and no longer once a bit of
// the signed part or of the signature changes; wrong keys and altered
// algorithm identifiers are refused with their reason.
TEST_F(SigVerifyTest, CertificatesUnderKeysAndAlgorithmIdentifiers) {
    const char* noVerify = "The signature does not verify.";
    const char* mismatch = "The signature algorithm does not match the key type.";
    std::string pssSalt20 = splitCert("rsa-pss-sha256.pem").sigAlg;
    ASSERT_EQ('\x20', pssSalt20.back());  // the salt length ends the parameters
    pssSalt20.back() = '\x14';
    struct Case {
        const char* cert;             // fixture file
        const char* key;              // key name of the signer
        const char* error = nullptr;  // null: verifies
        std::string sigAlg = "";      // empty: the certificate's own
    } cases[] = {
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
        {"rsa-sha256.pem", "rsa1024", noVerify},
        {"ecdsa-sha384.pem", "p256", noVerify},
        {"rsa-sha256.pem", "p256", mismatch},
        {"ed25519-signed.pem", "ed448", mismatch},
        {"rsa-sha256.pem", "rsapss2048", mismatch},  // a PSS-restricted key signs only PSS
        {"rsa-sha256.pem", "rsa2048", nullptr, fromHex("300B06092A864886F70D01010B")},  // absent
        {"rsa-sha256.pem", "rsa2048", "Unexpected signature algorithm parameters.",
         fromHex("300E06092A864886F70D01010B020100")},
        {"rsa-sha256.pem", "rsa2048", noVerify, fromHex("300D06092A864886F70D01010C0500")},
        {"rsa-sha256.pem", "rsa2048", "Unsupported signature algorithm: 1.2.3.4",
         fromHex("300706032A03040500")},
        {"rsa-sha256.pem", "rsa2048", "Invalid signature algorithm identifier.",
         fromHex("06092A864886F70D01010B")},
        {"rsa-md5.pem", "rsa2048", "MD2 and MD5 signatures are not accepted: 1.2.840.113549.1.1.4"},
        {"rsa-pss-sha256.pem", "rsa2048", noVerify, pssSalt20},
        {"rsa-pss-sha256.pem", "rsa2048", "RSA-PSS signature parameters are missing.",
         fromHex("300B06092A864886F70D01010A")},
        {"rsa-pss-sha256.pem", "rsa2048", "Unsupported RSA-PSS trailer field.",
         fromHex("301206092A864886F70D01010A3005A303020102")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.cert) + " / " + c.key + " / " + (c.error ? c.error : "ok"));
        CertParts parts = splitCert(c.cert);
        if (!c.sigAlg.empty()) parts.sigAlg = c.sigAlg;
        const std::string spki = opensslOut("pkey -in %K -pubout -outform DER", c.key);
        LogTree log;
        EXPECT_EQ(c.error == nullptr, verify(parts, spki, log)) << log.text();
        EXPECT_TRUE(c.error ? log.hasError(c.error) : !log.hasErrors()) << log.text();
        if (c.error || !c.sigAlg.empty()) continue;
        // The signed part; either end and the middle of the signature; a
        // signature one byte short.
        for (int variant = 0; variant < 5; ++variant) {
            CertParts bad = parts;
            std::string& sig = bad.signature;
            if (variant == 0) bad.tbs[bad.tbs.size() / 2] ^= 0x01;
            if (variant >= 1 && variant <= 3) sig[(variant - 1) * (sig.size() - 1) / 2] ^= 0x40;
            if (variant == 4) sig.pop_back();
            LogTree badLog;
            EXPECT_TRUE(!verify(bad, spki, badLog) && badLog.hasErrors()) << variant;
        }
    }
}

}  // namespace
