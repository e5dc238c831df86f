#include "revocation/OvCrl.h"

#include <memory>

#include "revocation/TbsCertList.h"
#include "support/asn1/Asn1Node.h"
#include "support/asn1/Asn1Xml.h"
#include "support/asn1/MpMath.h"
#include "support/asn1/OidTable.h"
#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"
#include "support/base/XString.h"
#include "support/time/OrvaneSysTime.h"
#include "support/time/_ovDateParser.h"
#include "support/x509/OrvaneX509.h"
#include "support/xml/ClsXml.h"

namespace {

// The fixed places the load reads (see loadCrlDer): a v2 CRL with a
// nextUpdate and a revoked list puts its fields at these indexes.
constexpr int kTbsPart = 0;
constexpr int kIssuerPart = 2;
constexpr int kThisUpdatePart = 3;
constexpr int kExtensionsPart = 6;
constexpr unsigned kUtcTimeTag = 23;

// Part index of tbs, re-rendered as XML into xml and text. A missing part
// sets errorNum to missingErr, unless that is 0 (the part is optional); the
// three steps after fail with firstErr, firstErr + 1 and firstErr + 2.
bool partToXml(_ovAsn1* tbs, int index, ClsXml& xml, StringBuffer& text, LogBase& log,
               int missingErr, int firstErr, int& errorNum, bool& present) {
    _ovAsn1* node = tbs->getAsnPart(index);
    present = node != nullptr;
    if (!node) {
        errorNum = missingErr;
        return missingErr == 0;
    }
    DataBuffer der;
    if (!node->EncodeToDer(der, true, log)) {
        errorNum = firstErr;
        return false;
    }
    if (!Asn1Xml::derToXml(der, true, true, text, nullptr, log)) {
        errorNum = firstErr + 1;
        return false;
    }
    if (!xml.loadXml(text, true, log)) {
        errorNum = firstErr + 2;
        return false;
    }
    text.clear();
    xml.getXml(false, text, log);
    return true;
}

}  // namespace

_ovCrl::_ovCrl() = default;

_ovCrl::~_ovCrl() {
    // The tree views m_der, so it goes first.
    RefCountedObject::release(m_asn);
    m_asn = nullptr;
}

bool _ovCrl::failLoad(int errorNum, LogBase& log) {
    log.logError("Error decoding CRL ASN.1");
    log.LogDataLong("errorNum", errorNum);
    RefCountedObject::release(m_asn);
    m_asn = nullptr;
    m_der.clearWithDeallocate();
    m_sbThisUpdate.clear();
    m_sbIssuerDn.clear();
    return false;
}

bool _ovCrl::loadCrlDer(const DataBuffer& der, LogBase& log) {
    if (&der == &m_der) {
        // Reloading our own bytes: the reset below would empty them first.
        DataBuffer copy(der);
        return loadCrlDer(copy, log);
    }
    LogContextExitor ctx(log, "loadCrlDer");
    RefPtr<ClsXml> xmlObj = RefPtr<ClsXml>::adopt(ClsXml::createNewCls());
    if (!xmlObj) return false;
    ClsXml& xml = *xmlObj;

    RefCountedObject::release(m_asn);
    m_asn = nullptr;
    // A fresh block of exactly the size: reusing a smaller one would grow it
    // by doubling, up to twice the CRL.
    if (der.getSize() > m_der.getSize()) m_der.clearWithDeallocate();
    m_der.clear();
    m_sbThisUpdate.clear();
    m_sbIssuerDn.clear();
    m_crlNumber = 0;
    // Out of memory: the one error line and number every failed load gives.
    if (!m_der.append(der)) return failLoad(1, log);

    // The tree views m_der rather than copying it: a CRL of a million entries
    // is about 38 MB and is held once.
    m_asn = _ovAsn1::DecodeToAsn_1StepView(m_der.getData2(), m_der.getSize(), log);
    if (!m_asn) return failLoad(1, log);
    if (!m_asn->DecodeInner(false, log)) return failLoad(2, log);
    if (m_asn->numAsnParts() != 3) return failLoad(3, log);
    _ovAsn1* tbs = m_asn->getAsnPart(kTbsPart);
    if (!tbs) return failLoad(0, log);
    if (!tbs->DecodeInner(false, log)) return failLoad(4, log);

    _ovAsn1* thisUpdate = tbs->getAsnPart(kThisUpdatePart);
    if (!thisUpdate) return failLoad(5, log);
    // Only UTCTime: a GeneralizedTime thisUpdate is refused on purpose.
    if (thisUpdate->m_tag != kUtcTimeTag) return failLoad(6, log);
    DataBuffer timeText;
    if (!thisUpdate->getAsnContent(timeText)) return failLoad(7, log);
    timeText.appendChar(0);
    OrvaneSysTime t;
    if (!t.fromAsnUtcDateTime(reinterpret_cast<const char*>(timeText.getData2()), log))
        return failLoad(8, log);
    _ovDateParser::SysTimeToRfc3339(t, false, true, m_sbThisUpdate, true);

    int errorNum = 0;
    if (!readIssuerName(tbs, xml, log, errorNum)) return failLoad(errorNum, log);
    if (!readCrlNumber(tbs, xml, log, errorNum)) return failLoad(errorNum, log);
    return true;
}

bool _ovCrl::readIssuerName(_ovAsn1* tbs, ClsXml& xml, LogBase& log, int& errorNum) {
    StringBuffer text;
    bool present = false;
    if (!partToXml(tbs, kIssuerPart, xml, text, log, 9, 10, errorNum, present)) return false;
    // The RDNs go last to first.
    XString name;
    if (xml.get_NumChildren() > 0 && xml.LastChild2()) {
        do {
            OrvaneX509::appendToDN(xml, true, 0, name, log);
        } while (xml.PreviousSibling2());
    }
    log.LogDataX("issuerName", name);
    m_sbIssuerDn.append(name.getUtf8());
    return true;
}

bool _ovCrl::readCrlNumber(_ovAsn1* tbs, ClsXml& xml, LogBase& log, int& errorNum) {
    StringBuffer text;
    bool present = false;
    if (!partToXml(tbs, kExtensionsPart, xml, text, log, 0, 14, errorNum, present)) return false;
    if (!present) {
        m_crlNumber = 0;
        return true;
    }
    if (log.verboseLogging) log.LogDataSb("sbExtensionsXml", text);

    XString tag("oid"), content(oids::kCrlNumber.dotted);
    if (!xml.SearchForContent2(nullptr, tag, content)) return true;
    // The value after the OID: extnValue, or the critical flag when one
    // stands between (which then decodes as no INTEGER).
    xml.NextSibling2();
    StringBuffer b64;
    xml.getContentSb(b64);
    DataBuffer bytes;
    if (!b64.decode("base64", bytes, log)) {
        errorNum = 18;
        return false;
    }
    unsigned consumed = 0;
    std::unique_ptr<ov_asnItem> item(
        Asn1Xml::decodeAsnItem(bytes.getData2(), bytes.getSize(), consumed, log));
    if (!item) {
        errorNum = 19;
        return false;
    }
    mp_int value;
    if (item->get_mp(value, log)) m_crlNumber = static_cast<int>(MpMath::mp_get_int(value));
    return true;
}

bool _ovCrl::readStructure(crlgrammar::CertificateList& out) const {
    if (!m_asn) return false;
    const char* why = nullptr;
    return crlgrammar::readCertificateList(DerInput(m_der.getData2(), m_der.getSize()), &out, &why);
}

bool _ovCrl::findSerial(const unsigned char* serial, unsigned n, CrlRevocation& out) const {
    out = CrlRevocation();
    crlgrammar::CertificateList cl;
    if (!readStructure(cl)) return false;
    crlgrammar::RevokedEntry e;
    bool malformed = false;
    if (!crlgrammar::findSerial(cl.revoked, DerInput(serial, n), &e, &malformed)) return !malformed;
    out.listed = true;
    out.reason = crlgrammar::reasonCode(e);
    crlgrammar::timeToRfc3339(e.revocationDate, out.revocationDate);
    return true;
}

bool _ovCrl::getEntryCount(uint64_t& count) const {
    crlgrammar::CertificateList cl;
    return readStructure(cl) && crlgrammar::countEntries(cl.revoked, &count);
}

bool _ovCrl::getNextUpdate(StringBuffer& out) const {
    crlgrammar::CertificateList cl;
    return readStructure(cl) && cl.hasNextUpdate && crlgrammar::timeToRfc3339(cl.nextUpdate, out);
}

bool _ovCrl::verifySignature(const OrvaneX509& issuer, LogBase& log) const {
    LogContextExitor ctx(log, "verifyCrlSignature");
    crlgrammar::CertificateList cl;
    if (!readStructure(cl)) {
        log.logError("No CRL is loaded, or it does not follow the CRL grammar.");
        return false;
    }
    return crlgrammar::verifySignature(cl, issuer, log);
}
