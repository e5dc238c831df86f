#include "support/crypto/SigVerify.h"

#include <openssl/err.h>
#include <openssl/rsa.h>

#include <cstring>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/crypto/KeyDer.h"
#include "support/crypto/KeyOssl.h"
#include "support/crypto/OvHash.h"

namespace {

enum class Scheme { RsaPkcs1, RsaPss, Ecdsa, Dsa, Ed25519, Ed448, Refused };

struct SigAlg {
    const char* oid;
    Scheme scheme;
    int hash;  // _ovHash id; 0 for the EdDSA schemes (and PSS: from the parameters)
};

const SigAlg kSigAlgs[] = {
    {"1.2.840.113549.1.1.5", Scheme::RsaPkcs1, ovhash::kSha1},     // sha1WithRSAEncryption
    {"1.2.840.113549.1.1.14", Scheme::RsaPkcs1, ovhash::kSha224},  // sha224WithRSAEncryption
    {"1.2.840.113549.1.1.11", Scheme::RsaPkcs1, ovhash::kSha256},  // sha256WithRSAEncryption
    {"1.2.840.113549.1.1.12", Scheme::RsaPkcs1, ovhash::kSha384},  // sha384WithRSAEncryption
    {"1.2.840.113549.1.1.13", Scheme::RsaPkcs1, ovhash::kSha512},  // sha512WithRSAEncryption
    {"1.3.14.3.2.29", Scheme::RsaPkcs1, ovhash::kSha1},            // sha1WithRSASignature (OIW)
    {"2.16.840.1.101.3.4.3.13", Scheme::RsaPkcs1,
     ovhash::kSha3_224},  // id-rsassa-pkcs1-v1_5-with-sha3-224
    {"2.16.840.1.101.3.4.3.14", Scheme::RsaPkcs1,
     ovhash::kSha3_256},  // id-rsassa-pkcs1-v1_5-with-sha3-256
    {"2.16.840.1.101.3.4.3.15", Scheme::RsaPkcs1,
     ovhash::kSha3_384},  // id-rsassa-pkcs1-v1_5-with-sha3-384
    {"2.16.840.1.101.3.4.3.16", Scheme::RsaPkcs1,
     ovhash::kSha3_512},                                      // id-rsassa-pkcs1-v1_5-with-sha3-512
    {"1.2.840.113549.1.1.10", Scheme::RsaPss, 0},             // id-RSASSA-PSS
    {"1.2.840.10045.4.1", Scheme::Ecdsa, ovhash::kSha1},      // ecdsa-with-SHA1
    {"1.2.840.10045.4.3.1", Scheme::Ecdsa, ovhash::kSha224},  // ecdsa-with-SHA224
    {"1.2.840.10045.4.3.2", Scheme::Ecdsa, ovhash::kSha256},  // ecdsa-with-SHA256
    {"1.2.840.10045.4.3.3", Scheme::Ecdsa, ovhash::kSha384},  // ecdsa-with-SHA384
    {"1.2.840.10045.4.3.4", Scheme::Ecdsa, ovhash::kSha512},  // ecdsa-with-SHA512
    {"2.16.840.1.101.3.4.3.9", Scheme::Ecdsa, ovhash::kSha3_224},   // id-ecdsa-with-sha3-224
    {"2.16.840.1.101.3.4.3.10", Scheme::Ecdsa, ovhash::kSha3_256},  // id-ecdsa-with-sha3-256
    {"2.16.840.1.101.3.4.3.11", Scheme::Ecdsa, ovhash::kSha3_384},  // id-ecdsa-with-sha3-384
    {"2.16.840.1.101.3.4.3.12", Scheme::Ecdsa, ovhash::kSha3_512},  // id-ecdsa-with-sha3-512
    {"1.2.840.10040.4.3", Scheme::Dsa, ovhash::kSha1},              // id-dsa-with-sha1
    {"2.16.840.1.101.3.4.3.1", Scheme::Dsa, ovhash::kSha224},       // id-dsa-with-sha224
    {"2.16.840.1.101.3.4.3.2", Scheme::Dsa, ovhash::kSha256},       // id-dsa-with-sha256
    {"1.3.101.112", Scheme::Ed25519, 0},                            // id-Ed25519
    {"1.3.101.113", Scheme::Ed448, 0},                              // id-Ed448
    {"1.2.840.113549.1.1.2", Scheme::Refused, 0},                   // md2WithRSAEncryption
    {"1.2.840.113549.1.1.4", Scheme::Refused, 0},                   // md5WithRSAEncryption
};

// Digests that RSA-PSS parameters may name.
struct PssHash {
    const char* oid;
    int hash;
};
const PssHash kPssHashes[] = {
    {"1.3.14.3.2.26", ovhash::kSha1},             // id-sha1
    {"2.16.840.1.101.3.4.2.4", ovhash::kSha224},  // id-sha224
    {"2.16.840.1.101.3.4.2.1", ovhash::kSha256},  // id-sha256
    {"2.16.840.1.101.3.4.2.2", ovhash::kSha384},  // id-sha384
    {"2.16.840.1.101.3.4.2.3", ovhash::kSha512},  // id-sha512
};
constexpr const char* kMgf1 = "1.2.840.113549.1.1.8";  // id-mgf1

bool fail(LogBase& log, const char* msg) {
    log.logError(msg);
    return false;
}

bool failWithOid(LogBase& log, const char* msg, const char* oid) {
    StringBuffer sb;
    sb.append3(msg, ": ", oid);
    log.logError(sb.getString());
    return false;
}

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
bool readAlgId(DerInput in, char* oid, size_t oidSize, DerElement* params, bool* hasParams) {
    DerParser top(in);
    DerParser seq;
    DerInput o;
    if (!top.readSequence(&seq) || top.hasMore() || !seq.readOid(&o) ||
        !der::oidToText(o, oid, oidSize))
        return false;
    *hasParams = seq.hasMore();
    if (*hasParams && (!seq.readAny(params) || seq.hasMore())) return false;
    return true;
}

// A digest AlgorithmIdentifier inside PSS parameters; its parameters are NULL or
// absent (RFC 4055 asks for NULL, encoders write both).
bool readPssHash(DerInput algId, int* hash) {
    char oid[80];
    DerElement params;
    bool hasParams = false;
    if (!readAlgId(algId, oid, sizeof oid, &params, &hasParams)) return false;
    if (hasParams && (params.tag != der::kNull || !params.contents.empty())) return false;
    for (const PssHash& h : kPssHashes) {
        if (!strcmp(h.oid, oid)) {
            *hash = h.hash;
            return true;
        }
    }
    return false;
}

struct PssParams {
    int hash = ovhash::kSha1;
    int mgf1Hash = ovhash::kSha1;
    int saltLength = 20;
};

// RSASSA-PSS-params ::= SEQUENCE {
//   hashAlgorithm      [0] HashAlgorithm    DEFAULT sha1,
//   maskGenAlgorithm   [1] MaskGenAlgorithm DEFAULT mgf1SHA1,
//   saltLength         [2] INTEGER          DEFAULT 20,
//   trailerField       [3] TrailerField     DEFAULT trailerFieldBC }
bool readPssParams(const DerElement& params, PssParams* out, LogBase& log) {
    if (params.tag != der::kSequence) return fail(log, "Invalid RSA-PSS parameters.");
    DerParser seq(params.contents);
    DerInput field;
    bool present = false;
    if (!seq.readOptional(der::contextConstructed(0), &field, &present))
        return fail(log, "Invalid RSA-PSS parameters.");
    if (present && !readPssHash(field, &out->hash))
        return fail(log, "Unsupported RSA-PSS hash algorithm.");
    if (!seq.readOptional(der::contextConstructed(1), &field, &present))
        return fail(log, "Invalid RSA-PSS parameters.");
    if (present) {
        // MaskGenAlgorithm ::= AlgorithmIdentifier { id-mgf1, HashAlgorithm }
        char oid[80];
        DerElement mgfParams;
        bool hasParams = false;
        if (!readAlgId(field, oid, sizeof oid, &mgfParams, &hasParams) || strcmp(oid, kMgf1) != 0 ||
            !hasParams || !readPssHash(mgfParams.whole, &out->mgf1Hash))
            return fail(log, "Unsupported RSA-PSS mask generation function.");
    }
    if (!seq.readOptional(der::contextConstructed(2), &field, &present))
        return fail(log, "Invalid RSA-PSS parameters.");
    if (present) {
        DerParser sp(field);
        uint64_t salt = 0;
        if (!sp.readUint64(&salt) || sp.hasMore() || salt > 1024)
            return fail(log, "Invalid RSA-PSS salt length.");
        out->saltLength = static_cast<int>(salt);
    }
    if (!seq.readOptional(der::contextConstructed(3), &field, &present))
        return fail(log, "Invalid RSA-PSS parameters.");
    if (present) {
        DerParser tp(field);
        uint64_t trailer = 0;
        if (!tp.readUint64(&trailer) || tp.hasMore() || trailer != 1)
            return fail(log, "Unsupported RSA-PSS trailer field.");
    }
    if (seq.hasMore()) return fail(log, "Invalid RSA-PSS parameters.");
    return true;
}

bool keyFitsScheme(Scheme s, const SpkiView& key) {
    switch (s) {
        case Scheme::RsaPkcs1:
            return !strcmp(key.oidText, keyoid::kRsaEncryption);
        case Scheme::RsaPss:
            return key.kind == KeyKind::Rsa;
        case Scheme::Ecdsa:
            return key.kind == KeyKind::Ec;
        case Scheme::Dsa:
            return key.kind == KeyKind::Dsa;
        case Scheme::Ed25519:
            return key.kind == KeyKind::Ed25519;
        case Scheme::Ed448:
            return key.kind == KeyKind::Ed448;
        default:
            return false;
    }
}

}  // namespace

bool ovVerifySignature(DerInput spki, DerInput sigAlgId, DerInput signedData, DerInput signature,
                       LogBase& log) {
    char oid[80];
    DerElement params;
    bool hasParams = false;
    if (!readAlgId(sigAlgId, oid, sizeof oid, &params, &hasParams))
        return fail(log, "Invalid signature algorithm identifier.");
    const SigAlg* alg = nullptr;
    for (const SigAlg& a : kSigAlgs) {
        if (!strcmp(a.oid, oid)) alg = &a;
    }
    if (!alg) return failWithOid(log, "Unsupported signature algorithm", oid);
    if (alg->scheme == Scheme::Refused)
        return failWithOid(log, "MD2 and MD5 signatures are not accepted", oid);

    int hash = alg->hash;
    PssParams pss;
    if (alg->scheme == Scheme::RsaPss) {
        if (!hasParams) return fail(log, "RSA-PSS signature parameters are missing.");
        if (!readPssParams(params, &pss, log)) return false;
        hash = pss.hash;
    } else if (hasParams) {
        // Parameters are absent for ECDSA, DSA and EdDSA and NULL for RSA, but
        // encoders have written NULL for the former too; anything else is wrong.
        const bool isNull = params.tag == der::kNull && params.contents.empty();
        if (!isNull || alg->scheme == Scheme::Ed25519 || alg->scheme == Scheme::Ed448)
            return fail(log, "Unexpected signature algorithm parameters.");
    }

    SpkiView key;
    if (!keyder::parseSpki(spki, &key, log)) return false;
    if (!keyFitsScheme(alg->scheme, key)) {
        log.logError("The signature algorithm does not match the key type.");
        log.logData("sigAlgOid", oid);
        log.logData("keyAlgOid", key.oidText);
        return false;
    }

    ossl::PkeyPtr pkey = keyossl::fromSpki(spki, log);
    if (!pkey) return false;
    const EVP_MD* md = hash ? _ovHash::evpMd(hash) : nullptr;
    if (hash && !md) return fail(log, "The signature's digest is not available.");

    ossl::MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* pctx = nullptr;  // owned by ctx
    if (!ctx || EVP_DigestVerifyInit(ctx.get(), &pctx, md, nullptr, pkey.get()) != 1) {
        keyossl::logErrors(log);
        return fail(log, "Failed to initialise signature verification.");
    }
    if (alg->scheme == Scheme::RsaPss) {
        const EVP_MD* mgf = _ovHash::evpMd(pss.mgf1Hash);
        if (!mgf || EVP_PKEY_CTX_set_rsa_padding(pctx, RSA_PKCS1_PSS_PADDING) != 1 ||
            EVP_PKEY_CTX_set_rsa_mgf1_md(pctx, mgf) != 1 ||
            EVP_PKEY_CTX_set_rsa_pss_saltlen(pctx, pss.saltLength) != 1) {
            keyossl::logErrors(log);
            return fail(log, "The RSA-PSS parameters do not suit the key.");
        }
    }
    const int rc = EVP_DigestVerify(ctx.get(), signature.data(), signature.size(),
                                    signedData.data(), signedData.size());
    ERR_clear_error();
    if (rc != 1) return fail(log, "The signature does not verify.");
    return true;
}
