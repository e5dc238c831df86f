// OcspResponse: a reader of OCSP responses (RFC 6960) over our DER cursor, and
// the check of their signature against the issuer or a delegated responder.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/asn1/DerReader.h"
#include "support/base/DataBuffer.h"

class CertCore;
class LogBase;

namespace revocation {

// What an OCSP request asked about, so that the answer can be matched to it:
// the CertID (hashed with SHA-1) and the nonce extension's value as sent (the
// DER OCTET STRING, 04 10 and 16 random bytes). Filled by doOcspCheck.
struct OcspAsked {
    DataBuffer issuerNameHash;
    DataBuffer issuerKeyHash;
    DataBuffer serial;  // the INTEGER's content octets
    DataBuffer nonce;
};

enum class OcspCertStatus { Good, Revoked, Unknown };

// One SingleResponse. Byte fields are views into the response's own copy.
struct OcspSingle {
    DerInput hashAlgOid;  // CertID.hashAlgorithm's OID content octets
    DerInput issuerNameHash;
    DerInput issuerKeyHash;
    DerInput serial;  // the INTEGER's content octets
    OcspCertStatus status = OcspCertStatus::Unknown;
    std::string revocationTime;  // RFC 3339 ("2026-11-24T12:00:00Z"); revoked only
    int reason = -1;             // CRLReason code; -1 when the answer gives none
    std::string thisUpdate;
    std::string nextUpdate;  // empty when absent
};

// Owns a copy of the response bytes; everything else views them. Used by one
// thread at a time.
class OcspResponse {
  public:
    // OCSPResponseStatus values (RFC 6960 4.2.1); 4 is not used.
    static constexpr int kSuccessful = 0;
    // The RFC's name of a status ("successful", "malformedRequest",
    // "internalError", "tryLater", "sigRequired", "unauthorized"); null for
    // any other value.
    static const char* statusName(int status);

    enum class Nonce { Absent, Match, Mismatch };
    enum class Signature { Valid, Invalid, Unchecked };

    // Reads an OCSPResponse. A successful one must carry a BasicOCSPResponse,
    // read whole (every SingleResponse); an error status has no body. False,
    // with one error line naming what is wrong and the object emptied, when
    // the bytes are not such a response.
    bool load(const unsigned char* p, size_t n, LogBase& log);

    int responseStatus() const { return m_status; }
    // Whether a BasicOCSPResponse was read (only a successful status has one).
    bool hasBasic() const { return m_hasBasic; }
    std::string producedAt() const { return m_producedAt; }
    const std::vector<OcspSingle>& responses() const { return m_singles; }
    // The certificates the response carries (certs [0]), each a whole DER
    // Certificate element; unchecked.
    const std::vector<DerInput>& certs() const { return m_certs; }

    // The SingleResponse for the CertID that was asked (SHA-1 hashes and the
    // serial all equal), or null.
    const OcspSingle* find(const OcspAsked& asked) const;
    // Whether the response repeats the nonce extension that was sent.
    Nonce nonce(const OcspAsked& asked) const;

    // Checks the signature. The signer is the issuer itself when the responder
    // ID names it (by name or by key hash), otherwise a certificate carried in
    // the response that the responder ID names, that has id-kp-OCSPSigning and
    // whose signature the issuer's key verifies. Unchecked when issuer is null
    // or no basic response was read; Invalid with a line saying why otherwise.
    Signature verify(CertCore* issuer, LogBase& log) const;

  private:
    bool fail(const char* why, LogBase& log);
    void reset();
    bool readBasic(DerInput basic, LogBase& log);
    bool readSingle(DerParser& responses, LogBase& log);
    bool signerMatches(CertCore& cert, LogBase& log) const;

    DataBuffer m_der;
    int m_status = -1;
    bool m_hasBasic = false;
    DerInput m_tbs;                 // ResponseData, whole element
    DerInput m_sigAlg;              // AlgorithmIdentifier, whole element
    DerInput m_signature;           // BIT STRING bits
    DerInput m_responderName;       // byName: the Name element; or
    DerInput m_responderKeyHash;    // byKey: the SHA-1 of the responder's key bits
    DerInput m_nonce;               // the nonce extension's extnValue contents
    std::vector<DerInput> m_certs;  // certs [0], each whole
    std::string m_producedAt;
    std::vector<OcspSingle> m_singles;
};

}  // namespace revocation
