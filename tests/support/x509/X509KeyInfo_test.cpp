// Key type and size read from SubjectPublicKeyInfo shapes built by hand.
#include "support/x509/X509KeyInfo.h"

#include <gtest/gtest.h>

#include "X509Der.h"

using namespace x509test;

TEST(X509KeyInfo, SizesFromSpkiShapes) {
    struct Case {
        const char* name;
        Bytes spki;
        bool ok;
        int type;
        unsigned bits;
    } cases[] = {
        {"rsa 9-bit modulus with sign byte",
         tlv(0x30,
             cat({tlv(0x30, cat({oid("1.2.840.113549.1.1.1"), tlv(0x05, {})})),
                  tlv(0x03,
                      cat({{0x00},
                           tlv(0x30, cat({tlv(0x02, {0x00, 0x01, 0xff}), tlv(0x02, {0x03})}))}))})),
         true, 1, 9},
        {"rsa key not a sequence",
         tlv(0x30, cat({tlv(0x30, oid("1.2.840.113549.1.1.1")), tlv(0x03, {0x00, 0x05})})), false,
         0, 0},
        {"ec explicit curve, 65-byte point",
         tlv(0x30, cat({tlv(0x30, cat({oid("1.2.840.10045.2.1"), tlv(0x30, {})})),
                        tlv(0x03, cat({{0x00, 0x04}, Bytes(64, 0x11)}))})),
         true, 3, 256},
        {"dsa without parameters",
         tlv(0x30, cat({tlv(0x30, oid("1.2.840.10040.4.1")), tlv(0x03, {0x00, 0x02, 0x01, 0x05})})),
         true, 2, 0},
        {"unknown algorithm",
         tlv(0x30, cat({tlv(0x30, oid("1.3.101.110")), tlv(0x03, {0x00, 0x01})})), true, 0, 0},
        {"not an spki", tlv(0x30, tlv(0x03, {0x00})), false, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int type = -1;
        unsigned bits = 99;
        EXPECT_EQ(c.ok, X509KeyInfo::typeAndBits(in(c.spki), &type, &bits));
        if (c.ok) {
            EXPECT_EQ(c.type, type);
            EXPECT_EQ(c.bits, bits);
        }
    }
    EXPECT_EQ(0u, X509KeyInfo::bitLength(in({0x00, 0x00})));
    EXPECT_EQ(8u, X509KeyInfo::bitLength(in({0x00, 0x80})));
    EXPECT_EQ(15u, X509KeyInfo::bitLength(in({0x7f, 0xff})));
}
