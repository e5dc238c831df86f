// CertSummary: the answers `ovcert inspect` prints, each taken from one
// operation of the certificate object. Nothing is computed here.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

class CertCore;
class LogBase;

// One certificate's answers as an ordered JSON object with the members the
// tool documents (null where the certificate has no such thing).
nlohmann::ordered_json summarizeCert(CertCore& cert, const std::string& file, LogBase& log);

// The same answers as readable, aligned text lines.
std::string summaryText(const nlohmann::ordered_json& s);
