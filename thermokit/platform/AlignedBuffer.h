#pragma once
// Aligned heap blocks (16 bytes at least; 64 by default so that vector code
// never splits a cache line at the start of an image).
#include <cstddef>
#include <cstdlib>
#if defined(_WIN32)
#include <malloc.h>
#endif
#include <cstring>
#include <new>
#include <utility>

namespace thermokit {

inline void* AlignedAlloc(size_t bytes, size_t alignment = 64) {
    if (alignment < alignof(void*)) alignment = alignof(void*);
    const size_t rounded = (bytes + alignment - 1) / alignment * alignment;
#if defined(_WIN32)
    return _aligned_malloc(rounded ? rounded : alignment, alignment);  // no aligned_alloc in the Windows C library
#else
    return std::aligned_alloc(alignment, rounded ? rounded : alignment);
#endif
}
#if defined(_WIN32)
inline void AlignedFree(void* p) { _aligned_free(p); }
#else
inline void AlignedFree(void* p) { std::free(p); }
#endif

// An owned, aligned array of trivially copyable values.
template <class T>
class AlignedBuffer {
public:
    AlignedBuffer() = default;
    explicit AlignedBuffer(size_t count, size_t alignment = 64) { Allocate(count, alignment); }
    ~AlignedBuffer() { AlignedFree(m_data); }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;
    AlignedBuffer(AlignedBuffer&& o) noexcept : m_data(std::exchange(o.m_data, nullptr)), m_count(std::exchange(o.m_count, 0)) {}
    AlignedBuffer& operator=(AlignedBuffer&& o) noexcept {
        if (this != &o) {
            AlignedFree(m_data);
            m_data = std::exchange(o.m_data, nullptr);
            m_count = std::exchange(o.m_count, 0);
        }
        return *this;
    }

    // Replaces the content with count zeroed values; false when memory is short.
    bool Allocate(size_t count, size_t alignment = 64) {
        AlignedFree(m_data);
        m_data = nullptr;
        m_count = 0;
        if (count == 0) return true;
        if (count > static_cast<size_t>(-1) / sizeof(T)) return false;
        m_data = static_cast<T*>(AlignedAlloc(count * sizeof(T), alignment));
        if (!m_data) return false;
        std::memset(static_cast<void*>(m_data), 0, count * sizeof(T));
        m_count = count;
        return true;
    }
    void Reset() { Allocate(0); }

    T* data() { return m_data; }
    const T* data() const { return m_data; }
    size_t size() const { return m_count; }
    bool empty() const { return m_count == 0; }
    T& operator[](size_t i) { return m_data[i]; }
    const T& operator[](size_t i) const { return m_data[i]; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_count; }

private:
    T* m_data = nullptr;
    size_t m_count = 0;
};

}  // namespace thermokit
