#include "tools/ovcert/CmdCrl.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "cert/CertCore.h"
#include "revocation/OvCrl.h"
#include "revocation/TbsCertList.h"
#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/ProgressEvent.h"
#include "support/net/ClsHttp.h"
#include "support/x509/X509Name.h"
#include "tools/ovcert/OcspReport.h"
#include "tools/ovcert/Shared.h"

namespace {

using json = nlohmann::ordered_json;

struct Options {
    CommonOptions common;
    std::string source, cache, issuer, serial;
    bool list = false, json = false;
};

int parseOptions(int argc, char** argv, Options& o) {
    std::vector<std::string> sources;
    int st = parseArgs(kCrlCommand, argc, argv, o.common,
                       {{"--cache", &o.cache, nullptr},
                        {"--issuer", &o.issuer, nullptr},
                        {"--serial", &o.serial, nullptr},
                        {"--list", nullptr, &o.list},
                        {"--json", nullptr, &o.json}},
                       sources, 1, "give exactly one URL or FILE");
    if (st != kExitOk) return st;
    if (!sources.empty()) o.source = sources[0];
    if (o.common.help) return kExitOk;
    if (o.source.empty()) return usageError(kCrlCommand, "give a URL or FILE");
    return kExitOk;
}

// A bar on standard error while a download with a known size runs, drawn
// only on a terminal and only for downloads that do not finish at once.
class TtyProgress : public ProgressEvent {
  public:
    ~TtyProgress() override {
        if (m_drawn) fputc('\n', stderr);
    }
    bool onPercentDone(int pct) override {
        if (pct == m_last || (!m_drawn && pct >= 100)) return false;
        m_last = pct;
        m_drawn = true;
        int filled = pct / 4;
        fprintf(stderr, "\rdownloading [%.*s%*s] %3d%%", filled, "#########################",
                25 - filled, "", pct);
        fflush(stderr);
        return false;
    }

  private:
    int m_last = -1;
    bool m_drawn = false;
};

bool isUrl(const std::string& s) {
    return strncasecmp(s.c_str(), "http://", 7) == 0 || strncasecmp(s.c_str(), "https://", 8) == 0;
}

// A PEM CRL becomes its DER; anything else is taken as DER.
void pemToDer(DataBuffer& bytes) {
    static const char kBegin[] = "-----BEGIN X509 CRL-----";
    std::string text(reinterpret_cast<const char*>(bytes.getData2()), bytes.getSize());
    size_t b = text.find(kBegin), e = text.find("-----END X509 CRL-----");
    if (b == std::string::npos || e == std::string::npos || e < b) return;
    b += sizeof kBegin - 1;
    DataBuffer der;
    if (ContentCoding::decodeBase64ToDb(text.data() + b, static_cast<unsigned>(e - b), der))
        bytes = der;
}

bool fetch(const Options& o, DataBuffer& der, LogBase& log) {
    if (!isUrl(o.source)) {
        std::string why;
        if (!readInput(o.source, der, why)) {
            log.logError(why.c_str());
            return false;
        }
        pemToDer(der);
        return true;
    }
    RefPtr<ClsHttp> http = RefPtr<ClsHttp>::retain(ClsHttp::createNewCls());
    if (!http) return false;
    bool ok;
    if (isatty(STDERR_FILENO)) {
        TtyProgress bar;
        ok = _ovCrl::downloadCrlDer(o.source.c_str(), o.cache.empty() ? nullptr : o.cache.c_str(),
                                    *http, der, &bar, log);
    } else {
        ok = _ovCrl::downloadCrlDer(o.source.c_str(), o.cache.empty() ? nullptr : o.cache.c_str(),
                                    *http, der, nullptr, log);
    }
    return ok;
}

json timeOrNull(bool present, const DerElement& t) {
    StringBuffer sb;
    if (!present || !crlgrammar::timeToRfc3339(t, sb)) return nullptr;
    return sb.getString();
}

// Upper-case hex of the INTEGER's octets as encoded, as `inspect` shows serials.
std::string hexOf(DerInput in) {
    StringBuffer sb;
    sb.appendHex(in.data(), static_cast<unsigned>(in.size()));
    return sb.getString();
}

// "0x1A:2b 3c" and the like to bytes; false when not hex.
bool parseSerial(const std::string& text, DataBuffer& out) {
    std::string hex;
    std::string t = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 ? text.substr(2) : text;
    for (char c : t)
        if (c != ':' && c != ' ') hex += c;
    if (hex.empty()) return false;
    if (hex.size() % 2) hex.insert(0, "0");
    return out.appendEncoded(hex.c_str(), "hex");
}

// "valid", "invalid", or "unchecked" without an issuer.
std::string signatureCheck(const Options& o, const crlgrammar::CertificateList& cl, LogBase& log) {
    if (o.issuer.empty()) return "unchecked";
    RefPtr<CertCore> cert =
        RefPtr<CertCore>::retain(CertCore::createFromFile2(o.issuer.c_str(), nullptr, log));
    if (!cert) return "unchecked";
    const OrvaneX509* x = cert->getX509();
    bool valid = x && crlgrammar::verifySignature(cl, *x, log);
    return valid ? "valid" : "invalid";
}

bool summarize(const Options& o, const crlgrammar::CertificateList& cl, json& j, LogBase& log) {
    StringBuffer dn;
    X509Name::appendDnText(cl.issuer, true, 0, false, dn);
    j["issuerDN"] = dn.getString();
    j["thisUpdate"] = timeOrNull(true, cl.thisUpdate);
    j["nextUpdate"] = timeOrNull(cl.hasNextUpdate, cl.nextUpdate);
    bool present = false, fits = false;
    uint64_t number = 0;
    if (cl.hasExtensions) crlgrammar::crlNumber(cl.extensions, &present, &fits, &number);
    j["crlNumber"] = present && fits ? json(number) : json(nullptr);
    uint64_t count = 0;
    if (!crlgrammar::countEntries(cl.revoked, &count)) {
        log.logError("The CRL's list of revoked certificates is malformed.");
        return false;
    }
    j["entries"] = count;
    j["signature"] = signatureCheck(o, cl, log);

    if (!o.serial.empty()) {
        DataBuffer want;
        if (!parseSerial(o.serial, want)) {
            log.logError("The serial is not hexadecimal.");
            return false;
        }
        crlgrammar::RevokedEntry e;
        bool malformed = false;
        bool listed = crlgrammar::findSerial(cl.revoked, DerInput(want.getData2(), want.getSize()),
                                             &e, &malformed);
        if (malformed) {
            log.logError("The CRL's list of revoked certificates is malformed.");
            return false;
        }
        j["serial"] = {{"listed", listed},
                       {"revocationDate", timeOrNull(listed, e.revocationDate)},
                       {"reason", listed ? reasonOrNull(crlgrammar::reasonCode(e)) : nullptr}};
    }
    if (o.list) {
        json all = json::array();
        crlgrammar::RevokedCursor cur(cl.revoked);
        crlgrammar::RevokedEntry e;
        while (cur.next(&e))
            all.push_back({{"serial", hexOf(e.serial)},
                           {"revocationDate", timeOrNull(true, e.revocationDate)},
                           {"reason", reasonOrNull(crlgrammar::reasonCode(e))}});
        j["revoked"] = std::move(all);
    }
    return true;
}

std::string text(const json& v) {
    if (v.is_null()) return "-";
    if (v.is_string()) return v.get<std::string>();
    if (v.is_boolean()) return v.get<bool>() ? "yes" : "no";
    return v.dump();
}

void printText(const json& j) {
    auto line = [](const char* name, const std::string& value) {
        printf("%-14s %s\n", name, value.c_str());
    };
    line("Issuer:", text(j["issuerDN"]));
    line("This update:", text(j["thisUpdate"]));
    line("Next update:", text(j["nextUpdate"]));
    line("CRL number:", text(j["crlNumber"]));
    line("Entries:", text(j["entries"]));
    line("Signature:", text(j["signature"]));
    if (j.contains("serial")) {
        const json& s = j["serial"];
        std::string v = s["listed"].get<bool>()
                            ? "listed, revoked " + text(s["revocationDate"]) +
                                  (s["reason"].is_null() ? "" : " (" + text(s["reason"]) + ")")
                            : "not listed";
        line("Serial:", v);
    }
    if (j.contains("revoked")) {
        for (const json& e : j["revoked"])
            printf("  %s  %s  %s\n", text(e["serial"]).c_str(), text(e["revocationDate"]).c_str(),
                   text(e["reason"]).c_str());
    }
}

int run(int argc, char** argv) {
    Options o;
    int st = parseOptions(argc, argv, o);
    if (st != kExitOk) return st;
    if (o.common.help) return printUsage(kCrlCommand);

    LogTree log;
    log.verboseLogging = o.common.verbose ? 1 : 0;
    DataBuffer der;
    json j;
    bool ok = fetch(o, der, log);
    crlgrammar::CertificateList cl;
    const char* why = "";
    if (ok &&
        !crlgrammar::readCertificateList(DerInput(der.getData2(), der.getSize()), &cl, &why)) {
        log.logError(why);
        ok = false;
    }
    ok = ok && summarize(o, cl, j, log);
    if (!ok) {
        fprintf(stderr, "ovcert: %s: no CRL could be read from it\n", o.source.c_str());
        printLog(log);
        return kExitFailed;
    }
    if (o.json)
        printf("%s\n", j.dump(isatty(STDOUT_FILENO) ? 2 : -1).c_str());
    else
        printText(j);
    if (o.common.showLog) printLog(log);
    return kExitOk;
}

}  // namespace

const Command kCrlCommand = {
    "crl",
    "what a CRL says, from a file or a URL (cached), and whether a serial is listed",
    "usage: ovcert crl URL|FILE [--cache DIR] [--issuer FILE] [--serial HEX] [--list]\n"
    "                           [--json] [--log]\n"
    "\n"
    "A URL (http or https) is downloaded, answered from the cache directory DIR\n"
    "when it holds the URL's file, and stored there otherwise; FILE (- for\n"
    "standard input) holds the CRL as DER or PEM. Prints the issuer, thisUpdate,\n"
    "nextUpdate, CRL number, entry count and the signature check against the\n"
    "issuer certificate in FILE (\"unchecked\" without --issuer); --serial HEX\n"
    "says whether that serial is listed, with its date and reason; --list prints\n"
    "every entry.\n",
    run,
};
