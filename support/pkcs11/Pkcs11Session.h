// Pkcs11Session: one open PKCS#11 session, closed when the object goes, with the
// object search and attribute reads that key lookup needs.
#pragma once

#include <vector>

#include "support/pkcs11/Pkcs11Module.h"

class DataBuffer;
class LogBase;

class Pkcs11Session {
  public:
    Pkcs11Session() = default;
    ~Pkcs11Session() { close(); }
    Pkcs11Session(const Pkcs11Session&) = delete;
    Pkcs11Session& operator=(const Pkcs11Session&) = delete;

    // Opens a serial session on the slot (read-write when asked), closing one this
    // object had open. fn must stay valid until close. False, with one error line,
    // when the module refuses.
    bool open(CK_FUNCTION_LIST* fn, CK_SLOT_ID slot, bool readWrite, LogBase& log);
    // Closes the session; nothing happens when none is open.
    void close();

    bool isOpen() const { return m_fn != nullptr; }
    CK_SESSION_HANDLE handle() const { return m_session; }
    CK_SLOT_ID slot() const { return m_slot; }
    CK_FUNCTION_LIST* functions() const { return m_fn; }

    // Replaces out with the handles of the objects that match the template, at
    // most kMaxObjects of them. False, with one error line, when the search fails.
    bool findObjects(CK_ATTRIBUTE* tmpl, CK_ULONG count, std::vector<CK_OBJECT_HANDLE>& out,
                     LogBase& log);

    // Replaces out with one attribute's value. False, with out empty, when the
    // object lacks the attribute, hides it (sensitive) or the value exceeds
    // kMaxAttributeBytes; these are answers, not errors, so nothing is logged.
    bool getAttribute(CK_OBJECT_HANDLE obj, CK_ATTRIBUTE_TYPE type, DataBuffer& out);
    // The same for a CK_ULONG-valued attribute (CKA_KEY_TYPE, CKA_CLASS).
    bool getUlongAttribute(CK_OBJECT_HANDLE obj, CK_ATTRIBUTE_TYPE type, CK_ULONG& value);

    // One search returns at most this many objects. Personal tokens hold a few
    // dozen; the cap bounds the work one lookup can cause on a shared HSM.
    static constexpr size_t kMaxObjects = 4096;
    // Certificates and public keys are a few KiB; nothing we read is larger.
    static constexpr CK_ULONG kMaxAttributeBytes = 1024 * 1024;

  private:
    CK_FUNCTION_LIST* m_fn = nullptr;
    CK_SESSION_HANDLE m_session = CK_INVALID_HANDLE;
    CK_SLOT_ID m_slot = 0;
};
