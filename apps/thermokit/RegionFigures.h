#pragma once
// The figures of one frame over a selection of its pixels: minimum, maximum,
// mean and population standard deviation of the levels (values of a film of
// doubles) and, through a conversion, of the calibrated values. `stats` and
// the viewer's regions measure with this one code, so that both always give
// the same numbers, and both write the same CSV lines.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "Conversion.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/image/Statistics.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"

namespace thermokit::cli {

struct Figures {
    double min = NAN, max = NAN, mean = NAN, stdDev = NAN;
    long count = 0;
};

// Figures of the finite values among v (calibrations give NaN where a level
// cannot be converted: such values are left out).
template <class T>
Figures FiniteFigures(const std::vector<T>& v) {
    const FrameStatistics s = Measure(v.data(), static_cast<long>(v.size()));
    return Figures{s.min, s.max, s.mean, s.stdDev, s.count};
}

// The pixels measured: the whole image, a rectangle, or a region (whose
// extremes are then taken by MinMaxRgn, as for region files).
struct Selection {
    bool whole = true;
    std::vector<long> pixels;  // indexes y * point + x, line by line
    CRgn* region = nullptr;

    void Rect(const CRect& r, unsigned short point) {
        whole = false;
        region = nullptr;
        pixels.clear();
        for (int y = r.top; y < r.bottom; ++y)
            for (int x = r.left; x < r.right; ++x) pixels.push_back(static_cast<long>(y) * point + x);
    }
    void Region(CRgn& rgn, unsigned short point, unsigned short line) {
        whole = false;
        region = &rgn;
        const long size = static_cast<long>(point) * line;
        std::vector<uint8_t> mask(static_cast<size_t>(size));
        rgn.FillMask(point, line, mask.data());
        pixels.clear();
        for (long i = 0; i < size; ++i)
            if (mask[static_cast<size_t>(i)]) pixels.push_back(i);
    }
};

struct FrameFigures {
    Figures levels;  // levels, or values of a film of doubles
    Figures values;  // calibrated values (count 0 without a conversion)
    long notConverted = 0;  // selected pixels whose level gives no value (NaN)
};

// Measures frames one after the other, keeping its buffers between them.
class FrameMeasure {
public:
    // buffer: point x line levels; doubles: the values of a film of doubles
    // (null for levels); conv: null for no calibrated values.
    FrameFigures Measure(const unsigned short* buffer, const double* doubles, unsigned short point,
                         unsigned short line, const Selection& s, const Conversion* conv) {
        const long size = static_cast<long>(point) * line;
        if (s.whole) {
            if (doubles) m_doubles.assign(doubles, doubles + size);
            else m_levels.assign(buffer, buffer + size);
        } else {
            m_levels.resize(s.pixels.size());
            m_doubles.resize(doubles ? s.pixels.size() : 0);
            for (size_t k = 0; k < s.pixels.size(); ++k) {
                if (doubles) m_doubles[k] = doubles[s.pixels[k]];
                else m_levels[k] = buffer[s.pixels[k]];
            }
        }
        FrameFigures f;
        if (doubles) {
            f.levels = FiniteFigures(m_doubles);
        } else {
            f.levels.count = static_cast<long>(m_levels.size());
            unsigned short min = 0, max = 0;
            if (s.region) MinMaxRgn(buffer, point, line, s.region, &min, &max, nullptr);
            else MinMax(m_levels.data(), static_cast<long>(m_levels.size()), &min, &max, nullptr, 0);
            StdDev(m_levels.data(), static_cast<long>(m_levels.size()), &f.levels.stdDev, &f.levels.mean);
            f.levels.min = min;
            f.levels.max = max;
        }
        if (conv && !doubles) {
            m_values.resize(m_levels.size());
            conv->Apply(m_levels.data(), static_cast<long>(m_levels.size()), m_values.data());
            f.values = FiniteFigures(m_values);  // NaN (not converted) left out
            f.notConverted = f.levels.count - f.values.count;
        }
        return f;
    }
    // The selected levels of the last frame measured (films of levels).
    const std::vector<unsigned short>& Levels() const { return m_levels; }

private:
    std::vector<unsigned short> m_levels;
    std::vector<double> m_doubles;
    std::vector<float> m_values;
};

// The CSV header line and one line per frame (each with its newline).
inline std::string CsvHeader(bool calibrated, const std::string& unit) {
    std::string h = "frame,time_s,pixels,min,max,mean,stddev";
    if (calibrated)
        for (const char* f : {"_min", "_max", "_mean", "_stddev", "_pixels", "_not_converted"}) h += "," + unit + f;
    return h + "\n";
}

inline std::string CsvRow(unsigned long n, double time, const FrameFigures& f, bool calibrated) {
    char line[512];
    int k = std::snprintf(line, sizeof(line), "%lu,%.6f,%ld,%.17g,%.17g,%.17g,%.17g", n, time, f.levels.count,
                          f.levels.min, f.levels.max, f.levels.mean, f.levels.stdDev);
    if (calibrated)
        std::snprintf(line + k, sizeof(line) - static_cast<size_t>(k), ",%.9g,%.9g,%.17g,%.17g,%ld,%ld", f.values.min,
                      f.values.max, f.values.mean, f.values.stdDev, f.values.count, f.notConverted);
    return std::string(line) + "\n";
}

}  // namespace thermokit::cli
