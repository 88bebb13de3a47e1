#include "thermokit/platform/Parallel.h"

// oneTBB runs the pipelines. Without it, and under ThreadSanitizer (oneTBB is
// not built with it, so the tool cannot see how oneTBB hands items between
// threads and reports its hand-offs as races), plain threads run them with the
// same contract, so that the stages' own sharing is still checked.
#if defined(THERMOKIT_HAVE_TBB) && !defined(__SANITIZE_THREAD__)
#define THERMOKIT_PIPELINE_TBB 1
#endif

#if defined(THERMOKIT_PIPELINE_TBB)
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>
#include <oneapi/tbb/parallel_pipeline.h>
#include <oneapi/tbb/task_arena.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "thermokit/platform/Messages.h"

namespace thermokit {

namespace {

std::atomic<int> g_threads{0};  // 0: the default
std::atomic<ThreadCountRule> g_rule{nullptr};

// The stages one after the other, item by item, in slot 0.
unsigned long RunSerial(unsigned long count, const FramePipeline::Stage& read, const FramePipeline::Stage& process,
                        const FramePipeline::Stage& write) {
    for (unsigned long n = 0; n < count; ++n) {
        if (!read(n, 0)) return n;
        if (process && !process(n, 0)) return n;
        if (write && !write(n, 0)) return n;
    }
    return count;
}

#if defined(THERMOKIT_PIPELINE_TBB)

int Cores() { return std::max(1, tbb::info::default_concurrency()); }  // those this process may run on

struct Item {
    unsigned long index = 0;
    int slot = 0;
    bool ok = false;
};

unsigned long RunThreaded(unsigned long count, int slots, int threads, const FramePipeline::Stage& read,
                          const FramePipeline::Stage& process, const FramePipeline::Stage& write) {
    // Every item holds a slot from its read to the end of its write. At most
    // `slots` items are in flight and the last stage frees its slot before
    // the item leaves the pipeline, so a slot is always free for a new read.
    std::mutex slotLock;
    std::vector<int> freeSlots;
    for (int s = slots - 1; s >= 0; --s) freeSlots.push_back(s);
    // The first item that failed in any stage: nothing from it on is written.
    std::atomic<unsigned long> firstFailure{ULONG_MAX};
    const auto fail = [&firstFailure](unsigned long n) {
        unsigned long seen = firstFailure.load();
        while (n < seen && !firstFailure.compare_exchange_weak(seen, n)) {
        }
    };
    unsigned long next = 0, written = 0;

    // More threads than cores are granted as asked (oneTBB holds its workers
    // to the core count unless told otherwise).
    std::optional<tbb::global_control> allowMore;
    if (threads > Cores()) allowMore.emplace(tbb::global_control::max_allowed_parallelism, static_cast<size_t>(threads));
    tbb::task_arena arena(threads);
    arena.execute([&] {
        tbb::parallel_pipeline(
            static_cast<size_t>(slots),
            tbb::make_filter<void, Item>(tbb::filter_mode::serial_in_order,
                                         [&](tbb::flow_control& fc) {
                                             Item it;
                                             if (next >= count || next > firstFailure.load()) {
                                                 fc.stop();
                                                 return it;
                                             }
                                             {
                                                 std::lock_guard<std::mutex> hold(slotLock);
                                                 it.slot = freeSlots.back();
                                                 freeSlots.pop_back();
                                             }
                                             it.index = next++;
                                             it.ok = read(it.index, it.slot);
                                             if (!it.ok) fail(it.index);
                                             return it;
                                         }) &
                tbb::make_filter<Item, Item>(tbb::filter_mode::parallel,
                                             [&](Item it) {
                                                 if (it.ok && process && it.index < firstFailure.load()) {
                                                     it.ok = process(it.index, it.slot);
                                                     if (!it.ok) fail(it.index);
                                                 }
                                                 return it;
                                             }) &
                tbb::make_filter<Item, void>(tbb::filter_mode::serial_in_order, [&](Item it) {
                    bool ok = it.ok && it.index < firstFailure.load();
                    if (ok && write) ok = write(it.index, it.slot);
                    if (ok)
                        ++written;
                    else
                        fail(it.index);
                    std::lock_guard<std::mutex> hold(slotLock);
                    freeSlots.push_back(it.slot);
                }));
    });
    return written;
}

#else

int Cores() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

// Each thread owns a slot and takes items one at a time: it reads the next
// item under the read lock (so reads are serial and in order), processes it
// on its own, then waits for its turn to write (writes are serial and in
// order). Items are taken without gaps, so every turn comes.
unsigned long RunThreaded(unsigned long count, int slots, int threads, const FramePipeline::Stage& read,
                          const FramePipeline::Stage& process, const FramePipeline::Stage& write) {
    const int workers = std::min(threads, slots);
    std::mutex readLock, writeLock;
    std::condition_variable turn;
    unsigned long next = 0, nextWrite = 0, written = 0;
    std::atomic<unsigned long> firstFailure{ULONG_MAX};
    const auto fail = [&firstFailure](unsigned long n) {
        unsigned long seen = firstFailure.load();
        while (n < seen && !firstFailure.compare_exchange_weak(seen, n)) {
        }
    };
    const auto work = [&](int slot) {
        for (;;) {
            unsigned long item = 0;
            bool ok = false;
            {
                std::lock_guard<std::mutex> serial(readLock);
                if (next >= count || next > firstFailure.load()) return;
                item = next++;
                ok = read(item, slot);
            }
            if (!ok) fail(item);
            if (ok && process && item < firstFailure.load()) {
                ok = process(item, slot);
                if (!ok) fail(item);
            }
            std::unique_lock<std::mutex> serial(writeLock);
            turn.wait(serial, [&] { return nextWrite == item; });
            bool done = ok && item < firstFailure.load();
            if (done && write) done = write(item, slot);
            if (done)
                ++written;
            else
                fail(item);
            ++nextWrite;
            turn.notify_all();
        }
    };
    std::vector<std::thread> others;
    for (int slot = 1; slot < workers; ++slot) others.emplace_back(work, slot);
    work(0);
    for (auto& t : others) t.join();
    return written;
}

#endif

// THERMOKIT_THREADS when it is a positive count, else every core this process
// may run on. Worked out once; a value that cannot be used is reported then.
int DefaultThreads() {
    static const int threads = [] {
        const char* text = std::getenv("THERMOKIT_THREADS");
        if (!text || !*text) return Cores();
        char* end = nullptr;
        errno = 0;
        const long n = std::strtol(text, &end, 10);
        if (errno == 0 && *end == '\0' && n >= 1 && n <= 4096) return static_cast<int>(n);
        Messages::ShowMessage(Format("THERMOKIT_THREADS=%s is not a count of threads (1 to 4096); using %d.", text,
                                     Cores()),
                              "thermokit", MB_ICONWARNING);
        return Cores();
    }();
    return threads;
}

}  // namespace

int GetThreadCount() {
    if (const ThreadCountRule rule = g_rule.load(std::memory_order_acquire)) {
        const int n = rule();
        if (n > 0) return std::min(n, 4096);
    }
    const int n = g_threads.load(std::memory_order_relaxed);
    if (n > 0) return n;
    return DefaultThreads();
}

void SetThreadCount(int count) { g_threads.store(count > 0 ? count : 0); }

void SetThreadCountRule(ThreadCountRule rule) { g_rule.store(rule, std::memory_order_release); }

int FramePipeline::Slots(int threads) { return 2 * std::max(1, threads) + 1; }

unsigned long FramePipeline::Run(unsigned long count, int slots, const Stage& read, const Stage& process,
                                 const Stage& write) {
    const int threads = GetThreadCount();
    if (threads > 1 && slots > 1 && count > 1) return RunThreaded(count, slots, threads, read, process, write);
    return RunSerial(count, read, process, write);
}

}  // namespace thermokit
