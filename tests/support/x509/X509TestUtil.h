// Shared helpers of the X.509 tests: tiny DER builders for the odd names and
// extension values no CA tool writes on request, fixtures from tests/data/x509
// (made by make.sh there), and the openssl command line as the oracle.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "support/asn1/DerBuild.h"
#include "support/asn1/DerReader.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/x509/OrvaneX509.h"
#include "support_common/TestUtil.h"

namespace x509test {

using Bytes = std::vector<unsigned char>;

inline Bytes bytesOf(const DataBuffer& db) {
    return Bytes(db.getData2(), db.getData2() + db.getSize());
}

inline Bytes tlv(unsigned char tag, const Bytes& content) {
    DataBuffer out;
    EXPECT_TRUE(derbuild::tlv(out, tag, content.data(), content.size()));
    return bytesOf(out);
}

inline Bytes str(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes oid(const char* dotted) {
    DataBuffer out;
    EXPECT_TRUE(derbuild::oid(out, dotted)) << dotted;
    return bytesOf(out);
}

// AttributeTypeAndValue with a value element given whole.
inline Bytes atv(const char* dotted, const Bytes& valueElement) {
    return tlv(0x30, cat({oid(dotted), valueElement}));
}

inline Bytes rdn(std::initializer_list<Bytes> atvs) {
    return tlv(0x31, cat(atvs));
}

inline Bytes name(std::initializer_list<Bytes> rdns) {
    return tlv(0x30, cat(rdns));
}

inline DerInput in(const Bytes& b) {
    return DerInput(b.data(), b.size());
}

inline std::string fixture(const std::string& name) {
    return ovtest::dataPath("x509/" + name);
}

inline std::vector<unsigned char> fixtureBytes(const std::string& name) {
    std::vector<unsigned char> b = ovtest::readFileBytes(fixture(name));
    EXPECT_FALSE(b.empty()) << "missing fixture " << name << " (run tests/data/x509/make.sh)";
    return b;
}

inline bool loadBytes(OrvaneX509& x, const std::vector<unsigned char>& der, LogBase& log) {
    return x.loadX509DerAlt(der.data(), static_cast<unsigned>(der.size()), nullptr, log);
}

inline std::unique_ptr<OrvaneX509> load(const std::string& name) {
    auto x = std::make_unique<OrvaneX509>();
    LogTree log;
    EXPECT_TRUE(loadBytes(*x, fixtureBytes(name), log)) << name << "\n" << log.text();
    return x;
}

// Runs openssl; a missing or failing openssl fails the test, never skips it.
// The output comes without its trailing line break.
inline std::string openssl(const std::string& args) {
    std::string out;
    EXPECT_EQ(0, ovtest::run("openssl " + args, &out)) << "openssl " << args;
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

// What openssl prints after "name=" for "openssl x509 <fixture> -noout <opts>",
// with the two attribute names openssl spells out written as we do.
inline std::string x509Field(const std::string& name, const std::string& opts) {
    std::string line =
        openssl("x509 -inform DER -in " + ovtest::shq(fixture(name)) + " -noout " + opts +
                " | sed 's/emailAddress=/E=/g; s/serialNumber=/SERIALNUMBER=/g'");
    size_t p = line.find('=');
    return p == std::string::npos ? line : line.substr(p + 1);
}

}  // namespace x509test
