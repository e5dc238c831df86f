#include "support/x509/X509Name.h"

#include <cstring>

#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace {

// Ordered by how often real certificates carry them, so lookups end early.
constexpr X509AttrType kTypes[] = {
    {"2.5.4.3", "CN", "commonName"},
    {"2.5.4.10", "O", "organizationName"},
    {"2.5.4.6", "C", "countryName"},
    {"2.5.4.11", "OU", "organizationalUnitName"},
    {"2.5.4.8", "ST", "stateOrProvinceName", "S"},
    {"2.5.4.7", "L", "localityName"},
    {"1.2.840.113549.1.9.1", "E", "emailAddress", "EMAIL"},
    {"2.5.4.5", "SERIALNUMBER", "serialNumber"},
    {"0.9.2342.19200300.100.1.25", "DC", "domainComponent"},
    {"0.9.2342.19200300.100.1.1", "UID", "userId"},
    {"2.5.4.9", "STREET", "streetAddress"},
    {"2.5.4.17", "POSTALCODE", "postalCode"},
    {"2.5.4.4", "SN", "surname"},
    {"2.5.4.42", "GN", "givenName", "G"},
    {"2.5.4.12", "T", "title"},
    {"2.5.4.43", "I", "initials"},
    {"2.5.4.44", "generationQualifier", "generationQualifier"},
    {"2.5.4.46", "dnQualifier", "dnQualifier"},
    {"2.5.4.65", "pseudonym", "pseudonym"},
    {"2.5.4.97", "organizationIdentifier", "organizationIdentifier"},
    {"2.5.4.15", "businessCategory", "businessCategory"},
    {"2.5.4.13", "description", "description"},
    {"2.5.4.18", "postOfficeBox", "postOfficeBox"},
    {"2.5.4.41", "name", "name"},
    {"1.2.840.113549.1.9.2", "unstructuredName", "unstructuredName"},
    {"1.3.6.1.4.1.311.60.2.1.1", "jurisdictionL", "jurisdictionLocalityName"},
    {"1.3.6.1.4.1.311.60.2.1.2", "jurisdictionST", "jurisdictionStateOrProvinceName"},
    {"1.3.6.1.4.1.311.60.2.1.3", "jurisdictionC", "jurisdictionCountryName"},
};

bool equalsNoCase(const char* a, const char* b) {
    if (!a || !b) return false;
    for (; *a && *b; ++a, ++b) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a + 32) : *a;
        char y = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b + 32) : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

// One decoded code point as text. Control characters other than tab and line
// feed, and the non-characters U+FFFE/U+FFFF, become U+FFFD: they cannot stand
// in XML, and the XML rendering of names must give the same text as this one
// (a CRL's issuer, read through XML, is compared with certificate issuers).
void appendCp(unsigned cp, StringBuffer& out) {
    if ((cp < 0x20 && cp != '\t' && cp != '\n') || cp == 0xfffe || cp == 0xffff) cp = 0xfffd;
    XString::appendCodePoint(out, cp);  // surrogates and values past U+10FFFF: U+FFFD
}

// Length of the valid UTF-8 sequence at p[i], 0 when invalid (overlong forms,
// surrogates and values past U+10FFFF included).
unsigned utf8Next(const unsigned char* p, size_t n, size_t i, unsigned* cp) {
    unsigned char b = p[i];
    if (b < 0x80) {
        *cp = b;
        return 1;
    }
    unsigned len = 0, c = 0, min = 0;
    if (b >= 0xc2 && b <= 0xdf) {
        len = 2, c = b & 0x1f, min = 0x80;
    } else if (b >= 0xe0 && b <= 0xef) {
        len = 3, c = b & 0x0f, min = 0x800;
    } else if (b >= 0xf0 && b <= 0xf4) {
        len = 4, c = b & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (n - i < len) return 0;
    for (unsigned k = 1; k < len; ++k) {
        if ((p[i + k] & 0xc0) != 0x80) return 0;
        c = (c << 6) | (p[i + k] & 0x3f);
    }
    if (c < min || c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff)) return 0;
    *cp = c;
    return len;
}

bool isUtf8(const unsigned char* p, size_t n) {
    unsigned cp;
    for (size_t i = 0; i < n;) {
        unsigned k = utf8Next(p, n, i, &cp);
        if (!k) return false;
        i += k;
    }
    return true;
}

// 8-bit string types are read as UTF-8 and, when that fails, as Latin-1:
// CAs have put either into PrintableString and IA5String values.
void appendUtf8OrLatin1(const unsigned char* p, size_t n, StringBuffer& out) {
    const bool utf8 = isUtf8(p, n);
    size_t i = 0;
    while (i < n) {
        // Copy a run of printable ASCII at once: that is nearly every value.
        size_t j = i;
        while (j < n && p[j] >= 0x20 && p[j] < 0x80) ++j;
        if (j > i) out.appendN(reinterpret_cast<const char*>(p + i), static_cast<unsigned>(j - i));
        i = j;
        if (i >= n) break;
        unsigned cp = p[i];
        unsigned k = utf8 ? utf8Next(p, n, i, &cp) : 1;
        appendCp(cp, out);
        i += k ? k : 1;
    }
}

void appendLatin1(const unsigned char* p, size_t n, StringBuffer& out) {
    for (size_t i = 0; i < n; ++i) appendCp(p[i], out);
}

// Walks Name -> RDN (SET) -> AttributeTypeAndValue in encoding order.
class AtvCursor {
  public:
    // False when the outer element is not a SEQUENCE filling the whole input.
    bool init(DerInput name) {
        DerParser outer(name);
        if (!outer.readSequence(&m_rdns) || outer.hasMore()) return false;
        return true;
    }
    // The next RDN's contents; false at the end or on malformed input (*bad set).
    bool nextRdn(DerInput* set, bool* bad) {
        *bad = false;
        if (!m_rdns.hasMore()) return false;
        if (!m_rdns.read(der::kSet, set) || set->empty()) {
            *bad = true;
            return false;
        }
        return true;
    }
    // Reads one AttributeTypeAndValue from an RDN's parser.
    //   AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY }
    static bool readAtv(DerParser& rdn, DerInput* oid, DerElement* value) {
        DerParser atv;
        if (!rdn.readSequence(&atv)) return false;
        if (!atv.readOid(oid)) return false;
        if (!atv.readAny(value)) return false;
        return !atv.hasMore();
    }

  private:
    DerParser m_rdns;
};

// Calls fn(oid, value) for every attribute in encoding order; false on a
// malformed name or when fn returns false (stop).
template <typename Fn>
bool forEachAtv(DerInput name, Fn fn, bool* stopped = nullptr) {
    AtvCursor cur;
    if (!cur.init(name)) return false;
    DerInput set;
    bool bad = false;
    int rdns = 0, atvs = 0;
    while (cur.nextRdn(&set, &bad)) {
        if (++rdns > X509Name::kMaxRdns) return false;
        DerParser rdn(set);
        while (rdn.hasMore()) {
            DerInput oid;
            DerElement value;
            if (++atvs > X509Name::kMaxAttributes) return false;
            if (!AtvCursor::readAtv(rdn, &oid, &value)) return false;
            if (!fn(oid, value)) {
                if (stopped) *stopped = true;
                return true;
            }
        }
    }
    return !bad;
}

void appendTagFor(DerInput oid, StringBuffer& out) {
    const X509AttrType* t = X509Name::typeByOid(oid);
    if (t) {
        out.append(t->tag);
        return;
    }
    char dotted[128];
    if (der::oidToText(oid, dotted, sizeof dotted))
        out.append(dotted);
    else
        out.append("?");
}

}  // namespace

const X509AttrType* X509Name::allTypes(size_t* count) {
    *count = sizeof kTypes / sizeof kTypes[0];
    return kTypes;
}

const X509AttrType* X509Name::typeByOid(DerInput oid) {
    for (const X509AttrType& t : kTypes) {
        if (t.is(oid)) return &t;
    }
    return nullptr;
}

const X509AttrType* X509Name::typeByName(const char* name) {
    if (!name || !*name) return nullptr;
    for (const X509AttrType& t : kTypes) {
        if (equalsNoCase(name, t.tag) || equalsNoCase(name, t.longName) ||
            (t.alias && equalsNoCase(name, t.alias)))
            return &t;
    }
    return nullptr;
}

bool X509Name::appendStringValue(unsigned tag, DerInput c, StringBuffer& out) {
    const unsigned char* p = c.data();
    size_t n = c.size();
    switch (tag) {
        case der::kUtf8String:
        case der::kPrintableString:
        case der::kIa5String:
        case der::kVisibleString:
        case 0x12:  // NumericString
            appendUtf8OrLatin1(p, n, out);
            return true;
        case der::kT61String:
        case 0x15:  // VideotexString
        case 0x19:  // GraphicString
        case 0x1b:  // GeneralString
            appendLatin1(p, n, out);
            return true;
        case der::kBmpString: {
            if (n % 2) return false;
            for (size_t i = 0; i < n; i += 2) {
                unsigned u = (static_cast<unsigned>(p[i]) << 8) | p[i + 1];
                if (u >= 0xd800 && u <= 0xdbff && i + 3 < n) {
                    unsigned lo = (static_cast<unsigned>(p[i + 2]) << 8) | p[i + 3];
                    if (lo >= 0xdc00 && lo <= 0xdfff) {
                        appendCp(0x10000 + ((u - 0xd800) << 10) + (lo - 0xdc00), out);
                        i += 2;
                        continue;
                    }
                }
                appendCp(u, out);  // a lone surrogate becomes U+FFFD
            }
            return true;
        }
        case der::kUniversalString: {
            if (n % 4) return false;
            for (size_t i = 0; i < n; i += 4) {
                unsigned cp = (static_cast<unsigned>(p[i]) << 24) | (p[i + 1] << 16) |
                              (p[i + 2] << 8) | p[i + 3];
                appendCp(cp, out);
            }
            return true;
        }
        default:
            return false;
    }
}

void X509Name::appendValueText(const DerElement& value, StringBuffer& out) {
    if (appendStringValue(value.tag, value.contents, out)) return;
    out.appendChar('#');
    out.appendHex(value.whole.data(), static_cast<unsigned>(value.whole.size()));
}

const char* X509Name::rdnSeparator(int style) {
    return style == kStyleRfc4514 ? "," : ", ";
}

const char* X509Name::multiValueSeparator(int) {
    return "+";
}

void X509Name::appendAttribute(const char* tag, const char* value, unsigned n, bool isHexDump,
                               bool withTags, int style, StringBuffer& out) {
    if (withTags) {
        out.append(tag);
        out.appendChar('=');
    }
    if (isHexDump) {
        out.appendN(value, n);
        return;
    }
    if (style == kStyleRfc4514) {
        // RFC 4514 section 2.4: escape the specials, a leading '#' or space, a
        // trailing space; control characters go as \XX so the line stays one line.
        static const char kHex[] = "0123456789ABCDEF";
        unsigned start = 0;
        for (unsigned i = 0; i < n; ++i) {
            unsigned char c = static_cast<unsigned char>(value[i]);
            bool special = c == '"' || c == '+' || c == ',' || c == ';' || c == '<' || c == '>' ||
                           c == '\\' || (i == 0 && (c == '#' || c == ' ')) ||
                           (i == n - 1 && c == ' ');
            bool control = c < 0x20 || c == 0x7f;
            if (!special && !control) continue;
            out.appendN(value + start, i - start);
            out.appendChar('\\');
            if (control) {
                out.appendChar(kHex[c >> 4]);
                out.appendChar(kHex[c & 15]);
            } else {
                out.appendChar(static_cast<char>(c));
            }
            start = i + 1;
        }
        out.appendN(value + start, n - start);
        return;
    }
    // Everyday form: quote the value when a reader could mistake part of it for
    // a separator, as the common desktop certificate viewers do.
    bool quote = n > 0 && (value[0] == ' ' || value[n - 1] == ' ');
    for (unsigned i = 0; !quote && i < n; ++i) {
        char c = value[i];
        quote = c == ',' || c == '+' || c == '=' || c == '"' || c == '\\' || c == '<' || c == '>' ||
                c == '#' || c == ';' || c == '\r' || c == '\n';
    }
    if (!quote) {
        out.appendN(value, n);
        return;
    }
    out.appendChar('"');
    unsigned start = 0;
    for (unsigned i = 0; i < n; ++i) {
        if (value[i] != '"') continue;
        out.appendN(value + start, i + 1 - start);
        out.appendChar('"');
        start = i + 1;
    }
    out.appendN(value + start, n - start);
    out.appendChar('"');
}

bool X509Name::appendDnText(DerInput name, bool withTags, int style, bool encodingOrder,
                            StringBuffer& out) {
    if (style != kStyleRfc4514) style = kStyleEveryday;
    AtvCursor cur;
    if (!cur.init(name)) return false;
    DerInput rdns[kMaxRdns];
    int count = 0;
    DerInput set;
    bool bad = false;
    while (cur.nextRdn(&set, &bad)) {
        if (count == kMaxRdns) return false;
        rdns[count++] = set;
    }
    if (bad) return false;

    StringBuffer value;  // reused for every attribute: one allocation per name
    StringBuffer tag;
    int atvs = 0;
    for (int k = 0; k < count; ++k) {
        DerParser rdn(rdns[encodingOrder ? k : count - 1 - k]);
        if (k) out.append(rdnSeparator(style));
        bool first = true;
        while (rdn.hasMore()) {
            DerInput oid;
            DerElement v;
            if (++atvs > kMaxAttributes) return false;
            if (!AtvCursor::readAtv(rdn, &oid, &v)) return false;
            if (!first) out.append(multiValueSeparator(style));
            first = false;
            value.clear();
            bool isString = appendStringValue(v.tag, v.contents, value);
            if (!isString) {
                value.appendChar('#');
                value.appendHex(v.whole.data(), static_cast<unsigned>(v.whole.size()));
            }
            tag.clear();
            if (withTags) appendTagFor(oid, tag);
            appendAttribute(tag.getString(), value.getString(), value.getSize(), !isString,
                            withTags, style, out);
        }
    }
    return true;
}

void X509Name::appendJsonEscaped(const char* s, unsigned n, StringBuffer& out) {
    static const char kHex[] = "0123456789abcdef";
    // Characters with a short escape, and the letter that follows the backslash.
    static const char kShortFrom[] = "\"\\\n\r\t\b\f";
    static const char kShortTo[] = "\"\\nrtbf";
    unsigned start = 0;
    for (unsigned i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        out.appendN(s + start, i - start);
        start = i + 1;
        const char* shortForm = c ? strchr(kShortFrom, c) : nullptr;
        if (shortForm) {
            const char esc[3] = {'\\', kShortTo[shortForm - kShortFrom], 0};
            out.append(esc);
        } else {
            const char u[7] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15], 0};
            out.append(u);
        }
    }
    out.appendN(s + start, n - start);
}

void X509Name::appendJsonString(const StringBuffer& text, StringBuffer& out) {
    out.appendChar('"');
    appendJsonEscaped(text.getString(), text.getSize(), out);
    out.appendChar('"');
}

bool X509Name::appendDnJson(DerInput name, StringBuffer& out) {
    // Validate first so that a malformed name appends nothing.
    if (!forEachAtv(name, [](DerInput, const DerElement&) { return true; })) return false;

    StringBuffer value;
    StringBuffer key;
    bool firstMember = true;
    int index = 0;
    forEachAtv(name, [&](DerInput oid, const DerElement&) {
        const int mine = index++;
        // A type already written (with all its values) is skipped.
        int pos = 0, count = 0;
        bool seenBefore = false;
        forEachAtv(name, [&](DerInput o, const DerElement&) {
            if (o.equals(oid)) {
                if (pos < mine) seenBefore = true;
                ++count;
            }
            ++pos;
            return !seenBefore;
        });
        if (seenBefore) return true;

        if (!firstMember) out.appendChar(',');
        firstMember = false;
        key.clear();
        appendTagFor(oid, key);
        appendJsonString(key, out);
        out.appendChar(':');
        if (count > 1) out.appendChar('[');
        bool firstValue = true;
        forEachAtv(name, [&](DerInput o, const DerElement& val) {
            if (!o.equals(oid)) return true;
            if (!firstValue) out.appendChar(',');
            firstValue = false;
            value.clear();
            appendValueText(val, value);
            appendJsonString(value, out);
            return true;
        });
        if (count > 1) out.appendChar(']');
        return true;
    });
    return true;
}

bool X509Name::findValue(DerInput name, DerInput oid, StringBuffer& out) {
    // The whole name is walked even after a match, so that a name getDN
    // refuses is refused here too.
    DerElement first;
    bool found = false;
    bool ok = forEachAtv(name, [&](DerInput o, const DerElement& v) {
        if (!found && o.equals(oid)) {
            first = v;
            found = true;
        }
        return true;
    });
    if (!ok || !found) return false;
    appendValueText(first, out);
    return true;
}
