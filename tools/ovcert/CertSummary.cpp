#include "tools/ovcert/CertSummary.h"

#include <cstdio>
#include <cstring>
#include <pugixml.hpp>

#include "cert/CertCore.h"
#include "support/asn1/OidTable.h"
#include "support/base/ContentCoding.h"

using nlohmann::ordered_json;

namespace {

ordered_json textOrNull(bool ok, const char* text) {
    return ok ? ordered_json(text) : ordered_json(nullptr);
}

std::string hexOf(const DataBuffer& db) {
    StringBuffer sb;
    db.encodeDB("hex", sb);
    return sb.getString();
}

std::vector<std::string> splitCommas(const std::string& s) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < s.size()) {
        size_t comma = s.find(',', start);
        if (comma == std::string::npos) comma = s.size();
        if (comma > start) out.push_back(s.substr(start, comma - start));
        start = comma + 1;
    }
    return out;
}

// The first error line anywhere in the tree, in order.
const LogTree::Entry* firstError(const LogTree::Entry& e) {
    if (e.kind == LogTree::Kind::Error) return &e;
    for (const auto& c : e.children)
        if (const LogTree::Entry* f = firstError(*c)) return f;
    return nullptr;
}

// Writes a recorded tree into another log, so a query asked with its own log
// still shows under --log.
void replay(const LogTree::Entry& e, LogBase& to) {
    for (const auto& c : e.children) {
        switch (c->kind) {
            case LogTree::Kind::Context:
                to.enterContext(c->text.c_str());
                replay(*c, to);
                to.leaveContext();
                break;
            case LogTree::Kind::Error:
                to.logError(c->text.c_str());
                break;
            case LogTree::Kind::Info:
                to.logInfo(c->text.c_str());
                break;
            case LogTree::Kind::Data:
                to.logData(c->text.c_str(), c->value.c_str());
                break;
        }
    }
}

// Asks the queries that every certificate can answer. A failed one is never
// shown as an empty answer: its member becomes null and "unreadable" says why.
class Asker {
  public:
    Asker(CertSummary& s, LogBase& log) : m_s(s), m_log(log) {}

    template <typename Query>
    void ask(const char* member, Query query) {
        LogTree q;
        q.verboseLogging = m_log.verboseLogging;
        ordered_json value;
        bool ok = query(q, value);
        replay(q.root(), m_log);
        if (ok) {
            m_s.json[member] = std::move(value);
            return;
        }
        const LogTree::Entry* err = firstError(q.root());
        markUnreadable(member, err ? err->text : "the certificate gave no answer");
    }

    void markUnreadable(const char* member, const std::string& why) {
        m_s.json[member] = nullptr;
        m_unreadable[member] = why;
        m_s.unreadable = true;
    }

    bool failed(const char* member) const { return m_unreadable.contains(member); }
    void finish() {
        if (!m_unreadable.empty()) m_s.json["unreadable"] = m_unreadable;
    }

  private:
    CertSummary& m_s;
    LogBase& m_log;
    ordered_json m_unreadable = ordered_json::object();
};

ordered_json nameParts(CertCore& cert, bool subject, LogBase& log) {
    ordered_json parts = ordered_json::object();
    for (const char* part : {"CN", "O", "OU", "C", "L", "ST", "E"}) {
        XString v;
        bool ok = subject ? cert.getSubjectPart(part, v, log) : cert.getIssuerPart(part, v, log);
        if (ok && !v.isEmpty()) parts[part] = v.getUtf8();
    }
    return parts;
}

// Subject alternative names by kind, from the certificate's SAN XML; null
// without the extension.
ordered_json altNames(CertCore& cert, LogBase& quiet) {
    XString xml;
    if (!cert.getSubjectAlternativeNameXml(xml, quiet) || xml.isEmpty()) return nullptr;
    pugi::xml_document doc;
    if (!doc.load_string(xml.getUtf8())) return nullptr;
    static const struct {
        const char* element;
        const char* kind;
    } kKinds[] = {{"dNSName", "dns"},
                  {"iPAddress", "ip"},
                  {"rfc822Name", "email"},
                  {"uniformResourceIdentifier", "uri"}};
    ordered_json out = ordered_json::object();
    for (const auto& k : kKinds) out[k.kind] = ordered_json::array();
    out["other"] = ordered_json::array();
    for (pugi::xml_node n : doc.child("subjectAltName").children()) {
        const char* kind = nullptr;
        for (const auto& k : kKinds)
            if (!strcmp(n.name(), k.element)) kind = k.kind;
        if (kind)
            out[kind].push_back(n.text().get());
        else
            out["other"].push_back(std::string(n.name()) + ":" + n.text().get());
    }
    return out;
}

// Names of the usual extended key usage purposes; others show as their OID.
const char* ekuName(const std::string& oid) {
    static const struct {
        const KnownOid& oid;
        const char* name;
    } kNames[] = {
        {oids::kKpServerAuth, "serverAuth"},
        {oids::kKpClientAuth, "clientAuth"},
        {oids::kKpCodeSigning, "codeSigning"},
        {oids::kKpEmailProtection, "emailProtection"},
        {oids::kKpTimeStamping, "timeStamping"},
        {oids::kKpOcspSigning, "OCSPSigning"},
        {oids::kKpIpsecIke, "ipsecIKE"},
        {oids::kAnyExtKeyUsage, "anyExtendedKeyUsage"},
        {oids::kMsSmartcardLogin, "msSmartcardLogin"},
        {oids::kMsDocumentSigning, "msDocumentSigning"},
    };
    for (const auto& n : kNames)
        if (oid == n.oid.dotted) return n.name;
    return nullptr;
}

// A list of names from an extension's one-line text (comma separated); null
// without the extension.
ordered_json extensionList(CertCore& cert, const char* oid, bool nameEku, LogBase& quiet) {
    DataBuffer der;
    if (!cert.getExtensionDer(oid, der, quiet)) return nullptr;
    StringBuffer text;
    cert.getExtensionText(oid, text, quiet);
    ordered_json out = ordered_json::array();
    for (const std::string& item : splitCommas(text.getString())) {
        const char* name = nameEku ? ekuName(item) : nullptr;
        out.push_back(name ? name : item);
    }
    return out;
}

// {"ca": bool, "pathLen": n or null} from the extension's XML; null without it.
//   BasicConstraints ::= SEQUENCE { cA BOOLEAN DEFAULT FALSE,
//                                   pathLenConstraint INTEGER (0..MAX) OPTIONAL }
ordered_json basicConstraints(CertCore& cert, LogBase& quiet) {
    StringBuffer xml;
    if (!cert.getExtensionXml(oids::kBasicConstraints.dotted, xml, quiet)) return nullptr;
    pugi::xml_document doc;
    if (!doc.load_string(xml.getString())) return nullptr;
    pugi::xml_node seq = doc.child("sequence");
    ordered_json out;
    out["ca"] = !strcmp(seq.child_value("bool"), "true");
    pugi::xml_node len = seq.child("int");
    out["pathLen"] = len ? ordered_json(strtoull(len.text().get(), nullptr, 16)) : ordered_json();
    return out;
}

struct SigAlg {
    const char* oid;
    const char* name;
    const char* weakHash;  // a broken digest, or null
};

const SigAlg kSigAlgs[] = {
    {"1.2.840.113549.1.1.2", "md2WithRSAEncryption", "MD2"},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption", "MD5"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption", "SHA-1"},
    {"1.2.840.113549.1.1.10", "rsassaPss", nullptr},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption", nullptr},
    {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption", nullptr},
    {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption", nullptr},
    {"1.2.840.113549.1.1.14", "sha224WithRSAEncryption", nullptr},
    {"1.2.840.10045.4.1", "ecdsa-with-SHA1", "SHA-1"},
    {"1.2.840.10045.4.3.1", "ecdsa-with-SHA224", nullptr},
    {"1.2.840.10045.4.3.2", "ecdsa-with-SHA256", nullptr},
    {"1.2.840.10045.4.3.3", "ecdsa-with-SHA384", nullptr},
    {"1.2.840.10045.4.3.4", "ecdsa-with-SHA512", nullptr},
    {"1.2.840.10040.4.3", "dsa-with-SHA1", "SHA-1"},
    {"2.16.840.1.101.3.4.3.1", "dsa-with-SHA224", nullptr},
    {"2.16.840.1.101.3.4.3.2", "dsa-with-SHA256", nullptr},
    {"1.3.101.112", "Ed25519", nullptr},
    {"1.3.101.113", "Ed448", nullptr},
};

// The signatureAlgorithm OID, from the certificate's XML:
//   Certificate ::= SEQUENCE { tbsCertificate, signatureAlgorithm, signatureValue }
bool signatureOid(CertCore& cert, std::string& oid, LogBase& log) {
    XString xml;
    if (!cert.toXml(xml, log)) return false;
    pugi::xml_document doc;
    if (!doc.load_string(xml.getUtf8())) return false;
    pugi::xml_node tbs = doc.child("sequence").child("sequence");
    oid = tbs.next_sibling("sequence").child_value("oid");
    return !oid.empty();
}

std::string plural(long long n, const char* unit) {
    return std::to_string(n) + " " + unit + (n == 1 ? "" : "s");
}

// "expires in 41 days", "expired 3 days ago", "not valid before ..."; state
// is "expired", "notYetValid", "expiresSoon" (within 30 days) or "valid".
void validityPhrase(const std::string& from, const std::string& to, time_t moment,
                    std::string& phrase, std::string& state) {
    time_t f = 0, t = 0;
    if (!parseUtcTime(from, f) || !parseUtcTime(to, t)) return;
    const long long day = 86400;
    if (moment < f) {
        phrase = "not valid before " + from + " (in " + plural((f - moment) / day, "day") + ")";
        state = "notYetValid";
    } else if (moment > t) {
        long long ago = (moment - t) / day;
        phrase = ago == 0 ? "expired today" : "expired " + plural(ago, "day") + " ago";
        state = "expired";
    } else {
        long long left = (t - moment) / day;
        phrase = left == 0 ? "expires today" : "expires in " + plural(left, "day");
        state = left < 30 ? "expiresSoon" : "valid";
    }
}

std::string joinList(const ordered_json& list, const char* sep) {
    std::string out;
    for (const auto& v : list) {
        if (!out.empty()) out += sep;
        out += v.get<std::string>();
    }
    return out;
}

}  // namespace

bool parseUtcTime(const std::string& text, time_t& out) {
    struct tm tm = {};
    char z = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
               &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &z) != 7 ||
        z != 'Z')
        return false;
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    out = timegm(&tm);
    return true;
}

bool carriesPrivateKey(CertCore& cert, LogBase& log) {
    // The certificate's own answer: an in-memory key, a cloud signer, or a
    // linked token session (which it logs in to when it needs the key handle).
    return cert.hasPrivateKey(false, log);
}

CertSummary summarizeCert(CertCore& cert, const std::string& file, const SummaryContext& ctx,
                          LogBase& log) {
    // Absent parts are expected; their log lines are not news to the user.
    LogNull quiet(log);
    CertSummary summary;
    ordered_json& j = summary.json;
    Asker a(summary, log);
    j["file"] = file;

    auto xstring = [&cert](bool (CertCore::*q)(XString&, LogBase&)) {
        return [&cert, q](LogBase& l, ordered_json& v) {
            XString s;
            if (!(cert.*q)(s, l)) return false;
            v = s.getUtf8();
            return true;
        };
    };
    a.ask("subjectDN", xstring(&CertCore::getSubjectDN));
    a.ask("issuerDN", xstring(&CertCore::getIssuerDN));
    j["subject"] = nameParts(cert, true, quiet);
    j["issuer"] = nameParts(cert, false, quiet);
    if (a.failed("subjectDN")) a.markUnreadable("subject", "the subject name could not be read");
    if (a.failed("issuerDN")) a.markUnreadable("issuer", "the issuer name could not be read");

    a.ask("serial", xstring(&CertCore::getSerialNumber));
    a.ask("serialDecimal", xstring(&CertCore::getSerialDecimal));

    StringBuffer from, to;
    cert.getValidFromSb(from, log);
    cert.getValidToSb(to, log);
    j["validFrom"] = from.getString();
    j["validTo"] = to.getString();
    j["expired"] = cert.isCertExpired(log);
    std::string phrase, state;
    validityPhrase(from.getString(), to.getString(), ctx.moment, phrase, state);
    j["validity"] = phrase.empty() ? ordered_json() : ordered_json(phrase);
    j["validityState"] = state.empty() ? ordered_json() : ordered_json(state);
    if (phrase.empty()) a.markUnreadable("validity", "the validity dates could not be read");

    a.ask("version", [&](LogBase& l, ordered_json& v) {
        int n = cert.getVersion(l);
        v = n;
        return n != 0;
    });
    j["selfIssued"] = cert.isIssuerSelf(log);

    a.ask("sha1Thumbprint", xstring(&CertCore::getSha1ThumbprintX));
    a.ask("spkiSha256", [&](LogBase& l, ordered_json& v) {
        XString alg("sha256"), enc("base64"), pin;
        if (!cert.getSpkiFingerprint(alg, enc, pin, l)) return false;
        v = pin.getUtf8();
        return true;
    });

    int bits = 0;
    a.ask("keyType", [&](LogBase& l, ordered_json& v) {
        StringBuffer keyType;
        if (!cert.appendCertKeyType(keyType, l)) return false;
        cert.getCertKeyType(bits, l);
        v = keyType.getString();
        return true;
    });
    j["keyBits"] = bits;

    std::string sigOid;
    a.ask("signatureAlgorithm", [&](LogBase& l, ordered_json& v) {
        if (!signatureOid(cert, sigOid, l)) return false;
        v = sigOid;
        for (const SigAlg& s : kSigAlgs)
            if (sigOid == s.oid) v = s.name;
        return true;
    });
    j["signatureAlgorithmOid"] = sigOid.empty() ? ordered_json() : ordered_json(sigOid);

    j["subjectAltNames"] = altNames(cert, quiet);
    j["keyUsage"] = extensionList(cert, oids::kKeyUsage.dotted, false, quiet);
    j["extendedKeyUsages"] = extensionList(cert, oids::kExtKeyUsage.dotted, true, quiet);
    j["basicConstraints"] = basicConstraints(cert, quiet);

    StringBuffer eku;
    bool hasEku = cert.getExtendedKeyUsage(eku, quiet);
    j["extendedKeyUsage"] = textOrNull(hasEku, eku.getString());
    j["intendedKeyUsage"] = cert.getIntendedKeyUsage(log);

    DataBuffer aki;
    bool hasAki = cert.getAuthorityKeyIdentifier(aki, nullptr, quiet);
    j["authorityKeyId"] = textOrNull(hasAki, hexOf(aki).c_str());
    StringBuffer ski;
    bool hasSki = cert.getSubjectKeyIdentifier(ski, quiet);
    j["subjectKeyId"] = textOrNull(hasSki, ski.getString());

    XString rfc822, email;
    bool hasRfc822 = cert.getRfc822Name(rfc822, quiet);
    bool hasEmail = cert.getEmailAddress(email, quiet);
    j["rfc822Name"] = textOrNull(hasRfc822, rfc822.getUtf8());
    j["emailAddress"] = textOrNull(hasEmail && !email.isEmpty(), email.getUtf8());
    j["isEu"] = cert.is_country_eu(quiet);

    StringBuffer ocspUrl, crlUrl;
    bool hasOcsp = cert.getOcspUrl(ocspUrl, quiet);
    bool hasCrl = cert.getCrlDistPoint(crlUrl, quiet);
    j["ocspUrl"] = textOrNull(hasOcsp, ocspUrl.getString());
    j["crlDistPoint"] = textOrNull(hasCrl, crlUrl.getString());
    j["hasPrivateKey"] = ctx.carriesKey;

    // What a careful reviewer would point out.
    ordered_json warnings = ordered_json::array();
    if (state == "expired" || state == "notYetValid") warnings.push_back(phrase);
    for (const SigAlg& s : kSigAlgs)
        if (sigOid == s.oid && s.weakHash)
            warnings.push_back(std::string("signed with ") + s.weakHash + ", which is broken");
    if (j["keyType"] == "rsa" && bits > 0 && bits < 2048)
        warnings.push_back("RSA key of " + std::to_string(bits) + " bits (under 2048)");
    const ordered_json& bc = j["basicConstraints"];
    bool isCa = bc.is_object() && bc["ca"].get<bool>();
    if (!isCa && j["subjectAltNames"].is_null())
        warnings.push_back("leaf certificate without subject alternative names");
    j["warnings"] = warnings;

    a.finish();
    return summary;
}

std::string summaryText(const CertSummary& summary, bool colour) {
    const ordered_json& s = summary.json;
    const ordered_json none;
    auto at = [&](const char* key) -> const ordered_json& {
        auto it = s.find(key);
        return it == s.end() ? none : *it;
    };
    auto unreadable = [&](const char* key) -> std::string {
        const ordered_json& u = at("unreadable");
        if (!u.is_object() || !u.contains(key)) return "";
        return "(unreadable: " + u[key].get<std::string>() + ")";
    };
    std::string out;
    auto line = [&out](const char* label, const std::string& value) {
        std::string l = label;
        l.resize(17, ' ');
        out += l + value + "\n";
    };
    auto str = [&](const char* key) {
        std::string why = unreadable(key);
        if (!why.empty()) return why;
        const ordered_json& v = at(key);
        if (v.is_null()) return std::string("(none)");
        if (v.is_string()) return v.get<std::string>();
        if (v.is_boolean()) return std::string(v.get<bool>() ? "yes" : "no");
        return v.dump();
    };
    auto list = [&](const char* key) {
        const ordered_json& v = at(key);
        return v.is_array() ? (v.empty() ? std::string("(empty)") : joinList(v, ", "))
                            : std::string("(none)");
    };

    line("File:", str("file"));
    line("Subject:", str("subjectDN"));
    line("Issuer:", str("issuerDN"));
    const ordered_json& san = at("subjectAltNames");
    if (san.is_object()) {
        static const struct {
            const char* kind;
            const char* label;
        } kSanLabels[] = {
            {"dns", "DNS"}, {"ip", "IP"}, {"email", "e-mail"}, {"uri", "URI"}, {"other", "other"}};
        std::string names;
        for (const auto& k : kSanLabels) {
            if (san[k.kind].empty()) continue;
            if (!names.empty()) names += "; ";
            names += std::string(k.label) + ": " + joinList(san[k.kind], ", ");
        }
        line("Alt. names:", names.empty() ? "(empty)" : names);
    } else {
        line("Alt. names:", "(none)");
    }
    line("Serial:", str("serial") + " (" + str("serialDecimal") + ")");
    line("Valid from:", str("validFrom"));
    std::string phrase = at("validity").is_string() ? at("validity").get<std::string>() : "";
    if (!phrase.empty() && colour) {
        std::string st = at("validityState").get<std::string>();
        const char* code = st == "expiresSoon" ? "\033[33m" : st == "valid" ? "" : "\033[31m";
        if (*code) phrase = code + phrase + "\033[0m";
    }
    line("Valid to:", str("validTo") + (phrase.empty() ? "" : "  (" + phrase + ")"));
    line("Version:", str("version"));
    line("Self-issued:", str("selfIssued"));
    line("Key:", str("keyType") + ", " + str("keyBits") + " bits");
    line("Private key:", at("hasPrivateKey") == true ? "yes" : "no");
    line("Signature:", str("signatureAlgorithm"));
    const ordered_json& bc = at("basicConstraints");
    if (bc.is_object()) {
        std::string v = bc["ca"].get<bool>() ? "CA" : "not a CA";
        if (!bc["pathLen"].is_null()) v += ", path length " + bc["pathLen"].dump();
        line("Basic constr.:", v);
    } else {
        line("Basic constr.:", "(none)");
    }
    line("Key usage:", list("keyUsage"));
    line("Ext. key usage:", list("extendedKeyUsages"));
    line("SHA-1:", str("sha1Thumbprint"));
    line("SPKI SHA-256:", str("spkiSha256"));
    line("Authority key:", str("authorityKeyId"));
    line("Subject key:", str("subjectKeyId"));
    line("OCSP:", str("ocspUrl"));
    line("CRL:", str("crlDistPoint"));
    line("E-mail:", str("emailAddress"));
    line("EU country:", str("isEu"));
    for (const auto& [label, value] : summary.extraText) line(label.c_str(), value);
    for (const auto& w : at("warnings")) line("Warning:", w.get<std::string>());
    return out;
}
