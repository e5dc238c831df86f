// OCSP requests from our encoder, compared with openssl's own (a real
// responder answering them is the certificate OCSP check's test).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "revocation/OcspTestPki.h"
#include "support/base/ContentCoding.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/json/ClsJsonObject.h"
#include "support/net/OcspRequestEncoder.h"

namespace {

using ocsptest::pki;

std::string base64Of(const std::string& s) {
    StringBuffer sb;
    ContentCoding::encodeBase64_noCrLf(s.data(), static_cast<unsigned>(s.size()), sb);
    return sb.getString();
}

// The DER request for the description; or its error lines and "reason", with
// the output checked to be untouched.
std::string encode(const std::string& json) {
    ClsJsonObject j;
    DataBuffer out;
    LogTree log;
    out.append("keep", 4);
    EXPECT_TRUE(j.load(json.c_str(), log)) << json;
    std::string reason = "-";
    if (OcspRequestEncoder::encode(j, out, log)) return ovtest::bytes(out).substr(4);
    log.findData("reason", reason);
    return ovtest::errors(log) + " / " + reason + (out.getSize() == 4 ? "" : " (out changed)");
}

// openssl's own request for two leaves of the PKI (good last, its serial
// C0FFEE needing a leading 00), without a nonce.
std::string reference(const std::string& alg) {
    EXPECT_TRUE(pki().made() && pki().sh("openssl ocsp -issuer ca.pem -" + alg +
                                         " -cert revoked.pem -cert good.pem -no_nonce -reqout "
                                         "ref.der"));
    return ovtest::readFile(pki().file("ref.der"));
}
// Our description of the same request. The issuer hashes are cut from the end
// of openssl's, which is OCTET STRING nameHash, OCTET STRING keyHash, INTEGER
// 00C0FFEE.
std::string describe(const std::string& alg, const std::string& tail = "") {
    const std::string ref = reference(alg);
    const size_t n = alg == "sha1" ? 20 : 32;
    const std::string cert = R"({"cert":{"hashAlg":")" + alg + R"(","issuerNameHash":")" +
                             base64Of(ref.substr(ref.size() - 8 - 2 * n, n)) +
                             R"(","issuerKeyHash":")" +
                             base64Of(ref.substr(ref.size() - 6 - n, n)) + R"(","serialNumber":")";
    return R"({"request":[)" + cert + R"(1002"}},)" + cert + R"(00C0FFEE"}}])" + tail + "}";
}

// Hash names and serials as people write them, and members the encoder does not
// know, make the same request.
TEST(OcspTest, SameBytesAsOpenssl) {
    for (const char* alg : {"sha1", "sha256"}) {
        std::string json = describe(alg);
        EXPECT_EQ(encode(json), reference(alg)) << alg;
        for (const char* edit : {"sha|SHA", "00C0FFEE|00:c0:ff:ee", "}}]}|,\"x\":1}}],\"y\":{}}"}) {
            const std::string from(edit, strchr(edit, '|'));
            json.replace(json.find(from), from.size(), strchr(edit, '|') + 1);
        }
        EXPECT_EQ(encode(json), reference(alg)) << json;
    }
}

// Descriptions made from a good one by replacing a piece of its text.
std::string edited(const std::string& from, const std::string& to) {
    std::string s =
        R"({"request":[{"cert":{"hashAlg":"sha1","issuerNameHash":"AAECAwQFBgcICQoLDA0ODxAREhM=",)"
        R"("issuerKeyHash":"AAECAwQFBgcICQoLDA0ODxAREhM=","serialNumber":"00C0FFEE"}}]})";
    const size_t at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}
std::string withNonce(const std::string& b64) {
    return edited("]}", R"(],"extensions":{"ocspNonce":")" + b64 + "\"}}");
}

// Each bad description names the member and the reason. A want of "ok": the
// request is made (a DER SEQUENCE).
TEST(OcspRequestEncoder, BadDescriptionsNameTheMember) {
    const std::string missing = "Missing member in the OCSP request description: ";
    const std::string bad = "Bad value in the OCSP request description: ";
    const std::string c0 = bad + "request[0].cert", nonce = bad + "extensions.ocspNonce / ";
    const std::string notOne = nonce + "not one DER OCTET STRING";
    const std::string length = nonce + "nonce length outside 1 to 32 octets";
    const std::pair<std::string, std::string> cases[] = {
        {R"({"extensions":{}})", missing + "request / -"},
        {R"({"request":[]})", bad + "request / must be a non-empty array"},
        {R"({"request":[{"cert":"x"}]})", c0 + " / must be an object"},
        {edited("sha1", "md5"), c0 + ".hashAlg / unsupported hash algorithm"},
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
        {withNonce("AgEF"), notOne},      // an INTEGER
        {withNonce("BAIBAgA="), notOne},  // a byte after it
        {withNonce("BAA="), length},
        {withNonce("BAFV"), "ok"},
        {withNonce("BCAAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHw=="), "ok"},
        {withNonce("BCEAAQIDBAUGBwgJCgsMDQ4PEBESExQVFhcYGRobHB0eHyA="), length},
    };
    for (const auto& c : cases) {
        const std::string got = encode(c.first);
        EXPECT_EQ(got[0] == '\x30' ? "ok" : got, c.second) << c.first;
    }
}

}  // namespace
