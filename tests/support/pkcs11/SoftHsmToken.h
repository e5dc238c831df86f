// A real SoftHSM2 token for the tests of this folder, made once per test process
// in a temporary directory from the keys and certificates in tests/data/pkcs11.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support_common/TestUtil.h"

namespace ovtest {

class SoftHsmToken {
  public:
    static constexpr const char* kModule = "/usr/lib/softhsm/libsofthsm2.so";
    static constexpr const char* kUserPin = "pin-7391";
    static constexpr const char* kSoPin = "so-pin-5680";

    // The token, built on first use. Points SOFTHSM2_CONF at it before returning,
    // so a module loaded afterwards sees it. When the tools are missing or a step
    // fails, error() says which; the caller fails the test with it.
    static SoftHsmToken& get();

    bool ok() const { return m_error.empty(); }
    const std::string& error() const { return m_error; }
    unsigned long slotId() const { return m_slotId; }
    const std::string& confPath() const { return m_conf; }
    // Sets SOFTHSM2_CONF to this token's configuration again.
    void activate() const;

    // The DER of a certificate: a fixture name such as "rsa_cert", or one made at
    // setup for a key generated on the token ("ed_token", "ec_nosign").
    std::vector<unsigned char> certDer(const std::string& name) const;
    std::string certPath(const std::string& name) const;
    // A scratch directory that lives as long as the token.
    std::string scratch(const std::string& file) const { return m_dir.file(file); }

  private:
    SoftHsmToken();
    bool step(const std::string& what, const std::string& cmd, std::string* out = nullptr);
    bool build();
    bool clearSignFlag(const char* idHex);

    TempDir m_dir;
    std::string m_conf;
    std::string m_error;
    unsigned long m_slotId = 0;
};

// While alive, SOFTHSM2_CONF names a configuration whose token directory is empty:
// the module then offers one slot holding an uninitialised token. The previous
// value comes back on destruction. Only modules initialised meanwhile see it.
class EmptySoftHsm {
  public:
    EmptySoftHsm();
    ~EmptySoftHsm();
    bool ok() const { return m_ok; }

  private:
    TempDir m_dir;
    bool m_ok = false;
    bool m_hadPrevious = false;
    std::string m_previous;
};

}  // namespace ovtest
