#include "System.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include "thermokit/platform/Win32.h"
#else
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cerrno>
#include <cstring>

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

#else

namespace {

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

#endif

}  // namespace thermokit::cli
