// NamedMutex on Windows: the system's mutex (CreateMutexW), whose
// WAIT_ABANDONED is the "owner died" case.
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/NamedMutex.h"

namespace thermokit {

bool NamedMutex::Create(const char* name) {
    Close();
    const std::wstring wide = name ? win32::Widen(name) : std::wstring();
    HANDLE h = CreateMutexW(nullptr, FALSE, wide.empty() ? nullptr : wide.c_str());
    // Another kind of object under that name: ERROR_INVALID_HANDLE, no handle.
    if (!h) return false;
    m_bExisted = !wide.empty() && GetLastError() == ERROR_ALREADY_EXISTS;
    m_handle = h;
    return true;
}

void NamedMutex::Close() {
    if (m_handle) CloseHandle(static_cast<HANDLE>(m_handle));
    m_handle = nullptr;
    m_bExisted = false;
}

NamedMutex::LockResult NamedMutex::Lock(unsigned long timeoutMs) {
    if (!m_handle) return Error;
    switch (WaitForSingleObject(static_cast<HANDLE>(m_handle), static_cast<DWORD>(timeoutMs))) {
    case WAIT_OBJECT_0:
        return Acquired;
    case WAIT_ABANDONED:
        return Abandoned;
    case WAIT_TIMEOUT:
        return TimedOut;
    default:
        return Error;
    }
}

bool NamedMutex::Unlock() { return m_handle && ReleaseMutex(static_cast<HANDLE>(m_handle)) != 0; }

}  // namespace thermokit
