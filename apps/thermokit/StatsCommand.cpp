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
#include "FilmWork.h"
#include "RegionFigures.h"
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

struct FrameRow {
    FrameFigures figures;
    double time = 0.0;
};

// The lines before the rows: the CSV header, or the title, the column names and the object parameters.
void PrintHeading(const StatsOptions& o, const Film& film, bool whole, unsigned long first, unsigned long last,
                  const Conversion& conv) {
    const bool cal = o.conversion.Requested();
    const std::string& unit = conv.unit;
    if (o.csv) {
        std::fputs(CsvHeader(cal, unit).c_str(), stdout);
        return;
    }
    const std::string kind = film.doubles ? "value" : "level";
    std::printf("%s: %u x %u, %s, frames %lu..%lu\n", o.file.c_str(), film.point, film.line,
                whole ? "whole image" : (o.roi.empty() ? ("region " + o.regionFile).c_str() : ("roi " + o.roi).c_str()),
                first, last);
    std::printf("%6s %14s %8s %10s %10s %12s %12s", "frame", "time_s", "pixels", ("min_" + kind).c_str(),
                ("max_" + kind).c_str(), "mean", "stddev");
    if (cal)
        std::printf("  %12s %12s %12s %12s %13s  (%s)", "min", "max", "mean", "stddev", "not_converted", unit.c_str());
    std::printf("\n");
    const std::string object = DescribeParameters(conv);
    if (!object.empty()) std::printf("object: %s\n", object.c_str());
}

void PrintRow(bool csv, unsigned long n, const FrameRow& row, bool cal) {
    const FrameFigures& f = row.figures;
    if (csv) {
        std::fputs(CsvRow(n, row.time, f, cal).c_str(), stdout);
        return;
    }
    const Figures& lv = f.levels;
    const Figures& tv = f.values;
    std::printf("%6lu %14.6f %8ld %10.6g %10.6g %12.6f %12.6f", n, row.time, lv.count, lv.min, lv.max, lv.mean,
                lv.stdDev);
    if (cal) std::printf("  %12.4f %12.4f %12.4f %12.4f %13ld", tv.min, tv.max, tv.mean, tv.stdDev, f.notConverted);
    std::printf("\n");
}

int RunStats(const StatsOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    // The selected pixels (none listed: the whole image).
    Selection selection;
    CRgn region;
    if (!o.roi.empty()) {
        CRect r;
        if (!ParseRect(o.roi, r)) {
            Error("--roi " + o.roi + ": expected x,y,w,h with a width and a height above 0");
            return kUsage;
        }
        if (!RectInFilm(r, film, o.file, "--roi")) return kFailed;
        selection.Rect(r, film.point);
    } else if (!o.regionFile.empty()) {
        if (!ReadRegionFile(o.regionFile, region)) return kFailed;
        selection.Region(region, film.point, film.line);
        if (selection.pixels.empty()) {
            Error("file " + o.regionFile + ": the region holds no pixel of the " + std::to_string(film.point) + " x " +
                  std::to_string(film.line) + " image");
            return kFailed;
        }
    }
    Conversion conv;
    if (o.conversion.Requested() && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    PrintHeading(o, film, selection.whole, first, last, conv);
    // Each frame measured on its own (several at once, buffers of the slot),
    // the rows printed in frame order.
    FilmPipeline pipe(*film.ptr, first, last - first + 1);
    const auto measures = PerSlot([] { return std::make_unique<FrameMeasure>(); });
    const Conversion* cal = o.conversion.Requested() ? &conv : nullptr;
    std::vector<FrameRow> rows(measures.size());
    const auto measure = [&](FilmFrame& f) {
        const double* values = f.values.empty() ? nullptr : f.values.data();
        FrameRow& row = rows[static_cast<size_t>(f.slot)];
        row.figures = measures[static_cast<size_t>(f.slot)]->Measure(f.frame.GetBuffer(), values, film.point,
                                                                      film.line, selection, cal);
        row.time = f.frame.GetTime();
        return true;
    };
    const auto print = [&](FilmFrame& f) {
        PrintRow(o.csv, f.index, rows[static_cast<size_t>(f.slot)], cal != nullptr);
        return true;
    };
    return RunFrames(pipe, "stats", measure, print) ? kDone : kFailed;
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
