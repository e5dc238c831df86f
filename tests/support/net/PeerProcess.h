// A peer program for a test (an HTTP server, an OCSP responder), started
// through the shell with its standard output on a pipe, and stopped by its
// process id when this object goes away.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "support_common/TestUtil.h"

namespace ovtest {

class PeerProcess {
  public:
    ~PeerProcess() {
        if (m_pid > 0) kill(m_pid, SIGTERM);  // then m_out's pclose reaps it
    }

    // Runs the command line in dir (the shell reports its process id and then
    // becomes the program) and reads the program's first line of output. False
    // when that does not happen within 15 s.
    bool start(const std::string& dir, const std::string& command, std::string& firstLine) {
        m_out.reset(popen(("cd " + shq(dir) + " && echo $$ && exec " + command).c_str(), "r"));
        return m_out && readLine(firstLine, 5000) && (m_pid = atoi(firstLine.c_str())) > 0 &&
               readLine(firstLine, 15000);
    }

    // The next line of the program's output, without its line end. False at
    // the end of the output or when a byte takes longer than timeoutMs.
    bool readLine(std::string& line, int timeoutMs) {
        line.clear();
        for (char c;;) {
            pollfd p{fileno(m_out.get()), POLLIN, 0};
            if (poll(&p, 1, timeoutMs) <= 0 || read(p.fd, &c, 1) != 1) return false;
            if (c == '\n') return true;
            line += c;
        }
    }

  private:
    std::unique_ptr<FILE, int (*)(FILE*)> m_out{nullptr, pclose};
    pid_t m_pid = -1;
};

// A suite whose tests share one loopback HTTP server: a script in dir that
// prints its port as its first line, started once for the suite (Suite keeps
// each suite's server apart) and stopped when the program ends. Proxies from
// the environment are dropped so that requests go straight to 127.0.0.1.
template <class Suite>
class LoopbackServerTest : public ::testing::Test {
  protected:
    static void startServer(const std::string& dir, const std::string& command) {
        for (const char* v : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
        s_command = command;
        if (!s_server.start(dir, command, s_port)) s_port.clear();
    }
    void SetUp() override { ASSERT_FALSE(s_port.empty()) << s_command << " did not start"; }
    static std::string url(const std::string& path) { return "http://127.0.0.1:" + s_port + path; }

    static inline PeerProcess s_server;
    static inline std::string s_port, s_command;
};

}  // namespace ovtest
