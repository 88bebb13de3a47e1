// thermokit stats: per-frame minimum, maximum, mean and standard deviation of
// a film, over the whole image, a rectangle or a region file, in levels and,
// with a calibration, in calibrated values.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "Progress.h"
#include "thermokit/processing/FrameFigures.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/image/Statistics.h"

namespace thermokit::cli {
namespace {

struct StatsOptions {
    std::string file;
    std::string roi;
    std::string regionFile;
    ConversionOptions conversion;
    bool csv = false;
    std::string frames;
};

int RunStats(const StatsOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    // The selected pixels (none listed: the whole image).
    Selection selection;
    CRgn region;
    std::string error;
    bool usage = false;
    if (!SelectPixels(o.roi, "--roi", o.regionFile, film.point, film.line, o.file, selection, region, error, usage)) {
        Error(error);
        return usage ? kUsage : kFailed;
    }
    const bool whole = selection.whole;
    const bool cal = o.conversion.Requested();
    Conversion conv;
    if (cal && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    const std::string& unit = conv.unit;
    const char* kind = film.doubles ? "value" : "level";

    if (o.csv) {
        std::fputs(CsvHeader(cal, unit).c_str(), stdout);
    } else {
        std::printf("%s: %u x %u, %s, frames %lu..%lu\n", o.file.c_str(), film.point, film.line,
                    whole ? "whole image" : (o.roi.empty() ? ("region " + o.regionFile).c_str() : ("roi " + o.roi).c_str()),
                    first, last);
        std::printf("%6s %14s %8s %10s %10s %12s %12s", "frame", "time_s", "pixels", ("min_" + std::string(kind)).c_str(),
                    ("max_" + std::string(kind)).c_str(), "mean", "stddev");
        if (cal)
            std::printf("  %12s %12s %12s %12s %13s  (%s)", "min", "max", "mean", "stddev", "not_converted",
                        unit.c_str());
        std::printf("\n");
        const std::string object = DescribeParameters(conv);
        if (!object.empty()) std::printf("object: %s\n", object.c_str());
    }
    Progress progress("stats", last - first + 1);
    std::string failure;
    const bool read = MeasureFilm(*film.ptr, o.file, first, last, selection, cal ? &conv : nullptr,
                                  [&](unsigned long n, double time, const FrameFigures& f) {
        const Figures& lv = f.levels;
        const Figures& tv = f.values;
        if (o.csv) {
            std::fputs(CsvRow(n, time, f, cal).c_str(), stdout);
        } else {
            std::printf("%6lu %14.6f %8ld %10.6g %10.6g %12.6f %12.6f", n, time, lv.count, lv.min, lv.max, lv.mean,
                        lv.stdDev);
            if (cal)
                std::printf("  %12.4f %12.4f %12.4f %12.4f %13ld", tv.min, tv.max, tv.mean, tv.stdDev, f.notConverted);
            std::printf("\n");
        }
        progress.Step(n - first + 1);
    }, failure);
    if (!read) {
        Error(failure);
        return kFailed;
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
    AddConversionOptions(sub, o->conversion);
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)");
    sub->add_flag("--csv", o->csv, "Comma-separated values with a header line");
    sub->footer("Example: thermokit stats run.film --roi 100,80,64,48 --embedded --emissivity 0.95 --csv > run.csv");
    sub->callback([o] { SetAction([o] { return RunStats(*o); }); });
});

}  // namespace
}  // namespace thermokit::cli
