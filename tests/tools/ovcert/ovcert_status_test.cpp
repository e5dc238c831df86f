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
using ovtest::shq;

namespace {

// Runs ovcert status on the leaf; the JSON answer, and the exit status in *st.
json status(const std::string& leaf, const std::string& extra, int* st) {
    return json::parse(ovcerttest::ovcert("status " + leaf + " --issuer ca.pem --json " + extra, st,
                                          nullptr, pki().dir().path()),
                       nullptr, false);
}

// Issues a copy of a leaf (same key and serial) naming the responder and CRL.
bool reissue(const std::string& leaf, const std::string& serial, const std::string& as,
             const std::string& ocsp, const std::string& crl) {
    return pki().sh("printf 'authorityInfoAccess=OCSP;URI:%s\\ncrlDistributionPoints=URI:%s\\n' " +
                    shq(ocsp) + " " + shq(crl) +
                    " > s.ext && openssl x509 -req -CA ca.pem -CAkey "
                    "ca.key -in " +
                    leaf + ".csr -out " + as + ".pem -set_serial " + serial + " -extfile s.ext");
}

}  // namespace

TEST(OvcertStatus, OcspFirstThenTheCrl) {
    ASSERT_TRUE(pki().made());
    ASSERT_TRUE(
        pki().sh("mkdir -p www && sed 's/db.txt/index.txt/' ca.cnf > crl.cnf && openssl "
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
    const std::string crl =
        "http://127.0.0.1:" +
        line.substr(line.find(" port ") + 6, line.find(" (") - line.find(" port ") - 6) +
        "/root.crl";
    const std::string dead = "http://127.0.0.1:9/";
    struct Case {
        const char* name;
        const char* leaf;
        const char* serial;
        bool ocspUp, crlUp;
        int exit;
        const char* certStatus;
        const char* source;
        size_t tried;
    } cases[] = {
        {"good by ocsp", "good", "0xC0FFEE", true, true, 0, "good", "ocsp", 0},
        {"revoked by ocsp", "revoked", "0x1002", true, true, 2, "revoked", "ocsp", 0},
        {"revoked by crl", "revoked", "0x1002", false, true, 2, "revoked", "crl", 1},
        {"good by crl", "good", "0xC0FFEE", false, true, 0, "good", "crl", 1},
        {"unknown to ocsp", "expired", "0x3001", true, true, 0, "good", "crl", 1},
        {"neither answers", "good", "0xC0FFEE", false, false, 3, "undetermined", nullptr, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(reissue(c.leaf, c.serial, "s", c.ocspUp ? ocsp : dead, c.crlUp ? crl : dead));
        int st = -1;
        json j = status("s.pem", "", &st);
        ASSERT_TRUE(j.is_object());
        EXPECT_EQ(c.exit, st);
        EXPECT_EQ(c.certStatus, j["certStatus"]);
        EXPECT_EQ(c.source ? json(c.source) : json(nullptr), j["source"]);
        EXPECT_EQ(c.tried, j["tried"].size()) << j.dump();
        EXPECT_EQ(c.exit == 2 ? json("keyCompromise") : json(nullptr), j["reason"]);
        EXPECT_EQ(c.source != nullptr, j["ageSeconds"].is_number() && j["stale"] == false)
            << j.dump();
    }

    // A cached CRL answers once its server is gone; without the cache nothing does.
    ASSERT_TRUE(reissue("revoked", "0x1002", "s", dead, crl) && pki().sh("mkdir -p cache"));
    int st = -1;
    status("s.pem", "--cache cache", &st);
    ASSERT_EQ(2, st);
    web.reset();
    EXPECT_EQ("crl", status("s.pem", "--cache cache", &st)["source"]);
    EXPECT_EQ(2, st);
    status("s.pem", "", &st);
    EXPECT_EQ(3, st);
}

TEST(OvcertStatus, CommandLineErrorsAreNotRevocations) {
    for (const char* args :
         {"status", "status a.pem b.pem", "status good.pem --nonsense", "status missing.pem"}) {
        EXPECT_EQ(1, ovcerttest::ovcertRun(args, "", pki().dir().path()).status) << args;
    }
}
