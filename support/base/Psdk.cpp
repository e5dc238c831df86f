#include "support/base/Psdk.h"

#include <atomic>

namespace {
std::atomic<unsigned> g_bad{0};
std::atomic<unsigned> g_corrupt{0};
}  // namespace

void Psdk::badObjectFound(const char*) {
    g_bad.fetch_add(1);
}
void Psdk::corruptObjectFound(const char*) {
    g_corrupt.fetch_add(1);
}
unsigned Psdk::badObjectCount() {
    return g_bad.load();
}
unsigned Psdk::corruptObjectCount() {
    return g_corrupt.load();
}
void Psdk::resetCounts() {
    g_bad.store(0);
    g_corrupt.store(0);
}
