#include "support/asn1/DerReader.h"

#include <cstdio>

#include "support/base/LogBase.h"

bool DerParser::parseHeader(size_t pos, DerElement* out, size_t* next, int depth) const {
    if (depth > der::kMaxDepth) return fail("ASN.1 nesting is too deep");
    const size_t n = m_in.size();
    const unsigned char* p = m_in.data();
    if (pos >= n) return fail("ASN.1 input ends where an item was expected");
    const size_t start = pos;

    unsigned char first = p[pos++];
    DerElement e;
    e.tagClass = first >> 6;
    e.constructed = (first & 0x20) != 0;
    if ((first & 0x1f) != 0x1f) {
        e.tagNumber = first & 0x1f;
        e.tag = first;
    } else {
        // High-tag form: base-128 digits, the first of which may not be 0x80.
        unsigned num = 0;
        int digits = 0;
        for (;;) {
            if (pos >= n) return fail("ASN.1 tag is truncated");
            unsigned char b = p[pos++];
            if (digits == 0 && b == 0x80) return fail("ASN.1 tag number has a leading zero digit");
            if (++digits > 3) return fail("ASN.1 tag number is too large");  // above 2^21: unused
            num = (num << 7) | (b & 0x7f);
            if (!(b & 0x80)) break;
        }
        if (num < 31) return fail("ASN.1 tag number should use the short form");
        e.tagNumber = num;
        // The 0x1f bits of the first byte keep this distinct from every low tag.
        e.tag = (static_cast<unsigned>(first) << 24) | num;
    }

    if (pos >= n) return fail("ASN.1 length is missing");
    unsigned char lb = p[pos++];
    size_t len = 0;
    if (lb < 0x80) {
        len = lb;
    } else if (lb == 0x80) {
        // Indefinite length: BER only, constructed only. PKCS#7 files exported by
        // Windows and some toolkits stream SignedData this way.
        if (!m_allowBer) return fail("ASN.1 indefinite length is not allowed in DER");
        if (!e.constructed) return fail("ASN.1 indefinite length on a primitive item");
        e.indefinite = true;
    } else {
        unsigned nbytes = lb & 0x7f;
        if (nbytes > 4) return fail("ASN.1 length is too large");  // nothing here exceeds 4 GiB
        if (nbytes > n - pos) return fail("ASN.1 length is truncated");
        for (unsigned i = 0; i < nbytes; ++i) len = (len << 8) | p[pos + i];
        // DER wants the shortest form; BER readers meet padded lengths in old
        // PKCS#7 and certificate exports, so only strict mode rejects them.
        if (!m_allowBer && (p[pos] == 0 || len < 0x80))
            return fail("ASN.1 length is not in its shortest form");
        pos += nbytes;
    }

    if (!e.indefinite) {
        if (len > n - pos) return fail("ASN.1 length exceeds input");
        e.contents = m_in.sub(pos, len);
        e.whole = m_in.sub(start, pos + len - start);
        *next = pos + len;
    } else {
        // Walk the nested elements until the end-of-contents pair.
        size_t cur = pos;
        for (;;) {
            if (n - cur < 2) return fail("ASN.1 indefinite-length item has no end-of-contents");
            if (p[cur] == 0 && p[cur + 1] == 0) break;
            DerElement child;
            size_t after = 0;
            if (!parseHeader(cur, &child, &after, depth + 1)) return false;
            cur = after;
        }
        e.contents = m_in.sub(pos, cur - pos);
        e.whole = m_in.sub(start, cur + 2 - start);
        *next = cur + 2;
    }
    *out = e;
    return true;
}

bool DerParser::readAny(DerElement* out) {
    size_t next = 0;
    DerElement e;
    if (!parseHeader(m_pos, &e, &next, 0)) return false;
    *out = e;
    m_pos = next;
    return true;
}

bool DerParser::readElement(unsigned tag, DerElement* out) {
    size_t next = 0;
    DerElement e;
    if (!parseHeader(m_pos, &e, &next, 0)) return false;
    if (e.tag != tag) return fail("ASN.1 item has an unexpected tag");
    *out = e;
    m_pos = next;
    return true;
}

bool DerParser::read(unsigned tag, DerInput* contents) {
    DerElement e;
    if (!readElement(tag, &e)) return false;
    *contents = e.contents;
    return true;
}

bool DerParser::readOptional(unsigned tag, DerInput* contents, bool* present) {
    *present = false;
    if (!nextIs(tag)) return true;
    if (!read(tag, contents)) return false;
    *present = true;
    return true;
}

bool DerParser::peekTag(unsigned* tag) const {
    DerElement e;
    size_t next = 0;
    if (!parseHeader(m_pos, &e, &next, 0)) return false;
    *tag = e.tag;
    return true;
}

bool DerParser::skip() {
    DerElement e;
    return readAny(&e);
}

bool DerParser::readConstructed(unsigned tag, DerParser* inner) {
    DerInput c;
    if (!read(tag, &c)) return false;
    *inner = DerParser(c, m_allowBer);
    return true;
}

bool DerParser::readSequence(DerParser* inner) {
    return readConstructed(der::kSequence, inner);
}
bool DerParser::readSet(DerParser* inner) {
    return readConstructed(der::kSet, inner);
}

bool DerParser::readChecked(unsigned tag, DerInput* contents, const char* (*problem)(DerInput)) {
    size_t save = m_pos;
    DerInput c;
    if (!read(tag, &c)) return false;
    if (const char* why = problem(c)) {
        m_pos = save;
        return fail(why);
    }
    *contents = c;
    return true;
}

bool DerParser::readOid(DerInput* oid) {
    // Validate the encoding only; callers turn it into text when they need it.
    return readChecked(der::kOid, oid, [](DerInput c) -> const char* {
        bool ok = !c.empty() && (c[c.size() - 1] & 0x80) == 0;
        for (size_t i = 0; ok && i < c.size(); ++i) {
            bool startOfArc = (i == 0) || !(c[i - 1] & 0x80);
            if (startOfArc && c[i] == 0x80) ok = false;
        }
        return ok ? nullptr : "ASN.1 OBJECT IDENTIFIER is malformed";
    });
}

namespace {

// X.690 8.3.2: the first nine bits of an INTEGER are never all zeros or all ones.
const char* integerProblem(DerInput c) {
    if (c.empty()) return "ASN.1 INTEGER is empty";
    if (c.size() > 1 && ((c[0] == 0x00 && !(c[1] & 0x80)) || (c[0] == 0xff && (c[1] & 0x80))))
        return "ASN.1 INTEGER is not in its shortest form";
    return nullptr;
}

}  // namespace

bool DerParser::readIntegerBytes(DerInput* contents) {
    return readChecked(der::kInteger, contents, integerProblem);
}

bool DerParser::readIntegerBytesLenient(DerInput* contents) {
    return readChecked(der::kInteger, contents, [](DerInput c) -> const char* {
        return c.empty() ? "ASN.1 INTEGER is empty" : nullptr;
    });
}

bool DerParser::readUint64(uint64_t* value) {
    DerInput c;
    if (!readChecked(der::kInteger, &c, [](DerInput in) -> const char* {
            if (const char* why = integerProblem(in)) return why;
            if ((in[0] & 0x80) || in.size() > 9 || (in.size() == 9 && in[0] != 0))
                return "ASN.1 INTEGER is negative or too large";
            return nullptr;
        }))
        return false;
    uint64_t v = 0;
    for (size_t i = 0; i < c.size(); ++i) v = (v << 8) | c[i];
    *value = v;
    return true;
}

bool DerParser::readBool(bool* value) {
    DerInput c;
    // X.690 11.1: DER writes TRUE as FF and nothing else.
    if (!readChecked(der::kBoolean, &c, [](DerInput in) -> const char* {
            if (in.size() != 1) return "ASN.1 BOOLEAN is not one byte";
            return in[0] == 0x00 || in[0] == 0xff ? nullptr : "ASN.1 BOOLEAN is neither 00 nor FF";
        }))
        return false;
    *value = c[0] != 0;
    return true;
}

bool DerParser::readBitString(DerInput* bits, unsigned* unusedBits) {
    DerInput c;
    // X.690 11.2.1: the unused bits of the last byte are zero.
    if (!readChecked(der::kBitString, &c, [](DerInput in) -> const char* {
            bool bad = in.empty() || in[0] > 7 || (in.size() == 1 && in[0] != 0);
            if (bad) return "ASN.1 BIT STRING is malformed";
            const unsigned padding = (1u << in[0]) - 1;
            return in[in.size() - 1] & padding ? "ASN.1 BIT STRING has padding bits set" : nullptr;
        }))
        return false;
    *unusedBits = c[0];
    *bits = c.sub(1, c.size() - 1);
    return true;
}

namespace der {

bool readFirstItem(DerInput in, bool allowBer, DerElement* out, LogBase& log) {
    if (in.empty()) {
        log.logError("ASN.1 input is empty");
        return false;
    }
    DerParser p(in, allowBer);
    if (p.readAny(out)) return true;
    log.logError(p.lastError());
    return false;
}

bool isStringType(unsigned tagClass, unsigned tagNumber) {
    return tagClass == 0 && (tagNumber == 3 || tagNumber == 4 || tagNumber == 12 ||
                             (tagNumber >= 18 && tagNumber <= 28) || tagNumber == 30);
}

bool isStrictDer(DerInput in, bool noSegments, int depth) {
    if (depth > kMaxDepth) return false;
    DerParser p(in, false);
    while (p.hasMore()) {
        DerElement e;
        if (!p.readAny(&e)) return false;
        if (!e.constructed) continue;
        if (noSegments && isStringType(e.tagClass, e.tagNumber)) return false;
        if (!isStrictDer(e.contents, noSegments, depth + 1)) return false;
    }
    return true;
}

bool oidToText(DerInput oid, char* out, size_t outSize) {
    if (oid.empty() || outSize == 0 || (oid[oid.size() - 1] & 0x80)) return false;
    size_t used = 0;
    uint64_t arc = 0;
    bool first = true;
    bool startOfArc = true;
    for (size_t i = 0; i < oid.size(); ++i) {
        unsigned char b = oid[i];
        if (startOfArc && b == 0x80) return false;  // non-minimal arc
        if (arc > (UINT64_MAX >> 7)) return false;
        arc = (arc << 7) | (b & 0x7f);
        startOfArc = !(b & 0x80);
        if (b & 0x80) continue;
        char buf[48];
        int w;
        if (first) {
            unsigned top = arc < 40 ? 0 : (arc < 80 ? 1 : 2);
            uint64_t rest = arc - 40ull * top;
            w = snprintf(buf, sizeof buf, "%u.%llu", top, static_cast<unsigned long long>(rest));
            first = false;
        } else {
            w = snprintf(buf, sizeof buf, ".%llu", static_cast<unsigned long long>(arc));
        }
        if (w < 0 || used + static_cast<size_t>(w) + 1 > outSize) return false;
        memcpy(out + used, buf, static_cast<size_t>(w));
        used += static_cast<size_t>(w);
        arc = 0;
    }
    out[used] = '\0';
    return true;
}

bool textToOid(const char* text, unsigned char* out, size_t outSize, size_t* outLen) {
    if (!text || !*text) return false;
    uint64_t arcs[64];
    size_t count = 0;
    const char* p = text;
    while (*p) {
        if (*p < '0' || *p > '9' || count == 64) return false;
        uint64_t v = 0;
        while (*p >= '0' && *p <= '9') {
            uint64_t digit = static_cast<uint64_t>(*p - '0');
            if (v > (UINT64_MAX - digit) / 10) return false;  // the arc would overflow
            v = v * 10 + digit;
            ++p;
        }
        arcs[count++] = v;
        if (*p == '.') {
            ++p;
            if (!*p) return false;
        } else if (*p) {
            return false;
        }
    }
    if (count < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39)) return false;
    if (arcs[1] > UINT64_MAX - 80) return false;
    size_t used = 0;
    for (size_t i = 1; i < count; ++i) {
        uint64_t v = (i == 1) ? arcs[0] * 40 + arcs[1] : arcs[i];
        unsigned char tmp[10];
        int k = 0;
        do {
            tmp[k++] = static_cast<unsigned char>(v & 0x7f);
            v >>= 7;
        } while (v);
        if (used + static_cast<size_t>(k) > outSize) return false;
        while (k > 0) {
            --k;
            out[used++] = static_cast<unsigned char>(tmp[k] | (k ? 0x80 : 0));
        }
    }
    *outLen = used;
    return true;
}

size_t encodeHeader(unsigned tagByte, size_t len, unsigned char* out) {
    size_t i = 0;
    out[i++] = static_cast<unsigned char>(tagByte);
    if (len < 0x80) {
        out[i++] = static_cast<unsigned char>(len);
        return i;
    }
    int nbytes = 0;
    for (size_t t = len; t; t >>= 8) ++nbytes;
    out[i++] = static_cast<unsigned char>(0x80 | nbytes);
    for (int k = nbytes - 1; k >= 0; --k) out[i++] = static_cast<unsigned char>(len >> (8 * k));
    return i;
}

}  // namespace der
