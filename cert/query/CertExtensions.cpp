// Extension queries of CertCore. The fixed questions (extended key usage,
// purposes, key usage bits, authority key id) are answered by text tests on
// the parser's ASN.1 XML rendering of the extension; the literals below are
// what callers have come to depend on, quirks included.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "support/asn1/OidTable.h"
#include "support/base/ovstr.h"

namespace {

struct EkuRow {
    const KnownOid& oid;
    const char* text;
};

// Reported in this order whatever the certificate's order.
const EkuRow kEkuNames[] = {
    {oids::kKpServerAuth, "serverAuth,"},     {oids::kKpClientAuth, "clientAuth,"},
    {oids::kKpCodeSigning, "codeSigning,"},   {oids::kKpEmailProtection, "emailProtection,"},
    {oids::kKpTimeStamping, "timeStamping,"}, {oids::kKpOcspSigning, "OCSPSigning,"},
};

}  // namespace

using certquery::locked;
using certquery::replacing;

// These three clear their output before the sentinel check, the others only
// once locked.
bool CertCore::getExtensionDer(const char* oid, DataBuffer& out, LogBase& log) {
    out.clear();
    return locked(*this, false,
                  [&](OrvaneX509* x) { return x->getExtensionDerDataByOid(oid, out, log); });
}

bool CertCore::getExtensionBinaryData(const char* oid, DataBuffer& out, LogBase& log) {
    out.clear();
    return locked(*this, false,
                  [&](OrvaneX509* x) { return x->getExtensionDataByOid(oid, out, log); });
}

bool CertCore::getExtensionText(const char* oid, StringBuffer& out, LogBase& log) {
    // Appends: never cleared.
    return locked(*this, false,
                  [&](OrvaneX509* x) { return x->getExtensionTextByOid(oid, out, log); });
}

bool CertCore::getExtensionXml(const char* oid, StringBuffer& out, LogBase& log) {
    return replacing(*this, out,
                     [&](OrvaneX509* x) { return x->getExtensionAsnXmlByOid(oid, out, log); });
}

bool CertCore::getSubjectKeyIdentifier(StringBuffer& out, LogBase& log) {
    return replacing(*this, out,
                     [&](OrvaneX509* x) { return x->getSubjectKeyIdentifier(out, log); });
}

bool CertCore::getSubjectAlternativeNameXml(XString& out, LogBase& log) {
    return replacing(*this, out,
                     [&](OrvaneX509* x) { return x->getSubjectAlternativeNameXml(out, log); });
}

bool CertCore::getExtendedKeyUsage(StringBuffer& out, LogBase& log) {
    out.clear();
    return locked(*this, false, [&](OrvaneX509* x) {
        StringBuffer xml;
        if (!x->getExtensionAsnXmlByOid(oids::kExtKeyUsage.dotted, xml, log)) return false;
        // A bare substring test, not an element match: 1.3.6.1.5.5.7.3.17 also
        // reports serverAuth. Existing callers see that answer; keep it.
        for (const EkuRow& row : kEkuNames) {
            if (xml.containsSubstring(row.oid.dotted)) out.append(row.text);
        }
        if (!out.isEmpty()) out.shorten(1);
        return true;
    });
}

int CertCore::getIntendedKeyUsage(LogBase& log) {
    return locked(*this, 0, [&](OrvaneX509* x) {
        StringBuffer xml;
        if (!x->getExtensionAsnXmlByOid(oids::kKeyUsage.dotted, xml, log)) return 0;
        // The rendering is <bits unused="n">HEX</bits>, the text being the bit
        // string's content bytes: the first two hex digits are bits 0..7.
        if (!xml.beginsWith("<bits")) return 0;
        const char* gt = ovStrChr(xml.getString(), '>');
        if (!gt) return 0;
        int value = static_cast<int>(ov_valHexN(gt + 1, 2));
        log.LogHex("intendedKeyUsage", static_cast<unsigned>(value));
        return value;
    });
}

bool CertCore::getAuthorityKeyIdentifier(DataBuffer& keyId, XString* keyIdBase64, LogBase& log) {
    if (m_magic != kMagic) return false;
    CritSecExitor lock(this);
    keyId.clear();
    if (keyIdBase64) keyIdBase64->weakClear();
    OrvaneX509* x = getX509();
    if (!x) return false;
    StringBuffer xml;
    if (!x->getExtensionAsnXmlByOid(oids::kAuthorityKeyId.dotted, xml, log)) return false;
    // <sequence><contextSpecific tag="0" ...>BASE64</contextSpecific>...: the
    // first '>' ends the sequence's start tag, the second that of the first
    // context-specific element, whose primitive content is written in base64.
    xml.chopAtSubstr("</contextSpecific>", false);
    const char* s = xml.getString();
    const char* first = ovStrChr(s, '>');
    if (!first) return false;
    const char* second = ovStrChr(first + 1, '>');
    if (!second) return false;
    const char* b64 = second + 1;
    if (keyIdBase64) {
        keyIdBase64->appendUtf8(b64);
        keyIdBase64->trim2();
    }
    keyId.appendEncoded(b64, "base64");
    return !keyId.isEmpty();
}

int CertCore::getVersion(LogBase& log) {
    return locked(*this, 0, [&](OrvaneX509* x) {
        XString version;
        return x->get_Version(version, log) ? version.intValue() : 0;
    });
}

// The extended key usage XML without whitespace, so that element literals
// match however the renderer lays it out; false when the extension is absent.
static bool ekuXmlCompact(OrvaneX509* x, StringBuffer& xml, LogBase& log) {
    if (!x->getExtensionAsnXmlByOid(oids::kExtKeyUsage.dotted, xml, log)) return false;
    xml.removeFws();
    return true;
}

// Shared body of the purpose tests that look for one element only.
static bool hasPurpose(CertCore& cert, const KnownOid& purpose, LogBase& log) {
    return locked(cert, false, [&](OrvaneX509* x) {
        StringBuffer xml, element;
        element.append3("<oid>", purpose.dotted, "</oid>");
        return ekuXmlCompact(x, xml, log) && xml.containsSubstring(element.getString());
    });
}

bool CertCore::forServerAuthentication(LogBase& log) {
    return hasPurpose(*this, oids::kKpServerAuth, log);
}

bool CertCore::forClientAuthentication(LogBase& log) {
    return hasPurpose(*this, oids::kKpClientAuth, log);
}

bool CertCore::forCodeSigning(LogBase& log) {
    return hasPurpose(*this, oids::kKpCodeSigning, log);
}

bool CertCore::forTimeStamping(LogBase& log) {
    return hasPurpose(*this, oids::kKpTimeStamping, log);
}

bool CertCore::forSecureEmail(LogBase& log) {
    return locked(*this, false, [&](OrvaneX509* x) {
        StringBuffer xml, element;
        if (!ekuXmlCompact(x, xml, log)) return false;
        element.append3("<oid>", oids::kKpEmailProtection.dotted, "</oid>");
        if (xml.containsSubstring(element.getString())) return true;
        // Lenient on purpose: a certificate restricted to other purposes still
        // passes when its subject carries an e-mail address.
        XString email;
        x->get_SubjectE(email, log);
        return email.containsSubstringUtf8("@");
    });
}
