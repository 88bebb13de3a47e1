#pragma once
// A binary file with the sharing modes the library's classes ask for.
//
// On Windows the sharing modes are the system's own (CreateFileW share
// flags; every open also lets others rename or delete the file, as on Linux),
// names are UTF-8 (converted to UTF-16; long names are allowed) and the
// error texts are those of Linux where the error is the same.
//
// On Linux sharing is emulated with open-file-description locks on reserved bytes far
// beyond any real file size: every open holds a shared lock that says what it
// accesses (read, write) and one that says what it denies to others. An open
// fails when another open denies an access it wants, or when it wants to deny
// an access another open already has. So a film being written with
// "deny write" can never be opened for writing by a second writer, and a
// reader asking "deny write" fails while a writer has the file: nobody reads a
// frame torn by a concurrent write. The locks are advisory: programs that do
// not use this class are not held back.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace thermokit {

class File {
public:
    // Open flags, combinable with |.
    enum OpenFlags : unsigned {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,  // deny read and write
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,      // create, truncating an existing file unless modeNoTruncate
        modeNoTruncate = 0x2000,
        typeText = 0x4000,        // accepted, no effect
        typeBinary = 0x8000,      // accepted, no effect
    };
    enum SeekPosition { begin = 0, current = 1, end = 2 };
#if defined(_WIN32)
    using NativeHandle = void*;  // the system's file handle
#else
    using NativeHandle = int;    // the file descriptor
#endif
    // One piece of memory of a gathered transfer.
    struct Span {
        void* data;
        size_t size;
    };

    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;

    // Opens the file; false on failure (GetLastErrorText tells why).
    bool Open(const std::string& path, unsigned flags);
    void Close();
#if defined(_WIN32)
    bool IsOpen() const { return m_fd != nullptr; }
#else
    bool IsOpen() const { return m_fd >= 0; }
#endif
    const std::string& GetFilePath() const { return m_path; }
    NativeHandle GetHandle() const { return m_fd; }

    // Reads up to size bytes at the current position; returns the count read
    // (less at the end of the file, 0 on error).
    size_t Read(void* data, size_t size);
    // True only when exactly size bytes were read.
    bool ReadRecord(void* data, size_t size) { return Read(data, size) == size; }
    // Writes all size bytes; false on error (disk full, I/O error). A write
    // that fails loses data: callers must look at the result.
    [[nodiscard]] bool Write(const void* data, size_t size);

    // Positioned transfers that do not move the file position.
    size_t ReadAt(uint64_t offset, void* data, size_t size);
    [[nodiscard]] bool WriteAt(uint64_t offset, const void* data, size_t size);
    // The pieces one after the other from (to) offset, in as few system calls
    // as the system allows; true only when every byte moved. A read that meets
    // the end of the file first gives false with GetLastError() 0.
    bool ReadSpansAt(uint64_t offset, const Span* spans, int count);
    [[nodiscard]] bool WriteSpansAt(uint64_t offset, const Span* spans, int count);

    // Returns the new position, or -1 on failure.
    int64_t Seek(int64_t offset, SeekPosition from);
    int64_t SeekToBegin() { return Seek(0, begin); }
    int64_t SeekToEnd() { return Seek(0, end); }
    int64_t GetPosition() const;
    // File length, -1 on failure.
    int64_t GetLength() const;
    bool SetLength(uint64_t length);
    bool Flush();

    // Sharing locks of an open file: a reader that keeps its file open between
    // reads can drop them while idle and take them again (for the sharing part
    // of flags) before the next read. AcquireSharing fails, holding nothing,
    // when another open conflicts.
    bool AcquireSharing(unsigned flags);
    void ReleaseSharing();
    // True when the open file is still the file the path names (not replaced
    // or removed since it was opened).
    bool IsSameFileAs(const std::string& path) const;

    int GetLastError() const { return m_errno; }
    std::string GetLastErrorText() const;

    // The C library's stream for a file named in UTF-8 (fopen's modes; on
    // Windows _wfopen, so that any name works whatever the code page).
    static std::FILE* OpenStream(const std::string& path, const char* mode);

    // Length of a file by name, -1 when it cannot be examined.
    static int64_t GetFileLength(const std::string& path);
    static bool Exists(const std::string& path);
    static bool Remove(const std::string& path);
    // What a name stands for: err is 0 when it exists (regular tells whether
    // it is a plain file, not a folder or a device; size is its length), else
    // the C library's error number (ENOENT, EACCES, ...).
    struct Status {
        int err = 0;
        bool regular = false;
        int64_t size = 0;
    };
    static Status StatusOf(const std::string& path);

private:
    void Fail(int err) { m_errno = err; }

#if defined(_WIN32)
    bool TransferSpans(bool write, uint64_t offset, const Span* spans, int count);
    // Keeps the system's error code (GetLastErrorText shows its text when no
    // error number of the C library stands for it).
    void FailSystem(unsigned long code);

    NativeHandle m_fd = nullptr;
    NativeHandle m_sharing = nullptr;  // a second open that holds the sharing mode (AcquireSharing)
    unsigned long m_systemError = 0;
#else
    NativeHandle m_fd = -1;
    int m_lockFd = -1;  // read-only description that carries the sharing locks
#endif
    std::string m_path;
    int m_errno = 0;
#if !defined(_WIN32)
    // The open file's identity (device and inode), taken when it was opened.
    unsigned long long m_device = 0, m_inode = 0;
#endif
};

}  // namespace thermokit
