// The X.509 parser beside OpenSSL's on the same certificates: every root in
// /etc/ssl/certs/*.pem plus the RSA, EC and Ed25519 leaves of the test fixtures.
//
//   Parse       load the DER (OpenSSL: d2i_X509 and X509_get0_pubkey, which is
//               what makes it decode the key, as every real use does)
//   Questions   load, then what callers ask of most certificates: subject CN,
//               issuer DN text, serial, validity, SHA-1 thumbprint, key type and
//               size, EKU, key usage, OCSP and CRL URLs
//   Memory      heap bytes per loaded certificate against its DER size
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <malloc.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/time/OrvaneSysTime.h"
#include "support/x509/OrvaneX509.h"

namespace {

using Der = std::vector<unsigned char>;

std::string readAll(const std::string& path) {
    std::string out;
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return out;
    char buf[8192];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    fclose(f);
    return out;
}

// Every "-----BEGIN CERTIFICATE-----" block of the text, decoded.
void appendPemCerts(const std::string& text, std::vector<Der>& out) {
    const std::string begin = "-----BEGIN CERTIFICATE-----", end = "-----END CERTIFICATE-----";
    for (size_t pos = 0;;) {
        size_t s = text.find(begin, pos);
        if (s == std::string::npos) return;
        size_t e = text.find(end, s);
        if (e == std::string::npos) return;
        s += begin.size();
        DataBuffer der;
        if (ContentCoding::decodeBase64ToDb(text.data() + s, static_cast<unsigned>(e - s), der))
            out.emplace_back(der.getData2(), der.getData2() + der.getSize());
        pos = e + end.size();
    }
}

const std::vector<Der>& inputs() {
    static const std::vector<Der> certs = [] {
        std::vector<Der> v;
        if (DIR* d = opendir("/etc/ssl/certs")) {
            while (dirent* e = readdir(d)) {
                std::string n = e->d_name;
                if (n.size() > 4 && n.compare(n.size() - 4, 4, ".pem") == 0)
                    appendPemCerts(readAll("/etc/ssl/certs/" + n), v);
            }
            closedir(d);
        }
        for (const char* leaf : {"leaf_rsa.der", "leaf_pss.der", "leaf_p256.der", "leaf_p384.der",
                                 "leaf_ed25519.der"}) {
            std::string b = readAll(std::string(OV_SOURCE_DIR) + "/tests/data/x509/" + leaf);
            if (!b.empty()) v.emplace_back(b.begin(), b.end());
        }
        return v;
    }();
    return certs;
}

void checkInputs(benchmark::State& state) {
    if (inputs().size() < 10) state.SkipWithError("no certificates found in /etc/ssl/certs");
}

struct X509Free {
    void operator()(X509* x) const { X509_free(x); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;

// OpenSSL's parse, with the key decoded as every real use does.
X509Ptr opensslParse(const Der& der) {
    const unsigned char* p = der.data();
    X509Ptr x(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
    if (x) X509_get0_pubkey(x.get());
    return x;
}

// Runs fn on every input certificate in each iteration and reports the count.
template <typename Fn>
void eachCert(benchmark::State& state, Fn fn) {
    checkInputs(state);
    const auto& v = inputs();
    for (auto _ : state) {
        for (const Der& der : v) fn(der);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * v.size()));
}

// ---- (a) parse ---------------------------------------------------------------

void BM_X509Parse_Ours(benchmark::State& state) {
    LogNull log;
    eachCert(state, [&](const Der& der) {
        OrvaneX509 x;
        benchmark::DoNotOptimize(
            x.loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log));
    });
}
BENCHMARK(BM_X509Parse_Ours)->Unit(benchmark::kMicrosecond);

void BM_X509Parse_OpenSSL(benchmark::State& state) {
    eachCert(state, [](const Der& der) { benchmark::DoNotOptimize(opensslParse(der)); });
}
BENCHMARK(BM_X509Parse_OpenSSL)->Unit(benchmark::kMicrosecond);

// ---- (b) parse and the usual questions ------------------------------------------

void BM_X509Questions_Ours(benchmark::State& state) {
    LogNull log;
    size_t answers = 0;
    eachCert(state, [&](const Der& der) {
        OrvaneX509 x;
        if (!x.loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log)) return;
        XString cn, issuer, serial;
        x.get_SubjectCN(cn, log);
        x.getDN(false, true, issuer, log, 0);
        x.get_SerialNumber(serial, log);
        OrvaneSysTime from, to;
        x.get_Valid_To_or_From_UTC(true, from, log);
        x.get_Valid_To_or_From_UTC(false, to, log);
        DataBuffer thumb;
        x.get_Sha1Thumbprint(thumb, log);
        int type = 0;
        unsigned bits = 0, ku = 0;
        x.keyTypeAndBits(&type, &bits);
        bool server = x.hasExtKeyUsage("1.3.6.1.5.5.7.3.1");
        x.keyUsage(&ku);
        DerInput urls[4];
        int ocsp = x.ocspUrls(urls, 4);
        int crl = x.crlUrls(urls, 4);
        answers += cn.getSizeUtf8() + issuer.getSizeUtf8() + serial.getSizeUtf8() +
                   thumb.getSize() + bits + ku + server + static_cast<size_t>(ocsp + crl) +
                   static_cast<size_t>(from.m_year + to.m_year);
    });
    benchmark::DoNotOptimize(answers);
}
BENCHMARK(BM_X509Questions_Ours)->Unit(benchmark::kMicrosecond);

void BM_X509Questions_OpenSSL(benchmark::State& state) {
    size_t answers = 0;
    const EVP_MD* sha1 = EVP_sha1();
    eachCert(state, [&](const Der& der) {
        X509Ptr owner = opensslParse(der);
        X509* x = owner.get();
        if (!x) return;
        char cn[256] = {0};
        X509_NAME_get_text_by_NID(X509_get_subject_name(x), NID_commonName, cn, sizeof cn);
        BIO* bio = BIO_new(BIO_s_mem());
        X509_NAME_print_ex(bio, X509_get_issuer_name(x), 0,
                           XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
        char* text = nullptr;
        long textLen = BIO_get_mem_data(bio, &text);
        BIGNUM* bn = ASN1_INTEGER_to_BN(X509_get0_serialNumber(x), nullptr);
        char* serial = BN_bn2hex(bn);
        struct tm from, to;
        ASN1_TIME_to_tm(X509_get0_notBefore(x), &from);
        ASN1_TIME_to_tm(X509_get0_notAfter(x), &to);
        unsigned char md[EVP_MAX_MD_SIZE];
        unsigned mdLen = 0;
        X509_digest(x, sha1, md, &mdLen);
        EVP_PKEY* key = X509_get0_pubkey(x);
        int type = key ? EVP_PKEY_get_base_id(key) : 0;
        int bits = key ? EVP_PKEY_get_bits(key) : 0;
        uint32_t eku = X509_get_extended_key_usage(x);
        uint32_t ku = X509_get_key_usage(x);
        STACK_OF(OPENSSL_STRING)* ocsp = X509_get1_ocsp(x);
        int ocspCount = sk_OPENSSL_STRING_num(ocsp);
        X509_email_free(ocsp);
        int crlCount = 0;
        auto* dps = static_cast<STACK_OF(DIST_POINT)*>(
            X509_get_ext_d2i(x, NID_crl_distribution_points, nullptr, nullptr));
        for (int i = 0; i < sk_DIST_POINT_num(dps); ++i) {
            DIST_POINT* dp = sk_DIST_POINT_value(dps, i);
            if (!dp->distpoint || dp->distpoint->type != 0) continue;
            GENERAL_NAMES* names = dp->distpoint->name.fullname;
            for (int k = 0; k < sk_GENERAL_NAME_num(names); ++k)
                if (sk_GENERAL_NAME_value(names, k)->type == GEN_URI) ++crlCount;
        }
        sk_DIST_POINT_pop_free(dps, DIST_POINT_free);
        answers += strlen(cn) + static_cast<size_t>(textLen) + strlen(serial) + mdLen +
                   static_cast<size_t>(type + bits) + eku + ku +
                   static_cast<size_t>(ocspCount + crlCount + from.tm_year + to.tm_year);
        OPENSSL_free(serial);
        BN_free(bn);
        BIO_free(bio);
    });
    benchmark::DoNotOptimize(answers);
}
BENCHMARK(BM_X509Questions_OpenSSL)->Unit(benchmark::kMicrosecond);

// ---- memory per loaded certificate ------------------------------------------------

size_t heapInUse() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

size_t totalDer() {
    size_t n = 0;
    for (const Der& d : inputs()) n += d.size();
    return n;
}

// Counters: heap bytes per certificate held, and that over the DER size. One
// iteration: memory freed by an earlier one sits in the allocator's caches,
// still counted as in use, and would hide part of the next one's growth.
void BM_X509Memory_Ours(benchmark::State& state) {
    checkInputs(state);
    const auto& v = inputs();
    LogNull log;
    double perCert = 0;
    for (auto _ : state) {
        std::vector<std::unique_ptr<OrvaneX509>> held;
        held.reserve(v.size());
        size_t before = heapInUse();
        for (const Der& der : v) {
            held.emplace_back(new OrvaneX509());
            held.back()->loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr,
                                        log);
        }
        perCert = static_cast<double>(heapInUse() - before) / static_cast<double>(v.size());
    }
    state.counters["bytesPerCert"] = perCert;
    state.counters["overDer"] =
        perCert / (static_cast<double>(totalDer()) / static_cast<double>(v.size()));
}
BENCHMARK(BM_X509Memory_Ours)->Unit(benchmark::kMicrosecond)->Iterations(1);

void BM_X509Memory_OpenSSL(benchmark::State& state) {
    checkInputs(state);
    const auto& v = inputs();
    double perCert = 0;
    for (auto _ : state) {
        std::vector<X509Ptr> held;
        held.reserve(v.size());
        size_t before = heapInUse();
        for (const Der& der : v) held.push_back(opensslParse(der));
        perCert = static_cast<double>(heapInUse() - before) / static_cast<double>(v.size());
    }
    state.counters["bytesPerCert"] = perCert;
    state.counters["overDer"] =
        perCert / (static_cast<double>(totalDer()) / static_cast<double>(v.size()));
}
BENCHMARK(BM_X509Memory_OpenSSL)->Unit(benchmark::kMicrosecond)->Iterations(1);

}  // namespace
