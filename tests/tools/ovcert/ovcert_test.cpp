// The tool's answers checked against the openssl command line, and its
// behaviour on bad input.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support_common/TestUtil.h"

using nlohmann::json;
using ovtest::run;
using ovtest::shq;

namespace {

std::string ovcert(const std::string& args, int* status = nullptr, std::string* err = nullptr) {
    std::string out;
    ovtest::TempDir dir;
    std::string errFile = dir.file("err");
    int st = run(std::string(OVCERT_BIN) + " " + args + " 2>" + shq(errFile), &out);
    if (status) *status = st;
    if (err) *err = ovtest::readFile(errFile);
    return out;
}

std::string oss(const std::string& file, const std::string& args) {
    std::string out;
    run("openssl x509 -in " + shq(file) + " -noout " + args, &out);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

std::string after(const std::string& s, const std::string& prefix) {
    size_t p = s.find(prefix);
    return p == std::string::npos ? "" : s.substr(p + prefix.size());
}

std::string noColons(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), ':'), s.end());
    return s;
}

std::string stripLeadingZeroOctets(std::string hex) {
    while (hex.size() > 2 && hex.compare(0, 2, "00") == 0) hex.erase(0, 2);
    return hex;
}

// The hex digits that openssl prints on the line after an extension's name.
std::string extHex(const std::string& file, const char* ext) {
    std::string text = oss(file, std::string("-ext ") + ext);
    size_t nl = text.find('\n');
    if (nl == std::string::npos) return "";
    std::string v = text.substr(nl + 1);
    v.erase(0, v.find_first_not_of(" "));
    if (v.compare(0, 6, "keyid:") == 0) v = v.substr(6);
    v = v.substr(0, v.find('\n'));
    return noColons(v);
}

TEST(OvcertInspect, JsonAgreesWithOpenssl) {
    std::vector<std::string> files;
    for (const char* f : {"rsa.pem", "ec256.pem", "ed25519.pem", "ed448.pem", "dsa.pem",
                          "eku-odd.pem", "noext.pem", "country-GR.pem", "expired.pem"})
        files.push_back(ovtest::dataPath(std::string("query/") + f));
    files.push_back(ovtest::dataPath("cert/root.der"));
    for (const std::string& f : files) {
        SCOPED_TRACE(f);
        int st = -1;
        std::string out = ovcert("inspect --json " + shq(f), &st);
        ASSERT_EQ(st, 0);
        json j = json::parse(out.substr(0, out.find('\n')));

        std::string inform = f.size() > 4 && f.substr(f.size() - 4) == ".der" ? " -inform DER" : "";
        auto o = [&](const std::string& a) { return oss(f, inform + " " + a); };
        std::string serial = after(o("-serial"), "serial=");
        if (serial[0] != '-') {  // openssl prints negative serials by value, we by octets
            EXPECT_EQ(stripLeadingZeroOctets(j["serial"]), serial);
        }
        std::string dates = o("-dates -dateopt iso_8601");
        std::string from = j["validFrom"], to = j["validTo"];
        from[10] = ' ';
        to[10] = ' ';
        EXPECT_EQ(from, after(dates.substr(0, dates.find('\n')), "notBefore="));
        EXPECT_EQ(to, after(dates, "notAfter="));
        std::string subject = j["subjectDN"];
        std::string compact;
        for (size_t i = 0; i < subject.size(); ++i) {
            if (subject[i] == ' ' && i > 0 && subject[i - 1] == ',') continue;
            compact += subject[i];
        }
        std::string theirs = after(o("-subject -nameopt RFC2253"), "subject=");
        // openssl spells E and SERIALNUMBER out; compare names without them.
        if (theirs.find("emailAddress") == std::string::npos &&
            theirs.find("serialNumber") == std::string::npos) {
            EXPECT_EQ(compact, theirs);
        }
        EXPECT_EQ(j["sha1Thumbprint"], noColons(after(o("-fingerprint -sha1"), "Fingerprint=")));

        std::string pin;
        run("openssl x509" + inform + " -in " + shq(f) +
                " -pubkey -noout | openssl pkey -pubin -outform DER | openssl dgst -sha256 -binary "
                "| base64 -w0",
            &pin);
        EXPECT_EQ(j["spkiSha256"], pin);

        std::string text = o("-text");
        std::string bits = after(text, "Public-Key: (");
        if (!bits.empty() && j["keyType"] != "eddsa") {
            EXPECT_EQ(std::to_string(j["keyBits"].get<int>()), bits.substr(0, bits.find(' ')));
        }
        bool hasEku = text.find("X509v3 Extended Key Usage") != std::string::npos;
        EXPECT_EQ(!j["extendedKeyUsage"].is_null(), hasEku);
        bool hasKu = text.find("X509v3 Key Usage") != std::string::npos;
        EXPECT_EQ(j["intendedKeyUsage"].get<int>() != 0, hasKu);
        std::string aki = extHex(f, "authorityKeyIdentifier");
        EXPECT_EQ(j["authorityKeyId"].is_null() ? "" : j["authorityKeyId"].get<std::string>(), aki);
        std::string ski = extHex(f, "subjectKeyIdentifier");
        EXPECT_EQ(j["subjectKeyId"].is_null() ? "" : j["subjectKeyId"].get<std::string>(), ski);
        auto orEmpty = [](const json& v) -> std::string {
            return v.is_null() ? "" : v.get<std::string>();
        };
        EXPECT_EQ(orEmpty(j["ocspUrl"]), o("-ocsp_uri"));
        std::string crl = after(o("-ext crlDistributionPoints"), "URI:");
        EXPECT_EQ(orEmpty(j["crlDistPoint"]), crl.substr(0, crl.find('\n')));
        EXPECT_TRUE(j["hasPrivateKey"].is_null());
    }
}

TEST(OvcertInspect, KeyTypesAndBundles) {
    struct Case {
        const char* file;
        const char* keyType;
    } cases[] = {{"query/rsa.pem", "rsa"},    {"query/ec256.pem", "ecdsa"},
                 {"query/dsa.pem", "dsa"},    {"query/ed25519.pem", "eddsa"},
                 {"cert/chain.p7b", "ecdsa"}, {"cert/ec-utf16le.b64", "ecdsa"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        json j = json::parse(ovcert("inspect --json " + shq(ovtest::dataPath(c.file))));
        EXPECT_EQ(j["keyType"], c.keyType);
    }
    // A chain with the leaf's key: the leaf first, then the rest of the bundle.
    std::string out = ovcert("inspect --json " + shq(ovtest::dataPath("cert/chain-key-first.pem")));
    std::vector<json> objs;
    size_t pos = 0;
    while (pos < out.size()) {
        size_t nl = out.find('\n', pos);
        objs.push_back(json::parse(out.substr(pos, nl - pos)));
        pos = nl + 1;
    }
    ASSERT_EQ(objs.size(), 3u);
    EXPECT_EQ(objs[0]["subject"]["CN"], "rsa.example.test");
}

TEST(OvcertInspect, StandardInputAndFailures) {
    std::string out;
    ASSERT_EQ(run("cat " + shq(ovtest::dataPath("cert/ec.der")) + " | " + OVCERT_BIN +
                      " inspect --json -",
                  &out),
              0);
    EXPECT_EQ(json::parse(out)["subject"]["CN"], "ec.example.test");

    ovtest::TempDir dir;
    ovtest::writeFile(dir.file("junk.txt"), "this is not a certificate\n");
    int st = 0;
    std::string err;
    std::string none = ovcert("inspect " + shq(dir.file("junk.txt")), &st, &err);
    EXPECT_EQ(st, 1);
    EXPECT_TRUE(none.empty());
    EXPECT_NE(err.find("no certificate could be loaded"), std::string::npos);
    EXPECT_NE(err.find("createFromBinary"), std::string::npos);  // the component's log

    ovcert("inspect /nonexistent/file.pem", &st);
    EXPECT_EQ(st, 1);
    ovcert("frobnicate", &st);
    EXPECT_EQ(st, 2);
}

TEST(OvcertConvert, FormsAreReadByOpenssl) {
    ovtest::TempDir dir;
    std::string src = ovtest::dataPath("cert/chain.p7b");
    int st = -1;
    ovcert("convert " + shq(src) + " --to der -o " + shq(dir.file("c.der")), &st);
    ASSERT_EQ(st, 0);
    EXPECT_EQ(ovtest::readFile(dir.file("c.der")),
              ovtest::readFile(ovtest::dataPath("cert/ec.der")));

    std::string pem = ovcert("convert " + shq(src) + " --to pem", &st);
    ASSERT_EQ(st, 0);
    ovtest::writeFile(dir.file("c.pem"), pem);
    std::string fp;
    run("openssl x509 -in " + shq(dir.file("c.pem")) + " -outform DER | cmp - " +
            shq(dir.file("c.der")) + " && echo same",
        &fp);
    EXPECT_EQ(fp, "same\n");

    std::string path = ovcert("convert " + shq(src) + " --to pkipath", &st);
    ASSERT_EQ(st, 0);
    ovtest::writeFile(dir.file("p.b64"), path);
    std::string parsed;
    EXPECT_EQ(
        run("base64 -d " + shq(dir.file("p.b64")) + " | openssl asn1parse -inform DER", &parsed),
        0);
    EXPECT_NE(parsed.find("d=1"), std::string::npos);

    ovcert("convert " + shq(src) + " --to txt", &st);
    EXPECT_EQ(st, 2);
}

}  // namespace
