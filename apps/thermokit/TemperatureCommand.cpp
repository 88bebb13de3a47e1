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

int RunTemperature(const TemperatureOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    long px = -1, py = -1;
    if (!o.pixel.empty() && !ParsePoint(o.pixel, px, py)) {
        Error("--pixel " + o.pixel + ": expected X,Y");
        return kUsage;
    }
    CRect r;
    if (!o.roi.empty() && !ParseRect(o.roi, r)) {
        Error("--roi " + o.roi + ": expected x,y,w,h with a width and a height above 0");
        return kUsage;
    }
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    if (film.doubles) {
        Error("file " + o.file + ": a film of doubles holds values already; temperatures are read from films of levels");
        return kFailed;
    }
    const unsigned long n = static_cast<unsigned long>(o.frame);
    if (n >= film.frames) {
        Error("file " + o.file + ": no frame " + std::to_string(n) + " (the film holds " + std::to_string(film.frames) +
              ")");
        return kFailed;
    }
    if (!o.pixel.empty() && (px >= film.point || py >= film.line)) {
        Error("file " + o.file + ": --pixel " + o.pixel + " lies outside the " + std::to_string(film.point) + " x " +
              std::to_string(film.line) + " image");
        return kFailed;
    }
    if (o.roi.empty()) r.SetRect(0, 0, film.point, film.line);
    else if (!RectInFilm(r, film, o.file, "--roi")) return kFailed;
    Conversion conv;
    if (!LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    if (!ReadFilmFrame(film, o.file, n)) return kFailed;
    const std::string& unit = conv.unit;
    const std::string object = DescribeParameters(conv);
    CFrame* frame = film.ptr->GetFrame();
    const unsigned short maxLevel = film.ptr->GetMaxLevel();
    nlohmann::ordered_json j;
    j["file"] = NameToUtf8(o.file);
    j["frame"] = n;
    j["unit"] = unit;
    if (!object.empty())
        j["object"] = {{"emissivity", conv.params.GetEmissivity()},
                       {"reflected_" + unit, conv.FromCelsius(conv.params.GetReflectedTemperature())},
                       {"atmosphere_" + unit, conv.FromCelsius(conv.params.GetAtmosphereTemperature())},
                       {"transmission", conv.params.GetTransmission()}};
    if (!o.pixel.empty()) {
        const unsigned short level = frame->GetPixel(static_cast<unsigned short>(px), static_cast<unsigned short>(py));
        const unsigned short masked = static_cast<unsigned short>(level & maxLevel);
        const float value = conv.Value(masked);
        const bool ok = std::isfinite(value);
        if (o.json) {
            j["pixel"] = {px, py};
            j["level"] = masked;
            if (ok) j["value"] = value;
            else j["value"] = nullptr;
            std::printf("%s\n", j.dump(2).c_str());
            return kDone;
        }
        if (ok)
            std::printf("%s frame %lu pixel (%ld,%ld): level %u, %.4f %s\n", o.file.c_str(), n, px, py, masked,
                        static_cast<double>(value), unit.c_str());
        else
            std::printf("%s frame %lu pixel (%ld,%ld): level %u, no value (outside the calibration's domain, or no "
                        "object temperature explains it)\n",
                        o.file.c_str(), n, px, py, masked);
        if (!object.empty()) std::printf("  object: %s\n", object.c_str());
        return kDone;
    }
    // A rectangle (the whole image by default): extremes with their places, mean and spread.
    const long count = static_cast<long>(r.Width()) * r.Height();
    std::vector<unsigned short> levels(static_cast<size_t>(count));
    std::vector<long> where(static_cast<size_t>(count));
    long k = 0;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x, ++k) {
            where[k] = static_cast<long>(y) * film.point + x;
            levels[k] = frame->GetBuffer()[where[k]];
        }
    std::vector<float> values(static_cast<size_t>(count));
    for (long i = 0; i < count; ++i) levels[i] &= maxLevel;
    conv.Apply(levels.data(), count, values.data());
    std::vector<float> finite;
    std::vector<long> place;
    for (long i = 0; i < count; ++i)
        if (std::isfinite(values[i])) {
            finite.push_back(values[i]);
            place.push_back(where[i]);
        }
    const long converted = static_cast<long>(finite.size());
    if (o.json) {
        j["rect"] = {r.left, r.top, r.Width(), r.Height()};
        j["pixels"] = count;
        j["converted"] = converted;
        j["not_converted"] = count - converted;
    }
    if (finite.empty()) {
        // No level converts (all outside the domain, or no object temperature explains them): nothing to tell.
        if (o.json) {
            for (const char* key : {"min", "max", "mean", "stddev"}) j[key] = nullptr;
            std::printf("%s\n", j.dump(2).c_str());
        } else {
            std::printf("%s frame %lu, rectangle %d,%d,%d,%d (%ld pixels, 0 converted, %ld not converted), %s\n",
                        o.file.c_str(), n, r.left, r.top, r.Width(), r.Height(), count, count, unit.c_str());
            if (!object.empty()) std::printf("  object  %s\n", object.c_str());
        }
        return kDone;
    }
    float min = 0.0f, max = 0.0f;
    long minAt = 0, maxAt = 0;
    MinMaxPosition(finite.data(), converted, &min, &max, minAt, maxAt, nullptr);
    const FrameStatistics figures = Measure(finite.data(), converted);  // stats' figures of the same values
    const double mean = figures.mean, sd = figures.stdDev;
    const long minX = place[minAt] % film.point, minY = place[minAt] / film.point;
    const long maxX = place[maxAt] % film.point, maxY = place[maxAt] / film.point;
    if (o.json) {
        j["min"] = {{"value", min}, {"x", minX}, {"y", minY}};
        j["max"] = {{"value", max}, {"x", maxX}, {"y", maxY}};
        j["mean"] = mean;
        j["stddev"] = sd;
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    std::printf("%s frame %lu, rectangle %d,%d,%d,%d (%ld pixels, %ld converted, %ld not converted), %s\n",
                o.file.c_str(), n, r.left, r.top, r.Width(), r.Height(), count, converted, count - converted,
                unit.c_str());
    if (!object.empty()) std::printf("  object  %s\n", object.c_str());
    std::printf("  min     %.4f at (%ld,%ld)\n", static_cast<double>(min), minX, minY);
    std::printf("  max     %.4f at (%ld,%ld)\n", static_cast<double>(max), maxX, maxY);
    std::printf("  mean    %.4f\n", mean);
    std::printf("  stddev  %.4f\n", sd);
    return kDone;
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
