#include "support/asn1/Asn1Xml.h"

#include <new>

#include "support/asn1/DerReader.h"
#include "support/asn1/MpMath.h"
#include "support/base/ContentCoding.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace {

// Universal tag numbers the renderer gives a name of their own.
enum : unsigned {
    kBoolean = 1,
    kInteger = 2,
    kBitString = 3,
    kOctetString = 4,
    kNull = 5,
    kOid = 6,
    kEnumerated = 10,
    kUtf8String = 12,
    kSequence = 16,
    kSet = 17,
    kNumericString = 18,
    kPrintableString = 19,
    kT61String = 20,
    kIa5String = 22,
    kUtcTime = 23,
    kGeneralizedTime = 24,
    kVisibleString = 26,
    kUniversalString = 28,
    kBmpString = 30,
};

// How the text of a string type is to be read.
enum class Charset { Utf8OrLatin1, Latin1, Ucs2, Ucs4 };

struct StringType {
    unsigned tag;
    const char* element;
    Charset charset;
};

// 8-bit types are read as UTF-8 and, when that fails, as Latin-1: CAs have
// issued PrintableString and IA5String values holding either.
const StringType kStringTypes[] = {
    {kUtf8String, "utf8", Charset::Utf8OrLatin1},
    {kNumericString, "numeric", Charset::Utf8OrLatin1},
    {kPrintableString, "printable", Charset::Utf8OrLatin1},
    {kT61String, "t61", Charset::Latin1},
    {kIa5String, "ia5", Charset::Utf8OrLatin1},
    {kUtcTime, "utctime", Charset::Utf8OrLatin1},
    {kGeneralizedTime, "gentime", Charset::Utf8OrLatin1},
    {kVisibleString, "visible", Charset::Utf8OrLatin1},
    {kUniversalString, "universalString", Charset::Ucs4},
    {kBmpString, "bmp", Charset::Ucs2},
};

const StringType* findStringType(unsigned tag) {
    for (const StringType& t : kStringTypes)
        if (t.tag == tag) return &t;
    return nullptr;
}

// Decodes one UTF-8 sequence at p[i..n); returns its length, 0 when invalid
// (overlong forms, surrogates and values past U+10FFFF included).
unsigned utf8Next(const unsigned char* p, size_t n, size_t i, unsigned* cp) {
    unsigned char b = p[i];
    if (b < 0x80) {
        *cp = b;
        return 1;
    }
    unsigned len, min, v;
    if ((b & 0xE0) == 0xC0) {
        len = 2, min = 0x80, v = b & 0x1F;
    } else if ((b & 0xF0) == 0xE0) {
        len = 3, min = 0x800, v = b & 0x0F;
    } else if ((b & 0xF8) == 0xF0) {
        len = 4, min = 0x10000, v = b & 0x07;
    } else {
        return 0;
    }
    if (n - i < len) return 0;
    for (unsigned k = 1; k < len; ++k) {
        if ((p[i + k] & 0xC0) != 0x80) return 0;
        v = (v << 6) | (p[i + k] & 0x3F);
    }
    if (v < min || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return 0;
    *cp = v;
    return len;
}

bool isUtf8(DerInput s) {
    unsigned cp;
    for (size_t i = 0; i < s.size();) {
        unsigned len = utf8Next(s.data(), s.size(), i, &cp);
        if (!len) return false;
        i += len;
    }
    return true;
}

// Builds the XML text; the first failed append sticks, so callers check once.
class XmlOut {
  public:
    XmlOut(StringBuffer& out, bool compact) : m_out(out), m_compact(compact) {}
    bool ok() const { return m_ok; }
    void fail() { m_ok = false; }

    void raw(const char* s) {
        if (m_ok && !m_out.append(s)) m_ok = false;
    }
    void num(unsigned v) {
        if (m_ok && !m_out.appendUint32(v)) m_ok = false;
    }
    void indent(int level) {
        if (m_compact) return;
        for (int i = 0; i < level; ++i) raw("  ");
    }
    void newline() {
        if (!m_compact) raw("\n");
    }
    void hex(DerInput d) {
        if (m_ok && !m_out.appendHex(d.data(), static_cast<unsigned>(d.size()))) m_ok = false;
    }
    void base64(DerInput d) {
        if (m_ok &&
            !ContentCoding::encodeBase64_noCrLf(d.data(), static_cast<unsigned>(d.size()), m_out))
            m_ok = false;
    }
    // One Unicode code point as escaped XML text. Code points XML 1.0 cannot
    // carry at all (most C0 controls, U+FFFE, U+FFFF) become U+FFFD; CR is
    // written as a reference so that parsers do not fold it into LF.
    void codePoint(unsigned cp) {
        if (!m_ok) return;
        switch (cp) {
            case '&':
                raw("&amp;");
                return;
            case '<':
                raw("&lt;");
                return;
            case '>':
                raw("&gt;");
                return;
            case '\r':
                raw("&#13;");
                return;
            default:
                break;
        }
        if ((cp < 0x20 && cp != '\t' && cp != '\n') || cp == 0xFFFE || cp == 0xFFFF) cp = 0xFFFD;
        if (!XString::appendCodePoint(m_out, cp)) m_ok = false;
    }

  private:
    StringBuffer& m_out;
    bool m_compact;
    bool m_ok = true;
};

// The text of a string type; false when its length does not fit the charset
// (an odd-length BMPString), in which case the caller renders it generically.
bool stringText(XmlOut& x, const StringType& t, DerInput s) {
    const unsigned char* p = s.data();
    const size_t n = s.size();
    switch (t.charset) {
        case Charset::Utf8OrLatin1:
            if (isUtf8(s)) {
                unsigned cp;
                for (size_t i = 0; i < n;) {
                    i += utf8Next(p, n, i, &cp);
                    x.codePoint(cp);
                }
                return true;
            }
            // Not UTF-8: fall through and read it as Latin-1.
            [[fallthrough]];
        case Charset::Latin1:
            for (size_t i = 0; i < n; ++i) x.codePoint(p[i]);
            return true;
        case Charset::Ucs2:
            if (n % 2) return false;
            for (size_t i = 0; i < n; i += 2) {
                unsigned u = (static_cast<unsigned>(p[i]) << 8) | p[i + 1];
                if (u >= 0xD800 && u <= 0xDBFF && i + 3 < n) {
                    unsigned lo = (static_cast<unsigned>(p[i + 2]) << 8) | p[i + 3];
                    if (lo >= 0xDC00 && lo <= 0xDFFF) {
                        x.codePoint(0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00));
                        i += 2;
                        continue;
                    }
                }
                x.codePoint(u >= 0xD800 && u <= 0xDFFF ? 0xFFFD : u);
            }
            return true;
        case Charset::Ucs4:
            if (n % 4) return false;
            for (size_t i = 0; i < n; i += 4) {
                unsigned cp = (static_cast<unsigned>(p[i]) << 24) | (p[i + 1] << 16) |
                              (p[i + 2] << 8) | p[i + 3];
                x.codePoint(cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? 0xFFFD : cp);
            }
            return true;
    }
    return false;
}

class Renderer {
  public:
    Renderer(XmlOut& x, bool allowBer, LogBase& log) : m_x(x), m_allowBer(allowBer), m_log(log) {}

    bool item(const DerElement& e, int level) {
        if (level > der::kMaxDepth) {
            m_log.logError("ASN.1 nesting is too deep");
            return false;
        }
        m_x.indent(level);
        if (e.tagClass == 0 && !e.constructed && primitiveUniversal(e)) {
            m_x.newline();
            return m_x.ok();
        }
        if (e.tagClass == 0 && e.constructed && (e.tagNumber == kSequence || e.tagNumber == kSet)) {
            const char* name = e.tagNumber == kSequence ? "sequence" : "set";
            open(name);
            if (!children(e, level)) return false;
            close(name);
            m_x.newline();
            return m_x.ok();
        }
        // Everything else by class, tag number and form. Primitive content is
        // base64, so that a URI in a GeneralName survives any bytes it holds.
        static const char* const kClassNames[] = {"universal", "application", "contextSpecific",
                                                  "private"};
        const char* name = kClassNames[e.tagClass & 3];
        m_x.raw("<");
        m_x.raw(name);
        m_x.raw(" tag=\"");
        m_x.num(e.tagNumber);
        m_x.raw(e.constructed ? "\" constructed=\"1\">" : "\" constructed=\"0\">");
        if (e.constructed) {
            if (!children(e, level)) return false;
        } else {
            m_x.base64(e.contents);
        }
        close(name);
        m_x.newline();
        return m_x.ok();
    }

  private:
    void open(const char* name) {
        m_x.raw("<");
        m_x.raw(name);
        m_x.raw(">");
    }
    void close(const char* name) {
        m_x.raw("</");
        m_x.raw(name);
        m_x.raw(">");
    }

    bool children(const DerElement& e, int level) {
        DerParser p(e.contents, m_allowBer);
        if (!p.hasMore()) return true;  // an empty SEQUENCE stays on one line
        m_x.newline();
        while (p.hasMore()) {
            DerElement child;
            if (!p.readAny(&child)) {
                m_log.logError(p.lastError());
                return false;
            }
            if (!item(child, level + 1)) return false;
        }
        m_x.indent(level);
        return true;
    }

    // Writes the universal primitives that have an element of their own; false
    // (nothing written) leaves the item to the generic form.
    bool primitiveUniversal(const DerElement& e) {
        DerInput c = e.contents;
        switch (e.tagNumber) {
            case kBoolean:
                if (c.size() != 1) return false;
                m_x.raw(c[0] ? "<bool>true</bool>" : "<bool>false</bool>");
                return true;
            case kInteger:
            case kEnumerated: {
                if (c.empty()) return false;
                const char* name = e.tagNumber == kInteger ? "int" : "enum";
                open(name);
                m_x.hex(c);
                close(name);
                return true;
            }
            case kBitString:
                // The unused-bits count goes in an attribute so that the text is
                // exactly the bit string's bytes (a KeyUsage of A0 reads "A0").
                if (c.empty() || c[0] > 7) return false;
                m_x.raw("<bits unused=\"");
                m_x.num(c[0]);
                m_x.raw("\">");
                m_x.hex(c.sub(1, c.size() - 1));
                close("bits");
                return true;
            case kOctetString:
                open("octets");
                m_x.base64(c);
                close("octets");
                return true;
            case kNull:
                if (!c.empty()) return false;
                m_x.raw("<null/>");
                return true;
            case kOid: {
                // 120 content bytes is far beyond any OID in use; a longer one is
                // rendered generically rather than given a bigger buffer.
                char text[512];
                if (c.size() > 120 || !der::oidToText(c, text, sizeof text)) return false;
                open("oid");
                m_x.raw(text);
                close("oid");
                return true;
            }
            default:
                break;
        }
        const StringType* t = findStringType(e.tagNumber);
        if (!t) return false;
        StringBuffer text;
        XmlOut tx(text, true);
        if (!stringText(tx, *t, c)) return false;
        if (!tx.ok()) {
            m_x.fail();
            return true;
        }
        open(t->element);
        m_x.raw(text.getString());
        close(t->element);
        return true;
    }

    XmlOut& m_x;
    bool m_allowBer;
    LogBase& m_log;
};

}  // namespace

// Kept outside the anonymous namespace so that it may be a friend of ov_asnItem.
struct AsnItemBuilder {
    static ov_asnItem* build(const DerElement& e, int depth, LogBase& log) {
        if (depth > der::kMaxDepth) {
            log.logError("ASN.1 nesting is too deep");
            return nullptr;
        }
        ov_asnItem* item = new (std::nothrow) ov_asnItem();
        if (!item) {
            log.logError("Out of memory decoding ASN.1");
            return nullptr;
        }
        setHeader(item, e);
        if (!e.constructed) {
            if (!contentOf(item).append(e.contents.data(),
                                        static_cast<unsigned>(e.contents.size()))) {
                delete item;
                log.logError("Out of memory decoding ASN.1");
                return nullptr;
            }
            return item;
        }
        DerParser p(e.contents, true);
        while (p.hasMore()) {
            DerElement ce;
            if (!p.readAny(&ce)) {
                log.logError(p.lastError());
                delete item;
                return nullptr;
            }
            ov_asnItem* child = build(ce, depth + 1, log);
            if (!child || !addChild(item, child)) {
                if (child) log.logError("Out of memory decoding ASN.1");
                delete child;
                delete item;
                return nullptr;
            }
        }
        return item;
    }

    static void setHeader(ov_asnItem* item, const DerElement& e);
    static DataBuffer& contentOf(ov_asnItem* item);
    static bool addChild(ov_asnItem* item, ov_asnItem* child);
};

ov_asnItem::~ov_asnItem() {
    for (ov_asnItem* c : m_children) delete c;
}

const ov_asnItem* ov_asnItem::child(int i) const {
    if (i < 0 || i >= numChildren()) return nullptr;
    return m_children[static_cast<size_t>(i)];
}

bool ov_asnItem::get_mp(mp_int& out, LogBase& log) const {
    if (m_tagClass != 0 || m_constructed || m_tagNumber != kInteger) {
        log.logError("ASN.1 item is not an INTEGER");
        return false;
    }
    if (m_content.isEmpty()) {
        log.logError("ASN.1 INTEGER is empty");
        return false;
    }
    if (!MpMath::mpint_from_signed_bytes(out, m_content.getData2(),
                                         static_cast<int>(m_content.getSize()))) {
        log.logError("Out of memory converting an ASN.1 INTEGER");
        return false;
    }
    return true;
}

bool Asn1Xml::derToXml(const DataBuffer& der, bool compact, bool allowBer, StringBuffer& xml,
                       ExtPtrArray* extra, LogBase& log) {
    DerElement root;
    if (!der::readFirstItem(DerInput(der.getData2(), der.getSize()), allowBer, &root, log))
        return false;
    if (root.whole.size() < der.getSize()) {
        log.logError("Extra bytes follow the ASN.1 item");
        log.LogDataLong("numExtraBytes", static_cast<long>(der.getSize() - root.whole.size()));
        return false;
    }
    StringBuffer text;
    XmlOut x(text, compact);
    Renderer r(x, allowBer, log);
    if (!r.item(root, 0)) {
        // Malformed input is logged where it is found; otherwise it was memory.
        if (!x.ok()) log.logError("Out of memory rendering ASN.1 as XML");
        return false;
    }
    ov_asnItem* item = nullptr;
    if (extra && !(item = AsnItemBuilder::build(root, 0, log))) return false;
    if (!x.ok() || !xml.append(text)) {
        delete item;
        log.logError("Out of memory rendering ASN.1 as XML");
        return false;
    }
    if (item && !extra->appendPtr(item)) {  // the array deletes the item itself
        log.logError("Out of memory keeping the decoded ASN.1 item");
        return false;
    }
    return true;
}

ov_asnItem* Asn1Xml::decodeAsnItem(const unsigned char* p, unsigned n, unsigned& consumed,
                                   LogBase& log) {
    consumed = 0;
    DerElement e;
    if (!der::readFirstItem(DerInput(p, n), true, &e, log)) return nullptr;
    ov_asnItem* item = AsnItemBuilder::build(e, 0, log);
    if (item) consumed = static_cast<unsigned>(e.whole.size());
    return item;
}

void AsnItemBuilder::setHeader(ov_asnItem* item, const DerElement& e) {
    item->m_tagClass = e.tagClass;
    item->m_constructed = e.constructed;
    item->m_tagNumber = e.tagNumber;
}

DataBuffer& AsnItemBuilder::contentOf(ov_asnItem* item) {
    return item->m_content;
}

bool AsnItemBuilder::addChild(ov_asnItem* item, ov_asnItem* child) {
    try {
        item->m_children.push_back(child);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}
