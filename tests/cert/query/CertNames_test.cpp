#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "cert/query/QueryTestUtil.h"

using qtest::CertRef;

// One subject or issuer attribute as openssl lists it, by its short name.
static std::string opensslPart(const std::string& file, bool subject, const std::string& key) {
    std::string text = qtest::ossl(file, std::string("-noout -nameopt sep_multiline,sname,utf8 ") +
                                             (subject ? "-subject" : "-issuer"));
    size_t pos = text.find("\n    " + key + "=");
    if (pos == std::string::npos) return "";
    pos += 6 + key.size();
    return text.substr(pos, text.find('\n', pos) - pos);
}

// "asked=openssl's name" is found and matches openssl; "asked!" is missing and
// logged with the part; "asked-" is missing and logs nothing. The table's
// rows come first, then names handed to the parser's lookup as they are
// (lower case, OIDs), whose misses alone are logged. The issuer side has no
// SERIALNUMBER row, so its lookup misses. "null" stands for no name at all.
TEST(CertNames, PartsMatchOpensslAndOnlyTheLookupLogsMisses) {
    const std::tuple<const char*, bool, const char*> sides[] = {
        {"rsa.pem", true,
         "CN=CN C=C L=L O=O OU=OU S=ST ST=ST E=emailAddress SERIALNUMBER=serialNumber cn=CN "
         "2.5.4.11=OU bogus! null-"},
        {"rsa.pem", false, "CN=CN C=C O=O 2.5.4.10=O bogus! SERIALNUMBER! null-"},
        {"ec256.pem", true, "SERIALNUMBER- L- 2.5.4.11! null-"},
        {"ec256.pem", false, "OU- null-"}};
    for (const auto& [file, subject, list] : sides) {
        CertRef cert(qtest::load(file));
        std::istringstream cases(list);
        for (std::string c; cases >> c;) {
            size_t eq = c.find('=');
            bool found = eq != std::string::npos, logs = c.back() == '!';
            std::string part = c.substr(0, found ? eq : c.size() - 1), logged;
            std::string want = found ? opensslPart(file, subject, c.substr(eq + 1)) : "";
            SCOPED_TRACE(std::string(file) + (subject ? " subject " : " issuer ") + part);
            const char* asked = part == "null" ? nullptr : part.c_str();
            LogTree log;
            XString out("stale");
            EXPECT_EQ(subject ? cert->getSubjectPart(asked, out, log)
                              : cert->getIssuerPart(asked, out, log),
                      found);
            EXPECT_EQ(out.getUtf8(), want);
            EXPECT_EQ(log.numErrors(), logs ? 1 : 0) << log.text();
            EXPECT_TRUE(!logs || log.hasError(subject ? "Unrecognized certificate subject part"
                                                      : "Unrecognized certificate issuer part"));
            EXPECT_EQ(log.findData("part", logged) ? logged : "", logs ? part : "");
        }
    }
}

TEST(CertNames, EuCountryTable) {
    // In: de (case is ignored); NO, IS, LI (the EEA); AT and SK, the table's
    // first and last entries; GR; no subject country, so the issuer's NO.
    // Out: US (the issuer's DE is not consulted), GB, UK, EL (not how the
    // table writes Greece), " DE" (no trimming).
    const std::pair<const char*, bool> cases[] = {
        {"rsa.pem", true},           {"ca.pem", true},      {"ed448.pem", true},
        {"aki-issuer.pem", true},    {"expired.pem", true}, {"country-SK.pem", true},
        {"country-GR.pem", true},    {"ed25519.pem", true}, {"ec256.pem", false},
        {"dsa.pem", false},          {"noext.pem", false},  {"eku-unknown.pem", false},
        {"country-space.pem", false}};
    for (const auto& c : cases) {
        CertRef cert(qtest::load(c.first));
        LogTree log;
        EXPECT_EQ(cert->is_country_eu(log), c.second) << c.first;
    }
}

// The fixed forms beside the general ones: a side mixed up in one of them shows
// here. The DN styles themselves are checked against openssl with the parser.
TEST(CertNames, FixedFormsEmailAndSelfIssue) {
    struct Case {
        const char* file;
        bool (CertCore::*op)(XString&, LogBase&);
        const char* want;  // null: false with an empty output
    };
    const Case cases[] = {
        {"ec256.pem", &CertCore::getIssuerDN, "CN=Query DE Root, O=Query DE CA, C=DE"},
        {"ec256.pem", &CertCore::getSubjectDN_noTags, "ec256.example.com, Example Inc, US"},
        {"ec256.pem", &CertCore::getIssuerDN_noTags, "Query DE Root, Query DE CA, DE"},
        {"rsa.pem", &CertCore::getIssuerSerial,
         "0080112233445566778899AABBCCDDEEFF00112233:CN=Query Root CA, O=Query Test CA, C=NO"},
        {"rsa.pem", &CertCore::getRfc822Name, "alice@example.org"},      // from the SAN
        {"rsa.pem", &CertCore::getEmailAddress, "alice@example.de"},     // the subject first
        {"ed25519.pem", &CertCore::getEmailAddress, "bob@example.net"},  // else the SAN
        {"noext.pem", &CertCore::getRfc822Name, nullptr},                // no SAN
        {"noext.pem", &CertCore::getEmailAddress, "dave@example.uk"},    // the subject only
    };
    LogTree log;
    for (const Case& c : cases) {
        CertRef cert(qtest::load(c.file));
        XString o("stale");
        EXPECT_EQ((cert.get()->*c.op)(o, log), c.want != nullptr) << &c - cases;
        EXPECT_EQ(std::string(o.getUtf8()), c.want ? c.want : "") << &c - cases;
    }
    CertRef ec(qtest::load("ec256.pem")), ca(qtest::load("ca.pem"));
    XString reversed;
    EXPECT_TRUE(ec->getDN_ordered(true, false, false, 0, reversed, log));
    EXPECT_STREQ(reversed.getUtf8(), "DE, Query DE CA, Query DE Root");
    EXPECT_TRUE(ca->isIssuerSelf(log));
    EXPECT_FALSE(ec->isIssuerSelf(log));
}
