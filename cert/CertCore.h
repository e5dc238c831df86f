// CertCore: the certificate object. A parsed X.509 certificate plus everything
// the library may attach to it: in-memory private key, a PKCS#11 session and
// key handle, the smart-card PIN, a cloud-signing configuration, PKCS#12 bag
// attributes, and cached key facts.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/OvPublicKey.h"
#include "support/pem/SafeBagAttributes.h"
#include "support/x509/OrvaneX509.h"

class ClsHttp;
class ClsJsonObject;
class ClsPkcs11;
class ClsPem;
class SystemCerts;
class _ovAsn1;
class OrvaneSysTime;
class ProgressEvent;
namespace revocation {
struct OcspAsked;
}

// Reference counted, starting at 0: the first holder takes a reference. The
// object is its own recursive lock; operations that read or change it check
// m_magic first (without the lock) and then hold the lock until they return.
class CertCore : public RefCountedObject, public OrvaneCritSec {
  public:
    static constexpr uint32_t kMagic = 0xB663FA1D;

    CertCore();
    // Builds the same empty object as the default constructor; copies nothing.
    // m_cloudSigner is deliberately left unwritten (see the .cpp).
    CertCore(const CertCore& other);
    ~CertCore() override;
    CertCore& operator=(const CertCore&) = delete;

    // A new empty object with count 0, or null when memory is exhausted.
    static CertCore* createNewCert();

    bool isValidObject() const { return m_magic == kMagic; }
    // The parsed certificate, or null when none is loaded.
    OrvaneX509* getX509() const;

    // ---- Loading (each returns a new object with count 0, or null) ---------

    // Parses DER (or PKCS#7, which the parser reduces to its leaf). ctx is
    // opaque and ignored. Log context "certCreateFromDer".
    static CertCore* createFromDer2(const unsigned char* der, unsigned size, void* ctx,
                                    SystemCerts* store, LogBase& log);
    // Adopts an already parsed certificate (ownership passes even on failure).
    static CertCore* createFromOrvaneX509_2(OrvaneX509* x509, LogBase& log);
    // Format detection: PEM (single, multiple, with key), PKCS#7 PEM, JSON array
    // of base64, base64, UTF-16LE base64, DER. Log context "createFromBinary".
    static CertCore* createFromBinary2(const char* data, unsigned size, SystemCerts* store,
                                       LogBase& log);
    static CertCore* createFromBinaryDetectFmt(DataBuffer& data, SystemCerts* store, LogBase& log);
    // Reads the whole file (UTF-8 path) and runs format detection on it.
    static CertCore* createFromFile2(const char* path, SystemCerts* store, LogBase& log);
    static CertCore* createFromPemCertificate(const char* text, unsigned length, SystemCerts* store,
                                              LogBase& log);
    static CertCore* createFromPemPkcs7(const char* text, unsigned length, SystemCerts* store,
                                        LogBase& log);
    static CertCore* createFromBase64_2(const char* text, unsigned length, SystemCerts* store,
                                        LogBase& log);
    // Picks the primary certificate of a PEM holding several objects, attaches
    // its private key, and hands the other certificates to the store.
    static CertCore* createFromPemMultiple(ClsPem& pem, SystemCerts* store, LogBase& log);

    // ---- Export -------------------------------------------------------------

    // Appends the DER; true exactly when out grew.
    bool getDEREncodedCert(DataBuffer& out);
    unsigned getDEREncodedCertSize();
    // Appends base64 of the DER in lines of 64 characters, each full line ended
    // by CRLF.
    bool getEncodedCertForPem(StringBuffer& out, LogBase& log);
    // Appends a complete PEM block with CRLF line ends.
    bool getPem(StringBuffer& out, LogBase& log);
    // Appends base64 (one line) of a PkiPath holding this certificate alone.
    bool getX509PKIPathv1(StringBuffer& out, LogBase& log);
    // Writes the DER to the file (created or replaced).
    bool saveCert(XString& path, LogBase& log);

    // ---- Distinguished names (cert/query/CertNames.cpp) -----------------------
    // Every query here returns false (null) at once, touching nothing, when the
    // object fails its sentinel check; otherwise it holds the lock until it
    // returns. XString outputs are replaced (cleared after locking, so a
    // certificate-less object leaves them empty); an object without a parsed
    // certificate answers false (null) and logs nothing.

    // One attribute of the subject / issuer by short name: "CN", "C", "L", "O",
    // "OU", "S" or "ST" (state), "E"; the subject also knows "SERIALNUMBER"
    // (2.5.4.5). Any other name (lower case included) goes to the parser's
    // lookup by name or dotted OID; when that fails too, logs "Unrecognized
    // certificate subject part" / "... issuer part" and the "part" value.
    bool getSubjectPart(const char* partName, XString& out, LogBase& log);
    bool getIssuerPart(const char* partName, XString& out, LogBase& log);
    // The whole name as one line, with "CN=" style tags or bare values.
    bool getSubjectDN(XString& out, LogBase& log);
    bool getIssuerDN(XString& out, LogBase& log);
    bool getSubjectDN_noTags(XString& out, LogBase& log);
    bool getIssuerDN_noTags(XString& out, LogBase& log);
    // The same with the RDN order and the parser's text style chosen.
    bool getDN_ordered(bool reverseOrder, bool subject, bool withTags, int style, XString& out,
                       LogBase& log);
    // Appends the name's JSON members (no braces); out is not cleared.
    bool getDnJson(bool subject, StringBuffer& out, LogBase& log);
    // The name as an ASN.1 tree holding one reference for the caller (release
    // with decRefCount); null on failure.
    _ovAsn1* getSubjectDnAsn(LogBase& log);
    _ovAsn1* getIssuerDnAsn(LogBase& log);
    // Serial hex, ":" and the issuer DN.
    bool getIssuerSerial(XString& out, LogBase& log);
    // First rfc822Name of the subject alternative names.
    bool getRfc822Name(XString& out, LogBase& log);
    // The subject's emailAddress, else the first rfc822Name.
    bool getEmailAddress(XString& out, LogBase& log);
    // Subject and issuer names are equal.
    bool isIssuerSelf(LogBase& log);
    // Whether the subject's country (the issuer's only when the subject has
    // none) is in the fixed table of EU/EEA codes, ASCII case ignored. No lock of
    // its own beyond those of the two part getters; logs nothing itself.
    bool is_country_eu(LogBase& log);

    // ---- Extensions and key usage (cert/query/CertExtensions.cpp) ----------------
    // Sentinel check, then lock; false (0) without a parsed certificate. Outputs
    // are replaced, except getExtensionText, which appends. getExtensionDer,
    // getExtensionBinaryData and getExtendedKeyUsage clear their output even
    // before the sentinel check; the others clear after locking.

    // The extension's value as DER (the contents of extnValue).
    bool getExtensionDer(const char* oid, DataBuffer& out, LogBase& log);
    // The content octets of that value's outermost element.
    bool getExtensionBinaryData(const char* oid, DataBuffer& out, LogBase& log);
    // The extension's one-line text form, appended (out is never cleared).
    bool getExtensionText(const char* oid, StringBuffer& out, LogBase& log);
    // The extension's value rendered as ASN.1 XML.
    bool getExtensionXml(const char* oid, StringBuffer& out, LogBase& log);
    // The subject key identifier in upper-case hex.
    bool getSubjectKeyIdentifier(StringBuffer& out, LogBase& log);
    bool getSubjectAlternativeNameXml(XString& out, LogBase& log);
    // Comma-separated names of the known purposes ("serverAuth,clientAuth,...")
    // whose OID text occurs anywhere in the extended key usage XML, in a fixed
    // order. True with an empty out when the extension names none of them;
    // false when the extension is absent.
    bool getExtendedKeyUsage(StringBuffer& out, LogBase& log);
    // The first byte of the key usage bits (0x80 digitalSignature ... 0x01
    // encipherOnly); 0 when absent. decipherOnly is never reported.
    int getIntendedKeyUsage(LogBase& log);
    // The authority key identifier's bytes into keyId (replaced) and, when
    // keyIdBase64 is not null, its base64 text (replaced). True when keyId is
    // not empty.
    bool getAuthorityKeyIdentifier(DataBuffer& keyId, XString* keyIdBase64, LogBase& log);
    // 1, 2 or 3; 0 on failure.
    int getVersion(LogBase& log);
    // Purpose tests against the extended key usage extension; a certificate
    // without that extension is accepted for none of them. forSecureEmail also
    // accepts a certificate whose subject e-mail attribute holds an "@".
    bool forSecureEmail(LogBase& log);
    bool forServerAuthentication(LogBase& log);
    bool forClientAuthentication(LogBase& log);
    bool forCodeSigning(LogBase& log);
    bool forTimeStamping(LogBase& log);

    // ---- Identity, validity and fingerprints (cert/query/CertIdentity.cpp) -------
    // Sentinel check, then lock; outputs are replaced (cleared after locking)
    // unless said otherwise; false without a parsed certificate, logging nothing.

    // The serial as the upper-case hex of the INTEGER's content octets.
    bool getSerialNumber(XString& out, LogBase& log);
    // The serial's octets read as an unsigned number, in decimal (no length
    // limit; a leading 00 gives no digit). False when out stays empty.
    bool getSerialDecimal(XString& out, LogBase& log);
    // notBefore / notAfter in UTC; out is left as it was when nothing is parsed.
    void getValidFrom(OrvaneSysTime& out, LogBase& log);
    void getValidTo(OrvaneSysTime& out, LogBase& log);
    // notBefore / notAfter as RFC 3339 text ("YYYY-MM-DDThh:mm:ssZ"), replacing
    // out. Without a valid object or a parsed certificate the text of the
    // default date record (1970-01-01T00:00:00Z) is written instead.
    void getValidFromSb(StringBuffer& out, LogBase& log);
    void getValidToSb(StringBuffer& out, LogBase& log);
    bool isCertExpired(LogBase& log);
    // The library's 64-bit key id of the public key (16 hex digits).
    bool getOrvaneKeyId64(StringBuffer& out, LogBase& log);
    // DER of a part, replacing out (cleared before any check): 0 issuer name,
    // 1 subject name, 2 the SubjectPublicKeyInfo, any other value the public key
    // bits as hashed for OCSP.
    bool getPartDer(int part, DataBuffer& out, LogBase& log);
    // The SubjectPublicKeyInfo DER.
    bool getPublicKeyAsDER(DataBuffer& out, LogBase& log);
    // The subjectPublicKey bit string's bytes (OCSP issuer key hash input).
    bool getPublicKeyForOCSP(DataBuffer& out, LogBase& log);
    // Hash of the SubjectPublicKeyInfo in hashAlg ("sha256", ...) encoded as
    // encoding ("base64", "hex", ...); out is appended to, not cleared.
    bool getSpkiFingerprint(XString& hashAlg, XString& encoding, XString& out, LogBase& log);
    // SHA-1 of the DER as 20 bytes / 40 upper-case hex digits. True whenever a
    // parsed certificate exists.
    bool getSha1Thumbprint(DataBuffer& out, LogBase& log);
    bool getSha1ThumbprintX(XString& out, LogBase& log);
    // The signature bytes.
    bool getCertSignature(DataBuffer& out, LogBase& log);
    // Checks this certificate's signature with the issuer's key (null: its own
    // key). The issuer is neither checked nor locked.
    bool verifyCertSignature(CertCore* issuer, LogBase& log);
    // The whole certificate as ASN.1 XML.
    bool toXml(XString& out, LogBase& log);

    // ---- Revocation (revocation/CertRevocationPointers.cpp, CertOcspCheck.cpp) ---

    // The CRL URL of the first DistributionPoint's fullName: its first URI that
    // begins with "http" (any case), or else its last GeneralName, whatever its
    // scheme. Later DistributionPoints are never looked at. url is replaced
    // (left untouched when the object fails its sentinel check). Holds the lock
    // throughout; log context "getCrlDistPoint".
    bool getCrlDistPoint(StringBuffer& url, LogBase& log);
    // The location of the first OCSP AccessDescription of the Authority
    // Information Access extension, any scheme, up to a zero byte. url is
    // replaced (untouched on a sentinel failure). Holds the lock throughout.
    bool getOcspUrl(StringBuffer& url, LogBase& log);
    // Whether url is exactly (case-sensitive) one of the responders known to
    // never answer. Reads constant data only: no lock, any thread.
    bool isNonRespondingOcspUrl(StringBuffer& url, LogBase& log);

    // The issuer: this object when the certificate is self-issued, else the
    // store's verified issuer, else null. The caller does not own the result.
    // The lock is held only around the self-issued test. Log context
    // "findIssuerCertificate".
    CertCore* findIssuerCertificate(SystemCerts& sysCerts, LogBase& log);
    // Builds a one-certificate OCSP request (SHA-1 CertID, a fresh 16-byte
    // nonce), POSTs it to ocspUrl as "application/ocsp-request" and replaces
    // ocspResponse with the raw answer. True when the HTTP exchange completed,
    // whatever the status and whatever the response says. The HTTP client logs
    // into log only when its keywords hold "LOG_OCSP_HTTP". The lock is taken
    // per read of the certificate, never across the exchange. progress may be
    // null. Log context "doOcspCheck".
    bool doOcspCheck(ClsHttp& http, const char* ocspUrl, SystemCerts& sysCerts,
                     DataBuffer& ocspResponse, LogBase& log, ProgressEvent* progress);
    // The same, also reporting what was asked (CertID and nonce) in sent, so
    // that the answer can be matched and its nonce compared.
    bool doOcspCheck(ClsHttp& http, const char* ocspUrl, SystemCerts& sysCerts,
                     DataBuffer& ocspResponse, revocation::OcspAsked& sent, LogBase& log,
                     ProgressEvent* progress);

    // ---- Public key and key type (cert/keys/CertPublicKey.cpp) ------------------

    // Loads the certificate's public key into key (replaced). Log context
    // "getCertPublicKey"; logs why it failed.
    bool getCertPublicKey(_ovPublicKey& key, LogBase& log);
    // The key-type code (0 unknown, 1 RSA, 2 DSA, 3 ECDSA, 5 Ed25519) and the key
    // size in bits, cached in m_keyType / m_keyBits once non-zero. A cached
    // answer is read without the lock; the first answer is stored under it.
    int getCertKeyType(int& bits, LogBase& log);
    // The same, loading the key into the caller's container when the type is not
    // cached yet (a cached type leaves key untouched).
    int getCertKeyType2(int& bits, _ovPublicKey& key, LogBase& log);
    // Appends "rsa", "dsa", "ecdsa", "eddsa" or "unknown".
    bool appendCertKeyType(StringBuffer& out, LogBase& log);
    // Replaces out with the public key DER: spki true gives the
    // SubjectPublicKeyInfo, false the algorithm's own form (PKCS#1 for RSA).
    // Logs nothing of its own; out untouched when the object is invalid.
    bool getPublicKeyAsDER_2(bool spki, DataBuffer& out, LogBase& log);

    // ---- Private key, token link, cloud signer, description -------------------
    // (cert/keys/CertPrivateKey.cpp, cert/keys/CertDescribeJson.cpp)
    // "Locked" operations return false (null) at once, touching nothing, when the
    // object fails its sentinel check, and otherwise hold the object's recursive
    // lock until they return. The others neither check nor lock: callers
    // serialise them with other use of the certificate.

    // Replaces the cloud-signing configuration with a private deep copy of json;
    // an empty object only removes the one set before. Always true. Not locked.
    bool setCloudSigner(ClsJsonObject& json, LogBase& log);
    // Attaches a token session (one reference taken) and the key handle; a
    // non-zero keyType fills the key-type cache. Linking the session already
    // linked only fills a handle still 0: a known handle is never replaced that
    // way. Log context "linkToPkcs11Session". Not locked.
    void linkToPkcs11Session(ClsPkcs11* session, int keyType, int expectedSigSize,
                             unsigned long handle, LogBase& log);
    // Releases the session and forgets the handle; the key-type cache and the
    // signature size stay. Not locked.
    void unlinkFromPkcs11Session();
    // No smart-card minidriver link exists here: always false.
    bool hasScMinidriver() const { return false; }
    // Locked; always false: keys held here can always be exported.
    bool privateKeyNotExportable(LogBase& log);

    // Locked setters of the in-memory key. Each marks the caller's text or bytes
    // secure first (wiped when the caller releases them), clears the key held
    // before, then loads; so a failure (empty input included) leaves no key.
    bool setPrivateKeyPem(XString& pem, LogBase& log);
    bool setPrivateKeyFromObj(_ovPublicKey& key, LogBase& log);
    bool setPrivateKeyDer2(DataBuffer& der, LogBase& log);
    // Locked; platform key information is not kept: set ignores, get is null.
    void setMsPkInfo(void* info);
    void* getMsPkInfo(LogBase& log);

    // Locked. Whether a private key is reachable: the in-memory key, else a
    // cloud signer, else a linked token session. With a token session the
    // answer is always true; without a known handle it logs in with the
    // smart-card PIN (unless already logged in, when it deliberately does not
    // search), looks the key up and links the handle found, and warns when
    // there is still none. flag is not consulted.
    bool hasPrivateKey(bool flag, LogBase& log);
    // Locked. Whether the key is held in memory; without one it runs
    // getPrivateKeyAsDER for that operation's log lines only.
    bool hasPrivateKeyDer(LogBase& log);
    // Locked. Replaces out (marked secure) with the in-memory key as PKCS#8 DER.
    // Without one and with a token session: false and usesPkcs11Session true.
    // Log context "certGetPrivateKeyAsDER".
    bool getPrivateKeyAsDER(DataBuffer& out, bool& usesPkcs11Session, LogBase& log);
    // Locked. The same without the token fallback and without log context.
    bool getPrivateKeyAsDER_noCryptoAPI(DataBuffer& out, LogBase& log);
    // Locked. Appends the in-memory key as unencrypted PKCS#8 PEM.
    bool getPrivateKeyAsUnencryptedPEM_noCryptoAPI(StringBuffer& out, LogBase& log);
    // Replaces out with the PIN; true when it is not empty. Not locked.
    bool getSmartCardPin(XString& out, LogBase& log);

    // Whether the in-memory private key belongs to this certificate.
    enum class KeyMatch {
        NoKey,      // no in-memory private key, or no parsed certificate
        Matches,    // the key's public half is the certificate's public key
        Differs,    // it is another key
        Undecided,  // neither our reader nor OpenSSL could compare the two
    };
    // Locked. RSA, EC, Ed25519, Ed448 and DSA keys are compared from their DER
    // (no OpenSSL key object is built); other algorithms through OpenSSL.
    KeyMatch privateKeyMatchesCert(LogBase& log);

    // Appends the members of a JSON object describing the certificate (serial,
    // validFrom, validTo, expired, subject, issuer, san, keyType, keySize),
    // without braces and without escaping. Always true; out is never cleared.
    // Takes the lock separately for each read. Log context
    // "cert_appendDescriptiveJson".
    bool appendDescriptiveJson(StringBuffer& out, LogBase& log);

    // ---- Fields, in declaration order ----------------------------------------
    uint32_t m_magic;
    OrvaneX509Holder m_x509Holder;
    // Marked secure by the constructors: wiped whenever it is cleared or freed.
    XString m_smartCardPin;
    bool m_auxFlag;
    _ovPublicKey m_privateKey;
    SafeBagAttributes m_safeBagAttrs;
    ClsJsonObject* m_cloudSigner;
    ClsPkcs11* m_pkcs11;
    // The key-type cache. Atomic because it is read without the lock; a writer
    // stores m_keyBits first and m_keyType last (release), and m_keyBits is
    // never reset, so a reader that sees a type sees its size.
    std::atomic<int> m_keyType;
    int m_expectedSigSize;
    uint32_t m_reserved;
    unsigned long m_pkcs11PrivKeyHandle;
    DataBuffer m_auxData;
    std::atomic<int> m_keyBits;

  private:
    void initFields();
    // hasPrivateKey's login and key search; the caller holds the lock.
    void loginAndFindTokenKey(LogBase& log);
};
