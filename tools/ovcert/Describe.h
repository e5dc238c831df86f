// `ovcert describe FILE...`: the certificate object's descriptive JSON, wrapped
// in braces, one object per line for each certificate a file holds (the chosen
// one of a bundle first, then the others).
#pragma once

#include <string>
#include <vector>

// Exit status: 0, 1 when a file holds no certificate, 2 without files.
int runDescribe(const std::vector<std::string>& files, bool showLog, bool verbose);
