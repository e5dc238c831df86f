#include "OcspTestCa.h"

#include <cstdio>
#include <sstream>
#include <vector>

#include "support/base/DataBuffer.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

namespace ovtest {

namespace {

bool sh(const std::string& cmd, std::string& err, std::string* out = nullptr) {
    std::string text;
    int rc = run("(" + cmd + ") 2>&1", &text, false);
    if (out) *out = text;
    if (rc != 0) err = "command failed: " + cmd + "\n" + text;
    return rc == 0;
}

std::string hexToBase64(const std::string& hex) {
    DataBuffer db;
    StringBuffer b64;
    if (!db.appendEncoded(hex.c_str(), "hex") || !db.encodeDB("base64", b64)) return "";
    return b64.getString();
}

// The text after "label" up to the end of its line; openssl breaks long hex
// values with a trailing backslash, and those lines are joined.
std::string valueAfter(const std::string& text, const std::string& label) {
    size_t p = text.find(label);
    if (p == std::string::npos) return "";
    p += label.size();
    std::string v;
    for (;;) {
        size_t e = text.find('\n', p);
        std::string line = text.substr(p, e == std::string::npos ? std::string::npos : e - p);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) line.pop_back();
        size_t b = line.find_first_not_of(' ');
        v += b == std::string::npos ? "" : line.substr(b);
        if (v.empty() || v.back() != '\\' || e == std::string::npos) break;
        v.pop_back();
        p = e + 1;
    }
    return v;
}

}  // namespace

bool OcspTestCa::make(std::string& err) {
    const std::string d = shq(m_dir);
    const std::string ec = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes";
    if (!sh("cd " + d + " && openssl req -x509 " + ec +
                " -keyout ca.key -out ca.pem -days 3650 -subj '/CN=Test OCSP Root/O=Orvane Tests'"
                " -addext basicConstraints=critical,CA:true -addext keyUsage=keyCertSign,cRLSign",
            err)) {
        return false;
    }
    struct Leaf {
        const char* name;
        const char* serial;
    };
    const Leaf leaves[] = {{"good", "0xC0FFEE"}, {"revoked", "0x1002"}, {"unknown", "0x7A"}};
    for (const Leaf& l : leaves) {
        std::string n = l.name;
        if (!sh("cd " + d + " && openssl req " + ec + " -keyout " + n + ".key -out " + n +
                    ".csr -subj '/CN=" + n + ".test'" + " && openssl x509 -req -in " + n +
                    ".csr -CA ca.pem -CAkey ca.key -set_serial " + l.serial + " -days 365 -out " +
                    n + ".pem",
                err)) {
            return false;
        }
    }
    // openssl ocsp looks serials up as upper-case hex without leading zeros.
    std::string index =
        "V\t351231235959Z\t\tC0FFEE\tunknown\t/CN=good.test\n"
        "R\t351231235959Z\t240101000000Z,keyCompromise\t1002\tunknown\t/CN=revoked.test\n";
    if (!writeFile(path("index.txt"), index)) {
        err = "cannot write index.txt";
        return false;
    }
    return true;
}

std::string OcspTestCa::opensslRequest(const std::string& leaves, const std::string& alg) const {
    std::string certs;
    std::istringstream in(leaves);
    for (std::string leaf; in >> leaf;) certs += " -cert " + leaf + ".pem";
    std::string out = "ref-" + alg + ".der";
    std::string err;
    if (!sh("cd " + shq(m_dir) + " && openssl ocsp -issuer ca.pem -" + alg + certs +
                " -no_nonce -reqout " + out,
            err)) {
        return "";
    }
    return readFile(path(out));
}

bool OcspTestCa::certIdFor(const std::string& leaf, const std::string& alg, CertId& out,
                           std::string& err) const {
    if (opensslRequest(leaf, alg).empty()) {
        err = "openssl ocsp could not make a request for " + leaf;
        return false;
    }
    std::string text;
    if (!sh("cd " + shq(m_dir) + " && openssl ocsp -reqin ref-" + alg + ".der -req_text", err,
            &text)) {
        return false;
    }
    out.nameHashB64 = hexToBase64(valueAfter(text, "Issuer Name Hash: "));
    out.keyHashB64 = hexToBase64(valueAfter(text, "Issuer Key Hash: "));

    // The serial is the only INTEGER directly inside TBSCertificate (depth 2);
    // the version's INTEGER sits one level deeper, inside its [0].
    std::string parsed;
    if (!sh("cd " + shq(m_dir) + " && openssl asn1parse -in " + leaf + ".pem", err, &parsed)) {
        return false;
    }
    std::istringstream lines(parsed);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find("d=2") != std::string::npos && line.find("INTEGER") != std::string::npos) {
            break;
        }
    }
    unsigned offset = 0, hl = 0, len = 0;
    if (sscanf(line.c_str(), " %u:d=%*u hl=%u l=%u prim: INTEGER", &offset, &hl, &len) != 3) {
        err = "unexpected asn1parse output: " + parsed;
        return false;
    }
    if (!sh("cd " + shq(m_dir) + " && openssl x509 -in " + leaf + ".pem -outform DER -out " + leaf +
                ".der",
            err)) {
        return false;
    }
    std::string der = readFile(path(leaf + ".der"));
    if (der.size() < offset + hl + len) {
        err = "short DER";
        return false;
    }
    StringBuffer hex;
    hex.appendHex(reinterpret_cast<const unsigned char*>(der.data()) + offset + hl, len);
    out.serialHex = hex.getString();
    if (out.nameHashB64.empty() || out.keyHashB64.empty()) {
        err = "could not read the CertID hashes from: " + text;
        return false;
    }
    return true;
}

}  // namespace ovtest
