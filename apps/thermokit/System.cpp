#include "System.h"

#include "Command.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include "thermokit/platform/Win32.h"
#else
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace thermokit::cli {

#if defined(_WIN32)

namespace {

void (*g_cleanup)() = nullptr;

// Runs on a thread of its own, which the system starts for the event.
BOOL WINAPI OnConsoleEvent(DWORD event) {
    switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
        // The files the C library writes are closed first: an open file cannot
        // be removed. The tool ends right after, so nothing writes to them again.
        _fcloseall();
        if (g_cleanup) g_cleanup();
        return FALSE;  // the system's own handler ends the tool (STATUS_CONTROL_C_EXIT)
    default:
        return FALSE;
    }
}

}  // namespace

void PrepareStandardStreams() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

bool IsTerminal(std::FILE* stream) {
    DWORD mode = 0;
    const HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    return h != INVALID_HANDLE_VALUE && GetConsoleMode(h, &mode) != 0;
}

void OnInterrupt(void (*cleanup)()) {
    if (g_cleanup) return;
    g_cleanup = cleanup;
    SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
}

namespace {

std::atomic<bool (*)()> g_divert{nullptr};

// Registered after OnInterrupt's handler, so called before it: TRUE ends the
// event's handling here.
BOOL WINAPI OnDivertedEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
    bool (*divert)() = g_divert.load();
    return divert && divert() ? TRUE : FALSE;
}

}  // namespace

void DivertInterrupt(bool (*divert)()) {
    g_divert = divert;
    SetConsoleCtrlHandler(OnDivertedEvent, TRUE);
}

void RestoreInterrupt() {
    SetConsoleCtrlHandler(OnDivertedEvent, FALSE);
    g_divert = nullptr;
}

void RemoveFileNow(const char* path) { DeleteFileW(win32::FileName(path).c_str()); }

int CreateOutputDescriptor(const std::string& path) {
    return _wopen(win32::FileName(path).c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT,
                  _S_IREAD | _S_IWRITE);
}

bool MoveIntoPlace(const std::string& from, const std::string& to, std::string* why) {
    if (MoveFileExW(win32::FileName(from).c_str(), win32::FileName(to).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    const DWORD code = GetLastError();
    if (why) {
        switch (code) {
        case ERROR_ACCESS_DENIED:  // also a file that another program keeps open
            *why = std::string(std::strerror(EACCES)) + ": the file is read-only or in use by another program";
            break;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
            *why = "Sharing violation: the file is in use by another program";
            break;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_FILE_NOT_FOUND:
            *why = std::strerror(ENOENT);
            break;
        default:
            *why = win32::ErrorText(code);
        }
    }
    return false;
}


void RemoveTreeNow(const char* path, int depth) {
    const std::wstring folder = win32::FileName(path);
    WIN32_FIND_DATAW found;
    const HANDLE h = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (h != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring full = folder + L"\\" + name;
            if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && depth > 0) {
                // Through UTF-8 again, the form the tool's names take.
                const int n = WideCharToMultiByte(CP_UTF8, 0, full.c_str(), -1, nullptr, 0, nullptr, nullptr);
                std::string utf8(n > 0 ? n - 1 : 0, '\0');
                if (n > 0) WideCharToMultiByte(CP_UTF8, 0, full.c_str(), -1, utf8.data(), n, nullptr, nullptr);
                RemoveTreeNow(utf8.c_str(), depth - 1);
            } else {
                DeleteFileW(full.c_str());
            }
        } while (FindNextFileW(h, &found));
        FindClose(h);
    }
    RemoveDirectoryW(folder.c_str());
}

bool MoveFolder(const std::string& from, const std::string& to, std::string* why) {
    if (MoveFileExW(win32::FileName(from).c_str(), win32::FileName(to).c_str(), MOVEFILE_WRITE_THROUGH)) return true;
    if (why) *why = win32::ErrorText(GetLastError());
    return false;
}


std::string InputProblem(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(win32::FileName(path).c_str(), GetFileExInfoStandard, &data)) {
        const DWORD code = GetLastError();
        if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_NAME) return "not found";
        return "cannot be opened (" + win32::ErrorText(code) + ")";
    }
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return "not a regular file (a folder)";
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) return "not a regular file (a device)";
    return std::string();
}

bool SameFile(const std::string& a, const std::string& b) {
    // The volume and the file's index on it name a file whatever the path.
    const auto identity = [](const std::string& path, BY_HANDLE_FILE_INFORMATION* info) {
        const HANDLE h = CreateFileW(win32::FileName(path).c_str(), FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (h == INVALID_HANDLE_VALUE) return false;
        const bool got = GetFileInformationByHandle(h, info) != 0;
        CloseHandle(h);
        return got;
    };
    BY_HANDLE_FILE_INFORMATION ia{}, ib{};
    return identity(a, &ia) && identity(b, &ib) && ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber &&
           ia.nFileIndexHigh == ib.nFileIndexHigh && ia.nFileIndexLow == ib.nFileIndexLow;
}

#else

namespace {

// Removes a folder with system calls only (what a signal handler may do):
// its files, its sub-folders depth levels deep, then itself.
void RemoveTreeAt(int parent, const char* name, int depth) {
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (fd < 0) return;
    alignas(8) char buf[4096];
    // Entries removed while the folder is read may be skipped: read it again until it is empty.
    for (int pass = 0; pass < 16; ++pass) {
        bool any = false;
        ::lseek(fd, 0, SEEK_SET);
        long n;
        while ((n = ::syscall(SYS_getdents64, fd, buf, sizeof buf)) > 0)
            for (long at = 0; at < n;) {
                const auto* d = reinterpret_cast<const struct dirent64*>(buf + at);
                at += d->d_reclen;
                if (d->d_name[0] == '.' && (!d->d_name[1] || (d->d_name[1] == '.' && !d->d_name[2]))) continue;
                any = true;
                if (d->d_type == DT_DIR && depth > 0) RemoveTreeAt(fd, d->d_name, depth - 1);
                else ::unlinkat(fd, d->d_name, 0);
            }
        if (!any) break;
    }
    ::close(fd);
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

void (*g_cleanup)() = nullptr;

void OnSignal(int signal) {
    if (g_cleanup) g_cleanup();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

}  // namespace

void PrepareStandardStreams() {}

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

void OnInterrupt(void (*cleanup)()) {
    if (g_cleanup) return;
    g_cleanup = cleanup;
    for (int s : {SIGINT, SIGTERM, SIGHUP}) ::signal(s, OnSignal);
}

namespace {

bool (*volatile g_divert)() = nullptr;
struct sigaction g_previous[3];
constexpr int kSignals[3] = {SIGINT, SIGTERM, SIGHUP};

void OnDivertedSignal(int signal) {
    if (g_divert && g_divert()) return;
    for (int i = 0; i < 3; ++i)
        if (kSignals[i] == signal) sigaction(signal, &g_previous[i], nullptr);
    raise(signal);
}

}  // namespace

void DivertInterrupt(bool (*divert)()) {
    g_divert = divert;
    struct sigaction action {};
    action.sa_handler = OnDivertedSignal;
    action.sa_flags = SA_RESTART;  // threads blocked in the system carry on undisturbed
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &action, &g_previous[i]);
}

void RestoreInterrupt() {
    for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &g_previous[i], nullptr);
    g_divert = nullptr;
}

void RemoveFileNow(const char* path) { unlink(path); }

int CreateOutputDescriptor(const std::string& path) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

bool MoveIntoPlace(const std::string& from, const std::string& to, std::string* why) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return true;
    if (why) *why = std::strerror(errno);
    return false;
}


void RemoveTreeNow(const char* path, int depth) { RemoveTreeAt(AT_FDCWD, path, depth); }

bool MoveFolder(const std::string& from, const std::string& to, std::string* why) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return true;
    if (why) *why = std::strerror(errno);
    return false;
}


namespace {

const char* FileType(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a plain file";
}

}  // namespace

std::string InputProblem(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        return errno == ENOENT || errno == ENOTDIR ? "not found" : std::string("cannot be opened (") + std::strerror(errno) + ")";
    if (!S_ISREG(st.st_mode)) return std::string("not a regular file (") + FileType(st.st_mode) + ")";
    if (::access(path.c_str(), R_OK) != 0) return std::string("cannot be opened (") + std::strerror(errno) + ")";
    return std::string();
}

bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa {}, sb {};
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

#endif

}  // namespace thermokit::cli
