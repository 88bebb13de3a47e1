#include "thermokit/platform/PngWriter.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "thermokit/platform/CBitmap.h"
#include "thermokit/platform/CDC.h"
#include "thermokit/platform/File.h"

namespace thermokit {
namespace {

// Kept free of objects with destructors: libpng reports errors by longjmp.
int WriteRows(FILE* file, const uint8_t* bgra, int width, int height, ptrdiff_t strideBytes, uint8_t* row) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (!png) return 0;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return 0;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return 0;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // Fast settings: pictures are written often (one per frame) and read rarely.
    png_set_compression_level(png, 1);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = bgra + static_cast<ptrdiff_t>(y) * strideBytes;
        for (int x = 0; x < width; ++x) {
            row[3 * x + 0] = in[4 * x + 2];
            row[3 * x + 1] = in[4 * x + 1];
            row[3 * x + 2] = in[4 * x + 0];
        }
        png_write_row(png, row);
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return 1;
}

}  // namespace

int PngWriter::WriteBgra(const char* path, const uint8_t* bgra, int width, int height, ptrdiff_t strideBytes) {
    if (!path || !*path || !bgra || width < 1 || height < 1 || width > 1000000 || height > 1000000) return 0;
    const ptrdiff_t minStride = static_cast<ptrdiff_t>(width) * 4;
    if (strideBytes < minStride && strideBytes > -minStride) return 0;
    FILE* file = File::OpenStream(path, "wb");
    if (!file) return 0;
    uint8_t* row = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(width) * 3));
    int ok = row ? WriteRows(file, bgra, width, height, strideBytes, row) : 0;
    std::free(row);
    if (std::fclose(file) != 0) ok = 0;
    // A half-written picture is removed; a device or pipe written to is not a picture to remove.
    if (!ok && File::StatusOf(path).regular) File::Remove(path);
    return ok;
}

int PngWriter::WriteBitmap(const char* path, const CBitmap* bitmap) {
    if (!bitmap || !bitmap->IsCreated()) return 0;
    const int w = bitmap->GetWidth(), h = bitmap->GetHeight();
    if (bitmap->GetBitsPixel() == 32)
        return WriteBgra(path, bitmap->GetBits(), w, h, static_cast<ptrdiff_t>(bitmap->GetStride()));
    uint32_t colours[256];
    for (int s = 0; s < 256; ++s) colours[s] = ColorToBgra(CDC::GetSystemPaletteColor(s));
    std::vector<uint32_t> pixels(static_cast<size_t>(w) * static_cast<size_t>(h));
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = colours[bitmap->GetBits()[i]];
    return WriteBgra(path, reinterpret_cast<const uint8_t*>(pixels.data()), w, h, static_cast<ptrdiff_t>(w) * 4);
}

}  // namespace thermokit
