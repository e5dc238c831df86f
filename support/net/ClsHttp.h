// ClsHttp: the library's HTTP client (GET and binary requests over libcurl) and
// the builder of OCSP requests.
#pragma once

#include <string>

#include "support/base/OrvaneObject.h"
#include "support/net/CurlHandle.h"

class ClsJsonObject;
class DataBuffer;
class HttpResult;
class LogBase;
class ProgressEvent;
class XString;

// One client: its settings, and one libcurl handle whose connections are reused
// by later requests to the same server. Used by one thread at a time; separate
// clients may be used by separate threads.
//
// Only http and https URLs are fetched, redirects included: a certificate's CRL
// or OCSP URL must never make the client read a local file or speak another
// protocol. Proxies are taken from the environment as libcurl does
// (http_proxy, https_proxy, no_proxy). HTTPS peers are verified against the
// system's CA store.
//
// Logging: every request opens a context in the log it is given and writes
// failures there with one error line, plus the values "url" (without any
// "user:password@" part) and, for transport failures, "curlCode" and
// "curlError". Callers that do not want HTTP detail in their log pass a LogNull.
class ClsHttp : public RefCountedObject {
  public:
    // m_magic holds this while the object is alive; the destructor clears it.
    static constexpr unsigned kValidMagic = 0x991144AA;

    static constexpr unsigned kDefaultConnectTimeoutMs = 30000;
    static constexpr unsigned kDefaultTimeoutMs = 120000;
    // Large enough for the biggest CRLs published (tens of megabytes), small
    // enough that a hostile server cannot fill memory.
    static constexpr unsigned kDefaultMaxResponseSize = 64u * 1024 * 1024;
    static constexpr int kDefaultMaxRedirects = 5;

    ClsHttp();
    ~ClsHttp() override;
    ClsHttp(const ClsHttp&) = delete;
    ClsHttp& operator=(const ClsHttp&) = delete;

    // A new client with no reference counted; null when memory is exhausted.
    static ClsHttp* createNewCls();

    // The validity marker, public so that callers can tell a live client from a
    // deleted one before using it.
    unsigned m_magic;
    bool isValidObject() const { return m_magic == kValidMagic; }

    // Settings, applied to every later request. A timeout of 0 means none.
    void put_ConnectTimeoutMs(unsigned ms) { m_connectTimeoutMs = ms; }
    unsigned get_ConnectTimeoutMs() const { return m_connectTimeoutMs; }
    // The whole exchange: connecting, sending, and receiving the last byte.
    void put_TimeoutMs(unsigned ms) { m_timeoutMs = ms; }
    unsigned get_TimeoutMs() const { return m_timeoutMs; }
    // Largest response body accepted, in bytes (after decompression); 0 means
    // the default. A larger body fails the request.
    void put_MaxResponseSize(unsigned bytes) {
        m_maxResponseSize = bytes ? bytes : kDefaultMaxResponseSize;
    }
    unsigned get_MaxResponseSize() const { return m_maxResponseSize; }
    // Most redirects followed in one request (when following); at least 0.
    void put_MaxRedirects(int n) { m_maxRedirects = n < 0 ? 0 : n; }
    int get_MaxRedirects() const { return m_maxRedirects; }
    // The User-Agent header; empty sends none. Default "orvane-http/1.0".
    bool put_UserAgent(const char* ua);
    const char* get_UserAgent() const { return m_userAgent.c_str(); }

    // GETs the URL, following redirects, and appends the response body to out.
    // Fails unless the final status is 2xx, so that an error page is never taken
    // for the resource; also on a connection error, a timeout, a body larger than
    // the maximum, or an abort from progress. On failure out is as it was on
    // entry. progress may be null.
    bool quickGet(XString& url, DataBuffer& out, ProgressEvent* progress, LogBase& log);

    // Sends a request with the verb (an HTTP token such as "POST", "PUT") and the
    // body, and appends the response body to response. The arguments:
    //   extraHeaders      null, or header lines "Name: value" separated by LF or
    //                     CRLF, sent as they are;
    //   contentType       the Content-Type of the body; empty sends none;
    //   followRedirects   follow redirects; 301, 302, 307 and 308 repeat the verb
    //                     and body, 303 turns the request into a GET;
    //   allowCompression  ask for gzip/deflate/br and decode the answer.
    // "GET" and "HEAD" with an empty body send no body. result is cleared, then
    // holds the status, headers and final URL. True when the exchange completed,
    // whatever the status code; false (response as it was on entry) on a
    // connection error, a timeout, an oversized body, an abort from progress, or
    // a malformed verb, header or content type.
    bool binaryRequest(const char* verb, XString& url, const char* extraHeaders, DataBuffer& body,
                       XString& contentType, bool followRedirects, bool allowCompression,
                       HttpResult& result, DataBuffer& response, ProgressEvent* progress,
                       LogBase& log);

    // Appends the DER OCSPRequest that the JSON description asks for (see
    // OcspRequestEncoder.h for its members). False, with a line naming the
    // offending member, when a member is missing or holds a bad value.
    bool createOcspRequest(ClsJsonObject& desc, DataBuffer& out, LogBase& log);

    // What the libcurl callbacks of one request see (defined in the .cpp).
    struct Transfer;

  private:
    struct Request;
    // One request: checkRequest refuses what must not be sent, buildHeaders
    // makes the header list, configure sets the handle's options (the first
    // failing option's code), reportFailure writes why a transfer failed.
    bool perform(Request& req, LogBase& log);
    bool checkRequest(const Request& req, LogBase& log) const;
    static bool buildHeaders(const Request& req, bool sendsBody, CurlHeaderList& headers,
                             LogBase& log);
    CURLcode configure(CURL* h, const Request& req, bool sendsBody, const CurlHeaderList& headers,
                       Transfer& t, char* errbuf) const;
    void reportFailure(CURLcode rc, const Transfer& t, const char* errbuf, long status,
                       LogBase& log) const;

    CurlHandle m_curl;
    unsigned m_connectTimeoutMs = kDefaultConnectTimeoutMs;
    unsigned m_timeoutMs = kDefaultTimeoutMs;
    unsigned m_maxResponseSize = kDefaultMaxResponseSize;
    int m_maxRedirects = kDefaultMaxRedirects;
    std::string m_userAgent;
};
