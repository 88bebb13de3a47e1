#include "thermokit/calibration/CPlanck.h"

#include <cmath>

namespace thermokit {

CPlanck::~CPlanck() = default;

double CPlanck::PlanckEnergetique(double T, double lambda) const {
    return std::pow(lambda, -5.0) / (std::exp(kC2 / (lambda * T)) - 1.0);
}

double CPlanck::PlanckPhotonique(double T, double lambda) const {
    return std::pow(lambda, -4.0) / (std::exp(kC2 / (lambda * T)) - 1.0);
}

int CPlanck::Integrate(double* out, double T, double lambda1, double lambda2, int power, double factor) {
    if (!(T > kMinTemperature) || !(lambda1 > 0.0) || !(lambda2 > 0.0) || !(lambda2 > lambda1)) return 0;
    const double a = lambda1 * kMicro;
    const double b = lambda2 * kMicro;
    const double h = (b - a) * 0.05;
    const double invT = 1.0 / T;
    const double p = -static_cast<double>(power);
    auto f = [&](double x) { return std::pow(x, p) / (std::exp(kC2 * invT / x) - 1.0); };
    // Kept on purpose: the lower end point x = a is never evaluated, so the sum
    // lacks its weight-1 term and the result is slightly below a full Simpson sum.
    double s = 0.0;
    double x = a;
    for (int pass = 0; pass < 10; ++pass) {
        x += h;
        s += 4.0 * f(x);
        x += h;
        s += (pass == 9 ? 1.0 : 2.0) * f(x);
    }
    *out = h * s * factor;
    return 1;
}

int CPlanck::LuminanceEnergetique(double* out, double T, double lambda1, double lambda2) const {
    return Integrate(out, T, lambda1, lambda2, 5, kEnergyFactor);
}

int CPlanck::LuminancePhotonique(double* out, double T, double lambda1, double lambda2) const {
    return Integrate(out, T, lambda1, lambda2, 4, kPhotonFactor);
}

int CPlanck::Calculer() {
    if (!LuminanceEnergetique(&m_dRadianceEnergy, m_dTemperature, m_dLambda1, m_dLambda2)) return 0;
    if (!LuminancePhotonique(&m_dRadiancePhoton, m_dTemperature, m_dLambda1, m_dLambda2)) return 0;
    m_dPixelArea = (m_dPixelPitchX * kMicro) * (m_dPixelPitchY * kMicro);
    const double g = m_dPixelArea * kPi / (4.0 * (m_dFNumber * m_dFNumber));
    const double k = (m_dTransmission1 * kPercent) * (m_dTransmission2 * kPercent) * m_dFactor;
    m_dPower = g * m_dRadianceEnergy * k;
    m_dPhotonFlux = g * m_dRadiancePhoton * k;
    m_dElectrons = m_dPhotonFlux * (m_dQuantumEfficiency * kPercent) * (m_dIntegrationTime * kMicro);
    return 1;
}

}  // namespace thermokit
