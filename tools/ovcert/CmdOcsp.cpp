#include "tools/ovcert/CmdOcsp.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "revocation/OcspResponse.h"
#include "support/net/ClsHttp.h"
#include "tools/ovcert/OcspReport.h"
#include "tools/ovcert/RevocationInput.h"
#include "tools/ovcert/Shared.h"

namespace {

struct OcspOptions {
    CommonOptions common;
    bool json = false;
    std::string issuer, url, respin;
    std::vector<std::string> files;
};

int parseOptions(int argc, char** argv, OcspOptions& o) {
    int st = parseArgs(kOcspCommand, argc, argv, o.common,
                       {{"--issuer", &o.issuer, nullptr},
                        {"--url", &o.url, nullptr},
                        {"--respin", &o.respin, nullptr},
                        {"--json", nullptr, &o.json}},
                       o.files);
    if (st != kExitOk) return st;
    if (o.common.help) return kExitOk;
    if (o.respin.empty() && o.files.size() != 1)
        return usageError(kOcspCommand, "give exactly one CERT, or --respin FILE");
    if (!o.respin.empty() && (!o.files.empty() || !o.url.empty()))
        return usageError(kOcspCommand, "--respin takes no CERT and no --url");
    return kExitOk;
}

int fail(const std::string& message, const LogTree& log) {
    fprintf(stderr, "ovcert ocsp: %s\n", message.c_str());
    printLog(log);
    return kExitFailed;
}

int print(const revocation::OcspResponse& r, int httpStatus, const revocation::OcspAsked* asked,
          CertCore* issuer, const std::string& url, const OcspOptions& o, LogTree& log) {
    auto j = ocspReport(r, httpStatus, asked, issuer, log);
    if (o.json) {
        printf("%s\n", j.dump(isatty(STDOUT_FILENO) ? 2 : -1).c_str());
    } else {
        if (!url.empty()) printf("Responder:        %s\n", url.c_str());
        printf("%s", ocspReportText(j).c_str());
    }
    if (o.common.showLog) printLog(log);
    return kExitOk;
}

int run(int argc, char** argv) {
    OcspOptions o;
    int st = parseOptions(argc, argv, o);
    if (st != kExitOk) return st;
    if (o.common.help) return printUsage(kOcspCommand);

    RevocationInput in(o.common.verbose);
    LogTree& log = in.log();
    std::string why;
    if (!o.issuer.empty() && !in.loadIssuer(o.issuer, why)) return fail(why, log);

    revocation::OcspResponse response;
    if (!o.respin.empty()) {
        DataBuffer der;
        if (!readInput(o.respin, der, why)) return fail(o.respin + ": " + why, log);
        if (!response.load(der.getData2(), der.getSize(), log))
            return fail(o.respin + ": not an OCSP response", log);
        return print(response, 0, nullptr, in.issuer(), "", o, log);
    }

    if (!in.loadCert(o.files[0], why)) return fail(why, log);
    CertCore* cert = in.cert();
    StringBuffer url(o.url.c_str());
    if (o.url.empty() && !cert->getOcspUrl(url, log))
        return fail(o.files[0] + ": the certificate names no OCSP responder; give --url", log);
    if (cert->isNonRespondingOcspUrl(url, log))
        fprintf(stderr, "ovcert ocsp: warning: %s is known not to answer\n", url.getString());

    RefPtr<ClsHttp> http = RefPtr<ClsHttp>::retain(ClsHttp::createNewCls());
    if (!http) return fail("out of memory", log);
    DataBuffer der;
    revocation::OcspAsked asked;
    bool posted = cert->doOcspCheck(*http, url.getString(), in.store(), der, asked, log, nullptr);
    http.reset();
    if (!posted)
        return fail(std::string("the OCSP request to ") + url.getString() + " failed", log);
    std::string status;
    log.findData("ocspResponseStatusCode", status);
    if (!response.load(der.getData2(), der.getSize(), log))
        return fail("HTTP status " + status + ": the answer is not an OCSP response", log);
    return print(response, atoi(status.c_str()), &asked, in.issuer(), url.getString(), o, log);
}

}  // namespace

const Command kOcspCommand = {
    "ocsp",
    "ask a certificate's OCSP responder, or read a saved response",
    "usage: ovcert ocsp CERT [--issuer FILE] [--url URL] [--json] [--log] [--verbose]\n"
    "       ovcert ocsp --respin FILE [--issuer FILE] [--json] [--log] [--verbose]\n"
    "\n"
    "The first form builds an OCSP request for CERT (- for standard input), posts\n"
    "it to URL or to the responder the certificate names, and prints the HTTP\n"
    "status and the decoded answer. The issuer, whose key the request names, comes\n"
    "from --issuer, the rest of CERT's file, or CERT itself when self-issued. The\n"
    "second form decodes a saved DER response, every answer in it.\n"
    "\n"
    "  --issuer FILE  the issuer certificate; the response's signature is checked\n"
    "                 against it (or a responder certificate it issued)\n"
    "  --url URL      the responder to ask instead of the certificate's own\n"
    "  --json         one JSON object: httpStatus, responseStatus, responses,\n"
    "                 nonce, signature (see the README)\n"
    "  --log          the component's log tree on standard error\n"
    "  --verbose      the component's verbose logging (with --log)\n",
    run,
};
