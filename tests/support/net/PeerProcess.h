// A peer program started by a test (an HTTP server, an OCSP responder): started
// with its standard output on a pipe, stopped by its process id when the owner
// goes away.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ovtest {

class PeerProcess {
  public:
    PeerProcess() = default;
    ~PeerProcess() { stop(); }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    // Starts argv[0] (searched in PATH) in dir (empty: the current directory).
    // Standard error goes to errFile when given, otherwise to /dev/null. False
    // when the program cannot be started.
    bool start(const std::vector<std::string>& argv, const std::string& dir = "",
               const std::string& errFile = "");
    // Reads one line of the peer's standard output (without the line end),
    // waiting at most timeoutMs. False at end of output or on timeout.
    bool readLine(std::string& line, int timeoutMs);
    // Asks the peer to end (SIGTERM), then forces it (SIGKILL) after a grace
    // period, and reaps it. Safe to call twice.
    void stop();

  private:
    pid_t m_pid = -1;
    int m_out = -1;
    std::string m_pending;
};

// The path of a program in PATH, or empty.
std::string findProgram(const std::string& name);

}  // namespace ovtest
