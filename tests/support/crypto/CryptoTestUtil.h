// Shared by the crypto tests: fixture paths, the openssl command line as an
// oracle, and conversions between test strings and library buffers.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/base/DataBuffer.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

namespace cryptotest {

inline std::string fixture(const std::string& name) {
    return ovtest::dataPath("crypto/" + name);
}

// Runs "openssl <args>" through the shell; false when it exits non-zero.
inline bool opensslCli(const std::string& args, std::string* out = nullptr) {
    return ovtest::run("openssl " + args, out) == 0;
}

inline DataBuffer toDb(const std::string& s) {
    DataBuffer b;
    b.append(s.data(), static_cast<unsigned>(s.size()));
    return b;
}

inline std::string toStr(const DataBuffer& b) {
    return std::string(reinterpret_cast<const char*>(b.getData2()), b.getSize());
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
