#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

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

// A description from fixed, well-formed parts. cert holds the members of
// request[0].cert: the defaults below, with "name" removed by "-name" and
// replaced by "name":value; tail follows the request array.
std::string description(const std::vector<std::string>& certEdits, const std::string& tail = "") {
    std::vector<std::pair<std::string, std::string>> cert = {
        {"hashAlg", "\"sha1\""},
        {"issuerNameHash", "\"AAECAwQFBgcICQoLDA0ODxAREhM=\""},  // 20 bytes
        {"issuerKeyHash", "\"AAECAwQFBgcICQoLDA0ODxAREhM=\""},
        {"serialNumber", "\"00C0FFEE\""},
    };
    for (const std::string& e : certEdits) {
        bool remove = e[0] == '-';
        std::string name = remove ? e.substr(1) : e.substr(1, e.find('"', 1) - 1);
        std::string value = remove ? "" : e.substr(e.find(':') + 1);
        bool found = false;
        for (auto it = cert.begin(); it != cert.end() && !found; ++it) {
            if (it->first != name) continue;
            found = true;
            if (remove) {
                cert.erase(it);
                break;
            }
            it->second = value;
        }
        if (!found && !remove) cert.emplace_back(name, value);
    }
    std::string members;
    for (const auto& m : cert)
        members += (members.empty() ? "\"" : ",\"") + m.first + "\":" + m.second;
    return R"({"request":[{"cert":{)" + members + "}}]" + tail + "}";
}

std::string encodeOrEmpty(const std::string& json, LogTree& log) {
    ClsJsonObject j;
    if (!j.load(json.c_str(), log)) return "<bad json>";
    DataBuffer out;
    if (!OcspRequestEncoder::encode(j, out, log)) return "";
    return str(out);
}

std::string withNonce(const char* b64) {
    return std::string(R"(,"extensions":{"ocspNonce":")") + b64 + "\"}";
}

TEST(OcspRequestEncoder, BadDescriptionsNameTheMember) {
    const std::string missing = "Missing member in the OCSP request description: ";
    const std::string bad = "Bad value in the OCSP request description: ";
    const char* c0 = "request[0].cert";
    const char* hash32 = "\"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=\"";
    struct Case {
        const char* name;
        std::string json;
        std::string error;
        const char* reason;  // logged "reason", or "<none>"
    };
    const Case cases[] = {
        {"no request", R"({"extensions":{}})", missing + "request", "<none>"},
        {"request not an array", R"({"request":{"cert":{}}})", bad + "request",
         "must be a non-empty array"},
        {"empty request array", R"({"request":[]})", bad + "request", "must be a non-empty array"},
        {"no cert", R"({"request":[{}]})", missing + c0, "<none>"},
        {"cert not an object", R"({"request":[{"cert":"x"}]})", bad + c0, "must be an object"},
        {"no hashAlg", description({"-hashAlg"}), missing + c0 + ".hashAlg", "<none>"},
        {"no issuerNameHash", description({"-issuerNameHash"}), missing + c0 + ".issuerNameHash",
         "<none>"},
        {"no issuerKeyHash", description({"-issuerKeyHash"}), missing + c0 + ".issuerKeyHash",
         "<none>"},
        {"no serialNumber", description({"-serialNumber"}), missing + c0 + ".serialNumber",
         "<none>"},
        {"unknown hash", description({R"("hashAlg":"md5")"}), bad + c0 + ".hashAlg",
         "unsupported hash algorithm"},
        {"hash name not a string", description({R"("hashAlg":1)"}), bad + c0 + ".hashAlg",
         "must be a string"},
        {"name hash not base64", description({R"("issuerNameHash":"!!!!")"}),
         bad + c0 + ".issuerNameHash", "not base64"},
        {"hashes of another algorithm",
         description({R"("hashAlg":"sha256")", std::string("\"issuerKeyHash\":") + hash32}),
         bad + c0 + ".issuerNameHash", "digest length does not match the hash algorithm"},
        {"key hash of another algorithm", description({std::string("\"issuerKeyHash\":") + hash32}),
         bad + c0 + ".issuerKeyHash", "digest length does not match the hash algorithm"},
        {"serial not hex", description({R"("serialNumber":"0x12")"}), bad + c0 + ".serialNumber",
         "not hexadecimal with an even number of digits"},
        {"serial with an odd digit count", description({R"("serialNumber":"ABC")"}),
         bad + c0 + ".serialNumber", "not hexadecimal with an even number of digits"},
        {"empty serial", description({R"("serialNumber":"")"}), bad + c0 + ".serialNumber",
         "empty"},
        {"second request broken",
         R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"AAECAwQFBgcICQoLDA0ODxAREhM=",)"
         R"("issuerKeyHash":"AAECAwQFBgcICQoLDA0ODxAREhM=","serialNumber":"01"}},)"
         R"({"cert":{"hashAlg":"sha1","serialNumber":"02"}}]})",
         missing + "request[1].cert.issuerNameHash", "<none>"},
        {"extensions not an object", description({}, R"(,"extensions":"x")"), bad + "extensions",
         "must be an object"},
        {"unknown extension", description({}, R"(,"extensions":{"ocspNonce":"BAFV","crlId":"x"})"),
         bad + "extensions.crlId", "unsupported extension"},
        {"nonce not base64", description({}, withNonce("%%")), bad + "extensions.ocspNonce",
         "not base64"},
        {"nonce an INTEGER", description({}, withNonce("AgEF")), bad + "extensions.ocspNonce",
         "not one DER OCTET STRING"},
        {"nonce with a trailing byte", description({}, withNonce("BAIBAgA=")),
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"nonce without its OCTET STRING header",
         description({}, withNonce("AAECAwQFBgcICQoLDA0ODw==")), bad + "extensions.ocspNonce",
         "not one DER OCTET STRING"},
        {"nonce with a padded length", description({}, withNonce("BIEQAAAAAAAAAAAAAAAAAAAAAA==")),
         bad + "extensions.ocspNonce", "not one DER OCTET STRING"},
        {"empty nonce", description({}, withNonce("BAA=")), bad + "extensions.ocspNonce",
         "nonce length outside 1 to 32 octets"},
        {"nonce of 33 octets",
         description({}, withNonce("BCEAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHyA=")),
         bad + "extensions.ocspNonce", "nonce length outside 1 to 32 octets"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsJsonObject j;
        LogTree log;
        ASSERT_TRUE(j.load(c.json.c_str(), log)) << c.json;
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
    struct Case {
        const char* name;
        std::string json;
    };
    const Case cases[] = {
        {"upper-case algorithm name", description({R"("hashAlg":"SHA1")"})},
        {"lower-case hex with separators", description({R"("serialNumber":"00:c0:ff:ee")"})},
        {"unknown members are ignored", description({R"("x":true)"}, R"(,"note":1)")},
        {"empty extensions are left out", description({}, R"(,"extensions":{})")},
    };
    LogTree log;
    std::string want = encodeOrEmpty(description({}), log);
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
        LogTree log;
        std::string der = hexOf(encodeOrEmpty(description({}, withNonce(c.nonce)), log));
        ASSERT_FALSE(der.empty()) << log.text();
        //   [2] { SEQUENCE { SEQUENCE { id-pkix-ocsp-nonce, OCTET STRING { nonce } } } }
        EXPECT_NE(der.find("06092B0601050507300102" + std::string(c.wantTail)), std::string::npos)
            << der;
    }
}

}  // namespace
