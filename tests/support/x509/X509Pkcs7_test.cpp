// PKCS#7 bundles: which certificate the parser takes from them.
#include "support/x509/X509Pkcs7.h"

#include <gtest/gtest.h>

#include "X509Fixtures.h"

using namespace x509test;

TEST(OrvaneX509Pkcs7, LeafOfChainIsChosen) {
    std::vector<unsigned char> leaf = fixtureBytes("leaf_p256.der");
    for (const char* name : {"chain.p7b", "chain_ber.p7b"}) {
        SCOPED_TRACE(name);
        auto x = load(name);
        DataBuffer out;
        x->getCertDer(out);
        EXPECT_EQ(std::string(leaf.begin(), leaf.end()),
                  std::string(reinterpret_cast<const char*>(out.getData2()), out.getSize()));
        EXPECT_EQ(leaf.size(), x->getCertDerSize());
    }
}

TEST(OrvaneX509Pkcs7, BundlesMadeByOpenssl) {
    struct Case {
        const char* name;
        std::vector<const char*> certs;  // in the order given to openssl
        const char* leaf;                // null: the load fails
        const char* error;
    } cases[] = {
        {"root only", {"root.der"}, "root.der", nullptr},
        {"two roots", {"name_bmp.der", "root.der"}, "name_bmp.der", nullptr},
        {"leaf first", {"leaf_rsa.der", "root.der"}, "leaf_rsa.der", nullptr},
        {"leaf last", {"root.der", "inter.der", "leaf_p384.der"}, "leaf_p384.der", nullptr},
        // Two leaves of one issuer: the first in set order.
        {"two leaves",
         {"inter.der", "leaf_p521.der", "leaf_ed25519.der"},
         "leaf_p521.der",
         nullptr},
        {"no certificates", {}, nullptr, "PKCS7 holds no certificates."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ovtest::TempDir tmp;
        std::string args = "crl2pkcs7 -nocrl -outform DER -out " + ovtest::shq(tmp.file("b.p7b"));
        int i = 0;
        for (const char* cert : c.certs) {
            std::string pem = tmp.file(std::to_string(i++) + ".pem");
            openssl("x509 -inform DER -in " + ovtest::shq(fixture(cert)) + " -out " +
                    ovtest::shq(pem));
            args += " -certfile " + ovtest::shq(pem);
        }
        openssl(args);
        std::vector<unsigned char> p7 = ovtest::readFileBytes(tmp.file("b.p7b"));
        OrvaneX509 x;
        LogTree log;
        bool ok = x.loadX509DerAlt(p7.data(), static_cast<unsigned>(p7.size()), nullptr, log);
        EXPECT_EQ(c.leaf != nullptr, ok) << log.text();
        if (c.leaf) {
            std::vector<unsigned char> want = fixtureBytes(c.leaf);
            EXPECT_TRUE(x.certDer().equals(want.data(), want.size()));
        } else {
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
            EXPECT_FALSE(x.isLoaded());
        }
    }
}

TEST(OrvaneX509Pkcs7, OtherContentTypesAreRefused) {
    // ContentInfo { data, [0] OCTET STRING "x" }
    const unsigned char data[] = {0x30, 0x12, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d,
                                  0x01, 0x07, 0x01, 0xa0, 0x05, 0x04, 0x03, 'a',  'b',  'c'};
    OrvaneX509 x;
    LogTree log;
    EXPECT_FALSE(x.loadX509DerAlt(data, sizeof data, nullptr, log));
    EXPECT_TRUE(log.hasError("PKCS7 content is not signedData."));
}
