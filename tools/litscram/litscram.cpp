// Prints a text as a scrambled C string literal, ready to paste into code that
// descrambles it with StringBuffer::litScram.
//
//   litscram "PRIVATE KEY-----"   ->   "..."  (with escapes where needed)
#include <cstdio>
#include <string>
#include <vector>

#include "support/base/StringBuffer.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: litscram TEXT\n");
        return 2;
    }
    std::string s = argv[1];
    std::vector<char> buf(s.begin(), s.end());
    buf.push_back('\0');
    StringBuffer::litScramEncode(buf.data());
    std::string lit = "\"";
    for (const char* p = buf.data(); *p; ++p) {
        if (*p == '"' || *p == '\\') lit += '\\';
        lit += *p;
        // Break "??" so no trigraph can form, whatever the compiler's mode.
        if (*p == '?' && p[1] == '?') lit += "\" \"";
    }
    lit += "\"";
    printf("%s\n", lit.c_str());
    return 0;
}
