#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"

using qtest::CertRef;

TEST(CertExtensions, UsagePurposesAndKeyIdsPerCertificate) {
    struct Case {
        const char* file;
        const char* eku;   // getExtendedKeyUsage; null: false (no extension)
        const char* uses;  // server, client, code signing, e-mail, time stamping
        int keyUsage;
        bool aki;  // an authority key id with a key id (its value: the tool's tests)
    };
    const Case cases[] = {
        // E-mail: no emailProtection, but the subject has an address.
        {"rsa.pem", "serverAuth,clientAuth", "11010", 0xA0, true},
        {"ec256.pem", "codeSigning,timeStamping", "00101", 0x80, true},
        {"ed25519.pem", "emailProtection", "00010", 0xC0, true},  // with nonRepudiation
        // All six, listed in reverse; decipherOnly is in the second byte.
        {"dsa.pem", "serverAuth,clientAuth,codeSigning,emailProtection,timeStamping,OCSPSigning",
         "11111", 0x80, true},
        // 3.17 contains the text of 3.1 but is not its element; e-mail through
        // the subject.
        {"eku-odd.pem", "serverAuth", "00010", 0, true},
        {"eku-unknown.pem", "", "00000", 0, true},  // an unknown purpose only
        // No extension: no e-mail leniency either, although the subject has one.
        {"noext.pem", nullptr, "00000", 0, false},
        {"ca.pem", nullptr, "00000", 0x06, true},        // keyCertSign, cRLSign
        {"aki-issuer.pem", nullptr, "00000", 0, false},  // authority key id without key id
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
        std::string logged = "0";  // logged when there is a value
        log.findData("intendedKeyUsage", logged);
        EXPECT_EQ(std::stoi(logged, nullptr, 16), c.keyUsage);

        // The issuer name and serial form has no key id: what follows the
        // second '>' is no base64. keyId is emptied either way.
        DataBuffer keyId = qtest::old();
        XString keyIdB64("stale");
        EXPECT_EQ(cert->getAuthorityKeyIdentifier(keyId, &keyIdB64, log), c.aki);
        EXPECT_EQ(keyId.getSize(), c.aki ? 20u : 0u);
        EXPECT_TRUE(!c.aki || qtest::enc(keyId, "base64") == keyIdB64.getUtf8());
    }
}

TEST(CertExtensions, ExtensionValuesByOid) {
    LogTree log;
    CertRef cert(qtest::load("rsa.pem")), v1(qtest::load("noext.pem"));
    DataBuffer der = qtest::old(), value;
    // id-ce-keyUsage: the extension's value whole, then the BIT STRING's content.
    EXPECT_TRUE(cert->getExtensionDer("2.5.29.15", der, log) &&
                cert->getExtensionBinaryData("2.5.29.15", value, log));
    EXPECT_EQ(qtest::enc(der), "030205A0");
    EXPECT_EQ(qtest::enc(value), "05A0");
    EXPECT_EQ(cert->getVersion(log), 3);
    EXPECT_EQ(v1->getVersion(log), 1);  // and without extensions:
    EXPECT_FALSE(v1->getExtensionDer("2.5.29.15", der, log));
}
