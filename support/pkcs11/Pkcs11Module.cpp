#include "support/pkcs11/Pkcs11Module.h"

#include <dlfcn.h>

#include <cstdio>
#include <map>
#include <mutex>

#include "support/base/LogBase.h"
#include "support/base/StringBuffer.h"

namespace {

struct RvName {
    CK_RV rv;
    const char* name;
};

const RvName kRvNames[] = {
    {CKR_OK, "CKR_OK"},
    {CKR_CANCEL, "CKR_CANCEL"},
    {CKR_HOST_MEMORY, "CKR_HOST_MEMORY"},
    {CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID"},
    {CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR"},
    {CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED"},
    {CKR_ARGUMENTS_BAD, "CKR_ARGUMENTS_BAD"},
    {CKR_CANT_LOCK, "CKR_CANT_LOCK"},
    {CKR_ATTRIBUTE_SENSITIVE, "CKR_ATTRIBUTE_SENSITIVE"},
    {CKR_ATTRIBUTE_TYPE_INVALID, "CKR_ATTRIBUTE_TYPE_INVALID"},
    {CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR"},
    {CKR_DEVICE_MEMORY, "CKR_DEVICE_MEMORY"},
    {CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED"},
    {CKR_FUNCTION_NOT_SUPPORTED, "CKR_FUNCTION_NOT_SUPPORTED"},
    {CKR_KEY_HANDLE_INVALID, "CKR_KEY_HANDLE_INVALID"},
    {CKR_KEY_TYPE_INCONSISTENT, "CKR_KEY_TYPE_INCONSISTENT"},
    {CKR_KEY_FUNCTION_NOT_PERMITTED, "CKR_KEY_FUNCTION_NOT_PERMITTED"},
    {CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID"},
    {CKR_MECHANISM_PARAM_INVALID, "CKR_MECHANISM_PARAM_INVALID"},
    {CKR_OBJECT_HANDLE_INVALID, "CKR_OBJECT_HANDLE_INVALID"},
    {CKR_OPERATION_ACTIVE, "CKR_OPERATION_ACTIVE"},
    {CKR_OPERATION_NOT_INITIALIZED, "CKR_OPERATION_NOT_INITIALIZED"},
    {CKR_PIN_INCORRECT, "CKR_PIN_INCORRECT"},
    {CKR_PIN_INVALID, "CKR_PIN_INVALID"},
    {CKR_PIN_LEN_RANGE, "CKR_PIN_LEN_RANGE"},
    {CKR_PIN_EXPIRED, "CKR_PIN_EXPIRED"},
    {CKR_PIN_LOCKED, "CKR_PIN_LOCKED"},
    {CKR_SESSION_CLOSED, "CKR_SESSION_CLOSED"},
    {CKR_SESSION_COUNT, "CKR_SESSION_COUNT"},
    {CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID"},
    {CKR_SESSION_PARALLEL_NOT_SUPPORTED, "CKR_SESSION_PARALLEL_NOT_SUPPORTED"},
    {CKR_SESSION_READ_ONLY, "CKR_SESSION_READ_ONLY"},
    {CKR_SESSION_EXISTS, "CKR_SESSION_EXISTS"},
    {CKR_SESSION_READ_ONLY_EXISTS, "CKR_SESSION_READ_ONLY_EXISTS"},
    {CKR_SESSION_READ_WRITE_SO_EXISTS, "CKR_SESSION_READ_WRITE_SO_EXISTS"},
    {CKR_TEMPLATE_INCOMPLETE, "CKR_TEMPLATE_INCOMPLETE"},
    {CKR_TEMPLATE_INCONSISTENT, "CKR_TEMPLATE_INCONSISTENT"},
    {CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT"},
    {CKR_TOKEN_NOT_RECOGNIZED, "CKR_TOKEN_NOT_RECOGNIZED"},
    {CKR_USER_ALREADY_LOGGED_IN, "CKR_USER_ALREADY_LOGGED_IN"},
    {CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN"},
    {CKR_USER_PIN_NOT_INITIALIZED, "CKR_USER_PIN_NOT_INITIALIZED"},
    {CKR_USER_TYPE_INVALID, "CKR_USER_TYPE_INVALID"},
    {CKR_USER_ANOTHER_ALREADY_LOGGED_IN, "CKR_USER_ANOTHER_ALREADY_LOGGED_IN"},
    {CKR_USER_TOO_MANY_TYPES, "CKR_USER_TOO_MANY_TYPES"},
    {CKR_BUFFER_TOO_SMALL, "CKR_BUFFER_TOO_SMALL"},
    {CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED"},
    {CKR_CRYPTOKI_ALREADY_INITIALIZED, "CKR_CRYPTOKI_ALREADY_INITIALIZED"},
};

// Initialisation shares per module, keyed by the function list, which is the
// same for every dlopen of one library (also through another path or a symlink).
std::mutex g_initMutex;
std::map<CK_FUNCTION_LIST*, int> g_initCounts;

}  // namespace

void pkcs11AppendRvName(CK_RV rv, StringBuffer& out) {
    for (const RvName& n : kRvNames) {
        if (n.rv == rv) {
            out.append(n.name);
            return;
        }
    }
    char buf[32];
    snprintf(buf, sizeof buf, "CKR_0x%lx", static_cast<unsigned long>(rv));
    out.append(buf);
}

void pkcs11LogFailure(LogBase& log, const char* sentence, CK_RV rv) {
    log.logError(sentence);
    StringBuffer name;
    pkcs11AppendRvName(rv, name);
    log.LogDataSb("ckr", name);
}

void Pkcs11Module::DlCloser::operator()(void* handle) const {
    if (handle) dlclose(handle);
}

bool Pkcs11Module::load(const char* path, LogBase& log) {
    unload();
    if (!path || !*path) {
        log.logError("No PKCS11 module path was given.");
        return false;
    }
    // RTLD_LOCAL keeps the module's symbols (often an OpenSSL of its own) from
    // resolving ours or another module's.
    std::unique_ptr<void, DlCloser> lib(dlopen(path, RTLD_NOW | RTLD_LOCAL));
    if (!lib) {
        const char* why = dlerror();
        log.logError("Failed to load the PKCS11 module.");
        log.logData("dlerror", why ? why : "");
        return false;
    }
    auto getList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(lib.get(), "C_GetFunctionList"));
    if (!getList) {
        log.logError("The library is not a PKCS11 module (it has no C_GetFunctionList).");
        log.logData("path", path);
        return false;
    }
    CK_FUNCTION_LIST* fn = nullptr;
    CK_RV rv = getList(&fn);
    if (rv != CKR_OK || !fn || !fn->C_Initialize) {
        pkcs11LogFailure(log, "C_GetFunctionList failed.", rv);
        return false;
    }

    bool counted = false;
    {
        std::lock_guard<std::mutex> lock(g_initMutex);
        auto it = g_initCounts.find(fn);
        if (it != g_initCounts.end()) {
            ++it->second;
            counted = true;
        } else {
            CK_C_INITIALIZE_ARGS args{};
            args.flags = CKF_OS_LOCKING_OK;
            rv = fn->C_Initialize(&args);
            if (rv == CKR_OK) {
                g_initCounts[fn] = 1;
                counted = true;
            } else if (rv == CKR_CRYPTOKI_ALREADY_INITIALIZED) {
                // Other code in the process initialised the module directly: use
                // it uncounted and leave finalising to them.
            } else {
                pkcs11LogFailure(log, "C_Initialize failed.", rv);
                return false;
            }
        }
    }
    m_lib = std::move(lib);
    m_fn = fn;
    m_counted = counted;
    return true;
}

void Pkcs11Module::unload() {
    if (m_fn && m_counted) {
        std::lock_guard<std::mutex> lock(g_initMutex);
        auto it = g_initCounts.find(m_fn);
        if (it != g_initCounts.end() && --it->second == 0) {
            m_fn->C_Finalize(nullptr);
            g_initCounts.erase(it);
        }
    }
    m_fn = nullptr;
    m_counted = false;
    m_lib.reset();
}
