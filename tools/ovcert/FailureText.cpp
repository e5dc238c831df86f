#include "tools/ovcert/FailureText.h"

#include <cstring>
#include <set>
#include <string_view>

namespace {

const char kForms[] = "DER, PEM, PKCS#7, base64, UTF-16LE base64 or a JSON array of base64";

bool isBase64Text(std::string_view t) {
    for (char c : t) {
        bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                  c == '+' || c == '/' || c == '=' || c == '\r' || c == '\n';
        if (!ok) return false;
    }
    return true;
}

bool isText(std::string_view t) {
    for (unsigned char c : t)
        if (c < 0x20 && c != '\r' && c != '\n' && c != '\t') return false;
    return true;
}

// The labels of the PEM blocks in the text ("CERTIFICATE", "EC PRIVATE KEY").
std::set<std::string> pemLabels(std::string_view t) {
    static constexpr std::string_view kBegin = "-----BEGIN ";
    std::set<std::string> out;
    for (size_t p = t.find(kBegin); p != std::string_view::npos; p = t.find(kBegin, p + 1)) {
        size_t start = p + kBegin.size();
        size_t end = t.find("-----", start);
        if (end == std::string_view::npos || end - start > 64) continue;
        out.insert(std::string(t.substr(start, end - start)));
    }
    return out;
}

std::string pemFailure(const std::set<std::string>& labels, const LogTree& log) {
    bool certBlock = false, keyBlock = false;
    std::string found;
    for (const std::string& l : labels) {
        if (l.find("CERTIFICATE") != std::string::npos && l.find("REQUEST") == std::string::npos)
            certBlock = true;
        if (l == "PKCS7") certBlock = true;
        if (l.find("PRIVATE KEY") != std::string::npos) keyBlock = true;
        found += (found.empty() ? "" : ", ") + l;
    }
    std::string numKeys;
    if (keyBlock || (log.findData("numKeys", numKeys) && numKeys != "0")) {
        return "a PEM file holding a private key but no readable certificate (blocks: " + found +
               "); add the certificate's PEM block to the file, or inspect the certificate "
               "file itself";
    }
    if (certBlock) {
        return "damaged PEM: the " + found +
               " block does not decode to a certificate (bad base64, a cut-off block or a "
               "missing END line); export the certificate again";
    }
    return "a PEM file whose blocks hold no certificate (found: " + found +
           "); give a file with a CERTIFICATE or PKCS7 block";
}

std::string jsonFailure(std::string_view t) {
    size_t quote = t.find('"');
    if (quote == std::string_view::npos || (quote + 1 < t.size() && t[quote + 1] == '"'))
        return "a JSON array holding no certificate (no base64 string in it)";
    for (size_t i = 1; i < quote; ++i) {
        if (t[i] == ' ' || t[i] == '\n' || t[i] == '\r' || t[i] == '\t')
            return "a pretty-printed JSON array, which format detection does not take: it reads "
                   "the compact form [\"BASE64\",...] with nothing between [ and the first quote; "
                   "compact it (jq -c . FILE)";
    }
    return "a JSON array whose first string is not a base64 certificate";
}

}  // namespace

std::string explainLoadFailure(const DataBuffer& bytes, const LogTree& log) {
    std::string_view all(reinterpret_cast<const char*>(bytes.getData2()), bytes.getSize());
    if (all.empty())
        return "empty input (0 bytes): nothing to load; check that the file was written "
               "completely, or that the command feeding standard input printed anything";
    if (all.size() >= 2 && static_cast<unsigned char>(all[0]) == 0xFF &&
        static_cast<unsigned char>(all[1]) == 0xFE)
        return "UTF-16LE text with a byte-order mark, which format detection does not take: it "
               "reads UTF-16LE base64 without the mark; convert it (iconv -f UTF-16 -t ASCII "
               "FILE) or drop the first two bytes (tail -c +3 FILE)";
    std::string_view t = all;
    while (!t.empty() && strchr(" \t\r\n", t.front())) t.remove_prefix(1);
    if (!t.empty() && t.front() == '[' && isText(t)) return jsonFailure(t);
    std::set<std::string> labels = pemLabels(all);
    if (!labels.empty()) return pemFailure(labels, log);
    if (isText(all)) {
        if (isBase64Text(all))
            return "base64 text that does not decode to a certificate (damaged, cut off, or "
                   "something else encoded); encode the certificate's DER again";
        return std::string("text without a PEM block or base64 certificate; ovcert reads ") +
               kForms;
    }
    if (static_cast<unsigned char>(all[0]) == 0x30)
        return "binary DER that is not a well-formed certificate (cut off or damaged); get a "
               "fresh copy of the certificate";
    return std::string("binary data in no certificate form ovcert knows; it reads ") + kForms;
}

std::string loadNotes(const std::string& name, const LogTree& log) {
    std::string out;
    if (log.hasInfo("Warning: encrypted private key skipped: no password was given."))
        out += "ovcert: " + name +
               ": note: holds an encrypted private key, which was not attached (no password); "
               "attach it with --key FILE --pass-env VAR (VAR holding the password)\n";
    if (log.hasInfo("Warning: encrypted private key skipped: it could not be decrypted."))
        out += "ovcert: " + name +
               ": note: holds an encrypted private key that could not be decrypted; it was "
               "not attached\n";
    if (log.hasInfo("Warning: private key block could not be read; skipped."))
        out += "ovcert: " + name +
               ": note: holds a private key block that could not be read; "
               "it was not attached\n";
    return out;
}
