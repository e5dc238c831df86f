// Requests built by our encoder, posted by our client to a real responder
// (openssl ocsp on a local port), with the answers read by openssl.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "OcspTestCa.h"
#include "PeerProcess.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/json/ClsJsonObject.h"
#include "support/net/ClsHttp.h"
#include "support/net/HttpResult.h"
#include "support_common/TestUtil.h"

namespace {

std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

class OcspResponderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* v : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
        ASSERT_EQ(ovtest::run("openssl version"), 0) << "the openssl command line is missing";
        std::string err;
        ASSERT_TRUE(m_ca.make(err)) << err;
        // Port 0: the responder binds a free port and reports it as
        // "ACCEPT [::]:PORT PID=..." once it listens.
        ASSERT_TRUE(
            m_responder.start({"openssl", "ocsp", "-port", "0", "-index", "index.txt", "-CA",
                               "ca.pem", "-rsigner", "ca.pem", "-rkey", "ca.key", "-ignore_err"},
                              m_dir.path(), m_ca.path("responder.log")))
            << "cannot start openssl ocsp";
        std::string line;
        ASSERT_TRUE(m_responder.readLine(line, 15000))
            << "openssl ocsp did not start listening: "
            << ovtest::readFile(m_ca.path("responder.log"));
        size_t colon = line.rfind(':');
        ASSERT_TRUE(line.rfind("ACCEPT", 0) == 0 && colon != std::string::npos) << line;
        m_port = std::stoi(line.substr(colon + 1));
    }

    // The description as the certificate code builds it: fresh nonce first, then
    // the CertID members.
    std::string describe(ClsJsonObject& j, const std::string& leaf, const char* alg) {
        ovtest::OcspTestCa::CertId id;
        std::string err;
        EXPECT_TRUE(m_ca.certIdFor(leaf, alg, id, err)) << err;
        DataBuffer nonce;
        nonce.appendChar(0x04);
        nonce.appendChar(0x10);
        std::random_device rd;
        for (int i = 0; i < 16; ++i) nonce.appendChar(static_cast<unsigned char>(rd()));
        StringBuffer b64, hex;
        nonce.encodeDB("base64", b64);
        nonce.encodeDB("hex", hex);
        LogNull log;
        EXPECT_TRUE(j.updateString("extensions.ocspNonce", b64.getString(), log));
        EXPECT_TRUE(j.updateString("request[0].cert.hashAlg", alg, log));
        EXPECT_TRUE(j.updateString("request[0].cert.issuerNameHash", id.nameHashB64.c_str(), log));
        EXPECT_TRUE(j.updateString("request[0].cert.issuerKeyHash", id.keyHashB64.c_str(), log));
        EXPECT_TRUE(j.updateString("request[0].cert.serialNumber", id.serialHex.c_str(), log));
        return hex.getString();
    }

    ovtest::TempDir m_dir;
    ovtest::OcspTestCa m_ca{m_dir.path()};
    ovtest::PeerProcess m_responder;
    int m_port = 0;
};

TEST_F(OcspResponderTest, ResponderAnswersEachCertificateStatus) {
    struct Case {
        const char* leaf;
        const char* alg;
        const char* status;
    };
    const Case cases[] = {
        {"good", "sha1", "good"},         {"revoked", "sha1", "revoked"},
        {"unknown", "sha1", "unknown"},   {"good", "sha256", "good"},
        {"revoked", "sha512", "revoked"},
    };
    ClsHttp http;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.leaf) + " " + c.alg);
        ClsJsonObject spec;
        std::string nonceHex = describe(spec, c.leaf, c.alg);
        DataBuffer request;
        LogTree log;
        ASSERT_TRUE(http.createOcspRequest(spec, request, log)) << log.text();

        XString u(("http://127.0.0.1:" + std::to_string(m_port) + "/").c_str());
        XString ct("application/ocsp-request");
        HttpResult result;
        DataBuffer response;
        ASSERT_TRUE(http.binaryRequest("POST", u, nullptr, request, ct, false, false, result,
                                       response, nullptr, log))
            << log.text();
        EXPECT_EQ(result.get_StatusCode(), 200);
        StringBuffer type;
        EXPECT_TRUE(result.getHeaderField("Content-Type", type));
        EXPECT_STREQ(type.getString(), "application/ocsp-response");

        // openssl matches the response's CertID against the certificate and
        // checks the signature against the CA: our CertID must be the real one.
        // (-no_nonce: openssl would otherwise compare with a nonce of its own.)
        ASSERT_TRUE(ovtest::writeFile(m_ca.path("resp.der"), str(response)));
        std::string text;
        std::string leafPem = std::string(c.leaf) + ".pem";
        ovtest::run("cd " + ovtest::shq(m_dir.path()) + " && openssl ocsp -issuer ca.pem -" +
                        c.alg + " -cert " + leafPem +
                        " -respin resp.der -no_nonce -CAfile ca.pem -resp_text 2>&1",
                    &text);
        EXPECT_NE(text.find(leafPem + ": " + c.status), std::string::npos) << text;
        EXPECT_NE(text.find("Response verify OK"), std::string::npos) << text;
        // The responder copies the request's nonce into its answer.
        std::string shown;
        size_t at = text.find("OCSP Nonce:");
        if (at != std::string::npos) shown = text.substr(at, 200);
        EXPECT_NE(shown.find(nonceHex), std::string::npos) << text;
    }
}

}  // namespace
