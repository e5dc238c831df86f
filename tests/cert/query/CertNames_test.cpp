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
// SERIALNUMBER row, so its lookup misses.
TEST(CertNames, PartsMatchOpensslAndOnlyTheLookupLogsMisses) {
    const std::tuple<const char*, bool, const char*> sides[] = {
        {"rsa.pem", true,
         "CN=CN C=C L=L O=O OU=OU S=ST ST=ST E=emailAddress SERIALNUMBER=serialNumber cn=CN "
         "2.5.4.11=OU bogus!"},
        {"rsa.pem", false, "CN=CN C=C O=O 2.5.4.10=O bogus! SERIALNUMBER!"},
        {"ec256.pem", true, "SERIALNUMBER- L- 2.5.4.11!"},
        {"ec256.pem", false, "OU-"}};
    for (const auto& [file, subject, list] : sides) {
        CertRef cert(qtest::load(file));
        std::istringstream cases(list);
        for (std::string c; cases >> c;) {
            size_t eq = c.find('=');
            bool found = eq != std::string::npos, logs = c.back() == '!';
            std::string part = c.substr(0, found ? eq : c.size() - 1), logged;
            std::string want = found ? opensslPart(file, subject, c.substr(eq + 1)) : "";
            SCOPED_TRACE(std::string(file) + (subject ? " subject " : " issuer ") + part);
            LogTree log;
            XString out("stale");
            EXPECT_EQ(subject ? cert->getSubjectPart(part.c_str(), out, log)
                              : cert->getIssuerPart(part.c_str(), out, log),
                      found);
            EXPECT_EQ(out.getUtf8(), want);
            EXPECT_NE(want.empty(), found);
            EXPECT_EQ(log.numErrors(), logs ? 1 : 0) << log.text();
            EXPECT_TRUE(!logs || log.hasError(subject ? "Unrecognized certificate subject part"
                                                      : "Unrecognized certificate issuer part"));
            EXPECT_EQ(log.findData("part", logged) ? logged : "", logs ? part : "");
        }
        LogTree log;
        XString out("stale");
        EXPECT_FALSE(subject ? cert->getSubjectPart(nullptr, out, log)
                             : cert->getIssuerPart(nullptr, out, log));
        EXPECT_TRUE(out.isEmpty());
        EXPECT_EQ(log.numEntries(), 0);
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
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertNames, DnTextFollowsSideOrderTagsAndStyle) {
    struct Case {
        const char* file;
        bool reverse, subject, tags;
        int style;
        const char* want;                             // "-nameopt ...": openssl's text of the name
        bool (CertCore::*fixed)(XString&, LogBase&);  // the fixed form saying the same
    };
    const char* const plain = "-nameopt sep_comma_plus_space,dn_rev,sname,utf8";
    const Case cases[] = {
        {"ec256.pem", false, true, true, 1, "-nameopt RFC2253", nullptr},
        {"rsa.pem", true, false, true, 1, "-nameopt sep_comma_plus,sname,utf8", nullptr},
        {"ec256.pem", false, true, true, 0, plain, &CertCore::getSubjectDN},
        {"rsa.pem", false, false, true, 0, plain, &CertCore::getIssuerDN},
        {"ec256.pem", false, true, false, 0, "ec256.example.com, Example Inc, US",
         &CertCore::getSubjectDN_noTags},
        {"ec256.pem", false, false, false, 0, "Query DE Root, Query DE CA, DE",
         &CertCore::getIssuerDN_noTags},
        {"ec256.pem", true, false, false, 0, "DE, Query DE CA, Query DE Root", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        CertRef cert(qtest::load(c.file));
        std::string want = c.want;
        if (want[0] == '-') {
            want = qtest::ossl(c.file, "-noout " + want + (c.subject ? " -subject" : " -issuer"));
            want = want.substr(want.find('=') + 1);
        }
        LogTree log;
        XString out("stale"), fixed("stale");
        EXPECT_TRUE(cert->getDN_ordered(c.reverse, c.subject, c.tags, c.style, out, log));
        EXPECT_EQ(out.getUtf8(), want);
        EXPECT_TRUE(!c.fixed || (cert.get()->*c.fixed)(fixed, log));
        EXPECT_EQ(fixed.getUtf8(), c.fixed ? want : "stale");
    }
}

TEST(CertNames, JsonEmailAndSelfIssue) {
    LogTree log;
    CertRef rsa(qtest::load("rsa.pem")), ed(qtest::load("ed25519.pem")),
        noext(qtest::load("noext.pem")), ca(qtest::load("ca.pem")), ed448(qtest::load("ed448.pem"));
    // Appends: callers build one JSON object from several pieces.
    StringBuffer json("{\"keep\":1,");
    EXPECT_TRUE(rsa->getDnJson(true, json, log) && rsa->getDnJson(false, json, log));
    std::string s = json.getString();
    EXPECT_EQ(s.find("{\"keep\":1,"), 0u);
    EXPECT_LT(s.find("\"CN\":\"rsa.example.de\""), s.find("\"CN\":\"Query Root CA\"")) << s;
    EXPECT_NE(s.find("\"CN\":\"Query Root CA\""), std::string::npos) << s;

    struct Case {
        CertCore* cert;
        bool (CertCore::*op)(XString&, LogBase&);
        const char* want;  // null: false with an empty output
    };
    const Case cases[] = {
        {rsa.get(), &CertCore::getIssuerSerial,
         "0080112233445566778899AABBCCDDEEFF00112233:CN=Query Root CA, O=Query Test CA, C=NO"},
        {rsa.get(), &CertCore::getRfc822Name, "alice@example.org"},    // from the SAN
        {rsa.get(), &CertCore::getEmailAddress, "alice@example.de"},   // the subject first
        {ed.get(), &CertCore::getEmailAddress, "bob@example.net"},     // else the SAN
        {noext.get(), &CertCore::getRfc822Name, nullptr},              // no SAN
        {noext.get(), &CertCore::getEmailAddress, "dave@example.uk"},  // the subject only
    };
    for (const Case& c : cases) {
        XString o("stale");
        EXPECT_EQ((c.cert->*c.op)(o, log), c.want != nullptr) << &c - cases;
        EXPECT_EQ(std::string(o.getUtf8()), c.want ? c.want : "") << &c - cases;
    }
    EXPECT_TRUE(ca->isIssuerSelf(log) && ed448->isIssuerSelf(log));
    EXPECT_FALSE(rsa->isIssuerSelf(log));
}
