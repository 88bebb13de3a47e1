#include "thermokit/calibration/CCalibrationRBF.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace thermokit {

THERMOKIT_IMPLEMENT_DYNAMIC(CCalibrationRBF, CCalibration)

void _SCalibrationRBF::ToFilmBlock(uint8_t out[kFilmBlockSize]) const {
    std::memcpy(out, this, 43);  // the named fields, m_fParam35 and m_fParam39
    out[kFilmBlockPresent] = 1;
}

int _SCalibrationRBF::FromFilmBlock(const uint8_t in[kFilmBlockSize]) {
    std::memset(static_cast<void*>(this), 0, sizeof *this);
    std::memcpy(static_cast<void*>(this), in, 43);
    return in[kFilmBlockPresent] == 1 ? 1 : 0;
}

CCalibrationRBF::CCalibrationRBF(const _SCalibrationRBF& param) : CCalibration(std::string(), 0), m_bLaw(1), m_Param(param) {}

CCalibrationRBF::CCalibrationRBF(const char* fileName, int* result) : CCalibration(fileName, result) {}

CCalibrationRBF::CCalibrationRBF(std::string cameraName, int extensionTypes)
    : CCalibration(std::move(cameraName), extensionTypes) {}

CCalibrationRBF::CCalibrationRBF(const char* cameraName, int extensionTypes) : CCalibration(cameraName, extensionTypes) {}

int CCalibrationRBF::IsCalibrationFactorEqual(const _SCalibrationRBF* p) const {
    if (!p) return 0;
    const _SCalibrationRBF& a = m_Param;
    return a.m_byType == p->m_byType && a.m_fNonLinearity == p->m_fNonLinearity && a.m_nLevelZero == p->m_nLevelZero &&
                   a.m_nOffset == p->m_nOffset && a.m_fScale == p->m_fScale && a.m_wNonLinear == p->m_wNonLinear &&
                   a.m_wParam19 == p->m_wParam19 && a.m_wParam21 == p->m_wParam21 && a.m_fR == p->m_fR &&
                   a.m_fB == p->m_fB && a.m_fF == p->m_fF && a.m_fParam35 == p->m_fParam35 &&
                   a.m_fParam39 == p->m_fParam39 && a.m_fParam43 == p->m_fParam43 && a.m_fParam47 == p->m_fParam47 &&
                   a.m_fParam51 == p->m_fParam51 && a.m_fParam55 == p->m_fParam55 && a.m_fParam59 == p->m_fParam59 &&
                   a.m_fParam63 == p->m_fParam63 && a.m_fParam67 == p->m_fParam67 && a.m_fParam71 == p->m_fParam71 &&
                   a.m_fParam75 == p->m_fParam75
               ? 1
               : 0;
}

namespace {

// Truncates toward zero and clamps into [1, 65535]; anything that would
// truncate below 1 (and NaN) gives 1.
unsigned short ClampLevel(double level) {
    if (!(level >= 1.0)) return 1;
    if (level >= 65535.0) return 65535;
    return static_cast<unsigned short>(static_cast<int>(level));
}

}  // namespace

double CCalibrationRBF::imgToPow(int level, int offset, float scale) const {
    if (level == 0) return 0.0;
    if (level < kMinLevel) level = kMinLevel;
    if (level > kMaxLevel) level = kMaxLevel;
    if (m_Param.m_wNonLinear == 0) {
        return static_cast<double>(static_cast<int64_t>(level) + offset) * scale;
    }
    const double d = static_cast<double>(static_cast<int64_t>(level) - m_Param.m_nLevelZero);
    const double k = m_Param.m_fNonLinearity;
    const double den = 1.0 - d * k;
    if (k > 0.0 && den < kMinNonLinearDenominator) return kPoleSignal;
    return d * scale / den + offset;
}

unsigned short CCalibrationRBF::powToImg(double signal, int offset, float scale) const {
    if (signal == 0.0) return 0;
    if (m_Param.m_wNonLinear == 0) {
        if (scale < kMinDivisor) return 1;
        return ClampLevel(signal / scale - offset + 0.5);
    }
    const double t = signal - offset;
    const double den = static_cast<double>(m_Param.m_fNonLinearity) * t + scale;
    if (den < kMinDivisor) return 1;
    // No rounding term here, unlike the linear law (kept).
    return ClampLevel(std::trunc(t / den) + m_Param.m_nLevelZero);
}

double CCalibrationRBF::tempToObjSig(double T) const {
    if (!m_bLaw || !(T > 0.0)) return 0.0;
    const double x = m_Param.m_fB / T;
    if (x >= kMaxExponent) return 0.0;
    double e = std::exp(x);
    const double F = m_Param.m_fF;
    if (F <= 1.0) {
        if (e < kMinExpRatio) e = kMinExpRatio;
    } else if (e < F * kMinExpRatio) {
        e = F * kMinExpRatio;
    }
    return m_Param.m_fR / (e - F);
}

double CCalibrationRBF::objSigToDblTemp(double S) const {
    if (!m_bLaw || !(S > 0.0)) return 0.0;
    const double F = m_Param.m_fF;
    double q = m_Param.m_fR / S + F;
    if (F > 1.0) {
        if (q < F * kMinExpRatio) q = F * kMinExpRatio;
    } else if (q < kMinExpRatio) {
        q = kMinExpRatio;
    }
    return m_Param.m_fB / std::log(q);
}

unsigned short CCalibrationRBF::tempToImg(double kelvin) const {
    return powToImg(tempToObjSig(kelvin), m_Param.m_nOffset, m_Param.m_fScale);
}

double CCalibrationRBF::imgToDblTemp(int level) const {
    return objSigToDblTemp(imgToPow(level, m_Param.m_nOffset, m_Param.m_fScale));
}

int CCalibrationRBF::Interpolate(float level, float* temperature, int extrapolate) const {
    if (!m_bLaw) return CCalibration::Interpolate(level, temperature, extrapolate);
    if (!temperature) return 0;
    *temperature = 0.0f;
    if (!(level > 0.0f)) return 0;
    // Levels beyond the 16-bit range clamp inside imgToPow; keep the conversion defined.
    const int lv = level >= 65536.0f ? 65536 : static_cast<int>(level);
    *temperature = static_cast<float>(imgToDblTemp(lv) - kKelvin);
    return 1;
}

int CCalibrationRBF::FindAbscisse(float temperature, float* level, int extrapolate) const {
    if (!m_bLaw) return CCalibration::FindAbscisse(temperature, level, extrapolate);
    if (!level) return 0;
    *level = 0.0f;
    const double T = temperature + kKelvin;
    if (!(T > 0.0)) return 0;
    *level = static_cast<float>(tempToImg(T));
    return 1;
}

int CCalibrationRBF::LevelToSignal(float level, double* signal) const {
    if (!m_bLaw) return CCalibration::LevelToSignal(level, signal);
    if (!signal || !(level > 0.0f)) return 0;
    const int lv = level >= 65536.0f ? 65536 : static_cast<int>(level);  // as Interpolate
    const double s = imgToPow(lv, m_Param.m_nOffset, m_Param.m_fScale);
    if (!(s > 0.0) || !std::isfinite(s)) return 0;
    *signal = s;
    return 1;
}

int CCalibrationRBF::SignalToValue(double signal, double* value, int extrapolate) const {
    if (!m_bLaw) return CCalibration::SignalToValue(signal, value, extrapolate);
    if (!value || !(signal > 0.0)) return 0;
    const double t = objSigToDblTemp(signal) - kKelvin;
    if (!std::isfinite(t)) return 0;
    *value = t;
    return 1;
}

int CCalibrationRBF::ValueToSignal(double value, double* signal, int extrapolate) const {
    if (!m_bLaw) return CCalibration::ValueToSignal(value, signal, extrapolate);
    const double T = value + kKelvin;
    if (!signal || !(T > 0.0)) return 0;
    const double s = tempToObjSig(T);
    if (!std::isfinite(s)) return 0;
    *signal = s;
    return 1;
}

std::string CCalibrationRBF::CheckLaw(const _SCalibrationRBF& law) {
    auto text = [](double v) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%g", v);
        return std::string(buf);
    };
    const struct {
        const char* name;
        double value;
        bool positive;  // must be above 0, not only finite
    } fields[] = {{"R (m_fR)", law.m_fR, true},
                  {"B (m_fB)", law.m_fB, true},
                  {"F (m_fF)", law.m_fF, false},
                  {"scale (m_fScale)", law.m_fScale, true},
                  {"non-linearity (m_fNonLinearity)", law.m_fNonLinearity, false}};
    const size_t used = law.m_wNonLinear ? 5 : 4;  // the linear law does not read the non-linearity
    for (size_t i = 0; i < used; ++i) {
        const auto& f = fields[i];
        if (!std::isfinite(f.value)) return f.name + std::string(" is ") + text(f.value) + ", not a finite number";
        if (f.positive && !(f.value > 0.0))
            return f.name + std::string(" is ") + text(f.value) + "; the law needs it above 0";
    }
    return std::string();
}

float* CCalibrationRBF::GetCurveX() {
    if (!m_bLaw) return CCalibration::GetCurveX();
    float* X = m_pCurveX.data();
    const float* Y = m_pCurveY.data();
    for (int i = 0; i < 2; ++i) {
        float x = 0.0f;
        FindAbscisse(Y[i], &x, 1);
        if (x <= 0.0f) x = 0.0f;
        else if (x >= 65536.0f) x = 65536.0f;
        X[i] = x;
    }
    return X;
}

}  // namespace thermokit
