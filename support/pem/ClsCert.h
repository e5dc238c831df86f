// ClsCert: the library's public certificate class. For now a reference-counted
// wrapper that owns one CertCore reference.
#pragma once

#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"

class CertCore;

class ClsCert : public RefCountedObject, public OrvaneCritSec {
  public:
    ClsCert() = default;
    ~ClsCert() override;
    ClsCert(const ClsCert&) = delete;
    ClsCert& operator=(const ClsCert&) = delete;

    // A new ClsCert owning cert (taking one reference), or null when cert is
    // null or memory is exhausted. The caller releases it with decRefCount.
    static ClsCert* createFromCert(CertCore* cert);

    // The certificate inside, still owned by this object.
    CertCore* getCertificateDoNotDelete() const { return m_cert; }

  private:
    CertCore* m_cert = nullptr;
};
