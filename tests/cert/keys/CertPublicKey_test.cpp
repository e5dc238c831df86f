#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"
#include "support/crypto/OvPublicKey.h"

using qtest::CertRef;

// Known types are cached; a key without a code (or one that does not load)
// leaves the cache "not yet known" and is looked at again. The sizes are
// openssl's; the key itself is what openssl makes of the certificate's key.
TEST(CertPublicKey, TypeSizeAndKeyAsOpensslSeesThem) {
    struct Case {
        const char* file;
        int type;
        const char* name;
        int bits;
        const char* error = nullptr;  // the errors logged by each look at the key
    };
    const Case cases[] = {
        {"rsa.pem", 1, "rsa", 2048},
        {"dsa.pem", 2, "dsa", 2048},
        {"ec256.pem", 3, "ecdsa", 256},
        {"ca-de.pem", 3, "ecdsa", 384},
        {"ed25519.pem", 5, "eddsa", 256},
        {"ed448.pem", 0, "unknown", 448},
        {"ec-explicit.pem", 0, "unknown", 0,
         "Explicit EC curve parameters are not supported. | Unable to load public key DER."}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        CertRef cert(qtest::load(c.file));
        _ovPublicKey key;  // the caller's container receives the key it loads
        for (bool first : {true, false}) {
            SCOPED_TRACE(first ? "first" : "again");
            LogTree log;
            int bits = -1;
            EXPECT_EQ(
                first ? cert->getCertKeyType2(bits, key, log) : cert->getCertKeyType(bits, log),
                c.type);
            EXPECT_EQ(bits, c.bits);
            bool looked = first || c.type == 0;
            EXPECT_EQ(log.numEntries() != 0, looked) << log.text();
            EXPECT_EQ(log.hasContext("getCertPublicKey"), looked);
            EXPECT_EQ(ovtest::errors(log), looked && c.error ? c.error : "");
        }
        LogTree log;
        StringBuffer name("type=");
        EXPECT_TRUE(cert->appendCertKeyType(name, log));
        EXPECT_EQ(name.getString(), std::string("type=") + c.name);
        EXPECT_EQ(qtest::enc(key.spkiDer(), "base64"), c.error ? "" : qtest::osslSpki(c.file));
    }
}

TEST(CertPublicKey, TokenTypeWinsAndLeavesTheKeyAlone) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem"));
    cert->m_keyType = 3;  // as the token link stores what the token reports
    cert->m_keyBits = 521;
    _ovPublicKey key;
    int bits = 0;
    EXPECT_EQ(cert->getCertKeyType2(bits, key, log), 3);
    EXPECT_EQ(bits, 521);
    EXPECT_TRUE(key.isEmpty());
    cert->m_keyType = 4;  // a code without a name
    StringBuffer name;
    EXPECT_TRUE(cert->appendCertKeyType(name, log) && name.equals("unknown"));
    EXPECT_EQ(log.numEntries(), 0);
}
