// The certificate parser checked against the openssl command line on the
// fixtures of tests/data/x509 (made by make.sh there).
#include "support/x509/OrvaneX509.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "X509Fixtures.h"
#include "support/asn1/Asn1Node.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"
#include "support_common/TestUtil.h"

using namespace x509test;

// ---- Identity against openssl ------------------------------------------------

TEST(OrvaneX509Oracle, SerialThumbprintKeyAndDatesMatchOpenssl) {
    for (const char* name : kCerts) {
        SCOPED_TRACE(name);
        auto x = load(name);
        LogTree log;

        // openssl prints the value; we print the octets. They read alike except
        // for negative and zero-padded serials, which SerialOctetsAreShownAsEncoded
        // covers.
        XString serial;
        ASSERT_TRUE(x->get_SerialNumber(serial, log));
        std::string n = name;
        if (n != "serial_neg.der" && n != "serial_00ff.der") {
            EXPECT_EQ(afterEq(openssl(x509Args(name) + "-serial")), serial.getUtf8());
        }

        XString thumb;
        ASSERT_TRUE(x->get_Sha1ThumbprintX(thumb, log));
        EXPECT_EQ(stripColons(afterEq(openssl(x509Args(name) + "-fingerprint -sha1"))),
                  thumb.getUtf8());
        DataBuffer thumbBytes;
        ASSERT_TRUE(x->get_Sha1Thumbprint(thumbBytes, log));
        EXPECT_EQ(20u, thumbBytes.getSize());

        // SPKI as openssl re-encodes the public key, and its SHA-256 in base64.
        ovtest::TempDir tmp;
        openssl(x509Args(name) + "-pubkey | openssl pkey -pubin -outform DER -out " +
                ovtest::shq(tmp.file("spki.der")));
        std::vector<unsigned char> spki = ovtest::readFileBytes(tmp.file("spki.der"));
        DataBuffer ours;
        ASSERT_TRUE(x->get_PublicKey(ours, log));
        EXPECT_EQ(std::string(spki.begin(), spki.end()),
                  std::string(reinterpret_cast<const char*>(ours.getData2()), ours.getSize()));
        std::string b64 = openssl("dgst -sha256 -binary " + ovtest::shq(tmp.file("spki.der")) +
                                  " | openssl base64 -A");
        XString fp;
        ASSERT_TRUE(x->getSpkiFingerprint(StringBuffer("sha256"), StringBuffer("base64"), fp, log));
        EXPECT_EQ(b64, fp.getUtf8());

        // Dates, in UTC, against openssl's ISO form "2026-11-22 05:00:07Z".
        for (bool from : {true, false}) {
            OrvaneSysTime t;
            ASSERT_TRUE(x->get_Valid_To_or_From_UTC(from, t, log));
            char buf[40];
            snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02dZ", t.m_year, t.m_month,
                     t.m_day, t.m_hour, t.m_minute, t.m_second);
            EXPECT_EQ(afterEq(openssl(x509Args(name) + (from ? "-startdate" : "-enddate") +
                                      " -dateopt iso_8601")),
                      buf);
        }
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(OrvaneX509Oracle, SerialOctetsAreShownAsEncoded) {
    struct Case {
        const char* name;
        const char* serial;
    } cases[] = {
        {"serial_neg.der", "EDCC"},  // -0x1234 in two's complement
        {"serial_00ff.der", "00FF"}, {"serial_20.der", "7F112233445566778899AABBCCDDEEFF00112233"},
        {"leaf_rsa.der", "1001"},    {"root.der", "01"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto x = load(c.name);
        LogNull log;
        XString s("prefix:");
        ASSERT_TRUE(x->get_SerialNumber(s, log));
        EXPECT_EQ(std::string("prefix:") + c.serial, s.getUtf8());  // appends
        EXPECT_EQ(c.serial, hex(x->serialBytes()));
    }
}

TEST(OrvaneX509Oracle, OcspHashesMatchOpensslRequest) {
    // openssl's own OCSP request names the issuer by the SHA-1 of the issuer's
    // name DER and of its key bits: exactly what get_PublicKeyForOCSP feeds.
    struct Case {
        const char* cert;
        const char* issuer;
    } cases[] = {
        {"leaf_rsa.der", "root.der"}, {"leaf_p256.der", "inter.der"}, {"inter.der", "root.der"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.cert);
        ovtest::TempDir tmp;
        openssl("x509 -inform DER -in " + ovtest::shq(fixture(c.cert)) + " -out " +
                ovtest::shq(tmp.file("c.pem")));
        openssl("x509 -inform DER -in " + ovtest::shq(fixture(c.issuer)) + " -out " +
                ovtest::shq(tmp.file("i.pem")));
        std::string text = openssl("ocsp -issuer " + ovtest::shq(tmp.file("i.pem")) + " -cert " +
                                   ovtest::shq(tmp.file("c.pem")) + " -no_nonce -req_text");
        auto field = [&](const char* label) {
            size_t p = text.find(label);
            EXPECT_NE(std::string::npos, p) << text;
            if (p == std::string::npos) return std::string();
            size_t s = p + strlen(label);
            size_t e = text.find('\n', s);
            std::string v = text.substr(s, e - s);
            while (!v.empty() && v.back() == ' ') v.pop_back();
            return v;
        };
        auto cert = load(c.cert);
        auto issuer = load(c.issuer);
        LogNull log;
        DataBuffer keyBits, digest;
        ASSERT_TRUE(issuer->get_PublicKeyForOCSP(keyBits, log));
        ovtest::writeFile(
            tmp.file("k.bin"),
            std::string(reinterpret_cast<const char*>(keyBits.getData2()), keyBits.getSize()));
        std::string keyHash =
            openssl("dgst -sha1 -r " + ovtest::shq(tmp.file("k.bin")) + " | cut -c1-40");
        StringBuffer upper(keyHash.c_str());
        upper.toUpperCase();
        EXPECT_EQ(field("Issuer Key Hash: "), sb(upper));
        DerInput issuerName = cert->issuerDer();
        ovtest::writeFile(
            tmp.file("n.bin"),
            std::string(reinterpret_cast<const char*>(issuerName.data()), issuerName.size()));
        StringBuffer nameHash(
            openssl("dgst -sha1 -r " + ovtest::shq(tmp.file("n.bin")) + " | cut -c1-40").c_str());
        nameHash.toUpperCase();
        EXPECT_EQ(field("Issuer Name Hash: "), sb(nameHash));
        XString serial;
        ASSERT_TRUE(cert->get_SerialNumber(serial, log));
        EXPECT_EQ(field("Serial Number: "), serial.getUtf8());
    }
}

TEST(OrvaneX509Oracle, KeyTypeAndSizeAgreeWithKeyContainer) {
    struct Case {
        const char* name;
        int type;
        unsigned bits;
    } cases[] = {
        {"root.der", 1, 2048},      {"leaf_pss.der", 1, 2048}, {"inter.der", 3, 384},
        {"leaf_p256.der", 3, 256},  {"leaf_p521.der", 3, 521}, {"leaf_ed25519.der", 5, 256},
        {"leaf_ed448.der", 0, 448}, {"leaf_dsa.der", 2, 2048},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto x = load(c.name);
        int type = -1;
        unsigned bits = 0;
        ASSERT_TRUE(x->keyTypeAndBits(&type, &bits));
        EXPECT_EQ(c.type, type);
        EXPECT_EQ(c.bits, bits);

        LogTree log;
        DataBuffer spki;
        ASSERT_TRUE(x->get_PublicKey(spki, log));
        _ovPublicKey key;
        ASSERT_TRUE(key.loadAnyDer(spki, log)) << log.text();
        EXPECT_EQ(key.keyTypeCode(), type);
        EXPECT_EQ(key.getBitLength(), bits);

        StringBuffer a, b;
        ASSERT_TRUE(x->getOrvaneKeyId64(a, log));
        ASSERT_TRUE(key.getOrvaneKeyId64(b, log));
        EXPECT_EQ(sb(b), sb(a));
        EXPECT_EQ(16u, a.getSize());
    }
}

TEST(OrvaneX509Oracle, SpkiFingerprintAlgorithmsAndEncodings) {
    auto x = load("leaf_p256.der");
    ovtest::TempDir tmp;
    openssl(x509Args("leaf_p256.der") + "-pubkey | openssl pkey -pubin -outform DER -out " +
            ovtest::shq(tmp.file("spki.der")));
    struct Case {
        const char* alg;
        const char* encoding;
        std::string want;
    } cases[] = {
        {"sha1", "hex", "dgst -sha1 -r SPKI | cut -d' ' -f1 | tr a-f A-F"},
        {"SHA-256", "hex_lower", "dgst -sha256 -r SPKI | cut -d' ' -f1"},
        {"sha384", "base64", "dgst -sha384 -binary SPKI | openssl base64 -A"},
        {"sha512", "base64url",
         "dgst -sha512 -binary SPKI | openssl base64 -A | tr '+/' '-_' | tr -d '='"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.alg);
        size_t p = c.want.find("SPKI");
        c.want.replace(p, 4, ovtest::shq(tmp.file("spki.der")));
        LogTree log;
        XString out;
        ASSERT_TRUE(x->getSpkiFingerprint(StringBuffer(c.alg), StringBuffer(c.encoding), out, log))
            << log.text();
        EXPECT_EQ(openssl(c.want), out.getUtf8());
    }
    LogTree log;
    XString out;
    EXPECT_FALSE(x->getSpkiFingerprint(StringBuffer("md4x"), StringBuffer("hex"), out, log));
    EXPECT_TRUE(log.hasError("Unsupported SPKI fingerprint hash algorithm."));
    EXPECT_FALSE(x->getSpkiFingerprint(StringBuffer("sha256"), StringBuffer("rot13"), out, log));
    EXPECT_TRUE(out.isEmpty());
}

// ---- Names -------------------------------------------------------------------

TEST(OrvaneX509Names, Rfc4514StyleMatchesOpenssl) {
    // openssl names two attributes differently; everything else, escaping
    // included, must be byte for byte the same.
    auto ourTags = [](std::string s) {
        for (auto [from, to] : {std::pair<std::string, std::string>{"emailAddress=", "E="},
                                {"serialNumber=", "SERIALNUMBER="}}) {
            for (size_t p; (p = s.find(from)) != std::string::npos;) s.replace(p, from.size(), to);
        }
        return s;
    };
    for (const char* name : kCerts) {
        if (std::string(name) == "name_multi.der") continue;  // openssl reverses inside an RDN
        SCOPED_TRACE(name);
        auto x = load(name);
        LogTree log;
        for (bool subject : {true, false}) {
            const std::string which = subject ? "-subject" : "-issuer";
            XString rfc, everyday, reversed;
            ASSERT_TRUE(x->getDN(subject, true, rfc, log, 1));
            EXPECT_EQ(
                ourTags(afterEq(openssl(x509Args(name) + which + " -nameopt RFC2253,-esc_msb"))),
                rfc.getUtf8());
            if (std::string(name) == "name_special.der") continue;  // quoted, not escaped
            ASSERT_TRUE(x->getDN(subject, true, everyday, log, 0));
            EXPECT_EQ(ourTags(afterEq(openssl(x509Args(name) + which +
                                              " -nameopt RFC2253,-esc_msb,sep_comma_plus_space"))),
                      everyday.getUtf8());
            ASSERT_TRUE(x->getDN_reverseOrder(subject, true, 0, reversed, log));
            EXPECT_EQ(ourTags(afterEq(
                          openssl(x509Args(name) + which +
                                  " -nameopt RFC2253,-esc_msb,sep_comma_plus_space,-dn_rev"))),
                      reversed.getUtf8());
        }
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(OrvaneX509Names, TextForms) {
    struct Case {
        const char* name;
        bool subject;
        bool withTags;
        int style;
        bool reverse;
        const char* want;
    } cases[] = {
        {"name_special.der", true, true, 0, false,
         "CN=\"#hash <tag> = eq \", OU=\"back\\slash;semi\", OU=\"R+D \"\"Lab\"\"\", "
         "O=\"Example, Inc.\", C=US"},
        {"name_special.der", true, true, 1, false,
         "CN=\\#hash \\<tag\\> = eq\\ ,OU=back\\\\slash\\;semi,OU=R\\+D \\\"Lab\\\",O=Example\\, "
         "Inc.,C=US"},
        {"name_multi.der", true, true, 0, false,
         "UID=jdoe+CN=Multi Valued, O=Orvane Test, DC=example, DC=test"},
        {"name_multi.der", true, true, 0, true,
         "DC=test, DC=example, O=Orvane Test, UID=jdoe+CN=Multi Valued"},
        {"name_multi.der", true, false, 0, false, "jdoe+Multi Valued, Orvane Test, example, test"},
        {"name_multi.der", true, true, 1, false,
         "UID=jdoe+CN=Multi Valued,O=Orvane Test,DC=example,DC=test"},
        {"name_bmp.der", true, true, 0, false,
         "CN=Gr\xC3\xBC\xC3\x9F\x65 \xC3\x9Cn\xC3\xAF\x63\xC3\xB6\x64\xC3\xA9 \xE2\x9C\x93, "
         "O=Orvane Test, C=DE"},
        {"name_utf8.der", true, false, 0, true,
         "JP, \xE3\x82\xAA\xE3\x83\xAB\xE3\x83\xB4\xE3\x82\xA7\xE3\x82\xA4\xE3\x83\xB3, "
         "Zo\xC3\xAB \xC3\x91\x61nd\xC3\xBA"},
        {"leaf_rsa.der", false, true, 0, false,
         "CN=Orvane Test Root CA, OU=Roots, O=Orvane Test, C=US"},
        {"leaf_rsa.der", true, true, 0, false,
         "SERIALNUMBER=A1234, E=admin@example.test, CN=www.example.test, OU=Ops, OU=Web, "
         "O=Orvane Test, L=San Francisco, ST=California, C=US"},
        {"leaf_rsa.der", false, false, 7, false, "Orvane Test Root CA, Roots, Orvane Test, US"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " style " + std::to_string(c.style));
        auto x = load(c.name);
        LogTree log;
        XString out;
        if (c.reverse)
            ASSERT_TRUE(x->getDN_reverseOrder(c.subject, c.withTags, c.style, out, log));
        else
            ASSERT_TRUE(x->getDN(c.subject, c.withTags, out, log, c.style));
        EXPECT_EQ(c.want, std::string(out.getUtf8()));
    }
}

TEST(OrvaneX509Names, AttributeLookupByNameAndOid) {
    auto x = load("leaf_rsa.der");
    struct Case {
        bool subject;
        const char* name;
        bool found;
        const char* want;
    } cases[] = {
        {true, "CN", true, "www.example.test"},
        {true, "cn", true, "www.example.test"},
        {true, "commonName", true, "www.example.test"},
        {true, "2.5.4.3", true, "www.example.test"},
        {true, "ST", true, "California"},
        {true, "S", true, "California"},
        {true, "E", true, "admin@example.test"},
        {true, "emailAddress", true, "admin@example.test"},
        {true, "SERIALNUMBER", true, "A1234"},
        {true, "2.5.4.5", true, "A1234"},
        {true, "OU", true, "Web"},  // the first of two, in encoding order
        {true, "L", true, "San Francisco"},
        {false, "SERIALNUMBER", false, ""},
        {false, "OU", true, "Roots"},
        {true, "GN", false, ""},
        {true, "nonsense", false, ""},
        {true, "", false, ""},
        {true, "2.5.4.", false, ""},
        {true, "1.2.3.4.5", false, ""},
        {true, "CN=", false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        XString out;
        bool ok = c.subject ? x->get_SubjectValue(c.name, out, log)
                            : x->get_IssuerValue(c.name, out, log);
        EXPECT_EQ(c.found, ok);
        EXPECT_EQ(c.want, std::string(out.getUtf8()));
        EXPECT_FALSE(log.hasErrors());
    }
    LogNull log;
    XString out;
    EXPECT_FALSE(x->get_SubjectValue(nullptr, out, log));

    // The named getters and the issuer side.
    using Getter = bool (OrvaneX509::*)(XString&, LogBase&) const;
    struct Named {
        const char* what;
        Getter get;
        const char* want;
    } named[] = {
        {"SubjectC", &OrvaneX509::get_SubjectC, "US"},
        {"SubjectCN", &OrvaneX509::get_SubjectCN, "www.example.test"},
        {"SubjectE", &OrvaneX509::get_SubjectE, "admin@example.test"},
        {"SubjectL", &OrvaneX509::get_SubjectL, "San Francisco"},
        {"SubjectO", &OrvaneX509::get_SubjectO, "Orvane Test"},
        {"SubjectOU", &OrvaneX509::get_SubjectOU, "Web"},
        {"SubjectS", &OrvaneX509::get_SubjectS, "California"},
        {"IssuerC", &OrvaneX509::get_IssuerC, "US"},
        {"IssuerCN", &OrvaneX509::get_IssuerCN, "Orvane Test Root CA"},
        {"IssuerE", &OrvaneX509::get_IssuerE, nullptr},
        {"IssuerL", &OrvaneX509::get_IssuerL, nullptr},
        {"IssuerO", &OrvaneX509::get_IssuerO, "Orvane Test"},
        {"IssuerOU", &OrvaneX509::get_IssuerOU, "Roots"},
        {"IssuerS", &OrvaneX509::get_IssuerS, nullptr},
    };
    for (const Named& n : named) {
        SCOPED_TRACE(n.what);
        XString v;
        EXPECT_EQ(n.want != nullptr, (x.get()->*n.get)(v, log));
        EXPECT_EQ(n.want ? n.want : "", std::string(v.getUtf8()));
    }
}

TEST(OrvaneX509Names, JsonMembers) {
    auto x = load("leaf_rsa.der");
    LogTree log;
    StringBuffer out("{\"before\":1,");
    ASSERT_TRUE(x->getDnJson(true, out, log, 0));
    EXPECT_EQ(
        "{\"before\":1,\"C\":\"US\",\"ST\":\"California\",\"L\":\"San Francisco\","
        "\"O\":\"Orvane Test\",\"OU\":[\"Web\",\"Ops\"],\"CN\":\"www.example.test\","
        "\"E\":\"admin@example.test\",\"SERIALNUMBER\":\"A1234\"",
        sb(out));

    auto special = load("name_special.der");
    StringBuffer js;
    ASSERT_TRUE(special->getDnJson(true, js, log, 0));
    EXPECT_EQ(
        "\"C\":\"US\",\"O\":\"Example, Inc.\",\"OU\":[\"R+D \\\"Lab\\\"\",\"back\\\\slash;semi\"],"
        "\"CN\":\"#hash <tag> = eq \"",
        sb(js));
}

TEST(OrvaneX509Names, EmailAndSelfIssue) {
    struct Case {
        const char* name;
        const char* email;   // getEmailAddress, null: false
        const char* rfc822;  // getRfc822Name, null: false
        bool self;
    } cases[] = {
        {"leaf_rsa.der", "admin@example.test", "admin@example.test", false},
        {"leaf_p256.der", "p256@example.test", "p256@example.test", false},
        {"root.der", nullptr, nullptr, true},
        {"name_bmp.der", nullptr, nullptr, true},
        {"inter.der", nullptr, nullptr, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto x = load(c.name);
        LogTree log;
        XString e, r;
        EXPECT_EQ(c.email != nullptr, x->getEmailAddress(e, log));
        EXPECT_EQ(c.email ? c.email : "", std::string(e.getUtf8()));
        EXPECT_EQ(c.rfc822 != nullptr, x->getRfc822Name(r, log));
        EXPECT_EQ(c.rfc822 ? c.rfc822 : "", std::string(r.getUtf8()));
        EXPECT_EQ(c.self, x->isIssuerSelf(log));
    }
}

TEST(OrvaneX509Names, IssuerSerialAndVersion) {
    struct Case {
        const char* name;
        const char* issuerSerial;
        const char* version;
    } cases[] = {
        {"leaf_rsa.der", "1001:CN=Orvane Test Root CA, OU=Roots, O=Orvane Test, C=US", "3"},
        {"serial_neg.der", "EDCC:CN=Negative Serial, O=Orvane Test", "3"},
        {"v1.der", nullptr, "1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto x = load(c.name);
        LogNull log;
        XString is, v;
        ASSERT_TRUE(x->get_IssuerSerial(is, log));
        if (c.issuerSerial) {
            EXPECT_EQ(c.issuerSerial, std::string(is.getUtf8()));
        }
        ASSERT_TRUE(x->get_Version(v, log));
        EXPECT_EQ(c.version, std::string(v.getUtf8()));
    }
}

TEST(OrvaneX509Names, AsnTreeEncodesToTheNameBytes) {
    for (const char* name : {"leaf_rsa.der", "name_multi.der", "v1.der"}) {
        SCOPED_TRACE(name);
        auto x = load(name);
        LogTree log;
        for (bool subject : {true, false}) {
            _ovAsn1* node = x->getDnAsn(subject, log);
            ASSERT_NE(nullptr, node);
            DataBuffer der;
            EXPECT_TRUE(node->EncodeToDer(der, false, log));
            node->decRefCount();
            DerInput want = subject ? x->subjectDer() : x->issuerDer();
            EXPECT_TRUE(want.equals(der.getData2(), der.getSize()));
        }
    }
}

// A reader that only has a name's XML rendering (the CRL reader) walks its
// RDNs from the last to the first through appendToDN; that text must be the
// certificate's own DN text, so that CRL issuers and certificate issuers compare.// ---- Extensions
// --------------------------------------------------------------

TEST(OrvaneX509Extensions, TextForms) {
    struct Case {
        const char* name;
        const char* oid;
        const char* want;  // null: false
    } cases[] = {
        {"leaf_rsa.der", "2.5.29.15", "digitalSignature,keyEncipherment"},
        {"root.der", "2.5.29.15", "keyCertSign,cRLSign"},
        {"leaf_rsa.der", "2.5.29.37", "1.3.6.1.5.5.7.3.1,1.3.6.1.5.5.7.3.2,1.3.6.1.4.1.55555.3"},
        {"leaf_rsa.der", "2.5.29.19", "CA:FALSE"},
        {"root.der", "2.5.29.19", "CA:TRUE"},
        {"inter.der", "2.5.29.19", "CA:TRUE, pathlen:0"},
        {"leaf_rsa.der", "2.5.29.17",
         "DNS:www.example.test, DNS:example.test, email:admin@example.test, IP:192.0.2.10, "
         "IP:2001:db8::1, URI:https://example.test/"},
        {"leaf_rsa.der", "1.3.6.1.5.5.7.1.1",
         "OCSP - URI:http://ocsp.example.test/, CA Issuers - URI:http://ca.example.test/root.cer"},
        {"leaf_rsa.der", "2.5.29.31",
         "URI:ldap://ldap.example.test/cn=crl, URI:http://crl.example.test/a.crl, "
         "URI:http://crl2.example.test/b.crl"},
        {"leaf_rsa.der", "2.5.29.32", "2.23.140.1.2.2,1.3.6.1.4.1.55555.2.1"},
        {"leaf_rsa.der", "1.3.6.1.4.1.55555.1", "Orvane private"},
        {"v1.der", "2.5.29.15", nullptr},
        {"leaf_rsa.der", "2.5.29.99", nullptr},
        {"leaf_rsa.der", "not an oid", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + c.oid);
        auto x = load(c.name);
        LogTree log;
        StringBuffer out("x");
        EXPECT_EQ(c.want != nullptr, x->getExtensionTextByOid(c.oid, out, log));
        EXPECT_EQ(std::string("x") + (c.want ? c.want : ""), sb(out));
        EXPECT_FALSE(log.hasErrors());
    }
}

TEST(OrvaneX509Extensions, KeyIdentifiersMatchOpenssl) {
    for (const char* name : {"leaf_rsa.der", "inter.der", "leaf_p256.der"}) {
        SCOPED_TRACE(name);
        auto x = load(name);
        std::string text =
            openssl(x509Args(name) + "-ext subjectKeyIdentifier,authorityKeyIdentifier");
        // "X509v3 Subject Key Identifier: \n    AA:BB...\nX509v3 Authority Key ..."
        auto valueAfter = [&](const char* label) {
            size_t p = text.find(label);
            EXPECT_NE(std::string::npos, p);
            size_t s = text.find('\n', p) + 1;
            size_t e = text.find('\n', s);
            std::string v = text.substr(s, e == std::string::npos ? e : e - s);
            size_t b = v.find_first_not_of(' ');
            if (v.compare(b, 6, "keyid:") == 0) b += 6;
            return stripColons(v.substr(b));
        };
        LogNull log;
        StringBuffer ski;
        ASSERT_TRUE(x->getSubjectKeyIdentifier(ski, log));
        EXPECT_EQ(valueAfter("Subject Key Identifier"), sb(ski));
        DerInput aki;
        ASSERT_TRUE(x->authorityKeyId(&aki));
        EXPECT_EQ(valueAfter("Authority Key Identifier"), hex(aki));

        // The key id in the AKI's XML rendering, where the component reads it:
        // the text after the second '>' up to the first </contextSpecific>.
        StringBuffer xml;
        ASSERT_TRUE(x->getExtensionAsnXmlByOid("2.5.29.35", xml, log));
        std::string s = sb(xml);
        s = s.substr(0, s.find("</contextSpecific>"));
        s = s.substr(s.find('>', s.find('>') + 1) + 1);
        DataBuffer decoded;
        ASSERT_TRUE(decoded.appendEncoded(s.c_str(), "base64"));
        EXPECT_TRUE(aki.equals(decoded.getData2(), decoded.getSize()));
    }
}

TEST(OrvaneX509Extensions, XmlDerAndDataForms) {
    auto x = load("leaf_rsa.der");
    LogTree log;

    StringBuffer ku;
    ASSERT_TRUE(x->getExtensionAsnXmlByOid("2.5.29.15", ku, log));
    EXPECT_EQ(0, ku.indexOf("<bits"));
    EXPECT_EQ("A0", sb(ku).substr(sb(ku).find('>') + 1, 2));

    StringBuffer eku;
    ASSERT_TRUE(x->getExtensionAsnXmlByOid("2.5.29.37", eku, log));
    eku.removeFws();
    EXPECT_TRUE(eku.containsSubstring("<oid>1.3.6.1.5.5.7.3.1</oid>"));
    EXPECT_TRUE(eku.containsSubstring("<oid>1.3.6.1.5.5.7.3.2</oid>"));

    DataBuffer der, data;
    ASSERT_TRUE(x->getExtensionDerDataByOid("2.5.29.14", der, log));
    ASSERT_TRUE(x->getExtensionDataByOid("2.5.29.14", data, log));
    DerInput ski;
    ASSERT_TRUE(x->subjectKeyId(&ski));
    ASSERT_EQ(ski.size() + 2, der.getSize());
    EXPECT_EQ(0x04, der.getData2()[0]);
    EXPECT_TRUE(ski.equals(data.getData2(), data.getSize()));

    XString san;
    ASSERT_TRUE(x->getSubjectAlternativeNameXml(san, log));
    EXPECT_EQ(
        "<subjectAltName><dNSName>www.example.test</dNSName><dNSName>example.test</dNSName>"
        "<rfc822Name>admin@example.test</rfc822Name><iPAddress>192.0.2.10</iPAddress>"
        "<iPAddress>2001:db8::1</iPAddress>"
        "<uniformResourceIdentifier>https://example.test/</uniformResourceIdentifier>"
        "</subjectAltName>",
        std::string(san.getUtf8()));

    // Absent: false, nothing appended, nothing logged.
    auto v1 = load("v1.der");
    StringBuffer s("keep");
    DataBuffer d;
    XString xs;
    EXPECT_FALSE(v1->getExtensionAsnXmlByOid("2.5.29.15", s, log));
    EXPECT_FALSE(v1->getExtensionDerDataByOid("2.5.29.15", d, log));
    EXPECT_FALSE(v1->getExtensionDataByOid("2.5.29.15", d, log));
    EXPECT_FALSE(v1->getSubjectAlternativeNameXml(xs, log));
    EXPECT_FALSE(v1->getSubjectKeyIdentifier(s, log));
    EXPECT_EQ("keep", sb(s));
    EXPECT_EQ(0u, d.getSize());
    EXPECT_FALSE(log.hasErrors()) << log.text();
}

TEST(OrvaneX509Extensions, ViewsForTheComponent) {
    auto leaf = load("leaf_rsa.der");
    auto inter = load("inter.der");
    auto p256 = load("leaf_p256.der");
    auto v1 = load("v1.der");

    bool ca = true;
    int pathLen = 5;
    ASSERT_TRUE(leaf->basicConstraints(&ca, &pathLen));
    EXPECT_FALSE(ca);
    EXPECT_EQ(-1, pathLen);
    ASSERT_TRUE(inter->basicConstraints(&ca, &pathLen));
    EXPECT_TRUE(ca);
    EXPECT_EQ(0, pathLen);
    EXPECT_FALSE(v1->basicConstraints(&ca, &pathLen));

    unsigned ku = 0;
    ASSERT_TRUE(leaf->keyUsage(&ku));
    EXPECT_EQ(0x140u, ku);  // digitalSignature | keyEncipherment
    ASSERT_TRUE(inter->keyUsage(&ku));
    EXPECT_EQ(0x10Cu, ku);  // digitalSignature | keyCertSign | cRLSign
    EXPECT_FALSE(v1->keyUsage(&ku));

    EXPECT_TRUE(leaf->hasExtKeyUsage("1.3.6.1.5.5.7.3.1"));
    EXPECT_FALSE(leaf->hasExtKeyUsage("1.3.6.1.5.5.7.3.4"));
    EXPECT_TRUE(p256->hasExtKeyUsage("1.3.6.1.5.5.7.3.9"));
    EXPECT_FALSE(v1->hasExtKeyUsage("1.3.6.1.5.5.7.3.1"));

    DerInput urls[4];
    ASSERT_EQ(1, leaf->ocspUrls(urls, 4));
    EXPECT_TRUE(
        urls[0].equals(reinterpret_cast<const unsigned char*>("http://ocsp.example.test/"), 25));
    ASSERT_EQ(3, leaf->crlUrls(urls, 4));
    EXPECT_TRUE(urls[2].equals(
        reinterpret_cast<const unsigned char*>("http://crl2.example.test/b.crl"), 30));
    EXPECT_EQ(3, leaf->crlUrls(urls, 1));  // the count, even when fewer views fit
    EXPECT_EQ(0, v1->ocspUrls(urls, 4));
    EXPECT_EQ(0, p256->crlUrls(urls, 4));

    DerInput aki, ski;
    ASSERT_TRUE(p256->authorityKeyId(&aki));
    ASSERT_TRUE(inter->subjectKeyId(&ski));
    EXPECT_TRUE(aki.equals(ski));

    DerInput critValue;
    bool critical = false;
    ASSERT_TRUE(leaf->findExtension("1.3.6.1.4.1.55555.1", &critValue, &critical));
    EXPECT_TRUE(critical);
    ASSERT_TRUE(leaf->findExtension("2.5.29.17", &critValue, &critical));
    EXPECT_FALSE(critical);
    EXPECT_EQ(3, leaf->versionNumber());
    EXPECT_EQ(1, v1->versionNumber());
    EXPECT_TRUE(v1->extensionsDer().empty());
}

// ---- Validity and signatures --------------------------------------------------

TEST(OrvaneX509Validity, ExpiryAndFarFutureDates) {
    LogTree log;
    auto expired = load("expired.der");
    EXPECT_TRUE(expired->isCertExpired(log));
    auto future = load("time_2060.der");
    EXPECT_FALSE(future->isCertExpired(log));
    OrvaneSysTime t;
    ASSERT_TRUE(future->get_Valid_To_or_From_UTC(false, t, log));
    EXPECT_GT(t.m_year, 2049);  // past the UTCTime range: a GeneralizedTime
    DerInput tbs = future->tbsDer();
    EXPECT_NE(nullptr, memmem(tbs.data(), tbs.size(), "\x18\x0f", 2));
    auto leaf = load("leaf_rsa.der");
    EXPECT_FALSE(leaf->isCertExpired(log));
    EXPECT_FALSE(log.hasErrors()) << log.text();
}

TEST(OrvaneX509Signature, EachCertificateVerifiesUnderItsIssuerOnly) {
    for (const Issuer& c : kIssuers) {
        SCOPED_TRACE(c.cert);
        auto cert = load(c.cert);
        auto issuer = c.issuer ? load(c.issuer) : nullptr;
        LogTree log;
        EXPECT_TRUE(cert->verifyCertSignature(issuer.get(), log)) << log.text();
        // Any other key must fail, with a reason.
        auto other =
            load(std::string(c.cert) == "leaf_p256.der" ? "leaf_p384.der" : "leaf_p256.der");
        LogTree bad;
        EXPECT_FALSE(cert->verifyCertSignature(other.get(), bad));
        EXPECT_TRUE(bad.hasErrors());
    }
}

TEST(OrvaneX509Signature, AlteredTbsFails) {
    std::vector<unsigned char> der = fixtureBytes("leaf_rsa.der");
    auto issuer = load("root.der");
    OrvaneX509 x;
    LogTree log;
    ASSERT_TRUE(x.loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log));
    // Change one character of the subject's CN value, keeping the structure.
    DerInput subject = x.subjectDer();
    size_t off = static_cast<size_t>(subject.data() - x.certDer().data()) + subject.size() - 40;
    der[off] ^= 0x01;
    OrvaneX509 tampered;
    ASSERT_TRUE(
        tampered.loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log));
    EXPECT_TRUE(x.verifyCertSignature(issuer.get(), log));
    EXPECT_FALSE(tampered.verifyCertSignature(issuer.get(), log));
}
// ---- Malformed input -----------------------------------------------------------

namespace {

// Every query, so that a certificate that loads from damaged bytes is also
// asked everything once (under ASan this is where reads past the end show).
void askEverything(const OrvaneX509& x) {
    LogNull log;
    XString s;
    StringBuffer sb;
    DataBuffer d;
    OrvaneSysTime t;
    x.getDN(true, true, s, log, 0);
    x.getDN_reverseOrder(false, false, 1, s, log);
    x.getDnJson(true, sb, log, 0);
    x.getDnJson(false, sb, log, 0);
    x.get_SubjectCN(s, log);
    x.get_IssuerValue("1.2.3", s, log);
    x.getEmailAddress(s, log);
    x.isIssuerSelf(log);
    for (const char* oid : {"2.5.29.14", "2.5.29.15", "2.5.29.17", "2.5.29.19", "2.5.29.31",
                            "2.5.29.32", "2.5.29.35", "2.5.29.37", "1.3.6.1.5.5.7.1.1"}) {
        x.getExtensionTextByOid(oid, sb, log);
        x.getExtensionAsnXmlByOid(oid, sb, log);
        x.getExtensionDataByOid(oid, d, log);
    }
    x.getSubjectAlternativeNameXml(s, log);
    x.getSubjectKeyIdentifier(sb, log);
    x.get_Sha1ThumbprintX(s, log);
    x.get_SerialNumber(s, log);
    x.get_IssuerSerial(s, log);
    x.get_Valid_To_or_From_UTC(true, t, log);
    x.isCertExpired(log);
    x.getOrvaneKeyId64(sb, log);
    int type;
    unsigned bits, mask;
    bool ca;
    int pathLen;
    DerInput v[4];
    x.keyTypeAndBits(&type, &bits);
    x.keyUsage(&mask);
    x.basicConstraints(&ca, &pathLen);
    x.ocspUrls(v, 4);
    x.crlUrls(v, 4);
    x.hasExtKeyUsage("1.3.6.1.5.5.7.3.1");
    x.verifyCertSignature(nullptr, log);
    _ovAsn1* node = x.getDnAsn(true, log);
    RefCountedObject::release(node);
}

// Offsets of every tag byte and of the first length byte, found by walking the
// constructed elements (and BIT/OCTET STRING contents that hold DER).
void collectHeaders(DerInput in, size_t base, std::vector<std::pair<size_t, size_t>>& out,
                    int depth) {
    DerParser p(in, true);
    while (p.hasMore()) {
        size_t at = p.position();
        DerElement e;
        if (!p.readAny(&e)) return;
        out.push_back({base + at, base + at + 1});
        if (depth > 20) continue;
        size_t contentOff = base + static_cast<size_t>(e.contents.data() - in.data());
        if (e.constructed) collectHeaders(e.contents, contentOff, out, depth + 1);
    }
}

}  // namespace

TEST(OrvaneX509Malformed, TruncationAtEveryLengthFailsCleanly) {
    for (const char* name : {"leaf_rsa.der", "chain.p7b", "chain_ber.p7b"}) {
        SCOPED_TRACE(name);
        std::vector<unsigned char> der = fixtureBytes(name);
        for (size_t n = 0; n < der.size(); ++n) {
            // A copy of exactly n bytes, so ASan sees any read past them.
            std::vector<unsigned char> cut(der.begin(), der.begin() + static_cast<long>(n));
            OrvaneX509 x;
            LogTree log;
            bool ok = x.loadX509DerAlt(cut.data(), static_cast<unsigned>(n), nullptr, log);
            ASSERT_FALSE(ok) << "loaded from " << n << " bytes";
            ASSERT_TRUE(log.hasErrors()) << n;
            ASSERT_FALSE(x.isLoaded());
            ASSERT_EQ(0u, x.getCertDerSize());
        }
    }
}

TEST(OrvaneX509Malformed, FlippedTagsAndInflatedLengths) {
    for (const char* name : {"leaf_rsa.der", "leaf_ed25519.der", "chain_ber.p7b"}) {
        SCOPED_TRACE(name);
        std::vector<unsigned char> der = fixtureBytes(name);
        std::vector<std::pair<size_t, size_t>> headers;
        collectHeaders(DerInput(der.data(), der.size()), 0, headers, 0);
        ASSERT_GT(headers.size(), 40u);
        int loadedAnyway = 0;
        for (auto [tagAt, lenAt] : headers) {
            for (int variant = 0; variant < 4; ++variant) {
                std::vector<unsigned char> bad = der;
                switch (variant) {
                    case 0:
                        bad[tagAt] ^= 0x20;
                        break;  // constructed <-> primitive
                    case 1:
                        bad[tagAt] ^= 0x0f;
                        break;  // another tag number
                    case 2:
                        bad[lenAt] = static_cast<unsigned char>(bad[lenAt] + 1);
                        break;
                    case 3:
                        bad[lenAt] = 0x84;
                        break;  // a four-byte length
                }
                OrvaneX509 x;
                LogTree log;
                if (x.loadX509DerAlt(bad.data(), static_cast<unsigned>(bad.size()), nullptr, log)) {
                    // Damage inside a value the skeleton does not read: the
                    // certificate loads, and every question must still be safe.
                    ++loadedAnyway;
                    askEverything(x);
                } else {
                    ASSERT_TRUE(log.hasErrors()) << tagAt << " variant " << variant;
                }
            }
        }
        EXPECT_LT(loadedAnyway, static_cast<int>(headers.size()) * 4);
    }
}

TEST(OrvaneX509Malformed, StructuralErrorsSayWhat) {
    struct Case {
        const char* name;
        std::vector<unsigned char> der;
        const char* error;
    } cases[] = {
        {"empty", {}, "Certificate DER is empty."},
        {"not a sequence", {0x04, 0x01, 0x00}, "Certificate DER is not one well-formed SEQUENCE."},
        {"absurd length",
         {0x30, 0x84, 0x7f, 0xff, 0xff, 0xff, 0x30},
         "Certificate DER is not one well-formed SEQUENCE."},
        {"empty sequence", {0x30, 0x00}, "Certificate's TBSCertificate is missing or malformed."},
        {"tbs only",
         {0x30, 0x02, 0x30, 0x00},
         "Certificate's signature algorithm is missing or malformed."},
        {"empty tbs",
         {0x30, 0x07, 0x30, 0x00, 0x30, 0x00, 0x03, 0x01, 0x00},
         "Certificate serial number is malformed."},
        {"signature not a bit string",
         {0x30, 0x07, 0x30, 0x00, 0x30, 0x00, 0x04, 0x01, 0x00},
         "Certificate's signature value is missing or malformed."},
        {"data after signature",
         {0x30, 0x09, 0x30, 0x00, 0x30, 0x00, 0x03, 0x01, 0x00, 0x05, 0x00},
         "Unexpected data after the certificate's signature."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        OrvaneX509 x;
        LogTree log;
        EXPECT_FALSE(
            x.loadX509DerAlt(c.der.data(), static_cast<unsigned>(c.der.size()), nullptr, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
    }
}

TEST(OrvaneX509Load, TrailingBytesAreNotPartOfTheCertificate) {
    std::vector<unsigned char> der = fixtureBytes("inter.der");
    std::vector<unsigned char> padded = der;
    padded.insert(padded.end(), {'\r', '\n', 0, 0});
    OrvaneX509 x;
    LogTree log;
    ASSERT_TRUE(
        x.loadX509DerAlt(padded.data(), static_cast<unsigned>(padded.size()), nullptr, log));
    EXPECT_TRUE(x.certDer().equals(der.data(), der.size()));
}

TEST(OrvaneX509Load, ReloadReplacesAndFailureEmpties) {
    std::vector<unsigned char> a = fixtureBytes("root.der");
    std::vector<unsigned char> b = fixtureBytes("leaf_p256.der");
    OrvaneX509 x;
    LogNull log;
    ASSERT_TRUE(x.loadX509DerAlt(a.data(), static_cast<unsigned>(a.size()), nullptr, log));
    XString t1, t2;
    ASSERT_TRUE(x.get_Sha1ThumbprintX(t1, log));  // fills the cache
    ASSERT_TRUE(x.loadX509DerAlt(b.data(), static_cast<unsigned>(b.size()), nullptr, log));
    ASSERT_TRUE(x.get_Sha1ThumbprintX(t2, log));
    EXPECT_NE(std::string(t1.getUtf8()), t2.getUtf8());
    EXPECT_TRUE(x.certDer().equals(b.data(), b.size()));
    ASSERT_FALSE(x.loadX509DerAlt(b.data(), 10, nullptr, log));
    EXPECT_FALSE(x.isLoaded());
}

TEST(OrvaneX509Load, MemoryIsAboutTheDerSize) {
    for (const char* name : kCerts) {
        SCOPED_TRACE(name);
        auto x = load(name);
        EXPECT_LE(x->heapUsage(), 2 * x->getCertDerSize());
    }
}

TEST(OrvaneX509Load, EmptyObjectAnswersNothing) {
    OrvaneX509 x;
    LogTree log;
    XString s;
    StringBuffer sb;
    DataBuffer d;
    OrvaneSysTime t;
    EXPECT_FALSE(x.getXml(s, log));
    EXPECT_FALSE(x.getDN(true, true, s, log, 0));
    EXPECT_FALSE(x.getDnJson(true, sb, log, 0));
    EXPECT_EQ(nullptr, x.getDnAsn(true, log));
    EXPECT_FALSE(x.get_SubjectCN(s, log));
    EXPECT_FALSE(x.getRfc822Name(s, log));
    EXPECT_FALSE(x.isIssuerSelf(log));
    EXPECT_FALSE(x.getExtensionDerDataByOid("2.5.29.15", d, log));
    EXPECT_FALSE(x.get_PublicKey(d, log));
    EXPECT_FALSE(x.get_PublicKeyForOCSP(d, log));
    EXPECT_FALSE(x.get_Sha1Thumbprint(d, log));
    EXPECT_FALSE(x.get_SignatureValue(d, log));
    EXPECT_FALSE(x.get_SerialNumber(s, log));
    EXPECT_FALSE(x.get_Version(s, log));
    EXPECT_FALSE(x.get_Valid_To_or_From_UTC(true, t, log));
    EXPECT_FALSE(x.isCertExpired(log));
    EXPECT_FALSE(x.verifyCertSignature(nullptr, log));
    EXPECT_FALSE(x.getOrvaneKeyId64(sb, log));
    x.getCertDer(d);
    EXPECT_EQ(0u, d.getSize());
    EXPECT_TRUE(s.isEmpty());
    EXPECT_TRUE(sb.isEmpty());
    EXPECT_TRUE(x.certDer().empty());
}

TEST(OrvaneX509Load, WholeCertificateXml) {
    auto x = load("leaf_rsa.der");
    LogTree log;
    XString xml;
    ASSERT_TRUE(x->getXml(xml, log));
    StringBuffer s = xml.getUtf8Sb();
    EXPECT_EQ(0, s.indexOf("<sequence><sequence>"));
    EXPECT_TRUE(s.containsSubstring("<oid>2.5.4.3</oid><utf8>www.example.test</utf8>"));
}

TEST(OrvaneX509Holder, OwnsExactlyOneCertificate) {
    OrvaneX509Holder h;
    ASSERT_NE(nullptr, h.getX509());
    EXPECT_FALSE(h.getX509()->isLoaded());
    OrvaneX509* a = new OrvaneX509();
    h.setX509(a);  // the first one is deleted (the leak checker watches)
    EXPECT_EQ(a, h.getX509());
    h.setX509(a);  // setting the held one again must not delete it
    EXPECT_EQ(a, h.getX509());
    h.setX509(nullptr);
    EXPECT_EQ(nullptr, h.getX509());
    h.setX509(new OrvaneX509());
}
