#include "support/pkcs11/Pkcs11Session.h"

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

bool Pkcs11Session::open(CK_FUNCTION_LIST* fn, CK_SLOT_ID slot, bool readWrite, LogBase& log) {
    close();
    if (!fn) {
        log.logError("No PKCS11 module is loaded.");
        return false;
    }
    CK_FLAGS flags = CKF_SERIAL_SESSION | (readWrite ? CKF_RW_SESSION : 0);
    CK_SESSION_HANDLE h = CK_INVALID_HANDLE;
    CK_RV rv = fn->C_OpenSession(slot, flags, nullptr, nullptr, &h);
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "Failed to open a PKCS11 session.", rv);
        return false;
    }
    m_fn = fn;
    m_session = h;
    m_slot = slot;
    return true;
}

void Pkcs11Session::close() {
    if (m_fn) m_fn->C_CloseSession(m_session);
    m_fn = nullptr;
    m_session = CK_INVALID_HANDLE;
    m_slot = 0;
}

bool Pkcs11Session::findObjects(CK_ATTRIBUTE* tmpl, CK_ULONG count,
                                std::vector<CK_OBJECT_HANDLE>& out, LogBase& log) {
    out.clear();
    if (!m_fn) {
        log.logError("No PKCS11 session is open.");
        return false;
    }
    CK_RV rv = m_fn->C_FindObjectsInit(m_session, tmpl, count);
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "C_FindObjectsInit failed.", rv);
        return false;
    }
    // From here on C_FindObjectsFinal must run whatever happens, or the session
    // stays in a search and refuses the next one.
    CK_OBJECT_HANDLE batch[64];
    while (out.size() < kMaxObjects) {
        CK_ULONG got = 0;
        rv = m_fn->C_FindObjects(m_session, batch, sizeof batch / sizeof batch[0], &got);
        if (rv != CKR_OK || got == 0) break;
        if (got > sizeof batch / sizeof batch[0]) got = sizeof batch / sizeof batch[0];
        for (CK_ULONG i = 0; i < got && out.size() < kMaxObjects; ++i) out.push_back(batch[i]);
    }
    m_fn->C_FindObjectsFinal(m_session);
    if (rv != CKR_OK) {
        pkcs11LogFailure(log, "C_FindObjects failed.", rv);
        out.clear();
        return false;
    }
    return true;
}

bool Pkcs11Session::getAttribute(CK_OBJECT_HANDLE obj, CK_ATTRIBUTE_TYPE type, DataBuffer& out) {
    out.clear();
    if (!m_fn) return false;
    CK_ATTRIBUTE attr{type, nullptr, 0};
    if (m_fn->C_GetAttributeValue(m_session, obj, &attr, 1) != CKR_OK) return false;
    if (attr.ulValueLen == CK_UNAVAILABLE_INFORMATION || attr.ulValueLen > kMaxAttributeBytes)
        return false;
    if (attr.ulValueLen == 0) return true;
    const unsigned n = static_cast<unsigned>(attr.ulValueLen);
    // The second call may report fewer bytes than the first announced; only those
    // are taken.
    std::vector<unsigned char> tmp(n);
    attr.pValue = tmp.data();
    if (m_fn->C_GetAttributeValue(m_session, obj, &attr, 1) != CKR_OK ||
        attr.ulValueLen == CK_UNAVAILABLE_INFORMATION || attr.ulValueLen > n)
        return false;
    return out.append(tmp.data(), static_cast<unsigned>(attr.ulValueLen));
}

bool Pkcs11Session::getUlongAttribute(CK_OBJECT_HANDLE obj, CK_ATTRIBUTE_TYPE type,
                                      CK_ULONG& value) {
    if (!m_fn) return false;
    CK_ULONG v = 0;
    CK_ATTRIBUTE attr{type, &v, sizeof v};
    if (m_fn->C_GetAttributeValue(m_session, obj, &attr, 1) != CKR_OK ||
        attr.ulValueLen != sizeof v)
        return false;
    value = v;
    return true;
}
