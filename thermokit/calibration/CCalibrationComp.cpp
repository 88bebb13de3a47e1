#include "thermokit/calibration/CCalibrationComp.h"

#include "thermokit/environment/CRegistry.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace thermokit {

THERMOKIT_IMPLEMENT_DYNAMIC(CCalibrationComp, CCalibrationRBF)

namespace {

// Coefficients come from a packed record: copied out, never read through a misaligned pointer.
double Polynomial(const void* coefficients, unsigned degree, double x) {
    double c[CCnucFile::kMaxDegree + 1];
    std::memcpy(c, coefficients, sizeof c);
    if (degree > static_cast<unsigned>(CCnucFile::kMaxDegree)) degree = CCnucFile::kMaxDegree;
    double r = 0.0;
    for (int i = static_cast<int>(degree); i >= 0; --i) r = r * x + c[i];
    return r;
}

}  // namespace

CCalibrationComp::CCalibrationComp(int extensionTypes, std::string cameraName)
    : CCalibrationRBF(std::move(cameraName), extensionTypes) {
    LoadStoredCameraTemperature();
}

CCalibrationComp::CCalibrationComp(const _SCalibrationRBF& param) : CCalibrationRBF(param) {
    LoadStoredCameraTemperature();
}

CCalibrationComp::CCalibrationComp(const char* fileName, int* result) : CCalibrationRBF(fileName, result) {
    LoadStoredCameraTemperature();
}

void CCalibrationComp::LoadStoredCameraTemperature() {
    // The acquisition software keeps the camera's last measured temperature
    // (kelvin) under "TempCamera" in the setup key; without it the
    // compensation waits for SetCameraTemperature.
    CRegistry setup(CRegistry::Setup);
    const double kelvin = setup.GetDOUBLEValue(kCameraTemperatureValue, kNoTemperature);
    if (kelvin > 0.0 && static_cast<float>(kelvin) != kNoTemperature)
        SetCameraTemperature(static_cast<float>(kelvin), 0);
}

int CCalibrationComp::SetCalibrationFactor(const CCnucFile::_CNUC_CALIBRATION* cal) {
    if (!cal) {
        m_bCnucCal = 0;
        std::memset(&m_CnucCal, 0, sizeof m_CnucCal);
        return 0;
    }
    m_CnucCal = *cal;
    m_bCnucCal = 1;
    return (cal->m_dwFlags & CCnucFile::kRecordValid) ? 1 : 0;
}

int CCalibrationComp::GetCalibrationFactor(CCnucFile::_CNUC_CALIBRATION* cal) const {
    if (!cal || !m_bCnucCal) return 0;
    *cal = m_CnucCal;
    return 1;
}

int CCalibrationComp::IsCalibrationFactorEqual(const CCnucFile::_CNUC_CALIBRATION* cal) const {
    if (!cal || !m_bCnucCal) return 0;
    return std::memcmp(cal, &m_CnucCal, sizeof m_CnucCal) == 0 ? 1 : 0;
}

int CCalibrationComp::GetDrift(double* drift, double* gain, int* usable) const {
    if (usable) *usable = 1;
    const float t = GetCameraTemperature();
    if (!m_bCnucCal || !(m_CnucCal.m_dwFlags & CCnucFile::kRecordValid) || t == kNoTemperature) return 0;
    if ((m_CnucCal.m_dwFlags & CCnucFile::kTemperatureRangeValid) &&
        !(t >= m_CnucCal.m_fCameraTempMin && t <= m_CnucCal.m_fCameraTempMax)) {
        if (usable) *usable = 0;
        return 0;
    }
    const double dT = static_cast<double>(t) - m_CnucCal.m_fRefCameraTemp;
    double d = 0.0, g = 1.0;
    if (m_CnucCal.m_dwFlags & CCnucFile::kLevelDriftValid)
        d = Polynomial(m_CnucCal.m_adLevelDrift, m_CnucCal.m_wLevelDriftDegree, dT);
    if (m_CnucCal.m_dwFlags & CCnucFile::kGainDriftValid)
        g = Polynomial(m_CnucCal.m_adGainDrift, m_CnucCal.m_wGainDriftDegree, dT);
    if (!std::isfinite(d) || !std::isfinite(g) || !(std::fabs(g) >= kMinDivisor)) {
        if (usable) *usable = 0;
        return 0;
    }
    if (drift) *drift = d;
    if (gain) *gain = g;
    return 1;
}

int CCalibrationComp::Interpolate(float level, float* temperature, int extrapolate) const {
    double d, g;
    int usable;
    if (!GetDrift(&d, &g, &usable)) {
        if (!usable) return 0;
        return CCalibrationRBF::Interpolate(level, temperature, extrapolate);
    }
    const float reference = static_cast<float>((level - d) / g);
    return CCalibrationRBF::Interpolate(reference, temperature, extrapolate);
}

int CCalibrationComp::LevelToSignal(float level, double* signal) const {
    double d, g;
    int usable;
    if (!GetDrift(&d, &g, &usable)) {
        if (!usable) return 0;
        return CCalibrationRBF::LevelToSignal(level, signal);
    }
    return CCalibrationRBF::LevelToSignal(static_cast<float>((level - d) / g), signal);
}

int CCalibrationComp::FindAbscisse(float temperature, float* level, int extrapolate) const {
    double d, g;
    int usable;
    const int compensated = GetDrift(&d, &g, &usable);
    if (!compensated && !usable) return 0;
    if (!level || !CCalibrationRBF::FindAbscisse(temperature, level, extrapolate)) return 0;
    if (compensated) *level = static_cast<float>(*level * g + d);
    return 1;
}

int CCalibrationComp::ConvTempDlToIt(float temperature, float integration, float* level, int extrapolate) const {
    float l;
    if (!level || !FindAbscisse(temperature, &l, extrapolate)) return 0;
    if (m_bCnucCal && (m_CnucCal.m_dwFlags & CCnucFile::kIntegrationValid) && integration > 0.0f &&
        m_CnucCal.m_fRefIntegration > 0.0f) {
        const double dark = m_CnucCal.m_fDarkLevel;
        l = static_cast<float>(dark + (l - dark) * (static_cast<double>(integration) / m_CnucCal.m_fRefIntegration));
    }
    *level = l;
    return 1;
}

int CCalibrationComp::SetRectDetector(CRect rect) {
    CCalibrationRBF::SetRectDetector(rect);
    if (!m_bCnucCal || m_CnucCal.m_nWindowWidth == 0) return 1;
    const STRUCT_FORMAT f = CRectToFormat(rect);
    return (f.x == m_CnucCal.m_nWindowX && f.y == m_CnucCal.m_nWindowY && f.width == m_CnucCal.m_nWindowWidth &&
            f.height == m_CnucCal.m_nWindowHeight)
               ? 1
               : 0;
}

unsigned short CCalibrationComp::GetSize() const { return CCalibrationRBF::GetSize(); }

float* CCalibrationComp::GetCurveX() {
    if (!m_bLaw) return CCalibrationRBF::GetCurveX();
    // Every point follows the compensated law (the law alone refreshes two).
    const int n = std::max<int>(2, GetSize());
    float* X = m_pCurveX.data();
    const float* Y = m_pCurveY.data();
    for (int i = 0; i < n; ++i) {
        float x = 0.0f;
        FindAbscisse(Y[i], &x, 1);
        X[i] = x <= 0.0f ? 0.0f : (x >= 65536.0f ? 65536.0f : x);
    }
    return X;
}

float* CCalibrationComp::GetCurveY() { return CCalibrationRBF::GetCurveY(); }

int CCalibrationComp::GetCalibModifyParam() {
    if (m_bCnucCal && (m_CnucCal.m_dwFlags & CCnucFile::kRecordValid)) return 2;
    return CCalibrationRBF::GetCalibModifyParam();
}

}  // namespace thermokit
