// Owning arrays of object pointers.
#pragma once

#include <vector>

#include "support/base/OrvaneObject.h"
#include "support/base/StringBuffer.h"

// Owns its elements: destroying the array deletes each through its virtual
// destructor. Null elements are allowed and skipped on deletion.
class ExtPtrArray : public NonRefCountedObj {
  public:
    ExtPtrArray() = default;
    ~ExtPtrArray() override;
    ExtPtrArray(const ExtPtrArray&) = delete;
    ExtPtrArray& operator=(const ExtPtrArray&) = delete;

    // Append, taking ownership. False when memory is exhausted, in which case
    // the object is deleted so that ownership is never ambiguous.
    bool appendPtr(OrvaneObject* obj);
    bool appendObject(OrvaneObject* obj) { return appendPtr(obj); }

    int getSize() const { return static_cast<int>(m_items.size()); }
    // Null for an index out of range.
    OrvaneObject* elementAt(int i) const;
    // Removes the element from the array without deleting it; the caller owns it.
    OrvaneObject* removeAt(int i);
    // Deletes every element and empties the array.
    void removeAllObjects();

  private:
    std::vector<OrvaneObject*> m_items;
};

class ExtPtrArraySb {
  public:
    ExtPtrArraySb() = default;
    ~ExtPtrArraySb();
    ExtPtrArraySb(const ExtPtrArraySb&) = delete;
    ExtPtrArraySb& operator=(const ExtPtrArraySb&) = delete;

    bool appendSb(StringBuffer* sb);
    int getSize() const { return static_cast<int>(m_items.size()); }
    StringBuffer* sbAt(int i) const;
    void removeAllSbs();

  private:
    std::vector<StringBuffer*> m_items;
};
