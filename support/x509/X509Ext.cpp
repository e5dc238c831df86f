#include "support/x509/X509Ext.h"

#include <arpa/inet.h>

#include "support/asn1/OidTable.h"
#include "support/base/StringBuffer.h"
#include "support/x509/X509Name.h"

namespace {

// GeneralName tags (RFC 5280 4.2.1.6).
constexpr unsigned kGnOther = der::contextConstructed(0);
constexpr unsigned kGnRfc822 = der::contextPrimitive(1);
constexpr unsigned kGnDns = der::contextPrimitive(2);
constexpr unsigned kGnX400 = der::contextConstructed(3);
constexpr unsigned kGnDirectory = der::contextConstructed(4);
constexpr unsigned kGnEdi = der::contextConstructed(5);
constexpr unsigned kGnUri = der::contextPrimitive(6);
constexpr unsigned kGnIp = der::contextPrimitive(7);
constexpr unsigned kGnRid = der::contextPrimitive(8);

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
    DerInput list;
    if (!readWholeSequence(value, &list)) return false;
    DerParser dps(list);
    while (dps.hasMore()) {
        DerParser dp;
        if (!dps.readSequence(&dp)) return false;
        bool present = false;
        DerInput dpName;
        if (!dp.readOptional(der::contextConstructed(0), &dpName, &present)) return false;
        if (!present) continue;
        DerParser choice(dpName);
        DerElement name;
        if (!choice.readAny(&name) || choice.hasMore()) return false;
        if (name.tag != der::contextConstructed(0)) continue;  // relative name: no URI
        if (!fn(name.contents)) return false;
    }
    return true;
}

//   AuthorityInfoAccessSyntax ::= SEQUENCE SIZE (1..MAX) OF AccessDescription
//   AccessDescription ::= SEQUENCE { accessMethod OBJECT IDENTIFIER,
//                                    accessLocation GeneralName }
template <typename Fn>
bool forEachAccessDescription(DerInput value, Fn fn) {
    DerInput list;
    if (!readWholeSequence(value, &list)) return false;
    DerParser p(list);
    while (p.hasMore()) {
        DerParser ad;
        DerInput method;
        DerElement location;
        if (!p.readSequence(&ad) || !ad.readOid(&method) || !ad.readAny(&location) ||
            ad.hasMore() || location.tagClass != 2)
            return false;
        fn(method, location);
    }
    return true;
}

}  // namespace

// ---- X509ExtRead -------------------------------------------------------------

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
        if (!oids::kAdOcsp.is(method) || loc.tag != kGnUri) return;
        if (count < max) out[count] = loc.contents;
        ++count;
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

bool X509ExtText::appendGeneralName(const DerElement& gn, StringBuffer& out) {
    switch (gn.tag) {
        case kGnRfc822:
            out.append("email:");
            return X509Name::appendStringValue(der::kIa5String, gn.contents, out);
        case kGnDns:
            out.append("DNS:");
            return X509Name::appendStringValue(der::kIa5String, gn.contents, out);
        case kGnUri:
            out.append("URI:");
            return X509Name::appendStringValue(der::kIa5String, gn.contents, out);
        case kGnIp:
            out.append("IP:");
            appendIp(gn.contents, out);
            return true;
        case kGnRid:
            out.append("RID:");
            appendOidText(gn.contents, out);
            return true;
        case kGnDirectory:
            out.append("DirName:");
            return X509Name::appendDnText(gn.contents, true, X509Name::kStyleEveryday, false, out);
        case kGnOther: {
            //   OtherName ::= SEQUENCE { type-id OBJECT IDENTIFIER,
            //                            value [0] EXPLICIT ANY DEFINED BY type-id }
            DerParser p(gn.contents);
            DerInput oid;
            if (!p.readOid(&oid)) return false;
            out.append("othername:");
            appendOidText(oid, out);
            return true;
        }
        case kGnX400:
            out.append("X400Name");
            return true;
        case kGnEdi:
            out.append("EdiPartyName");
            return true;
        default:
            return false;
    }
}

bool X509ExtText::appendText(DerInput extOid, DerInput value, StringBuffer& out) {
    StringBuffer text;  // built whole, so a malformed value appends nothing
    bool ok = false;
    if (oids::kSubjectKeyId.is(extOid)) {
        DerInput id;
        ok = X509ExtRead::skiKeyId(value, &id);
        if (ok) text.appendHex(id.data(), static_cast<unsigned>(id.size()));
    } else if (oids::kAuthorityKeyId.is(extOid)) {
        DerInput id;
        ok = X509ExtRead::akiKeyId(value, &id);
        if (ok) text.appendHex(id.data(), static_cast<unsigned>(id.size()));
    } else if (oids::kKeyUsage.is(extOid)) {
        unsigned mask = 0;
        ok = X509ExtRead::keyUsageMask(value, &mask);
        for (int i = 0; ok && i < 9; ++i) {
            if (!(mask & (0x100u >> i))) continue;
            if (!text.isEmpty()) text.appendChar(',');
            text.append(kKeyUsageNames[i]);
        }
    } else if (oids::kExtKeyUsage.is(extOid) || oids::kCertificatePolicies.is(extOid)) {
        // Both are SEQUENCE OF items that are, or begin with, an OID:
        //   PolicyInformation ::= SEQUENCE { policyIdentifier CertPolicyId, ... }
        const bool policies = oids::kCertificatePolicies.is(extOid);
        DerInput list;
        ok = readWholeSequence(value, &list);
        DerParser p(list);
        while (ok && p.hasMore()) {
            DerInput oid;
            if (policies) {
                DerParser info;
                ok = p.readSequence(&info) && info.readOid(&oid);
            } else {
                ok = p.readOid(&oid);
            }
            if (!ok) break;
            if (!text.isEmpty()) text.appendChar(',');
            appendOidText(oid, text);
        }
    } else if (oids::kBasicConstraints.is(extOid)) {
        bool ca = false;
        int pathLen = -1;
        ok = X509ExtRead::basicConstraints(value, &ca, &pathLen);
        if (ok) {
            text.append(ca ? "CA:TRUE" : "CA:FALSE");
            if (pathLen >= 0) {
                text.append(", pathlen:");
                text.appendUint32(static_cast<unsigned>(pathLen));
            }
        }
    } else if (oids::kSubjectAltName.is(extOid) || oids::kIssuerAltName.is(extOid)) {
        DerInput seq;
        bool first = true;
        ok = readWholeSequence(value, &seq) && appendGeneralNames(seq, first, text);
    } else if (oids::kCrlDistributionPoints.is(extOid)) {
        bool first = true;
        ok = forEachCrlFullName(
            value, [&](DerInput names) { return appendGeneralNames(names, first, text); });
    } else if (oids::kAuthorityInfoAccess.is(extOid)) {
        bool allOk = true;
        ok = forEachAccessDescription(value, [&](DerInput method, const DerElement& loc) {
            if (!text.isEmpty()) text.append(", ");
            if (oids::kAdOcsp.is(method)) {
                text.append("OCSP - ");
            } else if (oids::kAdCaIssuers.is(method)) {
                text.append("CA Issuers - ");
            } else {
                appendOidText(method, text);
                text.append(" - ");
            }
            if (!appendGeneralName(loc, text)) allOk = false;
        });
        ok = ok && allOk;
    } else {
        // Private extensions often carry a plain string (comments, URLs).
        DerParser p(value);
        DerElement e;
        ok = p.readAny(&e) && !p.hasMore() && X509Name::appendStringValue(e.tag, e.contents, text);
    }
    if (!ok) return false;
    return out.append(text);
}

bool X509ExtText::appendSanXml(DerInput value, StringBuffer& out) {
    DerInput seq;
    if (!readWholeSequence(value, &seq)) return false;
    StringBuffer xml;
    StringBuffer text;
    xml.append("<subjectAltName>");
    bool ok = forEachGeneralName(seq, [&](const DerElement& gn) {
        const char* elem = nullptr;
        text.clear();
        switch (gn.tag) {
            case kGnRfc822:
                elem = "rfc822Name";
                break;
            case kGnDns:
                elem = "dNSName";
                break;
            case kGnUri:
                elem = "uniformResourceIdentifier";
                break;
            case kGnIp:
                elem = "iPAddress";
                break;
            case kGnRid:
                elem = "registeredID";
                break;
            case kGnDirectory:
                elem = "directoryName";
                break;
            case kGnOther:
                elem = "otherName";
                break;
            case kGnX400:
                elem = "x400Address";
                break;
            case kGnEdi:
                elem = "ediPartyName";
                break;
            default:
                return false;
        }
        if (gn.tag == kGnRfc822 || gn.tag == kGnDns || gn.tag == kGnUri) {
            X509Name::appendStringValue(der::kIa5String, gn.contents, text);
        } else if (gn.tag == kGnIp) {
            appendIp(gn.contents, text);
        } else if (gn.tag == kGnRid) {
            appendOidText(gn.contents, text);
        } else if (gn.tag == kGnDirectory) {
            if (!X509Name::appendDnText(gn.contents, true, X509Name::kStyleEveryday, false, text))
                return false;
        } else if (gn.tag == kGnOther) {
            DerParser p(gn.contents);
            DerInput oid;
            DerElement v;
            if (!p.readOid(&oid) || !p.readAny(&v)) return false;
            xml.append("<otherName oid=\"");
            appendOidText(oid, xml);
            xml.append("\">");
            // The value's DER, [0] wrapper included, as the only lossless text.
            text.appendHex(v.whole.data(), static_cast<unsigned>(v.whole.size()));
            xml.append(text);
            xml.append("</otherName>");
            return true;
        } else {
            text.appendHex(gn.whole.data(), static_cast<unsigned>(gn.whole.size()));
        }
        xml.append3("<", elem, ">");
        appendXmlEscaped(text.getString(), text.getSize(), xml);
        xml.append3("</", elem, ">");
        return true;
    });
    if (!ok) return false;
    xml.append("</subjectAltName>");
    return out.append(xml);
}
