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

std::string x(const XString& s) {
    return s.getUtf8();
}
std::string sb(const StringBuffer& s) {
    return s.getString();
}

// Each query's answer as text; every thread must get the answer one thread gets
// alone.
using Query = std::function<std::string(CertCore&, LogBase&)>;
const std::vector<Query>& queries() {
    static const std::vector<Query> all = {
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getSubjectPart("CN", o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getIssuerPart("O", o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getSubjectDN(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getIssuerDN_noTags(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getDN_ordered(true, true, true, 0, o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getDnJson(false, o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            _ovAsn1* a = c.getSubjectDnAsn(l);
            RefCountedObject::release(a);
            return std::string(a ? "asn" : "-");
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getIssuerSerial(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getEmailAddress(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            return std::to_string(c.isIssuerSelf(l) + 2 * c.is_country_eu(l));
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer o;
            c.getExtensionDer("2.5.29.15", o, l);
            return qtest::enc(o);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getExtensionText("2.5.29.19", o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getExtensionXml("2.5.29.15", o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getSubjectKeyIdentifier(o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getSubjectAlternativeNameXml(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getExtendedKeyUsage(o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer id;
            XString b64;
            c.getAuthorityKeyIdentifier(id, &b64, l);
            return x(b64) + std::to_string(c.getIntendedKeyUsage(l)) +
                   std::to_string(c.getVersion(l));
        },
        [](CertCore& c, LogBase& l) {
            return std::to_string(c.forSecureEmail(l) + 2 * c.forServerAuthentication(l) +
                                  4 * c.forClientAuthentication(l) + 8 * c.forCodeSigning(l) +
                                  16 * c.forTimeStamping(l));
        },
        [](CertCore& c, LogBase& l) {
            XString o, d;
            c.getSerialNumber(o, l);
            c.getSerialDecimal(d, l);
            return x(o) + x(d);
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer from, to;
            c.getValidFromSb(from, l);
            c.getValidToSb(to, l);
            OrvaneSysTime t;
            c.getValidTo(t, l);
            return sb(from) + sb(to) + std::to_string(c.isCertExpired(l));
        },
        [](CertCore& c, LogBase& l) {
            StringBuffer o;
            c.getOrvaneKeyId64(o, l);
            return sb(o);
        },
        [](CertCore& c, LogBase& l) {
            std::string all;
            for (int part = 0; part < 4; ++part) {
                DataBuffer o;
                c.getPartDer(part, o, l);
                all += qtest::enc(o) + ";";
            }
            return all;
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer a, b;
            c.getPublicKeyAsDER(a, l);
            c.getPublicKeyForOCSP(b, l);
            return qtest::enc(a) + qtest::enc(b);
        },
        [](CertCore& c, LogBase& l) {
            XString alg("sha256"), enc("base64"), o;
            c.getSpkiFingerprint(alg, enc, o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.getSha1ThumbprintX(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer o;
            c.getCertSignature(o, l);
            return qtest::enc(o);
        },
        [](CertCore& c, LogBase& l) { return std::to_string(c.verifyCertSignature(nullptr, l)); },
        [](CertCore& c, LogBase& l) {
            XString o;
            c.toXml(o, l);
            return x(o);
        },
        [](CertCore& c, LogBase& l) {
            _ovPublicKey k;
            int bits = 0;
            StringBuffer name;
            c.getCertPublicKey(k, l);
            int type = c.getCertKeyType(bits, l);
            c.appendCertKeyType(name, l);
            return std::to_string(type) + "/" + std::to_string(bits) + sb(name);
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer o;
            c.getPublicKeyAsDER_2(false, o, l);
            return qtest::enc(o);
        },
        [](CertCore& c, LogBase& l) {
            DataBuffer o;
            StringBuffer pem, path;
            c.getDEREncodedCert(o);
            c.getPem(pem, l);
            c.getX509PKIPathv1(path, l);
            return qtest::enc(o) + sb(pem) + sb(path) + std::to_string(c.getDEREncodedCertSize());
        },
    };
    return all;
}

TEST(CertConcurrency, EveryQueryFromEightThreadsAgreesWithOne) {
    for (const char* file : {"rsa.pem", "ec256.pem"}) {
        SCOPED_TRACE(file);
        CertRef cert(qtest::load(file));
        ASSERT_TRUE(cert);
        std::vector<std::string> alone;
        {
            CertRef fresh(qtest::load(file));  // caches must fill under contention below
            LogNull log;
            for (const Query& q : queries()) alone.push_back(q(*fresh.get(), log));
        }
        std::atomic<int> differ{0};
        together([&](int i) {
            LogNull log;
            for (int round = 0; round < 3; ++round)
                for (size_t k = 0; k < queries().size(); ++k) {
                    size_t n = (k + static_cast<size_t>(i) * 5) % queries().size();
                    if (queries()[n](*cert.get(), log) != alone[n]) ++differ;
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
