#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "cert/CertTestUtil.h"

using certtest::CertRef;

namespace {

// The golden description beside a certificate: tests/data/cert/<name>.describe.
// OV_UPDATE_GOLDEN=1 rewrites them from the current output (after the
// certificates were made again; read the diff before committing).
std::string golden(const std::string& name, const std::string& actual) {
    const std::string path = ovtest::dataPath("cert/" + name + ".describe");
    if (getenv("OV_UPDATE_GOLDEN")) ovtest::writeFile(path, actual);
    return ovtest::readFile(path);
}

}  // namespace

// Byte for byte: RSA, EC and Ed25519, with an e-mail name (the leaves) and
// without (root RSA, intermediate EC), and an object without a certificate.
TEST(CertDescribeJson, MatchesTheGoldenText) {
    for (const char* name : {"rsa", "root", "ec", "inter", "ed25519", "no-certificate"}) {
        SCOPED_TRACE(name);
        LogTree log;
        const bool none = std::string(name) == "no-certificate";
        CertRef cert(none ? CertCore::createNewCert()
                          : certtest::loadDer(std::string(name) + ".der", log));
        ASSERT_TRUE(cert);
        log.clearLog();
        StringBuffer out;
        EXPECT_TRUE(cert->appendDescriptiveJson(out, log));
        EXPECT_EQ(out.getString(), golden(name, out.getString()));
        EXPECT_TRUE(log.hasContext("cert_appendDescriptiveJson"));
        EXPECT_EQ(log.hasError("Unable to get certificate's public key DER."), none) << log.text();
    }
}

// Appending adds the members right after what the buffer held, and a stale
// object still writes the dates, expired and the two empty names.
TEST(CertDescribeJson, AppendsAndSurvivesAStaleObject) {
    LogTree log;
    CertRef cert(certtest::loadDer("rsa.der", log));
    StringBuffer out("{\"id\":1,");
    cert->appendDescriptiveJson(out, log);
    EXPECT_EQ(out.getString(),
              "{\"id\":1," + ovtest::readFile(ovtest::dataPath("cert/rsa.describe")));
    cert->m_magic = 0;
    out.clear();
    cert->appendDescriptiveJson(out, log);
    cert->m_magic = CertCore::kMagic;
    EXPECT_EQ(out.getString(), ovtest::readFile(ovtest::dataPath("cert/no-certificate.describe")));
}
