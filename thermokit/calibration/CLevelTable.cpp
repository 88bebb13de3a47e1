#include "thermokit/calibration/CLevelTable.h"

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CObjectParameters.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelKernels.h"

namespace thermokit {

void CLevelTable::Build(const CCalibration& calibration, unsigned short maxLevel, int extrapolate, float failValue) {
    Build(calibration, CObjectParameters(), maxLevel, extrapolate, failValue);
}

void CLevelTable::Build(const CCalibration& calibration, const CObjectParameters& parameters, unsigned short maxLevel,
                        int extrapolate, float failValue) {
    const size_t size = static_cast<size_t>(maxLevel) + 1;
    m_wMaxLevel = maxLevel;
    m_afValue.assign(size, failValue);
    m_abOk.assign(size, 0);
    double background = 0.0;
    // Without a background (the surroundings cannot be converted) every level fails.
    if (parameters.Background(calibration, &background, extrapolate)) {
        for (size_t level = 0; level < size; ++level) {
            float y = failValue;
            if (parameters.Convert(calibration, static_cast<float>(level), background, &y, extrapolate)) {
                m_afValue[level] = y;
                m_abOk[level] = 1;
            }
        }
    }
    Expand();  // always: Apply reads the widened copy, which must not be a former table's
}

void CLevelTable::Expand() {
    m_afLookup.clear();
    if (m_afValue.size() >= 65536) return;
    m_afLookup.resize(65536);
    for (size_t level = 0; level < m_afLookup.size(); ++level) m_afLookup[level] = m_afValue[level & m_wMaxLevel];
}

void CLevelTable::Apply(const unsigned short* levels, long n, float* out) const {
    if (m_afValue.empty() || n <= 0 || !levels || !out) return;
    // The kernel moves the values' bits: floats in, the same floats out. The
    // temperatures are usually read at once, so they stay in the cache.
    const bool whole = m_afLookup.size() == 65536;
    const float* table = whole ? m_afLookup.data() : m_afValue.data();
    kernels::Pixel().lookup32(reinterpret_cast<const uint32_t*>(table), whole ? 0xFFFF : m_wMaxLevel, levels, n,
                              reinterpret_cast<uint32_t*>(out), false);
}

void ConvertLevels(const CCalibration& calibration, const unsigned short* levels, long n, unsigned short maxLevel,
                   float* out, int extrapolate, float failValue) {
    ConvertLevels(calibration, CObjectParameters(), levels, n, maxLevel, out, extrapolate, failValue);
}

void ConvertLevels(const CCalibration& calibration, const CObjectParameters& parameters, const unsigned short* levels,
                   long n, unsigned short maxLevel, float* out, int extrapolate, float failValue) {
    if (n <= 0 || !levels || !out) return;
    if (n > static_cast<long>(maxLevel) + 1) {
        CLevelTable(calibration, parameters, maxLevel, extrapolate, failValue).Apply(levels, n, out);
        return;
    }
    double background = 0.0;
    const int any = parameters.Background(calibration, &background, extrapolate);
    for (long i = 0; i < n; ++i) {
        float y = failValue;
        const unsigned short level = static_cast<unsigned short>(levels[i] & maxLevel);
        out[i] = any && parameters.Convert(calibration, static_cast<float>(level), background, &y, extrapolate)
                     ? y
                     : failValue;
    }
}

void ConvertLevels(const CCalibration* calibration, const unsigned short* levels, long n, unsigned short maxLevel,
                   float* out, int extrapolate, float failValue) {
    if (!calibration) return;
    ConvertLevels(*calibration, levels, n, maxLevel, out, extrapolate, failValue);
}

void ConvertFrame(const CCalibration& calibration, const CFrame& frame, float* out, int extrapolate, float failValue) {
    const long n = static_cast<long>(frame.GetPoint()) * static_cast<long>(frame.GetLine());
    ConvertLevels(calibration, frame.GetBuffer(), n, frame.GetMaxLevel(), out, extrapolate, failValue);
}

}  // namespace thermokit
