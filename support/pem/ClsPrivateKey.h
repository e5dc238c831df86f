// ClsPrivateKey: the library's public private-key class; owns one key.
#pragma once

#include "support/base/LogBase.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"
#include "support/crypto/OvPublicKey.h"

class ClsPrivateKey : public RefCountedObject, public OrvaneCritSec {
  public:
    ClsPrivateKey() = default;
    ~ClsPrivateKey() override { m_key.clearPublicKey(); }
    ClsPrivateKey(const ClsPrivateKey&) = delete;
    ClsPrivateKey& operator=(const ClsPrivateKey&) = delete;

    // A new empty key object; the caller releases it with decRefCount.
    static ClsPrivateKey* createNewCls();

    // Replaces out with a copy of the key (private parts included).
    bool toPrivateKey(_ovPublicKey& out, LogBase& log);
    // Replaces the key with a copy of key.
    bool setFromKey(const _ovPublicKey& key, LogBase& log);
    const _ovPublicKey& key() const { return m_key; }

  private:
    _ovPublicKey m_key;
};
