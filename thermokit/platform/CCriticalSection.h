#pragma once
// The host framework's critical section: a recursive lock private to the
// process. Lock waits without limit and returns 1 (0 is kept in the
// signature for callers that test it).
#include <mutex>

namespace thermokit {

class CCriticalSection {
public:
    int Lock() {
        m_mutex.lock();
        return 1;
    }
    int Unlock() {
        m_mutex.unlock();
        return 1;
    }

private:
    std::recursive_mutex m_mutex;
};

}  // namespace thermokit
