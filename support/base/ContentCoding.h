// ContentCoding: base64 encoding and decoding.
#pragma once

class StringBuffer;
class DataBuffer;
class LogBase;

class ContentCoding {
  public:
    ContentCoding() = default;
    ~ContentCoding() = default;

    // Base64 output of encodeBase64 is broken into lines of n characters, each
    // followed by CRLF. 0 means one unbroken line. The default is 76 (MIME).
    void setLineLength(unsigned n) { m_lineLength = n; }
    unsigned getLineLength() const { return m_lineLength; }

    // Appends base64 of the bytes, with a CRLF after each full line of the set
    // length; the last, partial line ends without CRLF.
    bool encodeBase64(const void* p, unsigned n, StringBuffer& out) const;
    static bool encodeBase64_noCrLf(const void* p, unsigned n, StringBuffer& out);
    // Same with the URL-safe alphabet and no padding.
    static bool encodeBase64Url(const void* p, unsigned n, StringBuffer& out);

    // Decodes base64 and appends the bytes, skipping whitespace (space, tab, CR,
    // LF, FF, VT). Trailing padding may be absent. False, with nothing appended,
    // when a character outside the alphabet appears, data follows the padding, or
    // the last group holds a single character.
    static bool decodeBase64ToDb(const char* s, unsigned n, DataBuffer& out);
    // Accepts both the standard and the URL-safe alphabets.
    static bool decodeBase64UrlToDb(const char* s, unsigned n, DataBuffer& out);

    // Whether the n bytes are base64 text only: alphabet characters, whitespace,
    // and '=' padding at the end; at least 4 characters that are not whitespace. A zero byte
    // makes it false.
    static bool isBase64(const char* s, unsigned n, LogBase& log);
    // The same for UTF-16LE text: each code unit's high byte is zero and its low
    // byte passes isBase64. An odd final byte is ignored.
    static bool isBase64_utf16LE(const char* s, unsigned n);

    // Hexadecimal helpers. decodeHex skips whitespace and ':' separators; false on
    // any other non-hex character or an odd digit count.
    static bool encodeHex(const void* p, unsigned n, StringBuffer& out, bool lower);
    static bool decodeHex(const char* s, unsigned n, DataBuffer& out);

  private:
    unsigned m_lineLength = 76;
};
