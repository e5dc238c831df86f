#include "tools/ovcert/RevocationInput.h"

#include <new>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"
#include "tools/ovcert/Shared.h"

RevocationInput::RevocationInput(bool verbose) {
    m_log.verboseLogging = verbose ? 1 : 0;
}

RevocationInput::~RevocationInput() = default;

bool RevocationInput::makeStore() {
    if (!m_store) m_store = RefPtr<SystemCerts>::retain(new (std::nothrow) SystemCerts());
    return static_cast<bool>(m_store);
}

bool RevocationInput::loadIssuer(const std::string& file, std::string& why) {
    if (!makeStore()) {
        why = "out of memory";
        return false;
    }
    m_givenIssuer.reset();
    m_givenIssuer =
        RefPtr<CertCore>::retain(CertCore::createFromFile2(file.c_str(), nullptr, m_log));
    if (m_givenIssuer && m_store->addCertificate(m_givenIssuer.get(), m_log)) return true;
    why = file + ": no certificate could be loaded from it";
    return false;
}

bool RevocationInput::loadCert(const std::string& file, std::string& why) {
    if (!makeStore()) {
        why = "out of memory";
        return false;
    }
    DataBuffer data;
    if (!readInput(file, data, why)) {
        why = file + ": " + why;
        return false;
    }
    m_cert.reset();
    m_cert = RefPtr<CertCore>::retain(CertCore::createFromBinary2(
        reinterpret_cast<const char*>(data.getData2()), data.getSize(), m_store.get(), m_log));
    if (m_cert) return true;
    why = file + ": no certificate could be loaded from it";
    return false;
}

CertCore* RevocationInput::issuer() {
    if (!m_cert) return m_givenIssuer.get();
    LogNull quiet(m_log);
    return m_cert->findIssuerCertificate(*m_store, quiet);
}
