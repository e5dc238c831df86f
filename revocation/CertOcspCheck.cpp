// The OCSP check of one certificate: find its issuer, describe the request,
// have the HTTP client encode and post it, hand back the raw answer.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "revocation/OcspResponse.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/crypto/OvHash.h"
#include "support/crypto/RandomGen.h"
#include "support/json/ClsJsonObject.h"
#include "support/net/ClsHttp.h"
#include "support/net/HttpResult.h"
#include "support/store/SystemCerts.h"

using certquery::locked;

namespace {

constexpr int kSha1 = 1;

// Sets path to the base64 of the SHA-1 of data; the digest is kept in digest.
void setSha1(ClsJsonObject& desc, const char* path, const DataBuffer& data, DataBuffer& digest,
             LogBase& quiet) {
    digest.clear();
    _ovHash::doHash(data.getData2(), data.getSize(), kSha1, digest);
    StringBuffer b64;
    digest.encodeDB("base64", b64);
    desc.updateString(path, b64.getString(), quiet);
}

// The scoped owner of the JSON description (created with no counted reference).
struct JsonOwner {
    ClsJsonObject* json;
    ~JsonOwner() {
        if (json) json->decRefCount();
    }
};

}  // namespace

CertCore* CertCore::findIssuerCertificate(SystemCerts& sysCerts, LogBase& log) {
    LogContextExitor ctx(log, "findIssuerCertificate");
    // The store is asked without our lock: it locks itself and reads this
    // certificate through its own queries.
    if (locked(*this, false, [&](OrvaneX509* x) { return x->isIssuerSelf(log); })) return this;
    return sysCerts.sysCertsFindIssuer(*this, true, log);
}

bool CertCore::doOcspCheck(ClsHttp& http, const char* ocspUrl, SystemCerts& sysCerts,
                           DataBuffer& ocspResponse, LogBase& log, ProgressEvent* progress) {
    revocation::OcspAsked sent;
    return doOcspCheck(http, ocspUrl, sysCerts, ocspResponse, sent, log, progress);
}

bool CertCore::doOcspCheck(ClsHttp& http, const char* ocspUrl, SystemCerts& sysCerts,
                           DataBuffer& ocspResponse, revocation::OcspAsked& sent, LogBase& log,
                           ProgressEvent* progress) {
    LogContextExitor ctx(log, "doOcspCheck");
    LogNull quiet(log);
    ocspResponse.clear();
    log.logData("ocspUrl", ocspUrl ? ocspUrl : "");

    XString dn;
    certquery::replacing(*this, dn,
                         [&](OrvaneX509* x) { return x->getDN(true, true, dn, quiet, 0); });
    log.LogDataX("certificateDN", dn);

    JsonOwner owner{ClsJsonObject::createNewCls()};
    if (!owner.json) return false;
    ClsJsonObject& desc = *owner.json;

    //   Nonce ::= OCTET STRING (RFC 8954: 16 octets is what responders expect)
    sent.nonce.clear();
    sent.nonce.appendChar(0x04);
    sent.nonce.appendChar(0x10);
    RandomGen::randomBytes(16, sent.nonce);
    StringBuffer b64;
    sent.nonce.encodeDB("base64", b64);
    desc.updateString("extensions.ocspNonce", b64.getString(), quiet);
    desc.updateString("request[0].cert.hashAlg", "sha1", quiet);

    DataBuffer part;
    if (!getPartDer(0, part, log)) {
        log.logError("Failed to get cert issuer DER.");
        return false;
    }
    setSha1(desc, "request[0].cert.issuerNameHash", part, sent.issuerNameHash, quiet);

    CertCore* issuer = findIssuerCertificate(sysCerts, log);
    if (!issuer) {
        log.logError("Failed to find issuer.");
        return false;
    }
    if (!issuer->getPartDer(3, part, log)) {
        log.logError("Failed to get cert public key for OCSP.");
        return false;
    }
    setSha1(desc, "request[0].cert.issuerKeyHash", part, sent.issuerKeyHash, quiet);

    XString serial;
    if (!locked(*this, false, [&](OrvaneX509* x) { return x->get_SerialNumber(serial, quiet); })) {
        log.logError("Failed to get cert serial number.");
        return false;
    }
    desc.updateString("request[0].cert.serialNumber", serial.getUtf8(), quiet);
    sent.serial.clear();
    sent.serial.appendEncoded(serial.getUtf8(), "hex");

    // An expired certificate is asked about all the same: some responders
    // still answer for it, and the caller decides what to make of a refusal.
    if (locked(*this, false, [&](OrvaneX509* x) { return x->isCertExpired(log); }))
        log.logError(
            "This certificate is expired. OCSP responder may give \"Request unauthorized\" "
            "response.");

    DataBuffer request;
    if (!http.createOcspRequest(desc, request, log)) {
        log.logError("Failed to create OCSP request.");
        return false;
    }

    XString url, contentType;
    url.appendUtf8(ocspUrl ? ocspUrl : "");
    contentType.appendUtf8("application/ocsp-request");
    HttpResult result;
    LogBase& httpLog =
        log.logKeywords.containsSubstring("LOG_OCSP_HTTP") ? log : static_cast<LogBase&>(quiet);
    if (!http.binaryRequest("POST", url, nullptr, request, contentType, false, false, result,
                            ocspResponse, progress, httpLog)) {
        log.logError("OCSP POST failed.");
        return false;
    }
    log.LogDataLong("ocspResponseStatusCode", result.get_StatusCode());
    return true;
}
