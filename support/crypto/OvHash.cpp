#include "support/crypto/OvHash.h"

#include <strings.h>

#include <cstring>

#include "support/base/DataBuffer.h"
#include "support/crypto/OsslPtr.h"

namespace {

struct HashInfo {
    int id;
    const char* name;       // our canonical name
    const char* fetchName;  // OpenSSL's algorithm name
    unsigned length;
};

const HashInfo kHashes[] = {
    {ovhash::kSha1, "sha1", "SHA1", 20},
    {ovhash::kSha384, "sha384", "SHA384", 48},
    {ovhash::kSha512, "sha512", "SHA512", 64},
    {ovhash::kMd5, "md5", "MD5", 16},
    {ovhash::kSha256, "sha256", "SHA256", 32},
    {ovhash::kSha224, "sha224", "SHA224", 28},
    {ovhash::kSha3_256, "sha3-256", "SHA3-256", 32},
    {ovhash::kSha3_384, "sha3-384", "SHA3-384", 48},
    {ovhash::kSha3_512, "sha3-512", "SHA3-512", 64},
    {ovhash::kSha3_224, "sha3-224", "SHA3-224", 28},
};
constexpr int kNumHashes = sizeof(kHashes) / sizeof(kHashes[0]);

const HashInfo* findHash(int id) {
    for (const HashInfo& h : kHashes) {
        if (h.id == id) return &h;
    }
    return nullptr;
}

// Fetching an EVP_MD takes a lock and a lookup in OpenSSL 3; digests are asked
// for per certificate (thumbprints, key ids), so each is fetched once.
struct FetchedDigests {
    ossl::MdPtr md[kNumHashes];
    FetchedDigests() {
        for (int i = 0; i < kNumHashes; ++i)
            md[i].reset(EVP_MD_fetch(nullptr, kHashes[i].fetchName, nullptr));
    }
};

}  // namespace

const EVP_MD* _ovHash::evpMd(int alg) {
    static const FetchedDigests fetched;
    for (int i = 0; i < kNumHashes; ++i) {
        if (kHashes[i].id == alg) return fetched.md[i].get();
    }
    return nullptr;
}

bool _ovHash::doHash(const void* p, unsigned n, int alg, DataBuffer& out) {
    const EVP_MD* md = evpMd(alg);
    if (!md) return false;
    if (!p && n) return false;
    static const unsigned char kEmpty[1] = {0};
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned len = 0;
    if (!EVP_Digest(p ? p : kEmpty, n, digest, &len, md, nullptr)) return false;
    return out.append(digest, len);
}

int _ovHash::hashAlgFromName(const char* name) {
    if (!name) return 0;
    // Fold "SHA-256", "sha_256" and "sha256" together; "sha3-256" keeps its dash
    // after the family digit, which the canonical names carry too.
    char folded[16];
    size_t k = 0;
    for (size_t i = 0; name[i]; ++i) {
        char c = name[i];
        if ((c == '-' || c == '_') && i == 3 && strncasecmp(name, "sha", 3) == 0) continue;
        if (c == '_') c = '-';
        if (k + 1 >= sizeof folded) return 0;
        folded[k++] = c;
    }
    folded[k] = '\0';
    for (const HashInfo& h : kHashes) {
        if (strcasecmp(folded, h.name) == 0) return h.id;
    }
    return 0;
}

unsigned _ovHash::hashLength(int alg) {
    const HashInfo* h = findHash(alg);
    return h ? h->length : 0;
}

const char* _ovHash::hashName(int alg) {
    const HashInfo* h = findHash(alg);
    return h ? h->name : "";
}
