// `ovcert ocsp` against an openssl responder on loopback and on saved
// responses, and `inspect`'s revocation pointers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "revocation/OcspTestPki.h"
#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ocsptest::pki;

namespace {

// ovcert in the test PKI's directory; its exit status must be want.
ovcerttest::RunResult inPki(const std::string& args, int want) {
    ovcerttest::RunResult r = ovcerttest::ovcertRun(args, "", pki().dir().path());
    EXPECT_EQ(want, r.status) << args << "\n" << r.err;
    return r;
}

json ocspJson(const std::string& args) {
    return inPki("ocsp --json " + args, 0).json();
}

}  // namespace

// Every member for a revoked leaf, answered by a delegated responder.
TEST(OvcertOcsp, AsksTheResponder) {
    ASSERT_TRUE(pki().made());
    ovtest::PeerProcess responder;
    const std::string url = pki().startResponder(responder, "delegate");
    ASSERT_FALSE(url.empty());
    json j = ocspJson("revoked.pem --issuer ca.pem --url " + url);
    ASSERT_TRUE(j.is_object() && j["responses"].size() == 1) << j;
    for (const char* time : {"thisUpdate", "nextUpdate"})
        j["responses"][0][time] = j["responses"][0][time].is_string();
    EXPECT_EQ(json::parse(R"({"httpStatus":200,"responseStatus":"successful","nonce":"match",)"
                          R"("signature":"valid","responses":[{"serial":"1002",)"
                          R"("certStatus":"revoked","reason":"keyCompromise",)"
                          R"("revocationTime":"2024-01-01T00:00:00Z","thisUpdate":true,)"
                          R"("nextUpdate":true}]})"),
              j);
}

TEST(OvcertOcsp, ReadsASavedResponse) {
    ASSERT_TRUE(pki().made());
    ASSERT_TRUE(
        pki().sh("openssl ocsp -issuer ca.pem -cert revoked.pem -cert good.pem -cert "
                 "expired.pem -reqout three.req && openssl ocsp -index index.txt -CA "
                 "ca.pem -rsigner delegate.pem -rkey delegate.key -reqin three.req "
                 "-respout three.der"));
    json j = ocspJson("--respin three.der --issuer ca.pem");
    ASSERT_TRUE(j.is_object());
    EXPECT_FALSE(j.contains("httpStatus"));
    EXPECT_EQ("valid", j["signature"]);
    EXPECT_TRUE(j["nonce"].is_null());  // one came back, but nothing to compare it with
    std::string got;
    for (const json& r : j["responses"])
        got += r["serial"].get<std::string>() + "=" + r["certStatus"].get<std::string>() + " ";
    EXPECT_EQ("1002=revoked 00C0FFEE=good 3001=unknown ", got);
    EXPECT_EQ("unchecked", ocspJson("--respin three.der")["signature"]);
    EXPECT_EQ("invalid", ocspJson("--respin three.der --issuer rogue.pem")["signature"]);
}

TEST(OvcertOcsp, FailuresAndPointers) {
    ASSERT_TRUE(pki().made());
    inPki("ocsp good.pem --issuer ca.pem", 1);            // the named responder does not answer
    inPki("ocsp good.pem --url http://127.0.0.1:9/", 1);  // no issuer to hash
    inPki("ocsp --respin ca.pem", 1);                     // not a response
    for (const char* args : {"ocsp", "ocsp good.pem --respin x.der", "ocsp good.pem --nonsense"})
        inPki(args, 2);
    json j = inPki("inspect --json good.pem", 0).json();
    EXPECT_EQ("http://127.0.0.1:9/ocsp", j["ocspUrl"]);
    EXPECT_EQ("http://127.0.0.1:9/root.crl", j["crlDistPoint"]);
}
