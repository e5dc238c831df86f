#include "tools/ovcert/CmdInspect.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "tools/ovcert/CertSummary.h"
#include "tools/ovcert/KeySources.h"
#include "tools/ovcert/Shared.h"

namespace {

int run(int argc, char** argv);

}  // namespace

const Command kInspectCommand = {
    "inspect",
    "what a file's certificates say (text or JSON)",
    "usage: ovcert inspect [--json] [--log] [--verbose] [--no-color] [KEY OPTIONS] FILE...\n"
    "\n"
    "Loads each FILE (- for standard input) through format detection and prints\n"
    "a summary of every certificate in it. Any form loads: DER, PEM (also bundles\n"
    "with keys), PKCS#7, base64, UTF-16LE base64, a JSON array of base64.\n"
    "\n"
    "  --json       one JSON object per certificate, one per line\n"
    "  --log        the component's log tree on standard error\n"
    "  --verbose    the component's verbose logging (with --log)\n"
    "  --no-color   no colour even on a terminal (NO_COLOR=1 does the same)\n"
    "\n"
    "Key options attach a private key to the certificate the component chooses\n"
    "(hasPrivateKey then answers for it):\n"
    "  --key KEYFILE [--pass-env VAR]\n"
    "               a PEM or DER key; says whether it is the certificate's key. An\n"
    "               encrypted key's password comes from the environment variable\n"
    "               VAR, else it is asked for on the terminal\n"
    "  --pkcs11 MODULE [--slot N] --pin-env VAR\n"
    "               links a session of the token (first initialised one without\n"
    "               --slot); hasPrivateKey logs in with the PIN held in VAR and\n"
    "               looks for the key; says whether a key handle was found\n",
    run,
};

namespace {

// Everything inspect understands. New options get a member here and a branch
// in parseOptions; options that add per-certificate answers add them in
// addOptionFields.
struct InspectOptions {
    CommonOptions common;
    bool json = false;
    KeyOptions keys;
    std::vector<std::string> files;
};

// Returns kExitOk to go on, anything else to stop with that status.
int parseOptions(int argc, char** argv, InspectOptions& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (takeCommonOption(a, o.common)) continue;
        if (a == "--json") {
            o.json = true;
        } else if ((a == "--key" || a == "--pass-env" || a == "--pkcs11" || a == "--pin-env") &&
                   i + 1 < argc) {
            std::string& dst = a == "--key"        ? o.keys.keyFile
                               : a == "--pass-env" ? o.keys.passEnv
                               : a == "--pkcs11"   ? o.keys.module
                                                   : o.keys.pinEnv;
            dst = argv[++i];
        } else if (a == "--slot" && i + 1 < argc) {
            char* end = nullptr;
            o.keys.slot = strtol(argv[++i], &end, 10);
            if (!*argv[i] || *end || o.keys.slot < 0)
                return usageError(kInspectCommand, "--slot takes a slot number");
        } else if (isOption(a)) {
            return usageError(kInspectCommand, "unknown option " + a);
        } else {
            o.files.push_back(a);
        }
    }
    if (o.common.help) return kExitOk;
    if (o.files.empty())
        return usageError(kInspectCommand, "no FILE given (use - for standard input)");
    // The PIN never goes on the command line: only the variable's name does.
    if (!o.keys.module.empty() && o.keys.pinEnv.empty())
        return usageError(kInspectCommand, "--pkcs11 needs --pin-env VAR");
    return kExitOk;
}

// Per-certificate answers that options ask for, added to the summary before
// it is printed (JSON members; the text form shows them through
// summaryText's extra lines).
void addOptionFields(KeySources* keys, CertSummary& s) {
    if (keys) keys->report(s);
}

int run(int argc, char** argv) {
    InspectOptions o;
    int st = parseOptions(argc, argv, o);
    if (st != kExitOk) return st;
    if (o.common.help) return printUsage(kInspectCommand);

    bool tty = isatty(STDOUT_FILENO);
    int status = kExitOk;
    for (const std::string& file : o.files) {
        LoadedInput in(file, o.common.verbose);
        if (!in.load(true)) {
            fprintf(stderr, "ovcert: %s: no certificate could be loaded from it\n", file.c_str());
            printLog(in.log());
            status = kExitFailed;
            continue;
        }
        std::unique_ptr<KeySources> keys;
        if (o.keys.any()) {
            keys = std::make_unique<KeySources>(*in.chosen(), o.keys);
            std::string why;
            if (!keys->attach(in.log(), why)) {
                fprintf(stderr, "ovcert: %s\n", why.c_str());
                printLog(in.log());
                status = kExitFailed;
            }
        }
        for (CertCore* c : in.all()) {
            CertSummary s = summarizeCert(*c, file, in.log());
            addOptionFields(c == in.chosen() ? keys.get() : nullptr, s);
            if (o.json)
                printf("%s\n", s.json.dump(tty ? 2 : -1).c_str());
            else
                printf("%s\n", summaryText(s).c_str());
        }
        if (o.common.showLog) printLog(in.log());
    }
    return status;
}

}  // namespace
