#include "support/base/StringBuffer.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/ovstr.h"

namespace {

inline char lowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

bool equalsNoCaseN(const char* a, const char* b, unsigned n) {
    for (unsigned i = 0; i < n; ++i)
        if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
    return true;
}

inline bool isFws(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
inline bool isTrimSpace(char c) {
    return isFws(c) || c == '\f' || c == '\v';
}

// Literal scrambling: printable ASCII (0x20..0x7e) is rotated within the 95
// printable characters by an amount that grows with the position, so the text
// never appears in the binary as is and never contains a zero byte.
constexpr int kScramBase = 17;
constexpr int kScramStep = 7;

}  // namespace

StringBuffer::StringBuffer(const char* s) {
    append(s);
}

StringBuffer::~StringBuffer() {
    if (m_data) {
        if (m_secure) ovSecureZero(m_data, m_capacity);
        free(m_data);
    }
}

StringBuffer::StringBuffer(const StringBuffer& other)
    : NonRefCountedObj(), m_secure(other.m_secure) {
    append(other);
}

StringBuffer& StringBuffer::operator=(const StringBuffer& other) {
    if (this != &other) setString(other);
    return *this;
}

StringBuffer* StringBuffer::createNewSB() {
    return new (std::nothrow) StringBuffer();
}

const char* StringBuffer::getString() const {
    return m_data ? m_data : "";
}

bool StringBuffer::reserve(unsigned total) {
    if (total + 1 <= m_capacity) return true;
    size_t cap = m_capacity ? m_capacity : 32;
    while (cap < static_cast<size_t>(total) + 1) cap *= 2;
    char* p = static_cast<char*>(malloc(cap));
    if (!p) return false;
    if (m_data) {
        memcpy(p, m_data, m_size + 1);
        if (m_secure) ovSecureZero(m_data, m_capacity);
        free(m_data);
    } else {
        p[0] = '\0';
    }
    m_data = p;
    m_capacity = static_cast<unsigned>(cap);
    return true;
}

void StringBuffer::clear() {
    if (m_data) {
        if (m_secure) ovSecureZero(m_data, m_size);
        m_data[0] = '\0';
    }
    m_size = 0;
}

void StringBuffer::secureClear() {
    if (m_data) ovSecureZero(m_data, m_capacity);
    m_size = 0;
}

bool StringBuffer::setString(const StringBuffer& other) {
    if (this == &other) return true;
    return setString(other.getString());
}

bool StringBuffer::setString(const char* s) {
    StringBuffer tmp;
    tmp.m_secure = m_secure;
    if (!tmp.append(s)) return false;
    clear();
    return append(tmp);
}

void StringBuffer::shorten(unsigned n) {
    unsigned drop = n > m_size ? m_size : n;
    if (!drop) return;
    if (m_secure) ovSecureZero(m_data + m_size - drop, drop);
    m_size -= drop;
    m_data[m_size] = '\0';
}

bool StringBuffer::appendN(const char* s, unsigned n) {
    if (n == 0) return true;
    if (!s) return false;
    if (n > 0xFFFFFFF0u - m_size) return false;
    bool inside = m_data && s >= m_data && s < m_data + m_capacity;
    size_t off = inside ? static_cast<size_t>(s - m_data) : 0;
    if (!reserve(m_size + n)) return false;
    if (inside) s = m_data + off;
    memmove(m_data + m_size, s, n);
    m_size += n;
    m_data[m_size] = '\0';
    return true;
}

bool StringBuffer::append(const char* s) {
    return appendN(s, ovStrLen(s));
}
bool StringBuffer::append(const StringBuffer& other) {
    return appendN(other.getString(), other.m_size);
}
bool StringBuffer::append(const DataBuffer& db) {
    return appendN(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}
bool StringBuffer::append3(const char* a, const char* b, const char* c) {
    return append(a) && append(b) && append(c);
}
bool StringBuffer::appendChar(char c) {
    return appendN(&c, 1);
}

bool StringBuffer::appendUint32(unsigned v) {
    char buf[12];
    ov_uint32_to_str(v, buf);
    return append(buf);
}

bool StringBuffer::appendInt64(long long v) {
    char buf[24];
    int i = 0;
    unsigned long long u =
        v < 0 ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
    do {
        buf[i++] = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u);
    if (v < 0) buf[i++] = '-';
    char out[24];
    int j = 0;
    while (i) out[j++] = buf[--i];
    return appendN(out, static_cast<unsigned>(j));
}

bool StringBuffer::appendHex(const unsigned char* p, unsigned n, bool lower) {
    return ContentCoding::encodeHex(p, n, *this, lower);
}

bool StringBuffer::equals(const StringBuffer& other) const {
    return m_size == other.m_size && memcmp(getString(), other.getString(), m_size) == 0;
}

bool StringBuffer::equals(const char* s) const {
    unsigned n = ovStrLen(s);
    return n == m_size && (n == 0 || memcmp(m_data, s, n) == 0);
}

bool StringBuffer::equals_x(const char* scrambled) const {
    StringBuffer plain(scrambled);
    litScram(plain.m_data ? plain.m_data : nullptr);
    bool eq = equals(plain);
    plain.secureClear();
    return eq;
}

bool StringBuffer::equalsIgnoreCase(const char* s) const {
    unsigned n = ovStrLen(s);
    return n == m_size && equalsNoCaseN(getString(), s, n);
}

bool StringBuffer::beginsWith(const char* s) const {
    unsigned n = ovStrLen(s);
    return n <= m_size && (n == 0 || memcmp(m_data, s, n) == 0);
}

bool StringBuffer::beginsWithIgnoreCase(const char* s) const {
    unsigned n = ovStrLen(s);
    return n <= m_size && equalsNoCaseN(getString(), s, n);
}

bool StringBuffer::endsWith(const char* s) const {
    unsigned n = ovStrLen(s);
    return n <= m_size && (n == 0 || memcmp(m_data + m_size - n, s, n) == 0);
}

int StringBuffer::indexOf(const char* s, unsigned start) const {
    unsigned n = ovStrLen(s);
    if (n == 0 || start >= m_size || n > m_size - start) return -1;
    // memmem rather than strstr: the text may hold zero bytes.
    const void* p = memmem(m_data + start, m_size - start, s, n);
    return p ? static_cast<int>(static_cast<const char*>(p) - m_data) : -1;
}

bool StringBuffer::containsSubstring(const char* s) const {
    return indexOf(s, 0) >= 0;
}

bool StringBuffer::containsSubstringNoCase(const char* s) const {
    unsigned n = ovStrLen(s);
    if (n == 0 || n > m_size) return false;
    for (unsigned i = 0; i + n <= m_size; ++i)
        if (equalsNoCaseN(m_data + i, s, n)) return true;
    return false;
}

void StringBuffer::toLowerCase() {
    for (unsigned i = 0; i < m_size; ++i) m_data[i] = lowerAscii(m_data[i]);
}

void StringBuffer::toUpperCase() {
    for (unsigned i = 0; i < m_size; ++i)
        if (m_data[i] >= 'a' && m_data[i] <= 'z') m_data[i] = static_cast<char>(m_data[i] - 32);
}

void StringBuffer::removeFws() {
    unsigned j = 0;
    for (unsigned i = 0; i < m_size; ++i)
        if (!isFws(m_data[i])) m_data[j++] = m_data[i];
    if (m_data) m_data[j] = '\0';
    m_size = j;
}

void StringBuffer::trim2() {
    if (!m_size) return;
    unsigned b = 0, e = m_size;
    while (b < e && isTrimSpace(m_data[b])) ++b;
    while (e > b && isTrimSpace(m_data[e - 1])) --e;
    if (b) memmove(m_data, m_data + b, e - b);
    m_size = e - b;
    m_data[m_size] = '\0';
}

void StringBuffer::chopAtSubstr(const char* s, bool caseInsensitive) {
    unsigned n = ovStrLen(s);
    if (!n || n > m_size) return;
    int pos = -1;
    if (!caseInsensitive) {
        pos = indexOf(s, 0);
    } else {
        for (unsigned i = 0; i + n <= m_size; ++i)
            if (equalsNoCaseN(m_data + i, s, n)) {
                pos = static_cast<int>(i);
                break;
            }
    }
    if (pos >= 0) shorten(m_size - static_cast<unsigned>(pos));
}

bool StringBuffer::replaceAt(unsigned pos, unsigned len, const char* to) {
    StringBuffer tmp;
    tmp.m_secure = m_secure;
    if (!tmp.appendN(m_data, pos) || !tmp.append(to) ||
        !tmp.appendN(m_data + pos + len, m_size - pos - len))
        return false;
    clear();
    return append(tmp);
}

bool StringBuffer::replaceFirstOccurance(const char* from, const char* to, bool caseInsensitive) {
    unsigned n = ovStrLen(from);
    if (!n || n > m_size) return false;
    for (unsigned i = 0; i + n <= m_size; ++i) {
        bool hit =
            caseInsensitive ? equalsNoCaseN(m_data + i, from, n) : memcmp(m_data + i, from, n) == 0;
        if (hit) return replaceAt(i, n, to);
    }
    return false;
}

bool StringBuffer::replaceLastOccurance(const char* from, const char* to) {
    unsigned n = ovStrLen(from);
    if (!n || n > m_size) return false;
    for (unsigned i = m_size - n + 1; i-- > 0;)
        if (memcmp(m_data + i, from, n) == 0) return replaceAt(i, n, to);
    return false;
}

int StringBuffer::replaceAllOccurances(const char* from, const char* to) {
    unsigned n = ovStrLen(from);
    if (!n || n > m_size) return 0;
    StringBuffer out;
    out.m_secure = m_secure;
    int count = 0;
    unsigned i = 0;
    while (i < m_size) {
        if (i + n <= m_size && memcmp(m_data + i, from, n) == 0) {
            out.append(to);
            i += n;
            ++count;
        } else {
            out.appendChar(m_data[i++]);
        }
    }
    if (count) setString(out);
    return count;
}

bool StringBuffer::decode(const char* encoding, DataBuffer& out, LogBase& log) const {
    StringBuffer enc(encoding);
    enc.toLowerCase();
    bool ok;
    if (enc.equals("base64"))
        ok = ContentCoding::decodeBase64ToDb(getString(), m_size, out);
    else if (enc.equals("base64url"))
        ok = ContentCoding::decodeBase64UrlToDb(getString(), m_size, out);
    else if (enc.equals("hex"))
        ok = ContentCoding::decodeHex(getString(), m_size, out);
    else {
        log.logError("Unsupported encoding.");
        log.logData("encoding", encoding ? encoding : "");
        return false;
    }
    if (!ok) {
        log.logError("Text is not valid in the named encoding.");
        log.logData("encoding", encoding);
    }
    return ok;
}

namespace {

// Shifts each printable ASCII character by a position-dependent amount,
// forwards (+1) or back (-1); anything else stays as it is.
void scramShift(char* s, int direction) {
    if (!s) return;
    for (int i = 0; s[i]; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < 0x20 || c > 0x7e) continue;
        int shift = (kScramBase + kScramStep * i) % 95;
        s[i] = static_cast<char>(0x20 + ((c - 0x20) + direction * shift + 95) % 95);
    }
}

}  // namespace

void StringBuffer::litScram(char* s) {
    scramShift(s, -1);
}

void StringBuffer::litScramEncode(char* s) {
    scramShift(s, +1);
}
