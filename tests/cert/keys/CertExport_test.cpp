#include <gtest/gtest.h>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"

using certtest::CertRef;
using certtest::fixture;

namespace {

// A block appended to text starts on a line of its own (none added after a line
// end); every line ends with CRLF and holds at most 64 characters; openssl reads
// the block back as the certificate's DER.
TEST(CertExport, PemBlocksAppendAndOpensslReadsThemBack) {
    LogTree log;
    for (const char* name : {"rsa.der", "ec.der", "ed25519.der"}) {
        SCOPED_TRACE(name);
        CertRef cert(certtest::loadDer(name, log));
        StringBuffer pem("preamble");
        ASSERT_TRUE(cert && cert->getPem(pem, log) && cert->getPem(pem, log));
        const std::string s = pem.getString(), block = s.substr(10, (s.size() - 10) / 2);
        EXPECT_EQ(s, "preamble\r\n" + block + block);
        EXPECT_EQ(block.find("-----BEGIN CERTIFICATE-----\r\n"), 0u);
        EXPECT_EQ(block.rfind("-----END CERTIFICATE-----\r\n"), block.size() - 27);
        for (size_t start = 0, end; start < block.size(); start = end + 2) {
            end = block.find("\r\n", start);
            ASSERT_NE(end, std::string::npos);
            EXPECT_LE(end - start, 64u);
        }
        ovtest::TempDir dir;
        ovtest::writeFile(dir.file("c.pem"), block);
        std::string der;
        ASSERT_EQ(
            ovtest::run("openssl x509 -outform DER -in " + ovtest::shq(dir.file("c.pem")), &der),
            0);
        EXPECT_EQ(der, fixture(name));
    }
}

// DER is appended; the PKI path is one line of base64 of a SEQUENCE (long form,
// two length bytes) around the certificate's DER as loaded.
TEST(CertExport, DerAppendsAndPkiPathWrapsTheDerVerbatim) {
    LogTree log;
    CertRef cert(certtest::loadDer("rsa.der", log));
    const std::string der = fixture("rsa.der");
    DataBuffer out;
    out.append("xy", 2);
    ASSERT_TRUE(cert && cert->getDEREncodedCert(out));
    EXPECT_EQ(ovtest::bytes(out), "xy" + der);
    EXPECT_EQ(cert->getDEREncodedCertSize(), der.size());

    StringBuffer path;
    DataBuffer pathDer;
    ASSERT_TRUE(cert->getX509PKIPathv1(path, log));
    EXPECT_FALSE(path.containsSubstring("\r\n") || path.containsSubstring("\n"));
    ASSERT_TRUE(pathDer.appendEncoded(path.getString(), "base64"));
    const char header[] = {0x30, static_cast<char>(0x82), static_cast<char>(der.size() >> 8),
                           static_cast<char>(der.size() & 0xff)};
    EXPECT_EQ(ovtest::bytes(pathDer), std::string(header, 4) + der);
}

// saveCert writes the DER as loaded; an object without a certificate, or a stale
// one, exports nothing and logs nothing.
TEST(CertExport, SaveCertAndEmptyObjects) {
    LogTree log;
    CertRef cert(certtest::loadDer("ed25519.der", log));
    ovtest::TempDir dir;
    XString path(dir.file("out.der").c_str()), bad(dir.file("missing/dir/x.der").c_str());
    ASSERT_TRUE(cert && cert->saveCert(path, log));
    EXPECT_EQ(ovtest::readFile(dir.file("out.der")), fixture("ed25519.der"));
    EXPECT_FALSE(cert->saveCert(bad, log));

    CertRef empty(CertCore::createNewCert());
    DataBuffer db;
    StringBuffer sb;
    LogTree quiet;
    EXPECT_FALSE(empty->getDEREncodedCert(db) || empty->getPem(sb, quiet) ||
                 empty->getX509PKIPathv1(sb, quiet) || empty->saveCert(path, quiet));
    EXPECT_EQ(empty->getDEREncodedCertSize(), 0u);
    cert->m_magic = 0;  // a stale object answers nothing
    EXPECT_FALSE(cert->getDEREncodedCert(db) || cert->getPem(sb, quiet));
    cert->m_magic = CertCore::kMagic;
    EXPECT_EQ(db.getSize() + sb.getSize(), 0u);
    EXPECT_EQ(quiet.numEntries(), 0) << quiet.text();
}

}  // namespace
