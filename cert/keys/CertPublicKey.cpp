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
    // Unlocked on purpose: concurrent first calls compute and store the same
    // values. The cache may also have been filled by the token link, which knows
    // the type without the key being loaded here.
    if (m_keyType != 0) {
        bits = m_keyBits;
        return m_keyType;
    }
    bits = 0;
    m_keyBits = 0;
    if (!getCertPublicKey(key, log)) return 0;
    bits = static_cast<int>(key.getBitLength());
    m_keyBits = bits;

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
    // 0 leaves the cache "not yet known", so an unknown key is looked at again.
    m_keyType = type;
    return type;
}

bool CertCore::appendCertKeyType(StringBuffer& out, LogBase& log) {
    if (m_keyType == 0) {
        int bits = 0;
        getCertKeyType(bits, log);
    }
    const char* name = "unknown";
    switch (m_keyType) {
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
