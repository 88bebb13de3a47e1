#pragma once
// An event two processes can share by name, manual-reset or auto-reset, and
// the wait for several objects at once.
//
// Auto-reset events hand a Set over to a thread already blocked in Wait:
// the event stays non-signalled and that waiter returns, so a party that
// sets the event and then tests it at once (zero time-out) can tell whether
// somebody was waiting. With nobody waiting the event stays signalled until
// one wait consumes it. Without a name the event is private to the process
// (the same code, so private and named events mix in WaitForObjects).
// On Windows it is the system's event, which behaves the same way.
#include <atomic>
#include <cstdint>
#include <memory>

#include "thermokit/platform/NamedSegment.h"

namespace thermokit {

class NamedMutex;
struct WaitObject;

class NamedEvent {
public:
    NamedEvent();
    ~NamedEvent();
    NamedEvent(const NamedEvent&) = delete;
    NamedEvent& operator=(const NamedEvent&) = delete;

    // Creates the event, or opens the existing one (which keeps its own
    // reset mode and state; AlreadyExisted tells). A null or empty name
    // makes a private one.
    bool Create(const char* name, bool manualReset, bool initialState);
    void Close();
#if defined(_WIN32)
    bool IsOpen() const { return m_handle != nullptr; }
#else
    bool IsOpen() const { return m_pCore != nullptr; }
#endif
    bool AlreadyExisted() const { return m_bExisted; }

    bool Set();
    bool Reset();
    // True when the event was (or became) signalled within timeoutMs
    // (0: only tests; kInfinite: no limit). An auto-reset event is
    // consumed by the successful wait.
    bool Wait(unsigned long timeoutMs = kInfinite);
#if defined(_WIN32)
    void* NativeHandle() const { return m_handle; }

private:
    void* m_handle = nullptr;  // the event's HANDLE
#else
    // Threads (of every process) blocked in Wait on this event right now.
    int WaitingThreads() const;

    struct Core;  // the shared state, defined with the code

private:
    friend int WaitForObjects(const WaitObject*, int, unsigned long, bool*);
    bool TryConsume();

    NamedSegment m_segment;
    std::unique_ptr<Core> m_private;
    Core* m_pCore = nullptr;
#endif
    bool m_bExisted = false;
};

// One object of a multiple wait: an event or a mutex.
struct WaitObject {
    NamedEvent* event = nullptr;
    NamedMutex* mutex = nullptr;
};

constexpr int kWaitTimeout = -1;
constexpr int kWaitFailed = -2;

// Waits until one of the objects is signalled (an event; an auto-reset one
// is consumed) or obtained (a mutex, which the caller then owns; abandoned,
// when given, tells whether its owner had died). Returns the lowest index
// ready, kWaitTimeout after timeoutMs, kWaitFailed for a closed object.
// Events wake the caller at once; mutexes are tried every few milliseconds,
// so an owner's death is seen within that delay.
int WaitForObjects(const WaitObject* objects, int count, unsigned long timeoutMs, bool* abandoned = nullptr);

}  // namespace thermokit
