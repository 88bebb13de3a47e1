#pragma once
// Integer point and size, as the window-system rectangles use them.
#include <cstdint>

namespace thermokit {

struct CPoint {
    int32_t x = 0;
    int32_t y = 0;
    constexpr CPoint() = default;
    constexpr CPoint(int32_t px, int32_t py) : x(px), y(py) {}
    constexpr bool operator==(const CPoint&) const = default;
    constexpr void Offset(int32_t dx, int32_t dy) { x += dx; y += dy; }
};

struct CSize {
    int32_t cx = 0;
    int32_t cy = 0;
    constexpr CSize() = default;
    constexpr CSize(int32_t w, int32_t h) : cx(w), cy(h) {}
    constexpr bool operator==(const CSize&) const = default;
};

}  // namespace thermokit
