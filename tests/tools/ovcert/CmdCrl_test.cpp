// `ovcert crl`: what each openssl-made CRL says, in the documented JSON
// members, from a file and from our loopback server through the cache.
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "support/net/PeerProcess.h"
#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;

namespace {

const std::string kCrl = std::string(OV_TEST_DATA_DIR) + "/crl/";

json crlJson(const std::string& args, int* status = nullptr) {
    return json::parse(ovcerttest::ovcert("crl " + args + " --json", status), nullptr, false);
}

// What the CRL says, read by its grammar: a v1 CRL's thisUpdate is its own,
// a CRL without entries still has its number, a GeneralizedTime is a time.
TEST(OvcertCrl, ReportsWhatEachCrlSays) {
    struct Case {
        const char* file;
        const char* thisUpdate;
        json nextUpdate;
        json crlNumber;
        int entries;
    } cases[] = {
        {"v2.crl", "2024-01-02T03:04:05Z", "2049-02-03T04:05:06Z", 5, 3},
        {"v2_empty.crl", "2024-01-02T03:04:05Z", "2049-02-03T04:05:06Z", 6, 0},
        {"v1.crl", "2024-01-02T03:04:05Z", "2030-06-07T08:09:10Z", nullptr, 1},
        {"gentime.crl", "2050-01-01T00:00:00Z", "2051-01-01T00:00:00Z", 7, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        json j = crlJson(ovtest::shq(kCrl + c.file) + " --issuer " + ovtest::shq(kCrl + "ca.der"));
        ASSERT_TRUE(j.is_object());
        EXPECT_EQ(j["issuerDN"], "CN=Orvane Test CRL CA, O=Orvane, C=DE");
        EXPECT_EQ(j["thisUpdate"], c.thisUpdate);
        EXPECT_EQ(j["nextUpdate"], c.nextUpdate);
        EXPECT_EQ(j["crlNumber"], c.crlNumber);
        EXPECT_EQ(j["entries"], c.entries);
        EXPECT_EQ(j["signature"], "valid");
        EXPECT_FALSE(j.contains("serial") || j.contains("revoked"));
    }
}

TEST(OvcertCrl, SerialListAndSignatureMembers) {
    std::string v2 = ovtest::shq(kCrl + "v2.crl");
    json j = crlJson(v2 + " --serial 0x10:01 --list --issuer " + ovtest::shq(kCrl + "other.der"));
    EXPECT_EQ(j["signature"], "invalid");
    EXPECT_EQ(j["serial"], json({{"listed", true},
                                 {"revocationDate", "2024-01-01T00:00:00Z"},
                                 {"reason", "keyCompromise"}}));
    EXPECT_EQ(j["revoked"].size(), 3u);
    EXPECT_EQ(j["revoked"][1], json({{"serial", "1002"},
                                     {"revocationDate", "2024-01-01T00:01:00Z"},
                                     {"reason", "superseded"}}));
    EXPECT_TRUE(j["revoked"][2]["reason"].is_null());

    j = crlJson(v2 + " --serial 1004");
    EXPECT_EQ(j["signature"], "unchecked");
    EXPECT_EQ(j["serial"],
              json({{"listed", false}, {"revocationDate", nullptr}, {"reason", nullptr}}));

    int status = 0;
    crlJson(ovtest::shq(kCrl + "ca.der"), &status);  // a certificate is no CRL
    EXPECT_EQ(status, 1);
}

// A URL goes through the cache: the second run is answered from it even
// with the server gone.
TEST(OvcertCrl, DownloadsThroughTheCache) {
    for (const char* v : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
    ovtest::TempDir cache;
    std::string url;
    {
        ovtest::PeerProcess server;
        std::string port;
        ASSERT_TRUE(server.start(std::string(OV_TEST_DATA_DIR) + "/../revocation",
                                 "python3 crl_http_server.py", port));
        url = "http://127.0.0.1:" + port + "/crl/v2.crl";
        json j = crlJson(ovtest::shq(url) + " --cache " + ovtest::shq(cache.path()));
        EXPECT_EQ(j["crlNumber"], 5);
    }
    json j = crlJson(ovtest::shq(url) + " --cache " + ovtest::shq(cache.path()));
    EXPECT_EQ(j["entries"], 3);
}

}  // namespace
