#include "tools/ovcert/KeySources.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cert/CertCore.h"
#include "support/base/ovstr.h"
#include "support/crypto/KeyDer.h"
#include "support/pkcs11/ClsPkcs11.h"

namespace {

// Reads one line from the terminal without echo. False when there is no
// terminal: a password is never read from a pipe or a file.
bool promptTerminal(const char* prompt, XString& out) {
    if (!isatty(STDIN_FILENO)) return false;
    FILE* tty = fopen("/dev/tty", "r+");
    if (!tty) return false;
    termios saved{};
    const bool haveAttrs = tcgetattr(fileno(tty), &saved) == 0;
    if (haveAttrs) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(fileno(tty), TCSAFLUSH, &quiet);
    }
    fprintf(tty, "%s", prompt);
    fflush(tty);
    char line[1024];
    const bool got = fgets(line, sizeof line, tty) != nullptr;
    if (haveAttrs) tcsetattr(fileno(tty), TCSAFLUSH, &saved);
    fprintf(tty, "\n");
    fclose(tty);
    if (got) {
        line[strcspn(line, "\r\n")] = '\0';
        out.appendUtf8(line);
    }
    ovSecureZero(line, sizeof line);
    return got;
}

bool isPem(const DataBuffer& data) {
    return data.containsSubstring("-----BEGIN", 0);
}

}  // namespace

bool readSecret(const std::string& envVar, const char* prompt, std::string& error, XString& out) {
    out.setSecureX(true);
    out.clear();
    if (envVar.empty()) {
        if (promptTerminal(prompt, out)) return true;
        error = "no terminal to ask on; name an environment variable that holds it";
        return false;
    }
    char* value = getenv(envVar.c_str());
    if (!value) {
        error = "the environment variable " + envVar + " is not set";
        return false;
    }
    out.appendUtf8(value);
    // Our copy is the only one this process keeps.
    ovSecureZero(value, strlen(value));
    unsetenv(envVar.c_str());
    return true;
}

KeySources::KeySources(CertCore& cert, const KeyOptions& o)
    : m_cert(cert), m_keyCert(&cert), m_opts(o) {}

void KeySources::moveKeyToItsCertificate(const std::vector<CertCore*>& candidates) {
    LogNull quiet;
    if (m_opts.keyFile.empty() || !m_opts.module.empty() ||
        m_cert.privateKeyMatchesCert(quiet) != CertCore::KeyMatch::Differs)
        return;
    DataBuffer der;
    der.setSecure(true);
    if (!m_cert.getPrivateKeyAsDER_noCryptoAPI(der, quiet)) return;
    for (CertCore* c : candidates) {
        if (c == &m_cert || c->hasPrivateKeyDer(quiet)) continue;
        DataBuffer copy;
        copy.setSecure(true);
        copy.append(der);
        if (!c->setPrivateKeyDer2(copy, quiet)) continue;
        if (c->privateKeyMatchesCert(quiet) == CertCore::KeyMatch::Matches) {
            DataBuffer none;
            m_cert.setPrivateKeyDer2(none, quiet);  // clears; an empty key loads nothing
            m_keyCert = c;
            return;
        }
        DataBuffer none;
        c->setPrivateKeyDer2(none, quiet);
    }
}

KeySources::~KeySources() {
    if (!m_session) return;
    m_cert.unlinkFromPkcs11Session();
    m_cert.m_smartCardPin.setSecureX(true);
    m_cert.m_smartCardPin.clear();
    m_session.reset();
}

bool KeySources::attach(LogBase& log, std::string& error) {
    if (!m_opts.keyFile.empty() && !attachKeyFile(log, error)) return false;
    if (!m_opts.module.empty() && !attachToken(log, error)) return false;
    return true;
}

bool KeySources::attachKeyFile(LogBase& log, std::string& error) {
    DataBuffer data;
    data.setSecure(true);
    if (!data.loadFileUtf8(m_opts.keyFile.c_str(), &log)) {
        error = m_opts.keyFile + ": the key file cannot be read";
        return false;
    }
    const bool pem = isPem(data);
    const bool encrypted = pem ? data.containsSubstring("ENCRYPTED", 0)
                               : keyder::detectForm(DerInput(data.getData2(), data.getSize())) ==
                                     DerForm::EncryptedPkcs8;
    bool ok;
    if (encrypted) {
        XString password;
        if (!readSecret(m_opts.passEnv, "Key password: ", error, password)) {
            error = m_opts.keyFile + ": the key is encrypted and " + error;
            return false;
        }
        _ovPublicKey key;
        if (pem) {
            XString text;
            text.setSecureX(true);
            text.appendUtf8N(reinterpret_cast<const char*>(data.getData2()), data.getSize());
            ok = key.loadPemWithPassword(text, password.getUtf8(), log);
        } else {
            ok = key.loadEncryptedDer(data, password.getUtf8(), log);
        }
        ok = ok && m_cert.setPrivateKeyFromObj(key, log);
    } else if (pem) {
        XString text;
        text.appendUtf8N(reinterpret_cast<const char*>(data.getData2()), data.getSize());
        ok = m_cert.setPrivateKeyPem(text, log);
    } else {
        ok = m_cert.setPrivateKeyDer2(data, log);
    }
    if (!ok) error = m_opts.keyFile + ": no private key could be loaded from it";
    return ok;
}

bool KeySources::attachToken(LogBase& log, std::string& error) {
    XString pin;
    if (m_opts.pinEnv.empty()) {
        error = "--pkcs11 needs --pin-env VAR";
        return false;
    }
    if (!readSecret(m_opts.pinEnv, "", error, pin)) return false;
    m_session = RefPtr<ClsPkcs11>::retain(ClsPkcs11::createNewCls());
    if (!m_session) {
        error = "out of memory";
        return false;
    }
    if (!m_session->loadModule(m_opts.module.c_str(), log) ||
        !m_session->openSession(m_opts.slot, false, log)) {
        error = m_opts.module + ": no token session could be opened";
        return false;
    }
    // hasPrivateKey logs in with this PIN and finds the key, as the signing code
    // would; the summary's hasPrivateKey makes that call.
    m_cert.m_smartCardPin.setSecureX(true);
    m_cert.m_smartCardPin.copyFromX(pin);
    m_cert.linkToPkcs11Session(m_session.get(), 0, 0, 0, log);
    return true;
}

void KeySources::report(CertSummary& summary) {
    LogNull quiet;
    if (!m_opts.keyFile.empty()) {
        const char* text = nullptr;
        switch (m_keyCert->privateKeyMatchesCert(quiet)) {
            case CertCore::KeyMatch::Matches:
                summary.json["privateKeyMatches"] = true;
                text = "yes";
                break;
            case CertCore::KeyMatch::Differs:
                summary.json["privateKeyMatches"] = false;
                text = "no";
                break;
            case CertCore::KeyMatch::Undecided:
                summary.json["privateKeyMatches"] = nullptr;
                text = "undecided";
                break;
            case CertCore::KeyMatch::NoKey:
                break;  // hasPrivateKey already says false
        }
        if (text) summary.extraText.emplace_back("Key matches:", text);
    }
    if (m_session) {
        const bool found = m_cert.m_pkcs11PrivKeyHandle != 0;
        summary.json["tokenKeyHandleFound"] = found;
        summary.extraText.emplace_back("Token key:", found ? "handle found" : "no handle found");
    }
}
