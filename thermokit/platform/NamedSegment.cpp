#include "thermokit/platform/NamedSegment.h"

#if !defined(_WIN32)  // Windows has named objects of its own (Named*Win32.cpp)

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace thermokit {

namespace {

constexpr uint32_t kReady = 0x4B4E5431;  // "1TNK": header complete
constexpr int kSlots = 64;                // processes that may hold one name
constexpr size_t kHeaderBytes = 4096;     // payload starts page-aligned

struct Slot {
    int32_t pid;
    uint32_t count;
};

struct SegmentHeader {
    std::atomic<uint32_t> ready;
    uint32_t kind;
    uint64_t payload;
    uint32_t removed;
    uint32_t reserved;
    pthread_mutex_t lock;  // guards removed and slots
    Slot slots[kSlots];
};
static_assert(sizeof(SegmentHeader) <= kHeaderBytes);
static_assert(std::atomic<uint32_t>::is_always_lock_free);

// A process that cannot hold the object any more: gone, or a zombie whose
// parent has not collected it yet.
bool ProcessGone(int32_t pid) {
    if (pid <= 0) return true;
    if (kill(pid, 0) == -1 && errno == ESRCH) return true;
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    FILE* f = std::fopen(path, "r");
    if (!f) return false;
    char buf[512];
    const size_t n = std::fread(buf, 1, sizeof buf - 1, f);
    std::fclose(f);
    buf[n] = 0;
    const char* close = std::strrchr(buf, ')');  // the command name may hold spaces
    return close && close[1] == ' ' && (close[2] == 'Z' || close[2] == 'X');
}

void PruneDead(SegmentHeader* h) {
    for (Slot& s : h->slots)
        if (s.count && s.pid != getpid() && ProcessGone(s.pid)) s = Slot{0, 0};
}

bool AnyHolder(const SegmentHeader* h) {
    for (const Slot& s : h->slots)
        if (s.count) return true;
    return false;
}

bool Register(SegmentHeader* h) {
    const int32_t me = getpid();
    for (Slot& s : h->slots)
        if (s.count && s.pid == me) {
            ++s.count;
            return true;
        }
    for (Slot& s : h->slots)
        if (!s.count) {
            s = Slot{me, 1};
            return true;
        }
    return false;
}

void Unregister(SegmentHeader* h) {
    const int32_t me = getpid();
    for (Slot& s : h->slots)
        if (s.count && s.pid == me) {
            if (--s.count == 0) s.pid = 0;
            return;
        }
}

}  // namespace

bool InitRobustMutex(pthread_mutex_t* mutex, bool recursive) {
    pthread_mutexattr_t a;
    if (pthread_mutexattr_init(&a) != 0) return false;
    bool ok = pthread_mutexattr_setpshared(&a, PTHREAD_PROCESS_SHARED) == 0 &&
              pthread_mutexattr_setrobust(&a, PTHREAD_MUTEX_ROBUST) == 0 &&
              pthread_mutexattr_settype(&a, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL) == 0 &&
              pthread_mutex_init(mutex, &a) == 0;
    pthread_mutexattr_destroy(&a);
    return ok;
}

bool LockRobust(pthread_mutex_t* mutex) {
    const int r = pthread_mutex_lock(mutex);
    if (r == 0) return true;
    if (r == EOWNERDEAD) return pthread_mutex_consistent(mutex) == 0;
    return false;
}

std::string NamedObjectPath(const std::string& name) {
    static const char hex[] = "0123456789ABCDEF";
    std::string escaped;
    for (unsigned char c : name) {
        if (c == '/' || c == '%' || c < 0x21 || c > 0x7E) {
            escaped += '%';
            escaped += hex[c >> 4];
            escaped += hex[c & 15];
        } else {
            escaped += static_cast<char>(c);
        }
    }
    std::string path = "/tk" + std::to_string(geteuid()) + "." + escaped;
    // A file name holds at most 255 bytes: long names keep a prefix and a
    // hash of the whole name.
    if (path.size() > 240) {
        uint64_t h = 1469598103934665603ull;  // FNV-1a
        for (unsigned char c : name) {
            h ^= c;
            h *= 1099511628211ull;
        }
        char tail[24];
        std::snprintf(tail, sizeof tail, "~%016llx", static_cast<unsigned long long>(h));
        path = path.substr(0, 200) + tail;
    }
    return path;
}

NamedSegment::Result NamedSegment::Fail(int err) {
    m_nErrno = err ? err : EINVAL;
    return Failed;
}

void* NamedSegment::Payload() const {
    return m_pBase ? static_cast<unsigned char*>(m_pBase) + kHeaderBytes : nullptr;
}

NamedSegment::Result NamedSegment::Open(const std::string& name, NamedKind kind, size_t payloadBytes,
                                        const std::function<void(void*)>& init) {
    Close();
    if (name.empty()) return Fail(EINVAL);
    if (payloadBytes > (static_cast<size_t>(1) << 40)) return Fail(ENOMEM);
    const std::string path = NamedObjectPath(name);
    const size_t total = kHeaderBytes + payloadBytes;

    for (int attempt = 0; attempt < 100; ++attempt) {
        int fd = shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (fd >= 0) {
            // Created: build the header before anybody may use the object.
            void* base = MAP_FAILED;
            if (fchmod(fd, S_IRUSR | S_IWUSR) == 0 && ftruncate(fd, static_cast<off_t>(total)) == 0)
                base = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            const int err = errno;
            close(fd);
            if (base == MAP_FAILED) {
                shm_unlink(path.c_str());
                return Fail(err);
            }
            auto* h = static_cast<SegmentHeader*>(base);
            h->kind = static_cast<uint32_t>(kind);
            h->payload = payloadBytes;
            h->removed = 0;
            if (!InitRobustMutex(&h->lock, false)) {
                munmap(base, total);
                shm_unlink(path.c_str());
                return Fail(ENOLCK);
            }
            Register(h);
            if (init) init(static_cast<unsigned char*>(base) + kHeaderBytes);
            h->ready.store(kReady, std::memory_order_release);
            m_pBase = base;
            m_nMapped = total;
            m_nPayload = payloadBytes;
            m_strPath = path;
            return Created;
        }
        if (errno != EEXIST) return Fail(errno);

        fd = shm_open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
        if (fd < 0) {
            if (errno == ENOENT) continue;  // removed in between: create it anew
            return Fail(errno);
        }
        struct stat st {};
        // The creator sizes the object right after creating it: wait for that.
        bool sized = false;
        for (int i = 0; i < 2000; ++i) {
            if (fstat(fd, &st) != 0) break;
            if (st.st_uid != geteuid()) {
                close(fd);
                return Fail(EACCES);
            }
            if (static_cast<size_t>(st.st_size) >= kHeaderBytes) {
                sized = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!sized) {
            close(fd);
            return Fail(ETIMEDOUT);
        }
        const size_t mapped = static_cast<size_t>(st.st_size);
        void* base = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        const int err = errno;
        close(fd);
        if (base == MAP_FAILED) return Fail(err);
        auto* h = static_cast<SegmentHeader*>(base);
        bool ready = false;
        for (int i = 0; i < 2000 && !ready; ++i) {
            ready = h->ready.load(std::memory_order_acquire) == kReady;
            if (!ready) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!ready || h->payload + kHeaderBytes != mapped) {
            munmap(base, mapped);
            return Fail(ready ? EINVAL : ETIMEDOUT);
        }
        if (!LockRobust(&h->lock)) {
            munmap(base, mapped);
            return Fail(ENOTRECOVERABLE);
        }
        if (h->removed) {  // the last holder is removing it: make a new one
            pthread_mutex_unlock(&h->lock);
            munmap(base, mapped);
            continue;
        }
        if (h->kind != static_cast<uint32_t>(kind)) {
            pthread_mutex_unlock(&h->lock);
            munmap(base, mapped);
            return Fail(EEXIST);
        }
        PruneDead(h);
        const bool registered = Register(h);
        pthread_mutex_unlock(&h->lock);
        if (!registered) {
            munmap(base, mapped);
            return Fail(EMFILE);
        }
        m_pBase = base;
        m_nMapped = mapped;
        m_nPayload = static_cast<size_t>(h->payload);
        m_strPath = path;
        return Opened;
    }
    return Fail(EAGAIN);
}

void NamedSegment::Close() {
    if (!m_pBase) return;
    auto* h = static_cast<SegmentHeader*>(m_pBase);
    if (LockRobust(&h->lock)) {
        Unregister(h);
        PruneDead(h);
        if (!AnyHolder(h)) {
            h->removed = 1;
            shm_unlink(m_strPath.c_str());
        }
        pthread_mutex_unlock(&h->lock);
    }
    munmap(m_pBase, m_nMapped);
    m_pBase = nullptr;
    m_nMapped = 0;
    m_nPayload = 0;
    m_strPath.clear();
}

}  // namespace thermokit

#endif  // !_WIN32
