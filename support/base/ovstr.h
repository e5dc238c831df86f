// Zero-terminated string helpers that accept null where it makes sense.
#pragma once

unsigned ovStrLen(const char* s);                           // 0 for null
const char* ovStrStr(const char* hay, const char* needle);  // first occurrence or null
int ovStrNCmp(const char* a, const char* b, int n);
int ovStrCmp(const char* a, const char* b);
const char* ovStrChr(const char* s, int c);
void ovStrCpy(char* dst, const char* src);
int OvMemCmp(const void* a, const void* b, unsigned n);
// Value of the first n hexadecimal digits of s; stops early at a non-hex digit.
unsigned ov_valHexN(const char* s, unsigned n);
// Decimal text of v into out (at least 11 bytes).
void ov_uint32_to_str(unsigned v, char* out);
// Overwrites n bytes with zeros in a way the optimiser keeps.
void ovSecureZero(void* p, unsigned long n);
