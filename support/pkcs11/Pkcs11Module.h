// Pkcs11Module: one PKCS#11 module loaded into the process, and the error names
// shared by the code that talks to it.
#pragma once

#include <p11-kit-1/p11-kit/pkcs11.h>

#include <memory>

class LogBase;
class StringBuffer;

// The name of a PKCS#11 return value ("CKR_PIN_INCORRECT"), or its hexadecimal
// value ("CKR_0x80000123") for codes without a name here. Appends to out.
void pkcs11AppendRvName(CK_RV rv, StringBuffer& out);

// Writes one error line and the return value's name under the key "ckr".
void pkcs11LogFailure(LogBase& log, const char* sentence, CK_RV rv);

// Owns the dlopen handle of a module and this object's share of the module's
// C_Initialize. A module is initialised once per process however many objects
// load it: the first load calls C_Initialize, the last unload calls C_Finalize,
// so one object's unload never pulls the module from under another.
class Pkcs11Module {
  public:
    Pkcs11Module() = default;
    ~Pkcs11Module() { unload(); }
    Pkcs11Module(const Pkcs11Module&) = delete;
    Pkcs11Module& operator=(const Pkcs11Module&) = delete;

    // Loads the shared library at path, gets its function list and initialises
    // it with CKF_OS_LOCKING_OK (callers may use it from several threads). Unloads
    // a module loaded before. False, with one error line, when the file cannot be
    // loaded, is not a PKCS#11 module, or refuses to initialise.
    bool load(const char* path, LogBase& log);

    // Gives up this object's share of the initialisation and the library handle.
    // Sessions opened through the module must be closed first.
    void unload();

    bool isLoaded() const { return m_fn != nullptr; }
    // The module's function list; null when nothing is loaded. Owned by the module.
    CK_FUNCTION_LIST* functions() const { return m_fn; }

  private:
    struct DlCloser {
        void operator()(void* handle) const;
    };

    std::unique_ptr<void, DlCloser> m_lib;
    CK_FUNCTION_LIST* m_fn = nullptr;
    // Whether this object holds a counted share of C_Initialize. False when code
    // outside this class had initialised the module: then it is theirs to finalise.
    bool m_counted = false;
};
