#include <gtest/gtest.h>

#include <optional>

#include "cert/query/QueryTestUtil.h"
#include "support/crypto/OvPublicKey.h"

using certtest::CertRef;

namespace {

// openssl's "Public-Key: (N bit)" for the certificate's key.
int opensslBits(const std::string& file) {
    std::string text = qtest::ossl(file, "-noout -text");
    size_t p = text.find("Public-Key: (");
    return p == std::string::npos ? -1 : std::atoi(text.c_str() + p + 13);
}

std::string opensslSpki(const std::string& file) {
    return qtest::sh("openssl x509 -in " + ovtest::shq(qtest::path(file)) +
                     " -pubkey -noout | openssl pkey -pubin -outform DER | base64 -w0");
}

std::string b64(const DataBuffer& db) {
    StringBuffer sb;
    db.encodeDB("base64", sb);
    return sb.getString();
}

TEST(CertPublicKey, KeyTypeAndSizeAreCached) {
    struct Case {
        const char* file;
        int type;
        const char* name;
        int bits;  // 0: openssl's figure
    };
    const Case cases[] = {
        {"rsa.pem", 1, "rsa", 0},     {"ca.pem", 1, "rsa", 0},
        {"dsa.pem", 2, "dsa", 0},     {"ec256.pem", 3, "ecdsa", 0},
        {"ca-de.pem", 3, "ecdsa", 0}, {"ed25519.pem", 5, "eddsa", 256},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        int want = c.bits ? c.bits : opensslBits(c.file);
        int bits = -1;
        EXPECT_EQ(cert->getCertKeyType(bits, log), c.type);
        EXPECT_EQ(bits, want);
        EXPECT_EQ(cert->m_keyType, c.type);
        EXPECT_EQ(cert->m_keyBits, want);
        EXPECT_TRUE(log.hasContext("getCertPublicKey"));
        EXPECT_FALSE(log.hasErrors()) << log.text();

        // Cached: answered without looking at the key again.
        log.clearLog();
        bits = -1;
        EXPECT_EQ(cert->getCertKeyType(bits, log), c.type);
        EXPECT_EQ(bits, want);
        StringBuffer name("type=");
        EXPECT_TRUE(cert->appendCertKeyType(name, log));
        EXPECT_EQ(name.getString(), std::string("type=") + c.name);
        EXPECT_EQ(log.numEntries(), 0) << log.text();
    }
}

TEST(CertPublicKey, UnknownKindsAreLookedAtAgain) {
    struct Case {
        const char* file;
        const char* error;  // null: the key loads but has no code
        int bits;
    };
    const Case cases[] = {
        {"ed448.pem", nullptr, 448},
        {"ec-explicit.pem", "Unable to load public key DER.", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(round);
            log.clearLog();
            int bits = -1;
            EXPECT_EQ(cert->getCertKeyType(bits, log), 0);
            EXPECT_EQ(bits, c.bits);
            EXPECT_EQ(cert->m_keyType, 0);
            EXPECT_TRUE(log.hasContext("getCertPublicKey"));
            if (c.error) {
                EXPECT_TRUE(log.hasError(c.error)) << log.text();
            }
        }
        StringBuffer name;
        EXPECT_TRUE(cert->appendCertKeyType(name, log));
        EXPECT_STREQ(name.getString(), "unknown");
    }
}

TEST(CertPublicKey, TokenTypeWinsAndLeavesTheKeyAlone) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem", log));
    ASSERT_TRUE(cert);
    // As the token link stores what the token reports.
    cert->m_keyType = 3;
    cert->m_keyBits = 521;
    _ovPublicKey key;
    int bits = 0;
    EXPECT_EQ(cert->getCertKeyType2(bits, key, log), 3);
    EXPECT_EQ(bits, 521);
    EXPECT_TRUE(key.isEmpty());
    StringBuffer name;
    cert->appendCertKeyType(name, log);
    EXPECT_STREQ(name.getString(), "ecdsa");
    // A code without a name.
    cert->m_keyType = 4;
    name.clear();
    cert->appendCertKeyType(name, log);
    EXPECT_STREQ(name.getString(), "unknown");
    EXPECT_EQ(log.numEntries(), 0);

    // Not cached: the caller's container receives the key.
    CertRef fresh(qtest::load("ec256.pem", log));
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->getCertKeyType2(bits, key, log), 3);
    EXPECT_TRUE(key.isEcc());
    EXPECT_EQ(b64(key.spkiDer()), opensslSpki("ec256.pem"));
}

TEST(CertPublicKey, PublicKeyLoadsAndExportsAsOpensslWritesIt) {
    struct Case {
        const char* file;
        const char* ownForm;  // openssl arguments for the non-SPKI form; null: SPKI
    };
    const Case cases[] = {
        {"rsa.pem", "openssl rsa -pubin -RSAPublicKey_out -outform DER"},
        {"ec256.pem", nullptr},
        {"ed25519.pem", nullptr},
        {"dsa.pem", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        std::string spki = opensslSpki(c.file);

        _ovPublicKey key;
        ASSERT_TRUE(cert->getCertPublicKey(key, log));
        EXPECT_FALSE(key.isPrivateKey());
        EXPECT_EQ(b64(key.spkiDer()), spki);

        DataBuffer out;
        out.append("old", 3);
        ASSERT_TRUE(cert->getPublicKeyAsDER_2(true, out, log));
        EXPECT_EQ(b64(out), spki);

        std::string own = spki;
        if (c.ownForm) {
            own = qtest::sh("openssl x509 -in " + ovtest::shq(qtest::path(c.file)) +
                            " -pubkey -noout | " + c.ownForm + " | base64 -w0");
        }
        ASSERT_TRUE(cert->getPublicKeyAsDER_2(false, out, log));
        EXPECT_EQ(b64(out), own);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertPublicKey, EmptyAndStaleObjects) {
    LogTree loadLog;
    CertRef empty(CertCore::createNewCert());
    CertRef stale(qtest::load("rsa.pem", loadLog));
    ASSERT_TRUE(empty && stale);
    for (bool isStale : {false, true}) {
        SCOPED_TRACE(isStale ? "stale" : "empty");
        CertCore* c = isStale ? stale.get() : empty.get();
        std::optional<qtest::Stale> guard;
        if (isStale) guard.emplace(c);
        LogTree log;

        int bits = -1;
        EXPECT_EQ(c->getCertKeyType(bits, log), 0);
        EXPECT_EQ(bits, 0);
        EXPECT_EQ(c->m_keyType, 0);
        EXPECT_TRUE(log.hasContext("getCertPublicKey"));
        EXPECT_TRUE(log.hasError("Unable to get certificate's public key DER.")) << log.text();

        _ovPublicKey key;
        EXPECT_FALSE(c->getCertPublicKey(key, log));
        EXPECT_TRUE(key.isEmpty());
        StringBuffer name;
        EXPECT_TRUE(c->appendCertKeyType(name, log));
        EXPECT_STREQ(name.getString(), "unknown");

        log.clearLog();
        DataBuffer out;
        out.append("old", 3);
        EXPECT_FALSE(c->getPublicKeyAsDER_2(true, out, log));
        // Untouched when stale, emptied when merely without certificate.
        EXPECT_EQ(out.getSize(), isStale ? 3u : 0u);
        EXPECT_EQ(log.numEntries(), 0);
    }
}

}  // namespace
