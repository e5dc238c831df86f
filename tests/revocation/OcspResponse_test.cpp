// The OCSP response reader on responses built by hand (the shapes responders
// rarely send) and on every truncation of a real one.
#include "revocation/OcspResponse.h"

#include <gtest/gtest.h>

#include <string>

#include "OcspTestPki.h"
#include "revocation/RevocationReason.h"
#include "support/asn1/OidTable.h"
#include "support/x509/X509TestUtil.h"

using namespace x509test;
using revocation::OcspAsked;
using revocation::OcspResponse;
using revocation::OcspSingle;

namespace {

const char* const kBasic = oids::kOcspBasic.dotted;
const char* const kNonce = oids::kOcspNonce.dotted;

Bytes gt(const char* t) {
    return tlv(0x18, str(t));
}
Bytes single(unsigned char serial, const Bytes& status, const Bytes& rest = gt("20261124120000Z")) {
    Bytes id =
        tlv(0x30, cat({tlv(0x30, cat({oid(oids::kSha1.dotted), tlv(0x05, {})})),
                       tlv(0x04, Bytes(20, 1)), tlv(0x04, Bytes(20, 2)), tlv(0x02, {serial})}));
    return tlv(0x30, cat({id, status, rest}));
}
Bytes nonceExt(unsigned char fill) {
    Bytes value = tlv(0x04, Bytes(16, fill));
    return tlv(0xa1, tlv(0x30, tlv(0x30, cat({oid(kNonce), tlv(0x04, value)}))));
}
// An OCSPResponse with a basic response around the singles; the signature is
// not looked at here.
Bytes response(const Bytes& singles, const Bytes& ext = {}, const Bytes& version = {},
               const char* type = kBasic) {
    Bytes tbs = tlv(0x30, cat({version, tlv(0xa2, tlv(0x04, Bytes(20, 3))), gt("20261124120000Z"),
                               tlv(0x30, singles), ext}));
    Bytes basic = tlv(0x30, cat({tbs, tlv(0x30, oid("1.2.840.10045.4.3.2")), tlv(0x03, {0, 1})}));
    return tlv(0x30,
               cat({tlv(0x0a, {0}), tlv(0xa0, tlv(0x30, cat({oid(type), tlv(0x04, basic)})))}));
}

OcspAsked asked(unsigned char serial) {
    OcspAsked a;
    a.issuerNameHash.append(Bytes(20, 1).data(), 20);
    a.issuerKeyHash.append(Bytes(20, 2).data(), 20);
    a.serial.appendChar(serial);
    a.nonce.append("\x04\x10", 2);
    a.nonce.append(Bytes(16, 0xab).data(), 16);
    return a;
}

// What the reader makes of the bytes: the answer for serial 5, or the error.
std::string read(const Bytes& der) {
    OcspResponse r;
    LogTree log;
    if (!r.load(der.data(), der.size(), log)) return "fail: " + ovtest::errors(log);
    std::string s = OcspResponse::statusName(r.responseStatus());
    if (!r.hasBasic()) return s;
    const OcspSingle* a = r.find(asked(5));
    if (!a) return s + " (no answer for 5)";
    const char* names[] = {"good", "revoked", "unknown"};
    s += std::string(" ") + names[static_cast<int>(a->status)];
    if (!a->revocationTime.empty()) s += " at " + a->revocationTime;
    if (a->reason >= 0) {
        const char* name = revocation::reasonName(a->reason);
        s += " " + (name ? std::string(name) : std::to_string(a->reason));
    }
    s += " this " + a->thisUpdate;
    if (!a->nextUpdate.empty()) s += " next " + a->nextUpdate;
    const char* nonce[] = {"absent", "match", "mismatch"};
    return s + " nonce " + nonce[static_cast<int>(r.nonce(asked(5)))];
}

}  // namespace

TEST(OcspResponse, StatusesAndBodies) {
    const Bytes good = tlv(0x80, {});
    auto revoked = [](unsigned char reason) {
        return tlv(0xa1, cat({gt("20240101000000Z"), tlv(0xa0, tlv(0x0a, {reason}))}));
    };
    const std::string now = "this 2026-11-24T12:00:00Z", isGood = "successful good " + now;
    const std::string at = "successful revoked at 2024-01-01T00:00:00Z ";
    const std::pair<Bytes, std::string> cases[] = {
        {tlv(0x30, tlv(0x0a, {3})), "tryLater"},
        {tlv(0x30, tlv(0x0a, {4})), "fail: The data is not an OCSP response."},  // unused
        {tlv(0x30, cat({tlv(0x0a, {1}), tlv(0xa0, {})})), "malformedRequest"},   // error, body
        {tlv(0x30, tlv(0x0a, {0})), "fail: The successful OCSP response has no response bytes."},
        {response(single(5, good), {}, {}, "1.2.3"),
         "fail: The OCSP response is not a basic OCSP response."},
        {response(single(5, good)), isGood + " nonce absent"},
        {response(single(5, good), {}, tlv(0xa0, tlv(0x02, {0}))), isGood + " nonce absent"},
        {response(single(5, good), {}, tlv(0xa0, tlv(0x02, {1}))),
         "fail: The OCSP response version is not 1."},
        {response(cat({single(4, good), single(5, tlv(0x82, {})), single(6, good)})),
         "successful unknown " + now + " nonce absent"},  // the asked serial among others
        {response(single(5, revoked(6),                   // a fraction, a next update
                         cat({gt("20261124120000.75Z"), tlv(0xa0, gt("20261201000000Z"))}))),
         at + "certificateHold " + now + " next 2026-12-01T00:00:00Z nonce absent"},
        {response(single(5, revoked(11))),
         at + "11 " + now + " nonce absent"},  // past aACompromise
        {response(single(5, revoked(0x80))), "fail: An OCSP revocation reason is malformed."},
        {response(single(5, tlv(0x80, {0}))), "fail: An OCSP certificate status is malformed."},
        {response(single(5, good, tlv(0x17, str("261124120000Z")))),  // UTCTime this update
         "fail: An OCSP single response is malformed."},
        {response(single(5, good), nonceExt(0xab)), isGood + " nonce match"},
        {response(single(5, good), nonceExt(0xac)), isGood + " nonce mismatch"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, read(c.first)) << &c - cases;
}

// Every proper prefix of a real response fails, and a failed load leaves no
// trace of the response read before it.
TEST(OcspResponse, EveryTruncationFailsCleanly) {
    auto& pki = ocsptest::pki();
    ASSERT_TRUE(pki.made());
    ASSERT_TRUE(
        pki.sh("openssl ocsp -issuer ca.pem -cert revoked.pem -cert good.pem -reqout "
               "req.der && openssl ocsp -index index.txt -CA ca.pem -rsigner delegate.pem "
               "-rkey delegate.key -reqin req.der -respout whole.der"));
    const std::string whole = ovtest::readFile(pki.file("whole.der"));
    const auto* p = reinterpret_cast<const unsigned char*>(whole.data());
    OcspResponse r;
    LogTree log;
    ASSERT_TRUE(r.load(p, whole.size(), log)) << log.text();
    ASSERT_EQ(2u, r.responses().size());
    for (size_t n = 0; n < whole.size(); ++n) {
        LogNull quiet;
        ASSERT_FALSE(r.load(p, n, quiet)) << n;
        ASSERT_TRUE(r.responses().empty() && r.responseStatus() == -1 && !r.hasBasic()) << n;
        ASSERT_TRUE(r.load(p, whole.size(), quiet));
    }
}
