// mp_int and MpMath: exact arbitrary-precision integers, just enough for
// serial numbers and CRL numbers (bytes in, decimal or hexadecimal text out).
#pragma once

#include <cstdint>
#include <vector>

class StringBuffer;

// An integer of any size: sign and magnitude, the magnitude as 32-bit limbs,
// least significant first, with no zero limb at the top (zero has no limbs and
// is never negative). The limbs are wiped when the value is destroyed or
// replaced through MpMath, since big integers sometimes carry key material.
class mp_int {
  public:
    mp_int() = default;
    ~mp_int();
    mp_int(const mp_int&) = default;
    mp_int& operator=(const mp_int&) = default;

    bool isZero() const { return m_limbs.empty(); }
    bool isNegative() const { return m_neg; }
    // Number of significant bits of the magnitude; 0 for zero.
    unsigned bitLength() const;

    std::vector<uint32_t> m_limbs;
    bool m_neg = false;
};

// Static helpers over mp_int. None throws; memory exhaustion gives false.
class MpMath {
  public:
    // Replaces out with the unsigned big-endian integer of the n bytes (leading
    // zero bytes allowed; n == 0 gives zero). False for n < 0, or p null with n > 0.
    static bool mpint_from_bytes(mp_int& out, const unsigned char* p, int n);
    // Replaces out with the two's-complement big-endian integer of the n bytes,
    // as an ASN.1 INTEGER's content holds it. False when n <= 0 or p is null.
    static bool mpint_from_signed_bytes(mp_int& out, const unsigned char* p, int n);
    // Appends the magnitude as unsigned big-endian bytes without leading zeros
    // (nothing for zero).
    static bool mpint_to_bytes(const mp_int& v, std::vector<unsigned char>& out);

    // The low 32 bits of the magnitude (the sign is ignored).
    static unsigned mp_get_int(mp_int& v);

    // Appends the value's text in the radix (2 to 36; digits above 9 upper
    // case), with a leading '-' when negative; zero is "0". False for another radix.
    static bool mpToRadixString(const mp_int& v, StringBuffer& out, int radix);

    // -1, 0 or 1 as a is less than, equal to or greater than b.
    static int mp_cmp(const mp_int& a, const mp_int& b);
};
