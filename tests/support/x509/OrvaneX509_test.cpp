// The certificate parser checked against the openssl command line on the
// fixtures of tests/data/x509 (made by make.sh there). The component's own
// tests cover the queries again through the certificate object.
#include "support/x509/OrvaneX509.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "X509TestUtil.h"
#include "support/asn1/Asn1Node.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"

using namespace x509test;

namespace {

// Asks every query once and counts the answers (true, or a count above 0). On
// certificates loaded from damaged bytes this is where ASan sees reads past the end.
int askEverything(const OrvaneX509& x, XString& s, StringBuffer& sb, DataBuffer& d) {
    LogNull log;
    OrvaneSysTime t;
    int type = 0, pathLen = 0;
    unsigned bits = 0, mask = 0;
    bool ca = false;
    DerInput v[4];
    int n = x.getXml(s, log) + x.getDN(true, true, s, log, 0) +
            x.getDN_reverseOrder(false, false, 1, s, log) + x.getDnJson(true, sb, log, 0) +
            x.get_SubjectCN(s, log) + x.get_IssuerValue("1.2.3", s, log) +
            x.getEmailAddress(s, log) + x.getRfc822Name(s, log) + x.isIssuerSelf(log) +
            x.getSubjectAlternativeNameXml(s, log) + x.getSubjectKeyIdentifier(sb, log) +
            x.get_Sha1ThumbprintX(s, log) + x.get_SerialNumber(s, log) +
            x.get_IssuerSerial(s, log) + x.get_Version(s, log) +
            x.get_Valid_To_or_From_UTC(true, t, log) + x.isCertExpired(log) +
            x.getOrvaneKeyId64(sb, log) + x.get_PublicKey(d, log) + x.get_PublicKeyForOCSP(d, log) +
            x.get_Sha1Thumbprint(d, log) + x.get_SignatureValue(d, log) +
            x.keyTypeAndBits(&type, &bits) + x.keyUsage(&mask) + x.basicConstraints(&ca, &pathLen) +
            (x.ocspUrls(v, 4) > 0) + (x.crlUrls(v, 4) > 0) + x.hasExtKeyUsage("1.3.6.1.5.5.7.3.1") +
            x.verifyCertSignature(nullptr, log);
    for (const char* oid : {"2.5.29.14", "2.5.29.15", "2.5.29.17", "2.5.29.19", "2.5.29.31",
                            "2.5.29.32", "2.5.29.35", "2.5.29.37", "1.3.6.1.5.5.7.1.1"}) {
        n += x.getExtensionTextByOid(oid, sb, log) + x.getExtensionAsnXmlByOid(oid, sb, log) +
             x.getExtensionDataByOid(oid, d, log) + x.getExtensionDerDataByOid(oid, d, log);
    }
    _ovAsn1* node = x.getDnAsn(false, log);
    n += node != nullptr;
    RefCountedObject::release(node);
    x.getCertDer(d);
    return n;
}

std::string text(const XString& s) {
    return s.getUtf8();
}

std::string text(DerInput d) {
    return std::string(reinterpret_cast<const char*>(d.data()), d.size());
}

}  // namespace

TEST(OrvaneX509Oracle, IdentityNamesKeyAndDatesMatchOpenssl) {
    // openssl names two attributes differently; everything else in a DN,
    // escaping and non-ASCII text included, must be byte for byte the same.
    auto ourTags = [](std::string s) {
        for (auto [from, to] : {std::pair<std::string, std::string>{"emailAddress=", "E="},
                                {"serialNumber=", "SERIALNUMBER="}}) {
            for (size_t p; (p = s.find(from)) != std::string::npos;) s.replace(p, from.size(), to);
        }
        return s;
    };
    for (const CertFixture& c : kCerts) {
        SCOPED_TRACE(c.name);
        const std::string n = c.name;
        auto x = load(n);
        LogTree log;
        // openssl prints the serial's value, we print its octets as encoded.
        XString serial, thumb;
        ASSERT_TRUE(x->get_SerialNumber(serial, log));
        EXPECT_EQ(n == "serial_neg.der"    ? "EDCC"  // -0x1234 in two's complement
                  : n == "serial_00ff.der" ? "00FF"
                                           : x509Field(n, "-serial"),  // 20 bytes in serial_20
                  text(serial));
        ASSERT_TRUE(x->get_Sha1ThumbprintX(thumb, log));
        std::string fp = x509Field(n, "-fingerprint -sha1");  // AA:BB:...
        fp.erase(std::remove(fp.begin(), fp.end(), ':'), fp.end());
        EXPECT_EQ(fp, text(thumb));

        std::string spkiDer;  // the SPKI as openssl re-encodes the key
        ASSERT_EQ(0, ovtest::run("openssl x509 -inform DER -in " + ovtest::shq(fixture(n)) +
                                     " -pubkey -noout | openssl pkey -pubin -outform DER",
                                 &spkiDer));
        DataBuffer spki;
        ASSERT_TRUE(x->get_PublicKey(spki, log));
        EXPECT_EQ(spkiDer, text(DerInput(spki.getData2(), spki.getSize())));

        // Dates in UTC against openssl's "2026-11-22 05:00:07Z" (time_2060: a
        // GeneralizedTime; expired: notAfter before notBefore).
        for (bool from : {true, false}) {
            OrvaneSysTime t;
            ASSERT_TRUE(x->get_Valid_To_or_From_UTC(from, t, log));
            char buf[40];
            snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02dZ", t.m_year, t.m_month,
                     t.m_day, t.m_hour, t.m_minute, t.m_second);
            EXPECT_EQ(
                x509Field(n, from ? "-startdate -dateopt iso_8601" : "-enddate -dateopt iso_8601"),
                buf);
        }

        for (bool subject : {true, false}) {
            if (n == "name_multi.der") break;  // openssl reverses inside an RDN
            const std::string opts =
                std::string(subject ? "-subject" : "-issuer") + " -nameopt RFC2253,-esc_msb";
            XString rfc, everyday;
            ASSERT_TRUE(x->getDN(subject, true, rfc, log, 1));
            EXPECT_EQ(ourTags(x509Field(n, opts)), text(rfc));
            if (n == "name_special.der") continue;  // quoted, not escaped
            ASSERT_TRUE(x->getDN(subject, true, everyday, log, 0));
            EXPECT_EQ(ourTags(x509Field(n, opts + ",sep_comma_plus_space")), text(everyday));
        }

        // Type, size and key id as the key container reports them for the SPKI.
        int type = -1;
        unsigned bits = 0;
        _ovPublicKey key;
        StringBuffer ours, theirs;
        ASSERT_TRUE(x->keyTypeAndBits(&type, &bits));
        ASSERT_TRUE(key.loadAnyDer(spki, log)) << log.text();
        EXPECT_EQ(key.keyTypeCode(), type);
        EXPECT_EQ(key.getBitLength(), bits);
        ASSERT_TRUE(x->getOrvaneKeyId64(ours, log) && key.getOrvaneKeyId64(theirs, log));
        EXPECT_STREQ(theirs.getString(), ours.getString());

        EXPECT_LE(x->heapUsage(), 2 * x->getCertDerSize());
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST(OrvaneX509Extensions, TextForms) {
    struct Case {
        const char* name;
        const char* oid;
        const char* want;  // null: false
    } cases[] = {
        {"leaf_rsa.der", "2.5.29.17",
         "DNS:www.example.test, DNS:example.test, email:admin@example.test, IP:192.0.2.10, "
         "IP:2001:db8::1, URI:https://example.test/"},
        {"leaf_rsa.der", "1.3.6.1.5.5.7.1.1",
         "OCSP - URI:http://ocsp.example.test/, CA Issuers - URI:http://ca.example.test/root.cer"},
        {"leaf_rsa.der", "2.5.29.31",
         "URI:ldap://ldap.example.test/cn=crl, URI:http://crl.example.test/a.crl, "
         "URI:http://crl2.example.test/b.crl"},
        {"leaf_rsa.der", "1.3.6.1.4.1.55555.1", "Orvane private"},
        {"v1.der", "2.5.29.15", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + c.oid);
        LogTree log;
        StringBuffer out("x");
        EXPECT_EQ(c.want != nullptr, load(c.name)->getExtensionTextByOid(c.oid, out, log));
        EXPECT_EQ(std::string("x") + (c.want ? c.want : ""), out.getString());  // appends
        EXPECT_FALSE(log.hasErrors());
    }
}

TEST(OrvaneX509Extensions, ViewsForTheComponent) {
    auto leaf = load("leaf_rsa.der"), inter = load("inter.der");
    auto p256 = load("leaf_p256.der"), v1 = load("v1.der");
    bool ca = false, critical = true;
    int pathLen = 5;
    unsigned ku = 0;
    EXPECT_TRUE(inter->basicConstraints(&ca, &pathLen) && ca && pathLen == 0);
    EXPECT_TRUE(leaf->basicConstraints(&ca, &pathLen) && !ca && pathLen == -1);
    EXPECT_FALSE(v1->basicConstraints(&ca, &pathLen));
    EXPECT_TRUE(inter->keyUsage(&ku) && ku == 0x10C);  // digitalSignature|keyCertSign|cRLSign
    EXPECT_TRUE(p256->hasExtKeyUsage("1.3.6.1.5.5.7.3.9"));

    DerInput urls[4], aki, ski, value;
    ASSERT_EQ(1, leaf->ocspUrls(urls, 4));
    EXPECT_EQ("http://ocsp.example.test/", text(urls[0]));
    ASSERT_EQ(3, leaf->crlUrls(urls, 4));
    EXPECT_EQ("http://crl2.example.test/b.crl", text(urls[2]));
    EXPECT_EQ(3, leaf->crlUrls(urls, 1));  // the count, even when fewer views fit
    EXPECT_EQ(0, p256->crlUrls(urls, 4));
    ASSERT_TRUE(p256->authorityKeyId(&aki) && inter->subjectKeyId(&ski));
    EXPECT_TRUE(aki.equals(ski));
    EXPECT_TRUE(leaf->findExtension("1.3.6.1.4.1.55555.1", &value, &critical) && critical);
    EXPECT_TRUE(leaf->findExtension("2.5.29.17", &value, &critical) && !critical);
    EXPECT_TRUE(v1->versionNumber() == 1 && v1->extensionsDer().empty());

    LogNull log;
    XString xml;
    ASSERT_TRUE(leaf->getXml(xml, log));
    EXPECT_NE(std::string::npos, text(xml).find("<oid>2.5.4.3</oid><utf8>www.example.test</utf8>"));
}

TEST(OrvaneX509Signature, EachCertificateVerifiesUnderItsIssuerOnly) {
    for (const CertFixture& c : kCerts) {
        SCOPED_TRACE(c.name);
        auto cert = load(c.name);
        LogTree log, bad;
        EXPECT_TRUE(cert->verifyCertSignature(c.issuer ? load(c.issuer).get() : nullptr, log))
            << log.text();
        auto other = load(strcmp(c.name, "leaf_p256.der") ? "leaf_p256.der" : "leaf_p384.der");
        EXPECT_FALSE(cert->verifyCertSignature(other.get(), bad));
        EXPECT_TRUE(bad.hasErrors());
    }
}

namespace {

// Offsets of every tag byte (the length follows it), found by walking the
// constructed elements.
void collectHeaders(DerInput in, size_t base, std::vector<size_t>& out, int depth) {
    DerParser p(in, true);
    while (p.hasMore()) {
        size_t at = p.position();
        DerElement e;
        if (!p.readAny(&e)) return;
        out.push_back(base + at);
        if (e.constructed && depth < 20)
            collectHeaders(e.contents, base + static_cast<size_t>(e.contents.data() - in.data()),
                           out, depth + 1);
    }
}

}  // namespace

TEST(OrvaneX509Malformed, TruncatedFlippedAndInflatedInputFailsCleanly) {
    for (const char* name : {"leaf_rsa.der", "leaf_ed25519.der", "chain.p7b", "chain_ber.p7b"}) {
        SCOPED_TRACE(name);
        std::vector<unsigned char> der = fixtureBytes(name);
        for (size_t n = 0; n < der.size(); ++n) {
            // A copy of exactly n bytes, so ASan sees any read past them.
            std::vector<unsigned char> cut(der.begin(), der.begin() + static_cast<long>(n));
            OrvaneX509 x;
            LogTree log;
            ASSERT_FALSE(loadBytes(x, cut, log)) << "loaded from " << n << " bytes";
            ASSERT_TRUE(log.hasErrors() && !x.isLoaded()) << n;
        }
        std::vector<size_t> headers;
        collectHeaders(DerInput(der.data(), der.size()), 0, headers, 0);
        ASSERT_GT(headers.size(), 40u);
        size_t loadedAnyway = 0;
        for (size_t at : headers) {
            for (int variant = 0; variant < 4; ++variant) {
                std::vector<unsigned char> bad = der;
                if (variant == 0) bad[at] ^= 0x20;  // constructed <-> primitive
                if (variant == 1) bad[at] ^= 0x0f;  // another tag number
                if (variant == 2) ++bad[at + 1];
                if (variant == 3) bad[at + 1] = 0x84;  // a four-byte length
                OrvaneX509 x;
                LogTree log;
                XString s;
                StringBuffer sb;
                DataBuffer d;
                // Damage inside a value the skeleton does not read loads, and
                // every question must still be safe.
                if (loadBytes(x, bad, log)) {
                    ++loadedAnyway;
                    askEverything(x, s, sb, d);
                } else {
                    ASSERT_TRUE(log.hasErrors()) << at << " variant " << variant;
                }
            }
        }
        EXPECT_LT(loadedAnyway, headers.size() * 4);
    }
}

TEST(OrvaneX509Malformed, RefusalsSayWhat) {
    OrvaneX509 x;
    LogTree log;
    // Data inside the certificate after its signature; a ContentInfo of type data.
    EXPECT_FALSE(
        loadBytes(x, {0x30, 0x09, 0x30, 0x00, 0x30, 0x00, 0x03, 0x01, 0x00, 0x05, 0x00}, log));
    EXPECT_FALSE(loadBytes(x, {0x30, 0x12, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d,
                               0x01, 0x07, 0x01, 0xa0, 0x05, 0x04, 0x03, 'a',  'b',  'c'},
                           log));
    EXPECT_TRUE(log.hasError("Unexpected data after the certificate's signature.")) << log.text();
    EXPECT_TRUE(log.hasError("PKCS7 content is not signedData.")) << log.text();
}

TEST(OrvaneX509Load, TrailingBytesReloadAndFailureEmpties) {
    std::vector<unsigned char> a = fixtureBytes("root.der"), b = fixtureBytes("leaf_p256.der");
    std::vector<unsigned char> padded = a;
    padded.insert(padded.end(), {'\r', '\n', 0, 0});
    OrvaneX509 x;
    LogNull log;
    ASSERT_TRUE(loadBytes(x, padded, log));
    EXPECT_TRUE(x.certDer().equals(a.data(), a.size()));  // trailing bytes are not kept
    XString t1, t2, s;
    ASSERT_TRUE(x.get_Sha1ThumbprintX(t1, log));  // fills the cache
    ASSERT_TRUE(loadBytes(x, b, log));
    ASSERT_TRUE(x.get_Sha1ThumbprintX(t2, log));
    EXPECT_NE(text(t1), text(t2));

    ASSERT_FALSE(x.loadX509DerAlt(b.data(), 10, nullptr, log));
    StringBuffer sb;
    DataBuffer d;
    EXPECT_EQ(0, askEverything(x, s, sb, d));
    EXPECT_TRUE(s.isEmpty() && sb.isEmpty() && d.getSize() == 0 && x.certDer().empty());
}

TEST(OrvaneX509Holder, OwnsExactlyOneCertificate) {
    OrvaneX509Holder h;
    ASSERT_NE(nullptr, h.getX509());
    OrvaneX509* a = new OrvaneX509();
    h.setX509(a);  // the first one is deleted (the leak checker watches)
    h.setX509(a);  // setting the held one again must not delete it
    EXPECT_EQ(a, h.getX509());
    h.setX509(nullptr);
    EXPECT_EQ(nullptr, h.getX509());
    h.setX509(new OrvaneX509());
}
