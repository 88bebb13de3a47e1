#include "thermokit/simulation/CRadiometricFit.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace thermokit {

namespace {

constexpr double kC2 = 0.01438786;

struct Inner {
    double sse = 0.0, R = 0.0, c = 0.0;
    bool ok = false;
};

// For fixed B and F: level = R x + c with x = 1 / (exp(B / T) - F), by least squares.
Inner Solve(const std::vector<double>& levels, const std::vector<double>& kelvin, double B, double F) {
    Inner r;
    const size_t n = levels.size();
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    std::vector<double> x(n);
    for (size_t k = 0; k < n; ++k) {
        const double e = std::exp(B / kelvin[k]) - F;
        if (!(e > 0.0) || !std::isfinite(e)) return r;
        x[k] = 1.0 / e;
        sx += x[k];
        sy += levels[k];
        sxx += x[k] * x[k];
        sxy += x[k] * levels[k];
    }
    const double den = n * sxx - sx * sx;
    if (!(std::fabs(den) > 0.0)) return r;
    r.R = (n * sxy - sx * sy) / den;
    r.c = (sy - r.R * sx) / n;
    for (size_t k = 0; k < n; ++k) {
        const double d = r.R * x[k] + r.c - levels[k];
        r.sse += d * d;
    }
    r.ok = std::isfinite(r.sse);
    return r;
}

}  // namespace

CRadiometricFit::Result CRadiometricFit::Fit(const std::vector<double>& levels, const std::vector<double>& kelvin,
                                             double bandCentreMicrons) {
    Result out;
    if (levels.size() != kelvin.size() || levels.size() < 4 || !(bandCentreMicrons > 0.0)) return out;
    double tmin = kelvin[0], tmax = kelvin[0];
    for (double t : kelvin) {
        if (!(t > 0.0)) return out;
        tmin = std::min(tmin, t);
        tmax = std::max(tmax, t);
    }
    if (!(tmax > tmin)) return out;

    // Scale-free search variables: B in units of the seed, F as it is.
    const double B0 = kC2 / (bandCentreMicrons * 1e-6);
    auto cost = [&](const std::array<double, 2>& v) {
        const Inner in = Solve(levels, kelvin, v[0] * B0, v[1]);
        return in.ok ? in.sse : HUGE_VAL;
    };
    std::array<std::array<double, 2>, 3> p = {{{1.0, 1.0}, {1.05, 1.0}, {1.0, 0.5}}};
    std::array<double, 3> f{};
    for (int i = 0; i < 3; ++i) f[i] = cost(p[i]);
    int it = 0;
    for (; it < 2000; ++it) {
        // Order: best first.
        std::array<int, 3> idx = {0, 1, 2};
        std::sort(idx.begin(), idx.end(), [&](int a, int b) { return f[a] < f[b]; });
        const auto pb = p[idx[0]], pm = p[idx[1]], pw = p[idx[2]];
        const double fb = f[idx[0]], fm = f[idx[1]], fw = f[idx[2]];
        p = {pb, pm, pw};
        f = {fb, fm, fw};
        const double spread = std::fabs(p[2][0] - p[0][0]) + std::fabs(p[2][1] - p[0][1]);
        if (spread < 1e-12) break;
        std::array<double, 2> c = {(p[0][0] + p[1][0]) / 2, (p[0][1] + p[1][1]) / 2};
        auto along = [&](double t) { return std::array<double, 2>{c[0] + t * (p[2][0] - c[0]), c[1] + t * (p[2][1] - c[1])}; };
        const auto r = along(-1.0);
        const double fr = cost(r);
        if (fr < f[0]) {
            const auto e = along(-2.0);
            const double fe = cost(e);
            if (fe < fr) p[2] = e, f[2] = fe;
            else p[2] = r, f[2] = fr;
        } else if (fr < f[1]) {
            p[2] = r, f[2] = fr;
        } else {
            const auto k = fr < f[2] ? along(-0.5) : along(0.5);
            const double fk = cost(k);
            if (fk < std::min(fr, f[2])) {
                p[2] = k, f[2] = fk;
            } else {
                for (int i = 1; i < 3; ++i) {
                    p[i] = {(p[i][0] + p[0][0]) / 2, (p[i][1] + p[0][1]) / 2};
                    f[i] = cost(p[i]);
                }
            }
        }
    }
    int best = 0;
    for (int i = 1; i < 3; ++i)
        if (f[i] < f[best]) best = i;
    const Inner in = Solve(levels, kelvin, p[best][0] * B0, p[best][1]);
    if (!in.ok) return out;
    out.ok = 1;
    out.B = p[best][0] * B0;
    out.F = p[best][1];
    out.R = in.R;
    out.offset = -in.c;
    out.rmsLevels = std::sqrt(in.sse / levels.size());
    out.iterations = it;
    return out;
}

_SCalibrationRBF CRadiometricFit::ToRecord(const Result& fit) {
    _SCalibrationRBF r{};
    r.m_byType = 1;
    r.m_fNonLinearity = 0.0f;
    r.m_nLevelZero = 0;
    r.m_nOffset = static_cast<int32_t>(std::lround(fit.offset));
    r.m_fScale = 1.0f;
    r.m_wNonLinear = 0;
    r.m_fR = static_cast<float>(fit.R);
    r.m_fB = static_cast<float>(fit.B);
    r.m_fF = static_cast<float>(fit.F);
    return r;
}

double CRadiometricFit::Level(const Result& fit, double kelvin) {
    return fit.R / (std::exp(fit.B / kelvin) - fit.F) - fit.offset;
}

}  // namespace thermokit
