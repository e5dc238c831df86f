// Helpers for the ASN.1 tests: hex, fixtures, nested inputs, and short ways to
// decode a node tree, encode it and render XML.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/asn1/Asn1Node.h"
#include "support/asn1/Asn1Xml.h"
#include "support/asn1/DerBuild.h"
#include "support/asn1/DerReader.h"
#include "support/base/DataBuffer.h"
#include "support/base/ExtPtrArray.h"
#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"
#include "support/base/StringBuffer.h"
#include "support_common/TestUtil.h"

namespace asn1test {

using Bytes = std::vector<unsigned char>;

// Hex digits to bytes; spaces are ignored.
inline Bytes fromHex(const std::string& hex) {
    DataBuffer db;
    EXPECT_TRUE(hex.empty() || db.appendEncoded(hex.c_str(), "hex")) << hex;
    return Bytes(db.getData2(), db.getData2() + db.getSize());
}

inline std::string toHex(const unsigned char* p, size_t n) {
    StringBuffer sb;
    EXPECT_TRUE(n == 0 || sb.appendHex(p, static_cast<unsigned>(n), true));
    return sb.getString();
}
inline std::string toHex(const DataBuffer& db) {
    return toHex(db.getData2(), db.getSize());
}
inline std::string toHex(const Bytes& v) {
    return toHex(v.data(), v.size());
}

inline Bytes fixture(const std::string& name) {
    return ovtest::readFileBytes(ovtest::dataPath("asn1/" + name));
}

// Every input fixture; all are DER except pkcs7_ber.der.
const char* const kFixtures[] = {"cert.der",         "crl.der",     "crl_ext.der",
                                 "name_subject.der", "ext_aia.der", "ext_crldp.der",
                                 "ext_san.der",      "ext_eku.der", "ext_aki.der",
                                 "ext_keyusage.der", "kitchen.der", "pkcs7_ber.der"};

// levels SEQUENCEs nested with indefinite lengths.
inline Bytes nestedIndefinite(int levels) {
    Bytes v;
    for (int i = 0; i < levels; ++i) v.insert(v.end(), {0x30, 0x80});
    v.resize(v.size() + 2 * static_cast<size_t>(levels), 0);
    return v;
}

// levels SEQUENCEs nested with definite lengths, an INTEGER innermost.
inline Bytes nestedDefinite(int levels) {
    DataBuffer v;
    EXPECT_TRUE(derbuild::smallInteger(v, 5));
    for (int i = 0; i < levels; ++i) {
        DataBuffer outer;
        EXPECT_TRUE(derbuild::sequence(outer, v));
        v.clear();
        v.append(outer);
    }
    return Bytes(v.getData2(), v.getData2() + v.getSize());
}

inline bool isStrictDer(const Bytes& v, bool noSegments = false) {
    return der::isStrictDer(DerInput(v.data(), v.size()), noSegments);
}

// Owns the reference a decoder or node factory hands out.
using NodeRef = RefPtr<_ovAsn1>;
inline NodeRef adopt(_ovAsn1* node) {
    return NodeRef::adopt(node);
}

inline _ovAsn1* decode(const Bytes& v, LogBase& log) {
    return _ovAsn1::DecodeToAsn_1Step(v.data(), static_cast<unsigned>(v.size()), log);
}

// The hex of node's DER encoding; a failure fails the test.
inline std::string derOf(const _ovAsn1* node, bool normalizeBer) {
    LogTree log;
    DataBuffer out;
    EXPECT_TRUE(node->EncodeToDer(out, normalizeBer, log)) << log.text();
    return toHex(out);
}

// Renders in after what xml holds, decoding it into an item on the side; a
// failure must leave both the text and the items alone.
inline bool render(const Bytes& in, std::string& xml, LogBase& log, bool compact = true,
                   bool allowBer = true, ExtPtrArray* items = nullptr) {
    DataBuffer db;
    StringBuffer sb(xml.c_str());
    ExtPtrArray local;
    ExtPtrArray& item = items ? *items : local;
    bool ok = db.append(in.data(), static_cast<unsigned>(in.size())) &&
              Asn1Xml::derToXml(db, compact, allowBer, sb, &item, log);
    EXPECT_EQ(ok ? 1 : 0, item.getSize());
    EXPECT_TRUE(ok || sb.equals(xml.c_str()));
    xml = sb.getString();
    return ok;
}

// The XML of in, BER allowed; a failure fails the test.
inline std::string xmlOf(const Bytes& in, bool compact = true) {
    LogTree log;
    std::string xml;
    EXPECT_TRUE(render(in, xml, log, compact)) << log.text();
    return xml;
}

}  // namespace asn1test
