// Where a certificate's private key is reachable: held in memory, behind a
// cloud signer, or on a token through a linked PKCS#11 session; and the export
// of the in-memory key.
#include "cert/CertCore.h"
#include "support/json/ClsJsonObject.h"
#include "support/pkcs11/ClsPkcs11.h"

namespace {

// The sentinel check and the lock shared by the locked operations: fn() under
// the lock, `stale` when the object fails its check.
template <class R, class Fn>
R lockedKeyOp(CertCore& cert, R stale, Fn fn) {
    if (cert.m_magic != CertCore::kMagic) return stale;
    CritSecExitor lock(&cert);
    return fn();
}

}  // namespace

bool CertCore::setCloudSigner(ClsJsonObject& json, LogBase& /*log*/) {
    RefCountedObject::release(m_cloudSigner);
    m_cloudSigner = nullptr;
    // An empty configuration is how callers remove the signer.
    if (json.get_Size() < 1) return true;
    // A private copy: later changes to the caller's object must not redirect
    // this certificate's signing.
    m_cloudSigner = json.Clone();
    return true;
}

void CertCore::linkToPkcs11Session(ClsPkcs11* session, int keyType, int expectedSigSize,
                                   unsigned long handle, LogBase& log) {
    LogContextExitor ctx(log, "linkToPkcs11Session");
    // The token knows the key's type; a certificate whose key lives there need
    // not parse its public key to answer getCertKeyType.
    if (keyType != 0) m_keyType = keyType;
    m_expectedSigSize = expectedSigSize;
    if (session != m_pkcs11) {
        RefCountedObject::release(m_pkcs11);
        m_pkcs11PrivKeyHandle = handle;
        m_pkcs11 = session;
        if (session) session->incRefCount();
        return;
    }
    // Same session: a handle already found stays; it may be in use for signing.
    if (session && handle != 0 && m_pkcs11PrivKeyHandle == 0) m_pkcs11PrivKeyHandle = handle;
}

void CertCore::unlinkFromPkcs11Session() {
    RefCountedObject::release(m_pkcs11);
    m_pkcs11 = nullptr;
    m_pkcs11PrivKeyHandle = 0;
}

bool CertCore::privateKeyNotExportable(LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        LogContextExitor ctx(log, "privateKeyNotExportable");
        return false;
    });
}

bool CertCore::setPrivateKeyPem(XString& pem, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        pem.setSecureX(true);
        m_privateKey.clearPublicKey();
        if (pem.isEmpty()) return false;
        return m_privateKey.loadPem(true, pem, log);
    });
}

bool CertCore::setPrivateKeyFromObj(_ovPublicKey& key, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        m_privateKey.clearPublicKey();
        return m_privateKey.copyFromPubKey(key, log);
    });
}

bool CertCore::setPrivateKeyDer2(DataBuffer& der, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        der.m_secure = 1;
        m_privateKey.clearPublicKey();
        if (der.isEmpty()) return false;
        return m_privateKey.loadAnyDer(der, log);
    });
}

void CertCore::setMsPkInfo(void* /*info*/) {
    lockedKeyOp(*this, 0, [] { return 0; });
}

void* CertCore::getMsPkInfo(LogBase& /*log*/) {
    return lockedKeyOp(*this, static_cast<void*>(nullptr),
                       [] { return static_cast<void*>(nullptr); });
}

bool CertCore::hasPrivateKey(bool /*flag*/, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        if (!m_privateKey.isEmpty()) return true;
        if (m_cloudSigner) {
            if (log.verboseLogging)
                log.logInfo("This certificate will utilize a cloud service for signing.");
            return true;
        }
        if (!m_pkcs11) return false;
        if (log.verboseLogging)
            log.logInfo(
                "This certificate is on a smart card or USB token and accessed via PKCS11.");
        if (m_pkcs11PrivKeyHandle == 0) {
            loginAndFindTokenKey(log);
            if (m_pkcs11PrivKeyHandle == 0) {
                // A linked session means the key is on the token, found or not:
                // the signing code logs in and searches again with the PIN the
                // caller sets by then.
                log.logInfo("Warning: make sure to set the Cert.SmartCardPin prior to signing");
                log.logInfo(
                    "w/ PKCS11, the private key handle can only be acquired in a PIN "
                    "authenticated session.");
                return true;
            }
        }
        if (log.verboseLogging)
            log.logInfo("Private key is available on smart card or USB token via PKCS11.");
        return true;
    });
}

// The caller holds the lock and has a session without a handle.
void CertCore::loginAndFindTokenKey(LogBase& log) {
    LogContextExitor ctx(log, "pkcs11_login_before_signing");
    // Already logged in: no search. Whoever logged in is expected to have looked
    // the key up and linked it; searching again here would hide that they did not.
    if (m_smartCardPin.isEmpty() || m_pkcs11->alreadyLoggedIn(ClsPkcs11::kUserNormal, log)) return;
    log.logInfo("Trying to PKCS11 login with smart card PIN... (9)");
    if (!m_pkcs11->login(ClsPkcs11::kUserNormal, m_smartCardPin.getUtf8(), log)) return;

    LogContextExitor success(log, "pkcs11_login_success");
    int keyType = 0;
    int expectedSigSize = 0;
    const unsigned long handle =
        m_pkcs11->findPrivKeyHandle(*this, true, keyType, expectedSigSize, log);
    log.LogDataBool("hasPrivateKey", handle != 0);
    if (handle == 0) return;
    log.LogDataLong("expectedSignatureSize", expectedSigSize);
    linkToPkcs11Session(m_pkcs11, keyType, expectedSigSize, handle, log);
}

bool CertCore::hasPrivateKeyDer(LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        if (!m_privateKey.isEmpty()) return true;
        // Nothing to load here: the call is made for the lines it logs, and the
        // answer is read afterwards so the two cannot disagree.
        DataBuffer der;
        bool usesSession = false;
        getPrivateKeyAsDER(der, usesSession, log);
        der.secureClear();
        return !m_privateKey.isEmpty();
    });
}

bool CertCore::getPrivateKeyAsDER(DataBuffer& out, bool& usesPkcs11Session, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        out.m_secure = 1;
        LogContextExitor ctx(log, "certGetPrivateKeyAsDER");
        usesPkcs11Session = false;
        out.secureClear();
        if (m_privateKey.isPrivateKey()) m_privateKey.toPrivKeyDer(true, out, log);
        const bool ok = !out.isEmpty();
        if (!ok && m_pkcs11) {
            log.logInfo("Will use the existing PKCS11 session for private key operations.");
            usesPkcs11Session = true;
            return false;
        }
        if (log.verboseLogging) log.LogDataBool("status", ok);
        return ok;
    });
}

bool CertCore::getPrivateKeyAsDER_noCryptoAPI(DataBuffer& out, LogBase& log) {
    return lockedKeyOp(*this, false, [&] {
        out.m_secure = 1;
        out.secureClear();
        m_privateKey.toPrivKeyDer(true, out, log);
        return !out.isEmpty();
    });
}

bool CertCore::getPrivateKeyAsUnencryptedPEM_noCryptoAPI(StringBuffer& out, LogBase& log) {
    return lockedKeyOp(*this, false, [&] { return m_privateKey.toPrivateKeyPem(true, out, log); });
}

bool CertCore::getSmartCardPin(XString& out, LogBase& /*log*/) {
    // The copy is as secret as the original.
    out.setSecureX(true);
    out.copyFromX(m_smartCardPin);
    return !out.isEmpty();
}

CertCore::KeyMatch CertCore::privateKeyMatchesCert(LogBase& log) {
    return lockedKeyOp(*this, KeyMatch::NoKey, [&] {
        OrvaneX509* x = getX509();
        if (!x || !m_privateKey.isPrivateKey()) return KeyMatch::NoKey;
        const DataBuffer& keySpki = m_privateKey.spkiDer();
        SpkiView mine, theirs;
        LogNull quiet;  // both were read before; a failure here is reported below
        if (!keyder::parseSpki(DerInput(keySpki.getData2(), keySpki.getSize()), &mine, quiet) ||
            !keyder::parseSpki(x->spkiDer(), &theirs, quiet)) {
            log.logError("The public keys could not be read for comparison.");
            return KeyMatch::Undecided;
        }
        switch (keyder::samePublicKey(mine, theirs)) {
            case keyder::SameKey::Yes:
                return KeyMatch::Matches;
            case keyder::SameKey::No:
                return KeyMatch::Differs;
            default:
                break;
        }
        // An algorithm our reader cannot compare: let OpenSSL judge.
        _ovPublicKey certKey;
        DataBuffer certSpki;
        if (!x->get_PublicKey(certSpki, log) || !certKey.loadAnyDer(certSpki, log))
            return KeyMatch::Undecided;
        EVP_PKEY* a = m_privateKey.evpKey(log);
        EVP_PKEY* b = certKey.evpKey(log);
        if (!a || !b) return KeyMatch::Undecided;
        const int eq = EVP_PKEY_eq(a, b);
        return eq == 1 ? KeyMatch::Matches : eq == 0 ? KeyMatch::Differs : KeyMatch::Undecided;
    });
}
