#include "support/asn1/DerBuild.h"

#include "support/base/DataBuffer.h"

namespace derbuild {

bool tlv(DataBuffer& out, unsigned tag, const unsigned char* p, size_t n) {
    if (n > 0xFFFFFFF0u) return false;
    unsigned char hdr[8];
    size_t h = der::encodeHeader(tag, n, hdr);
    const unsigned oldSize = out.getSize();
    if (!out.ensureCapacity(oldSize + static_cast<unsigned>(h + n))) return false;
    if (!out.append(hdr, static_cast<unsigned>(h)) ||
        (n && !out.append(p, static_cast<unsigned>(n)))) {
        out.shorten(out.getSize() - oldSize);
        return false;
    }
    return true;
}

bool tlv(DataBuffer& out, unsigned tag, const DataBuffer& content) {
    return tlv(out, tag, content.getData2(), content.getSize());
}

bool octetString(DataBuffer& out, const DataBuffer& content) {
    return tlv(out, der::kOctetString, content);
}

bool integerBytes(DataBuffer& out, const DataBuffer& content) {
    return tlv(out, der::kInteger, content);
}

bool boolean(DataBuffer& out, bool value) {
    const unsigned char v = value ? 0xff : 0x00;
    return tlv(out, der::kBoolean, &v, 1);
}

bool oid(DataBuffer& out, const char* dotted) {
    unsigned char buf[64];
    size_t n = 0;
    if (!der::textToOid(dotted, buf, sizeof buf, &n)) return false;
    return tlv(out, der::kOid, buf, n);
}

bool null(DataBuffer& out) {
    return tlv(out, der::kNull, nullptr, 0);
}

bool smallInteger(DataBuffer& out, unsigned value) {
    unsigned char buf[5];
    size_t n = 0;
    // Big-endian with a leading zero when the top bit would read as a sign.
    unsigned char tmp[4] = {
        static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
        static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    size_t first = 0;
    while (first < 3 && tmp[first] == 0) ++first;
    if (tmp[first] & 0x80) buf[n++] = 0;
    for (size_t i = first; i < 4; ++i) buf[n++] = tmp[i];
    return tlv(out, der::kInteger, buf, n);
}

bool bitString(DataBuffer& out, const unsigned char* p, size_t n) {
    if (n > 0xFFFFFFF0u) return false;
    unsigned char hdr[8];
    size_t h = der::encodeHeader(der::kBitString, n + 1, hdr);
    hdr[h++] = 0;  // unused bits
    const unsigned oldSize = out.getSize();
    if (!out.append(hdr, static_cast<unsigned>(h)) ||
        (n && !out.append(p, static_cast<unsigned>(n)))) {
        out.shorten(out.getSize() - oldSize);
        return false;
    }
    return true;
}

}  // namespace derbuild
