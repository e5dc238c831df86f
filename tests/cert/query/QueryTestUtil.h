// Helpers of the certificate query and public key tests: fixtures of
// tests/data/query, the openssl command line as oracle, and stale objects.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"
#include "support_common/TestUtil.h"

namespace qtest {

using certtest::CertRef;

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
    if (ovtest::run(cmd, &out) != 0) ADD_FAILURE() << "command failed: " << cmd;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

inline std::string ossl(const std::string& file, const std::string& args) {
    return sh("openssl x509 -in " + ovtest::shq(ovtest::dataPath("query/" + file)) + " " + args);
}

// The certificate's SubjectPublicKeyInfo piped through `then`.
inline std::string osslSpki(const std::string& file, const std::string& then = "base64 -w0") {
    return ossl(file, "-pubkey -noout | openssl pkey -pubin -outform DER | " + then);
}

// The bytes as "hex" (upper case) or "base64" (one line).
inline std::string enc(const DataBuffer& db, const char* encoding = "hex") {
    StringBuffer sb;
    db.encodeDB(encoding, sb);
    return sb.getString();
}

// A buffer holding "old", so that a query's change to it shows.
inline DataBuffer old() {
    DataBuffer d;
    d.append("old", 3);
    return d;
}

// Marks an object stale for the life of the guard, as a destroyed one looks.
struct Stale {
    explicit Stale(CertCore* c) : cert(c) { cert->m_magic = 0; }
    ~Stale() { cert->m_magic = CertCore::kMagic; }
    CertCore* cert;
};

}  // namespace qtest
