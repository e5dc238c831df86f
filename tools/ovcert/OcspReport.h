// OcspReport: what `ovcert ocsp` prints about an OCSP response, as JSON with
// the documented members and as aligned text. Every value is an answer of the
// component's OCSP response reader.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

class CertCore;
class LogBase;

namespace revocation {
class OcspResponse;
struct OcspAsked;
}  // namespace revocation

// The report of a response that loaded. httpStatus is the HTTP status when the
// request was posted, or 0 for a saved response (no member then). asked is
// what was posted (null for a saved response: "nonce" is then "absent" or
// null, there being nothing to compare with). issuer, when not null, checks
// the signature ("valid" or "invalid"); otherwise "unchecked".
nlohmann::ordered_json ocspReport(const revocation::OcspResponse& r, int httpStatus,
                                  const revocation::OcspAsked* asked, CertCore* issuer,
                                  LogBase& log);

// The members every revocation answer ends with, in this order:
// revocationTime, reason (its name), thisUpdate, nextUpdate. An empty time
// or a negative or unnamed reason is null.
void addRevocationMembers(nlohmann::ordered_json& j, const std::string& revocationTime, int reason,
                          const std::string& thisUpdate, const std::string& nextUpdate);

// The name of a CRLReason code; null when negative or unnamed.
nlohmann::ordered_json reasonOrNull(int code);

// The text, or null when it is empty.
nlohmann::ordered_json textOrNull(const std::string& s);

// The same report as readable text lines.
std::string ocspReportText(const nlohmann::ordered_json& report);
