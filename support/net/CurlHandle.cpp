#include "support/net/CurlHandle.h"

#include <mutex>

namespace {

// curl_global_init is not safe to race with itself, and must run before the first
// easy handle exists; it is never undone, since other code in the process may
// use libcurl after any one client is gone.
bool globalInit() {
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] { ok = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
    return ok;
}

}  // namespace

CURL* CurlHandle::acquireFresh() {
    if (m_easy) {
        curl_easy_reset(m_easy.get());
        return m_easy.get();
    }
    if (!globalInit()) return nullptr;
    m_easy.reset(curl_easy_init());
    return m_easy.get();
}

bool CurlHeaderList::append(const char* line) {
    // curl_slist_append returns null and leaves the list untouched on failure.
    curl_slist* grown = curl_slist_append(m_list.get(), line);
    if (!grown) return false;
    m_list.release();
    m_list.reset(grown);
    return true;
}
