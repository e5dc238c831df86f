#include "support/asn1/Asn1Node.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/asn1/Asn1TestUtil.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

using asn1test::fromHex;
using asn1test::toHex;

namespace {

std::vector<unsigned char> fixture(const char* name) {
    return ovtest::readFileBytes(ovtest::dataPath(std::string("asn1/") + name));
}

std::vector<unsigned char> bytesOf(const DataBuffer& db) {
    return std::vector<unsigned char>(db.getData2(), db.getData2() + db.getSize());
}

// Owns one reference for the test's scope.
struct NodeRef {
    explicit NodeRef(_ovAsn1* n) : p(n) {}
    ~NodeRef() { RefCountedObject::release(p); }
    NodeRef(const NodeRef&) = delete;
    NodeRef& operator=(const NodeRef&) = delete;
    _ovAsn1* operator->() const { return p; }
    _ovAsn1* p;
};

_ovAsn1* decode(const std::vector<unsigned char>& v, LogBase& log) {
    return _ovAsn1::DecodeToAsn_1Step(v.data(), static_cast<unsigned>(v.size()), log);
}

const char* const kDerFixtures[] = {"cert.der",         "crl.der",     "crl_ext.der",
                                    "name_subject.der", "ext_aia.der", "ext_crldp.der",
                                    "ext_san.der",      "ext_eku.der", "ext_keyusage.der",
                                    "ext_aki.der",      "kitchen.der"};

TEST(Asn1Node, DerFixturesReencodeToTheSameBytes) {
    for (const char* name : kDerFixtures) {
        SCOPED_TRACE(name);
        std::vector<unsigned char> in = fixture(name);
        ASSERT_FALSE(in.empty());
        ASSERT_TRUE(asn1test::isStrictDer(in));
        for (int mode = 0; mode < 3; ++mode) {  // undecoded, one level, all levels
            SCOPED_TRACE(mode);
            LogTree log;
            NodeRef root(decode(in, log));
            ASSERT_TRUE(root.p) << log.text();
            if (mode == 1 && root->m_constructed) {
                ASSERT_TRUE(root->DecodeInner(false, log));
            }
            if (mode == 2 && root->m_constructed) {
                ASSERT_TRUE(root->DecodeInner(true, log));
            }
            for (bool normalize : {false, true}) {
                DataBuffer out;
                ASSERT_TRUE(root->EncodeToDer(out, normalize, log)) << log.text();
                EXPECT_EQ(toHex(in), toHex(bytesOf(out)));
            }
        }
    }
}

TEST(Asn1Node, DecodesStepByStep) {
    std::vector<unsigned char> crl = fixture("crl.der");
    LogTree log;
    NodeRef root(decode(crl, log));
    ASSERT_TRUE(root.p);
    EXPECT_EQ(16u, root->m_tag);
    EXPECT_EQ(0, root->m_tagClass);
    EXPECT_TRUE(root->m_constructed);
    EXPECT_EQ(0, root->numAsnParts()) << "contents are decoded only on request";

    ASSERT_TRUE(root->DecodeInner(false, log));
    ASSERT_EQ(3, root->numAsnParts());
    EXPECT_EQ(nullptr, root->getAsnPart(3));
    EXPECT_EQ(nullptr, root->getAsnPart(-1));
    _ovAsn1* tbs = root->getAsnPart(0);
    EXPECT_EQ(0, tbs->numAsnParts()) << "one level only";
    EXPECT_EQ(3u, root->getAsnPart(2)->m_tag);  // signature BIT STRING

    ASSERT_TRUE(tbs->DecodeInner(false, log));
    // version, signature, issuer, thisUpdate, nextUpdate, revokedCertificates, crlExtensions
    ASSERT_EQ(7, tbs->numAsnParts());
    _ovAsn1* thisUpdate = tbs->getAsnPart(3);
    EXPECT_EQ(23u, thisUpdate->m_tag);
    _ovAsn1* ext = tbs->getAsnPart(6);
    EXPECT_EQ(2, ext->m_tagClass);
    EXPECT_EQ(0u, ext->m_tag);
    EXPECT_TRUE(ext->m_constructed);

    // The thisUpdate text must be what openssl reads there.
    std::string parsed;
    ASSERT_EQ(0, ovtest::run("openssl asn1parse -inform DER -in " +
                                 ovtest::shq(ovtest::dataPath("asn1/crl.der")),
                             &parsed));
    size_t at = parsed.find("UTCTIME");
    ASSERT_NE(std::string::npos, at);
    std::string expected = parsed.substr(parsed.find(':', at) + 1, 13);
    DataBuffer content;
    ASSERT_TRUE(thisUpdate->getAsnContent(content));
    EXPECT_EQ(expected, std::string(content.getData2(), content.getData2() + content.getSize()));

    // The extensions' encoding is the same bytes as they sit in the CRL.
    DataBuffer extDer;
    ASSERT_TRUE(ext->EncodeToDer(extDer, true, log));
    EXPECT_EQ(toHex(fixture("crl_ext.der")), toHex(bytesOf(extDer)));

    // The content of a decoded node is its parts' encodings.
    DataBuffer rootContent;
    ASSERT_TRUE(root->getAsnContent(rootContent));
    EXPECT_EQ(toHex(crl).substr(8), toHex(bytesOf(rootContent)));  // after 30 82 01 df
}

TEST(Asn1Node, PartsOutliveTheirParent) {
    std::vector<unsigned char> cert = fixture("cert.der");
    LogTree log;
    _ovAsn1* root = decode(cert, log);
    ASSERT_TRUE(root && root->DecodeInner(true, log));
    _ovAsn1* tbs = root->getAsnPart(0);
    tbs->incRefCount();
    root->decRefCount();  // the shared bytes must stay alive for tbs
    DataBuffer out;
    EXPECT_TRUE(tbs->EncodeToDer(out, false, log));
    EXPECT_EQ(toHex(cert).substr(8, out.getSize() * 2), toHex(bytesOf(out)));
    tbs->decRefCount();
}

TEST(Asn1Node, BerIsReadAndWrittenAsDer) {
    std::vector<unsigned char> ber = fixture("pkcs7_ber.der");
    ASSERT_FALSE(asn1test::isStrictDer(ber)) << "the fixture should use indefinite lengths";

    // openssl's own re-encoding of the same structure is the reference DER.
    ovtest::TempDir tmp;
    ASSERT_EQ(0, ovtest::run("openssl cms -cmsout -inform DER -outform DER -in " +
                             ovtest::shq(ovtest::dataPath("asn1/pkcs7_ber.der")) + " -out " +
                             ovtest::shq(tmp.file("der.p7"))));
    std::vector<unsigned char> reference = ovtest::readFileBytes(tmp.file("der.p7"));
    ASSERT_TRUE(asn1test::isStrictDer(reference));

    LogTree log;
    {
        NodeRef root(decode(ber, log));
        ASSERT_TRUE(root.p) << log.text();
        DataBuffer der;
        ASSERT_TRUE(root->EncodeToDer(der, true, log)) << log.text();
        EXPECT_EQ(toHex(reference), toHex(bytesOf(der))) << "undecoded, normalized";

        // Without normalizing, undecoded contents stay as read; only the outer
        // length becomes definite.
        DataBuffer raw;
        ASSERT_TRUE(root->EncodeToDer(raw, false, log));
        DataBuffer content;
        ASSERT_TRUE(root->getAsnContent(content));
        EXPECT_EQ(toHex(ber).substr(4, content.getSize() * 2), toHex(bytesOf(content)));
        EXPECT_TRUE(toHex(bytesOf(raw)).find(toHex(bytesOf(content))) != std::string::npos);
    }
    {
        NodeRef root(decode(ber, log));
        ASSERT_TRUE(root->DecodeInner(true, log)) << log.text();
        DataBuffer der;
        ASSERT_TRUE(root->EncodeToDer(der, true, log));
        EXPECT_EQ(toHex(reference), toHex(bytesOf(der))) << "decoded, normalized";
        // Without normalizing, the streamed content keeps its segments (now with
        // definite lengths) and so differs from DER in that one place.
        DataBuffer kept;
        ASSERT_TRUE(root->EncodeToDer(kept, false, log));
        std::vector<unsigned char> v = bytesOf(kept);
        EXPECT_TRUE(asn1test::isStrictDer(v)) << "lengths are DER";
        EXPECT_NE(std::string::npos, toHex(v).find("2414041273747265616d6564"));
        EXPECT_EQ(reference.size() + 2, v.size());
    }
}

TEST(Asn1Node, Builders) {
    struct Case {
        const char* name;
        _ovAsn1* node;
        const char* hex;  // null: the builder must refuse
    };
    const unsigned char zeros[] = {0, 0, 1};
    const unsigned char high[] = {0x80};
    const unsigned char ab[] = {'a', 'b'};
    const Case cases[] = {
        {"int 0", _ovAsn1::newIntegerU32(0), "020100"},
        {"int 127", _ovAsn1::newIntegerU32(127), "02017f"},
        {"int 128", _ovAsn1::newIntegerU32(128), "02020080"},
        {"int max", _ovAsn1::newIntegerU32(0xffffffffu), "020500ffffffff"},
        {"int leading zeros", _ovAsn1::newInteger(zeros, 3), "020101"},
        {"int top bit", _ovAsn1::newInteger(high, 1), "02020080"},
        {"int empty", _ovAsn1::newInteger(nullptr, 0), "020100"},
        {"oid", _ovAsn1::newOid("2.5.29.15"), "0603551d0f"},
        {"oid invalid", _ovAsn1::newOid("2.5..15"), nullptr},
        {"oid null", _ovAsn1::newOid(nullptr), nullptr},
        {"bool", _ovAsn1::newBoolean(true), "0101ff"},
        {"null", _ovAsn1::newNull(), "0500"},
        {"octets", _ovAsn1::newOctetString(ab, 2), "04026162"},
        {"octets empty", _ovAsn1::newOctetString(nullptr, 0), "0400"},
        {"context primitive", _ovAsn1::newContextSpecific(6, false, ab, 2), "86026162"},
        {"context raw constructed",
         _ovAsn1::newContextSpecific(0, true, fromHex("020105").data(), 3), "a003020105"},
        {"high tag primitive", _ovAsn1::newPrimitive(2, 40, ab, 2), "9f28026162"},
        {"application constructed 31", _ovAsn1::newConstructed(1, 31), "7f1f00"},
        {"private 300", _ovAsn1::newPrimitive(3, 300, nullptr, 0), "df822c00"},
        {"bad class", _ovAsn1::newConstructed(4, 1), nullptr},
        {"empty sequence", _ovAsn1::newSequence(), "3000"},
        {"empty set", _ovAsn1::newSet(), "3100"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        NodeRef n(c.node);
        if (!c.hex) {
            EXPECT_EQ(nullptr, n.p);
            continue;
        }
        ASSERT_TRUE(n.p);
        EXPECT_EQ(1, n->getRefCount());
        LogTree log;
        DataBuffer out;
        ASSERT_TRUE(n->EncodeToDer(out, true, log));
        EXPECT_EQ(c.hex, toHex(bytesOf(out)));
        // Whatever we build, we read back the same.
        std::vector<unsigned char> v = bytesOf(out);
        NodeRef back(decode(v, log));
        ASSERT_TRUE(back.p);
        EXPECT_EQ(n->m_tag, back->m_tag);
        EXPECT_EQ(n->m_tagClass, back->m_tagClass);
        EXPECT_EQ(n->m_constructed, back->m_constructed);
    }
}

TEST(Asn1Node, BuildsATree) {
    LogTree log;
    NodeRef seq(_ovAsn1::newSequence());
    ASSERT_TRUE(seq->appendPart(_ovAsn1::newOid("1.3.6.1.5.5.7.48.1")));
    _ovAsn1* explicitTag = _ovAsn1::newContextSpecific(0, true, nullptr, 0);
    ASSERT_TRUE(explicitTag->appendPart(_ovAsn1::newIntegerU32(5)));
    ASSERT_TRUE(seq->appendPart(explicitTag));
    EXPECT_FALSE(seq->appendPart(nullptr));
    EXPECT_FALSE(seq->appendPart(_ovAsn1::newOid("not an oid")));
    EXPECT_EQ(2, seq->numAsnParts());
    // A primitive takes no parts; the part handed over is released (ASan checks).
    NodeRef prim(_ovAsn1::newNull());
    EXPECT_FALSE(prim->appendPart(_ovAsn1::newNull()));

    DataBuffer out;
    ASSERT_TRUE(seq->EncodeToDer(out, false, log));
    EXPECT_EQ(
        "300f"
        "06082b06010505073001"
        "a003020105",
        toHex(bytesOf(out)));
}

TEST(Asn1Node, AppendingToADecodedNodeKeepsItsParts) {
    std::vector<unsigned char> name = fixture("name_subject.der");
    LogTree log;
    NodeRef root(decode(name, log));
    ASSERT_TRUE(root.p);
    // appendPart decodes the raw contents first; nothing read may be lost.
    _ovAsn1* rdn = _ovAsn1::newSet();
    _ovAsn1* atv = _ovAsn1::newSequence();
    ASSERT_TRUE(atv->appendPart(_ovAsn1::newOid("2.5.4.11")));
    const unsigned char ou[] = {'Q', 'A'};
    ASSERT_TRUE(atv->appendPart(_ovAsn1::newPrimitive(0, 12, ou, 2)));
    ASSERT_TRUE(rdn->appendPart(atv));
    ASSERT_TRUE(root->appendPart(rdn));
    EXPECT_EQ(5, root->numAsnParts());
    DataBuffer out;
    ASSERT_TRUE(root->EncodeToDer(out, false, log));
    std::string expectTail = "310b3009060355040b0c025141";
    std::string got = toHex(bytesOf(out));
    EXPECT_EQ(expectTail, got.substr(got.size() - expectTail.size()));
    // The old contents follow the new header unchanged.
    std::string oldContents = toHex(name).substr(6);  // after 30 81 83
    EXPECT_EQ(oldContents, got.substr(6, oldContents.size()));
}

TEST(Asn1Node, PreEncodedContentIsWrittenVerbatim) {
    std::vector<unsigned char> cert = fixture("cert.der");
    DataBuffer certDb;
    ASSERT_TRUE(certDb.append(cert.data(), static_cast<unsigned>(cert.size())));
    LogTree log;
    NodeRef path(_ovAsn1::newSequence());
    path->preEncodedContent = &certDb;
    DataBuffer out;
    ASSERT_TRUE(out.append("x", 1));  // appends after what is there
    ASSERT_TRUE(path->EncodeToDer(out, false, log));
    path->preEncodedContent = nullptr;
    unsigned char hdr[8];
    size_t h = der::encodeHeader(der::kSequence, cert.size(), hdr);
    EXPECT_EQ("78" + toHex(hdr, h) + toHex(cert), toHex(bytesOf(out)));
    // The node's own (empty) contents again once the reference is cleared.
    DataBuffer again;
    ASSERT_TRUE(path->EncodeToDer(again, false, log));
    EXPECT_EQ("3000", toHex(bytesOf(again)));
}

TEST(Asn1Node, OidText) {
    LogTree log;
    NodeRef oid(_ovAsn1::newOid("1.2.840.113549.1.1.11"));
    StringBuffer sb;
    ASSERT_TRUE(oid->getOidText(sb));
    EXPECT_STREQ("1.2.840.113549.1.1.11", sb.getString());
    NodeRef notOid(_ovAsn1::newIntegerU32(3));
    EXPECT_FALSE(notOid->getOidText(sb));
}

TEST(Asn1Node, DecodeFailuresAreLogged) {
    struct Case {
        const char* name;
        const char* hex;
        bool stepOk;        // DecodeToAsn_1Step succeeds
        const char* error;  // logged by whichever step fails
    };
    const Case cases[] = {
        {"empty", "", false, "ASN.1 input is empty"},
        {"length exceeds input", "300502010", false, "ASN.1 length exceeds input"},
        {"indefinite primitive", "04800000", false, "ASN.1 indefinite length on a primitive item"},
        {"bad contents", "3003020201", true, "ASN.1 length exceeds input"},
        {"primitive has no parts", "020105", true, "ASN.1 item is primitive and has no parts"},
        {"garbage inside indefinite", "3080300302010500 00", true, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> in = fromHex(c.hex);
        LogTree log;
        NodeRef root(decode(in, log));
        if (!c.stepOk) {
            EXPECT_EQ(nullptr, root.p);
            EXPECT_TRUE(log.hasError(c.error)) << log.text();
            continue;
        }
        ASSERT_TRUE(root.p) << log.text();
        if (!c.error) {
            EXPECT_TRUE(root->DecodeInner(true, log)) << log.text();
            continue;
        }
        EXPECT_FALSE(root->DecodeInner(true, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(0, root->numAsnParts());
    }
}

TEST(Asn1Node, NestingIsCapped) {
    struct Case {
        const char* name;
        std::vector<unsigned char> in;
        bool ok;
    };
    const Case cases[] = {
        {"definite at the cap", asn1test::nestedDefinite(der::kMaxDepth), true},
        {"definite past the cap", asn1test::nestedDefinite(der::kMaxDepth + 1), false},
        {"definite far past the cap", asn1test::nestedDefinite(3000), false},
        {"indefinite far past the cap", asn1test::nestedIndefinite(3000), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        NodeRef root(decode(c.in, log));
        bool ok = root.p && root->DecodeInner(true, log);
        EXPECT_EQ(c.ok, ok);
        if (!c.ok) {
            EXPECT_TRUE(log.hasError("ASN.1 nesting is too deep")) << log.text();
        }
    }
}

// Decodes everything and re-encodes both ways. A failure must leave a log
// line; a success must give DER back: the same bytes when the input was DER,
// and no BER at all when normalizing.
void decodeAllFailsCleanly(const std::vector<unsigned char>& in, bool* decoded) {
    LogTree log;
    NodeRef root(decode(in, log));
    bool ok = root.p && (!root->m_constructed || root->DecodeInner(true, log));
    *decoded = ok;
    if (!ok) {
        ASSERT_TRUE(log.hasErrors());
        return;
    }
    DataBuffer kept;
    ASSERT_TRUE(root->EncodeToDer(kept, false, log));
    std::vector<unsigned char> v = bytesOf(kept);
    std::vector<unsigned char> item(in.begin(), in.begin() + std::min(in.size(), v.size()));
    if (asn1test::isStrictDer(item)) {
        ASSERT_EQ(toHex(item), toHex(v));
    }
    DataBuffer normalized;
    LogTree log2;
    if (root->EncodeToDer(normalized, true, log2)) {
        ASSERT_TRUE(asn1test::isStrictDer(bytesOf(normalized), true));
    } else {
        // Segments of a constructed string that are not of its type.
        ASSERT_TRUE(log2.hasErrors());
        ASSERT_EQ(0u, normalized.getSize());
    }
}

TEST(Asn1Node, MalformedCertificatesFailCleanly) {
    std::vector<unsigned char> cert = fixture("cert.der");
    bool decoded = false;
    // Truncated at every length.
    for (size_t n = 0; n < cert.size(); ++n) {
        std::vector<unsigned char> cut(cert.begin(), cert.begin() + n);
        decodeAllFailsCleanly(cut, &decoded);
        ASSERT_FALSE(decoded) << n;
    }
    std::vector<asn1test::HeaderPos> headers;
    asn1test::collectHeaders(cert, DerInput(cert.data(), cert.size()), headers);
    ASSERT_GT(headers.size(), 60u);
    size_t inflated = 0, inflatedFailed = 0;
    for (const auto& h : headers) {
        SCOPED_TRACE(h.tag);
        // Each tag byte flipped in several ways.
        for (unsigned char mask : {0x01, 0x20, 0x80, 0xff, 0x1f}) {
            std::vector<unsigned char> bad = cert;
            bad[h.tag] ^= mask;
            decodeAllFailsCleanly(bad, &decoded);
            if (HasFatalFailure()) return;
        }
        // Each length inflated by one. The item then overruns its parent, which
        // almost always breaks the parse; a shifted parse that happens to come
        // out well formed must still behave.
        std::vector<unsigned char> bad = cert;
        unsigned char lb = bad[h.len];
        size_t last = lb < 0x80 ? h.len : h.len + (lb & 0x7f);
        if (bad[last] == 0xff || bad[last] == 0x7f) continue;  // 0x80 would mean indefinite
        ++bad[last];
        decodeAllFailsCleanly(bad, &decoded);
        if (HasFatalFailure()) return;
        ++inflated;
        if (!decoded) ++inflatedFailed;
        if (h.tag == 0) {
            EXPECT_FALSE(decoded) << "the root overruns the input";
        }
    }
    EXPECT_GT(inflatedFailed * 10, inflated * 9);
}

}  // namespace
