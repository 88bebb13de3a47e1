#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>
#include "support/NamedObjects.h"
#include "support/ToolRun.h"
#if !defined(_WIN32)
#include "support/ChildProcess.h"
#endif
#include "thermokit/acquisition/CSharedMemory.h"

using namespace thermokit;
using Clock = std::chrono::steady_clock;
using thermokit::test::ObjectExists;
using thermokit::test::UniqueName;
#if !defined(_WIN32)
using thermokit::test::Join;
using thermokit::test::Spawn;
#endif

namespace {

// Every named object a mailbox called `name` uses.
std::vector<std::string> ObjectNames(const std::string& name) {
    return {name + "Mutex0", name + "Mutex1", name + "0", name + "1", name + "DataWrit0",
            name + "DataWrit1", name + "DataRead0", name + "DataRead1"};
}

// Opens, retrying while the partner is not there yet (the side that
// signals the rendezvous fails when nobody waits yet).
bool OpenRetry(CSharedMemory& m, const std::string& name, int size, int seconds = 10) {
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < end) {
        if (m.Open(name.c_str(), size, 200)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

constexpr int kBlock = 64;

uint32_t Checksum(const unsigned char* p, int n) {
    uint32_t h = 2166136261u;
    for (int i = 0; i < n; ++i) h = (h ^ p[i]) * 16777619u;
    return h;
}

// Block i: its sequence number, bytes derived from it, a checksum of both.
void MakeBlock(unsigned char* b, uint32_t i) {
    std::memcpy(b, &i, 4);
    for (int k = 4; k < kBlock - 4; ++k) b[k] = static_cast<unsigned char>(i * 31u + static_cast<uint32_t>(k));
    const uint32_t c = Checksum(b, kBlock - 4);
    std::memcpy(b + kBlock - 4, &c, 4);
}

bool BlockValid(const unsigned char* b, uint32_t* seq) {
    uint32_t c = 0;
    std::memcpy(seq, b, 4);
    std::memcpy(&c, b + kBlock - 4, 4);
    return c == Checksum(b, kBlock - 4);
}

}  // namespace

#if !defined(_WIN32)  // the partner is a fork() of the test; on Windows see PartnerProcess below
TEST(SharedMemory, HundredThousandBlocksBetweenProcesses) {
    const std::string name = UniqueName("stream");
    const uint32_t total = 100000;
    const pid_t child = Spawn([&] {
        CSharedMemory m;
        if (!OpenRetry(m, name, kBlock)) return 10;
        unsigned char b[kBlock];
        // First half written directly, second half through the write queue.
        for (uint32_t i = 0; i < total / 2; ++i) {
            MakeBlock(b, i);
            if (m.Write(b, kBlock, 10000) != 0) return 11;
        }
        for (uint32_t i = total / 2; i < total; ++i) {
            MakeBlock(b, i);
            if (m.WriteToQueue(b, kBlock) != 0) return 12;
        }
        // Stay open until the reader has everything (closing drops the queue).
        uint32_t ack = 0;
        if (m.Read(&ack, 4, 30000) != 0) return 13;
        m.Close();
        return ack == total ? 0 : 14;
    });
    CSharedMemory m;
    ASSERT_TRUE(OpenRetry(m, name, kBlock));
    EXPECT_EQ(m.GetSize(), kBlock);
    uint32_t received = 0, bad = 0, outOfOrder = 0;
    unsigned char b[kBlock];
    for (uint32_t i = 0; i < total; ++i) {
        const int r = m.Read(b, kBlock, 10000);
        if (r != 0) {
            ADD_FAILURE() << "read " << i << " returned " << r;
            break;
        }
        uint32_t seq = 0;
        if (!BlockValid(b, &seq)) ++bad;
        if (seq != i) ++outOfOrder;
        ++received;
    }
    EXPECT_EQ(received, total);
    EXPECT_EQ(bad, 0u);
    EXPECT_EQ(outOfOrder, 0u);  // none lost, doubled or swapped
    EXPECT_EQ(m.Read(b, kBlock, 50), 2);  // nothing more: time-out
    EXPECT_EQ(m.Write(&received, 4, 10000), 0);
    EXPECT_EQ(Join(child), 0);
    m.Close();
    for (const auto& n : ObjectNames(name)) EXPECT_FALSE(ObjectExists(n)) << n;
    EXPECT_FALSE(ObjectExists(name));
}

TEST(SharedMemory, KilledPartnerIsSeenAndTheSurvivorOpensAgain) {
    const std::string name = UniqueName("kill");
    // The partner dies while blocks stream in.
    pid_t child = Spawn([&] {
        CSharedMemory m;
        if (!OpenRetry(m, name, kBlock)) return 10;
        unsigned char b[kBlock];
        for (uint32_t i = 0;; ++i) {
            MakeBlock(b, i);
            if (m.Write(b, kBlock, 10000) != 0) return 11;
        }
    });
    CSharedMemory m;
    ASSERT_TRUE(OpenRetry(m, name, kBlock));
    unsigned char b[kBlock];
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(m.Read(b, kBlock, 10000), 0);
    kill(child, SIGKILL);
    const auto t0 = Clock::now();
    int r = 0;
    for (int i = 0; i < 10 && r == 0; ++i) r = m.Read(b, kBlock, 5000);  // a block may still wait
    EXPECT_EQ(r, 3);
    EXPECT_LT(Clock::now() - t0, std::chrono::seconds(5));
    EXPECT_EQ(Join(child), -SIGKILL);
    m.Close();

    // The survivor opens again with a new partner, who dies while the
    // survivor waits for its buffer to become free.
    child = Spawn([&] {
        CSharedMemory p;
        if (!OpenRetry(p, name, kBlock)) return 10;
        pause();
        return 0;
    });
    ASSERT_TRUE(OpenRetry(m, name, kBlock));
    MakeBlock(b, 7);
    EXPECT_EQ(m.Write(b, kBlock, 5000), 0);  // fills the partner's buffer
    EXPECT_EQ(m.Write(b, kBlock, 100), 2);   // nobody reads it: time-out
    std::thread killer([child] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        kill(child, SIGKILL);
    });
    EXPECT_EQ(m.Write(b, kBlock, 5000), 3);
    killer.join();
    EXPECT_EQ(Join(child), -SIGKILL);
    EXPECT_EQ(m.WriteToQueue(b, kBlock), 3);
    m.Close();
    for (const auto& n : ObjectNames(name)) EXPECT_FALSE(ObjectExists(n)) << n;
}

TEST(SharedMemory, ThirdPartyRefusedOwnerOnlyAndNormalClose) {
    const std::string name = UniqueName("third");
    int pipeFd[2];
    ASSERT_EQ(pipe(pipeFd), 0);
    const pid_t child = Spawn([&] {
        close(pipeFd[1]);
        CSharedMemory m;
        if (!OpenRetry(m, name, kBlock)) return 10;
        char c;
        if (read(pipeFd[0], &c, 1) != 1) return 11;  // until the parent has looked
        m.Close();
        return 0;
    });
    close(pipeFd[0]);
    CSharedMemory m;
    ASSERT_TRUE(OpenRetry(m, name, kBlock));
    EXPECT_FALSE(m.Open(name.c_str(), kBlock, 10));  // already open

    const pid_t third = Spawn([&] {
        CSharedMemory t;
        return t.Open(name.c_str(), kBlock, 100) ? 1 : 0;
    });
    EXPECT_EQ(Join(third), 0);
    bool otherThread = true;  // another thread of a holding process is a third party too
    std::thread([&] {
        CSharedMemory t;
        otherThread = t.Open(name.c_str(), kBlock, 100);
    }).join();
    EXPECT_FALSE(otherThread);

    for (const auto& n : ObjectNames(name)) {
        struct stat st {};
        ASSERT_EQ(stat(("/dev/shm" + NamedObjectPath(n)).c_str(), &st), 0) << n;
        EXPECT_EQ(st.st_mode & 0777, 0600u) << n;
        EXPECT_EQ(st.st_uid, geteuid());
    }
    // The rendezvous event is gone once both sides have met and let it go (the
    // partner may still be on its way out of Open).
    const auto until = Clock::now() + std::chrono::seconds(10);
    while (ObjectExists(name) && Clock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_FALSE(ObjectExists(name));

    ASSERT_EQ(write(pipeFd[1], "x", 1), 1);
    close(pipeFd[1]);
    unsigned char b[kBlock];
    EXPECT_EQ(m.Read(b, kBlock, 5000), 3);  // a partner that closed has gone too
    EXPECT_EQ(Join(child), 0);
    m.Close();
    for (const auto& n : ObjectNames(name)) EXPECT_FALSE(ObjectExists(n)) << n;
}
#else
// The partner of PartnerProcessStreamsThenDies, in a process of its own: it opens the mailbox named in
// THERMOKIT_TEST_MAILBOX and writes numbered blocks until it is killed.
TEST(SharedMemory, DISABLED_Partner) {
    const char* name = std::getenv("THERMOKIT_TEST_MAILBOX");
    CSharedMemory m;
    ASSERT_TRUE(name && OpenRetry(m, name, kBlock));
    unsigned char b[kBlock];
    for (uint32_t i = 0;; ++i) {
        MakeBlock(b, i);
        ASSERT_EQ(m.Write(b, kBlock, 10000), 0);
    }
}

TEST(SharedMemory, PartnerProcessStreamsThenDies) {
    const std::string name = UniqueName("process");
    ::setenv("THERMOKIT_TEST_MAILBOX", name.c_str(), 1);
    void* partner = thermokit::test::StartProgram(
        {thermokit::test::ThisProgram(), "--gtest_filter=SharedMemory.DISABLED_Partner", "--gtest_also_run_disabled_tests"});
    ASSERT_NE(partner, nullptr);
    CSharedMemory m;
    ASSERT_TRUE(OpenRetry(m, name, kBlock));
    bool third = true;  // a third party is refused, even in a process that holds a side
    std::thread([&] { third = CSharedMemory().Open(name.c_str(), kBlock, 100); }).join();
    EXPECT_FALSE(third);
    unsigned char b[kBlock];
    uint32_t bad = 0, outOfOrder = 0;
    for (uint32_t i = 0; i < 20000; ++i) {
        ASSERT_EQ(m.Read(b, kBlock, 10000), 0) << i;
        uint32_t seq = 0;
        if (!BlockValid(b, &seq)) ++bad;
        if (seq != i) ++outOfOrder;
    }
    EXPECT_EQ(bad, 0u);
    EXPECT_EQ(outOfOrder, 0u);
    // Killed, the partner leaves its side mutex abandoned: the survivor sees it gone.
    thermokit::test::KillProgram(partner);
    int r = 0;
    for (int i = 0; i < 10 && r == 0; ++i) r = m.Read(b, kBlock, 5000);  // a block may still wait
    EXPECT_EQ(r, 3);
    EXPECT_EQ(m.WriteToQueue(b, kBlock), 3);
    m.Close();
    for (const auto& n : ObjectNames(name)) EXPECT_FALSE(ObjectExists(n)) << n;
}
#endif

// Both sides in one process, one per thread: arguments, lengths, time-outs.
TEST(SharedMemory, ResultCodesBetweenTwoThreads) {
    CSharedMemory a;
    EXPECT_FALSE(a.Open(nullptr, 16, 10));
    EXPECT_FALSE(a.Open("", 16, 10));
    EXPECT_FALSE(a.Open(std::string(250, 'n').c_str(), 16, 10));
    EXPECT_FALSE(a.Open("tktest_size", 0, 10));
    EXPECT_FALSE(a.Open(std::string(249, 'n').c_str(), 16, 10));  // valid, but nobody comes
    EXPECT_FALSE(ObjectExists(std::string(249, 'n') + "Mutex0"));   // a failed open leaves nothing
    unsigned char buf[32] = {};
    EXPECT_EQ(a.Write(buf, 16, 10), 1);  // closed
    EXPECT_EQ(a.Read(buf, 16, 10), 1);
    EXPECT_EQ(a.WriteToQueue(buf, 16), 1);

    const std::string name = UniqueName("threads");
    std::atomic<int> otherSize{-1};
    std::thread wrongSize([&] {
        CSharedMemory b;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        otherSize = b.Open(name.c_str(), 8, 100) ? 1 : 0;  // a block size that differs
    });
    EXPECT_FALSE(a.Open(name.c_str(), 16, 300));
    wrongSize.join();
    EXPECT_EQ(otherSize.load(), 0);

    std::atomic<bool> stop{false};
    std::atomic<int> step{0};
    std::thread partner([&] {
        CSharedMemory b;
        if (!OpenRetry(b, name, 16)) return;
        step = 1;
        unsigned char in[32] = {};
        // A read too long for the block size leaves the block for a right one.
        while (step < 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (b.Read(in, 17, 5000) != 4) return;
        if (b.Read(in, 16, 5000) != 0 || in[0] != 0xAB || in[15] != 0xCD) return;
        // Queued blocks arrive whole: the bytes past the length are zeros.
        if (b.Read(in, 16, 5000) != 0 || in[0] != 0x11 || in[3] != 0 || in[15] != 0) return;
        step = 3;
        while (!stop) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        b.Close();
    });
    ASSERT_TRUE(OpenRetry(a, name, 16));
    while (step < 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(a.Write(buf, 17, 100), 4);
    EXPECT_EQ(a.WriteToQueue(buf, 17), 4);
    EXPECT_EQ(a.Write(buf, -1, 100), -1);
    EXPECT_EQ(a.Read(buf, 16, 30), 2);  // nothing for us
    buf[0] = 0xAB;
    buf[15] = 0xCD;
    EXPECT_EQ(a.Write(buf, 16, 100), 0);  // the too-long write kept the buffer free
    step = 2;
    const unsigned char q[3] = {0x11, 0x22, 0x33};
    EXPECT_EQ(a.WriteToQueue(q, 3), 0);
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (step < 3 && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(step.load(), 3);
    stop = true;
    partner.join();
    EXPECT_EQ(a.Read(buf, 16, 5000), 3);
    a.Close();
    a.Close();
    EXPECT_EQ(a.Write(buf, 16, 10), 1);
}

TEST(SharedMemory, AllocatedBlocksAreNamedAndShared) {
    std::string n1, n2;
    void* p1 = AllocSharedMemory(1000, n1);
    void* p2 = AllocSharedMemory(1000, n2);
    ASSERT_NE(p1, nullptr);
    ASSERT_NE(p2, nullptr);
    EXPECT_NE(n1, n2);
    char expected[64];
    std::snprintf(expected, sizeof expected, "SharedMem%x", static_cast<unsigned>(getpid()));
    EXPECT_EQ(n1.rfind(expected, 0), 0u) << n1;
    std::memset(p1, 0x5A, 1000);
    NamedMapping other;  // what another process does with the name
    ASSERT_TRUE(other.Create(n1.c_str(), 1000));
    EXPECT_TRUE(other.AlreadyExisted());
    EXPECT_EQ(static_cast<unsigned char*>(other.GetData())[999], 0x5A);
    EXPECT_EQ(FreeSharedMemory(p1), 1);
    EXPECT_EQ(FreeSharedMemory(p1), 0);
    EXPECT_EQ(FreeSharedMemory(nullptr), 0);
    EXPECT_TRUE(ObjectExists(n1));  // still mapped by the other party
    other.Close();
    EXPECT_FALSE(ObjectExists(n1));
    EXPECT_EQ(FreeSharedMemory(p2), 1);
    EXPECT_FALSE(ObjectExists(n2));
    EXPECT_EQ(AllocSharedMemory(0, n1), nullptr);
}
