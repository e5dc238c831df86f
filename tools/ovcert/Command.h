// Command: one ovcert subcommand as the registry in ovcert.cpp lists it.
//
// Adding a subcommand is a new CmdName.h/CmdName.cpp pair that defines one
// `const Command kNameCommand` and one line in the registry.
#pragma once

struct Command {
    const char* name;     // as typed: "inspect"
    const char* summary;  // one line for `ovcert help`
    const char* usage;    // the full text of `ovcert help NAME` and `NAME --help`
    // argv[0] is the subcommand's name; the options and operands follow.
    // Returns the process exit status (see kExitStatuses in ovcert.cpp).
    int (*run)(int argc, char** argv);
};

// Exit statuses shared by every subcommand.
enum ExitStatus {
    kExitOk = 0,          // every input was read and every answer given
    kExitFailed = 1,      // an input could not be read or loaded, or an action failed
    kExitUsage = 2,       // the command line was wrong; nothing was done
    kExitUnreadable = 3,  // inputs loaded, but some answer could not be read (marked in output)
};
