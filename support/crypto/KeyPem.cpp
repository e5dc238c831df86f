#include "support/crypto/KeyPem.h"

#include <cstring>

#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/StringBuffer.h"

namespace keypem {

namespace {

const char kBegin[] = "-----BEGIN ";
const char kEnd[] = "-----END ";
const char kDashes[] = "-----";

// Index of the first occurrence of needle in text[from, n), or n.
unsigned find(const char* text, unsigned n, unsigned from, const char* needle) {
    const unsigned len = static_cast<unsigned>(strlen(needle));
    if (len > n) return n;
    for (unsigned i = from; i + len <= n; ++i) {
        if (text[i] == needle[0] && memcmp(text + i, needle, len) == 0) return i;
    }
    return n;
}

}  // namespace

bool Block::labelIs(const char* text, const char* label) const {
    return strlen(label) == labelLen && memcmp(text + labelStart, label, labelLen) == 0;
}

bool nextBlock(const char* text, unsigned n, unsigned* pos, Block* out) {
    unsigned from = *pos;
    while (from < n) {
        const unsigned b = find(text, n, from, kBegin);
        if (b >= n) break;
        const unsigned labelStart = b + sizeof kBegin - 1;
        const unsigned labelEnd = find(text, n, labelStart, kDashes);
        if (labelEnd >= n) break;
        // A label is one line of printable text.
        bool labelOk = labelEnd > labelStart && labelEnd - labelStart < 64;
        for (unsigned i = labelStart; labelOk && i < labelEnd; ++i) {
            if (text[i] < 0x20 || text[i] > 0x7e) labelOk = false;
        }
        if (!labelOk) {
            from = labelStart;
            continue;
        }
        const unsigned bodyStart = labelEnd + sizeof kDashes - 1;
        // The next END marker must close this label; any other means this BEGIN
        // was never closed.
        const unsigned e = find(text, n, bodyStart, kEnd);
        const unsigned labelLen = labelEnd - labelStart;
        const unsigned l = e + sizeof kEnd - 1;
        if (e >= n || l + labelLen + 5 > n || memcmp(text + l, text + labelStart, labelLen) != 0 ||
            memcmp(text + l + labelLen, kDashes, 5) != 0) {
            from = bodyStart;
            continue;
        }
        out->labelStart = labelStart;
        out->labelLen = labelLen;
        out->blockStart = b;
        out->bodyStart = bodyStart;
        out->bodyEnd = e;
        out->blockEnd = e + (sizeof kEnd - 1) + out->labelLen + 5;
        out->encryptedHeaders = false;
        const unsigned proc = find(text, e, bodyStart, "Proc-Type:");
        if (proc < e && find(text, e, proc, "ENCRYPTED") < e) out->encryptedHeaders = true;
        *pos = out->blockEnd;
        return true;
    }
    *pos = n;
    return false;
}

bool decodeBody(const char* text, const Block& b, DataBuffer& out) {
    unsigned start = b.bodyStart;
    // RFC 1421 headers end at the first empty line.
    if (find(text, b.bodyEnd, start, ":") < b.bodyEnd) {
        unsigned blank = find(text, b.bodyEnd, start, "\n\n");
        unsigned blankCr = find(text, b.bodyEnd, start, "\n\r\n");
        if (blankCr < blank) blank = blankCr;
        if (blank >= b.bodyEnd) return false;
        start = blank + 1;
    }
    return ContentCoding::decodeBase64ToDb(text + start, b.bodyEnd - start, out);
}

bool appendBlock(const char* label, const unsigned char* der, unsigned n, StringBuffer& out) {
    ContentCoding cc;
    cc.setLineLength(64);
    StringBuffer body;
    body.setSecure(true);
    if (!cc.encodeBase64(der, n, body)) return false;
    if (!body.isEmpty() && !body.endsWith("\r\n") && !body.append("\r\n")) return false;
    return out.append3(kBegin, label, "-----\r\n") && out.append(body) &&
           out.append3(kEnd, label, "-----\r\n");
}

}  // namespace keypem
