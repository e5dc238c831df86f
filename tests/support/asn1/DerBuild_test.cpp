// The writers the OCSP request encoder uses are checked byte for byte against
// openssl's own request (tests/support/net); these are the rest.
#include "support/asn1/DerBuild.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

TEST(DerBuild, BooleansAsDerWritesThemAndFailuresLeaveTheBuffer) {
    DataBuffer out;
    ASSERT_TRUE(derbuild::boolean(out, true) && derbuild::boolean(out, false));
    EXPECT_EQ("0101ff010100", toHex(out));
    EXPECT_FALSE(derbuild::oid(out, "1.x"));
    EXPECT_EQ(6u, out.getSize());
}
