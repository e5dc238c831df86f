// Multi-object PEM: choose the primary certificate, attach its key, and hand
// the other certificates to the store. The only place certificates enter a store.
#include <memory>

#include "cert/CertCore.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/RefPtr.h"
#include "support/pem/ClsCert.h"
#include "support/pem/ClsPem.h"
#include "support/pem/ClsPrivateKey.h"
#include "support/pem/UnshroudedKey2.h"
#include "support/store/SystemCerts.h"
#include "support/x509/X509Name.h"

namespace {

// Sets dn to the certificate's subject DN (everyday style, with tags), under
// its lock; leaves dn as it was when the object is not valid.
void subjectDnOf(CertCore* cert, XString& dn, LogBase& log) {
    if (!cert->isValidObject()) return;
    CritSecExitor lock(cert);
    dn.clear();
    if (OrvaneX509* x = cert->getX509()) x->getDN(true, true, dn, log, X509Name::kStyleEveryday);
}

}  // namespace

CertCore* CertCore::createFromPemMultiple(ClsPem& pem, SystemCerts* store, LogBase& log) {
    LogContextExitor ctx(log, "createFromPemMultiple");

    ExtPtrArray keys;      // UnshroudedKey2
    ExtPtrArraySb keyIds;  // parallel to keys
    int numKeys = pem.get_NumPrivateKeys();
    log.LogDataLong("numKeys", numKeys);
    for (int k = 0; k < numKeys; ++k) {
        std::unique_ptr<UnshroudedKey2> uk(UnshroudedKey2::createNewObject());
        if (!uk) return nullptr;
        auto pk = RefPtr<ClsPrivateKey>::adopt(pem.getClsPrivateKey(k, log));
        if (!pk) continue;
        if (!pk->toPrivateKey(uk->m_key, log)) return nullptr;
        std::unique_ptr<StringBuffer> id(StringBuffer::createNewSB());
        if (!id) return nullptr;
        uk->m_key.getOrvaneKeyId64(*id, log);
        uk->m_key.logKeyType(log);
        keyIds.appendSb(id.release());
        keys.appendPtr(uk.release());
    }

    int numCerts = pem.get_NumCerts();
    log.LogDataLong("numCerts", numCerts);
    if (numCerts < 1) return nullptr;

    CertCore* primary = nullptr;  // borrowed from the ClsPem
    bool primaryHasKey = false;
    XString dn;
    for (int i = 0; i < numCerts; ++i) {
        auto cc = RefPtr<ClsCert>::adopt(pem.getCert(i, log));
        if (!cc) continue;
        CertCore* cert = cc->getCertificateDoNotDelete();
        if (!cert) continue;

        subjectDnOf(cert, dn, log);
        log.LogDataX("subjectDN", dn);

        StringBuffer certId;
        bool haveId = false;
        if (cert->isValidObject()) {
            CritSecExitor lock(cert);
            OrvaneX509* x = cert->getX509();
            haveId = x && x->getOrvaneKeyId64(certId, log);
        }
        if (!haveId) {
            log.logError("Unable to get the certificate public key information...");
            continue;
        }

        bool hasKey = false;
        for (int k = 0; k < keys.getSize(); ++k) {
            auto* uk = static_cast<UnshroudedKey2*>(keys.elementAt(k));
            StringBuffer* id = keyIds.sbAt(k);
            if (!uk || !id || !id->equals(certId)) continue;
            // Logged under this name with the DN as its value, not a flag.
            log.LogDataX("hasPrivateKey", dn);
            if (cert->isValidObject()) {
                CritSecExitor lock(cert);
                cert->m_privateKey.clearPublicKey();
                cert->m_privateKey.copyFromPubKey(uk->m_key, log);
            }
            hasKey = true;
            break;
        }

        // A bundle is about the certificate its private key belongs to, so the
        // first certificate with a matching key is the primary and every later
        // one goes to the store. Until then each certificate in turn takes the
        // place, the one it replaces going to the store: a bundle without a
        // key yields its last certificate, the answer callers have relied on.
        if (primary && primaryHasKey) {
            if (store) store->addCertificate(cert, log);
        } else {
            if (store && primary) store->addCertificate(primary, log);
            primary = cert;
            primaryHasKey = hasKey;
        }
    }
    if (!primary) return nullptr;

    DataBuffer der;
    if (!primary->getDEREncodedCert(der)) {
        log.logError("Failed to get primary cert DER.");
        return nullptr;
    }
    CertCore* result = createFromDer2(der.getData2(), der.getSize(), nullptr, store, log);
    if (!result) return nullptr;
    if (primaryHasKey && result->isValidObject()) {
        // One lock at a time: copy out of the primary, then into the result.
        _ovPublicKey key;
        {
            CritSecExitor primaryLock(primary);
            key.copyFromPubKey(primary->m_privateKey, log);
        }
        CritSecExitor lock(result);
        result->m_privateKey.clearPublicKey();
        result->m_privateKey.copyFromPubKey(key, log);
    }
    if (result->isValidObject()) subjectDnOf(result, dn, log);
    log.LogDataX("primaryCertDN", dn);
    return result;
}
