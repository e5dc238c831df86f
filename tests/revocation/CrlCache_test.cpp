// _ovCrl::downloadCrlDer against a loopback HTTP server of ours
// (crl_http_server.py) serving the openssl-made CRLs of tests/data/crl.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "revocation/OvCrl.h"
#include "support/base/LogBase.h"
#include "support/base/XString.h"
#include "support/net/ClsHttp.h"
#include "support/net/PeerProcess.h"
#include "support_common/TestUtil.h"

namespace {

std::vector<std::string> listDir(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
    }
    return names;
}

class CrlDownloadTest : public ovtest::LoopbackServerTest<CrlDownloadTest> {
  protected:
    static void SetUpTestSuite() {
        startServer(OV_SOURCE_DIR "/tests/revocation", "python3 crl_http_server.py");
    }

    // Requests the server answered so far.
    static int served() {
        ClsHttp http;
        XString u(url("/count").c_str());
        DataBuffer out;
        LogNull log;
        return http.quickGet(u, out, nullptr, log) ? std::stoi(ovtest::bytes(out)) : -1;
    }

    static bool fetch(const std::string& path, const std::string& cacheDir, DataBuffer& out,
                      LogBase& log, ClsHttp* client = nullptr) {
        ClsHttp own;
        return _ovCrl::downloadCrlDer(url(path).c_str(),
                                      cacheDir == "-" ? nullptr : cacheDir.c_str(),
                                      client ? *client : own, out, nullptr, log);
    }
};

// What the server sends arrives whole. Only a successful download to an
// existing directory is cached (a missing one is not created), as exactly the
// CRL's bytes; the second request for a URL is answered from the cache file
// without a request, even by a dead client, which fails for a URL not cached.
TEST_F(CrlDownloadTest, CacheHoldsOnlySuccessfulDownloads) {
    ovtest::TempDir dir;
    DataBuffer first, second, der;
    LogTree failed, absent, empty, log, cached, uncached;
    EXPECT_FALSE(fetch("/crl/missing.crl", dir.path(), der, failed));
    EXPECT_TRUE(failed.hasError("Failed to download the CRL."));
    EXPECT_TRUE(fetch("/crl/v1.crl", dir.file("no/such/dir"), der, absent));
    EXPECT_FALSE(der.isEmpty());
    EXPECT_TRUE(listDir(dir.path()).empty());
    // An empty directory name is still a directory name: logged, and absent.
    EXPECT_TRUE(fetch("/crl/v1.crl", "", der, empty));
    std::string v;
    EXPECT_TRUE(empty.findData("crl_cache_dir", v) && v.empty());
    EXPECT_TRUE(empty.findData("crl_cache_file_path", v));

    ASSERT_TRUE(fetch("/crl/v2.crl", dir.path(), first, log)) << log.text();
    ASSERT_TRUE(log.findData("crl_cache_file_path", v));
    EXPECT_EQ(v, dir.file("127.0.0.1_" + s_port + "_crl_v2.crl"));
    EXPECT_EQ(ovtest::bytes(first), ovtest::readFile(ovtest::dataPath("crl/v2.crl")));
    EXPECT_EQ(ovtest::readFile(v), ovtest::bytes(first));
    EXPECT_EQ(listDir(dir.path()).size(), 1u);  // no temporary file left
    int before = served();
    ClsHttp dead;
    dead.m_magic = 0;
    EXPECT_TRUE(fetch("/crl/v2.crl", dir.path(), second, cached, &dead));
    EXPECT_FALSE(fetch("/crl/v1.crl", dir.path(), der, uncached, &dead));
    dead.m_magic = ClsHttp::kValidMagic;
    EXPECT_EQ(served(), before);
    EXPECT_TRUE(first.equals(second));
    EXPECT_TRUE(uncached.hasError(
        "The HTTP object is not valid.  Perhaps your application already deleted it?"));
}

// A body that never ends stops at the CRL cap (which still lets 100 MB CRLs
// through), and nothing is cached (here once with no cache asked for). The
// HTTP client's own lines reach the caller's log only with LOG_CRL_HTTP.
TEST_F(CrlDownloadTest, EndlessBodyStopsAtTheCap) {
    for (bool keyword : {false, true}) {
        SCOPED_TRACE(keyword);
        ovtest::TempDir dir;
        ClsHttp http;
        DataBuffer der;
        LogTree log;
        if (keyword) log.logKeywords.append("LOG_CRL_HTTP");
        EXPECT_FALSE(fetch("/endless", keyword ? dir.path() : "-", der, log, &http));
        std::string v;
        EXPECT_TRUE(log.findData("crl_url", v));
        EXPECT_EQ(log.findData("url", v), keyword);  // the client's value
        EXPECT_EQ(log.numErrors(), keyword ? 2 : 1) << log.text();
        EXPECT_EQ(log.hasError("The response is larger than the maximum response size."), keyword);
        EXPECT_EQ(log.findData("maxResponseSize", v) && v == std::to_string(_ovCrl::kMaxCrlSize),
                  keyword);
        EXPECT_TRUE(listDir(dir.path()).empty());
        EXPECT_EQ(http.get_MaxResponseSize(), ClsHttp::kDefaultMaxResponseSize);  // restored
    }
}

// Two processes downloading one URL into one cache at once leave one whole
// file: the server numbers each response's bytes, so a torn file would mix.
TEST_F(CrlDownloadTest, TwoProcessesLeaveOneWholeFile) {
    ovtest::TempDir dir;
    const unsigned size = 3u * 1024 * 1024;
    pid_t kids[2];
    for (pid_t& k : kids) {
        ASSERT_GE(k = fork(), 0);
        if (k == 0) {
            DataBuffer der;
            LogNull log;
            const bool ok = fetch("/numbered/" + std::to_string(size), dir.path(), der, log);
            _exit(ok && der.getSize() == size ? 0 : 1);
        }
    }
    for (pid_t k : kids) {
        int status = 0;
        ASSERT_EQ(waitpid(k, &status, 0), k);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::vector<std::string> names = listDir(dir.path());
    ASSERT_EQ(names.size(), 1u);
    std::string bytes = ovtest::readFile(dir.file(names[0]));
    ASSERT_EQ(bytes.size(), size);
    EXPECT_EQ(bytes.find_first_not_of(bytes[0]), std::string::npos);
}

}  // namespace
