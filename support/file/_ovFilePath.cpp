#include "support/file/_ovFilePath.h"

#include "support/base/XString.h"

void _ovFilePath::CombineDirAndFilename(XString& dir, XString& name, XString& out) {
    const char* d = dir.getUtf8();
    const char* n = name.getUtf8();
    unsigned dirLen = dir.getSizeUtf8();
    if (dirLen == 0) {
        out.appendUtf8(n);
        return;
    }
    if (name.isEmpty()) {
        out.appendUtf8(d);
        return;
    }
    // Keep one leading '/' so that "/" and "//" still mean the root.
    while (dirLen > 1 && d[dirLen - 1] == '/') --dirLen;
    while (*n == '/') ++n;
    out.appendUtf8N(d, dirLen);
    if (d[dirLen - 1] != '/') out.appendUtf8("/");
    out.appendUtf8(n);
}
