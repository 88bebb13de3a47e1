#pragma once
// A frame through a palette into a PNG picture: what render draws and what
// export writes for each frame of a PNG sequence.
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::cli {

// "MIN:MAX" as two numbers; false when it is not that.
inline bool ParseRange(const std::string& text, double& lo, double& hi) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    char* end = nullptr;
    const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
    lo = std::strtod(a.c_str(), &end);
    if (a.empty() || *end) return false;
    hi = std::strtod(b.c_str(), &end);
    if (b.empty() || *end) return false;
    return lo < hi;
}

// A built-in palette by number or name (any case); -1 when unknown.
inline int PaletteNumber(const std::string& text) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() <= 5)
        return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
    for (int i = 0; i < CLogPalette::FIRST_CUSTOM; ++i) {
        const std::string name = CLogPalette::GetPaletteName(i);
        if (name.size() != text.size()) continue;
        bool same = true;
        for (size_t k = 0; k < name.size() && same; ++k)
            same = std::tolower(static_cast<unsigned char>(name[k])) == std::tolower(static_cast<unsigned char>(text[k]));
        if (same) return i;
    }
    return -1;
}

struct PictureOptions {
    int palette = 2;
    bool hasRange = false;
    double lo = 0.0, hi = 0.0;  // display range: levels, or values of a film of doubles
    double cut = -1.0;          // percent cut from the range, half at each end (default 1)
};

// Draws point x line levels (or, when values is given, doubles spread over
// 16-bit levels between their finite extremes) into path. min and max receive
// the display range in levels. 0 when the cut leaves no range (1 when the
// picture was drawn, -1 when it could not be written).
inline int DrawPicture(const unsigned short* pixels, const double* values, unsigned short point, unsigned short line,
                       unsigned short maxLevel, const PictureOptions& o, const char* path, unsigned short& min,
                       unsigned short& max) {
    const long size = static_cast<long>(point) * line;
    std::vector<unsigned short> levels(pixels, pixels + size);
    double vmin = 0.0, vmax = 0.0;
    if (values) {
        bool any = false;
        for (long i = 0; i < size; ++i) {
            if (!std::isfinite(values[i])) continue;
            if (!any) vmin = vmax = values[i], any = true;
            else if (values[i] < vmin) vmin = values[i];
            else if (values[i] > vmax) vmax = values[i];
        }
        if (vmax == vmin) vmax = vmin + 1.0;
        maxLevel = 65535;
        float scale[17];
        for (int k = 0; k < 17; ++k) scale[k] = static_cast<float>(vmin + (vmax - vmin) * k / 16);
        CPtrOver::ConvDoubleToSpecialUnit(values, size, levels.data(), scale, maxLevel);
    }
    auto toLevel = [&](double x) -> unsigned short {
        if (values) x = (x - vmin) / (vmax - vmin) * maxLevel;
        if (!(x > 0.0)) return 0;
        return x >= maxLevel ? maxLevel : static_cast<unsigned short>(x);
    };
    min = 0;
    max = maxLevel;
    if (o.hasRange) {
        min = toLevel(o.lo);
        max = toLevel(o.hi);
    } else {
        const float cut = o.cut >= 0.0 ? static_cast<float>(o.cut) : 1.0f;
        if (!MinMaxHisto(levels.data(), size, &min, &max, maxLevel, 100.0f - cut, -1.0f, nullptr)) return 0;
    }
    if (max <= min) max = static_cast<unsigned short>(min < maxLevel ? min + 1 : min);
    CLogPalette palette(static_cast<unsigned short>(o.palette), 0, nullptr);
    CLut24 lut(maxLevel);
    lut.Update(nullptr, &palette, min, max);
    CBit24 bitmap(size, 1, 0);
    if (!bitmap.Update(levels.data(), &lut) || !bitmap.SavePng(path, point, line)) return -1;
    return 1;
}

}  // namespace thermokit::cli
