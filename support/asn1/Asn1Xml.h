// Asn1Xml: DER rendered as XML, and ov_asnItem, one fully decoded ASN.1 item.
#pragma once

#include <vector>

#include "support/base/DataBuffer.h"
#include "support/base/OrvaneObject.h"

class ExtPtrArray;
class LogBase;
class StringBuffer;
class mp_int;
struct AsnItemBuilder;

// One ASN.1 item decoded all the way down: a primitive with a copy of its
// content bytes, or a constructed item with its children. Owned by whoever
// received it; deleted through the virtual destructor (which deletes the
// children).
class ov_asnItem : public NonRefCountedObj {
  public:
    ov_asnItem() = default;
    ~ov_asnItem() override;
    ov_asnItem(const ov_asnItem&) = delete;
    ov_asnItem& operator=(const ov_asnItem&) = delete;

    unsigned tagClass() const { return m_tagClass; }  // 0 universal .. 3 private
    unsigned tagNumber() const { return m_tagNumber; }
    bool isConstructed() const { return m_constructed; }
    // A primitive's content bytes; empty for a constructed item.
    const DataBuffer& content() const { return m_content; }
    int numChildren() const { return static_cast<int>(m_children.size()); }
    // Borrowed child, or null when i is out of range.
    const ov_asnItem* child(int i) const;

    // The value of a universal INTEGER (two's complement, so negative values come
    // out negative) into out, replacing it. False with a log line when the item
    // is not a primitive INTEGER or its content is empty.
    bool get_mp(mp_int& out, LogBase& log) const;

  private:
    friend struct AsnItemBuilder;
    unsigned char m_tagClass = 0;
    bool m_constructed = false;
    unsigned m_tagNumber = 0;
    DataBuffer m_content;
    std::vector<ov_asnItem*> m_children;  // owned
};

// Static conversion of DER to XML. The element vocabulary (one element per
// item: <sequence>, <set>, <oid>, <int>, <bits>, <octets>, <contextSpecific>,
// string types by name, ...) is described with examples in docs/design-asn1.md.
class Asn1Xml {
  public:
    // Renders the one ASN.1 item in der as XML and appends it to xml (no XML
    // declaration; one root element). compact: true writes no whitespace between
    // elements; false puts each element on its own line, indented two spaces a
    // level. allowBer: true also accepts BER (indefinite and padded lengths), as
    // PKCS#7 files carry it; false accepts strict DER only. When extra is not
    // null, the item decoded as an ov_asnItem is appended to it (the array owns
    // it). False, with a log line and xml unchanged, when der is empty, is not
    // one well formed item (trailing bytes included), or nests more than
    // der::kMaxDepth levels.
    static bool derToXml(const DataBuffer& der, bool compact, bool allowBer, StringBuffer& xml,
                         ExtPtrArray* extra, LogBase& log);

    // Decodes the item at p (DER or BER), all levels, into a new ov_asnItem owned
    // by the caller, and sets consumed to the bytes it occupies (0 on failure).
    // Trailing bytes after it are left alone. Null, with a log line, when the
    // item is malformed or nests more than der::kMaxDepth levels.
    static ov_asnItem* decodeAsnItem(const unsigned char* p, unsigned n, unsigned& consumed,
                                     LogBase& log);
};
