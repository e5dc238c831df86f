#include "revocation/OcspResponse.h"

#include <cstring>
#include <utility>

#include "cert/CertCore.h"
#include "support/asn1/OidTable.h"
#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"
#include "support/base/StringBuffer.h"
#include "support/crypto/OvHash.h"
#include "support/crypto/SigVerify.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"
#include "support/x509/X509Ext.h"

namespace revocation {

namespace {

// The SEQUENCE an [n] EXPLICIT wrapper holds, as a cursor over its contents.
bool readWrappedSequence(DerInput wrapped, DerParser* list) {
    DerParser outer(wrapped);
    return outer.readSequence(list) && !outer.hasMore();
}

// GeneralizedTime content as RFC 3339 text in UTC; false when malformed.
bool timeText(DerInput t, std::string& out, LogBase& log) {
    if (t.empty() || t.size() > 40) return false;
    std::string text(reinterpret_cast<const char*>(t.data()), t.size());
    if (text.find('\0') != std::string::npos) return false;
    OrvaneSysTime st;
    if (!st.fromAsnGeneralizedTime(text.c_str(), log)) return false;
    StringBuffer sb;
    _ovDateParser::SysTimeToRfc3339(st, false, false, sb, true);
    out = sb.getString();
    return true;
}

bool readTime(DerParser& p, std::string& out, LogBase& log) {
    DerInput t;
    return p.read(der::kGeneralizedTime, &t) && timeText(t, out, log);
}

// Each Certificate of a [0] EXPLICIT SEQUENCE OF Certificate, whole.
bool readCertList(DerInput wrapped, std::vector<DerInput>& out) {
    DerParser list;
    if (!readWrappedSequence(wrapped, &list)) return false;
    while (list.hasMore()) {
        DerElement cert;
        if (!list.readElement(der::kSequence, &cert)) return false;
        out.push_back(cert.whole);
    }
    return true;
}

}  // namespace

const char* OcspResponse::statusName(int status) {
    static const char* const kNames[] = {
        "successful", "malformedRequest", "internalError", "tryLater",
        nullptr,      "sigRequired",      "unauthorized"};
    return status >= 0 && status < 7 ? kNames[status] : nullptr;
}

bool OcspResponse::fail(const char* why, LogBase& log) {
    log.logError(why);
    reset();
    return false;
}

void OcspResponse::reset() {
    m_der.clear();
    m_status = -1;
    m_hasBasic = false;
    m_tbs = m_sigAlg = m_signature = m_responderName = m_responderKeyHash = m_nonce = DerInput();
    m_certs.clear();
    m_producedAt.clear();
    m_singles.clear();
}

bool OcspResponse::load(const unsigned char* p, size_t n, LogBase& log) {
    reset();
    if (!p || n == 0 || n > 0x7fffffff || !m_der.append(p, static_cast<unsigned>(n)))
        return fail("The OCSP response is empty.", log);
    DerParser top(DerInput(m_der.getData2(), m_der.getSize()));

    //   OCSPResponse ::= SEQUENCE {
    //      responseStatus         OCSPResponseStatus,
    //      responseBytes          [0] EXPLICIT ResponseBytes OPTIONAL }
    DerParser resp, bytes;
    DerInput status;
    bool hasBytes = false;
    if (!top.readSequence(&resp) || top.hasMore() || !resp.read(der::kEnumerated, &status) ||
        status.size() != 1 || !statusName(status[0]))
        return fail("The data is not an OCSP response.", log);
    m_status = status[0];
    DerInput bytesEl;
    if (!resp.readOptional(der::contextConstructed(0), &bytesEl, &hasBytes) || resp.hasMore())
        return fail("The OCSP response is malformed.", log);
    // An error status says all there is to say; a body some responders send
    // with it anyway is not read.
    if (m_status != kSuccessful) return true;
    //   ResponseBytes ::= SEQUENCE {
    //      responseType   OBJECT IDENTIFIER,
    //      response       OCTET STRING }
    DerParser outer(bytesEl);
    DerInput type, basic;
    if (!hasBytes || !outer.readSequence(&bytes) || outer.hasMore() || !bytes.readOid(&type) ||
        !bytes.read(der::kOctetString, &basic) || bytes.hasMore())
        return fail("The successful OCSP response has no response bytes.", log);
    if (!oids::kOcspBasic.is(type))
        return fail("The OCSP response is not a basic OCSP response.", log);
    return readBasic(basic, log);
}

bool OcspResponse::readBasic(DerInput basic, LogBase& log) {
    //   BasicOCSPResponse ::= SEQUENCE {
    //      tbsResponseData      ResponseData,
    //      signatureAlgorithm   AlgorithmIdentifier,
    //      signature            BIT STRING,
    //      certs            [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }
    DerParser outer(basic), seq;
    DerElement tbs, alg;
    unsigned unused = 0;
    if (!outer.readSequence(&seq) || outer.hasMore() || !seq.readElement(der::kSequence, &tbs) ||
        !seq.readElement(der::kSequence, &alg) || !seq.readBitString(&m_signature, &unused) ||
        unused != 0)
        return fail("The basic OCSP response is malformed.", log);
    m_tbs = tbs.whole;
    m_sigAlg = alg.whole;
    DerInput certs;
    bool hasCerts = false;
    if (!seq.readOptional(der::contextConstructed(0), &certs, &hasCerts) || seq.hasMore())
        return fail("The basic OCSP response is malformed.", log);
    if (hasCerts && !readCertList(certs, m_certs))
        return fail("The certificates of the OCSP response are malformed.", log);

    //   ResponseData ::= SEQUENCE {
    //      version              [0] EXPLICIT Version DEFAULT v1,
    //      responderID              ResponderID,
    //      producedAt               GeneralizedTime,
    //      responses                SEQUENCE OF SingleResponse,
    //      responseExtensions   [1] EXPLICIT Extensions OPTIONAL }
    DerParser data(tbs.contents), idParser, responses;
    DerInput version, id, extensions;
    bool hasVersion = false, hasExtensions = false;
    if (!data.readOptional(der::contextConstructed(0), &version, &hasVersion))
        return fail("The OCSP response data is malformed.", log);
    if (hasVersion) {
        DerParser v(version);
        uint64_t n = 1;
        if (!v.readUint64(&n) || v.hasMore() || n != 0)
            return fail("The OCSP response version is not 1.", log);
    }
    //   ResponderID ::= CHOICE { byName [1] Name, byKey [2] KeyHash }
    DerElement name;
    if (data.readConstructed(der::contextConstructed(1), &idParser)) {
        if (!idParser.readElement(der::kSequence, &name) || idParser.hasMore())
            return fail("The OCSP responder ID is malformed.", log);
        m_responderName = name.whole;
    } else if (data.readConstructed(der::contextConstructed(2), &idParser)) {
        if (!idParser.read(der::kOctetString, &m_responderKeyHash) || idParser.hasMore())
            return fail("The OCSP responder ID is malformed.", log);
    } else {
        return fail("The OCSP response has no responder ID.", log);
    }
    if (!readTime(data, m_producedAt, log) || !data.readSequence(&responses))
        return fail("The OCSP response data is malformed.", log);
    while (responses.hasMore())
        if (!readSingle(responses, log)) return false;
    if (!data.readOptional(der::contextConstructed(1), &extensions, &hasExtensions) ||
        data.hasMore())
        return fail("The OCSP response data is malformed.", log);
    if (hasExtensions) {
        DerParser list;
        if (!readWrappedSequence(extensions, &list))
            return fail("The OCSP response extensions are malformed.", log);
        while (list.hasMore()) {
            X509Extension ext;
            if (!X509ExtRead::extension(list, &ext))
                return fail("The OCSP response extensions are malformed.", log);
            if (oids::kOcspNonce.is(ext.oid)) m_nonce = ext.value;
        }
    }
    m_hasBasic = true;
    return true;
}

bool OcspResponse::readSingle(DerParser& responses, LogBase& log) {
    //   SingleResponse ::= SEQUENCE {
    //      certID                       CertID,
    //      certStatus                   CertStatus,
    //      thisUpdate                   GeneralizedTime,
    //      nextUpdate         [0]       EXPLICIT GeneralizedTime OPTIONAL,
    //      singleExtensions   [1]       EXPLICIT Extensions OPTIONAL }
    //   CertID ::= SEQUENCE {
    //      hashAlgorithm       AlgorithmIdentifier,
    //      issuerNameHash      OCTET STRING,
    //      issuerKeyHash       OCTET STRING,
    //      serialNumber        CertificateSerialNumber }
    OcspSingle s;
    DerParser single, certId, alg;
    if (!responses.readSequence(&single) || !single.readSequence(&certId) ||
        !certId.readSequence(&alg) || !alg.readOid(&s.hashAlgOid) ||
        !certId.read(der::kOctetString, &s.issuerNameHash) ||
        !certId.read(der::kOctetString, &s.issuerKeyHash) || !certId.readIntegerBytes(&s.serial) ||
        certId.hasMore())
        return fail("An OCSP CertID is malformed.", log);

    //   CertStatus ::= CHOICE {
    //      good        [0]     IMPLICIT NULL,
    //      revoked     [1]     IMPLICIT RevokedInfo,
    //      unknown     [2]     IMPLICIT UnknownInfo }
    //   RevokedInfo ::= SEQUENCE {
    //      revocationTime              GeneralizedTime,
    //      revocationReason    [0]     EXPLICIT CRLReason OPTIONAL }
    DerInput empty;
    DerParser revoked;
    unsigned tag = 0;
    if (!single.peekTag(&tag)) return fail("An OCSP certificate status is malformed.", log);
    if (tag == der::contextPrimitive(0) || tag == der::contextPrimitive(2)) {
        if (!single.read(tag, &empty) || !empty.empty())
            return fail("An OCSP certificate status is malformed.", log);
        s.status = tag == der::contextPrimitive(0) ? OcspCertStatus::Good : OcspCertStatus::Unknown;
    } else if (single.readConstructed(der::contextConstructed(1), &revoked)) {
        s.status = OcspCertStatus::Revoked;
        DerInput reasonEl, reason;
        bool hasReason = false;
        if (!readTime(revoked, s.revocationTime, log) ||
            !revoked.readOptional(der::contextConstructed(0), &reasonEl, &hasReason) ||
            revoked.hasMore())
            return fail("An OCSP revocation entry is malformed.", log);
        if (hasReason) {
            DerParser r(reasonEl);
            if (!r.read(der::kEnumerated, &reason) || r.hasMore() || reason.size() != 1 ||
                (reason[0] & 0x80))
                return fail("An OCSP revocation reason is malformed.", log);
            s.reason = reason[0];
        }
    } else {
        return fail("An OCSP certificate status is malformed.", log);
    }

    DerInput next, ext;
    bool hasNext = false, hasExt = false;
    if (!readTime(single, s.thisUpdate, log) ||
        !single.readOptional(der::contextConstructed(0), &next, &hasNext))
        return fail("An OCSP single response is malformed.", log);
    if (hasNext) {
        DerParser n(next);
        if (!readTime(n, s.nextUpdate, log) || n.hasMore())
            return fail("An OCSP nextUpdate is malformed.", log);
    }
    if (!single.readOptional(der::contextConstructed(1), &ext, &hasExt) || single.hasMore())
        return fail("An OCSP single response is malformed.", log);
    m_singles.push_back(s);
    return true;
}

const OcspSingle* OcspResponse::find(const OcspAsked& asked) const {
    const DerInput name(asked.issuerNameHash.getData2(), asked.issuerNameHash.getSize());
    const DerInput key(asked.issuerKeyHash.getData2(), asked.issuerKeyHash.getSize());
    const DerInput serial(asked.serial.getData2(), asked.serial.getSize());
    for (const OcspSingle& s : m_singles)
        if (oids::kSha1.is(s.hashAlgOid) && s.issuerNameHash.equals(name) &&
            s.issuerKeyHash.equals(key) && s.serial.equals(serial))
            return &s;
    return nullptr;
}

OcspResponse::Nonce OcspResponse::nonce(const OcspAsked& asked) const {
    if (m_nonce.empty()) return Nonce::Absent;
    return m_nonce.equals(asked.nonce.getData2(), asked.nonce.getSize()) ? Nonce::Match
                                                                         : Nonce::Mismatch;
}

// Whether the responder ID names cert: its subject name, or the SHA-1 of its
// subjectPublicKey bits.
bool OcspResponse::signerMatches(CertCore& cert, LogBase& log) const {
    DataBuffer part;
    if (!m_responderName.empty())
        return cert.getPartDer(1, part, log) &&
               m_responderName.equals(part.getData2(), part.getSize());
    DataBuffer hash;
    return cert.getPartDer(3, part, log) &&
           _ovHash::doHash(part.getData2(), part.getSize(), 1, hash) &&
           m_responderKeyHash.equals(hash.getData2(), hash.getSize());
}

OcspResponse::Signature OcspResponse::verify(CertCore* issuer, LogBase& log) const {
    if (!issuer || !m_hasBasic) return Signature::Unchecked;
    LogContextExitor ctx(log, "verifyOcspResponse");
    CertCore* signer = nullptr;
    RefPtr<CertCore> delegated;
    if (signerMatches(*issuer, log)) {
        signer = issuer;
    } else {
        // A delegated responder: RFC 6960 4.2.2.2 wants it issued by the CA
        // itself and marked for OCSP signing. id-kp-OCSPSigning is matched as a
        // whole XML element, so that a longer OID with the same arcs fails.
        const std::string ocspSigningXml =
            std::string("<oid>") + oids::kKpOcspSigning.dotted + "</oid>";
        for (DerInput der : m_certs) {
            RefPtr<CertCore> c = RefPtr<CertCore>::retain(CertCore::createFromDer2(
                der.data(), static_cast<unsigned>(der.size()), nullptr, nullptr, log));
            if (!c || !signerMatches(*c, log)) continue;
            StringBuffer eku;
            if (!c->getExtensionXml(oids::kExtKeyUsage.dotted, eku, log) ||
                !eku.containsSubstring(ocspSigningXml.c_str())) {
                log.logError("The OCSP responder certificate is not marked for OCSP signing.");
            } else if (!c->verifyCertSignature(issuer, log)) {
                log.logError("The OCSP responder certificate is not issued by the issuer.");
            } else {
                signer = c.get();
                delegated = std::move(c);
                break;
            }
        }
    }
    if (!signer) {
        log.logError("No certificate that may sign the OCSP response matches its responder ID.");
        return Signature::Invalid;
    }
    DataBuffer spki;
    bool ok = signer->getPublicKeyAsDER(spki, log) &&
              ovVerifySignature(DerInput(spki.getData2(), spki.getSize()), m_sigAlg, m_tbs,
                                m_signature, log);
    if (!ok) log.logError("The OCSP response signature is not valid.");
    return ok ? Signature::Valid : Signature::Invalid;
}

}  // namespace revocation
