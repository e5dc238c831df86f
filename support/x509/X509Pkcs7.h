// X509Pkcs7: the certificates of a PKCS#7 SignedData, and which of them is the
// leaf of the chain they form.
#pragma once

#include <vector>

#include "support/asn1/DerReader.h"

class LogBase;
class OrvaneX509;

class X509Pkcs7 {
  public:
    // Cap on the certificates taken from one SignedData; whole root stores are
    // exported as PKCS#7 and stay well below it.
    static constexpr size_t kMaxCerts = 4096;

    // Whether the bytes begin with a ContentInfo: a SEQUENCE (DER or BER) whose
    // first element is an OBJECT IDENTIFIER. A certificate begins with a
    // SEQUENCE inside a SEQUENCE, so the two never look alike.
    static bool isContentInfo(DerInput der);

    // Replaces out with views of the certificates (the CertificateChoices that
    // are plain Certificates, other choices skipped) in the order of the set.
    // Accepts DER and BER (indefinite and padded lengths, as Windows exports
    // and streaming encoders write). False, with an error line, when the bytes
    // are not a signedData ContentInfo or are malformed; an empty result is not
    // an error here.
    static bool certificates(DerInput der, std::vector<DerInput>& out, LogBase& log);

    // The index of the leaf among certs: the first, in the given order, that
    // issued none of the others. "A issued B" means B's issuer name equals A's
    // subject name byte for byte and, when B has an authority key id and A a
    // subject key id, the two are equal. A certificate never counts as issuing
    // itself. When every certificate issued another (a cycle of cross
    // certificates) the first is taken. -1 for an empty list.
    static int pickLeaf(const std::vector<OrvaneX509*>& certs);
};
