// The object identifiers the certificate, CRL and OCSP code names, each once:
// its dotted text, its name and its content octets (what DerParser::readOid
// returns, so a parsed OID compares with bytes() without conversion).
#pragma once

#include <cstddef>

#include "support/asn1/DerReader.h"

struct KnownOid {
    const char* dotted;
    const char* name;
    unsigned char len;
    unsigned char der[11];

    DerInput bytes() const { return DerInput(der, len); }
    bool is(DerInput oid) const { return oid.equals(der, len); }
};

namespace oids {

// Certificate and CRL extensions under id-ce (2.5.29).
inline constexpr KnownOid kSubjectKeyId{
    "2.5.29.14", "id-ce-subjectKeyIdentifier", 3, {0x55, 0x1d, 0x0e}};
inline constexpr KnownOid kKeyUsage{"2.5.29.15", "id-ce-keyUsage", 3, {0x55, 0x1d, 0x0f}};
inline constexpr KnownOid kSubjectAltName{
    "2.5.29.17", "id-ce-subjectAltName", 3, {0x55, 0x1d, 0x11}};
inline constexpr KnownOid kIssuerAltName{"2.5.29.18", "id-ce-issuerAltName", 3, {0x55, 0x1d, 0x12}};
inline constexpr KnownOid kBasicConstraints{
    "2.5.29.19", "id-ce-basicConstraints", 3, {0x55, 0x1d, 0x13}};
inline constexpr KnownOid kCrlNumber{"2.5.29.20", "id-ce-cRLNumber", 3, {0x55, 0x1d, 0x14}};
inline constexpr KnownOid kCrlReason{"2.5.29.21", "id-ce-cRLReasons", 3, {0x55, 0x1d, 0x15}};
inline constexpr KnownOid kInvalidityDate{
    "2.5.29.24", "id-ce-invalidityDate", 3, {0x55, 0x1d, 0x18}};
inline constexpr KnownOid kCrlDistributionPoints{
    "2.5.29.31", "id-ce-cRLDistributionPoints", 3, {0x55, 0x1d, 0x1f}};
inline constexpr KnownOid kCertificatePolicies{
    "2.5.29.32", "id-ce-certificatePolicies", 3, {0x55, 0x1d, 0x20}};
inline constexpr KnownOid kAuthorityKeyId{
    "2.5.29.35", "id-ce-authorityKeyIdentifier", 3, {0x55, 0x1d, 0x23}};
inline constexpr KnownOid kExtKeyUsage{"2.5.29.37", "id-ce-extKeyUsage", 3, {0x55, 0x1d, 0x25}};

// PKIX (1.3.6.1.5.5.7): private extensions, access methods, OCSP.
inline constexpr KnownOid kAuthorityInfoAccess{"1.3.6.1.5.5.7.1.1",
                                               "id-pe-authorityInfoAccess",
                                               8,
                                               {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x01, 0x01}};
inline constexpr KnownOid kAdOcsp{
    "1.3.6.1.5.5.7.48.1", "id-ad-ocsp", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01}};
inline constexpr KnownOid kAdCaIssuers{
    "1.3.6.1.5.5.7.48.2", "id-ad-caIssuers", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x02}};
inline constexpr KnownOid kOcspBasic{"1.3.6.1.5.5.7.48.1.1",
                                     "id-pkix-ocsp-basic",
                                     9,
                                     {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01, 0x01}};
inline constexpr KnownOid kOcspNonce{"1.3.6.1.5.5.7.48.1.2",
                                     "id-pkix-ocsp-nonce",
                                     9,
                                     {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01, 0x02}};

// Extended key usage purposes (id-kp).
inline constexpr KnownOid kKpServerAuth{
    "1.3.6.1.5.5.7.3.1", "id-kp-serverAuth", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x01}};
inline constexpr KnownOid kKpClientAuth{
    "1.3.6.1.5.5.7.3.2", "id-kp-clientAuth", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x02}};
inline constexpr KnownOid kKpCodeSigning{
    "1.3.6.1.5.5.7.3.3", "id-kp-codeSigning", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03}};
inline constexpr KnownOid kKpEmailProtection{"1.3.6.1.5.5.7.3.4",
                                             "id-kp-emailProtection",
                                             8,
                                             {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x04}};
inline constexpr KnownOid kKpTimeStamping{
    "1.3.6.1.5.5.7.3.8", "id-kp-timeStamping", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08}};
inline constexpr KnownOid kKpOcspSigning{
    "1.3.6.1.5.5.7.3.9", "id-kp-OCSPSigning", 8, {0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x09}};

// Hash algorithms of an OCSP CertID.
inline constexpr KnownOid kSha1{"1.3.14.3.2.26", "id-sha1", 5, {0x2b, 0x0e, 0x03, 0x02, 0x1a}};
inline constexpr KnownOid kSha256{"2.16.840.1.101.3.4.2.1",
                                  "id-sha256",
                                  9,
                                  {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}};
inline constexpr KnownOid kSha384{"2.16.840.1.101.3.4.2.2",
                                  "id-sha384",
                                  9,
                                  {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02}};
inline constexpr KnownOid kSha512{"2.16.840.1.101.3.4.2.3",
                                  "id-sha512",
                                  9,
                                  {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03}};

// Every row above, for lookups by name and for checking the table.
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
