#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"

using qtest::CertRef;

// The key id openssl lists for the extension ("    C0:86:..." on the line
// after its name) without colons; "" when there is none (absent, or an
// authority key id of issuer name and serial only).
static std::string opensslKeyId(const std::string& file, const char* ext) {
    std::string text = qtest::ossl(file, std::string("-noout -ext ") + ext), hex;
    for (size_t i = text.find("\n    "); i < text.size(); ++i) {
        unsigned char ch = static_cast<unsigned char>(text[i]);
        if (isxdigit(ch))
            hex += text[i];
        else if (ch != ':' && !isspace(ch))
            return "";
    }
    return hex;
}

TEST(CertExtensions, UsagePurposesAndKeyIdsPerCertificate) {
    struct Case {
        const char* file;
        const char* eku;   // getExtendedKeyUsage; null: false (no extension)
        const char* uses;  // server, client, code signing, e-mail, time stamping
        int keyUsage;
    };
    const Case cases[] = {
        // E-mail: no emailProtection, but the subject has an address.
        {"rsa.pem", "serverAuth,clientAuth", "11010", 0xA0},
        {"ec256.pem", "codeSigning,timeStamping", "00101", 0x80},
        {"ed25519.pem", "emailProtection", "00010", 0xC0},  // with nonRepudiation
        // All six, listed in reverse; decipherOnly is in the second byte.
        {"dsa.pem", "serverAuth,clientAuth,codeSigning,emailProtection,timeStamping,OCSPSigning",
         "11111", 0x80},
        // 3.17 contains the text of 3.1 but is not its element; e-mail through
        // the subject.
        {"eku-odd.pem", "serverAuth", "00010", 0},
        {"eku-unknown.pem", "", "00000", 0},  // an unknown purpose only
        // No extension: no e-mail leniency either, although the subject has one.
        {"noext.pem", nullptr, "00000", 0},
        {"ca.pem", nullptr, "00000", 0x06},       // keyCertSign, cRLSign
        {"aki-issuer.pem", nullptr, "00000", 0},  // authority key id without key id
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        CertRef cert(qtest::load(c.file));
        LogTree log;
        StringBuffer eku("stale");
        EXPECT_EQ(cert->getExtendedKeyUsage(eku, log), c.eku != nullptr);
        EXPECT_STREQ(eku.getString(), c.eku ? c.eku : "");
        std::string uses = {
            char('0' + cert->forServerAuthentication(log)),
            char('0' + cert->forClientAuthentication(log)), char('0' + cert->forCodeSigning(log)),
            char('0' + cert->forSecureEmail(log)), char('0' + cert->forTimeStamping(log))};
        EXPECT_EQ(uses, c.uses);
        EXPECT_FALSE(log.hasErrors()) << log.text();
        EXPECT_EQ(cert->getIntendedKeyUsage(log), c.keyUsage);
        std::string logged;
        char want[8];
        std::snprintf(want, sizeof want, "%x", c.keyUsage);
        EXPECT_EQ(log.findData("intendedKeyUsage", logged) ? logged : "-", c.keyUsage ? want : "-");

        // The issuer name and serial form has no key id: what follows the
        // second '>' is no base64. keyId is emptied either way.
        std::string aki = opensslKeyId(c.file, "authorityKeyIdentifier");
        std::string ski = opensslKeyId(c.file, "subjectKeyIdentifier");
        DataBuffer keyId = qtest::old(), only, skiBytes;
        XString keyIdB64("stale");
        StringBuffer skiHex("stale");
        EXPECT_EQ(cert->getAuthorityKeyIdentifier(keyId, &keyIdB64, log), !aki.empty());
        EXPECT_EQ(cert->getAuthorityKeyIdentifier(only, nullptr, log), !aki.empty());
        EXPECT_EQ(qtest::enc(keyId), aki);
        EXPECT_EQ(qtest::enc(only), aki);
        EXPECT_TRUE(aki.empty() || qtest::enc(keyId, "base64") == keyIdB64.getUtf8());
        EXPECT_EQ(cert->getSubjectKeyIdentifier(skiHex, log), !ski.empty());
        EXPECT_EQ(skiHex.getString(), ski);
        cert->getExtensionBinaryData("2.5.29.14", skiBytes, log);  // id-ce-subjectKeyIdentifier
        EXPECT_EQ(qtest::enc(skiBytes), ski);
    }
}

TEST(CertExtensions, ExtensionValuesByOid) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem")), v1(qtest::load("noext.pem"));
    DataBuffer der = qtest::old();
    StringBuffer text("keep:"), xml("stale");
    XString san("stale");
    EXPECT_TRUE(cert->getExtensionDer("2.5.29.15", der, log));    // id-ce-keyUsage
    EXPECT_TRUE(cert->getExtensionText("2.5.29.37", text, log));  // id-ce-extKeyUsage
    EXPECT_TRUE(cert->getExtensionXml("2.5.29.15", xml, log));
    EXPECT_TRUE(cert->getSubjectAlternativeNameXml(san, log));
    EXPECT_EQ(qtest::enc(der), "030205A0");
    EXPECT_STREQ(text.getString(), "keep:1.3.6.1.5.5.7.3.1,1.3.6.1.5.5.7.3.2");  // appended
    EXPECT_TRUE(xml.beginsWith("<bits")) << xml.getString();
    EXPECT_EQ(std::string(san.getUtf8()).find("stale"), std::string::npos);
    EXPECT_TRUE(san.containsSubstringUtf8("alice@example.org"));
    EXPECT_EQ(cert->getVersion(log), 3);
    EXPECT_EQ(v1->getVersion(log), 1);  // and without extensions:
    EXPECT_FALSE(v1->getExtensionDer("2.5.29.15", der, log) ||
                 v1->getExtensionXml("2.5.29.15", text, log));
}
