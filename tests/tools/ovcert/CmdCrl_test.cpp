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
using ovcerttest::ovcertRun;

namespace {

// A file of the CRL test data, quoted for the shell.
std::string crl(const std::string& name) {
    return ovtest::shq(std::string(OV_TEST_DATA_DIR) + "/crl/" + name);
}

// What the CRL says, read by its grammar: a v1 CRL's thisUpdate is its own,
// a CRL without entries still has its number, a GeneralizedTime is a time.
TEST(OvcertCrl, ReportsWhatEachCrlSays) {
    struct Case {
        const char* file;
        const char* thisUpdate;
        json nextUpdate, crlNumber;
        int entries;
    } cases[] = {
        {"v2.crl", "2024-01-02T03:04:05Z", "2049-02-03T04:05:06Z", 5, 3},
        {"v2_empty.crl", "2024-01-02T03:04:05Z", "2049-02-03T04:05:06Z", 6, 0},
        {"v1.crl", "2024-01-02T03:04:05Z", "2030-06-07T08:09:10Z", nullptr, 1},
        {"gentime.crl", "2050-01-01T00:00:00Z", "2051-01-01T00:00:00Z", 7, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        // Nothing more: no serial or revoked list unless asked.
        EXPECT_EQ(ovcertRun("crl --json " + crl(c.file) + " --issuer " + crl("ca.der")).json(),
                  json({{"issuerDN", "CN=Orvane Test CRL CA, O=Orvane, C=DE"},
                        {"thisUpdate", c.thisUpdate},
                        {"nextUpdate", c.nextUpdate},
                        {"crlNumber", c.crlNumber},
                        {"entries", c.entries},
                        {"signature", "valid"}}));
    }
}

TEST(OvcertCrl, SerialListAndSignatureMembers) {
    const std::string head = R"({"issuerDN":"CN=Orvane Test CRL CA, O=Orvane, C=DE",)"
                             R"("thisUpdate":"2024-01-02T03:04:05Z",)"
                             R"("nextUpdate":"2049-02-03T04:05:06Z","crlNumber":5,"entries":3,)";
    EXPECT_EQ(
        ovcertRun("crl --json " + crl("v2.crl") + " --serial 0x10:01 --list --issuer " +
                  crl("other.der"))
            .json(),
        json::parse(head + R"("signature":"invalid","serial":{"listed":true,)"
                           R"("revocationDate":"2024-01-01T00:00:00Z","reason":"keyCompromise"},)"
                           R"("revoked":[{"serial":"1001","revocationDate":"2024-01-01T00:00:00Z",)"
                           R"("reason":"keyCompromise"},{"serial":"1002","revocationDate":)"
                           R"("2024-01-01T00:01:00Z","reason":"superseded"},{"serial":"1003",)"
                           R"("revocationDate":"2024-01-01T00:02:00Z","reason":null}]})"));
    EXPECT_EQ(ovcertRun("crl --json " + crl("v2.crl") + " --serial 1004").json(),
              json::parse(head + R"("signature":"unchecked","serial":{"listed":false,)"
                                 R"("revocationDate":null,"reason":null}})"));
    EXPECT_EQ(ovcertRun("crl --json " + crl("ca.der")).status, 1);  // a certificate is no CRL
}

// A URL goes through the cache: the second run is answered from it even
// with the server gone.
TEST(OvcertCrl, DownloadsThroughTheCache) {
    for (const char* v : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
    ovtest::TempDir cache;
    std::string args;
    {
        ovtest::PeerProcess server;
        std::string port;
        ASSERT_TRUE(server.start(std::string(OV_TEST_DATA_DIR) + "/../revocation",
                                 "python3 crl_http_server.py", port));
        args = "crl --json http://127.0.0.1:" + port + "/crl/v2.crl --cache " +
               ovtest::shq(cache.path());
        EXPECT_EQ(ovcertRun(args).json()["crlNumber"], 5);
    }
    EXPECT_EQ(ovcertRun(args).json()["entries"], 3);
}

}  // namespace
