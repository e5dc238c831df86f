#include "support/pkcs11/ClsPkcs11.h"

#include <cstring>
#include <new>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/pkcs11/CertPublicKeyParts.h"
#include "support/pkcs11/Pkcs11KeyFinder.h"

ClsPkcs11* ClsPkcs11::createNewCls() {
    return new (std::nothrow) ClsPkcs11();
}

ClsPkcs11::~ClsPkcs11() {
    m_session.close();
    m_module.unload();
}

bool ClsPkcs11::requireSession(LogBase& log) const {
    if (m_session.isOpen()) return true;
    log.logError("No PKCS11 session is open.");
    return false;
}

bool ClsPkcs11::loadModule(const char* path, LogBase& log) {
    CritSecExitor cs(this);
    LogContextExitor ctx(log, "pkcs11LoadModule");
    m_session.close();
    return m_module.load(path, log);
}

bool ClsPkcs11::listSlots(bool tokenPresent, std::vector<unsigned long>& slotIds, LogBase& log) {
    CritSecExitor cs(this);
    slotIds.clear();
    CK_FUNCTION_LIST* fn = m_module.functions();
    if (!fn) {
        log.logError("No PKCS11 module is loaded.");
        return false;
    }
    // Slots can appear between the two calls (a reader plugged in); retry a few
    // times rather than loop for ever on a module that keeps growing the count.
    CK_RV rv = CKR_OK;
    for (int attempt = 0; attempt < 4; ++attempt) {
        CK_ULONG count = 0;
        rv = fn->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, nullptr, &count);
        if (rv != CKR_OK) break;
        std::vector<CK_SLOT_ID> ids(count);
        rv = fn->C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE,
                               ids.empty() ? nullptr : ids.data(), &count);
        if (rv == CKR_BUFFER_TOO_SMALL) continue;
        if (rv != CKR_OK) break;
        if (count > ids.size()) count = ids.size();
        slotIds.assign(ids.begin(), ids.begin() + static_cast<long>(count));
        return true;
    }
    pkcs11LogFailure(log, "C_GetSlotList failed.", rv);
    return false;
}

namespace {

// A slot that cannot be used: what is wrong with it, and which one.
bool slotRefused(LogBase& log, const char* why, CK_SLOT_ID slot) {
    log.logError(why);
    log.LogDataLong("slotId", static_cast<long>(slot));
    return false;
}

bool callFailed(LogBase& log, const char* sentence, CK_RV rv) {
    pkcs11LogFailure(log, sentence, rv);
    return false;
}

}  // namespace

bool ClsPkcs11::checkSlotHasToken(CK_SLOT_ID slot, LogBase& log) {
    CK_FUNCTION_LIST* fn = m_module.functions();
    CK_SLOT_INFO slotInfo;
    CK_RV rv = fn->C_GetSlotInfo(slot, &slotInfo);
    if (rv == CKR_SLOT_ID_INVALID) return slotRefused(log, "The PKCS11 slot does not exist.", slot);
    if (rv != CKR_OK) return callFailed(log, "C_GetSlotInfo failed.", rv);
    if (!(slotInfo.flags & CKF_TOKEN_PRESENT))
        return slotRefused(log, "No token is present in the PKCS11 slot.", slot);
    CK_TOKEN_INFO tokenInfo;
    rv = fn->C_GetTokenInfo(slot, &tokenInfo);
    if (rv != CKR_OK) return callFailed(log, "C_GetTokenInfo failed.", rv);
    if (!(tokenInfo.flags & CKF_TOKEN_INITIALIZED))
        return slotRefused(log, "The token in the PKCS11 slot is not initialized.", slot);
    return true;
}

bool ClsPkcs11::firstSlotWithToken(CK_SLOT_ID& slot, LogBase& log) {
    std::vector<unsigned long> ids;
    if (!listSlots(true, ids, log)) return false;
    CK_FUNCTION_LIST* fn = m_module.functions();
    for (unsigned long id : ids) {
        CK_TOKEN_INFO info;
        if (fn->C_GetTokenInfo(id, &info) == CKR_OK && (info.flags & CKF_TOKEN_INITIALIZED)) {
            slot = id;
            return true;
        }
    }
    log.logError("No PKCS11 slot has an initialized token.");
    log.LogDataLong("numSlotsWithToken", static_cast<long>(ids.size()));
    return false;
}

bool ClsPkcs11::openSession(long slotId, bool readWrite, LogBase& log) {
    CritSecExitor cs(this);
    LogContextExitor ctx(log, "pkcs11OpenSession");
    m_session.close();
    if (!m_module.isLoaded()) {
        log.logError("No PKCS11 module is loaded.");
        return false;
    }
    CK_SLOT_ID slot = 0;
    if (slotId == -1) {
        if (!firstSlotWithToken(slot, log)) return false;
    } else if (slotId < 0) {
        log.logError("The PKCS11 slot does not exist.");
        log.LogDataLong("slotId", slotId);
        return false;
    } else {
        slot = static_cast<CK_SLOT_ID>(slotId);
        if (!checkSlotHasToken(slot, log)) return false;
    }
    if (!m_session.open(m_module.functions(), slot, readWrite, log)) return false;
    if (log.verboseLogging) log.LogDataLong("slotId", static_cast<long>(slot));
    return true;
}

bool ClsPkcs11::hasSession() {
    CritSecExitor cs(this);
    return m_session.isOpen();
}

unsigned long ClsPkcs11::sessionSlotId() {
    CritSecExitor cs(this);
    return m_session.slot();
}

bool ClsPkcs11::closeSession(LogBase&) {
    CritSecExitor cs(this);
    m_session.close();
    return true;
}

bool ClsPkcs11::login(int userType, const char* pin, LogBase& log) {
    CritSecExitor cs(this);
    LogContextExitor ctx(log, "pkcs11Login");
    if (!requireSession(log)) return false;
    CK_USER_TYPE ckUser;
    switch (userType) {
        case kUserSO:
            ckUser = CKU_SO;
            break;
        case kUserNormal:
            ckUser = CKU_USER;
            break;
        case kUserContextSpecific:
            ckUser = CKU_CONTEXT_SPECIFIC;
            break;
        default:
            log.logError("Invalid PKCS11 user type.");
            log.LogDataLong("userType", userType);
            return false;
    }

    // C_Login takes a writable pointer; hand it a private copy that is wiped
    // however the call ends.
    DataBuffer pinCopy;
    pinCopy.setSecure(true);
    unsigned char noPin = 0;
    CK_UTF8CHAR* pinPtr = nullptr;
    CK_ULONG pinLen = 0;
    if (pin) {
        const unsigned n = static_cast<unsigned>(strlen(pin));
        if (n > 0 && !pinCopy.append(pin, n)) {
            log.logError("Out of memory.");
            return false;
        }
        // An empty PIN is still a PIN (the token judges it); only null asks for
        // the protected authentication path.
        pinPtr = n ? pinCopy.getDataRw() : &noPin;
        pinLen = n;
    }
    CK_RV rv = m_module.functions()->C_Login(m_session.handle(), ckUser, pinPtr, pinLen);
    pinCopy.secureClear();

    if (rv == CKR_OK) {
        if (log.verboseLogging) log.logInfo("PKCS11 login succeeded.");
        return true;
    }
    if (rv == CKR_USER_ALREADY_LOGGED_IN) {
        log.logInfo("Already logged in to the PKCS11 token.");
        return true;
    }
    pkcs11LogFailure(log, "PKCS11 login failed.", rv);
    return false;
}

bool ClsPkcs11::logout(LogBase& log) {
    CritSecExitor cs(this);
    if (!requireSession(log)) return false;
    CK_RV rv = m_module.functions()->C_Logout(m_session.handle());
    if (rv == CKR_OK || rv == CKR_USER_NOT_LOGGED_IN) return true;
    pkcs11LogFailure(log, "PKCS11 logout failed.", rv);
    return false;
}

bool ClsPkcs11::alreadyLoggedIn(int userType, LogBase& log) {
    CritSecExitor cs(this);
    if (!m_session.isOpen()) return false;
    CK_SESSION_INFO info;
    CK_RV rv = m_module.functions()->C_GetSessionInfo(m_session.handle(), &info);
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "C_GetSessionInfo failed.", rv);
        return false;
    }
    switch (userType) {
        case kUserNormal:
            return info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS;
        case kUserSO:
            return info.state == CKS_RW_SO_FUNCTIONS;
        default:
            // A context-specific login lasts one operation and is no session state.
            return false;
    }
}

unsigned long ClsPkcs11::findPrivKeyHandleForCert(const unsigned char* certDer, unsigned certLen,
                                                  bool mustBeAbleToSign, int& keyType,
                                                  int& expectedSigSize, LogBase& log) {
    return findPrivKeyHandleForCert(DerInput(certDer, certLen), DerInput(), mustBeAbleToSign,
                                    keyType, expectedSigSize, log);
}

unsigned long ClsPkcs11::findPrivKeyHandleForCert(DerInput certDer, DerInput spki,
                                                  bool mustBeAbleToSign, int& keyType,
                                                  int& expectedSigSize, LogBase& log) {
    CritSecExitor cs(this);
    LogContextExitor ctx(log, "pkcs11FindPrivKey");
    keyType = 0;
    expectedSigSize = 0;
    if (!requireSession(log)) return 0;
    CertPublicKeyParts parts;
    const bool parsed =
        spki.empty() ? parts.parseCertificate(certDer, log) : parts.parseSpki(spki, log);
    if (!parsed) return 0;
    return findFor(certDer, parts, mustBeAbleToSign, keyType, expectedSigSize, log);
}

unsigned long ClsPkcs11::findFor(DerInput der, const CertPublicKeyParts& parts,
                                 bool mustBeAbleToSign, int& keyType, int& expectedSigSize,
                                 LogBase& log) {
    Pkcs11KeyFinder finder(m_session, mustBeAbleToSign);
    CK_OBJECT_HANDLE key = finder.viaCertificateObject(der, log);
    if (key && log.verboseLogging)
        log.logInfo("Found the private key through the certificate on the token.");
    if (!key) {
        key = finder.viaPublicKey(parts, log);
        if (key && log.verboseLogging) log.logInfo("Found the private key by its public key.");
    }
    if (!key) {
        log.logInfo("No private key on the token matches the certificate.");
        return 0;
    }

    keyType = finder.keyTypeOf(key);
    // The certificate's key tells the size unless the token's key is of another
    // type, which only a certificate object paired by CKA_ID can bring about.
    if (keyType == parts.keyType()) {
        expectedSigSize = parts.expectedSigSize();
    } else if (keyType == CertPublicKeyParts::kRsa) {
        DataBuffer modulus;
        if (m_session.getAttribute(key, CKA_MODULUS, modulus)) {
            unsigned i = 0;
            while (i < modulus.getSize() && modulus.getData2()[i] == 0) ++i;
            expectedSigSize = static_cast<int>(modulus.getSize() - i);
        }
    }
    if (log.verboseLogging) {
        log.LogDataLong("keyType", keyType);
        log.LogDataLong("expectedSigSize", expectedSigSize);
    }
    return key;
}

bool ClsPkcs11::sign(unsigned long keyHandle, unsigned long mechanism, const unsigned char* data,
                     unsigned dataLen, DataBuffer& sig, LogBase& log) {
    CritSecExitor cs(this);
    LogContextExitor ctx(log, "pkcs11Sign");
    sig.clear();
    if (!requireSession(log)) return false;
    CK_FUNCTION_LIST* fn = m_module.functions();
    CK_MECHANISM mech{mechanism, nullptr, 0};
    CK_RV rv = fn->C_SignInit(m_session.handle(), &mech, keyHandle);
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "C_SignInit failed.", rv);
        return false;
    }
    // A size query keeps the operation active; any other failure ends it.
    CK_BYTE* in = const_cast<CK_BYTE*>(data);
    CK_ULONG len = 0;
    rv = fn->C_Sign(m_session.handle(), in, dataLen, nullptr, &len);
    std::vector<unsigned char> out;
    if (rv == CKR_OK) {
        out.resize(len ? len : 1);
        rv = fn->C_Sign(m_session.handle(), in, dataLen, out.data(), &len);
    }
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "C_Sign failed.", rv);
        return false;
    }
    if (len > out.size()) len = out.size();
    return sig.append(out.data(), static_cast<unsigned>(len));
}
