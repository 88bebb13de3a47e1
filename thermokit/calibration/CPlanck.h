#pragma once
// Black-body radiance by Planck's law, its integration over a detector's band
// and the photon and energy budget of one pixel behind an optic.
//
// Wavelengths are micrometres at the interface and metres inside the law;
// temperatures are kelvin.
#include <cstdint>

namespace thermokit {

class CPlanck {
public:
    // Second radiation constant, m.K.
    static constexpr double kC2 = 0.01438786;
    // First radiation constant 1.191062e-16 W.m2.sr-1 divided by 3 (the Simpson third).
    static constexpr double kEnergyFactor = 3.970206666666666e-17;
    // Twice the speed of light in m/s divided by 3 (the Simpson third).
    static constexpr double kPhotonFactor = 199861638.66666666;
    static constexpr double kMicro = 1e-6;
    static constexpr double kPercent = 0.01;
    static constexpr double kPi = 3.141592653589793;
    // Temperatures at or below this are refused by the band integrals.
    static constexpr double kMinTemperature = 10.0;

    // Every member starts at zero; the caller sets all inputs before Calculer.
    CPlanck() = default;
    CPlanck(const CPlanck&) = default;
    CPlanck& operator=(const CPlanck&) = default;
    virtual ~CPlanck();

    // lambda^-5 / (exp(C2 / (lambda T)) - 1), lambda in metres, T in kelvin; no constant factor.
    double PlanckEnergetique(double T, double lambda) const;
    // lambda^-4 / (exp(C2 / (lambda T)) - 1), same units, no constant factor.
    double PlanckPhotonique(double T, double lambda) const;

    // Band radiance between lambda1 and lambda2 (micrometres), W.m-2.sr-1, into *out.
    // 0 (out untouched) unless T > 10 K, both wavelengths > 0 and lambda2 > lambda1.
    int LuminanceEnergetique(double* out, double T, double lambda1, double lambda2) const;
    // Band photon radiance, photons.s-1.m-2.sr-1; same rules.
    int LuminancePhotonique(double* out, double T, double lambda1, double lambda2) const;

    // Fills the six results from the inputs; 0 (results untouched) when a band integral is refused.
    int Calculer();

    // Inputs.
    double m_dTemperature = 0.0;        // K
    double m_dLambda1 = 0.0;            // um
    double m_dLambda2 = 0.0;            // um
    double m_dTransmission1 = 0.0;      // %
    double m_dTransmission2 = 0.0;      // %
    double m_dFactor = 0.0;
    double m_dQuantumEfficiency = 0.0;  // %
    double m_dIntegrationTime = 0.0;    // us
    double m_dReserved = 0.0;           // carried and copied only
    double m_dFNumber = 0.0;
    double m_dPixelPitchX = 0.0;        // um
    double m_dPixelPitchY = 0.0;        // um
    uint16_t m_wParam1 = 0;             // carried and copied only
    uint16_t m_wParam2 = 0;
    uint16_t m_wParam3 = 0;
    // Results.
    double m_dRadianceEnergy = 0.0;     // W.m-2.sr-1
    double m_dRadiancePhoton = 0.0;     // photons.s-1.m-2.sr-1
    double m_dPixelArea = 0.0;          // m2
    double m_dPhotonFlux = 0.0;         // photons.s-1 on the pixel
    double m_dPower = 0.0;              // W on the pixel
    double m_dElectrons = 0.0;          // per integration

private:
    // Simpson sum over 20 sub-intervals, weighted by factor; power is 5 or 4.
    static int Integrate(double* out, double T, double lambda1, double lambda2, int power, double factor);
};

}  // namespace thermokit
