#include "support/x509/X509Ext.h"

#include <arpa/inet.h>

#include "support/asn1/OidTable.h"
#include "support/base/StringBuffer.h"
#include "support/x509/X509Name.h"

namespace {

// GeneralName tags the readers pick out (RFC 5280 4.2.1.6).
constexpr unsigned kGnRfc822 = der::contextPrimitive(1);
constexpr unsigned kGnUri = der::contextPrimitive(6);

const char* const kKeyUsageNames[9] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                       "dataEncipherment", "keyAgreement",   "keyCertSign",
                                       "cRLSign",          "encipherOnly",   "decipherOnly"};

void appendOidText(DerInput oid, StringBuffer& out) {
    char dotted[128];
    if (der::oidToText(oid, dotted, sizeof dotted))
        out.append(dotted);
    else
        out.append("?");
}

// Reads GeneralNames (SEQUENCE OF GeneralName) given its contents and calls
// fn on each; false when malformed or when fn returns false (it found the name
// malformed).
template <typename Fn>
bool forEachGeneralName(DerInput seqContents, Fn fn) {
    DerParser p(seqContents);
    while (p.hasMore()) {
        DerElement gn;
        if (!p.readAny(&gn) || gn.tagClass != 2) return false;
        if (!fn(gn)) return false;
    }
    return true;
}

bool readWholeSequence(DerInput value, DerInput* contents) {
    DerParser p(value);
    return p.read(der::kSequence, contents) && !p.hasMore();
}

// Calls fn(item) with a cursor over each element of a SEQUENCE OF SEQUENCE
// value; false when malformed or when fn returns false.
template <typename Fn>
bool forEachSequenceIn(DerInput value, Fn fn) {
    DerInput list;
    if (!readWholeSequence(value, &list)) return false;
    DerParser p(list);
    while (p.hasMore()) {
        DerParser item;
        if (!p.readSequence(&item) || !fn(item)) return false;
    }
    return true;
}

// Joins GeneralNames as text with ", ".
bool appendGeneralNames(DerInput seqContents, bool& first, StringBuffer& out) {
    return forEachGeneralName(seqContents, [&](const DerElement& gn) {
        if (!first) out.append(", ");
        first = false;
        return X509ExtText::appendGeneralName(gn, out);
    });
}

//   DistributionPoint ::= SEQUENCE {
//        distributionPoint       [0]     DistributionPointName OPTIONAL,
//        reasons                 [1]     ReasonFlags OPTIONAL,
//        cRLIssuer               [2]     GeneralNames OPTIONAL }
//   DistributionPointName ::= CHOICE {
//        fullName                [0]     GeneralNames,
//        nameRelativeToCRLIssuer [1]     RelativeDistinguishedName }
// Calls fn(fullNameContents) for each DistributionPoint with a fullName.
template <typename Fn>
bool forEachCrlFullName(DerInput value, Fn fn) {
    return forEachSequenceIn(value, [&](DerParser& dp) {
        bool present = false;
        DerInput dpName;
        if (!dp.readOptional(der::contextConstructed(0), &dpName, &present)) return false;
        if (!present) return true;
        DerParser choice(dpName);
        DerElement name;
        if (!choice.readAny(&name) || choice.hasMore()) return false;
        if (name.tag != der::contextConstructed(0)) return true;  // relative name: no URI
        return static_cast<bool>(fn(name.contents));
    });
}

//   AuthorityInfoAccessSyntax ::= SEQUENCE SIZE (1..MAX) OF AccessDescription
//   AccessDescription ::= SEQUENCE { accessMethod OBJECT IDENTIFIER,
//                                    accessLocation GeneralName }
// Calls fn(method, location) on each; false when malformed or when fn returns
// false, as forEachGeneralName.
template <typename Fn>
bool forEachAccessDescription(DerInput value, Fn fn) {
    return forEachSequenceIn(value, [&](DerParser& ad) {
        DerInput method;
        DerElement location;
        if (!ad.readOid(&method) || !ad.readAny(&location) || ad.hasMore() ||
            location.tagClass != 2)
            return false;
        return static_cast<bool>(fn(method, location));
    });
}

}  // namespace

// ---- X509ExtRead -------------------------------------------------------------

bool X509ExtRead::extension(DerParser& list, X509Extension* out) {
    //   Extension  ::=  SEQUENCE  {
    //        extnID      OBJECT IDENTIFIER,
    //        critical    BOOLEAN DEFAULT FALSE,
    //        extnValue   OCTET STRING }
    DerParser at = list;
    DerParser ext;
    X509Extension e;
    if (!at.readSequence(&ext) || !ext.readOid(&e.oid) ||
        (ext.nextIs(der::kBoolean) && !ext.readBool(&e.critical)) ||
        !ext.read(der::kOctetString, &e.value) || ext.hasMore())
        return false;
    list = at;
    *out = e;
    return true;
}

bool X509ExtRead::akiKeyId(DerInput value, DerInput* keyId) {
    //   AuthorityKeyIdentifier ::= SEQUENCE {
    //      keyIdentifier             [0] KeyIdentifier           OPTIONAL,
    //      authorityCertIssuer       [1] GeneralNames            OPTIONAL,
    //      authorityCertSerialNumber [2] CertificateSerialNumber OPTIONAL  }
    DerInput seq;
    if (!readWholeSequence(value, &seq)) return false;
    DerParser p(seq);
    bool present = false;
    if (!p.readOptional(der::contextPrimitive(0), keyId, &present)) return false;
    return present;
}

bool X509ExtRead::skiKeyId(DerInput value, DerInput* keyId) {
    DerParser p(value);
    return p.read(der::kOctetString, keyId) && !p.hasMore();
}

bool X509ExtRead::basicConstraints(DerInput value, bool* isCa, int* pathLen) {
    //   BasicConstraints ::= SEQUENCE { cA BOOLEAN DEFAULT FALSE,
    //                                   pathLenConstraint INTEGER (0..MAX) OPTIONAL }
    DerInput seq;
    if (!readWholeSequence(value, &seq)) return false;
    DerParser p(seq);
    bool ca = false;
    if (p.nextIs(der::kBoolean) && !p.readBool(&ca)) return false;
    int len = -1;
    if (p.hasMore()) {
        uint64_t v = 0;
        if (!p.readUint64(&v)) return false;
        len = v > 0x7fffffff ? 0x7fffffff : static_cast<int>(v);
    }
    if (p.hasMore()) return false;
    *isCa = ca;
    *pathLen = len;
    return true;
}

bool X509ExtRead::keyUsageMask(DerInput value, unsigned* mask) {
    //   KeyUsage ::= BIT STRING
    DerParser p(value);
    DerInput bits;
    unsigned unused = 0;
    if (!p.readBitString(&bits, &unused) || p.hasMore()) return false;
    unsigned m = 0;
    if (bits.size() > 0) m |= static_cast<unsigned>(bits[0]) << 1;
    if (bits.size() > 1) m |= bits[1] >> 7;
    *mask = m;
    return true;
}

bool X509ExtRead::ekuList(DerInput value, DerInput* list) {
    //   ExtKeyUsageSyntax ::= SEQUENCE SIZE (1..MAX) OF KeyPurposeId
    return readWholeSequence(value, list);
}

int X509ExtRead::ocspUris(DerInput value, DerInput* out, int max) {
    int count = 0;
    bool ok = forEachAccessDescription(value, [&](DerInput method, const DerElement& loc) {
        if (!oids::kAdOcsp.is(method) || loc.tag != kGnUri) return true;
        if (count < max) out[count] = loc.contents;
        ++count;
        return true;
    });
    return ok ? count : -1;
}

int X509ExtRead::crlUris(DerInput value, DerInput* out, int max) {
    int count = 0;
    bool ok = forEachCrlFullName(value, [&](DerInput names) {
        return forEachGeneralName(names, [&](const DerElement& gn) {
            if (gn.tag == kGnUri) {
                if (count < max) out[count] = gn.contents;
                ++count;
            }
            return true;
        });
    });
    return ok ? count : -1;
}

bool X509ExtRead::firstRfc822(DerInput value, DerInput* name) {
    DerInput seq;
    if (!readWholeSequence(value, &seq)) return false;
    bool found = false;
    bool ok = forEachGeneralName(seq, [&](const DerElement& gn) {
        if (gn.tag == kGnRfc822 && !found) {
            *name = gn.contents;
            found = true;
        }
        return true;
    });
    return ok && found;
}

// ---- X509ExtText -------------------------------------------------------------

void X509ExtText::appendXmlEscaped(const char* s, unsigned n, StringBuffer& out) {
    unsigned start = 0;
    for (unsigned i = 0; i < n; ++i) {
        const char* rep = nullptr;
        switch (s[i]) {
            case '&':
                rep = "&amp;";
                break;
            case '<':
                rep = "&lt;";
                break;
            case '>':
                rep = "&gt;";
                break;
            case '"':
                rep = "&quot;";
                break;
            case '\'':
                rep = "&apos;";
                break;
            default:
                continue;
        }
        out.appendN(s + start, i - start);
        out.append(rep);
        start = i + 1;
    }
    out.appendN(s + start, n - start);
}

void X509ExtText::appendIp(DerInput ip, StringBuffer& out) {
    char buf[INET6_ADDRSTRLEN];
    if (ip.size() == 4 && inet_ntop(AF_INET, ip.data(), buf, sizeof buf)) {
        out.append(buf);
    } else if (ip.size() == 16 && inet_ntop(AF_INET6, ip.data(), buf, sizeof buf)) {
        out.append(buf);
    } else {
        out.appendHex(ip.data(), static_cast<unsigned>(ip.size()));
    }
}

namespace {

// The GeneralName CHOICE (RFC 5280 4.2.1.6), one row per alternative, driving
// both renderers: the text form is the prefix then the value; the XML form is
// an element named after the alternative holding the value, escaped.
enum class GnXml {
    kValue,      // the value text
    kHexWhole,   // no text form worth keeping: the hex of the whole element
    kOtherName,  // <otherName oid="..."> around the hex of the [0] value
};

struct GeneralNameForm {
    unsigned tag;
    const char* prefix;
    const char* element;
    // Appends the value's text; null when the text form is the prefix alone.
    bool (*value)(const DerElement& gn, StringBuffer& out);
    GnXml xml;
};

bool ia5Value(const DerElement& gn, StringBuffer& out) {
    return X509Name::appendStringValue(der::kIa5String, gn.contents, out);
}
bool ipValue(const DerElement& gn, StringBuffer& out) {
    X509ExtText::appendIp(gn.contents, out);
    return true;
}
bool ridValue(const DerElement& gn, StringBuffer& out) {
    appendOidText(gn.contents, out);
    return true;
}
bool directoryValue(const DerElement& gn, StringBuffer& out) {
    return X509Name::appendDnText(gn.contents, true, X509Name::kStyleEveryday, false, out);
}
//   OtherName ::= SEQUENCE { type-id OBJECT IDENTIFIER,
//                            value [0] EXPLICIT ANY DEFINED BY type-id }
bool otherNameType(const DerElement& gn, StringBuffer& out) {
    DerParser p(gn.contents);
    DerInput oid;
    if (!p.readOid(&oid)) return false;
    appendOidText(oid, out);
    return true;
}

const GeneralNameForm kGeneralNames[] = {
    {der::contextConstructed(0), "othername:", "otherName", otherNameType, GnXml::kOtherName},
    {kGnRfc822, "email:", "rfc822Name", ia5Value, GnXml::kValue},
    {der::contextPrimitive(2), "DNS:", "dNSName", ia5Value, GnXml::kValue},
    {der::contextConstructed(3), "X400Name", "x400Address", nullptr, GnXml::kHexWhole},
    {der::contextConstructed(4), "DirName:", "directoryName", directoryValue, GnXml::kValue},
    {der::contextConstructed(5), "EdiPartyName", "ediPartyName", nullptr, GnXml::kHexWhole},
    {kGnUri, "URI:", "uniformResourceIdentifier", ia5Value, GnXml::kValue},
    {der::contextPrimitive(7), "IP:", "iPAddress", ipValue, GnXml::kValue},
    {der::contextPrimitive(8), "RID:", "registeredID", ridValue, GnXml::kValue},
};

const GeneralNameForm* generalNameForm(unsigned tag) {
    for (const GeneralNameForm& f : kGeneralNames)
        if (f.tag == tag) return &f;
    return nullptr;
}

void appendHex(DerInput v, StringBuffer& out) {
    out.appendHex(v.data(), static_cast<unsigned>(v.size()));
}

// Appends one <element>value</element> of the subjectAltName XML.
bool appendGeneralNameXml(const DerElement& gn, StringBuffer& xml) {
    const GeneralNameForm* f = generalNameForm(gn.tag);
    if (!f) return false;
    StringBuffer text;
    switch (f->xml) {
        case GnXml::kValue:
            if (!f->value(gn, text)) return false;
            break;
        case GnXml::kHexWhole:
            appendHex(gn.whole, text);
            break;
        case GnXml::kOtherName: {
            DerParser p(gn.contents);
            DerInput oid;
            DerElement v;
            if (!p.readOid(&oid) || !p.readAny(&v)) return false;
            xml.append("<otherName oid=\"");
            appendOidText(oid, xml);
            xml.append("\">");
            // The value's DER, [0] wrapper included, as the only lossless text.
            appendHex(v.whole, xml);
            xml.append("</otherName>");
            return true;
        }
    }
    xml.append3("<", f->element, ">");
    X509ExtText::appendXmlEscaped(text.getString(), text.getSize(), xml);
    xml.append3("</", f->element, ">");
    return true;
}

// ---- The text form of each extension, {oid, renderer} ------------------------
// Each appends to text (which the caller discards on failure); false when the
// value is malformed.

bool keyIdText(bool (*read)(DerInput, DerInput*), DerInput value, StringBuffer& text) {
    DerInput id;
    if (!read(value, &id)) return false;
    appendHex(id, text);
    return true;
}
bool skiText(DerInput value, StringBuffer& text) {
    return keyIdText(X509ExtRead::skiKeyId, value, text);
}
bool akiText(DerInput value, StringBuffer& text) {
    return keyIdText(X509ExtRead::akiKeyId, value, text);
}

bool keyUsageText(DerInput value, StringBuffer& text) {
    unsigned mask = 0;
    if (!X509ExtRead::keyUsageMask(value, &mask)) return false;
    for (int i = 0; i < 9; ++i) {
        if (!(mask & (0x100u >> i))) continue;
        if (!text.isEmpty()) text.appendChar(',');
        text.append(kKeyUsageNames[i]);
    }
    return true;
}

// A SEQUENCE OF items that are, or (withInfo) begin with, an OID, as the dotted
// OIDs joined by ",".
bool oidListText(DerInput value, bool withInfo, StringBuffer& text) {
    DerInput list;
    if (!readWholeSequence(value, &list)) return false;
    DerParser p(list);
    while (p.hasMore()) {
        DerInput oid;
        DerParser info;
        if (withInfo ? !(p.readSequence(&info) && info.readOid(&oid)) : !p.readOid(&oid))
            return false;
        if (!text.isEmpty()) text.appendChar(',');
        appendOidText(oid, text);
    }
    return true;
}
bool ekuText(DerInput value, StringBuffer& text) {
    return oidListText(value, false, text);
}
//   PolicyInformation ::= SEQUENCE { policyIdentifier CertPolicyId, ... }
bool policiesText(DerInput value, StringBuffer& text) {
    return oidListText(value, true, text);
}

bool basicConstraintsText(DerInput value, StringBuffer& text) {
    bool ca = false;
    int pathLen = -1;
    if (!X509ExtRead::basicConstraints(value, &ca, &pathLen)) return false;
    text.append(ca ? "CA:TRUE" : "CA:FALSE");
    if (pathLen >= 0) {
        text.append(", pathlen:");
        text.appendUint32(static_cast<unsigned>(pathLen));
    }
    return true;
}

bool altNamesText(DerInput value, StringBuffer& text) {
    DerInput seq;
    bool first = true;
    return readWholeSequence(value, &seq) && appendGeneralNames(seq, first, text);
}

bool crlDpText(DerInput value, StringBuffer& text) {
    bool first = true;
    return forEachCrlFullName(
        value, [&](DerInput names) { return appendGeneralNames(names, first, text); });
}

bool aiaText(DerInput value, StringBuffer& text) {
    return forEachAccessDescription(value, [&](DerInput method, const DerElement& loc) {
        if (!text.isEmpty()) text.append(", ");
        if (oids::kAdOcsp.is(method)) {
            text.append("OCSP - ");
        } else if (oids::kAdCaIssuers.is(method)) {
            text.append("CA Issuers - ");
        } else {
            appendOidText(method, text);
            text.append(" - ");
        }
        return X509ExtText::appendGeneralName(loc, text);
    });
}

// Private extensions often carry a plain string (comments, URLs).
bool stringText(DerInput value, StringBuffer& text) {
    DerParser p(value);
    DerElement e;
    return p.readAny(&e) && !p.hasMore() && X509Name::appendStringValue(e.tag, e.contents, text);
}

const struct {
    const KnownOid& oid;
    bool (*render)(DerInput value, StringBuffer& text);
} kExtensionText[] = {
    {oids::kSubjectKeyId, skiText},
    {oids::kAuthorityKeyId, akiText},
    {oids::kKeyUsage, keyUsageText},
    {oids::kExtKeyUsage, ekuText},
    {oids::kCertificatePolicies, policiesText},
    {oids::kBasicConstraints, basicConstraintsText},
    {oids::kSubjectAltName, altNamesText},
    {oids::kIssuerAltName, altNamesText},
    {oids::kCrlDistributionPoints, crlDpText},
    {oids::kAuthorityInfoAccess, aiaText},
};

}  // namespace

bool X509ExtText::appendGeneralName(const DerElement& gn, StringBuffer& out) {
    const GeneralNameForm* f = generalNameForm(gn.tag);
    if (!f) return false;
    StringBuffer value;
    if (f->value && !f->value(gn, value)) return false;
    return out.append(f->prefix) && out.append(value);
}

bool X509ExtText::appendText(DerInput extOid, DerInput value, StringBuffer& out) {
    bool (*render)(DerInput, StringBuffer&) = stringText;
    for (const auto& row : kExtensionText)
        if (row.oid.is(extOid)) render = row.render;
    StringBuffer text;  // built whole, so a malformed value appends nothing
    return render(value, text) && out.append(text);
}

bool X509ExtText::appendSanXml(DerInput value, StringBuffer& out) {
    DerInput seq;
    if (!readWholeSequence(value, &seq)) return false;
    StringBuffer xml;
    xml.append("<subjectAltName>");
    if (!forEachGeneralName(seq,
                            [&](const DerElement& gn) { return appendGeneralNameXml(gn, xml); }))
        return false;
    xml.append("</subjectAltName>");
    return out.append(xml);
}
