#include "support/file/FileSys.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/file/_ovFilePath.h"
#include "support_common/TestUtil.h"

namespace {

struct Answer {
    bool exists;
    bool failed;
};

Answer isDir(const std::string& path, LogBase* log = nullptr) {
    XString p(path.c_str());
    bool failed = true;  // must be overwritten on every path
    const bool r = FileSys::IsExistingDirectory(p, failed, log);
    return {r, failed};
}

Answer isFile(const std::string& path, LogBase* log = nullptr) {
    XString p(path.c_str());
    bool failed = true;
    const bool r = FileSys::fileExistsX(p, failed, log);
    return {r, failed};
}

TEST(FileSys, ExistenceTellsAbsenceFromFailure) {
    ovtest::TempDir tmp;
    const std::string base = tmp.path();
    ASSERT_EQ(mkdir((base + "/d").c_str(), 0755), 0);
    ASSERT_TRUE(ovtest::writeFile(base + "/f", "x"));
    ASSERT_TRUE(ovtest::writeFile(base + "/d/inner.crl", "y"));
    ASSERT_EQ(symlink("d", (base + "/dlink").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (base + "/dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", (base + "/loop").c_str()), 0);
    ASSERT_EQ(mkfifo((base + "/fifo").c_str(), 0644), 0);
    std::string tooLong = base;
    while (tooLong.size() < 5000) tooLong += "/d/..";

    struct Case {
        const char* name;
        std::string path;
        bool dir, file, failed;
    } cases[] = {
        {"directory", base + "/d", true, false, false},
        {"directory with trailing slash", base + "/d/", true, false, false},
        {"file", base + "/f", false, true, false},
        {"file in a directory", base + "/d/inner.crl", false, true, false},
        {"missing", base + "/nothing", false, false, false},
        {"below a missing directory", base + "/nothing/x", false, false, false},
        {"below a file", base + "/f/x", false, false, false},
        {"file with trailing slash", base + "/f/", false, false, false},
        {"link to a directory", base + "/dlink", true, false, false},
        {"file through a link", base + "/dlink/inner.crl", false, true, false},
        {"dangling link", base + "/dangling", false, false, false},
        {"fifo is neither", base + "/fifo", false, false, false},
        {"empty path", "", false, false, false},
        {"link loop", base + "/loop", false, false, true},
        {"below a link loop", base + "/loop/x", false, false, true},
        {"component too long", base + "/" + std::string(300, 'n'), false, false, true},
        {"path too long", tooLong, false, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree dlog, flog;
        const Answer d = isDir(c.path, &dlog);
        const Answer f = isFile(c.path, &flog);
        EXPECT_EQ(d.exists, c.dir);
        EXPECT_EQ(f.exists, c.file);
        EXPECT_EQ(d.failed, c.failed);
        EXPECT_EQ(f.failed, c.failed);
        EXPECT_EQ(dlog.hasError("Failed to check whether the directory exists."), c.failed);
        EXPECT_EQ(flog.hasError("Failed to check whether the file exists."), c.failed);
        EXPECT_EQ(dlog.numErrors(), c.failed ? 1 : 0) << dlog.text();
        // A null log is allowed.
        EXPECT_EQ(isDir(c.path).failed, c.failed);
    }
}

// Existence needs search permission on the parents only. As root no permission
// check ever fails, so the checks run in a child that drops to an unprivileged
// user; a non-root run checks in-process.
TEST(FileSys, UnsearchableParentIsAFailureNotAbsence) {
    ovtest::TempDir tmp;
    const std::string base = tmp.path();
    ASSERT_EQ(chmod(base.c_str(), 0755), 0);
    const std::string locked = base + "/locked", open000 = base + "/open000";
    ASSERT_EQ(mkdir(locked.c_str(), 0755), 0);
    ASSERT_EQ(mkdir((locked + "/inner").c_str(), 0755), 0);
    ASSERT_TRUE(ovtest::writeFile(locked + "/f", "x"));
    ASSERT_EQ(mkdir(open000.c_str(), 0755), 0);
    ASSERT_EQ(chmod(locked.c_str(), 0700), 0);
    ASSERT_EQ(chmod(open000.c_str(), 0), 0);

    // One letter per check: E exists, A absent, F failed.
    auto letter = [](const Answer& a) { return a.failed ? 'F' : (a.exists ? 'E' : 'A'); };
    auto probeAll = [&]() {
        std::string r;
        r += letter(isDir(locked));             // its parent is searchable
        r += letter(isDir(locked + "/inner"));  // below a directory we may not search
        r += letter(isFile(locked + "/f"));
        r += letter(isFile(locked + "/missing"));  // absent or not: we cannot know
        r += letter(isDir(open000));               // unreadable itself, still seen
        r += letter(isDir(open000 + "/x"));
        return r;
    };

    std::string got;
    if (geteuid() == 0) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
            const std::string r = probeAll();
            const ssize_t n = write(fds[1], r.data(), r.size());
            _exit(n == static_cast<ssize_t>(r.size()) ? 0 : 3);
        }
        close(fds[1]);
        char buf[32];
        ssize_t n;
        while ((n = read(fds[0], buf, sizeof(buf))) > 0) got.append(buf, n);
        close(fds[0]);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        ASSERT_EQ(WEXITSTATUS(status), 0) << "the child could not drop privileges";
    } else {
        ASSERT_EQ(chmod(locked.c_str(), 0), 0);
        got = probeAll();
    }
    EXPECT_EQ(got, "EFFFEF");
    chmod(locked.c_str(), 0755);
    chmod(open000.c_str(), 0755);
}

TEST(FileSys, CreatesDirectoriesWithParents) {
    ovtest::TempDir tmp;
    const std::string base = tmp.path();
    ASSERT_TRUE(ovtest::writeFile(base + "/f", "x"));
    struct Case {
        const char* name;
        std::string path;
        bool ok;
    } cases[] = {
        {"nested", base + "/a/b/c", true},
        {"already there", base + "/a/b", true},
        {"trailing slash", base + "/t/u/", true},
        {"doubled slashes", base + "//s//t", true},
        {"a file is in the way", base + "/f", false},
        {"below a file", base + "/f/sub", false},
        {"empty", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XString p(c.path.c_str());
        LogTree log;
        EXPECT_EQ(FileSys::createDirectory(p, &log), c.ok);
        EXPECT_EQ(log.hasError("Failed to create directory."), !c.ok);
        if (c.ok) {
            EXPECT_TRUE(isDir(c.path).exists);
        }
    }
}

TEST(FileSys, DeletesFiles) {
    ovtest::TempDir tmp;
    const std::string f = tmp.file("f");
    ASSERT_TRUE(ovtest::writeFile(f, "x"));
    XString p(f.c_str());
    LogTree log;
    EXPECT_TRUE(FileSys::deleteFile(p, &log));
    EXPECT_FALSE(isFile(f).exists);
    EXPECT_TRUE(FileSys::deleteFile(p, &log));  // already gone
    EXPECT_FALSE(log.hasErrors());

    XString dir(tmp.path().c_str());
    EXPECT_FALSE(FileSys::deleteFile(dir, &log));
    EXPECT_TRUE(log.hasError("Failed to delete file."));
    EXPECT_TRUE(isDir(tmp.path()).exists);
}

TEST(FilePath, CombinesDirAndName) {
    struct Case {
        const char* name;
        const char* dir;
        const char* file;
        const char* want;
    } cases[] = {
        {"plain", "/var/cache", "x.crl", "/var/cache/x.crl"},
        {"dir ends with a slash", "/var/cache/", "x.crl", "/var/cache/x.crl"},
        {"separators on both sides", "/var/cache//", "//x.crl", "/var/cache/x.crl"},
        {"relative", "cache", "x.crl", "cache/x.crl"},
        {"empty dir gives the name", "", "x.crl", "x.crl"},
        {"root", "/", "x.crl", "/x.crl"},
        {"root written twice", "//", "x.crl", "/x.crl"},
        {"empty name", "/var/cache", "", "/var/cache"},
        {"both empty", "", "", ""},
        {"utf-8", "/tmp/\xc3\xbc", "\xc3\xa9.crl", "/tmp/\xc3\xbc/\xc3\xa9.crl"},
        {"backslash is a plain character", "/a\\b", "c", "/a\\b/c"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XString dir(c.dir), file(c.file), out("pre:");
        _ovFilePath::CombineDirAndFilename(dir, file, out);
        EXPECT_EQ(std::string(out.getUtf8()), std::string("pre:") + c.want);
    }
}

TEST(FilePath, CombinedPathReachesTheFile) {
    ovtest::TempDir tmp;
    ASSERT_TRUE(ovtest::writeFile(tmp.file("host_x.crl"), "der"));
    XString dir((tmp.path() + "/").c_str()), name("host_x.crl"), path;
    _ovFilePath::CombineDirAndFilename(dir, name, path);
    EXPECT_TRUE(isFile(path.getUtf8()).exists);
}

}  // namespace
