#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "CryptoTestUtil.h"
#include "support/crypto/OvHash.h"
#include "support/crypto/RandomGen.h"

namespace {

class OvHashTest : public cryptotest::OsslTest {};

// Every id against openssl dgst, on an empty input, a short one and one long
// enough to span many blocks; the digest is appended after existing bytes.
TEST_F(OvHashTest, DigestsMatchOpenssl) {
    struct Case {
        int id;
        const char* dgstName;
        unsigned len;
    } cases[] = {
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
        EXPECT_TRUE(c.len == _ovHash::hashLength(c.id) &&
                    !strcmp(c.dgstName, _ovHash::hashName(c.id)));
        for (const std::string& input : inputs) {
            SCOPED_TRACE(input.size());
            ASSERT_TRUE(ovtest::writeFile(tmp.file("in"), input));
            const std::string out = cryptotest::opensslOut(std::string("dgst -") + c.dgstName +
                                                           " -r " + ovtest::shq(tmp.file("in")));
            DataBuffer got;
            got.appendChar(0xEE);
            ASSERT_TRUE(
                _ovHash::doHash(input.data(), static_cast<unsigned>(input.size()), c.id, got));
            ASSERT_TRUE(got.getSize() == 1 + c.len && got.getData2()[0] == 0xEE);
            StringBuffer hex;
            hex.appendHex(got.getData2() + 1, c.len, true);
            EXPECT_EQ(out.substr(0, out.find(' ')), hex.getString());
        }
    }
}

TEST(OvHashIds, NamesMapToIdsAndUnknownIdsGiveNothing) {
    using namespace ovhash;
    const std::pair<const char*, int> known[] = {{"SHA-1", kSha1},        {"sha_256", kSha256},
                                                 {"Sha384", kSha384},     {"MD5", kMd5},
                                                 {"sha3-256", kSha3_256}, {"SHA3_512", kSha3_512}};
    for (auto [name, id] : known) EXPECT_EQ(id, _ovHash::hashAlgFromName(name)) << name;
    for (const char* name : {"sha", "sha2560", "md-5", "sha256 ", "sha-256-and-then-some"})
        EXPECT_EQ(0, _ovHash::hashAlgFromName(name)) << name;
    EXPECT_EQ(0, _ovHash::hashAlgFromName(nullptr));
    for (int id : {0, 4, 6, 14, -1}) {
        DataBuffer out;
        EXPECT_FALSE(_ovHash::doHash("abc", 3, id, out) || out.getSize() ||
                     _ovHash::hashLength(id) || _ovHash::evpMd(id))
            << id;
    }
    DataBuffer out;
    EXPECT_FALSE(_ovHash::doHash(nullptr, 3, ovhash::kSha1, out));
    EXPECT_TRUE(_ovHash::doHash(nullptr, 0, ovhash::kSha1, out));
}

}  // namespace
