// The OCSP check against real responders (openssl ocsp on a loopback port):
// each answer read by our reader and by `openssl ocsp -respin -resp_text`.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "OcspTestPki.h"
#include "cert/CertTestUtil.h"
#include "revocation/OcspResponse.h"
#include "revocation/RevocationReason.h"
#include "support/net/ClsHttp.h"
#include "support/store/SystemCerts.h"

using certtest::CertRef;
using revocation::OcspAsked;
using revocation::OcspResponse;
using revocation::OcspSingle;

namespace {

using ocsptest::pki;

// A certificate of the PKI by name ("ca", "good", ...), count 0.
CertCore* load(const std::string& name) {
    LogNull log;
    return CertCore::createFromFile2(pki().file(name + ".pem").c_str(), nullptr, log);
}

// An RFC 3339 time as openssl prints it: "Nov  4 12:45:00 2026 GMT".
std::string gmt(const std::string& t) {
    std::string out;
    ovtest::run("date -u -d " + t + " '+%b %e %T %Y GMT'", &out);
    return out.substr(0, out.find('\n'));
}

class CertOcspCheck : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(pki().made()) << "the openssl command line failed to make the PKI";
        m_store = RefPtr<SystemCerts>::retain(new SystemCerts());
        LogNull quiet;
        CertRef ca(load("ca"));
        ASSERT_TRUE(ca && m_store->addCertificate(ca.get(), quiet));
        m_ca = m_store->certAt(0);
    }

    // Asks about the leaf; the response is kept in m_resp and resp.der.
    bool check(const std::string& url, const std::string& leaf, LogTree& log) {
        CertRef cert(load(leaf));
        m_der.clear();
        return cert &&
               cert->doOcspCheck(m_http, url.c_str(), *m_store, m_der, m_sent, log, nullptr) &&
               ovtest::writeFile(pki().file("resp.der"), ovtest::bytes(m_der)) &&
               m_resp.load(m_der.getData2(), m_der.getSize(), log);
    }

    RefPtr<SystemCerts> m_store;
    CertCore* m_ca = nullptr;
    ClsHttp m_http;
    DataBuffer m_der;
    OcspAsked m_sent;
    OcspResponse m_resp;
};

// Each answer as openssl reads it, our nonce echoed in it, signed by the root
// (by name or by key hash) or a delegated responder; a certificate without
// id-kp-OCSPSigning or a key that is not the root's fails. The HTTP client logs
// into our log only when asked to ("LOG_OCSP_HTTP", given for one leaf).
TEST_F(CertOcspCheck, EachAnswerAsOpensslReadsItAndWhoSigned) {
    using Sig = OcspResponse::Signature;
    const char* cases[][4] = {
        {"ca", "", "good", ""},
        {"ca", "", "revoked", ""},
        {"ca", "", "expired", ""},
        {"ca", "-resp_key_id", "good", ""},
        {"delegate", "", "good", ""},
        {"delegate", "-resp_key_id", "good", ""},
        {"plain", "", "good", "The OCSP responder certificate is not marked for OCSP signing."},
        {"rogue", "", "good", "The OCSP response signature is not valid."},
        {"delegate", "-resp_no_certs", "good",
         "No certificate that may sign the OCSP response matches its responder ID."},
    };
    std::set<std::string> nonces;
    for (const auto& c : cases) {
        const char *leaf = c[2], *error = c[3];
        SCOPED_TRACE(std::string(c[0]) + " " + c[1] + " " + leaf);
        ovtest::PeerProcess responder;
        const std::string url = pki().startResponder(responder, c[0], c[1]);
        ASSERT_FALSE(url.empty());
        LogTree log;
        const bool httpLog = !strcmp(leaf, "revoked");
        if (httpLog) log.logKeywords.append("X,LOG_OCSP_HTTP");
        ASSERT_TRUE(check(url, leaf, log)) << log.text();
        const OcspSingle* s = m_resp.find(m_sent);
        std::string code, text, status[] = {"good", "revoked", "unknown"}, nonce;
        ASSERT_NE(s, nullptr);
        EXPECT_TRUE(log.findData("ocspResponseStatusCode", code) && code == "200");
        EXPECT_EQ(httpLog, log.text().find("binaryRequest") != std::string::npos);
        ASSERT_TRUE(pki().sh("openssl ocsp -respin resp.der -resp_text -noverify", &text));
        ASSERT_EQ(0, memcmp(m_sent.nonce.getData2(), "\x04\x10", 2));
        for (unsigned char b : ovtest::bytes(m_sent.nonce))
            nonce += {"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
        std::string want[] = {
            "Cert Status: " + status[static_cast<int>(s->status)],
            "This Update: " + gmt(s->thisUpdate),
            "Next Update: " + gmt(s->nextUpdate),
            "OCSP Nonce: \n            " + nonce,
            httpLog ? "Revocation Time: " + gmt(s->revocationTime) : "",
            httpLog ? std::string("Revocation Reason: ") + revocation::reasonName(s->reason) + " "
                    : ""};
        for (const std::string& w : want) EXPECT_NE(text.find(w), std::string::npos) << w << text;
        EXPECT_EQ(OcspResponse::Nonce::Match, m_resp.nonce(m_sent));
        EXPECT_EQ(*error ? Sig::Invalid : Sig::Valid, m_resp.verify(m_ca, log)) << log.text();
        EXPECT_TRUE(!*error || log.hasError(error)) << log.text();
        EXPECT_EQ(Sig::Unchecked, m_resp.verify(nullptr, log));
        // The expired leaf is asked about all the same, with the warning.
        EXPECT_EQ(!strcmp(leaf, "expired"),
                  log.hasError("This certificate is expired. OCSP responder may give \"Request "
                               "unauthorized\" response."));
        nonces.insert(ovtest::bytes(m_sent.nonce));
    }
    EXPECT_EQ(nonces.size(), std::size(cases)) << "a nonce was repeated";
}

// A server that accepts the connection and never answers.
TEST_F(CertOcspCheck, SilentResponderHitsTheTimeout) {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    ASSERT_TRUE(bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && listen(s, 4) == 0 &&
                getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0);
    m_http.put_TimeoutMs(300);
    LogTree log;
    log.logKeywords.append("LOG_OCSP_HTTP");
    EXPECT_FALSE(check("http://127.0.0.1:" + std::to_string(ntohs(a.sin_port)), "good", log));
    close(s);
    EXPECT_EQ("The HTTP request timed out. | OCSP POST failed.", ovtest::errors(log));
}

TEST_F(CertOcspCheck, IssuerIsItselfOrAVerifiedStoreEntry) {
    CertRef ca(load("ca")), good(load("good"));
    SystemCerts empty, rogueOnly;
    LogTree log;
    CertRef rogue(load("rogue"));
    ASSERT_TRUE(rogueOnly.addCertificate(rogue.get(), log));
    EXPECT_EQ(ca.get(), ca->findIssuerCertificate(empty, log));
    EXPECT_EQ(m_ca, good->findIssuerCertificate(*m_store, log));
    EXPECT_EQ(nullptr, good->findIssuerCertificate(rogueOnly, log));  // same name, other key

    // Without an issuer nothing is posted (the URL would refuse a connection).
    LogTree check;
    DataBuffer resp;
    EXPECT_FALSE(good->doOcspCheck(m_http, "http://127.0.0.1:1/", empty, resp, check, nullptr));
    EXPECT_EQ("Failed to find issuer.", ovtest::errors(check));
}

}  // namespace
