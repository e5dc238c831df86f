#include "support/asn1/DerReader.h"

#include <gtest/gtest.h>

#include "support/asn1/Asn1TestUtil.h"

using namespace asn1test;

namespace {

// "input=result": the input's tag picks the reader; the value it read, or
// "refused" (and then the cursor stays).
TEST(DerParser, TypedReaders) {
    for (std::string c :
         {"02020080=128", "020900ffffffffffffffff=18446744073709551615",
          "020901ffffffffffffffff=refused", "020180=refused", "0200=refused", "0101ff=1",
          "01020000=refused", "030205a0=5", "030101=refused", "03020800=refused", "0603551d0f=0",
          "0603551d8f=refused", "0603558001=refused", "010101=refused", "0202007f=refused",
          "0202ff80=refused", "03020781=refused", "03020780=7"}) {
        Bytes in = fromHex(c.substr(0, c.find('=')));
        DerParser p(DerInput(in.data(), in.size()));
        uint64_t v = 0;
        bool b = false, ok = false;
        unsigned unused = 0;
        DerInput d;
        if (in[0] == der::kInteger) ok = p.readUint64(&v);
        if (in[0] == der::kBoolean) ok = p.readBool(&b), v = b;
        if (in[0] == der::kBitString) ok = p.readBitString(&d, &unused), v = unused;
        if (in[0] == der::kOid) ok = p.readOid(&d);
        EXPECT_EQ(c, c.substr(0, c.find('=') + 1) + (ok ? std::to_string(v) : "refused"));
        EXPECT_EQ(ok ? in.size() : 0u, p.position()) << c;
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

}  // namespace
