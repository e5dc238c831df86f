// CRL and OCSP pointers read from certificates that the openssl command line
// makes with hand-built extension values (the odd shapes no CA tool writes).
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cert/CertTestUtil.h"
#include "support/asn1/OidTable.h"
#include "support/base/StringBuffer.h"
#include "support/x509/X509TestUtil.h"

using namespace x509test;
using certtest::CertRef;

namespace {

const char* const kCrlDp = oids::kCrlDistributionPoints.dotted;
const char* const kAia = oids::kAuthorityInfoAccess.dotted;

std::string hex(const Bytes& b) {
    static const char* d = "0123456789ABCDEF";
    std::string s;
    for (unsigned char c : b) s += {d[c >> 4], d[c & 15]};
    return s;
}

// A self-signed certificate carrying the extension value (none when empty).
CertCore* certWith(const char* extOid, const Bytes& value) {
    static ovtest::TempDir dir;
    std::string ext = value.empty() ? "" : std::string(" -addext ") + extOid + "=DER:" + hex(value);
    std::string cmd = "cd " + ovtest::shq(dir.path()) +
                      " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes "
                      "-keyout k.pem -subj /CN=t -days 30 -out c.pem" +
                      ext + " 2>&1";
    EXPECT_EQ(0, ovtest::run(cmd)) << cmd;
    LogNull log;
    return CertCore::createFromFile2(dir.file("c.pem").c_str(), nullptr, log);
}

Bytes uri(const std::string& s) {
    return tlv(0x86, str(s));
}
// CRLDistributionPoints with one DistributionPoint per list of GeneralNames.
Bytes dps(std::initializer_list<Bytes> fullNames) {
    Bytes all;
    for (const Bytes& names : fullNames) all = cat({all, tlv(0x30, tlv(0xa0, tlv(0xa0, names)))});
    return tlv(0x30, all);
}
Bytes access(const char* method, const Bytes& location) {
    return tlv(0x30, cat({oid(method), location}));
}
const char* const kOcsp = oids::kAdOcsp.dotted;
const char* const kCaIssuers = oids::kAdCaIssuers.dotted;

// "url" or "(false)", then the log's info and error lines that matter here.
std::string answer(bool ok, const StringBuffer& url, const LogTree& log) {
    std::string s = ok ? url.getString() : (url.isEmpty() ? "(false)" : "(false, url set)");
    for (const char* line :
         {"Checking next sibling for an HTTP URL...", "No CRL Distribution Points extension.",
          "No AuthorityAccessInfo (OCSP) extension."})
        if (log.hasInfo(line)) s += std::string(" | ") + line;
    if (!ovtest::errors(log).empty()) s += " | error: " + ovtest::errors(log);
    return s;
}

}  // namespace

// CRL: the first point's first HTTP URI, else its last. OCSP: the first
// id-ad-ocsp location, as written.
TEST(CertRevocationPointers, CrlAndOcspPointersAsRead) {
    const std::string sibling = " | Checking next sibling for an HTTP URL...";
    using Cases = std::vector<std::pair<Bytes, std::string>>;
    const Cases crl = {
        {dps({cat({uri("ldap://d/c"), uri("http://h/c.crl")})}), "http://h/c.crl" + sibling},
        {dps({uri("ldap://d/c")}), "ldap://d/c"},
        {dps({cat({uri("HtTpS://h/c"), uri("http://x/")})}), "HtTpS://h/c"},  // scheme case
        {dps({cat({uri("ldap://a"), uri("ldap://b")}), uri("http://second/c.crl")}),
         "ldap://b" + sibling},  // the second point never read
        {dps({cat({tlv(0x82, str("dns")), uri("http://h/")})}), "http://h/" + sibling},
        {dps({cat({uri("ldap://a"), uri("")})}), "(false)" + sibling},
        {tlv(0x30, tlv(0x30, tlv(0xa0, tlv(0xa1, atv("2.5.4.3", tlv(0x0c, str("c"))))))),
         "(false)"},                                                     // a relative name
        {tlv(0x30, tlv(0x30, tlv(0xa2, uri("http://i/")))), "(false)"},  // crl issuer only
        {{}, "(false) | No CRL Distribution Points extension."},
    };
    const Cases ocsp = {
        {tlv(0x30, cat({access(kCaIssuers, uri("http://ca/ca.crt")),
                        access(kOcsp, uri("http://o/")), access(kOcsp, uri("http://second/"))})),
         "http://o/"},
        {tlv(0x30, access(kOcsp, uri("ldap://o"))), "ldap://o"},
        {tlv(0x30, access(kOcsp, tlv(0x86, cat({str("http://a"), {0}, str("b")})))), "http://a"},
        {tlv(0x30, access(kOcsp, uri(""))), "(false)"},
        {tlv(0x30, access(kCaIssuers, uri("http://ca/"))), "(false) | error: No OCSP OID."},
        {{}, "(false) | No AuthorityAccessInfo (OCSP) extension."},
    };
    for (auto [get, extOid, cases] : {std::make_tuple(&CertCore::getCrlDistPoint, kCrlDp, &crl),
                                      std::make_tuple(&CertCore::getOcspUrl, kAia, &ocsp)}) {
        for (const auto& c : *cases) {
            CertRef cert(certWith(extOid, c.first));
            ASSERT_TRUE(cert);
            StringBuffer url("stale");
            LogTree log;
            EXPECT_EQ(c.second, answer(((*cert).*get)(url, log), url, log));
            std::string xml;
            EXPECT_EQ(log.hasError("No OCSP OID."), log.findData("AuthorityAccessInfo", xml));
        }
    }
}

TEST(CertRevocationPointers, KnownNonRespondingResponders) {
    CertCore cert;
    const std::pair<const char*, bool> cases[] = {
        {"http://ocsp.int-x3.letsencrypt.org", true},
        {"http://r3.o.lencr.org", true},
        {"http://R3.o.lencr.org", false},   // exact, case included
        {"http://r3.o.lencr.org/", false},  // no trailing slash tolerated
    };
    for (const auto& c : cases) {
        StringBuffer url(c.first);
        LogTree log;
        EXPECT_EQ(c.second, cert.isNonRespondingOcspUrl(url, log)) << c.first;
        EXPECT_EQ(c.second,
                  log.hasError("This OCSP URL is known to be non-responding and/or unreachable."));
    }
}
