#pragma once
// PNG output (libpng): 32-bit pixels (bytes blue, green, red, spare) are
// written as 8-bit RGB, the colours a true-colour screen shows for them.
#include <cstddef>
#include <cstdint>

namespace thermokit {

class CBitmap;

class PngWriter {
public:
    // width x height pixels, row y at bgra + y * strideBytes (a negative
    // stride walks a bottom-up buffer). Returns 1 on success, 0 when the
    // arguments are unusable or the file cannot be written (a partial file is removed).
    static int WriteBgra(const char* path, const uint8_t* bgra, int width, int height, ptrdiff_t strideBytes);
    // The surface of a device context (or any bitmap): 32-bit pixels as they
    // are, 8-bit slots in the colours of the system palette.
    static int WriteBitmap(const char* path, const CBitmap* bitmap);
};

}  // namespace thermokit
