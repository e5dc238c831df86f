#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/base/StringBuffer.h"
#include "support/net/HttpResult.h"

namespace {

std::string field(const HttpResult& r, const char* name) {
    StringBuffer sb;
    return r.getHeaderField(name, sb) ? sb.getString() : "<none>";
}

std::string listing(const HttpResult& r) {
    std::string s;
    for (int i = 0; i < r.get_NumHeaders(); ++i) {
        StringBuffer n, v;
        EXPECT_TRUE(r.getHeaderName(i, n));
        EXPECT_TRUE(r.getHeaderValue(i, v));
        s += std::string(n.getString()) + "=" + v.getString() + ";";
    }
    return s;
}

TEST(HttpResult, HeaderLinesAsLibcurlDeliversThem) {
    struct Case {
        const char* name;
        std::vector<const char*> lines;
        const char* statusLine;
        const char* headers;
    };
    const Case cases[] = {
        {"one response",
         {"HTTP/1.1 200 OK\r\n", "Content-Type: a/b\r\n", "Content-Length: 5\r\n", "\r\n"},
         "HTTP/1.1 200 OK",
         "Content-Type=a/b;Content-Length=5;"},
        {"a redirect's headers are dropped with its status",
         {"HTTP/1.1 302 Found\r\n", "Location: /x\r\n", "\r\n", "HTTP/1.1 200 OK\r\n",
          "X-Final: 1\r\n", "\r\n"},
         "HTTP/1.1 200 OK",
         "X-Final=1;"},
        {"interim 100 Continue",
         {"HTTP/1.1 100 Continue\r\n", "\r\n", "HTTP/2 201\r\n", "Y: 2\r\n"},
         "HTTP/2 201",
         "Y=2;"},
        {"blanks around names and values",
         {"HTTP/1.0 200 OK\n", "A :  spaced value \t\r\n", "B:tight\n"},
         "HTTP/1.0 200 OK",
         "A=spaced value;B=tight;"},
        {"folded continuation",
         {"HTTP/1.1 200 OK\r\n", "X-Long: first\r\n", "\t second\r\n", "  third\r\n"},
         "HTTP/1.1 200 OK",
         "X-Long=first second third;"},
        {"lines that are no header are skipped",
         {"HTTP/1.1 200 OK\r\n", "garbage without colon\r\n", ": no name\r\n", "Ok: 1\r\n"},
         "HTTP/1.1 200 OK",
         "Ok=1;"},
        {"colons inside the value stay",
         {"HTTP/1.1 200 OK\r\n", "Location: http://h:8080/p\r\n"},
         "HTTP/1.1 200 OK",
         "Location=http://h:8080/p;"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HttpResult r;
        for (const char* l : c.lines) ASSERT_TRUE(r.addHeaderLine(l, strlen(l)));
        StringBuffer sl;
        r.getStatusLine(sl);
        EXPECT_STREQ(sl.getString(), c.statusLine);
        EXPECT_EQ(listing(r), c.headers);
    }
}

TEST(HttpResult, LookupIgnoresCaseAndTakesTheFirst) {
    HttpResult r;
    for (const char* l : {"HTTP/1.1 200 OK", "Set-Cookie: a=1", "set-cookie: b=2", "ETag: \"x\""}) {
        ASSERT_TRUE(r.addHeaderLine(l, strlen(l)));
    }
    EXPECT_EQ(field(r, "SET-COOKIE"), "a=1");
    EXPECT_EQ(field(r, "etag"), "\"x\"");
    EXPECT_EQ(field(r, "Missing"), "<none>");
    EXPECT_EQ(field(r, nullptr), "<none>");
    StringBuffer sb;
    EXPECT_FALSE(r.getHeaderName(3, sb));
    EXPECT_FALSE(r.getHeaderValue(-1, sb));

    r.setStatusCode(200);
    r.clear();
    EXPECT_EQ(r.get_StatusCode(), 0);
    EXPECT_EQ(r.get_NumHeaders(), 0);
}

}  // namespace
