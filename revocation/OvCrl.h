// _ovCrl: one certificate revocation list, its download with an on-disk cache,
// and the questions asked of it.
#pragma once

#include <cstdint>

#include "support/base/DataBuffer.h"
#include "support/base/OrvaneObject.h"
#include "support/base/StringBuffer.h"

class ClsHttp;
class LogBase;
class OrvaneX509;
class ProgressEvent;
class _ovAsn1;

namespace crlgrammar {
struct CertificateList;
}

// What a CRL says about one serial number.
struct CrlRevocation {
    bool listed = false;
    StringBuffer revocationDate;  // RFC 3339, UTC; empty when not listed
    int reason = -1;              // CRLReason code; -1 when none is given
};

// Single owner, no lock: used by one thread at a time.
//
// The CRL's bytes are held once, in m_der; the tree in m_asn views them (it
// must be released before m_der changes). The summary fields are those the
// load reads at fixed positions; the queries below read the structure by its
// grammar instead (see docs/design.md, "CRLs").
class _ovCrl : public NonRefCountedObj {
  public:
    _ovCrl();
    ~_ovCrl() override;
    _ovCrl(const _ovCrl&) = delete;
    _ovCrl& operator=(const _ovCrl&) = delete;

    // Fetches the CRL at url into crlDer (cleared first). With cacheDir not
    // null, a file named after the URL in that directory answers instead when
    // it exists (whatever its age), and a download is stored there when the
    // directory exists; the file is written to a temporary name and renamed, so
    // a reader never sees a partial file. The HTTP client's log reaches log only
    // when log's keywords contain "LOG_CRL_HTTP". A client left at its default
    // response cap gets kMaxCrlSize for the call. False when the client is not
    // alive or the download fails.
    static bool downloadCrlDer(const char* url, const char* cacheDir, ClsHttp& http,
                               DataBuffer& crlDer, ProgressEvent* progress, LogBase& log);

    // The cache file name for url (no directory), replacing name.
    static bool getCacheFileName(const char* url, StringBuffer& name);

    // Largest CRL a download accepts unless the client's cap was set: real CRLs
    // approach 100 MB.
    static constexpr unsigned kMaxCrlSize = 256u * 1024 * 1024;

    // Replaces the object's content with the CRL in der. True when loaded; on
    // false the object is empty (unless no XML object could be made, when it is
    // left untouched) and "Error decoding CRL ASN.1" with "errorNum" is logged.
    bool loadCrlDer(const DataBuffer& der, LogBase& log);

    // ---- Queries of a loaded CRL, read by the grammar ------------------------
    // Each is false when nothing is loaded or the structure does not follow
    // the CertificateList grammar.

    // Views into m_der; valid until the next load.
    bool readStructure(crlgrammar::CertificateList& out) const;
    // Whether the serial (big-endian magnitude) is listed, with its revocation
    // date and reason; out is replaced. False also when the revoked list is
    // malformed before the answer is found.
    bool findSerial(const unsigned char* serial, unsigned n, CrlRevocation& out) const;
    bool getEntryCount(uint64_t& count) const;
    // Appends nextUpdate as RFC 3339; false also when the CRL has none.
    bool getNextUpdate(StringBuffer& out) const;
    // True when the CRL's signature verifies with the issuer certificate's key
    // and its issuer name is that certificate's subject (byte for byte).
    bool verifySignature(const OrvaneX509& issuer, LogBase& log) const;

    // The summary fields, as the load left them.
    const DataBuffer& getDer() const { return m_der; }
    const StringBuffer& getThisUpdate() const { return m_sbThisUpdate; }
    const StringBuffer& getIssuerDn() const { return m_sbIssuerDn; }
    int getCrlNumber() const { return m_crlNumber; }
    bool isLoaded() const { return m_asn != nullptr; }

  private:
    bool failLoad(int errorNum, LogBase& log);
    bool readIssuerName(_ovAsn1* tbs, class ClsXml& xml, LogBase& log, int& errorNum);
    bool readCrlNumber(_ovAsn1* tbs, class ClsXml& xml, LogBase& log, int& errorNum);

    _ovAsn1* m_asn = nullptr;  // one reference; views m_der
    DataBuffer m_der;
    StringBuffer m_sbThisUpdate;
    StringBuffer m_sbIssuerDn;
    int m_crlNumber = 0;
};
