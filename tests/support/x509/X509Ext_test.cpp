// Extension values built by hand: the shapes real CAs use rarely or get wrong.
#include "support/x509/X509Ext.h"

#include <gtest/gtest.h>

#include "X509Der.h"
#include "support/base/StringBuffer.h"

using namespace x509test;

namespace {

Bytes oidBytes(const char* dotted) {
    Bytes o = oid(dotted);
    return Bytes(o.begin() + 2, o.end());
}

std::string text(const char* extOid, const Bytes& value, bool* ok) {
    StringBuffer out;
    Bytes id = oidBytes(extOid);
    *ok = X509ExtText::appendText(in(id), in(value), out);
    return out.getString();
}

Bytes uri(const std::string& s) {
    return tlv(0x86, str(s));
}

}  // namespace

TEST(X509Ext, TextOfOddValues) {
    struct Case {
        const char* name;
        const char* extOid;
        Bytes value;
        const char* want;  // null: false
    } cases[] = {
        {"bc empty", "2.5.29.19", tlv(0x30, {}), "CA:FALSE"},
        {"bc pathlen without ca", "2.5.29.19", tlv(0x30, tlv(0x02, {0x00})), "CA:FALSE, pathlen:0"},
        {"bc ca pathlen 3", "2.5.29.19", tlv(0x30, cat({tlv(0x01, {0xff}), tlv(0x02, {0x03})})),
         "CA:TRUE, pathlen:3"},
        {"bc negative pathlen", "2.5.29.19", tlv(0x30, tlv(0x02, {0xff})), nullptr},
        {"bc trailing element", "2.5.29.19", tlv(0x30, cat({tlv(0x01, {0xff}), tlv(0x05, {})})),
         nullptr},
        {"ku decipherOnly", "2.5.29.15", tlv(0x03, {0x07, 0x80, 0x80}),
         "digitalSignature,decipherOnly"},
        {"ku none set", "2.5.29.15", tlv(0x03, {0x00}), ""},
        {"ku not a bit string", "2.5.29.15", tlv(0x04, {0x80}), nullptr},
        {"eku empty", "2.5.29.37", tlv(0x30, {}), ""},
        {"eku holding a non-oid", "2.5.29.37", tlv(0x30, tlv(0x0c, str("x"))), nullptr},
        {"aki only issuer and serial", "2.5.29.35",
         tlv(0x30, cat({tlv(0xa1, {}), tlv(0x82, {0x01})})), nullptr},
        {"aki key id", "2.5.29.35", tlv(0x30, tlv(0x80, {0x01, 0xab})), "01AB"},
        {"ski wrong type", "2.5.29.14", tlv(0x03, {0x00, 0x01}), nullptr},
        {"crl dp relative name only", "2.5.29.31",
         tlv(0x30, tlv(0x30, tlv(0xa0, tlv(0xa1, atv("2.5.4.3", tlv(0x0c, str("crl"))))))), ""},
        {"crl dp issuer only", "2.5.29.31", tlv(0x30, tlv(0x30, tlv(0xa2, tlv(0xa4, {})))), ""},
        {"crl dp dns and uri", "2.5.29.31",
         tlv(0x30, tlv(0x30, tlv(0xa0, tlv(0xa0, cat({tlv(0x82, str("h")), uri("http://c/")}))))),
         "DNS:h, URI:http://c/"},
        {"aia unknown method", "1.3.6.1.5.5.7.1.1",
         tlv(0x30, tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.5"), uri("http://r/")}))),
         "1.3.6.1.5.5.7.48.5 - URI:http://r/"},
        {"aia location not a general name", "1.3.6.1.5.5.7.1.1",
         tlv(0x30, tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), tlv(0x16, str("x"))}))), nullptr},
        {"san all kinds", "2.5.29.17",
         tlv(0x30, cat({tlv(0x88, oidBytes("1.2.3")), tlv(0x87, {10, 0, 0, 1, 255, 0, 0, 0}),
                        tlv(0xa4, name({rdn({atv("2.5.4.3", tlv(0x0c, str("D")))})})),
                        tlv(0xa0, cat({oid("1.3.6.1.4.1.311.20.2.3"),
                                       tlv(0xa0, tlv(0x0c, str("u@x")))}))})),
         "RID:1.2.3, IP:0A000001FF000000, DirName:CN=D, othername:1.3.6.1.4.1.311.20.2.3"},
        {"san universal tag inside", "2.5.29.17", tlv(0x30, tlv(0x16, str("x"))), nullptr},
        {"private string", "1.3.6.1.4.1.55555.9", tlv(0x16, str("note")), "note"},
        {"private integer", "1.3.6.1.4.1.55555.9", tlv(0x02, {0x01}), nullptr},
        {"private trailing bytes", "1.3.6.1.4.1.55555.9", cat({tlv(0x16, str("a")), {0x00}}),
         nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        bool ok = false;
        std::string got = text(c.extOid, c.value, &ok);
        EXPECT_EQ(c.want != nullptr, ok);
        EXPECT_EQ(c.want ? c.want : "", got);  // nothing appended on failure
    }
}

TEST(X509Ext, UriListsAndRfc822) {
    Bytes aia = tlv(0x30, cat({tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.2"), uri("http://ca/")})),
                               tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), tlv(0x82, str("dns"))})),
                               tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), uri("http://o1/")})),
                               tlv(0x30, cat({oid("1.3.6.1.5.5.7.48.1"), uri("http://o2/")}))}));
    DerInput v[4];
    ASSERT_EQ(2, X509ExtRead::ocspUris(in(aia), v, 4));
    EXPECT_TRUE(v[0].equals(reinterpret_cast<const unsigned char*>("http://o1/"), 10));
    EXPECT_TRUE(v[1].equals(reinterpret_cast<const unsigned char*>("http://o2/"), 10));
    EXPECT_EQ(-1, X509ExtRead::ocspUris(in(tlv(0x30, tlv(0x30, oid("1.3.6.1.5.5.7.48.1")))), v, 4));

    Bytes dp =
        tlv(0x30, cat({tlv(0x30, tlv(0xa0, tlv(0xa1, {}))),
                       tlv(0x30, tlv(0xa0, tlv(0xa0, cat({uri("ldap://a"), uri("http://b")})))),
                       tlv(0x30, {})}));
    ASSERT_EQ(2, X509ExtRead::crlUris(in(dp), v, 4));
    EXPECT_TRUE(v[1].equals(reinterpret_cast<const unsigned char*>("http://b"), 8));
    EXPECT_EQ(-1, X509ExtRead::crlUris(in(tlv(0x30, tlv(0x04, {}))), v, 4));

    DerInput mail;
    Bytes san = tlv(0x30, cat({tlv(0x82, str("d")), tlv(0x81, str("a@b")), tlv(0x81, str("c@d"))}));
    ASSERT_TRUE(X509ExtRead::firstRfc822(in(san), &mail));
    EXPECT_TRUE(mail.equals(reinterpret_cast<const unsigned char*>("a@b"), 3));
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

TEST(X509Ext, IpAddresses) {
    struct Case {
        Bytes ip;
        const char* want;
    } cases[] = {
        {{192, 0, 2, 1}, "192.0.2.1"},
        {{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, "2001:db8::1"},
        {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1}, "::ffff:192.0.2.1"},
        {{1, 2, 3}, "010203"},
        {{}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.want);
        StringBuffer out;
        X509ExtText::appendIp(in(c.ip), out);
        EXPECT_EQ(std::string(c.want), out.getString());
    }
}
