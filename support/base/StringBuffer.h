// StringBuffer: a growable, owned, zero-terminated 8-bit string.
#pragma once

#include <cstddef>

#include "support/base/OrvaneObject.h"

class DataBuffer;
class LogBase;

// Text of 8-bit bytes, always zero-terminated. getString() stays valid until the
// next modification. Allocation failure leaves the string unchanged and makes
// the appending operation return false; nothing throws.
class StringBuffer : public NonRefCountedObj {
  public:
    StringBuffer() = default;
    explicit StringBuffer(const char* s);
    ~StringBuffer() override;
    StringBuffer(const StringBuffer& other);
    StringBuffer& operator=(const StringBuffer& other);

    static StringBuffer* createNewSB();
    static void deleteSb(StringBuffer* sb) { delete sb; }

    const char* getString() const;
    unsigned getSize() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }
    char lastChar() const { return m_size ? m_data[m_size - 1] : '\0'; }

    void clear();
    // Zeroes the text, then empties it.
    void secureClear();
    void setSecure(bool on) { m_secure = on; }
    bool setString(const StringBuffer& other);
    bool setString(const char* s);
    // Drops the last n bytes (all when n >= size).
    void shorten(unsigned n);

    bool append(const char* s);
    bool append(const StringBuffer& other);
    // Appends the raw bytes of the buffer as text.
    bool append(const DataBuffer& db);
    bool appendN(const char* s, unsigned n);
    bool append3(const char* a, const char* b, const char* c);
    bool appendChar(char c);
    bool appendUint32(unsigned v);
    bool appendInt64(long long v);
    // Appends the bytes as hexadecimal, upper case unless lower is set.
    bool appendHex(const unsigned char* p, unsigned n, bool lower = false);

    bool equals(const StringBuffer& other) const;
    bool equals(const char* s) const;
    // Compares with a literal stored scrambled (see litScram).
    bool equals_x(const char* scrambled) const;
    bool equalsIgnoreCase(const char* s) const;
    bool beginsWith(const char* s) const;
    bool beginsWithIgnoreCase(const char* s) const;
    bool endsWith(const char* s) const;
    bool containsSubstring(const char* s) const;
    bool containsSubstringNoCase(const char* s) const;
    // Index of the first occurrence at or after start, or -1.
    int indexOf(const char* s, unsigned start = 0) const;

    void toLowerCase();
    void toUpperCase();
    // Removes every space, tab, CR and LF.
    void removeFws();
    void trim2();
    // Truncates at the first occurrence of s (the occurrence is removed).
    void chopAtSubstr(const char* s, bool caseInsensitive);
    bool replaceFirstOccurance(const char* from, const char* to, bool caseInsensitive);
    bool replaceLastOccurance(const char* from, const char* to);
    // Returns the number of replacements.
    int replaceAllOccurances(const char* from, const char* to);

    // Decodes the text in the named encoding ("base64", "hex") and appends the bytes.
    bool decode(const char* encoding, DataBuffer& out, LogBase& log) const;

    // Descrambles, in place, a literal produced by tools/litscram (the library keeps
    // a few marker texts out of the binary's plain strings).
    static void litScram(char* s);
    // The scrambling itself, the inverse of litScram, for producing literals.
    static void litScramEncode(char* s);

    size_t heapUsage() const override { return m_capacity; }

  private:
    bool reserve(unsigned total);
    bool replaceAt(unsigned pos, unsigned len, const char* to);

    char* m_data = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
    bool m_secure = false;
};
