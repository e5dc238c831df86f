#include "support/base/StringBuffer.h"

#include <gtest/gtest.h>

#include <string>

#include "support/base/XString.h"
#include "support/base/ovstr.h"

namespace {

TEST(StringBuffer, ReplaceFamilies) {
    // Operation (f first, i first ignoring case, l last, a all), input, from, to, result.
    const char* const cases[][5] = {
        {"f", "a-b-c", "-", "+", "a+b-c"},    {"f", "ABC", "b", "x", "ABC"},
        {"i", "ABC", "b", "x", "AxC"},        {"l", "a-b-c", "-", "+", "a-b+c"},
        {"a", "a-b-c", "-", "--", "a--b--c"}, {"a", "aaaa", "aa", "b", "bb"},
        {"a", "ab", "a", "aa", "aab"},  // the replacement holds the pattern
    };
    for (const auto& c : cases) {
        StringBuffer sb(c[1]);
        if (*c[0] == 'f' || *c[0] == 'i') sb.replaceFirstOccurance(c[2], c[3], *c[0] == 'i');
        if (*c[0] == 'l') sb.replaceLastOccurance(c[2], c[3]);
        if (*c[0] == 'a') sb.replaceAllOccurances(c[2], c[3]);
        EXPECT_STREQ(c[4], sb.getString()) << c[0] << " " << c[1];
    }
}

TEST(StringBuffer, ChopTrimAndWhitespace) {
    StringBuffer sb("[\"MIIabc\"]\"]tail");
    sb.chopAtSubstr("\"]", false);
    EXPECT_STREQ(sb.getString(), "[\"MIIabc");
    StringBuffer xml("<a>\r\n  <b> x </b>\t</a>\n");
    xml.removeFws();
    EXPECT_STREQ(xml.getString(), "<a><b>x</b></a>");
    for (const auto& [in, want] : {std::pair{" \t\r\n x y \n", "x y"}, {"   ", ""}}) {
        StringBuffer t(in);
        t.trim2();
        EXPECT_EQ(want, std::string(t.getString(), t.getSize()));
    }
}

TEST(StringBuffer, TestsAreCaseSensitiveExceptBeginsWithIgnoreCase) {
    StringBuffer sb("Hello.World");
    EXPECT_TRUE(sb.beginsWith("Hello") && sb.beginsWithIgnoreCase("hELLO") && sb.endsWith("World"));
    EXPECT_FALSE(sb.beginsWith("hello") || sb.endsWith("world") || sb.containsSubstring("o.w") ||
                 sb.beginsWith("Hello.World!"));
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
        EXPECT_TRUE(s.empty() || std::string(buf.data()) != s);
        StringBuffer sb(t);
        EXPECT_TRUE(sb.equals_x(buf.data()));
        StringBuffer::litScram(buf.data());
        EXPECT_EQ(std::string(buf.data()), s);
    }
}

TEST(XString, Utf16ToUtf8) {
    // Little-endian UTF-16 (two code units each) and its UTF-8.
    const char* const cases[][2] = {
        {"A\0B\0", "AB"},
        {"\xe9\0\xac\x20", "\xc3\xa9\xe2\x82\xac"},
        {"\x3d\xd8\x00\xde", "\xf0\x9f\x98\x80"},  // a surrogate pair
        {"\x3d\xd8\x41\x00",
         "\xef\xbf\xbd"
         "A"},  // a lone high surrogate
    };
    for (const auto& c : cases) {
        XString x;
        ASSERT_TRUE(x.appendUtf16N_le(reinterpret_cast<const unsigned char*>(c[0]), 2));
        EXPECT_STREQ(c[1], x.getUtf8()) << c[1];
    }
    XString be;
    be.appendUtf16N_be(reinterpret_cast<const unsigned char*>("\x00\x41\x20\xac"), 2);
    EXPECT_STREQ(be.getUtf8(), "A\xe2\x82\xac");
    XString l1;
    l1.appendLatin1N(reinterpret_cast<const unsigned char*>("\xfc"), 1);
    EXPECT_STREQ(l1.getUtf8(), "\xc3\xbc");
}

TEST(XString, IntValue) {
    const std::pair<const char*, int> cases[] = {{"42", 42}, {" -7", -7}, {"12abc", 12},
                                                 {"abc", 0}, {"", 0},     {"99999999999", 0}};
    for (const auto& [in, want] : cases) EXPECT_EQ(want, XString(in).intValue()) << in;
}

TEST(OvStr, HelpersAcceptNull) {
    EXPECT_EQ(ovStrLen(nullptr), 0u);
    EXPECT_EQ(ovStrStr(nullptr, "a"), nullptr);
    EXPECT_EQ(ov_valHexN("1aFz", 4), 0x1afu);
    EXPECT_EQ(ov_valHexN("ffffffff", 8), 0xffffffffu);
    char buf[11];
    for (unsigned v : {4294967295u, 0u}) {
        ov_uint32_to_str(v, buf);
        EXPECT_EQ(std::to_string(v), buf);
    }
}

}  // namespace
