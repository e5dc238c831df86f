// Loading a CA bundle: the multi-object path (every certificate parsed, keyed
// and stored) and certificate-by-certificate, ours beside OpenSSL's PEM reader.
#include <benchmark/benchmark.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"

namespace {

const std::string& bundle() {
    static const std::string text = [] {
        std::ifstream f("/etc/ssl/certs/ca-certificates.crt", std::ios::binary);
        std::stringstream ss;
        ss << f.rdbuf();
        return ss.str();
    }();
    return text;
}

// The bundle cut into one PEM block per certificate.
const std::vector<std::string>& blocks() {
    static const std::vector<std::string> v = [] {
        std::vector<std::string> out;
        const std::string& b = bundle();
        size_t pos = 0;
        const std::string endMarker = "-----END CERTIFICATE-----";
        for (;;) {
            size_t s = b.find("-----BEGIN CERTIFICATE-----", pos);
            if (s == std::string::npos) break;
            size_t e = b.find(endMarker, s);
            if (e == std::string::npos) break;
            e += endMarker.size();
            out.push_back(b.substr(s, e - s) + "\n");
            pos = e;
        }
        return out;
    }();
    return v;
}

void BM_Bundle_Ours(benchmark::State& state) {
    const std::string& b = bundle();
    size_t stored = 0;
    for (auto _ : state) {
        SystemCerts* store = new SystemCerts();
        store->incRefCount();
        LogNull log;
        CertCore* c = CertCore::createFromBinary2(b.data(), static_cast<unsigned>(b.size()), store,
                                                  log);
        benchmark::DoNotOptimize(c);
        stored = static_cast<size_t>(store->numCerts());
        RefCountedObject::release(c);
        store->decRefCount();
    }
    state.counters["certs"] = static_cast<double>(stored + 1);
}
BENCHMARK(BM_Bundle_Ours)->Unit(benchmark::kMillisecond);

void BM_Bundle_OpenSSL(benchmark::State& state) {
    const std::string& b = bundle();
    size_t n = 0;
    for (auto _ : state) {
        BIO* bio = BIO_new_mem_buf(b.data(), static_cast<int>(b.size()));
        n = 0;
        while (X509* x = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr)) {
            benchmark::DoNotOptimize(X509_get0_pubkey(x));
            X509_free(x);
            ++n;
        }
        ERR_clear_error();
        BIO_free(bio);
    }
    state.counters["certs"] = static_cast<double>(n);
}
BENCHMARK(BM_Bundle_OpenSSL)->Unit(benchmark::kMillisecond);

void BM_EachPem_Ours(benchmark::State& state) {
    const auto& v = blocks();
    for (auto _ : state) {
        for (const std::string& pem : v) {
            LogNull log;
            CertCore* c = CertCore::createFromBinary2(pem.data(), static_cast<unsigned>(pem.size()),
                                                      nullptr, log);
            benchmark::DoNotOptimize(c);
            RefCountedObject::release(c);
        }
    }
    state.counters["certs"] = static_cast<double>(v.size());
}
BENCHMARK(BM_EachPem_Ours)->Unit(benchmark::kMillisecond);

void BM_EachPem_OpenSSL(benchmark::State& state) {
    const auto& v = blocks();
    for (auto _ : state) {
        for (const std::string& pem : v) {
            BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
            X509* x = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
            benchmark::DoNotOptimize(X509_get0_pubkey(x));
            X509_free(x);
            BIO_free(bio);
        }
    }
    state.counters["certs"] = static_cast<double>(v.size());
}
BENCHMARK(BM_EachPem_OpenSSL)->Unit(benchmark::kMillisecond);

}  // namespace
