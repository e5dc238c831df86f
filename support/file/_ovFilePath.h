// _ovFilePath: joining directory and file names.
#pragma once

class XString;

class _ovFilePath {
  public:
    // Appends dir and name joined by one '/' to out (out is not cleared first).
    // Separators at the end of dir and at the start of name are merged into
    // one; the root directory "/" stays "/name". An empty dir gives the name
    // alone, an empty name gives dir unchanged.
    static void CombineDirAndFilename(XString& dir, XString& name, XString& out);
};
