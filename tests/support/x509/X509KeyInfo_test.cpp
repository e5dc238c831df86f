// Key type and size read from SubjectPublicKeyInfo shapes built by hand (the
// usual shapes are compared with the key container on every fixture).
#include "support/x509/X509KeyInfo.h"

#include <gtest/gtest.h>

#include "X509TestUtil.h"

using namespace x509test;

TEST(X509KeyInfo, SizesFromSpkiShapes) {
    auto spki = [](const char* alg, const Bytes& params, const Bytes& key) {
        return tlv(0x30, cat({tlv(0x30, cat({oid(alg), params})), tlv(0x03, cat({{0x00}, key}))}));
    };
    struct Case {
        const char* name;
        Bytes spki;
        int type;
        unsigned bits;
    } cases[] = {
        {"rsa 9-bit modulus with sign byte",
         spki("1.2.840.113549.1.1.1", tlv(0x05, {}),
              tlv(0x30, cat({tlv(0x02, {0x00, 0x01, 0xff}), tlv(0x02, {0x03})}))),
         1, 9},
        {"ec explicit curve, 65-byte point",
         spki("1.2.840.10045.2.1", tlv(0x30, {}), cat({{0x04}, Bytes(64, 0x11)})), 3, 256},
        {"ec compressed point on a known curve",
         spki("1.2.840.10045.2.1", oid("1.3.132.0.34"), cat({{0x02}, Bytes(48, 0x11)})), 3, 384},
        {"dsa without parameters", spki("1.2.840.10040.4.1", {}, {0x02, 0x01, 0x05}), 2, 0},
        {"unknown algorithm", spki("1.3.101.110", {}, {0x01}), 0, 0},
    };
    int type = -1;
    unsigned bits = 99;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(X509KeyInfo::typeAndBits(in(c.spki), &type, &bits));
        EXPECT_EQ(c.type, type);
        EXPECT_EQ(c.bits, bits);
    }
    EXPECT_FALSE(X509KeyInfo::typeAndBits(in(tlv(0x30, tlv(0x03, {0x00}))), &type, &bits));
    EXPECT_TRUE(type == 0 && bits == 0);  // cleared on failure
}
