#include "support/store/SystemCerts.h"

#include <gtest/gtest.h>

#include "cert/CertTestUtil.h"

using certtest::CertRef;
using certtest::fixture;

namespace {

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
    CertRef root(certtest::loadDer("root.der", log));
    CertRef rootAgain(certtest::loadDer("root.der", log));
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
    CertRef root(certtest::loadDer("root.der", log)), inter(certtest::loadDer("inter.der", log)),
        leaf(certtest::loadDer("ec.der", log));
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
    CertRef inter(certtest::loadDer("inter.der", log));
    store->addCertificate(inter.get(), log);
    EXPECT_EQ(store->sysCertsFindIssuer(*forged.get(), true, log), nullptr);
    EXPECT_EQ(store->sysCertsFindIssuer(*forged.get(), false, log), inter.get());

    CertRef unrelated(
        certtest::loadDer("rsa.der", log));  // issued by the intermediate, not in store
    SystemCerts* other = new SystemCerts();
    other->incRefCount();
    EXPECT_EQ(other->sysCertsFindIssuer(*unrelated.get(), false, log), nullptr);
    other->decRefCount();
}

}  // namespace
