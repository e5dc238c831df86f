// The tool's answers checked against the openssl command line, and its
// behaviour on bad input.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ovcerttest::ovcertRun;
using ovcerttest::RunResult;
using ovtest::run;
using ovtest::shq;

namespace {

// A file of the test data, quoted for the shell.
std::string data(const std::string& name) {
    return shq(ovtest::dataPath(name));
}

// The rest of the line after prefix, looked for from the first `from` on; ""
// when either is absent.
std::string lineAfter(const std::string& text, const std::string& prefix,
                      const std::string& from = "") {
    size_t p = text.find(from);
    if (p != std::string::npos) p = text.find(prefix, p);
    if (p == std::string::npos) return "";
    p += prefix.size();
    return text.substr(p, text.find('\n', p) - p);
}

// The line under an extension's name in openssl's text ("" when absent).
std::string extLine(const std::string& text, const std::string& name) {
    std::string v = lineAfter(text, "\n", "X509v3 " + name);
    return v.erase(0, v.find_first_not_of(' '));
}

std::string noColons(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), ':'), s.end());
    return s;
}

std::string keyId(const std::string& text, const std::string& name) {
    std::string v = extLine(text, name);
    return noColons(v.compare(0, 6, "keyid:") == 0 ? v.substr(6) : v);
}

// Signature algorithm names compared without case, '-' or '_' (openssl says
// "ED25519", "dsa_with_SHA256").
std::string loose(const std::string& s) {
    std::string out;
    for (char c : s)
        if (c != '-' && c != '_') out += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return out;
}

// openssl's one-line forms of the extensions, and the same facts built from
// our JSON members.
std::set<std::string> items(const std::string& commaList) {
    if (commaList.empty()) return {};
    std::regex sep(", ");
    return {std::sregex_token_iterator(commaList.begin(), commaList.end(), sep, -1), {}};
}

// A subject alternative name as openssl writes it, addresses in canonical form.
std::string sanItem(const std::string& kind, const std::string& v) {
    unsigned char buf[16];
    char text[64];
    int af = v.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    if (kind != "IP Address:" || inet_pton(af, v.c_str(), buf) != 1 ||
        !inet_ntop(af, buf, text, sizeof text))
        return kind + v;
    return kind + text;
}

std::set<std::string> ourSan(const json& san) {
    std::set<std::string> out;
    for (const auto& [member, kind] : std::map<std::string, std::string>{
             {"dns", "DNS:"}, {"email", "email:"}, {"uri", "URI:"}, {"ip", "IP Address:"}})
        for (const auto& v : san.is_null() ? json::array() : san[member])
            out.insert(sanItem(kind, v));
    return out;
}

std::set<std::string> theirSan(const std::string& line) {
    std::set<std::string> out;
    for (const std::string& v : items(line)) {
        size_t colon = v.find(':') + 1;
        out.insert(sanItem(v.substr(0, colon), v.substr(colon)));
    }
    return out;
}

// openssl's key usage words in our spelling ("Key Agreement" is keyAgreement).
std::set<std::string> theirKeyUsage(const std::string& line) {
    std::set<std::string> out;
    for (std::string w : items(line)) {
        if (w == "Certificate Sign") w = "Key Cert Sign";
        w.erase(std::remove(w.begin(), w.end(), ' '), w.end());
        w[0] = static_cast<char>(tolower(static_cast<unsigned char>(w[0])));
        out.insert(w);
    }
    return out;
}

std::string ourBasicConstraints(const json& bc) {
    if (bc.is_null()) return "";
    std::string s = bc["ca"].get<bool>() ? "CA:TRUE" : "CA:FALSE";
    return bc["pathLen"].is_null() ? s : s + ", pathlen:" + bc["pathLen"].dump();
}

std::string orEmpty(const json& v) {
    return v.is_null() ? "" : v.get<std::string>();
}

// Checks the members of j, our JSON for the certificate in f, that openssl
// also reports.
void expectAgreesWithOpenssl(const std::string& f, const json& j) {
    std::string t;
    run("openssl x509 -noout -text -serial -fingerprint -sha1 -subject -nameopt RFC2253 -dates "
        "-dateopt iso_8601 -in " +
            shq(f) + " && printf pin= && openssl x509 -pubkey -noout -in " + shq(f) +
            " | openssl pkey -pubin -outform DER | openssl dgst -sha256 -binary | base64 -w0",
        &t);
    std::string serial = lineAfter(t, "serial=");
    if (serial[0] != '-') {  // openssl prints negative serials by value, we by octets
        EXPECT_EQ(
            std::regex_replace(j["serial"].get<std::string>(), std::regex("^(00)+(?=..)"), ""),
            serial);
    }
    std::string from = j["validFrom"], to = j["validTo"];
    from[10] = to[10] = ' ';
    EXPECT_EQ(from, lineAfter(t, "notBefore="));
    EXPECT_EQ(to, lineAfter(t, "notAfter="));
    std::string theirs = lineAfter(t, "subject=");
    // openssl spells E and SERIALNUMBER out; compare names without them.
    if (theirs.find("emailAddress") == std::string::npos &&
        theirs.find("serialNumber") == std::string::npos) {
        EXPECT_EQ(std::regex_replace(j["subjectDN"].get<std::string>(), std::regex(", "), ","),
                  theirs);
    }
    EXPECT_EQ(j["sha1Thumbprint"], noColons(lineAfter(t, "Fingerprint=")));
    EXPECT_EQ(j["spkiSha256"], lineAfter(t, "pin="));
    // Ed448 is none of our key types.
    static const std::map<std::string, std::string> kKeyTypes = {
        {"rsaEncryption", "rsa"}, {"id-ecPublicKey", "ecdsa"}, {"dsaEncryption", "dsa"},
        {"ED25519", "eddsa"},     {"ED448", "unknown"},
    };
    EXPECT_EQ(j["keyType"], kKeyTypes.at(lineAfter(t, "Public Key Algorithm: ")));
    std::string bits = lineAfter(t, "Public-Key: (");
    if (!bits.empty() && j["keyType"] != "eddsa") {
        EXPECT_EQ(std::to_string(j["keyBits"].get<int>()) + " bit)", bits);
    }
    EXPECT_EQ(!j["extendedKeyUsage"].is_null(),
              t.find("X509v3 Extended Key Usage") != std::string::npos);
    EXPECT_EQ(j["intendedKeyUsage"].get<int>() != 0,
              t.find("X509v3 Key Usage") != std::string::npos);
    EXPECT_EQ(orEmpty(j["authorityKeyId"]), keyId(t, "Authority Key Identifier"));
    EXPECT_EQ(orEmpty(j["subjectKeyId"]), keyId(t, "Subject Key Identifier"));
    EXPECT_EQ(orEmpty(j["ocspUrl"]), lineAfter(t, "OCSP - URI:"));
    EXPECT_EQ(orEmpty(j["crlDistPoint"]), lineAfter(t, "URI:", "X509v3 CRL Distribution Points"));
    EXPECT_EQ(ourSan(j["subjectAltNames"]), theirSan(extLine(t, "Subject Alternative Name")));
    EXPECT_EQ(j["keyUsage"].is_null() ? std::set<std::string>()
                                      : j["keyUsage"].get<std::set<std::string>>(),
              theirKeyUsage(extLine(t, "Key Usage")));
    EXPECT_EQ(ourBasicConstraints(j["basicConstraints"]), extLine(t, "Basic Constraints"));
    EXPECT_EQ(loose(j["signatureAlgorithm"]), loose(lineAfter(t, "Signature Algorithm: ")));
}

TEST(OvcertInspect, JsonAgreesWithOpenssl) {
    for (const char* name :
         {"query/rsa.pem", "query/ec256.pem", "query/ed25519.pem", "query/ed448.pem",
          "query/dsa.pem", "query/eku-odd.pem", "query/noext.pem", "query/country-GR.pem",
          "query/expired.pem", "cert/root.der"}) {
        const std::string f = ovtest::dataPath(name);
        SCOPED_TRACE(f);
        RunResult r = ovcertRun("inspect --json " + shq(f));
        ASSERT_EQ(r.status, 0) << r.err;
        expectAgreesWithOpenssl(f, r.json());
    }
}

// Certificates in forms openssl does not read, and from a pipe; a chain with
// the leaf's key: one JSON document, the leaf (the key's certificate) first;
// --jsonl gives the same objects one per line; an encrypted key is named on
// standard error, with how to attach it.
TEST(OvcertInspect, FormsBundlesAndKeys) {
    for (const char* f : {"cert/chain.p7b", "cert/ec-utf16le.b64"})
        EXPECT_EQ(ovcertRun("inspect --json " + data(f)).json()["keyType"], "ecdsa") << f;
    const std::string path = ovtest::dataPath("cert/chain-key-first.pem");
    json doc = ovcertRun("inspect --json " + shq(path)).json();
    ASSERT_TRUE(doc.is_array() && doc.size() == 3u) << doc;
    EXPECT_EQ(doc[0]["subject"]["CN"], "rsa.example.test");
    std::vector<bool> keys;
    for (const json& c : doc) keys.push_back(c["hasPrivateKey"]);
    EXPECT_EQ(keys, (std::vector<bool>{true, false, false}));
    std::istringstream lines(ovcertRun("inspect --jsonl " + shq(path)).out);
    json objs = json::array();
    for (std::string line; std::getline(lines, line);) objs.push_back(json::parse(line));
    EXPECT_EQ(objs, doc);
    // Text: a count line first, and the key's certificate says so.
    std::string text = ovcertRun("inspect " + shq(path)).out;
    EXPECT_EQ(text.substr(0, text.find('\n')), path + ": 3 certificates");
    EXPECT_NE(text.find("Private key:     yes"), std::string::npos);
    std::string out;  // standard input that is a pipe
    ASSERT_EQ(run("cat " + data("cert/ec.der") + " | " + OVCERT_BIN + " inspect --json -", &out),
              0);
    EXPECT_EQ(json::parse(out)["subject"]["CN"], "ec.example.test");
    RunResult r = ovcertRun("inspect " + data("cert/chain-encrypted-key.pem"));
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("holds an encrypted private key, which was not attached"),
              std::string::npos);
    EXPECT_NE(r.err.find("--key FILE --pass-env VAR"), std::string::npos);
}

// Each input that yields no certificate gets one line saying what was found,
// exit status 1, nothing on standard output, and the log tree only with --log.
TEST(OvcertInspect, FailuresSayWhatWasFound) {
    ovtest::TempDir dir;
    const std::string f = dir.file("in"), der = ovtest::readFile(ovtest::dataPath("cert/ec.der"));
    std::string damaged = ovtest::readFile(ovtest::dataPath("cert/ec.pem")), b64, csr;
    std::replace(damaged.begin(), damaged.end(), 'M', '!');
    run("base64 -w0 " + data("cert/ec.der"), &b64);
    run("openssl req -new -key " + data("cert/ec.key") + " -subj /CN=x", &csr);
    struct Case {
        std::string content;  // written to a file, also fed on standard input
        const char* says;
        std::string path;  // instead, a path of no readable file
    } cases[] = {
        {"", "empty input (0 bytes)"},
        {"====", "base64 text that does not decode to a certificate"},
        {"[]", "a JSON array holding no certificate"},
        {"[\"\"]", "a JSON array holding no certificate"},
        {"[\n  \"" + b64 + "\"\n]\n", "a pretty-printed JSON array"},
        {std::string("\xFF\xFEM\0I\0I\0", 8), "byte-order mark"},
        {damaged, "damaged PEM: the CERTIFICATE block"},
        {ovtest::readFile(ovtest::dataPath("cert/ec.key")),
         "a PEM file holding a private key but no readable certificate"},
        {csr, "blocks hold no certificate (found: CERTIFICATE REQUEST)"},
        {"this is not a certificate\n", "text without a PEM block or base64 certificate"},
        {der.substr(0, der.size() / 2), "binary DER that is not a well-formed"},
        {"\x01\x02\x03\xff", "binary data in no certificate form"},
        {"", "empty input (0 bytes)", "/dev/null"},
        {"", "is a directory", dir.path()},
        {"", "No such file or directory", "/nonexistent/file.pem"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.says);
        ovtest::writeFile(f, c.content);
        for (const std::string& how : c.path.empty()
                                          ? std::vector<std::string>{shq(f), "- < " + shq(f)}
                                          : std::vector<std::string>{shq(c.path)}) {
            RunResult r = ovcertRun("inspect " + how);
            EXPECT_TRUE(r.status == 1 && r.out.empty() && r.err.find(c.says) != std::string::npos &&
                        std::count(r.err.begin(), r.err.end(), '\n') == 1)
                << how << ": " << r.status << "\n"
                << r.out << r.err;
        }
    }
    ovtest::writeFile(f, "this is not a certificate\n");
    EXPECT_NE(ovcertRun("inspect --log " + shq(f)).err.find("createFromBinary"),
              std::string::npos);  // the component's log
}

// A self-signed certificate that openssl req makes in dir with args and the
// given distinguished-name section.
std::string makeCert(const ovtest::TempDir& dir, const std::string& args,
                     const std::string& dn = "CN=made\n") {
    ovtest::writeFile(dir.file("req.cnf"), "[req]\ndistinguished_name=dn\nprompt=no\n[dn]\n" + dn);
    EXPECT_EQ(run("openssl req -x509 -nodes -days 400 -keyout /dev/null " + args + " -out " +
                  shq(dir.file("c.pem")) + " -config " + shq(dir.file("req.cnf"))),
              0);
    return dir.file("c.pem");
}

// A certificate that loads but whose subject cannot be read: the fields are
// marked unreadable with the reason, never shown empty, and the exit status
// says so.
TEST(OvcertInspect, UnreadableAnswersAreMarked) {
    ovtest::TempDir dir;
    std::string dn;
    for (int i = 0; i < 20000; ++i) dn += std::to_string(i) + ".OU=u\n";
    const std::string c = shq(makeCert(dir, "-newkey ec -pkeyopt ec_paramgen_curve:P-256", dn));
    RunResult r = ovcertRun("inspect --json " + c);
    json j = r.json();
    EXPECT_EQ(r.status, 3);
    EXPECT_TRUE(j["subjectDN"].is_null() && j["subject"].is_null());
    EXPECT_NE(j["unreadable"]["subjectDN"].get<std::string>(), "");
    EXPECT_FALSE(j["serial"].is_null());  // the rest is still answered
    r = ovcertRun("inspect " + c);
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.out.find("Subject:         (unreadable: "), std::string::npos);
}

// The expiry phrase and its colour: red when expired or not yet valid, yellow
// within 30 days, none otherwise; colour only on a terminal, and never with
// NO_COLOR or --no-color.
TEST(OvcertInspect, ValidityPhraseAndColour) {
    // Valid from 2026-11-22T05:07:06Z to 2057-01-03T05:07:06Z; at, phrase, colour.
    const char* const cases[][3] = {
        {"2056-11-23T05:07:06Z", "expires in 41 days", ""},
        {"2056-12-10T05:07:06Z", "expires in 24 days", "\033[33m"},
        {"2057-01-06T06:00:00Z", "expired 3 days ago", "\033[31m"},
        {"2026-11-20T05:07:06Z", "not valid before 2026-11-22T05:07:06Z (in 2 days)", "\033[31m"},
    };
    // Environment, options, on a terminal, colours allowed.
    const std::tuple<std::string, std::string, bool, bool> modes[] = {
        {"", "", false, false},
        {"", "", true, true},
        {"NO_COLOR=1 ", "", true, false},
        {"", "--no-color ", true, false}};
    for (const auto& [at, phrase, colour] : cases) {
        for (const auto& [env, options, tty, colours] : modes) {
            std::string cmd = std::string(OVCERT_BIN) + " inspect --at " + at + " " + options +
                              data("query/rsa.pem"),
                        out;
            SCOPED_TRACE(env + (tty ? "terminal: " : "pipe: ") + cmd);
            // script(1) gives the tool a terminal as its standard output.
            run(env + (tty ? "script -qec " + shq(cmd) + " /dev/null" : cmd), &out);
            bool coloured = colours && *colour;
            std::string want = coloured ? std::string(colour) + phrase + "\033[0m" : phrase;
            EXPECT_NE(out.find("  (" + want + ")"), std::string::npos) << out;
            EXPECT_EQ(out.find('\033') != std::string::npos, coloured) << out;
            // Red phrases are also warnings.
            EXPECT_EQ(out.find("Warning:         " + std::string(phrase)) != std::string::npos,
                      std::string(colour) == "\033[31m");
        }
    }
}

// What a reviewer would flag, on certificates made for the purpose; the rest
// of their answers is also checked against openssl.
TEST(OvcertInspect, ReviewerWarnings) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"-newkey rsa:1024 -sha1",
         {"signed with SHA-1, which is broken", "RSA key of 1024 bits (under 2048)",
          "leaf certificate without subject alternative names"}},
        {"-newkey rsa:2048 -md5 -addext subjectAltName=DNS:a.test",
         {"signed with MD5, which is broken"}},
        {"-newkey ec -pkeyopt ec_paramgen_curve:P-256 -addext "
         "subjectAltName=DNS:a.test,IP:10.0.0.1,IP:::1,email:x@y.test,URI:https://u.test/p "
         "-addext keyUsage=digitalSignature,keyAgreement",
         {}},
        {"-newkey ec -pkeyopt ec_paramgen_curve:P-256 -addext "
         "basicConstraints=critical,CA:TRUE,pathlen:2",
         {}},  // a CA needs no SAN
    };
    for (const auto& [args, warnings] : cases) {
        SCOPED_TRACE(args);
        ovtest::TempDir dir;
        const std::string f = makeCert(dir, args);
        json j = ovcertRun("inspect --json " + shq(f)).json();
        EXPECT_EQ(j["warnings"], json(warnings));
        expectAgreesWithOpenssl(f, j);
    }
}

// --chain: from the leaf up, the key's certificate and missing issuers marked;
// with cross-certified CAs (A issued by B, B by A) under a leaf the walk stops
// where it comes round again.
TEST(OvcertInspect, ChainTree) {
    ovtest::TempDir dir;
    ASSERT_EQ(
        run("cd " + shq(dir.path()) +
            " && ec='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'"
            " && for n in A B L; do openssl req -new $ec -keyout k$n -subj /CN=$n -out $n.csr &&"
            " openssl req -x509 -new -key k$n -subj /CN=$n -out $n.self; done"
            " && openssl x509 -req -in A.csr -CA B.self -CAkey kB -out A.pem"
            " && openssl x509 -req -in B.csr -CA A.self -CAkey kA -out B.pem"
            " && openssl x509 -req -in L.csr -CA A.self -CAkey kA -out L.pem"
            " && cat L.pem A.pem B.pem > all.pem"),
        0);
    const std::pair<std::string, const char*> cases[] = {
        {ovtest::dataPath("cert/chain-key-middle.pem"),
         "3 certificates\n"
         "CN=rsa.example.test, O=Orvane Test, C=DE  [private key]\n"
         "└─ CN=Orvane Test Intermediate, O=Orvane Test, C=US\n"
         "   └─ CN=Orvane Test Root, O=Orvane Test, C=US  (self-issued)\n"},
        {ovtest::dataPath("cert/chain-encrypted-key.pem"),
         "2 certificates\n"
         "CN=rsa.example.test, O=Orvane Test, C=DE\n"
         "└─ CN=Orvane Test Intermediate, O=Orvane Test, C=US  [issuer not in file: CN=Orvane "
         "Test Root, O=Orvane Test, C=US]\n"},
        {dir.file("all.pem"),
         "3 certificates\nCN=L\n└─ CN=A\n   └─ CN=B\n      └─ CN=A  (shown above)\n"},
    };
    for (const auto& [path, tree] : cases)
        EXPECT_EQ(ovcertRun("inspect --chain " + shq(path)).out, path + ": " + tree);
    std::vector<json> issuers;
    for (const json& c : ovcertRun("inspect --json --chain " + shq(cases[0].first)).json())
        issuers.push_back(c["chainIssuer"]);
    EXPECT_EQ(json(issuers), json::parse("[1, 2, 2]"));
}

TEST(OvcertTool, HelpVersionAndUsageErrors) {
    RunResult r = ovcertRun("--version");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.compare(0, 7, "ovcert "), 0);
    for (const std::string cmd : {"inspect", "convert"}) {
        SCOPED_TRACE(cmd);
        r = ovcertRun("help " + cmd);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out.find("usage: ovcert " + cmd), 0u);
        EXPECT_NE(r.out.find("Exit status:"), std::string::npos);
        EXPECT_EQ(ovcertRun(cmd + " --help").out, r.out.substr(0, r.out.find("\nExit")));
    }
    const std::pair<const char*, const char*> bad[] = {
        {"frobnicate", "'ovcert help' lists"},
        {"help frobnicate", "no command named frobnicate"},
        {"inspect --bogus x", "Try 'ovcert help inspect'"},
        {"inspect", "no FILE given"},
        {"inspect --at tomorrow x", "--at takes a UTC time"},
        {"convert x --to txt", "--to takes der, pem or pkipath"}};
    for (const auto& [args, says] : bad) {
        r = ovcertRun(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
    }
}

// Each form, written to a file, is read back by openssl: DER and PEM as the
// certificate itself, the PkiPath as a DER sequence; standard output gets the
// same as the file.
TEST(OvcertConvert, FormsAreReadByOpenssl) {
    ovtest::TempDir dir;
    const std::string src = data("cert/chain.p7b"),
                      der = ovtest::readFile(ovtest::dataPath("cert/ec.der"));
    for (const std::string to : {"der", "pem", "pkipath"})
        ASSERT_EQ(ovcertRun("convert " + src + " --to " + to + " -o " + shq(dir.file(to))).status,
                  0)
            << to;
    EXPECT_EQ(ovtest::readFile(dir.file("der")), der);
    std::string parsed;
    run("openssl x509 -in " + shq(dir.file("pem")) + " -outform DER -out " + shq(dir.file("back")));
    EXPECT_EQ(ovtest::readFile(dir.file("back")), der);
    EXPECT_EQ(ovcertRun("convert " + src + " --to pem").out, ovtest::readFile(dir.file("pem")));
    EXPECT_EQ(
        run("base64 -d " + shq(dir.file("pkipath")) + " | openssl asn1parse -inform DER", &parsed),
        0);
    EXPECT_NE(parsed.find("d=1"), std::string::npos);
}

}  // namespace
