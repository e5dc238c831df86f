#include "support/base/XString.h"

#include <cstdlib>

XString::~XString() {
    if (m_secure) m_sb.secureClear();
}

void XString::clear() {
    if (m_secure)
        m_sb.secureClear();
    else
        m_sb.clear();
}

bool XString::setFromUtf8(const char* s) {
    clear();
    return m_sb.append(s);
}

void XString::copyFromX(const XString& other) {
    if (this == &other) return;
    m_secure = m_secure || other.m_secure;
    m_sb.setSecure(m_secure);
    m_sb.setString(other.m_sb);
}

bool XString::appendCodePoint(StringBuffer& sb, unsigned cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    char b[4];
    unsigned n;
    if (cp < 0x80) {
        b[0] = static_cast<char>(cp);
        n = 1;
    } else if (cp < 0x800) {
        b[0] = static_cast<char>(0xC0 | (cp >> 6));
        b[1] = static_cast<char>(0x80 | (cp & 0x3F));
        n = 2;
    } else if (cp < 0x10000) {
        b[0] = static_cast<char>(0xE0 | (cp >> 12));
        b[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        b[2] = static_cast<char>(0x80 | (cp & 0x3F));
        n = 3;
    } else {
        b[0] = static_cast<char>(0xF0 | (cp >> 18));
        b[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        b[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        b[3] = static_cast<char>(0x80 | (cp & 0x3F));
        n = 4;
    }
    return sb.appendN(b, n);
}

namespace {
template <bool LittleEndian>
bool appendUtf16(StringBuffer& sb, const unsigned char* p, unsigned nChars) {
    if (!p && nChars) return false;
    for (unsigned i = 0; i < nChars; ++i) {
        unsigned u =
            LittleEndian ? (p[2 * i] | (p[2 * i + 1] << 8)) : ((p[2 * i] << 8) | p[2 * i + 1]);
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < nChars) {
            const unsigned char* q = p + 2 * (i + 1);
            unsigned lo = LittleEndian ? (q[0] | (q[1] << 8)) : ((q[0] << 8) | q[1]);
            if (lo >= 0xDC00 && lo <= 0xDFFF) {
                u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
                ++i;
            }
        }
        if (!XString::appendCodePoint(sb, u)) return false;
    }
    return true;
}
}  // namespace

bool XString::appendUtf16N_le(const unsigned char* p, unsigned nChars) {
    return appendUtf16<true>(m_sb, p, nChars);
}

bool XString::appendUtf16N_be(const unsigned char* p, unsigned nChars) {
    return appendUtf16<false>(m_sb, p, nChars);
}

bool XString::appendUtf32N_be(const unsigned char* p, unsigned nChars) {
    if (!p && nChars) return false;
    for (unsigned i = 0; i < nChars; ++i) {
        const unsigned char* q = p + 4 * i;
        unsigned cp = (static_cast<unsigned>(q[0]) << 24) | (q[1] << 16) | (q[2] << 8) | q[3];
        if (!appendCodePoint(m_sb, cp)) return false;
    }
    return true;
}

bool XString::appendLatin1N(const unsigned char* p, unsigned n) {
    if (!p && n) return false;
    for (unsigned i = 0; i < n; ++i)
        if (!appendCodePoint(m_sb, p[i])) return false;
    return true;
}

int XString::intValue() const {
    const char* s = m_sb.getString();
    while (*s == ' ' || *s == '\t') ++s;
    bool neg = false;
    if (*s == '-' || *s == '+') neg = (*s++ == '-');
    if (*s < '0' || *s > '9') return 0;
    long long v = 0;
    while (*s >= '0' && *s <= '9') {
        v = v * 10 + (*s++ - '0');
        if (v > 2147483647LL) return 0;  // not a representable number
    }
    return static_cast<int>(neg ? -v : v);
}
