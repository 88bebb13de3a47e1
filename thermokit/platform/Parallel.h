#pragma once
// Whole films on every core: an ordered frame pipeline and the thread count.
//
// Work over the frames of a film runs as a pipeline of three stages: read
// (one frame at a time, in frame order), process (several frames at once, in
// any order) and write (one frame at a time, in frame order). Reading and
// writing keep the film's order; whatever is combined across frames is
// combined in the write stage, in frame order, so that results are the same
// to the byte whatever the number of threads. Work on one frame stays on one
// thread (the kernels are single-threaded and allocation-free).
//
// The threads come from oneTBB; the count is the thread count rule's, else
// SetThreadCount's, else the environment's THERMOKIT_THREADS, else every core
// the process may use.
#include <functional>

namespace thermokit {

// Threads for whole-film work (at least 1).
int GetThreadCount();
// From now on; 0 or below goes back to THERMOKIT_THREADS or every core.
void SetThreadCount(int count);

// A program whose own threads start whole-film work may choose the count by
// the thread that starts it (a thread of a pool of its own that already
// keeps the cores busy wants one): `rule` is asked on that thread first, and
// a count of 0 or below leaves the choice to SetThreadCount and the default.
// It must be cheap and safe to call from any thread. nullptr removes it.
using ThreadCountRule = int (*)();
void SetThreadCountRule(ThreadCountRule rule);

class FramePipeline {
public:
    // One stage's work on item `item` (0, 1, ...), which occupies slot
    // `slot` (0 .. slots - 1) from its read to the end of its write: the
    // caller keeps one buffer per slot. False stops the run.
    using Stage = std::function<bool(unsigned long item, int slot)>;

    // The number of slots that keeps `threads` threads busy.
    static int Slots(int threads);
    static int Slots() { return Slots(GetThreadCount()); }

    // Runs items 0 .. count - 1 through read, process and write (an empty
    // process or write stage does nothing), with at most `slots` items in
    // flight and GetThreadCount() threads. When a stage returns false no
    // later item is written (items already read are dropped). Returns the
    // number of items written, which are items 0 .. written - 1: count when
    // every item went through. Exceptions from a stage reach the caller.
    static unsigned long Run(unsigned long count, int slots, const Stage& read, const Stage& process,
                             const Stage& write);
};

}  // namespace thermokit
