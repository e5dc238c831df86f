#include "support/asn1/Asn1Node.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

namespace {

TEST(Asn1Node, DerFixturesReencodeToTheSameBytes) {
    for (std::string name : kFixtures) {
        if (name == "pkcs7_ber.der") continue;  // BER: see below
        Bytes in = fixture(name);
        ASSERT_TRUE(isStrictDer(in)) << name;
        for (int levels : {0, 1, 2}) {  // undecoded, one level, all levels
            SCOPED_TRACE(name + " decoded levels " + std::to_string(levels));
            LogTree log;
            NodeRef root = adopt(decode(in, log));
            ASSERT_TRUE(root &&
                        (!levels || !root->m_constructed || root->DecodeInner(levels == 2, log)))
                << log.text();
            EXPECT_EQ(toHex(in), derOf(root.get(), false));
            EXPECT_EQ(toHex(in), derOf(root.get(), true));
        }
    }
}

TEST(Asn1Node, DecodesOnRequestAndPartsOutliveTheRoot) {
    Bytes crl = fixture("crl.der");
    LogTree log;
    _ovAsn1* root = decode(crl, log);
    ASSERT_TRUE(root && root->numAsnParts() == 0 && root->DecodeInner(false, log));
    ASSERT_EQ(3, root->numAsnParts());
    DataBuffer content;  // a decoded node's content is its parts' encodings
    ASSERT_TRUE(root->getAsnContent(content));
    EXPECT_EQ(toHex(crl).substr(8), toHex(content));  // after 30 82 01 df
    NodeRef tbs = adopt(root->getAsnPart(0));
    tbs->incRefCount();
    root->decRefCount();  // the bytes the parts share must stay alive
    ASSERT_TRUE(tbs->numAsnParts() == 0 && tbs->DecodeInner(false, log)) << log.text();
    ASSERT_EQ(7, tbs->numAsnParts());  // version .. revokedCertificates, [0] extensions
    EXPECT_EQ(toHex(fixture("crl_ext.der")), derOf(tbs->getAsnPart(6), true));
    EXPECT_TRUE(!tbs->getAsnPart(0)->DecodeInner(false, log) &&
                log.hasError("ASN.1 item is primitive and has no parts"));
}

TEST(Asn1Node, BerIsWrittenAsOpensslWritesItsDer) {
    Bytes ber = fixture("pkcs7_ber.der");
    ASSERT_FALSE(isStrictDer(ber)) << "the fixture should use indefinite lengths";
    ovtest::TempDir tmp;
    ASSERT_EQ(0, ovtest::run("openssl cms -cmsout -inform DER -outform DER -in " +
                             ovtest::shq(ovtest::dataPath("asn1/pkcs7_ber.der")) + " -out " +
                             ovtest::shq(tmp.file("der.p7"))));
    std::string reference = toHex(ovtest::readFileBytes(tmp.file("der.p7")));
    std::string contents = toHex(ber).substr(4, (ber.size() - 4) * 2);  // inside 30 80 .. 00 00
    for (bool decoded : {false, true}) {
        LogTree log;
        NodeRef root = adopt(decode(ber, log));
        ASSERT_TRUE(root && (!decoded || root->DecodeInner(true, log))) << log.text();
        EXPECT_EQ(reference, derOf(root.get(), true)) << decoded;
        // Without normalizing, undecoded contents stay as read, and decoded
        // ones get DER lengths but keep the streamed content's segments.
        std::string kept = derOf(root.get(), false);
        EXPECT_TRUE(decoded || kept.substr(kept.size() - contents.size()) == contents) << kept;
        EXPECT_EQ(decoded, isStrictDer(fromHex(kept)));
        EXPECT_EQ(decoded, kept.find("2414041273747265616d6564") != std::string::npos);
    }
}

TEST(Asn1Node, Builders) {
    const unsigned char zeros[] = {0, 0, 1}, high[] = {0x80}, ab[] = {'a', 'b'};
    const Bytes inner = fromHex("020105");
    const std::pair<_ovAsn1*, const char*> cases[] = {
        // null: the builder must refuse
        {_ovAsn1::newIntegerU32(0), "020100"},
        {_ovAsn1::newInteger(zeros, 3), "020101"},
        {_ovAsn1::newInteger(high, 1), "02020080"},
        {_ovAsn1::newOid("2.999.1234567890123"), "06088837a3f78fec894b"},
        {_ovAsn1::newOid("1.39.0"), "06024f00"},
        {_ovAsn1::newOid("1.40"), nullptr},
        {_ovAsn1::newBoolean(true), "0101ff"},
        {_ovAsn1::newContextSpecific(6, false, ab, 2), "86026162"},
        {_ovAsn1::newPrimitive(2, 40, ab, 2), "9f28026162"},
        {_ovAsn1::newContextSpecific(0, true, inner.data(), 3), "a003020105"},
        {_ovAsn1::newConstructed(3, 300), "ff822c00"},
        {_ovAsn1::newConstructed(4, 1), nullptr},
    };
    for (const auto& [node, hex] : cases) {
        NodeRef n = adopt(node);
        EXPECT_EQ(hex ? hex : "refused", n ? derOf(n.get(), true) : "refused");
    }
    std::string manyArcs = "1.2";
    for (int i = 0; i < 63; ++i) manyArcs += ".1";
    for (const char* t : {"", "1", "3.1", "1..2", "1.2.", "a.b", "1.2.-3", "1.2 ",
                          "1.2.18446744073709551616", "2.18446744073709551615", manyArcs.c_str()})
        EXPECT_FALSE(adopt(_ovAsn1::newOid(t))) << t;
    StringBuffer text;  // the largest arc, there and back
    NodeRef oid = adopt(_ovAsn1::newOid("0.39.18446744073709551615")),
            notOid = adopt(_ovAsn1::newIntegerU32(3));
    EXPECT_EQ("060b2781ffffffffffffffff7f", derOf(oid.get(), true));
    EXPECT_TRUE(oid->getOidText(text) && !notOid->getOidText(text));
    EXPECT_STREQ("0.39.18446744073709551615", text.getString());
    const unsigned char padded[] = {0x55, 0x80, 0x1d}, unfinished[] = {0x55, 0x1d, 0x8f};
    EXPECT_FALSE(adopt(_ovAsn1::newPrimitive(0, 6, padded, 3))->getOidText(text));
    EXPECT_FALSE(adopt(_ovAsn1::newPrimitive(0, 6, unfinished, 3))->getOidText(text));

    // Trees: built, extended, and with lent contents.
    NodeRef seq = adopt(_ovAsn1::newSequence());
    ASSERT_TRUE(seq->appendPart(_ovAsn1::newOid("1.3.6.1.5.5.7.48.1")));
    _ovAsn1* explicitTag = _ovAsn1::newContextSpecific(0, true, nullptr, 0);
    ASSERT_TRUE(explicitTag->appendPart(_ovAsn1::newIntegerU32(5)));
    ASSERT_TRUE(seq->appendPart(explicitTag));
    EXPECT_FALSE(seq->appendPart(nullptr));
    EXPECT_FALSE(adopt(_ovAsn1::newNull())->appendPart(_ovAsn1::newNull()))
        << "a primitive refuses, and releases the part (ASan checks)";
    EXPECT_EQ("300f06082b06010505073001a003020105", derOf(seq.get(), false));

    // Appending to a node read from input keeps every part it read.
    Bytes name = fixture("name_subject.der");
    LogTree log;
    NodeRef root = adopt(decode(name, log));
    ASSERT_TRUE(root && root->appendPart(_ovAsn1::newNull()));
    EXPECT_EQ("308185" + toHex(name).substr(6) + "0500", derOf(root.get(), false));  // was 308183

    // Borrowed bytes are written verbatim as the contents while lent.
    DataBuffer lent;
    ASSERT_TRUE(lent.append(name.data(), static_cast<unsigned>(name.size())));
    seq->preEncodedContent = &lent;
    EXPECT_EQ("308186" + toHex(name), derOf(seq.get(), false));
    seq->preEncodedContent = nullptr;
    EXPECT_EQ("300f", derOf(seq.get(), false).substr(0, 4));
}

}  // namespace
