// Marker searches over caller input without copying it. Inputs arrive as
// (pointer, length) and may be DER, so a search sees only the bytes before the
// first zero byte, as a search in zero-terminated text would, and never reads
// past the length.
#pragma once

#include <cstring>

namespace loadtext {

// The end of the searchable text: the first zero byte, or data + size.
inline const char* textEnd(const char* data, unsigned size) {
    const void* zero = memchr(data, 0, size);
    return zero ? static_cast<const char*>(zero) : data + size;
}

// The first occurrence of needle (zero-terminated, not empty) in [from, end),
// or null.
inline const char* find(const char* from, const char* end, const char* needle) {
    if (!from || from >= end) return nullptr;
    return static_cast<const char*>(
        memmem(from, static_cast<size_t>(end - from), needle, strlen(needle)));
}

}  // namespace loadtext
