// Helpers for the ASN.1 tests: hex, nested inputs, a strict DER walk, and a
// small strict XML reader used to check the renderer's output independently.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/asn1/DerReader.h"

namespace asn1test {

// Hex digits to bytes; spaces are ignored.
inline std::vector<unsigned char> fromHex(const std::string& hex) {
    std::vector<unsigned char> out;
    int hi = -1;
    for (char ch : hex) {
        int v;
        if (ch >= '0' && ch <= '9')
            v = ch - '0';
        else if (ch >= 'a' && ch <= 'f')
            v = ch - 'a' + 10;
        else if (ch >= 'A' && ch <= 'F')
            v = ch - 'A' + 10;
        else
            continue;
        if (hi < 0) {
            hi = v;
        } else {
            out.push_back(static_cast<unsigned char>(hi << 4 | v));
            hi = -1;
        }
    }
    return out;
}

inline std::string toHex(const unsigned char* p, size_t n) {
    static const char d[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += d[p[i] >> 4];
        s += d[p[i] & 15];
    }
    return s;
}
inline std::string toHex(const std::vector<unsigned char>& v) {
    return toHex(v.data(), v.size());
}

// levels SEQUENCEs nested with indefinite lengths.
inline std::vector<unsigned char> nestedIndefinite(int levels) {
    std::vector<unsigned char> v;
    for (int i = 0; i < levels; ++i) v.insert(v.end(), {0x30, 0x80});
    for (int i = 0; i < levels; ++i) v.insert(v.end(), {0x00, 0x00});
    return v;
}

// levels SEQUENCEs nested with definite lengths, an INTEGER innermost.
inline std::vector<unsigned char> nestedDefinite(int levels) {
    std::vector<unsigned char> v = {0x02, 0x01, 0x05};
    for (int i = 0; i < levels; ++i) {
        unsigned char hdr[8];
        size_t h = der::encodeHeader(der::kSequence, v.size(), hdr);
        v.insert(v.begin(), hdr, hdr + h);
    }
    return v;
}

// Whether the bytes are one item in strict DER all the way down (constructed
// items are walked; primitives are not looked into). With noSegments, a string
// type in constructed (segmented) form also counts as not DER.
inline bool isStringType(unsigned tagClass, unsigned tag) {
    return tagClass == 0 &&
           (tag == 3 || tag == 4 || tag == 12 || (tag >= 18 && tag <= 28) || tag == 30);
}
inline bool isStrictDerContents(DerInput in, int depth, bool noSegments) {
    if (depth > der::kMaxDepth) return false;
    DerParser p(in, false);
    while (p.hasMore()) {
        DerElement e;
        if (!p.readAny(&e)) return false;
        if (!e.constructed) continue;
        if (noSegments && isStringType(e.tagClass, e.tagNumber)) return false;
        if (!isStrictDerContents(e.contents, depth + 1, noSegments)) return false;
    }
    return true;
}
inline bool isStrictDer(const std::vector<unsigned char>& v, bool noSegments = false) {
    DerParser p(DerInput(v.data(), v.size()), false);
    DerElement e;
    if (!p.readAny(&e) || p.hasMore()) return false;
    if (!e.constructed) return true;
    if (noSegments && isStringType(e.tagClass, e.tagNumber)) return false;
    return isStrictDerContents(e.contents, 1, noSegments);
}

// Offsets of the identifier octet and of the first length octet of every item
// reached by walking constructed items (BER allowed).
struct HeaderPos {
    size_t tag;
    size_t len;
    bool indefinite;
};
inline void collectHeaders(const std::vector<unsigned char>& all, DerInput in,
                           std::vector<HeaderPos>& out) {
    DerParser p(in, true);
    while (p.hasMore()) {
        DerElement e;
        if (!p.readAny(&e)) return;
        size_t tagOff = static_cast<size_t>(e.whole.data() - all.data());
        size_t lenOff = tagOff + 1;
        if ((all[tagOff] & 0x1f) == 0x1f) {  // skip the high-tag digits
            while (all[lenOff] & 0x80) ++lenOff;
            ++lenOff;
        }
        out.push_back({tagOff, lenOff, e.indefinite});
        if (e.constructed) collectHeaders(all, e.contents, out);
    }
}

// A parsed XML element. Text is the decoded character data of the element
// itself (whitespace-only runs between child elements are dropped).
struct XNode {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attrs;
    std::string text;
    std::vector<XNode> kids;
    std::string attr(const std::string& n) const {
        for (const auto& a : attrs)
            if (a.first == n) return a.second;
        return "";
    }
};

// A strict reader for the XML subset the renderer writes: elements, double
// quoted attributes, character data with the five predefined entities and
// numeric references, no declaration, comments or CDATA. Checks UTF-8 and the
// XML 1.0 character range. False with a reason on anything else.
class XmlReader {
  public:
    bool parse(const std::string& s, XNode& root, std::string& err) {
        m_s = s;
        m_i = 0;
        skipWs();
        if (!element(root, 0)) {
            err = m_err + " at offset " + std::to_string(m_i);
            return false;
        }
        skipWs();
        if (m_i != m_s.size()) {
            err = "content after the root element";
            return false;
        }
        return true;
    }

  private:
    bool fail(const char* why) {
        m_err = why;
        return false;
    }
    void skipWs() {
        while (m_i < m_s.size() &&
               (m_s[m_i] == ' ' || m_s[m_i] == '\n' || m_s[m_i] == '\t' || m_s[m_i] == '\r'))
            ++m_i;
    }
    static bool nameChar(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-' || c == '.';
    }
    bool name(std::string& out) {
        size_t start = m_i;
        while (m_i < m_s.size() && nameChar(m_s[m_i])) ++m_i;
        if (m_i == start || (m_s[start] >= '0' && m_s[start] <= '9') || m_s[start] == '-' ||
            m_s[start] == '.')
            return fail("bad name");
        out = m_s.substr(start, m_i - start);
        return true;
    }
    static void putUtf8(std::string& out, unsigned cp) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    static bool xmlChar(unsigned cp) {
        return cp == 0x9 || cp == 0xA || cp == 0xD || (cp >= 0x20 && cp <= 0xD7FF) ||
               (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF);
    }
    // Character data up to the next '<' (or the closing quote for attributes).
    bool chars(std::string& out, char stop) {
        while (m_i < m_s.size() && m_s[m_i] != '<' && m_s[m_i] != stop) {
            unsigned char c = static_cast<unsigned char>(m_s[m_i]);
            if (c == '&') {
                size_t semi = m_s.find(';', m_i);
                if (semi == std::string::npos) return fail("unterminated reference");
                std::string ref = m_s.substr(m_i + 1, semi - m_i - 1);
                unsigned cp = 0;
                if (ref == "amp")
                    cp = '&';
                else if (ref == "lt")
                    cp = '<';
                else if (ref == "gt")
                    cp = '>';
                else if (ref == "quot")
                    cp = '"';
                else if (ref == "apos")
                    cp = '\'';
                else if (ref.size() > 1 && ref[0] == '#') {
                    bool hex = ref[1] == 'x';
                    std::string digits = ref.substr(hex ? 2 : 1);
                    if (digits.empty()) return fail("empty character reference");
                    for (char d : digits) {
                        unsigned v;
                        if (d >= '0' && d <= '9')
                            v = d - '0';
                        else if (hex && d >= 'a' && d <= 'f')
                            v = d - 'a' + 10;
                        else if (hex && d >= 'A' && d <= 'F')
                            v = d - 'A' + 10;
                        else
                            return fail("bad character reference");
                        cp = cp * (hex ? 16 : 10) + v;
                        if (cp > 0x10FFFF) return fail("character reference out of range");
                    }
                } else {
                    return fail("unknown entity");
                }
                if (!xmlChar(cp)) return fail("character not allowed in XML");
                putUtf8(out, cp);
                m_i = semi + 1;
                continue;
            }
            // One UTF-8 sequence, validated.
            unsigned len = c < 0x80             ? 1
                           : (c & 0xE0) == 0xC0 ? 2
                           : (c & 0xF0) == 0xE0 ? 3
                           : (c & 0xF8) == 0xF0 ? 4
                                                : 0;
            if (!len || m_i + len > m_s.size()) return fail("invalid UTF-8");
            unsigned cp = len == 1 ? c : len == 2 ? (c & 0x1F) : len == 3 ? (c & 0x0F) : (c & 7);
            for (unsigned k = 1; k < len; ++k) {
                unsigned char cc = static_cast<unsigned char>(m_s[m_i + k]);
                if ((cc & 0xC0) != 0x80) return fail("invalid UTF-8");
                cp = (cp << 6) | (cc & 0x3F);
            }
            static const unsigned minFor[] = {0, 0, 0x80, 0x800, 0x10000};
            if (cp < minFor[len] || (cp >= 0xD800 && cp <= 0xDFFF)) return fail("invalid UTF-8");
            if (!xmlChar(cp)) return fail("character not allowed in XML");
            if (cp == '\r') return fail("raw CR would be folded by parsers");
            out.append(m_s, m_i, len);
            m_i += len;
        }
        return true;
    }
    bool element(XNode& node, int depth) {
        if (depth > 200) return fail("too deep");
        if (m_i >= m_s.size() || m_s[m_i] != '<') return fail("expected '<'");
        ++m_i;
        if (!name(node.name)) return false;
        for (;;) {
            size_t before = m_i;
            skipWs();
            if (m_i >= m_s.size()) return fail("unterminated start tag");
            if (m_s[m_i] == '/') {
                if (m_i + 1 >= m_s.size() || m_s[m_i + 1] != '>') return fail("bad '/'");
                m_i += 2;
                return true;
            }
            if (m_s[m_i] == '>') {
                ++m_i;
                break;
            }
            if (m_i == before) return fail("attributes need whitespace before them");
            std::string an, av;
            if (!name(an)) return false;
            if (m_i + 1 >= m_s.size() || m_s[m_i] != '=' || m_s[m_i + 1] != '"')
                return fail("attribute without =\"");
            m_i += 2;
            if (!chars(av, '"')) return false;
            if (m_i >= m_s.size() || m_s[m_i] != '"') return fail("unterminated attribute");
            ++m_i;
            if (!node.attr(an).empty()) return fail("duplicate attribute");
            node.attrs.emplace_back(an, av);
        }
        std::string text;
        for (;;) {
            std::string run;
            if (!chars(run, '\0')) return false;
            text += run;
            if (m_i >= m_s.size()) return fail("unterminated element");
            if (m_i + 1 < m_s.size() && m_s[m_i + 1] == '/') {
                m_i += 2;
                std::string closing;
                if (!name(closing)) return false;
                if (closing != node.name) return fail("mismatched end tag");
                if (m_i >= m_s.size() || m_s[m_i] != '>') return fail("bad end tag");
                ++m_i;
                break;
            }
            node.kids.emplace_back();
            if (!element(node.kids.back(), depth + 1)) return false;
        }
        bool allWs = text.find_first_not_of(" \t\n") == std::string::npos;
        if (!node.kids.empty() && !allWs) return fail("mixed content");
        node.text = node.kids.empty() ? text : "";
        return true;
    }

    std::string m_s;
    size_t m_i = 0;
    std::string m_err;
};

}  // namespace asn1test
