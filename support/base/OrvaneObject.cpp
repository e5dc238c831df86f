#include "support/base/OrvaneObject.h"

bool RefCountedObject::decRefCount() {
    // fetch_sub returns the previous value: 1 means this was the last reference;
    // 0 means the object was never stored (a factory's fresh object) and is dropped.
    int prev = m_refCount.fetch_sub(1, std::memory_order_acq_rel);
    if (prev <= 1) {
        delete this;
        return true;
    }
    return false;
}
