#include <gtest/gtest.h>

#include <cstring>

#include "support/base/DataBuffer.h"
#include "support/crypto/RandomGen.h"

namespace {

TEST(RandomGen, AppendsTheRequestedCount) {
    for (unsigned n : {0u, 1u, 16u, 255u, 256u, 257u, 5000u}) {
        SCOPED_TRACE(n);
        DataBuffer out;
        out.append("xy", 2);
        ASSERT_TRUE(RandomGen::randomBytes(n, out));
        ASSERT_EQ(2u + n, out.getSize());
        EXPECT_EQ(0, memcmp(out.getData2(), "xy", 2));
    }
}

// Two draws of 16 bytes (an OCSP nonce) never repeat, and a long draw uses
// every byte value: a generator stuck on a constant or a short cycle fails.
TEST(RandomGen, OutputVaries) {
    DataBuffer a, b, big;
    ASSERT_TRUE(RandomGen::randomBytes(16, a));
    ASSERT_TRUE(RandomGen::randomBytes(16, b));
    EXPECT_FALSE(a.equals(b));
    ASSERT_TRUE(RandomGen::randomBytes(65536, big));
    bool seen[256] = {false};
    for (unsigned i = 0; i < big.getSize(); ++i) seen[big.getData2()[i]] = true;
    int distinct = 0;
    for (bool s : seen) distinct += s;
    EXPECT_EQ(256, distinct);
    // The second half is not a copy of the first.
    EXPECT_NE(0, memcmp(big.getData2(), big.getData2() + 32768, 32768));
}

}  // namespace
