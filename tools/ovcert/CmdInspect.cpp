#include "tools/ovcert/CmdInspect.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "tools/ovcert/CertSummary.h"
#include "tools/ovcert/Shared.h"

namespace {

int run(int argc, char** argv);

}  // namespace

const Command kInspectCommand = {
    "inspect",
    "what a file's certificates say (text or JSON)",
    "usage: ovcert inspect [--json] [--log] [--verbose] [--no-color] FILE...\n"
    "\n"
    "Loads each FILE (- for standard input) through format detection and prints\n"
    "a summary of every certificate in it. Any form loads: DER, PEM (also bundles\n"
    "with keys), PKCS#7, base64, UTF-16LE base64, a JSON array of base64.\n"
    "\n"
    "  --json       one JSON object per certificate, one per line\n"
    "  --log        the component's log tree on standard error\n"
    "  --verbose    the component's verbose logging (with --log)\n"
    "  --no-color   no colour even on a terminal (NO_COLOR=1 does the same)\n",
    run,
};

namespace {

// Everything inspect understands. New options get a member here and a branch
// in parseOptions; options that add per-certificate answers add them in
// addOptionFields.
struct InspectOptions {
    CommonOptions common;
    bool json = false;
    std::vector<std::string> files;
};

// Returns kExitOk to go on, anything else to stop with that status.
int parseOptions(int argc, char** argv, InspectOptions& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (takeCommonOption(a, o.common)) continue;
        if (a == "--json") {
            o.json = true;
        } else if (isOption(a)) {
            return usageError(kInspectCommand, "unknown option " + a);
        } else {
            o.files.push_back(a);
        }
    }
    if (o.common.help) return kExitOk;
    if (o.files.empty())
        return usageError(kInspectCommand, "no FILE given (use - for standard input)");
    return kExitOk;
}

// Per-certificate answers that options ask for, added to the summary before
// it is printed (JSON members; the text form shows them through
// summaryText's extra lines).
void addOptionFields(const InspectOptions&, CertCore&, CertSummary&, LogBase&) {}

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
        for (CertCore* c : in.all()) {
            CertSummary s = summarizeCert(*c, file, in.log());
            addOptionFields(o, *c, s, in.log());
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
