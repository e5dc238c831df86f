#include "support/file/FileSys.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/file/_ovFilePath.h"
#include "support_common/TestUtil.h"

namespace {

char letter(bool failed, bool exists) {
    return failed ? 'F' : exists ? 'E' : 'A';
}

// One letter for the directory check, one for the file check: E exists, A
// absent, F the check failed (and logged so).
std::string probe(const std::string& path) {
    XString p(path.c_str());
    bool dFailed = false, fFailed = true;
    LogTree log;
    std::string r(1, letter(dFailed, FileSys::IsExistingDirectory(p, dFailed, &log)));
    r += letter(fFailed, FileSys::fileExistsX(p, fFailed, nullptr));
    const bool logged = ovtest::errors(log) == "Failed to check whether the directory exists.";
    return logged == dFailed ? r : r + " (log?)";
}

// The probes run as an unprivileged user: root may search any directory, and a
// parent we may not search must make the answer a failure, not absence.
TEST(FileSys, ExistenceTellsAbsenceFromFailure) {
    ovtest::TempDir tmp;
    const std::string b = tmp.path() + "/";
    ASSERT_EQ(chmod(b.c_str(), 0755) | mkdir((b + "d").c_str(), 0755) |
                  symlink("d", (b + "dlink").c_str()) | symlink("none", (b + "dangling").c_str()) |
                  symlink("loop", (b + "loop").c_str()) | mkfifo((b + "fifo").c_str(), 0644) |
                  mkdir((b + "locked").c_str(), 0755) | mkdir((b + "locked/d").c_str(), 0755) |
                  chmod((b + "locked").c_str(), 0),
              0);
    ASSERT_TRUE(ovtest::writeFile(b + "f", "x"));
    struct Case {
        const char *name, *want;
    } cases[] = {
        {"d", "EA"},      {"d/", "EA"},     {"f", "AE"},        {"none", "AA"},     {"f/x", "AA"},
        {"f/", "AA"},     {"dlink", "EA"},  {"dangling", "AA"}, {"fifo", "AA"},     {"loop", "FF"},
        {"loop/x", "FF"}, {"locked", "EA"}, {"locked/d", "FF"}, {"locked/x", "FF"},
    };
    const bool root = geteuid() == 0;
    ASSERT_TRUE(!root || seteuid(65534) == 0);
    for (const auto& c : cases) EXPECT_EQ(probe(b + c.name), c.want) << c.name;
    EXPECT_EQ(probe(""), "AA");
    EXPECT_EQ(probe(b + std::string(300, 'n')), "FF");  // a name too long
    ASSERT_TRUE(!root || seteuid(0) == 0);
    chmod((b + "locked").c_str(), 0755);
}

TEST(FileSys, CreatesDirectoriesAndDeletesFiles) {
    ovtest::TempDir tmp;
    const std::string b = tmp.path() + "/";
    ASSERT_TRUE(ovtest::writeFile(b + "f", "x"));
    for (const std::string& path : {b + "a/b/c", b, b + "f/s", std::string()}) {
        const bool ok = path != b + "f/s" && !path.empty();
        XString p(path.c_str());
        LogTree log;
        EXPECT_EQ(FileSys::createDirectory(p, &log) && probe(path) == "EA", ok) << path;
        EXPECT_EQ(ovtest::errors(log), ok ? "" : "Failed to create directory.") << path;
    }
    // Nothing can be at f/x while f is a file.
    XString file((b + "f").c_str()), dir(b.c_str()), below((b + "f/x").c_str());
    LogTree log;
    EXPECT_TRUE(FileSys::deleteFile(below, &log) && FileSys::deleteFile(file, &log) &&
                FileSys::deleteFile(file, &log));
    EXPECT_EQ(probe(b + "f"), "AA");
    EXPECT_FALSE(FileSys::deleteFile(dir, &log));
    EXPECT_EQ(ovtest::errors(log), "Failed to delete file.");
}

TEST(FilePath, CombinesDirAndName) {
    struct Case {
        const char *dir, *name, *want;
    } cases[] = {
        {"/var/cache//", "//x.crl", "/var/cache/x.crl"},
        {"cache", "x.crl", "cache/x.crl"},
        {"", "x.crl", "x.crl"},
        {"//", "x.crl", "/x.crl"},
        {"/var/cache", "", "/var/cache"},
    };
    for (const auto& c : cases) {
        XString dir(c.dir), name(c.name), out("pre:");
        _ovFilePath::CombineDirAndFilename(dir, name, out);
        EXPECT_EQ(std::string(out.getUtf8()), std::string("pre:") + c.want) << c.dir << c.name;
    }
}

}  // namespace
