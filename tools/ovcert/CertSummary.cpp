#include "tools/ovcert/CertSummary.h"

#include "cert/CertCore.h"
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

ordered_json nameParts(CertCore& cert, bool subject, LogBase& log) {
    ordered_json parts = ordered_json::object();
    for (const char* part : {"CN", "O", "OU", "C", "L", "ST", "E"}) {
        XString v;
        bool ok = subject ? cert.getSubjectPart(part, v, log) : cert.getIssuerPart(part, v, log);
        if (ok && !v.isEmpty()) parts[part] = v.getUtf8();
    }
    return parts;
}

}  // namespace

CertSummary summarizeCert(CertCore& cert, const std::string& file, LogBase& log) {
    // Absent parts are expected; their log lines are not news to the user.
    LogNull quiet(log);
    CertSummary summary;
    ordered_json& j = summary.json;
    j["file"] = file;

    XString subject, issuer;
    cert.getSubjectDN(subject, log);
    cert.getIssuerDN(issuer, log);
    j["subjectDN"] = subject.getUtf8();
    j["issuerDN"] = issuer.getUtf8();
    j["subject"] = nameParts(cert, true, quiet);
    j["issuer"] = nameParts(cert, false, quiet);

    XString serial, serialDec;
    cert.getSerialNumber(serial, log);
    cert.getSerialDecimal(serialDec, log);
    j["serial"] = serial.getUtf8();
    j["serialDecimal"] = serialDec.getUtf8();

    StringBuffer from, to;
    cert.getValidFromSb(from, log);
    cert.getValidToSb(to, log);
    j["validFrom"] = from.getString();
    j["validTo"] = to.getString();
    j["expired"] = cert.isCertExpired(log);
    j["version"] = cert.getVersion(log);
    j["selfIssued"] = cert.isIssuerSelf(log);

    XString thumb;
    cert.getSha1ThumbprintX(thumb, log);
    j["sha1Thumbprint"] = thumb.getUtf8();
    XString alg("sha256"), enc("base64"), pin;
    cert.getSpkiFingerprint(alg, enc, pin, log);
    j["spkiSha256"] = pin.getUtf8();

    StringBuffer keyType;
    cert.appendCertKeyType(keyType, log);
    int bits = 0;
    cert.getCertKeyType(bits, log);
    j["keyType"] = keyType.getString();
    j["keyBits"] = bits;

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
    // Answered once the key-association operations exist.
    j["hasPrivateKey"] = nullptr;
    return summary;
}

std::string summaryText(const CertSummary& summary) {
    const ordered_json& s = summary.json;
    std::string out;
    auto line = [&out](const char* label, const std::string& value) {
        std::string l = label;
        l.resize(17, ' ');
        out += l + value + "\n";
    };
    auto str = [](const ordered_json& v) {
        if (v.is_null()) return std::string("(none)");
        if (v.is_string()) return v.get<std::string>();
        if (v.is_boolean()) return std::string(v.get<bool>() ? "yes" : "no");
        return v.dump();
    };
    line("File:", str(s["file"]));
    line("Subject:", str(s["subjectDN"]));
    line("Issuer:", str(s["issuerDN"]));
    line("Serial:", str(s["serial"]) + " (" + str(s["serialDecimal"]) + ")");
    line("Valid from:", str(s["validFrom"]));
    line("Valid to:", str(s["validTo"]) + (s["expired"].get<bool>() ? "  EXPIRED" : ""));
    line("Version:", str(s["version"]));
    line("Self-issued:", str(s["selfIssued"]));
    line("Key:", str(s["keyType"]) + ", " + str(s["keyBits"]) + " bits");
    line("SHA-1:", str(s["sha1Thumbprint"]));
    line("SPKI SHA-256:", str(s["spkiSha256"]));
    line("Ext. key usage:", str(s["extendedKeyUsage"]));
    line("Key usage byte:", str(s["intendedKeyUsage"]));
    line("Authority key:", str(s["authorityKeyId"]));
    line("Subject key:", str(s["subjectKeyId"]));
    line("OCSP:", str(s["ocspUrl"]));
    line("CRL:", str(s["crlDistPoint"]));
    line("E-mail:", str(s["emailAddress"]));
    line("EU country:", str(s["isEu"]));
    for (const auto& [label, value] : summary.extraText) line(label.c_str(), value);
    return out;
}
