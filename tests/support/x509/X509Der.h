// Tiny DER builders for the X.509 tests: enough to write the odd names and
// extension values that no CA tool will produce on request.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "support/asn1/DerReader.h"

namespace x509test {

using Bytes = std::vector<unsigned char>;

inline Bytes tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    unsigned char hdr[8];
    size_t n = der::encodeHeader(tag, content.size(), hdr);
    out.assign(hdr, hdr + n);
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

inline Bytes str(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes oid(const char* dotted) {
    unsigned char buf[64];
    size_t n = 0;
    der::textToOid(dotted, buf, sizeof buf, &n);
    return tlv(0x06, Bytes(buf, buf + n));
}

// AttributeTypeAndValue with a value element given whole.
inline Bytes atv(const char* dotted, const Bytes& valueElement) {
    return tlv(0x30, cat({oid(dotted), valueElement}));
}

inline Bytes rdn(std::initializer_list<Bytes> atvs) {
    return tlv(0x31, cat(atvs));
}

inline Bytes name(std::initializer_list<Bytes> rdns) {
    return tlv(0x30, cat(rdns));
}

inline DerInput in(const Bytes& b) {
    return DerInput(b.data(), b.size());
}

}  // namespace x509test
