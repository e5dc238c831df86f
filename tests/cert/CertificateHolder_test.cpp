#include "cert/CertificateHolder.h"

#include <gtest/gtest.h>

#include "cert/CertCore.h"
#include "cert/CertTestUtil.h"
#include "support/base/Psdk.h"
#include "support/store/SystemCerts.h"

using certtest::derOf;
using certtest::fixture;

namespace {

class HolderTest : public ::testing::Test {
  protected:
    std::string der = fixture("rsa.der");
    const unsigned char* bytes() const {
        return reinterpret_cast<const unsigned char*>(der.data());
    }
    unsigned size() const { return static_cast<unsigned>(der.size()); }
    LogTree log;
};

TEST_F(HolderTest, FactoryObjectsStartAtZeroAndHoldersTakeOneReference) {
    CertCore* cert = CertCore::createFromDer2(bytes(), size(), nullptr, nullptr, log);
    ASSERT_NE(cert, nullptr);
    EXPECT_EQ(cert->getRefCount(), 0);
    EXPECT_EQ(cert->m_magic, CertCore::kMagic);
    EXPECT_EQ(cert->m_keyType, 0);
    EXPECT_EQ(cert->m_pkcs11, nullptr);
    EXPECT_TRUE(cert->m_privateKey.isEmpty());

    CertificateHolder* h = CertificateHolder::createFromCert(cert, log);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(cert->getRefCount(), 1);
    h->setCert(cert);  // same certificate: no change
    EXPECT_EQ(cert->getRefCount(), 1);
    h->setCert(nullptr);
    EXPECT_EQ(h->getCertPtr(log), cert);

    CertificateHolder* clone = h->cloneCertHolder();
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(cert->getRefCount(), 2);
    EXPECT_EQ(clone->getCertPtr(log), cert);
    EXPECT_EQ(clone->m_systemCerts, nullptr);
    delete clone;
    EXPECT_EQ(cert->getRefCount(), 1);
    delete h;  // last reference: the certificate goes with it (ASan checks)
}

TEST_F(HolderTest, RefCount1FactoryBelongsToCaller) {
    auto* x509 = new OrvaneX509();
    ASSERT_TRUE(x509->loadX509DerAlt(bytes(), size(), nullptr, log));
    CertCore* cert = CertificateHolder::newCertFromX509_refcount1(x509, log);
    ASSERT_NE(cert, nullptr);
    EXPECT_EQ(cert->getRefCount(), 1);
    EXPECT_EQ(derOf(cert), der);
    EXPECT_EQ(CertificateHolder::newCertFromX509_refcount1(nullptr, log), nullptr);
    cert->decRefCount();
}

TEST_F(HolderTest, DerDepositParsesOnceWithoutStoreAndFailuresAreNotRetried) {
    SystemCerts* store = new SystemCerts();
    store->incRefCount();

    // Null context: a deposit, parsed later, never with a store.
    CertificateHolder* good = CertificateHolder::createFromDer(bytes(), size(), nullptr, log);
    ASSERT_NE(good, nullptr);
    EXPECT_NE(good->m_depositDer, nullptr);
    EXPECT_EQ(good->m_cert, nullptr);
    CertCore* c = good->getCertPtr(log);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(good->m_depositDer, nullptr);
    EXPECT_EQ(c->getRefCount(), 1);
    EXPECT_EQ(derOf(c), der);

    // Bad bytes with a null context still give a holder; the failure shows later.
    CertificateHolder* bad = CertificateHolder::createFromDer(
        reinterpret_cast<const unsigned char*>("junk"), 4, nullptr, log);
    ASSERT_NE(bad, nullptr);
    EXPECT_EQ(bad->getCertPtr(log), nullptr);
    EXPECT_TRUE(log.hasErrors());
    int entries = log.numEntries();
    EXPECT_EQ(bad->getCertPtr(log), nullptr);
    EXPECT_EQ(log.numEntries(), entries);  // not retried, nothing logged

    // Non-null context parses now; bad bytes give null.
    int dummy = 0;
    EXPECT_EQ(CertificateHolder::createFromDer(reinterpret_cast<const unsigned char*>("junk"), 4,
                                               &dummy, log),
              nullptr);
    CertificateHolder* now = CertificateHolder::createFromDer(bytes(), size(), &dummy, log);
    ASSERT_NE(now, nullptr);
    EXPECT_NE(now->m_cert, nullptr);

    EXPECT_EQ(store->numCerts(), 0);
    delete good;
    delete bad;
    delete now;
    store->decRefCount();
}

TEST_F(HolderTest, ClonesOfDepositsCopyTheDepositAndShareTheStore) {
    SystemCerts* store = new SystemCerts();
    store->incRefCount();
    std::string b64 = fixture("ec.b64");
    CertificateHolder* h = CertificateHolder::createFromBase64(
        b64.data(), static_cast<unsigned>(b64.size()), store, log);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(store->getRefCount(), 2);
    CertificateHolder* clone = h->cloneCertHolder();
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone->m_systemCerts, store);
    EXPECT_EQ(store->getRefCount(), 3);
    ASSERT_NE(clone->m_depositB64, nullptr);
    EXPECT_NE(clone->m_depositB64, h->m_depositB64);
    EXPECT_TRUE(clone->m_depositB64->equals(*h->m_depositB64));

    CertCore* a = h->getCertPtr(log);
    CertCore* b = clone->getCertPtr(log);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a, b);
    EXPECT_EQ(derOf(a), derOf(b));
    EXPECT_EQ(h->m_systemCerts, store);  // kept after the deposit is parsed
    delete h;
    delete clone;
    EXPECT_EQ(store->getRefCount(), 1);
    store->decRefCount();
}

TEST_F(HolderTest, ArraysOfHolders) {
    ExtPtrArray from, to;
    CertCore* cert = CertCore::createFromDer2(bytes(), size(), nullptr, nullptr, log);
    ASSERT_TRUE(CertificateHolder::appendNewCertHolder(cert, from, log));
    from.appendPtr(nullptr);
    from.appendPtr(CertificateHolder::createFromDer(bytes(), size(), nullptr, log));
    EXPECT_FALSE(CertificateHolder::appendNewCertHolder(nullptr, from, log));
    EXPECT_TRUE(CertificateHolder::copyCertHolders(from, to));
    EXPECT_EQ(to.getSize(), 2);  // the null element is skipped
    EXPECT_EQ(cert->getRefCount(), 2);
    EXPECT_EQ(CertificateHolder::getNthCert(to, 0, log), cert);
    EXPECT_NE(CertificateHolder::getNthCert(to, 1, log), nullptr);
    EXPECT_EQ(CertificateHolder::getNthCert(to, 2, log), nullptr);
    EXPECT_EQ(CertificateHolder::getNthCert(from, 1, log), nullptr);
}

TEST_F(HolderTest, BrokenSentinelsAreReportedNotFollowed) {
    Psdk::resetCounts();
    CertCore* cert = CertCore::createFromDer2(bytes(), size(), nullptr, nullptr, log);
    ASSERT_NE(cert, nullptr);
    CertificateHolder h;
    h.setCert(cert);
    cert->m_magic = 0;  // simulate a stale object
    EXPECT_EQ(h.getCertPtr(log), nullptr);
    EXPECT_EQ(Psdk::badObjectCount(), 1u);
    CertCore* other = CertCore::createNewCert();
    h.setCert(other);  // old certificate is bad: reported, left in place
    EXPECT_EQ(Psdk::badObjectCount(), 2u);
    EXPECT_EQ(h.m_cert, cert);
    cert->m_magic = CertCore::kMagic;
    delete other;
}

TEST_F(HolderTest, AdoptingParsedCertificates) {
    EXPECT_EQ(CertCore::createFromOrvaneX509_2(nullptr, log), nullptr);
    EXPECT_EQ(CertificateHolder::createFromOrvaneX509(nullptr, log), nullptr);
    auto* x509 = new OrvaneX509();
    ASSERT_TRUE(x509->loadX509DerAlt(bytes(), size(), nullptr, log));
    CertificateHolder* h = CertificateHolder::createFromOrvaneX509(x509, log);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->getCertPtr(log)->getRefCount(), 1);
    EXPECT_EQ(derOf(h->getCertPtr(log)), der);
    delete h;
}

}  // namespace
