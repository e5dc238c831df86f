// Every query on an object without certificate and on stale ones (as a
// destroyed object looks): the answer is false, 0 or null, nothing is logged,
// and the output is cleared exactly as the query's rule says.
#include <optional>

#include "cert/query/QueryTestUtil.h"
#include "support/time/OrvaneSysTime.h"

namespace {

// The three kinds of output a query writes, pre-filled so that any change shows.
struct Outs {
    DataBuffer d = qtest::old();
    StringBuffer s{"old"};
    XString x{"old"};
    bool touched() const { return d.getSize() != 3 || !s.equals("old") || !x.equalsUtf8("old"); }
    bool emptied() const { return d.isEmpty() || s.isEmpty() || x.isEmpty(); }
};

// Never: appends or has no output. Locked: cleared once the sentinel check has
// passed. First: cleared before any check, stale objects included.
enum Clears { Never, Locked, First };

struct Case {
    Clears clears;
    const char* name;
    long (*op)(CertCore*, Outs&, LogBase&);
};

XString g_sha256("sha256"), g_hex("hex");

// One case: the rule and the call on c, with o the outputs and l the log.
#define Q(clears, call)                                                                            \
    {                                                                                              \
        clears, #call, [](CertCore* c, Outs& o, LogBase& l) -> long { return (void)o, (c->call); } \
    }

const Case kCases[] = {
    // Identity
    Q(Locked, getSerialNumber(o.x, l)), Q(Locked, getSerialDecimal(o.x, l)),
    Q(Locked, getSha1ThumbprintX(o.x, l)), Q(Locked, toXml(o.x, l)),
    Q(Locked, getSha1Thumbprint(o.d, l)), Q(Locked, getCertSignature(o.d, l)),
    Q(Locked, getPublicKeyAsDER(o.d, l)), Q(Locked, getPublicKeyForOCSP(o.d, l)),
    Q(Locked, getPublicKeyAsDER_2(true, o.d, l)), Q(Locked, getOrvaneKeyId64(o.s, l)),
    Q(Never, getSpkiFingerprint(g_sha256, g_hex, o.x, l)), Q(Never, isCertExpired(l)),
    Q(Never, verifyCertSignature(nullptr, l)), Q(First, getPartDer(0, o.d, l)),
    Q(First, getPartDer(2, o.d, l)), Q(First, getPartDer(3, o.d, l)),
    // Names
    Q(Locked, getSubjectPart("CN", o.x, l)), Q(Locked, getIssuerPart("bogus", o.x, l)),
    Q(Locked, getSubjectDN(o.x, l)), Q(Locked, getIssuerDN(o.x, l)),
    Q(Locked, getSubjectDN_noTags(o.x, l)), Q(Locked, getIssuerDN_noTags(o.x, l)),
    Q(Locked, getDN_ordered(true, true, true, 1, o.x, l)), Q(Locked, getIssuerSerial(o.x, l)),
    Q(Locked, getRfc822Name(o.x, l)), Q(Locked, getEmailAddress(o.x, l)),
    Q(Never, getDnJson(true, o.s, l)), Q(Never, getSubjectDnAsn(l) != nullptr),
    Q(Never, getIssuerDnAsn(l) != nullptr), Q(Never, isIssuerSelf(l)), Q(Never, is_country_eu(l)),
    // Extensions
    Q(First, getExtendedKeyUsage(o.s, l)), Q(First, getExtensionDer("2.5.29.37", o.d, l)),
    Q(First, getExtensionBinaryData("2.5.29.37", o.d, l)),
    Q(Locked, getExtensionXml("2.5.29.37", o.s, l)), Q(Locked, getSubjectKeyIdentifier(o.s, l)),
    Q(Locked, getSubjectAlternativeNameXml(o.x, l)),
    Q(Locked, getAuthorityKeyIdentifier(o.d, &o.x, l)),
    Q(Never, getExtensionText("2.5.29.37", o.s, l)), Q(Never, getIntendedKeyUsage(l)),
    Q(Never, getVersion(l)), Q(Never, forSecureEmail(l)), Q(Never, forServerAuthentication(l)),
    Q(Never, forClientAuthentication(l)), Q(Never, forCodeSigning(l)),
    Q(Never, forTimeStamping(l))};

}  // namespace

TEST(CertQueries, EmptyAndStaleObjects) {
    // Between them the three loaded ones answer every query when valid: a
    // missing sentinel check shows as an answer, a log line or a change.
    qtest::CertRef empty(CertCore::createNewCert()), rsa(qtest::load("rsa.pem")),
        dsa(qtest::load("dsa.pem")), self(qtest::load("expired.pem"));
    for (CertCore* cert : {empty.get(), rsa.get(), dsa.get(), self.get()}) {
        bool stale = cert != empty.get();
        SCOPED_TRACE(stale ? "stale" : "without certificate");
        std::optional<qtest::Stale> guard;
        if (stale) guard.emplace(cert);
        for (const Case& c : kCases) {
            LogTree log;
            Outs o;
            EXPECT_EQ(c.op(cert, o, log), 0) << c.name;
            bool cleared = c.clears == First || (c.clears == Locked && !stale);
            EXPECT_EQ(o.touched(), cleared) << c.name;
            EXPECT_EQ(o.emptied(), cleared) << c.name;
            EXPECT_EQ(log.numEntries(), 0) << c.name << "\n" << log.text();
        }
        // The date records are left alone; the text forms still write a date,
        // that of the default record.
        LogTree log;
        OrvaneSysTime t;
        t.m_year = 1999;
        StringBuffer from("old"), to("old"), keyType;
        cert->getValidFrom(t, log);
        cert->getValidTo(t, log);
        cert->getValidFromSb(from, log);
        cert->getValidToSb(to, log);
        EXPECT_EQ(t.m_year, 1999);
        EXPECT_STREQ(from.getString(), "1970-01-01T00:00:00Z");
        EXPECT_STREQ(to.getString(), "1970-01-01T00:00:00Z");
        EXPECT_EQ(log.numEntries(), 0);

        // The public key queries say why they have nothing.
        int bits = -1;
        EXPECT_EQ(cert->getCertKeyType(bits, log), 0);
        EXPECT_EQ(bits, 0);
        EXPECT_TRUE(log.hasContext("getCertPublicKey"));
        EXPECT_EQ(ovtest::errors(log), "Unable to get certificate's public key DER.");
        EXPECT_TRUE(cert->appendCertKeyType(keyType, log));
        EXPECT_STREQ(keyType.getString(), "unknown");
    }
}
