#include "support/base/ContentCoding.h"

#include <gtest/gtest.h>

#include <string>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

std::string b64(const std::string& in, unsigned lineLen) {
    ContentCoding cc;
    cc.setLineLength(lineLen);
    StringBuffer out;
    EXPECT_TRUE(cc.encodeBase64(in.data(), static_cast<unsigned>(in.size()), out));
    return out.getString();
}

bool unb64(const std::string& in, std::string* out) {
    DataBuffer db;
    if (!ContentCoding::decodeBase64ToDb(in.data(), static_cast<unsigned>(in.size()), db))
        return false;
    out->assign(reinterpret_cast<const char*>(db.getData2()), db.getSize());
    return true;
}

TEST(ContentCoding, EncodesRfc4648Vectors) {
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {{"", ""},
                 {"f", "Zg=="},
                 {"fo", "Zm8="},
                 {"foo", "Zm9v"},
                 {"foob", "Zm9vYg=="},
                 {"fooba", "Zm9vYmE="},
                 {"foobar", "Zm9vYmFy"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        EXPECT_EQ(b64(c.in, 0), c.out);
        std::string back;
        ASSERT_TRUE(unb64(c.out, &back));
        EXPECT_EQ(back, c.in);
    }
}

TEST(ContentCoding, BreaksLinesWithCrlfAfterEveryFullLineOnly) {
    std::string in(48, 'A');  // 48 bytes = exactly 64 base64 characters
    std::string one = b64(in, 64);
    EXPECT_EQ(one.size(), 66u);
    EXPECT_EQ(one.substr(64), "\r\n");

    std::string longer = b64(std::string(100, 'x'), 64);  // 136 characters: 64 + 64 + 8
    ASSERT_EQ(longer.size(), 136u + 4);
    EXPECT_EQ(longer.substr(64, 2), "\r\n");
    EXPECT_EQ(longer.substr(130, 2), "\r\n");
    EXPECT_EQ(longer.find("\r\n", 132), std::string::npos);  // partial last line: no CRLF
    EXPECT_EQ(b64("abc", 0).find('\r'), std::string::npos);
}

TEST(ContentCoding, DecodeSkipsWhitespaceAndRejectsGarbage) {
    struct Case {
        const char* name;
        const char* in;
        bool ok;
        const char* out;
    } cases[] = {
        {"crlf lines", "Zm9v\r\nYmFy\r\n", true, "foobar"},
        {"spaces and tabs", " Zm 9v\tYm\fFy ", true, "foobar"},
        {"no padding", "Zm9vYg", true, "foob"},
        {"single trailing char", "Zm9vY", false, ""},
        {"data after padding", "Zg==Zg==", false, ""},
        {"bad character", "Zm9v*mFy", false, ""},
        {"dash is not standard", "Zm9-", false, ""},
        {"empty", "", true, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string out;
        EXPECT_EQ(unb64(c.in, &out), c.ok);
        if (c.ok) {
            EXPECT_EQ(out, c.out);
        }
    }
}

TEST(ContentCoding, FailedDecodeAppendsNothing) {
    DataBuffer db;
    db.append("keep", 4);
    EXPECT_FALSE(ContentCoding::decodeBase64ToDb("Zm9v!!", 6, db));
    EXPECT_EQ(db.getSize(), 4u);
}

TEST(ContentCoding, IsBase64) {
    LogNull log;
    struct Case {
        const char* name;
        std::string in;
        bool want;
    } cases[] = {
        {"plain", "TUlJQ2FqQ0NBZE9n", true},
        {"with line breaks", "TUlJ\r\nQ2Fq\n", true},
        {"padded", "Zg==", true},
        {"pem marker", "-----BEGIN CERTIFICATE-----", false},
        {"too short", "Zg", false},
        {"embedded zero", std::string("Zm9v\0YmFy", 9), false},
        {"der bytes", std::string("\x30\x82\x01\x0a", 4), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ContentCoding::isBase64(c.in.data(), static_cast<unsigned>(c.in.size()), log),
                  c.want);
    }
}

TEST(ContentCoding, IsBase64Utf16LE) {
    std::string ascii = "TUlJQ2FqQ0NB\r\n";
    std::string u16;
    for (char ch : ascii) {
        u16 += ch;
        u16 += '\0';
    }
    EXPECT_TRUE(ContentCoding::isBase64_utf16LE(u16.data(), static_cast<unsigned>(u16.size())));
    // An odd trailing byte is ignored.
    std::string odd = u16 + 'Q';
    EXPECT_TRUE(ContentCoding::isBase64_utf16LE(odd.data(), static_cast<unsigned>(odd.size())));
    // A non-zero high byte is not UTF-16LE ASCII.
    std::string bad = u16;
    bad[1] = 'x';
    EXPECT_FALSE(ContentCoding::isBase64_utf16LE(bad.data(), static_cast<unsigned>(bad.size())));
    // Plain 8-bit base64 is not UTF-16LE.
    EXPECT_FALSE(
        ContentCoding::isBase64_utf16LE(ascii.data(), static_cast<unsigned>(ascii.size())));
}

TEST(ContentCoding, HexRoundTripAndSeparators) {
    DataBuffer db;
    ASSERT_TRUE(ContentCoding::decodeHex("00:A1 ff", 8, db));
    StringBuffer sb;
    ASSERT_TRUE(ContentCoding::encodeHex(db.getData2(), db.getSize(), sb, false));
    EXPECT_STREQ(sb.getString(), "00A1FF");
    DataBuffer bad;
    EXPECT_FALSE(ContentCoding::decodeHex("ABC", 3, bad));  // odd digit count
    EXPECT_FALSE(ContentCoding::decodeHex("0G", 2, bad));
}

}  // namespace
