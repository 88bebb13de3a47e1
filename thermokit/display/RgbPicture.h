#pragma once
// Levels through a true-colour LUT into an RGB picture: three bytes a pixel,
// red, green, blue, row after row, for programs that hand pictures on (arrays,
// encoders) rather than draw them into a window. Each level is first masked
// with the LUT's maximal level, as CBit24::Update does, so both give the same
// colour for the same level.
#include <cstdint>

namespace thermokit {

class CLut24;

// rgb receives 3 x n bytes. Nothing when the LUT has no table or n <= 0.
void LutToRgb(const CLut24& lut, const unsigned short* levels, long n, uint8_t* rgb);

}  // namespace thermokit
