// Distinguished-name queries of CertCore: parts by short name, the whole name
// in its text, JSON and ASN.1 forms, e-mail, self-issue and the EU test. The
// parsing is the parser's; this file maps names onto its getters.
#include "cert/CertCore.h"
#include "cert/LockedQuery.h"
#include "support/asn1/Asn1Node.h"
#include "support/base/ovstr.h"

namespace {

// Country codes answered as "EU" by is_country_eu: the EU member states plus
// Iceland, Liechtenstein and Norway (the EEA). Greece is GR here, not EL, and
// the United Kingdom is absent. Callers rely on exactly this set.
const char* const eu_countries[] = {"AT", "BE", "BG", "CY", "CZ", "DE", "DK", "EE", "ES", "FI",
                                    "FR", "GR", "HR", "HU", "IE", "IS", "IT", "LI", "LT", "LU",
                                    "LV", "MT", "NL", "NO", "PL", "PT", "RO", "SE", "SI", "SK"};

using NamedGetter = bool (OrvaneX509::*)(XString&, LogBase&) const;

struct PartRow {
    const char* name;
    NamedGetter subject;  // null: the subject side has no named getter for it
    NamedGetter issuer;   // null: the issuer side has no row (falls through)
};

// Compared in order, exactly. "SERIALNUMBER" exists on the subject side only
// and is resolved by OID there (handled in partOf), so it is not listed here.
const PartRow kParts[] = {
    {"CN", &OrvaneX509::get_SubjectCN, &OrvaneX509::get_IssuerCN},
    {"C", &OrvaneX509::get_SubjectC, &OrvaneX509::get_IssuerC},
    {"L", &OrvaneX509::get_SubjectL, &OrvaneX509::get_IssuerL},
    {"O", &OrvaneX509::get_SubjectO, &OrvaneX509::get_IssuerO},
    {"OU", &OrvaneX509::get_SubjectOU, &OrvaneX509::get_IssuerOU},
    {"S", &OrvaneX509::get_SubjectS, &OrvaneX509::get_IssuerS},
    {"ST", &OrvaneX509::get_SubjectS, &OrvaneX509::get_IssuerS},
    {"E", &OrvaneX509::get_SubjectE, &OrvaneX509::get_IssuerE},
};

bool partOf(OrvaneX509* x, bool subject, const char* partName, XString& out, LogBase& log) {
    for (const PartRow& row : kParts) {
        if (ovStrCmp(partName, row.name) == 0) {
            return (x->*(subject ? row.subject : row.issuer))(out, log);
        }
    }
    if (subject && ovStrCmp(partName, "SERIALNUMBER") == 0) {
        return x->get_SubjectValue("2.5.4.5", out, log);  // id-at-serialNumber
    }
    bool ok =
        subject ? x->get_SubjectValue(partName, out, log) : x->get_IssuerValue(partName, out, log);
    if (ok) return true;
    log.logError(subject ? "Unrecognized certificate subject part"
                         : "Unrecognized certificate issuer part");
    log.logData("part", partName);
    return false;
}

}  // namespace

using certquery::locked;
using certquery::replacing;

bool CertCore::getSubjectPart(const char* partName, XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        return partName ? partOf(x, true, partName, out, log) : false;
    });
}

bool CertCore::getIssuerPart(const char* partName, XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        return partName ? partOf(x, false, partName, out, log) : false;
    });
}

bool CertCore::getDN_ordered(bool reverseOrder, bool subject, bool withTags, int style,
                             XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) {
        if (reverseOrder) return x->getDN_reverseOrder(subject, withTags, style, out, log);
        return x->getDN(subject, withTags, out, log, style);
    });
}

bool CertCore::getSubjectDN(XString& out, LogBase& log) {
    return getDN_ordered(false, true, true, 0, out, log);
}

bool CertCore::getIssuerDN(XString& out, LogBase& log) {
    return getDN_ordered(false, false, true, 0, out, log);
}

bool CertCore::getSubjectDN_noTags(XString& out, LogBase& log) {
    return getDN_ordered(false, true, false, 0, out, log);
}

bool CertCore::getIssuerDN_noTags(XString& out, LogBase& log) {
    return getDN_ordered(false, false, false, 0, out, log);
}

bool CertCore::getDnJson(bool subject, StringBuffer& out, LogBase& log) {
    // Appends: callers build one JSON object from several pieces.
    return locked(*this, false, [&](OrvaneX509* x) { return x->getDnJson(subject, out, log, 0); });
}

_ovAsn1* CertCore::getSubjectDnAsn(LogBase& log) {
    return locked(*this, static_cast<_ovAsn1*>(nullptr),
                  [&](OrvaneX509* x) { return x->getDnAsn(true, log); });
}

_ovAsn1* CertCore::getIssuerDnAsn(LogBase& log) {
    return locked(*this, static_cast<_ovAsn1*>(nullptr),
                  [&](OrvaneX509* x) { return x->getDnAsn(false, log); });
}

bool CertCore::getIssuerSerial(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->get_IssuerSerial(out, log); });
}

bool CertCore::getRfc822Name(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->getRfc822Name(out, log); });
}

bool CertCore::getEmailAddress(XString& out, LogBase& log) {
    return replacing(*this, out, [&](OrvaneX509* x) { return x->getEmailAddress(out, log); });
}

bool CertCore::isIssuerSelf(LogBase& log) {
    return locked(*this, false, [&](OrvaneX509* x) { return x->isIssuerSelf(log); });
}

bool CertCore::is_country_eu(LogBase& log) {
    XString country;
    getSubjectPart("C", country, log);
    // The issuer is a fallback only for a subject without a country, never a
    // second opinion on one that has a non-EU country.
    if (country.isEmpty()) getIssuerPart("C", country, log);
    if (country.isEmpty()) return false;
    for (const char* code : eu_countries) {
        if (country.equalsIgnoreCaseUsAscii(code)) return true;
    }
    return false;
}
