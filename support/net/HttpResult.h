// HttpResult: the status and headers of one HTTP response.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/base/OrvaneObject.h"

class StringBuffer;

// Filled by ClsHttp for each request it sends (cleared first). When redirects are
// followed it describes the last response only. Single owner.
class HttpResult : public NonRefCountedObj {
  public:
    HttpResult() = default;
    ~HttpResult() override = default;

    // The response status code (200, 404, ...); 0 before any response arrived.
    int get_StatusCode() const { return m_statusCode; }
    // Appends the status line as received, without its line end ("HTTP/1.1 200 OK").
    bool getStatusLine(StringBuffer& out) const;
    // Appends the URL of the last response (after redirects).
    bool getFinalUrl(StringBuffer& out) const;

    int get_NumHeaders() const { return static_cast<int>(m_headers.size()); }
    // Appends the name / the value of the i-th header, in arrival order. False
    // for an index out of range.
    bool getHeaderName(int i, StringBuffer& out) const;
    bool getHeaderValue(int i, StringBuffer& out) const;
    // Appends the value of the first header with this name (compared without
    // regard to case); false when there is none.
    bool getHeaderField(const char* name, StringBuffer& out) const;

    void clear();

    // For the client while it receives. addHeaderLine takes one raw header line
    // (line end included or not): a status line starts a new response and drops
    // the headers of any earlier one (an interim 100 or a redirect); a line that
    // starts with a blank continues the previous value. False when memory is
    // exhausted.
    bool addHeaderLine(const char* line, size_t n);
    void setStatusCode(int code) { m_statusCode = code; }
    bool setFinalUrl(const char* url);

  private:
    int m_statusCode = 0;
    std::string m_statusLine;
    std::string m_finalUrl;
    std::vector<std::pair<std::string, std::string>> m_headers;
};
