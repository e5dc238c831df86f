#include "support/asn1/MpMath.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/asn1/Asn1TestUtil.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

using asn1test::fromHex;
using asn1test::toHex;

namespace {

std::string radix(const mp_int& v, int r) {
    StringBuffer sb;
    EXPECT_TRUE(MpMath::mpToRadixString(v, sb, r));
    return sb.getString();
}

TEST(MpMath, UnsignedBytesToText) {
    struct Case {
        const char* name;
        const char* hex;
        const char* dec;
        unsigned low32;
    };
    const Case cases[] = {
        {"empty is zero", "", "0", 0},
        {"zero bytes", "000000", "0", 0},
        {"one", "01", "1", 1},
        {"leading zeros", "0000000102", "258", 258},
        {"2^32-1", "ffffffff", "4294967295", 0xffffffffu},
        {"2^32", "0100000000", "4294967296", 0},
        {"2^64-1", "ffffffffffffffff", "18446744073709551615", 0xffffffffu},
        {"2^64", "010000000000000000", "18446744073709551616", 0},
        {"10^30", "0c9f2c9cd04674edea40000000", "1000000000000000000000000000000", 0x40000000u},
        {"20 bytes of ff", "ffffffffffffffffffffffffffffffffffffffff",
         "1461501637330902918203684832716283019655932542975", 0xffffffffu},
        {"20-byte serial", "7f3a19c2d4e5f60718293a4b5c6d7e8f90a1b2c3",
         "726337515221060233509890179607372185939036189379", 0x90a1b2c3u},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> b = fromHex(c.hex);
        mp_int v;
        ASSERT_TRUE(MpMath::mpint_from_bytes(v, b.data(), static_cast<int>(b.size())));
        EXPECT_EQ(c.dec, radix(v, 10));
        EXPECT_EQ(c.low32, MpMath::mp_get_int(v));
        // Hex text is the bytes without leading zeros, upper case.
        std::string hex = toHex(b);
        while (hex.size() > 1 && hex[0] == '0') hex.erase(0, 1);
        if (hex.empty()) hex = "0";
        for (char& ch : hex) ch = static_cast<char>(toupper(ch));
        EXPECT_EQ(hex, radix(v, 16));
        std::vector<unsigned char> back;
        ASSERT_TRUE(MpMath::mpint_to_bytes(v, back));
        size_t lead = 0;
        while (lead < b.size() && b[lead] == 0) ++lead;
        EXPECT_EQ(toHex(b).substr(lead * 2), toHex(back));
    }
}

TEST(MpMath, SignedBytes) {
    struct Case {
        const char* hex;
        const char* dec;
    };
    const Case cases[] = {
        {"00", "0"},
        {"7f", "127"},
        {"0080", "128"},
        {"80", "-128"},
        {"ff", "-1"},
        {"ff7f", "-129"},
        {"ff00", "-256"},
        {"8000000000", "-549755813888"},
        {"ffffffffffffffffffff", "-1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hex);
        std::vector<unsigned char> b = fromHex(c.hex);
        mp_int v;
        ASSERT_TRUE(MpMath::mpint_from_signed_bytes(v, b.data(), static_cast<int>(b.size())));
        EXPECT_EQ(c.dec, radix(v, 10));
    }
    mp_int v;
    EXPECT_FALSE(MpMath::mpint_from_signed_bytes(v, nullptr, 1));
    const unsigned char one = 1;
    EXPECT_FALSE(MpMath::mpint_from_signed_bytes(v, &one, 0));
}

TEST(MpMath, RadixAndArguments) {
    const std::vector<unsigned char> b = fromHex("ff");
    mp_int v;
    ASSERT_TRUE(MpMath::mpint_from_bytes(v, b.data(), 1));
    EXPECT_EQ("11111111", radix(v, 2));
    EXPECT_EQ("377", radix(v, 8));
    EXPECT_EQ("73", radix(v, 36));
    StringBuffer sb("keep:");
    EXPECT_FALSE(MpMath::mpToRadixString(v, sb, 1));
    EXPECT_FALSE(MpMath::mpToRadixString(v, sb, 37));
    ASSERT_TRUE(MpMath::mpToRadixString(v, sb, 10));
    EXPECT_STREQ("keep:255", sb.getString()) << "text is appended";

    EXPECT_FALSE(MpMath::mpint_from_bytes(v, b.data(), -1));
    EXPECT_FALSE(MpMath::mpint_from_bytes(v, nullptr, 2));
    // A failed call leaves the value as it was.
    EXPECT_EQ("255", radix(v, 10));

    mp_int a, c;
    const std::vector<unsigned char> big = fromHex("0100000000");
    ASSERT_TRUE(MpMath::mpint_from_bytes(a, big.data(), 5));
    ASSERT_TRUE(MpMath::mpint_from_signed_bytes(c, b.data(), 1));  // -1
    EXPECT_EQ(1, MpMath::mp_cmp(a, v));
    EXPECT_EQ(-1, MpMath::mp_cmp(v, a));
    EXPECT_EQ(-1, MpMath::mp_cmp(c, v));
    EXPECT_EQ(0, MpMath::mp_cmp(v, v));
    EXPECT_EQ(33u, a.bitLength());
}

// Random values of every length up to 64 bytes against python's integers.
TEST(MpMath, DecimalAgreesWithPython) {
    std::mt19937 rng(12345);
    std::vector<std::string> hexes;
    for (int len = 1; len <= 64; ++len) {
        for (int k = 0; k < 3; ++k) {
            std::vector<unsigned char> b(static_cast<size_t>(len));
            for (auto& x : b) x = static_cast<unsigned char>(rng());
            hexes.push_back(toHex(b));
        }
    }
    ovtest::TempDir tmp;
    std::ostringstream all;
    for (const auto& h : hexes) all << h << "\n";
    ASSERT_TRUE(ovtest::writeFile(tmp.file("in.txt"), all.str()));
    std::string out;
    ASSERT_EQ(0, ovtest::run("python3 -c 'import sys\nfor l in open(sys.argv[1]): "
                             "print(int(l.strip(), 16))' " +
                                 ovtest::shq(tmp.file("in.txt")),
                             &out))
        << "python3 is needed as the oracle";
    std::istringstream lines(out);
    for (const auto& h : hexes) {
        std::string expected;
        ASSERT_TRUE(std::getline(lines, expected));
        std::vector<unsigned char> b = fromHex(h);
        mp_int v;
        ASSERT_TRUE(MpMath::mpint_from_bytes(v, b.data(), static_cast<int>(b.size())));
        ASSERT_EQ(expected, radix(v, 10)) << h;
    }
}

}  // namespace
