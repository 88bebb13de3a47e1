#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CObjectParameters.h"
#include "thermokit/calibration/CPlanck.h"
#include "thermokit/simulation/CRadiometricFit.h"

using namespace thermokit;

namespace {

// A camera whose level is an offset plus a gain times the 3.7-4.8 um band radiance.
double Radiance(double celsius) {
    double l = 0.0;
    CPlanck().LuminanceEnergetique(&l, celsius + 273.15, 3.7, 4.8);
    return l;
}
double Level(double radiance) { return 900.0 + 420.0 * radiance; }

// The object temperature whose signal, mixed by the model, gives `measured`: bisection.
template <class Signal>
double Bisect(Signal signal, double measured, double eps, double tau, double reflected, double air) {
    const double background = tau * (1 - eps) * signal(reflected) + (1 - tau) * signal(air);
    double lo = -100.0, hi = 400.0;
    for (int i = 0; i < 100; ++i) {
        const double mid = 0.5 * (lo + hi);
        (tau * eps * signal(mid) + background < measured ? lo : hi) = mid;
    }
    return 0.5 * (lo + hi);
}

}  // namespace

// The measurement model solved through a curve of the camera's black-body points, against the
// inversion of the radiance model itself, and through a law fitted to the camera, against the
// inversion of the law's own signal; for emissivities, transmissions and temperatures across the
// range. Then the impossible scene, the black body, the ranges and the film's defaults.
TEST(ObjectParameters, SolvesTheMeasurementModelLikeABisection) {
    std::vector<double> levels, kelvin;
    CCalibration curve("CAM", 0);
    for (double c = -20.0; c <= 148.0; c += 4.0) {
        levels.push_back(Level(Radiance(c)));
        kelvin.push_back(c + 273.15);
        curve.Add(static_cast<float>(levels.back()), static_cast<float>(c));
    }
    const CRadiometricFit::Result fit = CRadiometricFit::Fit(levels, kelvin, 4.25);
    ASSERT_TRUE(fit.ok);
    const CCalibrationRBF law(CRadiometricFit::ToRecord(fit));
    const auto lawSignal = [&](double c) { return law.tempToObjSig(c + 273.15); };
    const auto planck = [](double c) { return Level(Radiance(c)); };
    // Temperatures on the curve's points: the curve is exact there and nearly so a level away.
    const double reflected = 60.0, air = 8.0;
    int checked = 0;
    for (const double eps : {1.0, 0.95, 0.7, 0.3})
        for (const double tau : {1.0, 0.8})
            for (const double t : {0.0, 36.0, 100.0}) {
                CObjectParameters p(eps, reflected, tau);
                ASSERT_TRUE(p.SetAtmosphereTemperature(air));
                const double background = tau * (1 - eps) * Radiance(reflected) + (1 - tau) * Radiance(air);
                const float level = std::floor(Level(tau * eps * Radiance(t) + background));
                float viaLaw = 0.0f, viaCurve = 0.0f;
                ASSERT_EQ(p.Convert(law, level, &viaLaw), 1);
                ASSERT_EQ(p.Convert(curve, level, &viaCurve), 1);
                EXPECT_NEAR(viaCurve, Bisect(planck, level, eps, tau, reflected, air), 0.015 / (eps * tau))
                    << eps << " " << tau << " " << t;
                const double measured = law.imgToPow(static_cast<int>(level), law.GetRBFParam().m_nOffset,
                                                     law.GetRBFParam().m_fScale);
                EXPECT_NEAR(viaLaw, Bisect(lawSignal, measured, eps, tau, reflected, air), 1e-3)
                    << eps << " " << tau << " " << t;
                // Assuming a black body instead is far off whenever the parameters matter.
                float naive = 0.0f;
                CObjectParameters().Convert(curve, level, &naive);
                if (eps < 0.9 || tau < 1.0) {
                    EXPECT_GT(std::fabs(naive - viaCurve), 1.0);
                }
                ++checked;
            }
    EXPECT_EQ(checked, 24);

    // A black body converts bit for bit as Interpolate; the level table holds the same values.
    const CObjectParameters black;
    const CLevelTable plain(law, black, 0x3FFF);
    for (const unsigned level : {1u, 2000u, 9000u, 16383u}) {
        float a = 0.0f, b = 0.0f;
        const int ok = black.Convert(law, static_cast<float>(level), &a);
        EXPECT_EQ(ok, law.Interpolate(static_cast<float>(level), &b) && b > -273.15f) << level;
        if (ok) {
            EXPECT_EQ(a, b);
        }
        EXPECT_EQ(plain.Succeeded(static_cast<unsigned short>(level)), ok);
    }

    // A cold object of low emissivity before hot surroundings: the dimmest levels lie below what
    // the reflection alone gives. NaN and not converted, in one level and in the table.
    CObjectParameters hot(0.3, 150.0);
    const float reflectedLevel = static_cast<float>(Level(0.7 * Radiance(150.0)));
    float v = 0.0f;
    EXPECT_EQ(hot.Convert(law, reflectedLevel - 50.0f, &v), 0);
    EXPECT_TRUE(std::isnan(v));
    EXPECT_EQ(hot.Convert(law, reflectedLevel + 500.0f, &v), 1);
    EXPECT_GT(v, -100.0f);
    const CLevelTable table(law, hot, 0x3FFF);
    EXPECT_EQ(table.Succeeded(static_cast<unsigned short>(reflectedLevel - 50.0f)), 0);
    EXPECT_TRUE(std::isnan(table.Value(static_cast<unsigned short>(reflectedLevel - 50.0f))));
    EXPECT_EQ(table.Value(static_cast<unsigned short>(reflectedLevel + 500.0f)), v);

    // Ranges and the film's defaults: a refused value leaves the previous one.
    CObjectParameters q;
    EXPECT_EQ(q.SetEmissivity(0.0), 0);
    EXPECT_EQ(q.SetEmissivity(1.0001), 0);
    EXPECT_EQ(q.SetEmissivity(NAN), 0);
    EXPECT_EQ(q.SetTransmission(0.0), 0);
    EXPECT_EQ(q.SetReflectedTemperature(-273.15), 0);
    EXPECT_EQ(q.SetDistance(-1.0), 0);
    EXPECT_EQ(q.IsBlackBody(), 1);
    ASSERT_EQ(q.SetDistance(100.0), 1);
    EXPECT_NEAR(q.GetTransmission(), std::exp(-0.1), 1e-12);
    std::string field;
    EXPECT_EQ(q.SetFromFilmHeader(0.0f, 0.0f, &field), 1);  // a cleared header keeps the defaults
    EXPECT_EQ(q.GetEmissivity(), 1.0);
    EXPECT_EQ(q.GetReflectedTemperature(), 20.0);
    EXPECT_EQ(q.SetFromFilmHeader(1.5f, 300.15f, &field), 0);
    EXPECT_EQ(field, "emissivity");
    EXPECT_EQ(q.GetEmissivity(), 1.0);
    EXPECT_NEAR(q.GetReflectedTemperature(), 27.0, 1e-4);
    EXPECT_NEAR(q.GetAtmosphereTemperature(), 27.0, 1e-4);  // follows the reflected temperature
}
