// thermokit stats: per-frame minimum, maximum, mean and standard deviation of
// a film, over the whole image, a rectangle or a region file, in levels and,
// with a calibration, in calibrated values.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmInput.h"
#include "Progress.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::cli {
namespace {

struct StatsOptions {
    std::string file;
    std::string roi;
    std::string regionFile;
    std::string calib;
    bool embedded = false;
    bool csv = false;
    std::string frames;
};

struct Figures {
    double min = NAN, max = NAN, mean = NAN, stdDev = NAN;
    long count = 0;
};

// Figures of the finite values among v (calibrations give NaN where a level cannot be converted).
template <class T>
Figures Of(std::vector<T>& v) {
    Figures f;
    size_t kept = 0;
    for (size_t i = 0; i < v.size(); ++i)
        if (std::isfinite(static_cast<double>(v[i]))) v[kept++] = v[i];
    v.resize(kept);
    f.count = static_cast<long>(kept);
    if (kept == 0) return f;
    T min{}, max{};
    MinMax(v.data(), static_cast<long>(kept), &min, &max, static_cast<T*>(nullptr), 0);
    StdDev(v.data(), static_cast<long>(kept), &f.stdDev, &f.mean);
    f.min = static_cast<double>(min);
    f.max = static_cast<double>(max);
    return f;
}

int RunStats(const StatsOptions& o) {
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    // The selected pixels, as indexes (empty selection list: the whole image).
    const long size = static_cast<long>(film.point) * film.line;
    std::vector<long> selected;
    bool whole = true;
    CRgn region;
    if (!o.roi.empty()) {
        CRect r;
        if (!ParseRect(o.roi, r)) {
            Error("--roi " + o.roi + ": expected x,y,w,h with a width and a height above 0");
            return kUsage;
        }
        if (!RectInFilm(r, film, o.file, "--roi")) return kFailed;
        whole = false;
        for (int y = r.top; y < r.bottom; ++y)
            for (int x = r.left; x < r.right; ++x) selected.push_back(static_cast<long>(y) * film.point + x);
    } else if (!o.regionFile.empty()) {
        if (!ReadRegionFile(o.regionFile, film.point, film.line, region)) return kFailed;
        whole = false;
        std::vector<uint8_t> mask(static_cast<size_t>(size));
        region.FillMask(film.point, film.line, mask.data());
        for (long i = 0; i < size; ++i)
            if (mask[static_cast<size_t>(i)]) selected.push_back(i);
        if (selected.empty()) {
            Error("file " + o.regionFile + ": the region holds no pixel of the " + std::to_string(film.point) + " x " +
                  std::to_string(film.line) + " image");
            return kFailed;
        }
    }
    std::unique_ptr<CCalibration> cal;
    if (!LoadOptionalCalibration(o.calib, o.embedded, film, o.file, cal)) return kFailed;
    CLevelTable table;
    if (cal) table.Build(*cal, film.ptr->GetMaxLevel());
    const std::string unit = cal ? CalibrationUnit(*cal, o.embedded) : std::string();
    const char* kind = film.doubles ? "value" : "level";

    if (o.csv) {
        std::printf("frame,time_s,pixels,min,max,mean,stddev");
        if (cal) std::printf(",%s_min,%s_max,%s_mean,%s_stddev,%s_pixels", unit.c_str(), unit.c_str(), unit.c_str(),
                             unit.c_str(), unit.c_str());
        std::printf("\n");
    } else {
        std::printf("%s: %u x %u, %s, frames %lu..%lu\n", o.file.c_str(), film.point, film.line,
                    whole ? "whole image" : (o.roi.empty() ? ("region " + o.regionFile).c_str() : ("roi " + o.roi).c_str()),
                    first, last);
        std::printf("%6s %14s %8s %10s %10s %12s %12s", "frame", "time_s", "pixels", ("min_" + std::string(kind)).c_str(),
                    ("max_" + std::string(kind)).c_str(), "mean", "stddev");
        if (cal) std::printf("  %12s %12s %12s %12s  (%s)", "min", "max", "mean", "stddev", unit.c_str());
        std::printf("\n");
    }
    Progress progress("stats", last - first + 1);
    std::vector<unsigned short> levels;
    std::vector<double> doubles;
    std::vector<float> values;
    for (unsigned long n = first; n <= last; ++n) {
        if (!ReadFilmFrame(film, o.file, n)) return kFailed;
        CFrame* frame = film.ptr->GetFrame();
        const unsigned short* buffer = frame->GetBuffer();
        const double* all = film.doubles ? static_cast<CPtrFloat*>(film.ptr.get())->GetDoubleBuffer() : nullptr;
        if (whole) {
            if (all) doubles.assign(all, all + size);
            else levels.assign(buffer, buffer + size);
        } else {
            levels.resize(selected.size());
            doubles.resize(all ? selected.size() : 0);
            for (size_t k = 0; k < selected.size(); ++k) {
                if (all) doubles[k] = all[selected[k]];
                else levels[k] = buffer[selected[k]];
            }
        }
        Figures lv;
        if (all) {
            lv = Of(doubles);
        } else {
            lv.count = static_cast<long>(levels.size());
            unsigned short min = 0, max = 0;
            MinMax(levels.data(), static_cast<long>(levels.size()), &min, &max, nullptr, 0);
            StdDev(levels.data(), static_cast<long>(levels.size()), &lv.stdDev, &lv.mean);
            lv.min = min;
            lv.max = max;
        }
        Figures tv;
        if (cal) {
            values.resize(levels.size());
            table.Apply(levels.data(), static_cast<long>(levels.size()), values.data());
            tv = Of(values);
        }
        const double time = frame->GetTime();
        if (o.csv) {
            std::printf("%lu,%.6f,%ld,%.17g,%.17g,%.17g,%.17g", n, time, lv.count, lv.min, lv.max, lv.mean, lv.stdDev);
            if (cal) std::printf(",%.9g,%.9g,%.17g,%.17g,%ld", tv.min, tv.max, tv.mean, tv.stdDev, tv.count);
        } else {
            std::printf("%6lu %14.6f %8ld %10.6g %10.6g %12.6f %12.6f", n, time, lv.count, lv.min, lv.max, lv.mean,
                        lv.stdDev);
            if (cal) std::printf("  %12.4f %12.4f %12.4f %12.4f", tv.min, tv.max, tv.mean, tv.stdDev);
        }
        std::printf("\n");
        progress.Step(n - first + 1);
    }
    return kDone;
}

RegisterCommand reg(330, [](CLI::App& app) {
    auto o = std::make_shared<StatsOptions>();
    auto* sub = app.add_subcommand("stats", "Per-frame minimum, maximum, mean and standard deviation of a film");
    sub->add_option("film", o->file, "Film file")->required();
    auto* roi = sub->add_option("--roi", o->roi, "Rectangle x,y,w,h (pixels)");
    auto* region = sub->add_option("--region-file", o->regionFile,
                                   "Region file: lines \"rect X Y W H\", \"ellipse X Y W H\", \"polygon X1 Y1 X2 Y2 ...\"");
    roi->excludes(region);
    auto* calib = sub->add_option("--calib", o->calib, "Calibration file: also the calibrated values");
    auto* embedded = sub->add_flag("--embedded", o->embedded, "Also temperatures by the film's own radiometric law");
    calib->excludes(embedded);
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)");
    sub->add_flag("--csv", o->csv, "Comma-separated values with a header line");
    sub->footer("Example: thermokit stats run.film --roi 100,80,64,48 --embedded --csv > run.csv");
    sub->callback([o] { SetAction([o] { return RunStats(*o); }); });
});

}  // namespace
}  // namespace thermokit::cli
