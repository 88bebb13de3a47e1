#pragma once
// Fits the closed-form radiometric law of CCalibrationRBF to measured points:
// level = R / (exp(B / T) - F) - offset (linear level law, scale 1), T in
// kelvin. For fixed B and F the law is linear in R and the offset, which are
// then solved exactly by least squares; B and F are found by a Nelder-Mead
// search over that inner solution.
#include <vector>

#include "thermokit/calibration/CCalibrationRBF.h"

namespace thermokit {

class CRadiometricFit {
public:
    struct Result {
        int ok = 0;
        double R = 0.0, B = 0.0, F = 0.0, offset = 0.0;
        double rmsLevels = 0.0;   // root mean square of the level residuals
        int iterations = 0;
    };

    // levels[k] measured at kelvin[k]; bandCentreMicrons seeds B. At least
    // four points with distinct temperatures are needed (ok 0 otherwise).
    static Result Fit(const std::vector<double>& levels, const std::vector<double>& kelvin, double bandCentreMicrons);

    // The law as the record films carry: linear law, scale 1, offset rounded
    // to a whole level (R solved again for the rounded offset is not needed:
    // half a level is far below the noise).
    static _SCalibrationRBF ToRecord(const Result& fit);

    // Level of the law at T (kelvin), before any rounding.
    static double Level(const Result& fit, double kelvin);
};

}  // namespace thermokit
