#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>

#include "cert/query/QueryTestUtil.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"

using certtest::CertRef;

namespace {

std::string pythonDecimal(const std::string& hex) {
    return qtest::sh("python3 -c 'print(int(\"" + hex + "\", 16))'");
}

TEST(CertIdentity, SerialIsTheIntegersOctets) {
    struct Case {
        const char* file;
        const char* hex;
        const char* dec;
    };
    const Case cases[] = {
        {"rsa.pem", "0080112233445566778899AABBCCDDEEFF00112233", nullptr},
        {"ec256.pem", "00FF", "255"},
        {"ed25519.pem", "0100", "256"},
        {"dsa.pem", "80", "128"},                // -128: read unsigned
        {"country-space.pem", "FF01", "65281"},  // -255
        {"ed448.pem", "00", "0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        std::string der = qtest::opensslDer(c.file);
        std::string octets = qtest::slice(der, qtest::tbsFields(c.file).at(0), false);
        std::string want =
            qtest::hexOf(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
        ASSERT_EQ(want, c.hex);

        XString hex("stale");
        EXPECT_TRUE(cert->getSerialNumber(hex, log));
        EXPECT_EQ(hex.getUtf8(), want);
        XString dec("stale");
        EXPECT_TRUE(cert->getSerialDecimal(dec, log));
        EXPECT_EQ(dec.getUtf8(), c.dec ? std::string(c.dec) : pythonDecimal(want));
    }
}

// Serials of every length up to far past the 20 octets certificates should
// keep to, with the top bit both set and clear, issued by openssl here.
TEST(CertIdentity, SerialDecimalOfAnyLength) {
    ovtest::TempDir dir;
    std::mt19937 rng(20240229);
    std::vector<std::string> serials;
    for (int len : {1, 2, 7, 8, 9, 16, 19, 20, 21, 33, 64, 127}) {
        for (bool high : {false, true}) {
            std::string hex;
            for (int i = 0; i < len; ++i) {
                unsigned char b = static_cast<unsigned char>(rng());
                if (i == 0) b = high ? (b | 0x80) : ((b & 0x7F) | 0x01);
                hex += qtest::hexOf(&b, 1);
            }
            serials.push_back(hex);
        }
    }
    // One shell and one python run for all of them: both start slowly.
    std::string script = "set -e; cd " + ovtest::shq(dir.path()) +
                         "; openssl genpkey -algorithm ED25519 -out k.pem"
                         "; openssl req -new -key k.pem -subj /CN=serial -out r.csr";
    std::string py = "import sys\nfor h in sys.argv[1:]: print(int(h, 16))";
    std::string args;
    for (size_t i = 0; i < serials.size(); ++i) {
        script += "; openssl x509 -req -in r.csr -signkey k.pem -set_serial 0x" + serials[i] +
                  " -out c" + std::to_string(i) + ".pem 2>/dev/null";
        args += " " + serials[i];
    }
    qtest::sh(script);
    std::string decimals = qtest::sh("python3 -c " + ovtest::shq(py) + args) + "\n";

    size_t pos = 0;
    for (size_t i = 0; i < serials.size(); ++i) {
        const std::string& hex = serials[i];
        SCOPED_TRACE(hex);
        size_t eol = decimals.find('\n', pos);
        ASSERT_NE(eol, std::string::npos);
        std::string want = decimals.substr(pos, eol - pos);
        pos = eol + 1;
        LogTree log;
        std::string pem = ovtest::readFile(dir.file("c" + std::to_string(i) + ".pem"));
        CertRef cert(CertCore::createFromBinary2(pem.data(), static_cast<unsigned>(pem.size()),
                                                 nullptr, log));
        ASSERT_TRUE(cert) << log.text();
        XString serial;
        ASSERT_TRUE(cert->getSerialNumber(serial, log));
        // A set top bit needs a 00 in front to stay positive.
        bool high = (std::stoi(hex.substr(0, 1), nullptr, 16) & 8) != 0;
        EXPECT_EQ(serial.getUtf8(), (high ? "00" : "") + hex);
        XString dec;
        EXPECT_TRUE(cert->getSerialDecimal(dec, log));
        EXPECT_EQ(dec.getUtf8(), want);
    }
}

TEST(CertIdentity, ValidityMatchesOpenssl) {
    // rsa.pem ends after 2049 (GeneralizedTime); country-space.pem is from 2001.
    for (const char* file : {"rsa.pem", "ec256.pem", "country-space.pem"}) {
        SCOPED_TRACE(file);
        LogTree log;
        CertRef cert(qtest::load(file, log));
        ASSERT_TRUE(cert);
        struct Side {
            const char* opt;
            void (CertCore::*sb)(StringBuffer&, LogBase&);
            void (CertCore::*rec)(OrvaneSysTime&, LogBase&);
        };
        const Side sides[] = {{"-startdate", &CertCore::getValidFromSb, &CertCore::getValidFrom},
                              {"-enddate", &CertCore::getValidToSb, &CertCore::getValidTo}};
        for (const Side& s : sides) {
            SCOPED_TRACE(s.opt);
            // "notAfter=2057-01-03 05:01:47Z"
            std::string want = qtest::ossl(file, std::string("-noout -dateopt iso_8601 ") + s.opt);
            want = want.substr(want.find('=') + 1);
            want[10] = 'T';
            StringBuffer text("stale");
            (cert.get()->*s.sb)(text, log);
            EXPECT_EQ(text.getString(), want);

            OrvaneSysTime t;
            (cert.get()->*s.rec)(t, log);
            char buf[32];
            std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", t.m_year, t.m_month,
                          t.m_day, t.m_hour, t.m_minute, t.m_second);
            EXPECT_EQ(buf, want);
        }
    }

    struct Case {
        const char* file;
        bool expired;
    };
    const Case cases[] = {
        {"expired.pem", true}, {"country-space.pem", true}, {"rsa.pem", false}, {"ca.pem", false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file, log));
        ASSERT_TRUE(cert);
        EXPECT_EQ(cert->isCertExpired(log), c.expired);
    }
}

TEST(CertIdentity, FingerprintsMatchOpenssl) {
    for (const char* file : {"rsa.pem", "ec256.pem", "ed25519.pem", "dsa.pem", "ed448.pem"}) {
        SCOPED_TRACE(file);
        LogTree log;
        CertRef cert(qtest::load(file, log));
        ASSERT_TRUE(cert);

        std::string fp = qtest::ossl(file, "-noout -fingerprint -sha1");
        std::string want;
        for (char ch : fp.substr(fp.find('=') + 1)) {
            if (ch != ':') want += ch;
        }
        XString thumbX("stale");
        EXPECT_TRUE(cert->getSha1ThumbprintX(thumbX, log));
        EXPECT_EQ(thumbX.getUtf8(), want);
        DataBuffer thumb;
        thumb.append("old", 3);
        EXPECT_TRUE(cert->getSha1Thumbprint(thumb, log));
        EXPECT_EQ(qtest::hexOf(thumb), want);

        std::string pin = qtest::sh("openssl x509 -in " + ovtest::shq(qtest::path(file)) +
                                    " -pubkey -noout | openssl pkey -pubin -outform DER"
                                    " | openssl dgst -sha256 -binary | base64 -w0");
        XString alg("sha256"), enc("base64");
        XString out("prefix:");  // appended to, not replaced
        EXPECT_TRUE(cert->getSpkiFingerprint(alg, enc, out, log));
        EXPECT_EQ(out.getUtf8(), "prefix:" + pin);

        // The certificate's key id is the one its key has on its own.
        std::string pubPem = qtest::ossl(file, "-pubkey -noout");
        XString pemX(pubPem.c_str());
        _ovPublicKey key;
        ASSERT_TRUE(key.loadPem(true, pemX, log));
        StringBuffer keyIdOfKey, keyId("stale");
        ASSERT_TRUE(key.getOrvaneKeyId64(keyIdOfKey, log));
        EXPECT_TRUE(cert->getOrvaneKeyId64(keyId, log));
        EXPECT_EQ(keyId.getSize(), 16u);
        EXPECT_STREQ(keyId.getString(), keyIdOfKey.getString());
    }
}

TEST(CertIdentity, PartDerAndPublicKeyForms) {
    for (const char* file : {"rsa.pem", "ec256.pem", "ed25519.pem"}) {
        SCOPED_TRACE(file);
        LogTree log;
        CertRef cert(qtest::load(file, log));
        ASSERT_TRUE(cert);
        std::string der = qtest::opensslDer(file);
        std::vector<qtest::DerItem> f = qtest::tbsFields(file);
        ASSERT_GE(f.size(), 6u);
        std::string spki = qtest::slice(der, f[5], true);
        // The subjectPublicKey BIT STRING is the last element of the SPKI.
        std::string bits;
        for (const qtest::DerItem& it : qtest::opensslItems(file)) {
            if (it.depth == 3 && it.offset > f[5].offset &&
                it.offset < f[5].offset + f[5].headerLen + f[5].len)
                bits = qtest::slice(der, it, false).substr(1);  // minus unused-bits count
        }
        ASSERT_FALSE(bits.empty());
        std::string osslSpki =
            qtest::sh("openssl x509 -in " + ovtest::shq(qtest::path(file)) +
                      " -pubkey -noout | openssl pkey -pubin -outform DER | base64 -w0");
        DataBuffer spkiDb;
        spkiDb.append(spki.data(), static_cast<unsigned>(spki.size()));
        StringBuffer spkiB64;
        spkiDb.encodeDB("base64", spkiB64);
        ASSERT_EQ(osslSpki, spkiB64.getString());

        struct Case {
            int part;
            std::string want;
        };
        const Case cases[] = {{0, qtest::slice(der, f[2], true)},
                              {1, qtest::slice(der, f[4], true)},
                              {2, spki},
                              {3, bits},
                              {7, bits},
                              {-1, bits}};
        for (const Case& c : cases) {
            SCOPED_TRACE(c.part);
            DataBuffer out;
            out.append("old", 3);
            EXPECT_TRUE(cert->getPartDer(c.part, out, log));
            EXPECT_EQ(qtest::bytesOf(out), c.want);
        }
        DataBuffer pk;
        pk.append("old", 3);
        EXPECT_TRUE(cert->getPublicKeyAsDER(pk, log));
        EXPECT_EQ(qtest::bytesOf(pk), spki);
        DataBuffer ocsp;
        EXPECT_TRUE(cert->getPublicKeyForOCSP(ocsp, log));
        EXPECT_EQ(qtest::bytesOf(ocsp), bits);

        // The signature is the certificate's last element.
        std::string sig = qtest::slice(der, qtest::opensslItems(file).back(), false).substr(1);
        DataBuffer sigDb;
        sigDb.append("old", 3);
        EXPECT_TRUE(cert->getCertSignature(sigDb, log));
        EXPECT_EQ(qtest::bytesOf(sigDb), sig);

        XString xml("stale");
        EXPECT_TRUE(cert->toXml(xml, log));
        EXPECT_FALSE(xml.containsSubstringUtf8("stale"));
        EXPECT_TRUE(xml.containsSubstringUtf8("<sequence>"));
    }
}

TEST(CertIdentity, SignatureVerification) {
    LogTree log;
    CertRef ca(qtest::load("ca.pem", log));
    CertRef caDe(qtest::load("ca-de.pem", log));
    CertRef rsa(qtest::load("rsa.pem", log));
    CertRef ec(qtest::load("ec256.pem", log));
    CertRef empty(CertCore::createNewCert());
    ASSERT_TRUE(ca && caDe && rsa && ec && empty);
    struct Case {
        const char* name;
        CertCore* cert;
        CertCore* issuer;
        bool ok;
    };
    const Case cases[] = {
        {"leaf by its CA", rsa.get(), ca.get(), true},
        {"EC leaf by its P-384 CA", ec.get(), caDe.get(), true},
        {"leaf by another CA", rsa.get(), caDe.get(), false},
        {"self-signed root, no issuer", ca.get(), nullptr, true},
        {"leaf, no issuer", rsa.get(), nullptr, false},
        // Must not turn into the self-signature check of the null issuer.
        {"issuer object without certificate", ca.get(), empty.get(), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.cert->verifyCertSignature(c.issuer, log), c.ok);
    }
    // The issuer is not required to be valid itself: only its certificate is read.
    qtest::Stale guard(ca.get());
    EXPECT_TRUE(rsa->verifyCertSignature(ca.get(), log));
}

TEST(CertIdentity, EmptyAndStaleObjects) {
    using O = qtest::Outs;
    const qtest::GuardCase cases[] = {
        {"getSerialNumber", QUERY_OP(c->getSerialNumber(o.x, l)), true, false},
        {"getSerialDecimal", QUERY_OP(c->getSerialDecimal(o.x, l)), true, false},
        {"getSha1ThumbprintX", QUERY_OP(c->getSha1ThumbprintX(o.x, l)), true, false},
        {"toXml", QUERY_OP(c->toXml(o.x, l)), true, false},
        {"getSha1Thumbprint", QUERY_OP(c->getSha1Thumbprint(o.d, l)), true, false},
        {"getCertSignature", QUERY_OP(c->getCertSignature(o.d, l)), true, false},
        {"getPublicKeyAsDER", QUERY_OP(c->getPublicKeyAsDER(o.d, l)), true, false},
        {"getPublicKeyForOCSP", QUERY_OP(c->getPublicKeyForOCSP(o.d, l)), true, false},
        {"getOrvaneKeyId64", QUERY_OP(c->getOrvaneKeyId64(o.s, l)), true, false},
        {"getSpkiFingerprint",
         [](CertCore* c, O& o, LogBase& l) -> long {
             XString alg("sha256"), enc("hex");
             return c->getSpkiFingerprint(alg, enc, o.x, l);
         },
         false, false},
        {"isCertExpired", QUERY_OP(c->isCertExpired(l)), false, false},
        {"verifyCertSignature", QUERY_OP(c->verifyCertSignature(nullptr, l)), false, false},
        // getPartDer empties its output before any check, whatever the part.
        {"getPartDer 0", QUERY_OP(c->getPartDer(0, o.d, l)), true, true},
        {"getPartDer 1", QUERY_OP(c->getPartDer(1, o.d, l)), true, true},
        {"getPartDer 2", QUERY_OP(c->getPartDer(2, o.d, l)), true, true},
        {"getPartDer 3", QUERY_OP(c->getPartDer(3, o.d, l)), true, true},
    };
    LogTree loadLog;
    CertRef empty(CertCore::createNewCert());
    CertRef stale(qtest::load("expired.pem", loadLog));  // self-signed and expired
    ASSERT_TRUE(empty && stale);
    qtest::checkEmptyAndStale(cases, stale.get());

    // Dates: the records are left alone; the text forms still write a date,
    // that of the default record.
    for (bool isStale : {false, true}) {
        SCOPED_TRACE(isStale ? "stale" : "empty");
        LogTree log;
        CertCore* c = isStale ? stale.get() : empty.get();
        std::optional<qtest::Stale> guard;
        if (isStale) guard.emplace(c);
        OrvaneSysTime t;
        t.m_year = 1999;
        c->getValidFrom(t, log);
        c->getValidTo(t, log);
        EXPECT_EQ(t.m_year, 1999);
        StringBuffer from("old"), to("old");
        c->getValidFromSb(from, log);
        c->getValidToSb(to, log);
        guard.reset();
        EXPECT_STREQ(from.getString(), "1970-01-01T00:00:00Z");
        EXPECT_STREQ(to.getString(), "1970-01-01T00:00:00Z");
        EXPECT_EQ(log.numEntries(), 0);
    }
}

}  // namespace
