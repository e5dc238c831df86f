#include "support/net/ClsHttp.h"

#include <cstring>
#include <new>
#include <string>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/ProgressEvent.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/net/HttpResult.h"
#include "support/net/OcspRequestEncoder.h"

struct ClsHttp::Request {
    const char* url = nullptr;
    const char* verb = "GET";
    const DataBuffer* body = nullptr;  // null: nothing to send
    const char* contentType = nullptr;
    const char* extraHeaders = nullptr;
    bool followRedirects = true;
    bool allowCompression = false;
    HttpResult* result = nullptr;
    DataBuffer* out = nullptr;
    ProgressEvent* progress = nullptr;
};

namespace {

const char* const kDefaultUserAgent = "orvane-http/1.0";

}  // namespace

// What the libcurl callbacks see of one transfer.
struct ClsHttp::Transfer {
    DataBuffer* out = nullptr;
    unsigned startSize = 0;
    unsigned maxSize = 0;
    bool tooLarge = false;
    bool noMemory = false;
    HttpResult* result = nullptr;
    ProgressEvent* progress = nullptr;
    int lastPercent = -1;
    bool aborted = false;
};

namespace {
using Transfer = ClsHttp::Transfer;

size_t onBody(char* p, size_t size, size_t nmemb, void* userdata) {
    Transfer* t = static_cast<Transfer*>(userdata);
    size_t n = size * nmemb;
    unsigned have = t->out->getSize() - t->startSize;
    if (n > t->maxSize - have) {
        t->tooLarge = true;
        return 0;  // anything but n makes libcurl abort the transfer
    }
    if (!t->out->append(p, static_cast<unsigned>(n))) {
        t->noMemory = true;
        return 0;
    }
    return n;
}

size_t onHeader(char* p, size_t size, size_t nitems, void* userdata) {
    Transfer* t = static_cast<Transfer*>(userdata);
    size_t n = size * nitems;
    if (!t->result->addHeaderLine(p, n)) {
        t->noMemory = true;
        return 0;
    }
    return n;
}

int onProgress(void* userdata, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t, curl_off_t) {
    Transfer* t = static_cast<Transfer*>(userdata);
    if (dlTotal > 0) {
        curl_off_t pct = dlNow >= dlTotal ? 100 : dlNow * 100 / dlTotal;
        if (pct > t->lastPercent) {
            t->lastPercent = static_cast<int>(pct);
            if (t->progress->onPercentDone(t->lastPercent)) t->aborted = true;
        }
    }
    if (!t->aborted && t->progress->onAbortCheck()) t->aborted = true;
    return t->aborted ? 1 : 0;
}

// RFC 9110 token characters: what a method or a header name may be made of.
bool isToken(const char* s, size_t n) {
    if (n == 0) return false;
    for (size_t i = 0; i < n; ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c <= 0x20 || c >= 0x7f || strchr("\"(),/:;<=>?@[\\]{}", c)) return false;
    }
    return true;
}

bool hasLineBreak(const char* s) {
    return s && (strchr(s, '\r') || strchr(s, '\n'));
}

// Adds the caller's header lines; false when one is not "Name: value" on one line,
// since a stray line break would let a value smuggle in headers of its own.
bool addExtraHeaders(const char* text, CurlHeaderList& headers, bool& noMemory) {
    std::string all(text);
    size_t pos = 0;
    while (pos <= all.size()) {
        size_t eol = all.find('\n', pos);
        if (eol == std::string::npos) eol = all.size();
        std::string line = all.substr(pos, eol - pos);
        pos = eol + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        size_t colon = line.find(':');
        if (colon == std::string::npos || !isToken(line.data(), colon) ||
            line.find('\r') != std::string::npos) {
            return false;
        }
        if (!headers.append(line.c_str())) {
            noMemory = true;
            return false;
        }
    }
    return true;
}

// Applies options one after the other and keeps the first failure; after one
// fails the rest are not tried.
class CurlOptions {
  public:
    explicit CurlOptions(CURL* h) : m_h(h) {}
    template <typename T>
    void set(CURLoption opt, T value) {
        if (m_rc == CURLE_OK) m_rc = curl_easy_setopt(m_h, opt, value);
    }
    CURLcode result() const { return m_rc; }

  private:
    CURL* m_h;
    CURLcode m_rc = CURLE_OK;
};

// The URL as it may be logged: a "user:password@" part is dropped, since logs
// are read by people who must not learn the password.
std::string withoutUserInfo(const char* url) {
    std::string u(url ? url : "");
    size_t scheme = u.find("://");
    size_t from = scheme == std::string::npos ? 0 : scheme + 3;
    size_t authorityEnd = u.find_first_of("/?#", from);
    if (authorityEnd == std::string::npos) authorityEnd = u.size();
    size_t at = u.rfind('@', authorityEnd);
    if (at == std::string::npos || at < from) return u;
    return u.erase(from, at + 1 - from);
}

// One error line per failure, naming what went wrong in words a user can act on.
const char* describeFailure(CURLcode rc) {
    switch (rc) {
        case CURLE_UNSUPPORTED_PROTOCOL:
            return "The URL's protocol is not supported (only http and https are).";
        case CURLE_URL_MALFORMAT:
            return "The URL is malformed.";
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return "Failed to resolve the host name.";
        case CURLE_COULDNT_CONNECT:
            return "Failed to connect to the server.";
        case CURLE_OPERATION_TIMEDOUT:
            return "The HTTP request timed out.";
        case CURLE_TOO_MANY_REDIRECTS:
            return "Too many redirects.";
        case CURLE_PARTIAL_FILE:
            return "The connection closed before the whole response arrived.";
        case CURLE_GOT_NOTHING:
            return "The server closed the connection without answering.";
        case CURLE_PEER_FAILED_VERIFICATION:
            return "The server's TLS certificate was not accepted.";
        case CURLE_FILESIZE_EXCEEDED:
            return "The response is larger than the maximum response size.";
        case CURLE_ABORTED_BY_CALLBACK:
            return "The HTTP request was aborted by the application.";
        default:
            return "The HTTP request failed.";
    }
}

}  // namespace

ClsHttp::ClsHttp() : m_magic(kValidMagic) {
    try {
        m_userAgent = kDefaultUserAgent;
    } catch (...) {
    }
}

ClsHttp::~ClsHttp() {
    clearSentinel(m_magic);
}

ClsHttp* ClsHttp::createNewCls() {
    return new (std::nothrow) ClsHttp();
}

bool ClsHttp::put_UserAgent(const char* ua) {
    try {
        m_userAgent = ua ? ua : "";
        return true;
    } catch (...) {
        return false;
    }
}

bool ClsHttp::checkRequest(const Request& req, LogBase& log) const {
    if (!*req.url) {
        log.logError("No URL given.");
        return false;
    }
    if (!isToken(req.verb, strlen(req.verb))) {
        log.logError("The HTTP verb is not valid.");
        return false;
    }
    if (hasLineBreak(req.contentType) || hasLineBreak(m_userAgent.c_str())) {
        log.logError("A request header value holds a line break.");
        return false;
    }
    return true;
}

bool ClsHttp::buildHeaders(const Request& req, bool sendsBody, CurlHeaderList& headers,
                           LogBase& log) {
    bool noMemory = false;
    if (req.extraHeaders && !addExtraHeaders(req.extraHeaders, headers, noMemory)) {
        log.logError(noMemory ? "Out of memory." : "The extra request headers are malformed.");
        return false;
    }
    if (sendsBody) {
        // An empty "Content-Type:" removes the form type libcurl would add itself;
        // an empty "Expect:" saves the round trip of 100-continue on large bodies.
        std::string ct = std::string("Content-Type: ") + (req.contentType ? req.contentType : "");
        if (!req.contentType || !*req.contentType) ct = "Content-Type:";
        if (!headers.append(ct.c_str()) || !headers.append("Expect:")) {
            log.logError("Out of memory.");
            return false;
        }
    }
    return true;
}

CURLcode ClsHttp::configure(CURL* h, const Request& req, bool sendsBody,
                            const CurlHeaderList& headers, Transfer& t, char* errbuf) const {
    // Every option counts: a libcurl that lacks one (the protocol restriction
    // above all) must fail the request, not send it without.
    CurlOptions o(h);
    o.set(CURLOPT_ERRORBUFFER, errbuf);
    o.set(CURLOPT_URL, req.url);
    o.set(CURLOPT_NOSIGNAL, 1L);
    o.set(CURLOPT_PROTOCOLS_STR, "http,https");
    o.set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    o.set(CURLOPT_FOLLOWLOCATION, req.followRedirects ? 1L : 0L);
    o.set(CURLOPT_MAXREDIRS, static_cast<long>(m_maxRedirects));
    o.set(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_301 | CURL_REDIR_POST_302));
    o.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_connectTimeoutMs));
    o.set(CURLOPT_TIMEOUT_MS, static_cast<long>(m_timeoutMs));
    o.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(m_maxResponseSize));
    o.set(CURLOPT_WRITEFUNCTION, onBody);
    o.set(CURLOPT_WRITEDATA, &t);
    o.set(CURLOPT_HEADERFUNCTION, onHeader);
    o.set(CURLOPT_HEADERDATA, &t);
    if (req.progress) {
        o.set(CURLOPT_NOPROGRESS, 0L);
        o.set(CURLOPT_XFERINFOFUNCTION, onProgress);
        o.set(CURLOPT_XFERINFODATA, &t);
    }
    if (!m_userAgent.empty()) o.set(CURLOPT_USERAGENT, m_userAgent.c_str());
    if (req.allowCompression) o.set(CURLOPT_ACCEPT_ENCODING, "");

    if (strcmp(req.verb, "HEAD") == 0 && !sendsBody) {
        o.set(CURLOPT_NOBODY, 1L);
    } else if (sendsBody) {
        o.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(req.body->getSize()));
        o.set(CURLOPT_POSTFIELDS, req.body->getData2());
        if (strcmp(req.verb, "POST") != 0) o.set(CURLOPT_CUSTOMREQUEST, req.verb);
    } else if (strcmp(req.verb, "GET") != 0) {
        o.set(CURLOPT_CUSTOMREQUEST, req.verb);
    }
    if (headers.get()) o.set(CURLOPT_HTTPHEADER, headers.get());
    return o.result();
}

void ClsHttp::reportFailure(CURLcode rc, const Transfer& t, const char* errbuf, long status,
                            LogBase& log) const {
    if (t.tooLarge) {
        rc = CURLE_FILESIZE_EXCEEDED;
    } else if (t.noMemory) {
        log.logError("Out of memory while receiving the response.");
        return;
    }
    log.logError(describeFailure(rc));
    log.LogDataLong("curlCode", static_cast<long>(rc));
    log.logData("curlError", errbuf[0] ? errbuf : curl_easy_strerror(rc));
    if (rc == CURLE_FILESIZE_EXCEEDED) log.LogDataLong("maxResponseSize", m_maxResponseSize);
    if (status) log.LogDataLong("statusCode", status);
}

bool ClsHttp::perform(Request& req, LogBase& log) {
    req.result->clear();
    log.logData("url", withoutUserInfo(req.url).c_str());
    if (!checkRequest(req, log)) return false;

    const bool sendsBody =
        req.body &&
        !((strcmp(req.verb, "GET") == 0 || strcmp(req.verb, "HEAD") == 0) && req.body->isEmpty());
    CurlHeaderList headers;
    if (!buildHeaders(req, sendsBody, headers, log)) return false;

    CURL* h = m_curl.acquireFresh();
    if (!h) {
        log.logError("Failed to initialise the HTTP client.");
        return false;
    }

    Transfer t;
    t.out = req.out;
    t.startSize = req.out->getSize();
    t.maxSize = m_maxResponseSize;
    t.result = req.result;
    t.progress = req.progress;

    char errbuf[CURL_ERROR_SIZE];
    errbuf[0] = '\0';
    CURLcode rc = configure(h, req, sendsBody, headers, t, errbuf);
    if (rc != CURLE_OK) {
        curl_easy_reset(h);
        log.logError("Failed to configure the HTTP request.");
        log.LogDataLong("curlCode", static_cast<long>(rc));
        log.logData("curlError", curl_easy_strerror(rc));
        return false;
    }
    rc = curl_easy_perform(h);

    long status = 0;
    char* effectiveUrl = nullptr;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(h, CURLINFO_EFFECTIVE_URL, &effectiveUrl);
    req.result->setStatusCode(static_cast<int>(status));
    req.result->setFinalUrl(effectiveUrl);
    // The effective URL belongs to the handle, which the reset below frees:
    // keep our own copy for the lines written afterwards.
    const bool redirected = effectiveUrl && strcmp(effectiveUrl, req.url) != 0;
    const std::string finalUrl = redirected ? withoutUserInfo(effectiveUrl) : std::string();
    // Nothing of this call (the error buffer on the stack, the header list, the
    // callbacks' state) may stay referenced by the handle after it returns.
    curl_easy_reset(h);

    if (rc != CURLE_OK) {
        reportFailure(rc, t, errbuf, status, log);
        req.out->shorten(req.out->getSize() - t.startSize);
        return false;
    }

    log.LogDataLong("statusCode", status);
    if (log.verboseLogging) {
        if (redirected) log.logData("finalUrl", finalUrl.c_str());
        log.LogDataLong("responseSize", static_cast<long>(req.out->getSize() - t.startSize));
    }
    if (req.progress && t.lastPercent < 100) req.progress->onPercentDone(100);
    return true;
}

bool ClsHttp::quickGet(XString& url, DataBuffer& out, ProgressEvent* progress, LogBase& log) {
    LogContextExitor ctx(log, "quickGet");
    HttpResult result;
    Request req;
    req.url = url.getUtf8();
    req.result = &result;
    req.out = &out;
    req.progress = progress;
    unsigned before = out.getSize();
    if (!perform(req, log)) return false;
    int status = result.get_StatusCode();
    if (status < 200 || status > 299) {
        // An error page (or a redirect left unfollowed) is not the resource: a
        // caller that asked for a CRL must never get a 404 page as one.
        log.logError("The server did not answer with a success status (2xx).");
        out.shorten(out.getSize() - before);
        return false;
    }
    return true;
}

bool ClsHttp::binaryRequest(const char* verb, XString& url, const char* extraHeaders,
                            DataBuffer& body, XString& contentType, bool followRedirects,
                            bool allowCompression, HttpResult& result, DataBuffer& response,
                            ProgressEvent* progress, LogBase& log) {
    LogContextExitor ctx(log, "binaryRequest");
    Request req;
    req.url = url.getUtf8();
    req.verb = verb ? verb : "";
    req.body = &body;
    req.contentType = contentType.getUtf8();
    req.extraHeaders = extraHeaders;
    req.followRedirects = followRedirects;
    req.allowCompression = allowCompression;
    req.result = &result;
    req.out = &response;
    req.progress = progress;
    return perform(req, log);
}

bool ClsHttp::createOcspRequest(ClsJsonObject& desc, DataBuffer& out, LogBase& log) {
    return OcspRequestEncoder::encode(desc, out, log);
}
