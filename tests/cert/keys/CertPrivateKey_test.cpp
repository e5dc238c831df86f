#include <gtest/gtest.h>

#include <string>

#include "cert/CertTestUtil.h"
#include "support/json/ClsJsonObject.h"
#include "support/pkcs11/ClsPkcs11.h"

using certtest::CertRef;

namespace {

// What `openssl <cmd> -in <key file>` writes (tests/data/cert/<file>).
std::string keyTool(const std::string& cmd, const std::string& file, const std::string& then = "") {
    std::string out;
    const std::string line =
        "openssl " + cmd + " -in " + ovtest::shq(ovtest::dataPath("cert/" + file)) + then;
    EXPECT_EQ(ovtest::run(line, &out), 0) << line;
    return out;
}
std::string pkcs8Der(const std::string& file) {
    return keyTool("pkcs8 -topk8 -nocrypt -outform DER", file);
}

DataBuffer bufferOf(const std::string& s) {
    DataBuffer db;
    db.append(s.data(), static_cast<unsigned>(s.size()));
    return db;
}

}  // namespace

// Every setter clears first, so a failed load leaves no key; the caller's input
// is marked secret; what goes in comes out as openssl's PKCS#8.
TEST(CertPrivateKey, SettersClearFirstAndExportWhatTheyLoaded) {
    const std::string rsaPkcs8 = pkcs8Der("rsa.key");
    const std::string rsaPem = keyTool("pkcs8 -topk8 -nocrypt", "rsa.key", " | sed 's/$/\r/'");
    enum How { Pem, Der, Obj };
    struct Case {
        const char* name;
        How how;
        std::string input;
        bool loads;
    } const cases[] = {
        {"PEM", Pem, certtest::fixture("rsa.key"), true},
        {"PEM beside a certificate", Pem, certtest::fixture("chain-key-middle.pem"), true},
        {"PKCS#8 DER", Der, rsaPkcs8, true},
        {"PKCS#1 DER", Der, keyTool("rsa -outform DER", "rsa.key"), true},
        {"key object", Obj, rsaPkcs8, true},
        {"empty PEM", Pem, "", false},
        {"empty DER", Der, "", false},
        {"encrypted PEM", Pem, certtest::fixture("rsa-enc.key"), false},
        {"not a key", Der, "\x30\x03\x02\x01\x01", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        CertRef cert(certtest::loadDer("rsa.der", log));
        XString before(certtest::fixture("ec.key").c_str());
        ASSERT_TRUE(cert && cert->setPrivateKeyPem(before, log)) << "a key to be replaced";
        XString pem(c.input.c_str());
        DataBuffer der = bufferOf(c.input), out, out2;
        _ovPublicKey key;
        const bool ok = c.how == Pem   ? cert->setPrivateKeyPem(pem, log)
                        : c.how == Der ? cert->setPrivateKeyDer2(der, log)
                                       : key.loadAnyDer(bufferOf(c.input), log) &&
                                             cert->setPrivateKeyFromObj(key, log);
        EXPECT_EQ(der.isSecure(), c.how == Der);
        EXPECT_EQ(ok, c.loads) << log.text();
        EXPECT_EQ(cert->hasPrivateKeyDer(log), c.loads);
        EXPECT_EQ(cert->hasPrivateKey(false, log), c.loads);

        bool viaToken = true;
        out.append("old", 3);
        EXPECT_EQ(cert->getPrivateKeyAsDER(out, viaToken, log), c.loads);
        EXPECT_TRUE(!viaToken && out.isSecure());
        EXPECT_EQ(ovtest::bytes(out), c.loads ? rsaPkcs8 : "") << "replaces, never appends";
        EXPECT_EQ(cert->getPrivateKeyAsDER_noCryptoAPI(out2, log), c.loads);
        EXPECT_EQ(ovtest::bytes(out2), ovtest::bytes(out));
        StringBuffer text("before\n");
        EXPECT_EQ(cert->getPrivateKeyAsUnencryptedPEM_noCryptoAPI(text, log), c.loads);
        EXPECT_EQ(text.getString(), "before\n" + (c.loads ? rsaPem : ""));
    }
}

// Which key belongs to which certificate, decided from the DER. The compressed
// encoding of the EC certificate's key must match by X and the parity of Y, and
// the same X with the other parity must not.
TEST(CertPrivateKey, KeyMatchesItsCertificateOnly) {
    const std::string compressed = keyTool("ec -conv_form compressed -outform DER", "ec.key");
    std::string otherParity = compressed;
    ASSERT_GT(otherParity.size(), 33u);
    otherParity[otherParity.size() - 33] ^= 1;  // 02 <-> 03 before the 32 bytes of X
    using M = CertCore::KeyMatch;
    struct Case {
        const char* cert;
        std::string keyDer;
        M want;
    } const cases[] = {
        {"rsa.der", pkcs8Der("rsa.key"), M::Matches},
        {"rsa.der", pkcs8Der("root.key"), M::Differs},
        {"rsa.der", pkcs8Der("ec.key"), M::Differs},
        {"ec.der", pkcs8Der("ec.key"), M::Matches},
        {"ec.der", compressed, M::Matches},
        {"ec.der", otherParity, M::Differs},
        {"ec.der", pkcs8Der("inter.key"), M::Differs},
        {"ed25519.der", pkcs8Der("ed25519.key"), M::Matches},
        {"ed25519.der", pkcs8Der("rsa.key"), M::Differs},
        {"rsa.der", "", M::NoKey},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.cert) + " #" + std::to_string(&c - cases));
        LogTree log;
        CertRef cert(certtest::loadDer(c.cert, log));
        DataBuffer der = bufferOf(c.keyDer);
        EXPECT_EQ(cert->setPrivateKeyDer2(der, log), !c.keyDer.empty()) << log.text();
        EXPECT_EQ(cert->privateKeyMatchesCert(log), c.want);
    }
}

// In-memory key, then cloud signer, then token: the first link present answers.
// The token's answer is true even with nothing found (the signing code logs in
// later); the cloud signer is a private copy.
TEST(CertPrivateKey, WhichLinkAnswersAndWhatItLogs) {
    const char* const cloud = "This certificate will utilize a cloud service for signing.";
    const char* const onToken =
        "This certificate is on a smart card or USB token and accessed via PKCS11.";
    const char* const warn1 = "Warning: make sure to set the Cert.SmartCardPin prior to signing";
    const char* const warn2 =
        "w/ PKCS11, the private key handle can only be acquired in a PIN authenticated session.";
    const char* const useToken = "Will use the existing PKCS11 session for private key operations.";
    // No module: nothing to log in to.
    auto session = RefPtr<ClsPkcs11>::retain(ClsPkcs11::createNewCls());
    for (bool verbose : {false, true}) {
        SCOPED_TRACE(verbose ? "verbose" : "quiet");
        LogTree log;
        CertRef cert(certtest::loadDer("rsa.der", log));
        auto json = RefPtr<ClsJsonObject>::retain(ClsJsonObject::createNewCls());
        ASSERT_TRUE(cert && json->updateString("service", "x", log));
        log.clearLog();
        log.verboseLogging = verbose;
        EXPECT_FALSE(cert->hasPrivateKey(true, log));
        DataBuffer der;
        bool viaToken = true;
        EXPECT_FALSE(cert->getPrivateKeyAsDER(der, viaToken, log) || viaToken);
        std::string status = "absent";
        log.findData("status", status);
        EXPECT_EQ(status, verbose ? "false" : "absent");

        // A token session without PIN: no login, the two warnings, true.
        log.clearLog();
        cert->linkToPkcs11Session(session.get(), 0, 0, 0, log);
        EXPECT_TRUE(cert->hasPrivateKey(false, log));
        EXPECT_TRUE(log.hasInfo(warn1) && log.hasInfo(warn2) &&
                    log.hasContext("pkcs11_login_before_signing") && !log.hasContext("pkcs11Login"))
            << log.text();
        EXPECT_EQ(log.hasInfo(onToken), verbose);
        log.clearLog();
        EXPECT_FALSE(cert->hasPrivateKeyDer(log));
        EXPECT_TRUE(log.hasInfo(useToken) && !log.findData("status", status)) << "no status";

        // A cloud signer comes before the token and is the certificate's own copy.
        log.clearLog();
        EXPECT_TRUE(cert->setCloudSigner(*json, log));
        ASSERT_TRUE(json->updateString("other", "y", log));
        EXPECT_EQ(cert->m_cloudSigner->get_Size(), 1);
        EXPECT_TRUE(cert->hasPrivateKey(false, log) && !log.hasInfo(warn1));
        EXPECT_EQ(log.hasInfo(cloud), verbose);

        // An in-memory key comes first of all, silently.
        XString pem(certtest::fixture("rsa.key").c_str());
        ASSERT_TRUE(cert->setPrivateKeyPem(pem, log));
        log.clearLog();
        EXPECT_TRUE(cert->hasPrivateKey(false, log));
        EXPECT_EQ(log.numEntries(), 0) << log.text();

        // An empty signer object removes the signer.
        auto empty = RefPtr<ClsJsonObject>::retain(ClsJsonObject::createNewCls());
        EXPECT_TRUE(cert->setCloudSigner(*empty, log) && !cert->m_cloudSigner);
        cert->unlinkFromPkcs11Session();
    }
    EXPECT_EQ(session->getRefCount(), 1) << "every link was released";
}
