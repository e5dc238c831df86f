// Where a certificate says its revocation status can be asked for: the CRL
// Distribution Points and the OCSP responder of Authority Information Access,
// both read from the extension's ASN.1 XML rendering.
#include "cert/CertCore.h"
#include "support/asn1/OidTable.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"
#include "support/xml/ClsXml.h"

namespace {

// Responders that certificates still name but that no longer answer (their
// operators shut OCSP down); asking them only costs the caller a timeout.
// Kept scrambled (StringBuffer::litScram, made with tools/litscram) so that the
// binary does not carry them as plain strings. In order:
//   http://ocsp.int-x3.letsencrypt.org, http://r3.o.lencr.org,
//   http://e1.o.lencr.org, http://r10.o.lencr.org, http://r11.o.lencr.org,
//   http://e5.o.lencr.org, http://e6.o.lencr.org
const char* const kNonRespondingOcsp[] = {
    "y-47gcjRMdh-o{)H;\\^DDZ`Yie{*(3S<FB",
    "y-47gcjU|~g-rr#~5W@JF",
    "y-47gcjHz~g-rr#~5W@JF",
    "y-47gcjUz!&n4yy*&<^GQM",
    "y-47gcjUz\"&n4yy*&<^GQM",
    "y-47gcjH~~g-rr#~5W@JF",
    "y-47gcjH ~g-rr#~5W@JF",
};

// Appends the bytes that the base64 text of a primitive element stands for.
void appendDecoded(const StringBuffer& b64, StringBuffer& url) {
    DataBuffer bytes;
    bytes.appendEncoded(b64.getString(), "base64");
    url.append(bytes);
}

}  // namespace

bool CertCore::getCrlDistPoint(StringBuffer& url, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    url.clear();
    LogContextExitor ctx(log, "getCrlDistPoint");

    StringBuffer xml;
    if (!getExtensionXml(oids::kCrlDistributionPoints.dotted, xml, log)) {
        log.logInfo("No CRL Distribution Points extension.");
        return false;
    }
    if (log.verboseLogging) log.LogDataSb("extensionXml", xml);

    RefPtr<ClsXml> x = RefPtr<ClsXml>::adopt(ClsXml::createNewCls());
    if (!x) return false;
    x->loadXml(xml, true, log);

    //   CRLDistributionPoints ::= SEQUENCE OF DistributionPoint
    //   DistributionPoint ::= SEQUENCE { distributionPoint [0] DistributionPointName, ... }
    //   DistributionPointName ::= CHOICE { fullName [0] GeneralNames, ... }
    // Only the first DistributionPoint counts: one CRL is all a caller needs.
    static const char* const kPath[] = {"sequence", "sequence", "contextSpecific",
                                        "contextSpecific"};
    for (const char* tag : kPath)
        if (!x->tagEquals(tag) || !x->getChild2(0)) return false;
    if (!x->tagEquals("contextSpecific")) return false;

    StringBuffer content;
    x->getContentSb(content);
    if (content.getSize() == 0) return false;
    appendDecoded(content, url);
    log.LogDataSb("uri", url);

    // Prefer an HTTP URL among the fullName's GeneralNames; with none, the last
    // one is returned (an LDAP URL is still a pointer the caller may use).
    while (!url.beginsWithIgnoreCase("http")) {
        if (!x->NextSibling2()) break;
        log.logInfo("Checking next sibling for an HTTP URL...");
        url.clear();
        content.clear();
        x->getContentSb(content);
        if (content.getSize() == 0) return false;
        appendDecoded(content, url);
        log.LogDataSb("uri", url);
    }
    log.LogDataSb("returningCrlUrl", url);
    return true;
}

bool CertCore::getOcspUrl(StringBuffer& url, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    url.clear();

    StringBuffer xml;
    if (!getExtensionXml(oids::kAuthorityInfoAccess.dotted, xml, log)) {
        log.logInfo("No AuthorityAccessInfo (OCSP) extension.");
        return false;
    }
    RefPtr<ClsXml> x = RefPtr<ClsXml>::adopt(ClsXml::createNewCls());
    if (!x) return false;
    x->loadXml(xml, true, log);

    //   AccessDescription ::= SEQUENCE { accessMethod OBJECT IDENTIFIER,
    //                                    accessLocation GeneralName }
    XString tag, method;
    tag.appendUtf8("oid");
    method.appendUtf8(oids::kAdOcsp.dotted);
    if (!x->SearchForContent2(nullptr, tag, method)) {
        log.logError("No OCSP OID.");
        log.logData("AuthorityAccessInfo", xml.getString());
        return false;
    }
    StringBuffer location;
    if (!x->GetParent2() || !x->getChildContentUtf8("contextSpecific", location, false) ||
        location.getSize() == 0)
        return false;

    // The location is used as a C string: it ends at its first zero byte.
    DataBuffer bytes;
    bytes.appendEncoded(location.getString(), "base64");
    bytes.appendChar(0);
    url.append(reinterpret_cast<const char*>(bytes.getData2()));
    return true;
}

bool CertCore::isNonRespondingOcspUrl(StringBuffer& url, LogBase& log) {
    for (const char* scrambled : kNonRespondingOcsp) {
        if (url.equals_x(scrambled)) {
            log.logError("This OCSP URL is known to be non-responding and/or unreachable.");
            return true;
        }
    }
    return false;
}
