#include "support/asn1/MpMath.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

namespace {

std::string radix(const mp_int& v, int r) {
    StringBuffer sb;
    EXPECT_TRUE(MpMath::mpToRadixString(v, sb, r));
    return sb.getString();
}

// Limb and sign boundaries, then random values of every length up to 64 bytes,
// read unsigned and signed, against python's integers.
TEST(MpMath, AgreesWithPython) {
    std::string hexes = "00 000000 7f 80 0080 ff7f ff00 ffffffff 0100000000 ffffffffffffffffff";
    std::mt19937 rng(12345);
    for (size_t k = 0; k < 64 * 3; ++k) {
        Bytes b(1 + k / 3);
        for (auto& x : b) x = static_cast<unsigned char>(rng());
        hexes += " " + toHex(b);
    }
    std::string out;
    ASSERT_EQ(0, ovtest::run("echo " + hexes +
                                 " | python3 -c 'import sys\n"
                                 "for h in sys.stdin.read().split():\n"
                                 " b = bytes.fromhex(h); u = int.from_bytes(b, \"big\")\n"
                                 " print(h, u, \"%X\" % u, u & 0xffffffff, "
                                 "int.from_bytes(b, \"big\", signed=True))'",
                             &out))
        << "python3 is needed as the oracle";
    std::istringstream lines(out);
    std::string hex, dec, upper, sdec;
    unsigned long low32 = 0, n = 0;
    for (; lines >> hex >> dec >> upper >> low32 >> sdec; ++n) {
        SCOPED_TRACE(hex);
        Bytes b = fromHex(hex), back;
        mp_int v, s;
        ASSERT_TRUE(MpMath::mpint_from_bytes(v, b.data(), static_cast<int>(b.size())));
        ASSERT_TRUE(MpMath::mpint_from_signed_bytes(s, b.data(), static_cast<int>(b.size())));
        ASSERT_TRUE(MpMath::mpint_to_bytes(v, back));
        EXPECT_EQ(dec, radix(v, 10));
        EXPECT_EQ(upper, radix(v, 16));
        EXPECT_EQ(low32, MpMath::mp_get_int(v));
        EXPECT_EQ(upper == "0" ? Bytes() : fromHex(std::string(upper.size() % 2, '0') + upper),
                  back);
        EXPECT_EQ(sdec, radix(s, 10));
    }
    EXPECT_EQ(10u + 64 * 3, n);
}

TEST(MpMath, RadixCompareAndArguments) {
    const unsigned char ff = 0xff;
    mp_int v, minusOne;
    ASSERT_TRUE(MpMath::mpint_from_bytes(v, &ff, 1) &&
                MpMath::mpint_from_signed_bytes(minusOne, &ff, 1));
    EXPECT_EQ("73", radix(v, 36));
    StringBuffer sb("keep:");
    EXPECT_FALSE(MpMath::mpToRadixString(v, sb, 1) || MpMath::mpToRadixString(v, sb, 37));
    ASSERT_TRUE(MpMath::mpToRadixString(v, sb, 10));
    EXPECT_STREQ("keep:255", sb.getString()) << "text is appended";
    EXPECT_FALSE(MpMath::mpint_from_bytes(v, &ff, -1) || MpMath::mpint_from_bytes(v, nullptr, 2) ||
                 MpMath::mpint_from_signed_bytes(v, nullptr, 1) ||
                 MpMath::mpint_from_signed_bytes(v, &ff, 0));
    EXPECT_EQ("255", radix(v, 10)) << "a failed call leaves the value alone";
    EXPECT_TRUE(MpMath::mp_cmp(minusOne, v) < 0 && MpMath::mp_cmp(v, minusOne) > 0);
}

}  // namespace
