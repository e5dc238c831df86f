#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "PeerProcess.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/ProgressEvent.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/net/ClsHttp.h"
#include "support/net/HttpResult.h"
#include "support_common/TestUtil.h"

namespace {

using ovtest::bytes;

// The bytes the test server sends for /bytes/N and /chunked/N.
std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + 3) & 0xFF);
    return s;
}

std::string header(const HttpResult& r, const char* name) {
    StringBuffer sb;
    return r.getHeaderField(name, sb) ? sb.getString() : "-";
}

class HttpPeerTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        // Straight to 127.0.0.1: a proxy from the environment must not get the requests.
        for (const char* v : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) unsetenv(v);
        if (!s_server.start(OV_SOURCE_DIR "/tests/support/net", "python3 http_test_server.py") ||
            !s_server.readLine(s_port, 15000)) {
            s_port.clear();
        }
    }
    void SetUp() override {
        ASSERT_FALSE(s_port.empty())
            << "python3 tests/support/net/http_test_server.py did not start";
    }
    static std::string url(const std::string& path) { return "http://127.0.0.1:" + s_port + path; }

    // binaryRequest to the path: "status method-the-server-saw body", then
    // " @path" when the answer came from elsewhere; or the error lines, with
    // the response buffer checked to be as it was.
    static std::string send(ClsHttp& http, const char* verb, const std::string& path,
                            const std::string& body, const char* contentType,
                            const char* extra = nullptr, bool follow = false, bool gzip = false) {
        XString u(url(path).c_str()), ct(contentType);
        DataBuffer req, out;
        HttpResult r;
        LogTree log;
        out.append("keep", 4);
        req.append(body.data(), static_cast<unsigned>(body.size()));
        if (!http.binaryRequest(verb, u, extra, req, ct, follow, gzip, r, out, nullptr, log))
            return ovtest::errors(log) + (bytes(out) == "keep" ? "" : " (response changed)");
        StringBuffer at;
        r.getFinalUrl(at);
        const std::string moved = at.equals(url(path).c_str())
                                      ? ""
                                      : " @" + std::string(at.getString()).substr(url("").size());
        return std::to_string(r.get_StatusCode()) + " " + header(r, "X-Echo-Method") + " " +
               bytes(out).substr(4) + moved + ovtest::errors(log);
    }

    static inline ovtest::PeerProcess s_server;  // stopped when the program ends
    static inline std::string s_port;
};

TEST_F(HttpPeerTest, QuickGetTakesOnlyWholeSuccessfulBodies) {
    const char* protocol = "The URL's protocol is not supported (only http and https are).";
    struct Case {
        std::string url;
        const char *error, *status;  // the logged "statusCode"
        size_t size = 0;             // of the body on success
    } cases[] = {
        {url("/bytes/0"), "", "200", 0},
        {url("/chunked/4096"), "", "200", 4096},
        {url("/redirect/5"), "", "200", 100},
        {url("/status/404"), "The server did not answer with a success status (2xx).", "404"},
        {url("/redirect/6"), "Too many redirects.", "302"},
        {url("/slow/20"), "The HTTP request timed out.", "-"},
        {url("/truncated"), "The connection closed before the whole response arrived.", "200"},
        {url("/chunked/4097"), "The response is larger than the maximum response size.", "200"},
        {"http://127.0.0.1:1/x", "Failed to connect to the server.", "-"},
        {"http://no-such-host.invalid/crl", "Failed to resolve the host name.", "-"},
        {"file:///etc/hostname", protocol, "-"},
        {url("/redirect-file"), protocol, "302"},
        {"", "No URL given.", "-"},
    };
    ClsHttp http;  // one client for all: connections are reused between cases
    http.put_MaxResponseSize(4096);
    for (const auto& c : cases) {
        http.put_TimeoutMs(c.url.find("/slow/") != std::string::npos ? 700 : 0);
        XString u(c.url.c_str());
        DataBuffer out;
        out.append("keep", 4);
        LogTree log;
        EXPECT_EQ(http.quickGet(u, out, nullptr, log), !*c.error) << c.url;
        EXPECT_EQ(bytes(out), "keep" + pattern(c.size)) << c.url;
        std::string logged = "-", status = "-";
        log.findData("url", logged);
        log.findData("statusCode", status);
        EXPECT_EQ(ovtest::errors(log) + " [" + logged + " " + status,
                  std::string(c.error) + " [" + c.url + " " + c.status);
    }
    http.put_MaxRedirects(6);
    XString u(url("/redirect/6").c_str());
    DataBuffer out;
    LogTree log;
    EXPECT_TRUE(http.quickGet(u, out, nullptr, log)) << log.text();
}

TEST_F(HttpPeerTest, BinaryRequestSendsWhatItIsGivenAndCompletesWhateverTheStatus) {
    const std::string bin("\x30\x00\x01\xff\r\n bin", 10);
    const char* badHeaders = "The extra request headers are malformed.";
    struct Case {
        const char *verb, *path, *contentType, *extra;
        bool follow;
        std::string want;  // see send()
    } cases[] = {
        {"POST", "/echo", "application/ocsp-request", nullptr, false, "200 POST " + bin},
        {"PUT", "/echo", "text/plain; charset=utf-8", nullptr, false, "200 PUT " + bin},
        {"POST", "/status/503", "a/b", nullptr, false, "503 - <html>error page 503</html>"},
        {"HEAD", "/bytes/10", "", nullptr, false, "200 - "},
        {"POST", "/redirect-to/301", "a/b", nullptr, true, "200 POST " + bin + " @/echo"},
        {"POST", "/redirect-to/302", "a/b", nullptr, true, "200 POST " + bin + " @/echo"},
        {"POST", "/redirect-to/303", "a/b", nullptr, true, "200 GET  @/echo"},
        {"POST", "/redirect-to/307", "a/b", nullptr, true, "200 POST " + bin + " @/echo"},
        {"POST", "/redirect-to/307", "a/b", nullptr, false, "307 - "},
        {"PO ST", "/echo", "a/b", nullptr, false, "The HTTP verb is not valid."},
        {nullptr, "/echo", "a/b", nullptr, false, "The HTTP verb is not valid."},
        {"POST", "/echo", "a/b\r\nX: 1", nullptr, false,
         "A request header value holds a line break."},
        {"POST", "/echo", "a/b", "NoColon", false, badHeaders},
        {"POST", "/echo", "a/b", "Bad Name: v", false, badHeaders},
        {"POST", "/echo", "a/b", "X-A: 1\rX-B: 2", false, badHeaders},
    };
    ClsHttp http;
    for (const auto& c : cases) {
        const std::string body = strcmp(c.path, "/bytes/10") ? bin : "";
        EXPECT_EQ(send(http, c.verb, c.path, body, c.contentType, c.extra, c.follow), c.want)
            << (c.verb ? c.verb : "null") << " " << c.path << " " << c.contentType;
    }
}

TEST_F(HttpPeerTest, HeadersUserAgentAndCompression) {
    ClsHttp http;
    std::string seen = send(http, "GET", "/headers", "", "", "X-One: 1\r\nX-Two: a b\n\n");
    for (const char* line : {"X-One: 1\n", "X-Two: a b\n", "User-Agent: orvane-http/1.0\n"})
        EXPECT_NE(seen.find(line), std::string::npos) << seen;
    EXPECT_EQ(seen.find("Content-Type"), std::string::npos) << seen;  // no body, no type
    ASSERT_TRUE(http.put_UserAgent("probe/2"));
    seen = send(http, "GET", "/headers", "", "");
    EXPECT_NE(seen.find("User-Agent: probe/2\n"), std::string::npos) << seen;
    EXPECT_EQ(send(http, "GET", "/gzip", "", "", nullptr, false, true), "200 - " + pattern(5000));
    EXPECT_EQ(send(http, "GET", "/gzip", "", "").substr(0, 8), "200 - \x1f\x8b");  // as sent
    // Nothing of one request (verb, body, type, headers) is left for the next.
    EXPECT_EQ(send(http, "PUT", "/echo", "abc", "a/b", "X-Once: 1"), "200 PUT abc");
    seen = send(http, "GET", "/headers", "", "");
    EXPECT_EQ(seen.find("X-Once"), std::string::npos) << seen;
    EXPECT_EQ(seen.find("Content-Type"), std::string::npos) << seen;
    EXPECT_EQ(send(http, "GET", "/echo", "", ""), "200 GET ");
    ASSERT_TRUE(http.put_UserAgent("ua\nX-Evil: 1"));
    EXPECT_EQ(send(http, "GET", "/echo", "", ""), "A request header value holds a line break.");
}

struct RecordingProgress : ProgressEvent {
    std::vector<int> percents;
    int abortAtPercent = 1000, checks = 0;
    bool abortOnCheck = false;
    bool onPercentDone(int pct) override {
        percents.push_back(pct);
        return pct >= abortAtPercent;
    }
    bool onAbortCheck() override { return ++checks, abortOnCheck; }
};

TEST_F(HttpPeerTest, ProgressIsReportedAndCanAbort) {
    ClsHttp http;
    XString big(url("/bytes/2000000").c_str()), slow(url("/slow/20").c_str());
    RecordingProgress all, atZero, waiting;
    atZero.abortAtPercent = 0;
    waiting.abortOnCheck = true;  // ends the wait for a server that answers after 20 s
    DataBuffer out;
    LogTree log;
    ASSERT_TRUE(http.quickGet(big, out, &all, log)) << log.text();
    EXPECT_TRUE(std::is_sorted(all.percents.begin(), all.percents.end()));
    EXPECT_EQ(all.percents.empty() ? -1 : all.percents.back(), 100);
    EXPECT_GT(all.checks, 0);
    for (auto* p : {&atZero, &waiting}) {
        DataBuffer keep;
        keep.append("keep", 4);
        LogTree alog;
        EXPECT_FALSE(http.quickGet(p == &atZero ? big : slow, keep, p, alog));
        EXPECT_TRUE(alog.hasError("The HTTP request was aborted by the application."));
        EXPECT_EQ(bytes(keep), "keep");
    }
}

// The destructor's clearing store must survive optimisation (stores into an
// object being destroyed are candidates for elimination), so the memory is
// read afterwards through storage we own.
TEST(ClsHttp, ValidityMarkerDiesWithTheObject) {
    alignas(ClsHttp) unsigned char storage[sizeof(ClsHttp)];
    ClsHttp* p = new (storage) ClsHttp();
    EXPECT_TRUE(p->isValidObject() && p->m_magic == 0x991144AAu);
    const size_t offset = reinterpret_cast<unsigned char*>(&p->m_magic) - storage;
    p->~ClsHttp();
    unsigned after;
    memcpy(&after, storage + offset, sizeof after);
    EXPECT_NE(after, 0x991144AAu);
}

// The lines as libcurl hands them over: a redirect and an interim answer
// before the last response, folded and blank-padded values, lines that are no
// header at all.
TEST(HttpResult, KeepsTheLastResponsesHeaders) {
    HttpResult r;
    for (const char* l :
         {"HTTP/1.1 302 Found\r\n", "Location: /x\r\n", "\r\n", "HTTP/1.1 100 Continue\r\n", "\r\n",
          "HTTP/2 201\r\n", "A :  spaced value \t\r\n", "X-Long: first\r\n", "\t second\r\n",
          "no colon\r\n", ": no name\r\n", "Location: http://h:8080/p\n", "set-cookie: a=1",
          "Set-Cookie: b=2"}) {
        ASSERT_TRUE(r.addHeaderLine(l, strlen(l)));
    }
    StringBuffer s;
    r.getStatusLine(s);
    for (int i = 0; i <= r.get_NumHeaders(); ++i)
        s.append(s.append(";") && r.getHeaderName(i, s) && s.append("=") && r.getHeaderValue(i, s)
                     ? ""
                     : "!");
    EXPECT_STREQ(s.getString(),
                 "HTTP/2 201;A=spaced value;X-Long=first second;"
                 "Location=http://h:8080/p;set-cookie=a=1;Set-Cookie=b=2;!");
    EXPECT_EQ(header(r, "SET-COOKIE"), "a=1");  // case-blind, the first wins
    r.clear();
    EXPECT_EQ(r.get_StatusCode() + r.get_NumHeaders(), 0);
}

}  // namespace
