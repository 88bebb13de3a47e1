#pragma once
// The object parameters of a thermographic measurement, and the temperature
// of an object they give from a level.
//
// The model. What reaches the detector from one pixel is the object's own
// radiation, what the object reflects of its surroundings, and the radiation
// of the air between object and camera, the first two attenuated by that air:
//
//     S_meas = tau * (eps * S(T_obj) + (1 - eps) * S(T_refl)) + (1 - tau) * S(T_atm)
//
// S(T) is the calibration's radiometric signal at temperature T (see
// CCalibration::LevelToSignal: the law's signal for a radiometric law, the
// level itself for a curve, whose offset cancels because the weights sum to
// 1). Solved for the object:
//
//     S(T_obj) = (S_meas - tau * (1 - eps) * S(T_refl) - (1 - tau) * S(T_atm)) / (tau * eps)
//
// and T_obj is the calibration's value of that signal (SignalToValue). The
// calibration's values must be temperatures in degrees Celsius (a law's are).
//
// The parameters, their ranges and defaults:
//   emissivity eps         0 < eps <= 1; default 1 (a black body). A film brings
//                          its own in the header field "emissivity" (offset 141).
//   reflected temperature  degrees Celsius, above absolute zero: the apparent
//                          temperature of the surroundings the object mirrors;
//                          default 20. A film brings its own in the header field
//                          "ambient temperature" (offset 145, kelvin).
//   atmosphere temperature degrees Celsius, above absolute zero; by default the
//                          reflected temperature (the air is at the ambient
//                          temperature) until set on its own.
//   transmission tau       0 < tau <= 1 of the air between camera and object;
//                          default 1. Given directly, or from the distance d in
//                          metres by Beer-Lambert attenuation, tau = exp(-a * d),
//                          a = kDefaultExtinction per metre unless another is
//                          given: a round figure for clear air in the thermal
//                          windows over short paths (tau 0.99 at 10 m, 0.90 at
//                          100 m). Give tau directly for long paths, haze or a
//                          known atmosphere.
// Setters refuse a value outside its range (return 0, value unchanged); the
// constructor starts from the defaults and applies the setters to its arguments.
//
// With eps = tau = 1 the conversion is the calibration's Interpolate, bit for
// bit. In every case a level converts only when it has a signal (LevelToSignal),
// and the result is finite; with other parameters the object's signal must
// also have a value (for a law: above 0, else the measured signal lies below
// what the surroundings and the air give, and no object temperature explains
// it) and the result must lie above absolute zero. Otherwise the conversion
// fails: 0, and NaN as the value.
#include <string>

namespace thermokit {

class CCalibration;

class CObjectParameters {
public:
    static constexpr double kDefaultReflectedCelsius = 20.0;
    static constexpr double kDefaultExtinction = 0.001;  // per metre, see above
    static constexpr double kAbsoluteZeroCelsius = -273.15;

    // A black body seen through clear air: eps 1, tau 1, reflected and atmosphere 20 degrees Celsius.
    CObjectParameters() = default;
    // eps, the reflected temperature and tau; the atmosphere follows the reflected temperature.
    CObjectParameters(double emissivity, double reflectedCelsius, double transmission = 1.0);

    int SetEmissivity(double emissivity);
    int SetReflectedTemperature(double celsius);
    int SetAtmosphereTemperature(double celsius);
    int SetTransmission(double transmission);
    // tau = exp(-extinction * metres); 0 (unchanged) when the distance is negative or not finite,
    // the extinction negative or not finite, or tau would not be above 0.
    int SetDistance(double metres, double extinctionPerMetre = kDefaultExtinction);
    // The defaults a film brings: emissivity and ambient temperature (kelvin) as
    // its header holds them. A field of 0 (a header cleared by a writer that
    // does not fill it) keeps the current value. 1 when both were taken or
    // kept; 0 when one is out of range, with its name in *field (that field
    // keeps the current value, the other is still taken).
    int SetFromFilmHeader(float emissivity, float ambientKelvin, std::string* field = nullptr);

    double GetEmissivity() const { return m_dEmissivity; }
    double GetReflectedTemperature() const { return m_dReflected; }
    double GetAtmosphereTemperature() const { return m_bAtmosphere ? m_dAtmosphere : m_dReflected; }
    double GetTransmission() const { return m_dTransmission; }
    // eps = tau = 1: the levels convert exactly as the calibration converts them.
    int IsBlackBody() const { return m_dEmissivity == 1.0 && m_dTransmission == 1.0; }

    // The part of the signal that does not come from the object:
    // tau * (1 - eps) * S(T_refl) + (1 - tau) * S(T_atm). 0 (nothing written)
    // when a temperature with a weight has no signal through cal.
    int Background(const CCalibration& cal, double* background, int extrapolate = 1) const;
    // The object temperature (degrees Celsius) of one level through cal, with a
    // background computed by Background for the same calibration (compute it
    // once for many levels). 1, or 0 with NaN in *value (see above).
    int Convert(const CCalibration& cal, float level, double background, float* value, int extrapolate = 1) const;
    // The same, the background computed for this one level.
    int Convert(const CCalibration& cal, float level, float* value, int extrapolate = 1) const;

private:
    double m_dEmissivity = 1.0;
    double m_dReflected = kDefaultReflectedCelsius;
    double m_dAtmosphere = kDefaultReflectedCelsius;
    int m_bAtmosphere = 0;  // set on its own; otherwise the reflected temperature
    double m_dTransmission = 1.0;
};

}  // namespace thermokit
