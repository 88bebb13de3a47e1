#include "thermokit/platform/NamedMutex.h"

#include <cerrno>
#include <ctime>

namespace thermokit {

bool NamedMutex::Create(const char* name) {
    Close();
    if (!name || !*name) {
        m_private = std::make_unique<pthread_mutex_t>();
        if (!InitRobustMutex(m_private.get(), true)) {
            m_private.reset();
            return false;
        }
        m_pMutex = m_private.get();
        return true;
    }
    bool initialised = true;
    const auto r = m_segment.Open(name, NamedKind::Mutex, sizeof(pthread_mutex_t), [&](void* p) {
        initialised = InitRobustMutex(static_cast<pthread_mutex_t*>(p), true);
    });
    if (r == NamedSegment::Failed || !initialised || m_segment.PayloadSize() != sizeof(pthread_mutex_t)) {
        m_segment.Close();
        return false;
    }
    m_bExisted = r == NamedSegment::Opened;
    m_pMutex = static_cast<pthread_mutex_t*>(m_segment.Payload());
    return true;
}

void NamedMutex::Close() {
    if (m_private) pthread_mutex_destroy(m_private.get());
    m_private.reset();
    m_segment.Close();
    m_pMutex = nullptr;
    m_bExisted = false;
}

NamedMutex::LockResult NamedMutex::Lock(unsigned long timeoutMs) {
    if (!m_pMutex) return Error;
    int r;
    if (timeoutMs == 0) {
        r = pthread_mutex_trylock(m_pMutex);
    } else if (timeoutMs == kInfinite) {
        r = pthread_mutex_lock(m_pMutex);
    } else {
        timespec t{};
        clock_gettime(CLOCK_MONOTONIC, &t);
        t.tv_sec += static_cast<time_t>(timeoutMs / 1000);
        t.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000L;
        if (t.tv_nsec >= 1000000000L) {
            t.tv_nsec -= 1000000000L;
            ++t.tv_sec;
        }
        r = pthread_mutex_clocklock(m_pMutex, CLOCK_MONOTONIC, &t);
    }
    switch (r) {
    case 0:
        return Acquired;
    case EOWNERDEAD:
        // The owner died: the mutex is ours and usable again.
        return pthread_mutex_consistent(m_pMutex) == 0 ? Abandoned : Error;
    case EBUSY:
    case ETIMEDOUT:
        return TimedOut;
    default:
        return Error;
    }
}

bool NamedMutex::Unlock() { return m_pMutex && pthread_mutex_unlock(m_pMutex) == 0; }

}  // namespace thermokit
