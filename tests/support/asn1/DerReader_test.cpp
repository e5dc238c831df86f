#include "support/asn1/DerReader.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

namespace {

// Each typed reader on a named input: the value it read, or a refusal, and
// then the cursor stays where it was.
TEST(DerParser, TypedReaders) {
    constexpr bool kRead = true, kRefused = false;
    struct Case {
        const char* name;
        const char* hex;
        bool ok;
        uint64_t want = 0;  // the value (BOOLEAN 0/1, BIT STRING its unused bits)
    } cases[] = {
        {"integer with its sign byte", "02020080", kRead, 128},
        {"largest uint64", "020900ffffffffffffffff", kRead, UINT64_MAX},
        {"integer above uint64", "020901ffffffffffffffff", kRefused},
        {"negative integer", "020180", kRefused},
        {"empty integer", "0200", kRefused},
        {"integer with a superfluous 00", "0202007f", kRefused},  // X.690 8.3.2
        {"integer with a superfluous ff", "0202ff80", kRefused},
        {"boolean true", "0101ff", kRead, 1},
        {"boolean true not written as ff", "010101", kRefused},  // X.690 11.1
        {"boolean of two bytes", "01020000", kRefused},
        {"bit string, 5 unused zero bits", "030205a0", kRead, 5},
        {"bit string, 7 unused zero bits", "03020780", kRead, 7},
        {"bit string with a padding bit set", "03020781", kRefused},  // X.690 11.2.1
        {"bit string, unused bits without bytes", "030101", kRefused},
        {"bit string, 8 unused bits", "03020800", kRefused},
        {"oid", "0603551d0f", kRead, 0},
        {"oid ending mid-arc", "0603551d8f", kRefused},
        {"oid arc with a leading 80", "0603558001", kRefused},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes in = fromHex(c.hex);
        DerParser p(DerInput(in.data(), in.size()));
        uint64_t v = 0;
        bool b = false, ok = false;
        unsigned unused = 0;
        DerInput d;
        if (in[0] == der::kInteger) ok = p.readUint64(&v);
        if (in[0] == der::kBoolean) ok = p.readBool(&b), v = b;
        if (in[0] == der::kBitString) ok = p.readBitString(&d, &unused), v = unused;
        if (in[0] == der::kOid) ok = p.readOid(&d);
        ASSERT_EQ(c.ok, ok) << p.lastError();
        EXPECT_EQ(c.want, v);
        EXPECT_EQ(ok ? in.size() : 0u, p.position());
    }
}

// Header errors are checked through the decoders built on the parser.
TEST(DerParser, OptionalPeekAndHighTags) {
    Bytes in = fromHex("a003020102 020105 1f3000");  // [UNIVERSAL 48] last
    DerParser p(DerInput(in.data(), in.size()));
    DerInput c;
    bool present = true;
    ASSERT_TRUE(p.readOptional(der::contextConstructed(1), &c, &present));
    EXPECT_FALSE(present);
    ASSERT_TRUE(p.readOptional(der::contextConstructed(0), &c, &present));
    EXPECT_TRUE(present && c.size() == 3);
    EXPECT_TRUE(p.nextIs(der::kInteger) && p.skip());
    EXPECT_FALSE(p.nextIs(der::kSequence)) << "its number is the SEQUENCE tag byte";
    unsigned tag = 0;
    EXPECT_TRUE(p.skip() && !p.peekTag(&tag));
}

}  // namespace
