// _ovCrl: the load at fixed positions, the grammar queries (lookup, count,
// nextUpdate, signature), the cache names, and damaged input. Fixtures are
// made by tests/data/crl/make.sh with `openssl ca -gencrl`.
#include "revocation/OvCrl.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "revocation/TbsCertList.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/x509/OrvaneX509.h"
#include "support/x509/X509TestUtil.h"
#include "support_common/TestUtil.h"

namespace {

DataBuffer fixture(const std::string& name) {
    std::vector<unsigned char> b = ovtest::readFileBytes(ovtest::dataPath("crl/" + name));
    DataBuffer db;
    db.append(b.data(), static_cast<unsigned>(b.size()));
    return db;
}

std::string errorNum(const LogTree& log) {
    std::string v;
    return log.findData("errorNum", v) ? v : "-";
}

// Every field empty: what a failed load must leave.
void expectEmpty(const _ovCrl& crl) {
    EXPECT_FALSE(crl.isLoaded());
    EXPECT_EQ(crl.getDer().getSize(), 0u);
    EXPECT_EQ(crl.getThisUpdate().getSize(), 0u);
    EXPECT_EQ(crl.getIssuerDn().getSize(), 0u);
    EXPECT_EQ(crl.getCrlNumber(), 0);
}

// The load reads fixed positions (a CRL without entries keeps number 0, a v1
// CRL's thisUpdate comes from its nextUpdate and its issuer from a time);
// the grammar queries say what each CRL really holds.
TEST(OvCrl, LoadsAtFixedPositionsAndQueriesByGrammar) {
    struct Case {
        const char* file;
        const char* errorNum;  // "-" when the load succeeds
        int crlNumber;
        const char* thisUpdate;
        const char* issuer;
        const char* nextUpdate;
        uint64_t entries;
    } cases[] = {
        {"v2.crl", "-", 5, "2024-01-02T03:04:05Z", "CN=Orvane Test CRL CA, O=Orvane, C=DE",
         "2049-02-03T04:05:06Z", 3},
        {"v2_empty.crl", "-", 0, "2024-01-02T03:04:05Z", "CN=Orvane Test CRL CA, O=Orvane, C=DE",
         "2049-02-03T04:05:06Z", 0},
        {"v1.crl", "-", 0, "2030-06-07T08:09:10Z", "", "2030-06-07T08:09:10Z", 1},
        {"gentime.crl", "6", 0, "", "", "", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        _ovCrl crl;
        LogTree log;
        bool loaded = crl.loadCrlDer(fixture(c.file), log);
        EXPECT_EQ(errorNum(log), c.errorNum);
        EXPECT_TRUE(log.hasContext("loadCrlDer"));
        if (!loaded) {
            EXPECT_TRUE(log.hasError("Error decoding CRL ASN.1"));
            expectEmpty(crl);
            continue;
        }
        EXPECT_EQ(crl.getCrlNumber(), c.crlNumber);
        EXPECT_STREQ(crl.getThisUpdate().getString(), c.thisUpdate);
        EXPECT_STREQ(crl.getIssuerDn().getString(), c.issuer);
        StringBuffer next;
        EXPECT_TRUE(crl.getNextUpdate(next));
        EXPECT_STREQ(next.getString(), c.nextUpdate);
        uint64_t n = 99;
        EXPECT_TRUE(crl.getEntryCount(n));
        EXPECT_EQ(n, c.entries);
    }
}

TEST(OvCrl, SerialLookupGivesDateAndReason) {
    // Also with a line end after the CRL, as files saved by hand have.
    DataBuffer withNewline = fixture("v2.crl");
    withNewline.append("\n", 1);
    for (const DataBuffer& der : {fixture("v2.crl"), withNewline}) {
        _ovCrl crl;
        LogNull log;
        ASSERT_TRUE(crl.loadCrlDer(der, log));
        struct Case {
            std::vector<unsigned char> serial;
            bool listed;
            const char* date;
            int reason;
        } cases[] = {
            {{0x10, 0x01}, true, "2024-01-01T00:00:00Z", 1},  // keyCompromise
            {{0x10, 0x02}, true, "2024-01-01T00:01:00Z", 4},  // superseded
            {{0x10, 0x03}, true, "2024-01-01T00:02:00Z", -1},
            {{0x00, 0x00, 0x10, 0x01}, true, "2024-01-01T00:00:00Z", 1},  // leading zeros
            {{0x10}, false, "", -1},                                      // a prefix only
            {{0x10, 0x01, 0x00}, false, "", -1},
            {{0x10, 0x04}, false, "", -1},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(static_cast<int>(&c - cases));
            CrlRevocation r;
            ASSERT_TRUE(crl.findSerial(c.serial.data(), static_cast<unsigned>(c.serial.size()), r));
            EXPECT_EQ(r.listed, c.listed);
            EXPECT_STREQ(r.revocationDate.getString(), c.date);
            EXPECT_EQ(r.reason, c.reason);
        }
    }
}

// Loading a good CRL, then a bad one, leaves nothing of the first; a good
// one loads again afterwards.
TEST(OvCrl, FailedLoadEmptiesTheObject) {
    _ovCrl crl;
    LogNull quiet;
    ASSERT_TRUE(crl.loadCrlDer(fixture("v2.crl"), quiet));
    const x509test::Bytes twoParts =
        x509test::tlv(0x30, x509test::cat({x509test::tlv(0x02, {1}), x509test::tlv(0x02, {2})}));
    struct Case {
        const char* name;
        DataBuffer der;
        const char* errorNum;
    } cases[] = {
        {"empty", DataBuffer(), "1"},
        {"two parts", DataBuffer(), "3"},
        {"not DER", DataBuffer(), "1"},
    };
    cases[1].der.append(twoParts.data(), static_cast<unsigned>(twoParts.size()));
    cases[2].der.append("hello", 5);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        EXPECT_FALSE(crl.loadCrlDer(c.der, log));
        EXPECT_EQ(errorNum(log), c.errorNum);
        expectEmpty(crl);
        CrlRevocation r;
        EXPECT_FALSE(crl.findSerial(twoParts.data(), 2, r));
        ASSERT_TRUE(crl.loadCrlDer(fixture("v2.crl"), quiet));
    }
    EXPECT_TRUE(crl.loadCrlDer(crl.getDer(), quiet));  // its own bytes, again
    EXPECT_EQ(crl.getCrlNumber(), 5);
}

// Offsets of every length octet in the DER, constructed items walked.
void lengthOffsets(DerInput in, size_t base, std::vector<size_t>& out, int depth = 0) {
    DerParser p(in);
    while (p.hasMore()) {
        size_t at = p.position();
        DerElement e;
        if (!p.readAny(&e)) return;
        out.push_back(base + at + 1);
        if (e.constructed && depth < 8)
            lengthOffsets(e.contents, base + static_cast<size_t>(e.contents.data() - in.data()),
                          out, depth + 1);
    }
}

// Every truncation and every inflated length: either a clean failure with
// one of the load's error numbers and an empty object, or a load whose
// queries answer without reading past the bytes.
TEST(OvCrl, DamagedInputFailsCleanly) {
    DataBuffer good = fixture("v2.crl");
    std::vector<DataBuffer> damaged;
    for (unsigned n = 0; n < good.getSize(); ++n) {
        damaged.emplace_back();
        damaged.back().append(good.getData2(), n);
    }
    std::vector<size_t> offsets;
    lengthOffsets(DerInput(good.getData2(), good.getSize()), 0, offsets);
    ASSERT_GT(offsets.size(), 20u);
    for (size_t off : offsets) {
        damaged.push_back(good);
        unsigned char* b = damaged.back().getDataRw();
        // A long form's last octet, or the short form itself, one larger.
        size_t last = (b[off] & 0x80) ? off + (b[off] & 0x7f) : off;
        if (b[last] == 0xff || b[off] == 0x7f)
            b[off] = 0x84;  // then far past the end
        else
            ++b[last];
    }
    const std::set<std::string> known = {"0", "1",  "2",  "3",  "4",  "5",  "6",  "7",  "8",
                                         "9", "10", "11", "12", "14", "15", "16", "18", "19"};
    int failures = 0;
    for (size_t i = 0; i < damaged.size(); ++i) {
        SCOPED_TRACE(i);
        _ovCrl crl;
        LogTree log;
        if (!crl.loadCrlDer(damaged[i], log)) {
            ++failures;
            EXPECT_EQ(known.count(errorNum(log)), 1u) << errorNum(log);
            expectEmpty(crl);
            continue;
        }
        CrlRevocation r;
        uint64_t n = 0;
        StringBuffer next;
        const unsigned char serial[] = {0x10, 0x03};
        (void)crl.findSerial(serial, 2, r);
        (void)crl.getEntryCount(n);
        (void)crl.getNextUpdate(next);
    }
    // Every truncation fails (the outer length no longer fits).
    EXPECT_GE(failures, static_cast<int>(good.getSize()));
}

TEST(OvCrl, SignatureChecksKeyNameAndBytes) {
    auto issuer = [](const char* file) {
        auto x = std::make_unique<OrvaneX509>();
        LogNull log;
        DataBuffer der = fixture(file);
        EXPECT_TRUE(x->loadX509DerAlt(der.getData2(), der.getSize(), nullptr, log));
        return x;
    };
    auto ca = issuer("ca.der");
    auto other = issuer("other.der");  // the same name, another key
    DataBuffer tampered = fixture("v2.crl");
    tampered.getDataRw()[tampered.getSize() / 2] ^= 1;  // inside the signed entries

    struct Case {
        const char* name;
        DataBuffer der;
        const OrvaneX509* issuer;
        bool valid;
    } cases[] = {
        {"v2 by its CA", fixture("v2.crl"), ca.get(), true},
        {"another key", fixture("v2.crl"), other.get(), false},
        {"a changed byte", tampered, ca.get(), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        _ovCrl crl;
        LogTree log;
        ASSERT_TRUE(crl.loadCrlDer(c.der, log)) << log.text();
        EXPECT_EQ(crl.verifySignature(*c.issuer, log), c.valid) << log.text();
    }
}

TEST(OvCrl, CacheNamesFollowTheUrlRules) {
    struct Case {
        const char* url;
        const char* name;
    } cases[] = {
        {"HTTP://Host/Path/Root.CRL", "host_path_root.crl"},
        {"http://host/list.crl?x=1", "host_list_x=1.crl"},
        {"https://Host/A/B", "host_a_b.crl"},
        {"http://host/x", "host_x.crl"},
        {"http://host/x.crl", "host_x.crl"},
        {"http://a.crl.host/x", "a.host_x.crl"},              // the last ".crl", wherever
        {"http://a.crl.host/x.crl", "a.crl.host_x.crl"},      // only the last one
        {"http://h/a\\b&c=%20#f g", "h_a\\b&c=%20#f g.crl"},  // kept as they are
        {"http://h/\"|*<>:", "h_______.crl"},
        {"ftp://h/x", "ftp___h_x.crl"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        StringBuffer name;
        EXPECT_TRUE(_ovCrl::getCacheFileName(c.url, name));
        EXPECT_STREQ(name.getString(), c.name);
    }
}

}  // namespace
