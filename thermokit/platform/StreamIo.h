#pragma once
// The system calls of the direct-to-disk writer (CStreamFile): its file,
// opened for unbuffered writes where the drive allows them, the memory of
// its banks and the priority of its writer thread.
//
//   Linux    open(2) with O_DIRECT (when the file system's alignment rule
//            fits the bank size); banks on a 2 MiB boundary, huge pages asked
//            for; real-time round-robin or a better nice value for the thread.
//   Windows  CreateFileW with FILE_FLAG_NO_BUFFERING | FILE_FLAG_WRITE_THROUGH
//            (when the bank size is a multiple of the drive's sector size);
//            banks from VirtualAlloc, which starts them on a 64 KiB boundary
//            (any sector size divides it); THREAD_PRIORITY_HIGHEST for the
//            thread.
// In both, every page of the banks is touched at once, so that recording
// never waits for the system to provide memory.
#include <cstddef>
#include <cstdint>
#include <string>

namespace thermokit::streamio {

// A file descriptor, or a Windows HANDLE; kNoFile when none.
using Handle = intptr_t;
constexpr Handle kNoFile = -1;

// The alignment (memory, offset and size) that unbuffered writes are made
// with, and which banks must respect to be written that way.
constexpr unsigned long kDirectAlign = 4096;

// How OpenForBanks treats an existing file (CStreamFile's modes).
enum OpenMode : unsigned long { Create = 1, OpenExisting = 2, OpenAlways = 3 };

// The system's open flags for a mode, with or without unbuffered writes:
// open(2) flags on Linux, CreateFileW flags and attributes on Windows.
int OpenFlags(unsigned long mode, bool direct);

// Opens name for reading and writing in banks of bankSize bytes. *direct
// tells whether writes bypass the system's cache (only when bankSize is a
// multiple of the drive's alignment rule); otherwise the file is opened the
// plain way. With Create an existing file is emptied. kNoFile on failure.
Handle OpenForBanks(const std::string& name, unsigned long mode, unsigned long bankSize, bool* direct);
void Close(Handle file);

// The file position; -1 on failure.
int64_t Tell(Handle file);
bool SeekTo(Handle file, int64_t position);
// Writes size bytes at the position and moves it on; the bytes written, or -1.
long WriteAtPosition(Handle file, const void* data, unsigned long size);
// Reads up to size bytes at position without moving the file position; the
// bytes read (fewer at the end of the file), -1 on failure.
long long ReadAt(Handle file, int64_t position, void* data, size_t size);
// File length, -1 on failure.
int64_t Length(Handle file);
bool SetLength(Handle file, int64_t length);
// Asks the disk to keep what was written.
bool Sync(Handle file);

// One block of bytes for the banks, aligned for unbuffered writes and
// touched; *block and *blockSize receive what FreeBanks needs. Null when
// memory is short.
unsigned char* AllocateBanks(size_t bytes, void** block, size_t* blockSize);
void FreeBanks(void* block, size_t blockSize);

// Raises the calling thread's priority as far as the system permits; the
// thread keeps working at its normal priority otherwise.
void RaiseThreadPriority();

}  // namespace thermokit::streamio
