#pragma once
// The carrier of every named object (mutex, event, mapping) on POSIX
// systems: a shared-memory object with a small header, then the object's
// payload. (On Windows the named objects are the system's own; only the
// kinds and kInfinite below are shared.)
//
// Names: the host system keeps mutexes, events and mappings in one
// namespace per user session; here every object of a user lives in
// /dev/shm under "tk<uid>.<escaped name>" (see NamedObjectPath). The object
// is created with owner-only permissions (0600), and an object found there
// that belongs to another user is refused.
//
// Lifetime: the header counts the parties (per process id) that hold the
// object open. The last one to close it removes the name (shm_unlink), so a
// name comes back fresh after everybody has closed it. Parties that died
// without closing (killed) are pruned from the count by the next open or
// close, so a crash does not keep the name alive for ever.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace thermokit {

// Kinds of named objects. Opening a name that holds another kind fails, as
// the host system does.
enum class NamedKind : uint32_t { Mutex = 1, Event = 2, Mapping = 3 };

// Time-outs of the waiting operations, in milliseconds; this one never ends.
constexpr unsigned long kInfinite = 0xFFFFFFFFul;

#if !defined(_WIN32)

// Path (under /dev/shm, with its leading '/') of the shared-memory object
// that carries the named object `name` of the calling user.
std::string NamedObjectPath(const std::string& name);

// A process-shared, robust mutex (recursive when asked) in memory the caller
// provides. False when the system refuses.
bool InitRobustMutex(pthread_mutex_t* mutex, bool recursive);
// Locks a robust mutex with an infinite wait. A previous owner that died
// holding it is forgiven (the mutex is made consistent): the guarded data
// of the named objects is a handful of counters that stay valid. False
// only when the mutex cannot be recovered.
bool LockRobust(pthread_mutex_t* mutex);

class NamedSegment {
public:
    enum Result { Failed = 0, Created = 1, Opened = 2 };

    NamedSegment() = default;
    ~NamedSegment() { Close(); }
    NamedSegment(const NamedSegment&) = delete;
    NamedSegment& operator=(const NamedSegment&) = delete;

    // Creates the object, or opens it when it exists. On creation the
    // payload holds payloadBytes zero bytes and init runs on it before any
    // other party can see the object. An existing object keeps its own
    // payload size (PayloadSize tells). Fails (errno in GetLastError) for an
    // empty name, a name held by another kind or another user, or a system
    // error.
    Result Open(const std::string& name, NamedKind kind, size_t payloadBytes,
                const std::function<void(void*)>& init = {});
    // Drops this party's hold; the last party removes the name.
    void Close();

    bool IsOpen() const { return m_pBase != nullptr; }
    void* Payload() const;
    size_t PayloadSize() const { return m_nPayload; }
    int GetLastError() const { return m_nErrno; }

private:
    Result Fail(int err);

    void* m_pBase = nullptr;
    size_t m_nMapped = 0;
    size_t m_nPayload = 0;
    std::string m_strPath;
    int m_nErrno = 0;
};

#endif  // !_WIN32

}  // namespace thermokit
