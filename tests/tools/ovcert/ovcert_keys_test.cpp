// describe and the key options of inspect, against python's json module, the
// openssl command line and a SoftHSM2 token made for the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ovcerttest::RunResult;
using ovtest::run;
using ovtest::shq;

namespace {

std::string certFile(const std::string& name) {
    return ovtest::dataPath("cert/" + name);
}

}  // namespace

// Every golden certificate: the braces around the golden text, which python's
// json module reads, with openssl's dates.
TEST(OvcertDescribe, JsonThatPythonReadsWithOpensslDates) {
    for (const char* name : {"rsa", "root", "ec", "inter", "ed25519"}) {
        SCOPED_TRACE(name);
        const std::string der = certFile(std::string(name) + ".der");
        RunResult r = ovcerttest::ovcertRun("describe " + shq(der));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "{" + ovtest::readFile(certFile(std::string(name) + ".describe")) + "}\n");
        std::string fromPython, fromOpenssl;
        ovtest::TempDir dir;
        ovtest::writeFile(dir.file("d.json"), r.out);
        ASSERT_EQ(run("python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
                      "print(d[\"validFrom\"].replace(\"T\",\" \")); "
                      "print(d[\"validTo\"].replace(\"T\",\" \"))' " +
                          shq(dir.file("d.json")),
                      &fromPython),
                  0);
        run("openssl x509 -inform DER -noout -dates -dateopt iso_8601 -in " + shq(der) +
                " | sed 's/^[a-zA-Z]*=//'",
            &fromOpenssl);
        EXPECT_EQ(fromPython, fromOpenssl);
    }
    RunResult bundle = ovcerttest::ovcertRun("describe " + shq(certFile("chain-key-first.pem")));
    EXPECT_EQ(std::count(bundle.out.begin(), bundle.out.end(), '\n'), 3) << "one per certificate";
    EXPECT_EQ(ovcerttest::ovcertRun("describe").status, 2);
}

// A key file in any form attaches; whether it is the certificate's own key is
// said; an encrypted key's password comes from the environment only, never
// shows, and without it (no terminal here) the tool refuses.
TEST(OvcertInspect, KeyFileAttachesAndSaysWhetherItMatches) {
    ovtest::TempDir dir;
    ASSERT_EQ(run("openssl pkcs8 -topk8 -nocrypt -outform DER -in " + shq(certFile("rsa.key")) +
                  " -out " + shq(dir.file("rsa.p8"))),
              0);
    struct Case {
        const char* name;
        std::string args, env;
        int status;
        bool hasKey;
        json matches;
    } const cases[] = {
        // rsa-enc.key's password is "secret".
        {"PEM", "--key " + shq(certFile("rsa.key")), "", 0, true, true},
        {"DER", "--key " + shq(dir.file("rsa.p8")), "", 0, true, true},
        {"another key", "--key " + shq(certFile("ec.key")), "", 0, true, false},
        {"encrypted", "--key " + shq(certFile("rsa-enc.key")) + " --pass-env OVPW", "OVPW=secret",
         0, true, true},
        {"wrong password", "--key " + shq(certFile("rsa-enc.key")) + " --pass-env OVPW",
         "OVPW=wrong-2718", 1, false, nullptr},
        {"no password", "--key " + shq(certFile("rsa-enc.key")), "", 1, false, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string& env = c.env;
        RunResult r = ovcerttest::ovcertRun(
            "inspect --json --log --verbose " + c.args + " " + shq(certFile("rsa.der")), env);
        EXPECT_EQ(r.status, c.status) << r.err;
        json j = json::parse(r.out.substr(0, r.out.find('\n')));
        EXPECT_EQ(j["hasPrivateKey"], c.hasKey);
        EXPECT_EQ(j.contains("privateKeyMatches") ? j["privateKeyMatches"] : json(nullptr),
                  c.matches);
        if (!env.empty()) {
            const std::string pw = env.substr(5);
            EXPECT_EQ((r.out + r.err).find(pw), std::string::npos) << "password shown";
        }
    }
}

// The token path is the certificate's own hasPrivateKey: it logs in and finds
// the handle; the PIN shows nowhere.
TEST(OvcertInspect, TokenKeyThroughHasPrivateKey) {
    const std::string module = "/usr/lib/softhsm/libsofthsm2.so";
    ovtest::TempDir dir;
    ovtest::writeFile(dir.file("conf"), "directories.tokendir = " + dir.file("") +
                                            "\nobjectstore.backend = file\nlog.level = ERROR\n");
    const std::string conf = "SOFTHSM2_CONF=" + shq(dir.file("conf"));
    std::string out;
    ASSERT_EQ(run(conf +
                      " softhsm2-util --init-token --free --label t --pin pin-5150 --so-pin "
                      "so-9911 >/dev/null && " +
                      conf + " pkcs11-tool --module " + module +
                      " --token-label t --login --pin pin-5150 --write-object " +
                      shq(ovtest::dataPath("pkcs11/rsa_key.key.der")) +
                      " --type privkey --id b1 >/dev/null 2>&1",
                  &out),
              0);
    const std::string cert = shq(ovtest::dataPath("pkcs11/rsa_key.cert.der"));
    RunResult r = ovcerttest::ovcertRun(
        "inspect --json --log --verbose --pkcs11 " + module + " --pin-env OVPIN " + cert,
        conf + " OVPIN=pin-5150");
    ASSERT_EQ(r.status, 0) << r.err;
    json j = json::parse(r.out.substr(0, r.out.find('\n')));
    EXPECT_EQ(j["hasPrivateKey"], true);
    EXPECT_EQ(j["tokenKeyHandleFound"], true);
    EXPECT_NE(r.err.find("pkcs11_login_success"), std::string::npos) << r.err;
    EXPECT_EQ((r.out + r.err).find("pin-5150"), std::string::npos) << "PIN shown";
    EXPECT_EQ(ovcerttest::ovcertRun("inspect --pkcs11 " + module + " " + cert).status, 2)
        << "no PIN variable";
}
