// DerInput and DerParser: bounds-checked reading of DER (and the BER forms that
// real files carry) over bytes the reader does not own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class LogBase;

// A view of bytes owned elsewhere. Valid while the owner's bytes are unchanged.
class DerInput {
  public:
    DerInput() = default;
    // An empty view keeps its position, so offsets between views stay defined.
    DerInput(const unsigned char* p, size_t n) : m_data(p), m_size(p ? n : 0) {}

    const unsigned char* data() const { return m_data; }
    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    unsigned char operator[](size_t i) const { return m_data[i]; }
    bool equals(const DerInput& o) const {
        return m_size == o.m_size && (m_size == 0 || memcmp(m_data, o.m_data, m_size) == 0);
    }
    bool equals(const unsigned char* p, size_t n) const { return equals(DerInput(p, n)); }
    // A sub-view [off, off+n); empty when out of range.
    DerInput sub(size_t off, size_t n) const {
        if (off > m_size || n > m_size - off) return DerInput();
        return DerInput(m_data + off, n);
    }

  private:
    const unsigned char* m_data = nullptr;
    size_t m_size = 0;
};

// Tag bytes as they appear on the wire for the tags we read by number (low-tag
// form). Class and constructed bits are part of the value.
namespace der {
constexpr unsigned kBoolean = 0x01;
constexpr unsigned kInteger = 0x02;
constexpr unsigned kBitString = 0x03;
constexpr unsigned kOctetString = 0x04;
constexpr unsigned kNull = 0x05;
constexpr unsigned kOid = 0x06;
constexpr unsigned kEnumerated = 0x0a;
constexpr unsigned kUtf8String = 0x0c;
constexpr unsigned kPrintableString = 0x13;
constexpr unsigned kT61String = 0x14;
constexpr unsigned kIa5String = 0x16;
constexpr unsigned kUtcTime = 0x17;
constexpr unsigned kGeneralizedTime = 0x18;
constexpr unsigned kVisibleString = 0x1a;
constexpr unsigned kUniversalString = 0x1c;
constexpr unsigned kBmpString = 0x1e;
constexpr unsigned kSequence = 0x30;
constexpr unsigned kSet = 0x31;
constexpr unsigned kConstructed = 0x20;
constexpr unsigned kContextSpecific = 0x80;
// [n] IMPLICIT primitive / EXPLICIT (constructed) context-specific tags.
constexpr unsigned contextPrimitive(unsigned n) {
    return kContextSpecific | n;
}
constexpr unsigned contextConstructed(unsigned n) {
    return kContextSpecific | kConstructed | n;
}

// Deepest nesting any reader follows. Real certificates and PKCS#7 files stay
// below 20; the cap keeps hostile input from exhausting the stack.
constexpr int kMaxDepth = 64;
}  // namespace der

// One decoded tag-length-value element header.
struct DerElement {
    // Identifier octets folded into one number: for low-tag form the tag byte
    // itself (e.g. 0x30); for high-tag form the first identifier byte << 24 |
    // number, so that no high-tag element ever compares equal to a low-tag one.
    unsigned tag = 0;
    unsigned char tagClass = 0;  // 0 universal, 1 application, 2 context, 3 private
    bool constructed = false;
    unsigned tagNumber = 0;
    bool indefinite = false;  // BER indefinite length; contents end at 00 00
    DerInput contents;        // the content octets (without an end-of-contents pair)
    DerInput whole;           // header + contents (+ end-of-contents when indefinite)
};

// A cursor over a DerInput. Every read returns false on malformed or
// out-of-bounds input and then leaves the cursor where it was.
class DerParser {
  public:
    DerParser() = default;
    explicit DerParser(DerInput in, bool allowBer = false) : m_in(in), m_allowBer(allowBer) {}

    bool hasMore() const { return m_pos < m_in.size(); }
    size_t remaining() const { return m_in.size() - m_pos; }
    size_t position() const { return m_pos; }

    // Reads the next element of any tag.
    [[nodiscard]] bool readAny(DerElement* out);
    // Reads the next element, which must have the given tag.
    [[nodiscard]] bool read(unsigned tag, DerInput* contents);
    [[nodiscard]] bool readElement(unsigned tag, DerElement* out);
    // Reads the next element only if it has the tag; *present says whether it did.
    [[nodiscard]] bool readOptional(unsigned tag, DerInput* contents, bool* present);
    // The tag of the next element without consuming it; false at the end.
    [[nodiscard]] bool peekTag(unsigned* tag) const;
    bool nextIs(unsigned tag) const {
        unsigned t;
        return peekTag(&t) && t == tag;
    }
    [[nodiscard]] bool skip();

    // Convenience readers of common universal types; each checks the tag.
    [[nodiscard]] bool readSequence(DerParser* inner);
    [[nodiscard]] bool readSet(DerParser* inner);
    [[nodiscard]] bool readConstructed(unsigned tag, DerParser* inner);
    [[nodiscard]] bool readOid(DerInput* oidContents);
    // The typed readers are strict DER: an INTEGER in its shortest form (X.690
    // 8.3.2), a BOOLEAN of 00 or FF (11.1), a BIT STRING whose unused bits are
    // zero (11.2.1). Every certificate of the system trust store loads under
    // these rules.
    //
    // INTEGER content octets as encoded (sign byte kept).
    [[nodiscard]] bool readIntegerBytes(DerInput* contents);
    // The same with a superfluous leading 00 or FF accepted. Only for reads
    // whose caller names, beside the call, the input that needs it.
    [[nodiscard]] bool readIntegerBytesLenient(DerInput* contents);
    // A small non-negative INTEGER that fits in 64 bits.
    [[nodiscard]] bool readUint64(uint64_t* value);
    [[nodiscard]] bool readBool(bool* value);
    // BIT STRING: the unused-bits count and the bytes after it.
    [[nodiscard]] bool readBitString(DerInput* bits, unsigned* unusedBits);

    // Why the last failed read failed, as a short English sentence fit for a log
    // line ("ASN.1 length exceeds input"). Never null.
    const char* lastError() const { return m_lastError ? m_lastError : "ASN.1 item is malformed"; }

  private:
    [[nodiscard]] bool parseHeader(size_t pos, DerElement* out, size_t* next, int depth) const;
    // Reads the next element with the tag; when problem names something wrong
    // with its contents, fails with that text and leaves the cursor where it was.
    [[nodiscard]] bool readChecked(unsigned tag, DerInput* contents,
                                   const char* (*problem)(DerInput));
    bool fail(const char* why) const {
        m_lastError = why;
        return false;
    }

    DerInput m_in;
    size_t m_pos = 0;
    bool m_allowBer = false;
    mutable const char* m_lastError = nullptr;
};

namespace der {
// Dotted text of an OBJECT IDENTIFIER's content octets ("1.2.840.113549.1.1.11").
// False for an empty, truncated or non-minimal encoding.
bool oidToText(DerInput oid, char* out, size_t outSize);
// Content octets of a dotted OID; false when the text is not an OID.
bool textToOid(const char* text, unsigned char* out, size_t outSize, size_t* outLen);
// Reads the first item of in into out; bytes after it are left alone. False,
// with a log line saying why ("ASN.1 input is empty", the parser's reason),
// when there is no well formed item.
bool readFirstItem(DerInput in, bool allowBer, DerElement* out, LogBase& log);
// Universal types that BER may split into constructed segments (which DER
// forbids): the bit, octet and character strings, and the times.
bool isStringType(unsigned tagClass, unsigned tagNumber);
// Whether in is a run of items in strict DER all the way down (constructed
// items are walked, primitive contents are not looked into), depth being the
// level of those items. With noSegments, a string type in constructed form
// also counts as not DER.
bool isStrictDer(DerInput in, bool noSegments, int depth = 0);
// Appends the DER header for tag and content length to out (at most 6 bytes for
// lengths below 4 GiB); returns the number of bytes written.
size_t encodeHeader(unsigned tagByte, size_t contentLength, unsigned char* out);
}  // namespace der
