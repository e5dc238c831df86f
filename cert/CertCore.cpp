#include "cert/CertCore.h"

#include <new>

#include "support/base/Psdk.h"
#include "support/json/ClsJsonObject.h"
#include "support/pkcs11/ClsPkcs11.h"

CertCore::CertCore() : RefCountedObject(), OrvaneCritSec() {
    m_cloudSigner = nullptr;
    initFields();
}

// A copy is a new, empty certificate. m_cloudSigner is not written here: the
// library's copy paths assign it right after construction, and nothing may read
// it before that.
CertCore::CertCore(const CertCore&) : RefCountedObject(), OrvaneCritSec() {
    initFields();
}

void CertCore::initFields() {
    m_magic = kMagic;
    m_smartCardPin.setSecureX(true);
    m_auxFlag = false;
    m_pkcs11 = nullptr;
    m_keyType = 0;
    m_expectedSigSize = 0;
    m_reserved = 0;
    m_pkcs11PrivKeyHandle = 0;
    m_keyBits = 0;
}

CertCore::~CertCore() {
    if (m_magic != kMagic) Psdk::corruptObjectFound(nullptr);
    RefCountedObject::release(m_cloudSigner);
    m_cloudSigner = nullptr;
    RefCountedObject::release(m_pkcs11);
    m_pkcs11 = nullptr;
    m_pkcs11PrivKeyHandle = 0;
    m_privateKey.clearPublicKey();
    clearSentinel(m_magic);
}

CertCore* CertCore::createNewCert() {
    return new (std::nothrow) CertCore();
}

OrvaneX509* CertCore::getX509() const {
    OrvaneX509* x = m_x509Holder.getX509();
    return (x && x->isLoaded()) ? x : nullptr;
}

CertCore* CertCore::createFromDer2(const unsigned char* der, unsigned size, void* /*ctx*/,
                                   SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "certCreateFromDer");
    CertCore* cert = createNewCert();
    if (!cert) return nullptr;
    OrvaneX509* x509 = cert->m_x509Holder.getX509();
    if (!x509 || !x509->loadX509DerAlt(der, size, store, log)) {
        // Count is still 0: nobody else can hold it, so delete directly.
        delete cert;
        return nullptr;
    }
    return cert;
}

CertCore* CertCore::createFromOrvaneX509_2(OrvaneX509* x509, LogBase& /*log*/) {
    if (!x509) return nullptr;
    CertCore* cert = createNewCert();
    if (!cert) {
        delete x509;  // ownership was handed to us
        return nullptr;
    }
    cert->m_x509Holder.setX509(x509);
    return cert;
}
