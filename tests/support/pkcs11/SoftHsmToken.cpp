#include "SoftHsmToken.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"
#include "support/pkcs11/Pkcs11Module.h"
#include "support/pkcs11/Pkcs11Session.h"

namespace ovtest {

namespace {

std::string writeConf(const TempDir& dir) {
    std::string tokens = dir.file("tokens");
    if (run("mkdir -p " + shq(tokens)) != 0) return "";
    std::string conf = dir.file("softhsm2.conf");
    if (!writeFile(conf, "directories.tokendir = " + tokens +
                             "\nobjectstore.backend = file\nlog.level = ERROR\n"))
        return "";
    return conf;
}

}  // namespace

SoftHsmToken& SoftHsmToken::get() {
    static SoftHsmToken token;
    token.activate();
    return token;
}

void SoftHsmToken::activate() const {
    if (!m_conf.empty()) setenv("SOFTHSM2_CONF", m_conf.c_str(), 1);
}

SoftHsmToken::SoftHsmToken() {
    if (!build() && m_error.empty()) m_error = "token setup failed";
}

bool SoftHsmToken::step(const std::string& what, const std::string& cmd, std::string* out) {
    std::string output;
    if (run(cmd + " 2>&1", &output) != 0) {
        m_error = what + " failed: " + cmd + "\n" + output;
        return false;
    }
    if (out) *out = output;
    return true;
}

bool SoftHsmToken::build() {
    if (access(kModule, R_OK) != 0) {
        m_error = std::string("SoftHSM2 module missing: ") + kModule + " (install softhsm2)";
        return false;
    }
    for (const char* tool : {"softhsm2-util", "pkcs11-tool", "openssl"}) {
        if (run(std::string("command -v ") + tool) != 0) {
            m_error = std::string(tool) + " not found (install softhsm2, opensc and openssl)";
            return false;
        }
    }
    m_conf = writeConf(m_dir);
    if (m_conf.empty()) {
        m_error = "cannot write the SoftHSM2 configuration";
        return false;
    }
    activate();

    std::string out;
    if (!step("token init",
              std::string("softhsm2-util --init-token --free --label t --pin ") + kUserPin +
                  " --so-pin " + kSoPin,
              &out))
        return false;
    // "The token has been initialized and is reassigned to slot 1234"
    size_t at = out.find("reassigned to slot ");
    if (at == std::string::npos) {
        m_error = "cannot read the slot from: " + out;
        return false;
    }
    m_slotId = strtoul(out.c_str() + at + strlen("reassigned to slot "), nullptr, 10);

    const std::string data = dataPath("pkcs11/");
    const std::string p11 = std::string("pkcs11-tool --module ") + kModule +
                            " --token-label t --login --pin " + kUserPin + " ";
    struct Import {
        const char* file;
        const char* type;
        const char* id;
    };
    const Import imports[] = {
        {"rsa_cert.key.der", "privkey", "a1"}, {"rsa_cert.cert.der", "cert", "a1"},
        {"rsa_key.key.der", "privkey", "b1"},  {"ec256_key.key.der", "privkey", "c1"},
        {"ec256_key.pub.der", "pubkey", "c1"}, {"ec384_cert.key.der", "privkey", "d1"},
        {"ec384_cert.cert.der", "cert", "d1"}, {"orphan.cert.der", "cert", "f1"},
    };
    for (const Import& im : imports) {
        if (!step(std::string("import ") + im.file, p11 + "--write-object " + shq(data + im.file) +
                                                        " --type " + im.type + " --id " + im.id))
            return false;
    }

    // Keys generated on the token, with certificates made for their public halves
    // (the tool cannot import Ed25519 private keys).
    struct Generated {
        const char* name;
        const char* keyType;
        const char* id;
    };
    const Generated generated[] = {{"ed_token", "EC:edwards25519", "e1"},
                                   {"ec_nosign", "EC:prime256v1", "91"}};
    const std::string ca = m_dir.file("ca.pem");
    if (!step("CA key", "openssl genpkey -algorithm ED25519 -out " + shq(ca))) return false;
    for (const Generated& g : generated) {
        const std::string pub = m_dir.file(std::string(g.name) + ".pub");
        if (!step(std::string("keygen ") + g.name,
                  p11 + "--keypairgen --key-type " + g.keyType + " --id " + g.id) ||
            !step(std::string("export ") + g.name,
                  p11 + "--read-object --type pubkey --id " + g.id + " -o " + shq(pub)) ||
            !step(std::string("certificate ") + g.name,
                  "openssl x509 -new -subj /CN=" + std::string(g.name) + " -days 30 -key " +
                      shq(ca) + " -force_pubkey " + shq(pub) + " -outform DER -out " +
                      shq(certPath(g.name))))
            return false;
    }
    return clearSignFlag("91");
}

bool SoftHsmToken::clearSignFlag(const char* idHex) {
    // The command-line tool always marks imported and generated private keys for
    // signing; a key that may not sign is made through the module directly.
    LogTree log;
    Pkcs11Module module;
    Pkcs11Session session;
    unsigned char id = static_cast<unsigned char>(strtoul(idHex, nullptr, 16));
    if (!module.load(kModule, log) || !session.open(module.functions(), m_slotId, true, log)) {
        m_error = "clearing CKA_SIGN: " + log.text();
        return false;
    }
    CK_FUNCTION_LIST* fn = module.functions();
    std::string pin = kUserPin;
    CK_RV rv = fn->C_Login(session.handle(), CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(&pin[0]),
                           pin.size());
    CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE tmpl[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_ID, &id, 1}};
    std::vector<CK_OBJECT_HANDLE> keys;
    if (rv != CKR_OK || !session.findObjects(tmpl, 2, keys, log) || keys.size() != 1) {
        m_error = "clearing CKA_SIGN: login or search failed " + log.text();
        return false;
    }
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE sign[] = {{CKA_SIGN, &no, sizeof no}};
    rv = fn->C_SetAttributeValue(session.handle(), keys[0], sign, 1);
    if (rv != CKR_OK) {
        m_error = "C_SetAttributeValue(CKA_SIGN) failed";
        return false;
    }
    fn->C_Logout(session.handle());
    return true;
}

std::string SoftHsmToken::certPath(const std::string& name) const {
    if (name == "ed_token" || name == "ec_nosign") return m_dir.file(name + ".cert.der");
    return dataPath("pkcs11/" + name + ".cert.der");
}

std::vector<unsigned char> SoftHsmToken::certDer(const std::string& name) const {
    return readFileBytes(certPath(name));
}

EmptySoftHsm::EmptySoftHsm() {
    const char* prev = getenv("SOFTHSM2_CONF");
    m_hadPrevious = prev != nullptr;
    if (prev) m_previous = prev;
    std::string conf = writeConf(m_dir);
    m_ok = !conf.empty() && setenv("SOFTHSM2_CONF", conf.c_str(), 1) == 0;
}

EmptySoftHsm::~EmptySoftHsm() {
    if (m_hadPrevious)
        setenv("SOFTHSM2_CONF", m_previous.c_str(), 1);
    else
        unsetenv("SOFTHSM2_CONF");
}

}  // namespace ovtest

// SoftHSM2 2.6.1 leaks the curve parameters it decodes (through OpenSSL) for each
// EdDSA signature, 37 bytes a time. The module is unloaded before the leak report,
// so only its libcrypto frames can be named. Nothing else in this test program
// calls OpenSSL, so the suppression cannot hide a leak of ours.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libcrypto.so\n";
}
