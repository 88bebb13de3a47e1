#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>
#if !defined(_WIN32)
#include "support/ChildProcess.h"
#endif

#include "support/NamedObjects.h"
#include "thermokit/platform/NamedEvent.h"
#include "thermokit/platform/NamedMapping.h"
#include "thermokit/platform/NamedMutex.h"

using namespace thermokit;
using namespace std::chrono_literals;

using thermokit::test::ObjectExists;
using thermokit::test::UniqueName;

#if !defined(_WIN32)  // the carrier files of the POSIX objects
TEST(NamedObjects, PathsAreSafeFileNames) {
    const std::string p = NamedObjectPath("a/b%c d");
    EXPECT_EQ(p.find('/', 1), std::string::npos);
    EXPECT_NE(p.find("a%2Fb%25c%20d"), std::string::npos) << p;
    EXPECT_NE(NamedObjectPath("a/b"), NamedObjectPath("a%2Fb"));
    const std::string longA = NamedObjectPath(std::string(258, 'x') + "A");
    const std::string longB = NamedObjectPath(std::string(258, 'x') + "B");
    EXPECT_LE(longA.size(), 255u);
    EXPECT_NE(longA, longB);  // a long name keeps its identity through the hash
}
#endif

TEST(NamedObjects, OwnerOnlyKindsAndRemovalAtLastClose) {
    const std::string name = UniqueName("life");
    {
        NamedMapping a, b;
        ASSERT_TRUE(a.Create(name.c_str(), 100));
        EXPECT_FALSE(a.AlreadyExisted());
#if defined(_WIN32)
        ASSERT_TRUE(ObjectExists(name));
#else
        mode_t mode = 0;
        ASSERT_TRUE(ObjectExists(name, &mode));
        EXPECT_EQ(mode, 0600u);
#endif
        static_cast<char*>(a.GetData())[99] = 'z';
        ASSERT_TRUE(b.Create(name.c_str(), 5000));  // the existing block keeps its size
        EXPECT_TRUE(b.AlreadyExisted());
        EXPECT_EQ(b.GetSize(), 100u);
        EXPECT_EQ(static_cast<char*>(b.GetData())[99], 'z');
        NamedEvent e;
        EXPECT_FALSE(e.Create(name.c_str(), true, false));  // the name holds a mapping
        NamedMutex m;
        EXPECT_FALSE(m.Create(name.c_str()));
        a.Close();
        EXPECT_TRUE(ObjectExists(name));  // b still holds it
    }
    EXPECT_FALSE(ObjectExists(name));
    NamedMapping fresh;  // the name comes back empty
    ASSERT_TRUE(fresh.Create(name.c_str(), 10));
    EXPECT_FALSE(fresh.AlreadyExisted());
    EXPECT_EQ(static_cast<char*>(fresh.GetData())[9], 0);
    EXPECT_FALSE(NamedMapping().Create("", 10));
    EXPECT_FALSE(NamedMapping().Create(nullptr, 10));
}

#if !defined(_WIN32)  // fork(); on Windows the system counts the holders itself
TEST(NamedObjects, HolderKilledWithoutClosingDoesNotKeepTheName) {
    const std::string name = UniqueName("crash");
    NamedEvent e;
    ASSERT_TRUE(e.Create(name.c_str(), false, false));
    ASSERT_EQ(thermokit::test::Join(thermokit::test::Spawn([&] {
        NamedEvent c;
        if (!c.Create(name.c_str(), false, false) || !c.Set()) return 1;
        ::_exit(0);  // no Close: the count still names this process
    })), 0);
    EXPECT_TRUE(e.Wait(0));  // the child's Set reached us
    e.Close();
    EXPECT_FALSE(ObjectExists(name));
}
#endif

TEST(NamedObjects, AutoResetEventHandsASetToAWaiter) {
    const std::string name = UniqueName("auto");
    NamedEvent a, b;  // two handles of one event
    ASSERT_TRUE(a.Create(name.c_str(), false, false));
    ASSERT_TRUE(b.Create(name.c_str(), true, true));  // existing: keeps auto-reset, not signalled
    EXPECT_TRUE(b.AlreadyExisted());
    EXPECT_FALSE(b.Wait(0));
    // Nobody waits: the event stays set until one wait takes it.
    ASSERT_TRUE(a.Set());
    EXPECT_TRUE(b.Wait(0));
    EXPECT_FALSE(a.Wait(0));
#if !defined(_WIN32)  // the system's own events on Windows, which tell no waiters
    // A blocked waiter gets the Set; the setter's zero wait finds nothing.
    std::atomic<int> got{-1};
    std::thread waiter([&] { got = b.Wait(5000) ? 1 : 0; });
    for (int i = 0; i < 2000 && a.WaitingThreads() == 0; ++i) std::this_thread::sleep_for(1ms);
    ASSERT_EQ(a.WaitingThreads(), 1);
    ASSERT_TRUE(a.Set());
    EXPECT_EQ(a.WaitingThreads(), 0);  // handed over, even before the waiter runs
    EXPECT_FALSE(a.Wait(0));
    waiter.join();
    EXPECT_EQ(got.load(), 1);
#endif
    // Time-out.
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_FALSE(a.Wait(30));
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 25ms);
}

TEST(NamedObjects, ManualResetEventStaysSetUntilReset) {
    NamedEvent e;
    ASSERT_TRUE(e.Create(nullptr, true, false));
    EXPECT_FALSE(e.Wait(0));
    std::atomic<int> woken{0};
    std::thread t1([&] { woken += e.Wait(5000); });
    std::thread t2([&] { woken += e.Wait(5000); });
    std::this_thread::sleep_for(30ms);
    e.Set();
    t1.join();
    t2.join();
    EXPECT_EQ(woken.load(), 2);  // one Set wakes every waiter
    EXPECT_TRUE(e.Wait(0));
    EXPECT_TRUE(e.Wait(0));
    e.Reset();
    EXPECT_FALSE(e.Wait(0));
    NamedEvent closed;
    EXPECT_FALSE(closed.Set());
    EXPECT_FALSE(closed.Wait(0));
}

TEST(NamedObjects, MutexOwnershipTimeoutsAndAbandonment) {
    const std::string name = UniqueName("mutex");
    NamedMutex a, b;
    ASSERT_TRUE(a.Create(name.c_str()));
    ASSERT_TRUE(b.Create(name.c_str()));
    EXPECT_TRUE(b.AlreadyExisted());
    ASSERT_EQ(a.Lock(0), NamedMutex::Acquired);
    EXPECT_EQ(b.Lock(0), NamedMutex::Acquired);  // same thread: recursive
    EXPECT_TRUE(b.Unlock());
    NamedMutex::LockResult other = NamedMutex::Error;
    std::thread([&] { other = b.Lock(30); }).join();
    EXPECT_EQ(other, NamedMutex::TimedOut);
    std::thread([&] { EXPECT_FALSE(b.Unlock()); }).join();  // not the owner
    EXPECT_TRUE(a.Unlock());

    // A thread that ends while owning it abandons it.
    std::thread([&] { EXPECT_EQ(b.Lock(0), NamedMutex::Acquired); }).join();
    EXPECT_EQ(a.Lock(1000), NamedMutex::Abandoned);
    EXPECT_TRUE(a.Unlock());
    EXPECT_EQ(a.Lock(0), NamedMutex::Acquired);  // usable again, normally
    EXPECT_TRUE(a.Unlock());

#if !defined(_WIN32)  // fork(); on Windows SharedMemory.PartnerProcessStreamsThenDies kills an owner
    // So does a process killed while owning it.
    const pid_t child = thermokit::test::Spawn([&] {
        NamedMutex c;
        if (!c.Create(name.c_str()) || c.Lock(0) != NamedMutex::Acquired) return 1;
        for (;;) ::pause();
    });
    for (int i = 0; i < 500 && a.Lock(0) == NamedMutex::Acquired; ++i) {
        a.Unlock();  // the child has not taken it yet
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(a.Lock(0), NamedMutex::TimedOut);
    thermokit::test::Kill(child);
    EXPECT_EQ(a.Lock(2000), NamedMutex::Abandoned);
    EXPECT_TRUE(a.Unlock());
#endif
    EXPECT_EQ(NamedMutex().Lock(0), NamedMutex::Error);
}

TEST(NamedObjects, WaitForObjectsOrderTimeoutAndWakeUp) {
    NamedEvent e0, e1;
    NamedMutex m;
    ASSERT_TRUE(e0.Create(nullptr, false, false));
    ASSERT_TRUE(e1.Create(UniqueName("multi").c_str(), false, false));
    ASSERT_TRUE(m.Create(nullptr));
    const WaitObject events[2] = {{&e0, nullptr}, {&e1, nullptr}};
    EXPECT_EQ(WaitForObjects(events, 2, 0), kWaitTimeout);
    EXPECT_EQ(WaitForObjects(events, 2, 20), kWaitTimeout);
    e1.Set();
    e0.Set();
    EXPECT_EQ(WaitForObjects(events, 2, 0), 0);  // the lowest index first
    EXPECT_EQ(WaitForObjects(events, 2, 0), 1);
    EXPECT_EQ(WaitForObjects(events, 2, 0), kWaitTimeout);  // both consumed
    std::thread setter([&] {
        std::this_thread::sleep_for(30ms);
        e1.Set();
    });
    EXPECT_EQ(WaitForObjects(events, 2, 5000), 1);
    setter.join();

    // A mutex held by another thread is obtained once it is abandoned.
    std::thread([&] { m.Lock(0); }).join();
    const WaitObject mixed[2] = {{&e0, nullptr}, {nullptr, &m}};
    bool abandoned = false;
    EXPECT_EQ(WaitForObjects(mixed, 2, 1000, &abandoned), 1);
    EXPECT_TRUE(abandoned);
    m.Unlock();
    NamedEvent unopened;
    const WaitObject bad[1] = {{&unopened, nullptr}};
    EXPECT_EQ(WaitForObjects(bad, 1, 0), kWaitFailed);
    EXPECT_EQ(WaitForObjects(nullptr, 0, 0), kWaitFailed);
}
