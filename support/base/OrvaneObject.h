// Object bases of the library: a common root, single-owner objects, shared
// reference-counted objects, and scoped owners for both.
#pragma once

#include <atomic>
#include <cstddef>

// Clears a validity sentinel in a destructor. The write goes through a
// volatile reference: a plain store to a member of an object whose life is
// ending is a dead store the optimiser may drop, and the sentinel exists
// precisely to be read after that.
template <typename T>
inline void clearSentinel(T& magic) {
    *static_cast<volatile T*>(&magic) = 0;
}

// Root of library objects. Arrays of owned objects (ExtPtrArray) hold these and
// delete through the virtual destructor.
class OrvaneObject {
  public:
    OrvaneObject() = default;
    virtual ~OrvaneObject() = default;

    // Approximate heap bytes held by the object, for memory accounting.
    virtual size_t heapUsage() const { return 0; }

    // Deletes through the virtual destructor; null is ignored.
    static void deleteObject(OrvaneObject* obj) { delete obj; }

  protected:
    OrvaneObject(const OrvaneObject&) = default;
    OrvaneObject& operator=(const OrvaneObject&) = default;
};

// Base of objects that have exactly one owner.
class NonRefCountedObj : public OrvaneObject {
  public:
    NonRefCountedObj() = default;
    ~NonRefCountedObj() override = default;

  protected:
    NonRefCountedObj(const NonRefCountedObj&) = default;
    NonRefCountedObj& operator=(const NonRefCountedObj&) = default;
};

// Base of shared objects. The count starts at 0: whoever stores the object takes
// the first reference. decRefCount deletes the object when the count reaches 0.
// Counts are atomic, so references may be taken and released from any thread.
class RefCountedObject : public OrvaneObject {
  public:
    RefCountedObject() = default;
    ~RefCountedObject() override = default;

    void incRefCount() { m_refCount.fetch_add(1, std::memory_order_relaxed); }

    // Gives up one reference; deletes the object when it was the last one (or when
    // the object carried no counted reference at all). Returns true when deleted.
    bool decRefCount();

    int getRefCount() const { return m_refCount.load(std::memory_order_acquire); }

    // Null-safe release, for pointers that may not have been set.
    static void release(RefCountedObject* obj) {
        if (obj) obj->decRefCount();
    }

  protected:
    // A copy is a new object: it never shares the source's count.
    RefCountedObject(const RefCountedObject&) : OrvaneObject() {}
    RefCountedObject& operator=(const RefCountedObject&) { return *this; }

  private:
    std::atomic<int> m_refCount{0};
};

// Releases one reference of the held object when it goes out of scope.
class RefCountedObjectOwner {
  public:
    RefCountedObjectOwner() = default;
    explicit RefCountedObjectOwner(RefCountedObject* obj) : m_obj(obj) {}
    ~RefCountedObjectOwner() { RefCountedObject::release(m_obj); }
    RefCountedObjectOwner(const RefCountedObjectOwner&) = delete;
    RefCountedObjectOwner& operator=(const RefCountedObjectOwner&) = delete;

    void set(RefCountedObject* obj) {
        RefCountedObject::release(m_obj);
        m_obj = obj;
    }
    // Hands the reference back to the caller; the owner then holds nothing.
    RefCountedObject* release() {
        RefCountedObject* o = m_obj;
        m_obj = nullptr;
        return o;
    }

    RefCountedObject* m_obj = nullptr;
};

// Scoped owner of one public-class object (ClsXml, ClsPem, ...): releases it on
// destruction. Public classes are reference counted, so releasing is decRefCount.
class _clsOwner {
  public:
    _clsOwner() = default;
    explicit _clsOwner(RefCountedObject* obj) : m_obj(obj) {}
    ~_clsOwner() { RefCountedObject::release(m_obj); }
    _clsOwner(const _clsOwner&) = delete;
    _clsOwner& operator=(const _clsOwner&) = delete;

    void set(RefCountedObject* obj) {
        RefCountedObject::release(m_obj);
        m_obj = obj;
    }

    RefCountedObject* m_obj = nullptr;
};
