// CertificateHolder: the handle the library keeps in lists. It owns one
// CertCore reference, or a deposit of unparsed input that getCertPtr parses on
// first use. No lock: a holder is used by one thread at a time.
#pragma once

#include <cstdint>

#include "support/base/DataBuffer.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/LogBase.h"
#include "support/base/OrvaneObject.h"
#include "support/base/StringBuffer.h"

class CertCore;
class OrvaneX509;
class SystemCerts;

class CertificateHolder : public NonRefCountedObj {
  public:
    static constexpr uint32_t kMagic = 0xFF56A1CD;

    CertificateHolder();
    // Copies nothing: the same empty holder as the default constructor.
    CertificateHolder(const CertificateHolder&);
    ~CertificateHolder() override;
    CertificateHolder& operator=(const CertificateHolder&) = delete;

    // The certificate, parsing a deposit on first use (a failed parse is not
    // retried). Borrowed: valid while the holder lives. Null on failure.
    CertCore* getCertPtr(LogBase& log);
    // The element at index (null if none), then its getCertPtr.
    static CertCore* getNthCert(ExtPtrArray& holders, int index, LogBase& log);
    // Makes cert the holder's certificate, taking one reference.
    void setCert(CertCore* cert);
    static bool appendNewCertHolder(CertCore* cert, ExtPtrArray& holders, LogBase& log);
    static CertificateHolder* createFromCert(CertCore* cert, LogBase& log);
    // A new holder sharing this one's certificate, or copying its deposit.
    CertificateHolder* cloneCertHolder();
    // Appends a clone of every holder of from to to; always true.
    static bool copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to);
    // A new CertCore owning x509, with a count of 1 that belongs to the caller.
    static CertCore* newCertFromX509_refcount1(OrvaneX509* x509, LogBase& log);
    void clearDeposits();

    // ---- Loading factories -----------------------------------------------------
    static CertificateHolder* createFromOrvaneX509(OrvaneX509* x509, LogBase& log);
    // ctx non-null: parse now (no store). ctx null: keep a DER deposit.
    static CertificateHolder* createFromDer(const unsigned char* der, unsigned size, void* ctx,
                                            LogBase& log);
    static CertificateHolder* createFromFile(const char* path, SystemCerts* store, LogBase& log);
    static CertificateHolder* createFromBinaryDetectFmt(DataBuffer& data, SystemCerts* store,
                                                        LogBase& log);
    // Keeps a binary deposit and the store; detection runs on first use.
    static CertificateHolder* createFromBinary(const char* data, unsigned size, SystemCerts* store,
                                               LogBase& log);
    static CertificateHolder* createFromPem(const StringBuffer& pem, SystemCerts* store,
                                            LogBase& log);
    // Keeps a base64 deposit (with "&#13;" references removed) and the store.
    static CertificateHolder* createFromBase64(const char* text, unsigned length,
                                               SystemCerts* store, LogBase& log);

    // ---- Fields, in declaration order ----------------------------------------
    CertCore* m_cert;
    StringBuffer* m_depositB64;
    DataBuffer* m_depositBinary;
    DataBuffer* m_depositDer;
    SystemCerts* m_systemCerts;
    uint32_t m_magic;

  private:
    // Wraps cert in a new holder (null cert or allocation failure: null).
    static CertificateHolder* wrap(CertCore* cert);
    // The same for a factory's fresh certificate (count 0), which is deleted
    // when no holder can be made.
    static CertificateHolder* wrapFresh(CertCore* cert);
    // A new empty holder that keeps a reference to store (may be null).
    static CertificateHolder* newWithStore(SystemCerts* store);
};
