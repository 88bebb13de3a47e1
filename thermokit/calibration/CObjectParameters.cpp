#include "thermokit/calibration/CObjectParameters.h"

#include <cmath>
#include <limits>

#include "thermokit/calibration/CCalibration.h"

namespace thermokit {

namespace {
constexpr float kNoValue = std::numeric_limits<float>::quiet_NaN();
constexpr double kKelvin = 273.15;

bool Temperature(double celsius) { return std::isfinite(celsius) && celsius > CObjectParameters::kAbsoluteZeroCelsius; }
bool Fraction(double v) { return v > 0.0 && v <= 1.0; }  // false for NaN
}  // namespace

CObjectParameters::CObjectParameters(double emissivity, double reflectedCelsius, double transmission) {
    SetEmissivity(emissivity);
    SetReflectedTemperature(reflectedCelsius);
    SetTransmission(transmission);
}

int CObjectParameters::SetEmissivity(double emissivity) {
    if (!Fraction(emissivity)) return 0;
    m_dEmissivity = emissivity;
    return 1;
}

int CObjectParameters::SetReflectedTemperature(double celsius) {
    if (!Temperature(celsius)) return 0;
    m_dReflected = celsius;
    return 1;
}

int CObjectParameters::SetAtmosphereTemperature(double celsius) {
    if (!Temperature(celsius)) return 0;
    m_dAtmosphere = celsius;
    m_bAtmosphere = 1;
    return 1;
}

int CObjectParameters::SetTransmission(double transmission) {
    if (!Fraction(transmission)) return 0;
    m_dTransmission = transmission;
    return 1;
}

int CObjectParameters::SetDistance(double metres, double extinctionPerMetre) {
    if (!(metres >= 0.0) || !std::isfinite(metres) || !(extinctionPerMetre >= 0.0) ||
        !std::isfinite(extinctionPerMetre))
        return 0;
    return SetTransmission(std::exp(-extinctionPerMetre * metres));
}

int CObjectParameters::SetFromFilmHeader(float emissivity, float ambientKelvin, std::string* field) {
    int ok = 1;
    if (emissivity != 0.0f && !SetEmissivity(emissivity)) {
        ok = 0;
        if (field) *field = "emissivity";
    }
    if (ambientKelvin != 0.0f && !SetReflectedTemperature(static_cast<double>(ambientKelvin) - kKelvin)) {
        if (field && ok) *field = "ambient temperature";
        ok = 0;
    }
    return ok;
}

int CObjectParameters::Background(const CCalibration& cal, double* background, int extrapolate) const {
    if (!background) return 0;
    const double reflectedWeight = m_dTransmission * (1.0 - m_dEmissivity);
    const double airWeight = 1.0 - m_dTransmission;
    double sum = 0.0, s = 0.0;
    // A term without weight is not asked for: its temperature need not have a signal.
    if (reflectedWeight != 0.0) {
        if (!cal.ValueToSignal(m_dReflected, &s, extrapolate)) return 0;
        sum += reflectedWeight * s;
    }
    if (airWeight != 0.0) {
        if (!cal.ValueToSignal(GetAtmosphereTemperature(), &s, extrapolate)) return 0;
        sum += airWeight * s;
    }
    *background = sum;
    return 1;
}

int CObjectParameters::Convert(const CCalibration& cal, float level, double background, float* value,
                               int extrapolate) const {
    if (!value) return 0;
    *value = kNoValue;
    double signal = 0.0;
    if (!cal.LevelToSignal(level, &signal)) return 0;
    if (IsBlackBody()) {
        float y = 0.0f;
        if (!cal.Interpolate(level, &y, extrapolate) || !std::isfinite(y)) return 0;
        *value = y;
        return 1;
    }
    const double object = (signal - background) / (m_dTransmission * m_dEmissivity);
    double t = 0.0;
    if (!cal.SignalToValue(object, &t, extrapolate)) return 0;
    const float y = static_cast<float>(t);
    if (!std::isfinite(y) || !(y > kAbsoluteZeroCelsius)) return 0;
    *value = y;
    return 1;
}

int CObjectParameters::Convert(const CCalibration& cal, float level, float* value, int extrapolate) const {
    double background = 0.0;
    if (!Background(cal, &background, extrapolate)) {
        if (value) *value = kNoValue;
        return 0;
    }
    return Convert(cal, level, background, value, extrapolate);
}

}  // namespace thermokit
