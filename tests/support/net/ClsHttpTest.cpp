#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
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

namespace {

// The bytes the test server sends for /bytes/N and /chunked/N.
std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + 3) & 0xFF);
    return s;
}

std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

std::string header(const HttpResult& r, const char* name) {
    StringBuffer sb;
    if (!r.getHeaderField(name, sb)) return "<none>";
    return sb.getString();
}

std::string dataOf(const LogTree& log, const char* name) {
    std::string v;
    return log.findData(name, v) ? v : "<none>";
}

// A port on 127.0.0.1 where nobody listens: bound by us, then released.
int unusedPort() {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = -1;
    if (bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        port = ntohs(a.sin_port);
    }
    close(s);
    return port;
}

class HttpPeerTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        // The requests go to 127.0.0.1 directly; a proxy from the environment
        // would otherwise receive them.
        for (const char* v :
             {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
            unsetenv(v);
        }
        std::string python = ovtest::findProgram("python3");
        if (python.empty()) return;
        s_server = new ovtest::PeerProcess;
        std::string script = std::string(OV_SOURCE_DIR) + "/tests/support/net/http_test_server.py";
        std::string line;
        if (s_server->start({python, script}) && s_server->readLine(line, 15000)) s_port = line;
    }
    static void TearDownTestSuite() {
        delete s_server;
        s_server = nullptr;
    }
    void SetUp() override {
        ASSERT_FALSE(s_port.empty())
            << "the HTTP test server (python3 tests/support/net/http_test_server.py) did not start";
    }

    static std::string url(const std::string& path) { return "http://127.0.0.1:" + s_port + path; }

    static ovtest::PeerProcess* s_server;
    static std::string s_port;
};

ovtest::PeerProcess* HttpPeerTest::s_server = nullptr;
std::string HttpPeerTest::s_port;

TEST_F(HttpPeerTest, QuickGetAppendsTheBody) {
    struct Case {
        const char* name;
        const char* path;
        size_t size;
    };
    const Case cases[] = {
        {"empty body", "/bytes/0", 0},
        {"one byte", "/bytes/1", 1},
        {"larger than one read", "/bytes/300000", 300000},
        {"chunked without length", "/chunked/70001", 70001},
        {"three redirects", "/redirect/3", 100},
    };
    ClsHttp http;  // one client for all: connections are reused between cases
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString u(url(c.path).c_str());
        DataBuffer out;
        out.append("prefix", 6);
        LogTree log;
        ASSERT_TRUE(http.quickGet(u, out, nullptr, log)) << log.text();
        EXPECT_EQ(str(out), "prefix" + pattern(c.size));
        EXPECT_FALSE(log.hasErrors());
        EXPECT_EQ(dataOf(log, "statusCode"), "200");
    }
}

TEST_F(HttpPeerTest, QuickGetFailuresLeaveTheBufferAndSayWhy) {
    const char* notOk = "The server did not answer with a success status (2xx).";
    struct Case {
        const char* name;
        std::string url;
        const char* error;
        const char* status;  // logged "statusCode", or "<none>"
        unsigned timeoutMs;
        unsigned maxSize;
    };
    const Case cases[] = {
        {"not found", url("/status/404"), notOk, "404", 0, 0},
        {"server error", url("/status/500"), notOk, "500", 0, 0},
        {"redirect without location", url("/status/302"), notOk, "302", 0, 0},
        {"redirect loop", url("/loop"), "Too many redirects.", "302", 0, 0},
        {"chain longer than allowed", url("/redirect/6"), "Too many redirects.", "302", 0, 0},
        {"slower than the timeout", url("/slow/20"), "The HTTP request timed out.", "<none>", 700,
         0},
        {"closed mid-body", url("/truncated"),
         "The connection closed before the whole response arrived.", "200", 0, 0},
        {"announced body too large", url("/bytes/5000"),
         "The response is larger than the maximum response size.", "200", 0, 4096},
        {"chunked body too large", url("/chunked/50000"),
         "The response is larger than the maximum response size.", "200", 0, 4096},
        {"connection refused", "http://127.0.0.1:" + std::to_string(unusedPort()) + "/x",
         "Failed to connect to the server.", "<none>", 0, 0},
        {"name that cannot resolve", "http://no-such-host.invalid/crl",
         "Failed to resolve the host name.", "<none>", 0, 0},
        {"file URL", "file:///etc/hostname",
         "The URL's protocol is not supported (only http and https are).", "<none>", 0, 0},
        {"ldap URL", "ldap://127.0.0.1/cn=x?certificateRevocationList",
         "The URL's protocol is not supported (only http and https are).", "<none>", 0, 0},
        {"redirect to a file URL", url("/redirect-file"),
         "The URL's protocol is not supported (only http and https are).", "302", 0, 0},
        {"empty URL", "", "No URL given.", "<none>", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsHttp http;
        if (c.timeoutMs) http.put_TimeoutMs(c.timeoutMs);
        if (c.maxSize) http.put_MaxResponseSize(c.maxSize);
        XString u(c.url.c_str());
        DataBuffer out;
        out.append("keep", 4);
        LogTree log;
        EXPECT_FALSE(http.quickGet(u, out, nullptr, log));
        EXPECT_EQ(str(out), "keep");
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
        EXPECT_EQ(dataOf(log, "url"), c.url);
        EXPECT_EQ(dataOf(log, "statusCode"), c.status) << log.text();
    }
}

TEST_F(HttpPeerTest, RedirectLimitIsASetting) {
    ClsHttp http;
    XString u(url("/redirect/6").c_str());
    DataBuffer out;
    LogTree log;
    http.put_MaxRedirects(6);
    EXPECT_TRUE(http.quickGet(u, out, nullptr, log)) << log.text();
    EXPECT_EQ(str(out), pattern(100));
    http.put_MaxRedirects(0);
    EXPECT_FALSE(http.quickGet(u, out, nullptr, log));
}

TEST_F(HttpPeerTest, BinaryRequestSendsVerbBodyAndContentType) {
    std::string body("\x30\x00\x01\xff\r\n binary", 13);
    struct Case {
        const char* name;
        const char* verb;
        const char* contentType;
        std::string body;
    };
    const Case cases[] = {
        {"POST", "POST", "application/ocsp-request", body},
        {"PUT", "PUT", "application/octet-stream", body},
        {"PATCH", "PATCH", "text/plain; charset=utf-8", "text"},
        {"DELETE with a body", "DELETE", "application/json", "{}"},
        {"POST without a body", "POST", "application/ocsp-request", ""},
        {"POST without a content type", "POST", "", body},
    };
    ClsHttp http;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString u(url("/echo").c_str());
        XString ct(c.contentType);
        DataBuffer req, resp;
        req.append(c.body.data(), static_cast<unsigned>(c.body.size()));
        HttpResult result;
        LogTree log;
        ASSERT_TRUE(http.binaryRequest(c.verb, u, nullptr, req, ct, false, false, result, resp,
                                       nullptr, log))
            << log.text();
        EXPECT_EQ(result.get_StatusCode(), 200);
        EXPECT_EQ(str(resp), c.body);
        EXPECT_EQ(header(result, "x-echo-method"), c.verb);
        EXPECT_EQ(header(result, "X-Echo-Content-Type"), c.contentType);
    }
}

TEST_F(HttpPeerTest, BinaryRequestCompletesWhateverTheStatus) {
    struct Case {
        const char* name;
        const char* path;
        int status;
        const char* body;
    };
    const Case cases[] = {
        {"not found", "/status/404", 404, "<html>error page 404</html>"},
        {"server error", "/status/500", 500, "<html>error page 500</html>"},
        {"unavailable", "/status/503", 503, "<html>error page 503</html>"},
    };
    ClsHttp http;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString u(url(c.path).c_str());
        XString ct("application/ocsp-request");
        DataBuffer req, resp;
        req.append("x", 1);
        HttpResult result;
        LogTree log;
        EXPECT_TRUE(http.binaryRequest("POST", u, nullptr, req, ct, false, false, result, resp,
                                       nullptr, log));
        EXPECT_EQ(result.get_StatusCode(), c.status);
        EXPECT_EQ(str(resp), c.body);
        EXPECT_FALSE(log.hasErrors()) << log.text();
    }
}

TEST_F(HttpPeerTest, BinaryRequestRedirects) {
    struct Case {
        const char* name;
        int code;
        bool follow;
        int wantStatus;
        const char* wantMethod;
        bool wantBody;
    };
    const Case cases[] = {
        {"307 keeps verb and body", 307, true, 200, "POST", true},
        {"308 keeps verb and body", 308, true, 200, "POST", true},
        {"301 keeps verb and body", 301, true, 200, "POST", true},
        {"302 keeps verb and body", 302, true, 200, "POST", true},
        {"303 turns into GET", 303, true, 200, "GET", false},
        {"not followed", 307, false, 307, "<none>", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsHttp http;
        XString u(url("/redirect-to/" + std::to_string(c.code)).c_str());
        XString ct("application/ocsp-request");
        DataBuffer req, resp;
        req.append("payload", 7);
        HttpResult result;
        LogTree log;
        ASSERT_TRUE(http.binaryRequest("POST", u, nullptr, req, ct, c.follow, false, result, resp,
                                       nullptr, log))
            << log.text();
        EXPECT_EQ(result.get_StatusCode(), c.wantStatus);
        EXPECT_EQ(header(result, "X-Echo-Method"), c.wantMethod);
        EXPECT_EQ(str(resp), c.wantBody ? "payload" : "");
        StringBuffer finalUrl;
        result.getFinalUrl(finalUrl);
        EXPECT_EQ(finalUrl.getString(), c.follow ? url("/echo") : url("/redirect-to/307"));
        if (!c.follow) {
            EXPECT_EQ(header(result, "Location"), "/echo");
        }
    }
}

TEST_F(HttpPeerTest, HeadersUserAgentAndCompression) {
    ClsHttp http;
    XString u(url("/headers").c_str());
    XString none;
    DataBuffer empty, resp;
    HttpResult result;
    LogTree log;
    ASSERT_TRUE(http.binaryRequest("GET", u, "X-One: 1\r\nX-Two: two words\n\n", empty, none, false,
                                   false, result, resp, nullptr, log))
        << log.text();
    std::string seen = str(resp);
    EXPECT_NE(seen.find("X-One: 1\n"), std::string::npos) << seen;
    EXPECT_NE(seen.find("X-Two: two words\n"), std::string::npos) << seen;
    EXPECT_NE(seen.find("User-Agent: orvane-http/1.0\n"), std::string::npos) << seen;
    EXPECT_EQ(seen.find("Content-Type"), std::string::npos) << seen;  // no body, no type

    ASSERT_TRUE(http.put_UserAgent("probe/2"));
    resp.clear();
    ASSERT_TRUE(http.binaryRequest("GET", u, nullptr, empty, none, false, false, result, resp,
                                   nullptr, log));
    EXPECT_NE(str(resp).find("User-Agent: probe/2\n"), std::string::npos) << str(resp);

    XString gz(url("/gzip").c_str());
    resp.clear();
    ASSERT_TRUE(http.binaryRequest("GET", gz, nullptr, empty, none, false, true, result, resp,
                                   nullptr, log));
    EXPECT_EQ(str(resp), pattern(5000));
    resp.clear();
    ASSERT_TRUE(http.binaryRequest("GET", gz, nullptr, empty, none, false, false, result, resp,
                                   nullptr, log));
    ASSERT_GE(resp.getSize(), 2u);
    EXPECT_EQ(resp.getData2()[0], 0x1f);  // gzip magic: passed through undecoded
    EXPECT_EQ(resp.getData2()[1], 0x8b);

    XString b(url("/bytes/10").c_str());
    resp.clear();
    ASSERT_TRUE(http.binaryRequest("HEAD", b, nullptr, empty, none, false, false, result, resp,
                                   nullptr, log));
    EXPECT_EQ(result.get_StatusCode(), 200);
    EXPECT_EQ(resp.getSize(), 0u);
    EXPECT_EQ(header(result, "content-length"), "10");
    EXPECT_FALSE(log.hasErrors()) << log.text();
}

TEST_F(HttpPeerTest, MalformedRequestsAreRefusedBeforeSending) {
    struct Case {
        const char* name;
        const char* verb;
        const char* extra;
        const char* contentType;
        const char* error;
    };
    const Case cases[] = {
        {"verb with a space", "PO ST", nullptr, "a/b", "The HTTP verb is not valid."},
        {"empty verb", "", nullptr, "a/b", "The HTTP verb is not valid."},
        {"null verb", nullptr, nullptr, "a/b", "The HTTP verb is not valid."},
        {"content type with a line break", "POST", nullptr, "a/b\r\nX-Evil: 1",
         "A request header value holds a line break."},
        {"header line without a colon", "POST", "NoColon", "a/b",
         "The extra request headers are malformed."},
        {"header name with a space", "POST", "Bad Name: v", "a/b",
         "The extra request headers are malformed."},
        {"bare CR inside a header", "POST", "X-A: 1\rX-B: 2", "a/b",
         "The extra request headers are malformed."},
    };
    ClsHttp http;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        XString u(url("/echo").c_str());
        XString ct(c.contentType);
        DataBuffer req, resp;
        req.append("x", 1);
        resp.append("keep", 4);
        HttpResult result;
        LogTree log;
        EXPECT_FALSE(http.binaryRequest(c.verb, u, c.extra, req, ct, false, false, result, resp,
                                        nullptr, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1);
        EXPECT_EQ(str(resp), "keep");
        EXPECT_EQ(result.get_StatusCode(), 0);
    }
    // A bad user agent is refused the same way.
    ASSERT_TRUE(http.put_UserAgent("ua\nX-Evil: 1"));
    XString u(url("/bytes/1").c_str());
    DataBuffer out;
    LogTree log;
    EXPECT_FALSE(http.quickGet(u, out, nullptr, log));
    EXPECT_TRUE(log.hasError("A request header value holds a line break.")) << log.text();
}

TEST_F(HttpPeerTest, NothingOfOneRequestLeaksIntoTheNext) {
    ClsHttp http;
    XString echo(url("/echo").c_str());
    XString ct("application/x-one");
    XString none;
    DataBuffer body, empty;
    body.append("abc", 3);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        HttpResult result;
        DataBuffer resp;
        LogTree log;
        ASSERT_TRUE(http.binaryRequest("PUT", echo, "X-Once: 1", body, ct, false, false, result,
                                       resp, nullptr, log));
        EXPECT_EQ(header(result, "X-Echo-Method"), "PUT");

        // A plain GET on the same client: no verb, body, type or header left over.
        resp.clear();
        ASSERT_TRUE(http.binaryRequest("GET", echo, nullptr, empty, none, false, false, result,
                                       resp, nullptr, log));
        EXPECT_EQ(header(result, "X-Echo-Method"), "GET");
        EXPECT_EQ(header(result, "X-Echo-Content-Type"), "");
        EXPECT_EQ(str(resp), "");

        XString missing(url("/status/404").c_str());
        XString good(url("/bytes/64").c_str());
        DataBuffer out;
        EXPECT_FALSE(http.quickGet(missing, out, nullptr, log));
        EXPECT_TRUE(http.quickGet(good, out, nullptr, log));
        EXPECT_EQ(str(out), pattern(64));
    }
}

struct RecordingProgress : ProgressEvent {
    std::vector<int> percents;
    int abortAtPercent = 1000;
    int abortChecks = 0;
    bool abortOnCheck = false;
    bool onPercentDone(int pct) override {
        percents.push_back(pct);
        return pct >= abortAtPercent;
    }
    bool onAbortCheck() override {
        ++abortChecks;
        return abortOnCheck;
    }
};

TEST_F(HttpPeerTest, ProgressIsReportedAndCanAbort) {
    ClsHttp http;
    XString big(url("/bytes/2000000").c_str());
    {
        RecordingProgress p;
        DataBuffer out;
        LogTree log;
        ASSERT_TRUE(http.quickGet(big, out, &p, log)) << log.text();
        ASSERT_FALSE(p.percents.empty());
        for (size_t i = 1; i < p.percents.size(); ++i) EXPECT_LT(p.percents[i - 1], p.percents[i]);
        EXPECT_GE(p.percents.front(), 0);
        EXPECT_EQ(p.percents.back(), 100);
        EXPECT_GT(p.abortChecks, 0);
    }
    {
        RecordingProgress p;
        p.abortAtPercent = 0;
        DataBuffer out;
        out.append("keep", 4);
        LogTree log;
        EXPECT_FALSE(http.quickGet(big, out, &p, log));
        EXPECT_TRUE(log.hasError("The HTTP request was aborted by the application.")) << log.text();
        EXPECT_EQ(str(out), "keep");
    }
    {
        // An abort while waiting for a slow server ends the wait: the server
        // would otherwise answer 200 after 20 seconds, well inside the timeout.
        RecordingProgress p;
        p.abortOnCheck = true;
        XString slow(url("/slow/20").c_str());
        DataBuffer out;
        LogTree log;
        EXPECT_FALSE(http.quickGet(slow, out, &p, log));
        EXPECT_TRUE(log.hasError("The HTTP request was aborted by the application.")) << log.text();
    }
}

TEST(ClsHttp, ValidityMarkerLivesWithTheObject) {
    ClsHttp* h = ClsHttp::createNewCls();
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->m_magic, 0x991144AAu);
    EXPECT_TRUE(h->isValidObject());
    EXPECT_TRUE(h->decRefCount());

    // The destructor's clearing store must survive optimisation (stores into an
    // object that is being destroyed are candidates for elimination), so look
    // at the memory after destruction through storage we own.
    alignas(ClsHttp) unsigned char storage[sizeof(ClsHttp)];
    ClsHttp* p = new (storage) ClsHttp();
    const size_t offset = reinterpret_cast<unsigned char*>(&p->m_magic) - storage;
    p->~ClsHttp();
    unsigned after;
    memcpy(&after, storage + offset, sizeof after);
    EXPECT_NE(after, 0x991144AAu);
}

}  // namespace
