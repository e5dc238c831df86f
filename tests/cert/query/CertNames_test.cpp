#include <gtest/gtest.h>

#include <map>

#include "cert/query/QueryTestUtil.h"
#include "support/asn1/Asn1Node.h"

using certtest::CertRef;

namespace {

// The subject or issuer attributes as openssl lists them, by short name.
std::map<std::string, std::string> opensslParts(const std::string& file, bool subject) {
    std::string text = qtest::ossl(file, std::string("-noout -nameopt sep_multiline,sname,utf8 ") +
                                             (subject ? "-subject" : "-issuer"));
    std::map<std::string, std::string> parts;
    size_t pos = 0;
    while ((pos = text.find("\n    ", pos)) != std::string::npos) {
        pos += 5;
        size_t eq = text.find('=', pos);
        size_t eol = text.find('\n', pos);
        if (eol == std::string::npos) eol = text.size();
        parts[text.substr(pos, eq - pos)] = text.substr(eq + 1, eol - eq - 1);
    }
    return parts;
}

TEST(CertNames, PartsMatchOpenssl) {
    struct Case {
        const char* file;
        bool subject;
        const char* part;     // asked of the certificate
        const char* osslKey;  // openssl's short name for it
    };
    const Case cases[] = {
        {"rsa.pem", true, "CN", "CN"},
        {"rsa.pem", true, "C", "C"},
        {"rsa.pem", true, "L", "L"},
        {"rsa.pem", true, "O", "O"},
        {"rsa.pem", true, "OU", "OU"},
        {"rsa.pem", true, "S", "ST"},
        {"rsa.pem", true, "ST", "ST"},
        {"rsa.pem", true, "E", "emailAddress"},
        {"rsa.pem", true, "SERIALNUMBER", "serialNumber"},
        // Not rows of the table: handed to the parser's lookup as they are.
        {"rsa.pem", true, "cn", "CN"},
        {"rsa.pem", true, "2.5.4.11", "OU"},
        {"rsa.pem", false, "CN", "CN"},
        {"rsa.pem", false, "C", "C"},
        {"rsa.pem", false, "O", "O"},
        {"rsa.pem", false, "2.5.4.10", "O"},
        {"ec256.pem", false, "CN", "CN"},
        {"ec256.pem", false, "C", "C"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + (c.subject ? " subject " : " issuer ") + c.part);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        std::string want = opensslParts(c.file, c.subject)[c.osslKey];
        ASSERT_FALSE(want.empty());
        XString out("stale");
        bool ok = c.subject ? cert->getSubjectPart(c.part, out, log)
                            : cert->getIssuerPart(c.part, out, log);
        EXPECT_TRUE(ok);
        EXPECT_EQ(out.getUtf8(), want);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertNames, MissingPartsAndWhoLogsThem) {
    struct Case {
        const char* name;
        const char* file;
        bool subject;
        const char* part;
        const char* error;  // null: nothing logged
    };
    const Case cases[] = {
        {"unknown subject name", "rsa.pem", true, "bogus", "Unrecognized certificate subject part"},
        {"unknown issuer name", "rsa.pem", false, "bogus", "Unrecognized certificate issuer part"},
        // The issuer side has no SERIALNUMBER row; the fallback's failure is
        // reported like any unknown name.
        {"issuer SERIALNUMBER", "rsa.pem", false, "SERIALNUMBER",
         "Unrecognized certificate issuer part"},
        // The subject side resolves it by OID and reports nothing.
        {"subject SERIALNUMBER absent", "ec256.pem", true, "SERIALNUMBER", nullptr},
        {"named row absent", "ec256.pem", true, "L", nullptr},
        {"issuer named row absent", "ec256.pem", false, "OU", nullptr},
        {"absent OID", "ec256.pem", true, "2.5.4.11", "Unrecognized certificate subject part"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        log.clearLog();
        XString out("stale");
        bool ok = c.subject ? cert->getSubjectPart(c.part, out, log)
                            : cert->getIssuerPart(c.part, out, log);
        EXPECT_FALSE(ok);
        EXPECT_TRUE(out.isEmpty());
        if (c.error) {
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
            std::string part;
            EXPECT_TRUE(log.findData("part", part));
            EXPECT_EQ(part, c.part);
        } else {
            EXPECT_EQ(log.numEntries(), 0) << log.text();
        }
    }

    LogTree log;
    CertRef cert(qtest::load("rsa.pem", log));
    ASSERT_TRUE(cert);
    log.clearLog();
    XString out("stale");
    EXPECT_FALSE(cert->getSubjectPart(nullptr, out, log));
    EXPECT_TRUE(out.isEmpty());
    EXPECT_FALSE(cert->getIssuerPart(nullptr, out, log));
    EXPECT_EQ(log.numEntries(), 0);
}

TEST(CertNames, EuCountryTable) {
    struct Case {
        const char* file;
        bool eu;
        const char* why;
    };
    const Case cases[] = {
        {"rsa.pem", true, "de: case is ignored"},
        {"ca-de.pem", true, "DE"},
        {"ca.pem", true, "NO is in the table"},
        {"ed448.pem", true, "IS is in the table"},
        {"aki-issuer.pem", true, "LI is in the table"},
        {"expired.pem", true, "AT, the first entry"},
        {"country-SK.pem", true, "SK, the last entry"},
        {"country-GR.pem", true, "GR"},
        {"ed25519.pem", true, "no subject country: the issuer's NO counts"},
        {"ec256.pem", false, "US; the issuer's DE is not consulted"},
        {"dsa.pem", false, "GB"},
        {"noext.pem", false, "UK"},
        {"eku-unknown.pem", false, "EL is not how the table writes Greece"},
        {"eku-odd.pem", false, "CH"},
        {"country-space.pem", false, "\" DE\": no trimming"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + ": " + c.why);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        log.clearLog();
        EXPECT_EQ(cert->is_country_eu(log), c.eu);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(CertNames, DnTextFollowsSideOrderTagsAndStyle) {
    struct Case {
        const char* file;
        bool reverse, subject, tags;
        int style;
        const char* nameopt;  // openssl's equivalent; null: compare with want
        const char* want;
    };
    const Case cases[] = {
        {"ec256.pem", false, true, true, 1, "RFC2253", nullptr},
        {"ec256.pem", false, false, true, 1, "RFC2253", nullptr},
        {"ec256.pem", true, true, true, 1, "sep_comma_plus,sname,utf8", nullptr},
        {"rsa.pem", true, false, true, 1, "sep_comma_plus,sname,utf8", nullptr},
        {"ec256.pem", false, true, true, 0, "sep_comma_plus_space,dn_rev,sname,utf8", nullptr},
        {"ec256.pem", false, true, false, 0, nullptr, "ec256.example.com, Example Inc, US"},
        {"ec256.pem", true, false, false, 0, nullptr, "DE, Query DE CA, Query DE Root"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + (c.subject ? " subject" : " issuer") +
                     (c.reverse ? " reversed" : "") + (c.tags ? " tags" : "") + " style " +
                     std::to_string(c.style));
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        std::string want;
        if (c.nameopt) {
            want = qtest::ossl(c.file, std::string("-noout -nameopt ") + c.nameopt +
                                           (c.subject ? " -subject" : " -issuer"));
            want = want.substr(want.find('=') + 1);
        } else {
            want = c.want;
        }
        XString out("stale");
        EXPECT_TRUE(cert->getDN_ordered(c.reverse, c.subject, c.tags, c.style, out, log));
        EXPECT_EQ(out.getUtf8(), want);
    }

    // The four fixed forms are style 0 in certificate-text order.
    LogTree log;
    CertRef cert(qtest::load("rsa.pem", log));
    ASSERT_TRUE(cert);
    using Fixed = bool (CertCore::*)(XString&, LogBase&);
    struct Form {
        const char* name;
        Fixed op;
        bool subject, tags;
    };
    const Form forms[] = {
        {"getSubjectDN", &CertCore::getSubjectDN, true, true},
        {"getIssuerDN", &CertCore::getIssuerDN, false, true},
        {"getSubjectDN_noTags", &CertCore::getSubjectDN_noTags, true, false},
        {"getIssuerDN_noTags", &CertCore::getIssuerDN_noTags, false, false},
    };
    for (const Form& f : forms) {
        SCOPED_TRACE(f.name);
        XString want, out("stale");
        ASSERT_TRUE(cert->getDN_ordered(false, f.subject, f.tags, 0, want, log));
        EXPECT_TRUE((cert.get()->*f.op)(out, log));
        EXPECT_EQ(std::string(out.getUtf8()), want.getUtf8());
    }
}

TEST(CertNames, DnJsonAppendsAndDnAsnIsTheNamesDer) {
    LogTree log;
    CertRef cert(qtest::load("ec256.pem", log));
    ASSERT_TRUE(cert);
    StringBuffer json("{\"keep\":1,");
    ASSERT_TRUE(cert->getDnJson(true, json, log));
    std::string s = json.getString();
    EXPECT_EQ(s.find("{\"keep\":1,"), 0u);
    EXPECT_NE(s.find("\"CN\":\"ec256.example.com\""), std::string::npos) << s;
    StringBuffer issuer;
    ASSERT_TRUE(cert->getDnJson(false, issuer, log));
    EXPECT_NE(std::string(issuer.getString()).find("\"CN\":\"Query DE Root\""), std::string::npos);

    std::string der = qtest::opensslDer("ec256.pem");
    std::vector<qtest::DerItem> f = qtest::tbsFields("ec256.pem");
    ASSERT_GE(f.size(), 6u);
    struct Case {
        const char* name;
        _ovAsn1* (CertCore::*op)(LogBase&);
        size_t field;
    };
    const Case cases[] = {{"subject", &CertCore::getSubjectDnAsn, 4},
                          {"issuer", &CertCore::getIssuerDnAsn, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        _ovAsn1* node = (cert.get()->*c.op)(log);
        ASSERT_NE(node, nullptr);
        DataBuffer enc;
        EXPECT_TRUE(node->EncodeToDer(enc, false, log));
        node->decRefCount();
        EXPECT_EQ(qtest::bytesOf(enc), qtest::slice(der, f[c.field], true));
    }
}

TEST(CertNames, IdentityEmailAndSelfIssue) {
    LogTree log;
    CertRef rsa(qtest::load("rsa.pem", log));
    CertRef ed(qtest::load("ed25519.pem", log));
    CertRef noext(qtest::load("noext.pem", log));
    CertRef ca(qtest::load("ca.pem", log));
    CertRef ed448(qtest::load("ed448.pem", log));
    ASSERT_TRUE(rsa && ed && noext && ca && ed448);

    XString out("stale");
    ASSERT_TRUE(rsa->getIssuerSerial(out, log));
    XString issuerDn;
    ASSERT_TRUE(rsa->getIssuerDN(issuerDn, log));
    EXPECT_EQ(std::string(out.getUtf8()),
              std::string("0080112233445566778899AABBCCDDEEFF00112233:") + issuerDn.getUtf8());

    struct Case {
        const char* name;
        CertCore* cert;
        bool (CertCore::*op)(XString&, LogBase&);
        const char* want;  // null: false with an empty output
    };
    const Case cases[] = {
        {"rfc822 from SAN", rsa.get(), &CertCore::getRfc822Name, "alice@example.org"},
        {"email prefers the subject", rsa.get(), &CertCore::getEmailAddress, "alice@example.de"},
        {"email falls back to SAN", ed.get(), &CertCore::getEmailAddress, "bob@example.net"},
        {"no SAN", noext.get(), &CertCore::getRfc822Name, nullptr},
        {"subject email without SAN", noext.get(), &CertCore::getEmailAddress, "dave@example.uk"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString o("stale");
        EXPECT_EQ((c.cert->*c.op)(o, log), c.want != nullptr);
        EXPECT_EQ(std::string(o.getUtf8()), c.want ? c.want : "");
    }

    EXPECT_TRUE(ca->isIssuerSelf(log));
    EXPECT_TRUE(ed448->isIssuerSelf(log));
    EXPECT_FALSE(rsa->isIssuerSelf(log));
}

// Without certificate the XString outputs are emptied; getDnJson never clears.
TEST(CertNames, EmptyAndStaleObjects) {
    const qtest::GuardCase cases[] = {
        {"getSubjectPart", QUERY_OP(c->getSubjectPart("CN", o.x, l)), true, false},
        {"getIssuerPart", QUERY_OP(c->getIssuerPart("bogus", o.x, l)), true, false},
        {"getSubjectDN", QUERY_OP(c->getSubjectDN(o.x, l)), true, false},
        {"getIssuerDN", QUERY_OP(c->getIssuerDN(o.x, l)), true, false},
        {"getSubjectDN_noTags", QUERY_OP(c->getSubjectDN_noTags(o.x, l)), true, false},
        {"getIssuerDN_noTags", QUERY_OP(c->getIssuerDN_noTags(o.x, l)), true, false},
        {"getDN_ordered", QUERY_OP(c->getDN_ordered(true, true, true, 1, o.x, l)), true, false},
        {"getIssuerSerial", QUERY_OP(c->getIssuerSerial(o.x, l)), true, false},
        {"getRfc822Name", QUERY_OP(c->getRfc822Name(o.x, l)), true, false},
        {"getEmailAddress", QUERY_OP(c->getEmailAddress(o.x, l)), true, false},
        {"getDnJson", QUERY_OP(c->getDnJson(true, o.s, l)), false, false},
        {"getSubjectDnAsn", QUERY_OP(c->getSubjectDnAsn(l) != nullptr), false, false},
        {"getIssuerDnAsn", QUERY_OP(c->getIssuerDnAsn(l) != nullptr), false, false},
        {"isIssuerSelf", QUERY_OP(c->isIssuerSelf(l)), false, false},
        {"is_country_eu", QUERY_OP(c->is_country_eu(l)), false, false},
    };
    LogTree log;
    CertRef loaded(qtest::load("rsa.pem", log));
    qtest::checkEmptyAndStale(cases, loaded.get());
}

}  // namespace
