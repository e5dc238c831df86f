#include "revocation/TbsCertList.h"

#include <cstring>

#include "support/asn1/OidTable.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/crypto/SigVerify.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"
#include "support/x509/OrvaneX509.h"
#include "support/x509/X509Ext.h"

namespace crlgrammar {

namespace {

bool isTime(const DerElement& e) {
    return e.tag == der::kUtcTime || e.tag == der::kGeneralizedTime;
}

bool fail(const char** why, const char* text) {
    if (why) *why = text;
    return false;
}

// The value of the extension with the OID among Extensions contents; false
// when absent or malformed.
bool findExtension(DerInput extensions, const KnownOid& oid, DerInput* value) {
    DerParser list(extensions);
    X509Extension ext;
    while (X509ExtRead::extension(list, &ext)) {
        if (!oid.is(ext.oid)) continue;
        *value = ext.value;
        return true;
    }
    return false;
}

// Leading zero bytes say nothing about an INTEGER's magnitude.
DerInput stripZeros(DerInput in) {
    size_t i = 0;
    while (i + 1 < in.size() && in[i] == 0) ++i;
    return in.sub(i, in.size() - i);
}

}  // namespace

//   CRLReason ::= ENUMERATED
int reasonCode(const RevokedEntry& e) {
    DerInput value, code;
    if (e.extensions.empty() || !findExtension(e.extensions, oids::kCrlReason, &value)) return -1;
    DerParser p(value);
    if (!p.read(der::kEnumerated, &code) || p.hasMore() || code.size() != 1 || (code[0] & 0x80))
        return -1;
    return code[0];
}

bool readCertificateList(DerInput der, CertificateList* out, const char** why) {
    *out = CertificateList();
    DerParser top(der);
    DerElement whole, tbsEl, sigAlg;
    // Bytes after the CertificateList are ignored, as the load ignores them: a
    // CRL saved with a trailing newline must answer the same in both.
    if (!top.readElement(der::kSequence, &whole)) return fail(why, "CRL is not one SEQUENCE");
    DerParser list(whole.contents);
    //   tbsCertList          TBSCertList,
    //   signatureAlgorithm   AlgorithmIdentifier,
    //   signatureValue       BIT STRING
    unsigned unused = 0;
    if (!list.readElement(der::kSequence, &tbsEl) || !list.readElement(der::kSequence, &sigAlg) ||
        !list.readBitString(&out->signature, &unused) || list.hasMore())
        return fail(why, "CertificateList does not hold tbsCertList, algorithm and signature");
    out->tbs = tbsEl.whole;
    out->sigAlg = sigAlg.whole;

    DerParser tbs(tbsEl.contents);
    //   version                 Version OPTIONAL,  -- if present, MUST be v2
    if (tbs.nextIs(der::kInteger)) {
        uint64_t v = 0;
        if (!tbs.readUint64(&v) || v > 1) return fail(why, "CRL version is not v1 or v2");
        out->version = static_cast<int>(v) + 1;
    }
    //   signature               AlgorithmIdentifier,
    //   issuer                  Name,
    DerElement alg, issuer;
    if (!tbs.readElement(der::kSequence, &alg)) return fail(why, "CRL signature algorithm missing");
    if (!tbs.readElement(der::kSequence, &issuer)) return fail(why, "CRL issuer missing");
    out->tbsSigAlg = alg.whole;
    out->issuer = issuer.whole;
    //   thisUpdate              Time,
    //   nextUpdate              Time OPTIONAL,
    if (!tbs.readAny(&out->thisUpdate) || !isTime(out->thisUpdate))
        return fail(why, "CRL thisUpdate is not a time");
    unsigned tag = 0;
    if (tbs.peekTag(&tag) && (tag == der::kUtcTime || tag == der::kGeneralizedTime)) {
        if (!tbs.readAny(&out->nextUpdate)) return fail(why, "CRL nextUpdate is malformed");
        out->hasNextUpdate = true;
    }
    //   revokedCertificates     SEQUENCE OF SEQUENCE { ... } OPTIONAL,
    if (tbs.nextIs(der::kSequence) && !tbs.read(der::kSequence, &out->revoked))
        return fail(why, "CRL revokedCertificates is malformed");
    //   crlExtensions           [0]  EXPLICIT Extensions OPTIONAL
    if (tbs.nextIs(der::contextConstructed(0))) {
        DerParser wrap;
        if (!tbs.readConstructed(der::contextConstructed(0), &wrap) ||
            !wrap.read(der::kSequence, &out->extensions) || wrap.hasMore())
            return fail(why, "CRL extensions are malformed");
        out->hasExtensions = true;
    }
    if (tbs.hasMore()) return fail(why, "CRL tbsCertList has unexpected fields");
    return true;
}

bool RevokedCursor::next(RevokedEntry* out) {
    if (m_failed || !m_list.hasMore()) return false;
    DerParser entry;
    if (!m_list.readSequence(&entry) || !entry.readIntegerBytes(&out->serial) ||
        !entry.readAny(&out->revocationDate) || !isTime(out->revocationDate)) {
        m_failed = true;
        return false;
    }
    // The extensions stay as they are; only a match asks for its reason.
    out->extensions = DerInput();
    if (entry.hasMore() && (!entry.read(der::kSequence, &out->extensions) || entry.hasMore())) {
        m_failed = true;
        return false;
    }
    return true;
}

bool findSerial(DerInput revokedContents, DerInput serial, RevokedEntry* out, bool* malformed) {
    *malformed = false;
    DerInput want = stripZeros(serial);
    // Two headers per entry and no more: a million entries are walked in a
    // few milliseconds. Only the match is read whole.
    DerParser list(revokedContents);
    while (list.hasMore()) {
        DerElement entry;
        DerInput number;
        if (!list.readElement(der::kSequence, &entry) ||
            !DerParser(entry.contents).read(der::kInteger, &number)) {
            *malformed = true;
            return false;
        }
        if (!stripZeros(number).equals(want)) continue;
        // The entry alone, through the cursor that reads every field.
        RevokedCursor one(entry.whole);
        if (!one.next(out)) {
            *malformed = true;
            return false;
        }
        return true;
    }
    return false;
}

bool countEntries(DerInput revokedContents, uint64_t* count) {
    // Headers only: the entries' insides are the lookup's business.
    DerParser list(revokedContents);
    uint64_t n = 0;
    while (list.hasMore()) {
        if (!list.nextIs(der::kSequence) || !list.skip()) return false;
        ++n;
    }
    *count = n;
    return true;
}

bool crlNumber(DerInput extensions, bool* present, bool* fits, uint64_t* value) {
    *present = *fits = false;
    DerInput ext;
    if (!findExtension(extensions, oids::kCrlNumber, &ext)) return false;
    *present = true;
    //   CRLNumber ::= INTEGER (0..MAX)
    DerParser p(ext);
    *fits = p.readUint64(value) && !p.hasMore();
    return true;
}

bool verifySignature(const CertificateList& crl, const OrvaneX509& issuer, LogBase& log) {
    if (!crl.issuer.equals(issuer.subjectDer())) {
        log.logError("The CRL's issuer is not the certificate's subject.");
        return false;
    }
    // The signed algorithm must be the one outside, or whoever altered the
    // outer one could choose how the signature is read.
    if (!crl.tbsSigAlg.equals(crl.sigAlg)) {
        log.logError("The CRL's two signature algorithms differ.");
        return false;
    }
    return ovVerifySignature(issuer.spkiDer(), crl.sigAlg, crl.tbs, crl.signature, log);
}

bool timeToRfc3339(const DerElement& t, StringBuffer& out) {
    if (!isTime(t) || t.contents.size() >= 40) return false;
    char text[40];
    memcpy(text, t.contents.data(), t.contents.size());
    text[t.contents.size()] = 0;
    OrvaneSysTime st;
    LogNull quiet;
    bool ok = t.tag == der::kUtcTime ? st.fromAsnUtcDateTime(text, quiet)
                                     : st.fromAsnGeneralizedTime(text, quiet);
    return ok && _ovDateParser::SysTimeToRfc3339(st, false, true, out, true);
}

}  // namespace crlgrammar
