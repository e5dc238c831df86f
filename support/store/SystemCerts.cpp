#include "support/store/SystemCerts.h"

#include "cert/CertCore.h"

namespace {
std::string_view key(DerInput d) {
    return std::string_view(reinterpret_cast<const char*>(d.data()), d.size());
}
}  // namespace

SystemCerts::~SystemCerts() {
    for (CertCore* c : m_certs) c->decRefCount();
}

bool SystemCerts::addCertificate(CertCore* cert, LogBase& log) {
    if (!cert || !cert->isValidObject()) return false;
    CritSecExitor certLock(cert);
    OrvaneX509* x = cert->getX509();
    if (!x) {
        log.logError("Cannot add a certificate that is not loaded to the store.");
        return false;
    }
    CritSecExitor lock(this);
    try {
        std::string_view der = key(x->certDer());
        if (m_byDer.count(der)) return true;
        size_t idx = m_certs.size();
        m_certs.push_back(cert);
        m_byDer.emplace(der, idx);
        m_bySubject[key(x->subjectDer())].push_back(idx);
    } catch (...) {
        log.logError("Out of memory adding a certificate to the store.");
        return false;
    }
    cert->incRefCount();
    return true;
}

CertCore* SystemCerts::sysCertsFindIssuer(CertCore& cert, bool mustVerify, LogBase& log) {
    if (!cert.isValidObject()) return nullptr;
    // Never hold cert's lock while taking a candidate's: with two CAs that
    // certify each other, two searches would each hold one and wait for the
    // other. So the search works on its own parse of cert's DER, copied under
    // cert's lock.
    DataBuffer der;
    if (!cert.getDEREncodedCert(der)) return nullptr;
    LogNull quiet(log);
    OrvaneX509 x;
    if (!x.loadX509DerAlt(der.getData2(), der.getSize(), nullptr, quiet)) return nullptr;
    DerInput aki;
    bool hasAki = x.authorityKeyId(&aki);

    std::vector<CertCore*> candidates;
    {
        CritSecExitor lock(this);
        auto it = m_bySubject.find(key(x.issuerDer()));
        if (it == m_bySubject.end()) return nullptr;
        for (size_t idx : it->second) candidates.push_back(m_certs[idx]);
    }
    // Verification is the costly step: try the key-id matches first.
    CertCore* keyIdMatch = nullptr;
    CertCore* verified = nullptr;
    for (int pass = 0; pass < 2 && !verified; ++pass) {
        for (CertCore* c : candidates) {
            CritSecExitor candLock(c);
            OrvaneX509* cx = c->getX509();
            if (!cx) continue;
            DerInput ski;
            bool idMatch = hasAki && cx->subjectKeyId(&ski) && ski.equals(aki);
            if (idMatch && !keyIdMatch) keyIdMatch = c;
            if ((pass == 0) != idMatch) continue;
            if (x.verifyCertSignature(cx, quiet)) {
                verified = c;
                break;
            }
        }
    }
    if (verified || mustVerify) return verified;
    return keyIdMatch ? keyIdMatch : candidates.front();
}

int SystemCerts::numCerts() const {
    CritSecExitor lock(const_cast<SystemCerts*>(this));
    return static_cast<int>(m_certs.size());
}

CertCore* SystemCerts::certAt(int n) const {
    CritSecExitor lock(const_cast<SystemCerts*>(this));
    if (n < 0 || static_cast<size_t>(n) >= m_certs.size()) return nullptr;
    return m_certs[static_cast<size_t>(n)];
}

CertCore* SystemCerts::findByDer(const unsigned char* der, unsigned n) const {
    CritSecExitor lock(const_cast<SystemCerts*>(this));
    auto it = m_byDer.find(std::string_view(reinterpret_cast<const char*>(der), n));
    return it == m_byDer.end() ? nullptr : m_certs[it->second];
}
