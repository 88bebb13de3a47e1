#include "thermokit/simulation/CSimScene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace thermokit {

namespace {
constexpr double kKelvin = 273.15;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kDegree = 0.017453292519943295;
}  // namespace

CSimScene CSimScene::Uniform(double celsius) {
    CSimScene s;
    s.m_Kind = kUniform;
    s.m_dUniform = celsius;
    return s;
}

CSimScene CSimScene::Materials(const MaterialsParams& params) {
    CSimScene s;
    s.m_Kind = kMaterials;
    s.m_Materials = params;
    return s;
}

CSimScene& CSimScene::SetSurface(const Surface& surface) {
    m_Surface = surface;
    return *this;
}

bool CSimScene::IsBlackBody() const {
    return m_Kind != kMaterials && m_Surface.emissivity == 1.0 && m_Surface.transmission == 1.0;
}

void CSimScene::Emissivity(int point, int line, float* emissivity) const {
    for (int y = 0; y < line; ++y) {
        const float e = static_cast<float>(m_Kind == kMaterials ? m_Materials.emissivity[Band(line, y)]
                                                                : m_Surface.emissivity);
        std::fill_n(emissivity + static_cast<size_t>(y) * point, point, e);
    }
}

CSimScene CSimScene::Plate(const PlateParams& params) {
    CSimScene s;
    s.m_Kind = kPlate;
    s.m_Plate = params;
    return s;
}

CSimScene CSimScene::Lockin(const LockinParams& params) {
    CSimScene s;
    s.m_Kind = kLockin;
    s.m_Lockin = params;
    return s;
}

std::string CSimScene::Describe() const {
    char text[200];
    switch (m_Kind) {
    case kPlate:
        std::snprintf(text, sizeof text, "simulated plate %.1f..%.1f degC, hot spot +%.1f K moving %.2f,%.2f px/frame",
                      m_Plate.leftCelsius, m_Plate.rightCelsius, m_Plate.spotRise, m_Plate.moveX, m_Plate.moveY);
        break;
    case kLockin:
        std::snprintf(text, sizeof text,
                      "simulated lock-in sample %.1f degC, %.2f K every %d frames, buried defect %+.0f %% / %+.1f deg",
                      m_Lockin.baseCelsius, m_Lockin.amplitude, m_Lockin.framesPerPeriod,
                      100.0 * m_Lockin.defectAmplitude, m_Lockin.defectPhaseDegrees);
        break;
    case kMaterials:
        std::snprintf(text, sizeof text,
                      "simulated plate %.1f..%.1f degC in bands of emissivity %.2f, %.2f, %.2f (top to bottom)",
                      m_Materials.leftCelsius, m_Materials.rightCelsius, m_Materials.emissivity[0],
                      m_Materials.emissivity[1], m_Materials.emissivity[2]);
        break;
    default: std::snprintf(text, sizeof text, "simulated black body %.2f degC", m_dUniform); break;
    }
    std::string out = text;
    if (!IsBlackBody()) {
        if (m_Kind != kMaterials) {
            std::snprintf(text, sizeof text, ", emissivity %.3g", m_Surface.emissivity);
            out += text;
        }
        std::snprintf(text, sizeof text, ", reflected %.1f degC", m_Surface.reflectedCelsius);
        out += text;
        if (m_Surface.transmission != 1.0) {
            std::snprintf(text, sizeof text, ", air transmission %.3g at %.1f degC", m_Surface.transmission,
                          m_Surface.atmosphereCelsius);
            out += text;
        }
    }
    return out;
}

void CSimScene::SpotCentre(int point, int line, unsigned long frame, double& x, double& y) const {
    x = m_Plate.spotX * point + m_Plate.moveX * static_cast<double>(frame);
    y = m_Plate.spotY * line + m_Plate.moveY * static_cast<double>(frame);
}

double CSimScene::DefectWeight(int point, int line, int x, int y) const {
    const LockinParams& p = m_Lockin;
    const double dx = x - p.defectX * point, dy = y - p.defectY * line;
    const double r = std::sqrt(dx * dx + dy * dy);
    const double radius = p.defectRadius * point;
    const double blur = p.defectBlur * point > 0.5 ? p.defectBlur * point : 0.5;
    // A disk with a smooth logistic edge: heat spreads above a buried flaw.
    return 1.0 / (1.0 + std::exp((r - radius) / blur));
}

void CSimScene::LockinTruth(int point, int line, std::vector<float>& amplitude, std::vector<float>& phase) const {
    const size_t n = static_cast<size_t>(point) * static_cast<size_t>(line);
    amplitude.assign(n, 0.0f);
    phase.assign(n, 0.0f);
    if (m_Kind != kLockin) return;
    const LockinParams& p = m_Lockin;
    for (int y = 0; y < line; ++y)
        for (int x = 0; x < point; ++x) {
            const double w = DefectWeight(point, line, x, y);
            const double slope = point > 1 ? static_cast<double>(x) / (point - 1) : 0.0;
            const size_t i = static_cast<size_t>(y) * point + x;
            amplitude[i] = static_cast<float>(p.amplitude * (1.0 + p.amplitudeSlope * slope) * (1.0 + p.defectAmplitude * w));
            phase[i] = static_cast<float>(p.phaseDegrees + p.defectPhaseDegrees * w);
        }
}

void CSimScene::Temperature(int point, int line, unsigned long frame, double time, float* kelvin) const {
    const size_t n = static_cast<size_t>(point) * static_cast<size_t>(line);
    switch (m_Kind) {
    case kUniform: {
        const float t = static_cast<float>(m_dUniform + kKelvin);
        for (size_t i = 0; i < n; ++i) kelvin[i] = t;
        return;
    }
    case kPlate: {
        const PlateParams& p = m_Plate;
        double cx = 0.0, cy = 0.0;
        SpotCentre(point, line, frame, cx, cy);
        const double sigma = p.spotSigma * point > 0.5 ? p.spotSigma * point : 0.5;
        const double inv2s2 = 1.0 / (2.0 * sigma * sigma);
        for (int y = 0; y < line; ++y) {
            const double fy = line > 1 ? static_cast<double>(y) / (line - 1) - 0.5 : 0.0;
            const double dy2 = (y - cy) * (y - cy);
            for (int x = 0; x < point; ++x) {
                const double fx = point > 1 ? static_cast<double>(x) / (point - 1) : 0.0;
                const double dx = x - cx;
                const double t = p.leftCelsius + (p.rightCelsius - p.leftCelsius) * fx + p.verticalSpan * fy +
                                 p.spotRise * std::exp(-(dx * dx + dy2) * inv2s2);
                kelvin[static_cast<size_t>(y) * point + x] = static_cast<float>(t + kKelvin);
            }
        }
        return;
    }
    case kMaterials: {
        const MaterialsParams& p = m_Materials;
        for (int y = 0; y < line; ++y)
            for (int x = 0; x < point; ++x) {
                const double fx = point > 1 ? static_cast<double>(x) / (point - 1) : 0.0;
                kelvin[static_cast<size_t>(y) * point + x] =
                    static_cast<float>(p.leftCelsius + (p.rightCelsius - p.leftCelsius) * fx + kKelvin);
            }
        return;
    }
    case kLockin: {
        const LockinParams& p = m_Lockin;
        std::vector<float> amplitude, phase;
        LockinTruth(point, line, amplitude, phase);
        (void)time;
        const int period = p.framesPerPeriod > 0 ? p.framesPerPeriod : 1;
        const double wt = kTwoPi * static_cast<double>(frame % static_cast<unsigned long>(period)) / period;
        for (size_t i = 0; i < n; ++i) {
            const double t = p.baseCelsius + amplitude[i] * std::sin(wt - phase[i] * kDegree);
            kelvin[i] = static_cast<float>(t + kKelvin);
        }
        return;
    }
    }
}

}  // namespace thermokit
