// _ovPublicKey: a key container holding nothing, a public key, or a private key
// with its public part.
#pragma once

#include "support/base/DataBuffer.h"
#include "support/base/OrvaneObject.h"
#include "support/crypto/KeyDer.h"
#include "support/crypto/OsslPtr.h"

class LogBase;
class StringBuffer;
class XString;

// Key types: RSA (also RSA-PSS restricted keys), DSA, ECDSA on named curves,
// Ed25519 and Ed448; a public key of any other algorithm is held as "unknown"
// (its DER and key id still work). The key is kept as DER: the SPKI always, and
// for a private key a PKCS#8 PrivateKeyInfo in a secure buffer. Type, size and
// key id are read from that DER; an OpenSSL EVP_PKEY is built only when an
// operation needs one and is then kept until the key changes.
//
// One thread at a time: even const operations may fill the EVP_PKEY cache.
class _ovPublicKey : public NonRefCountedObj {
  public:
    _ovPublicKey();
    ~_ovPublicKey() override;
    _ovPublicKey(const _ovPublicKey&) = delete;
    _ovPublicKey& operator=(const _ovPublicKey&) = delete;

    // Forgets the key, wiping the private part.
    void clearPublicKey();

    bool isEmpty() const { return m_kind == KeyKind::None; }
    bool isPrivateKey() const { return !m_pkcs8.isEmpty(); }
    bool isRsa() const { return m_kind == KeyKind::Rsa; }
    bool isDsa() const { return m_kind == KeyKind::Dsa; }
    bool isEcc() const { return m_kind == KeyKind::Ec; }
    bool isEd25519() const { return m_kind == KeyKind::Ed25519; }
    bool isEd448() const { return m_kind == KeyKind::Ed448; }
    KeyKind keyKind() const { return m_kind; }

    // "rsa", "dsa", "ecdsa", "eddsa" (Ed25519 and Ed448), "unknown" for another
    // algorithm, "none" when empty. Static text.
    const char* keyTypeStr() const;
    // The key-type code certificates cache: 1 RSA, 2 DSA, 3 ECDSA, 5 Ed25519, 0
    // for anything else (Ed448 included) and when empty.
    int keyTypeCode() const;

    // RSA: modulus bits; DSA: bits of p (0 when the parameters are inherited);
    // EC: the curve size (256, 384, 521, ...); Ed25519: 256; Ed448: 448; 0 when
    // empty or unknown.
    unsigned getBitLength() const { return m_bits; }
    // EC only: the named curve as a dotted OID; "" otherwise.
    const char* curveOid() const { return m_curveOid; }

    // Writes "keyType" (keyTypeStr) and "keyBits" to the log.
    void logKeyType(LogBase& log);

    // Replaces the key with one read from DER: SubjectPublicKeyInfo, PKCS#1
    // RSAPublicKey or RSAPrivateKey, PKCS#8 PrivateKeyInfo, SEC1 ECPrivateKey
    // (with its curve; without the public key it is computed), or the traditional
    // DSA private key sequence. An EncryptedPrivateKeyInfo needs
    // loadEncryptedDer. On failure the container is empty and the reason logged.
    bool loadAnyDer(const DataBuffer& der, LogBase& log);
    bool loadDer(const unsigned char* der, unsigned n, LogBase& log);

    // Replaces the key with one read from an encrypted PKCS#8
    // (EncryptedPrivateKeyInfo) DER and its password.
    bool loadEncryptedDer(const DataBuffer& der, const char* password, LogBase& log);

    // Replaces the key with the first key block of the PEM text: "PUBLIC KEY",
    // "RSA PUBLIC KEY", "PRIVATE KEY", "RSA PRIVATE KEY", "EC PRIVATE KEY",
    // "DSA PRIVATE KEY"; other blocks (certificates, "EC PARAMETERS") are passed
    // over. With preferPrivate, a private key block is taken in preference to
    // public ones wherever it stands. An encrypted block fails with a line saying
    // that a password is needed.
    bool loadPem(bool preferPrivate, XString& pem, LogBase& log);
    // The same, decrypting an "ENCRYPTED PRIVATE KEY" block or a traditional block
    // with a DEK-Info header with the password (UTF-8). Unencrypted blocks load as
    // with loadPem(true, ...).
    bool loadPemWithPassword(XString& pem, const char* password, LogBase& log);

    // Replaces this key with a copy of other, private part included when present.
    bool copyFromPubKey(const _ovPublicKey& other, LogBase& log);

    // Appends the public key as DER. spki true: SubjectPublicKeyInfo; false: the
    // algorithm's own form, which is PKCS#1 RSAPublicKey for RSA and the SPKI for
    // every other type. False when empty.
    bool toPubKeyDer(bool spki, DataBuffer& out, LogBase& log) const;

    // Appends the private key as DER and marks out secure. pkcs8 true: PKCS#8
    // PrivateKeyInfo; false: the traditional form (RSAPrivateKey, SEC1
    // ECPrivateKey with curve and public key, the DSA sequence; PKCS#8 for keys
    // that have none). False for a public key.
    bool toPrivKeyDer(bool pkcs8, DataBuffer& out, LogBase& log) const;

    // Appends the private key as unencrypted PEM (64-character lines, CRLF line
    // ends, ending with CRLF) and marks out secure. pkcs8 true: "PRIVATE KEY";
    // false: the traditional block ("RSA PRIVATE KEY", "EC PRIVATE KEY",
    // "DSA PRIVATE KEY").
    bool toPrivateKeyPem(bool pkcs8, StringBuffer& out, LogBase& log) const;

    // Appends the public key as PEM "PUBLIC KEY" (SPKI), CRLF line ends.
    bool toPublicKeyPem(StringBuffer& out, LogBase& log) const;

    // Appends the key id: 16 upper-case hex digits naming the public key, the
    // same whichever encoding the key or its certificate came in (see keyIdFromSpki).
    bool getOrvaneKeyId64(StringBuffer& out, LogBase& log) const;

    // The key id of a SubjectPublicKeyInfo without loading it into a container:
    // the first 8 bytes of SHA-256 over the key's canonical form (KeyDer.h),
    // appended as 16 upper-case hex digits.
    static bool keyIdFromSpki(const unsigned char* spki, unsigned n, StringBuffer& out,
                              LogBase& log);

    // Type and size of the key in an SPKI without loading it (see getBitLength).
    static bool spkiKeyInfo(const unsigned char* spki, unsigned n, KeyKind& kind, unsigned& bits,
                            LogBase& log);

    // The SPKI DER; empty when no key is held.
    const DataBuffer& spkiDer() const { return m_spki; }

    // The key as an OpenSSL object (the private key when there is one), built on
    // first use and owned by this container: valid until the key changes. Null,
    // with a log line, when OpenSSL refuses the key or none is held.
    EVP_PKEY* evpKey(LogBase& log) const;

  private:
    // Takes a complete SPKI (and PKCS#8 when private) and fills the facts.
    bool adopt(DataBuffer& spki, DataBuffer* pkcs8, LogBase& log);
    bool loadPemBlock(const char* text, unsigned n, const char* password, LogBase& log);
    // Clears, picks the PEM block loadPem would (private first when asked), loads it.
    bool loadChosenPemBlock(bool preferPrivate, XString& pem, const char* password, LogBase& log);

    KeyKind m_kind = KeyKind::None;
    unsigned m_bits = 0;
    char m_curveOid[40] = {0};
    DataBuffer m_spki;
    DataBuffer m_pkcs8;  // secure; empty for a public key
    mutable ossl::PkeyPtr m_pkey;
};
