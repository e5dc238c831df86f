// SystemCerts: an in-memory certificate store, shared and thread safe.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"

class CertCore;

// Holds one reference to each certificate added. Certificates are indexed by
// their DER (duplicates are ignored) and by their subject name's DER, so issuer
// lookups cost a hash probe, not a scan, in stores of thousands.
class SystemCerts : public RefCountedObject, public OrvaneCritSec {
  public:
    SystemCerts() = default;
    ~SystemCerts() override;
    SystemCerts(const SystemCerts&) = delete;
    SystemCerts& operator=(const SystemCerts&) = delete;

    // Adds cert, taking a reference. A certificate whose DER is already in the
    // store is not added again (still true). False for a null or unparsed
    // certificate.
    bool addCertificate(CertCore* cert, LogBase& log);

    // The issuer of cert among the stored certificates, or null; the store keeps
    // ownership. Candidates are the certificates whose subject name equals
    // cert's issuer name (byte for byte). Among them the first whose subject key
    // identifier equals cert's authority key identifier and whose key verifies
    // cert's signature wins; then the first whose key verifies the signature.
    // With mustVerify false, when no candidate verifies, the first candidate
    // whose key id matches (or else the first candidate) is returned anyway;
    // with mustVerify true such a candidate is not returned.
    CertCore* sysCertsFindIssuer(CertCore& cert, bool mustVerify, LogBase& log);

    int numCerts() const;
    // The certificate added n-th (0-based), or null; the store keeps ownership.
    CertCore* certAt(int n) const;
    // A stored certificate with exactly this DER, or null.
    CertCore* findByDer(const unsigned char* der, unsigned n) const;

  private:
    std::vector<CertCore*> m_certs;
    // Keys are views into the stored certificates' own DER, which lives as long
    // as the store's reference does, so the indexes copy no bytes.
    std::unordered_map<std::string_view, size_t> m_byDer;
    std::unordered_map<std::string_view, std::vector<size_t>> m_bySubject;
};
