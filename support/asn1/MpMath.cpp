#include "support/asn1/MpMath.h"

#include <algorithm>
#include <new>
#include <string>

#include "support/base/StringBuffer.h"
#include "support/base/ovstr.h"

namespace {

void wipe(std::vector<uint32_t>& limbs) {
    if (!limbs.empty()) ovSecureZero(limbs.data(), limbs.size() * sizeof(uint32_t));
}

void trimTop(std::vector<uint32_t>& limbs) {
    while (!limbs.empty() && limbs.back() == 0) limbs.pop_back();
}

// Big-endian bytes into little-endian limbs, the magnitude only.
bool limbsFromBytes(const unsigned char* p, size_t n, std::vector<uint32_t>& out) {
    try {
        std::vector<uint32_t> limbs((n + 3) / 4, 0);
        for (size_t i = 0; i < n; ++i) {
            size_t fromEnd = n - 1 - i;  // byte significance
            limbs[fromEnd / 4] |= static_cast<uint32_t>(p[i]) << (8 * (fromEnd % 4));
        }
        trimTop(limbs);
        wipe(out);
        out.swap(limbs);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Divides the magnitude in place by d (non-zero) and returns the remainder.
uint32_t divSmall(std::vector<uint32_t>& limbs, uint32_t d) {
    uint64_t rem = 0;
    for (size_t i = limbs.size(); i-- > 0;) {
        uint64_t cur = (rem << 32) | limbs[i];
        limbs[i] = static_cast<uint32_t>(cur / d);
        rem = cur % d;
    }
    trimTop(limbs);
    return static_cast<uint32_t>(rem);
}

}  // namespace

mp_int::~mp_int() {
    wipe(m_limbs);
}

unsigned mp_int::bitLength() const {
    if (m_limbs.empty()) return 0;
    unsigned bits = static_cast<unsigned>(m_limbs.size() - 1) * 32;
    for (uint32_t top = m_limbs.back(); top; top >>= 1) ++bits;
    return bits;
}

bool MpMath::mpint_from_bytes(mp_int& out, const unsigned char* p, int n) {
    if (n < 0 || (n > 0 && !p)) return false;
    if (!limbsFromBytes(p, static_cast<size_t>(n), out.m_limbs)) return false;
    out.m_neg = false;
    return true;
}

bool MpMath::mpint_from_signed_bytes(mp_int& out, const unsigned char* p, int n) {
    if (n <= 0 || !p) return false;
    if (!(p[0] & 0x80)) return mpint_from_bytes(out, p, n);
    // Negative: the magnitude is the two's complement of the bytes.
    try {
        std::vector<unsigned char> mag(p, p + n);
        for (auto& b : mag) b = static_cast<unsigned char>(~b);
        for (size_t i = mag.size(); i-- > 0;) {
            if (++mag[i] != 0) break;
        }
        bool ok = limbsFromBytes(mag.data(), mag.size(), out.m_limbs);
        std::fill(mag.begin(), mag.end(), 0);
        if (!ok) return false;
        out.m_neg = !out.m_limbs.empty();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool MpMath::mpint_to_bytes(const mp_int& v, std::vector<unsigned char>& out) {
    try {
        bool started = false;
        for (size_t i = v.m_limbs.size(); i-- > 0;) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                unsigned char b = static_cast<unsigned char>(v.m_limbs[i] >> shift);
                if (!started && b == 0) continue;
                started = true;
                out.push_back(b);
            }
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

unsigned MpMath::mp_get_int(mp_int& v) {
    return v.m_limbs.empty() ? 0u : v.m_limbs[0];
}

bool MpMath::mpToRadixString(const mp_int& v, StringBuffer& out, int radix) {
    if (radix < 2 || radix > 36) return false;
    static const char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    if (v.isZero()) return out.appendChar('0');

    // Peel off as many digits per division as fit in 32 bits, so that a 20-byte
    // serial number costs a handful of passes instead of one per digit.
    uint32_t chunk = static_cast<uint32_t>(radix);
    int digitsPerChunk = 1;
    while (static_cast<uint64_t>(chunk) * static_cast<uint32_t>(radix) <= 0xffffffffull) {
        chunk *= static_cast<uint32_t>(radix);
        ++digitsPerChunk;
    }

    try {
        std::vector<uint32_t> work(v.m_limbs);
        std::string rev;  // least significant digit first
        while (!work.empty()) {
            uint32_t rem = divSmall(work, chunk);
            for (int i = 0; i < digitsPerChunk; ++i) {
                if (work.empty() && rem == 0) break;  // no leading zeros on the top chunk
                rev.push_back(kDigits[rem % static_cast<uint32_t>(radix)]);
                rem /= static_cast<uint32_t>(radix);
            }
        }
        wipe(work);
        if (v.m_neg) rev.push_back('-');
        std::reverse(rev.begin(), rev.end());
        return out.appendN(rev.data(), static_cast<unsigned>(rev.size()));
    } catch (const std::bad_alloc&) {
        return false;
    }
}

int MpMath::mp_cmp(const mp_int& a, const mp_int& b) {
    if (a.m_neg != b.m_neg) return a.m_neg ? -1 : 1;
    int mag = 0;
    if (a.m_limbs.size() != b.m_limbs.size()) {
        mag = a.m_limbs.size() < b.m_limbs.size() ? -1 : 1;
    } else {
        for (size_t i = a.m_limbs.size(); i-- > 0;) {
            if (a.m_limbs[i] != b.m_limbs[i]) {
                mag = a.m_limbs[i] < b.m_limbs[i] ? -1 : 1;
                break;
            }
        }
    }
    return a.m_neg ? -mag : mag;
}
