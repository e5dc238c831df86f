// SafeBagAttributes: the attributes that accompany a key or certificate taken
// from a key container (friendly name, local key id and the like).
#pragma once

#include "support/base/DataBuffer.h"
#include "support/base/XString.h"

class SafeBagAttributes {
  public:
    SafeBagAttributes() = default;
    ~SafeBagAttributes() = default;

    void clear() {
        m_friendlyName.clear();
        m_localKeyId.clear();
    }
    bool isEmpty() const { return m_friendlyName.isEmpty() && m_localKeyId.isEmpty(); }

    XString m_friendlyName;
    DataBuffer m_localKeyId;
};
