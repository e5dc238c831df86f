// _ovCrl::downloadCrlDer and its on-disk cache.
#include <unistd.h>

#include <atomic>

#include "revocation/OvCrl.h"
#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/file/FileSys.h"
#include "support/file/_ovFilePath.h"
#include "support/net/ClsHttp.h"

namespace {

// Raises a client's response cap to the CRL cap for one call, when the
// caller left it at the default (which suits OCSP answers, not 100 MB CRLs).
class CrlSizeCap {
  public:
    explicit CrlSizeCap(ClsHttp& http) : m_http(http), m_before(http.get_MaxResponseSize()) {
        if (m_before == ClsHttp::kDefaultMaxResponseSize)
            http.put_MaxResponseSize(_ovCrl::kMaxCrlSize);
    }
    ~CrlSizeCap() { m_http.put_MaxResponseSize(m_before); }
    CrlSizeCap(const CrlSizeCap&) = delete;
    CrlSizeCap& operator=(const CrlSizeCap&) = delete;

  private:
    ClsHttp& m_http;
    unsigned m_before;
};

// Writes the bytes under a name of their own in the same directory, then
// renames it over path: rename is atomic within a directory, so a process
// reading the cache sees a whole CRL or none, and of two writers of one URL
// the last one's whole file stays. The outcome is the caller's to ignore.
void saveAtomically(const DataBuffer& bytes, XString& path, LogBase& log) {
    static std::atomic<unsigned> counter{0};
    XString tmp;
    tmp.copyFromX(path);
    StringBuffer& t = tmp.getUtf8Sb_rw();
    t.append(".tmp");
    t.appendUint32(static_cast<unsigned>(getpid()));
    t.appendChar('_');
    t.appendUint32(counter.fetch_add(1));
    if (!bytes.saveToFileUtf8(tmp.getUtf8(), &log)) {
        FileSys::deleteFile(tmp, nullptr);
        return;
    }
    if (!FileSys::renameFile(tmp, path, &log)) FileSys::deleteFile(tmp, nullptr);
}

}  // namespace

bool _ovCrl::getCacheFileName(const char* url, StringBuffer& name) {
    name.clear();
    if (!url || !name.append(url)) return false;
    name.toLowerCase();
    // The last ".crl" anywhere, not only a trailing extension: a host such as
    // a.crl.host loses it too when it is the last one.
    name.replaceLastOccurance(".crl", "");
    name.replaceFirstOccurance("http://", "", false);
    name.replaceFirstOccurance("https://", "", false);
    // Only these; a backslash, '&', '=', '%', '#' or a space stay as they are.
    for (const char* c : {"/", ":", "\"", "|", "?", "*", "<", ">"})
        name.replaceAllOccurances(c, "_");
    return name.append(".crl");
}

bool _ovCrl::downloadCrlDer(const char* url, const char* cacheDir, ClsHttp& http,
                            DataBuffer& crlDer, ProgressEvent* progress, LogBase& log) {
    LogContextExitor ctx(log, "downloadCrlDer");
    crlDer.clear();
    log.logData("crl_url", url ? url : "");
    if (cacheDir) log.logData("crl_cache_dir", cacheDir);

    XString cachePath;
    bool dirExists = false;
    if (cacheDir) {
        StringBuffer fileName;
        getCacheFileName(url ? url : "", fileName);
        XString dir(cacheDir), name(fileName.getString());
        _ovFilePath::CombineDirAndFilename(dir, name, cachePath);
        log.LogDataX("crl_cache_file_path", cachePath);
        bool failed = false;
        dirExists = FileSys::IsExistingDirectory(dir, failed, nullptr);
        if (dirExists && !failed) {
            // No expiry, by design: a cached CRL answers whatever its age.
            bool fileFailed = false;
            if (FileSys::fileExistsX(cachePath, fileFailed, &log) &&
                crlDer.loadFileX(cachePath, log))
                return true;
        }
        dirExists = dirExists && !failed;
    }

    if (!http.isValidObject()) {
        log.logError("The HTTP object is not valid.  Perhaps your application already deleted it?");
        return false;
    }

    XString xurl(url ? url : "");
    bool ok;
    {
        CrlSizeCap cap(http);
        if (log.logKeywords.containsSubstring("LOG_CRL_HTTP")) {
            ok = http.quickGet(xurl, crlDer, progress, log);
        } else {
            LogNull quiet(log);
            ok = http.quickGet(xurl, crlDer, progress, quiet);
        }
    }
    if (!ok) {
        log.logError("Failed to download the CRL.");
        return false;
    }
    // Never created here: with a missing directory nothing is cached.
    if (cacheDir && !crlDer.isEmpty() && dirExists && !cachePath.isEmpty())
        saveAtomically(crlDer, cachePath, log);
    return true;
}
