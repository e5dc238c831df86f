#include <gtest/gtest.h>

#include "cert/query/QueryTestUtil.h"
#include "support/asn1/Asn1Node.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"

using qtest::CertRef;

// Serial, validity, fingerprints, key id and the DER of the parts, each set
// against what openssl reads from the same certificate.
TEST(CertIdentity, AgreesWithOpenssl) {
    struct Case {
        const char* file;
        const char* serial;  // the INTEGER's octets; the decimal reads them unsigned
        const char* decimal;
        bool expired;
    };
    const Case cases[] = {
        // 20 octets after the 00; ends after 2049 (GeneralizedTime).
        {"rsa.pem", "0080112233445566778899AABBCCDDEEFF00112233",
         "731132910596779799734052530039897400808915935795", false},
        {"ec256.pem", "00FF", "255", false},
        {"ed25519.pem", "0100", "256", false},
        {"dsa.pem", "80", "128", false},  // -128
        {"ed448.pem", "00", "0", false},
        {"country-space.pem", "FF01", "65281", true},  // -255, from 2001
        {"expired.pem", "07", "7", true},              // ends before it begins
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        LogTree log;
        CertRef cert(qtest::load(c.file));
        qtest::Der der(c.file);
        ASSERT_GE(der.tbs.size(), 6u);
        ASSERT_EQ(qtest::enc(der.at(der.tbs[0], false)), c.serial);
        XString hex("stale"), dec("stale");
        EXPECT_TRUE(cert->getSerialNumber(hex, log) && cert->getSerialDecimal(dec, log));
        EXPECT_STREQ(hex.getUtf8(), c.serial);
        EXPECT_STREQ(dec.getUtf8(), c.decimal);

        EXPECT_EQ(cert->isCertExpired(log), c.expired);
        for (bool from : {true, false}) {
            // "notAfter=2057-01-03 05:01:47Z"
            std::string want = qtest::ossl(c.file, std::string("-noout -dateopt iso_8601 ") +
                                                       (from ? "-startdate" : "-enddate"));
            want = want.substr(want.find('=') + 1).replace(10, 1, "T");
            StringBuffer text("stale");
            OrvaneSysTime t;
            from ? cert->getValidFromSb(text, log) : cert->getValidToSb(text, log);
            from ? cert->getValidFrom(t, log) : cert->getValidTo(t, log);
            EXPECT_EQ(text.getString(), want);
            EXPECT_EQ(t.m_year, std::stoi(want));  // the record is the same date
        }

        std::string sha1;  // "SHA1 Fingerprint=AB:CD:..."
        for (char ch : qtest::ossl(c.file, "-noout -fingerprint -sha1").substr(17))
            if (ch != ':') sha1 += ch;
        XString thumbX("stale"), alg("sha256"), b64("base64"), pin("prefix:");
        DataBuffer thumb = qtest::old();
        EXPECT_TRUE(cert->getSha1ThumbprintX(thumbX, log) && cert->getSha1Thumbprint(thumb, log));
        EXPECT_EQ(thumbX.getUtf8(), sha1);
        EXPECT_EQ(qtest::enc(thumb), sha1);
        EXPECT_TRUE(cert->getSpkiFingerprint(alg, b64, pin, log));  // appends
        EXPECT_EQ(pin.getUtf8(), "prefix:" + qtest::osslSpki(c.file,
                                                             "openssl dgst -sha256 "
                                                             "-binary | base64 -w0"));
        // The certificate's key id is the one its key has on its own.
        _ovPublicKey key;
        StringBuffer keyIdOfKey, keyId("stale");
        EXPECT_TRUE(cert->getCertPublicKey(key, log) && key.getOrvaneKeyId64(keyIdOfKey, log));
        EXPECT_TRUE(cert->getOrvaneKeyId64(keyId, log));
        EXPECT_STREQ(keyId.getString(), keyIdOfKey.getString());

        // The subjectPublicKey BIT STRING (less its unused-bits octet) ends the
        // SPKI; the signature ends the certificate.
        const qtest::Der::Item& spki = der.tbs[5];
        std::string bits, sig = der.at(der.items.back(), false).substr(1);
        for (const qtest::Der::Item& it : der.items)
            if (it.depth == 3 && it.off > spki.off && it.off < spki.off + spki.hl + spki.len)
                bits = der.at(it, false).substr(1);
        EXPECT_EQ(qtest::enc(der.at(spki), "base64"), qtest::osslSpki(c.file));
        // Parts 0 and 1 are the issuer and subject names, also as trees.
        const std::string parts[] = {der.at(der.tbs[2]), der.at(der.tbs[4]), der.at(spki), bits};
        for (int part : {0, 1, 2, 3, -1}) {
            DataBuffer out = qtest::old(), tree;
            EXPECT_TRUE(cert->getPartDer(part, out, log)) << part;
            EXPECT_EQ(qtest::str(out), parts[part < 0 ? 3 : part]) << part;
            if (part != 0 && part != 1) continue;
            _ovAsn1* name = part ? cert->getSubjectDnAsn(log) : cert->getIssuerDnAsn(log);
            ASSERT_TRUE(name && name->EncodeToDer(tree, false, log));
            name->decRefCount();
            EXPECT_EQ(qtest::str(tree), parts[part]);
        }
        DataBuffer sigDb;
        XString xml("stale");
        EXPECT_TRUE(cert->getCertSignature(sigDb, log) && cert->toXml(xml, log));
        EXPECT_EQ(qtest::str(sigDb), sig);
        EXPECT_EQ(std::string(xml.getUtf8()).find("<sequence>"), 0u);
    }
}

TEST(CertIdentity, SignatureVerification) {
    CertRef ca(qtest::load("ca.pem")), caDe(qtest::load("ca-de.pem")), rsa(qtest::load("rsa.pem")),
        empty(CertCore::createNewCert());
    struct Case {
        const char* name;
        CertCore *cert, *issuer;
        bool ok;
    };
    const Case cases[] = {
        {"leaf by its CA", rsa.get(), ca.get(), true},
        {"leaf by another CA", rsa.get(), caDe.get(), false},
        {"self-signed root, no issuer", ca.get(), nullptr, true},
        // Must not turn into the self-signature check of the null issuer.
        {"issuer object without certificate", ca.get(), empty.get(), false},
    };
    LogTree log;
    for (const Case& c : cases)
        EXPECT_EQ(c.cert->verifyCertSignature(c.issuer, log), c.ok) << c.name;
    // The issuer is not required to be valid itself: only its certificate is read.
    qtest::Stale guard(ca.get());
    EXPECT_TRUE(rsa->verifyCertSignature(ca.get(), log));
}
