// Names built by hand: string types, escaping and quoting, malformed names.
#include "support/x509/X509Name.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "X509Der.h"
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
        EXPECT_TRUE(DerInput(types[i].oid, types[i].oidLen).equals(buf, len));
        EXPECT_EQ(&types[i], X509Name::typeByOid(DerInput(buf, len)));
        EXPECT_EQ(&types[i], X509Name::typeByName(types[i].tag));
        EXPECT_EQ(&types[i], X509Name::typeByName(types[i].longName));
        // Every name is unique, so a lookup never lands on another type.
        for (size_t j = 0; j < i; ++j) {
            EXPECT_STRCASENE(types[i].tag, types[j].tag);
            EXPECT_STRCASENE(types[i].longName, types[j].longName);
        }
    }
    EXPECT_EQ(X509Name::typeByName("ST"), X509Name::typeByName("s"));
    EXPECT_EQ(X509Name::typeByName("E"), X509Name::typeByName("EMAIL"));
    EXPECT_EQ(nullptr, X509Name::typeByName("C "));
    EXPECT_EQ(nullptr, X509Name::typeByName(nullptr));
}

TEST(X509Name, StringValuesDecodeToUtf8) {
    struct Case {
        const char* name;
        unsigned char tag;
        Bytes bytes;
        bool isString;
        const char* want;
    } cases[] = {
        {"utf8", 0x0c, str("Zo\xC3\xAB"), true, "Zo\xC3\xAB"},
        {"utf8 that is not", 0x0c, {0xC3, 0x28}, true, "\xC3\x83("},
        {"overlong utf8 is latin-1", 0x0c, {0xC0, 0xAF}, true, "\xC3\x80\xC2\xAF"},
        {"printable holding latin-1", 0x13, {'c', 0xE9}, true, "c\xC3\xA9"},
        {"printable holding utf-8", 0x13, str("c\xC3\xA9"), true, "c\xC3\xA9"},
        {"teletex is latin-1", 0x14, {0xC3, 0xA9}, true, "\xC3\x83\xC2\xA9"},
        {"bmp with surrogate pair",
         0x1e,
         {0x00, 'A', 0xD8, 0x3D, 0xDE, 0x00},
         true,
         "A\xF0\x9F\x98\x80"},
        {"bmp lone surrogate",
         0x1e,
         {0xD8, 0x00, 0x00, 'A'},
         true,
         "\xEF\xBF\xBD"
         "A"},
        {"bmp odd length", 0x1e, {0x00, 'A', 0x00}, false, ""},
        {"universal", 0x1c, {0x00, 0x01, 0xF6, 0x00}, true, "\xF0\x9F\x98\x80"},
        {"universal past unicode", 0x1c, {0x00, 0x11, 0x00, 0x00}, true, "\xEF\xBF\xBD"},
        {"universal bad length", 0x1c, {0x00, 0x00, 0x41}, false, ""},
        {"nul cannot cut the text",
         0x16,
         {'a', 0x00, 'b'},
         true,
         "a\xEF\xBF\xBD"
         "b"},
        {"tab and line feed stay", 0x16, str("a\tb\nc"), true, "a\tb\nc"},
        {"carriage return does not", 0x16, str("a\rb"), true,
         "a\xEF\xBF\xBD"
         "b"},
        {"integer is no string", 0x02, {0x05}, false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer out;
        EXPECT_EQ(c.isString, X509Name::appendStringValue(c.tag, in(c.bytes), out));
        EXPECT_EQ(std::string(c.want), out.getString());
    }
}

TEST(X509Name, EscapingAndQuoting) {
    struct Case {
        const char* name;
        Bytes dn;
        const char* everyday;  // style 0, with tags
        const char* rfc4514;   // style 1, with tags
    } cases[] = {
        {"plain", name({rdn({atv("2.5.4.3", tlv(0x0c, str("Plain")))})}), "CN=Plain", "CN=Plain"},
        {"edge spaces", name({rdn({atv("2.5.4.3", tlv(0x0c, str(" a b ")))})}), "CN=\" a b \"",
         "CN=\\ a b\\ "},
        {"inner quote", name({rdn({atv("2.5.4.10", tlv(0x0c, str("say \"hi\"")))})}),
         "O=\"say \"\"hi\"\"\"", "O=say \\\"hi\\\""},
        {"equals", name({rdn({atv("2.5.4.3", tlv(0x0c, str("a=b")))})}), "CN=\"a=b\"", "CN=a=b"},
        {"hash inside", name({rdn({atv("2.5.4.3", tlv(0x0c, str("a#b")))})}), "CN=\"a#b\"",
         "CN=a#b"},
        {"line feed", name({rdn({atv("2.5.4.3", tlv(0x0c, str("a\nb")))})}), "CN=\"a\nb\"",
         "CN=a\\0Ab"},
        {"empty value", name({rdn({atv("2.5.4.3", tlv(0x0c, {}))})}), "CN=", "CN="},
        {"unknown type", name({rdn({atv("1.2.3.4", tlv(0x13, str("x")))})}), "1.2.3.4=x",
         "1.2.3.4=x"},
        {"non-string value", name({rdn({atv("1.2.3.4", tlv(0x02, {0x05}))})}), "1.2.3.4=#020105",
         "1.2.3.4=#020105"},
        {"empty name", name({}), "", ""},
        {"two rdns, last first",
         name({rdn({atv("2.5.4.6", tlv(0x13, str("US")))}),
               rdn({atv("2.5.4.3", tlv(0x0c, str("A,B")))})}),
         "CN=\"A,B\", C=US", "CN=A\\,B,C=US"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer a, b;
        ASSERT_TRUE(X509Name::appendDnText(in(c.dn), true, 0, false, a));
        ASSERT_TRUE(X509Name::appendDnText(in(c.dn), true, 1, false, b));
        EXPECT_EQ(std::string(c.everyday), a.getString());
        EXPECT_EQ(std::string(c.rfc4514), b.getString());
    }
}

TEST(X509Name, MalformedNamesFail) {
    Bytes cn = atv("2.5.4.3", tlv(0x0c, str("x")));
    Bytes tooMany, tooManyAtvs;
    for (int i = 0; i <= X509Name::kMaxRdns; ++i) {
        Bytes r = rdn({cn});
        tooMany.insert(tooMany.end(), r.begin(), r.end());
    }
    for (int i = 0; i <= X509Name::kMaxAttributes; ++i)
        tooManyAtvs.insert(tooManyAtvs.end(), cn.begin(), cn.end());
    struct Case {
        const char* name;
        Bytes dn;
    } cases[] = {
        {"empty rdn set", name({tlv(0x31, {})})},
        {"rdn not a set", name({tlv(0x30, cn)})},
        {"atv with a third element",
         name({rdn({tlv(0x30, cat({oid("2.5.4.3"), tlv(0x0c, str("x")), tlv(0x05, {})}))})})},
        {"atv without value", name({rdn({tlv(0x30, oid("2.5.4.3"))})})},
        {"type not an oid", name({rdn({tlv(0x30, cat({tlv(0x02, {1}), tlv(0x0c, str("x"))}))})})},
        {"not a sequence", tlv(0x31, rdn({cn}))},
        {"trailing bytes", cat({name({rdn({cn})}), {0x00}})},
        {"too many rdns", tlv(0x30, tooMany)},
        {"too many attributes in one rdn", tlv(0x30, tlv(0x31, tooManyAtvs))},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer text, json, value;
        EXPECT_FALSE(X509Name::appendDnText(in(c.dn), true, 0, false, text));
        EXPECT_FALSE(X509Name::appendDnJson(in(c.dn), json));
        EXPECT_EQ(0u, json.getSize());
        unsigned char cnOid[] = {0x55, 0x04, 0x03};
        EXPECT_FALSE(X509Name::findValue(in(c.dn), DerInput(cnOid, 3), value));
    }
}

TEST(X509Name, JsonIsValidAndGroupsRepeatedTypes) {
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
    nlohmann::json j =
        nlohmann::json::parse("{" + std::string(out.getString()) + "}", nullptr, false);
    ASSERT_FALSE(j.is_discarded());
    EXPECT_EQ(3u, j["DC"].size());
    EXPECT_EQ("q\"b\\s\tc\xEF\xBF\xBD", j["CN"].get<std::string>());
}
