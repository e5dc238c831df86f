// A recursive critical section and its scoped guard.
#pragma once

#include <mutex>

// Recursive: a thread that holds it may enter again (operations that lock call
// other operations that lock the same object).
class OrvaneCritSec {
  public:
    OrvaneCritSec() = default;
    virtual ~OrvaneCritSec() = default;
    OrvaneCritSec(const OrvaneCritSec&) {}  // a copy has its own, unlocked, section
    OrvaneCritSec& operator=(const OrvaneCritSec&) { return *this; }

    void enterCriticalSection() { m_mutex.lock(); }
    void leaveCriticalSection() { m_mutex.unlock(); }

  private:
    std::recursive_mutex m_mutex;
};

// Enters the section on construction and leaves it on destruction. A null
// pointer makes a guard that does nothing.
class CritSecExitor {
  public:
    explicit CritSecExitor(OrvaneCritSec* cs) : m_cs(cs) {
        if (m_cs) m_cs->enterCriticalSection();
    }
    ~CritSecExitor() {
        if (m_cs) m_cs->leaveCriticalSection();
    }
    CritSecExitor(const CritSecExitor&) = delete;
    CritSecExitor& operator=(const CritSecExitor&) = delete;

  private:
    OrvaneCritSec* m_cs;
};
