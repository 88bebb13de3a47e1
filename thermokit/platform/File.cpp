#include "thermokit/platform/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>
#include <vector>

namespace thermokit {

namespace {

// Reserved lock bytes, far beyond any real file length (locks may lie past
// the end of a file). One byte per access kind, one per denial.
constexpr off_t kLockBase = static_cast<off_t>(0x7FFFFFFFFFFF0000LL);
constexpr off_t kAccessRead = kLockBase + 0;
constexpr off_t kAccessWrite = kLockBase + 1;
constexpr off_t kDenyRead = kLockBase + 2;
constexpr off_t kDenyWrite = kLockBase + 3;

bool LockShared(int fd, off_t where) {
    struct flock fl {};
    fl.l_type = F_RDLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = where;
    fl.l_len = 1;
    return fcntl(fd, F_OFD_SETLK, &fl) == 0;
}

// True when another open file description holds a lock on one of the count
// bytes from where (our own locks never conflict with a probe from the same
// description).
bool OtherHolds(int fd, off_t where, off_t count) {
    struct flock fl {};
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = where;
    fl.l_len = count;
    if (fcntl(fd, F_OFD_GETLK, &fl) != 0) return false;
    return fl.l_type != F_UNLCK;
}

}  // namespace

File::~File() { Close(); }

File::File(File&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_lockFd(std::exchange(other.m_lockFd, -1)), m_path(std::move(other.m_path)), m_errno(other.m_errno),
      m_device(other.m_device), m_inode(other.m_inode) {}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = std::exchange(other.m_fd, -1);
        m_lockFd = std::exchange(other.m_lockFd, -1);
        m_path = std::move(other.m_path);
        m_errno = other.m_errno;
        m_device = other.m_device;
        m_inode = other.m_inode;
    }
    return *this;
}

bool File::AcquireSharing(unsigned flags) {
    if (m_fd < 0) return false;
    const unsigned access = flags & 0x3;
    const bool wantRead = access == modeRead || access == modeReadWrite;
    const bool wantWrite = access == modeWrite || access == modeReadWrite;
    const unsigned share = flags & 0x70;
    const bool denyRead = share == shareExclusive || share == shareDenyRead;
    const bool denyWrite = share == shareExclusive || share == shareDenyWrite;

    // Shared locks need a description open for reading, whatever the access
    // asked for: the locks live on a read-only description of their own.
    if (m_lockFd < 0) m_lockFd = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_lockFd < 0) return true;  // unreadable file: no sharing control possible
    const int fd = m_lockFd;
    // Announce first, then look for conflicts: of two racing opens at least
    // one sees the other.
    struct { bool on; off_t byte; } const mine[] = {
        {wantRead, kAccessRead}, {wantWrite, kAccessWrite}, {denyRead, kDenyRead}, {denyWrite, kDenyWrite}};
    for (const auto& m : mine) {
        if (m.on && !LockShared(fd, m.byte)) {
            if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) return true;  // no lock support
            ReleaseSharing();
            return false;
        }
    }
    // The bytes whose holders would conflict, probed a contiguous run at a
    // time ("read, deny write" probes its two in one call).
    const bool probe[4] = {denyRead, denyWrite, wantRead, wantWrite};  // kAccessRead .. kDenyWrite
    for (int b = 0; b < 4;) {
        if (!probe[b]) {
            ++b;
            continue;
        }
        int e = b;
        while (e + 1 < 4 && probe[e + 1]) ++e;
        if (OtherHolds(fd, kLockBase + b, e - b + 1)) {
            ReleaseSharing();
            return false;
        }
        b = e + 1;
    }
    return true;
}

void File::ReleaseSharing() {
    if (m_lockFd < 0) return;
    struct flock fl {};
    fl.l_type = F_UNLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = kLockBase;
    fl.l_len = 4;
    fcntl(m_lockFd, F_OFD_SETLK, &fl);
}

bool File::IsSameFileAs(const std::string& path) const {
    if (m_fd < 0 || path != m_path) return false;
    struct stat named {};
    if (::stat(path.c_str(), &named) != 0) return false;
    return named.st_dev == m_device && named.st_ino == m_inode;
}

bool File::Open(const std::string& path, unsigned flags) {
    Close();
    m_errno = 0;
    if (path.empty()) {
        Fail(ENOENT);
        return false;
    }
    const unsigned access = flags & 0x3;
    int oflags = O_CLOEXEC;
    if (access == modeWrite) oflags |= O_WRONLY;
    else if (access == modeReadWrite) oflags |= O_RDWR;
    else oflags |= O_RDONLY;
    // Truncation happens only after the sharing check has passed.
    if (flags & modeCreate) oflags |= O_CREAT;
    const int fd = ::open(path.c_str(), oflags, 0644);
    if (fd < 0) {
        Fail(errno);
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        Fail(EISDIR);
        return false;
    }
    m_fd = fd;
    m_path = path;
    m_device = static_cast<unsigned long long>(st.st_dev);
    m_inode = static_cast<unsigned long long>(st.st_ino);
    if (!AcquireSharing(flags)) {
        Close();
        Fail(EBUSY);
        return false;
    }
    if ((flags & modeCreate) && !(flags & modeNoTruncate) && access != modeRead) {
        if (::ftruncate(m_fd, 0) != 0) {
            Fail(errno);
            Close();
            return false;
        }
    }
    return true;
}

void File::Close() {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    if (m_lockFd >= 0) {
        ::close(m_lockFd);  // releases the sharing locks
        m_lockFd = -1;
    }
}

namespace {

// Reads up to size bytes from the current position or, positioned, from offset, retrying after short
// reads and interruptions; stops at the end of the file or at an error. Returns the bytes read; err gets
// the error (0 when none).
size_t ReadLoop(int fd, bool positioned, uint64_t offset, char* p, size_t size, int& err) {
    err = 0;
    size_t done = 0;
    while (done < size) {
        const ssize_t n = positioned ? ::pread(fd, p + done, size - done, static_cast<off_t>(offset + done))
                                     : ::read(fd, p + done, size - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            err = errno;
            break;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return done;
}

// Writes all size bytes at the current position or, positioned, at offset, retrying after short writes
// and interruptions. Returns 0 when all are written, else the error (ENOSPC when nothing more goes).
int WriteLoop(int fd, bool positioned, uint64_t offset, const char* p, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = positioned ? ::pwrite(fd, p + done, size - done, static_cast<off_t>(offset + done))
                                     : ::write(fd, p + done, size - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return ENOSPC;
        done += static_cast<size_t>(n);
    }
    return 0;
}

}  // namespace

size_t File::Read(void* data, size_t size) {
    if (m_fd < 0 || (!data && size)) {
        Fail(EBADF);
        return 0;
    }
    int err = 0;
    const size_t done = ReadLoop(m_fd, false, 0, static_cast<char*>(data), size, err);
    if (err) Fail(err);
    return done;
}

bool File::Write(const void* data, size_t size) {
    if (m_fd < 0 || (!data && size)) {
        Fail(EBADF);
        return false;
    }
    const int err = WriteLoop(m_fd, false, 0, static_cast<const char*>(data), size);
    if (err) Fail(err);
    return err == 0;
}

size_t File::ReadAt(uint64_t offset, void* data, size_t size) {
    if (m_fd < 0 || (!data && size)) {
        Fail(EBADF);
        return 0;
    }
    int err = 0;
    const size_t done = ReadLoop(m_fd, true, offset, static_cast<char*>(data), size, err);
    if (err) Fail(err);
    return done;
}

bool File::WriteAt(uint64_t offset, const void* data, size_t size) {
    if (m_fd < 0 || (!data && size)) {
        Fail(EBADF);
        return false;
    }
    const int err = WriteLoop(m_fd, true, offset, static_cast<const char*>(data), size);
    if (err) Fail(err);
    return err == 0;
}

namespace {

// Moves exactly the bytes of the vector at offset (preadv or pwritev), retrying after short transfers
// and interruptions. 0 when all moved, else the error (ENOSPC when a write moves nothing more; -1
// when a read meets the end of the file).
int TransferVector(int fd, bool write, struct iovec* iov, int count, uint64_t offset) {
    while (count > 0) {
        const int n1 = count > IOV_MAX ? IOV_MAX : count;
        const ssize_t n = write ? ::pwritev(fd, iov, n1, static_cast<off_t>(offset))
                                : ::preadv(fd, iov, n1, static_cast<off_t>(offset));
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return write ? ENOSPC : -1;
        offset += static_cast<uint64_t>(n);
        size_t left = static_cast<size_t>(n);
        while (count > 0 && left >= iov->iov_len) {
            left -= iov->iov_len;
            ++iov;
            --count;
        }
        if (count > 0) {
            iov->iov_base = static_cast<char*>(iov->iov_base) + left;
            iov->iov_len -= left;
        }
    }
    return 0;
}

// The spans as a vector (on the stack for the few pieces a film record has).
int TransferSpans(int fd, bool write, const File::Span* spans, int count, uint64_t offset) {
    struct iovec local[8];
    std::vector<struct iovec> heap;
    struct iovec* iov = local;
    if (count > 8) {
        heap.resize(static_cast<size_t>(count));
        iov = heap.data();
    }
    for (int i = 0; i < count; ++i) iov[i] = {spans[i].data, spans[i].size};
    return TransferVector(fd, write, iov, count, offset);
}

}  // namespace

bool File::ReadSpansAt(uint64_t offset, const Span* spans, int count) {
    if (m_fd < 0 || count < 0 || (count && !spans)) {
        Fail(EBADF);
        return false;
    }
    const int err = TransferSpans(m_fd, false, spans, count, offset);
    if (err) m_errno = err < 0 ? 0 : err;
    return err == 0;
}

bool File::WriteSpansAt(uint64_t offset, const Span* spans, int count) {
    if (m_fd < 0 || count < 0 || (count && !spans)) {
        Fail(EBADF);
        return false;
    }
    const int err = TransferSpans(m_fd, true, spans, count, offset);
    if (err) Fail(err);
    return err == 0;
}

int64_t File::Seek(int64_t offset, SeekPosition from) {
    if (m_fd < 0) {
        Fail(EBADF);
        return -1;
    }
    const int whence = from == begin ? SEEK_SET : from == current ? SEEK_CUR : SEEK_END;
    const off_t r = ::lseek(m_fd, static_cast<off_t>(offset), whence);
    if (r < 0) {
        Fail(errno);
        return -1;
    }
    return static_cast<int64_t>(r);
}

int64_t File::GetPosition() const {
    if (m_fd < 0) return -1;
    return static_cast<int64_t>(::lseek(m_fd, 0, SEEK_CUR));
}

int64_t File::GetLength() const {
    if (m_fd < 0) return -1;
    struct stat st {};
    if (fstat(m_fd, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

bool File::SetLength(uint64_t length) {
    if (m_fd < 0) {
        Fail(EBADF);
        return false;
    }
    if (::ftruncate(m_fd, static_cast<off_t>(length)) != 0) {
        Fail(errno);
        return false;
    }
    return true;
}

bool File::Flush() {
    if (m_fd < 0) return false;
    if (::fdatasync(m_fd) != 0) {
        Fail(errno);
        return false;
    }
    return true;
}

std::string File::GetLastErrorText() const {
    if (m_errno == 0) return "No error";
    if (m_errno == EBUSY) return "Sharing violation: the file is in use by another program";
    return std::strerror(m_errno);
}

int64_t File::GetFileLength(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

bool File::Exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

bool File::Remove(const std::string& path) { return ::unlink(path.c_str()) == 0; }

File::Status File::StatusOf(const std::string& path) {
    Status status;
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        status.err = errno ? errno : ENOENT;
        return status;
    }
    status.regular = S_ISREG(st.st_mode);
    status.size = static_cast<int64_t>(st.st_size);
    return status;
}

std::FILE* File::OpenStream(const std::string& path, const char* mode) { return std::fopen(path.c_str(), mode); }

}  // namespace thermokit
