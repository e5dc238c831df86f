// Sets the TZ environment variable for a scope, so tests can show that results
// do not depend on the machine's time zone.
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

class TzGuard {
  public:
    explicit TzGuard(const char* tz) {
        const char* old = getenv("TZ");
        m_had = old != nullptr;
        if (old) m_old = old;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~TzGuard() {
        if (m_had)
            setenv("TZ", m_old.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    TzGuard(const TzGuard&) = delete;
    TzGuard& operator=(const TzGuard&) = delete;

  private:
    bool m_had = false;
    std::string m_old;
};
