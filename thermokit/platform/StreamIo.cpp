#include "thermokit/platform/StreamIo.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace thermokit::streamio {

namespace {

// The file system's alignment rule for direct transfers, 0 when it takes none.
unsigned long DirectAlignment(int fd) {
#if defined(STATX_DIOALIGN)
    struct statx sx {};
    if (statx(fd, "", AT_EMPTY_PATH, STATX_DIOALIGN, &sx) == 0 && (sx.stx_mask & STATX_DIOALIGN)) {
        if (sx.stx_dio_offset_align == 0) return 0;
        return std::max<unsigned long>(sx.stx_dio_offset_align, sx.stx_dio_mem_align);
    }
#endif
    (void)fd;
    return kDirectAlign;
}

constexpr size_t kHugePage = size_t{2} << 20;

int Fd(Handle file) { return static_cast<int>(file); }

}  // namespace

int OpenFlags(unsigned long mode, bool direct) {
    int flags = O_RDWR | O_CLOEXEC;
    switch (mode) {
    case Create:
        flags |= O_CREAT | O_TRUNC;
        break;
    case OpenAlways:
        flags |= O_CREAT;
        break;
    default:
        break;
    }
    if (direct) flags |= O_DIRECT;
    return flags;
}

Handle OpenForBanks(const std::string& name, unsigned long mode, unsigned long bankSize, bool* direct) {
    // Direct writes when the bank size suits them and the file system takes
    // them; decided here, once.
    int fd = -1;
    *direct = false;
    if (bankSize % kDirectAlign == 0) {
        fd = ::open(name.c_str(), OpenFlags(mode, true), 0644);
        if (fd >= 0) {
            const unsigned long align = DirectAlignment(fd);
            *direct = align != 0 && align <= kDirectAlign && bankSize % align == 0;
            if (!*direct) {
                ::close(fd);
                fd = -1;
            }
        }
    }
    if (fd < 0) fd = ::open(name.c_str(), OpenFlags(mode == Create ? OpenAlways : mode, false), 0644);
    if (fd < 0) return kNoFile;
    if (!*direct && mode == Create && ::ftruncate(fd, 0) != 0) {
        ::close(fd);
        return kNoFile;
    }
    return fd;
}

void Close(Handle file) {
    if (file != kNoFile) ::close(Fd(file));
}

int64_t Tell(Handle file) { return static_cast<int64_t>(::lseek(Fd(file), 0, SEEK_CUR)); }

bool SeekTo(Handle file, int64_t position) {
    return ::lseek(Fd(file), static_cast<off_t>(position), SEEK_SET) == static_cast<off_t>(position);
}

long WriteAtPosition(Handle file, const void* data, unsigned long size) {
    const auto* p = static_cast<const unsigned char*>(data);
    unsigned long done = 0;
    while (done < size) {
        const ssize_t n = ::write(Fd(file), p + done, size - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += static_cast<unsigned long>(n);
    }
    return static_cast<long>(done);
}

long long ReadAt(Handle file, int64_t position, void* data, size_t size) {
    for (;;) {
        const ssize_t n = ::pread(Fd(file), data, size, static_cast<off_t>(position));
        if (n >= 0) return static_cast<long long>(n);
        if (errno != EINTR) return -1;
    }
}

int64_t Length(Handle file) {
    struct stat st {};
    if (::fstat(Fd(file), &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

bool SetLength(Handle file, int64_t length) { return ::ftruncate(Fd(file), static_cast<off_t>(length)) == 0; }

bool Sync(Handle file) { return ::fdatasync(Fd(file)) == 0; }

// The banks start on a 2 MiB boundary and ask for huge pages: a direct
// write then hands the disk a few large physically contiguous pieces
// instead of a thousand 4 KiB ones, which makes each bank write markedly
// faster. Then every page is touched, so that recording never takes a
// page fault. Both requests are hints: without them the banks still work.
unsigned char* AllocateBanks(size_t bytes, void** block, size_t* blockSize) {
    void* raw = ::mmap(nullptr, bytes + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    *block = raw;
    *blockSize = bytes + kHugePage;
    unsigned char* banks =
        static_cast<unsigned char*>(raw) + (kHugePage - reinterpret_cast<uintptr_t>(raw) % kHugePage) % kHugePage;
#if defined(MADV_HUGEPAGE)
    ::madvise(banks, bytes, MADV_HUGEPAGE);
#endif
#if defined(MADV_POPULATE_WRITE)
    if (::madvise(banks, bytes, MADV_POPULATE_WRITE) == 0) return banks;
#endif
    std::memset(banks, 0, bytes);
    return banks;
}

void FreeBanks(void* block, size_t blockSize) {
    if (block) ::munmap(block, blockSize);
}

void RaiseThreadPriority() {
    // Real-time round robin when permitted, else a better nice value, else
    // the normal priority: all three keep working.
    sched_param sp{};
    sp.sched_priority = sched_get_priority_min(SCHED_RR);
    if (pthread_setschedparam(pthread_self(), SCHED_RR, &sp) == 0) return;
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), -5);
}

}  // namespace thermokit::streamio
