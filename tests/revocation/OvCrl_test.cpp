// _ovCrl: the load at fixed positions, the grammar queries (lookup, count,
// nextUpdate, signature), the cache names, and damaged input. Fixtures are
// made by tests/data/crl/make.sh with `openssl ca -gencrl`.
#include "revocation/OvCrl.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "revocation/TbsCertList.h"
#include "support/base/LogBase.h"
#include "support/x509/OrvaneX509.h"
#include "support/x509/X509TestUtil.h"
#include "support_common/TestUtil.h"

namespace {

DataBuffer buf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}
DataBuffer fixture(const std::string& name) {
    return buf(ovtest::readFile(ovtest::dataPath("crl/" + name)));
}

std::string errorNum(const LogTree& log) {
    std::string v;
    return log.findData("errorNum", v) ? v : "-";
}

// Every field empty: what a failed load must leave.
void expectEmpty(const _ovCrl& crl) {
    EXPECT_FALSE(crl.isLoaded());
    EXPECT_EQ(std::to_string(crl.getDer().getSize()) + crl.getThisUpdate().getString() +
                  crl.getIssuerDn().getString() + std::to_string(crl.getCrlNumber()),
              "00");
}

// The load reads fixed positions (a CRL without entries keeps number 0, a v1
// CRL's thisUpdate comes from its nextUpdate and its issuer from a time);
// the grammar queries say what each CRL really holds. Shown as "errorNum
// crlNumber thisUpdate | issuer | nextUpdate entries".
TEST(OvCrl, LoadsAtFixedPositionsAndQueriesByGrammar) {
    const std::string ca = " | CN=Orvane Test CRL CA, O=Orvane, C=DE | 2049-02-03T04:05:06Z ";
    const std::pair<const char*, std::string> cases[] = {
        {"v2.crl", "- 5 2024-01-02T03:04:05Z" + ca + "3"},
        {"v2_empty.crl", "- 0 2024-01-02T03:04:05Z" + ca + "0"},
        {"v1.crl", "- 0 2030-06-07T08:09:10Z |  | 2030-06-07T08:09:10Z 1"},
    };
    for (const auto& c : cases) {
        _ovCrl crl;
        LogTree log;
        ASSERT_TRUE(crl.loadCrlDer(fixture(c.first), log)) << c.first;
        EXPECT_TRUE(log.hasContext("loadCrlDer"));
        StringBuffer next;
        uint64_t n = 99;
        EXPECT_TRUE(crl.getNextUpdate(next) && crl.getEntryCount(n));
        EXPECT_EQ(errorNum(log) + " " + std::to_string(crl.getCrlNumber()) + " " +
                      crl.getThisUpdate().getString() + " | " + crl.getIssuerDn().getString() +
                      " | " + next.getString() + " " + std::to_string(n),
                  c.second);
    }
}

// Shown as "listed date reason"; also with a line end after the CRL, as files
// saved by hand have.
TEST(OvCrl, SerialLookupGivesDateAndReason) {
    for (const DataBuffer& der :
         {fixture("v2.crl"), buf(ovtest::bytes(fixture("v2.crl")) + "\n")}) {
        _ovCrl crl;
        LogNull log;
        ASSERT_TRUE(crl.loadCrlDer(der, log));
        const std::pair<std::vector<unsigned char>, const char*> cases[] = {
            {{0x10, 0x01}, "1 2024-01-01T00:00:00Z 1"},  // keyCompromise
            {{0x10, 0x02}, "1 2024-01-01T00:01:00Z 4"},  // superseded
            {{0x10, 0x03}, "1 2024-01-01T00:02:00Z -1"},
            {{0x00, 0x00, 0x10, 0x01}, "1 2024-01-01T00:00:00Z 1"},  // leading zeros
            {{0x10}, "0  -1"},                                       // a prefix only
            {{0x10, 0x01, 0x00}, "0  -1"},
            {{0x10, 0x04}, "0  -1"},
        };
        for (const auto& c : cases) {
            CrlRevocation r;
            ASSERT_TRUE(crl.findSerial(c.first.data(), static_cast<unsigned>(c.first.size()), r));
            EXPECT_EQ(std::to_string(r.listed) + " " + r.revocationDate.getString() + " " +
                          std::to_string(r.reason),
                      c.second);
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
    const std::pair<DataBuffer, const char*> cases[] = {
        {DataBuffer(), "1"},
        {buf(std::string(twoParts.begin(), twoParts.end())), "3"},
        {buf("hello"), "1"},
        {fixture("gentime.crl"), "6"},  // a GeneralizedTime thisUpdate
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.second);
        LogTree log;
        EXPECT_FALSE(crl.loadCrlDer(c.first, log));
        EXPECT_EQ(errorNum(log), c.second);
        EXPECT_TRUE(log.hasContext("loadCrlDer") && log.hasError("Error decoding CRL ASN.1"));
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
    const std::string good = ovtest::bytes(fixture("v2.crl"));
    const std::set<std::string> known = {"0", "1",  "2",  "3",  "4",  "5",  "6",  "7",  "8",
                                         "9", "10", "11", "12", "14", "15", "16", "18", "19"};
    size_t failures = 0;
    auto load = [&](const std::string& der) {
        _ovCrl crl;
        LogTree log;
        if (!crl.loadCrlDer(buf(der), log)) {
            ++failures;
            EXPECT_EQ(known.count(errorNum(log)), 1u) << errorNum(log);
            return expectEmpty(crl);
        }
        CrlRevocation r;
        uint64_t n = 0;
        StringBuffer next;
        (void)crl.findSerial(reinterpret_cast<const unsigned char*>("\x10\x03"), 2, r);
        (void)crl.getEntryCount(n);
        (void)crl.getNextUpdate(next);
    };
    for (size_t n = 0; n < good.size(); ++n) load(good.substr(0, n));
    EXPECT_EQ(failures, good.size());  // every truncation fails: the outer length no longer fits
    std::vector<size_t> offsets;
    lengthOffsets(DerInput(reinterpret_cast<const unsigned char*>(good.data()), good.size()), 0,
                  offsets);
    ASSERT_GT(offsets.size(), 20u);
    for (size_t off : offsets) {
        SCOPED_TRACE(off);
        std::string b = good;
        // A long form's last octet, or the short form itself, one larger.
        size_t last = (b[off] & 0x80) ? off + (b[off] & 0x7f) : off;
        if (static_cast<unsigned char>(b[last]) == 0xff || b[off] == 0x7f)
            b[off] = '\x84';  // then far past the end
        else
            ++b[last];
        load(b);
    }
}

TEST(OvCrl, SignatureChecksKeyNameAndBytes) {
    OrvaneX509 ca, other;  // other: the same name, another key
    LogTree log;
    for (auto x : {std::make_pair(&ca, "ca.der"), std::make_pair(&other, "other.der")}) {
        DataBuffer der = fixture(x.second);
        ASSERT_TRUE(x.first->loadX509DerAlt(der.getData2(), der.getSize(), nullptr, log));
    }
    DataBuffer tampered = fixture("v2.crl");
    tampered.getDataRw()[tampered.getSize() / 2] ^= 1;  // inside the signed entries
    auto verifies = [&](const DataBuffer& der, const OrvaneX509& issuer) {
        _ovCrl crl;
        EXPECT_TRUE(crl.loadCrlDer(der, log)) << log.text();
        return crl.verifySignature(issuer, log);
    };
    EXPECT_TRUE(verifies(fixture("v2.crl"), ca)) << log.text();
    EXPECT_FALSE(verifies(fixture("v2.crl"), other));
    EXPECT_FALSE(verifies(tampered, ca));
}

TEST(OvCrl, CacheNamesFollowTheUrlRules) {
    const std::pair<const char*, const char*> cases[] = {
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
    for (const auto& c : cases) {
        StringBuffer name;
        EXPECT_TRUE(_ovCrl::getCacheFileName(c.first, name));
        EXPECT_STREQ(name.getString(), c.second) << c.first;
    }
}

}  // namespace
