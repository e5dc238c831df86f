// Names built by hand: string types, escaping and quoting, malformed names.
#include "support/x509/X509Name.h"

#include <gtest/gtest.h>

#include "X509TestUtil.h"
#include "support/base/StringBuffer.h"

using namespace x509test;

TEST(X509Name, AttributeTableOidsMatchTheirDottedText) {
    size_t n = 0;
    const X509AttrType* types = X509Name::allTypes(&n);
    ASSERT_GT(n, 20u);
    for (size_t i = 0; i < n; ++i) {
        SCOPED_TRACE(types[i].dotted);
        unsigned char buf[64];
        size_t len = 0;
        ASSERT_TRUE(der::textToOid(types[i].dotted, buf, sizeof buf, &len));
        EXPECT_TRUE(types[i].bytes().equals(buf, len));
        EXPECT_EQ(&types[i], X509Name::typeByOid(DerInput(buf, len)));
        EXPECT_EQ(&types[i], X509Name::typeByName(types[i].tag));
        // Lookups take the first match, ignoring case: a name that another type
        // already uses would land on that type.
        EXPECT_EQ(&types[i], X509Name::typeByName(types[i].longName));
    }
}

TEST(X509Name, StringValuesDecodeToUtf8) {
    const std::string bad = "\xEF\xBF\xBD";  // U+FFFD
    struct Case {
        const char* name;
        unsigned char tag;
        Bytes bytes;
        std::string want;  // empty: not a string
    } cases[] = {
        {"utf8 that is not", 0x0c, {0xC3, 0x28}, "\xC3\x83("},
        {"overlong utf8 is latin-1", 0x0c, {0xC0, 0xAF}, "\xC3\x80\xC2\xAF"},
        {"printable holding latin-1", 0x13, {'c', 0xE9}, "c\xC3\xA9"},
        {"teletex is latin-1", 0x14, {0xC3, 0xA9}, "\xC3\x83\xC2\xA9"},
        {"bmp surrogate pair", 0x1e, {0x00, 'A', 0xD8, 0x3D, 0xDE, 0x00}, "A\xF0\x9F\x98\x80"},
        {"bmp lone surrogate", 0x1e, {0xD8, 0x00, 0x00, 'A'}, bad + "A"},
        {"bmp odd length", 0x1e, {0x00, 'A', 0x00}, ""},
        {"universal", 0x1c, {0x00, 0x01, 0xF6, 0x00}, "\xF0\x9F\x98\x80"},
        {"nul cannot cut the text", 0x16, {'a', 0x00, 'b'}, "a" + bad + "b"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer out;
        EXPECT_EQ(!c.want.empty(), X509Name::appendStringValue(c.tag, in(c.bytes), out));
        EXPECT_EQ(c.want, out.getString());
    }
}

TEST(X509Name, DnTextQuotingEscapingAndMultiValuedRdns) {
    auto cn = [](const std::string& v) { return name({rdn({atv("2.5.4.3", tlv(0x0c, str(v)))})}); };
    Bytes multi = name({rdn({atv("0.9.2342.19200300.100.1.25", tlv(0x16, str("test")))}),
                        rdn({atv("2.5.4.10", tlv(0x0c, str("O")))}),
                        rdn({atv("2.5.4.3", tlv(0x0c, str("A"))),
                             atv("0.9.2342.19200300.100.1.1", tlv(0x0c, str("j")))})});
    struct Case {
        Bytes dn;
        bool withTags;
        bool encodingOrder;
        const char* everyday;  // style 0
        const char* rfc4514;   // style 1
    } cases[] = {
        {cn("#a <b> = c+d \"e\" f\\g;h, i"), true, false, "CN=\"#a <b> = c+d \"\"e\"\" f\\g;h, i\"",
         "CN=\\#a \\<b\\> = c\\+d \\\"e\\\" f\\\\g\\;h\\, i"},
        {cn(" a b "), true, false, "CN=\" a b \"", "CN=\\ a b\\ "},
        {cn("a\nb"), true, false, "CN=\"a\nb\"", "CN=a\\0Ab"},
        {name({rdn({atv("1.2.3.4", tlv(0x02, {0x05}))})}), true, false, "1.2.3.4=#020105",
         "1.2.3.4=#020105"},
        {name({}), true, false, "", ""},
        {multi, true, false, "CN=A+UID=j, O=O, DC=test", "CN=A+UID=j,O=O,DC=test"},
        {multi, false, true, "test, O, A+j", "test,O,A+j"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rfc4514);
        StringBuffer a, b;
        ASSERT_TRUE(X509Name::appendDnText(in(c.dn), c.withTags, 0, c.encodingOrder, a));
        ASSERT_TRUE(X509Name::appendDnText(in(c.dn), c.withTags, 1, c.encodingOrder, b));
        EXPECT_STREQ(c.everyday, a.getString());
        EXPECT_STREQ(c.rfc4514, b.getString());
    }
}

TEST(X509Name, MalformedNamesFail) {
    Bytes cn = atv("2.5.4.3", tlv(0x0c, str("x")));
    Bytes tooMany, tooManyAtvs;
    for (int i = 0; i <= X509Name::kMaxRdns; ++i) tooMany = cat({tooMany, rdn({cn})});
    for (int i = 0; i <= X509Name::kMaxAttributes; ++i) tooManyAtvs = cat({tooManyAtvs, cn});
    struct Case {
        const char* name;
        Bytes dn;
    } cases[] = {
        {"empty rdn set", name({tlv(0x31, {})})},
        {"atv with a third element",
         name({rdn({tlv(0x30, cat({oid("2.5.4.3"), tlv(0x0c, str("x")), tlv(0x05, {})}))})})},
        {"trailing bytes", cat({name({rdn({cn})}), {0x00}})},
        {"too many rdns", tlv(0x30, tooMany)},
        {"too many attributes in one rdn", tlv(0x30, tlv(0x31, tooManyAtvs))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer text, json, value;
        EXPECT_FALSE(X509Name::appendDnText(in(c.dn), true, 0, false, text));
        EXPECT_TRUE(!X509Name::appendDnJson(in(c.dn), json) && json.getSize() == 0);
        EXPECT_FALSE(X509Name::findValue(in(c.dn), in({0x55, 0x04, 0x03}), value));
    }
}

TEST(X509Name, JsonEscapesAndGroupsRepeatedTypes) {
    Bytes dn = name({
        rdn({atv("0.9.2342.19200300.100.1.25", tlv(0x16, str("test")))}),
        rdn({atv("0.9.2342.19200300.100.1.25", tlv(0x16, str("example")))}),
        rdn({atv("2.5.4.3", tlv(0x0c, str("q\"b\\s\tc\x01")))}),
        rdn({atv("1.2.3.4", tlv(0x02, {0x07})),
             atv("0.9.2342.19200300.100.1.25", tlv(0x16, str("x")))}),
    });
    StringBuffer out;
    ASSERT_TRUE(X509Name::appendDnJson(in(dn), out));
    EXPECT_EQ(
        "\"DC\":[\"test\",\"example\",\"x\"],\"CN\":\"q\\\"b\\\\s\\tc\xEF\xBF\xBD\","
        "\"1.2.3.4\":\"#020107\"",
        std::string(out.getString()));
}
