// `ovcert status` end to end: an openssl OCSP responder and a loopback HTTP
// server holding a CRL made by `openssl ca -gencrl` from the same index.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "revocation/OcspTestPki.h"
#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ocsptest::pki;
using ovcerttest::RunResult;

namespace {

// ovcert in the test PKI's directory.
RunResult inPki(const std::string& args) {
    return ovcerttest::ovcertRun(args, "", pki().dir().path());
}

// Issues s.pem, a copy of a leaf (same key and serial) naming the responder
// and CRL.
bool reissue(const std::string& leaf, const std::string& ocsp, const std::string& crl) {
    const std::map<std::string, std::string> serials = {
        {"good", "0xC0FFEE"}, {"revoked", "0x1002"}, {"expired", "0x3001"}};
    return pki().sh("printf 'authorityInfoAccess=OCSP;URI:%s\\ncrlDistributionPoints=URI:%s\\n' " +
                    ovtest::shq(ocsp) + " " + ovtest::shq(crl) +
                    " > s.ext && openssl x509 -req -CA ca.pem -CAkey ca.key -in " + leaf +
                    ".csr -out s.pem -set_serial " + serials.at(leaf) + " -extfile s.ext");
}

// ovcert status on s.pem: exit status, certStatus, source, how many sources
// were tried before it, reason, and whether the answer has an age and is fresh.
std::string status(const std::string& extra = "") {
    RunResult r = inPki("status s.pem --issuer ca.pem --json " + extra);
    json j = r.json();
    if (!j.is_object()) return r.out + r.err;
    return std::to_string(r.status) + " " + j["certStatus"].get<std::string>() + " from " +
           j["source"].dump() + ", tried " + std::to_string(j["tried"].size()) + ", reason " +
           j["reason"].dump() +
           (j["ageSeconds"].is_number() && j["stale"] == false ? ", fresh" : "");
}

}  // namespace

TEST(OvcertStatus, OcspFirstThenTheCrl) {
    ASSERT_TRUE(pki().made());
    ASSERT_TRUE(
        pki().sh("mkdir -p www cache && sed 's/db.txt/index.txt/' ca.cnf > crl.cnf && openssl "
                 "ca -gencrl -config crl.cnf -cert ca.pem -keyfile ca.key -crldays 7 -out "
                 "crl.pem && openssl crl -in crl.pem -outform DER -out www/root.crl"));
    ovtest::PeerProcess responder;
    auto web = std::make_unique<ovtest::PeerProcess>();
    const std::string ocsp = pki().startResponder(responder, "delegate");
    std::string line;
    ASSERT_TRUE(web->start(
        pki().dir().path(),
        "python3 -u -m http.server 0 --bind 127.0.0.1 --directory www 2>/dev/null", line))
        << line;
    const size_t at = line.find(" port ") + 6;
    const std::string crl =
        "http://127.0.0.1:" + line.substr(at, line.find(" (") - at) + "/root.crl";
    const std::string dead = "http://127.0.0.1:9/";
    struct Case {
        const char* leaf;
        bool ocspUp, crlUp;
        const char* says;
    } cases[] = {
        {"good", true, true, R"(0 good from "ocsp", tried 0, reason null, fresh)"},
        {"revoked", true, true, R"(2 revoked from "ocsp", tried 0, reason "keyCompromise", fresh)"},
        {"revoked", false, true, R"(2 revoked from "crl", tried 1, reason "keyCompromise", fresh)"},
        {"good", false, true, R"(0 good from "crl", tried 1, reason null, fresh)"},
        {"expired", true, true, R"(0 good from "crl", tried 1, reason null, fresh)"},  // unknown
        {"good", false, false, R"(3 undetermined from null, tried 2, reason null)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.leaf) + (c.ocspUp ? " ocsp" : "") + (c.crlUp ? " crl" : ""));
        ASSERT_TRUE(reissue(c.leaf, c.ocspUp ? ocsp : dead, c.crlUp ? crl : dead));
        EXPECT_EQ(status(), c.says);
    }

    // A cached CRL answers once its server is gone; without the cache nothing does.
    ASSERT_TRUE(reissue("revoked", dead, crl));
    const std::string fromCrl = R"(2 revoked from "crl", tried 1, reason "keyCompromise", fresh)";
    ASSERT_EQ(status("--cache cache"), fromCrl);
    web.reset();
    EXPECT_EQ(status("--cache cache"), fromCrl);
    EXPECT_EQ(status(), R"(3 undetermined from null, tried 2, reason null)");
}

TEST(OvcertStatus, CommandLineErrorsAreNotRevocations) {
    for (const char* args :
         {"status", "status a.pem b.pem", "status good.pem --nonsense", "status missing.pem"}) {
        EXPECT_EQ(1, inPki(args).status) << args;
    }
}
