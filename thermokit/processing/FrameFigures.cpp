#include "thermokit/processing/FrameFigures.h"

#include "thermokit/platform/RegionFile.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CFrame.h"
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
