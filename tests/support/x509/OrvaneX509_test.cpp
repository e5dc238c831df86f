// The certificate parser on the fixtures of tests/data/x509 (made by make.sh
// there): the awkward names, serials and dates against the openssl command line,
// signatures, and damaged input. Thumbprints, keys and ordinary names are
// compared with openssl through the certificate object's tests.
#include "support/x509/OrvaneX509.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "X509TestUtil.h"
#include "support/asn1/Asn1Node.h"
#include "support/asn1/Asn1Xml.h"
#include "support/base/RefPtr.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"
#include "support/x509/X509KeyInfo.h"
#include "support/x509/X509Name.h"
#include "support/xml/ClsXml.h"

using namespace x509test;

namespace {

// Asks every query once and counts the answers (true, a count above 0, or output
// written). On certificates loaded from damaged bytes this is where ASan sees reads
// past the end.
int askEverything(const OrvaneX509& x) {
    LogNull log;
    XString s;
    StringBuffer sb;
    DataBuffer d;
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
    n += static_cast<bool>(RefPtr<_ovAsn1>::adopt(x.getDnAsn(false, log)));
    x.getCertDer(d);
    return n + !s.isEmpty() + !sb.isEmpty() + (d.getSize() > 0);
}

// Every certificate fixture, the one that signed it, and where our answer
// differs from what openssl prints, with the reason (null: it does not).
struct Fixture {
    const char* file;
    const char* issuer = nullptr;  // null: self-signed
    // Our serial when openssl prints its value rather than its octets.
    const char* serial = nullptr;
    const char* serialWhy = nullptr;
    // Set: the names are not compared with openssl in that style, and why.
    const char* rfc4514Why = nullptr;
    const char* everydayWhy = nullptr;
};

const char* const kRdnOrder = "openssl reverses the attributes inside a multi-valued RDN";

const Fixture kFixtures[] = {
    {"root.der"},
    {"inter.der", "root.der"},
    {"leaf_rsa.der", "root.der"},
    {"leaf_pss.der", "root.der"},
    {"leaf_p256.der", "inter.der"},
    {"leaf_p384.der", "inter.der"},
    {"leaf_p521.der", "inter.der"},
    {"leaf_ed25519.der", "inter.der"},
    {"leaf_ed448.der", "inter.der"},
    {"leaf_dsa.der", "inter.der"},
    {"name_bmp.der"},
    {"name_utf8.der"},
    {"name_multi.der", nullptr, nullptr, nullptr, kRdnOrder, kRdnOrder},
    {"name_escaped.der", nullptr, nullptr, nullptr, nullptr,
     "the everyday style quotes special characters where openssl escapes them"},
    {"time_2060.der"},  // a GeneralizedTime after 2049
    {"expired.der"},    // notAfter before notBefore
    {"serial_neg.der", nullptr, "EDCC", "-0x1234 in two's complement; openssl prints the value"},
    {"serial_20.der"},  // 20 bytes
    {"serial_00ff.der", nullptr, "00FF", "the sign byte stays; openssl prints the value"},
    {"v1.der"},
};

}  // namespace

// Per fixture: serial, validity and both name styles as openssl prints them;
// the name read back from its XML (as the CRL reader walks it, last RDN first,
// through appendToDN) is the DN text, so CRL and certificate issuers compare;
// key type and size as the key container reports them; the object stays within
// twice its DER; one object reloads every fixture in turn, with a file's line
// break and padding after it, keeping nothing from the last; the signature
// verifies under its issuer and no other key.
TEST(OrvaneX509Fixtures, EachFixtureAgainstOpensslAndItself) {
    OrvaneX509 reloaded;
    for (const Fixture& f : kFixtures) {
        SCOPED_TRACE(f.file);
        auto x = load(f.file);
        LogTree log, bad;
        XString serial;
        ASSERT_TRUE(x->get_SerialNumber(serial, log));
        EXPECT_EQ(f.serial ? f.serial : x509Field(f.file, "-serial"), serial.getUtf8())
            << (f.serialWhy ? f.serialWhy : "as openssl prints it");
        for (bool from : {true, false}) {
            OrvaneSysTime t;
            ASSERT_TRUE(x->get_Valid_To_or_From_UTC(from, t, log));
            char buf[40];  // openssl's "2026-11-22 05:00:07Z"
            snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02dZ", t.m_year, t.m_month,
                     t.m_day, t.m_hour, t.m_minute, t.m_second);
            EXPECT_EQ(x509Field(f.file, std::string(from ? "-startdate" : "-enddate") +
                                            " -dateopt iso_8601"),
                      buf);
        }
        for (bool subject : {true, false}) {
            const std::string opts =
                std::string(subject ? "-subject" : "-issuer") + " -nameopt RFC2253,-esc_msb";
            XString rfc, everyday;
            ASSERT_TRUE(x->getDN(subject, true, rfc, log, X509Name::kStyleRfc4514) &&
                        x->getDN(subject, true, everyday, log, X509Name::kStyleEveryday));
            if (!f.rfc4514Why) EXPECT_EQ(x509Field(f.file, opts), rfc.getUtf8());
            if (!f.everydayWhy) {
                EXPECT_EQ(x509Field(f.file, opts + ",sep_comma_plus_space"), everyday.getUtf8());
            }
        }

        DataBuffer der;
        StringBuffer xml;
        der.append(x->subjectDer().data(), static_cast<unsigned>(x->subjectDer().size()));
        auto doc = RefPtr<ClsXml>::adopt(ClsXml::createNewCls());  // comes with a reference
        ASSERT_TRUE(doc && Asn1Xml::derToXml(der, true, true, xml, nullptr, log) &&
                    doc->loadXml(xml, true, log));
        for (int style : {X509Name::kStyleEveryday, X509Name::kStyleRfc4514}) {
            for (bool withTags : {true, false}) {
                XString fromXml, fromDer;
                ASSERT_TRUE(doc->LastChild2());
                do {
                    ASSERT_TRUE(OrvaneX509::appendToDN(*doc, withTags, style, fromXml, log));
                    ASSERT_TRUE(doc->tagEquals("set"));  // the cursor came back
                } while (doc->PreviousSibling2());
                ASSERT_TRUE(doc->GetParent2() && x->getDN(true, withTags, fromDer, log, style));
                EXPECT_STREQ(fromDer.getUtf8(), fromXml.getUtf8());
            }
        }

        int type = -1;
        unsigned bits = 0;
        DataBuffer spki;
        _ovPublicKey key;
        ASSERT_TRUE(x->keyTypeAndBits(&type, &bits) && x->get_PublicKey(spki, log) &&
                    key.loadAnyDer(spki, log));
        EXPECT_TRUE(key.keyTypeCode() == type && key.getBitLength() == bits) << type << " " << bits;
        EXPECT_LE(x->heapUsage(), 2 * x->getCertDerSize());

        std::vector<unsigned char> padded = fixtureBytes(f.file);
        padded.insert(padded.end(), {'\r', '\n', 0, 0});
        XString mine, fresh;
        ASSERT_TRUE(loadBytes(reloaded, padded, log) && reloaded.get_Sha1ThumbprintX(mine, log) &&
                    x->get_Sha1ThumbprintX(fresh, log));
        EXPECT_TRUE(reloaded.certDer().equals(x->certDer()));
        EXPECT_STREQ(fresh.getUtf8(), mine.getUtf8());

        EXPECT_TRUE(x->verifyCertSignature(f.issuer ? load(f.issuer).get() : nullptr, log));
        auto other =
            load(std::string(f.file) == "leaf_p256.der" ? "leaf_p384.der" : "leaf_p256.der");
        EXPECT_TRUE(!x->verifyCertSignature(other.get(), bad) && bad.hasErrors());
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

// Key type and size from SubjectPublicKeyInfo shapes built by hand: explicit
// curves, compressed points, inherited DSA parameters (the usual shapes are
// compared with the key container on every fixture above).
TEST(X509KeyInfo, SizesFromSpkiShapes) {
    auto spki = [](const char* alg, const Bytes& params, const Bytes& key) {
        return tlv(0x30, cat({tlv(0x30, cat({oid(alg), params})), tlv(0x03, cat({{0x00}, key}))}));
    };
    struct Case {
        const char* name;
        Bytes spki;
        int type;
        unsigned bits;
    } cases[] = {
        {"rsa 9-bit modulus with sign byte",
         spki("1.2.840.113549.1.1.1", tlv(0x05, {}),
              tlv(0x30, cat({tlv(0x02, {0x00, 0x01, 0xff}), tlv(0x02, {0x03})}))),
         1, 9},
        {"ec explicit curve, 65-byte point",
         spki("1.2.840.10045.2.1", tlv(0x30, {}), cat({{0x04}, Bytes(64, 0x11)})), 3, 256},
        {"ec compressed point on a known curve",
         spki("1.2.840.10045.2.1", oid("1.3.132.0.34"), cat({{0x02}, Bytes(48, 0x11)})), 3, 384},
        {"dsa without parameters", spki("1.2.840.10040.4.1", {}, {0x02, 0x01, 0x05}), 2, 0},
        {"unknown algorithm", spki("1.3.101.110", {}, {0x01}), 0, 0},
    };
    int type = -1;
    unsigned bits = 99;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(X509KeyInfo::typeAndBits(in(c.spki), &type, &bits));
        EXPECT_EQ(c.type, type);
        EXPECT_EQ(c.bits, bits);
    }
    EXPECT_FALSE(X509KeyInfo::typeAndBits(in(tlv(0x30, tlv(0x03, {0x00}))), &type, &bits));
    EXPECT_TRUE(type == 0 && bits == 0);  // cleared on failure
}

// The readings other code (chain building, revocation, the stores) takes from a
// certificate, and the text of the extensions openssl writes.
TEST(OrvaneX509Extensions, ReadFromRealCertificates) {
    auto leaf = load("leaf_rsa.der"), inter = load("inter.der");
    auto p256 = load("leaf_p256.der"), v1 = load("v1.der");
    LogTree log;
    const char* const texts[][2] = {
        {"2.5.29.17",
         "DNS:www.example.test, DNS:example.test, email:admin@example.test, IP:192.0.2.10, "
         "IP:2001:db8::1, URI:https://example.test/"},
        {"1.3.6.1.5.5.7.1.1",
         "OCSP - URI:http://ocsp.example.test/, CA Issuers - URI:http://ca.example.test/root.cer"},
        {"1.3.6.1.4.1.55555.1", "Orvane private"},
    };
    for (const auto& t : texts) {
        StringBuffer out("x");  // appends
        EXPECT_TRUE(leaf->getExtensionTextByOid(t[0], out, log));
        EXPECT_EQ(std::string("x") + t[1], out.getString());
    }
    StringBuffer none("x");
    EXPECT_FALSE(v1->getExtensionTextByOid("2.5.29.15", none, log) || none.getSize() != 1);

    bool ca = false, critical = true;
    int pathLen = 5;
    unsigned ku = 0;
    EXPECT_TRUE(inter->basicConstraints(&ca, &pathLen) && ca && pathLen == 0);
    EXPECT_TRUE(leaf->basicConstraints(&ca, &pathLen) && !ca && pathLen == -1);
    EXPECT_FALSE(v1->basicConstraints(&ca, &pathLen));
    EXPECT_TRUE(inter->keyUsage(&ku) && ku == 0x10C);  // digitalSignature|keyCertSign|cRLSign
    EXPECT_TRUE(p256->hasExtKeyUsage("1.3.6.1.5.5.7.3.9"));

    DerInput urls[4], aki, ski, value;
    EXPECT_EQ(1, leaf->ocspUrls(urls, 4));
    EXPECT_EQ(3, leaf->crlUrls(urls, 1));  // the count, even when fewer views fit
    EXPECT_EQ(0, p256->crlUrls(urls, 4));
    EXPECT_TRUE(p256->authorityKeyId(&aki) && inter->subjectKeyId(&ski) && aki.equals(ski));
    EXPECT_TRUE(leaf->findExtension("1.3.6.1.4.1.55555.1", &value, &critical) && critical);
    EXPECT_TRUE(leaf->findExtension("2.5.29.17", &value, &critical) && !critical);
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

// A failed load leaves the object empty, whatever it held: every question then
// answers nothing.
TEST(OrvaneX509Malformed, TruncatedFlippedAndInflatedInputFailsCleanly) {
    for (const char* name : {"leaf_rsa.der", "leaf_ed25519.der", "chain.p7b", "chain_ber.p7b"}) {
        SCOPED_TRACE(name);
        std::vector<unsigned char> der = fixtureBytes(name);
        OrvaneX509 x;
        for (size_t n = 0; n < der.size(); ++n) {
            // A copy of exactly n bytes, so ASan sees any read past them.
            std::vector<unsigned char> cut(der.begin(), der.begin() + static_cast<long>(n));
            LogTree log;
            ASSERT_TRUE(loadBytes(x, der, log));
            ASSERT_FALSE(loadBytes(x, cut, log)) << "loaded from " << n << " bytes";
            ASSERT_TRUE(log.hasErrors() && !x.isLoaded()) << n;
            ASSERT_EQ(0, askEverything(x)) << n;
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
                OrvaneX509 y;
                LogTree log;
                // Damage inside a value the skeleton does not read loads, and
                // every question must still be safe.
                if (loadBytes(y, bad, log)) {
                    ++loadedAnyway;
                    askEverything(y);
                } else {
                    ASSERT_TRUE(log.hasErrors()) << at << " variant " << variant;
                }
            }
        }
        EXPECT_LT(loadedAnyway, headers.size() * 4);
    }

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

TEST(OrvaneX509Holder, OwnsExactlyOneCertificate) {
    OrvaneX509Holder h;
    ASSERT_NE(nullptr, h.getX509());
    OrvaneX509* a = new OrvaneX509();
    h.setX509(a);  // the first one is deleted (the leak checker watches)
    h.setX509(a);  // setting the held one again must not delete it
    EXPECT_EQ(a, h.getX509());
    h.setX509(new OrvaneX509());  // deletes a; the holder deletes this one
}
