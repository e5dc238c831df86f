#include "support/pkcs11/ClsPkcs11.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "SoftHsmToken.h"
#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

using ovtest::SoftHsmToken;

namespace {

using Bytes = std::vector<unsigned char>;

const char* const kWrongPin = "wrong-8642";

class ClsPkcs11Test : public ::testing::Test {
  protected:
    void SetUp() override {
        token = &SoftHsmToken::get();
        ASSERT_TRUE(token->ok()) << token->error();
    }

    // Loads SoftHSM2 into p and opens a read-only session on the test token,
    // logged in as the card holder when asked.
    void open(ClsPkcs11& p, bool loggedIn) {
        LogTree log;
        ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, log)) << log.text();
        ASSERT_TRUE(p.openSession(static_cast<long>(token->slotId()), false, log)) << log.text();
        if (loggedIn) {
            ASSERT_TRUE(p.login(1, SoftHsmToken::kUserPin, log)) << log.text();
        }
    }

    unsigned long find(ClsPkcs11& p, const std::string& cert, bool mustSign, int& keyType,
                       int& sigSize, LogTree& log) {
        Bytes der = token->certDer(cert);
        EXPECT_FALSE(der.empty()) << cert;
        return p.findPrivKeyHandleForCert(der.data(), static_cast<unsigned>(der.size()), mustSign,
                                          keyType, sigSize, log);
    }

    SoftHsmToken* token = nullptr;
};

TEST_F(ClsPkcs11Test, FirstSlotWithTokenIsTheInitialisedOne) {
    ClsPkcs11 p;
    LogTree log;
    ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, log)) << log.text();
    std::vector<unsigned long> withToken, all;
    ASSERT_TRUE(p.listSlots(true, withToken, log)) << log.text();
    ASSERT_TRUE(p.listSlots(false, all, log)) << log.text();
    // SoftHSM2 keeps a free, uninitialised token next to ours; -1 must skip it
    // whichever order the slots come in.
    EXPECT_EQ(withToken.size(), 2u);
    EXPECT_NE(std::find(withToken.begin(), withToken.end(), token->slotId()), withToken.end());
    EXPECT_GE(all.size(), withToken.size());

    ASSERT_TRUE(p.openSession(-1, false, log)) << log.text();
    EXPECT_TRUE(p.hasSession());
    EXPECT_EQ(p.sessionSlotId(), token->slotId());
    EXPECT_EQ(log.numErrors(), 0) << log.text();
}

TEST_F(ClsPkcs11Test, SlotsWithoutAUsableTokenAreRefused) {
    {
        ClsPkcs11 p;
        LogTree log;
        std::vector<unsigned long> slots = {7};
        EXPECT_FALSE(p.listSlots(true, slots, log));
        EXPECT_TRUE(slots.empty());
        EXPECT_FALSE(p.openSession(-1, false, log));
        EXPECT_TRUE(log.hasError("No PKCS11 module is loaded.")) << log.text();
    }

    ovtest::EmptySoftHsm empty;
    ASSERT_TRUE(empty.ok());
    ClsPkcs11 p;
    LogTree setupLog;
    ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, setupLog)) << setupLog.text();
    std::vector<unsigned long> slots;
    ASSERT_TRUE(p.listSlots(true, slots, setupLog));
    ASSERT_EQ(slots.size(), 1u) << "expected only the free slot of an empty token directory";

    struct Case {
        const char* name;
        long slot;
        const char* error;
    };
    const Case cases[] = {
        {"first slot with a token", -1, "No PKCS11 slot has an initialized token."},
        {"slot with an uninitialised token", static_cast<long>(slots[0]),
         "The token in the PKCS11 slot is not initialized."},
        {"slot that does not exist", 987654321, "The PKCS11 slot does not exist."},
        {"negative slot id", -7, "The PKCS11 slot does not exist."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        EXPECT_FALSE(p.openSession(c.slot, false, log));
        EXPECT_FALSE(p.hasSession());
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
    }
}

TEST_F(ClsPkcs11Test, LoginChecksThePinAndNeverLogsIt) {
    ClsPkcs11 p;
    open(p, false);
    LogTree log;
    log.verboseLogging = 1;
    EXPECT_FALSE(p.alreadyLoggedIn(1, log));

    EXPECT_FALSE(p.login(1, kWrongPin, log));
    EXPECT_TRUE(log.hasError("PKCS11 login failed.")) << log.text();
    EXPECT_EQ(log.numErrors(), 1) << log.text();
    std::string ckr;
    EXPECT_TRUE(log.findData("ckr", ckr));
    EXPECT_EQ(ckr, "CKR_PIN_INCORRECT");
    EXPECT_FALSE(p.alreadyLoggedIn(1, log));

    ASSERT_TRUE(p.login(1, SoftHsmToken::kUserPin, log)) << log.text();
    EXPECT_TRUE(p.alreadyLoggedIn(1, log));
    EXPECT_FALSE(p.alreadyLoggedIn(0, log)) << "a user login is not an SO login";
    // Logging in again as the same user is not a failure.
    EXPECT_TRUE(p.login(1, SoftHsmToken::kUserPin, log));

    ASSERT_TRUE(p.logout(log));
    EXPECT_FALSE(p.alreadyLoggedIn(1, log));
    EXPECT_TRUE(p.logout(log)) << "logging out twice is not a failure";

    const std::string text = log.text();
    EXPECT_EQ(text.find(kWrongPin), std::string::npos) << text;
    EXPECT_EQ(text.find(SoftHsmToken::kUserPin), std::string::npos) << text;
    EXPECT_EQ(log.numErrors(), 1) << text;
}

TEST_F(ClsPkcs11Test, SoLoginIsTracedSeparately) {
    ClsPkcs11 p;
    LogTree log;
    ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, log));
    // The SO logs in only on read-write sessions.
    ASSERT_TRUE(p.openSession(static_cast<long>(token->slotId()), true, log)) << log.text();
    ASSERT_TRUE(p.login(0, SoftHsmToken::kSoPin, log)) << log.text();
    EXPECT_TRUE(p.alreadyLoggedIn(0, log));
    EXPECT_FALSE(p.alreadyLoggedIn(1, log));
    EXPECT_TRUE(p.logout(log));
    EXPECT_FALSE(p.alreadyLoggedIn(0, log));
}

TEST_F(ClsPkcs11Test, LoginNeedsASessionAndAKnownUserType) {
    struct Case {
        const char* name;
        bool session;
        int userType;
        const char* error;
    };
    const Case cases[] = {
        {"no session", false, 1, "No PKCS11 session is open."},
        {"unknown user type", true, 7, "Invalid PKCS11 user type."},
        {"negative user type", true, -1, "Invalid PKCS11 user type."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsPkcs11 p;
        LogTree log;
        ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, log));
        if (c.session) {
            ASSERT_TRUE(p.openSession(-1, false, log));
        }
        EXPECT_FALSE(p.login(c.userType, SoftHsmToken::kUserPin, log));
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
        EXPECT_FALSE(p.alreadyLoggedIn(1, log));
    }
}

// Two objects on one module share its initialisation and the token's login
// state; releasing one must leave the other working.
TEST_F(ClsPkcs11Test, SecondObjectOnTheModuleOutlivesTheFirst) {
    ClsPkcs11* first = ClsPkcs11::createNewCls();
    ASSERT_NE(first, nullptr);
    first->incRefCount();
    ClsPkcs11 second;
    open(*first, true);
    open(second, false);
    LogTree log;
    EXPECT_TRUE(second.alreadyLoggedIn(1, log)) << "login is per token, not per session";

    EXPECT_TRUE(first->decRefCount());
    int keyType = 0, sigSize = 0;
    EXPECT_NE(find(second, "rsa_key", true, keyType, sigSize, log), 0u) << log.text();
    EXPECT_EQ(log.numErrors(), 0) << log.text();
}

TEST_F(ClsPkcs11Test, FindsThePrivateKeyOfEachCertificate) {
    const char* const kViaCert = "Found the private key through the certificate on the token.";
    const char* const kViaKey = "Found the private key by its public key.";
    struct Case {
        const char* name;
        const char* cert;
        bool found;
        int keyType;
        int sigSize;
        const char* route;
    };
    const Case cases[] = {
        {"RSA, certificate object on the token", "rsa_cert", true, 1, 256, kViaCert},
        {"RSA, key only: by modulus", "rsa_key", true, 1, 256, kViaKey},
        {"P-256, key pair only: by EC point", "ec256_key", true, 3, 64, kViaKey},
        {"P-384, certificate object on the token", "ec384_cert", true, 3, 96, kViaCert},
        {"Ed25519 made on the token: by point", "ed_token", true, 5, 64, kViaKey},
        {"certificate object whose key is absent", "orphan", false, 0, 0, nullptr},
        {"key not on the token", "stranger", false, 0, 0, nullptr},
    };
    ClsPkcs11 p;
    open(p, true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        log.verboseLogging = 1;
        int keyType = -1, sigSize = -1;
        unsigned long h = find(p, c.cert, true, keyType, sigSize, log);
        EXPECT_EQ(h != 0, c.found) << log.text();
        EXPECT_EQ(keyType, c.keyType);
        EXPECT_EQ(sigSize, c.sigSize);
        if (c.route) {
            EXPECT_TRUE(log.hasInfo(c.route)) << log.text();
        }
        if (!c.found) {
            EXPECT_TRUE(log.hasInfo("No private key on the token matches the certificate."));
        }
        EXPECT_EQ(log.numErrors(), 0) << log.text();
    }
}

TEST_F(ClsPkcs11Test, PrivateKeysStayHiddenUntilLogin) {
    ClsPkcs11 p;
    open(p, false);
    for (const char* cert : {"rsa_cert", "rsa_key", "ec256_key"}) {
        SCOPED_TRACE(cert);
        LogTree log;
        int keyType = 9, sigSize = 9;
        EXPECT_EQ(find(p, cert, true, keyType, sigSize, log), 0u);
        EXPECT_EQ(keyType, 0);
        EXPECT_EQ(sigSize, 0);
        EXPECT_TRUE(log.hasInfo("No private key on the token matches the certificate."));
    }
}

TEST_F(ClsPkcs11Test, KeyThatMayNotSignIsFoundOnlyWhenSigningIsNotRequired) {
    ClsPkcs11 p;
    open(p, true);
    LogTree log;
    int keyType = 0, sigSize = 0;
    EXPECT_EQ(find(p, "ec_nosign", true, keyType, sigSize, log), 0u);
    EXPECT_NE(find(p, "ec_nosign", false, keyType, sigSize, log), 0u) << log.text();
    EXPECT_EQ(keyType, 3);
    EXPECT_EQ(sigSize, 64);
}

TEST_F(ClsPkcs11Test, LookupNeedsASessionAndACertificate) {
    const unsigned char garbage[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    Bytes good = token->certDer("rsa_key");
    struct Case {
        const char* name;
        bool session;
        const unsigned char* der;
        unsigned len;
        const char* error;
    };
    const Case cases[] = {
        {"no session", false, good.data(), static_cast<unsigned>(good.size()),
         "No PKCS11 session is open."},
        {"not a certificate", true, garbage, sizeof garbage, "The certificate DER is not valid."},
        {"no bytes", true, nullptr, 0, "The certificate DER is not valid."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ClsPkcs11 p;
        if (c.session)
            open(p, true);
        else {
            LogTree l;
            ASSERT_TRUE(p.loadModule(SoftHsmToken::kModule, l));
        }
        LogTree log;
        int keyType = 4, sigSize = 4;
        EXPECT_EQ(p.findPrivKeyHandleForCert(c.der, c.len, true, keyType, sigSize, log), 0u);
        EXPECT_EQ(keyType, 0);
        EXPECT_EQ(sigSize, 0);
        EXPECT_TRUE(log.hasError(c.error)) << log.text();
        EXPECT_EQ(log.numErrors(), 1) << log.text();
    }
}

// One DER INTEGER of unsigned big-endian bytes.
Bytes derInteger(const unsigned char* p, size_t n) {
    while (n > 1 && *p == 0) ++p, --n;
    Bytes v(p, p + n);
    if (v[0] & 0x80) v.insert(v.begin(), 0);
    v.insert(v.begin(), static_cast<unsigned char>(v.size()));
    v.insert(v.begin(), 0x02);
    return v;
}

// The r||s that PKCS#11 returns, as the ECDSA-Sig-Value openssl verifies.
Bytes ecdsaSigToDer(const Bytes& rs) {
    const size_t half = rs.size() / 2;
    Bytes body = derInteger(rs.data(), half);
    Bytes s = derInteger(rs.data() + half, half);
    body.insert(body.end(), s.begin(), s.end());
    body.insert(body.begin(), static_cast<unsigned char>(body.size()));
    body.insert(body.begin(), 0x30);
    return body;
}

// The handle found must be the certificate's own key: what it signs verifies
// under the certificate's public key, and the signature has the announced size.
TEST_F(ClsPkcs11Test, FoundKeySignsWhatTheCertificateVerifies) {
    enum Verify { RsaSha256, EcdsaDigest, EdDsa };
    struct Case {
        const char* name;
        const char* cert;
        unsigned long mechanism;
        size_t dataLen;
        Verify verify;
    };
    const Case cases[] = {
        {"RSA via certificate object", "rsa_cert", CKM_SHA256_RSA_PKCS, 100, RsaSha256},
        {"RSA via modulus", "rsa_key", CKM_SHA256_RSA_PKCS, 100, RsaSha256},
        {"P-256 via point", "ec256_key", CKM_ECDSA, 32, EcdsaDigest},
        {"P-384 via certificate object", "ec384_cert", CKM_ECDSA, 48, EcdsaDigest},
        {"Ed25519 via point", "ed_token", CKM_EDDSA, 100, EdDsa},
    };
    ClsPkcs11 p;
    open(p, true);
    ovtest::TempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogTree log;
        int keyType = 0, sigSize = 0;
        unsigned long h = find(p, c.cert, true, keyType, sigSize, log);
        ASSERT_NE(h, 0u) << log.text();

        Bytes data(c.dataLen);
        for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 1);
        DataBuffer sig;
        ASSERT_TRUE(
            p.sign(h, c.mechanism, data.data(), static_cast<unsigned>(data.size()), sig, log))
            << log.text();
        EXPECT_EQ(static_cast<int>(sig.getSize()), sigSize);

        Bytes sigBytes(sig.getData2(), sig.getData2() + sig.getSize());
        if (c.verify == EcdsaDigest) sigBytes = ecdsaSigToDer(sigBytes);
        const std::string dataFile = dir.file("data"), sigFile = dir.file("sig"),
                          pubFile = dir.file("pub.pem");
        ASSERT_TRUE(ovtest::writeFile(dataFile, std::string(data.begin(), data.end())));
        ASSERT_TRUE(ovtest::writeFile(sigFile, std::string(sigBytes.begin(), sigBytes.end())));
        ASSERT_EQ(ovtest::run("openssl x509 -inform DER -noout -pubkey -in " +
                              ovtest::shq(token->certPath(c.cert)) + " > " + ovtest::shq(pubFile)),
                  0);
        std::string verify;
        switch (c.verify) {
            case RsaSha256:
                verify = "openssl dgst -sha256 -verify " + ovtest::shq(pubFile) + " -signature " +
                         ovtest::shq(sigFile) + " " + ovtest::shq(dataFile);
                break;
            case EcdsaDigest:
                verify = "openssl pkeyutl -verify -pubin -inkey " + ovtest::shq(pubFile) + " -in " +
                         ovtest::shq(dataFile) + " -sigfile " + ovtest::shq(sigFile);
                break;
            case EdDsa:
                verify = "openssl pkeyutl -verify -pubin -rawin -inkey " + ovtest::shq(pubFile) +
                         " -in " + ovtest::shq(dataFile) + " -sigfile " + ovtest::shq(sigFile);
                break;
        }
        EXPECT_EQ(ovtest::run(verify), 0) << verify;
    }
}

TEST_F(ClsPkcs11Test, SignReportsTheTokensRefusal) {
    ClsPkcs11 p;
    open(p, true);
    LogTree log;
    int keyType = 0, sigSize = 0;
    unsigned long h = find(p, "ec256_key", true, keyType, sigSize, log);
    ASSERT_NE(h, 0u);
    DataBuffer sig;
    ASSERT_TRUE(sig.append("old", 3));
    const unsigned char data[32] = {1};
    EXPECT_FALSE(p.sign(h, CKM_SHA256_RSA_PKCS, data, sizeof data, sig, log));
    EXPECT_TRUE(sig.isEmpty());
    // Tokens refuse a mechanism of another key type at C_SignInit or at C_Sign.
    EXPECT_TRUE(log.hasError("C_SignInit failed.") || log.hasError("C_Sign failed.")) << log.text();
    EXPECT_EQ(log.numErrors(), 1) << log.text();
    // The session stays usable after a refused operation.
    EXPECT_TRUE(p.sign(h, CKM_ECDSA, data, sizeof data, sig, log)) << log.text();
    EXPECT_EQ(static_cast<int>(sig.getSize()), sigSize);
}

// The object serialises its users: one session cannot run two searches at once,
// so unlocked concurrent lookups would fail with CKR_OPERATION_ACTIVE.
TEST_F(ClsPkcs11Test, ConcurrentLookupsOnOneObject) {
    ClsPkcs11 p;
    open(p, true);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const char* cert = (t % 2) ? "ec256_key" : "rsa_key";
            Bytes der = token->certDer(cert);
            for (int i = 0; i < 25; ++i) {
                LogNull log;
                int keyType = 0, sigSize = 0;
                if (!p.findPrivKeyHandleForCert(der.data(), static_cast<unsigned>(der.size()), true,
                                                keyType, sigSize, log))
                    ++failures;
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(failures.load(), 0);
}

}  // namespace
