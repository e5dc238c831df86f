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

// The same report as readable text lines.
std::string ocspReportText(const nlohmann::ordered_json& report);
