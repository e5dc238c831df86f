// What every ovcert subcommand shares: the options all of them take, reading
// an input (a file or - for standard input, never more than
// DataBuffer::kMaxLoadSize bytes), loading it through the component's format
// detection, printing the component's log tree, and the colour decision.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"
#include "tools/ovcert/Command.h"

class CertCore;
class SystemCerts;

// Options every subcommand accepts.
struct CommonOptions {
    bool help = false;     // --help, -h
    bool showLog = false;  // --log: the component's log tree on standard error
    bool verbose = false;  // --verbose: the component's verbose logging
    bool noColor = false;  // --no-color
};

// Takes arg when it is one of the common options; false leaves it to the caller.
bool takeCommonOption(const std::string& arg, CommonOptions& o);

// Whether arg looks like an option ("-x", "--xy"); "-" alone is an operand.
bool isOption(const std::string& arg);

// One option of a subcommand beyond the common ones: "--name VALUE" when value
// is set, a flag otherwise.
struct OptionSpec {
    const char* name;
    std::string* value;
    bool* flag;
};

// Walks argv[1..]: the common options, the subcommand's own, and operands,
// which go to operands in order. An option missing its value counts as
// unknown. With maxOperands, one operand more is refused on the spot with
// tooMany. Returns kExitOk, or usageError's status.
int parseArgs(const Command& cmd, int argc, char** argv, CommonOptions& common,
              std::initializer_list<OptionSpec> specs, std::vector<std::string>& operands,
              size_t maxOperands = 0, const char* tooMany = nullptr);

// Prints "ovcert NAME: MESSAGE" and where to read the usage; returns kExitUsage.
int usageError(const Command& cmd, const std::string& message);

// Prints the command's usage text on standard output; returns kExitOk.
int printUsage(const Command& cmd);

// Reads the file, or standard input for "-", whole into out (at most
// DataBuffer::kMaxLoadSize bytes). On failure why holds one line for the
// user and false is returned.
bool readInput(const std::string& name, DataBuffer& out, std::string& why);

// Whether colour codes may go to the stream (a terminal, NO_COLOR unset or
// empty, no --no-color).
bool colourWanted(int fd, const CommonOptions& o);

// The component's log tree on standard error (nothing when it is empty).
void printLog(const LogTree& log);

// One input loaded through format detection, with the store that receives
// the other certificates of a bundle. Holds one reference to each and gives
// them up when destroyed.
class LoadedInput {
  public:
    explicit LoadedInput(std::string name, bool verbose);
    ~LoadedInput();
    LoadedInput(const LoadedInput&) = delete;
    LoadedInput& operator=(const LoadedInput&) = delete;

    // Loads the input; withStore hands the rest of a bundle to a store.
    // False when no certificate could be loaded; failure() then says why.
    // Regular files go through the component's file loading; standard input
    // and other non-regular files (pipes, process substitution, /dev/null)
    // are read here as a stream with the same cap.
    bool load(bool withStore);
    // One line: what was found and what to try.
    const std::string& failure() const { return m_failure; }

    const std::string& name() const { return m_name; }
    LogTree& log() { return m_log; }
    // The certificate the component chose (the one carrying the private key in
    // a bundle with a key), or null before a successful load.
    CertCore* chosen() const { return m_cert.get(); }
    // The chosen certificate first, then the rest of the bundle in store order.
    std::vector<CertCore*> all() const;

  private:
    std::string m_name;
    LogTree m_log;
    std::string m_failure;
    RefPtr<SystemCerts> m_store;
    RefPtr<CertCore> m_cert;
};
