#include "tools/ovcert/OcspReport.h"

#include "revocation/OcspResponse.h"
#include "revocation/RevocationReason.h"

using nlohmann::ordered_json;
using revocation::OcspResponse;

ordered_json textOrNull(const std::string& s) {
    return s.empty() ? ordered_json(nullptr) : ordered_json(s);
}

ordered_json reasonOrNull(int code) {
    const char* name = code < 0 ? nullptr : revocation::reasonName(code);
    return name ? ordered_json(name) : ordered_json(nullptr);
}

void addRevocationMembers(ordered_json& j, const std::string& revocationTime, int reason,
                          const std::string& thisUpdate, const std::string& nextUpdate) {
    j["revocationTime"] = textOrNull(revocationTime);
    j["reason"] = reasonOrNull(reason);
    j["thisUpdate"] = textOrNull(thisUpdate);
    j["nextUpdate"] = textOrNull(nextUpdate);
}

namespace {

std::string hex(DerInput b) {
    static const char* d = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < b.size(); ++i) s += {d[b[i] >> 4], d[b[i] & 15]};
    return s;
}

ordered_json single(const revocation::OcspSingle& s) {
    static const char* const kStatus[] = {"good", "revoked", "unknown"};
    ordered_json j;
    j["serial"] = hex(s.serial);
    j["certStatus"] = kStatus[static_cast<int>(s.status)];
    addRevocationMembers(j, s.revocationTime, s.reason, s.thisUpdate, s.nextUpdate);
    return j;
}

}  // namespace

ordered_json ocspReport(const OcspResponse& r, int httpStatus, const revocation::OcspAsked* asked,
                        CertCore* issuer, LogBase& log) {
    ordered_json j;
    if (httpStatus) j["httpStatus"] = httpStatus;
    j["responseStatus"] = OcspResponse::statusName(r.responseStatus());
    ordered_json list = ordered_json::array();
    for (const auto& s : r.responses()) list.push_back(single(s));
    j["responses"] = list;

    static const char* const kNonce[] = {"absent", "match", "mismatch"};
    revocation::OcspAsked none;
    auto nonce = r.nonce(asked ? *asked : none);
    if (!asked && nonce != OcspResponse::Nonce::Absent)
        j["nonce"] = nullptr;
    else
        j["nonce"] = kNonce[static_cast<int>(nonce)];

    static const char* const kSignature[] = {"valid", "invalid", "unchecked"};
    j["signature"] = kSignature[static_cast<int>(r.verify(issuer, log))];
    return j;
}

std::string ocspReportText(const ordered_json& j) {
    std::string out;
    auto line = [&out](const char* label, const ordered_json& v) {
        if (v.is_null()) return;
        std::string l = label;
        l.resize(18, ' ');
        out += l + (v.is_string() ? v.get<std::string>() : v.dump()) + "\n";
    };
    if (j.contains("httpStatus")) line("HTTP status:", j["httpStatus"]);
    line("Response status:", j["responseStatus"]);
    line("Signature:", j["signature"]);
    line("Nonce:", j["nonce"].is_null() ? ordered_json("present (not compared)") : j["nonce"]);
    for (const auto& s : j["responses"]) {
        line("Serial:", s["serial"]);
        line("  Status:", s["certStatus"]);
        line("  Revoked at:", s["revocationTime"]);
        line("  Reason:", s["reason"]);
        line("  This update:", s["thisUpdate"]);
        line("  Next update:", s["nextUpdate"]);
    }
    return out;
}
