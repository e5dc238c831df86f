// CRLs beside OpenSSL's on the same bytes: a CRL of a million entries (about
// 38 MB), made at benchmark time by scripts/make_bench_crls.py into the
// build directory (the first run takes a few seconds to make it).
//
//   CrlLoad1M      load only (OpenSSL: d2i_X509_CRL), freeing included
//   Crl1M          load, then look up one listed serial near the end
//                  (OpenSSL: X509_CRL_get0_by_serial)
//   CrlLookup1M    one lookup in a CRL loaded before the timing (ours only)
//   CrlMemory1M    heap growth of reading the file and loading it, over the
//                  file size (counter growthOverFile); the load frees no
//                  large block it made, so its growth is its peak
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/bn.h>
#include <openssl/x509.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "revocation/OvCrl.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

namespace {

const std::string kDir = OV_BENCH_DATA_DIR;

// Reads the whole file into a buffer of its exact size.
bool readExact(const std::string& path, DataBuffer& out) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return false;
    fseek(f, 0, SEEK_END);
    long n = ftell(f);
    fseek(f, 0, SEEK_SET);
    bool ok = n > 0 && out.ensureCapacity(static_cast<unsigned>(n));
    if (ok) {
        std::vector<unsigned char> chunk(1 << 20);
        size_t got;
        while ((got = fread(chunk.data(), 1, chunk.size(), f)) > 0)
            ok = ok && out.append(chunk.data(), static_cast<unsigned>(got));
    }
    fclose(f);
    return ok && out.getSize() == static_cast<unsigned>(n);
}

struct Input {
    DataBuffer der;
    std::vector<unsigned char> serial;  // big-endian magnitude
    bool ok = false;
};

const Input& input() {
    static Input in = [] {
        Input i;
        std::string der = kDir + "/crl_1m.der", ser = kDir + "/crl_1m.serial";
        FILE* probe = fopen(der.c_str(), "rb");
        if (probe) {
            fclose(probe);
        } else {
            std::string cmd =
                "python3 '" OV_SOURCE_DIR "/scripts/make_bench_crls.py' '" + kDir + "' 1m";
            if (system(cmd.c_str()) != 0) return i;
        }
        DataBuffer hex;
        if (!readExact(der, i.der) || !readExact(ser, hex)) return i;
        std::string text(reinterpret_cast<const char*>(hex.getData2()), hex.getSize());
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        DataBuffer bytes;
        if (!bytes.appendEncoded(text.c_str(), "hex")) return i;
        i.serial.assign(bytes.getData2(), bytes.getData2() + bytes.getSize());
        i.ok = true;
        return i;
    }();
    return in;
}

bool ready(benchmark::State& state) {
    if (input().ok) return true;
    state.SkipWithError("no 1M CRL: scripts/make_bench_crls.py needs python3-cryptography");
    return false;
}

struct CrlFree {
    void operator()(X509_CRL* c) const { X509_CRL_free(c); }
};
using CrlPtr = std::unique_ptr<X509_CRL, CrlFree>;

CrlPtr opensslLoad(const DataBuffer& der) {
    const unsigned char* p = der.getData2();
    return CrlPtr(d2i_X509_CRL(nullptr, &p, static_cast<long>(der.getSize())));
}

void BM_CrlLoad1M_Ours(benchmark::State& state) {
    if (!ready(state)) return;
    LogNull log;
    for (auto _ : state) {
        _ovCrl crl;
        if (!crl.loadCrlDer(input().der, log)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(crl.getCrlNumber());
    }
}
BENCHMARK(BM_CrlLoad1M_Ours)->Unit(benchmark::kMillisecond);

void BM_CrlLoad1M_OpenSSL(benchmark::State& state) {
    if (!ready(state)) return;
    for (auto _ : state) {
        CrlPtr crl = opensslLoad(input().der);
        if (!crl) state.SkipWithError("d2i_X509_CRL failed");
        benchmark::DoNotOptimize(crl.get());
    }
}
BENCHMARK(BM_CrlLoad1M_OpenSSL)->Unit(benchmark::kMillisecond);

void BM_Crl1M_Ours(benchmark::State& state) {
    if (!ready(state)) return;
    const auto& s = input().serial;
    LogNull log;
    for (auto _ : state) {
        _ovCrl crl;
        CrlRevocation r;
        if (!crl.loadCrlDer(input().der, log) ||
            !crl.findSerial(s.data(), static_cast<unsigned>(s.size()), r) || !r.listed)
            state.SkipWithError("lookup failed");
    }
}
BENCHMARK(BM_Crl1M_Ours)->Unit(benchmark::kMillisecond);

void BM_Crl1M_OpenSSL(benchmark::State& state) {
    if (!ready(state)) return;
    const auto& s = input().serial;
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    BIGNUM* bn = BN_bin2bn(s.data(), static_cast<int>(s.size()), nullptr);
    BN_to_ASN1_INTEGER(bn, serial);
    for (auto _ : state) {
        CrlPtr crl = opensslLoad(input().der);
        X509_REVOKED* rev = nullptr;
        if (!crl || X509_CRL_get0_by_serial(crl.get(), &rev, serial) != 1)
            state.SkipWithError("lookup failed");
        benchmark::DoNotOptimize(rev);
    }
    BN_free(bn);
    ASN1_INTEGER_free(serial);
}
BENCHMARK(BM_Crl1M_OpenSSL)->Unit(benchmark::kMillisecond);

void BM_CrlLookup1M_Ours(benchmark::State& state) {
    if (!ready(state)) return;
    const auto& s = input().serial;
    LogNull log;
    _ovCrl crl;
    if (!crl.loadCrlDer(input().der, log)) return state.SkipWithError("load failed");
    for (auto _ : state) {
        CrlRevocation r;
        if (!crl.findSerial(s.data(), static_cast<unsigned>(s.size()), r) || !r.listed)
            state.SkipWithError("lookup failed");
    }
}
BENCHMARK(BM_CrlLookup1M_Ours)->Unit(benchmark::kMillisecond);

size_t heapInUse() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

// One iteration, as the certificate memory case: freed memory sitting in the
// allocator's caches would hide part of a later iteration's growth.
void BM_CrlMemory1M_Ours(benchmark::State& state) {
    if (!ready(state)) return;
    double growth = 0;
    std::string path = kDir + "/crl_1m.der";
    LogNull log;
    for (auto _ : state) {
        size_t before = heapInUse();
        DataBuffer file;
        _ovCrl crl;
        if (!readExact(path, file) || !crl.loadCrlDer(file, log))
            state.SkipWithError("load failed");
        growth = static_cast<double>(heapInUse() - before);
    }
    state.counters["growthOverFile"] = growth / input().der.getSize();
    state.counters["fileMB"] = input().der.getSize() / 1e6;
}
BENCHMARK(BM_CrlMemory1M_Ours)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_CrlMemory1M_OpenSSL(benchmark::State& state) {
    if (!ready(state)) return;
    double growth = 0;
    std::string path = kDir + "/crl_1m.der";
    for (auto _ : state) {
        size_t before = heapInUse();
        DataBuffer file;
        if (!readExact(path, file)) state.SkipWithError("read failed");
        CrlPtr crl = opensslLoad(file);
        growth = static_cast<double>(heapInUse() - before);
    }
    state.counters["growthOverFile"] = growth / input().der.getSize();
}
BENCHMARK(BM_CrlMemory1M_OpenSSL)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
