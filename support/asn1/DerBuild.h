// Small DER encoders (SPKI, PKCS#8, traditional private keys, OCSP, CRL),
// beside the reader. Each appends one complete element to out and
// returns false, leaving out as it was, when memory runs out or an OID text is
// malformed.
#pragma once

#include <cstddef>

#include "support/asn1/DerReader.h"

class DataBuffer;

namespace derbuild {

// tag, length and the n content bytes.
bool tlv(DataBuffer& out, unsigned tag, const unsigned char* p, size_t n);
bool tlv(DataBuffer& out, unsigned tag, const DataBuffer& content);
inline bool tlv(DataBuffer& out, unsigned tag, DerInput content) {
    return tlv(out, tag, content.data(), content.size());
}
// OBJECT IDENTIFIER from dotted text.
bool oid(DataBuffer& out, const char* dotted);
bool null(DataBuffer& out);
// INTEGER holding a small non-negative value.
bool smallInteger(DataBuffer& out, unsigned value);
// BIT STRING with no unused bits.
bool bitString(DataBuffer& out, const unsigned char* p, size_t n);
inline bool bitString(DataBuffer& out, DerInput bits) {
    return bitString(out, bits.data(), bits.size());
}

}  // namespace derbuild
