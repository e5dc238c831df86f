// Private key text that passes through loading must be wiped before its memory
// goes back to the allocator.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstring>
#include <string>

#include "cert/CertTestUtil.h"
#include "support/base/ContentCoding.h"

using certtest::CertRef;

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define OV_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(OV_SANITIZED)
#define OV_WATCH_FREES 0  // the sanitizers own free()
#else
#define OV_WATCH_FREES 1
#endif

#if OV_WATCH_FREES
// Every block freed while a needle is set is searched for it.
namespace {
std::atomic<const char*> g_needle{nullptr};
std::atomic<int> g_found{0};
}  // namespace
extern "C" void __libc_free(void*);
extern "C" void free(void* p) {
    const char* needle = g_needle.load();
    if (p && needle && memmem(p, malloc_usable_size(p), needle, strlen(needle))) ++g_found;
    __libc_free(p);
}
#endif

namespace {

TEST(SecretWipe, KeyTextNeverReachesTheAllocatorUnwiped) {
#if !OV_WATCH_FREES
    GTEST_SKIP() << "free() cannot be watched under a sanitizer";
#else
    const std::string pem = certtest::fixture("chain-leaf-first.pem");
    const std::string key = certtest::fixture("rsa.key");
    const std::string needle = key.substr(key.size() / 2, 48);  // from the key's body
    ASSERT_NE(pem.find(needle), std::string::npos);
    StringBuffer b64;
    ASSERT_TRUE(
        ContentCoding::encodeBase64_noCrLf(pem.data(), static_cast<unsigned>(pem.size()), b64));
    const std::string pemB64 = b64.getString();

    // The file, the PEM text, and the base64 of the PEM.
    for (const std::string* input : {static_cast<const std::string*>(nullptr), &pem, &pemB64}) {
        SCOPED_TRACE(input ? input->substr(0, 20) : "file");
        LogNull log;
        g_found = 0;
        g_needle = needle.c_str();
        {
            CertRef cert(
                input ? CertCore::createFromBinary2(
                            input->data(), static_cast<unsigned>(input->size()), nullptr, log)
                      : CertCore::createFromFile2(
                            ovtest::dataPath("cert/chain-leaf-first.pem").c_str(), nullptr, log));
            EXPECT_TRUE(cert && cert->m_privateKey.isPrivateKey());
        }
        g_needle = nullptr;
        EXPECT_EQ(g_found.load(), 0);
    }
#endif
}

// The PIN's buffer is wiped in place when the PIN is cleared, so nothing of it
// is left in memory that is reused later.
TEST(SecretWipe, SmartCardPinIsWipedWhenCleared) {
    CertRef cert(CertCore::createNewCert());
    cert->m_smartCardPin.setFromUtf8("271828");
    const char* bytes = cert->m_smartCardPin.getUtf8();
    cert->m_smartCardPin.clear();  // keeps the memory, so it can be looked at
    EXPECT_EQ(std::string(bytes, 6), std::string(6, '\0'));
}

}  // namespace
