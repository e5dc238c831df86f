#include "support/asn1/DerReader.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "support/asn1/Asn1TestUtil.h"
#include "support/asn1/OidTable.h"

using namespace asn1test;

namespace {

// Each typed reader on an input, and the value it read (BOOLEAN 0/1, BIT
// STRING its unused bits) or "-" for a refusal, after which the cursor stays
// where it was. Refused: INTEGERs negative, empty, above uint64 or with a
// superfluous 00/ff (X.690 8.3.2); BOOLEAN true not written as ff (X.690 11.1)
// or of two bytes; BIT STRINGs with a padding bit set (X.690 11.2.1), unused
// bits without bytes or 8 of them; OIDs ending mid-arc or with an arc led by 80.
TEST(DerParser, TypedReaders) {
    std::istringstream cases(
        "02020080:128 020900ffffffffffffffff:18446744073709551615 020901ffffffffffffffff:- "
        "020180:- 0200:- 0202007f:- 0202ff80:- 0101ff:1 010101:- 01020000:- 03020780:7 "
        "03020781:- 030101:- 03020800:- 0603551d0f:0 0603551d8f:- 0603558001:-");
    for (std::string c; cases >> c;) {
        SCOPED_TRACE(c);
        const std::string want = c.substr(c.find(':') + 1);
        Bytes in = fromHex(c.substr(0, c.find(':')));
        DerParser p(DerInput(in.data(), in.size()));
        uint64_t v = 0;
        bool b = false, ok = false;
        unsigned unused = 0;
        DerInput d;
        if (in[0] == der::kInteger) ok = p.readUint64(&v);
        if (in[0] == der::kBoolean) ok = p.readBool(&b), v = b;
        if (in[0] == der::kBitString) ok = p.readBitString(&d, &unused), v = unused;
        if (in[0] == der::kOid) ok = p.readOid(&d);
        ASSERT_EQ(want != "-", ok) << p.lastError();
        EXPECT_EQ(ok ? want : "0", std::to_string(v));
        EXPECT_EQ(ok ? in.size() : 0u, p.position());
    }
}

// Header errors are checked through the decoders built on the parser.
TEST(DerParser, OptionalPeekAndHighTags) {
    Bytes in = fromHex("a003020102 020105 1f3000");  // [UNIVERSAL 48] last
    DerParser p(DerInput(in.data(), in.size()));
    DerInput c;
    bool present = true;
    ASSERT_TRUE(p.readOptional(der::contextConstructed(1), &c, &present));
    EXPECT_FALSE(present);
    ASSERT_TRUE(p.readOptional(der::contextConstructed(0), &c, &present));
    EXPECT_TRUE(present && c.size() == 3);
    EXPECT_TRUE(p.nextIs(der::kInteger) && p.skip());
    EXPECT_FALSE(p.nextIs(der::kSequence)) << "its number is the SEQUENCE tag byte";
    unsigned tag = 0;
    EXPECT_TRUE(p.skip() && !p.peekTag(&tag));
}

// The writers the OCSP request encoder uses are checked byte for byte against
// openssl's own request (tests/support/net); these are the rest.
TEST(DerBuild, BooleansAsDerWritesThemAndFailuresLeaveTheBuffer) {
    DataBuffer out;
    ASSERT_TRUE(derbuild::boolean(out, true) && derbuild::boolean(out, false));
    EXPECT_EQ("0101ff010100", toHex(out));
    EXPECT_FALSE(derbuild::oid(out, "1.x"));
    EXPECT_EQ(6u, out.getSize());
}

// The content octets of each known OID are written by hand beside the dotted
// text; a slip in either would make a lookup miss silently.
TEST(OidTable, OctetsMatchTheDottedTextAndNothingRepeats) {
    std::set<std::string> dotted, names;
    for (const KnownOid* k : oids::kAll) {
        SCOPED_TRACE(k->name);
        unsigned char buf[32];
        size_t n = 0;
        ASSERT_TRUE(der::textToOid(k->dotted, buf, sizeof buf, &n));
        EXPECT_TRUE(k->bytes().equals(buf, n) && k == oids::find(DerInput(buf, n)));
        EXPECT_TRUE(dotted.insert(k->dotted).second && names.insert(k->name).second);
    }
}

}  // namespace
