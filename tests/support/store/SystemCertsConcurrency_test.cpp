// The store from several threads at once. Also run under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <vector>

#include "cert/CertTestUtil.h"
#include "support/store/SystemCerts.h"

using certtest::CertRef;

namespace {

// Runs body(i) on n threads. A hang (two threads waiting on each other's lock)
// cannot be undone from here, so it ends the program with a message instead of
// leaving the test to the runner's timeout.
template <typename F>
void runThreads(int n, const char* what, F body) {
    std::vector<std::thread> threads;
    std::promise<void> done;
    std::atomic<int> left{n};
    for (int i = 0; i < n; ++i)
        threads.emplace_back([&, i] {
            body(i);
            if (--left == 0) done.set_value();
        });
    if (done.get_future().wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        fprintf(stderr, "%s: threads still blocked after 30 s (deadlock)\n", what);
        std::_Exit(3);
    }
    for (auto& t : threads) t.join();
}

// A issued by B and B issued by A: a search for A's issuer reads B and the
// search for B's issuer reads A. Neither may wait on the other.
TEST(StoreConcurrency, IssuerSearchOverCrossCertifiedPair) {
    LogNull log;
    CertRef a(certtest::loadDer("cross-a.der", log)), b(certtest::loadDer("cross-b.der", log));
    auto store = RefPtr<SystemCerts>::retain(new SystemCerts());
    ASSERT_TRUE(a && b && store->addCertificate(a.get(), log) &&
                store->addCertificate(b.get(), log));
    std::atomic<int> wrong{0};
    runThreads(4, "sysCertsFindIssuer", [&](int i) {
        CertCore* subject = i % 2 ? a.get() : b.get();
        CertCore* want = i % 2 ? b.get() : a.get();
        LogNull quiet;
        for (int k = 0; k < 500; ++k)
            if (store->sysCertsFindIssuer(*subject, true, quiet) != want) ++wrong;
    });
    EXPECT_EQ(wrong.load(), 0);
}

// Adds (each certificate by two threads), finds and issuer searches side by
// side; the store ends with each certificate once.
TEST(StoreConcurrency, AddsFindsAndSearchesTogether) {
    LogNull log;
    std::vector<CertRef> certs;
    for (const char* n : {"root.der", "inter.der", "ec.der", "rsa.der", "ed25519.der"}) {
        certs.emplace_back(certtest::loadDer(n, log));
        ASSERT_TRUE(certs.back()) << n;
    }
    auto store = RefPtr<SystemCerts>::retain(new SystemCerts());
    std::atomic<int> wrong{0};
    runThreads(6, "store", [&](int i) {
        LogNull quiet;
        for (int round = 0; round < 40; ++round) {
            for (auto& c : certs) {
                if (i < 2) {
                    if (!store->addCertificate(c.get(), quiet)) ++wrong;
                    continue;
                }
                std::string der = certtest::derOf(c.get());
                CertCore* found =
                    store->findByDer(reinterpret_cast<const unsigned char*>(der.data()),
                                     static_cast<unsigned>(der.size()));
                if (found && found != c.get()) ++wrong;
                CertCore* issuer = store->sysCertsFindIssuer(*c.get(), true, quiet);
                if (issuer && !c.get()->verifyCertSignature(issuer, quiet)) ++wrong;
                store->certAt(store->numCerts() - 1);
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(store->numCerts(), 5);
    EXPECT_EQ(store->sysCertsFindIssuer(*certs[2].get(), true, log), certs[1].get());
}

}  // namespace
