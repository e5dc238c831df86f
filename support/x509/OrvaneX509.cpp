#include "support/x509/OrvaneX509.h"

#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <vector>

#include "support/asn1/Asn1Node.h"
#include "support/asn1/Asn1Xml.h"
#include "support/asn1/OidTable.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/crypto/OvHash.h"
#include "support/crypto/OvPublicKey.h"
#include "support/crypto/SigVerify.h"
#include "support/time/OrvaneSysTime.h"
#include "support/x509/X509Ext.h"
#include "support/x509/X509KeyInfo.h"
#include "support/x509/X509Name.h"
#include "support/x509/X509NameXml.h"
#include "support/x509/X509Pkcs7.h"

namespace {

bool fail(LogBase& log, const char* msg) {
    log.logError(msg);
    return false;
}

// Dotted text to OID content octets; false when the text is not an OID.
bool dottedToOid(const char* dotted, unsigned char* buf, size_t cap, DerInput* out) {
    size_t n = 0;
    if (!dotted || !der::textToOid(dotted, buf, cap, &n)) return false;
    *out = DerInput(buf, n);
    return true;
}

}  // namespace

// ---- Loading -------------------------------------------------------------------

void OrvaneX509::reset() {
    m_der.clearWithDeallocate();
    m_loaded = false;
    m_at = Layout();
    m_sha1State.store(0, std::memory_order_relaxed);
}

void OrvaneX509::takeParsed(OrvaneX509& from) {
    reset();
    // The layout is offsets, so it holds for the buffer wherever it lives.
    m_der.swap(from.m_der);
    m_at = from.m_at;
    m_loaded = from.m_loaded;
    from.reset();
}

OrvaneX509::Span OrvaneX509::spanOf(DerInput v) const {
    Span s;
    if (v.empty()) return s;
    s.off = static_cast<uint32_t>(v.data() - m_der.getData2());
    s.len = static_cast<uint32_t>(v.size());
    return s;
}

DerInput OrvaneX509::view(Span s) const {
    if (!m_loaded || s.len == 0) return DerInput();
    return DerInput(m_der.getData2() + s.off, s.len);
}

bool OrvaneX509::loadX509DerAlt(const unsigned char* der, unsigned n, SystemCerts* /*store*/,
                                LogBase& log) {
    reset();
    if (!der || n == 0) return fail(log, "Certificate DER is empty.");
    DerInput in(der, n);

    if (X509Pkcs7::isContentInfo(in)) return loadPkcs7Leaf(in, log);

    DerParser p(in);
    DerElement cert;
    if (!p.readElement(der::kSequence, &cert))
        return fail(log, "Certificate DER is not one well-formed SEQUENCE.");
    if (p.hasMore() && log.verboseLogging) log.logInfo("Ignoring bytes after the certificate.");
    return adopt(cert.whole, log);
}

bool OrvaneX509::adopt(DerInput cert, LogBase& log) {
    reset();
    // Exact size: a bundle of hundreds of certificates should not carry the
    // slack a growing buffer keeps.
    if (!m_der.ensureCapacity(static_cast<unsigned>(cert.size())) ||
        !m_der.append(cert.data(), static_cast<unsigned>(cert.size())))
        return fail(log, "Out of memory loading a certificate.");
    m_loaded = true;  // views work from here; parseCertificate resets on failure
    if (!parseCertificate(log)) {
        reset();
        return false;
    }
    return true;
}

bool OrvaneX509::loadPkcs7Leaf(DerInput in, LogBase& log) {
    std::vector<DerInput> views;
    if (!X509Pkcs7::certificates(in, views, log)) return false;
    if (views.empty()) return fail(log, "PKCS7 holds no certificates.");

    // Parse each one on its own; the leaf's parse is then taken over as it is.
    std::vector<std::unique_ptr<OrvaneX509>> parsed;
    std::vector<OrvaneX509*> certs;
    std::vector<size_t> origin;
    LogNull quiet(log);
    try {
        for (size_t i = 0; i < views.size(); ++i) {
            std::unique_ptr<OrvaneX509> x(new (std::nothrow) OrvaneX509());
            if (!x) return fail(log, "Out of memory loading a certificate.");
            if (!x->adopt(views[i], quiet)) continue;  // unparsable members are passed over
            certs.push_back(x.get());
            origin.push_back(i);
            parsed.push_back(std::move(x));
        }
    } catch (...) {
        return fail(log, "Out of memory loading a certificate.");
    }
    if (certs.empty()) return fail(log, "No certificate in the PKCS7 could be parsed.");
    const size_t leaf = static_cast<size_t>(X509Pkcs7::pickLeaf(certs));
    if (log.verboseLogging) {
        log.LogDataLong("numCerts", static_cast<long>(views.size()));
        log.LogDataLong("leafIndex", static_cast<long>(origin[leaf]));
    }
    takeParsed(*parsed[leaf]);
    return true;
}

bool OrvaneX509::parseCertificate(LogBase& log) {
    //   Certificate ::= SEQUENCE {
    //        tbsCertificate       TBSCertificate,
    //        signatureAlgorithm   AlgorithmIdentifier,
    //        signatureValue       BIT STRING  }
    DerParser top(DerInput(m_der.getData2(), m_der.getSize()));
    DerParser cert;
    if (!top.readSequence(&cert) || top.hasMore())
        return fail(log, "Certificate DER is not one well-formed SEQUENCE.");
    DerElement tbs, sigAlg;
    if (!cert.readElement(der::kSequence, &tbs))
        return fail(log, "Certificate's TBSCertificate is missing or malformed.");
    if (!cert.readElement(der::kSequence, &sigAlg))
        return fail(log, "Certificate's signature algorithm is missing or malformed.");
    DerInput sigBits;
    unsigned unused = 0;
    if (!cert.readBitString(&sigBits, &unused))
        return fail(log, "Certificate's signature value is missing or malformed.");
    if (cert.hasMore()) return fail(log, "Unexpected data after the certificate's signature.");
    m_at.tbs = spanOf(tbs.whole);
    m_at.sigAlg = spanOf(sigAlg.whole);
    m_at.sigBits = spanOf(sigBits);

    //   TBSCertificate  ::=  SEQUENCE  {
    //        version         [0]  EXPLICIT Version DEFAULT v1,
    DerParser t(tbs.contents);
    if (t.nextIs(der::contextConstructed(0))) {
        DerParser v;
        uint64_t version = 0;
        if (!t.readConstructed(der::contextConstructed(0), &v) || !v.readUint64(&version) ||
            v.hasMore() || version > 255)
            return fail(log, "Certificate version is malformed.");
        m_at.version = static_cast<uint8_t>(version);
    }
    //        serialNumber         CertificateSerialNumber,
    DerInput serial;
    if (!t.readIntegerBytes(&serial)) return fail(log, "Certificate serial number is malformed.");
    m_at.serial = spanOf(serial);
    // The fields kept whole: a SEQUENCE whose position is recorded.
    auto sequenceAt = [&](Span* at) {
        DerElement e;
        if (!t.readElement(der::kSequence, &e)) return false;
        *at = spanOf(e.whole);
        return true;
    };
    //        signature            AlgorithmIdentifier,
    if (!sequenceAt(&m_at.tbsSigAlg))
        return fail(log, "Certificate's TBS signature algorithm is malformed.");
    //        issuer               Name,
    if (!sequenceAt(&m_at.issuer)) return fail(log, "Certificate issuer name is malformed.");
    //        validity             Validity,
    //   Validity ::= SEQUENCE { notBefore Time, notAfter Time }
    //   Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }
    DerParser validity;
    DerElement nb, na;
    if (!t.readSequence(&validity) || !validity.readAny(&nb) || !validity.readAny(&na) ||
        validity.hasMore())
        return fail(log, "Certificate validity is malformed.");
    for (const DerElement* e : {&nb, &na}) {
        if (e->tag != der::kUtcTime && e->tag != der::kGeneralizedTime)
            return fail(log, "Certificate validity time is neither UTCTime nor GeneralizedTime.");
    }
    m_at.notBefore = spanOf(nb.whole);
    m_at.notAfter = spanOf(na.whole);
    //        subject              Name,
    if (!sequenceAt(&m_at.subject)) return fail(log, "Certificate subject name is malformed.");
    //        subjectPublicKeyInfo SubjectPublicKeyInfo,
    DerElement spki;
    DerParser spkiSeq, alg;
    DerInput algOid, keyBits;
    if (!t.readElement(der::kSequence, &spki))
        return fail(log, "Certificate public key info is malformed.");
    spkiSeq = DerParser(spki.contents);
    if (!spkiSeq.readSequence(&alg) || !alg.readOid(&algOid) ||
        !spkiSeq.readBitString(&keyBits, &unused) || spkiSeq.hasMore())
        return fail(log, "Certificate public key info is malformed.");
    m_at.spki = spanOf(spki.whole);
    m_at.spkiAlgOid = spanOf(algOid);
    m_at.spkiBits = spanOf(keyBits);
    //        issuerUniqueID  [1]  IMPLICIT UniqueIdentifier OPTIONAL,
    //        subjectUniqueID [2]  IMPLICIT UniqueIdentifier OPTIONAL,
    DerInput ignored;
    bool present = false;
    if (!t.readOptional(der::contextPrimitive(1), &ignored, &present) ||
        !t.readOptional(der::contextPrimitive(2), &ignored, &present))
        return fail(log, "Certificate unique identifier is malformed.");
    //        extensions      [3]  EXPLICIT Extensions OPTIONAL }
    if (t.nextIs(der::contextConstructed(3))) {
        DerParser wrap;
        DerInput list;
        if (!t.readConstructed(der::contextConstructed(3), &wrap) ||
            !wrap.read(der::kSequence, &list) || wrap.hasMore())
            return fail(log, "Certificate extensions are malformed.");
        if (!parseExtensions(list, log)) return false;
    }
    if (t.hasMore()) return fail(log, "Unexpected data at the end of the TBSCertificate.");
    return true;
}

bool OrvaneX509::parseExtensions(DerInput list, LogBase& log) {
    // The list itself is kept as a position; an empty one still counts as present.
    m_at.exts = spanOf(list);
    DerParser p(list);
    while (p.hasMore()) {
        X509Extension ext;
        if (!X509ExtRead::extension(p, &ext))
            return fail(log, "Certificate extension is malformed.");
        // The extensions queries reach for most.
        static const struct {
            const KnownOid* oid;
            int kind;
        } kFoundAtLoad[] = {
            {&oids::kSubjectKeyId, kSki},
            {&oids::kAuthorityKeyId, kAki},
            {&oids::kKeyUsage, kKeyUsage},
            {&oids::kSubjectAltName, kSan},
            {&oids::kBasicConstraints, kBasicConstraints},
            {&oids::kCrlDistributionPoints, kCrlDp},
            {&oids::kExtKeyUsage, kEku},
            {&oids::kAuthorityInfoAccess, kAia},
        };
        int k = -1;
        for (const auto& e : kFoundAtLoad) {
            if (e.oid->is(ext.oid)) {
                k = e.kind;
                break;
            }
        }
        // A repeated extension is forbidden; the first one is the one answered.
        if (k >= 0 && !(m_at.knownPresent & (1u << k))) {
            m_at.known[k] = spanOf(ext.value);
            m_at.knownPresent |= static_cast<uint8_t>(1u << k);
            if (ext.critical) m_at.knownCritical |= static_cast<uint8_t>(1u << k);
        }
    }
    return true;
}

// ---- DER access ----------------------------------------------------------------

DerInput OrvaneX509::certDer() const {
    return m_loaded ? DerInput(m_der.getData2(), m_der.getSize()) : DerInput();
}
void OrvaneX509::getCertDer(DataBuffer& out) const {
    if (m_loaded) out.append(m_der);
}

bool OrvaneX509::getXml(XString& out, LogBase& log) const {
    if (!m_loaded) return false;
    StringBuffer xml;
    if (!Asn1Xml::derToXml(m_der, true, true, xml, nullptr, log)) return false;
    return out.appendSbUtf8(xml);
}

// ---- Names ---------------------------------------------------------------------

bool OrvaneX509::nameDnText(bool subject, bool withTags, int style, bool encodingOrder,
                            XString& out, LogBase& log) const {
    if (!m_loaded) return false;
    StringBuffer text;
    if (!X509Name::appendDnText(nameDer(subject), withTags, style, encodingOrder, text))
        return fail(log, subject ? "Failed to decode the certificate's subject name."
                                 : "Failed to decode the certificate's issuer name.");
    return out.appendSbUtf8(text);
}

bool OrvaneX509::getDN(bool subject, bool withTags, XString& out, LogBase& log, int style) const {
    return nameDnText(subject, withTags, style, false, out, log);
}

bool OrvaneX509::getDN_reverseOrder(bool subject, bool withTags, int style, XString& out,
                                    LogBase& log) const {
    return nameDnText(subject, withTags, style, true, out, log);
}

_ovAsn1* OrvaneX509::getDnAsn(bool subject, LogBase& log) const {
    if (!m_loaded) return nullptr;
    DerInput name = nameDer(subject);
    return _ovAsn1::DecodeToAsn_1Step(name.data(), static_cast<unsigned>(name.size()), log);
}

bool OrvaneX509::getDnJson(bool subject, StringBuffer& out, LogBase& log, int) const {
    if (!m_loaded) return false;
    if (!X509Name::appendDnJson(nameDer(subject), out))
        return fail(log, subject ? "Failed to decode the certificate's subject name."
                                 : "Failed to decode the certificate's issuer name.");
    return true;
}

bool OrvaneX509::appendToDN(ClsXml& rdn, bool withTags, int style, XString& dn, LogBase& log) {
    return X509NameXml::appendRdn(rdn, withTags, style, dn, log);
}

bool OrvaneX509::nameValue(bool subject, const char* nameOrOid, XString& out, LogBase&) const {
    if (!m_loaded || !nameOrOid) return false;
    DerInput oid;
    unsigned char buf[64];
    const X509AttrType* t = X509Name::typeByName(nameOrOid);
    if (t) {
        oid = t->bytes();
    } else if (!dottedToOid(nameOrOid, buf, sizeof buf, &oid)) {
        return false;
    }
    StringBuffer value;
    if (!X509Name::findValue(nameDer(subject), oid, value)) return false;
    return out.appendSbUtf8(value);
}

bool OrvaneX509::getEmailAddress(XString& out, LogBase& log) const {
    if (get_SubjectE(out, log)) return true;
    return getRfc822Name(out, log);
}

bool OrvaneX509::getRfc822Name(XString& out, LogBase&) const {
    DerInput san, name;
    if (!knownExt(kSan, &san) || !X509ExtRead::firstRfc822(san, &name)) return false;
    StringBuffer text;
    X509Name::appendStringValue(der::kIa5String, name, text);
    return out.appendSbUtf8(text);
}

bool OrvaneX509::isIssuerSelf(LogBase&) const {
    return m_loaded && issuerDer().equals(subjectDer());
}

// ---- Extensions ----------------------------------------------------------------

bool OrvaneX509::knownExt(KnownExt k, DerInput* value) const {
    if (!m_loaded || !(m_at.knownPresent & (1u << k))) return false;
    *value = view(m_at.known[k]);
    return true;
}

bool OrvaneX509::findExtension(DerInput oid, DerInput* value, bool* critical) const {
    if (!m_loaded) return false;
    DerParser p(extensionsDer());
    X509Extension ext;
    // Validated at load, so a read only fails on a broken invariant.
    while (X509ExtRead::extension(p, &ext)) {
        if (!ext.oid.equals(oid)) continue;
        *value = ext.value;
        if (critical) *critical = ext.critical;
        return true;
    }
    return false;
}

bool OrvaneX509::findExtension(const char* dottedOid, DerInput* value, bool* critical) const {
    unsigned char buf[64];
    DerInput oid;
    if (!dottedToOid(dottedOid, buf, sizeof buf, &oid)) return false;
    return findExtension(oid, value, critical);
}

bool OrvaneX509::getExtensionAsnXmlByOid(const char* oid, StringBuffer& out, LogBase& log) const {
    DerInput v;
    if (!findExtension(oid, &v, nullptr)) return false;
    DataBuffer der;
    if (!der.append(v.data(), static_cast<unsigned>(v.size()))) return false;
    StringBuffer xml;
    if (!Asn1Xml::derToXml(der, true, true, xml, nullptr, log)) return false;
    return out.append(xml);
}

bool OrvaneX509::getExtensionDataByOid(const char* oid, DataBuffer& out, LogBase& log) const {
    DerInput v;
    if (!findExtension(oid, &v, nullptr)) return false;
    DerParser p(v, true);
    DerElement e;
    if (!p.readAny(&e)) return fail(log, "Extension value is not well-formed ASN.1.");
    return out.append(e.contents.data(), static_cast<unsigned>(e.contents.size()));
}

bool OrvaneX509::getExtensionDerDataByOid(const char* oid, DataBuffer& out, LogBase&) const {
    DerInput v;
    if (!findExtension(oid, &v, nullptr)) return false;
    return out.append(v.data(), static_cast<unsigned>(v.size()));
}

bool OrvaneX509::getExtensionTextByOid(const char* oid, StringBuffer& out, LogBase&) const {
    unsigned char buf[64];
    DerInput id, v;
    if (!dottedToOid(oid, buf, sizeof buf, &id) || !findExtension(id, &v, nullptr)) return false;
    return X509ExtText::appendText(id, v, out);
}

bool OrvaneX509::getSubjectAlternativeNameXml(XString& out, LogBase& log) const {
    DerInput san;
    if (!knownExt(kSan, &san)) return false;
    StringBuffer xml;
    if (!X509ExtText::appendSanXml(san, xml))
        return fail(log, "Subject alternative name extension is malformed.");
    return out.appendSbUtf8(xml);
}

bool OrvaneX509::getSubjectKeyIdentifier(StringBuffer& out, LogBase&) const {
    DerInput id;
    if (!subjectKeyId(&id)) return false;
    return out.appendHex(id.data(), static_cast<unsigned>(id.size()));
}

bool OrvaneX509::authorityKeyId(DerInput* keyId) const {
    DerInput v;
    return knownExt(kAki, &v) && X509ExtRead::akiKeyId(v, keyId);
}

bool OrvaneX509::subjectKeyId(DerInput* keyId) const {
    DerInput v;
    return knownExt(kSki, &v) && X509ExtRead::skiKeyId(v, keyId);
}

bool OrvaneX509::basicConstraints(bool* isCa, int* pathLen) const {
    DerInput v;
    return knownExt(kBasicConstraints, &v) && X509ExtRead::basicConstraints(v, isCa, pathLen);
}

bool OrvaneX509::keyUsage(unsigned* mask) const {
    DerInput v;
    return knownExt(kKeyUsage, &v) && X509ExtRead::keyUsageMask(v, mask);
}

bool OrvaneX509::extKeyUsageDer(DerInput* list) const {
    DerInput v;
    return knownExt(kEku, &v) && X509ExtRead::ekuList(v, list);
}

bool OrvaneX509::hasExtKeyUsage(const char* dottedOid) const {
    unsigned char buf[64];
    DerInput want, list;
    if (!dottedToOid(dottedOid, buf, sizeof buf, &want) || !extKeyUsageDer(&list)) return false;
    DerParser p(list);
    DerInput oid;
    while (p.readOid(&oid)) {
        if (oid.equals(want)) return true;
    }
    return false;
}

int OrvaneX509::ocspUrls(DerInput* out, int max) const {
    DerInput v;
    if (!knownExt(kAia, &v)) return 0;
    int n = X509ExtRead::ocspUris(v, out, max);
    return n < 0 ? 0 : n;
}

int OrvaneX509::crlUrls(DerInput* out, int max) const {
    DerInput v;
    if (!knownExt(kCrlDp, &v)) return 0;
    int n = X509ExtRead::crlUris(v, out, max);
    return n < 0 ? 0 : n;
}

// ---- Keys and fingerprints -------------------------------------------------------

bool OrvaneX509::get_PublicKey(DataBuffer& out, LogBase&) const {
    DerInput spki = spkiDer();
    return !spki.empty() && out.append(spki.data(), static_cast<unsigned>(spki.size()));
}

bool OrvaneX509::get_PublicKeyForOCSP(DataBuffer& out, LogBase&) const {
    if (!m_loaded) return false;
    DerInput bits = publicKeyBits();
    return out.append(bits.data(), static_cast<unsigned>(bits.size()));
}

bool OrvaneX509::getSpkiFingerprint(const StringBuffer& hashAlg, const StringBuffer& encoding,
                                    XString& out, LogBase& log) const {
    if (!m_loaded) return false;
    int alg = _ovHash::hashAlgFromName(hashAlg.getString());
    if (alg == 0) {
        log.logError("Unsupported SPKI fingerprint hash algorithm.");
        log.LogDataSb("hashAlg", hashAlg);
        return false;
    }
    DerInput spki = spkiDer();
    DataBuffer digest;
    if (!_ovHash::doHash(spki.data(), static_cast<unsigned>(spki.size()), alg, digest))
        return fail(log, "Failed to hash the public key.");
    StringBuffer text;
    if (!digest.encodeDB(encoding.getString(), text)) {
        log.logError("Unsupported SPKI fingerprint encoding.");
        log.LogDataSb("encoding", encoding);
        return false;
    }
    return out.appendSbUtf8(text);
}

bool OrvaneX509::getOrvaneKeyId64(StringBuffer& out, LogBase& log) const {
    if (!m_loaded) return false;
    DerInput spki = spkiDer();
    return _ovPublicKey::keyIdFromSpki(spki.data(), static_cast<unsigned>(spki.size()), out, log);
}

bool OrvaneX509::sha1(unsigned char digest[20]) const {
    if (!m_loaded) return false;
    if (m_sha1State.load(std::memory_order_acquire) == 2) {
        memcpy(digest, m_sha1, 20);
        return true;
    }
    DataBuffer d;
    if (!_ovHash::doHash(m_der.getData2(), m_der.getSize(), ovhash::kSha1, d) || d.getSize() != 20)
        return false;
    memcpy(digest, d.getData2(), 20);
    // Only the first thread to get here writes the cache; readers wait for 2.
    uint8_t expected = 0;
    if (m_sha1State.compare_exchange_strong(expected, 1, std::memory_order_acq_rel)) {
        memcpy(m_sha1, digest, 20);
        m_sha1State.store(2, std::memory_order_release);
    }
    return true;
}

bool OrvaneX509::get_Sha1Thumbprint(DataBuffer& out, LogBase& log) const {
    unsigned char d[20];
    if (!sha1(d)) return m_loaded ? fail(log, "Failed to compute the SHA-1 thumbprint.") : false;
    return out.append(d, 20);
}

bool OrvaneX509::get_Sha1ThumbprintX(XString& out, LogBase& log) const {
    unsigned char d[20];
    if (!sha1(d)) return m_loaded ? fail(log, "Failed to compute the SHA-1 thumbprint.") : false;
    StringBuffer hex;
    hex.appendHex(d, 20);
    return out.appendSbUtf8(hex);
}

bool OrvaneX509::get_SignatureValue(DataBuffer& out, LogBase&) const {
    if (!m_loaded) return false;
    DerInput sig = signatureBits();
    return out.append(sig.data(), static_cast<unsigned>(sig.size()));
}

bool OrvaneX509::keyTypeAndBits(int* keyType, unsigned* bits) const {
    *keyType = X509KeyInfo::kUnknown;
    *bits = 0;
    return m_loaded && X509KeyInfo::typeAndBits(spkiDer(), keyType, bits);
}

// ---- Identity and validity ---------------------------------------------------------

bool OrvaneX509::get_SerialNumber(XString& out, LogBase&) const {
    if (!m_loaded) return false;
    DerInput s = serialBytes();
    StringBuffer hex;
    hex.appendHex(s.data(), static_cast<unsigned>(s.size()));
    return out.appendSbUtf8(hex);
}

bool OrvaneX509::get_IssuerSerial(XString& out, LogBase& log) const {
    XString text;
    if (!get_SerialNumber(text, log)) return false;
    text.appendUtf8(":");
    if (!getDN(false, true, text, log, X509Name::kStyleEveryday)) return false;
    return out.appendSbUtf8(text.getUtf8Sb());
}

bool OrvaneX509::get_Version(XString& out, LogBase&) const {
    if (!m_loaded) return false;
    StringBuffer sb;
    sb.appendUint32(static_cast<unsigned>(m_at.version) + 1);
    return out.appendSbUtf8(sb);
}

bool OrvaneX509::get_Valid_To_or_From_UTC(bool from, OrvaneSysTime& out, LogBase& log) const {
    if (!m_loaded) return false;
    DerParser p(view(from ? m_at.notBefore : m_at.notAfter));
    DerElement e;
    if (!p.readAny(&e)) return false;
    // Both forms are short ("YYYYMMDDHHMMSS.fffffffZ" at most, in practice); a
    // longer text is malformed and is refused before copying.
    char text[48];
    if (e.contents.size() >= sizeof text)
        return fail(log, "Certificate validity time is too long.");
    memcpy(text, e.contents.data(), e.contents.size());
    text[e.contents.size()] = '\0';
    if (memchr(text, '\0', e.contents.size()))
        return fail(log, "Certificate validity time holds a zero byte.");
    OrvaneSysTime t;
    bool ok = e.tag == der::kUtcTime ? t.fromAsnUtcDateTime(text, log)
                                     : t.fromAsnGeneralizedTime(text, log);
    if (!ok) return fail(log, "Failed to parse the certificate's validity time.");
    out = t;
    return true;
}

bool OrvaneX509::isCertExpired(LogBase& log) const {
    OrvaneSysTime notAfter;
    if (!get_Valid_To_or_From_UTC(false, notAfter, log)) return false;
    return static_cast<int64_t>(time(nullptr)) > notAfter.toUnixTime();
}

bool OrvaneX509::verifyCertSignature(OrvaneX509* issuer, LogBase& log) const {
    if (!m_loaded) return false;
    const OrvaneX509* signer = issuer ? issuer : this;
    if (!signer->isLoaded()) return fail(log, "The issuer certificate is not loaded.");
    // RFC 5280 4.1.1.2: the outer algorithm must equal the one inside the TBS,
    // otherwise the signed bytes do not say which algorithm was meant.
    if (!view(m_at.tbsSigAlg).equals(signatureAlgDer()))
        return fail(log, "Certificate signature algorithms inside and outside the TBS differ.");
    return ovVerifySignature(signer->spkiDer(), signatureAlgDer(), tbsDer(), signatureBits(), log);
}

// ---- Holder --------------------------------------------------------------------

OrvaneX509Holder::OrvaneX509Holder() : m_x509(new (std::nothrow) OrvaneX509()) {}

OrvaneX509Holder::~OrvaneX509Holder() {
    delete m_x509;
}

void OrvaneX509Holder::setX509(OrvaneX509* x509) {
    if (x509 == m_x509) return;
    delete m_x509;
    m_x509 = x509;
}
