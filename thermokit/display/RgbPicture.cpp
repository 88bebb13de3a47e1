#include "thermokit/display/RgbPicture.h"

#include "thermokit/display/CLut24.h"

namespace thermokit {

void LutToRgb(const CLut24& lut, const unsigned short* levels, long n, uint8_t* rgb) {
    const uint32_t* table = lut.GetBuffer();
    if (!table || !levels || !rgb || n <= 0) return;
    const unsigned short mask = lut.GetMaxLevel();
    // Entries hold blue in their low byte, then green, then red.
    for (long i = 0; i < n; ++i) {
        const uint32_t c = table[levels[i] & mask];
        rgb[3 * i] = static_cast<uint8_t>(c >> 16);
        rgb[3 * i + 1] = static_cast<uint8_t>(c >> 8);
        rgb[3 * i + 2] = static_cast<uint8_t>(c);
    }
}

}  // namespace thermokit
