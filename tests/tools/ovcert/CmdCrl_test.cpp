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
// a CRL without entries still has its number, a GeneralizedTime is a time;
// nothing more unless asked. With --serial and --list, the entry and every
// entry; the signature checked only against a given issuer.
TEST(OvcertCrl, ReportsWhatEachCrlSays) {
    const std::string issuer = R"({"issuerDN":"CN=Orvane Test CRL CA, O=Orvane, C=DE",)";
    const std::string v2 = R"("thisUpdate":"2024-01-02T03:04:05Z",)"
                           R"("nextUpdate":"2049-02-03T04:05:06Z","crlNumber":5,"entries":3,)";
    const std::string ca = " --issuer " + crl("ca.der");
    const std::pair<std::string, std::string> cases[] = {
        {crl("v2.crl") + ca, v2 + R"("signature":"valid"})"},
        {crl("v2_empty.crl") + ca,
         R"("thisUpdate":"2024-01-02T03:04:05Z","nextUpdate":"2049-02-03T04:05:06Z",)"
         R"("crlNumber":6,"entries":0,"signature":"valid"})"},
        {crl("v1.crl") + ca,
         R"("thisUpdate":"2024-01-02T03:04:05Z","nextUpdate":"2030-06-07T08:09:10Z",)"
         R"("crlNumber":null,"entries":1,"signature":"valid"})"},
        {crl("gentime.crl") + ca,
         R"("thisUpdate":"2050-01-01T00:00:00Z","nextUpdate":"2051-01-01T00:00:00Z",)"
         R"("crlNumber":7,"entries":1,"signature":"valid"})"},
        {crl("v2.crl") + " --serial 0x10:01 --list --issuer " + crl("other.der"),
         v2 + R"("signature":"invalid","serial":{"listed":true,)"
              R"("revocationDate":"2024-01-01T00:00:00Z","reason":"keyCompromise"},)"
              R"("revoked":[{"serial":"1001","revocationDate":"2024-01-01T00:00:00Z",)"
              R"("reason":"keyCompromise"},{"serial":"1002","revocationDate":)"
              R"("2024-01-01T00:01:00Z","reason":"superseded"},{"serial":"1003",)"
              R"("revocationDate":"2024-01-01T00:02:00Z","reason":null}]})"},
        {crl("v2.crl") + " --serial 1004",
         v2 + R"("signature":"unchecked","serial":{"listed":false,)"
              R"("revocationDate":null,"reason":null}})"},
    };
    for (const auto& [args, says] : cases) {
        EXPECT_EQ(ovcertRun("crl --json " + args).json(), json::parse(issuer + says)) << args;
    }
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
