#include "support/pkcs11/ClsPkcs11.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "support/base/DataBuffer.h"
#include "support/pkcs11/SoftHsmToken.h"

namespace {

using ovtest::shq;

using namespace softhsm;

// The handle of the private key for tests/data/pkcs11/<cert>.cert.der; 0: none.
unsigned long findKey(ClsPkcs11& p, const std::string& cert, bool mustSign, int& keyType,
                      int& sigSize, LogBase& log) {
    const auto der = ovtest::readFileBytes(ovtest::dataPath("pkcs11/" + cert + ".cert.der"));
    return p.findPrivKeyHandleForCert(der.data(), static_cast<unsigned>(der.size()), mustSign,
                                      keyType, sigSize, log);
}

class Pkcs11Test : public ::testing::Test {
  protected:
    void SetUp() override { requireToken(); }
};

TEST_F(Pkcs11Test, FailuresGiveOneClearLine) {
    const unsigned char notCert[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    std::vector<unsigned long> slots;
    int keyType = 0, sigSize = 0;
#define CALL(expr) [&](ClsPkcs11& p, LogTree& l) { return expr; }
#define LOADED(expr) CALL(p.loadModule(kModule, l) && (expr))
#define SESSION(expr) LOADED(p.openSession(-1, false, l) && (expr))
    struct Case {
        bool emptyStore;  // no initialised token
        std::function<bool(ClsPkcs11&, LogTree&)> call;
        const char* error;
    } const cases[] = {
        {false, CALL(p.loadModule("/nonexistent/absent.so", l)),
         "Failed to load the PKCS11 module."},
        {false, CALL(p.loadModule("/lib/x86_64-linux-gnu/libz.so.1", l)),
         "The library is not a PKCS11 module (it has no C_GetFunctionList)."},
        {false, CALL(p.openSession(-1, false, l)), "No PKCS11 module is loaded."},
        {true, LOADED(p.openSession(-1, false, l)), "No PKCS11 slot has an initialized token."},
        {true, LOADED(p.listSlots(true, slots, l) && p.openSession(slots.at(0), false, l)),
         "The token in the PKCS11 slot is not initialized."},
        {false, LOADED(p.openSession(987654321, false, l)), "The PKCS11 slot does not exist."},
        {false, LOADED(p.login(1, kPin, l)), "No PKCS11 session is open."},
        {false, SESSION(p.login(7, kPin, l)), "Invalid PKCS11 user type."},
        {false, SESSION(p.findPrivKeyHandleForCert(notCert, 5, true, keyType, sigSize, l)),
         "The certificate DER is not valid."},
    };
#undef SESSION
#undef LOADED
#undef CALL
    for (const Case& c : cases) {
        SCOPED_TRACE(c.error);
        useStore(c.emptyStore);
        ClsPkcs11 p;
        LogTree log;
        EXPECT_FALSE(c.call(p, log));
        EXPECT_TRUE(log.hasError(c.error) && log.numErrors() == 1) << log.text();
    }
    useStore();
}

TEST_F(Pkcs11Test, LoginChecksThePinAndNeverLogsIt) {
    ClsPkcs11 p;
    open(p, false);
    LogTree log;
    log.verboseLogging = 1;
    EXPECT_FALSE(p.alreadyLoggedIn(1, log) || p.login(1, kWrongPin, log));
    std::string ckr;
    EXPECT_TRUE(log.hasError("PKCS11 login failed.") && log.findData("ckr", ckr)) << log.text();
    EXPECT_EQ(ckr, "CKR_PIN_INCORRECT");

    ASSERT_TRUE(p.login(1, kPin, log)) << log.text();
    EXPECT_TRUE(p.alreadyLoggedIn(1, log) && !p.alreadyLoggedIn(0, log)) << "user, not SO";
    EXPECT_TRUE(p.login(1, kPin, log)) << "being logged in already is not a failure";
    EXPECT_TRUE(p.logout(log) && !p.alreadyLoggedIn(1, log));
    // The SO logs in only on read-write sessions.
    ASSERT_TRUE(p.openSession(-1, true, log) && p.login(0, kSoPin, log)) << log.text();
    EXPECT_TRUE(p.alreadyLoggedIn(0, log) && !p.alreadyLoggedIn(1, log));

    for (const char* pin : {kWrongPin, kPin, kSoPin})
        EXPECT_EQ(log.text().find(pin), std::string::npos) << log.text();
    EXPECT_EQ(log.numErrors(), 1) << log.text();
}

// The handle must be the certificate's own key (two RSA keys are on the token),
// so it signs as the certificate's private key does. The EC key may not sign.
TEST_F(Pkcs11Test, FindsTheKeyOfEachCertificate) {
    const char* const viaCert = "Found the private key through the certificate on the token.";
    const char* const viaKey = "Found the private key by its public key.";
    const char* const none = "No private key on the token matches the certificate.";
    struct Case {
        const char* cert;
        bool mustSign;
        int keyType, sigSize;
        const char* info;
    } const cases[] = {
        {"rsa_cert", true, 1, 256, viaCert},  // paired by CKA_ID
        {"rsa_key", true, 1, 256, viaKey},    // by modulus
        {"ec256_key", false, 3, 64, viaKey},  // by the point of its public-key object
        {"ec256_key", true, 0, 0, none},
        {"orphan", true, 0, 0, none},  // certificate object without its key
        {"stranger", true, 0, 0, none},
    };
    ClsPkcs11 p;
    open(p, true);
    const std::string data = "signed on the token";
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.cert) + (c.mustSign ? " to sign" : ""));
        LogTree log;
        log.verboseLogging = 1;
        int keyType = -1, sigSize = -1;
        const unsigned long h = findKey(p, c.cert, c.mustSign, keyType, sigSize, log);
        EXPECT_EQ(h != 0, c.keyType != 0);
        EXPECT_EQ(std::make_pair(keyType, sigSize), std::make_pair(c.keyType, c.sigSize));
        EXPECT_TRUE(log.hasInfo(c.info)) << log.text();
        if (!h) continue;

        // PKCS#1 v1.5 signatures are deterministic: openssl, with the certificate's
        // private key, must produce the same bytes. sign replaces what sig held.
        DataBuffer sig;
        std::string expected;
        ASSERT_TRUE(sig.append("old", 3));
        const bool ok = p.sign(h, c.keyType == 1 ? CKM_SHA256_RSA_PKCS : CKM_ECDSA,
                               reinterpret_cast<const unsigned char*>(data.data()),
                               static_cast<unsigned>(data.size()), sig, log);
        EXPECT_EQ(ok, c.keyType == 1) << log.text();
        EXPECT_EQ(log.hasError("C_SignInit failed."), !ok);
        if (ok)
            ovtest::run("printf %s " + shq(data) + " | openssl dgst -sha256 -sign " +
                            shq(ovtest::dataPath("pkcs11/" + std::string(c.cert) + ".key.der")),
                        &expected);
        EXPECT_EQ(ovtest::bytes(sig), expected);
    }
}

// The module is initialised once per process: one object's unload must not
// finalise it under another, the last must, and a module that other code
// initialised is used but left for that code to finalise.
TEST_F(Pkcs11Test, ModuleInitialisationIsShared) {
    void* lib = dlopen(kModule, RTLD_NOW | RTLD_LOCAL);
    auto getList =
        reinterpret_cast<CK_C_GetFunctionList>(lib ? dlsym(lib, "C_GetFunctionList") : nullptr);
    CK_FUNCTION_LIST* raw = nullptr;
    ASSERT_TRUE(getList && getList(&raw) == CKR_OK);
    LogTree log;
    CK_INFO info;
    auto first = std::make_unique<Pkcs11Module>();
    Pkcs11Module second;
    ASSERT_TRUE(first->load(kModule, log) && second.load(kModule, log)) << log.text();
    first.reset();
    EXPECT_EQ(second.functions()->C_GetInfo(&info), CKR_OK) << "finalised under another user";
    second.unload();
    ASSERT_EQ(raw->C_Initialize(nullptr), CKR_OK) << "the last unload did not finalise";
    ASSERT_TRUE(Pkcs11Module().load(kModule, log)) << log.text();
    EXPECT_EQ(raw->C_GetInfo(&info), CKR_OK) << "finalised a module initialised elsewhere";
    raw->C_Finalize(nullptr);
    dlclose(lib);
}

// One session runs one search at a time: without the object's lock, concurrent
// lookups would fail with CKR_OPERATION_ACTIVE.
TEST_F(Pkcs11Test, ConcurrentLookupsOnOneObject) {
    ClsPkcs11 p;
    open(p, true);
    std::atomic<int> found{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            LogNull log;
            int keyType = 0, sigSize = 0;
            for (int i = 0; i < 25; ++i)
                found += findKey(p, "rsa_key", true, keyType, sigSize, log) != 0;
        });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(found.load(), 100);
}

}  // namespace
