#include "support/base/ExtPtrArray.h"

#include <new>

ExtPtrArray::~ExtPtrArray() {
    removeAllObjects();
}

bool ExtPtrArray::appendPtr(OrvaneObject* obj) {
    try {
        m_items.push_back(obj);
    } catch (const std::bad_alloc&) {
        OrvaneObject::deleteObject(obj);
        return false;
    }
    return true;
}

OrvaneObject* ExtPtrArray::elementAt(int i) const {
    if (i < 0 || i >= getSize()) return nullptr;
    return m_items[static_cast<size_t>(i)];
}

OrvaneObject* ExtPtrArray::removeAt(int i) {
    if (i < 0 || i >= getSize()) return nullptr;
    OrvaneObject* o = m_items[static_cast<size_t>(i)];
    m_items.erase(m_items.begin() + i);
    return o;
}

void ExtPtrArray::removeAllObjects() {
    // Detach first so that an element's destructor never sees a half-emptied array.
    std::vector<OrvaneObject*> items;
    items.swap(m_items);
    for (OrvaneObject* o : items) OrvaneObject::deleteObject(o);
}

ExtPtrArraySb::~ExtPtrArraySb() {
    removeAllSbs();
}

bool ExtPtrArraySb::appendSb(StringBuffer* sb) {
    try {
        m_items.push_back(sb);
    } catch (const std::bad_alloc&) {
        StringBuffer::deleteSb(sb);
        return false;
    }
    return true;
}

StringBuffer* ExtPtrArraySb::sbAt(int i) const {
    if (i < 0 || i >= getSize()) return nullptr;
    return m_items[static_cast<size_t>(i)];
}

void ExtPtrArraySb::removeAllSbs() {
    std::vector<StringBuffer*> items;
    items.swap(m_items);
    for (StringBuffer* s : items) StringBuffer::deleteSb(s);
}
