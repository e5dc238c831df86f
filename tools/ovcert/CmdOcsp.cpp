#include "tools/ovcert/CmdOcsp.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "revocation/OcspResponse.h"
#include "support/net/ClsHttp.h"
#include "support/store/SystemCerts.h"
#include "tools/ovcert/OcspReport.h"

namespace {

const char kUsage[] =
    "usage: ovcert ocsp CERT [--issuer FILE] [--url URL] [--json] [--log] [--verbose]\n"
    "       ovcert ocsp --respin FILE [--issuer FILE] [--json] [--log] [--verbose]\n"
    "\n"
    "The first form builds an OCSP request for CERT (its issuer from --issuer, the\n"
    "rest of CERT's file, or CERT itself when self-issued), posts it to --url or to\n"
    "the responder the certificate names, and prints the HTTP status and the\n"
    "decoded answer. The second decodes a saved DER response, every answer in it.\n"
    "With an issuer the response's signature is checked.\n";

struct Options {
    bool json = false, showLog = false, verbose = false;
    std::string issuer, url, respin;
    std::vector<std::string> files;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        std::string* value = a == "--issuer"   ? &o.issuer
                             : a == "--url"    ? &o.url
                             : a == "--respin" ? &o.respin
                                               : nullptr;
        if (value && i + 1 < argc) {
            *value = argv[++i];
        } else if (a == "--json" || a == "--log" || a == "--verbose") {
            (a == "--json" ? o.json : a == "--log" ? o.showLog : o.verbose) = true;
        } else if (a.size() > 1 && a[0] == '-') {
            fprintf(stderr, "ovcert ocsp: unknown option %s\n", a.c_str());
            return false;
        } else {
            o.files.push_back(a);
        }
    }
    return o.respin.empty() ? o.files.size() == 1 : o.files.empty() && o.url.empty();
}

// Owns one reference of each object it is given.
struct Refs {
    std::vector<RefCountedObject*> held;
    template <class T>
    T* hold(T* obj) {
        if (obj) {
            obj->incRefCount();
            held.push_back(obj);
        }
        return obj;
    }
    ~Refs() {
        for (auto it = held.rbegin(); it != held.rend(); ++it) (*it)->decRefCount();
    }
};

void printLog(const LogTree& log) {
    std::string t = log.text();
    if (!t.empty()) fprintf(stderr, "%s", t.c_str());
}

int report(const revocation::OcspResponse& r, int httpStatus, const revocation::OcspAsked* asked,
           CertCore* issuer, const std::string& url, const Options& o, LogTree& log) {
    auto j = ocspReport(r, httpStatus, asked, issuer, log);
    if (o.json) {
        printf("%s\n", j.dump(isatty(STDOUT_FILENO) ? 2 : -1).c_str());
    } else {
        if (!url.empty()) printf("Responder:        %s\n", url.c_str());
        printf("%s", ocspReportText(j).c_str());
    }
    if (o.showLog) printLog(log);
    return 0;
}

int fail(const std::string& message, const LogTree& log) {
    fprintf(stderr, "ovcert ocsp: %s\n", message.c_str());
    printLog(log);
    return 1;
}

}  // namespace

int runOcspCommand(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        fputs(kUsage, stderr);
        return 2;
    }
    LogTree log;
    log.verboseLogging = o.verbose ? 1 : 0;
    Refs refs;
    SystemCerts* store = refs.hold(new (std::nothrow) SystemCerts());
    if (!store) return 1;
    CertCore* issuer = nullptr;
    if (!o.issuer.empty()) {
        issuer = refs.hold(CertCore::createFromFile2(o.issuer.c_str(), nullptr, log));
        if (!issuer || !store->addCertificate(issuer, log))
            return fail(o.issuer + ": no certificate could be loaded from it", log);
    }

    revocation::OcspResponse response;
    if (!o.respin.empty()) {
        DataBuffer der;
        if (!der.loadFileUtf8(o.respin.c_str(), &log) ||
            !response.load(der.getData2(), der.getSize(), log))
            return fail(o.respin + ": not an OCSP response", log);
        return report(response, 0, nullptr, issuer, "", o, log);
    }

    const std::string& file = o.files[0];
    CertCore* cert = refs.hold(CertCore::createFromFile2(file.c_str(), store, log));
    if (!cert) return fail(file + ": no certificate could be loaded from it", log);
    StringBuffer url(o.url.c_str());
    if (o.url.empty() && !cert->getOcspUrl(url, log))
        return fail(file + ": the certificate names no OCSP responder; give --url", log);
    if (cert->isNonRespondingOcspUrl(url, log))
        fprintf(stderr, "ovcert ocsp: warning: %s is known not to answer\n", url.getString());

    ClsHttp* http = refs.hold(ClsHttp::createNewCls());
    DataBuffer der;
    revocation::OcspAsked asked;
    if (!http || !cert->doOcspCheck(*http, url.getString(), *store, der, asked, log, nullptr))
        return fail(std::string("the OCSP request to ") + url.getString() + " failed", log);
    std::string status;
    log.findData("ocspResponseStatusCode", status);
    if (!response.load(der.getData2(), der.getSize(), log))
        return fail("HTTP status " + status + ": the answer is not an OCSP response", log);
    LogNull quiet(log);
    return report(response, atoi(status.c_str()), &asked,
                  cert->findIssuerCertificate(*store, quiet), url.getString(), o, log);
}
