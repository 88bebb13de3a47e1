#include "thermokit/calibration/CCalibrationEx.h"

#include <cstring>

namespace thermokit {

THERMOKIT_IMPLEMENT_DYNAMIC(CCalibrationEx, CCalibration)

namespace {

// +1 strictly increasing, -1 strictly decreasing, 0 neither (n >= 2).
int Monotony(const float* v, int n) {
    bool up = true, down = true;
    for (int i = 1; i < n; ++i) {
        if (!(v[i] > v[i - 1])) up = false;
        if (!(v[i] < v[i - 1])) down = false;
    }
    return up ? 1 : (down ? -1 : 0);
}

}  // namespace

CCalibrationEx::CCalibrationEx(const char* fileName, int* result) : CCalibration(fileName, result) {
    if (!m_bValid) {
        m_strValidation = "the file could not be read or does not carry the tag";
        return;
    }
    if (!ValidateCalibFile()) {
        m_bValid = 0;
        if (result) *result = 1;
        return;
    }
    // Regenerate at the housing temperature, in kelvin this time.
    SetCameraTemperature(static_cast<float>(GetHousingTemp() + 273.15), 1);
    if (result) *result = m_bValid ? 0 : 1;
}

int CCalibrationEx::SetHousingTemperature(float celsius) {
    SetHousingTemp(celsius);
    return SetCameraTemperature(static_cast<float>(celsius + 273.15), 0);
}

int CCalibrationEx::ValidateCalibFile() {
    m_strValidation.clear();
    const CALIBRATION_HEADER& h = m_Header;
    if (std::memcmp(h.m_szTag, "EXP", 4) != 0) return Invalid("wrong tag");
    if (std::memcmp(h.m_szVersion, "5.70", 4) != 0) return Invalid("wrong version");
    if (h.m_byLensFormatSize != kLensFormatSize) return Invalid("wrong lens-format record size");
    if (h.m_byExtensionTypes & ~(kExtendedClasses | kLensFormats)) return Invalid("unknown extension flags");
    const int n = h.m_wPoint;
    if (n > kMaxPoints) return Invalid("too many points");
    if (n < 2 && m_aExtClass.empty()) return Invalid("fewer than two points");
    if (n >= 2) {
        if (Monotony(m_pCurveX.data(), n) == 0) return Invalid("levels not monotonic");
        if (Monotony(m_pCurveY.data(), n) == 0) return Invalid("values not monotonic");
    }
    if (m_aExtClass.size() > static_cast<size_t>(kMaxClasses)) return Invalid("too many extended classes");
    for (size_t c = 0; c < m_aExtClass.size(); ++c) {
        const EXT_CLASS& e = m_aExtClass[c];
        if (c > 0 && !(e.m_fKey > m_aExtClass[c - 1].m_fKey)) return Invalid("extended classes out of order");
        if (e.m_nCount < 1 || e.m_nCount > kMaxClassSamples) return Invalid("extended class sample count");
        if (e.m_nCount >= 2 && Monotony(e.m_afCameraTemperature.data(), e.m_nCount) != 1)
            return Invalid("camera temperatures not ascending");
    }
    if (m_aLensFormat.size() > static_cast<size_t>(kMaxLensFormats)) return Invalid("too many lens formats");
    for (const LENS_FORMAT& l : m_aLensFormat) {
        if (!std::memchr(l.m_szLens, 0, sizeof l.m_szLens)) return Invalid("lens name not terminated");
    }
    return 1;
}

}  // namespace thermokit
