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
#include "FilmInput.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::cli {
namespace {

struct TemperatureOptions {
    std::string file;
    std::string calib;
    bool embedded = false;
    std::string pixel;
    std::string roi;
    long frame = 0;
    bool json = false;
};

int RunTemperature(const TemperatureOptions& o) {
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
    auto cal = LoadCalibration(o.calib, o.embedded, *film.ptr, o.file);
    if (!cal) return kFailed;
    if (!ReadFilmFrame(film, o.file, n)) return kFailed;
    const std::string unit = CalibrationUnit(*cal, o.embedded);
    CFrame* frame = film.ptr->GetFrame();
    const unsigned short maxLevel = film.ptr->GetMaxLevel();
    nlohmann::ordered_json j;
    j["file"] = o.file;
    j["frame"] = n;
    j["unit"] = unit;
    if (!o.pixel.empty()) {
        const unsigned short level = frame->GetPixel(static_cast<unsigned short>(px), static_cast<unsigned short>(py));
        float value = 0.0f;
        const unsigned short masked = static_cast<unsigned short>(level & maxLevel);
        const int ok = cal->Interpolate(static_cast<float>(masked), &value);
        if (o.json) {
            j["pixel"] = {px, py};
            j["level"] = masked;
            if (ok) j["value"] = value;
            else j["value"] = nullptr;
        } else if (ok) {
            std::printf("%s frame %lu pixel (%ld,%ld): level %u, %.4f %s\n", o.file.c_str(), n, px, py, masked,
                        static_cast<double>(value), unit.c_str());
        } else {
            std::printf("%s frame %lu pixel (%ld,%ld): level %u, no value (outside the calibration)\n", o.file.c_str(),
                        n, px, py, masked);
        }
        if (o.json) std::printf("%s\n", j.dump(2).c_str());
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
    ConvertLevels(*cal, levels.data(), count, maxLevel, values.data());
    std::vector<float> finite;
    std::vector<long> place;
    for (long i = 0; i < count; ++i)
        if (std::isfinite(values[i])) {
            finite.push_back(values[i]);
            place.push_back(where[i]);
        }
    if (finite.empty()) {
        Error("file " + o.file + ": no level of frame " + std::to_string(n) + " in " + o.roi +
              " converts through the calibration");
        return kFailed;
    }
    float min = 0.0f, max = 0.0f;
    long minAt = 0, maxAt = 0;
    MinMaxPosition(finite.data(), static_cast<long>(finite.size()), &min, &max, minAt, maxAt, nullptr);
    double mean = 0.0, sd = 0.0;
    StdDev(finite.data(), static_cast<long>(finite.size()), &sd, &mean);
    const long minX = place[minAt] % film.point, minY = place[minAt] / film.point;
    const long maxX = place[maxAt] % film.point, maxY = place[maxAt] / film.point;
    if (o.json) {
        j["rect"] = {r.left, r.top, r.Width(), r.Height()};
        j["pixels"] = count;
        j["converted"] = finite.size();
        j["min"] = {{"value", min}, {"x", minX}, {"y", minY}};
        j["max"] = {{"value", max}, {"x", maxX}, {"y", maxY}};
        j["mean"] = mean;
        j["stddev"] = sd;
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    std::printf("%s frame %lu, rectangle %d,%d,%d,%d (%ld pixels, %zu converted), %s\n", o.file.c_str(), n, r.left,
                r.top, r.Width(), r.Height(), count, finite.size(), unit.c_str());
    std::printf("  min     %.4f at (%ld,%ld)\n", static_cast<double>(min), minX, minY);
    std::printf("  max     %.4f at (%ld,%ld)\n", static_cast<double>(max), maxX, maxY);
    std::printf("  mean    %.4f\n", mean);
    std::printf("  stddev  %.4f\n", sd);
    return kDone;
}

RegisterCommand reg(340, [](CLI::App& app) {
    auto o = std::make_shared<TemperatureOptions>();
    auto* sub = app.add_subcommand("temperature", "Temperatures of one frame at a pixel or over a rectangle");
    sub->add_option("film", o->file, "Film file")->required();
    auto* calib = sub->add_option("--calib", o->calib, "Calibration file");
    auto* embedded = sub->add_flag("--embedded", o->embedded, "The film's own radiometric law (degrees Celsius)");
    calib->excludes(embedded);
    auto* pixel = sub->add_option("--pixel", o->pixel, "One pixel X,Y");
    auto* roi = sub->add_option("--roi", o->roi, "Rectangle x,y,w,h (default the whole image)");
    pixel->excludes(roi);
    sub->add_option("--frame", o->frame, "Frame number (default 0)")->check(CLI::NonNegativeNumber);
    sub->add_flag("--json", o->json, "Write JSON");
    sub->footer("Example: thermokit temperature run.film --embedded --pixel 320,256 --frame 5");
    sub->callback([o] {
        if (o->calib.empty() && !o->embedded)
            throw CLI::ValidationError("temperature", "give --calib FILE or --embedded");
        SetAction([o] { return RunTemperature(*o); });
    });
});

}  // namespace
}  // namespace thermokit::cli
