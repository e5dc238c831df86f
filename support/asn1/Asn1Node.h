// _ovAsn1: a reference-counted ASN.1 node tree, decoded step by step from DER
// (or BER) and encoded back to DER.
#pragma once

#include <vector>

#include "support/asn1/DerReader.h"
#include "support/base/OrvaneObject.h"

class DataBuffer;
class LogBase;
class StringBuffer;
class _ovAsn1Bytes;

// One ASN.1 item: a primitive with content bytes, or a constructed item whose
// contents are either still raw (as read) or decoded into parts.
//
// Ownership: every factory returns a node holding one reference for the caller,
// who gives it up with decRefCount (or RefCountedObject::release). A parent holds
// one reference to each of its parts; getAsnPart lends a part.
//
// Decoded nodes share one copy of the input bytes: parts are views into the
// bytes that the root copied, so decoding a large CRL copies it once. Decoding
// accepts BER as well as DER (indefinite and non-minimal lengths), because
// PKCS#7 files exported by several toolkits stream their SignedData that way.
class _ovAsn1 : public RefCountedObject {
  public:
    ~_ovAsn1() override;
    _ovAsn1(const _ovAsn1&) = delete;
    _ovAsn1& operator=(const _ovAsn1&) = delete;

    // Decodes the one item at p (trailing bytes after it are ignored) into a new
    // node. A constructed item's contents are not decoded: call DecodeInner.
    // Null, with a log line saying why (e.g. "ASN.1 length exceeds input"), when
    // the item's header is malformed or runs past n.
    static _ovAsn1* DecodeToAsn_1Step(const unsigned char* p, unsigned n, LogBase& log);
    // The same, without the copy: the tree's nodes view the caller's bytes,
    // which must stay unchanged until the last node of the tree is released.
    // For an owner that keeps the bytes beside the tree (a large CRL), so that
    // they are held once.
    static _ovAsn1* DecodeToAsn_1StepView(const unsigned char* p, unsigned n, LogBase& log);

    // Decodes the raw contents of this constructed node into parts; with
    // recursive set, every constructed part below as well. Already decoded parts
    // are kept as they are (so a second call only descends). False, with a log
    // line and no parts added, when the contents do not hold a sequence of well
    // formed items, when nesting passes der::kMaxDepth levels, or when this node
    // is primitive.
    bool DecodeInner(bool recursive, LogBase& log);

    // The number of decoded parts; 0 for a primitive or a node not yet decoded.
    int numAsnParts() const;
    // The part at index i, owned by this node (valid while the node lives), or
    // null when i is out of range.
    _ovAsn1* getAsnPart(int i) const;
    // Appends the content bytes: a primitive's content, the pre-encoded content
    // when set, or a constructed node's contents (its parts encoded when decoded,
    // otherwise the contents as read). False only when memory is exhausted.
    bool getAsnContent(DataBuffer& out) const;
    // The content bytes as read, without copying (valid while the node lives):
    // a primitive's content or an undecoded constructed node's raw contents.
    // Empty for built constructed nodes and nodes whose parts were decoded.
    DerInput contentView() const;
    // Appends the dotted text of an OBJECT IDENTIFIER node; false when the node
    // is not a well formed OID.
    bool getOidText(StringBuffer& out) const;

    // Appends the DER encoding of this node. Lengths are always written in
    // definite, shortest form. normalizeBer chooses how far BER read from input
    // is rewritten: false copies undecoded contents exactly as read (the fast
    // path, which keeps any BER inside them) and writes decoded nodes in the
    // form they were read; true rewrites all BER as DER: indefinite and padded
    // lengths inside undecoded contents, and strings split into constructed
    // segments (joined into one primitive). Parts of a SET are written in their
    // stored order, not re-sorted, so that names which a CA issued unsorted keep
    // their signed bytes. When preEncodedContent is set, those bytes are written
    // verbatim as this node's contents instead of its parts. False, with a log
    // line and out unchanged, on failure (contents that do not parse, with true).
    bool EncodeToDer(DataBuffer& out, bool normalizeBer, LogBase& log) const;

    // Builders. Each returns a new node with one reference for the caller, or
    // null when memory is exhausted or the input is invalid.
    static _ovAsn1* newSequence();
    static _ovAsn1* newSet();
    // Any constructed item (tag class 0 universal .. 3 private), with no parts.
    static _ovAsn1* newConstructed(unsigned tagClass, unsigned tagNumber);
    // Any primitive item with the given content bytes (copied).
    static _ovAsn1* newPrimitive(unsigned tagClass, unsigned tagNumber, const unsigned char* p,
                                 unsigned n);
    // INTEGER of the unsigned big-endian magnitude (leading zeros dropped, a zero
    // byte put in front when the top bit is set; n == 0 gives 0).
    static _ovAsn1* newInteger(const unsigned char* magnitude, unsigned n);
    static _ovAsn1* newIntegerU32(unsigned value);
    // OBJECT IDENTIFIER of dotted text such as "2.5.29.19"; null when not an OID.
    static _ovAsn1* newOid(const char* dotted);
    static _ovAsn1* newOctetString(const unsigned char* p, unsigned n);
    static _ovAsn1* newBoolean(bool value);
    static _ovAsn1* newNull();
    // [tagNumber] context-specific: primitive with the content bytes, or (when
    // constructed) empty, for appendPart (content must then be null).
    static _ovAsn1* newContextSpecific(unsigned tagNumber, bool constructed,
                                       const unsigned char* content, unsigned n);

    // Appends part as the last part, taking over the caller's reference to it
    // (the caller must not release it afterwards). A constructed node read from
    // input is decoded one level first so that its existing parts are kept.
    // False, with part released, when part is null, this node is primitive, the
    // decoding fails, or memory is exhausted.
    bool appendPart(_ovAsn1* part);

    // Tag number (16 SEQUENCE, 23 UTCTime, n of [n]), tag class (0 universal,
    // 1 application, 2 context-specific, 3 private) and the constructed flag. Read
    // them directly; they are public for that, not for changing.
    unsigned m_tag = 0;
    unsigned char m_tagClass = 0;
    bool m_constructed = false;

    // Borrowed bytes (never owned, null by default) that EncodeToDer writes
    // verbatim as this node's contents, e.g. a complete certificate wrapped in a
    // new SEQUENCE. Reset it to null before the lender's buffer goes away.
    DataBuffer* preEncodedContent = nullptr;

  private:
    _ovAsn1() = default;
    static _ovAsn1* newNode(unsigned tagClass, unsigned tagNumber, bool constructed);
    static _ovAsn1* fromElement(const DerElement& e, _ovAsn1Bytes* bytes, int depth);
    bool setOwnContent(const unsigned char* p, unsigned n);
    bool encodeInto(DataBuffer& out, bool normalizeBer, int depth, LogBase& log) const;
    bool encodeContents(DataBuffer& out, LogBase& log) const;
    void releaseParts();

    // One reference; null for built constructed nodes and for nodes that view
    // borrowed bytes (DecodeToAsn_1StepView).
    _ovAsn1Bytes* m_bytes = nullptr;
    DerInput m_content;             // view into m_bytes
    bool m_partsDecoded = false;    // m_parts stand for the contents
    int m_depth = 0;                // levels below the decoded root
    std::vector<_ovAsn1*> m_parts;  // one reference each
};
