#include "thermokit/processing/FrameFigures.h"

#include "thermokit/platform/RegionFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/FloatMoments.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit {

void Selection::Rect(const CRect& r, unsigned short point) {
    whole = false;
    region = nullptr;
    pixels.clear();
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) pixels.push_back(static_cast<long>(y) * point + x);
}

void Selection::Region(CRgn& rgn, unsigned short point, unsigned short line) {
    whole = false;
    region = &rgn;
    const long size = static_cast<long>(point) * line;
    std::vector<uint8_t> mask(static_cast<size_t>(size));
    rgn.FillMask(point, line, mask.data());
    pixels.clear();
    for (long i = 0; i < size; ++i)
        if (mask[static_cast<size_t>(i)]) pixels.push_back(i);
}

FrameFigures FrameMeasure::Measure(const unsigned short* buffer, const double* doubles, unsigned short point,
                                   unsigned short line, const Selection& s, const Conversion* conv) {
    const long size = static_cast<long>(point) * line;
    FrameFigures f;
    m_whole = nullptr;
    if (doubles) {
        if (s.whole) {
            m_doubles.assign(doubles, doubles + size);
        } else {
            m_doubles.resize(s.pixels.size());
            for (size_t k = 0; k < s.pixels.size(); ++k) m_doubles[k] = doubles[s.pixels[k]];
        }
        f.levels = FiniteFigures(m_doubles);
        return f;
    }
    const unsigned short* levels = buffer;
    long n = size;
    if (s.whole) {
        m_whole = buffer;  // copied only when asked for (Levels)
        m_wholeCount = size;
    } else {
        m_levels.resize(s.pixels.size());
        for (size_t k = 0; k < s.pixels.size(); ++k) m_levels[k] = buffer[s.pixels[k]];
        levels = m_levels.data();
        n = static_cast<long>(m_levels.size());
    }
    f.levels.count = n;
    bool levelsDone = false;
    if (conv && !conv->table.IsEmpty() && n > 0) {
        levelsDone = MeasureByLevel(levels, n, *conv, f);
    } else if (conv) {
        m_values.resize(static_cast<size_t>(n));
        conv->Apply(levels, n, m_values.data());
        f.values = FiniteFigures(m_values);  // NaN (not converted) left out
    }
    if (!levelsDone) {
        unsigned short min = 0, max = 0;
        if (s.region) MinMaxRgn(buffer, point, line, s.region, &min, &max, nullptr);
        else MinMax(levels, n, &min, &max, nullptr, 0);
        StdDev(levels, n, &f.levels.stdDev, &f.levels.mean);
        f.levels.min = min;
        f.levels.max = max;
    }
    if (conv) f.notConverted = f.levels.count - f.values.count;
    return f;
}

const std::vector<unsigned short>& FrameMeasure::Levels() const {
    if (m_whole) {
        m_levels.assign(m_whole, m_whole + m_wholeCount);
        m_whole = nullptr;
    }
    return m_levels;
}

bool FrameMeasure::MeasureByLevel(const unsigned short* p, long n, const Conversion& conv, FrameFigures& f) {
    const unsigned short mask = conv.table.GetMaxLevel();
    const size_t bins = static_cast<size_t>(mask) + 1;
    if (m_counts.size() != bins) m_counts.assign(bins, 0);  // left all zero by the last frame's scan
    uint32_t* h = m_counts.data();
    // One histogram (it stays in the nearest caches), fed from two halves of
    // the levels in turn: neighbouring equal levels do not wait on each
    // other's count. The bits of all levels together tell whether any lies
    // above the table (then the levels' own figures are taken from the levels).
    const long half = n / 8 * 4;
    const unsigned short* q = p + half;
    uint64_t bits = 0;
    for (long i = 0; i < half; i += 4) {
        uint64_t a, b;
        std::memcpy(&a, p + i, sizeof a);
        std::memcpy(&b, q + i, sizeof b);
        bits |= a | b;
        ++h[static_cast<unsigned short>(a) & mask];
        ++h[static_cast<unsigned short>(b) & mask];
        ++h[static_cast<unsigned short>(a >> 16) & mask];
        ++h[static_cast<unsigned short>(b >> 16) & mask];
        ++h[static_cast<unsigned short>(a >> 32) & mask];
        ++h[static_cast<unsigned short>(b >> 32) & mask];
        ++h[static_cast<unsigned short>(a >> 48) & mask];
        ++h[static_cast<unsigned short>(b >> 48) & mask];
    }
    for (long i = 2 * half; i < n; ++i) {
        bits |= p[i];
        ++h[p[i] & mask];
    }
    bits |= bits >> 32;
    bits |= bits >> 16;
    const bool levelsToo = (bits & 0xffffu & ~static_cast<uint64_t>(mask)) == 0;
    // Each level used once, its value counted as often as the level (values
    // that are not finite, levels that do not convert, left out); the counts
    // cleared for the next frame on the way.
    m_usedValues.resize(bins);
    m_usedCounts.resize(bins);
    long used = 0;
    uint64_t sum = 0;
    __extension__ unsigned __int128 squares = 0;
    size_t lowest = bins, highest = 0;
    for (size_t b = 0; b < bins; ++b) {
        const uint32_t c = h[b];
        if (!c) continue;
        h[b] = 0;
        float v = conv.table.Value(static_cast<unsigned short>(b));
        if (conv.shift != 0.0f) v += conv.shift;  // as Apply: a -0 stays -0 without a shift
        m_usedValues[static_cast<size_t>(used)] = v;
        m_usedCounts[static_cast<size_t>(used)] = c;
        ++used;
        const uint64_t cb = static_cast<uint64_t>(c) * b;
        sum += cb;
        squares += static_cast<uint64_t>(cb * b);
        lowest = std::min(lowest, b);
        highest = b;
    }
    FloatMoments values, levels;
    values.Add(m_usedValues.data(), m_usedCounts.data(), used);
    const FrameStatistics s = values.Figures();
    f.values = Figures{s.min, s.max, s.mean, s.stdDev, s.count};
    if (!levelsToo) return false;
    // Levels are whole numbers: their exact figures are StdDev's and MinMax's.
    levels.AddWhole(static_cast<uint64_t>(n), sum, squares, static_cast<float>(lowest), static_cast<float>(highest));
    const FrameStatistics l = levels.Figures();
    f.levels = Figures{l.min, l.max, l.mean, l.stdDev, l.count};
    return true;
}

bool MeasureFilm(CPtr& film, const std::string& path, unsigned long first, unsigned long last, const Selection& s,
                 const Conversion* conv,
                 const std::function<void(unsigned long n, double time, const FrameFigures& f)>& each,
                 std::string& error) {
    // Frames measured on several threads, each by the measure of its slot;
    // their figures told in frame order.
    struct Measured {
        FrameMeasure measure;
        FrameFigures figures;
    };
    auto slots = PerSlot([] { return std::make_unique<Measured>(); });
    const unsigned short point = film.GetPoint(), line = film.GetLine();
    FilmPipeline pipe(film, first, last - first + 1);
    pipe.NameFilm(path);
    const auto measure = [&](FilmFrame& f) {
        Measured& m = *slots[static_cast<size_t>(f.slot)];
        m.figures = m.measure.Measure(f.frame.GetBuffer(), f.values.empty() ? nullptr : f.values.data(), point, line,
                                      s, conv);
        return true;
    };
    const auto tell = [&](FilmFrame& f) {
        each(f.index, f.frame.GetTime(), slots[static_cast<size_t>(f.slot)]->figures);
        return true;
    };
    if (pipe.Run(measure, tell)) return true;
    error = pipe.GetLastError();
    return false;
}

std::string CsvHeader(bool calibrated, const std::string& unit) {
    std::string h = "frame,time_s,pixels,min,max,mean,stddev";
    if (calibrated)
        for (const char* f : {"_min", "_max", "_mean", "_stddev", "_pixels", "_not_converted"}) h += "," + unit + f;
    return h + "\n";
}

std::string CsvRow(unsigned long n, double time, const FrameFigures& f, bool calibrated) {
    char line[512];
    int k = std::snprintf(line, sizeof(line), "%lu,%.6f,%ld,%.17g,%.17g,%.17g,%.17g", n, time, f.levels.count,
                          f.levels.min, f.levels.max, f.levels.mean, f.levels.stdDev);
    if (calibrated)
        std::snprintf(line + k, sizeof(line) - static_cast<size_t>(k), ",%.9g,%.9g,%.17g,%.17g,%ld,%ld", f.values.min,
                      f.values.max, f.values.mean, f.values.stdDev, f.values.count, f.notConverted);
    return std::string(line) + "\n";
}

bool ParseRect(const std::string& text, CRect& rect) {
    long v[4];
    const char* p = text.c_str();
    for (int i = 0; i < 4; ++i) {
        char* end = nullptr;
        v[i] = std::strtol(p, &end, 10);
        if (end == p || (i < 3 && *end != ',') || (i == 3 && *end != '\0')) return false;
        if (v[i] < 0 || v[i] > 65535) return false;
        p = end + 1;
    }
    if (v[2] <= 0 || v[3] <= 0) return false;
    rect.SetRect(static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[0] + v[2]),
                 static_cast<int>(v[1] + v[3]));
    return true;
}

bool SelectPixels(const std::string& roi, const char* option, const std::string& regionFile, unsigned short point,
                  unsigned short line, const std::string& filmPath, Selection& selection, CRgn& region,
                  std::string& error, bool& usage) {
    usage = false;
    if (!roi.empty()) {
        CRect r;
        if (!ParseRect(roi, r)) {
            error = std::string(option) + " " + roi + ": expected x,y,w,h with a width and a height above 0";
            usage = true;
            return false;
        }
        if (r.right > point || r.bottom > line) {
            error = "file " + filmPath + ": " + option + " " + std::to_string(r.left) + "," + std::to_string(r.top) + "," +
                    std::to_string(r.Width()) + "," + std::to_string(r.Height()) + " goes beyond the " +
                    std::to_string(point) + " x " + std::to_string(line) + " image";
            return false;
        }
        selection.Rect(r, point);
    } else if (!regionFile.empty()) {
        std::string why;
        if (!ReadRegionFile(regionFile, CRect(0, 0, point, line), region, why)) {
            error = "file " + regionFile + ": " + why;
            return false;
        }
        selection.Region(region, point, line);
        if (selection.pixels.empty()) {
            error = "file " + regionFile + ": the region holds no pixel of the " + std::to_string(point) + " x " +
                    std::to_string(line) + " image";
            return false;
        }
    }
    return true;
}

}  // namespace thermokit
