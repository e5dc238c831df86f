#include "support/asn1/Asn1Node.h"

#include <new>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

// The bytes a decoded tree was read from, shared by all its nodes.
class _ovAsn1Bytes : public RefCountedObject {
  public:
    DataBuffer m_data;
};

namespace {

// Built trees may wrap decoded ones a few levels deep; anything past this is a
// cycle or a bug, and encoding it would only exhaust the stack.
constexpr int kMaxEncodeDepth = 2 * der::kMaxDepth;

// Appends identifier and length octets for any tag number, length in shortest form.
bool appendHeader(DataBuffer& out, unsigned tagClass, bool constructed, unsigned tagNumber,
                  size_t len) {
    if (len > 0xffffffffu) return false;
    unsigned char hdr[16];
    size_t i = 0;
    unsigned char first =
        static_cast<unsigned char>(((tagClass & 3) << 6) | (constructed ? 0x20 : 0));
    if (tagNumber < 31) {
        hdr[i++] = static_cast<unsigned char>(first | tagNumber);
    } else {
        hdr[i++] = static_cast<unsigned char>(first | 0x1f);
        unsigned char digits[5];
        int k = 0;
        for (unsigned t = tagNumber; t || k == 0; t >>= 7) digits[k++] = t & 0x7f;
        while (k > 0) {
            --k;
            hdr[i++] = static_cast<unsigned char>(digits[k] | (k ? 0x80 : 0));
        }
    }
    if (len < 0x80) {
        hdr[i++] = static_cast<unsigned char>(len);
    } else {
        int nbytes = 0;
        for (size_t t = len; t; t >>= 8) ++nbytes;
        hdr[i++] = static_cast<unsigned char>(0x80 | nbytes);
        for (int k = nbytes - 1; k >= 0; --k) hdr[i++] = static_cast<unsigned char>(len >> (8 * k));
    }
    return out.append(hdr, static_cast<unsigned>(i));
}

// Joins the segments of a constructed BER string into its primitive content.
// Every segment must carry the string's own tag. A BIT STRING's segments each
// start with an unused-bits count, of which only the last may be non-zero.
bool joinSegments(DerInput contents, unsigned tagNumber, DataBuffer& bytes, unsigned& unused,
                  int depth) {
    if (depth > der::kMaxDepth) return false;
    DerParser p(contents, true);
    while (p.hasMore()) {
        DerElement e;
        if (!p.readAny(&e) || e.tagClass != 0 || e.tagNumber != tagNumber) return false;
        if (e.constructed) {
            if (!joinSegments(e.contents, tagNumber, bytes, unused, depth + 1)) return false;
            continue;
        }
        DerInput c = e.contents;
        if (tagNumber == 3) {
            if (c.empty() || c[0] > 7 || unused != 0) return false;
            unused = c[0];
            c = c.sub(1, c.size() - 1);
        }
        if (!bytes.append(c.data(), static_cast<unsigned>(c.size()))) return false;
    }
    return true;
}

bool appendJoined(DataBuffer& out, unsigned tagNumber, const DataBuffer& bytes, unsigned unused) {
    bool bits = tagNumber == 3;
    if (!appendHeader(out, 0, false, tagNumber, bytes.getSize() + (bits ? 1 : 0))) return false;
    if (bits && !out.appendChar(static_cast<unsigned char>(unused))) return false;
    return out.append(bytes);
}

// Rewrites BER contents as DER: every length definite and in shortest form, and
// constructed strings joined into one primitive.
bool transcodeBer(DerInput contents, DataBuffer& out, int depth) {
    if (depth > der::kMaxDepth) return false;
    DerParser p(contents, true);
    while (p.hasMore()) {
        DerElement e;
        if (!p.readAny(&e)) return false;
        if (e.constructed && der::isStringType(e.tagClass, e.tagNumber)) {
            DataBuffer joined;
            unsigned unused = 0;
            if (!joinSegments(e.contents, e.tagNumber, joined, unused, depth + 1) ||
                !appendJoined(out, e.tagNumber, joined, unused))
                return false;
        } else if (e.constructed) {
            DataBuffer inner;
            if (!transcodeBer(e.contents, inner, depth + 1)) return false;
            if (!appendHeader(out, e.tagClass, true, e.tagNumber, inner.getSize()) ||
                !out.append(inner))
                return false;
        } else {
            if (!appendHeader(out, e.tagClass, false, e.tagNumber, e.contents.size()) ||
                !out.append(e.contents.data(), static_cast<unsigned>(e.contents.size())))
                return false;
        }
    }
    return true;
}

}  // namespace

_ovAsn1::~_ovAsn1() {
    releaseParts();
    RefCountedObject::release(m_bytes);
}

void _ovAsn1::releaseParts() {
    for (_ovAsn1* part : m_parts) RefCountedObject::release(part);
    m_parts.clear();
}

_ovAsn1* _ovAsn1::newNode(unsigned tagClass, unsigned tagNumber, bool constructed) {
    _ovAsn1* n = new (std::nothrow) _ovAsn1();
    if (!n) return nullptr;
    n->m_tagClass = static_cast<unsigned char>(tagClass & 3);
    n->m_tag = tagNumber;
    n->m_constructed = constructed;
    n->m_partsDecoded = constructed;  // a built constructed node is its parts
    n->incRefCount();
    return n;
}

bool _ovAsn1::setOwnContent(const unsigned char* p, unsigned n) {
    _ovAsn1Bytes* b = new (std::nothrow) _ovAsn1Bytes();
    if (!b) return false;
    b->incRefCount();
    if (n && !b->m_data.append(p, n)) {
        b->decRefCount();
        return false;
    }
    RefCountedObject::release(m_bytes);
    m_bytes = b;
    m_content = DerInput(b->m_data.getData2(), n);
    return true;
}

_ovAsn1* _ovAsn1::fromElement(const DerElement& e, _ovAsn1Bytes* bytes, int depth) {
    _ovAsn1* n = newNode(e.tagClass, e.tagNumber, e.constructed);
    if (!n) return nullptr;
    if (bytes) bytes->incRefCount();
    n->m_bytes = bytes;
    n->m_content = e.contents;
    n->m_depth = depth;
    n->m_partsDecoded = false;
    return n;
}

_ovAsn1* _ovAsn1::DecodeToAsn_1Step(const unsigned char* p, unsigned n, LogBase& log) {
    DerElement e;
    if (!der::readFirstItem(DerInput(p, n), true, &e, log)) return nullptr;
    if (e.whole.size() < n && log.verboseLogging)
        log.LogDataLong("asn1IgnoredTrailingBytes", static_cast<long>(n - e.whole.size()));

    // Copy only the item itself; the caller's buffer may go away.
    _ovAsn1Bytes* bytes = new (std::nothrow) _ovAsn1Bytes();
    if (!bytes || !bytes->m_data.append(e.whole.data(), static_cast<unsigned>(e.whole.size()))) {
        delete bytes;
        log.logError("Out of memory decoding ASN.1");
        return nullptr;
    }
    bytes->incRefCount();
    size_t off = static_cast<size_t>(e.contents.data() - e.whole.data());
    DerElement local = e;
    local.contents = DerInput(bytes->m_data.getData2() + off, e.contents.size());
    _ovAsn1* node = fromElement(local, bytes, 0);
    bytes->decRefCount();  // the node holds its own reference now (or none failed)
    if (!node) log.logError("Out of memory decoding ASN.1");
    return node;
}

_ovAsn1* _ovAsn1::DecodeToAsn_1StepView(const unsigned char* p, unsigned n, LogBase& log) {
    DerElement e;
    if (!der::readFirstItem(DerInput(p, n), true, &e, log)) return nullptr;
    _ovAsn1* node = fromElement(e, nullptr, 0);
    if (!node) log.logError("Out of memory decoding ASN.1");
    return node;
}

bool _ovAsn1::DecodeInner(bool recursive, LogBase& log) {
    if (!m_constructed) {
        log.logError("ASN.1 item is primitive and has no parts");
        return false;
    }
    if (!m_partsDecoded) {
        // Parts would sit one level down; an empty item has none to place.
        if (m_depth + 1 > der::kMaxDepth && !m_content.empty()) {
            log.logError("ASN.1 nesting is too deep");
            return false;
        }
        std::vector<_ovAsn1*> parts;
        bool ok = true;
        DerParser p(m_content, true);
        while (ok && p.hasMore()) {
            DerElement e;
            if (!p.readAny(&e)) {
                log.logError(p.lastError());
                ok = false;
                break;
            }
            _ovAsn1* part = fromElement(e, m_bytes, m_depth + 1);
            if (!part) {
                log.logError("Out of memory decoding ASN.1");
                ok = false;
                break;
            }
            try {
                parts.push_back(part);
            } catch (const std::bad_alloc&) {
                part->decRefCount();
                log.logError("Out of memory decoding ASN.1");
                ok = false;
            }
        }
        if (!ok) {
            for (_ovAsn1* part : parts) part->decRefCount();
            return false;
        }
        m_parts.swap(parts);
        m_partsDecoded = true;
        // The parts keep the shared bytes alive; this node no longer reads them.
        m_content = DerInput();
        RefCountedObject::release(m_bytes);
        m_bytes = nullptr;
    }
    if (recursive) {
        for (_ovAsn1* part : m_parts) {
            if (part->m_constructed && !part->DecodeInner(true, log)) return false;
        }
    }
    return true;
}

int _ovAsn1::numAsnParts() const {
    return static_cast<int>(m_parts.size());
}

_ovAsn1* _ovAsn1::getAsnPart(int i) const {
    if (i < 0 || i >= numAsnParts()) return nullptr;
    return m_parts[static_cast<size_t>(i)];
}

DerInput _ovAsn1::contentView() const {
    return m_partsDecoded ? DerInput() : m_content;
}

bool _ovAsn1::getAsnContent(DataBuffer& out) const {
    LogNull quiet;
    unsigned before = out.getSize();
    if (encodeContents(out, quiet)) return true;
    out.shorten(out.getSize() - before);
    return false;
}

bool _ovAsn1::getOidText(StringBuffer& out) const {
    if (m_tagClass != 0 || m_tag != 6 || m_constructed || m_content.empty()) return false;
    try {
        std::vector<char> text(m_content.size() * 4 + 8);
        if (!der::oidToText(m_content, text.data(), text.size())) return false;
        return out.append(text.data());
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool _ovAsn1::encodeContents(DataBuffer& out, LogBase& log) const {
    if (preEncodedContent) return out.append(*preEncodedContent);
    if (!m_partsDecoded)
        return out.append(m_content.data(), static_cast<unsigned>(m_content.size()));
    for (const _ovAsn1* part : m_parts) {
        if (!part->encodeInto(out, false, 1, log)) return false;
    }
    return true;
}

bool _ovAsn1::encodeInto(DataBuffer& out, bool normalizeBer, int depth, LogBase& log) const {
    // Contents whose bytes are at hand go straight into out; the rest are built
    // in a scratch buffer first, because the header needs their length.
    DerInput direct;
    bool haveDirect = true;
    if (preEncodedContent) {
        direct = DerInput(preEncodedContent->getData2(), preEncodedContent->getSize());
    } else if (!m_constructed) {
        direct = m_content;
    } else if (!m_partsDecoded &&
               (!normalizeBer || (!der::isStringType(m_tagClass, m_tag) &&
                                  der::isStrictDer(m_content, true, m_depth + 1)))) {
        direct = m_content;
    } else {
        haveDirect = false;
    }
    if (haveDirect) {
        return appendHeader(out, m_tagClass, m_constructed, m_tag, direct.size()) &&
               out.append(direct.data(), static_cast<unsigned>(direct.size()));
    }
    if (depth > kMaxEncodeDepth) {
        log.logError("ASN.1 tree is nested too deeply to encode");
        return false;
    }
    if (normalizeBer && der::isStringType(m_tagClass, m_tag)) {
        // A string read in BER segments becomes one primitive, as DER wants.
        DataBuffer segments;
        if (!encodeContents(segments, log)) return false;
        DataBuffer joined;
        unsigned unused = 0;
        if (!joinSegments(DerInput(segments.getData2(), segments.getSize()), m_tag, joined, unused,
                          m_depth + 1)) {
            log.logError("ASN.1 string segments cannot be joined");
            return false;
        }
        return appendJoined(out, m_tag, joined, unused);
    }
    DataBuffer body;
    if (m_partsDecoded) {
        for (const _ovAsn1* part : m_parts) {
            if (!part->encodeInto(body, normalizeBer, depth + 1, log)) return false;
        }
    } else if (!transcodeBer(m_content, body, m_depth + 1)) {
        log.logError("ASN.1 content cannot be re-encoded as DER");
        return false;
    }
    return appendHeader(out, m_tagClass, m_constructed, m_tag, body.getSize()) && out.append(body);
}

bool _ovAsn1::EncodeToDer(DataBuffer& out, bool normalizeBer, LogBase& log) const {
    unsigned before = out.getSize();
    if (encodeInto(out, normalizeBer, 0, log)) return true;
    out.shorten(out.getSize() - before);
    log.logError("Failed to encode ASN.1 to DER");
    return false;
}

_ovAsn1* _ovAsn1::newSequence() {
    return newNode(0, 16, true);
}
_ovAsn1* _ovAsn1::newSet() {
    return newNode(0, 17, true);
}

_ovAsn1* _ovAsn1::newConstructed(unsigned tagClass, unsigned tagNumber) {
    if (tagClass > 3) return nullptr;
    return newNode(tagClass, tagNumber, true);
}

_ovAsn1* _ovAsn1::newPrimitive(unsigned tagClass, unsigned tagNumber, const unsigned char* p,
                               unsigned n) {
    if (tagClass > 3 || (n && !p)) return nullptr;
    _ovAsn1* node = newNode(tagClass, tagNumber, false);
    if (node && !node->setOwnContent(p, n)) {
        node->decRefCount();
        return nullptr;
    }
    return node;
}

_ovAsn1* _ovAsn1::newInteger(const unsigned char* magnitude, unsigned n) {
    if (n && !magnitude) return nullptr;
    while (n && magnitude[0] == 0) {
        ++magnitude;
        --n;
    }
    std::vector<unsigned char> content;
    try {
        if (n == 0 || (magnitude[0] & 0x80)) content.push_back(0);
        content.insert(content.end(), magnitude, magnitude + n);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return newPrimitive(0, 2, content.data(), static_cast<unsigned>(content.size()));
}

_ovAsn1* _ovAsn1::newIntegerU32(unsigned value) {
    unsigned char b[4] = {
        static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
        static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    return newInteger(b, 4);
}

_ovAsn1* _ovAsn1::newOid(const char* dotted) {
    unsigned char buf[256];
    size_t len = 0;
    if (!der::textToOid(dotted, buf, sizeof buf, &len)) return nullptr;
    return newPrimitive(0, 6, buf, static_cast<unsigned>(len));
}

_ovAsn1* _ovAsn1::newOctetString(const unsigned char* p, unsigned n) {
    return newPrimitive(0, 4, p, n);
}

_ovAsn1* _ovAsn1::newBoolean(bool value) {
    unsigned char b = value ? 0xff : 0x00;
    return newPrimitive(0, 1, &b, 1);
}

_ovAsn1* _ovAsn1::newNull() {
    return newPrimitive(0, 5, nullptr, 0);
}

_ovAsn1* _ovAsn1::newContextSpecific(unsigned tagNumber, bool constructed,
                                     const unsigned char* content, unsigned n) {
    if (!constructed) return newPrimitive(2, tagNumber, content, n);
    if (n && !content) return nullptr;
    _ovAsn1* node = newNode(2, tagNumber, true);
    if (node && n) {
        // Raw contents of an explicit tag: kept as read, decoded when asked.
        if (!node->setOwnContent(content, n)) {
            node->decRefCount();
            return nullptr;
        }
        node->m_partsDecoded = false;
    }
    return node;
}

bool _ovAsn1::appendPart(_ovAsn1* part) {
    if (!part) return false;
    if (!m_constructed || part == this) {
        part->decRefCount();
        return false;
    }
    if (!m_partsDecoded) {
        LogNull quiet;
        if (!DecodeInner(false, quiet)) {
            part->decRefCount();
            return false;
        }
    }
    try {
        m_parts.push_back(part);
    } catch (const std::bad_alloc&) {
        part->decRefCount();
        return false;
    }
    return true;
}
