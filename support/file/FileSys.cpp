#include "support/file/FileSys.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"

namespace {

enum class Probe { Directory, RegularFile, Other, Absent, Failed };

// ENOENT: nothing at the path. ENOTDIR: a component of the path is not a
// directory, so nothing can exist below it. Both are answers, not failures.
Probe probe(const char* path, int& err) {
    struct stat st;
    if (::stat(path, &st) == 0) {
        if (S_ISDIR(st.st_mode)) return Probe::Directory;
        if (S_ISREG(st.st_mode)) return Probe::RegularFile;
        return Probe::Other;
    }
    err = errno;
    if (err == ENOENT || err == ENOTDIR) return Probe::Absent;
    return Probe::Failed;
}

void logFailure(LogBase* log, const char* line, const char* path, int err) {
    if (!log) return;
    log->logError(line);
    log->logData("path", path);
    log->logData("osError", std::strerror(err));
}

}  // namespace

bool FileSys::IsExistingDirectory(XString& path, bool& failed, LogBase* log) {
    int err = 0;
    const Probe p = probe(path.getUtf8(), err);
    failed = (p == Probe::Failed);
    if (failed)
        logFailure(log, "Failed to check whether the directory exists.", path.getUtf8(), err);
    return p == Probe::Directory;
}

bool FileSys::fileExistsX(XString& path, bool& failed, LogBase* log) {
    int err = 0;
    const Probe p = probe(path.getUtf8(), err);
    failed = (p == Probe::Failed);
    if (failed) logFailure(log, "Failed to check whether the file exists.", path.getUtf8(), err);
    return p == Probe::RegularFile;
}

bool FileSys::createDirectory(XString& path, LogBase* log) {
    const char* full = path.getUtf8();
    const unsigned len = path.getSizeUtf8();
    if (len == 0) {
        logFailure(log, "Failed to create directory.", full, ENOENT);
        return false;
    }
    // Create each prefix that ends before a '/', then the whole path. EEXIST is
    // fine on the way; the final check decides whether a directory is there.
    StringBuffer prefix;
    for (unsigned i = 1; i <= len; ++i) {
        if (i < len && full[i] != '/') continue;
        prefix.clear();
        if (!prefix.appendN(full, i)) return false;
        if (::mkdir(prefix.getString(), 0755) != 0 && errno != EEXIST) {
            logFailure(log, "Failed to create directory.", prefix.getString(), errno);
            return false;
        }
    }
    int err = 0;
    if (probe(full, err) != Probe::Directory) {
        logFailure(log, "Failed to create directory.", full, err ? err : EEXIST);
        return false;
    }
    return true;
}

bool FileSys::deleteFile(XString& path, LogBase* log) {
    // ENOTDIR: a component is a file, so nothing can exist at the path.
    if (::unlink(path.getUtf8()) == 0 || errno == ENOENT || errno == ENOTDIR) return true;
    logFailure(log, "Failed to delete file.", path.getUtf8(), errno);
    return false;
}

bool FileSys::renameFile(XString& from, XString& to, LogBase* log) {
    if (::rename(from.getUtf8(), to.getUtf8()) == 0) return true;
    logFailure(log, "Failed to rename file.", from.getUtf8(), errno);
    return false;
}
