// Runs the ovcert binary under test, as every test of the tool does.
#pragma once

#include <string>

#include "support_common/TestUtil.h"

namespace ovcerttest {

struct RunResult {
    int status = -1;
    std::string out, err;
};

// ovcert with args (shell words; a redirection of standard input in them wins
// over the /dev/null given first, so no run waits on a terminal), after the
// environment assignments in env (VAR=value ...), in dir when one is given.
inline RunResult ovcertRun(const std::string& args, const std::string& env = "",
                           const std::string& dir = "") {
    ovtest::TempDir tmp;
    RunResult r;
    const std::string cd = dir.empty() ? "" : "cd " + ovtest::shq(dir) + " && ";
    r.status = ovtest::run(
        cd + env + " " + OVCERT_BIN + " </dev/null " + args + " 2>" + ovtest::shq(tmp.file("err")),
        &r.out);
    r.err = ovtest::readFile(tmp.file("err"));
    return r;
}

// The same, for the callers that want standard output and, when asked, the
// exit status and standard error.
inline std::string ovcert(const std::string& args, int* status = nullptr,
                          std::string* err = nullptr, const std::string& dir = "") {
    RunResult r = ovcertRun(args, "", dir);
    if (status) *status = r.status;
    if (err) *err = r.err;
    return r.out;
}

}  // namespace ovcerttest
