#pragma once
// Levels of a film to temperatures, as every film-level program does it (the
// tool's commands, the viewer, the Python package and its batch runs): the
// calibration (a calibration file, or the radiometric law the film carries),
// the object parameters (emissivity, reflected and atmosphere temperatures,
// transmission or distance; by default those of the film's header) and the
// unit.
//
// The unit rule: a temperature given as an option is in degrees Celsius; a
// temperature written out is in degrees Celsius, named "degC", or with the
// kelvin option in kelvin, named "K" (273.15 added to each float value in
// float). A calibration curve whose values are kelvin is read as degrees
// Celsius (its values less 273.15, each rounded to float, before anything is
// converted); a curve without a unit is taken as degrees Celsius; a curve of
// another quantity gives values in its own unit, to which the object
// parameters and the kelvin option do not apply.
//
// Failures are told as one line: "file NAME: what is wrong" for a film or a
// calibration at fault, "--option VALUE: what is expected" for an option;
// nothing is shown through Messages.
#include <cmath>
#include <memory>
#include <string>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CObjectParameters.h"

namespace thermokit {

class CPtr;
class CPtrOver;

constexpr double kKelvinOffset = 273.15;

// The conversion asked for; NaN members are not given.
struct ConversionOptions {
    std::string calib;      // a calibration file
    bool embedded = false;  // the film's own radiometric law
    double emissivity = NAN, reflected = NAN, atmosphere = NAN, transmission = NAN, distance = NAN;
    bool kelvin = false;

    bool Requested() const { return !calib.empty() || embedded; }
    bool HasObjectOptions() const {
        return !std::isnan(emissivity) || !std::isnan(reflected) || !std::isnan(atmosphere) ||
               !std::isnan(transmission) || !std::isnan(distance);
    }
};

// A value as messages show it ("%g": 0.98, 25, 1e+06).
std::string ShortNumber(double v);

// The option values alone: 1, or 0 with the message of a usage error.
int CheckConversionOptions(const ConversionOptions& o, std::string& error);

// What a curve's Y unit says: 0 degrees Celsius (also no unit), 1 kelvin, -1 another quantity.
int CurveTemperatureUnit(const std::string& unit);

// The calibration of a calibration file, or of the film's own radiometric law
// (embedded; a law whose constants cannot give temperatures is refused,
// naming the field). Null with the message.
std::unique_ptr<CCalibration> LoadCalibration(const std::string& calibPath, bool embedded, const CPtrOver& film,
                                              const std::string& filmPath, std::string& error);

// A film's levels to values, ready for whole frames.
struct Conversion {
    std::unique_ptr<CCalibration> cal;
    CObjectParameters params;
    bool temperatures = true;  // false: a curve of another quantity
    std::string unit;          // degC, K, or the curve's own unit (as UTF-8)
    float shift = 0.0f;        // added to every value: 273.15 in kelvin
    CLevelTable table;

    // The value of one level (masked); NaN where it does not convert.
    float Value(unsigned short level) const { return table.Value(level) + shift; }
    // Values of n levels (NaN for those that do not convert): the table's
    // gather, then the shift when there is one.
    void Apply(const unsigned short* levels, long n, float* out) const;
    // A temperature of the options (degC) in the unit of the values.
    double FromCelsius(double celsius) const { return celsius + shift; }
};

// Makes c from a calibration already loaded (taken over by c): law says
// whether it is a film's radiometric law (its values are degrees Celsius)
// or a curve (the unit rule reads its Y unit; calibPath names it in
// messages). The object parameters start from the film header's emissivity
// and ambient temperature (kelvin; 0 keeps the default, see
// CObjectParameters::SetFromFilmHeader), then take the options; the level
// table covers 0..maxLevel. 0 with the message when the film's header or
// the calibration is at fault (filmPath names the film).
int PrepareConversion(std::unique_ptr<CCalibration> cal, bool law, const ConversionOptions& o, float headerEmissivity,
                      float headerAmbientKelvin, unsigned short maxLevel, const std::string& calibPath,
                      const std::string& filmPath, Conversion& c, std::string& error);

// The conversion of the options for a film of levels: its calibration, the
// object parameters of its header and the options, the level table of its
// depth. 0 with the message (a film of doubles, a calibration or header at fault).
int LoadConversion(const ConversionOptions& o, const CPtr& film, const std::string& filmPath, Conversion& c,
                   std::string& error);

// One line describing the object parameters, in the unit of the values (empty for a black body).
std::string DescribeParameters(const Conversion& c);

}  // namespace thermokit
