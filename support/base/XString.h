// XString: text handed out as UTF-8.
#pragma once

#include "support/base/StringBuffer.h"

// Holds text as UTF-8. The secure flag has the meaning of DataBuffer's: the text
// is wiped before its memory is released.
class XString {
  public:
    XString() = default;
    explicit XString(const char* utf8) { m_sb.append(utf8); }
    ~XString();
    XString(const XString&) = default;
    XString& operator=(const XString&) = default;

    void clear();
    // Empties without releasing memory.
    void weakClear() { clear(); }

    bool isEmpty() const { return m_sb.isEmpty(); }
    unsigned getSizeUtf8() const { return m_sb.getSize(); }
    const char* getUtf8() const { return m_sb.getString(); }
    const StringBuffer& getUtf8Sb() const { return m_sb; }
    StringBuffer& getUtf8Sb_rw() { return m_sb; }

    bool appendUtf8(const char* s) { return m_sb.append(s); }
    bool appendUtf8N(const char* s, unsigned n) { return m_sb.appendN(s, n); }
    bool appendSbUtf8(const StringBuffer& sb) { return m_sb.append(sb); }
    bool setFromUtf8(const char* s);
    // Converts nChars UTF-16LE code units to UTF-8 and appends them. Surrogate
    // pairs are joined; a lone surrogate becomes U+FFFD.
    bool appendUtf16N_le(const unsigned char* p, unsigned nChars);
    // Converts nChars UTF-16BE code units (as in BMPString).
    bool appendUtf16N_be(const unsigned char* p, unsigned nChars);
    // Converts nChars UCS-4 big-endian code points (as in UniversalString).
    bool appendUtf32N_be(const unsigned char* p, unsigned nChars);
    // Appends Latin-1 bytes, converting each to UTF-8.
    bool appendLatin1N(const unsigned char* p, unsigned n);
    void copyFromX(const XString& other);

    bool equalsUtf8(const char* s) const { return m_sb.equals(s); }
    bool equalsIgnoreCaseUsAscii(const char* s) const { return m_sb.equalsIgnoreCase(s); }
    bool containsSubstringUtf8(const char* s) const { return m_sb.containsSubstring(s); }
    void trim2() { m_sb.trim2(); }
    // Decimal value of the text, 0 when it is not a number.
    int intValue() const;
    void setSecureX(bool on) {
        m_secure = on;
        m_sb.setSecure(on);
    }

    // Appends one Unicode code point as UTF-8 to sb (invalid ones become U+FFFD).
    static bool appendCodePoint(StringBuffer& sb, unsigned cp);

  private:
    StringBuffer m_sb;
    bool m_secure = false;
};
