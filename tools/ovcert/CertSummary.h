// CertSummary: the answers `ovcert inspect` prints. Each comes from an
// operation of the certificate object; where the object has no query for a
// fact (names of key usages, basic constraints, the signature algorithm), it
// is read from what the object renders (an extension's text or XML, the
// certificate's XML), never by parsing the certificate again.
#pragma once

#include <ctime>
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
    bool unreadable = false;  // some answer could not be read (see json["unreadable"])
};

// What the summary is judged against.
struct SummaryContext {
    time_t moment = 0;        // validity and expiry phrases are relative to this
    bool carriesKey = false;  // the private key of the input belongs to this certificate
};

CertSummary summarizeCert(CertCore& cert, const std::string& file, const SummaryContext& ctx,
                          LogBase& log);

// The same answers as readable, aligned text lines; colour marks the expiry
// phrase (red: expired or not yet valid, yellow: expires within 30 days).
std::string summaryText(const CertSummary& s, bool colour);

// Whether the certificate object holds a private key.
bool carriesPrivateKey(CertCore& cert);

// Seconds since the epoch of an RFC 3339 UTC time ("2026-11-22T04:56:24Z");
// false when the text is not one.
bool parseUtcTime(const std::string& text, time_t& out);
