// Shared helpers of the X.509 tests: fixtures from tests/data/x509 (made by
// make.sh there) and the openssl command line as the oracle.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/x509/OrvaneX509.h"
#include "support_common/TestUtil.h"

namespace x509test {

inline std::string fixture(const std::string& name) {
    return ovtest::dataPath("x509/" + name);
}

inline std::vector<unsigned char> fixtureBytes(const std::string& name) {
    std::vector<unsigned char> b = ovtest::readFileBytes(fixture(name));
    EXPECT_FALSE(b.empty()) << "missing fixture " << name << " (run tests/data/x509/make.sh)";
    return b;
}

inline std::unique_ptr<OrvaneX509> load(const std::string& name) {
    std::vector<unsigned char> der = fixtureBytes(name);
    auto x = std::make_unique<OrvaneX509>();
    LogTree log;
    EXPECT_TRUE(x->loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log))
        << name << "\n"
        << log.text();
    return x;
}

// Runs openssl; a missing or failing openssl fails the test, never skips it.
inline std::string openssl(const std::string& args) {
    std::string out;
    int rc = ovtest::run("openssl " + args, &out);
    EXPECT_EQ(0, rc) << "openssl " << args;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

// "name=value" -> "value".
inline std::string afterEq(const std::string& line) {
    size_t p = line.find('=');
    return p == std::string::npos ? line : line.substr(p + 1);
}

inline std::string stripColons(std::string s) {
    std::string r;
    for (char c : s)
        if (c != ':') r += c;
    return r;
}

inline std::string x509Args(const std::string& name) {
    return "x509 -inform DER -in " + ovtest::shq(fixture(name)) + " -noout ";
}

inline std::string sb(const StringBuffer& s) {
    return s.getString();
}

inline std::string hex(DerInput d) {
    StringBuffer s;
    s.appendHex(d.data(), static_cast<unsigned>(d.size()));
    return s.getString();
}

inline const char* const kCerts[] = {
    "root.der",      "inter.der",      "leaf_rsa.der",     "leaf_pss.der",     "leaf_p256.der",
    "leaf_p384.der", "leaf_p521.der",  "leaf_ed25519.der", "leaf_ed448.der",   "leaf_dsa.der",
    "name_bmp.der",  "name_utf8.der",  "name_multi.der",   "name_special.der", "time_2060.der",
    "expired.der",   "serial_neg.der", "serial_20.der",    "serial_00ff.der",  "v1.der"};

// Which certificate signed which.
struct Issuer {
    const char* cert;
    const char* issuer;  // null: self-signed
};
inline const Issuer kIssuers[] = {
    {"root.der", nullptr},           {"inter.der", "root.der"},
    {"leaf_rsa.der", "root.der"},    {"leaf_pss.der", "root.der"},
    {"leaf_p256.der", "inter.der"},  {"leaf_p384.der", "inter.der"},
    {"leaf_p521.der", "inter.der"},  {"leaf_ed25519.der", "inter.der"},
    {"leaf_ed448.der", "inter.der"}, {"leaf_dsa.der", "inter.der"},
    {"name_bmp.der", nullptr},       {"name_utf8.der", nullptr},
    {"name_multi.der", nullptr},     {"name_special.der", nullptr},
    {"time_2060.der", nullptr},      {"expired.der", nullptr},
    {"serial_neg.der", nullptr},     {"serial_20.der", nullptr},
    {"serial_00ff.der", nullptr},    {"v1.der", nullptr},
};

}  // namespace x509test
