#include "tools/ovcert/RevocationInput.h"

#include <new>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"
#include "tools/ovcert/Shared.h"

RevocationInput::RevocationInput(bool verbose) {
    m_log.verboseLogging = verbose ? 1 : 0;
}

RevocationInput::~RevocationInput() {
    RefCountedObject::release(m_cert);
    RefCountedObject::release(m_givenIssuer);
    RefCountedObject::release(m_store);
}

bool RevocationInput::makeStore() {
    if (!m_store && (m_store = new (std::nothrow) SystemCerts())) m_store->incRefCount();
    return m_store != nullptr;
}

bool RevocationInput::loadIssuer(const std::string& file, std::string& why) {
    if (!makeStore()) {
        why = "out of memory";
        return false;
    }
    RefCountedObject::release(m_givenIssuer);
    m_givenIssuer = CertCore::createFromFile2(file.c_str(), nullptr, m_log);
    if (m_givenIssuer) m_givenIssuer->incRefCount();
    if (m_givenIssuer && m_store->addCertificate(m_givenIssuer, m_log)) return true;
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
    RefCountedObject::release(m_cert);
    m_cert = CertCore::createFromBinary2(reinterpret_cast<const char*>(data.getData2()),
                                         data.getSize(), m_store, m_log);
    if (m_cert) {
        m_cert->incRefCount();
        return true;
    }
    why = file + ": no certificate could be loaded from it";
    return false;
}

CertCore* RevocationInput::issuer() {
    if (!m_cert) return m_givenIssuer;
    LogNull quiet(m_log);
    return m_cert->findIssuerCertificate(*m_store, quiet);
}
