#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <vector>

#include "cert/query/QueryTestUtil.h"

using qtest::CertRef;

// Serial, expiry and thumbprint per certificate. Openssl prints negative
// serials by value, so the octets are written out here; the decimal reads them
// unsigned.
TEST(CertIdentity, SerialsExpiryAndThumbprint) {
    struct Case {
        const char* file;
        const char* serial;
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
        XString hex("stale"), dec("stale"), thumbX;
        DataBuffer thumb = qtest::old();
        EXPECT_TRUE(cert->getSerialNumber(hex, log) && cert->getSerialDecimal(dec, log));
        EXPECT_STREQ(hex.getUtf8(), c.serial);
        EXPECT_STREQ(dec.getUtf8(), c.decimal);
        EXPECT_EQ(cert->isCertExpired(log), c.expired);
        EXPECT_TRUE(cert->getSha1ThumbprintX(thumbX, log) && cert->getSha1Thumbprint(thumb, log));
        EXPECT_EQ(qtest::enc(thumb), thumbX.getUtf8());
    }
}

// Each part number's DER, the key's two forms and the signature, cut from the
// certificate as openssl asn1parse lists it: at depth 2 are the fields of the
// TBSCertificate, 3 the issuer, 5 the subject and 6 the SubjectPublicKeyInfo.
TEST(CertIdentity, PartsAndSignatureAreSlicesOfTheCertificate) {
    ovtest::TempDir dir;
    std::istringstream text(qtest::sh("openssl asn1parse -in " +
                                      ovtest::shq(ovtest::dataPath("query/rsa.pem")) + " -out " +
                                      ovtest::shq(dir.file("c.der"))));
    std::string der = ovtest::readFile(dir.file("c.der")), bits, sig;
    std::vector<std::string> tbs;
    size_t off, depth, hl, len;
    for (std::string line; std::getline(text, line);) {
        if (std::sscanf(line.c_str(), " %zu:d=%zu hl=%zu l=%zu", &off, &depth, &hl, &len) != 4)
            continue;
        if (depth == 2) tbs.push_back(der.substr(off, hl + len));
        // BIT STRINGs less their unused-bits octet: the SPKI's last element
        // (for RSA the key's own form) and the certificate's last.
        if (depth == 3 && tbs.size() == 7) bits = der.substr(off + hl + 1, len - 1);
        sig = der.substr(off + hl + 1, len - 1);
    }
    ASSERT_GE(tbs.size(), 8u);
    const std::string parts[] = {tbs[3], tbs[5], tbs[6], bits};
    LogTree log;
    CertRef cert(qtest::load("rsa.pem"));
    for (int part : {0, 1, 2, 3, -1}) {
        DataBuffer out = qtest::old();
        EXPECT_TRUE(cert->getPartDer(part, out, log)) << part;
        EXPECT_EQ(ovtest::bytes(out), parts[part < 0 ? 3 : part]) << part;
    }
    // The key as its SubjectPublicKeyInfo and in its own form.
    DataBuffer spki, own, sigDb;
    EXPECT_TRUE(cert->getPublicKeyAsDER_2(true, spki, log) &&
                cert->getPublicKeyAsDER_2(false, own, log));
    EXPECT_EQ(ovtest::bytes(spki), parts[2]);
    EXPECT_EQ(ovtest::bytes(own), parts[3]);
    EXPECT_TRUE(cert->getCertSignature(sigDb, log));
    EXPECT_EQ(ovtest::bytes(sigDb), sig);
    // The SPKI fingerprint appends.
    XString alg("sha256"), b64("base64"), pin("prefix:");
    EXPECT_TRUE(cert->getSpkiFingerprint(alg, b64, pin, log));
    EXPECT_EQ(pin.getUtf8(),
              "prefix:" + qtest::osslSpki("rsa.pem", "openssl dgst -sha256 -binary | base64 -w0"));
}

TEST(CertIdentity, SignatureVerification) {
    CertRef ca(qtest::load("ca.pem")), rsa(qtest::load("rsa.pem")),
        empty(CertCore::createNewCert());
    LogTree log;
    EXPECT_TRUE(ca->verifyCertSignature(nullptr, log));  // self-signed, no issuer
    // An issuer object without certificate must not turn into the self-signature check.
    EXPECT_FALSE(ca->verifyCertSignature(empty.get(), log));
    // A leaf under its CA, which is not required to be valid itself: only its
    // certificate is read.
    qtest::Stale guard(ca.get());
    EXPECT_TRUE(rsa->verifyCertSignature(ca.get(), log));
}
