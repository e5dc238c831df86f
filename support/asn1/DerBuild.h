// The component's DER writer (keys, OCSP requests, CRL and test inputs), beside
// the reader. Each function appends one complete element to out and returns
// false, leaving out as it was, when memory runs out or an OID text is
// malformed. Constructed values are built inside out: the contents first, in a
// buffer of their own, then wrapped.
#pragma once

#include <cstddef>

#include "support/asn1/DerReader.h"
#include "support/asn1/OidTable.h"

class DataBuffer;

namespace derbuild {

// tag, length and the n content bytes.
bool tlv(DataBuffer& out, unsigned tag, const unsigned char* p, size_t n);
bool tlv(DataBuffer& out, unsigned tag, const DataBuffer& content);
inline bool tlv(DataBuffer& out, unsigned tag, DerInput content) {
    return tlv(out, tag, content.data(), content.size());
}
inline bool sequence(DataBuffer& out, const DataBuffer& content) {
    return tlv(out, der::kSequence, content);
}
// [n] EXPLICIT: the context-specific constructed tag around one element.
inline bool explicitTag(DataBuffer& out, unsigned n, const DataBuffer& element) {
    return tlv(out, der::contextConstructed(n), element);
}
bool octetString(DataBuffer& out, const DataBuffer& content);
// INTEGER whose content octets are given as they are to be encoded.
bool integerBytes(DataBuffer& out, const DataBuffer& content);
// BOOLEAN as DER writes it: FF for true, 00 for false.
bool boolean(DataBuffer& out, bool value);
// OBJECT IDENTIFIER from dotted text, or from a row of the OID table.
bool oid(DataBuffer& out, const char* dotted);
inline bool oid(DataBuffer& out, const KnownOid& known) {
    return tlv(out, der::kOid, known.bytes());
}
bool null(DataBuffer& out);
// INTEGER holding a small non-negative value.
bool smallInteger(DataBuffer& out, unsigned value);
// BIT STRING with no unused bits.
bool bitString(DataBuffer& out, const unsigned char* p, size_t n);
inline bool bitString(DataBuffer& out, DerInput bits) {
    return bitString(out, bits.data(), bits.size());
}

}  // namespace derbuild
