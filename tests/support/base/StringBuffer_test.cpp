#include "support/base/StringBuffer.h"

#include <gtest/gtest.h>

#include <string>

#include "support/base/XString.h"
#include "support/base/ovstr.h"

namespace {

TEST(StringBuffer, ReplaceFamilies) {
    struct Case {
        const char* name;
        const char* in;
        int op;  // 0 first, 1 first no-case, 2 last, 3 all
        const char* from;
        const char* to;
        const char* want;
    } cases[] = {
        {"first", "a-b-c", 0, "-", "+", "a+b-c"},
        {"first case sensitive miss", "ABC", 0, "b", "x", "ABC"},
        {"first ignoring case", "ABC", 1, "b", "x", "AxC"},
        {"last", "a-b-c", 2, "-", "+", "a-b+c"},
        {"all", "a-b-c", 3, "-", "--", "a--b--c"},
        {"all grows and shrinks", "aaaa", 3, "aa", "b", "bb"},
        {"replacement contains pattern", "ab", 3, "a", "aa", "aab"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        StringBuffer sb(c.in);
        if (c.op == 0) sb.replaceFirstOccurance(c.from, c.to, false);
        if (c.op == 1) sb.replaceFirstOccurance(c.from, c.to, true);
        if (c.op == 2) sb.replaceLastOccurance(c.from, c.to);
        if (c.op == 3) sb.replaceAllOccurances(c.from, c.to);
        EXPECT_STREQ(sb.getString(), c.want);
    }
}

TEST(StringBuffer, ChopTrimAndWhitespace) {
    StringBuffer sb("[\"MIIabc\"]\"]tail");
    sb.chopAtSubstr("\"]", false);
    EXPECT_STREQ(sb.getString(), "[\"MIIabc");
    StringBuffer xml("<a>\r\n  <b> x </b>\t</a>\n");
    xml.removeFws();
    EXPECT_STREQ(xml.getString(), "<a><b>x</b></a>");
    StringBuffer t(" \t\r\n x y \n");
    t.trim2();
    EXPECT_STREQ(t.getString(), "x y");
    StringBuffer blank("   ");
    blank.trim2();
    EXPECT_EQ(blank.getSize(), 0u);
}

TEST(StringBuffer, TestsAreCaseSensitiveExceptBeginsWithIgnoreCase) {
    StringBuffer sb("Hello.World");
    EXPECT_TRUE(sb.beginsWith("Hello"));
    EXPECT_FALSE(sb.beginsWith("hello"));
    EXPECT_TRUE(sb.beginsWithIgnoreCase("hELLO"));
    EXPECT_TRUE(sb.endsWith("World"));
    EXPECT_FALSE(sb.endsWith("world"));
    EXPECT_FALSE(sb.containsSubstring("o.w"));
    EXPECT_FALSE(sb.beginsWith("Hello.World!"));
}

TEST(StringBuffer, BinaryTextWithZeroBytes) {
    StringBuffer sb;
    sb.appendN("ab\0-----BEGIN", 13);
    EXPECT_EQ(sb.getSize(), 13u);
    EXPECT_TRUE(sb.containsSubstring("BEGIN"));             // searches past the zero byte
    EXPECT_EQ(ovStrStr(sb.getString(), "BEGIN"), nullptr);  // C search stops at it
}

TEST(StringBuffer, ScrambledLiteralsRoundTrip) {
    const char* texts[] = {"PRIVATE KEY-----", "ENCRYPTED PRIVATE KEY-----", "a\"b\\c~ ", ""};
    for (const char* t : texts) {
        SCOPED_TRACE(t);
        std::string s = t;
        std::vector<char> buf(s.begin(), s.end());
        buf.push_back('\0');
        StringBuffer::litScramEncode(buf.data());
        if (!s.empty()) {
            EXPECT_NE(std::string(buf.data()), s);
        }
        StringBuffer sb(t);
        EXPECT_TRUE(sb.equals_x(buf.data()));
        StringBuffer::litScram(buf.data());
        EXPECT_EQ(std::string(buf.data()), s);
    }
}

TEST(XString, Utf16ToUtf8) {
    struct Case {
        const char* name;
        std::string le;
        const char* want;
    } cases[] = {
        {"ascii", std::string("A\0B\0", 4), "AB"},
        {"latin and euro", std::string("\xe9\0\xac\x20", 4), "\xc3\xa9\xe2\x82\xac"},
        {"surrogate pair", std::string("\x3d\xd8\x00\xde", 4), "\xf0\x9f\x98\x80"},
        {"lone high surrogate", std::string("\x3d\xd8\x41\x00", 4),
         "\xef\xbf\xbd"
         "A"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XString x;
        ASSERT_TRUE(x.appendUtf16N_le(reinterpret_cast<const unsigned char*>(c.le.data()),
                                      static_cast<unsigned>(c.le.size() / 2)));
        EXPECT_STREQ(x.getUtf8(), c.want);
    }
    XString be;
    be.appendUtf16N_be(reinterpret_cast<const unsigned char*>("\x00\x41\x20\xac"), 2);
    EXPECT_STREQ(be.getUtf8(), "A\xe2\x82\xac");
    XString l1;
    l1.appendLatin1N(reinterpret_cast<const unsigned char*>("\xfc"), 1);
    EXPECT_STREQ(l1.getUtf8(), "\xc3\xbc");
}

TEST(XString, IntValue) {
    struct Case {
        const char* in;
        int want;
    } cases[] = {{"42", 42}, {" -7", -7}, {"12abc", 12}, {"abc", 0}, {"", 0}, {"99999999999", 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        EXPECT_EQ(XString(c.in).intValue(), c.want);
    }
}

TEST(OvStr, HelpersAcceptNull) {
    EXPECT_EQ(ovStrLen(nullptr), 0u);
    EXPECT_EQ(ovStrStr(nullptr, "a"), nullptr);
    EXPECT_EQ(ov_valHexN("1aFz", 4), 0x1afu);
    EXPECT_EQ(ov_valHexN("ffffffff", 8), 0xffffffffu);
    char buf[11];
    ov_uint32_to_str(4294967295u, buf);
    EXPECT_STREQ(buf, "4294967295");
    ov_uint32_to_str(0, buf);
    EXPECT_STREQ(buf, "0");
}

}  // namespace
