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

TEST(StringBuffer, TextOperations) {
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
    // Tests are case sensitive except beginsWithIgnoreCase.
    sb.setString("Hello.World");
    EXPECT_TRUE(sb.beginsWith("Hello") && sb.beginsWithIgnoreCase("hELLO") && sb.endsWith("World"));
    EXPECT_FALSE(sb.beginsWith("hello") || sb.endsWith("world") || sb.containsSubstring("o.w") ||
                 sb.beginsWith("Hello.World!"));
    // Binary text: the search goes past a zero byte, the C search stops at it.
    sb.clear();
    sb.appendN("ab\0-----BEGIN", 13);
    EXPECT_TRUE(sb.getSize() == 13u && sb.containsSubstring("BEGIN"));
    EXPECT_EQ(ovStrStr(sb.getString(), "BEGIN"), nullptr);
}

TEST(StringBuffer, ScrambledLiteralsRoundTrip) {
    const char* texts[] = {"PRIVATE KEY-----", "ENCRYPTED PRIVATE KEY-----", "a\"b\\c~ ", ""};
    for (const char* t : texts) {
        SCOPED_TRACE(t);
        std::string buf = t;
        StringBuffer::litScramEncode(buf.data());
        EXPECT_TRUE((!*t || buf.c_str() != std::string(t)) && StringBuffer(t).equals_x(buf.data()));
        StringBuffer::litScram(buf.data());
        EXPECT_STREQ(t, buf.c_str());
    }
}

TEST(XString, Utf16ToUtf8) {
    // Reader (l UTF-16LE, b UTF-16BE: two code units each; 1 Latin-1: one
    // byte), input and its UTF-8; then a surrogate pair and a lone high one.
    const char* const cases[][3] = {
        {"l", "A\0B\0", "AB"},
        {"l", "\xe9\0\xac\x20", "\xc3\xa9\xe2\x82\xac"},
        {"b", "\0\x41\x20\xac", "A\xe2\x82\xac"},
        {"1", "\xfc", "\xc3\xbc"},
        {"l", "\x3d\xd8\x00\xde", "\xf0\x9f\x98\x80"},
        {"l", "\x3d\xd8\x41\x00", "\xef\xbf\xbd\x41"},
    };
    for (const auto& c : cases) {
        XString x;
        auto* in = reinterpret_cast<const unsigned char*>(c[1]);
        ASSERT_TRUE(*c[0] == '1'   ? x.appendLatin1N(in, 1)
                    : *c[0] == 'b' ? x.appendUtf16N_be(in, 2)
                                   : x.appendUtf16N_le(in, 2));
        EXPECT_STREQ(c[2], x.getUtf8()) << c[2];
    }
}

TEST(XString, IntValue) {
    const std::pair<const char*, int> cases[] = {{"42", 42}, {" -7", -7}, {"12abc", 12},
                                                 {"abc", 0}, {"", 0},     {"99999999999", 0}};
    for (const auto& [in, want] : cases) EXPECT_EQ(want, XString(in).intValue()) << in;
}

TEST(OvStr, HelpersAcceptNull) {
    EXPECT_TRUE(ovStrLen(nullptr) == 0u && ovStrStr(nullptr, "a") == nullptr);
    EXPECT_EQ(ov_valHexN("1aFz", 4), 0x1afu);
    EXPECT_EQ(ov_valHexN("ffffffff", 8), 0xffffffffu);
    char buf[11];
    for (unsigned v : {4294967295u, 0u}) {
        ov_uint32_to_str(v, buf);
        EXPECT_EQ(std::to_string(v), buf);
    }
}

}  // namespace
