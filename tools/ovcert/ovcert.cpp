// ovcert: the command-line face of the certificate component.
//
// A thin layer: loading goes through the component's format detection, and
// every answer comes from one of its operations. Each subcommand lives in its
// own CmdName.cpp and is listed once in kCommands below.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/ovcert/CmdConvert.h"
#include "tools/ovcert/CmdCrl.h"
#include "tools/ovcert/CmdDescribe.h"
#include "tools/ovcert/CmdInspect.h"
#include "tools/ovcert/CmdOcsp.h"
#include "tools/ovcert/CmdStatus.h"
#include "tools/ovcert/Command.h"

#ifndef OVCERT_VERSION
#define OVCERT_VERSION "unknown"
#endif

namespace {

// The registry: one line per subcommand, in the order `ovcert help` lists them.
const Command* const kCommands[] = {
    &kInspectCommand, &kConvertCommand, &kDescribeCommand,
    &kCrlCommand,     &kOcspCommand,    &kStatusCommand,
};

const char kExitStatuses[] =
    "Exit status: 0 everything was read and answered; 1 an input could not be\n"
    "loaded or an action failed; 2 the command line was wrong; 3 inputs loaded\n"
    "but some answer could not be read (the output marks it).\n";

const Command* findCommand(const char* name) {
    for (const Command* c : kCommands)
        if (!strcmp(c->name, name)) return c;
    return nullptr;
}

void printOverview(FILE* to) {
    fputs("usage: ovcert COMMAND [OPTIONS] FILE...   (FILE may be - for standard input)\n\n", to);
    for (const Command* c : kCommands) {
        std::string name = c->name;
        name.resize(10, ' ');
        fprintf(to, "  %s%s\n", name.c_str(), c->summary);
    }
    fputs(
        "\n  ovcert help COMMAND   the usage of one command (or COMMAND --help)\n"
        "  ovcert --version      the tool's version\n\n",
        to);
    fputs(kExitStatuses, to);
}

int help(int argc, char** argv) {
    if (argc < 3) {
        printOverview(stdout);
        return kExitOk;
    }
    const Command* c = findCommand(argv[2]);
    if (!c) {
        fprintf(stderr, "ovcert: no command named %s; 'ovcert help' lists them.\n", argv[2]);
        return kExitUsage;
    }
    fputs(c->usage, stdout);
    // A command with statuses of its own (status: 2 means revoked) says so in
    // its usage; the tool-wide list would contradict it.
    if (!strstr(c->usage, "Exit status")) {
        fputs("\n", stdout);
        fputs(kExitStatuses, stdout);
    }
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printOverview(stderr);
        return kExitUsage;
    }
    const char* first = argv[1];
    if (!strcmp(first, "-h") || !strcmp(first, "--help")) {
        printOverview(stdout);
        return kExitOk;
    }
    if (!strcmp(first, "--version") || !strcmp(first, "-V")) {
        printf("ovcert %s\n", OVCERT_VERSION);
        return kExitOk;
    }
    if (!strcmp(first, "help")) return help(argc, argv);
    const Command* c = findCommand(first);
    if (!c) {
        fprintf(stderr, "ovcert: unknown command %s; 'ovcert help' lists the commands.\n", first);
        return kExitUsage;
    }
    return c->run(argc - 1, argv + 1);
}
