#include "thermokit/platform/NamedEvent.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <ctime>

#include "thermokit/platform/NamedMutex.h"

namespace thermokit {

struct NamedEvent::Core {
    pthread_mutex_t lock;  // guards the four counters below
    uint32_t manual;
    uint32_t signalled;
    uint32_t waiters;   // threads blocked in Wait
    uint32_t handoffs;  // Sets given to blocked waiters, not yet taken
    std::atomic<uint32_t> seq;  // changes at every Set: the futex word
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMutexPollMs = 4;  // how often a multiple wait tries its mutexes

// One entry of futex_waitv (struct futex_waitv of the kernel).
struct WaitvEntry {
    uint64_t val;
    uint64_t uaddr;
    uint32_t flags;
    uint32_t reserved;
};

uint32_t* Word(std::atomic<uint32_t>* a) { return reinterpret_cast<uint32_t*>(a); }

// Shared futexes: the word may sit in memory mapped by several processes.
void FutexWait(std::atomic<uint32_t>* a, uint32_t expected, long timeoutMs) {
    timespec t{timeoutMs / 1000, (timeoutMs % 1000) * 1000000L};
    syscall(SYS_futex, Word(a), FUTEX_WAIT, expected, timeoutMs < 0 ? nullptr : &t, nullptr, 0);
}

void FutexWake(std::atomic<uint32_t>* a) { syscall(SYS_futex, Word(a), FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0); }

// Remaining milliseconds before the deadline (-1: none), 0 when past.
long Remaining(bool infinite, Clock::time_point deadline) {
    if (infinite) return -1;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<long>(left) : 0;
}

bool InitCore(NamedEvent::Core* c, bool manual, bool initial) {
    if (!InitRobustMutex(&c->lock, false)) return false;
    c->manual = manual;
    c->signalled = initial;
    c->waiters = 0;
    c->handoffs = 0;
    c->seq.store(0);
    return true;
}

}  // namespace

NamedEvent::NamedEvent() = default;
NamedEvent::~NamedEvent() { Close(); }

bool NamedEvent::Create(const char* name, bool manualReset, bool initialState) {
    Close();
    if (!name || !*name) {
        m_private = std::make_unique<Core>();
        if (!InitCore(m_private.get(), manualReset, initialState)) {
            m_private.reset();
            return false;
        }
        m_pCore = m_private.get();
        return true;
    }
    bool initialised = true;
    const auto r = m_segment.Open(name, NamedKind::Event, sizeof(Core), [&](void* p) {
        initialised = InitCore(static_cast<Core*>(p), manualReset, initialState);
    });
    if (r == NamedSegment::Failed || !initialised || m_segment.PayloadSize() != sizeof(Core)) {
        m_segment.Close();
        return false;
    }
    m_bExisted = r == NamedSegment::Opened;
    m_pCore = static_cast<Core*>(m_segment.Payload());
    return true;
}

void NamedEvent::Close() {
    if (m_private) pthread_mutex_destroy(&m_private->lock);
    m_private.reset();
    m_segment.Close();
    m_pCore = nullptr;
    m_bExisted = false;
}

bool NamedEvent::Set() {
    if (!m_pCore || !LockRobust(&m_pCore->lock)) return false;
    if (!m_pCore->manual && m_pCore->waiters > m_pCore->handoffs)
        ++m_pCore->handoffs;
    else
        m_pCore->signalled = 1;
    m_pCore->seq.fetch_add(1, std::memory_order_release);
    pthread_mutex_unlock(&m_pCore->lock);
    FutexWake(&m_pCore->seq);
    return true;
}

bool NamedEvent::Reset() {
    if (!m_pCore || !LockRobust(&m_pCore->lock)) return false;
    m_pCore->signalled = 0;
    pthread_mutex_unlock(&m_pCore->lock);
    return true;
}

int NamedEvent::WaitingThreads() const {
    if (!m_pCore || !LockRobust(&m_pCore->lock)) return 0;
    const int n = static_cast<int>(m_pCore->waiters - m_pCore->handoffs);
    pthread_mutex_unlock(&m_pCore->lock);
    return n;
}

bool NamedEvent::TryConsume() {
    if (!m_pCore || !LockRobust(&m_pCore->lock)) return false;
    const bool was = m_pCore->signalled != 0;
    if (was && !m_pCore->manual) m_pCore->signalled = 0;
    pthread_mutex_unlock(&m_pCore->lock);
    return was;
}

bool NamedEvent::Wait(unsigned long timeoutMs) {
    if (!m_pCore || !LockRobust(&m_pCore->lock)) return false;
    Core* c = m_pCore;
    if (c->signalled) {
        if (!c->manual) c->signalled = 0;
        pthread_mutex_unlock(&c->lock);
        return true;
    }
    if (timeoutMs == 0) {
        pthread_mutex_unlock(&c->lock);
        return false;
    }
    const bool infinite = timeoutMs == kInfinite;
    const auto deadline = Clock::now() + std::chrono::milliseconds(infinite ? 0 : timeoutMs);
    ++c->waiters;
    for (;;) {
        const uint32_t seq = c->seq.load(std::memory_order_acquire);
        pthread_mutex_unlock(&c->lock);
        const long left = Remaining(infinite, deadline);
        if (left != 0) FutexWait(&c->seq, seq, left);
        if (!LockRobust(&c->lock)) return false;
        if (c->handoffs) {
            --c->handoffs;
            --c->waiters;
            pthread_mutex_unlock(&c->lock);
            return true;
        }
        if (c->signalled) {
            if (!c->manual) c->signalled = 0;
            --c->waiters;
            pthread_mutex_unlock(&c->lock);
            return true;
        }
        if (Remaining(infinite, deadline) == 0) {
            --c->waiters;
            pthread_mutex_unlock(&c->lock);
            return false;
        }
    }
}

int WaitForObjects(const WaitObject* objects, int count, unsigned long timeoutMs, bool* abandoned) {
    if (abandoned) *abandoned = false;
    if (!objects || count <= 0 || count > 64) return kWaitFailed;
    const bool infinite = timeoutMs == kInfinite;
    const auto deadline = Clock::now() + std::chrono::milliseconds(infinite ? 0 : timeoutMs);
    bool anyMutex = false;
    for (int i = 0; i < count; ++i) {
        if (objects[i].event ? !objects[i].event->IsOpen() : !objects[i].mutex || !objects[i].mutex->IsOpen())
            return kWaitFailed;
        if (!objects[i].event) anyMutex = true;
    }
#if defined(SYS_futex_waitv)
    static std::atomic<bool> haveWaitv{true};  // futex_waitv needs Linux 5.16
#else
    static std::atomic<bool> haveWaitv{false};
#endif
    WaitvEntry waits[64] = {};
    for (;;) {
        int nwait = 0;
        for (int i = 0; i < count; ++i)
            if (objects[i].event) {
                NamedEvent::Core* c = objects[i].event->m_pCore;
                waits[nwait].uaddr = reinterpret_cast<uintptr_t>(Word(&c->seq));
                waits[nwait].val = c->seq.load(std::memory_order_acquire);
                waits[nwait].flags = 2;  // 32-bit word, shared between processes
                ++nwait;
            }
        for (int i = 0; i < count; ++i) {
            if (objects[i].event) {
                if (objects[i].event->TryConsume()) return i;
                continue;
            }
            const auto r = objects[i].mutex->Lock(0);
            if (r == NamedMutex::Acquired || r == NamedMutex::Abandoned) {
                if (abandoned) *abandoned = r == NamedMutex::Abandoned;
                return i;
            }
            if (r == NamedMutex::Error) return kWaitFailed;
        }
        long left = Remaining(infinite, deadline);
        if (left == 0) return kWaitTimeout;
        if (anyMutex && (left < 0 || left > kMutexPollMs)) left = kMutexPollMs;
        if (nwait == 0) {
            timespec t{left / 1000, (left % 1000) * 1000000L};
            nanosleep(&t, nullptr);
            continue;
        }
        if (haveWaitv) {
            timespec at{};
            timespec* pat = nullptr;
            if (left >= 0) {
                clock_gettime(CLOCK_MONOTONIC, &at);
                at.tv_sec += left / 1000;
                at.tv_nsec += (left % 1000) * 1000000L;
                if (at.tv_nsec >= 1000000000L) {
                    at.tv_nsec -= 1000000000L;
                    ++at.tv_sec;
                }
                pat = &at;
            }
#if defined(SYS_futex_waitv)
            if (syscall(SYS_futex_waitv, waits, nwait, 0, pat, CLOCK_MONOTONIC) < 0 && errno == ENOSYS)
                haveWaitv = false;
#endif
            continue;
        }
        // Older kernels: sleep on the first event, a little at a time.
        if (left < 0 || left > kMutexPollMs) left = kMutexPollMs;
        FutexWait(reinterpret_cast<std::atomic<uint32_t>*>(waits[0].uaddr), static_cast<uint32_t>(waits[0].val), left);
    }
}

}  // namespace thermokit
