// RevocationInput: the certificate a revocation subcommand asks about, its
// issuer, and the store that holds the issuer and the rest of CERT's file.
#pragma once

#include <string>

#include "support/base/LogBase.h"
#include "support/base/RefPtr.h"

class CertCore;
class SystemCerts;

// Holds one reference to each object it loads and gives them up when destroyed.
class RevocationInput {
  public:
    explicit RevocationInput(bool verbose);
    ~RevocationInput();
    RevocationInput(const RevocationInput&) = delete;
    RevocationInput& operator=(const RevocationInput&) = delete;

    // Loads an issuer certificate file into the store. False (why says so)
    // when no certificate loads from it or no store could be made.
    bool loadIssuer(const std::string& file, std::string& why);
    // Loads CERT (a file, or - for standard input); the other certificates of
    // a bundle go to the store. False (why says so) when none loads.
    bool loadCert(const std::string& file, std::string& why);

    CertCore* cert() const { return m_cert.get(); }
    // The issuer: CERT itself when self-issued, else the store's certificate
    // that verifies CERT's signature; null when there is none. Without a CERT,
    // the issuer file's certificate (or null).
    CertCore* issuer();
    SystemCerts& store() const { return *m_store; }
    LogTree& log() { return m_log; }

  private:
    bool makeStore();
    LogTree m_log;
    RefPtr<SystemCerts> m_store;
    RefPtr<CertCore> m_cert;
    RefPtr<CertCore> m_givenIssuer;
};
