#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "cert/CertTestUtil.h"

using certtest::CertRef;

// Byte for byte against the golden text beside the certificate
// (tests/data/cert/<name>.describe): RSA, EC and Ed25519, with an e-mail name
// (the leaves) and without (root RSA, intermediate EC), an object without a
// certificate, and a stale one, which still writes the dates, expired and the
// two empty names. The members are appended right after what the buffer held.
// OV_UPDATE_GOLDEN=1 rewrites the golden texts from the current output (after
// the certificates were made again; read the diff before committing).
TEST(CertDescribeJson, MatchesTheGoldenText) {
    for (const char* name : {"rsa", "root", "ec", "inter", "ed25519", "no-certificate", "stale"}) {
        SCOPED_TRACE(name);
        LogTree log;
        const bool none = std::string(name) == "no-certificate", stale = name[0] == 's';
        CertRef cert(none ? CertCore::createNewCert()
                          : certtest::loadDer(stale ? "rsa.der" : std::string(name) + ".der", log));
        ASSERT_TRUE(cert);
        log.clearLog();
        StringBuffer out("{\"id\":1,");
        if (stale) cert->m_magic = 0;
        EXPECT_TRUE(cert->appendDescriptiveJson(out, log));
        cert->m_magic = CertCore::kMagic;
        const std::string actual = out.getString() + 8,
                          path = ovtest::dataPath(
                              "cert/" + std::string(stale ? "no-certificate" : name) + ".describe");
        if (getenv("OV_UPDATE_GOLDEN") && !stale) ovtest::writeFile(path, actual);
        EXPECT_EQ(out.getString(), "{\"id\":1," + ovtest::readFile(path));
        if (stale) continue;
        EXPECT_TRUE(log.hasContext("cert_appendDescriptiveJson"));
        EXPECT_EQ(log.hasError("Unable to get certificate's public key DER."), none) << log.text();
    }
}
