#include "support/base/ContentCoding.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

std::string b64(const std::string& in, unsigned lineLen = 0) {
    ContentCoding cc;
    cc.setLineLength(lineLen);
    StringBuffer out;
    EXPECT_TRUE(cc.encodeBase64(in.data(), static_cast<unsigned>(in.size()), out));
    return out.getString();
}

// Decodes after "keep" already in the buffer: a failure must append nothing.
bool unb64(const std::string& in, std::string* out) {
    DataBuffer db;
    db.append("keep", 4);
    bool ok = ContentCoding::decodeBase64ToDb(in.data(), static_cast<unsigned>(in.size()), db);
    out->assign(reinterpret_cast<const char*>(db.getData2()), db.getSize());
    return ok;
}

// Text, base64, and whether the base64 is what encoding writes (RFC 4648
// vectors) or only accepted; null text: decoding refuses.
TEST(ContentCoding, Base64AndHex) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"", "", true},
        {"f", "Zg==", true},
        {"fo", "Zm8=", true},
        {"foo", "Zm9v", true},
        {"foob", "Zm9vYg==", true},
        {"fooba", "Zm9vYmE=", true},
        {"foobar", "Zm9vYmFy", true},
        {"foobar", "Zm9v\r\nYmFy\r\n", false},
        {"foobar", " Zm 9v\tYm\fFy ", false},
        {"foob", "Zm9vYg", false},  // no padding
        {nullptr, "Zm9vY", false},  // a single trailing character
        {nullptr, "Zg==Zg==", false},
        {nullptr, "Zm9v*mFy", false},
        {nullptr, "Zm9-", false},  // the URL alphabet is not standard
    };
    for (const auto& [text, enc, encodes] : cases) {
        SCOPED_TRACE(enc);
        std::string out;
        EXPECT_EQ(text != nullptr, unb64(enc, &out));
        EXPECT_EQ(std::string("keep") + (text ? text : ""), out);
        EXPECT_EQ(encodes ? enc : "", encodes ? b64(text) : "");
    }
    // A CRLF ends every full line, the last one too, and nothing else.
    std::string flat = b64(std::string(100, 'x'));
    ASSERT_EQ(136u, flat.size());
    EXPECT_EQ(flat.substr(0, 64) + "\r\n" + flat.substr(64, 64) + "\r\n" + flat.substr(128),
              b64(std::string(100, 'x'), 64));
    EXPECT_EQ(b64(std::string(48, 'A')) + "\r\n", b64(std::string(48, 'A'), 64));

    // Hex: separators skipped on the way in, upper case on the way out.
    DataBuffer db;
    ASSERT_TRUE(ContentCoding::decodeHex("00:A1 ff", 8, db));
    StringBuffer sb;
    ASSERT_TRUE(ContentCoding::encodeHex(db.getData2(), db.getSize(), sb, false));
    EXPECT_STREQ(sb.getString(), "00A1FF");
    EXPECT_FALSE(ContentCoding::decodeHex("ABC", 3, db) || ContentCoding::decodeHex("0G", 2, db));
}

TEST(ContentCoding, IsBase64) {
    LogNull log;
    const std::pair<std::string, bool> cases[] = {
        {"TUlJQ2FqQ0NBZE9n", true},
        {"TUlJ\r\nQ2Fq\n", true},
        {"Zg==", true},
        {"-----BEGIN CERTIFICATE-----", false},
        {"Zg", false},  // too short
        {std::string("Zm9v\0YmFy", 9), false},
        {std::string("\x30\x82\x01\x0a", 4), false},  // DER
    };
    for (const auto& [in, want] : cases)
        EXPECT_EQ(want, ContentCoding::isBase64(in.data(), static_cast<unsigned>(in.size()), log))
            << in;

    auto isU16 = [](const std::string& s) {
        return ContentCoding::isBase64_utf16LE(s.data(), static_cast<unsigned>(s.size()));
    };
    const std::string ascii = "TUlJQ2FqQ0NB\r\n";
    std::string u16;
    for (char ch : ascii) u16 += {ch, '\0'};
    EXPECT_TRUE(isU16(u16) && isU16(u16 + 'Q')) << "an odd trailing byte is ignored";
    EXPECT_FALSE(isU16(ascii) || isU16(u16.substr(0, 1) + "x" + u16.substr(2)));
}

}  // namespace
