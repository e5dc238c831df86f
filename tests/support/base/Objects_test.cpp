#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/base/ExtPtrArray.h"
#include "support/base/OrvaneCritSec.h"
#include "support/base/OrvaneObject.h"
#include "support/base/Psdk.h"
#include "support/base/RefPtr.h"

namespace {

// Counts its destructions.
template <class Base>
struct Counted : public Base {
    explicit Counted(int* deaths) : m_deaths(deaths) {}
    ~Counted() override { ++*m_deaths; }
    int* m_deaths;
};
using Tracked = Counted<RefCountedObject>;
using Plain = Counted<NonRefCountedObj>;

TEST(RefCountedObject, LastReleaseDeletesAndOwnersRelease) {
    int deaths = 0;
    auto* t = new Tracked(&deaths);
    EXPECT_EQ(t->getRefCount(), 0);
    t->incRefCount();
    t->incRefCount();
    EXPECT_TRUE(!t->decRefCount() && deaths == 0);
    { RefCountedObjectOwner owner(t); }
    EXPECT_EQ(deaths, 1);

    auto* fresh = new Tracked(&deaths);  // never stored: releasing drops it
    EXPECT_TRUE(fresh->decRefCount() && deaths == 2);
    RefCountedObject::release(nullptr);  // null-safe
    _clsOwner none;

    // Counts stay exact under concurrent changes.
    t = new Tracked(&deaths);
    t->incRefCount();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([t] {
            for (int k = 0; k < 20000; ++k) t->incRefCount(), t->decRefCount();
        });
    for (auto& th : threads) th.join();
    EXPECT_TRUE(t->getRefCount() == 1 && deaths == 2);
    t->decRefCount();
    EXPECT_EQ(deaths, 3);
}

// adopt takes over the caller's reference, retain takes one of its own; a
// moved-from or released RefPtr gives nothing back at scope exit.
TEST(RefPtr, AdoptRetainMoveRelease) {
    int deaths = 0;
    auto* t = new Tracked(&deaths);
    {
        auto first = RefPtr<Tracked>::retain(t);  // fresh object: 0 -> 1
        t->incRefCount();                         // a reference handed over
        auto second = RefPtr<Tracked>::adopt(t);
        RefPtr<Tracked> moved(std::move(first));
        EXPECT_EQ(2, t->getRefCount());
        t->incRefCount();
        EXPECT_EQ(t, RefPtr<Tracked>::adopt(t).release());
    }
    EXPECT_EQ(0, deaths);  // the released reference is still held
    t->decRefCount();
    EXPECT_EQ(1, deaths);
}

TEST(OrvaneCritSec, RecursiveEntryAndMutualExclusion) {
    OrvaneCritSec cs;
    long counter = 0;
    std::atomic<int> inside{0};
    std::atomic<bool> overlap{false};
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            CritSecExitor g(&cs);
            CritSecExitor again(&cs);  // same thread again: must not deadlock
            if (inside.fetch_add(1) != 0) overlap = true;
            ++counter;
            inside.fetch_sub(1);
        }
    };
    std::thread t1(work), t2(work);
    t1.join();
    t2.join();
    EXPECT_TRUE(!overlap && counter == 40000);
    CritSecExitor nullGuard(nullptr);
}

TEST(ExtPtrArray, OwnsElementsAndBoundsChecks) {
    int deaths = 0;
    {
        ExtPtrArray arr;
        arr.appendPtr(new Plain(&deaths));
        arr.appendObject(nullptr);
        arr.appendPtr(new Plain(&deaths));
        EXPECT_EQ(arr.getSize(), 3);
        EXPECT_TRUE(!arr.elementAt(1) && !arr.elementAt(3) && !arr.elementAt(-1));
        OrvaneObject::deleteObject(arr.removeAt(0));
        EXPECT_EQ(deaths, 1);
    }
    EXPECT_EQ(deaths, 2);
    ExtPtrArraySb sbs;
    sbs.appendSb(new StringBuffer("x"));
    EXPECT_TRUE(sbs.sbAt(0)->equals("x") && !sbs.sbAt(1));
}

TEST(Psdk, CountsReports) {
    Psdk::resetCounts();
    Psdk::badObjectFound(nullptr);
    Psdk::corruptObjectFound(nullptr);
    Psdk::corruptObjectFound("x");
    EXPECT_TRUE(Psdk::badObjectCount() == 1u && Psdk::corruptObjectCount() == 2u);
}

}  // namespace
