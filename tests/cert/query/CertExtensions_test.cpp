#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"

using certtest::CertRef;

namespace {

// The hex digits of an openssl -ext listing's second line ("    C0:86:...").
std::string opensslKeyIdHex(const std::string& file, const char* ext) {
    std::string text = qtest::ossl(file, std::string("-noout -ext ") + ext);
    std::string hex;
    size_t nl = text.find('\n');
    if (nl == std::string::npos) return hex;
    for (char ch : text.substr(nl + 1)) {
        if (isxdigit(static_cast<unsigned char>(ch))) hex += ch;
    }
    return hex;
}

TEST(CertExtensions, ExtendedKeyUsageNamesInTableOrder) {
    struct Case {
        const char* file;
        bool ok;
        const char* want;
    };
    const Case cases[] = {
        {"rsa.pem", true, "serverAuth,clientAuth"},
        {"ec256.pem", true, "codeSigning,timeStamping"},
        {"ed25519.pem", true, "emailProtection"},
        // Listed in the certificate in the reverse order.
        {"dsa.pem", true,
         "serverAuth,clientAuth,codeSigning,emailProtection,timeStamping,OCSPSigning"},
        // 1.3.6.1.5.5.7.3.17 contains the text of 1.3.6.1.5.5.7.3.1.
        {"eku-odd.pem", true, "serverAuth"},
        {"eku-unknown.pem", true, ""},
        {"noext.pem", false, ""},
        {"ca.pem", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        StringBuffer out("stale");
        EXPECT_EQ(cert->getExtendedKeyUsage(out, log), c.ok);
        EXPECT_STREQ(out.getString(), c.want);
    }
}

TEST(CertExtensions, PurposeTests) {
    struct Case {
        const char* file;
        bool server, client, code, email, time;
        const char* why;
    };
    const Case cases[] = {
        {"rsa.pem", true, true, false, true, false,
         "e-mail: no emailProtection, but the subject has an address"},
        {"ec256.pem", false, false, true, false, true, "no subject e-mail"},
        {"ed25519.pem", false, false, false, true, false, "emailProtection"},
        {"dsa.pem", true, true, true, true, true, "all six"},
        {"eku-odd.pem", false, false, false, true, false,
         "3.17 is not the serverAuth element; e-mail through the subject"},
        {"eku-unknown.pem", false, false, false, false, false, "unknown purpose only"},
        {"noext.pem", false, false, false, false, false,
         "no extension: no e-mail leniency either, although the subject has one"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + ": " + c.why);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        EXPECT_EQ(cert->forServerAuthentication(log), c.server);
        EXPECT_EQ(cert->forClientAuthentication(log), c.client);
        EXPECT_EQ(cert->forCodeSigning(log), c.code);
        EXPECT_EQ(cert->forSecureEmail(log), c.email);
        EXPECT_EQ(cert->forTimeStamping(log), c.time);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertExtensions, IntendedKeyUsageIsTheFirstByte) {
    struct Case {
        const char* file;
        int want;
        const char* logged;  // the "intendedKeyUsage" value; null: none
    };
    const Case cases[] = {
        {"rsa.pem", 0xA0, "a0"},  // digitalSignature, keyEncipherment
        {"ec256.pem", 0x80, "80"}, {"ed25519.pem", 0xC0, "c0"},  // with nonRepudiation
        {"dsa.pem", 0x80, "80"},  // decipherOnly sits in the second byte
        {"ca.pem", 0x06, "6"},    // keyCertSign, cRLSign
        {"noext.pem", 0, nullptr}, {"eku-odd.pem", 0, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        EXPECT_EQ(cert->getIntendedKeyUsage(log), c.want);
        std::string logged;
        EXPECT_EQ(log.findData("intendedKeyUsage", logged), c.logged != nullptr);
        if (c.logged) {
            EXPECT_EQ(logged, c.logged);
        }
    }
}

TEST(CertExtensions, AuthorityKeyIdMatchesOpenssl) {
    for (const char* file : {"rsa.pem", "ec256.pem", "dsa.pem", "ca.pem"}) {
        SCOPED_TRACE(file);
        LogTree log;
        CertRef cert(qtest::load(file, log));
        ASSERT_TRUE(cert);
        std::string want = opensslKeyIdHex(file, "authorityKeyIdentifier");
        ASSERT_EQ(want.size(), 40u);

        DataBuffer keyId;
        keyId.append("old", 3);
        XString b64("stale");
        ASSERT_TRUE(cert->getAuthorityKeyIdentifier(keyId, &b64, log));
        EXPECT_EQ(qtest::hexOf(keyId), want);
        StringBuffer wantB64;
        keyId.encodeDB("base64", wantB64);
        EXPECT_STREQ(b64.getUtf8(), wantB64.getString());

        DataBuffer only;
        ASSERT_TRUE(cert->getAuthorityKeyIdentifier(only, nullptr, log));
        EXPECT_EQ(qtest::hexOf(only), want);
    }

    // The issuer's subject key id is what its children carry as authority key id.
    LogTree log;
    CertRef ca(qtest::load("ca.pem", log));
    CertRef rsa(qtest::load("rsa.pem", log));
    ASSERT_TRUE(ca && rsa);
    StringBuffer ski("stale");
    ASSERT_TRUE(ca->getSubjectKeyIdentifier(ski, log));
    EXPECT_EQ(ski.getString(), opensslKeyIdHex("ca.pem", "subjectKeyIdentifier"));
    DataBuffer aki;
    ASSERT_TRUE(rsa->getAuthorityKeyIdentifier(aki, nullptr, log));
    EXPECT_EQ(qtest::hexOf(aki), ski.getString());

    // Issuer name and serial only: what follows the second '>' is no base64.
    // No extension at all: false. keyId is emptied either way.
    for (const char* file : {"aki-issuer.pem", "noext.pem"}) {
        SCOPED_TRACE(file);
        CertRef cert(qtest::load(file, log));
        ASSERT_TRUE(cert);
        DataBuffer keyId;
        keyId.append("old", 3);
        EXPECT_FALSE(cert->getAuthorityKeyIdentifier(keyId, nullptr, log));
        EXPECT_EQ(keyId.getSize(), 0u);
    }
}

TEST(CertExtensions, ExtensionValuesByOid) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem", log));
    ASSERT_TRUE(cert);

    DataBuffer der;
    der.append("old", 3);
    ASSERT_TRUE(cert->getExtensionDer("2.5.29.15", der, log));  // id-ce-keyUsage
    EXPECT_EQ(qtest::hexOf(der), "030205A0");

    DataBuffer data;
    data.append("old", 3);
    ASSERT_TRUE(
        cert->getExtensionBinaryData("2.5.29.14", data, log));  // id-ce-subjectKeyIdentifier
    EXPECT_EQ(qtest::hexOf(data), opensslKeyIdHex("rsa.pem", "subjectKeyIdentifier"));

    StringBuffer text("keep:");
    ASSERT_TRUE(cert->getExtensionText("2.5.29.37", text, log));  // id-ce-extKeyUsage
    EXPECT_STREQ(text.getString(), "keep:1.3.6.1.5.5.7.3.1,1.3.6.1.5.5.7.3.2");

    StringBuffer xml("stale");
    ASSERT_TRUE(cert->getExtensionXml("2.5.29.15", xml, log));
    EXPECT_TRUE(xml.beginsWith("<bits")) << xml.getString();

    XString san("stale");
    ASSERT_TRUE(cert->getSubjectAlternativeNameXml(san, log));
    EXPECT_TRUE(san.containsSubstringUtf8("alice@example.org"));
    EXPECT_TRUE(san.containsSubstringUtf8("rsa.example.de"));
    EXPECT_FALSE(san.containsSubstringUtf8("stale"));

    EXPECT_EQ(cert->getVersion(log), 3);
    CertRef v1(qtest::load("noext.pem", log));
    ASSERT_TRUE(v1);
    EXPECT_EQ(v1->getVersion(log), 1);

    // Absent extensions.
    DataBuffer none;
    EXPECT_FALSE(v1->getExtensionDer("2.5.29.15", none, log));
    EXPECT_FALSE(v1->getExtensionXml("2.5.29.15", xml, log));
    EXPECT_EQ(xml.getSize(), 0u);
    StringBuffer ski("stale");
    EXPECT_FALSE(v1->getSubjectKeyIdentifier(ski, log));
    EXPECT_EQ(ski.getSize(), 0u);
}

// Three operations clear their output before anything else, even on a stale
// object; getExtensionText never clears; the rest clear after locking.
TEST(CertExtensions, EmptyAndStaleObjects) {
    const qtest::GuardCase cases[] = {
        {"getExtendedKeyUsage", QUERY_OP(c->getExtendedKeyUsage(o.s, l)), true, true},
        {"getExtensionDer", QUERY_OP(c->getExtensionDer("2.5.29.37", o.d, l)), true, true},
        {"getExtensionBinaryData", QUERY_OP(c->getExtensionBinaryData("2.5.29.37", o.d, l)), true,
         true},
        {"getExtensionXml", QUERY_OP(c->getExtensionXml("2.5.29.37", o.s, l)), true, false},
        {"getSubjectKeyIdentifier", QUERY_OP(c->getSubjectKeyIdentifier(o.s, l)), true, false},
        {"getSubjectAlternativeNameXml", QUERY_OP(c->getSubjectAlternativeNameXml(o.x, l)), true,
         false},
        {"getAuthorityKeyIdentifier", QUERY_OP(c->getAuthorityKeyIdentifier(o.d, &o.x, l)), true,
         false},
        {"getExtensionText", QUERY_OP(c->getExtensionText("2.5.29.37", o.s, l)), false, false},
        {"getIntendedKeyUsage", QUERY_OP(c->getIntendedKeyUsage(l)), false, false},
        {"getVersion", QUERY_OP(c->getVersion(l)), false, false},
        {"forSecureEmail", QUERY_OP(c->forSecureEmail(l)), false, false},
        {"forServerAuthentication", QUERY_OP(c->forServerAuthentication(l)), false, false},
        {"forClientAuthentication", QUERY_OP(c->forClientAuthentication(l)), false, false},
        {"forCodeSigning", QUERY_OP(c->forCodeSigning(l)), false, false},
        {"forTimeStamping", QUERY_OP(c->forTimeStamping(l)), false, false},
    };
    // Every one of them would answer for this certificate.
    LogTree log;
    CertRef loaded(qtest::load("dsa.pem", log));
    qtest::checkEmptyAndStale(cases, loaded.get());
}

}  // namespace
