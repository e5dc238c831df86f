// Extension values built by hand: the shapes real CAs use rarely or get wrong.
#include "support/x509/X509Ext.h"

#include <gtest/gtest.h>

#include "X509TestUtil.h"
#include "support/base/StringBuffer.h"

using namespace x509test;

namespace {

Bytes oidBytes(const char* dotted) {
    Bytes o = oid(dotted);
    return Bytes(o.begin() + 2, o.end());
}

// The text of an extension value; "(false)" when refused, which must append nothing.
std::string text(const char* extOid, const Bytes& value) {
    StringBuffer out;
    Bytes id = oidBytes(extOid);
    if (X509ExtText::appendText(in(id), in(value), out)) return out.getString();
    return out.isEmpty() ? "(false)" : "(false, appended)";
}

}  // namespace

TEST(X509Ext, TextOfOddValues) {
    struct Case {
        const char* name;
        const char* extOid;
        Bytes value;
        const char* want;
    } cases[] = {
        {"bc empty", "2.5.29.19", tlv(0x30, {}), "CA:FALSE"},
        {"bc pathlen without ca", "2.5.29.19", tlv(0x30, tlv(0x02, {0x00})), "CA:FALSE, pathlen:0"},
        {"bc negative pathlen", "2.5.29.19", tlv(0x30, tlv(0x02, {0xff})), "(false)"},
        {"ku decipherOnly", "2.5.29.15", tlv(0x03, {0x07, 0x80, 0x80}),
         "digitalSignature,decipherOnly"},
        {"aki only issuer and serial", "2.5.29.35",
         tlv(0x30, cat({tlv(0xa1, {}), tlv(0x82, {0x01})})), "(false)"},
        {"crl dp relative name only", "2.5.29.31",
         tlv(0x30, tlv(0x30, tlv(0xa0, tlv(0xa1, atv("2.5.4.3", tlv(0x0c, str("crl"))))))), ""},
        {"crl dp dns and uri", "2.5.29.31",
         tlv(0x30, tlv(0x30, tlv(0xa0, tlv(0xa0, cat({tlv(0x82, str("h")),
                                                      tlv(0x86, str("http://c/"))}))))),
         "DNS:h, URI:http://c/"},
        {"aia unknown method", "1.3.6.1.5.5.7.1.1",
         tlv(0x30, tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.5"), tlv(0x86, str("http://r/"))}))),
         "1.3.6.1.5.5.7.48.5 - URI:http://r/"},
        {"san all kinds", "2.5.29.17",
         tlv(0x30, cat({tlv(0x88, oidBytes("1.2.3")), tlv(0x87, {10, 0, 0, 1, 255, 0, 0, 0}),
                        tlv(0x87, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1}),
                        tlv(0xa4, name({rdn({atv("2.5.4.3", tlv(0x0c, str("D")))})})),
                        tlv(0xa0, cat({oid("1.3.6.1.4.1.311.20.2.3"),
                                       tlv(0xa0, tlv(0x0c, str("u@x")))}))})),
         "RID:1.2.3, IP:0A000001FF000000, IP:::ffff:192.0.2.1, DirName:CN=D, "
         "othername:1.3.6.1.4.1.311.20.2.3"},
        {"san universal tag inside", "2.5.29.17", tlv(0x30, tlv(0x16, str("x"))), "(false)"},
        {"private integer", "1.3.6.1.4.1.55555.9", tlv(0x02, {0x01}), "(false)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.want, text(c.extOid, c.value));
    }
}

TEST(X509Ext, UriListsAndRfc822) {
    // Other access methods, non-URI names and relative names are passed over.
    Bytes aia =
        tlv(0x30, cat({tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.2"), tlv(0x86, str("http://ca/"))})),
                       tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), tlv(0x82, str("dns"))})),
                       tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), tlv(0x86, str("http://o1/"))}))}));
    Bytes dp = tlv(0x30, cat({tlv(0x30, tlv(0xa0, tlv(0xa1, {}))),
                              tlv(0x30, tlv(0xa0, tlv(0xa0, cat({tlv(0x86, str("ldap://a")),
                                                                 tlv(0x86, str("http://b"))})))),
                              tlv(0x30, {})}));
    DerInput v[4];
    ASSERT_EQ(1, X509ExtRead::ocspUris(in(aia), v, 4));
    EXPECT_TRUE(v[0].equals(in(str("http://o1/"))));
    ASSERT_EQ(2, X509ExtRead::crlUris(in(dp), v, 4));
    EXPECT_TRUE(v[1].equals(in(str("http://b"))));
    EXPECT_EQ(-1, X509ExtRead::ocspUris(in(tlv(0x30, tlv(0x30, oid("1.3.6.1.5.5.7.48.1")))), v, 4));
    EXPECT_EQ(-1, X509ExtRead::crlUris(in(tlv(0x30, tlv(0x04, {}))), v, 4));

    Bytes san = tlv(0x30, cat({tlv(0x82, str("d")), tlv(0x81, str("a@b")), tlv(0x81, str("c@d"))}));
    DerInput mail;
    ASSERT_TRUE(X509ExtRead::firstRfc822(in(san), &mail));
    EXPECT_TRUE(mail.equals(in(str("a@b"))));
    EXPECT_FALSE(X509ExtRead::firstRfc822(in(tlv(0x30, tlv(0x82, str("d")))), &mail));
}

TEST(X509Ext, SanXmlEscapesAndKeepsOtherNames) {
    Bytes san = tlv(0x30, cat({tlv(0x82, str("a&b<c>")), tlv(0x81, str("q'\"@x")),
                               tlv(0xa0, cat({oid("1.2.3"), tlv(0xa0, tlv(0x0c, str("u")))})),
                               tlv(0xa4, name({rdn({atv("2.5.4.10", tlv(0x0c, str("A&B")))})})),
                               tlv(0x88, oidBytes("1.2.840"))}));
    StringBuffer xml;
    ASSERT_TRUE(X509ExtText::appendSanXml(in(san), xml));
    EXPECT_EQ(
        "<subjectAltName><dNSName>a&amp;b&lt;c&gt;</dNSName><rfc822Name>q&apos;&quot;@x</"
        "rfc822Name>"
        "<otherName oid=\"1.2.3\">A0030C0175</otherName><directoryName>O=A&amp;B</directoryName>"
        "<registeredID>1.2.840</registeredID></subjectAltName>",
        std::string(xml.getString()));
    StringBuffer bad("kept");
    EXPECT_FALSE(X509ExtText::appendSanXml(in(tlv(0x30, tlv(0x04, {}))), bad));
    EXPECT_EQ(std::string("kept"), bad.getString());
}

// The one Extension reader every Extensions list goes through (certificates,
// CRLs, OCSP): a refused element leaves the cursor on it.
TEST(X509Ext, ExtensionReader) {
    const Bytes ku = oid("2.5.29.15"), value = tlv(0x04, tlv(0x03, {0x07, 0x80}));
    struct Case {
        const char* name;
        Bytes ext;
        bool ok;
        bool critical;
    } cases[] = {
        {"critical absent", tlv(0x30, cat({ku, value})), true, false},
        {"critical true", tlv(0x30, cat({ku, tlv(0x01, {0xff}), value})), true, true},
        {"value not an octet string", tlv(0x30, cat({ku, tlv(0x03, {0x00})})), false, false},
        {"critical after the value", tlv(0x30, cat({ku, value, tlv(0x01, {0xff})})), false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DerParser p(in(c.ext));
        X509Extension e;
        ASSERT_EQ(c.ok, X509ExtRead::extension(p, &e));
        EXPECT_EQ(c.ok ? c.ext.size() : 0u, p.position());
        if (!c.ok) continue;
        EXPECT_EQ(c.critical, e.critical);
        EXPECT_TRUE(e.oid.equals(in(oidBytes("2.5.29.15"))) &&
                    e.value.equals(in(tlv(0x03, {0x07, 0x80}))));
    }
}
