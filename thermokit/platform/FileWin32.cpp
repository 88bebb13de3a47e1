// File on Windows: CreateFileW with the system's own sharing modes. The
// system's error code is ::GetLastError (File::GetLastError is the C
// library's error number of the last failure).
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/File.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace thermokit {

namespace {

// The C library's error number that means the same as a system error code;
// 0 when none does (the system's own text is shown then).
int ErrnoFor(DWORD code) {
    switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return ENOENT;
    case ERROR_ACCESS_DENIED:
        return EACCES;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        return EEXIST;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
        return ENOSPC;
    case ERROR_TOO_MANY_OPEN_FILES:
        return EMFILE;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
        return ENOMEM;
    case ERROR_INVALID_HANDLE:
        return EBADF;
    case ERROR_WRITE_PROTECT:
        return EROFS;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        return EBUSY;
    case ERROR_FILENAME_EXCED_RANGE:
        return ENAMETOOLONG;
    case ERROR_NEGATIVE_SEEK:
    case ERROR_INVALID_PARAMETER:
        return EINVAL;
    default:
        return 0;
    }
}

DWORD AccessFor(unsigned flags) {
    switch (flags & 0x3) {
    case File::modeWrite:
        return GENERIC_WRITE;
    case File::modeReadWrite:
        return GENERIC_READ | GENERIC_WRITE;
    default:
        return GENERIC_READ;
    }
}

// What others may do meanwhile. Renaming and deleting are always allowed, as
// on Linux: a program may replace a file that a reader keeps open.
DWORD ShareFor(unsigned flags) {
    switch (flags & 0x70) {
    case File::shareExclusive:
        return FILE_SHARE_DELETE;
    case File::shareDenyWrite:
        return FILE_SHARE_READ | FILE_SHARE_DELETE;
    case File::shareDenyRead:
        return FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    default:
        return FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    }
}

HANDLE Handle(void* h) { return static_cast<HANDLE>(h); }

// The largest piece one ReadFile or WriteFile moves.
constexpr size_t kChunk = size_t{1} << 30;

bool IdentityOf(HANDLE h, BY_HANDLE_FILE_INFORMATION* info) { return GetFileInformationByHandle(h, info) != 0; }

}  // namespace

File::~File() { Close(); }

File::File(File&& other) noexcept
    : m_fd(std::exchange(other.m_fd, nullptr)), m_sharing(std::exchange(other.m_sharing, nullptr)),
      m_systemError(other.m_systemError), m_path(std::move(other.m_path)), m_errno(other.m_errno) {}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = std::exchange(other.m_fd, nullptr);
        m_sharing = std::exchange(other.m_sharing, nullptr);
        m_systemError = other.m_systemError;
        m_path = std::move(other.m_path);
        m_errno = other.m_errno;
    }
    return *this;
}

void File::FailSystem(unsigned long code) {
    m_systemError = code;
    const int err = ErrnoFor(code);
    m_errno = err ? err : EIO;
}

bool File::Open(const std::string& path, unsigned flags) {
    Close();
    m_errno = 0;
    m_systemError = 0;
    if (path.empty()) {
        Fail(ENOENT);
        return false;
    }
    const unsigned access = flags & 0x3;
    DWORD disposition = OPEN_EXISTING;
    if (flags & modeCreate) disposition = (flags & modeNoTruncate) || access == modeRead ? OPEN_ALWAYS : CREATE_ALWAYS;
    const std::wstring name = win32::FileName(path);
    // The share check comes first: a file is emptied only by an open that
    // is allowed to happen.
    HANDLE h = CreateFileW(name.c_str(), AccessFor(flags), ShareFor(flags), nullptr, disposition,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        const DWORD code = ::GetLastError();
        const DWORD attributes = GetFileAttributesW(name.c_str());
        if (code == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
            (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            Fail(EISDIR);
        } else {
            FailSystem(code);
        }
        return false;
    }
    m_fd = h;
    m_path = path;
    return true;
}

void File::Close() {
    ReleaseSharing();
    if (m_fd) {
        CloseHandle(Handle(m_fd));
        m_fd = nullptr;
    }
}

bool File::AcquireSharing(unsigned flags) {
    if (!m_fd) return false;
    ReleaseSharing();
    // A second open of the same file with the access and the sharing asked
    // for: it is refused exactly when an open of that kind would be.
    HANDLE h = CreateFileW(win32::FileName(m_path).c_str(), AccessFor(flags), ShareFor(flags), nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        FailSystem(::GetLastError());
        return false;
    }
    m_sharing = h;
    return true;
}

void File::ReleaseSharing() {
    if (m_sharing) {
        CloseHandle(Handle(m_sharing));
        m_sharing = nullptr;
    }
}

bool File::IsSameFileAs(const std::string& path) const {
    if (!m_fd || path != m_path) return false;
    HANDLE named = CreateFileW(win32::FileName(path).c_str(), FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (named == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION mine{}, other{};
    const bool same = IdentityOf(Handle(m_fd), &mine) && IdentityOf(named, &other) &&
                      mine.dwVolumeSerialNumber == other.dwVolumeSerialNumber &&
                      mine.nFileIndexHigh == other.nFileIndexHigh && mine.nFileIndexLow == other.nFileIndexLow;
    CloseHandle(named);
    return same;
}

size_t File::Read(void* data, size_t size) {
    if (!m_fd || (!data && size)) {
        Fail(EBADF);
        return 0;
    }
    auto* p = static_cast<char*>(data);
    size_t done = 0;
    while (done < size) {
        const DWORD want = static_cast<DWORD>(size - done < kChunk ? size - done : kChunk);
        DWORD got = 0;
        if (!ReadFile(Handle(m_fd), p + done, want, &got, nullptr)) {
            FailSystem(::GetLastError());
            break;
        }
        if (got == 0) break;
        done += got;
    }
    return done;
}

bool File::Write(const void* data, size_t size) {
    if (!m_fd || (!data && size)) {
        Fail(EBADF);
        return false;
    }
    const auto* p = static_cast<const char*>(data);
    size_t done = 0;
    while (done < size) {
        const DWORD want = static_cast<DWORD>(size - done < kChunk ? size - done : kChunk);
        DWORD put = 0;
        if (!WriteFile(Handle(m_fd), p + done, want, &put, nullptr)) {
            FailSystem(::GetLastError());
            return false;
        }
        if (put == 0) {
            Fail(ENOSPC);
            return false;
        }
        done += put;
    }
    return true;
}

// Positioned transfers with an OVERLAPPED offset. On a synchronous handle
// they move the file position too, so it is put back afterwards.
bool File::TransferSpans(bool write, uint64_t offset, const Span* spans, int count) {
    if (!m_fd || count < 0 || (count && !spans)) {
        Fail(EBADF);
        return false;
    }
    LARGE_INTEGER zero{}, position{};
    if (!SetFilePointerEx(Handle(m_fd), zero, &position, win32::kFileCurrent)) {
        FailSystem(::GetLastError());
        return false;
    }
    bool ok = true;
    for (int i = 0; ok && i < count; ++i) {
        auto* p = static_cast<char*>(spans[i].data);
        size_t done = 0;
        while (done < spans[i].size) {
            const size_t left = spans[i].size - done;
            const DWORD want = static_cast<DWORD>(left < kChunk ? left : kChunk);
            OVERLAPPED at{};
            at.Offset = static_cast<DWORD>(offset);
            at.OffsetHigh = static_cast<DWORD>(offset >> 32);
            DWORD moved = 0;
            const BOOL r = write ? WriteFile(Handle(m_fd), p + done, want, &moved, &at)
                                 : ReadFile(Handle(m_fd), p + done, want, &moved, &at);
            if (!r) {
                const DWORD code = ::GetLastError();
                if (code == ERROR_HANDLE_EOF) m_errno = 0;  // the end of the file
                else FailSystem(code);
                ok = false;
                break;
            }
            if (moved == 0) {
                if (write) Fail(ENOSPC);
                else m_errno = 0;  // the end of the file
                ok = false;
                break;
            }
            done += moved;
            offset += moved;
        }
    }
    SetFilePointerEx(Handle(m_fd), position, nullptr, win32::kFileBegin);
    return ok;
}

size_t File::ReadAt(uint64_t offset, void* data, size_t size) {
    if (!m_fd || (!data && size)) {
        Fail(EBADF);
        return 0;
    }
    // Up to the end of the file: a short read is not an error here.
    const int64_t length = GetLength();
    if (length < 0) return 0;
    if (offset >= static_cast<uint64_t>(length)) return 0;
    const uint64_t available = static_cast<uint64_t>(length) - offset;
    const size_t n = available < size ? static_cast<size_t>(available) : size;
    const Span span{data, n};
    return TransferSpans(false, offset, &span, 1) ? n : 0;
}

bool File::WriteAt(uint64_t offset, const void* data, size_t size) {
    if (!m_fd || (!data && size)) {
        Fail(EBADF);
        return false;
    }
    const Span span{const_cast<void*>(data), size};
    return TransferSpans(true, offset, &span, 1);
}

bool File::ReadSpansAt(uint64_t offset, const Span* spans, int count) { return TransferSpans(false, offset, spans, count); }

bool File::WriteSpansAt(uint64_t offset, const Span* spans, int count) { return TransferSpans(true, offset, spans, count); }

int64_t File::Seek(int64_t offset, SeekPosition from) {
    if (!m_fd) {
        Fail(EBADF);
        return -1;
    }
    const DWORD method = from == begin ? win32::kFileBegin : from == current ? win32::kFileCurrent : win32::kFileEnd;
    LARGE_INTEGER distance{}, moved{};
    distance.QuadPart = offset;
    if (!SetFilePointerEx(Handle(m_fd), distance, &moved, method)) {
        FailSystem(::GetLastError());
        return -1;
    }
    return moved.QuadPart;
}

int64_t File::GetPosition() const {
    if (!m_fd) return -1;
    LARGE_INTEGER zero{}, position{};
    if (!SetFilePointerEx(Handle(m_fd), zero, &position, win32::kFileCurrent)) return -1;
    return position.QuadPart;
}

int64_t File::GetLength() const {
    if (!m_fd) return -1;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(Handle(m_fd), &size)) return -1;
    return size.QuadPart;
}

bool File::SetLength(uint64_t length) {
    if (!m_fd) {
        Fail(EBADF);
        return false;
    }
    FILE_END_OF_FILE_INFO info{};
    info.EndOfFile.QuadPart = static_cast<LONGLONG>(length);
    if (!SetFileInformationByHandle(Handle(m_fd), FileEndOfFileInfo, &info, sizeof info)) {
        FailSystem(::GetLastError());
        return false;
    }
    return true;
}

bool File::Flush() {
    if (!m_fd) return false;
    if (!FlushFileBuffers(Handle(m_fd))) {
        FailSystem(::GetLastError());
        return false;
    }
    return true;
}

std::string File::GetLastErrorText() const {
    if (m_errno == 0) return "No error";
    if (m_errno == EBUSY) return "Sharing violation: the file is in use by another program";
    if (m_systemError && !ErrnoFor(m_systemError)) return win32::ErrorText(m_systemError);
    return std::strerror(m_errno);
}

int64_t File::GetFileLength(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(win32::FileName(path).c_str(), GetFileExInfoStandard, &data)) return -1;
    return static_cast<int64_t>((static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
}

bool File::Exists(const std::string& path) {
    return !path.empty() && GetFileAttributesW(win32::FileName(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::FILE* File::OpenStream(const std::string& path, const char* mode) {
    if (path.empty() || !mode) return nullptr;
    return _wfopen(win32::FileName(path).c_str(), win32::Widen(mode).c_str());
}

bool File::Remove(const std::string& path) { return !path.empty() && DeleteFileW(win32::FileName(path).c_str()) != 0; }

File::Status File::StatusOf(const std::string& path) {
    Status status;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (path.empty() || !GetFileAttributesExW(win32::FileName(path).c_str(), GetFileExInfoStandard, &data)) {
        const int err = path.empty() ? ENOENT : ErrnoFor(::GetLastError());
        status.err = err ? err : EIO;
        return status;
    }
    status.regular = (data.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) == 0;
    status.size = static_cast<int64_t>((static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
    return status;
}

}  // namespace thermokit
