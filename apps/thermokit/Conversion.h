#pragma once
// Levels to temperatures in the commands that measure or draw films
// (temperature, stats, export, render, animate): the calibration (--calib FILE
// or the film's own law, --embedded), the object parameters (--emissivity,
// --reflected, --atmosphere, --transmission or --distance, defaults from the
// film's header) and the unit.
//
// The unit rule of the tool: a temperature given on the command line is in
// degrees Celsius; a temperature printed or written is in degrees Celsius,
// named "degC", or with --kelvin in kelvin, named "K". A calibration curve
// whose values are kelvin is read as degrees Celsius (a curve without a unit
// is taken as degrees Celsius); a curve of another quantity gives values in
// its own unit, to which the object parameters and --kelvin do not apply.
#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "FilmInput.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CObjectParameters.h"

namespace thermokit::cli {

constexpr double kKelvinOffset = 273.15;

struct ConversionOptions {
    std::string calib;
    bool embedded = false;
    double emissivity = NAN, reflected = NAN, atmosphere = NAN, transmission = NAN, distance = NAN;
    bool kelvin = false;

    bool Requested() const { return !calib.empty() || embedded; }
    bool HasObjectOptions() const {
        return !std::isnan(emissivity) || !std::isnan(reflected) || !std::isnan(atmosphere) ||
               !std::isnan(transmission) || !std::isnan(distance);
    }
};

// --calib, --embedded, the object parameters and --kelvin, with one meaning in every command.
inline void AddConversionOptions(CLI::App* sub, ConversionOptions& o) {
    auto* calib = sub->add_option("--calib", o.calib, "Calibration file: temperatures (or the curve's values)");
    auto* embedded = sub->add_flag("--embedded", o.embedded, "Temperatures by the film's own radiometric law");
    calib->excludes(embedded);
    sub->add_option("--emissivity", o.emissivity,
                    "Emissivity of the object, above 0 and at most 1 (default: the film's header, else 1)");
    sub->add_option("--reflected", o.reflected,
                    "Reflected (surroundings') temperature, degC (default: the film's ambient temperature, else 20)");
    sub->add_option("--atmosphere", o.atmosphere, "Temperature of the air on the path, degC (default: the reflected one)");
    auto* tau = sub->add_option("--transmission", o.transmission,
                                "Transmission of the air on the path, above 0 and at most 1 (default 1)");
    auto* distance = sub->add_option("--distance", o.distance,
                                     "Distance to the object, metres: the air's transmission by exp(-0.001 x d)");
    tau->excludes(distance);
    sub->add_flag("--kelvin", o.kelvin, "Temperatures printed and written in kelvin (K) instead of degC");
}

// The option values alone; false with a message (a usage error).
inline bool CheckConversionOptions(const ConversionOptions& o) {
    auto number = [](double v) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", v);
        return std::string(text);
    };
    if (!o.Requested() && (o.HasObjectOptions() || o.kelvin)) {
        Error(std::string(o.kelvin ? "--kelvin" : "the object parameters (--emissivity ...)") +
              " apply to temperatures: give --calib FILE or --embedded");
        return false;
    }
    CObjectParameters p;
    if (!std::isnan(o.emissivity) && !p.SetEmissivity(o.emissivity)) {
        Error("--emissivity " + number(o.emissivity) + ": expected a value above 0 and at most 1");
        return false;
    }
    if (!std::isnan(o.transmission) && !p.SetTransmission(o.transmission)) {
        Error("--transmission " + number(o.transmission) + ": expected a value above 0 and at most 1");
        return false;
    }
    if (!std::isnan(o.distance) && !p.SetDistance(o.distance)) {
        Error("--distance " + number(o.distance) + ": expected metres, 0 or more (and not so far that nothing passes)");
        return false;
    }
    if (!std::isnan(o.reflected) && !p.SetReflectedTemperature(o.reflected)) {
        Error("--reflected " + number(o.reflected) + ": expected degrees Celsius above absolute zero (-273.15)");
        return false;
    }
    if (!std::isnan(o.atmosphere) && !p.SetAtmosphereTemperature(o.atmosphere)) {
        Error("--atmosphere " + number(o.atmosphere) + ": expected degrees Celsius above absolute zero (-273.15)");
        return false;
    }
    return true;
}

// What a curve's Y unit says: 0 degrees Celsius (also no unit), 1 kelvin, -1 another quantity.
inline int CurveTemperatureUnit(const std::string& unit) {
    std::string u;
    for (unsigned char c : unit)
        if (c != ' ' && c != 0xB0 && c != 0xC2) u += static_cast<char>(std::tolower(c));  // blanks, degree sign
    if (u.empty() || u == "c" || u == "degc" || u == "celsius" || u == "degreescelsius") return 0;
    if (u == "k" || u == "kelvin") return 1;
    return -1;
}

// The calibration of --calib FILE or of the film's own radiometric law
// (--embedded); null with a message. A law whose constants cannot give
// temperatures is refused, naming the field.
inline std::unique_ptr<CCalibration> LoadCalibration(const std::string& calibPath, bool embedded, CPtrOver& film,
                                                     const std::string& filmPath) {
    if (embedded) {
        _SCalibrationRBF law{};
        if (!film.GetRBFCalibParam(&law)) {
            Error("file " + filmPath + ": the film carries no radiometric law (--embedded needs one; use --calib FILE)");
            return nullptr;
        }
        const std::string why = CCalibrationRBF::CheckLaw(law);
        if (!why.empty()) {
            Error("file " + filmPath + ": the radiometric law in the header cannot give temperatures: its field " + why);
            return nullptr;
        }
        return std::make_unique<CCalibrationRBF>(law);
    }
    const std::string why = MissingOrEmpty(calibPath);
    if (!why.empty()) {
        Error("file " + calibPath + ": " + why);
        return nullptr;
    }
    auto cal = std::make_unique<CCalibration>("", 0);
    if (!cal->Open(calibPath.c_str())) {
        Error("file " + calibPath + ": not a readable calibration file (tag \"EXP\" expected, or the file is damaged)");
        return nullptr;
    }
    if (cal->GetSize() < 2) {
        Error("file " + calibPath + ": the calibration curve has fewer than two points");
        return nullptr;
    }
    return cal;
}

// A film's levels to values, ready for whole frames.
struct Conversion {
    std::unique_ptr<CCalibration> cal;
    CObjectParameters params;
    bool temperatures = true;  // false: a curve of another quantity
    std::string unit;          // degC, K, or the curve's own unit
    float shift = 0.0f;        // added to every value: 273.15 with --kelvin
    CLevelTable table;

    // The value of one level (masked); NaN where it does not convert.
    float Value(unsigned short level) const { return table.Value(level) + shift; }
    // Values of n levels (NaN where a level does not convert). Safe to call
    // from several threads at once.
    void Apply(const unsigned short* levels, long n, float* out) const {
        table.Apply(levels, n, out);
        if (shift != 0.0f)
            for (long i = 0; i < n; ++i) out[i] += shift;
    }
    // A temperature of the command line (degC) in the unit of the values.
    double FromCelsius(double celsius) const { return celsius + shift; }
};

// Loads the calibration of the options for the film, takes the object
// parameters from the film's header and the options, and builds the level
// table. False with a message (the film or calibration is at fault).
inline bool LoadConversion(const ConversionOptions& o, Film& film, const std::string& path, Conversion& c) {
    if (film.doubles) {
        Error("file " + path + ": a film of doubles holds values already; --calib and --embedded apply to levels");
        return false;
    }
    c.cal = LoadCalibration(o.calib, o.embedded, *film.ptr, path);
    if (!c.cal) return false;
    const int kind = o.embedded ? 0 : CurveTemperatureUnit(c.cal->GetUnitY());
    c.temperatures = kind >= 0;
    if (!c.temperatures) {
        if (o.HasObjectOptions() || o.kelvin) {
            Error("file " + o.calib + ": its values are in \"" + c.cal->GetUnitY() +
                  "\", not temperatures; the object parameters and --kelvin apply to temperatures");
            return false;
        }
        c.unit = c.cal->GetUnitY();
    } else {
        if (kind == 1) {
            // A kelvin curve: its values become degrees Celsius, as every temperature here.
            float* y = c.cal->GetCurveY();
            for (unsigned i = 0; i < c.cal->GetSize(); ++i) y[i] = static_cast<float>(y[i] - kKelvinOffset);
        }
        c.unit = o.kelvin ? "K" : "degC";
        c.shift = o.kelvin ? static_cast<float>(kKelvinOffset) : 0.0f;
        std::string field;
        if (!c.params.SetFromFilmHeader(film.ptr->GetEmissivity(), film.ptr->GetAmbiantTemperature(), &field)) {
            const bool overridden = field == "emissivity" ? !std::isnan(o.emissivity) : !std::isnan(o.reflected);
            if (!overridden) {
                char value[32];
                std::snprintf(value, sizeof value, "%g",
                              field == "emissivity" ? static_cast<double>(film.ptr->GetEmissivity())
                                                    : static_cast<double>(film.ptr->GetAmbiantTemperature()));
                Error("file " + path + ": the header's " + field + " is " + value +
                      (field == "emissivity" ? " (above 0 and at most 1 expected); give --emissivity"
                                             : " K (above 0 K expected); give --reflected"));
                return false;
            }
        }
        // The options were checked: every setter takes its value.
        if (!std::isnan(o.emissivity)) c.params.SetEmissivity(o.emissivity);
        if (!std::isnan(o.reflected)) c.params.SetReflectedTemperature(o.reflected);
        if (!std::isnan(o.atmosphere)) c.params.SetAtmosphereTemperature(o.atmosphere);
        if (!std::isnan(o.transmission)) c.params.SetTransmission(o.transmission);
        if (!std::isnan(o.distance)) c.params.SetDistance(o.distance);
    }
    c.table.Build(*c.cal, c.params, film.ptr->GetMaxLevel());
    return true;
}

// One line describing the object parameters, in the unit of the values (empty for a black body).
inline std::string DescribeParameters(const Conversion& c) {
    if (!c.temperatures || c.params.IsBlackBody()) return std::string();
    char text[200];
    std::snprintf(text, sizeof text, "emissivity %.4g, reflected %.2f %s, atmosphere %.2f %s, transmission %.4g",
                  c.params.GetEmissivity(), c.FromCelsius(c.params.GetReflectedTemperature()), c.unit.c_str(),
                  c.FromCelsius(c.params.GetAtmosphereTemperature()), c.unit.c_str(), c.params.GetTransmission());
    return text;
}

}  // namespace thermokit::cli
