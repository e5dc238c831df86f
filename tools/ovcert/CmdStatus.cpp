#include "tools/ovcert/CmdStatus.h"

#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "revocation/OcspResponse.h"
#include "revocation/OvCrl.h"
#include "revocation/TbsCertList.h"
#include "support/net/ClsHttp.h"
#include "support/store/SystemCerts.h"
#include "support/time/OrvaneSysTime.h"
#include "tools/ovcert/OcspReport.h"
#include "tools/ovcert/RevocationInput.h"
#include "tools/ovcert/Shared.h"

using nlohmann::ordered_json;

namespace {

enum { kGood = 0, kError = 1, kRevoked = 2, kUndetermined = 3 };

struct StatusOptions {
    CommonOptions common;
    bool json = false;
    std::string issuer, cache;
    std::vector<std::string> files;
};

// A usage error exits with 1 ("error"), not the shared 2, which here means
// revoked: a script must never read a typing mistake as a revocation.
int parseOptions(int argc, char** argv, StatusOptions& o) {
    if (parseArgs(kStatusCommand, argc, argv, o.common,
                  {{"--issuer", &o.issuer, nullptr},
                   {"--cache", &o.cache, nullptr},
                   {"--json", nullptr, &o.json}},
                  o.files) != kExitOk)
        return kError;
    if (!o.common.help && o.files.size() != 1) {
        usageError(kStatusCommand, "give exactly one CERT");
        return kError;
    }
    return kGood;
}

// An answer and where it came from.
struct Answer {
    int status = kUndetermined;
    std::string source, url, revocationTime, thisUpdate, nextUpdate;
    int reason = -1;
    ordered_json tried = ordered_json::array();

    // Records why a source gave no answer; false, so callers can return it.
    bool skip(const char* source, const std::string& url, const std::string& why) {
        ordered_json t;
        t["source"] = source;
        t["url"] = url.empty() ? ordered_json(nullptr) : ordered_json(url);
        t["why"] = why;
        tried.push_back(t);
        return false;
    }
};

bool askOcsp(CertCore& cert, CertCore* issuer, SystemCerts& store, ClsHttp& http, Answer& a,
             LogBase& log) {
    StringBuffer url;
    if (!cert.getOcspUrl(url, log)) return a.skip("ocsp", "", "the certificate names no responder");
    const std::string u = url.getString();
    if (cert.isNonRespondingOcspUrl(url, log))
        return a.skip("ocsp", u, "the responder is known not to answer");
    if (!issuer) return a.skip("ocsp", u, "no issuer certificate");
    DataBuffer der;
    revocation::OcspAsked asked;
    if (!cert.doOcspCheck(http, u.c_str(), store, der, asked, log, nullptr))
        return a.skip("ocsp", u, "the request failed");
    revocation::OcspResponse r;
    if (!r.load(der.getData2(), der.getSize(), log))
        return a.skip("ocsp", u, "the answer is not an OCSP response");
    if (r.responseStatus() != revocation::OcspResponse::kSuccessful)
        return a.skip("ocsp", u,
                      std::string("the responder said ") +
                          revocation::OcspResponse::statusName(r.responseStatus()));
    if (r.verify(issuer, log) != revocation::OcspResponse::Signature::Valid)
        return a.skip("ocsp", u, "the response signature is not valid");
    if (r.nonce(asked) == revocation::OcspResponse::Nonce::Mismatch)
        return a.skip("ocsp", u, "the response carries another nonce");
    const revocation::OcspSingle* s = r.find(asked);
    if (!s) return a.skip("ocsp", u, "the response does not answer for the certificate");
    if (s->status == revocation::OcspCertStatus::Unknown)
        return a.skip("ocsp", u, "the responder does not know the certificate");
    a.status = s->status == revocation::OcspCertStatus::Good ? kGood : kRevoked;
    a.source = "ocsp";
    a.url = u;
    a.revocationTime = s->revocationTime;
    a.reason = s->reason;
    a.thisUpdate = s->thisUpdate;
    a.nextUpdate = s->nextUpdate;
    return true;
}

bool askCrl(CertCore& cert, CertCore* issuer, const std::string& cache, ClsHttp& http, Answer& a,
            LogBase& log) {
    StringBuffer url;
    if (!cert.getCrlDistPoint(url, log)) return a.skip("crl", "", "the certificate names no CRL");
    const std::string u = url.getString();
    if (!issuer || !issuer->getX509()) return a.skip("crl", u, "no issuer certificate");
    DataBuffer der;
    if (!_ovCrl::downloadCrlDer(u.c_str(), cache.empty() ? nullptr : cache.c_str(), http, der,
                                nullptr, log))
        return a.skip("crl", u, "the CRL could not be fetched");
    _ovCrl crl;
    crlgrammar::CertificateList cl;
    if (!crl.loadCrlDer(der, log) || !crl.readStructure(cl))
        return a.skip("crl", u, "the CRL could not be read");
    if (!crl.verifySignature(*issuer->getX509(), log))
        return a.skip("crl", u, "the CRL is not signed by the issuer");
    DataBuffer serial;
    XString hex;
    CrlRevocation rev;
    if (!cert.getSerialNumber(hex, log) || !serial.appendEncoded(hex.getUtf8(), "hex") ||
        !crl.findSerial(serial.getData2(), serial.getSize(), rev))
        return a.skip("crl", u, "the CRL's entries could not be read");
    StringBuffer thisUpdate, nextUpdate;
    crlgrammar::timeToRfc3339(cl.thisUpdate, thisUpdate);
    crl.getNextUpdate(nextUpdate);
    a.status = rev.listed ? kRevoked : kGood;
    a.source = "crl";
    a.url = u;
    a.revocationTime = rev.revocationDate.getString();
    a.reason = rev.reason;
    a.thisUpdate = thisUpdate.getString();
    a.nextUpdate = nextUpdate.getString();
    return true;
}

// Seconds since the epoch of "YYYY-MM-DDThh:mm:ssZ"; false for other text.
bool unixTime(const std::string& t, int64_t& out) {
    int y, mo, d, h, mi, s;
    if (sscanf(t.c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ", &y, &mo, &d, &h, &mi, &s) != 6) return false;
    out = OrvaneSysTime::fromFields(y, mo, d, h, mi, s).toUnixTime();
    return true;
}

ordered_json toJson(const Answer& a) {
    static const char* const kNames[] = {"good", "error", "revoked", "undetermined"};
    ordered_json j;
    j["certStatus"] = kNames[a.status];
    j["source"] = textOrNull(a.source);
    j["url"] = textOrNull(a.url);
    addRevocationMembers(j, a.revocationTime, a.reason, a.thisUpdate, a.nextUpdate);
    OrvaneSysTime now;
    now.setCurrentTime();
    int64_t t = 0;
    j["ageSeconds"] =
        unixTime(a.thisUpdate, t) ? ordered_json(now.toUnixTime() - t) : ordered_json(nullptr);
    j["stale"] =
        unixTime(a.nextUpdate, t) ? ordered_json(now.toUnixTime() > t) : ordered_json(nullptr);
    j["tried"] = a.tried;
    return j;
}

std::string toText(const ordered_json& j) {
    std::string out;
    auto line = [&out](const char* label, const std::string& value) {
        std::string l = label;
        l.resize(14, ' ');
        out += l + value + "\n";
    };
    auto str = [](const ordered_json& v) {
        return v.is_string() ? v.get<std::string>() : v.dump();
    };
    line("Status:", str(j["certStatus"]));
    for (const auto& t : j["tried"])
        line("Not from:", str(t["source"]) + (t["url"].is_null() ? "" : " " + str(t["url"])) +
                              ": " + str(t["why"]));
    if (j["source"].is_null()) return out;
    line("Source:", (j["source"] == "ocsp" ? "OCSP " : "CRL ") + str(j["url"]));
    if (!j["revocationTime"].is_null()) line("Revoked at:", str(j["revocationTime"]));
    if (!j["reason"].is_null()) line("Reason:", str(j["reason"]));
    std::string age;
    if (!j["ageSeconds"].is_null()) {
        long long s = j["ageSeconds"].get<long long>();
        age = s < 120      ? std::to_string(s) + " seconds ago"
              : s < 7200   ? std::to_string(s / 60) + " minutes ago"
              : s < 172800 ? std::to_string(s / 3600) + " hours ago"
                           : std::to_string(s / 86400) + " days ago";
        age = " (" + age + ")";
    }
    line("This update:", str(j["thisUpdate"]) + age);
    line("Next update:",
         j["nextUpdate"].is_null()
             ? std::string("(none)")
             : str(j["nextUpdate"]) + (j["stale"] == true ? "  PASSED: the answer is stale" : ""));
    return out;
}

int fail(const std::string& message, const LogTree& log) {
    fprintf(stderr, "ovcert status: %s\n", message.c_str());
    printLog(log);
    return kError;
}

int run(int argc, char** argv) {
    StatusOptions o;
    if (parseOptions(argc, argv, o) != kGood) return kError;
    if (o.common.help) return printUsage(kStatusCommand);

    RevocationInput in(o.common.verbose);
    LogTree& log = in.log();
    std::string why;
    if (!o.issuer.empty() && !in.loadIssuer(o.issuer, why)) return fail(why, log);
    if (!in.loadCert(o.files[0], why)) return fail(why, log);
    RefPtr<ClsHttp> http = RefPtr<ClsHttp>::retain(ClsHttp::createNewCls());
    if (!http) return fail("out of memory", log);
    // A status check should not hang for minutes on a dead server.
    http->put_ConnectTimeoutMs(10000);
    http->put_TimeoutMs(60000);

    CertCore* issuer = in.issuer();
    Answer a;
    if (!askOcsp(*in.cert(), issuer, in.store(), *http, a, log))
        askCrl(*in.cert(), issuer, o.cache, *http, a, log);
    http.reset();

    ordered_json j = toJson(a);
    if (o.json)
        printf("%s\n", j.dump(isatty(STDOUT_FILENO) ? 2 : -1).c_str());
    else
        printf("%s", toText(j).c_str());
    if (o.common.showLog) printLog(log);
    return a.status;
}

}  // namespace

const Command kStatusCommand = {
    "status",
    "is a certificate revoked? (OCSP, then its CRL)",
    "usage: ovcert status CERT [--issuer FILE] [--cache DIR] [--json] [--log] [--verbose]\n"
    "\n"
    "Is CERT revoked? Asks the OCSP responder the certificate names first; when it\n"
    "names none, or the answer cannot be trusted or says \"unknown\", reads the\n"
    "certificate's CRL (kept in DIR when given, and read from there next time).\n"
    "The issuer comes from --issuer, the rest of CERT's file, or CERT itself when\n"
    "self-issued; both answers must be signed by it. Prints the answer, which\n"
    "source gave it and how fresh it is.\n"
    "\n"
    "  --issuer FILE  the issuer certificate\n"
    "  --cache DIR    keep downloaded CRLs in DIR (never expired: delete to refresh)\n"
    "  --json         one JSON object: certStatus, source, url, revocationTime,\n"
    "                 reason, thisUpdate, nextUpdate, ageSeconds, stale, tried\n"
    "  --log          the component's log tree on standard error\n"
    "  --verbose      the component's verbose logging (with --log)\n"
    "\n"
    "Exit status of this command: 0 good, 2 revoked, 3 undetermined (no source\n"
    "answered), 1 error, a wrong command line included.\n",
    run,
};
