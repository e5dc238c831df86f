// Small factories of the PEM container's companion classes.
#include <new>

#include "cert/CertCore.h"
#include "support/pem/ClsCert.h"
#include "support/pem/ClsPrivateKey.h"
#include "support/pem/UnshroudedKey2.h"

UnshroudedKey2* UnshroudedKey2::createNewObject() {
    return new (std::nothrow) UnshroudedKey2();
}

ClsPrivateKey* ClsPrivateKey::createNewCls() {
    return new (std::nothrow) ClsPrivateKey();
}

bool ClsPrivateKey::toPrivateKey(_ovPublicKey& out, LogBase& log) {
    CritSecExitor lock(this);
    return out.copyFromPubKey(m_key, log);
}

bool ClsPrivateKey::setFromKey(const _ovPublicKey& key, LogBase& log) {
    CritSecExitor lock(this);
    return m_key.copyFromPubKey(key, log);
}

ClsCert* ClsCert::createFromCert(CertCore* cert) {
    if (!cert) return nullptr;
    ClsCert* c = new (std::nothrow) ClsCert();
    if (!c) return nullptr;
    c->m_cert = cert;
    cert->incRefCount();
    return c;
}

ClsCert::~ClsCert() {
    RefCountedObject::release(m_cert);
}
