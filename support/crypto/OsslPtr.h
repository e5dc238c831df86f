// Owning pointers for the OpenSSL objects this folder uses: each type gets a
// unique_ptr whose deleter is that type's free function, so no exit path has
// to remember a bare *_free.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace ossl {

template <typename T, void (*F)(T*)>
struct Deleter {
    void operator()(T* p) const {
        if (p) F(p);
    }
};

// BIO_free returns int, so it needs a void wrapper to fit the template.
inline void bioFree(BIO* b) {
    BIO_free(b);
}

using PkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
using MdPtr = std::unique_ptr<EVP_MD, Deleter<EVP_MD, EVP_MD_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, bioFree>>;
using X509SigPtr = std::unique_ptr<X509_SIG, Deleter<X509_SIG, X509_SIG_free>>;
using Pkcs8Ptr =
    std::unique_ptr<PKCS8_PRIV_KEY_INFO, Deleter<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>>;
using EcGroupPtr = std::unique_ptr<EC_GROUP, Deleter<EC_GROUP, EC_GROUP_free>>;
using EcPointPtr = std::unique_ptr<EC_POINT, Deleter<EC_POINT, EC_POINT_free>>;
using BnCtxPtr = std::unique_ptr<BN_CTX, Deleter<BN_CTX, BN_CTX_free>>;

}  // namespace ossl
