#include "PeerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

extern char** environ;

namespace ovtest {

bool PeerProcess::start(const std::vector<std::string>& argv, const std::string& dir,
                        const std::string& errFile) {
    if (argv.empty() || m_pid > 0) return false;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;

    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    posix_spawn_file_actions_addopen(&fa, 2, errFile.empty() ? "/dev/null" : errFile.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&fa, 0, "/dev/null", O_RDONLY, 0);
    if (!dir.empty()) posix_spawn_file_actions_addchdir_np(&fa, dir.c_str());

    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, args[0], &fa, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    if (rc != 0) {
        close(fds[0]);
        return false;
    }
    m_pid = pid;
    m_out = fds[0];
    return true;
}

bool PeerProcess::readLine(std::string& line, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        size_t nl = m_pending.find('\n');
        if (nl != std::string::npos) {
            line = m_pending.substr(0, nl);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            m_pending.erase(0, nl + 1);
            return true;
        }
        if (m_out < 0) return false;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) return false;
        pollfd pfd{m_out, POLLIN, 0};
        if (poll(&pfd, 1, static_cast<int>(left)) <= 0) continue;
        char buf[512];
        ssize_t n = read(m_out, buf, sizeof buf);
        if (n <= 0) return false;
        m_pending.append(buf, static_cast<size_t>(n));
    }
}

void PeerProcess::stop() {
    if (m_out >= 0) {
        close(m_out);
        m_out = -1;
    }
    if (m_pid <= 0) return;
    kill(m_pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
            m_pid = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

std::string findProgram(const std::string& name) {
    const char* path = getenv("PATH");
    std::string all = path ? path : "/usr/bin:/bin";
    size_t pos = 0;
    while (pos <= all.size()) {
        size_t end = all.find(':', pos);
        if (end == std::string::npos) end = all.size();
        std::string candidate = all.substr(pos, end - pos) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
        pos = end + 1;
    }
    return "";
}

}  // namespace ovtest
