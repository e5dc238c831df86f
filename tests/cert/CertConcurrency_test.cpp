// One certificate asked by many threads at once. Also run under
// ThreadSanitizer, which reports any unguarded read of shared state.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "cert/query/QueryTestUtil.h"
#include "support/asn1/Asn1Node.h"
#include "support/crypto/OvPublicKey.h"
#include "support/time/OrvaneSysTime.h"

using qtest::CertRef;

namespace {

constexpr int kThreads = 8;

// Runs body(i) on kThreads threads released together, so that first calls meet.
void together(const std::function<void(int)>& body) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < kThreads) std::this_thread::yield();
            body(i);
        });
    for (auto& t : threads) t.join();
}

// A query's answer as text.
struct Text {
    static std::string of(const XString& s) { return s.getUtf8(); }
    static std::string of(const StringBuffer& s) { return s.getString(); }
    static std::string of(const DataBuffer& d) { return qtest::enc(d); }
    static std::string of(const OrvaneSysTime& t) { return std::to_string(t.toUnixTime()); }
    static std::string of(const _ovPublicKey& k) { return qtest::enc(k.spkiDer()); }
    static std::string of(long v) { return std::to_string(v); }
    static std::string of(_ovAsn1* a) {
        RefCountedObject::release(a);
        return a ? "asn" : "-";
    }
};
// Inputs and extra outputs of the queries, one set per thread.
thread_local XString t_sha256("sha256"), t_base64("base64"), t_b64;
thread_local int t_bits;

// Each query's answer as text: what c.call leaves in its output o of type T, or
// the value of expr. Every thread must get the answer one thread gets alone.
using Query = std::function<std::string(CertCore&, LogBase&)>;
// clang-format off
#define OUT(T, call) [](CertCore& c, [[maybe_unused]] LogBase& l) { T o; c.call; return Text::of(o); }
#define VAL(expr) [](CertCore& c, [[maybe_unused]] LogBase& l) { return Text::of(expr); }
// clang-format on
const std::vector<Query>& queries() {
    static const std::vector<Query> all = {
        OUT(XString, getSubjectPart("CN", o, l)),
        OUT(XString, getIssuerPart("O", o, l)),
        OUT(XString, getSubjectDN(o, l)),
        OUT(XString, getIssuerDN_noTags(o, l)),
        OUT(XString, getDN_ordered(true, true, true, 0, o, l)),
        OUT(StringBuffer, getDnJson(false, o, l)),
        VAL(c.getSubjectDnAsn(l)),
        OUT(XString, getIssuerSerial(o, l)),
        OUT(XString, getEmailAddress(o, l)),
        VAL(c.isIssuerSelf(l) + 2 * c.is_country_eu(l)),
        OUT(DataBuffer, getExtensionDer("2.5.29.15", o, l)),
        OUT(StringBuffer, getExtensionText("2.5.29.19", o, l)),
        OUT(StringBuffer, getExtensionXml("2.5.29.15", o, l)),
        OUT(StringBuffer, getSubjectKeyIdentifier(o, l)),
        OUT(XString, getSubjectAlternativeNameXml(o, l)),
        OUT(StringBuffer, getExtendedKeyUsage(o, l)),
        OUT(DataBuffer, getAuthorityKeyIdentifier(o, &t_b64, l)),
        VAL(c.getIntendedKeyUsage(l)),
        VAL(c.getVersion(l)),
        VAL(c.forSecureEmail(l) + 2 * c.forServerAuthentication(l)),
        VAL(c.forClientAuthentication(l) + 2 * c.forCodeSigning(l) + 4 * c.forTimeStamping(l)),
        OUT(XString, getSerialNumber(o, l)),
        OUT(XString, getSerialDecimal(o, l)),
        OUT(StringBuffer, getValidFromSb(o, l)),
        OUT(StringBuffer, getValidToSb(o, l)),
        OUT(OrvaneSysTime, getValidTo(o, l)),
        VAL(c.isCertExpired(l)),
        OUT(StringBuffer, getOrvaneKeyId64(o, l)),
        OUT(DataBuffer, getPartDer(0, o, l)),
        OUT(DataBuffer, getPartDer(1, o, l)),
        OUT(DataBuffer, getPartDer(2, o, l)),
        OUT(DataBuffer, getPartDer(3, o, l)),
        OUT(DataBuffer, getPublicKeyAsDER(o, l)),
        OUT(DataBuffer, getPublicKeyForOCSP(o, l)),
        OUT(DataBuffer, getPublicKeyAsDER_2(false, o, l)),
        OUT(XString, getSpkiFingerprint(t_sha256, t_base64, o, l)),
        OUT(XString, getSha1ThumbprintX(o, l)),
        OUT(DataBuffer, getCertSignature(o, l)),
        VAL(c.verifyCertSignature(nullptr, l)),
        OUT(XString, toXml(o, l)),
        OUT(_ovPublicKey, getCertPublicKey(o, l)),
        OUT(int, getCertKeyType(o, l)),
        VAL(c.getCertKeyType(t_bits, l)),
        OUT(StringBuffer, appendCertKeyType(o, l)),
        OUT(DataBuffer, getDEREncodedCert(o)),
        VAL(c.getDEREncodedCertSize()),
        OUT(StringBuffer, getPem(o, l)),
        OUT(StringBuffer, getX509PKIPathv1(o, l))};
    return all;
}
#undef OUT
#undef VAL

TEST(CertConcurrency, EveryQueryFromEightThreadsAgreesWithOne) {
    for (const char* file : {"rsa.pem", "ec256.pem"}) {
        SCOPED_TRACE(file);
        CertRef cert(qtest::load(file)), fresh(qtest::load(file));  // caches fill under contention
        std::vector<std::string> alone;
        LogNull log;
        for (const Query& q : queries()) alone.push_back(q(*fresh, log));
        std::atomic<int> differ{0};
        together([&](int i) {
            LogNull log;
            for (int round = 0; round < 3; ++round)
                for (size_t k = 0; k < queries().size(); ++k) {
                    size_t n = (k + static_cast<size_t>(i) * 5) % queries().size();
                    if (queries()[n](*cert, log) != alone[n]) ++differ;
                }
        });
        EXPECT_EQ(differ.load(), 0);
    }
}

// The first key-type calls on a fresh certificate: whoever sees a type sees
// its size with it.
TEST(CertConcurrency, FirstKeyTypeCallsSeeTypeAndSizeTogether) {
    std::atomic<int> torn{0};
    for (int round = 0; round < 40; ++round) {
        CertRef cert(qtest::load("rsa.pem"));
        together([&](int i) {
            LogNull log;
            for (int k = 0; k < 20; ++k) {
                int bits = -1;
                int type = cert->getCertKeyType(bits, log);
                StringBuffer name;
                if (i % 2) cert->appendCertKeyType(name, log);
                if (type != 1 || bits != 2048 || (i % 2 && !name.equals("rsa"))) ++torn;
            }
        });
    }
    EXPECT_EQ(torn.load(), 0);
}

}  // namespace
