// Pkcs11KeyFinder: finds, in an open session, the private-key object that belongs
// to a certificate.
#pragma once

#include <vector>

#include "support/asn1/DerReader.h"
#include "support/pkcs11/Pkcs11Session.h"

class CertPublicKeyParts;
class DataBuffer;
class LogBase;

class Pkcs11KeyFinder {
  public:
    // session must stay open while the finder is used. With mustBeAbleToSign only
    // private keys whose CKA_SIGN is true are considered.
    Pkcs11KeyFinder(Pkcs11Session& session, bool mustBeAbleToSign)
        : m_session(session), m_mustSign(mustBeAbleToSign) {}

    // The private key of the certificate object whose CKA_VALUE equals certDer,
    // paired by CKA_ID; 0 when the token has no such certificate or no key with
    // its CKA_ID. Certificate objects without a CKA_ID are passed over.
    CK_OBJECT_HANDLE viaCertificateObject(DerInput certDer, LogBase& log);

    // The first private key whose public half equals the certificate's key (see
    // CertPublicKeyParts for the comparisons); 0 when none does or the key type
    // cannot be compared by value.
    CK_OBJECT_HANDLE viaPublicKey(const CertPublicKeyParts& cert, LogBase& log);

    // The key type code (1 RSA, 2 DSA, 3 ECDSA, 5 EdDSA, 0 other or unreadable)
    // of the key object's CKA_KEY_TYPE.
    int keyTypeOf(CK_OBJECT_HANDLE key);

    // The CKK_ value searched for a key type code; false for codes without one.
    static bool ckkForKeyType(int keyType, CK_KEY_TYPE& ckk);
    static int keyTypeForCkk(CK_KEY_TYPE ckk);
    // keyTypeForCkk, except that an Edwards key whose CKA_EC_PARAMS (edParams,
    // null when the token gave none) name Ed448 is 0: CKK_EC_EDWARDS covers both
    // curves, but only Ed25519 has a code. Any other curve naming (tokens use
    // several for Ed25519) keeps 5.
    static int keyTypeFor(CK_KEY_TYPE ckk, const DerInput* edParams);

  private:
    // Replaces out with the private keys that have the extra attributes.
    bool findPrivateKeys(CK_ATTRIBUTE* extra, CK_ULONG extraCount,
                         std::vector<CK_OBJECT_HANDLE>& out, LogBase& log);
    // Whether the attribute value of the key's public half satisfies matches: the
    // private key's own attribute when fromPrivate is set and it carries one,
    // otherwise that of each public key with the private key's CKA_ID.
    template <class Pred>
    bool publicValueMatches(CK_OBJECT_HANDLE privKey, CK_ATTRIBUTE_TYPE type, bool fromPrivate,
                            Pred matches, LogBase& log);
    bool keyMatches(CK_OBJECT_HANDLE privKey, const CertPublicKeyParts& cert, LogBase& log);

    Pkcs11Session& m_session;
    bool m_mustSign;
};
