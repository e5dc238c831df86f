#include "support/asn1/DerBuild.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

// Each writer appends one whole element after what the buffer holds; a failed
// write leaves the buffer as it was.
TEST(DerBuild, WritersAppendOneElementEach) {
    DataBuffer null, lead, big, out;
    ASSERT_TRUE(derbuild::null(null) && lead.appendEncoded("0080", "hex") &&
                big.append(std::string(200, 'x').data(), 200) && out.appendChar(0x42));
    ASSERT_TRUE(derbuild::boolean(out, true) && derbuild::boolean(out, false) &&
                derbuild::explicitTag(out, 2, null) && derbuild::integerBytes(out, lead) &&
                derbuild::smallInteger(out, 0x80) && derbuild::oid(out, oids::kKeyUsage) &&
                derbuild::octetString(out, big));
    const std::string want =
        "42"
        "0101ff"      // TRUE as FF
        "010100"      // FALSE
        "a2020500"    // [2] EXPLICIT NULL
        "02020080"    // the octets as given
        "02020080"    // a sign byte added
        "0603551d0f"  // from the table
        "0481c8";     // long-form length, then the 200 bytes
    EXPECT_EQ(want, toHex(out).substr(0, want.size()));
    EXPECT_EQ(want.size() / 2 + 200, out.getSize());
    EXPECT_FALSE(derbuild::oid(out, "1.x"));
    EXPECT_EQ(want.size() / 2 + 200, out.getSize());
}
