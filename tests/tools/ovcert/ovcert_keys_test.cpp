// describe and the key options of inspect, against python's json module, the
// openssl command line and a SoftHSM2 token made for the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ovcerttest::ovcertRun;
using ovcerttest::RunResult;
using ovtest::run;
using ovtest::shq;

namespace {

// A file of the certificate test data, quoted for the shell.
std::string cert(const std::string& name) {
    return shq(ovtest::dataPath("cert/" + name));
}

}  // namespace

// Every golden certificate: the braces around the golden text, which python's
// json module reads, with openssl's dates.
TEST(OvcertDescribe, JsonThatPythonReadsWithOpensslDates) {
    for (const std::string name : {"rsa", "root", "ec", "inter", "ed25519"}) {
        SCOPED_TRACE(name);
        RunResult r = ovcertRun("describe " + cert(name + ".der"));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out,
                  "{" + ovtest::readFile(ovtest::dataPath("cert/" + name + ".describe")) + "}\n");
        std::string fromPython, fromOpenssl;
        ASSERT_EQ(
            run("printf %s " + shq(r.out) +
                    " | python3 -c 'import json,sys; d=json.load(sys.stdin); "
                    "[print(d[k].replace(\"T\",\" \")) for k in (\"validFrom\",\"validTo\")]'",
                &fromPython),
            0);
        run("openssl x509 -noout -dates -dateopt iso_8601 -in " + cert(name + ".der") +
                " | sed 's/^[a-zA-Z]*=//'",
            &fromOpenssl);
        EXPECT_EQ(fromPython, fromOpenssl);
    }
    std::string bundle = ovcertRun("describe " + cert("chain-key-first.pem")).out;
    EXPECT_EQ(std::count(bundle.begin(), bundle.end(), '\n'), 3) << "one per certificate";
    EXPECT_EQ(ovcertRun("describe").status, 2);
}

// A key file in any form attaches; whether it is the certificate's own key is
// said; an encrypted key's password comes from the environment only, never
// shows, and without it (no terminal here) the tool refuses.
TEST(OvcertInspect, KeyFileAttachesAndSaysWhetherItMatches) {
    ovtest::TempDir dir;
    ASSERT_EQ(run("openssl pkcs8 -topk8 -nocrypt -outform DER -in " + cert("rsa.key") + " -out " +
                  shq(dir.file("rsa.p8"))),
              0);
    // Key options, environment, exit status (0: the key is attached), whether it
    // matches; rsa-enc.key's password is "secret".
    const std::tuple<std::string, std::string, int, json> cases[] = {
        {cert("rsa.key"), "", 0, true},
        {shq(dir.file("rsa.p8")), "", 0, true},
        {cert("ec.key"), "", 0, false},
        {cert("rsa-enc.key") + " --pass-env OVPW", "OVPW=secret", 0, true},
        {cert("rsa-enc.key") + " --pass-env OVPW", "OVPW=wrong-2718", 1, nullptr},
        {cert("rsa-enc.key"), "", 1, nullptr},
    };
    for (const auto& [args, env, status, matches] : cases) {
        SCOPED_TRACE(env + " " + args);
        RunResult r =
            ovcertRun("inspect --json --log --verbose --key " + args + " " + cert("rsa.der"), env);
        EXPECT_EQ(r.status, status) << r.err;
        json j = r.json();
        EXPECT_EQ(j["hasPrivateKey"], status == 0);
        EXPECT_EQ(j.contains("privateKeyMatches") ? j["privateKeyMatches"] : json(nullptr),
                  matches);
        if (!env.empty())
            EXPECT_EQ((r.out + r.err).find(env.substr(5)), std::string::npos) << "password shown";
    }
}

// In a bundle the key goes to the certificate whose key it is, not to the one
// the component happened to choose (here the intermediate, listed first).
TEST(OvcertInspect, KeyFileFindsItsCertificateInABundle) {
    RunResult r = ovcertRun("inspect --json --key " + cert("rsa.key") + " " +
                            cert("chain-encrypted-key.pem"));
    ASSERT_EQ(r.status, 0) << r.err;
    int carriers = 0;
    for (const json& c : r.json()) {
        if (c["hasPrivateKey"] != true) continue;
        ++carriers;
        EXPECT_EQ(c["subject"]["CN"], "rsa.example.test");
        EXPECT_EQ(c["privateKeyMatches"], true);
    }
    EXPECT_EQ(carriers, 1);
}

// The token path is the certificate's own hasPrivateKey: it logs in and finds
// the handle; the PIN shows nowhere.
TEST(OvcertInspect, TokenKeyThroughHasPrivateKey) {
    const std::string module = "/usr/lib/softhsm/libsofthsm2.so";
    ovtest::TempDir dir;
    ovtest::writeFile(dir.file("conf"), "directories.tokendir = " + dir.file("") +
                                            "\nobjectstore.backend = file\nlog.level = ERROR\n");
    const std::string conf = "SOFTHSM2_CONF=" + shq(dir.file("conf"));
    ASSERT_EQ(run("export " + conf +
                  " && softhsm2-util --init-token --free --label t --pin pin-5150 --so-pin "
                  "so-9911 >/dev/null && pkcs11-tool --module " +
                  module + " --token-label t --login --pin pin-5150 --write-object " +
                  shq(ovtest::dataPath("pkcs11/rsa_key.key.der")) +
                  " --type privkey --id b1 >/dev/null 2>&1"),
              0);
    const std::string cert = shq(ovtest::dataPath("pkcs11/rsa_key.cert.der"));
    RunResult r =
        ovcertRun("inspect --json --log --verbose --pkcs11 " + module + " --pin-env OVPIN " + cert,
                  conf + " OVPIN=pin-5150");
    ASSERT_EQ(r.status, 0) << r.err;
    json j = r.json();
    EXPECT_TRUE(j["hasPrivateKey"] == true && j["tokenKeyHandleFound"] == true) << j;
    EXPECT_NE(r.err.find("pkcs11_login_success"), std::string::npos) << r.err;
    EXPECT_EQ((r.out + r.err).find("pin-5150"), std::string::npos) << "PIN shown";
    EXPECT_EQ(ovcertRun("inspect --pkcs11 " + module + " " + cert).status, 2) << "no PIN variable";
}
