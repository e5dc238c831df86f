#include "support/file/FileSys.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support_common/TestUtil.h"

namespace {

// The operation written before the name ('+' createDirectory, '-' deleteFile),
// "ok" or "no" (checked to come with its error line), then one letter for the
// directory check and one for the file check: E exists, A absent, F the check
// failed (and logged so). An empty name stands for the empty path.
std::string probe(const std::string& base, const char* row) {
    const char op = *row == '+' || *row == '-' ? *row++ : ' ';
    XString p(*row ? (base + row).c_str() : "");
    auto letter = [](bool failed, bool exists) { return failed ? 'F' : exists ? 'E' : 'A'; };
    LogTree log, checkLog;
    std::string r;
    if (op != ' ') {
        const bool ok =
            op == '+' ? FileSys::createDirectory(p, &log) : FileSys::deleteFile(p, &log);
        const char* error = op == '+' ? "Failed to create directory." : "Failed to delete file.";
        r = ovtest::errors(log) == (ok ? "" : error) ? (ok ? "ok " : "no ") : "(log?) ";
    }
    bool dFailed = false, fFailed = true;
    const bool dir = FileSys::IsExistingDirectory(p, dFailed, &checkLog);
    const bool file = FileSys::fileExistsX(p, fFailed, nullptr);
    r = r + letter(dFailed, dir) + letter(fFailed, file);
    const bool logged = ovtest::errors(checkLog) == "Failed to check whether the directory exists.";
    return logged == dFailed ? r : r + " (log?)";
}

// The checks run as an unprivileged user: root may search any directory, and a
// parent we may not search must make the answer a failure, not absence.
TEST(FileSys, ExistenceTellsAbsenceFromFailure) {
    ovtest::TempDir tmp;
    const std::string b = tmp.path() + "/";
    ASSERT_EQ(chmod(b.c_str(), 0777) | mkdir((b + "d").c_str(), 0755) |
                  symlink("d", (b + "dlink").c_str()) | symlink("none", (b + "dangling").c_str()) |
                  symlink("loop", (b + "loop").c_str()) | mkfifo((b + "fifo").c_str(), 0644) |
                  mkdir((b + "locked").c_str(), 0755) | mkdir((b + "locked/d").c_str(), 0755) |
                  chmod((b + "locked").c_str(), 0),
              0);
    ASSERT_TRUE(ovtest::writeFile(b + "f", "x"));
    const char* cases[][2] = {
        {"d", "EA"},        {"d/", "EA"},       {"f", "AE"},      {"none", "AA"},
        {"f/x", "AA"},      {"f/", "AA"},       {"dlink", "EA"},  {"dangling", "AA"},
        {"fifo", "AA"},     {"loop", "FF"},     {"loop/x", "FF"}, {"locked", "EA"},
        {"locked/d", "FF"}, {"locked/x", "FF"}, {"", "AA"},       {"+a/b/c", "ok EA"},
        {"+d", "ok EA"},    {"+f/s", "no AA"},  {"+", "no AA"},   {"-f/x", "ok AA"},
        {"-f", "ok AA"},    {"-f", "ok AA"},    {"-d", "no EA"},
    };
    const bool root = geteuid() == 0;
    ASSERT_TRUE(!root || seteuid(65534) == 0);
    for (const auto& c : cases) EXPECT_EQ(probe(b, c[0]), c[1]) << c[0];
    EXPECT_EQ(probe(b, std::string(300, 'n').c_str()), "FF");  // a name too long
    ASSERT_TRUE(!root || seteuid(0) == 0);
    chmod((b + "locked").c_str(), 0755);
}

}  // namespace
