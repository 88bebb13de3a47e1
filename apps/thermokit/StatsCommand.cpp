// thermokit stats: per-frame minimum, maximum, mean and standard deviation of
// a film, over the whole image, a rectangle or a region file, in levels and,
// with a calibration, in calibrated values.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmHeaderJson.h"
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
    bool json = false;
    std::string frames;
};

// What stats prints: a table, CSV lines, or one JSON object with every frame
// and the figures of the whole selection of frames.
class StatsOutput {
public:
    StatsOutput(const StatsOptions& o, const Film& film, const Conversion* conv, double start)
        : m_o(o), m_film(film), m_conv(conv), m_start(start) {}

    void Begin(unsigned long first, unsigned long last, bool whole) {
        const std::string unit = m_conv ? m_conv->unit : std::string();
        const std::string selection =
            whole ? "whole image" : (m_o.roi.empty() ? "region " + m_o.regionFile : "roi " + m_o.roi);
        if (m_o.json) {
            m_json = {{"file", NameToUtf8(m_o.file)}, {"width", m_film.point}, {"height", m_film.line},
                      {"selection", NameToUtf8(selection)}, {"first", first}, {"last", last}};
            if (m_conv) m_json["unit"] = unit;
            m_json["frames"] = Json::array();
            return;
        }
        if (m_o.csv) {
            std::fputs(CsvHeader(m_conv != nullptr, unit).c_str(), stdout);
            return;
        }
        const std::string kind = m_film.doubles ? "value" : "level";
        std::printf("%s: %u x %u, %s, frames %lu..%lu\n", EscapeControls(NameToUtf8(m_o.file)).c_str(), m_film.point,
                    m_film.line, EscapeControls(NameToUtf8(selection)).c_str(), first, last);
        std::printf("%6s %10s %14s %8s %10s %10s %12s %12s", "frame", "time_s", "time_of_day_s", "pixels",
                    ("min_" + kind).c_str(),
                    ("max_" + kind).c_str(), "mean", "stddev");
        if (m_conv)
            std::printf("  %12s %12s %12s %12s %13s  (%s)", "min", "max", "mean", "stddev", "not_converted",
                        unit.c_str());
        std::printf("\n");
        const std::string object = m_conv ? DescribeParameters(*m_conv) : std::string();
        if (!object.empty()) std::printf("object: %s\n", object.c_str());
    }

    void Frame(unsigned long n, double time, const FrameFigures& f) {
        const Figures& lv = f.levels;
        const Figures& tv = f.values;
        if (m_o.json) {
            Json row = {{"frame", n},
                        {"time_s", RoundToMicroseconds(Elapsed(time))},
                        {"time_of_day_s", RoundToMicroseconds(time)},
                        {"pixels", lv.count},
                        {"min", lv.min}, {"max", lv.max}, {"mean", lv.mean}, {"stddev", lv.stdDev}};
            if (m_conv)
                row["values"] = {{"min", tv.min}, {"max", tv.max}, {"mean", tv.mean}, {"stddev", tv.stdDev},
                                 {"not_converted", f.notConverted}};
            m_json["frames"].push_back(std::move(row));
            m_levels.Add(lv);
            m_values.Add(tv);
        } else if (m_o.csv) {
            std::fputs(CsvRow(n, time, f, m_conv != nullptr).c_str(), stdout);
        } else {
            std::printf("%6lu %10.6f %14.6f %8ld %10.6g %10.6g %12.6f %12.6f", n, RoundToMicroseconds(Elapsed(time)),
                        time, lv.count, lv.min, lv.max, lv.mean, lv.stdDev);
            if (m_conv)
                std::printf("  %12.4f %12.4f %12.4f %12.4f %13ld", tv.min, tv.max, tv.mean, tv.stdDev, f.notConverted);
            std::printf("\n");
        }
    }

    void End() {
        if (!m_o.json) return;
        m_json["summary"] = m_levels.Json();
        if (m_conv) m_json["summary"]["values"] = m_values.Json();
        std::printf("%s\n", m_json.dump(2).c_str());
    }

private:
    // The figures of every frame together: pixels weighted alike, the
    // standard deviation that of all the pixels of all the frames.
    struct Totals {
        double min = INFINITY, max = -INFINITY, sum = 0.0, squares = 0.0;
        long count = 0;
        void Add(const Figures& f) {
            if (f.count == 0) return;
            min = std::min(min, f.min);
            max = std::max(max, f.max);
            sum += f.mean * static_cast<double>(f.count);
            squares += (f.stdDev * f.stdDev + f.mean * f.mean) * static_cast<double>(f.count);
            count += f.count;
        }
        cli::Json Json() const {
            if (count == 0) return {{"pixels", 0}, {"min", nullptr}, {"max", nullptr}, {"mean", nullptr}, {"stddev", nullptr}};
            const double mean = sum / static_cast<double>(count);
            const double variance = std::max(0.0, squares / static_cast<double>(count) - mean * mean);
            return {{"pixels", count}, {"min", min}, {"max", max}, {"mean", mean}, {"stddev", std::sqrt(variance)}};
        }
    };
    // Seconds from the film's first frame (a frame past midnight counts on).
    double Elapsed(double time) const {
        double t = time - m_start;
        if (t < -43200.0) t += 86400.0;
        return t;
    }

    const StatsOptions& m_o;
    const Film& m_film;
    const Conversion* m_conv;
    double m_start;
    cli::Json m_json;
    Totals m_levels, m_values;
};

int RunStats(const StatsOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    if (o.csv && o.json) {
        Error("--csv and --json: give one of them");
        return kUsage;
    }
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    Selection selection;  // none listed: the whole image
    CRgn region;
    std::string error;
    bool usage = false;
    if (!SelectPixels(o.roi, "--roi", o.regionFile, film.point, film.line, o.file, selection, region, error, usage)) {
        Error(error);
        return usage ? kUsage : kFailed;
    }
    Conversion conv;
    const bool cal = o.conversion.Requested();
    if (cal && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    double start = 0.0;
    film.ptr->ReadTime(0, start);
    StatsOutput out(o, film, cal ? &conv : nullptr, start);
    out.Begin(first, last, selection.whole);
    Progress progress("stats", last - first + 1);
    const bool read = MeasureFilm(*film.ptr, o.file, first, last, selection, cal ? &conv : nullptr,
                                  [&](unsigned long n, double time, const FrameFigures& f) {
                                      out.Frame(n, time, f);
                                      progress.Step(n - first + 1);
                                  },
                                  error);
    if (!read) {
        Error(error);
        return kFailed;
    }
    out.End();
    return kDone;
}

}  // namespace

void AddStatsCommand(CLI::App& app) {
    auto o = std::make_shared<StatsOptions>();
    auto* sub = app.add_subcommand("stats", "Per-frame minimum, maximum, mean and standard deviation of a film");
    Input(sub->add_option("film", o->file, "Film file"))->required();
    auto* roi = sub->add_option("--roi", o->roi, "Rectangle x,y,w,h (pixels)");
    auto* region = Input(sub->add_option("--region-file", o->regionFile,
                                   "Region file: lines \"rect X Y W H\", \"ellipse X Y W H\", \"polygon X1 Y1 X2 Y2 ...\""));
    roi->excludes(region);
    AddConversionOptions(sub, o->conversion);
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)")->check(FrameRange());
    sub->add_flag("--csv", o->csv, "Comma-separated values with a header line");
    sub->add_flag("--json", o->json, "JSON: every frame (time from the film's start and of day) and the whole selection");
    sub->footer("Example: thermokit stats run.film --roi 100,80,64,48 --embedded --emissivity 0.95 --csv > run.csv");
    sub->callback([o] { SetAction([o] { return RunStats(*o); }); });
}

}  // namespace thermokit::cli
