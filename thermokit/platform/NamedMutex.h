#pragma once
// A mutex that two processes can share by name, with the host system's
// "abandoned" rule: when the thread that owns it ends (its process killed
// included) the next party to wait for it obtains it and is told that the
// owner died. Ownership belongs to a thread and is recursive; the owning
// thread unlocks it. Without a name the mutex is private to the process.
// On Windows it is the system's named mutex.
#if !defined(_WIN32)
#include <pthread.h>
#endif

#include <memory>
#include <string>

#include "thermokit/platform/NamedSegment.h"

namespace thermokit {

class NamedMutex {
public:
    enum LockResult {
        Acquired = 0,   // the caller owns it now
        Abandoned = 1,  // the caller owns it now; its previous owner died holding it
        TimedOut = 2,
        Error = 3,
    };

    NamedMutex() = default;
    ~NamedMutex() { Close(); }
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;

    // Creates the named mutex or opens the existing one (AlreadyExisted
    // tells which); a null or empty name makes a private one. False when the
    // name holds another kind of object or the system refuses.
    bool Create(const char* name);
    void Close();
#if defined(_WIN32)
    bool IsOpen() const { return m_handle != nullptr; }
    void* NativeHandle() const { return m_handle; }
#else
    bool IsOpen() const { return m_pMutex != nullptr; }
#endif
    bool AlreadyExisted() const { return m_bExisted; }

    // Waits up to timeoutMs (0: only tries, kInfinite: no limit).
    LockResult Lock(unsigned long timeoutMs = kInfinite);
    // False when the calling thread does not own it.
    bool Unlock();

private:
#if defined(_WIN32)
    void* m_handle = nullptr;  // the mutex's HANDLE
#else
    NamedSegment m_segment;
    std::unique_ptr<pthread_mutex_t> m_private;
    pthread_mutex_t* m_pMutex = nullptr;
#endif
    bool m_bExisted = false;
};

}  // namespace thermokit
