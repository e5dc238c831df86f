// Psdk: process-wide reporting of objects found with a broken validity sentinel.
#pragma once

// Never aborts: the counts let tests and diagnostics see that a stale or
// corrupted object was used. Thread safe.
class Psdk {
  public:
    static void badObjectFound(const char* where);
    static void corruptObjectFound(const char* where);

    static unsigned badObjectCount();
    static unsigned corruptObjectCount();
    static void resetCounts();
};
