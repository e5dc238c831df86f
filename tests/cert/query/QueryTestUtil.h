// Helpers of the certificate query and public key tests: fixtures of
// tests/data/query, the openssl command line as oracle, and stale objects.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"
#include "support_common/TestUtil.h"

namespace qtest {

using certtest::CertRef;

// The fixture's path, quoted for the shell.
inline std::string shellPath(const std::string& name) {
    return ovtest::shq(ovtest::dataPath("query/" + name));
}

// A fixture parsed into a new CertCore (count 0: hold it in a CertRef). One
// that does not load fails the test and yields an empty object instead, on
// which every query answers false.
inline CertCore* load(const std::string& name) {
    LogTree log;
    CertCore* cert =
        CertCore::createFromFile2(ovtest::dataPath("query/" + name).c_str(), nullptr, log);
    if (cert) return cert;
    ADD_FAILURE() << "cannot load " << name << ":\n" << log.text();
    return CertCore::createNewCert();
}

// Runs a shell command and returns its output without the final newline. A
// command that fails fails the test: a missing oracle never passes silently.
inline std::string sh(const std::string& cmd) {
    std::string out;
    int rc = ovtest::run(cmd, &out);
    if (rc != 0) ADD_FAILURE() << "command failed (" << rc << "): " << cmd;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

inline std::string ossl(const std::string& file, const std::string& args) {
    return sh("openssl x509 -in " + shellPath(file) + " " + args);
}

// The certificate's SubjectPublicKeyInfo piped through `then`.
inline std::string osslSpki(const std::string& file, const std::string& then = "base64 -w0") {
    return sh("openssl x509 -in " + shellPath(file) +
              " -pubkey -noout | openssl pkey -pubin -outform DER | " + then);
}

inline std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

// The bytes as "hex" (upper case) or "base64" (one line).
inline std::string enc(const DataBuffer& db, const char* encoding = "hex") {
    StringBuffer sb;
    db.encodeDB(encoding, sb);
    return sb.getString();
}

inline std::string enc(const std::string& bytes, const char* encoding = "hex") {
    DataBuffer db;
    db.append(bytes.data(), static_cast<unsigned>(bytes.size()));
    return enc(db, encoding);
}

// A buffer holding "old", so that a query's change to it shows.
inline DataBuffer old() {
    DataBuffer d;
    d.append("old", 3);
    return d;
}

// The certificate's DER and its elements as openssl asn1parse lists them.
struct Der {
    struct Item {
        size_t off = 0, hl = 0, len = 0;
        int depth = 0;
    };
    std::string der;
    std::vector<Item> items;
    // The TBSCertificate's fields without the [0] version: 0 is the serial, 2
    // the issuer, 4 the subject, 5 the SubjectPublicKeyInfo.
    std::vector<Item> tbs;

    explicit Der(const std::string& file) {
        ovtest::TempDir dir;
        std::string f = ovtest::shq(dir.file("c.der"));
        ossl(file, "-outform DER -out " + f);
        std::string text = sh("openssl asn1parse -inform DER -in " + f);
        der = ovtest::readFile(dir.file("c.der"));
        Item it;
        for (size_t pos = 0; std::sscanf(text.c_str() + pos, " %zu:d=%d hl=%zu l=%zu", &it.off,
                                         &it.depth, &it.hl, &it.len) == 4;) {
            items.push_back(it);
            bool version = tbs.empty() && static_cast<unsigned char>(der[it.off]) == 0xA0;
            if (it.depth == 2 && !version) tbs.push_back(it);
            if ((pos = text.find('\n', pos)) == std::string::npos) break;
            ++pos;
        }
    }
    std::string at(const Item& it, bool withHeader = true) const {
        return withHeader ? der.substr(it.off, it.hl + it.len) : der.substr(it.off + it.hl, it.len);
    }
};

// Marks an object stale for the life of the guard, as a destroyed one looks.
struct Stale {
    explicit Stale(CertCore* c) : cert(c) { cert->m_magic = 0; }
    ~Stale() { cert->m_magic = CertCore::kMagic; }
    CertCore* cert;
};

}  // namespace qtest
