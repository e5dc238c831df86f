#include "support/x509/X509Pkcs7.h"

#include "support/base/LogBase.h"
#include "support/x509/OrvaneX509.h"

namespace {

const unsigned char kOidSignedData[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                        0x0d, 0x01, 0x07, 0x02};  // 1.2.840.113549.1.7.2 signedData

bool fail(LogBase& log, const char* msg) {
    log.logError(msg);
    return false;
}

// "a issued b" as pickLeaf defines it.
bool issued(const OrvaneX509& a, const OrvaneX509& b) {
    if (!b.issuerDer().equals(a.subjectDer())) return false;
    DerInput aki, ski;
    if (b.authorityKeyId(&aki) && a.subjectKeyId(&ski)) return aki.equals(ski);
    return true;
}

}  // namespace

bool X509Pkcs7::isContentInfo(DerInput der) {
    DerParser p(der, true);
    DerParser seq;
    return p.readSequence(&seq) && seq.nextIs(der::kOid);
}

bool X509Pkcs7::certificates(DerInput der, std::vector<DerInput>& out, LogBase& log) {
    out.clear();
    //   ContentInfo ::= SEQUENCE {
    //     contentType ContentType,
    //     content [0] EXPLICIT ANY DEFINED BY contentType }
    DerParser top(der, true);
    DerParser ci, explicitContent, sd;
    DerInput type;
    if (!top.readSequence(&ci) || !ci.readOid(&type))
        return fail(log, "PKCS7 ContentInfo is malformed.");
    if (!type.equals(kOidSignedData, sizeof kOidSignedData))
        return fail(log, "PKCS7 content is not signedData.");
    if (!ci.readConstructed(der::contextConstructed(0), &explicitContent) ||
        !explicitContent.readSequence(&sd))
        return fail(log, "PKCS7 signedData content is malformed.");

    //   SignedData ::= SEQUENCE {
    //     version CMSVersion,
    //     digestAlgorithms DigestAlgorithmIdentifiers,
    //     encapContentInfo EncapsulatedContentInfo,
    //     certificates [0] IMPLICIT CertificateSet OPTIONAL,
    //     crls [1] IMPLICIT RevocationInfoChoices OPTIONAL,
    //     signerInfos SignerInfos }
    DerInput version;
    DerParser digestAlgs, encap;
    if (!sd.readIntegerBytes(&version) || !sd.readSet(&digestAlgs) || !sd.readSequence(&encap))
        return fail(log, "PKCS7 signedData is malformed.");
    if (!sd.nextIs(der::contextConstructed(0))) return true;  // no certificates
    DerParser set;
    if (!sd.readConstructed(der::contextConstructed(0), &set))
        return fail(log, "PKCS7 certificate set is malformed.");

    //   CertificateChoices ::= CHOICE {
    //     certificate Certificate,
    //     extendedCertificate [0] IMPLICIT ExtendedCertificate,  -- Obsolete
    //     v1AttrCert [1] IMPLICIT AttributeCertificateV1,        -- Obsolete
    //     v2AttrCert [2] IMPLICIT AttributeCertificateV2,
    //     other [3] IMPLICIT OtherCertificateFormat }
    try {
        while (set.hasMore()) {
            DerElement e;
            if (!set.readAny(&e)) return fail(log, "PKCS7 certificate set is malformed.");
            if (e.tag != der::kSequence) continue;
            if (out.size() == kMaxCerts) return fail(log, "PKCS7 holds too many certificates.");
            out.push_back(e.whole);
        }
    } catch (...) {
        out.clear();
        return fail(log, "Out of memory reading PKCS7 certificates.");
    }
    return true;
}

int X509Pkcs7::pickLeaf(const std::vector<OrvaneX509*>& certs) {
    const int n = static_cast<int>(certs.size());
    for (int i = 0; i < n; ++i) {
        bool issuedAnother = false;
        for (int j = 0; j < n && !issuedAnother; ++j) {
            if (j != i && issued(*certs[i], *certs[j])) issuedAnother = true;
        }
        if (!issuedAnother) return i;
    }
    return n ? 0 : -1;
}
