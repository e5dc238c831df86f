// OCSP requests from our encoder, compared with openssl's own, read back by
// openssl, and answered by a real responder (openssl ocsp on a local port).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "PeerProcess.h"
#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support/base/XString.h"
#include "support/json/ClsJsonObject.h"
#include "support/net/ClsHttp.h"
#include "support/net/HttpResult.h"
#include "support/net/OcspRequestEncoder.h"
#include "support_common/TestUtil.h"

namespace {

using ovtest::bytes;

std::string hexOf(const std::string& s) {
    StringBuffer sb;
    ContentCoding::encodeHex(s.data(), static_cast<unsigned>(s.size()), sb, false);
    return sb.getString();
}

std::string base64Of(const std::string& s) {
    StringBuffer sb;
    ContentCoding::encodeBase64_noCrLf(s.data(), static_cast<unsigned>(s.size()), sb);
    return sb.getString();
}

// The hex of the DER request for the description; or its error lines and
// "reason", with the output checked to be untouched.
std::string encode(const std::string& json) {
    ClsJsonObject j;
    DataBuffer out;
    LogTree log;
    out.append("keep", 4);
    EXPECT_TRUE(j.load(json.c_str(), log)) << json;
    std::string reason = "-";
    if (OcspRequestEncoder::encode(j, out, log)) return hexOf(bytes(out).substr(4));
    log.findData("reason", reason);
    return ovtest::errors(log) + " / " + reason + (bytes(out) == "keep" ? "" : " (out changed)");
}

// An EC root made with the openssl command line and two leaves it issued, one
// valid and one revoked in the index.txt that `openssl ocsp` answers from. The
// good serial has its high bit set, so its INTEGER needs a leading 00.
class OcspTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        const std::string ec = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes";
        std::string cmd = "openssl req -x509" + ec + " -keyout ca.key -out ca.pem -subj /CN=Root" +
                          " -addext basicConstraints=critical,CA:true";
        for (const char* leaf : {"good 0xC0FFEE", "revoked 0x1002"}) {
            const std::string name(leaf, strchr(leaf, ' '));
            cmd += " && openssl req" + ec + " -keyout k.key -out " + name +
                   ".csr -subj /CN=" + name +
                   " && openssl x509 -req -CA ca.pem -CAkey ca.key -set_serial " +
                   (strchr(leaf, ' ') + 1) + " -in " + name + ".csr -out " + name + ".pem";
        }
        s_made = sh(cmd) &&
                 ovtest::writeFile(s_dir.file("index.txt"),
                                   "V\t351231235959Z\t\tC0FFEE\tunknown\t/CN=good\n"
                                   "R\t351231235959Z\t240101000000Z\t1002\tunknown\t/CN=revoked\n");
    }
    void SetUp() override { ASSERT_TRUE(s_made) << "the openssl command line failed to make a CA"; }

    static bool sh(const std::string& cmd, std::string* out = nullptr) {
        return ovtest::run("cd " + ovtest::shq(s_dir.path()) + " && " + cmd + " 2>&1", out) == 0;
    }
    // openssl's own request for the leaves, without a nonce.
    static std::string reference(const std::string& alg, const std::string& leaves) {
        std::string certs;
        for (std::string leaf : {"good", "revoked"})
            if (leaves.find(leaf) != std::string::npos) certs += " -cert " + leaf + ".pem";
        EXPECT_TRUE(
            sh("openssl ocsp -issuer ca.pem -" + alg + certs + " -no_nonce -reqout ref.der"));
        return ovtest::readFile(s_dir.file("ref.der"));
    }
    // Our description of the same request. The issuer hashes are cut from the
    // end of openssl's request for the good leaf, where its CertID ends with
    // OCTET STRING nameHash, OCTET STRING keyHash, INTEGER 00C0FFEE.
    static std::string describe(const std::string& alg, const std::string& leaves,
                                const std::string& tail = "") {
        const std::string ref = reference(alg, "good");
        const size_t n = alg == "sha1" ? 20 : std::stoul(alg.substr(3)) / 8;
        const std::string key = ref.substr(ref.size() - 6 - n, n);
        const std::string name = ref.substr(ref.size() - 8 - 2 * n, n);
        std::string json = R"({"request":[)";
        for (const char* leaf : {"good", "revoked"}) {
            if (leaves.find(leaf) == std::string::npos) continue;
            json += std::string(json.back() == '[' ? "" : ",") + R"({"cert":{"hashAlg":")" + alg +
                    R"(","issuerNameHash":")" + base64Of(name) + R"(","issuerKeyHash":")" +
                    base64Of(key) + R"(","serialNumber":")" + (*leaf == 'g' ? "00C0FFEE" : "1002") +
                    "\"}}";
        }
        return json + "]" + tail + "}";
    }

    static inline ovtest::TempDir s_dir;
    static inline bool s_made = false;
};

TEST_F(OcspTest, SameBytesAsOpenssl) {
    for (const char* alg : {"sha1", "sha256", "sha384", "sha512"}) {
        const std::string leaves = strcmp(alg, "sha512") ? "good" : "good revoked";
        EXPECT_EQ(encode(describe(alg, leaves)), hexOf(reference(alg, leaves))) << alg;
    }
}

// The request as the certificate code sends it: with a nonce, posted by our
// client. openssl reads it, the responder answers it, and openssl checks the
// answer against the certificate and the CA.
TEST_F(OcspTest, RealResponderAnswersOurRequests) {
    ovtest::PeerProcess responder;
    std::string line;
    ASSERT_TRUE(responder.start(s_dir.path(),
                                "openssl ocsp -port 0 -index index.txt -CA ca.pem -rsigner ca.pem "
                                "-rkey ca.key -ignore_err 2>responder.log") &&
                responder.readLine(line, 15000) && line.rfind("ACCEPT", 0) == 0)
        << line << ovtest::readFile(s_dir.file("responder.log"));
    // "ACCEPT [::]:PORT PID=..."
    XString url(
        ("http://127.0.0.1:" + std::to_string(std::stoi(line.substr(line.rfind(':') + 1))) + "/")
            .c_str());
    XString type("application/ocsp-request");
    const std::string nonce = "OCSP Nonce: \n            0410000102030405060708090A0B0C0D0E0F";
    for (std::string leaf : {"good", "revoked"}) {
        const std::string alg = leaf == "good" ? "sha1" : "sha256";
        ClsJsonObject spec;
        ClsHttp http;
        HttpResult result;
        DataBuffer request, response;
        LogTree log;
        ASSERT_TRUE(spec.load(
            describe(alg, leaf, R"(,"extensions":{"ocspNonce":"BBAAAQIDBAUGBwgJCgsMDQ4P"})")
                .c_str(),
            log));
        ASSERT_TRUE(http.createOcspRequest(spec, request, log) &&
                    ovtest::writeFile(s_dir.file("req.der"), bytes(request)));
        std::string text, answer;
        EXPECT_TRUE(sh("openssl ocsp -reqin req.der -req_text", &text));
        for (std::string want :
             {"Hash Algorithm: " + alg,
              "Serial Number: " + std::string(leaf == "good" ? "C0FFEE" : "1002"), nonce})
            EXPECT_NE(text.find(want), std::string::npos) << want << "\n" << text;

        ASSERT_TRUE(http.binaryRequest("POST", url, nullptr, request, type, false, false, result,
                                       response, nullptr, log))
            << log.text();
        StringBuffer responseType;
        EXPECT_TRUE(result.getHeaderField("Content-Type", responseType) &&
                    responseType.equals("application/ocsp-response"));
        ASSERT_TRUE(ovtest::writeFile(s_dir.file("resp.der"), bytes(response)));
        // -no_nonce: openssl would otherwise compare with a nonce of its own.
        sh("openssl ocsp -issuer ca.pem -" + alg + " -cert " + leaf +
               ".pem -respin resp.der -no_nonce -CAfile ca.pem -resp_text",
           &answer);
        for (std::string want : {leaf + ".pem: " + leaf, std::string("Response verify OK"), nonce})
            EXPECT_NE(answer.find(want), std::string::npos) << want << "\n" << answer;
    }
}

// Descriptions made from a good one by replacing a piece of its text.
const char* kGood =
    R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"AAECAwQFBgcICQoLDA0ODxAREhM=",)"
    R"("issuerKeyHash":"AAECAwQFBgcICQoLDA0ODxAREhM=","serialNumber":"00C0FFEE"}}]})";

std::string edited(const std::string& from, const std::string& to) {
    std::string s = kGood;
    const size_t at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

std::string withNonce(const std::string& b64) {
    return edited("]}", R"(],"extensions":{"ocspNonce":")" + b64 + "\"}}");
}

TEST(OcspRequestEncoder, BadDescriptionsNameTheMember) {
    const std::string missing = "Missing member in the OCSP request description: ";
    const std::string bad = "Bad value in the OCSP request description: ";
    const std::string c0 = bad + "request[0].cert", nonce = bad + "extensions.ocspNonce / ";
    const std::string notArray = bad + "request / must be a non-empty array";
    const std::string notOne = nonce + "not one DER OCTET STRING";
    const std::string length = nonce + "nonce length outside 1 to 32 octets";
    struct Case {
        std::string json, want;
    } cases[] = {
        {R"({"extensions":{}})", missing + "request / -"},
        {R"({"request":{"cert":{}}})", notArray},
        {R"({"request":[]})", notArray},
        {R"({"request":[{"cert":"x"}]})", c0 + " / must be an object"},
        {edited(R"(,"serialNumber":"00C0FFEE")", ""), missing + "request[0].cert.serialNumber / -"},
        {edited("sha1", "md5"), c0 + ".hashAlg / unsupported hash algorithm"},
        {edited("\"sha1\"", "1"), c0 + ".hashAlg / must be a string"},
        {edited("AAECAwQFBgcICQoLDA0ODxAREhM=", "!!!!"), c0 + ".issuerNameHash / not base64"},
        {edited("sha1", "sha256"),
         c0 + ".issuerNameHash / digest length does not match the hash algorithm"},
        {edited("00C0FFEE", "ABC"),
         c0 + ".serialNumber / not hexadecimal with an even number of digits"},
        {edited("00C0FFEE", ""), c0 + ".serialNumber / empty"},
        {edited("}}]", R"(}},{"cert":{"hashAlg":"sha1"}}])"),
         missing + "request[1].cert.issuerNameHash / -"},
        {edited("]}", R"(],"extensions":"x"})"), bad + "extensions / must be an object"},
        {edited("]}", R"(],"extensions":{"crlId":"x"}})"),
         bad + "extensions.crlId / unsupported extension"},
        {withNonce("%%"), nonce + "not base64"},
        {withNonce("AgEF"), notOne},                          // an INTEGER
        {withNonce("BAIBAgA="), notOne},                      // a byte after it
        {withNonce("BIEQAAAAAAAAAAAAAAAAAAAAAA=="), notOne},  // a padded length
        {withNonce("BAA="), length},
        {withNonce("BCEAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHyA="), length},
    };
    for (const auto& c : cases) EXPECT_EQ(encode(c.json), c.want) << c.json;
}

TEST(OcspRequestEncoder, SpellingsAndNonceLengths) {
    const std::string nonceOid = "06092B0601050507300102";  // id-pkix-ocsp-nonce
    const std::string same = encode(kGood);
    EXPECT_EQ(encode(edited("sha1", "SHA1")), same);
    EXPECT_EQ(encode(edited("00C0FFEE", "00:c0:ff:ee")), same);
    EXPECT_EQ(encode(edited("}}]}", R"(,"x":1}}],"note":1,"extensions":{}})")), same);
    EXPECT_NE(encode(withNonce("BAFV")).find(nonceOid + "0403040155"), std::string::npos);
    EXPECT_NE(encode(withNonce("BCAAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHw=="))
                  .find(nonceOid + "0422042000"),
              std::string::npos);
}

}  // namespace
