// The tool's answers checked against the openssl command line, and its
// behaviour on bad input.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "support_common/TestUtil.h"
#include "tools/ovcert/OvcertRun.h"

using nlohmann::json;
using ovcerttest::ovcert;
using ovtest::run;
using ovtest::shq;

namespace {

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

// Signature algorithm names compared without case, '-' or '_' (openssl says
// "ED25519", "dsa_with_SHA256").
std::string loose(std::string s) {
    std::string out;
    for (char c : s)
        if (c != '-' && c != '_') out += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string canonicalIp(const std::string& ip) {
    unsigned char buf[16];
    char text[64];
    int af = ip.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    if (inet_pton(af, ip.c_str(), buf) != 1 || !inet_ntop(af, buf, text, sizeof text)) return ip;
    return text;
}

// openssl's one-line form of an extension ("" when absent), and the same
// facts built from our JSON members.
std::string extLine(const std::string& file, const std::string& inform, const char* ext) {
    std::string text = oss(file, inform + " -ext " + ext);
    size_t nl = text.find('\n');
    if (nl == std::string::npos) return "";
    std::string v = text.substr(nl + 1);
    v.erase(0, v.find_first_not_of(" "));
    return v;
}

std::set<std::string> items(const std::string& commaList) {
    std::set<std::string> out;
    size_t start = 0;
    while (start < commaList.size()) {
        size_t c = commaList.find(", ", start);
        if (c == std::string::npos) c = commaList.size();
        out.insert(commaList.substr(start, c - start));
        start = c + 2;
    }
    return out;
}

std::set<std::string> ourSan(const json& san) {
    std::set<std::string> out;
    if (san.is_null()) return out;
    for (const auto& v : san["dns"]) out.insert("DNS:" + v.get<std::string>());
    for (const auto& v : san["email"]) out.insert("email:" + v.get<std::string>());
    for (const auto& v : san["uri"]) out.insert("URI:" + v.get<std::string>());
    for (const auto& v : san["ip"]) out.insert("IP Address:" + canonicalIp(v));
    return out;
}

std::set<std::string> theirSan(const std::string& line) {
    std::set<std::string> out;
    for (std::string v : items(line)) {
        if (v.compare(0, 11, "IP Address:") == 0) v = "IP Address:" + canonicalIp(v.substr(11));
        out.insert(v);
    }
    return out;
}

std::set<std::string> ourKeyUsage(const json& ku) {
    static const std::pair<const char*, const char*> kWords[] = {
        {"digitalSignature", "Digital Signature"},
        {"nonRepudiation", "Non Repudiation"},
        {"keyEncipherment", "Key Encipherment"},
        {"dataEncipherment", "Data Encipherment"},
        {"keyAgreement", "Key Agreement"},
        {"keyCertSign", "Certificate Sign"},
        {"cRLSign", "CRL Sign"},
        {"encipherOnly", "Encipher Only"},
        {"decipherOnly", "Decipher Only"}};
    std::set<std::string> out;
    if (ku.is_null()) return out;
    for (const auto& v : ku) {
        std::string name = v;
        for (const auto& w : kWords)
            if (name == w.first) name = w.second;
        out.insert(name);
    }
    return out;
}

std::string ourBasicConstraints(const json& bc) {
    if (bc.is_null()) return "";
    std::string s = bc["ca"].get<bool>() ? "CA:TRUE" : "CA:FALSE";
    if (!bc["pathLen"].is_null()) s += ", pathlen:" + bc["pathLen"].dump();
    return s;
}

// Checks the members that openssl also reports: extensions by kind, and the
// signature algorithm.
void expectExtensionsAgree(const std::string& f, const std::string& inform, const json& j) {
    EXPECT_EQ(ourSan(j["subjectAltNames"]), theirSan(extLine(f, inform, "subjectAltName")));
    EXPECT_EQ(ourKeyUsage(j["keyUsage"]), items(extLine(f, inform, "keyUsage")));
    EXPECT_EQ(ourBasicConstraints(j["basicConstraints"]), extLine(f, inform, "basicConstraints"));
    std::string text = oss(f, inform + " -text");
    std::string alg = after(text, "Signature Algorithm: ");
    EXPECT_EQ(loose(j["signatureAlgorithm"]), loose(alg.substr(0, alg.find('\n'))));
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
        EXPECT_EQ(j["hasPrivateKey"], false);
        expectExtensionsAgree(f, inform, j);
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
    // A chain with the leaf's key: one JSON document, the leaf (the key's
    // certificate) first; --jsonl gives the same objects one per line.
    std::string file = shq(ovtest::dataPath("cert/chain-key-first.pem"));
    json doc = json::parse(ovcert("inspect --json " + file));
    ASSERT_TRUE(doc.is_array());
    ASSERT_EQ(doc.size(), 3u);
    EXPECT_EQ(doc[0]["subject"]["CN"], "rsa.example.test");
    std::vector<bool> keys;
    for (const json& c : doc) keys.push_back(c["hasPrivateKey"]);
    EXPECT_EQ(keys, (std::vector<bool>{true, false, false}));
    std::string lines = ovcert("inspect --jsonl " + file);
    std::vector<json> objs;
    for (size_t pos = 0, nl; (nl = lines.find('\n', pos)) != std::string::npos; pos = nl + 1)
        objs.push_back(json::parse(lines.substr(pos, nl - pos)));
    EXPECT_EQ(json(objs), doc);
    // Text: a count line first, and the key's certificate says so.
    std::string text = ovcert("inspect " + file);
    EXPECT_EQ(text.substr(0, text.find('\n')),
              ovtest::dataPath("cert/chain-key-first.pem") + ": 3 certificates");
    EXPECT_NE(text.find("Private key:     yes"), std::string::npos);
}

// Each input that yields no certificate gets one line saying what was found,
// exit status 1, nothing on standard output, and the log tree only with --log.
TEST(OvcertInspect, FailuresSayWhatWasFound) {
    ovtest::TempDir dir;
    std::string der = ovtest::readFile(ovtest::dataPath("cert/ec.der"));
    std::string pem = ovtest::readFile(ovtest::dataPath("cert/ec.pem"));
    std::string b64;
    run("base64 -w0 " + shq(ovtest::dataPath("cert/ec.der")), &b64);
    std::string damaged = pem;
    std::replace(damaged.begin(), damaged.end(), 'M', '!');
    std::string csr;
    run("openssl req -new -key " + shq(ovtest::dataPath("cert/ec.key")) + " -subj /CN=x", &csr);
    struct Case {
        const char* name;
        std::string content;  // written to a file, also fed on standard input
        const char* says;
    } cases[] = {
        {"empty", "", "empty input (0 bytes)"},
        {"lone padding", "====", "base64 text that does not decode to a certificate"},
        {"empty JSON array", "[]", "a JSON array holding no certificate"},
        {"JSON array of an empty string", "[\"\"]", "a JSON array holding no certificate"},
        {"pretty JSON array", "[\n  \"" + b64 + "\"\n]\n", "a pretty-printed JSON array"},
        {"UTF-16LE with BOM", std::string("\xFF\xFEM\0I\0I\0", 8), "byte-order mark"},
        {"damaged PEM", damaged, "damaged PEM: the CERTIFICATE block"},
        {"key without certificate", ovtest::readFile(ovtest::dataPath("cert/ec.key")),
         "a PEM file holding a private key but no readable certificate"},
        {"request, no certificate", csr, "blocks hold no certificate (found: CERTIFICATE REQUEST)"},
        {"prose", "this is not a certificate\n", "text without a PEM block or base64 certificate"},
        {"cut-off DER", der.substr(0, der.size() / 2), "binary DER that is not a well-formed"},
        {"random bytes", "\x01\x02\x03\xff", "binary data in no certificate form"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string f = dir.file("in");
        ovtest::writeFile(f, c.content);
        for (const std::string& how : {shq(f), "- < " + shq(f)}) {
            int st = 0;
            std::string err;
            std::string out = ovcert("inspect " + how, &st, &err);
            EXPECT_EQ(st, 1);
            EXPECT_TRUE(out.empty());
            EXPECT_NE(err.find(c.says), std::string::npos) << err;
            EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        }
    }
    struct PathCase {
        std::string path;
        const char* says;
    } paths[] = {{"/dev/null", "empty input (0 bytes)"},
                 {dir.path(), "is a directory"},
                 {"/nonexistent/file.pem", "No such file or directory"}};
    for (const PathCase& c : paths) {
        SCOPED_TRACE(c.path);
        int st = 0;
        std::string err;
        ovcert("inspect " + shq(c.path), &st, &err);
        EXPECT_EQ(st, 1);
        EXPECT_NE(err.find(c.says), std::string::npos) << err;
    }
    int st = 0;
    std::string err;
    ovtest::writeFile(dir.file("junk.txt"), "this is not a certificate\n");
    ovcert("inspect --log " + shq(dir.file("junk.txt")), &st, &err);
    EXPECT_NE(err.find("createFromBinary"), std::string::npos);  // the component's log
}

TEST(OvcertInspect, StandardInputAndNotes) {
    std::string out;
    ASSERT_EQ(run("cat " + shq(ovtest::dataPath("cert/ec.der")) + " | " + OVCERT_BIN +
                      " inspect --json -",
                  &out),
              0);
    EXPECT_EQ(json::parse(out)["subject"]["CN"], "ec.example.test");

    // The encrypted key is named on standard error, with how to attach it.
    int st = -1;
    std::string err;
    ovcert("inspect " + shq(ovtest::dataPath("cert/chain-encrypted-key.pem")), &st, &err);
    EXPECT_EQ(st, 0);
    EXPECT_NE(err.find("holds an encrypted private key, which was not attached"),
              std::string::npos);
    EXPECT_NE(err.find("--key FILE --pass-env VAR"), std::string::npos);
}

// A certificate that loads but whose subject cannot be read: the fields are
// marked unreadable with the reason, never shown empty, and the exit status
// says so.
TEST(OvcertInspect, UnreadableAnswersAreMarked) {
    ovtest::TempDir dir;
    std::string cnf = "[req]\ndistinguished_name=dn\nprompt=no\n[dn]\n";
    for (int i = 0; i < 20000; ++i) cnf += std::to_string(i) + ".OU=u\n";
    cnf += "CN=many\n";
    ovtest::writeFile(dir.file("many.cnf"), cnf);
    ASSERT_EQ(run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout " +
                  shq(dir.file("k")) + " -out " + shq(dir.file("c.pem")) + " -config " +
                  shq(dir.file("many.cnf"))),
              0);
    int st = 0;
    json j = json::parse(ovcert("inspect --json " + shq(dir.file("c.pem")), &st));
    EXPECT_EQ(st, 3);
    EXPECT_TRUE(j["subjectDN"].is_null());
    EXPECT_TRUE(j["subject"].is_null());
    EXPECT_NE(j["unreadable"]["subjectDN"].get<std::string>(), "");
    EXPECT_FALSE(j["serial"].is_null());  // the rest is still answered
    std::string text = ovcert("inspect " + shq(dir.file("c.pem")), &st);
    EXPECT_EQ(st, 3);
    EXPECT_NE(text.find("Subject:         (unreadable: "), std::string::npos);
}

// The expiry phrase and its colour: red when expired or not yet valid, yellow
// within 30 days, none otherwise; colour only on a terminal, and never with
// NO_COLOR or --no-color.
TEST(OvcertInspect, ValidityPhraseAndColour) {
    // Valid from 2026-11-22T05:07:06Z to 2057-01-03T05:07:06Z.
    std::string f = shq(ovtest::dataPath("query/rsa.pem"));
    struct Case {
        const char* at;
        const char* phrase;
        const char* colour;  // "" for none
        bool warns;
    } cases[] = {
        {"2056-11-23T05:07:06Z", "expires in 41 days", "", false},
        {"2056-12-10T05:07:06Z", "expires in 24 days", "\033[33m", false},
        {"2057-01-06T06:00:00Z", "expired 3 days ago", "\033[31m", true},
        {"2026-11-20T05:07:06Z", "not valid before 2026-11-22T05:07:06Z (in 2 days)", "\033[31m",
         true},
    };
    struct Mode {
        const char* name;
        std::string env, options;
        bool tty;
    } modes[] = {{"pipe", "", "", false},
                 {"terminal", "", "", true},
                 {"terminal, NO_COLOR", "NO_COLOR=1 ", "", true},
                 {"terminal, --no-color", "", "--no-color ", true}};
    for (const Case& c : cases) {
        for (const Mode& m : modes) {
            SCOPED_TRACE(std::string(c.at) + ", " + m.name);
            std::string cmd =
                std::string(OVCERT_BIN) + " inspect --at " + c.at + " " + m.options + f;
            std::string out;
            // script(1) gives the tool a terminal as its standard output.
            run(m.tty ? m.env + "script -qec " + shq(cmd) + " /dev/null" : m.env + cmd, &out);
            bool coloured = m.tty && m.env.empty() && m.options.empty() && *c.colour;
            std::string want = coloured ? std::string(c.colour) + c.phrase + "\033[0m" : c.phrase;
            EXPECT_NE(out.find("  (" + want + ")"), std::string::npos) << out;
            EXPECT_EQ(out.find('\033') != std::string::npos, coloured) << out;
            EXPECT_EQ(out.find("Warning:         " + std::string(c.phrase)) != std::string::npos,
                      c.warns);
        }
    }
}

// What a reviewer would flag, on certificates made for the purpose; their
// extensions are also checked against openssl.
TEST(OvcertInspect, ReviewerWarnings) {
    ovtest::TempDir dir;
    ovtest::writeFile(dir.file("min.cnf"),
                      "[req]\ndistinguished_name=dn\nprompt=no\n[dn]\nCN=made\n");
    struct Case {
        const char* name;
        const char* args;
        std::vector<std::string> warnings;
    } cases[] = {
        {"SHA-1, RSA 1024, no SAN",
         "-newkey rsa:1024 -sha1",
         {"signed with SHA-1, which is broken", "RSA key of 1024 bits (under 2048)",
          "leaf certificate without subject alternative names"}},
        {"MD5",
         "-newkey rsa:2048 -md5 -addext subjectAltName=DNS:a.test",
         {"signed with MD5, which is broken"}},
        {"clean leaf with every SAN kind",
         "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -addext "
         "subjectAltName=DNS:a.test,IP:10.0.0.1,IP:::1,email:x@y.test,URI:https://u.test/p "
         "-addext keyUsage=digitalSignature,keyAgreement",
         {}},
        {"CA without SAN",
         "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -addext "
         "basicConstraints=critical,CA:TRUE,pathlen:2",
         {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string f = dir.file("c.pem");
        ASSERT_EQ(run(std::string("openssl req -x509 -nodes -days 400 -keyout /dev/null ") +
                      c.args + " -out " + shq(f) + " -config " + shq(dir.file("min.cnf"))),
                  0);
        json j = json::parse(ovcert("inspect --json " + shq(f)));
        EXPECT_EQ(j["warnings"], json(c.warnings));
        expectExtensionsAgree(f, "", j);
    }
}

// --chain: from the leaf up, the key's certificate and missing issuers marked.
TEST(OvcertInspect, ChainTree) {
    struct Case {
        const char* file;
        const char* tree;
    } cases[] = {
        {"cert/chain-key-middle.pem",
         "3 certificates\n"
         "CN=rsa.example.test, O=Orvane Test, C=DE  [private key]\n"
         "└─ CN=Orvane Test Intermediate, O=Orvane Test, C=US\n"
         "   └─ CN=Orvane Test Root, O=Orvane Test, C=US  (self-issued)\n"},
        {"cert/chain-encrypted-key.pem",
         "2 certificates\n"
         "CN=rsa.example.test, O=Orvane Test, C=DE\n"
         "└─ CN=Orvane Test Intermediate, O=Orvane Test, C=US  [issuer not in file: CN=Orvane "
         "Test Root, O=Orvane Test, C=US]\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        std::string path = ovtest::dataPath(c.file);
        EXPECT_EQ(ovcert("inspect --chain " + shq(path)), path + ": " + c.tree);
    }
    // Cross-certified CAs (A issued by B, B by A) under a leaf: the walk stops
    // where it comes round again.
    ovtest::TempDir dir;
    std::string script =
        "cd " + shq(dir.path()) +
        " && ec='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes'"
        " && for n in A B L; do openssl req -new $ec -keyout k$n -subj /CN=$n -out $n.csr &&"
        " openssl req -x509 -new -key k$n -subj /CN=$n -out $n.self; done"
        " && openssl x509 -req -in A.csr -CA B.self -CAkey kB -out A.pem"
        " && openssl x509 -req -in B.csr -CA A.self -CAkey kA -out B.pem"
        " && openssl x509 -req -in L.csr -CA A.self -CAkey kA -out L.pem"
        " && cat L.pem A.pem B.pem > all.pem";
    ASSERT_EQ(run(script), 0);
    EXPECT_EQ(ovcert("inspect --chain " + shq(dir.file("all.pem"))),
              dir.file("all.pem") +
                  ": 3 certificates\nCN=L\n└─ CN=A\n   └─ CN=B\n      └─ CN=A  (shown above)\n");

    json doc = json::parse(
        ovcert("inspect --json --chain " + shq(ovtest::dataPath("cert/chain-key-middle.pem"))));
    std::vector<json> issuers;
    for (const json& c : doc) issuers.push_back(c["chainIssuer"]);
    EXPECT_EQ(json(issuers), json::parse("[1, 2, 2]"));
}

TEST(OvcertTool, HelpVersionAndUsageErrors) {
    int st = -1;
    std::string version = ovcert("--version", &st);
    EXPECT_EQ(st, 0);
    EXPECT_EQ(version.compare(0, 7, "ovcert "), 0);
    for (const char* cmd : {"inspect", "convert"}) {
        SCOPED_TRACE(cmd);
        std::string help = ovcert(std::string("help ") + cmd, &st);
        EXPECT_EQ(st, 0);
        EXPECT_EQ(help.find(std::string("usage: ovcert ") + cmd), 0u);
        EXPECT_NE(help.find("Exit status:"), std::string::npos);
        EXPECT_EQ(ovcert(std::string(cmd) + " --help", &st), help.substr(0, help.find("\nExit")));
    }
    struct Case {
        const char* args;
        const char* says;
    } bad[] = {{"frobnicate", "'ovcert help' lists"},
               {"help frobnicate", "no command named frobnicate"},
               {"inspect --bogus x", "Try 'ovcert help inspect'"},
               {"inspect", "no FILE given"},
               {"inspect --at tomorrow x", "--at takes a UTC time"},
               {"convert x --to txt", "--to takes der, pem or pkipath"}};
    for (const Case& c : bad) {
        SCOPED_TRACE(c.args);
        std::string err;
        ovcert(c.args, &st, &err);
        EXPECT_EQ(st, 2);
        EXPECT_NE(err.find(c.says), std::string::npos) << err;
    }
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
}

}  // namespace
