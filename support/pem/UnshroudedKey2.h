// UnshroudedKey2: a decrypted private key with its bag attributes, as kept in
// lists of keys (ExtPtrArray owns them).
#pragma once

#include "support/base/OrvaneObject.h"
#include "support/crypto/OvPublicKey.h"
#include "support/pem/SafeBagAttributes.h"

class UnshroudedKey2 : public NonRefCountedObj {
  public:
    UnshroudedKey2() = default;
    ~UnshroudedKey2() override { m_key.clearPublicKey(); }
    UnshroudedKey2(const UnshroudedKey2&) = delete;
    UnshroudedKey2& operator=(const UnshroudedKey2&) = delete;

    // A new empty entry, or null when memory is exhausted.
    static UnshroudedKey2* createNewObject();

    _ovPublicKey m_key;
    SafeBagAttributes m_attrs;
};
