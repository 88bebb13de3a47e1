#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "thermokit/acquisition/CLockin.h"

using namespace thermokit;

namespace {

std::vector<unsigned short> Levels(size_t n, uint32_t seed) {
    std::vector<unsigned short> v(n);
    for (auto& x : v) {
        seed = seed * 1664525u + 1013904223u;
        x = static_cast<unsigned short>(seed >> 18);  // 14 bits
    }
    return v;
}

DATA_LOCKIN Params() {
    DATA_LOCKIN p{};
    return p;
}

}  // namespace

// The sums follow the rule for one pixel done by hand, frames with and
// without the reference image mixed, read midway and at the end (every kernel
// variant matches the scalar one: KernelVariantsTest).
TEST(Lockin, SumsFollowTheRule) {
    const unsigned short point = 37, line = 23;
    const size_t n = size_t{point} * line;
    CLockin l(point, line, 14, 0);
    std::vector<double> reference(n);
    for (size_t i = 0; i < n; ++i) reference[i] = 1000.25 + static_cast<double>(i % 97) * 3.3;
    double re = 0, im = 0;
    for (int f = 0; f < 23; ++f) {
        DATA_LOCKIN p = Params();
        p.bSubtractReference = f >= 13 && f < 16;
        l.SetParameters(&p);
        auto img = Levels(n, static_cast<uint32_t>(f * 7));
        const double angle = 2 * M_PI * f / 24 + 0.1;
        ASSERT_EQ(l.Accumulate(img.data(), static_cast<int32_t>(n), angle, reference.data()), 1);
        const double d = img[n - 1] - (p.bSubtractReference ? reference[n - 1] : 0.0);
        re += d * std::cos(angle);
        im += d * std::sin(angle);
        if (f == 9 || f == 22) {
            EXPECT_EQ(l.GetReal()[n - 1], re) << f;
            EXPECT_EQ(l.GetImag()[n - 1], im) << f;
        }
    }
    EXPECT_EQ(l.GetFrame(), 23u);
}

TEST(Lockin, RefusedFramesLeaveTheSumsAlone) {
    CLockin l(4, 3, 14, 0);
    std::vector<unsigned short> img(12, 500);
    EXPECT_EQ(l.GetModule(0, 0), nullptr);  // nothing accumulated
    EXPECT_EQ(l.GetPhase(0, 0), nullptr);
    ASSERT_EQ(l.Accumulate(img.data(), 12, 0.0, nullptr), 1);
    EXPECT_EQ(l.Accumulate(img.data(), 11, 0.0, nullptr), 0);
    EXPECT_EQ(l.Accumulate(img.data(), 13, 0.0, nullptr), 0);
    EXPECT_EQ(l.Accumulate(static_cast<CFrame*>(nullptr), 0.0, nullptr), 0);
    DATA_LOCKIN p = Params();
    p.bSubtractReference = 1;
    l.SetParameters(&p);
    EXPECT_EQ(l.Accumulate(img.data(), 12, 0.0, nullptr), 0);  // no reference to subtract
    EXPECT_EQ(l.GetFrame(), 1u);
    EXPECT_EQ(l.GetReal()[5], 500.0);
    CFrame other(3, 3, 14, 0, 0);
    p.bSubtractReference = 0;
    l.SetParameters(&p);
    EXPECT_EQ(l.Accumulate(&other, 0.0, nullptr), 0);  // 9 pixels, not 12
    CFrame same(4, 3, 14, 0, 0);
    same.SetPixel(1, 1, 100);
    EXPECT_EQ(l.Accumulate(&same, 0.0, nullptr), 1);
    EXPECT_EQ(l.GetReal()[5], 500.0 + 100.0);
    EXPECT_EQ(l.GetFrame(), 2u);
    l.Reset();
    EXPECT_EQ(l.GetFrame(), 0u);
    EXPECT_EQ(l.GetReal()[5], 0.0);
    EXPECT_EQ(l.GetModule(0, 0), nullptr);
}

TEST(Lockin, ModuleAndPhaseOfOneFrameAtAngleZero) {
    CLockin l(3, 1, 14, 0);
    unsigned short img[3] = {1234, 0, 16383};
    DATA_LOCKIN p = Params();
    p.nPhaseOffset = 10;
    p.dPhaseOffset = 0.5;
    l.SetParameters(&p);
    ASSERT_EQ(l.Accumulate(img, 3, 0.0, nullptr), 1);
    const double* m = l.GetModule(0, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m[0], 1234.0);  // the level itself
    EXPECT_EQ(m[1], 0.0);
    EXPECT_EQ(m[2], 16383.0);
    const double* ph = l.GetPhase(0, 0);
    EXPECT_EQ(ph[0], 10 + 0.5 - 90);
    EXPECT_EQ(ph[1], 0.0);  // module 0 is not above the threshold 0
    // A second identical frame: sums double, the module is divided by 2.
    ASSERT_EQ(l.Accumulate(img, 3, 0.0, nullptr), 1);
    EXPECT_EQ(l.ModuleCalculated(), 0);
    EXPECT_EQ(l.GetModule(0, 0)[0], 1234.0);
    // Scaled by (A - B).
    p.bScaleModule = 1;
    p.dScaleA = 3.5;
    p.dScaleB = 1.0;
    l.SetParameters(&p);
    EXPECT_EQ(l.ModuleCalculated(), 0);
    EXPECT_EQ(l.GetModule(0, 0)[0], 1234.0 * 2.5);
}

TEST(Lockin, PhaseOfExactlyZeroRealSum) {
    // d = +50 at +0.3 rad and d = -50 at -0.3 rad: the real sums cancel
    // exactly, the imaginary ones add up.
    CLockin l(1, 1, 14, 0);
    DATA_LOCKIN p = Params();
    p.bSubtractReference = 1;
    p.nPhaseOffset = 10;
    p.dPhaseOffset = 0.5;
    l.SetParameters(&p);
    double reference[1] = {100.0};
    unsigned short a[1] = {150}, b[1] = {50};
    ASSERT_EQ(l.Accumulate(a, 1, 0.3, reference), 1);
    ASSERT_EQ(l.Accumulate(b, 1, -0.3, reference), 1);
    ASSERT_EQ(l.GetReal()[0], 0.0);
    ASSERT_GT(l.GetImag()[0], 29.0);
    EXPECT_EQ(l.GetPhase(0, 0)[0], 10 + 0.5 - 90);  // not 90 + offsets - 90
    EXPECT_EQ(l.GetModule(0, 0)[0], std::sqrt(l.GetImag()[0] * l.GetImag()[0]) / 2);
}

TEST(Lockin, PhaseWrapThresholdAndSignedModule) {
    auto phaseFor = [](int offset, double offsetD) {
        CLockin l(1, 1, 14, 0);
        DATA_LOCKIN p = Params();
        p.nPhaseOffset = offset;
        p.dPhaseOffset = offsetD;
        l.SetParameters(&p);
        unsigned short img[1] = {100};
        l.Accumulate(img, 1, 0.0, nullptr);
        return l.GetPhase(0, 0)[0];
    };
    EXPECT_EQ(phaseFor(270, 0.0), -180.0);  // exactly 180 maps to -180
    EXPECT_EQ(phaseFor(-90, 0.0), 180.0);   // exactly -180 maps to 180
    EXPECT_EQ(phaseFor(280, 0.0), -170.0);
    EXPECT_EQ(phaseFor(-100, 0.0), 170.0);
    EXPECT_EQ(phaseFor(630, 0.0), -180.0);  // 540
    EXPECT_EQ(phaseFor(90, 0.0), 0.0);
    EXPECT_EQ(phaseFor(0, -0.25), -90.25);

    // The threshold: a module equal to it gives phase 0.
    CLockin l(2, 1, 14, 0);
    DATA_LOCKIN p = Params();
    p.dThreshold = 100.0;
    l.SetParameters(&p);
    unsigned short img[2] = {100, 101};
    l.Accumulate(img, 2, 0.0, nullptr);
    const double* ph = l.GetPhase(0, 0);
    EXPECT_EQ(ph[0], 0.0);
    EXPECT_EQ(ph[1], -90.0);

    // Signed module: |phase| of exactly 90 keeps it positive, just above negates it.
    CLockin s(2, 1, 14, 0);
    p = Params();
    p.bSignedModule = 1;
    p.nPhaseOffset = 180;
    s.SetParameters(&p);
    s.Accumulate(img, 2, 0.0, nullptr);
    EXPECT_EQ(s.GetPhase(0, 0)[0], 90.0);
    EXPECT_EQ(s.GetModule(0, 0)[0], 100.0);
    p.dPhaseOffset = 0.0001;
    s.SetParameters(&p);
    EXPECT_GT(s.GetPhase(0, 0)[0], 90.0);
    EXPECT_EQ(s.GetModule(0, 0)[0], -100.0);
    EXPECT_EQ(s.GetModule(0, 0)[1], -101.0);
}

TEST(Lockin, ResultCachingRules) {
    CLockin l(4, 4, 14, 0);
    std::vector<unsigned short> img(16);
    for (int i = 0; i < 16; ++i) img[static_cast<size_t>(i)] = static_cast<unsigned short>(i * i);
    l.Accumulate(img.data(), 16, 0.0, nullptr);
    double* m = l.GetModule(0, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(l.ModuleCalculated(), 1);
    m[5] = -1.0;  // a mark: a cached result comes back as it was left
    EXPECT_EQ(l.GetModule(0, 0)[5], -1.0);
    EXPECT_EQ(l.GetModule(0, 1)[5], 25.0);  // forced
    // Another filter computes from the sums again, then stays.
    const double lowPassed = l.GetModule(CLockin::FILTER_LOWPASS, 0)[5];
    EXPECT_EQ(lowPassed, (0.0 + 1 + 4 + 16 + 25 + 36 + 64 + 81 + 100) * 0.1111111111111111);
    EXPECT_EQ(l.GetModule(CLockin::FILTER_LOWPASS, 0)[5], lowPassed);  // not filtered twice
    EXPECT_EQ(l.GetModule(7, 0)[5], 25.0);  // an unknown filter is none
    // The phase keeps its own cache.
    double* ph = l.GetPhase(0, 0);
    ph[0] = 42.0;
    EXPECT_EQ(l.GetPhase(0, 0)[0], 42.0);
    EXPECT_EQ(l.PhaseCalculated(), 1);
    l.Accumulate(img.data(), 16, 0.0, nullptr);  // a new frame clears both
    EXPECT_EQ(l.ModuleCalculated(), 0);
    EXPECT_EQ(l.PhaseCalculated(), 0);
    EXPECT_EQ(l.GetPhase(0, 0)[0], 0.0);  // module 0 at pixel 0
}

TEST(Lockin, FiltersBordersAndSmallImages) {
    // 4 x 4, values 1..16 row after row.
    std::vector<double> img(16);
    for (int i = 0; i < 16; ++i) img[static_cast<size_t>(i)] = i + 1;
    auto low = img;
    CLockin::LowPass(low.data(), 4, 4);
    const double k = 0.1111111111111111;
    const double c11 = (1.0 + 2 + 3 + 5 + 6 + 7 + 9 + 10 + 11) * k, c21 = (2.0 + 3 + 4 + 6 + 7 + 8 + 10 + 11 + 12) * k;
    const double c12 = (5.0 + 6 + 7 + 9 + 10 + 11 + 13 + 14 + 15) * k, c22 = (6.0 + 7 + 8 + 10 + 11 + 12 + 14 + 15 + 16) * k;
    const std::vector<double> expectLow = {c11, c11, c21, c21, c11, c11, c21, c21,
                                           c12, c12, c22, c22, c12, c12, c22, c22};
    EXPECT_EQ(low, expectLow);

    // Median of a neighbourhood out of order, with a repeated value.
    std::vector<double> med = {9, 1, 8, 0, 2, 7, 3, 3, 6, 4, 5, 100};  // 4 x 3
    CLockin::Median(med.data(), 4, 3);
    // (1,1): {9,1,8,2,7,3,6,4,5} -> 5; (2,1): {1,8,0,7,3,3,4,5,100} -> 4.
    const std::vector<double> expectMed = {5, 5, 4, 4, 5, 5, 4, 4, 5, 5, 4, 4};
    EXPECT_EQ(med, expectMed);

    // Fewer than three points or lines: untouched.
    for (auto [p, q] : {std::pair{2, 5}, std::pair{5, 2}, std::pair{1, 1}}) {
        std::vector<double> v(static_cast<size_t>(p * q));
        for (size_t i = 0; i < v.size(); ++i) v[i] = static_cast<double>(i * 3 % 7);
        auto a = v, b = v;
        CLockin::LowPass(a.data(), p, q);
        CLockin::Median(b.data(), p, q);
        EXPECT_EQ(a, v);
        EXPECT_EQ(b, v);
    }
    // Through GetModule on a two-line lock-in: filtered equals unfiltered.
    CLockin l(5, 2, 14, 0);
    std::vector<unsigned short> levels = {1, 50, 3, 70, 5, 9, 8, 7, 6, 5};
    l.Accumulate(levels.data(), 10, 0.0, nullptr);
    const std::vector<double> plain(l.GetModule(0, 0), l.GetModule(0, 0) + 10);
    const double* filtered = l.GetModule(CLockin::FILTER_MEDIAN, 0);
    EXPECT_EQ(std::vector<double>(filtered, filtered + 10), plain);
}
