#include "support/crypto/KeyOssl.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <climits>
#include <cstring>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

namespace keyossl {

namespace {

bool fitsInt(size_t n) {
    return n <= static_cast<size_t>(INT_MAX);
}

int passwordCallback(char* buf, int size, int /*rwflag*/, void* u) {
    const char* pw = static_cast<const char*>(u);
    const size_t n = strlen(pw);
    if (n > static_cast<size_t>(size)) return -1;
    memcpy(buf, pw, n);
    return static_cast<int>(n);
}

ossl::Pkcs8Ptr pkcs8Info(EVP_PKEY* key) {
    return ossl::Pkcs8Ptr(EVP_PKEY2PKCS8(key));
}

bool appendPkcs8Info(PKCS8_PRIV_KEY_INFO* p8, DataBuffer& out) {
    unsigned char* der = nullptr;
    const int len = i2d_PKCS8_PRIV_KEY_INFO(p8, &der);
    if (len <= 0) return false;
    const bool ok = out.append(der, static_cast<unsigned>(len));
    OPENSSL_clear_free(der, static_cast<size_t>(len));
    return ok;
}

int curveNid(const char* curveOid) {
    // OBJ_txt2nid with a dotted OID finds the curve by number, never by name.
    return curveOid ? OBJ_txt2nid(curveOid) : NID_undef;
}

}  // namespace

void logErrors(LogBase& log) {
    unsigned long e;
    while ((e = ERR_get_error()) != 0) {
        char buf[256];
        ERR_error_string_n(e, buf, sizeof buf);
        log.logData("openssl", buf);
    }
}

ossl::PkeyPtr fromSpki(DerInput spki, LogBase& log) {
    if (spki.empty() || !fitsInt(spki.size())) return nullptr;
    const unsigned char* p = spki.data();
    ossl::PkeyPtr key(d2i_PUBKEY(nullptr, &p, static_cast<long>(spki.size())));
    if (!key) {
        log.logError("OpenSSL could not load the public key.");
        logErrors(log);
    }
    return key;
}

ossl::PkeyPtr fromPkcs8(DerInput pkcs8, LogBase& log) {
    if (pkcs8.empty() || !fitsInt(pkcs8.size())) return nullptr;
    const unsigned char* p = pkcs8.data();
    ossl::Pkcs8Ptr info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &p, static_cast<long>(pkcs8.size())));
    ossl::PkeyPtr key(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
    if (!key) {
        log.logError("OpenSSL could not load the private key.");
        logErrors(log);
    }
    return key;
}

bool appendSpki(EVP_PKEY* key, DataBuffer& out, LogBase& log) {
    unsigned char* der = nullptr;
    const int len = key ? i2d_PUBKEY(key, &der) : 0;
    if (len <= 0) {
        log.logError("OpenSSL could not encode the public key.");
        logErrors(log);
        return false;
    }
    const bool ok = out.append(der, static_cast<unsigned>(len));
    OPENSSL_free(der);
    return ok;
}

bool appendPkcs8(EVP_PKEY* key, DataBuffer& out, LogBase& log) {
    ossl::Pkcs8Ptr p8(key ? pkcs8Info(key) : nullptr);
    if (!p8 || !appendPkcs8Info(p8.get(), out)) {
        log.logError("OpenSSL could not encode the private key.");
        logErrors(log);
        return false;
    }
    return true;
}

bool uncompressedPoint(const char* curveOid, DerInput point, DataBuffer& out, LogBase& log) {
    const int nid = curveNid(curveOid);
    ossl::EcGroupPtr group(nid != NID_undef ? EC_GROUP_new_by_curve_name(nid) : nullptr);
    if (!group) {
        log.logError("Unsupported elliptic curve.");
        ERR_clear_error();
        return false;
    }
    ossl::BnCtxPtr ctx(BN_CTX_new());
    ossl::EcPointPtr pt(EC_POINT_new(group.get()));
    unsigned char buf[1 + 2 * 66];
    size_t len = 0;
    if (ctx && pt &&
        EC_POINT_oct2point(group.get(), pt.get(), point.data(), point.size(), ctx.get()) == 1) {
        len = EC_POINT_point2oct(group.get(), pt.get(), POINT_CONVERSION_UNCOMPRESSED, buf,
                                 sizeof buf, ctx.get());
    }
    if (len == 0) {
        log.logError("Invalid EC public key.");
        ERR_clear_error();
        return false;
    }
    return out.append(buf, static_cast<unsigned>(len));
}

bool curveBits(const char* curveOid, unsigned* bits) {
    const int nid = curveNid(curveOid);
    ossl::EcGroupPtr group(nid != NID_undef ? EC_GROUP_new_by_curve_name(nid) : nullptr);
    if (!group) {
        ERR_clear_error();
        return false;
    }
    const int degree = EC_GROUP_get_degree(group.get());
    if (degree <= 0 || degree > 66 * 8) return false;
    *bits = static_cast<unsigned>(degree);
    return true;
}

bool decryptPemToPkcs8(const char* pem, unsigned n, const char* password, DataBuffer& out,
                       LogBase& log) {
    if (!pem || !password || n > INT_MAX) return false;
    ossl::BioPtr bio(BIO_new_mem_buf(pem, static_cast<int>(n)));
    ossl::PkeyPtr key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, passwordCallback,
                                                    const_cast<char*>(password))
                          : nullptr);
    if (!key) {
        log.logError("Failed to decrypt the private key (wrong password?).");
        logErrors(log);
        return false;
    }
    return appendPkcs8(key.get(), out, log);
}

bool decryptDerToPkcs8(DerInput der, const char* password, DataBuffer& out, LogBase& log) {
    if (!password || der.empty() || !fitsInt(der.size())) return false;
    const unsigned char* p = der.data();
    ossl::X509SigPtr sig(d2i_X509_SIG(nullptr, &p, static_cast<long>(der.size())));
    ossl::Pkcs8Ptr p8(sig ? PKCS8_decrypt(sig.get(), password, static_cast<int>(strlen(password)))
                          : nullptr);
    if (!p8 || !appendPkcs8Info(p8.get(), out)) {
        log.logError("Failed to decrypt the private key (wrong password?).");
        logErrors(log);
        return false;
    }
    return true;
}

}  // namespace keyossl
