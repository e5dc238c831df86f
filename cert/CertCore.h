// CertCore: the certificate object. A parsed X.509 certificate plus everything
// the library may attach to it: in-memory private key, a PKCS#11 session and
// key handle, the smart-card PIN, a cloud-signing configuration, PKCS#12 bag
// attributes, and cached key facts.
#pragma once

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

class ClsJsonObject;
class ClsPkcs11;
class ClsPem;
class SystemCerts;

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

    // ---- Fields, in declaration order ----------------------------------------
    uint32_t m_magic;
    OrvaneX509Holder m_x509Holder;
    XString m_smartCardPin;
    bool m_auxFlag;
    _ovPublicKey m_privateKey;
    SafeBagAttributes m_safeBagAttrs;
    ClsJsonObject* m_cloudSigner;
    ClsPkcs11* m_pkcs11;
    int m_keyType;
    int m_expectedSigSize;
    uint32_t m_reserved;
    unsigned long m_pkcs11PrivKeyHandle;
    DataBuffer m_auxData;
    int m_keyBits;

  private:
    void initFields();
};
