#include "support/asn1/DerReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/asn1/Asn1TestUtil.h"
#include "support_common/TestUtil.h"

using asn1test::fromHex;

namespace {

struct HeaderCase {
    const char* name;
    const char* hex;
    bool allowBer;
    bool ok;
    const char* error;     // expected lastError() when !ok
    size_t contentLength;  // when ok
    size_t wholeLength;    // when ok
};

TEST(DerParser, HeadersTable) {
    const HeaderCase cases[] = {
        {"short length", "3003020105", false, true, nullptr, 3, 5},
        {"empty input", "", false, false, "ASN.1 input ends where an item was expected", 0, 0},
        {"length missing", "30", false, false, "ASN.1 length is missing", 0, 0},
        {"long length truncated", "3081", false, false, "ASN.1 length is truncated", 0, 0},
        {"length exceeds input", "3005020105", false, false, "ASN.1 length exceeds input", 0, 0},
        {"long form for a short length, DER", "308103020105", false, false,
         "ASN.1 length is not in its shortest form", 0, 0},
        {"long form for a short length, BER", "308103020105", true, true, nullptr, 3, 6},
        {"padded long length, DER", "30820003020105", false, false,
         "ASN.1 length is not in its shortest form", 0, 0},
        {"padded long length, BER", "30820003020105", true, true, nullptr, 3, 7},
        {"five length bytes", "30850000000003", true, false, "ASN.1 length is too large", 0, 0},
        {"indefinite in DER", "30800201050000", false, false,
         "ASN.1 indefinite length is not allowed in DER", 0, 0},
        {"indefinite in BER", "30800201050000", true, true, nullptr, 3, 7},
        {"indefinite primitive", "04800000", true, false,
         "ASN.1 indefinite length on a primitive item", 0, 0},
        {"indefinite without end", "3080020105", true, false,
         "ASN.1 indefinite-length item has no end-of-contents", 0, 0},
        {"nested indefinite", "308030800201050000020106 0000", true, true, nullptr, 10, 14},
        {"indefinite child overruns", "30803006020105 0000", true, false,
         "ASN.1 length exceeds input", 0, 0},
        {"high tag truncated", "1f", false, false, "ASN.1 tag is truncated", 0, 0},
        {"high tag unfinished", "1f81", false, false, "ASN.1 tag is truncated", 0, 0},
        {"high tag leading zero", "1f800100", false, false,
         "ASN.1 tag number has a leading zero digit", 0, 0},
        {"high tag for a low number", "1f1e00", false, false,
         "ASN.1 tag number should use the short form", 0, 0},
        {"high tag too many digits", "1f8181810100", false, false, "ASN.1 tag number is too large",
         0, 0},
        {"high tag [128]", "9f810002abcd", false, true, nullptr, 2, 6},
    };
    for (const HeaderCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> in = fromHex(c.hex);
        DerParser p(DerInput(in.data(), in.size()), c.allowBer);
        DerElement e;
        bool ok = p.readAny(&e);
        ASSERT_EQ(c.ok, ok) << p.lastError();
        if (ok) {
            EXPECT_EQ(c.contentLength, e.contents.size());
            EXPECT_EQ(c.wholeLength, e.whole.size());
            EXPECT_EQ(c.wholeLength, p.position());
        } else {
            EXPECT_STREQ(c.error, p.lastError());
            EXPECT_EQ(0u, p.position()) << "a failed read must not move the cursor";
        }
    }
}

TEST(DerParser, HighTagsNeverAliasLowTags) {
    // [UNIVERSAL 48] primitive in high-tag form: its number equals the SEQUENCE
    // tag byte, yet it is not a SEQUENCE.
    std::vector<unsigned char> in = fromHex("1f3000");
    DerParser p(DerInput(in.data(), in.size()));
    DerParser inner;
    EXPECT_FALSE(p.readSequence(&inner));
    DerElement e;
    ASSERT_TRUE(p.readAny(&e));
    EXPECT_EQ(48u, e.tagNumber);
    EXPECT_EQ(0, e.tagClass);
    EXPECT_FALSE(e.constructed);
    EXPECT_NE(der::kSequence, e.tag);

    // [APPLICATION 300] constructed: class and form survive in the tag.
    in = fromHex("7f822c00");
    DerParser q(DerInput(in.data(), in.size()));
    ASSERT_TRUE(q.readAny(&e));
    EXPECT_EQ(300u, e.tagNumber);
    EXPECT_EQ(1, e.tagClass);
    EXPECT_TRUE(e.constructed);
}

TEST(DerParser, NestingCap) {
    struct Case {
        const char* name;
        int levels;
        bool ok;
    };
    const Case cases[] = {
        {"at the cap", der::kMaxDepth, true},
        {"one past the cap", der::kMaxDepth + 1, false},
        {"far past the cap", 5000, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> in = asn1test::nestedIndefinite(c.levels + 1);
        DerParser p(DerInput(in.data(), in.size()), true);
        DerElement e;
        EXPECT_EQ(c.ok, p.readAny(&e));
        if (!c.ok) {
            EXPECT_STREQ("ASN.1 nesting is too deep", p.lastError());
        }
    }
}

TEST(DerParser, TruncatedCertificateFailsAtEveryLength) {
    std::vector<unsigned char> cert = ovtest::readFileBytes(ovtest::dataPath("asn1/cert.der"));
    ASSERT_GT(cert.size(), 500u);
    for (bool ber : {false, true}) {
        for (size_t n = 0; n < cert.size(); ++n) {
            DerParser p(DerInput(cert.data(), n), ber);
            DerElement e;
            ASSERT_FALSE(p.readAny(&e)) << "prefix of " << n << " bytes";
            ASSERT_EQ(0u, p.position());
        }
        DerParser p(DerInput(cert.data(), cert.size()), ber);
        DerElement e;
        ASSERT_TRUE(p.readAny(&e));
        EXPECT_FALSE(p.hasMore());
    }
}

TEST(DerParser, TypedReaders) {
    struct Case {
        const char* name;
        const char* hex;
        int kind;  // 0 uint64, 1 bool, 2 bit string, 3 oid
        bool ok;
        uint64_t value;  // uint64 / bool / unused bits
    };
    const Case cases[] = {
        {"int zero", "020100", 0, true, 0},
        {"int with sign byte", "02020080", 0, true, 128},
        {"int max", "020900ffffffffffffffff", 0, true, UINT64_MAX},
        {"int too big", "020901ffffffffffffffff", 0, false, 0},
        {"int negative", "020180", 0, false, 0},
        {"int empty", "0200", 0, false, 0},
        {"int wrong tag", "0a0101", 0, false, 0},
        {"bool true", "0101ff", 1, true, 1},
        {"bool false", "010100", 1, true, 0},
        {"bool two bytes", "01020000", 1, false, 0},
        {"bits empty", "030100", 2, true, 0},
        {"bits five unused", "030205a0", 2, true, 5},
        {"bits unused without bytes", "030101", 2, false, 0},
        {"bits eight unused", "03020800", 2, false, 0},
        {"bits no count", "0300", 2, false, 0},
        {"oid ok", "0603551d0f", 3, true, 0},
        {"oid empty", "0600", 3, false, 0},
        {"oid unfinished arc", "0603551d8f", 3, false, 0},
        {"oid padded arc", "0603558001", 3, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<unsigned char> in = fromHex(c.hex);
        DerParser p(DerInput(in.data(), in.size()));
        bool ok = false;
        uint64_t got = 0;
        if (c.kind == 0) {
            ok = p.readUint64(&got);
        } else if (c.kind == 1) {
            bool b = false;
            ok = p.readBool(&b);
            got = b;
        } else if (c.kind == 2) {
            DerInput bits;
            unsigned unused = 0;
            ok = p.readBitString(&bits, &unused);
            got = unused;
        } else {
            DerInput oid;
            ok = p.readOid(&oid);
        }
        EXPECT_EQ(c.ok, ok);
        if (ok) {
            EXPECT_EQ(c.value, got);
            EXPECT_FALSE(p.hasMore());
        } else {
            EXPECT_EQ(0u, p.position());
        }
    }
}

TEST(DerParser, OptionalAndPeek) {
    std::vector<unsigned char> in = fromHex("a003020102 020105");
    DerParser p(DerInput(in.data(), in.size()));
    DerInput c;
    bool present = true;
    ASSERT_TRUE(p.readOptional(der::contextConstructed(1), &c, &present));
    EXPECT_FALSE(present);
    ASSERT_TRUE(p.readOptional(der::contextConstructed(0), &c, &present));
    EXPECT_TRUE(present);
    EXPECT_EQ(3u, c.size());
    EXPECT_TRUE(p.nextIs(der::kInteger));
    uint64_t v = 0;
    ASSERT_TRUE(p.readUint64(&v));
    EXPECT_EQ(5u, v);
    unsigned tag = 0;
    EXPECT_FALSE(p.peekTag(&tag));
    EXPECT_FALSE(p.hasMore());
}

TEST(DerOid, TextRoundTrips) {
    struct Case {
        const char* text;
        const char* hex;  // content octets
    };
    const Case cases[] = {
        {"2.5.29.15", "551d0f"},
        {"1.2.840.113549.1.1.11", "2a864886f70d01010b"},
        {"1.3.6.1.5.5.7.48.1", "2b06010505073001"},
        {"0.9.2342.19200300.100.1.1", "0992268993f22c640101"},
        {"2.999.1234567890123", "8837a3f78fec894b"},
        {"1.39.0", "4f00"},
        {"2.100", "8134"},
        {"0.0", "00"},
        {"1.2.18446744073709551615", "2a81ffffffffffffffff7f"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        unsigned char buf[64];
        size_t len = 0;
        ASSERT_TRUE(der::textToOid(c.text, buf, sizeof buf, &len));
        EXPECT_EQ(asn1test::toHex(buf, len), c.hex);
        char text[128];
        ASSERT_TRUE(der::oidToText(DerInput(buf, len), text, sizeof text));
        EXPECT_STREQ(c.text, text);
    }
}

TEST(DerOid, RejectsBadText) {
    const char* bad[] = {"",
                         "1",
                         "3.1",
                         "1.40",
                         "1..2",
                         "1.2.",
                         ".1.2",
                         "a.b",
                         "1.2.-3",
                         "1.2 ",
                         "1.18446744073709551616"};
    for (const char* t : bad) {
        SCOPED_TRACE(t);
        unsigned char buf[64];
        size_t len = 0;
        EXPECT_FALSE(der::textToOid(t, buf, sizeof buf, &len));
    }
    unsigned char buf[64];
    size_t len = 0;
    EXPECT_FALSE(der::textToOid(nullptr, buf, sizeof buf, &len));
    // 65 arcs are more than any OID in use.
    std::string many = "1.2";
    for (int i = 0; i < 63; ++i) many += ".1";
    EXPECT_FALSE(der::textToOid(many.c_str(), buf, sizeof buf, &len));
    // Output too small.
    EXPECT_FALSE(der::textToOid("1.2.840.113549", buf, 3, &len));
}

TEST(DerOid, RejectsBadEncodings) {
    const char* bad[] = {"", "551d8f", "55801d", "80", "ffffffffffffffffff7f"};
    for (const char* h : bad) {
        SCOPED_TRACE(h);
        std::vector<unsigned char> in = fromHex(h);
        char text[128];
        EXPECT_FALSE(der::oidToText(DerInput(in.data(), in.size()), text, sizeof text));
    }
    std::vector<unsigned char> ok = fromHex("2a864886f70d01010b");
    char small[8];
    EXPECT_FALSE(der::oidToText(DerInput(ok.data(), ok.size()), small, sizeof small));
}

TEST(DerHeader, EncodedLengthsReadBack) {
    const size_t lengths[] = {0, 1, 127, 128, 255, 256, 65535, 65536, 1u << 24};
    for (size_t len : lengths) {
        SCOPED_TRACE(len);
        unsigned char hdr[8];
        size_t h = der::encodeHeader(der::kOctetString, len, hdr);
        std::vector<unsigned char> in(hdr, hdr + h);
        in.resize(h + len, 0xab);
        DerParser p(DerInput(in.data(), in.size()));  // strict: the header must be minimal
        DerInput c;
        ASSERT_TRUE(p.read(der::kOctetString, &c)) << p.lastError();
        EXPECT_EQ(len, c.size());
        EXPECT_EQ(len < 128 ? 2u : 3u + (len > 255) + (len > 65535) + (len > 0xffffff), h);
    }
}

}  // namespace
