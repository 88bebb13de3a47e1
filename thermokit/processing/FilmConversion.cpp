#include "thermokit/processing/FilmConversion.h"

#include "thermokit/platform/Utf8.h"

#include <cctype>
#include <cstdio>

#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmReader.h"

namespace thermokit {

std::string ShortNumber(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

int CheckConversionOptions(const ConversionOptions& o, std::string& error) {
    if (!o.Requested() && (o.HasObjectOptions() || o.kelvin)) {
        error = std::string(o.kelvin ? "--kelvin" : "the object parameters (--emissivity ...)") +
                " apply to temperatures: give --calib FILE or --embedded";
        return 0;
    }
    CObjectParameters p;
    if (!std::isnan(o.emissivity) && !p.SetEmissivity(o.emissivity)) {
        error = "--emissivity " + ShortNumber(o.emissivity) + ": expected a value above 0 and at most 1";
        return 0;
    }
    if (!std::isnan(o.transmission) && !p.SetTransmission(o.transmission)) {
        error = "--transmission " + ShortNumber(o.transmission) + ": expected a value above 0 and at most 1";
        return 0;
    }
    if (!std::isnan(o.distance) && !p.SetDistance(o.distance)) {
        error = "--distance " + ShortNumber(o.distance) + ": expected metres, 0 or more (and not so far that nothing passes)";
        return 0;
    }
    if (!std::isnan(o.reflected) && !p.SetReflectedTemperature(o.reflected)) {
        error = "--reflected " + ShortNumber(o.reflected) + ": expected degrees Celsius above absolute zero (-273.15)";
        return 0;
    }
    if (!std::isnan(o.atmosphere) && !p.SetAtmosphereTemperature(o.atmosphere)) {
        error = "--atmosphere " + ShortNumber(o.atmosphere) + ": expected degrees Celsius above absolute zero (-273.15)";
        return 0;
    }
    if (!std::isnan(o.transmission) && !std::isnan(o.distance)) {
        error = "--transmission and --distance both give the air's transmission: give one of them";
        return 0;
    }
    return 1;
}

int CurveTemperatureUnit(const std::string& unit) {
    std::string u;
    for (unsigned char c : unit)
        if (c != ' ' && c != 0xB0 && c != 0xC2) u += static_cast<char>(std::tolower(c));  // blanks, degree sign
    if (u.empty() || u == "c" || u == "degc" || u == "celsius" || u == "degreescelsius") return 0;
    if (u == "k" || u == "kelvin") return 1;
    return -1;
}

std::unique_ptr<CCalibration> LoadCalibration(const std::string& calibPath, bool embedded, const CPtrOver& film,
                                              const std::string& filmPath, std::string& error) {
    if (embedded) {
        _SCalibrationRBF law{};
        if (!film.GetRBFCalibParam(&law)) {
            error = "file " + filmPath + ": the film carries no radiometric law (--embedded needs one; use --calib FILE)";
            return nullptr;
        }
        const std::string why = CCalibrationRBF::CheckLaw(law);
        if (!why.empty()) {
            error = "file " + filmPath + ": the radiometric law in the header cannot give temperatures: its field " + why;
            return nullptr;
        }
        return std::make_unique<CCalibrationRBF>(law);
    }
    const std::string why = FileProblem(calibPath);
    if (!why.empty()) {
        error = "file " + calibPath + ": " + why;
        return nullptr;
    }
    auto cal = std::make_unique<CCalibration>("", 0);
    if (!cal->Open(calibPath.c_str())) {
        error = "file " + calibPath + ": not a readable calibration file (tag \"EXP\" expected, or the file is damaged)";
        return nullptr;
    }
    if (cal->GetSize() < 2) {
        error = "file " + calibPath + ": the calibration curve has fewer than two points";
        return nullptr;
    }
    return cal;
}

void Conversion::Apply(const unsigned short* levels, long n, float* out) const {
    table.Apply(levels, n, out);
    if (shift != 0.0f)
        for (long i = 0; i < n; ++i) out[i] += shift;
}

int PrepareConversion(std::unique_ptr<CCalibration> cal, bool law, const ConversionOptions& o, float headerEmissivity,
                      float headerAmbientKelvin, unsigned short maxLevel, const std::string& calibPath,
                      const std::string& filmPath, Conversion& c, std::string& error) {
    c.cal = std::move(cal);
    c.params = CObjectParameters();
    c.shift = 0.0f;
    const int kind = law ? 0 : CurveTemperatureUnit(c.cal->GetUnitY());
    c.temperatures = kind >= 0;
    if (!c.temperatures) {
        if (o.HasObjectOptions() || o.kelvin) {
            error = "file " + calibPath + ": its values are in \"" + Latin1ToUtf8(c.cal->GetUnitY()) +
                    "\", not temperatures; the object parameters and --kelvin apply to temperatures";
            return 0;
        }
        c.unit = Latin1ToUtf8(c.cal->GetUnitY());  // the file's 8-bit text, for text output
    } else {
        if (kind == 1) {
            // A kelvin curve: its values become degrees Celsius, as every temperature here.
            float* y = c.cal->GetCurveY();
            for (unsigned i = 0; i < c.cal->GetSize(); ++i) y[i] = static_cast<float>(y[i] - kKelvinOffset);
        }
        c.unit = o.kelvin ? "K" : "degC";
        c.shift = o.kelvin ? static_cast<float>(kKelvinOffset) : 0.0f;
        std::string field;
        if (!c.params.SetFromFilmHeader(headerEmissivity, headerAmbientKelvin, &field)) {
            const bool overridden = field == "emissivity" ? !std::isnan(o.emissivity) : !std::isnan(o.reflected);
            if (!overridden) {
                const double value = field == "emissivity" ? headerEmissivity : headerAmbientKelvin;
                error = "file " + filmPath + ": the header's " + field + " is " + ShortNumber(value) +
                        (field == "emissivity" ? " (above 0 and at most 1 expected); give --emissivity"
                                               : " K (above 0 K expected); give --reflected");
                return 0;
            }
        }
        // The options were checked: every setter takes its value.
        if (!std::isnan(o.emissivity)) c.params.SetEmissivity(o.emissivity);
        if (!std::isnan(o.reflected)) c.params.SetReflectedTemperature(o.reflected);
        if (!std::isnan(o.atmosphere)) c.params.SetAtmosphereTemperature(o.atmosphere);
        if (!std::isnan(o.transmission)) c.params.SetTransmission(o.transmission);
        if (!std::isnan(o.distance)) c.params.SetDistance(o.distance);
    }
    c.table.Build(*c.cal, c.params, maxLevel);
    return 1;
}

int LoadConversion(const ConversionOptions& o, const CPtr& film, const std::string& filmPath, Conversion& c,
                   std::string& error) {
    if (film.GetPixelBytes() == 8) {
        error = "file " + filmPath + ": a film of doubles holds values already; --calib and --embedded apply to levels";
        return 0;
    }
    auto cal = LoadCalibration(o.calib, o.embedded, film, filmPath, error);
    if (!cal) return 0;
    return PrepareConversion(std::move(cal), o.embedded, o, film.GetEmissivity(), film.GetAmbiantTemperature(),
                             film.GetMaxLevel(), o.calib, filmPath, c, error);
}

std::string DescribeParameters(const Conversion& c) {
    if (!c.temperatures || c.params.IsBlackBody()) return std::string();
    char text[200];
    std::snprintf(text, sizeof text, "emissivity %.4g, reflected %.2f %s, atmosphere %.2f %s, transmission %.4g",
                  c.params.GetEmissivity(), c.FromCelsius(c.params.GetReflectedTemperature()), c.unit.c_str(),
                  c.FromCelsius(c.params.GetAtmosphereTemperature()), c.unit.c_str(), c.params.GetTransmission());
    return text;
}

}  // namespace thermokit
