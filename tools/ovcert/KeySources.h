// KeySources: `ovcert inspect --key FILE [--pass-env VAR]` and
// `inspect --pkcs11 MODULE [--slot N] --pin-env VAR`: attach a private key to
// the certificate being inspected, from a file or from a token, and report what
// came of it. Secrets (password, PIN) come only from the environment or a
// terminal prompt, live in wiped buffers, and never reach the output or a log.
#pragma once

#include <string>
#include <vector>

#include "support/base/RefPtr.h"
#include "tools/ovcert/CertSummary.h"

class CertCore;
class ClsPkcs11;
class LogBase;

struct KeyOptions {
    std::string keyFile;  // --key
    std::string passEnv;  // --pass-env: variable holding the key file's password
    std::string module;   // --pkcs11: the PKCS#11 module
    long slot = -1;       // --slot; -1: the first slot with an initialised token
    std::string pinEnv;   // --pin-env: variable holding the token's user PIN

    bool any() const { return !keyFile.empty() || !module.empty(); }
};

// Attaches the key sources of the options to one certificate for the time of an
// inspection; the destructor unlinks the token session and wipes the PIN.
class KeySources {
  public:
    KeySources(CertCore& cert, const KeyOptions& o);
    ~KeySources();
    KeySources(const KeySources&) = delete;
    KeySources& operator=(const KeySources&) = delete;

    // Loads the key file and/or opens and links the token session. False, with
    // one line in error (and the reason in log), when that fails.
    bool attach(LogBase& log, std::string& error);

    // A key file given with a bundle belongs to the certificate it matches, not
    // necessarily the one the component chose: when the chosen one's public key
    // differs, the key moves to the candidate whose key it is (if any). Token
    // sessions stay where they were linked.
    void moveKeyToItsCertificate(const std::vector<CertCore*>& candidates);

    // Adds what the sources found to an inspection's summary (after the
    // certificate's hasPrivateKey has run): "privateKeyMatches" (true, false,
    // or null when undecided; absent when no key was loaded) with --key,
    // "tokenKeyHandleFound" with --pkcs11; each with a text line.
    void report(CertSummary& summary);

    CertCore* certificate() const { return m_keyCert; }

  private:
    bool attachKeyFile(LogBase& log, std::string& error);
    bool attachToken(LogBase& log, std::string& error);

    CertCore& m_cert;     // where the token session is linked
    CertCore* m_keyCert;  // where the key file's key ended up
    const KeyOptions& m_opts;
    RefPtr<ClsPkcs11> m_session;
};

// Reads a secret from the environment variable, wiping the variable's value in
// this process after the copy; without a variable, prompts on the terminal
// (echo off). False when there is neither, or the variable is unset.
bool readSecret(const std::string& envVar, const char* prompt, std::string& error,
                class XString& out);
