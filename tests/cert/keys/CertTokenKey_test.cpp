// hasPrivateKey against a real token: a SoftHSM2 token in a temporary
// directory (tests/support/pkcs11/SoftHsmToken.h). The token's login state
// lasts while any session object of the process has the module loaded, so
// every test releases its sessions before it ends.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "cert/CertTestUtil.h"
#include "support/pkcs11/SoftHsmToken.h"

using certtest::CertRef;

namespace {

const char* const kTrying = "Trying to PKCS11 login with smart card PIN... (9)";
const char* const kWarn1 = "Warning: make sure to set the Cert.SmartCardPin prior to signing";
const char* const kWarn2 =
    "w/ PKCS11, the private key handle can only be acquired in a PIN authenticated session.";
const char* const kAvailable = "Private key is available on smart card or USB token via PKCS11.";

// The certificate of the token's rsa_key (count 0).
CertCore* tokenCert() {
    const std::string der = ovtest::readFile(ovtest::dataPath("pkcs11/rsa_key.cert.der"));
    LogTree log;
    CertCore* cert =
        CertCore::createFromDer2(reinterpret_cast<const unsigned char*>(der.data()),
                                 static_cast<unsigned>(der.size()), nullptr, nullptr, log);
    EXPECT_NE(cert, nullptr) << log.text();
    return cert ? cert : CertCore::createNewCert();
}

// A session on the test token, the certificate linked to it with the PIN set as
// callers do.
struct Session {
    Session(CertCore& cert, bool loggedIn, const char* pin, int keyType = 0)
        : p(RefPtr<ClsPkcs11>::retain(ClsPkcs11::createNewCls())) {
        softhsm::open(*p, loggedIn);
        LogNull log;
        cert.m_smartCardPin.setSecureX(true);
        cert.m_smartCardPin.setFromUtf8(pin);
        cert.linkToPkcs11Session(p.get(), keyType, 0, 0, log);
    }
    // The handle the token gives the certificate's key when asked directly.
    unsigned long keyOf(CertCore& cert) {
        LogNull log;
        int type = 0, size = 0;
        return p->findPrivKeyHandle(cert, true, type, size, log);
    }
    RefPtr<ClsPkcs11> p;
};

class CertTokenKey : public ::testing::Test {
  protected:
    void SetUp() override { softhsm::requireToken(); }
};

}  // namespace

// The login path finds the key (by modulus here) and links its handle, type and
// signature size; a later call, and a later link through the same session, keep
// that handle. A type given at link time answers without reading the key. No
// log line carries the PIN, verbose included.
TEST_F(CertTokenKey, RightPinLogsInAndLinksTheHandle) {
    CertRef cert(tokenCert());
    Session s(*cert, false, softhsm::kPin, 1);
    LogTree log;
    int bits = 0;
    EXPECT_EQ(cert->getCertKeyType(bits, log), 1);
    EXPECT_FALSE(log.hasContext("getCertPublicKey")) << log.text();

    log.verboseLogging = 1;
    EXPECT_TRUE(cert->hasPrivateKey(false, log));
    std::string found, sigSize;
    EXPECT_TRUE(log.hasInfo(kTrying) && log.hasContext("pkcs11_login_success") &&
                log.findData("hasPrivateKey", found) &&
                log.findData("expectedSignatureSize", sigSize) && log.hasInfo(kAvailable) &&
                !log.hasInfo(kWarn1))
        << log.text();
    EXPECT_EQ(found + "/" + sigSize, "true/256");
    const unsigned long handle = cert->m_pkcs11PrivKeyHandle;
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(handle, s.keyOf(*cert));
    EXPECT_EQ(cert->m_expectedSigSize, 256);
    XString pin;
    cert->getSmartCardPin(pin, log);
    EXPECT_EQ(log.text().find(softhsm::kPin), std::string::npos) << log.text();

    log.clearLog();
    EXPECT_TRUE(cert->hasPrivateKey(false, log));
    EXPECT_FALSE(log.hasInfo(kTrying)) << "a known handle needs no login";
    cert->linkToPkcs11Session(s.p.get(), 0, 0, handle + 1000, log);
    EXPECT_EQ(cert->m_pkcs11PrivKeyHandle, handle);
    cert->unlinkFromPkcs11Session();
    EXPECT_EQ(cert->m_pkcs11PrivKeyHandle, 0u);
    cert->linkToPkcs11Session(s.p.get(), 0, 0, handle + 1000, log);
    EXPECT_EQ(cert->m_pkcs11PrivKeyHandle, handle + 1000) << "a new link takes its handle";
    cert->unlinkFromPkcs11Session();
    EXPECT_EQ(s.p->getRefCount(), 1) << "every link was released";
}

// A wrong PIN, or a session already logged in (deliberately no search then,
// whatever the PIN), leaves no handle: the two warnings, and still true. No log
// line carries a PIN, verbose included.
TEST_F(CertTokenKey, NoHandleWarnsAndStillAnswersTrue) {
    for (bool loggedIn : {false, true})
        for (const char* pin : {softhsm::kWrongPin, softhsm::kPin}) {
            if (!loggedIn && pin == softhsm::kPin) continue;  // finds the key, as above
            SCOPED_TRACE(std::string(loggedIn ? "logged in, PIN " : "PIN ") + pin);
            CertRef cert(tokenCert());
            Session s(*cert, loggedIn, pin);
            LogTree log;
            log.verboseLogging = 1;
            EXPECT_TRUE(cert->hasPrivateKey(false, log) && !cert->hasPrivateKeyDer(log));
            EXPECT_TRUE(log.hasInfo(kWarn1) && log.hasInfo(kWarn2)) << log.text();
            EXPECT_EQ(log.hasInfo(kTrying), !loggedIn);
            EXPECT_EQ(log.hasError("PKCS11 login failed."), !loggedIn);
            EXPECT_FALSE(log.hasContext("pkcs11_login_success") ||
                         log.hasContext("pkcs11FindPrivKey"));
            EXPECT_EQ(cert->m_pkcs11PrivKeyHandle, 0u);
            EXPECT_EQ(log.text().find(pin), std::string::npos) << log.text();
            cert->unlinkFromPkcs11Session();
        }
}

// Every locked key operation of one certificate from 8 threads, with a token
// session linked (the key is cleared and set again under the readers, so
// hasPrivateKey also takes the token path and logs in) and the description
// appended throughout. Answers must be whole: the exported key is all of it or
// nothing, the description always the same text. No log, verbose or not, carries
// the PIN or any 16-byte run of the private key (PKCS#1, inside every form it is
// written in), raw or in hex, or a line of its PEM.
class CertKeysConcurrency : public CertTokenKey {};

TEST_F(CertKeysConcurrency, EveryKeyOperationFromEightThreads) {
    CertRef cert(tokenCert());
    Session s(*cert, false, softhsm::kPin);
    const std::string keyDer = ovtest::readFile(ovtest::dataPath("pkcs11/rsa_key.key.der"));
    DataBuffer keyBuf;
    keyBuf.append(keyDer.data(), static_cast<unsigned>(keyDer.size()));
    _ovPublicKey key;
    LogTree setupLog;
    setupLog.verboseLogging = 1;
    StringBuffer pem, description;
    DataBuffer pkcs8;
    ASSERT_TRUE(key.loadAnyDer(keyBuf, setupLog) && cert->setPrivateKeyFromObj(key, setupLog) &&
                cert->getPrivateKeyAsUnencryptedPEM_noCryptoAPI(pem, setupLog) &&
                cert->getPrivateKeyAsDER_noCryptoAPI(pkcs8, setupLog));
    cert->appendDescriptiveJson(description, setupLog);
    const std::string wantDer = ovtest::bytes(pkcs8), wantPem = pem.getString(),
                      wantJson = description.getString();

    // Each operation with fresh buffers; false: an answer that is not whole.
    struct Io {
        DataBuffer der, none;
        StringBuffer text;
        XString pem;
        bool viaToken = false;
    };
    auto whole = [&](const DataBuffer& d) { return d.isEmpty() || ovtest::bytes(d) == wantDer; };
#define OP(expr) [&]([[maybe_unused]] Io& io, LogTree& l) -> bool { return expr; }
    const std::function<bool(Io&, LogTree&)> ops[] = {
        OP(io.der.append(keyBuf) && cert->setPrivateKeyDer2(io.der, l)),
        OP(io.pem.appendUtf8(wantPem.c_str()) && cert->setPrivateKeyPem(io.pem, l)),
        // No key after it: the token answers.
        OP(cert->setPrivateKeyFromObj(key, l) && !cert->setPrivateKeyDer2(io.none, l)),
        OP(cert->hasPrivateKey(false, l)),
        OP((cert->hasPrivateKeyDer(l), cert->privateKeyNotExportable(l), cert->setMsPkInfo(nullptr),
            cert->getMsPkInfo(l) == nullptr)),
        OP((cert->getPrivateKeyAsDER(io.der, io.viaToken, l), whole(io.der))),
        OP((cert->getPrivateKeyAsDER_noCryptoAPI(io.der, l), whole(io.der))),
        OP((cert->getPrivateKeyAsUnencryptedPEM_noCryptoAPI(io.text, l),
            io.text.isEmpty() || wantPem == io.text.getString())),
        OP(cert->privateKeyMatchesCert(l) != CertCore::KeyMatch::Differs),
        OP((cert->appendDescriptiveJson(io.text, l), wantJson == io.text.getString()))};
#undef OP
    const int n = static_cast<int>(std::size(ops));
    std::vector<std::thread> threads;
    std::vector<int> failed(8, -1);  // the first operation that failed
    std::vector<std::string> logs(8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            LogTree log;
            log.verboseLogging = t % 2;
            for (int i = 0; i < 3 * n; ++i) {
                Io io;
                if (!ops[(t + i) % n](io, log) && failed[t] < 0) failed[t] = (t + i) % n;
            }
            logs[t] = log.text();
        });
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < 8; ++t) EXPECT_EQ(failed[t], -1) << "thread " << t;
    logs.push_back(setupLog.text());
    for (const std::string& text : logs) {
        ASSERT_EQ(text.find(softhsm::kPin), std::string::npos);
        for (size_t i = 0; i + 16 <= keyDer.size(); ++i) {
            const std::string run = keyDer.substr(i, 16);
            ASSERT_EQ(text.find(run), std::string::npos) << i;
            for (bool lower : {false, true}) {
                StringBuffer hex;
                hex.appendHex(reinterpret_cast<const unsigned char*>(run.data()), 16, lower);
                ASSERT_EQ(text.find(hex.getString()), std::string::npos) << i;
            }
        }
        for (size_t pos = wantPem.find('\n'); pos != std::string::npos && pos + 65 < wantPem.size();
             pos = wantPem.find('\n', pos + 1))
            EXPECT_EQ(text.find(wantPem.substr(pos + 1, 64)), std::string::npos);
    }

    LogTree log;
    DataBuffer none;
    cert->setPrivateKeyDer2(none, log);
    EXPECT_TRUE(cert->hasPrivateKey(false, log));
    EXPECT_EQ(cert->m_pkcs11PrivKeyHandle, s.keyOf(*cert)) << log.text();
    cert->unlinkFromPkcs11Session();
}
