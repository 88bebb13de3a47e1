// NamedEvent and WaitForObjects on Windows: the system's events and its
// multiple wait. Setting an auto-reset event that a thread waits on releases
// that thread and leaves the event non-signalled, as the header describes.
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/NamedEvent.h"
#include "thermokit/platform/NamedMutex.h"

namespace thermokit {

NamedEvent::NamedEvent() = default;
NamedEvent::~NamedEvent() { Close(); }

bool NamedEvent::Create(const char* name, bool manualReset, bool initialState) {
    Close();
    const std::wstring wide = name ? win32::Widen(name) : std::wstring();
    HANDLE h = CreateEventW(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE,
                            wide.empty() ? nullptr : wide.c_str());
    if (!h) return false;
    m_bExisted = !wide.empty() && GetLastError() == ERROR_ALREADY_EXISTS;
    m_handle = h;
    return true;
}

void NamedEvent::Close() {
    if (m_handle) CloseHandle(static_cast<HANDLE>(m_handle));
    m_handle = nullptr;
    m_bExisted = false;
}

bool NamedEvent::Set() { return m_handle && SetEvent(static_cast<HANDLE>(m_handle)) != 0; }

bool NamedEvent::Reset() { return m_handle && ResetEvent(static_cast<HANDLE>(m_handle)) != 0; }

bool NamedEvent::Wait(unsigned long timeoutMs) {
    return m_handle && WaitForSingleObject(static_cast<HANDLE>(m_handle), static_cast<DWORD>(timeoutMs)) == WAIT_OBJECT_0;
}

int WaitForObjects(const WaitObject* objects, int count, unsigned long timeoutMs, bool* abandoned) {
    if (abandoned) *abandoned = false;
    if (!objects || count <= 0 || count > MAXIMUM_WAIT_OBJECTS) return kWaitFailed;
    HANDLE handles[MAXIMUM_WAIT_OBJECTS];
    for (int i = 0; i < count; ++i) {
        void* h = objects[i].event ? objects[i].event->NativeHandle()
                                   : objects[i].mutex ? objects[i].mutex->NativeHandle() : nullptr;
        if (!h) return kWaitFailed;
        handles[i] = static_cast<HANDLE>(h);
    }
    // The lowest index that is ready wins, as the system does it.
    const DWORD r = WaitForMultipleObjects(static_cast<DWORD>(count), handles, FALSE, static_cast<DWORD>(timeoutMs));
    if (r < WAIT_OBJECT_0 + static_cast<DWORD>(count)) return static_cast<int>(r - WAIT_OBJECT_0);
    if (r >= WAIT_ABANDONED_0 && r < WAIT_ABANDONED_0 + static_cast<DWORD>(count)) {
        if (abandoned) *abandoned = true;
        return static_cast<int>(r - WAIT_ABANDONED_0);
    }
    return r == WAIT_TIMEOUT ? kWaitTimeout : kWaitFailed;
}

}  // namespace thermokit
