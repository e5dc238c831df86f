// RefPtr<T>: owns one reference to a reference-counted object and releases it
// on scope exit. The one way to hold such an object for a scope; singly owned
// objects use std::unique_ptr.
#pragma once

#include <utility>

template <class T>
class RefPtr {
  public:
    // Takes over a reference the caller already holds (an object a getter
    // handed out with its count raised).
    static RefPtr adopt(T* p) { return RefPtr(p); }
    // Takes a reference of its own: for a factory's fresh object (count 0,
    // where adopting would leave a later holder's count one short) or a
    // borrowed pointer that must outlive its lender.
    static RefPtr retain(T* p) {
        if (p) p->incRefCount();
        return RefPtr(p);
    }

    RefPtr() = default;
    RefPtr(RefPtr&& o) noexcept : m_p(o.m_p) { o.m_p = nullptr; }
    RefPtr& operator=(RefPtr&& o) noexcept {
        if (this != &o) {
            reset();
            std::swap(m_p, o.m_p);
        }
        return *this;
    }
    // Copies would need a count of their own: retain says so where one is meant.
    RefPtr(const RefPtr&) = delete;
    RefPtr& operator=(const RefPtr&) = delete;
    ~RefPtr() { reset(); }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    // Releases the reference held, if any.
    void reset() {
        T* p = m_p;
        m_p = nullptr;
        if (p) p->decRefCount();
    }
    // Hands the reference to the caller; the RefPtr then holds nothing.
    [[nodiscard]] T* release() {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

  private:
    explicit RefPtr(T* p) : m_p(p) {}
    T* m_p = nullptr;
};
