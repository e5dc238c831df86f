#include "support/x509/X509Name.h"

#include <cstring>

#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace {

// Content octets of the attribute type OIDs.
const unsigned char kOidCn[] = {0x55, 0x04, 0x03};         // 2.5.4.3  id-at-commonName
const unsigned char kOidSurname[] = {0x55, 0x04, 0x04};    // 2.5.4.4  id-at-surname
const unsigned char kOidSerial[] = {0x55, 0x04, 0x05};     // 2.5.4.5  id-at-serialNumber
const unsigned char kOidC[] = {0x55, 0x04, 0x06};          // 2.5.4.6  id-at-countryName
const unsigned char kOidL[] = {0x55, 0x04, 0x07};          // 2.5.4.7  id-at-localityName
const unsigned char kOidSt[] = {0x55, 0x04, 0x08};         // 2.5.4.8  id-at-stateOrProvinceName
const unsigned char kOidStreet[] = {0x55, 0x04, 0x09};     // 2.5.4.9  id-at-streetAddress
const unsigned char kOidO[] = {0x55, 0x04, 0x0a};          // 2.5.4.10 id-at-organizationName
const unsigned char kOidOu[] = {0x55, 0x04, 0x0b};         // 2.5.4.11 id-at-organizationalUnitName
const unsigned char kOidTitle[] = {0x55, 0x04, 0x0c};      // 2.5.4.12 id-at-title
const unsigned char kOidDescr[] = {0x55, 0x04, 0x0d};      // 2.5.4.13 id-at-description
const unsigned char kOidBusiness[] = {0x55, 0x04, 0x0f};   // 2.5.4.15 id-at-businessCategory
const unsigned char kOidPostal[] = {0x55, 0x04, 0x11};     // 2.5.4.17 id-at-postalCode
const unsigned char kOidPoBox[] = {0x55, 0x04, 0x12};      // 2.5.4.18 id-at-postOfficeBox
const unsigned char kOidName[] = {0x55, 0x04, 0x29};       // 2.5.4.41 id-at-name
const unsigned char kOidGiven[] = {0x55, 0x04, 0x2a};      // 2.5.4.42 id-at-givenName
const unsigned char kOidInitials[] = {0x55, 0x04, 0x2b};   // 2.5.4.43 id-at-initials
const unsigned char kOidGenQual[] = {0x55, 0x04, 0x2c};    // 2.5.4.44 id-at-generationQualifier
const unsigned char kOidDnQual[] = {0x55, 0x04, 0x2e};     // 2.5.4.46 id-at-dnQualifier
const unsigned char kOidPseudonym[] = {0x55, 0x04, 0x41};  // 2.5.4.65 id-at-pseudonym
const unsigned char kOidOrgId[] = {0x55, 0x04, 0x61};      // 2.5.4.97 id-at-organizationIdentifier
const unsigned char kOidEmail[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                   0x0d, 0x01, 0x09, 0x01};  // 1.2.840.113549.1.9.1 emailAddress
const unsigned char kOidUnstructured[] = {
    0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x09, 0x02};  // 1.2.840.113549.1.9.2 unstructuredName
const unsigned char kOidDc[] = {0x09, 0x92, 0x26, 0x89, 0x93,
                                0xf2, 0x2c, 0x64, 0x01, 0x19};  // 0.9.2342.19200300.100.1.25 dc
const unsigned char kOidUid[] = {0x09, 0x92, 0x26, 0x89, 0x93,
                                 0xf2, 0x2c, 0x64, 0x01, 0x01};  // 0.9.2342.19200300.100.1.1 uid
const unsigned char kOidJurL[] = {0x2b, 0x06, 0x01, 0x04, 0x01, 0x82,
                                  0x37, 0x3c, 0x02, 0x01, 0x01};  // 1.3.6.1.4.1.311.60.2.1.1
const unsigned char kOidJurSt[] = {0x2b, 0x06, 0x01, 0x04, 0x01, 0x82,
                                   0x37, 0x3c, 0x02, 0x01, 0x02};  // 1.3.6.1.4.1.311.60.2.1.2
const unsigned char kOidJurC[] = {0x2b, 0x06, 0x01, 0x04, 0x01, 0x82,
                                  0x37, 0x3c, 0x02, 0x01, 0x03};  // 1.3.6.1.4.1.311.60.2.1.3

#define OV_ATTR(dotted, oid, tag, longName, alias) \
    { dotted, oid, sizeof(oid), tag, longName, alias }

// Ordered by how often real certificates carry them, so lookups end early.
const X509AttrType kTypes[] = {
    OV_ATTR("2.5.4.3", kOidCn, "CN", "commonName", nullptr),
    OV_ATTR("2.5.4.10", kOidO, "O", "organizationName", nullptr),
    OV_ATTR("2.5.4.6", kOidC, "C", "countryName", nullptr),
    OV_ATTR("2.5.4.11", kOidOu, "OU", "organizationalUnitName", nullptr),
    OV_ATTR("2.5.4.8", kOidSt, "ST", "stateOrProvinceName", "S"),
    OV_ATTR("2.5.4.7", kOidL, "L", "localityName", nullptr),
    OV_ATTR("1.2.840.113549.1.9.1", kOidEmail, "E", "emailAddress", "EMAIL"),
    OV_ATTR("2.5.4.5", kOidSerial, "SERIALNUMBER", "serialNumber", nullptr),
    OV_ATTR("0.9.2342.19200300.100.1.25", kOidDc, "DC", "domainComponent", nullptr),
    OV_ATTR("0.9.2342.19200300.100.1.1", kOidUid, "UID", "userId", nullptr),
    OV_ATTR("2.5.4.9", kOidStreet, "STREET", "streetAddress", nullptr),
    OV_ATTR("2.5.4.17", kOidPostal, "POSTALCODE", "postalCode", nullptr),
    OV_ATTR("2.5.4.4", kOidSurname, "SN", "surname", nullptr),
    OV_ATTR("2.5.4.42", kOidGiven, "GN", "givenName", "G"),
    OV_ATTR("2.5.4.12", kOidTitle, "T", "title", nullptr),
    OV_ATTR("2.5.4.43", kOidInitials, "I", "initials", nullptr),
    OV_ATTR("2.5.4.44", kOidGenQual, "generationQualifier", "generationQualifier", nullptr),
    OV_ATTR("2.5.4.46", kOidDnQual, "dnQualifier", "dnQualifier", nullptr),
    OV_ATTR("2.5.4.65", kOidPseudonym, "pseudonym", "pseudonym", nullptr),
    OV_ATTR("2.5.4.97", kOidOrgId, "organizationIdentifier", "organizationIdentifier", nullptr),
    OV_ATTR("2.5.4.15", kOidBusiness, "businessCategory", "businessCategory", nullptr),
    OV_ATTR("2.5.4.13", kOidDescr, "description", "description", nullptr),
    OV_ATTR("2.5.4.18", kOidPoBox, "postOfficeBox", "postOfficeBox", nullptr),
    OV_ATTR("2.5.4.41", kOidName, "name", "name", nullptr),
    OV_ATTR("1.2.840.113549.1.9.2", kOidUnstructured, "unstructuredName", "unstructuredName",
            nullptr),
    OV_ATTR("1.3.6.1.4.1.311.60.2.1.1", kOidJurL, "jurisdictionL", "jurisdictionLocalityName",
            nullptr),
    OV_ATTR("1.3.6.1.4.1.311.60.2.1.2", kOidJurSt, "jurisdictionST",
            "jurisdictionStateOrProvinceName", nullptr),
    OV_ATTR("1.3.6.1.4.1.311.60.2.1.3", kOidJurC, "jurisdictionC", "jurisdictionCountryName",
            nullptr),
};
#undef OV_ATTR

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
        if (oid.equals(t.oid, t.oidLen)) return &t;
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
    unsigned start = 0;
    for (unsigned i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        out.appendN(s + start, i - start);
        start = i + 1;
        switch (c) {
            case '"':
                out.append("\\\"");
                break;
            case '\\':
                out.append("\\\\");
                break;
            case '\n':
                out.append("\\n");
                break;
            case '\r':
                out.append("\\r");
                break;
            case '\t':
                out.append("\\t");
                break;
            case '\b':
                out.append("\\b");
                break;
            case '\f':
                out.append("\\f");
                break;
            default: {
                char u[7] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15], 0};
                out.append(u);
            }
        }
    }
    out.appendN(s + start, n - start);
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
        out.appendChar('"');
        appendJsonEscaped(key.getString(), key.getSize(), out);
        out.append("\":");
        if (count > 1) out.appendChar('[');
        bool firstValue = true;
        forEachAtv(name, [&](DerInput o, const DerElement& val) {
            if (!o.equals(oid)) return true;
            if (!firstValue) out.appendChar(',');
            firstValue = false;
            value.clear();
            appendValueText(val, value);
            out.appendChar('"');
            appendJsonEscaped(value.getString(), value.getSize(), out);
            out.appendChar('"');
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
