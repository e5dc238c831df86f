// ClsPkcs11: a session with a smart card or USB token through its PKCS#11 module:
// load the module, pick a slot, log in with the PIN, find the private key that
// belongs to a certificate, and sign with it.
#pragma once

#include <vector>

#include "support/asn1/DerReader.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"
#include "support/pkcs11/Pkcs11Module.h"
#include "support/pkcs11/Pkcs11Session.h"

class CertCore;
class CertPublicKeyParts;
class DataBuffer;
class LogBase;

// Reference counted: a certificate linked to the token holds one reference.
// Every operation holds the object's (recursive) critical section while it runs,
// so one object may be shared by threads; the module is initialised with
// CKF_OS_LOCKING_OK for the same reason.
//
// The session and the module are closed and finalised when the last reference
// goes (see Pkcs11Module for modules shared by several objects).
class ClsPkcs11 : public RefCountedObject, public OrvaneCritSec {
  public:
    // User types of login and alreadyLoggedIn. The values are PKCS#11's own
    // CKU_SO, CKU_USER and CKU_CONTEXT_SPECIFIC, so callers may pass either.
    static constexpr int kUserSO = 0;
    static constexpr int kUserNormal = 1;
    static constexpr int kUserContextSpecific = 2;

    // A new object with no reference counted; null when memory is exhausted.
    static ClsPkcs11* createNewCls();

    ClsPkcs11() = default;
    ~ClsPkcs11() override;
    ClsPkcs11(const ClsPkcs11&) = delete;
    ClsPkcs11& operator=(const ClsPkcs11&) = delete;

    // Loads the PKCS#11 shared library at path (UTF-8) and initialises it. A
    // module, and any session, loaded before are released first. False, with one
    // error line, for a missing file, a library that is not a PKCS#11 module, or a
    // module that fails to initialise.
    bool loadModule(const char* path, LogBase& log);

    // Replaces slotIds with the module's slots; only those holding a token when
    // tokenPresent is set. False, with one error line, without a module or when
    // the module refuses.
    bool listSlots(bool tokenPresent, std::vector<unsigned long>& slotIds, LogBase& log);

    // Opens a session on the slot, replacing a session this object had. slotId -1
    // takes the first slot whose token is present and initialised. False, with
    // one error line, for an unknown slot, an empty slot, an uninitialised token,
    // or when no slot has a usable token.
    bool openSession(long slotId, bool readWrite, LogBase& log);
    // Closes the session (which also ends its login); true when none is open.
    bool closeSession(LogBase& log);
    bool hasSession();
    // The slot of the open session; meaningful only while hasSession().
    unsigned long sessionSlotId();

    // Logs the session in as userType (kUserNormal for the card holder). The PIN
    // is copied into a buffer that is wiped after the call and is never logged. A
    // null pin asks the token's own PIN pad or biometric reader (protected
    // authentication path). Being logged in already as that user counts as
    // success. False, with one error line and the "ckr" reason, otherwise.
    bool login(int userType, const char* pin, LogBase& log);
    // Ends the login of the token's sessions; true also when none was logged in.
    bool logout(LogBase& log);
    // Whether the session is already authenticated as userType (the token reports
    // user functions for kUserNormal, SO functions for kUserSO). Login state is
    // per token, so a login through another session of this process counts.
    // False without a session; an error line only when the module fails.
    bool alreadyLoggedIn(int userType, LogBase& log);

    // findPrivKeyHandleForCert for a certificate object, reading its DER and
    // SubjectPublicKeyInfo through the views of the certificate as parsed (no
    // second parse) under the certificate's lock, which stays held across the
    // lookup. The lock order is certificate, then this object: the certificate's
    // hasPrivateKey calls here holding its own lock, and nothing here ever waits
    // for a certificate's lock while holding this object's.
    //
    // Defined in cert/keys/CertPkcs11Link.cpp: this library builds without the
    // certificate library, which links it; the certificate code provides the one
    // operation that needs both.
    unsigned long findPrivKeyHandle(CertCore& cert, bool mustBeAbleToSign, int& keyType,
                                    int& expectedSigSize, LogBase& log);

    // Finds the private-key object of the certificate and returns its handle, or
    // 0 when the token has none (an information line then says so). Looks first
    // for a certificate object with the same DER and takes the private key with
    // its CKA_ID; else compares the key itself: the RSA modulus, the EC or Ed25519
    // point (and curve), or the DSA public value, read from the private key or,
    // when the private key does not carry it, from the public key of the same
    // CKA_ID. With mustBeAbleToSign only keys whose CKA_SIGN is true qualify.
    // Private keys are visible only after login.
    //
    // keyType receives the code of the key on the token (1 RSA, 2 DSA, 3 ECDSA,
    // 5 EdDSA, 0 other), expectedSigSize the size in bytes of the signatures
    // it produces through PKCS#11 (RSA: the modulus length; ECDSA and DSA: r||s,
    // twice the group order's length; EdDSA: 64; 0 when unknown). Both are set to
    // 0 first and stay 0 when nothing is found.
    unsigned long findPrivKeyHandleForCert(const unsigned char* certDer, unsigned certLen,
                                           bool mustBeAbleToSign, int& keyType,
                                           int& expectedSigSize, LogBase& log);
    // The same for a certificate already parsed: its whole DER and its
    // SubjectPublicKeyInfo element (a view into it or a copy; empty: read from
    // the DER).
    unsigned long findPrivKeyHandleForCert(DerInput certDer, DerInput spki, bool mustBeAbleToSign,
                                           int& keyType, int& expectedSigSize, LogBase& log);

    // Signs data with the key handle and the PKCS#11 mechanism (such as
    // CKM_SHA256_RSA_PKCS, CKM_ECDSA over a digest, CKM_EDDSA) and replaces sig
    // with the signature as the token returns it. False, with one error line.
    bool sign(unsigned long keyHandle, unsigned long mechanism, const unsigned char* data,
              unsigned dataLen, DataBuffer& sig, LogBase& log);

  private:
    bool requireSession(LogBase& log) const;
    bool firstSlotWithToken(CK_SLOT_ID& slot, LogBase& log);
    bool checkSlotHasToken(CK_SLOT_ID slot, LogBase& log);
    // The lookup proper; the caller holds the lock and has set the outputs to 0.
    unsigned long findFor(DerInput certDer, const CertPublicKeyParts& parts, bool mustBeAbleToSign,
                          int& keyType, int& expectedSigSize, LogBase& log);

    // Declared in this order so that the session closes before the module goes.
    Pkcs11Module m_module;
    Pkcs11Session m_session;
};
