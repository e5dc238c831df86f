#include <gtest/gtest.h>

#include <cstring>

#include "support/base/DataBuffer.h"
#include "support/crypto/RandomGen.h"

namespace {

// The count is appended after what the buffer holds; two 16-byte draws (an OCSP
// nonce) differ, and a long draw uses every byte value without repeating
// itself: a generator stuck on a constant or a short cycle fails.
TEST(RandomGen, AppendsFreshBytes) {
    for (unsigned n : {0u, 1u, 257u}) {
        DataBuffer a;
        a.append("xy", 2);
        ASSERT_TRUE(RandomGen::randomBytes(n, a));
        EXPECT_TRUE(a.getSize() == 2 + n && memcmp(a.getData2(), "xy", 2) == 0) << n;
    }
    DataBuffer a, b, big;
    ASSERT_TRUE(RandomGen::randomBytes(16, a) && RandomGen::randomBytes(16, b) &&
                RandomGen::randomBytes(65536, big));
    EXPECT_FALSE(a.equals(b));
    bool seen[256] = {false};
    for (unsigned i = 0; i < big.getSize(); ++i) seen[big.getData2()[i]] = true;
    for (int v = 0; v < 256; ++v) EXPECT_TRUE(seen[v]) << v;
    EXPECT_NE(0, memcmp(big.getData2(), big.getData2() + 32768, 32768));
}

}  // namespace
