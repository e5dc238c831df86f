// PKCS#7 bundles: which certificate the parser takes from them.
#include "support/x509/X509Pkcs7.h"

#include <gtest/gtest.h>

#include "X509TestUtil.h"

using namespace x509test;

TEST(OrvaneX509Pkcs7, LeafIsChosenWhateverTheOrder) {
    struct Case {
        const char* name;
        std::vector<const char*> certs;  // in the order given to openssl; empty: a fixture
        const char* leaf;                // null: the load fails
    } cases[] = {
        // Intermediate, leaf, root: the leaf is neither first nor last.
        {"chain.p7b", {}, "leaf_p256.der"},
        {"chain_ber.p7b", {}, "leaf_p256.der"},  // BER, indefinite lengths
        {"two roots", {"name_bmp.der", "root.der"}, "name_bmp.der"},
        // Two leaves of one issuer: the first in set order.
        {"two leaves", {"inter.der", "leaf_p521.der", "leaf_ed25519.der"}, "leaf_p521.der"},
        {"no certificates", {}, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ovtest::TempDir tmp;
        std::vector<unsigned char> p7;
        if (c.certs.empty() && c.leaf) {
            p7 = fixtureBytes(c.name);
        } else {
            std::string args = "crl2pkcs7 -nocrl -outform DER -out " + ovtest::shq(tmp.file("b"));
            for (const char* cert : c.certs) {  // as PEM: the only form -certfile reads
                args += " -certfile " + ovtest::shq(tmp.file(cert));
                openssl("x509 -inform DER -in " + ovtest::shq(fixture(cert)) + " -out " +
                        ovtest::shq(tmp.file(cert)));
            }
            openssl(args);
            p7 = ovtest::readFileBytes(tmp.file("b"));
        }
        OrvaneX509 x;
        LogTree log;
        EXPECT_EQ(c.leaf != nullptr, loadBytes(x, p7, log)) << log.text();
        const std::vector<unsigned char> want = c.leaf ? fixtureBytes(c.leaf) : p7;
        EXPECT_TRUE(c.leaf ? x.certDer().equals(want.data(), want.size()) : !x.isLoaded());
        EXPECT_EQ(!c.leaf, log.hasError("PKCS7 holds no certificates.")) << log.text();
    }
}
