// The certificate's public key as a key container, as a cached key-type code
// with its size, and as DER.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"

bool CertCore::getCertPublicKey(_ovPublicKey& key, LogBase& log) {
    LogContextExitor ctx(log, "getCertPublicKey");
    DataBuffer der;
    bool haveDer =
        certquery::locked(*this, false, [&](OrvaneX509* x) { return x->get_PublicKey(der, log); });
    // The container is loaded outside the lock: only the certificate's bytes
    // need guarding, and key loading may be slow.
    if (!haveDer) {
        log.logError("Unable to get certificate's public key DER.");
        return false;
    }
    if (!key.loadAnyDer(der, log)) {
        log.logError("Unable to load public key DER.");
        return false;
    }
    return true;
}

int CertCore::getCertKeyType(int& bits, LogBase& log) {
    _ovPublicKey key;
    return getCertKeyType2(bits, key, log);
}

int CertCore::getCertKeyType2(int& bits, _ovPublicKey& key, LogBase& log) {
    // Read without the lock. The size is published before the type and never
    // reset, so whoever sees a type sees its size. The cache may also have been
    // filled by the token link, which knows the type without the key being
    // loaded here.
    int cached = m_keyType.load(std::memory_order_acquire);
    if (cached != 0) {
        bits = m_keyBits.load(std::memory_order_relaxed);
        return cached;
    }
    bits = 0;
    if (!getCertPublicKey(key, log)) return 0;
    const int keyBits = static_cast<int>(key.getBitLength());

    // Tested RSA, EC, DSA, Ed25519 but numbered 1, 3, 2, 5: the codes are
    // shared with the token link and stored by callers, so they never move.
    int type = 0;
    if (key.isRsa())
        type = 1;
    else if (key.isEcc())
        type = 3;
    else if (key.isDsa())
        type = 2;
    else if (key.isEd25519())
        type = 5;
    bits = keyBits;
    {
        // Concurrent first calls compute the same pair; the lock keeps one
        // writer at a time. 0 leaves the cache "not yet known", so an unknown
        // key is looked at again.
        CritSecExitor lock(this);
        if (m_keyType.load(std::memory_order_relaxed) == 0) {
            m_keyBits.store(keyBits, std::memory_order_relaxed);
            m_keyType.store(type, std::memory_order_release);
        }
    }
    return type;
}

bool CertCore::appendCertKeyType(StringBuffer& out, LogBase& log) {
    int type = m_keyType.load(std::memory_order_acquire);
    if (type == 0) {
        int bits = 0;
        type = getCertKeyType(bits, log);
    }
    const char* name = "unknown";
    switch (type) {
        case 1:
            name = "rsa";
            break;
        case 2:
            name = "dsa";
            break;
        case 3:
            name = "ecdsa";
            break;
        case 5:
            name = "eddsa";
            break;
        default:
            break;
    }
    return out.append(name);
}

bool CertCore::getPublicKeyAsDER_2(bool spki, DataBuffer& out, LogBase& log) {
    return certquery::replacing(*this, out, [&](OrvaneX509* x) {
        DataBuffer der;
        if (!x->get_PublicKey(der, log)) return false;
        _ovPublicKey key;
        if (!key.loadAnyDer(der, log)) return false;
        return key.toPubKeyDer(spki, out, log);
    });
}
