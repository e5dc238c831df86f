#include "support/base/ovstr.h"

#include <string.h>

#include <cstring>

unsigned ovStrLen(const char* s) {
    return s ? static_cast<unsigned>(strlen(s)) : 0;
}

const char* ovStrStr(const char* hay, const char* needle) {
    if (!hay || !needle) return nullptr;
    return strstr(hay, needle);
}

int ovStrNCmp(const char* a, const char* b, int n) {
    if (n <= 0) return 0;
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    return strncmp(a, b, static_cast<size_t>(n));
}

int ovStrCmp(const char* a, const char* b) {
    if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
    return strcmp(a, b);
}

const char* ovStrChr(const char* s, int c) {
    return s ? strchr(s, c) : nullptr;
}

void ovStrCpy(char* dst, const char* src) {
    if (!dst) return;
    if (!src) {
        *dst = '\0';
        return;
    }
    strcpy(dst, src);
}

int OvMemCmp(const void* a, const void* b, unsigned n) {
    return n ? memcmp(a, b, n) : 0;
}

unsigned ov_valHexN(const char* s, unsigned n) {
    unsigned v = 0;
    for (unsigned i = 0; s && i < n && s[i]; ++i) {
        char c = s[i];
        unsigned d;
        if (c >= '0' && c <= '9')
            d = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f')
            d = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            d = static_cast<unsigned>(c - 'A' + 10);
        else
            break;
        v = (v << 4) | d;
    }
    return v;
}

void ov_uint32_to_str(unsigned v, char* out) {
    char tmp[11];
    int i = 0;
    do {
        tmp[i++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v);
    int j = 0;
    while (i) out[j++] = tmp[--i];
    out[j] = '\0';
}

void ovSecureZero(void* p, unsigned long n) {
    if (p && n) explicit_bzero(p, n);
}
