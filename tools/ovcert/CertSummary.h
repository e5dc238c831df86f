// CertSummary: the answers `ovcert inspect` prints, each taken from one
// operation of the certificate object. Nothing is computed here.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

class CertCore;
class LogBase;

// One certificate's answers: the JSON members the tool documents (null where
// the certificate has no such thing), and text lines that options add after
// the standard ones (label, value).
struct CertSummary {
    nlohmann::ordered_json json;
    std::vector<std::pair<std::string, std::string>> extraText;
};

CertSummary summarizeCert(CertCore& cert, const std::string& file, LogBase& log);

// The same answers as readable, aligned text lines.
std::string summaryText(const CertSummary& s);
