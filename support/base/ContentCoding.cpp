#include "support/base/ContentCoding.h"

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

const char kB64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kB64Url[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// 0..63 for alphabet characters, 64 for '=', 65 for skipped whitespace, 255 otherwise.
struct DecodeTable {
    unsigned char v[256];
    explicit DecodeTable(bool url) {
        for (int i = 0; i < 256; ++i) v[i] = 255;
        for (int i = 0; i < 64; ++i)
            v[static_cast<unsigned char>(kB64[i])] = static_cast<unsigned char>(i);
        if (url) {
            v[static_cast<unsigned char>('-')] = 62;
            v[static_cast<unsigned char>('_')] = 63;
        }
        v[static_cast<unsigned char>('=')] = 64;
        for (char c : {' ', '\t', '\r', '\n', '\f', '\v'}) v[static_cast<unsigned char>(c)] = 65;
    }
};
const DecodeTable kStd(false);
const DecodeTable kUrl(true);

bool encode(const void* data, unsigned n, StringBuffer& out, const char* alphabet, bool pad,
            unsigned lineLen) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    if (n && !p) return false;
    char buf[256];
    unsigned used = 0, col = 0;
    auto put = [&](char c) -> bool {
        buf[used++] = c;
        if (lineLen && ++col == lineLen) {
            buf[used++] = '\r';
            buf[used++] = '\n';
            col = 0;
        }
        if (used > sizeof buf - 8) {
            if (!out.appendN(buf, used)) return false;
            used = 0;
        }
        return true;
    };
    unsigned i = 0;
    for (; i + 3 <= n; i += 3) {
        unsigned v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
        if (!put(alphabet[v >> 18]) || !put(alphabet[(v >> 12) & 63]) ||
            !put(alphabet[(v >> 6) & 63]) || !put(alphabet[v & 63]))
            return false;
    }
    if (n - i == 1) {
        unsigned v = p[i] << 16;
        if (!put(alphabet[v >> 18]) || !put(alphabet[(v >> 12) & 63])) return false;
        if (pad && (!put('=') || !put('='))) return false;
    } else if (n - i == 2) {
        unsigned v = (p[i] << 16) | (p[i + 1] << 8);
        if (!put(alphabet[v >> 18]) || !put(alphabet[(v >> 12) & 63]) ||
            !put(alphabet[(v >> 6) & 63]))
            return false;
        if (pad && !put('=')) return false;
    }
    return used == 0 || out.appendN(buf, used);
}

bool decode(const char* s, unsigned n, DataBuffer& out, const DecodeTable& t) {
    if (n && !s) return false;
    // An empty out is decoded into directly (emptied again on failure): going
    // through a second buffer would hold the decoded bytes twice.
    const bool direct = out.isEmpty();
    DataBuffer scratch;
    scratch.m_secure = out.m_secure;
    DataBuffer& tmp = direct ? out : scratch;
    struct EmptyOnFailure {
        DataBuffer* db;
        ~EmptyOnFailure() {
            if (db) db->clear();
        }
    } guard{direct ? &out : nullptr};
    if (!tmp.ensureCapacity(n / 4 * 3 + 3)) return false;
    unsigned acc = 0, k = 0;
    bool padding = false;
    for (unsigned i = 0; i < n; ++i) {
        unsigned char v = t.v[static_cast<unsigned char>(s[i])];
        if (v == 65) continue;
        if (v == 255) return false;
        if (v == 64) {
            padding = true;
            continue;
        }
        if (padding) return false;  // data after '='
        acc = (acc << 6) | v;
        if (++k == 4) {
            unsigned char b[3] = {static_cast<unsigned char>(acc >> 16),
                                  static_cast<unsigned char>(acc >> 8),
                                  static_cast<unsigned char>(acc)};
            tmp.append(b, 3);
            acc = 0;
            k = 0;
        }
    }
    if (k == 1) return false;
    if (k == 2) tmp.appendChar(static_cast<unsigned char>(acc >> 4));
    if (k == 3) {
        unsigned char b[2] = {static_cast<unsigned char>(acc >> 10),
                              static_cast<unsigned char>(acc >> 2)};
        tmp.append(b, 2);
    }
    if (direct) {
        guard.db = nullptr;
        return true;
    }
    return out.append(tmp);
}

bool isBase64Char(unsigned char c, bool& sawPad, unsigned& alpha) {
    unsigned char v = kStd.v[c];
    if (v == 255) return false;
    if (v == 65) return true;
    ++alpha;
    if (v == 64) {
        sawPad = true;
        return true;
    }
    if (sawPad) return false;
    return true;
}

}  // namespace

bool ContentCoding::encodeBase64(const void* p, unsigned n, StringBuffer& out) const {
    return encode(p, n, out, kB64, true, m_lineLength);
}

bool ContentCoding::encodeBase64_noCrLf(const void* p, unsigned n, StringBuffer& out) {
    return encode(p, n, out, kB64, true, 0);
}

bool ContentCoding::encodeBase64Url(const void* p, unsigned n, StringBuffer& out) {
    return encode(p, n, out, kB64Url, false, 0);
}

bool ContentCoding::decodeBase64ToDb(const char* s, unsigned n, DataBuffer& out) {
    return decode(s, n, out, kStd);
}

bool ContentCoding::decodeBase64UrlToDb(const char* s, unsigned n, DataBuffer& out) {
    return decode(s, n, out, kUrl);
}

bool ContentCoding::isBase64(const char* s, unsigned n, LogBase& log) {
    if (!s || n == 0) return false;
    bool sawPad = false;
    unsigned alpha = 0;
    for (unsigned i = 0; i < n; ++i) {
        if (!isBase64Char(static_cast<unsigned char>(s[i]), sawPad, alpha)) {
            if (log.verboseLogging) log.logInfo("Not base64: character outside the alphabet.");
            return false;
        }
    }
    return alpha >= 4;
}

bool ContentCoding::isBase64_utf16LE(const char* s, unsigned n) {
    if (!s || n < 2) return false;
    bool sawPad = false;
    unsigned alpha = 0;
    for (unsigned i = 0; i + 1 < n; i += 2) {
        if (s[i + 1] != 0) return false;
        if (!isBase64Char(static_cast<unsigned char>(s[i]), sawPad, alpha)) return false;
    }
    return alpha >= 4;
}

bool ContentCoding::encodeHex(const void* data, unsigned n, StringBuffer& out, bool lower) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    if (n && !p) return false;
    const char* digits = lower ? "0123456789abcdef" : "0123456789ABCDEF";
    char buf[256];
    unsigned used = 0;
    for (unsigned i = 0; i < n; ++i) {
        buf[used++] = digits[p[i] >> 4];
        buf[used++] = digits[p[i] & 15];
        if (used == sizeof buf) {
            if (!out.appendN(buf, used)) return false;
            used = 0;
        }
    }
    return used == 0 || out.appendN(buf, used);
}

bool ContentCoding::decodeHex(const char* s, unsigned n, DataBuffer& out) {
    if (n && !s) return false;
    DataBuffer tmp;
    tmp.m_secure = out.m_secure;
    int hi = -1;
    for (unsigned i = 0; i < n; ++i) {
        char c = s[i];
        int d;
        if (c >= '0' && c <= '9')
            d = c - '0';
        else if (c >= 'a' && c <= 'f')
            d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            d = c - 'A' + 10;
        else if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ':')
            continue;
        else
            return false;
        if (hi < 0) {
            hi = d;
        } else {
            if (!tmp.appendChar(static_cast<unsigned char>((hi << 4) | d))) return false;
            hi = -1;
        }
    }
    if (hi >= 0) return false;
    return out.append(tmp);
}
