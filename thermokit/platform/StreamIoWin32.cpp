// The direct-to-disk writer's system calls on Windows.
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/StreamIo.h"

#include <cstring>
#include <vector>

namespace thermokit::streamio {

namespace {

HANDLE H(Handle file) { return reinterpret_cast<HANDLE>(file); }

// The sector size of the drive a file goes to; 0 when unknown.
DWORD SectorSize(const std::wstring& name) {
    std::vector<wchar_t> volume(name.size() + MAX_PATH + 1);
    if (!GetVolumePathNameW(name.c_str(), volume.data(), static_cast<DWORD>(volume.size()))) return 0;
    DWORD sectorsPerCluster = 0, bytesPerSector = 0, freeClusters = 0, clusters = 0;
    if (!GetDiskFreeSpaceW(volume.data(), &sectorsPerCluster, &bytesPerSector, &freeClusters, &clusters)) return 0;
    return bytesPerSector;
}

DWORD Disposition(unsigned long mode) {
    switch (mode) {
    case Create:
        return CREATE_ALWAYS;
    case OpenAlways:
        return OPEN_ALWAYS;
    default:
        return OPEN_EXISTING;
    }
}

}  // namespace

int OpenFlags(unsigned long, bool direct) {
    DWORD flags = FILE_ATTRIBUTE_NORMAL;
    // Unbuffered: each bank goes from its memory to the disk; write-through:
    // the write returns once the disk has it.
    if (direct) flags |= FILE_FLAG_NO_BUFFERING | FILE_FLAG_WRITE_THROUGH;
    return static_cast<int>(flags);
}

Handle OpenForBanks(const std::string& name, unsigned long mode, unsigned long bankSize, bool* direct) {
    const std::wstring wide = win32::FileName(name);
    const DWORD sector = SectorSize(wide);
    *direct = sector != 0 && sector <= kDirectAlign && bankSize % kDirectAlign == 0 && bankSize % sector == 0;
    // The writer never keeps others from the file (as on Linux, where it takes
    // no lock); readers that deny writing are refused by the system itself.
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    HANDLE h = INVALID_HANDLE_VALUE;
    if (*direct) {
        h = CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, Disposition(mode),
                        static_cast<DWORD>(OpenFlags(mode, true)), nullptr);
        if (h == INVALID_HANDLE_VALUE) *direct = false;
    }
    if (h == INVALID_HANDLE_VALUE)
        h = CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, Disposition(mode),
                        static_cast<DWORD>(OpenFlags(mode, false)), nullptr);
    if (h == INVALID_HANDLE_VALUE) return kNoFile;
    return reinterpret_cast<Handle>(h);
}

void Close(Handle file) {
    if (file != kNoFile) CloseHandle(H(file));
}

int64_t Tell(Handle file) {
    LARGE_INTEGER zero{}, position{};
    if (!SetFilePointerEx(H(file), zero, &position, win32::kFileCurrent)) return -1;
    return position.QuadPart;
}

bool SeekTo(Handle file, int64_t position) {
    LARGE_INTEGER to{};
    to.QuadPart = position;
    return position >= 0 && SetFilePointerEx(H(file), to, nullptr, win32::kFileBegin) != 0;
}

long WriteAtPosition(Handle file, const void* data, unsigned long size) {
    const auto* p = static_cast<const unsigned char*>(data);
    unsigned long done = 0;
    while (done < size) {
        DWORD put = 0;
        if (!WriteFile(H(file), p + done, static_cast<DWORD>(size - done), &put, nullptr)) return -1;
        if (put == 0) break;
        done += put;
    }
    return static_cast<long>(done);
}

long long ReadAt(Handle file, int64_t position, void* data, size_t size) {
    // A read with an offset moves the position of a synchronous handle: put
    // it back, since the writer's next bank goes where the position was.
    const int64_t before = Tell(file);
    if (before < 0) return -1;
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(static_cast<uint64_t>(position));
    at.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(position) >> 32);
    DWORD got = 0;
    long long result = 0;
    if (ReadFile(H(file), data, static_cast<DWORD>(size), &got, &at)) result = got;
    else result = GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    if (!SeekTo(file, before)) return -1;
    return result;
}

int64_t Length(Handle file) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(H(file), &size)) return -1;
    return size.QuadPart;
}

bool SetLength(Handle file, int64_t length) {
    if (length < 0) return false;
    FILE_END_OF_FILE_INFO info{};
    info.EndOfFile.QuadPart = length;
    return SetFileInformationByHandle(H(file), FileEndOfFileInfo, &info, sizeof info) != 0;
}

bool Sync(Handle file) { return FlushFileBuffers(H(file)) != 0; }

unsigned char* AllocateBanks(size_t bytes, void** block, size_t* blockSize) {
    void* p = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!p) return nullptr;
    *block = p;
    *blockSize = bytes;
    std::memset(p, 0, bytes);  // every page present before recording starts
    return static_cast<unsigned char*>(p);
}

void FreeBanks(void* block, size_t) {
    if (block) VirtualFree(block, 0, MEM_RELEASE);
}

void RaiseThreadPriority() { SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST); }

}  // namespace thermokit::streamio
