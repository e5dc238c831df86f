#include <gtest/gtest.h>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"

using certtest::CertRef;
using certtest::fixture;

namespace {

TEST(CertExport, PemIsReadBackByOpensslUnchanged) {
    LogTree log;
    for (const char* name : {"rsa.der", "ec.der", "ed25519.der"}) {
        SCOPED_TRACE(name);
        CertRef cert(certtest::loadDer(name, log));
        ASSERT_TRUE(cert);
        StringBuffer pem;
        ASSERT_TRUE(cert->getPem(pem, log));
        std::string text = pem.getString();
        EXPECT_EQ(text.rfind("-----END CERTIFICATE-----\r\n"), text.size() - 27);
        // Every line ends with CRLF and holds at most 64 characters.
        size_t start = 0;
        while (start < text.size()) {
            size_t e = text.find("\r\n", start);
            ASSERT_NE(e, std::string::npos);
            EXPECT_LE(e - start, 64u);
            start = e + 2;
        }
        ovtest::TempDir dir;
        ovtest::writeFile(dir.file("c.pem"), text);
        std::string out;
        ASSERT_EQ(ovtest::run("openssl x509 -in " + ovtest::shq(dir.file("c.pem")) +
                                  " -outform DER | base64 -w0",
                              &out),
                  0);
        DataBuffer der;
        cert->getDEREncodedCert(der);
        StringBuffer b64;
        der.encodeDB("base64", b64);
        EXPECT_EQ(out, b64.getString());
    }
}

TEST(CertExport, PemSeparatorsAndRepeatedBlocks) {
    LogTree log;
    CertRef cert(certtest::loadDer("ec.der", log));
    ASSERT_TRUE(cert);
    StringBuffer out("preamble");
    ASSERT_TRUE(cert->getPem(out, log));
    ASSERT_TRUE(cert->getPem(out, log));
    std::string s = out.getString();
    EXPECT_EQ(s.find("preamble\r\n-----BEGIN CERTIFICATE-----\r\n"), 0u);
    size_t second = s.find("-----BEGIN", 11);
    ASSERT_NE(second, std::string::npos);
    EXPECT_EQ(s.substr(second - 27, 27), "-----END CERTIFICATE-----\r\n");
}

TEST(CertExport, DerAppendsAndPkiPathWrapsTheDerVerbatim) {
    LogTree log;
    CertRef cert(certtest::loadDer("rsa.der", log));
    ASSERT_TRUE(cert);
    DataBuffer out;
    out.append("xy", 2);
    ASSERT_TRUE(cert->getDEREncodedCert(out));
    EXPECT_EQ(out.getSize(), 2 + cert->getDEREncodedCertSize());

    StringBuffer path;
    ASSERT_TRUE(cert->getX509PKIPathv1(path, log));
    EXPECT_FALSE(path.containsSubstring("\r\n"));
    DataBuffer pathDer;
    ASSERT_TRUE(pathDer.appendEncoded(path.getString(), "base64"));
    std::string der = fixture("rsa.der");
    ASSERT_EQ(pathDer.getSize(), der.size() + 4);  // 30 82 LL LL + certificate
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(pathDer.getData2()) + 4, der.size()), der);

    ovtest::TempDir dir;
    ASSERT_TRUE(pathDer.saveToFileUtf8(dir.file("p.der").c_str(), &log));
    std::string text;
    ASSERT_EQ(
        ovtest::run("openssl asn1parse -inform DER -in " + ovtest::shq(dir.file("p.der")), &text),
        0);
    EXPECT_NE(text.find("d=0  hl=4 l="), std::string::npos);
    EXPECT_NE(text.find("d=1  hl=4 l="), std::string::npos);
}

TEST(CertExport, SaveCertAndEmptyObjects) {
    LogTree log;
    CertRef cert(certtest::loadDer("ed25519.der", log));
    ASSERT_TRUE(cert);
    ovtest::TempDir dir;
    XString path(dir.file("out.der").c_str());
    ASSERT_TRUE(cert->saveCert(path, log));
    EXPECT_EQ(ovtest::readFile(dir.file("out.der")), fixture("ed25519.der"));
    XString bad((dir.path() + "/missing/dir/x.der").c_str());
    EXPECT_FALSE(cert->saveCert(bad, log));

    CertRef empty(CertCore::createNewCert());
    DataBuffer db;
    StringBuffer sb;
    LogTree quiet;
    EXPECT_FALSE(empty->getDEREncodedCert(db));
    EXPECT_EQ(empty->getDEREncodedCertSize(), 0u);
    EXPECT_FALSE(empty->getPem(sb, quiet));
    EXPECT_FALSE(empty->getX509PKIPathv1(sb, quiet));
    EXPECT_FALSE(empty->saveCert(path, quiet));
    EXPECT_EQ(sb.getSize(), 0u);
    EXPECT_EQ(quiet.numEntries(), 0);  // no message without a parsed certificate

    cert->m_magic = 0;  // a stale object answers nothing
    EXPECT_FALSE(cert->getDEREncodedCert(db));
    EXPECT_FALSE(cert->getPem(sb, quiet));
    cert->m_magic = CertCore::kMagic;
}

}  // namespace
