#include "support/asn1/DerBuild.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

// What each writer appends, byte for byte; every case appends to a buffer that
// already holds a byte, so a writer that replaced instead of appending shows.
TEST(DerBuild, WritersAppendOneElement) {
    DataBuffer null, big;
    ASSERT_TRUE(derbuild::null(null) && big.append(std::string(200, 'x').c_str(), 200));
    DataBuffer lead;
    ASSERT_TRUE(lead.appendEncoded("0080", "hex"));
    struct Case {
        const char* name;
        bool (*write)(DataBuffer& out, const DataBuffer& null, const DataBuffer& big,
                      const DataBuffer& lead);
        const char* hex;
    } cases[] = {
        {"true", [](DataBuffer& o, auto&, auto&, auto&) { return derbuild::boolean(o, true); },
         "0101ff"},
        {"false", [](DataBuffer& o, auto&, auto&, auto&) { return derbuild::boolean(o, false); },
         "010100"},
        {"explicit [2]",
         [](DataBuffer& o, auto& n, auto&, auto&) { return derbuild::explicitTag(o, 2, n); },
         "a2020500"},
        {"integer octets kept",
         [](DataBuffer& o, auto&, auto&, auto& l) { return derbuild::integerBytes(o, l); },
         "02020080"},
        {"small integer with sign byte",
         [](DataBuffer& o, auto&, auto&, auto&) { return derbuild::smallInteger(o, 0x80); },
         "02020080"},
        {"oid from the table",
         [](DataBuffer& o, auto&, auto&, auto&) { return derbuild::oid(o, oids::kKeyUsage); },
         "0603551d0f"},
        {"long form length",
         [](DataBuffer& o, auto&, auto& b, auto&) { return derbuild::octetString(o, b); },
         "0481c8"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DataBuffer out;
        ASSERT_TRUE(out.appendChar(0x42) && c.write(out, null, big, lead));
        EXPECT_EQ(std::string("42") + c.hex, toHex(out).substr(0, 2 + strlen(c.hex)));
    }
    DataBuffer kept;
    ASSERT_TRUE(kept.appendChar(0x42));
    EXPECT_FALSE(derbuild::oid(kept, "1.x"));
    EXPECT_EQ(1u, kept.getSize());
}
