#include <gtest/gtest.h>

#include <string>

#include "OcspTestCa.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/json/ClsJsonObject.h"
#include "support/net/ClsHttp.h"
#include "support/net/OcspRequestEncoder.h"
#include "support_common/TestUtil.h"

namespace {

std::string str(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

std::string hexOf(const std::string& bytes) {
    StringBuffer sb;
    sb.appendHex(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
    return sb.getString();
}

void setCert(ClsJsonObject& j, int i, const char* alg, const ovtest::OcspTestCa::CertId& id) {
    LogNull log;
    std::string p = "request[" + std::to_string(i) + "].cert.";
    ASSERT_TRUE(j.updateString((p + "hashAlg").c_str(), alg, log));
    ASSERT_TRUE(j.updateString((p + "issuerNameHash").c_str(), id.nameHashB64.c_str(), log));
    ASSERT_TRUE(j.updateString((p + "issuerKeyHash").c_str(), id.keyHashB64.c_str(), log));
    ASSERT_TRUE(j.updateString((p + "serialNumber").c_str(), id.serialHex.c_str(), log));
}

class OcspEncoderVsOpenssl : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string err;
        ASSERT_EQ(ovtest::run("openssl version"), 0) << "the openssl command line is missing";
        ASSERT_TRUE(m_ca.make(err)) << err;
    }
    ovtest::TempDir m_dir;
    ovtest::OcspTestCa m_ca{m_dir.path()};
};

TEST_F(OcspEncoderVsOpenssl, SameBytesAsOpensslForEveryHash) {
    for (const char* alg : {"sha1", "sha256", "sha384", "sha512"}) {
        SCOPED_TRACE(alg);
        ovtest::OcspTestCa::CertId id;
        std::string err;
        ASSERT_TRUE(m_ca.certIdFor("good", alg, id, err)) << err;
        EXPECT_EQ(id.serialHex, ovtest::OcspTestCa::kGoodSerial);
        std::string reference = m_ca.opensslRequest("good", alg);
        ASSERT_FALSE(reference.empty());

        ClsJsonObject j;
        setCert(j, 0, alg, id);
        DataBuffer ours;
        LogTree log;
        ASSERT_TRUE(OcspRequestEncoder::encode(j, ours, log)) << log.text();
        EXPECT_EQ(hexOf(str(ours)), hexOf(reference));
    }
}

TEST_F(OcspEncoderVsOpenssl, SeveralCertificatesInOneRequest) {
    ovtest::OcspTestCa::CertId good, revoked;
    std::string err;
    ASSERT_TRUE(m_ca.certIdFor("good", "sha256", good, err)) << err;
    ASSERT_TRUE(m_ca.certIdFor("revoked", "sha256", revoked, err)) << err;
    EXPECT_EQ(revoked.serialHex, ovtest::OcspTestCa::kRevokedSerial);
    std::string reference = m_ca.opensslRequest("good revoked", "sha256");
    ASSERT_FALSE(reference.empty());

    ClsJsonObject j;
    setCert(j, 0, "sha256", good);
    setCert(j, 1, "sha256", revoked);
    DataBuffer ours;
    LogTree log;
    ASSERT_TRUE(OcspRequestEncoder::encode(j, ours, log)) << log.text();
    EXPECT_EQ(hexOf(str(ours)), hexOf(reference));
}

TEST_F(OcspEncoderVsOpenssl, OpensslReadsOurNonce) {
    ovtest::OcspTestCa::CertId id;
    std::string err;
    ASSERT_TRUE(m_ca.certIdFor("good", "sha1", id, err)) << err;
    ClsJsonObject j;
    setCert(j, 0, "sha1", id);
    LogTree log;
    // 0x04 0x10 and sixteen bytes: the nonce as the certificate code builds it.
    ASSERT_TRUE(j.updateString("extensions.ocspNonce", "BBAAAQIDBAUGBwgJCgsMDQ4P", log));
    ClsHttp http;
    DataBuffer ours;
    ASSERT_TRUE(http.createOcspRequest(j, ours, log)) << log.text();
    ASSERT_TRUE(ovtest::writeFile(m_ca.path("ours.der"), str(ours)));

    std::string text;
    ASSERT_EQ(
        ovtest::run("openssl ocsp -reqin " + ovtest::shq(m_ca.path("ours.der")) + " -req_text",
                    &text),
        0);
    EXPECT_NE(text.find("OCSP Nonce: \n            0410000102030405060708090A0B0C0D0E0F"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Serial Number: C0FFEE"), std::string::npos) << text;
    EXPECT_NE(text.find("Hash Algorithm: sha1"), std::string::npos) << text;
}

// Fixed, well-formed values for descriptions that need no openssl.
constexpr const char* kHash20 = "AAECAwQFBgcICQoLDA0ODxAREhM=";
constexpr const char* kHash32 = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";

// Replaces $N and $K by the 20-byte hash and $L by the 32-byte one.
std::string expand(std::string s) {
    for (auto [from, to] :
         {std::pair<std::string, std::string>{"$N", kHash20}, {"$K", kHash20}, {"$L", kHash32}}) {
        for (size_t p; (p = s.find(from)) != std::string::npos;) s.replace(p, from.size(), to);
    }
    return s;
}

std::string encodeOrEmpty(const char* json, LogTree& log) {
    ClsJsonObject j;
    if (!j.load(expand(json).c_str(), log)) return "<bad json>";
    DataBuffer out;
    if (!OcspRequestEncoder::encode(j, out, log)) return "";
    return str(out);
}

TEST(OcspRequestEncoder, BadDescriptionsNameTheMember) {
    const std::string missing = "Missing member in the OCSP request description: ";
    const std::string bad = "Bad value in the OCSP request description: ";
    struct Case {
        const char* name;
        const char* json;
        std::string error;
        const char* reason;  // logged "reason", or "<none>"
    };
    const Case cases[] = {
        {"no request", R"({"extensions":{}})", missing + "request", "<none>"},
        {"request not an array", R"({"request":{"cert":{}}})", bad + "request",
         "must be a non-empty array"},
        {"empty request array", R"({"request":[]})", bad + "request", "must be a non-empty array"},
        {"no cert", R"({"request":[{}]})", missing + "request[0].cert", "<none>"},
        {"cert not an object", R"({"request":[{"cert":"x"}]})", bad + "request[0].cert",
         "must be an object"},
        {"no hashAlg",
         R"({"request":[{"cert":{"issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}]})",
         missing + "request[0].cert.hashAlg", "<none>"},
        {"no issuerNameHash",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerKeyHash":"$K","serialNumber":"01"}}]})",
         missing + "request[0].cert.issuerNameHash", "<none>"},
        {"no issuerKeyHash",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","serialNumber":"01"}}]})",
         missing + "request[0].cert.issuerKeyHash", "<none>"},
        {"no serialNumber",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K"}}]})",
         missing + "request[0].cert.serialNumber", "<none>"},
        {"unknown hash",
         R"({"request":[{"cert":{"hashAlg":"md5","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}]})",
         bad + "request[0].cert.hashAlg", "unsupported hash algorithm"},
        {"hash name not a string",
         R"({"request":[{"cert":{"hashAlg":1,"issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}]})",
         bad + "request[0].cert.hashAlg", "must be a string"},
        {"name hash not base64",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"!!!!","issuerKeyHash":"$K","serialNumber":"01"}}]})",
         bad + "request[0].cert.issuerNameHash", "not base64"},
        {"name hash of another algorithm",
         R"({"request":[{"cert":{"hashAlg":"sha256","issuerNameHash":"$N","issuerKeyHash":"$L","serialNumber":"01"}}]})",
         bad + "request[0].cert.issuerNameHash", "digest length does not match the hash algorithm"},
        {"key hash of another algorithm",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$L","serialNumber":"01"}}]})",
         bad + "request[0].cert.issuerKeyHash", "digest length does not match the hash algorithm"},
        {"serial not hex",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"0x12"}}]})",
         bad + "request[0].cert.serialNumber", "not hexadecimal with an even number of digits"},
        {"serial with an odd digit count",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"ABC"}}]})",
         bad + "request[0].cert.serialNumber", "not hexadecimal with an even number of digits"},
        {"empty serial",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":""}}]})",
         bad + "request[0].cert.serialNumber", "empty"},
        {"second request broken",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}},)"
         R"({"cert":{"hashAlg":"sha1","issuerNameHash":"$N","serialNumber":"02"}}]})",
         missing + "request[1].cert.issuerKeyHash", "<none>"},
        {"extensions not an object",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":"x"})",
         bad + "extensions", "must be an object"},
        {"unknown extension",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"BAFV","crlId":"x"}})",
         bad + "extensions.crlId", "unsupported extension"},
        {"nonce not base64",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"%%"}})",
         bad + "extensions.ocspNonce", "not base64"},
        {"nonce an INTEGER",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"AgEF"}})",
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"nonce with a trailing byte",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"BAIBAgA="}})",
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"nonce bare, without its OCTET STRING header",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"AAECAwQFBgcICQoLDA0ODw=="}})",
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"nonce with a padded length",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"BIEQAAAAAAAAAAAAAAAAAAAAAA=="}})",
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"empty nonce",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],"extensions":{"ocspNonce":"BAA="}})",
         bad + "extensions.ocspNonce", "nonce length outside 1 to 32 octets"},
        {"nonce of 33 octets",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"01"}}],)"
         R"("extensions":{"ocspNonce":"BCEAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHyA="}})",
         bad + "extensions.ocspNonce", "nonce length outside 1 to 32 octets"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(expand(c.json).c_str(), log)) << expand(c.json);
        DataBuffer out;
        out.append("keep", 4);
        EXPECT_FALSE(OcspRequestEncoder::encode(j, out, log));
        EXPECT_EQ(str(out), "keep");
        EXPECT_TRUE(log.hasError(c.error.c_str())) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
        std::string reason;
        EXPECT_EQ(log.findData("reason", reason) ? reason : "<none>", c.reason);
    }
}

TEST(OcspRequestEncoder, EquivalentSpellingsGiveTheSameRequest) {
    const char* baseline =
        R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"00C0FFEE"}}]})";
    struct Case {
        const char* name;
        const char* json;
    };
    const Case cases[] = {
        {"upper-case algorithm name",
         R"({"request":[{"cert":{"hashAlg":"SHA1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"00C0FFEE"}}]})"},
        {"lower-case hex with separators",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"00:c0:ff:ee"}}]})"},
        {"members in another order, unknown ones ignored",
         R"({"note":1,"request":[{"cert":{"serialNumber":"00C0FFEE","issuerKeyHash":"$K","x":true,"issuerNameHash":"$N","hashAlg":"sha1"}}]})"},
        {"empty extensions are left out",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N","issuerKeyHash":"$K","serialNumber":"00C0FFEE"}}],"extensions":{}})"},
    };
    LogTree log;
    std::string want = encodeOrEmpty(baseline, log);
    ASSERT_FALSE(want.empty()) << log.text();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree clog;
        EXPECT_EQ(hexOf(encodeOrEmpty(c.json, clog)), hexOf(want)) << clog.text();
    }
}

TEST(OcspRequestEncoder, NonceLengthsWithinBoundsAreCarried) {
    struct Case {
        const char* name;
        const char* nonce;
        const char* wantTail;  // hex of extnValue's OCTET STRING and what it holds
    };
    const Case cases[] = {
        {"one octet", "BAFV", "0403040155"},
        {"sixteen octets", "BBAAAQIDBAUGBwgJCgsMDQ4P", "0412041000"},
        {"thirty-two octets", "BCAAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHw==", "0422042000"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string json =
            std::string(R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"$N",)"
                        R"("issuerKeyHash":"$K","serialNumber":"01"}}],)") +
            R"("extensions":{"ocspNonce":")" + c.nonce + "\"}}";
        LogTree log;
        std::string der = hexOf(encodeOrEmpty(json.c_str(), log));
        ASSERT_FALSE(der.empty()) << log.text();
        //   requestExtensions [2] { SEQUENCE { SEQUENCE { id-pkix-ocsp-nonce, OCTET STRING
        EXPECT_NE(der.find("06092B0601050507300102" + std::string(c.wantTail)), std::string::npos)
            << der;
    }
}

}  // namespace
