// Cos4 vignetting factors: the geometry, the kept quirks (quarter-pixel
// offset, pixel-unit distance of the maximal angle, 16-bit wrap), copies and
// saving.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "thermokit/film/CPtrFloat.h"
#include "thermokit/nuc/CCos4.h"
#include "thermokit/platform/File.h"

using namespace thermokit;

TEST(Cos4, FactorsFollowTheFieldAngle) {
    CCos4 cos4(64, 48);
    cos4.SetPixelSize(25.0f);  // micrometres
    cos4.SetDistance(20.0f);   // millimetres
    ASSERT_EQ(cos4.Calculate(""), 1);
    const float* f = cos4.GetCoef();
    // 1 / cos^4 of the angle of each pixel, the centre shifted by a quarter pixel.
    const double p = 0.025, d = 20.0;
    for (int j = 0; j < 48; ++j)
        for (int i = 0; i < 64; ++i) {
            const double dx = (64 - 0.5) * p * 0.5 - i * p;
            const double dy = (48 - 0.5) * p * 0.5 - j * p;
            const double c = d / std::sqrt(dx * dx + dy * dy + d * d);
            ASSERT_NEAR(f[64 * j + i], 1.0 / (c * c * c * c), 2e-6) << i << "," << j;
        }
    // Nearest the axis: pixel (32, 24), a quarter pixel off in both directions.
    EXPECT_NEAR(f[64 * 24 + 32], 1.0, 1e-6);
    const auto largest = std::max_element(f, f + 64 * 48) - f;
    EXPECT_EQ(largest, 0);  // the corner farthest from the shifted centre
    EXPECT_GT(f[0], f[64 * 48 - 1]);
    EXPECT_GT(f[64 * 48 - 1], 1.0f);

    // A negative distance gives the same factors; 0 is refused and changes nothing.
    std::vector<float> positive(f, f + 64 * 48);
    cos4.SetDistance(-20.0f);
    ASSERT_EQ(cos4.Calculate(""), 1);
    EXPECT_TRUE(std::equal(positive.begin(), positive.end(), cos4.GetCoef()));
    cos4.GetCoef()[5] = 123.0f;
    cos4.SetDistance(0.0f);
    EXPECT_EQ(cos4.Calculate(""), 0);
    EXPECT_EQ(cos4.GetCoef()[5], 123.0f);

    // No pixel size: every pixel is on the axis.
    CCos4 flat(8, 8);
    flat.SetDistance(10.0f);
    ASSERT_EQ(flat.Calculate(""), 1);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(flat.GetCoef()[i], 1.0f);
}

TEST(Cos4, AnglesAndHypotheses) {
    CCos4 cos4(640, 512);
    cos4.SetDistance(1000.0f);  // pixel units for the angle
    const double expected = std::atan(std::sqrt(640.0 * 640 + 512.0 * 512) / 2000.0) * 57.29577951307855;
    EXPECT_FLOAT_EQ(cos4.GetMaxAngle(), static_cast<float>(expected));
    EXPECT_EQ(cos4.CheckAngleHypothesis(), expected < 10.0 ? 1 : 0);
    cos4.SetDistance(5000.0f);
    EXPECT_EQ(cos4.CheckAngleHypothesis(), 1);
    cos4.SetDistance(100.0f);
    EXPECT_EQ(cos4.CheckAngleHypothesis(), 0);

    // Ratio exactly 1.5 is not enough.
    cos4.SetDistance(30.0f);
    cos4.SetDiameter(20.0f);
    EXPECT_DOUBLE_EQ(cos4.GetRatio(), 1.5);
    EXPECT_EQ(cos4.CheckRatioHypothesis(), 0);
    cos4.SetDistance(30.1f);
    EXPECT_EQ(cos4.CheckRatioHypothesis(), 1);
    EXPECT_EQ(cos4.GetDistance(), 30.1f);
    EXPECT_EQ(cos4.GetDiameter(), 20.0f);
}

TEST(Cos4, ApplyFormsAndTheirArithmetic) {
    CCos4 cos4(3, 3);
    float* f = cos4.GetCoef();
    const float factors[9] = {1.2f, 2.0f, 0.5f, 3.0f, 1.0f, 0.25f, 7.0f, 1.5f, 0.1f};
    std::copy(factors, factors + 9, f);

    // 16-bit: truncated, and a result above 65535 keeps its low 16 bits.
    unsigned short v[9] = {60000, 3, 7, 1, 9, 4, 10000, 3, 65535};
    EXPECT_EQ(cos4.ApplyMultiply(v, 9), 1);
    EXPECT_EQ(v[0], 72000 - 65536);  // 6464
    EXPECT_EQ(v[1], 6);
    EXPECT_EQ(v[2], 3);  // 3.5 truncated
    EXPECT_EQ(v[6], 70000 - 65536);
    EXPECT_EQ(v[8], static_cast<unsigned short>(65535 * static_cast<double>(0.1f)));
    unsigned short w[3] = {7, 7, 7};
    EXPECT_EQ(cos4.ApplyDivide(w, 3), 1);
    EXPECT_EQ(w[0], static_cast<unsigned short>(7 / static_cast<double>(1.2f)));
    EXPECT_EQ(w[1], 3);
    EXPECT_EQ(w[2], 14);
    // n below 1 does nothing.
    unsigned short keep = 5;
    EXPECT_EQ(cos4.ApplyMultiply(&keep, 0), 1);
    EXPECT_EQ(cos4.ApplyMultiply(&keep, -4), 1);
    EXPECT_EQ(keep, 5);

    // Floating forms, four at a time plus the rest: as a plain loop in double.
    for (long n : {1L, 4L, 7L, 9L}) {
        std::vector<float> fl(9), flRef(9);
        std::vector<double> db(9), dbRef(9);
        for (int i = 0; i < 9; ++i) {
            fl[i] = flRef[i] = 1.1f * static_cast<float>(i + 1);
            db[i] = dbRef[i] = 1.1 * (i + 1);
        }
        cos4.ApplyMultiply(fl.data(), n);
        cos4.ApplyDivide(db.data(), n);
        for (long i = 0; i < 9; ++i) {
            const float ef = i < n ? static_cast<float>(static_cast<double>(flRef[i]) * f[i]) : flRef[i];
            const double ed = i < n ? dbRef[i] / static_cast<double>(f[i]) : dbRef[i];
            ASSERT_EQ(fl[i], ef) << n << " " << i;
            ASSERT_EQ(db[i], ed) << n << " " << i;
        }
        cos4.ApplyDivide(fl.data(), n);
        cos4.ApplyMultiply(db.data(), n);
    }
}

TEST(Cos4, CopiesShareTheFactorsAndCalculateSaves) {
    CCos4 a(16, 8);
    a.SetPixelSize(17.0f);
    a.SetDistance(10.0f);
    a.SetDiameter(5.0f);
    CCos4 b(a);
    EXPECT_EQ(b.GetCoef(), a.GetCoef());
    EXPECT_EQ(b.GetDistance(), 10.0f);
    EXPECT_EQ(b.GetPixelSize(), 17.0f);
    ASSERT_EQ(a.Calculate(""), 1);
    EXPECT_EQ(b.GetCoef()[0], a.GetCoef()[0]);
    CCos4 c(2, 2);
    c = a;
    EXPECT_EQ(c.GetCoef(), a.GetCoef());
    EXPECT_EQ(c.GetPoint(), 16);

    const std::string name = ::testing::TempDir() + "tk_cos4_" + std::to_string(::getpid()) + ".film";
    ASSERT_EQ(a.Calculate(name), 1);
    CPtrFloat film(name, 0, 0, 1);
    ASSERT_EQ(film.IsValid(), 1);
    EXPECT_EQ(film.GetPoint(), 16);
    EXPECT_EQ(film.GetLine(), 8);
    EXPECT_EQ(film.GetComment(), "Generated with Cos4 Utility");
    EXPECT_EQ(film.GetSpecialUnit(), 0);
    std::vector<double> v(128);
    ASSERT_EQ(film.ReadFrame(0, v.data(), 128), 1);
    for (int i = 0; i < 128; ++i) ASSERT_EQ(v[i], static_cast<double>(a.GetCoef()[i]));
    File::Remove(name);
}
