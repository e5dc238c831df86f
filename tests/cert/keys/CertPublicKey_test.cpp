#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"
#include "support/crypto/OvPublicKey.h"

using qtest::CertRef;

// Known types are cached; a key without a code (or one that does not load)
// leaves the cache "not yet known" and is looked at again. The key itself and
// its DER forms are what openssl makes of the certificate's key.
TEST(CertPublicKey, TypeSizeAndDerAsOpensslSeesThem) {
    struct Case {
        const char* file;
        int type;
        const char* name;
        int bits;                     // -1: openssl's "Public-Key: (N bit)"
        const char* own = nullptr;    // openssl's command for the non-SPKI form
        const char* error = nullptr;  // logged by each look at the key
    };
    const Case cases[] = {
        {"rsa.pem", 1, "rsa", -1, "openssl rsa -pubin -inform DER -RSAPublicKey_out -outform DER"},
        {"dsa.pem", 2, "dsa", -1},
        {"ec256.pem", 3, "ecdsa", -1},
        {"ca-de.pem", 3, "ecdsa", -1},
        {"ed25519.pem", 5, "eddsa", 256},
        {"ed448.pem", 0, "unknown", 448},
        {"ec-explicit.pem", 0, "unknown", 0, nullptr, "Unable to load public key DER."}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        CertRef cert(qtest::load(c.file));
        std::string text = qtest::ossl(c.file, "-noout -text");
        int want = c.bits >= 0 ? c.bits : std::atoi(text.c_str() + text.find("Public-Key: (") + 13);
        for (bool first : {true, false}) {
            SCOPED_TRACE(first ? "first" : "again");
            LogTree log;
            int bits = -1;
            EXPECT_EQ(cert->getCertKeyType(bits, log), c.type);
            EXPECT_EQ(bits, want);
            bool looked = first || c.type == 0;
            EXPECT_EQ(log.numEntries() != 0, looked) << log.text();
            EXPECT_EQ(log.hasContext("getCertPublicKey"), looked);
            EXPECT_EQ(log.hasErrors(), looked && c.error) << log.text();
            EXPECT_TRUE(!(looked && c.error) || log.hasError(c.error));
        }
        LogTree log;
        StringBuffer name("type=");
        EXPECT_TRUE(cert->appendCertKeyType(name, log));
        EXPECT_EQ(name.getString(), std::string("type=") + c.name);
        if (c.error) continue;

        std::string spki = qtest::osslSpki(c.file);
        std::string own =
            c.own ? qtest::osslSpki(c.file, c.own + std::string(" | base64 -w0")) : spki;
        _ovPublicKey key;
        DataBuffer out = qtest::old();
        ASSERT_TRUE(cert->getCertPublicKey(key, log));
        EXPECT_FALSE(key.isPrivateKey());
        EXPECT_EQ(qtest::enc(key.spkiDer(), "base64"), spki);
        EXPECT_TRUE(cert->getPublicKeyAsDER_2(true, out, log));
        EXPECT_EQ(qtest::enc(out, "base64"), spki);
        EXPECT_TRUE(cert->getPublicKeyAsDER_2(false, out, log));
        EXPECT_EQ(qtest::enc(out, "base64"), own);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertPublicKey, TokenTypeWinsAndLeavesTheKeyAlone) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem")), fresh(qtest::load("ec256.pem"));
    // As the token link stores what the token reports.
    cert->m_keyType = 3;
    cert->m_keyBits = 521;
    _ovPublicKey key;
    int bits = 0;
    EXPECT_EQ(cert->getCertKeyType2(bits, key, log), 3);
    EXPECT_EQ(bits, 521);
    EXPECT_TRUE(key.isEmpty());
    cert->m_keyType = 4;  // a code without a name
    StringBuffer name;
    cert->appendCertKeyType(name, log);
    EXPECT_STREQ(name.getString(), "unknown");
    EXPECT_EQ(log.numEntries(), 0);
    // Not cached: the caller's container receives the key.
    EXPECT_EQ(fresh->getCertKeyType2(bits, key, log), 3);
    EXPECT_EQ(qtest::enc(key.spkiDer(), "base64"), qtest::osslSpki("ec256.pem"));
}
