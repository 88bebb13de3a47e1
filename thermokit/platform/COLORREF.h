#pragma once
// Colour reference of the window system: 0x00BBGGRR (red in the low byte).
// Palette-index references (PALETTEINDEX) carry 0x01 in the high byte and
// the entry number in the low 16 bits.
#include <cstdint>

namespace thermokit {

using COLORREF = uint32_t;

constexpr COLORREF Rgb(uint8_t r, uint8_t g, uint8_t b) {
    return static_cast<COLORREF>(r) | (static_cast<COLORREF>(g) << 8) | (static_cast<COLORREF>(b) << 16);
}
constexpr uint8_t GetRValue(COLORREF c) { return static_cast<uint8_t>(c & 0xFF); }
constexpr uint8_t GetGValue(COLORREF c) { return static_cast<uint8_t>((c >> 8) & 0xFF); }
constexpr uint8_t GetBValue(COLORREF c) { return static_cast<uint8_t>((c >> 16) & 0xFF); }

// Reference to entry `index` of the palette selected into a device context.
constexpr COLORREF PALETTEINDEX(uint16_t index) { return 0x01000000u | index; }
constexpr bool IsPaletteIndex(COLORREF c) { return (c >> 24) == 0x01; }

// A 32-bit canvas pixel (bytes blue, green, red, spare) showing colour c.
constexpr uint32_t ColorToBgra(COLORREF c) {
    return static_cast<uint32_t>(GetBValue(c)) | (static_cast<uint32_t>(GetGValue(c)) << 8) |
           (static_cast<uint32_t>(GetRValue(c)) << 16);
}
constexpr COLORREF BgraToColor(uint32_t p) {
    return Rgb(static_cast<uint8_t>((p >> 16) & 0xFF), static_cast<uint8_t>((p >> 8) & 0xFF),
               static_cast<uint8_t>(p & 0xFF));
}

}  // namespace thermokit
