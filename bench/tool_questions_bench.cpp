// The full question set of `ovcert inspect` for every certificate of the CA
// bundle: load from DER, then names and their parts, serial (hex and decimal),
// validity text, expiry, version, self-issue, SHA-1 thumbprint, SPKI SHA-256,
// key type and size, EKU, key usage, AKI, SKI, e-mail, EU country. OpenSSL
// answers the same questions with its own calls on the same bytes.
#include <benchmark/benchmark.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>
#include <vector>

#include "cert/CertCore.h"

namespace {

using Der = std::vector<unsigned char>;

const std::vector<Der>& bundleDer() {
    static const std::vector<Der> certs = [] {
        std::vector<Der> out;
        FILE* f = fopen("/etc/ssl/certs/ca-certificates.crt", "rb");
        if (!f) return out;
        while (X509* x = PEM_read_X509(f, nullptr, nullptr, nullptr)) {
            unsigned char* p = nullptr;
            int n = i2d_X509(x, &p);
            if (n > 0) out.emplace_back(p, p + n);
            OPENSSL_free(p);
            X509_free(x);
        }
        ERR_clear_error();
        fclose(f);
        return out;
    }();
    return certs;
}

void BM_Inspect_Ours(benchmark::State& state) {
    const auto& certs = bundleDer();
    for (auto _ : state) {
        for (const Der& d : certs) {
            LogNull log;
            CertCore* c = CertCore::createFromDer2(d.data(), static_cast<unsigned>(d.size()),
                                                   nullptr, nullptr, log);
            if (!c) continue;
            XString x;
            StringBuffer sb;
            DataBuffer db;
            int bits = 0;
            c->getSubjectDN(x, log);
            c->getIssuerDN(x, log);
            for (const char* part : {"CN", "O", "OU", "C", "L", "ST", "E"}) {
                c->getSubjectPart(part, x, log);
                c->getIssuerPart(part, x, log);
            }
            c->getSerialNumber(x, log);
            c->getSerialDecimal(x, log);
            c->getValidFromSb(sb, log);
            c->getValidToSb(sb, log);
            benchmark::DoNotOptimize(c->isCertExpired(log));
            benchmark::DoNotOptimize(c->getVersion(log));
            benchmark::DoNotOptimize(c->isIssuerSelf(log));
            c->getSha1ThumbprintX(x, log);
            XString alg("sha256"), enc("base64");
            c->getSpkiFingerprint(alg, enc, x, log);
            c->appendCertKeyType(sb, log);
            c->getCertKeyType(bits, log);
            c->getExtendedKeyUsage(sb, log);
            benchmark::DoNotOptimize(c->getIntendedKeyUsage(log));
            c->getAuthorityKeyIdentifier(db, nullptr, log);
            c->getSubjectKeyIdentifier(sb, log);
            c->getRfc822Name(x, log);
            c->getEmailAddress(x, log);
            benchmark::DoNotOptimize(c->is_country_eu(log));
            delete c;
        }
    }
    state.counters["certs"] = static_cast<double>(certs.size());
}
BENCHMARK(BM_Inspect_Ours)->Unit(benchmark::kMillisecond);

void nameText(const X509_NAME* name) {
    BIO* bio = BIO_new(BIO_s_mem());
    X509_NAME_print_ex(bio, name, 0, XN_FLAG_RFC2253);
    BIO_free(bio);
    for (int nid :
         {NID_commonName, NID_organizationName, NID_organizationalUnitName, NID_countryName,
          NID_localityName, NID_stateOrProvinceName, NID_pkcs9_emailAddress}) {
        char buf[256];
        X509_NAME_get_text_by_NID(name, nid, buf, sizeof buf);
    }
}

void BM_Inspect_OpenSSL(benchmark::State& state) {
    const auto& certs = bundleDer();
    for (auto _ : state) {
        for (const Der& d : certs) {
            const unsigned char* p = d.data();
            X509* x = d2i_X509(nullptr, &p, static_cast<long>(d.size()));
            if (!x) continue;
            nameText(X509_get_subject_name(x));
            nameText(X509_get_issuer_name(x));
            BIGNUM* bn = ASN1_INTEGER_to_BN(X509_get0_serialNumber(x), nullptr);
            char* hex = BN_bn2hex(bn);
            char* dec = BN_bn2dec(bn);
            OPENSSL_free(hex);
            OPENSSL_free(dec);
            BN_free(bn);
            BIO* bio = BIO_new(BIO_s_mem());
            ASN1_TIME_print(bio, X509_get0_notBefore(x));
            ASN1_TIME_print(bio, X509_get0_notAfter(x));
            BIO_free(bio);
            benchmark::DoNotOptimize(X509_cmp_current_time(X509_get0_notAfter(x)));
            benchmark::DoNotOptimize(X509_get_version(x));
            benchmark::DoNotOptimize(X509_check_issued(x, x));
            unsigned char md[EVP_MAX_MD_SIZE];
            unsigned mdLen = 0;
            X509_digest(x, EVP_sha1(), md, &mdLen);
            X509_pubkey_digest(x, EVP_sha256(), md, &mdLen);
            EVP_PKEY* key = X509_get0_pubkey(x);
            benchmark::DoNotOptimize(EVP_PKEY_get_base_id(key));
            benchmark::DoNotOptimize(EVP_PKEY_get_bits(key));
            benchmark::DoNotOptimize(X509_get_extended_key_usage(x));
            benchmark::DoNotOptimize(X509_get_key_usage(x));
            benchmark::DoNotOptimize(X509_get0_authority_key_id(x));
            benchmark::DoNotOptimize(X509_get0_subject_key_id(x));
            GENERAL_NAMES* san = static_cast<GENERAL_NAMES*>(
                X509_get_ext_d2i(x, NID_subject_alt_name, nullptr, nullptr));
            GENERAL_NAMES_free(san);
            X509_free(x);
        }
        ERR_clear_error();
    }
    state.counters["certs"] = static_cast<double>(certs.size());
}
BENCHMARK(BM_Inspect_OpenSSL)->Unit(benchmark::kMillisecond);

}  // namespace
