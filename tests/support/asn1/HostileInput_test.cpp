// The node tree, the XML rendering and the single-item decoder on the same
// input: the same refusals with the same log lines, and no crash or unlogged
// failure on mutated certificates.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <pugixml.hpp>
#include <tuple>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

namespace {

TEST(Asn1Decoders, AgreeOnWhatTheyRefuse) {
    // Input, the log line of every decoder (null: all decode), and then, for
    // short ones, the undecoded item normalized.
    const std::tuple<Bytes, const char*, const char*> cases[] = {
        {{}, "ASN.1 input is empty", nullptr},
        {fromHex("30"), "ASN.1 length is missing", nullptr},
        {fromHex("3081"), "ASN.1 length is truncated", nullptr},
        {fromHex("3003020201"), "ASN.1 length exceeds input", nullptr},  // a child overruns
        {fromHex("30850000000003"), "ASN.1 length is too large", nullptr},
        {fromHex("04800000"), "ASN.1 indefinite length on a primitive item", nullptr},
        {fromHex("3080020105"), "ASN.1 indefinite-length item has no end-of-contents", nullptr},
        {fromHex("30803006020105 0000"), "ASN.1 length exceeds input", nullptr},
        {fromHex("1f81"), "ASN.1 tag is truncated", nullptr},
        {fromHex("1f800100"), "ASN.1 tag number has a leading zero digit", nullptr},
        {fromHex("1f1e00"), "ASN.1 tag number should use the short form", nullptr},
        {fromHex("1f8181810100"), "ASN.1 tag number is too large", nullptr},
        {fromHex("30820003020105"), nullptr, "3003020105"},
        {fromHex("308030800201050000020106 0000"), nullptr, "30083003020105020106"},
        {fromHex("9f810002abcd"), nullptr, "9f810002abcd"},  // [128]
        {fromHex("30052403040161"), nullptr, "3003040161"},  // a segmented string
        {fromHex("2380030200410302 04b0 0000"), nullptr, "03030441b0"},
        {nestedDefinite(der::kMaxDepth), nullptr, nullptr},
        {nestedDefinite(der::kMaxDepth + 1), "ASN.1 nesting is too deep", nullptr},
        {nestedIndefinite(der::kMaxDepth + 1), nullptr, nullptr},
        {nestedIndefinite(der::kMaxDepth + 2), "ASN.1 nesting is too deep", nullptr},
        {nestedIndefinite(5000), "ASN.1 nesting is too deep", nullptr},
    };
    for (const auto& [in, error, normal] : cases) {
        SCOPED_TRACE(toHex(in).substr(0, 32) + " (" + std::to_string(in.size()) + " bytes)");
        LogTree nodeLog, xmlLog, itemLog;
        NodeRef root = adopt(decode(in, nodeLog));
        EXPECT_EQ(normal ? normal : "", normal && root ? derOf(root.get(), true) : "");
        EXPECT_EQ(!error, root && (!root->m_constructed || root->DecodeInner(true, nodeLog)));
        std::string xml;
        EXPECT_EQ(!error, render(in, xml, xmlLog));
        unsigned consumed = 0;
        std::unique_ptr<ov_asnItem> item(
            Asn1Xml::decodeAsnItem(in.data(), static_cast<unsigned>(in.size()), consumed, itemLog));
        EXPECT_EQ(error ? 0 : in.size(), item ? consumed : 0);
        for (const LogTree* log : {&nodeLog, &xmlLog, &itemLog})
            EXPECT_TRUE(!error || log->hasError(error)) << log->text();
    }
}

// Runs every decoder. Failures must be logged; a tree that decodes encodes to
// DER (the very bytes when the item was DER, no BER at all when normalizing);
// a rendering parses as XML. Returns whether the tree decoded.
bool decodesCleanly(const Bytes& in) {
    LogTree log, xmlLog, derLog;
    NodeRef root = adopt(decode(in, log));
    bool ok = root && (!root->m_constructed || root->DecodeInner(true, log));
    EXPECT_TRUE(ok || log.hasErrors());
    if (ok) {
        Bytes kept = fromHex(derOf(root.get(), false));
        Bytes item(in.begin(), in.begin() + std::min(in.size(), kept.size()));
        EXPECT_TRUE(!isStrictDer(item) || item == kept);
        DataBuffer der;  // fails only for segments that do not match their string
        bool normalized = root->EncodeToDer(der, true, derLog);
        EXPECT_TRUE(normalized ? der::isStrictDer(DerInput(der.getData2(), der.getSize()), true)
                               : derLog.hasErrors() && der.isEmpty());
    }
    std::string xml;
    bool rendered = render(in, xml, xmlLog);
    EXPECT_TRUE(rendered ? bool(pugi::xml_document().load_string(xml.c_str())) : xmlLog.hasErrors())
        << xml << xmlLog.text();
    return ok;
}

TEST(Asn1Decoders, MutatedCertificatesFailCleanly) {
    const Bytes cert = fixture("cert.der");
    for (size_t n = 0; n < cert.size(); ++n)
        ASSERT_FALSE(decodesCleanly(Bytes(cert.begin(), cert.begin() + n))) << "prefix " << n;
    for (size_t i = 0; i < cert.size(); ++i) {
        for (unsigned char mask : {0x01, 0x20, 0x80, 0xff}) {
            Bytes bad = cert;
            bad[i] ^= mask;
            decodesCleanly(bad);
            if (HasFailure()) FAIL() << "byte " << i << " xor " << int(mask);
        }
    }
}

}  // namespace
