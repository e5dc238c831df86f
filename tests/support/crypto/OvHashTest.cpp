#include <gtest/gtest.h>

#include <string>

#include "CryptoTestUtil.h"
#include "support/crypto/OvHash.h"
#include "support/crypto/RandomGen.h"

using cryptotest::opensslCli;
using ovtest::shq;

namespace {

class OvHashTest : public cryptotest::OsslTest {};

// Every id against openssl dgst, on an empty input, a short one and one long
// enough to span many blocks; the digest is appended after existing bytes.
TEST_F(OvHashTest, DigestsMatchOpenssl) {
    struct Case {
        int id;
        const char* dgstName;
        unsigned len;
    };
    const Case cases[] = {
        {ovhash::kSha1, "sha1", 20},         {ovhash::kSha224, "sha224", 28},
        {ovhash::kSha256, "sha256", 32},     {ovhash::kSha384, "sha384", 48},
        {ovhash::kSha512, "sha512", 64},     {ovhash::kMd5, "md5", 16},
        {ovhash::kSha3_224, "sha3-224", 28}, {ovhash::kSha3_256, "sha3-256", 32},
        {ovhash::kSha3_384, "sha3-384", 48}, {ovhash::kSha3_512, "sha3-512", 64},
    };
    DataBuffer random;
    ASSERT_TRUE(RandomGen::randomBytes(100000, random));
    const std::string inputs[] = {"", "abc", cryptotest::toStr(random)};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.dgstName);
        EXPECT_EQ(c.len, _ovHash::hashLength(c.id));
        EXPECT_STREQ(c.dgstName, _ovHash::hashName(c.id));
        for (const std::string& input : inputs) {
            SCOPED_TRACE(input.size());
            ASSERT_TRUE(ovtest::writeFile(tmp.file("in"), input));
            std::string out;
            ASSERT_TRUE(opensslCli(
                std::string("dgst -") + c.dgstName + " -r " + shq(tmp.file("in")), &out));
            DataBuffer got;
            got.appendChar(0xEE);
            ASSERT_TRUE(
                _ovHash::doHash(input.data(), static_cast<unsigned>(input.size()), c.id, got));
            ASSERT_EQ(1u + c.len, got.getSize());
            EXPECT_EQ(0xEE, got.getData2()[0]);
            StringBuffer hex;
            hex.appendHex(got.getData2() + 1, c.len, true);
            EXPECT_EQ(out.substr(0, out.find(' ')), hex.getString());
        }
    }
}

TEST(OvHashIds, UnknownIdsAppendNothing) {
    for (int id : {0, 4, 6, 9, 14, -1, 1000}) {
        SCOPED_TRACE(id);
        DataBuffer out;
        EXPECT_FALSE(_ovHash::doHash("abc", 3, id, out));
        EXPECT_EQ(0u, out.getSize());
        EXPECT_EQ(0u, _ovHash::hashLength(id));
        EXPECT_STREQ("", _ovHash::hashName(id));
        EXPECT_EQ(nullptr, _ovHash::evpMd(id));
    }
    DataBuffer out;
    EXPECT_FALSE(_ovHash::doHash(nullptr, 3, ovhash::kSha1, out));
    EXPECT_TRUE(_ovHash::doHash(nullptr, 0, ovhash::kSha1, out));
    EXPECT_EQ(20u, out.getSize());
}

TEST(OvHashIds, NamesMapToIds) {
    struct Case {
        const char* name;
        int id;
    };
    const Case cases[] = {
        {"sha1", ovhash::kSha1},
        {"SHA-1", ovhash::kSha1},
        {"Sha1", ovhash::kSha1},
        {"sha256", ovhash::kSha256},
        {"SHA-256", ovhash::kSha256},
        {"sha_256", ovhash::kSha256},
        {"sha384", ovhash::kSha384},
        {"sha-512", ovhash::kSha512},
        {"sha224", ovhash::kSha224},
        {"md5", ovhash::kMd5},
        {"MD5", ovhash::kMd5},
        {"sha3-256", ovhash::kSha3_256},
        {"SHA3_512", ovhash::kSha3_512},
        {"sha", 0},
        {"sha2560", 0},
        {"md-5", 0},
        {"", 0},
        {"sha256 ", 0},
        {"a-very-long-name-that-is-no-hash", 0},
        {nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name ? c.name : "(null)");
        EXPECT_EQ(c.id, _ovHash::hashAlgFromName(c.name));
    }
}

}  // namespace
