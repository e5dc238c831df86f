// Shared by the crypto tests: fixture paths, the openssl command line as an
// oracle, and conversions between test strings and library buffers.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "support/asn1/DerReader.h"
#include "support/base/DataBuffer.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

namespace cryptotest {

inline std::string fixture(const std::string& name) {
    return ovtest::dataPath("crypto/" + name);
}

inline std::string keyFile(const std::string& name) {
    return fixture(name + ".key.pem");
}

// Runs "openssl <args>" through the shell; false when it exits non-zero.
inline bool opensslCli(const std::string& args, std::string* out = nullptr) {
    return ovtest::run("openssl " + args, out) == 0;
}

// openssl's output for the arguments, %K standing for the fixture key's file.
inline std::string opensslOut(std::string args, const std::string& key = "") {
    args = std::regex_replace(args, std::regex("%K"), ovtest::shq(keyFile(key)));
    std::string out;
    EXPECT_TRUE(opensslCli(args, &out)) << args;
    return out;
}

inline DataBuffer toDb(const std::string& s) {
    DataBuffer b;
    b.append(s.data(), static_cast<unsigned>(s.size()));
    return b;
}

inline std::string toStr(const DataBuffer& b) {
    return std::string(reinterpret_cast<const char*>(b.getData2()), b.getSize());
}

inline std::string fromHex(const char* hex) {
    DataBuffer b;
    return b.appendEncoded(hex, "hex") ? toStr(b) : "";
}

inline DerInput in(const std::string& s) {
    return DerInput(reinterpret_cast<const unsigned char*>(s.data()), s.size());
}

// Every crypto test needs the openssl tool; without it they fail, never skip.
class OsslTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, ovtest::run("openssl version")) << "the openssl command line is required";
    }
    ovtest::TempDir tmp;
};

}  // namespace cryptotest
