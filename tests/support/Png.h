#pragma once
// Pictures read back with libpng, for the suites that check what was drawn.
#include <png.h>

#include <string>
#include <vector>

namespace thermokit::test {

// An 8-bit RGB picture; width 0 when the file is not a readable PNG.
struct Picture {
    unsigned width = 0, height = 0;
    bool alpha = false;  // whether the file itself holds an alpha channel
    std::vector<unsigned char> rgb;
    const unsigned char* At(unsigned x, unsigned y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

inline Picture ReadPng(const std::string& path) {
    Picture p;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return p;
    p.alpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    image.format = PNG_FORMAT_RGB;
    p.rgb.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, p.rgb.data(), 0, nullptr)) return Picture{};
    p.width = image.width;
    p.height = image.height;
    return p;
}

}  // namespace thermokit::test
