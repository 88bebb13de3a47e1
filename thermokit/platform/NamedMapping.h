#pragma once
// A block of memory two processes can share by name (the host system's
// page-file mapping), with owner-only permissions; the name goes away when
// the last party closes it. On Windows it is that mapping itself.
#include <cstddef>
#include <functional>

#include "thermokit/platform/NamedSegment.h"

namespace thermokit {

class NamedMapping {
public:
    NamedMapping() = default;
    ~NamedMapping() { Close(); }
    NamedMapping(const NamedMapping&) = delete;
    NamedMapping& operator=(const NamedMapping&) = delete;

    // Creates a zeroed block of size bytes (init, when given, fills it
    // before any other party can see it), or maps the existing block of
    // that name, which keeps its own size (GetSize; AlreadyExisted tells).
    bool Create(const char* name, size_t size, const std::function<void(void*)>& init = {});
    void Close();
    bool AlreadyExisted() const { return m_bExisted; }
#if defined(_WIN32)
    bool IsOpen() const { return m_pView != nullptr; }
    void* GetData() const { return m_pView ? static_cast<unsigned char*>(m_pView) + kHeaderBytes : nullptr; }
    size_t GetSize() const { return m_nSize; }

private:
    // The block starts with a header (ready mark, payload size); the payload
    // follows, page-aligned.
    static constexpr size_t kHeaderBytes = 4096;
    void* m_hMapping = nullptr;
    void* m_pView = nullptr;
    size_t m_nSize = 0;
#else
    bool IsOpen() const { return m_segment.IsOpen(); }
    void* GetData() const { return m_segment.Payload(); }
    size_t GetSize() const { return m_segment.PayloadSize(); }

private:
    NamedSegment m_segment;
#endif
    bool m_bExisted = false;
};

}  // namespace thermokit
