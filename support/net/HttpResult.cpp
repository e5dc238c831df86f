#include "support/net/HttpResult.h"

#include <strings.h>

#include "support/base/StringBuffer.h"

namespace {

bool appendStd(StringBuffer& out, const std::string& s) {
    return out.appendN(s.data(), static_cast<unsigned>(s.size()));
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string trimmed(const char* p, size_t n) {
    size_t b = 0;
    while (b < n && isBlank(p[b])) ++b;
    while (n > b && (isBlank(p[n - 1]) || p[n - 1] == '\r' || p[n - 1] == '\n')) --n;
    return std::string(p + b, n - b);
}

}  // namespace

bool HttpResult::getStatusLine(StringBuffer& out) const {
    return appendStd(out, m_statusLine);
}

bool HttpResult::getFinalUrl(StringBuffer& out) const {
    return appendStd(out, m_finalUrl);
}

bool HttpResult::getHeaderName(int i, StringBuffer& out) const {
    if (i < 0 || i >= get_NumHeaders()) return false;
    return appendStd(out, m_headers[static_cast<size_t>(i)].first);
}

bool HttpResult::getHeaderValue(int i, StringBuffer& out) const {
    if (i < 0 || i >= get_NumHeaders()) return false;
    return appendStd(out, m_headers[static_cast<size_t>(i)].second);
}

bool HttpResult::getHeaderField(const char* name, StringBuffer& out) const {
    if (!name) return false;
    for (const auto& h : m_headers) {
        if (strcasecmp(h.first.c_str(), name) == 0) return appendStd(out, h.second);
    }
    return false;
}

void HttpResult::clear() {
    m_statusCode = 0;
    m_statusLine.clear();
    m_finalUrl.clear();
    m_headers.clear();
}

bool HttpResult::setFinalUrl(const char* url) {
    try {
        m_finalUrl = url ? url : "";
        return true;
    } catch (...) {
        return false;
    }
}

bool HttpResult::addHeaderLine(const char* line, size_t n) {
    try {
        if (!line) return false;
        std::string text = trimmed(line, n);
        if (text.empty()) return true;  // the blank line that ends a header block
        if (text.compare(0, 5, "HTTP/") == 0) {
            m_statusLine = text;
            m_headers.clear();
            return true;
        }
        if (isBlank(line[0])) {
            // Obsolete line folding: the line continues the previous value.
            if (!m_headers.empty()) m_headers.back().second += " " + text;
            return true;
        }
        size_t colon = text.find(':');
        if (colon == std::string::npos || colon == 0) return true;  // not a header: ignored
        std::string name = trimmed(text.data(), colon);
        std::string value = trimmed(text.data() + colon + 1, text.size() - colon - 1);
        m_headers.emplace_back(std::move(name), std::move(value));
        return true;
    } catch (...) {
        return false;
    }
}
