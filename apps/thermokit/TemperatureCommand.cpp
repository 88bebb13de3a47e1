// thermokit temperature: temperatures (or calibrated values) of one frame of
// a film, at a pixel or over a rectangle, through a calibration file or the
// film's own radiometric law.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/image/Statistics.h"

namespace thermokit::cli {
namespace {

struct TemperatureOptions {
    std::string file;
    ConversionOptions conversion;
    std::string pixel;
    std::string roi;
    long frame = 0;
    bool json = false;
};

// The frame, its place and the conversion, once the options and the film are checked.
struct TemperatureWork {
    Film film;
    Conversion conv;
    unsigned long n = 0;
    long px = -1, py = -1;
    CRect r;
    std::string object;
};

bool ParseTemperaturePlace(const TemperatureOptions& o, TemperatureWork& w) {
    if (!o.pixel.empty() && !ParsePoint(o.pixel, w.px, w.py)) {
        Error("--pixel " + o.pixel + ": expected X,Y");
        return false;
    }
    if (!o.roi.empty() && !ParseRect(o.roi, w.r)) {
        Error("--roi " + o.roi + ": expected x,y,w,h with a width and a height above 0");
        return false;
    }
    return true;
}

bool OpenTemperatureFrame(const TemperatureOptions& o, TemperatureWork& w) {
    Film& film = w.film;
    if (!OpenFilm(o.file, film)) return false;
    if (film.doubles) {
        FileError(o.file, "a film of doubles holds values already; temperatures are read from films of levels");
        return false;
    }
    w.n = static_cast<unsigned long>(o.frame);
    if (w.n >= film.frames) {
        FileError(o.file, "no frame " + std::to_string(w.n) + " (the film holds " +
              std::to_string(film.frames) + ")");
        return false;
    }
    if (!o.pixel.empty() && (w.px >= film.point || w.py >= film.line)) {
        FileError(o.file, "--pixel " + o.pixel + " lies outside the " + std::to_string(film.point) + " x " +
              std::to_string(film.line) + " image");
        return false;
    }
    if (o.roi.empty()) w.r.SetRect(0, 0, film.point, film.line);
    else if (!RectInFilm(w.r, film, o.file, "--roi")) return false;
    if (!LoadConversion(o.conversion, film, o.file, w.conv)) return false;
    if (!ReadFilmFrame(film, o.file, w.n)) return false;
    w.object = DescribeParameters(w.conv);
    return true;
}

nlohmann::ordered_json TemperatureJson(const TemperatureOptions& o, const TemperatureWork& w) {
    const Conversion& conv = w.conv;
    const std::string& unit = conv.unit;
    nlohmann::ordered_json j;
    j["file"] = NameToUtf8(o.file);
    j["frame"] = w.n;
    j["unit"] = unit;
    if (!w.object.empty())
        j["object"] = {{"emissivity", conv.params.GetEmissivity()},
                       {"reflected_" + unit, conv.FromCelsius(conv.params.GetReflectedTemperature())},
                       {"atmosphere_" + unit, conv.FromCelsius(conv.params.GetAtmosphereTemperature())},
                       {"transmission", conv.params.GetTransmission()}};
    return j;
}

int ReportPixel(const TemperatureOptions& o, const TemperatureWork& w) {
    const CFrame* frame = w.film.ptr->GetFrame();
    const unsigned short level =
        frame->GetPixel(static_cast<unsigned short>(w.px), static_cast<unsigned short>(w.py));
    const unsigned short masked = static_cast<unsigned short>(level & w.film.ptr->GetMaxLevel());
    const float value = w.conv.Value(masked);
    const bool ok = std::isfinite(value);
    if (o.json) {
        nlohmann::ordered_json j = TemperatureJson(o, w);
        j["pixel"] = {w.px, w.py};
        j["level"] = masked;
        if (ok) j["value"] = value;
        else j["value"] = nullptr;
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    if (ok)
        std::printf("%s frame %lu pixel (%ld,%ld): level %u, %.4f %s\n", o.file.c_str(), w.n, w.px, w.py, masked,
                    static_cast<double>(value), w.conv.unit.c_str());
    else
        std::printf("%s frame %lu pixel (%ld,%ld): level %u, no value (outside the calibration's domain, or no "
                    "object temperature explains it)\n",
                    o.file.c_str(), w.n, w.px, w.py, masked);
    if (!w.object.empty()) std::printf("  object: %s\n", w.object.c_str());
    return kDone;
}

// The converted values of a rectangle, with the image offset of each one that converts.
struct RectValues {
    long count = 0;
    std::vector<float> finite;
    std::vector<long> place;
};

RectValues ConvertRect(const TemperatureWork& w) {
    const CRect& r = w.r;
    const long point = w.film.point;
    const unsigned short maxLevel = w.film.ptr->GetMaxLevel();
    const unsigned short* buffer = w.film.ptr->GetFrame()->GetBuffer();
    RectValues rv;
    rv.count = static_cast<long>(r.Width()) * r.Height();
    std::vector<unsigned short> levels(static_cast<size_t>(rv.count));
    std::vector<long> where(static_cast<size_t>(rv.count));
    long k = 0;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x, ++k) {
            where[k] = static_cast<long>(y) * point + x;
            levels[k] = static_cast<unsigned short>(buffer[where[k]] & maxLevel);
        }
    std::vector<float> values(static_cast<size_t>(rv.count));
    w.conv.Apply(levels.data(), rv.count, values.data());
    for (long i = 0; i < rv.count; ++i)
        if (std::isfinite(values[i])) {
            rv.finite.push_back(values[i]);
            rv.place.push_back(where[i]);
        }
    return rv;
}

void PrintRectHead(const TemperatureOptions& o, const TemperatureWork& w, long count, long converted) {
    const CRect& r = w.r;
    std::printf("%s frame %lu, rectangle %d,%d,%d,%d (%ld pixels, %ld converted, %ld not converted), %s\n",
                o.file.c_str(), w.n, r.left, r.top, r.Width(), r.Height(), count, converted, count - converted,
                w.conv.unit.c_str());
    if (!w.object.empty()) std::printf("  object  %s\n", w.object.c_str());
}

// A rectangle (the whole image by default): extremes with their places, mean and spread.
int ReportRect(const TemperatureOptions& o, const TemperatureWork& w) {
    const RectValues rv = ConvertRect(w);
    const long converted = static_cast<long>(rv.finite.size());
    nlohmann::ordered_json j = TemperatureJson(o, w);
    j["rect"] = {w.r.left, w.r.top, w.r.Width(), w.r.Height()};
    j["pixels"] = rv.count;
    j["converted"] = converted;
    j["not_converted"] = rv.count - converted;
    if (rv.finite.empty()) {
        // No level converts (all outside the domain, or no object temperature explains them): nothing to tell.
        if (!o.json) PrintRectHead(o, w, rv.count, 0);
        else {
            for (const char* key : {"min", "max", "mean", "stddev"}) j[key] = nullptr;
            std::printf("%s\n", j.dump(2).c_str());
        }
        return kDone;
    }
    float min = 0.0f, max = 0.0f;
    long minAt = 0, maxAt = 0;
    MinMaxPosition(rv.finite.data(), converted, &min, &max, minAt, maxAt, nullptr);
    const FrameStatistics figures = Measure(rv.finite.data(), converted);  // stats' figures of the same values
    const double mean = figures.mean, sd = figures.stdDev;
    const long point = w.film.point;
    const long minX = rv.place[minAt] % point, minY = rv.place[minAt] / point;
    const long maxX = rv.place[maxAt] % point, maxY = rv.place[maxAt] / point;
    if (o.json) {
        j["min"] = {{"value", min}, {"x", minX}, {"y", minY}};
        j["max"] = {{"value", max}, {"x", maxX}, {"y", maxY}};
        j["mean"] = mean;
        j["stddev"] = sd;
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    PrintRectHead(o, w, rv.count, converted);
    std::printf("  min     %.4f at (%ld,%ld)\n", static_cast<double>(min), minX, minY);
    std::printf("  max     %.4f at (%ld,%ld)\n", static_cast<double>(max), maxX, maxY);
    std::printf("  mean    %.4f\n", mean);
    std::printf("  stddev  %.4f\n", sd);
    return kDone;
}

int RunTemperature(const TemperatureOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    TemperatureWork w;
    if (!ParseTemperaturePlace(o, w)) return kUsage;
    if (!OpenTemperatureFrame(o, w)) return kFailed;
    return o.pixel.empty() ? ReportRect(o, w) : ReportPixel(o, w);
}

}  // namespace

void AddTemperatureCommand(CLI::App& app) {
    auto o = std::make_shared<TemperatureOptions>();
    auto* sub = app.add_subcommand("temperature", "Temperatures of one frame at a pixel or over a rectangle");
    Input(sub->add_option("film", o->file, "Film file"))->required();
    AddConversionOptions(sub, o->conversion);
    auto* pixel = sub->add_option("--pixel", o->pixel, "One pixel X,Y");
    auto* roi = sub->add_option("--roi", o->roi, "Rectangle x,y,w,h (default the whole image)");
    pixel->excludes(roi);
    sub->add_option("--frame", o->frame, "Frame number (default 0)")->check(NonNegative());
    sub->add_flag("--json", o->json, "Write JSON");
    sub->footer("Example: thermokit temperature run.film --embedded --emissivity 0.7 --reflected 25 --roi 100,80,64,48");
    sub->callback([o] {
        if (!o->conversion.Requested())
            throw CLI::ValidationError("temperature", "give --calib FILE or --embedded");
        SetAction([o] { return RunTemperature(*o); });
    });
}

}  // namespace thermokit::cli
