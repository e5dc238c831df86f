// Owners of libcurl resources: the easy handle and header lists.
#pragma once

#include <curl/curl.h>

#include <memory>

struct CurlEasyDeleter {
    void operator()(CURL* h) const {
        if (h) curl_easy_cleanup(h);
    }
};

struct CurlSlistDeleter {
    void operator()(curl_slist* l) const {
        if (l) curl_slist_free_all(l);
    }
};

// One libcurl easy handle, kept across requests so that connections to the same
// server are reused. Used by one thread at a time.
class CurlHandle {
  public:
    CurlHandle() = default;
    CurlHandle(const CurlHandle&) = delete;
    CurlHandle& operator=(const CurlHandle&) = delete;

    // The handle with every option back at libcurl's defaults (open connections
    // and the DNS cache are kept). Created on first use, after the process-wide
    // libcurl initialisation. Null when libcurl cannot be initialised.
    CURL* acquireFresh();

  private:
    std::unique_ptr<CURL, CurlEasyDeleter> m_easy;
};

// A request header list. append copies the line; false when memory is exhausted.
class CurlHeaderList {
  public:
    CurlHeaderList() = default;
    CurlHeaderList(const CurlHeaderList&) = delete;
    CurlHeaderList& operator=(const CurlHeaderList&) = delete;

    bool append(const char* line);
    // The list for CURLOPT_HTTPHEADER; null when empty. Owned by this object.
    curl_slist* get() const { return m_list.get(); }

  private:
    std::unique_ptr<curl_slist, CurlSlistDeleter> m_list;
};
