#include "support/store/SystemCerts.h"

#include <gtest/gtest.h>

#include <thread>

#include "cert/CertTestUtil.h"

using certtest::CertRef;
using certtest::fixture;

namespace {

CertCore* load(const std::string& name, LogBase& log) {
    std::string der = fixture(name);
    return CertCore::createFromDer2(reinterpret_cast<const unsigned char*>(der.data()),
                                    static_cast<unsigned>(der.size()), nullptr, nullptr, log);
}

class StoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        store = new SystemCerts();
        store->incRefCount();
    }
    void TearDown() override { store->decRefCount(); }
    SystemCerts* store = nullptr;
    LogTree log;
};

TEST_F(StoreTest, KeepsAReferenceAndIgnoresDuplicates) {
    CertRef root(load("root.der", log));
    CertRef rootAgain(load("root.der", log));
    ASSERT_TRUE(store->addCertificate(root.get(), log));
    EXPECT_EQ(root->getRefCount(), 2);
    ASSERT_TRUE(store->addCertificate(rootAgain.get(), log));  // same DER
    EXPECT_EQ(rootAgain->getRefCount(), 1);
    EXPECT_EQ(store->numCerts(), 1);
    EXPECT_FALSE(store->addCertificate(nullptr, log));
    CertRef empty(CertCore::createNewCert());
    EXPECT_FALSE(store->addCertificate(empty.get(), log));
}

TEST_F(StoreTest, FindsIssuersByNameKeyIdAndSignature) {
    CertRef root(load("root.der", log)), inter(load("inter.der", log)), leaf(load("ec.der", log));
    store->addCertificate(root.get(), log);
    store->addCertificate(inter.get(), log);
    EXPECT_EQ(store->sysCertsFindIssuer(*leaf.get(), true, log), inter.get());
    EXPECT_EQ(store->sysCertsFindIssuer(*inter.get(), true, log), root.get());
    EXPECT_EQ(store->sysCertsFindIssuer(*root.get(), true, log), root.get());  // self-signed
    EXPECT_EQ(store->sysCertsFindIssuer(*leaf.get(), false, log), inter.get());
}

TEST_F(StoreTest, NameMatchWithoutValidSignature) {
    // A certificate issued by "Intermediate" whose signature does not verify:
    // flip a byte of the signature.
    std::string der = fixture("ec.der");
    der[der.size() - 5] ^= 0x01;
    CertRef forged(CertCore::createFromDer2(reinterpret_cast<const unsigned char*>(der.data()),
                                            static_cast<unsigned>(der.size()), nullptr, nullptr,
                                            log));
    ASSERT_TRUE(forged);
    CertRef inter(load("inter.der", log));
    store->addCertificate(inter.get(), log);
    EXPECT_EQ(store->sysCertsFindIssuer(*forged.get(), true, log), nullptr);
    EXPECT_EQ(store->sysCertsFindIssuer(*forged.get(), false, log), inter.get());

    CertRef unrelated(load("rsa.der", log));  // issued by the intermediate, not in store
    SystemCerts* other = new SystemCerts();
    other->incRefCount();
    EXPECT_EQ(other->sysCertsFindIssuer(*unrelated.get(), false, log), nullptr);
    other->decRefCount();
}

TEST_F(StoreTest, ConcurrentAddsAndLookups) {
    CertRef root(load("root.der", log)), inter(load("inter.der", log)), leaf(load("rsa.der", log));
    std::thread adder([&] {
        LogNull l;
        for (int i = 0; i < 200; ++i) {
            store->addCertificate(root.get(), l);
            store->addCertificate(inter.get(), l);
        }
    });
    std::thread finder([&] {
        LogNull l;
        for (int i = 0; i < 200; ++i) store->sysCertsFindIssuer(*leaf.get(), true, l);
    });
    adder.join();
    finder.join();
    EXPECT_EQ(store->numCerts(), 2);
    EXPECT_EQ(store->sysCertsFindIssuer(*leaf.get(), true, log), inter.get());
}

}  // namespace
