// NamedMapping on Windows: a named page-file mapping (CreateFileMappingW).
// The block starts with a small header, so that a party that opens an
// existing block learns its size and never sees it before the creator has
// filled it.
#include "thermokit/platform/Win32.h"

#include "thermokit/platform/NamedMapping.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace thermokit {

namespace {

constexpr uint32_t kReady = 0x4B4E5431;  // "1TNK": header complete

struct MappingHeader {
    std::atomic<uint32_t> ready;
    uint32_t reserved;
    uint64_t payload;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

}  // namespace

bool NamedMapping::Create(const char* name, size_t size, const std::function<void(void*)>& init) {
    Close();
    if (!name || !*name || size == 0 || size > (static_cast<size_t>(1) << 40)) return false;
    static_assert(sizeof(MappingHeader) <= kHeaderBytes);
    const uint64_t total = static_cast<uint64_t>(size) + kHeaderBytes;
    const std::wstring wide = win32::Widen(name);
    // Another kind of object under that name: ERROR_INVALID_HANDLE, no handle.
    HANDLE h = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, static_cast<DWORD>(total >> 32),
                                  static_cast<DWORD>(total), wide.c_str());
    if (!h) return false;
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
    // The whole block: an existing one keeps its own size.
    void* view = MapViewOfFile(h, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    MEMORY_BASIC_INFORMATION region{};
    if (!view || VirtualQuery(view, &region, sizeof region) == 0 || region.RegionSize < kHeaderBytes) {
        if (view) UnmapViewOfFile(view);
        CloseHandle(h);
        return false;
    }
    auto* header = static_cast<MappingHeader*>(view);
    if (!existed) {
        header->payload = size;
        if (init) init(static_cast<unsigned char*>(view) + kHeaderBytes);
        header->ready.store(kReady, std::memory_order_release);
    } else {
        // The creator fills the header right after creating the block.
        bool ready = false;
        for (int i = 0; i < 2000 && !ready; ++i) {
            ready = header->ready.load(std::memory_order_acquire) == kReady;
            if (!ready) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!ready || header->payload > region.RegionSize - kHeaderBytes) {
            UnmapViewOfFile(view);
            CloseHandle(h);
            return false;
        }
    }
    m_hMapping = h;
    m_pView = view;
    m_nSize = static_cast<size_t>(header->payload);
    m_bExisted = existed;
    return true;
}

void NamedMapping::Close() {
    if (m_pView) UnmapViewOfFile(m_pView);
    if (m_hMapping) CloseHandle(static_cast<HANDLE>(m_hMapping));
    m_pView = nullptr;
    m_hMapping = nullptr;
    m_nSize = 0;
    m_bExisted = false;
}

}  // namespace thermokit
