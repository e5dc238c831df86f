// Runs the ovcert binary under test, as every test of the tool does.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "support_common/TestUtil.h"

namespace ovcerttest {

struct RunResult {
    int status = -1;
    std::string out, err;
    // Standard output read as JSON (a discarded value when it is none).
    nlohmann::json json() const { return nlohmann::json::parse(out, nullptr, false); }
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

}  // namespace ovcerttest
