// The object identifiers the certificate, CRL and OCSP code names, each once:
// its dotted text and its name. The content octets (what DerParser::readOid
// returns, so a parsed OID compares with bytes() without conversion) are
// computed from the text when the program is compiled.
#pragma once

#include <cstddef>
#include <cstring>

#include "support/asn1/DerReader.h"

struct KnownOid {
    const char* dotted;
    const char* name;
    unsigned char len = 0;
    unsigned char der[15] = {};

    // Encodes dotted at compile time. The table holds well-formed OIDs of at
    // most 15 content octets; a malformed one fails to compile (an index out of
    // bounds is not a constant expression).
    constexpr KnownOid(const char* d, const char* n) : dotted(d), name(n) {
        unsigned long long arcs[16] = {};
        int count = 0;
        for (const char* p = d;; ++p) {
            if (*p >= '0' && *p <= '9') {
                arcs[count] = arcs[count] * 10 + static_cast<unsigned>(*p - '0');
                continue;
            }
            ++count;
            if (!*p) break;
        }
        for (int i = 1; i < count; ++i) {
            unsigned long long arc = i == 1 ? arcs[0] * 40 + arcs[1] : arcs[i];
            int digits = 1;
            for (unsigned long long rest = arc >> 7; rest; rest >>= 7) ++digits;
            while (digits--)
                der[len++] = static_cast<unsigned char>(((arc >> (7 * digits)) & 0x7f) |
                                                        (digits ? 0x80 : 0));
        }
    }

    DerInput bytes() const { return DerInput(der, len); }
    // Siblings in the table differ in their last octet, so it is compared
    // first: the parser asks this of every extension against every row.
    bool is(DerInput oid) const {
        return oid.size() == len && len != 0 && oid[len - 1] == der[len - 1] &&
               memcmp(oid.data(), der, len) == 0;
    }
};

namespace oids {

// Certificate and CRL extensions under id-ce (2.5.29).
inline constexpr KnownOid kSubjectKeyId{"2.5.29.14", "id-ce-subjectKeyIdentifier"};
inline constexpr KnownOid kKeyUsage{"2.5.29.15", "id-ce-keyUsage"};
inline constexpr KnownOid kSubjectAltName{"2.5.29.17", "id-ce-subjectAltName"};
inline constexpr KnownOid kIssuerAltName{"2.5.29.18", "id-ce-issuerAltName"};
inline constexpr KnownOid kBasicConstraints{"2.5.29.19", "id-ce-basicConstraints"};
inline constexpr KnownOid kCrlNumber{"2.5.29.20", "id-ce-cRLNumber"};
inline constexpr KnownOid kCrlReason{"2.5.29.21", "id-ce-cRLReasons"};
inline constexpr KnownOid kInvalidityDate{"2.5.29.24", "id-ce-invalidityDate"};
inline constexpr KnownOid kCrlDistributionPoints{"2.5.29.31", "id-ce-cRLDistributionPoints"};
inline constexpr KnownOid kCertificatePolicies{"2.5.29.32", "id-ce-certificatePolicies"};
inline constexpr KnownOid kAuthorityKeyId{"2.5.29.35", "id-ce-authorityKeyIdentifier"};
inline constexpr KnownOid kExtKeyUsage{"2.5.29.37", "id-ce-extKeyUsage"};

// PKIX (1.3.6.1.5.5.7): private extensions, access methods, OCSP.
inline constexpr KnownOid kAuthorityInfoAccess{"1.3.6.1.5.5.7.1.1", "id-pe-authorityInfoAccess"};
inline constexpr KnownOid kAdOcsp{"1.3.6.1.5.5.7.48.1", "id-ad-ocsp"};
inline constexpr KnownOid kAdCaIssuers{"1.3.6.1.5.5.7.48.2", "id-ad-caIssuers"};
inline constexpr KnownOid kOcspBasic{"1.3.6.1.5.5.7.48.1.1", "id-pkix-ocsp-basic"};
inline constexpr KnownOid kOcspNonce{"1.3.6.1.5.5.7.48.1.2", "id-pkix-ocsp-nonce"};

// Extended key usage purposes (id-kp).
inline constexpr KnownOid kKpServerAuth{"1.3.6.1.5.5.7.3.1", "id-kp-serverAuth"};
inline constexpr KnownOid kKpClientAuth{"1.3.6.1.5.5.7.3.2", "id-kp-clientAuth"};
inline constexpr KnownOid kKpCodeSigning{"1.3.6.1.5.5.7.3.3", "id-kp-codeSigning"};
inline constexpr KnownOid kKpEmailProtection{"1.3.6.1.5.5.7.3.4", "id-kp-emailProtection"};
inline constexpr KnownOid kKpTimeStamping{"1.3.6.1.5.5.7.3.8", "id-kp-timeStamping"};
inline constexpr KnownOid kKpOcspSigning{"1.3.6.1.5.5.7.3.9", "id-kp-OCSPSigning"};
inline constexpr KnownOid kKpIpsecIke{"1.3.6.1.5.5.7.3.17", "id-kp-ipsecIKE"};
inline constexpr KnownOid kAnyExtKeyUsage{"2.5.29.37.0", "anyExtendedKeyUsage"};
inline constexpr KnownOid kMsSmartcardLogin{"1.3.6.1.4.1.311.20.2.2", "msSmartcardLogin"};
inline constexpr KnownOid kMsDocumentSigning{"1.3.6.1.4.1.311.10.3.12", "msDocumentSigning"};

// Hash algorithms of an OCSP CertID.
inline constexpr KnownOid kSha1{"1.3.14.3.2.26", "id-sha1"};
inline constexpr KnownOid kSha256{"2.16.840.1.101.3.4.2.1", "id-sha256"};
inline constexpr KnownOid kSha384{"2.16.840.1.101.3.4.2.2", "id-sha384"};
inline constexpr KnownOid kSha512{"2.16.840.1.101.3.4.2.3", "id-sha512"};

// Every row above, for lookups and for checking the table.
inline constexpr const KnownOid* kAll[] = {
    &kSubjectKeyId,
    &kKeyUsage,
    &kSubjectAltName,
    &kIssuerAltName,
    &kBasicConstraints,
    &kCrlNumber,
    &kCrlReason,
    &kInvalidityDate,
    &kCrlDistributionPoints,
    &kCertificatePolicies,
    &kAuthorityKeyId,
    &kExtKeyUsage,
    &kAuthorityInfoAccess,
    &kAdOcsp,
    &kAdCaIssuers,
    &kOcspBasic,
    &kOcspNonce,
    &kKpServerAuth,
    &kKpClientAuth,
    &kKpCodeSigning,
    &kKpEmailProtection,
    &kKpTimeStamping,
    &kKpOcspSigning,
    &kKpIpsecIke,
    &kAnyExtKeyUsage,
    &kMsSmartcardLogin,
    &kMsDocumentSigning,
    &kSha1,
    &kSha256,
    &kSha384,
    &kSha512,
};

// The row whose content octets are oid; null when the table does not name it.
inline const KnownOid* find(DerInput oid) {
    for (const KnownOid* k : kAll)
        if (k->is(oid)) return k;
    return nullptr;
}

}  // namespace oids
