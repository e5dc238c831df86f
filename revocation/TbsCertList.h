// TbsCertList: a CertificateList read by its grammar (RFC 5280 5.1), every
// optional field where it stands, as views into the caller's bytes. One reader
// for everything that asks what a CRL says: its summary, its entry count,
// nextUpdate, the serial lookup, the signature check.
#pragma once

#include <cstdint>

#include "support/asn1/DerReader.h"

class LogBase;
class OrvaneX509;
class StringBuffer;

namespace crlgrammar {

// CertificateList  ::=  SEQUENCE  {
//      tbsCertList          TBSCertList,
//      signatureAlgorithm   AlgorithmIdentifier,
//      signatureValue       BIT STRING  }
//
// TBSCertList  ::=  SEQUENCE  {
//      version                 Version OPTIONAL,  -- if present, MUST be v2
//      signature               AlgorithmIdentifier,
//      issuer                  Name,
//      thisUpdate              Time,
//      nextUpdate              Time OPTIONAL,
//      revokedCertificates     SEQUENCE OF SEQUENCE  { ... } OPTIONAL,
//      crlExtensions           [0]  EXPLICIT Extensions OPTIONAL }
struct CertificateList {
    DerInput tbs;           // the whole TBSCertList element, as signed
    DerInput sigAlg;        // the outer AlgorithmIdentifier element
    DerInput signature;     // signatureValue without its unused-bits byte
    int version = 1;        // 1 when the field is absent, else its value + 1
    DerInput tbsSigAlg;     // the inner AlgorithmIdentifier element
    DerInput issuer;        // the whole Name element
    DerElement thisUpdate;  // UTCTime or GeneralizedTime
    bool hasNextUpdate = false;
    DerElement nextUpdate;
    DerInput revoked;  // contents of revokedCertificates; empty when absent
    bool hasExtensions = false;
    DerInput extensions;  // contents of the Extensions SEQUENCE
};

// Reads der (one CertificateList; trailing bytes refused) into out. The
// revoked list is only stepped over here: its entries are read when asked.
// False with *why set to a short English reason when the structure is not
// that grammar.
[[nodiscard]] bool readCertificateList(DerInput der, CertificateList* out, const char** why);

// One entry of revokedCertificates:
//   SEQUENCE  { userCertificate CertificateSerialNumber,
//               revocationDate  Time,
//               crlEntryExtensions Extensions OPTIONAL }
struct RevokedEntry {
    DerInput serial;  // INTEGER content octets as encoded
    DerElement revocationDate;
    DerInput extensions;  // contents of crlEntryExtensions; empty when absent
};

// The entry's CRLReason code (reasonCode extension, 2.5.29.21); -1 when the
// entry carries none or it is malformed.
int reasonCode(const RevokedEntry& e);

// Steps through revokedCertificates, reading each entry's fields as views.
// No allocation.
class RevokedCursor {
  public:
    explicit RevokedCursor(DerInput revokedContents) : m_list(revokedContents) {}
    // False at the end and on a malformed entry (then failed() is true).
    [[nodiscard]] bool next(RevokedEntry* out);
    bool failed() const { return m_failed; }

  private:
    DerParser m_list;
    bool m_failed = false;
};

// The entry whose serial equals the serial (big-endian magnitude, leading zero
// bytes ignored on both sides). *malformed is set
// when the walk stopped at a malformed entry before finding it.
bool findSerial(DerInput revokedContents, DerInput serial, RevokedEntry* out, bool* malformed);

// Number of entries; false when an entry is malformed.
bool countEntries(DerInput revokedContents, uint64_t* count);

// The CRL Number extension (2.5.29.20) in the Extensions contents: *present
// says whether it is there; *value holds it when it fits 64 bits (*fits).
bool crlNumber(DerInput extensions, bool* present, bool* fits, uint64_t* value);

// True when the CRL's signature verifies with the issuer certificate's key,
// its issuer name is that certificate's subject (byte for byte) and its two
// signature algorithms agree. OpenSSL does the signature operation.
bool verifySignature(const CertificateList& crl, const OrvaneX509& issuer, LogBase& log);

// Appends a Time (UTCTime or GeneralizedTime) as RFC 3339 text in UTC; false
// for any other element or unreadable text.
bool timeToRfc3339(const DerElement& t, StringBuffer& out);

}  // namespace crlgrammar
