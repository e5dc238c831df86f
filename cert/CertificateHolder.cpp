#include "cert/CertificateHolder.h"

#include <new>

#include "cert/CertCore.h"
#include "support/base/Psdk.h"
#include "support/store/SystemCerts.h"

CertificateHolder::CertificateHolder()
    : m_cert(nullptr),
      m_depositB64(nullptr),
      m_depositBinary(nullptr),
      m_depositDer(nullptr),
      m_systemCerts(nullptr),
      m_magic(kMagic) {}

CertificateHolder::CertificateHolder(const CertificateHolder&) : CertificateHolder() {}

CertificateHolder::~CertificateHolder() {
    if (m_magic != kMagic) Psdk::corruptObjectFound(nullptr);
    clearDeposits();
    RefCountedObject::release(m_cert);
    m_cert = nullptr;
    RefCountedObject::release(m_systemCerts);
    m_systemCerts = nullptr;
    clearSentinel(m_magic);
}

void CertificateHolder::clearDeposits() {
    StringBuffer::deleteSb(m_depositB64);
    m_depositB64 = nullptr;
    OrvaneObject::deleteObject(m_depositBinary);
    m_depositBinary = nullptr;
    OrvaneObject::deleteObject(m_depositDer);
    m_depositDer = nullptr;
}

void CertificateHolder::setCert(CertCore* cert) {
    if (m_magic != kMagic) {
        Psdk::badObjectFound(nullptr);
        return;
    }
    if (!cert || cert == m_cert) return;
    if (cert->m_magic != CertCore::kMagic) {
        Psdk::badObjectFound(nullptr);
        return;
    }
    clearDeposits();
    if (m_cert) {
        if (m_cert->m_magic != CertCore::kMagic) {
            Psdk::badObjectFound(nullptr);
            return;
        }
        m_cert->decRefCount();
    }
    m_cert = cert;
    m_cert->incRefCount();
}

CertCore* CertificateHolder::getCertPtr(LogBase& log) {
    if (m_magic != kMagic) {
        Psdk::badObjectFound(nullptr);
        return nullptr;
    }
    if (!m_cert) {
        CertCore* parsed = nullptr;
        if (m_depositB64) {
            parsed = CertCore::createFromBase64_2(m_depositB64->getString(),
                                                  m_depositB64->getSize(), m_systemCerts, log);
        } else if (m_depositBinary) {
            parsed = CertCore::createFromBinary2(
                reinterpret_cast<const char*>(m_depositBinary->getData2()),
                m_depositBinary->getSize(), m_systemCerts, log);
        } else if (m_depositDer) {
            // The store is deliberately not used for a DER deposit.
            parsed = CertCore::createFromDer2(m_depositDer->getData2(), m_depositDer->getSize(),
                                              nullptr, nullptr, log);
        }
        m_cert = parsed;
        if (m_cert) m_cert->incRefCount();
        // A deposit is parsed once: a failure is not retried on the next call.
        clearDeposits();
    }
    if (!m_cert) return nullptr;
    if (m_cert->m_magic != CertCore::kMagic) {
        Psdk::badObjectFound(nullptr);
        return nullptr;
    }
    return m_cert;
}

CertCore* CertificateHolder::getNthCert(ExtPtrArray& holders, int index, LogBase& log) {
    auto* h = static_cast<CertificateHolder*>(holders.elementAt(index));
    return h ? h->getCertPtr(log) : nullptr;
}

CertificateHolder* CertificateHolder::wrap(CertCore* cert) {
    if (!cert) return nullptr;
    auto* h = new (std::nothrow) CertificateHolder();
    if (!h) return nullptr;
    h->setCert(cert);
    return h;
}

CertificateHolder* CertificateHolder::wrapFresh(CertCore* cert) {
    CertificateHolder* h = wrap(cert);
    if (!h) delete cert;  // nobody else holds a factory's fresh object
    return h;
}

CertificateHolder* CertificateHolder::newWithStore(SystemCerts* store) {
    auto* h = new (std::nothrow) CertificateHolder();
    if (h && store) {
        h->m_systemCerts = store;
        store->incRefCount();
    }
    return h;
}

bool CertificateHolder::appendNewCertHolder(CertCore* cert, ExtPtrArray& holders, LogBase&) {
    CertificateHolder* h = wrap(cert);
    if (!h) return false;
    return holders.appendPtr(h);
}

CertificateHolder* CertificateHolder::createFromCert(CertCore* cert, LogBase&) {
    return wrap(cert);
}

CertificateHolder* CertificateHolder::cloneCertHolder() {
    auto* h = new (std::nothrow) CertificateHolder();
    if (!h) return nullptr;
    if (m_cert) {
        // Shares the certificate; the store is deliberately not copied.
        h->m_cert = m_cert;
        m_cert->incRefCount();
        return h;
    }
    if (m_systemCerts) {
        h->m_systemCerts = m_systemCerts;
        m_systemCerts->incRefCount();
    }
    if (m_depositB64) {
        StringBuffer* sb = StringBuffer::createNewSB();
        if (sb) {
            sb->append(*m_depositB64);
            h->m_depositB64 = sb;
        }
    } else if (m_depositBinary) {
        DataBuffer* db = DataBuffer::createNewObject();
        if (db) {
            db->append(*m_depositBinary);
            h->m_depositBinary = db;
        }
    } else if (m_depositDer) {
        DataBuffer* db = DataBuffer::createNewObject();
        if (db) {
            db->append(*m_depositDer);
            h->m_depositDer = db;
        }
    }
    return h;
}

bool CertificateHolder::copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to) {
    int n = from.getSize();
    for (int i = 0; i < n; ++i) {
        auto* h = static_cast<CertificateHolder*>(from.elementAt(i));
        if (!h) continue;
        CertificateHolder* c = h->cloneCertHolder();
        if (c) to.appendPtr(c);
    }
    return true;
}

CertCore* CertificateHolder::newCertFromX509_refcount1(OrvaneX509* x509, LogBase&) {
    if (!x509) return nullptr;
    CertCore* cert = CertCore::createNewCert();
    if (!cert) return nullptr;
    cert->m_x509Holder.setX509(x509);
    cert->incRefCount();
    return cert;
}

CertificateHolder* CertificateHolder::createFromOrvaneX509(OrvaneX509* x509, LogBase& log) {
    if (!x509) return nullptr;
    return wrapFresh(CertCore::createFromOrvaneX509_2(x509, log));
}

CertificateHolder* CertificateHolder::createFromDer(const unsigned char* der, unsigned size,
                                                    void* ctx, LogBase& log) {
    if (ctx) {
        return wrapFresh(CertCore::createFromDer2(der, size, ctx, nullptr, log));
    }
    auto* h = new (std::nothrow) CertificateHolder();
    if (!h) return nullptr;
    DataBuffer* db = DataBuffer::createNewObject();
    if (db) {
        db->append(der, size);
        h->m_depositDer = db;
    }
    return h;
}

CertificateHolder* CertificateHolder::createFromFile(const char* path, SystemCerts* store,
                                                     LogBase& log) {
    return wrapFresh(CertCore::createFromFile2(path, store, log));
}

CertificateHolder* CertificateHolder::createFromBinaryDetectFmt(DataBuffer& data,
                                                                SystemCerts* store, LogBase& log) {
    return wrapFresh(CertCore::createFromBinaryDetectFmt(data, store, log));
}

CertificateHolder* CertificateHolder::createFromBinary(const char* data, unsigned size,
                                                       SystemCerts* store, LogBase&) {
    CertificateHolder* h = newWithStore(store);
    if (!h) return nullptr;
    DataBuffer* db = DataBuffer::createNewObject();
    if (db) {
        db->append(data, size);
        h->m_depositBinary = db;
    }
    return h;
}

CertificateHolder* CertificateHolder::createFromPem(const StringBuffer& pem, SystemCerts* store,
                                                    LogBase& log) {
    return wrapFresh(CertCore::createFromPemCertificate(pem.getString(), pem.getSize(), store, log));
}

CertificateHolder* CertificateHolder::createFromBase64(const char* text, unsigned length,
                                                       SystemCerts* store, LogBase&) {
    CertificateHolder* h = newWithStore(store);
    if (!h) return nullptr;
    StringBuffer* sb = StringBuffer::createNewSB();
    if (!sb) return h;
    sb->appendN(text, length);
    // XML transports leave CRs as character references between base64 lines.
    sb->replaceAllOccurances("&#13;", "");
    h->m_depositB64 = sb;
    return h;
}
