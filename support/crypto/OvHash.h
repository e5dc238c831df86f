// _ovHash: one-shot message digests selected by a small integer id.
#pragma once

#include <openssl/evp.h>

class DataBuffer;

// The ids are stable: they are stored by callers and passed across modules.
// 1 is SHA-1 for every caller; the others are this library's own numbering.
namespace ovhash {
constexpr int kSha1 = 1;
constexpr int kSha384 = 2;
constexpr int kSha512 = 3;
constexpr int kMd5 = 5;
constexpr int kSha256 = 7;
constexpr int kSha224 = 8;
constexpr int kSha3_256 = 10;
constexpr int kSha3_384 = 11;
constexpr int kSha3_512 = 12;
constexpr int kSha3_224 = 13;
}  // namespace ovhash

class _ovHash {
  public:
    // Appends the digest of the n bytes at p, computed with the algorithm id, to
    // out. False, with nothing appended, for an unknown id or when the digest
    // cannot be computed. p may be null when n is 0.
    static bool doHash(const void* p, unsigned n, int alg, DataBuffer& out);

    // The id of a digest named "sha1", "sha-1", "sha256", "SHA-256", "sha3-256",
    // "md5" and the like (case and a dash after "sha" do not matter); 0 when the
    // name is unknown or null.
    static int hashAlgFromName(const char* name);

    // Digest length in bytes; 0 for an unknown id.
    static unsigned hashLength(int alg);

    // Lower-case canonical name ("sha256"); "" for an unknown id.
    static const char* hashName(int alg);

    // The digest implementation, fetched once per process and kept; null for an
    // unknown id. The pointer stays valid until the process exits; callers never
    // free it.
    static const EVP_MD* evpMd(int alg);
};
