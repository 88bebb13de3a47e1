#pragma once
// Little-endian loads and stores at byte offsets of packed records. The
// library only runs on little-endian machines; memcpy keeps unaligned access
// well-defined.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace thermokit {

static_assert(std::endian::native == std::endian::little, "thermokit needs a little-endian machine");

template <class T>
inline T load(const void* base, size_t offset = 0) {
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(base) + offset, sizeof(T));
    return value;
}

template <class T>
inline void store(void* base, size_t offset, T value) {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(static_cast<unsigned char*>(base) + offset, &value, sizeof(T));
}

}  // namespace thermokit
