// ClsPem: the library's public PEM container. Holds the certificates and
// private keys read from PEM text.
#pragma once

#include <vector>

#include "support/base/LogBase.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"
#include "support/base/ProgressEvent.h"
#include "support/base/XString.h"

class ClsCert;
class ClsPrivateKey;

class ClsPem : public RefCountedObject, public OrvaneCritSec {
  public:
    ClsPem() = default;
    ~ClsPem() override;
    ClsPem(const ClsPem&) = delete;
    ClsPem& operator=(const ClsPem&) = delete;

    // A new empty container; the caller releases it with decRefCount.
    static ClsPem* createNewCls();

    // Reads every block of the PEM text, in order, adding to what is held:
    // CERTIFICATE (also X509 CERTIFICATE and TRUSTED CERTIFICATE), PKCS7 (every
    // certificate inside), PRIVATE KEY, RSA/EC/DSA PRIVATE KEY, and ENCRYPTED
    // PRIVATE KEY (decrypted with password). Text between blocks and blocks of
    // other kinds are ignored. A block that cannot be read is skipped with a
    // warning line; false only when nothing at all could be read.
    bool loadPem(const char* text, XString& password, ProgressMonitor* progress, LogBase& log);

    int get_NumCerts() const;
    int get_NumPrivateKeys() const;
    // The n-th certificate / key with a reference for the caller (release with
    // decRefCount), or null. The object is shared with the container.
    ClsCert* getCert(int n, LogBase& log);
    ClsPrivateKey* getClsPrivateKey(int n, LogBase& log);

  private:
    bool addCertDer(const unsigned char* der, unsigned n, LogBase& log);
    int addPkcs7(const unsigned char* der, unsigned n, LogBase& log);

    std::vector<ClsCert*> m_certs;
    std::vector<ClsPrivateKey*> m_keys;
};
