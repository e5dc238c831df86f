// `ovcert status` end to end: an openssl OCSP responder and a loopback HTTP
// server holding a CRL made by `openssl ca -gencrl` from the same index.
#include <gtest/gtest.h>

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
bool reissue(const std::string& leaf, const std::string& serial, const std::string& ocsp,
             const std::string& crl) {
    return pki().sh("printf 'authorityInfoAccess=OCSP;URI:%s\\ncrlDistributionPoints=URI:%s\\n' " +
                    ovtest::shq(ocsp) + " " + ovtest::shq(crl) +
                    " > s.ext && openssl x509 -req -CA ca.pem -CAkey ca.key -in " + leaf +
                    ".csr -out s.pem -set_serial " + serial + " -extfile s.ext");
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
    const std::string status = "status s.pem --issuer ca.pem --json";
    struct Case {
        const char* leaf;
        const char* serial;
        bool ocspUp, crlUp;
        int exit;
        const char* certStatus;
        const char* source;
        size_t tried;
    } cases[] = {
        {"good", "0xC0FFEE", true, true, 0, "good", "ocsp", 0},
        {"revoked", "0x1002", true, true, 2, "revoked", "ocsp", 0},
        {"revoked", "0x1002", false, true, 2, "revoked", "crl", 1},
        {"good", "0xC0FFEE", false, true, 0, "good", "crl", 1},
        {"expired", "0x3001", true, true, 0, "good", "crl", 1},  // unknown to OCSP
        {"good", "0xC0FFEE", false, false, 3, "undetermined", nullptr, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.leaf) + (c.ocspUp ? " ocsp" : "") + (c.crlUp ? " crl" : ""));
        ASSERT_TRUE(reissue(c.leaf, c.serial, c.ocspUp ? ocsp : dead, c.crlUp ? crl : dead));
        RunResult r = inPki(status);
        json j = r.json();
        ASSERT_TRUE(j.is_object()) << r.out << r.err;
        EXPECT_EQ(c.exit, r.status);
        EXPECT_EQ(c.certStatus, j["certStatus"]);
        EXPECT_EQ(c.source ? json(c.source) : json(nullptr), j["source"]);
        EXPECT_EQ(c.tried, j["tried"].size()) << j.dump();
        EXPECT_EQ(c.exit == 2 ? json("keyCompromise") : json(nullptr), j["reason"]);
        EXPECT_EQ(c.source != nullptr, j["ageSeconds"].is_number() && j["stale"] == false)
            << j.dump();
    }

    // A cached CRL answers once its server is gone; without the cache nothing does.
    ASSERT_TRUE(reissue("revoked", "0x1002", dead, crl));
    ASSERT_EQ(2, inPki(status + " --cache cache").status);
    web.reset();
    RunResult r = inPki(status + " --cache cache");
    EXPECT_EQ(2, r.status);
    EXPECT_EQ("crl", r.json()["source"]);
    EXPECT_EQ(3, inPki(status).status);
}

TEST(OvcertStatus, CommandLineErrorsAreNotRevocations) {
    for (const char* args :
         {"status", "status a.pem b.pem", "status good.pem --nonsense", "status missing.pem"}) {
        EXPECT_EQ(1, inPki(args).status) << args;
    }
}
