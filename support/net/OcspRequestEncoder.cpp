#include "support/net/OcspRequestEncoder.h"

#include <string>

#include "support/asn1/DerBuild.h"
#include "support/asn1/DerReader.h"
#include "support/asn1/OidTable.h"
#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/json/ClsJsonObject.h"

namespace {

struct HashAlg {
    const char* name;
    const KnownOid& oid;
    unsigned digestLen;
};

const HashAlg kHashAlgs[] = {
    {"sha1", oids::kSha1, 20},
    {"sha256", oids::kSha256, 32},
    {"sha384", oids::kSha384, 48},
    {"sha512", oids::kSha512, 64},
};

// RFC 8954 bounds the nonce: responders may reject anything outside 1..32 octets.
constexpr size_t kMinNonce = 1;
constexpr size_t kMaxNonce = 32;

// Error reporting: one line naming the member, so the caller can see which part
// of its description to fix.
bool missing(LogBase& log, const std::string& path) {
    std::string line = "Missing member in the OCSP request description: " + path;
    log.logError(line.c_str());
    return false;
}

bool bad(LogBase& log, const std::string& path, const char* reason) {
    std::string line = "Bad value in the OCSP request description: " + path;
    log.logError(line.c_str());
    log.logData("reason", reason);
    return false;
}

bool outOfMemory(LogBase& log) {
    log.logError("Out of memory while building the OCSP request.");
    return false;
}

bool requireString(const ClsJsonObject& desc, const std::string& path, StringBuffer& value,
                   LogBase& log) {
    if (!desc.hasMember(path.c_str())) return missing(log, path);
    if (!desc.isStringAt(path.c_str()) || !desc.stringOf(path.c_str(), value)) {
        return bad(log, path, "must be a string");
    }
    return true;
}

bool base64Member(const ClsJsonObject& desc, const std::string& path, DataBuffer& bytes,
                  LogBase& log) {
    StringBuffer text;
    if (!requireString(desc, path, text, log)) return false;
    if (!ContentCoding::decodeBase64ToDb(text.getString(), text.getSize(), bytes)) {
        return bad(log, path, "not base64");
    }
    return true;
}

//   CertID ::= SEQUENCE {
//       hashAlgorithm   AlgorithmIdentifier,
//       issuerNameHash  OCTET STRING, -- Hash of issuer's DN
//       issuerKeyHash   OCTET STRING, -- Hash of issuer's public key
//       serialNumber    CertificateSerialNumber }
bool appendCertId(const ClsJsonObject& desc, const std::string& cert, DataBuffer& out,
                  LogBase& log) {
    std::string algPath = cert + ".hashAlg";
    StringBuffer algName;
    if (!requireString(desc, algPath, algName, log)) return false;
    const HashAlg* alg = nullptr;
    for (const HashAlg& a : kHashAlgs) {
        if (algName.equalsIgnoreCase(a.name)) alg = &a;
    }
    if (!alg) return bad(log, algPath, "unsupported hash algorithm");

    DataBuffer nameHash, keyHash;
    const char* lengthReason = "digest length does not match the hash algorithm";
    std::string namePath = cert + ".issuerNameHash";
    if (!base64Member(desc, namePath, nameHash, log)) return false;
    if (nameHash.getSize() != alg->digestLen) return bad(log, namePath, lengthReason);
    std::string keyPath = cert + ".issuerKeyHash";
    if (!base64Member(desc, keyPath, keyHash, log)) return false;
    if (keyHash.getSize() != alg->digestLen) return bad(log, keyPath, lengthReason);

    std::string serialPath = cert + ".serialNumber";
    StringBuffer serialHex;
    if (!requireString(desc, serialPath, serialHex, log)) return false;
    DataBuffer serial;
    if (!ContentCoding::decodeHex(serialHex.getString(), serialHex.getSize(), serial)) {
        return bad(log, serialPath, "not hexadecimal with an even number of digits");
    }
    if (serial.isEmpty()) return bad(log, serialPath, "empty");

    //   AlgorithmIdentifier ::= SEQUENCE { algorithm OID, parameters ANY OPTIONAL }
    DataBuffer algId, content;
    bool ok = derbuild::oid(algId, alg->oid) && derbuild::null(algId) &&
              derbuild::sequence(content, algId) && derbuild::octetString(content, nameHash) &&
              derbuild::octetString(content, keyHash) && derbuild::integerBytes(content, serial) &&
              derbuild::sequence(out, content);
    return ok || outOfMemory(log);
}

//   Extension ::= SEQUENCE {
//       extnID     OBJECT IDENTIFIER,
//       critical   BOOLEAN DEFAULT FALSE,
//       extnValue  OCTET STRING }
bool appendNonceExtension(const ClsJsonObject& desc, const std::string& path, DataBuffer& out,
                          LogBase& log) {
    DataBuffer nonce;
    if (!base64Member(desc, path, nonce, log)) return false;
    // The extnValue holds the DER of Nonce ::= OCTET STRING, so the member must be
    // exactly one such element.
    DerParser p(DerInput(nonce.getData2(), nonce.getSize()));
    DerInput inner;
    if (!p.read(der::kOctetString, &inner) || p.hasMore()) {
        return bad(log, path, "not one DER OCTET STRING");
    }
    if (inner.size() < kMinNonce || inner.size() > kMaxNonce) {
        return bad(log, path, "nonce length outside 1 to 32 octets");
    }
    DataBuffer ext;
    bool ok = derbuild::oid(ext, oids::kOcspNonce) && derbuild::octetString(ext, nonce) &&
              derbuild::sequence(out, ext);
    return ok || outOfMemory(log);
}

//   requestExtensions [2] EXPLICIT Extensions OPTIONAL
//   Extensions ::= SEQUENCE SIZE (1..MAX) OF Extension
bool appendRequestExtensions(const ClsJsonObject& desc, DataBuffer& tbs, LogBase& log) {
    if (!desc.hasMember("extensions")) return true;
    int count = desc.sizeOfObject("extensions");
    if (count < 0) return bad(log, "extensions", "must be an object");
    if (count == 0) return true;  // an empty Extensions is not allowed: leave it out
    DataBuffer list;
    for (int i = 0; i < count; ++i) {
        StringBuffer name;
        if (!desc.memberNameAt("extensions", i, name)) return outOfMemory(log);
        std::string path = std::string("extensions.") + name.getString();
        if (!name.equals("ocspNonce")) return bad(log, path, "unsupported extension");
        if (!appendNonceExtension(desc, path, list, log)) return false;
    }
    DataBuffer seq;
    bool ok = derbuild::sequence(seq, list) && derbuild::explicitTag(tbs, 2, seq);
    return ok || outOfMemory(log);
}

}  // namespace

bool OcspRequestEncoder::encode(const ClsJsonObject& desc, DataBuffer& out, LogBase& log) {
    LogContextExitor ctx(log, "createOcspRequest");

    //   TBSRequest ::= SEQUENCE {
    //       version            [0] EXPLICIT Version DEFAULT v1,
    //       requestorName      [1] EXPLICIT GeneralName OPTIONAL,
    //       requestList        SEQUENCE OF Request,
    //       requestExtensions  [2] EXPLICIT Extensions OPTIONAL }
    if (!desc.hasMember("request")) return missing(log, "request");
    int numRequests = desc.sizeOfArray("request");
    if (numRequests <= 0) return bad(log, "request", "must be a non-empty array");

    DataBuffer requestList;
    for (int i = 0; i < numRequests; ++i) {
        std::string cert = "request[" + std::to_string(i) + "].cert";
        if (!desc.hasMember(cert.c_str())) return missing(log, cert);
        if (!desc.isObjectAt(cert.c_str())) return bad(log, cert, "must be an object");
        //   Request ::= SEQUENCE {
        //       reqCert                  CertID,
        //       singleRequestExtensions  [0] EXPLICIT Extensions OPTIONAL }
        DataBuffer certId;
        if (!appendCertId(desc, cert, certId, log)) return false;
        if (!derbuild::sequence(requestList, certId)) return outOfMemory(log);
    }

    DataBuffer tbs;
    if (!derbuild::sequence(tbs, requestList)) return outOfMemory(log);
    if (!appendRequestExtensions(desc, tbs, log)) return false;

    //   OCSPRequest ::= SEQUENCE {
    //       tbsRequest         TBSRequest,
    //       optionalSignature  [0] EXPLICIT Signature OPTIONAL }
    DataBuffer tbsRequest, request;
    if (!derbuild::sequence(tbsRequest, tbs) || !derbuild::sequence(request, tbsRequest) ||
        !out.append(request)) {
        return outOfMemory(log);
    }
    return true;
}
