// thermokit calib: inspect a calibration file and convert levels and values through it.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmHeaderJson.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/platform/File.h"

namespace thermokit::cli {
namespace {

// Opens the file; on failure prints why, in one line, and returns null.
std::unique_ptr<CCalibration> OpenCalibration(const std::string& path) {
    auto cal = std::make_unique<CCalibration>("", 0);
    if (!cal->Open(path.c_str())) {
        FileError(path, cal->GetLastErrorText().empty()
                            ? "not a readable calibration file (tag \"EXP\" expected, or the file is damaged)"
                            : cal->GetLastErrorText());
        return nullptr;
    }
    return cal;
}

// The calibration as JSON: its header, its curve (every point with --points), its classes and lens formats.
Json CalibrationJson(CCalibration& cal, const std::string& path, bool points) {
    int day, month, year;
    cal.GetDate(&day, &month, &year);
    char date[32];
    std::snprintf(date, sizeof date, "%04d-%02d-%02d", year, month, day);
    const CRect f = cal.GetFormat();
    Json j = {{"file", NameToUtf8(path)}, {"camera", Latin1ToUtf8(cal.GetCamera())}, {"date", date},
              {"frame_rate", cal.GetFrameRate()}, {"aperture", Float32(cal.GetAperture())},
              {"background", Float32(cal.GetBackground())}, {"housing", Float32(cal.GetHousingTemp())},
              {"lens", Latin1ToUtf8(cal.GetLens())}, {"filter", Latin1ToUtf8(cal.GetFilterName())},
              {"distance", Float32(cal.GetDistance())}, {"unit_x", Latin1ToUtf8(cal.GetUnitX())},
              {"unit_y", Latin1ToUtf8(cal.GetUnitY())}, {"format", {f.left, f.top, f.Width(), f.Height()}},
              {"points", cal.GetSize()}};
    Json curve = Json::array();
    const float* X = cal.GetCurveX();
    const float* Y = cal.GetCurveY();
    for (unsigned i = 0; i < cal.GetSize(); ++i)
        if (points || i == 0 || i + 1 == cal.GetSize()) curve.push_back({Float32(X[i]), Float32(Y[i])});
    j[points ? "curve" : "first_and_last"] = curve;
    Json classes = Json::array();
    for (int c = 0; c < cal.GetExtendedClassCount(); ++c) {
        float key = 0.0f, t = 0.0f, x = 0.0f;
        const int n = cal.GetExtendedClassElementCount(c);
        if (n > 0) cal.GetCalibValue(c, 0, key, t, x);
        classes.push_back({{"key", Float32(key)}, {"samples", n}});
    }
    j["extended_classes"] = classes;
    Json lenses = Json::array();
    std::vector<std::string> names;
    if (cal.GetConfigName(names))
        for (size_t i = 0; i < names.size(); ++i) {
            float g = 0.0f, o = 0.0f;
            cal.GetConfigTransfo(static_cast<int>(i), g, o);
            lenses.push_back({{"name", Latin1ToUtf8(names[i])}, {"gain", Float32(g)}, {"offset", Float32(o)}});
        }
    j["lens_formats"] = lenses;
    return j;
}

int RunInfo(const std::string& path, bool points, bool json) {
    auto cal = OpenCalibration(path);
    if (!cal) return kFailed;
    if (json) {
        std::printf("%s\n", CalibrationJson(*cal, path, points).dump(2).c_str());
        return kDone;
    }
    const CCalibration::CALIBRATION_HEADER& h = cal->GetHeader();
    int day, month, year;
    cal->GetDate(&day, &month, &year);
    const CRect f = cal->GetFormat();
    std::printf("file          %s\n", EscapeControls(NameToUtf8(path)).c_str());
    std::printf("version       %s\n", Shown(std::string(h.m_szVersion, strnlen(h.m_szVersion, 4))).c_str());
    std::printf("camera        %s\n", Shown(cal->GetCamera()).c_str());
    std::printf("date          %04d-%02d-%02d\n", year, month, day);
    std::printf("integration   %u us\n", static_cast<unsigned>(h.m_wIntegration));
    std::printf("frame rate    %u\n", static_cast<unsigned>(cal->GetFrameRate()));
    std::printf("aperture      %g\n", static_cast<double>(cal->GetAperture()));
    std::printf("background    %g\n", static_cast<double>(cal->GetBackground()));
    std::printf("housing       %g\n", static_cast<double>(cal->GetHousingTemp()));
    std::printf("lens          %s\n", Shown(cal->GetLens()).c_str());
    std::printf("filter        %s\n", Shown(cal->GetFilterName()).c_str());
    std::printf("distance      %g\n", static_cast<double>(cal->GetDistance()));
    std::printf("units         X %s (%s), Y %s (%s)\n", Shown(cal->GetUnitX()).c_str(), Shown(cal->GetUnitLabelX()).c_str(),
                Shown(cal->GetUnitY()).c_str(), Shown(cal->GetUnitLabelY()).c_str());
    std::printf("format        x %d y %d width %d height %d\n", f.left, f.top, f.Width(), f.Height());
    std::printf("extensions    0x%02x\n", cal->GetExtensionTypes());
    std::printf("points        %u\n", static_cast<unsigned>(cal->GetSize()));
    if (cal->GetExtendedClassCount() > 0)
        std::printf("  curve regenerated at camera temperature %g (the stored housing value)\n",
                    static_cast<double>(cal->GetCameraTemperature()));
    const float* X = cal->GetCurveX();
    const float* Y = cal->GetCurveY();
    if (points) {
        for (unsigned i = 0; i < cal->GetSize(); ++i)
            std::printf("  %4u  X %12.4f  Y %12.4f\n", i, static_cast<double>(X[i]), static_cast<double>(Y[i]));
    } else if (cal->GetSize() > 0) {
        const unsigned last = cal->GetSize() - 1u;
        std::printf("  first X %.4f Y %.4f, last X %.4f Y %.4f\n", static_cast<double>(X[0]),
                    static_cast<double>(Y[0]), static_cast<double>(X[last]), static_cast<double>(Y[last]));
    }
    std::printf("extended classes %d\n", cal->GetExtendedClassCount());
    for (int c = 0; c < cal->GetExtendedClassCount(); ++c) {
        float key = 0.0f, t = 0.0f, x = 0.0f;
        const int n = cal->GetExtendedClassElementCount(c);
        if (n > 0) cal->GetCalibValue(c, 0, key, t, x);
        std::printf("  class %d: key %g, %d samples\n", c, static_cast<double>(key), n);
    }
    std::printf("lens formats  %d\n", cal->GetLensExtendedClassCount());
    std::vector<std::string> names;
    if (cal->GetConfigName(names)) {
        for (size_t i = 0; i < names.size(); ++i) {
            float g = 0.0f, o = 0.0f;
            cal->GetConfigTransfo(static_cast<int>(i), g, o);
            std::printf("  %zu: %s gain %g offset %g\n", i, Shown(names[i]).c_str(), static_cast<double>(g),
                        static_cast<double>(o));
        }
    }
    return kDone;
}

struct ConvertOptions {
    std::string path;
    double level = NAN;
    double value = NAN;
    bool noExtrapolate = false;
    double cameraTemperature = NAN;  // degC
    int lensFormat = -1;
    bool kelvin = false;
    bool json = false;
};

int RunConvert(const ConvertOptions& o) {
    auto cal = OpenCalibration(o.path);
    if (!cal) return kFailed;
    if (!std::isnan(o.cameraTemperature)) {
        if (!(o.cameraTemperature > -kKelvinOffset)) {
            Error("--camera-temperature " + std::to_string(o.cameraTemperature) +
                  ": expected degrees Celsius above absolute zero (-273.15)");
            return kUsage;
        }
        cal->SetCameraTemperature(static_cast<float>(o.cameraTemperature + kKelvinOffset), 1);
    }
    // Temperatures in and out by the tool's rule (degC, or K with --kelvin); other quantities as the curve has them.
    const int kind = CurveTemperatureUnit(cal->GetUnitY());
    if (kind < 0 && o.kelvin) {
        FileError(o.path, "its values are in \"" + Latin1ToUtf8(cal->GetUnitY()) + "\", not temperatures; --kelvin applies to temperatures");
        return kUsage;
    }
    const double curveShift = kind == 1 ? kKelvinOffset : 0.0;  // degC to the curve's unit
    const double outShift = o.kelvin ? kKelvinOffset : 0.0;
    const std::string unit = kind < 0 ? cal->GetUnitY() : (o.kelvin ? "K" : "degC");
    if (o.lensFormat >= 0) {
        if (o.lensFormat >= cal->GetLensExtendedClassCount() || !cal->SetCurrentConfig(o.lensFormat)) {
            FileError(o.path, "lens format " + std::to_string(o.lensFormat) + " cannot be selected");
            return kFailed;
        }
    }
    const int extrapolate = o.noExtrapolate ? 0 : 1;
    if (!std::isnan(o.level)) {
        float y = 0.0f;
        if (!cal->Interpolate(static_cast<float>(o.level), &y, extrapolate)) {
            FileError(o.path, "level " + std::to_string(o.level) +
                  " cannot be converted (fewer than two points, or outside the curve)");
            return kFailed;
        }
        const double out = kind < 0 ? static_cast<double>(y) : y - curveShift + outShift;
        if (o.json) std::printf("%s\n", Json({{"level", o.level}, {"value", out}, {"unit", Latin1ToUtf8(unit)}}).dump().c_str());
        else std::printf("%.6g %s\n", out, Shown(unit).c_str());
    } else {
        float x = 0.0f;
        if (!cal->FindAbscisse(static_cast<float>(o.value + curveShift), &x, extrapolate)) {
            FileError(o.path, "value " + std::to_string(o.value) +
                  " cannot be converted (fewer than two points, or outside the curve)");
            return kFailed;
        }
        if (o.json)
            std::printf("%s\n", Json({{"value", o.value}, {"level", Float32(x)}, {"unit", Latin1ToUtf8(cal->GetUnitX())}}).dump().c_str());
        else std::printf("%.6g %s\n", static_cast<double>(x), Shown(cal->GetUnitX()).c_str());
    }
    return kDone;
}

}  // namespace

void AddCalibCommand(CLI::App& app) {
    auto* calib = app.add_subcommand("calib", "Inspect calibration files and convert through them");
    calib->require_subcommand(1);
    calib->footer("Example: thermokit calib info camera.cal");

    auto infoPath = std::make_shared<std::string>();
    auto infoPoints = std::make_shared<bool>(false);
    auto infoJson = std::make_shared<bool>(false);
    auto* info = calib->add_subcommand("info", "Show the header, curve and extensions of a calibration file");
    Input(info->add_option("FILE", *infoPath, "Calibration file"))->required();
    info->add_flag("--points", *infoPoints, "List every point of the curve");
    info->add_flag("--json", *infoJson, "Write JSON");
    info->footer("Example: thermokit calib info camera.cal --points");
    info->callback([infoPath, infoPoints, infoJson] {
        SetAction([infoPath, infoPoints, infoJson] { return RunInfo(*infoPath, *infoPoints, *infoJson); });
    });

    auto opts = std::make_shared<ConvertOptions>();
    auto* convert = calib->add_subcommand("convert", "Convert a level to a value (--level) or a value to a level (--value)");
    Input(convert->add_option("FILE", opts->path, "Calibration file"))->required();
    auto* level = convert->add_option("-l,--level", opts->level, "Digital level to convert");
    auto* value = convert->add_option("--value", opts->value, "Calibrated value to convert (a temperature in degC)");
    level->excludes(value);
    value->excludes(level);
    convert->add_flag("--no-extrapolate", opts->noExtrapolate, "Refuse values outside the curve");
    convert->add_option("--camera-temperature", opts->cameraTemperature,
                        "Camera temperature, degC (regenerates extended calibrations)");
    convert->add_flag("--kelvin", opts->kelvin, "Print a temperature in kelvin (K) instead of degC");
    convert->add_option("--lens-format", opts->lensFormat, "Select a lens format by index");
    convert->add_flag("--json", opts->json, "Write JSON: the value given, the result and its unit");
    convert->footer("Example: thermokit calib convert camera.cal --level 8000");
    convert->callback([opts] {
        if (std::isnan(opts->level) && std::isnan(opts->value)) {
            throw CLI::ValidationError("calib convert", "give --level or --value");
        }
        SetAction([opts] { return RunConvert(*opts); });
    });
}

}  // namespace thermokit::cli
