#include "tools/ovcert/CmdDescribe.h"

#include <cstdio>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "tools/ovcert/Shared.h"

namespace {

int run(int argc, char** argv) {
    CommonOptions common;
    std::vector<std::string> files;
    int st = parseArgs(kDescribeCommand, argc, argv, common, {}, files);
    if (st != kExitOk) return st;
    if (common.help) return printUsage(kDescribeCommand);
    if (files.empty())
        return usageError(kDescribeCommand, "no FILE given (use - for standard input)");

    int status = kExitOk;
    for (const std::string& file : files) {
        LoadedInput in(file, common.verbose);
        if (!in.load(true)) {
            fprintf(stderr, "ovcert: %s: no certificate could be loaded from it\n", file.c_str());
            printLog(in.log());
            status = kExitFailed;
            continue;
        }
        for (CertCore* c : in.all()) {
            // The component writes the members; the braces are the caller's.
            StringBuffer json("{");
            c->appendDescriptiveJson(json, in.log());
            json.append("}");
            printf("%s\n", json.getString());
        }
        if (common.showLog) printLog(in.log());
    }
    return status;
}

}  // namespace

const Command kDescribeCommand = {
    "describe",
    "the component's descriptive JSON of each certificate",
    "usage: ovcert describe [--log] [--verbose] FILE...\n"
    "\n"
    "Loads each FILE (- for standard input) and prints, for every certificate in\n"
    "it (the one the component chooses first), one line: the certificate's\n"
    "descriptive JSON members (serial, validFrom, validTo, expired, subject,\n"
    "issuer, san, keyType, keySize) wrapped in braces. Values are written as the\n"
    "component writes them, without JSON escaping.\n",
    run,
};
