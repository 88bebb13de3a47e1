#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <stdexcept>

#include "TestSupport.h"
#include "thermokit/calibration/CEmissivity.h"
#include "thermokit/calibration/CPlanck.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/calibration/CSpectralResponse.h"

using namespace thermokit;
using thermokit::test::TempPath;

namespace {

// Planck's law with the same constants, integrated by a fine composite Simpson rule.
double FineBandIntegral(double T, double l1, double l2, int power, double constant, int intervals) {
    const double a = l1 * 1e-6, b = l2 * 1e-6, h = (b - a) / intervals;
    auto f = [&](double x) { return std::pow(x, -power) / (std::exp(CPlanck::kC2 / (x * T)) - 1.0); };
    double s = f(a) + f(b);
    for (int i = 1; i < intervals; ++i) s += (i % 2 ? 4.0 : 2.0) * f(a + i * h);
    return s * h / 3.0 * constant;
}

}  // namespace

TEST(Planck, BandRadianceMatchesFineIntegralLessTheOmittedLowerEnd) {
    CPlanck p;
    struct Band { double T, l1, l2; } bands[] = {{300.0, 3.0, 5.0}, {300.0, 8.0, 12.0}, {1000.0, 1.5, 5.1}, {250.0, 7.5, 13.0}};
    for (const Band& b : bands) {
        double e = 0.0, q = 0.0;
        ASSERT_EQ(p.LuminanceEnergetique(&e, b.T, b.l1, b.l2), 1);
        ASSERT_EQ(p.LuminancePhotonique(&q, b.T, b.l1, b.l2), 1);
        const double h = (b.l2 - b.l1) * 1e-6 * 0.05;
        const double a = b.l1 * 1e-6;
        // The Simpson sum leaves out the weight-1 term of the lower end point.
        const double omittedE = h * p.PlanckEnergetique(b.T, a) * CPlanck::kEnergyFactor;
        const double omittedQ = h * p.PlanckPhotonique(b.T, a) * CPlanck::kPhotonFactor;
        const double fineE = FineBandIntegral(b.T, b.l1, b.l2, 5, 3.0 * CPlanck::kEnergyFactor, 4000);
        const double fineQ = FineBandIntegral(b.T, b.l1, b.l2, 4, 3.0 * CPlanck::kPhotonFactor, 4000);
        EXPECT_GT(fineE - e, 0.5 * omittedE);  // the result really lacks the end point
        // What remains is the 20-interval Simpson error, far below the omitted term.
        EXPECT_NEAR(e + omittedE, fineE, 3e-3 * omittedE) << b.T << " " << b.l1;
        EXPECT_NEAR(q + omittedQ, fineQ, 3e-3 * omittedQ) << b.T << " " << b.l1;
        EXPECT_NEAR(e + omittedE, fineE, 5e-5 * fineE);
    }
    // A known figure: 3-5 um at 300 K is close to 1.9 W.m-2.sr-1.
    double e = 0.0;
    p.LuminanceEnergetique(&e, 300.0, 3.0, 5.0);
    EXPECT_GT(e, 1.7);
    EXPECT_LT(e, 2.0);
}

TEST(Planck, RejectedBandsLeaveTheOutputUntouched) {
    CPlanck p;
    double out = -7.0;
    EXPECT_EQ(p.LuminanceEnergetique(&out, 10.0, 3.0, 5.0), 0);
    EXPECT_EQ(p.LuminancePhotonique(&out, 10.0, 3.0, 5.0), 0);
    EXPECT_EQ(p.LuminanceEnergetique(&out, 300.0, 4.0, 4.0), 0);
    EXPECT_EQ(p.LuminanceEnergetique(&out, 300.0, 5.0, 4.0), 0);
    EXPECT_EQ(p.LuminanceEnergetique(&out, 300.0, 0.0, 4.0), 0);
    EXPECT_EQ(p.LuminanceEnergetique(&out, 300.0, -1.0, 4.0), 0);
    EXPECT_EQ(out, -7.0);
    EXPECT_EQ(p.LuminanceEnergetique(&out, 10.0001, 3.0, 5.0), 1);
    EXPECT_GE(out, 0.0);
    EXPECT_NE(out, -7.0);
}

TEST(Planck, PixelBudget) {
    CPlanck p;
    p.m_dTemperature = 303.15;
    p.m_dLambda1 = 3.7;
    p.m_dLambda2 = 4.1;
    p.m_dTransmission1 = 90.0;
    p.m_dTransmission2 = 80.0;
    p.m_dFactor = 0.5;
    p.m_dQuantumEfficiency = 70.0;
    p.m_dIntegrationTime = 1000.0;
    p.m_dFNumber = 2.0;
    p.m_dPixelPitchX = 15.0;
    p.m_dPixelPitchY = 20.0;
    p.m_dReserved = 42.0;
    p.m_wParam2 = 7;
    ASSERT_EQ(p.Calculer(), 1);
    double e, q;
    p.LuminanceEnergetique(&e, 303.15, 3.7, 4.1);
    p.LuminancePhotonique(&q, 303.15, 3.7, 4.1);
    EXPECT_EQ(p.m_dRadianceEnergy, e);
    EXPECT_EQ(p.m_dRadiancePhoton, q);
    EXPECT_DOUBLE_EQ(p.m_dPixelArea, 15e-6 * 20e-6);
    const double g = 15e-6 * 20e-6 * 3.141592653589793 / 16.0;
    const double k = 0.9 * 0.8 * 0.5;
    EXPECT_DOUBLE_EQ(p.m_dPower, g * e * k);
    EXPECT_DOUBLE_EQ(p.m_dPhotonFlux, g * q * k);
    EXPECT_DOUBLE_EQ(p.m_dElectrons, g * q * k * 0.7 * 1e-3);
    // Copies carry every member, the unused ones too.
    CPlanck copy = p;
    EXPECT_EQ(copy.m_dReserved, 42.0);
    EXPECT_EQ(copy.m_wParam2, 7);

    // A refused band stops before the results change.
    p.m_dTemperature = 5.0;
    p.m_dPower = -1.0;
    EXPECT_EQ(p.Calculer(), 0);
    EXPECT_EQ(p.m_dPower, -1.0);
    EXPECT_EQ(p.m_dRadianceEnergy, e);
}

TEST(Emissivity, StaysWithinZeroAndOne) {
    EXPECT_EQ(CEmissivity(-0.1).GetEmissivity(), 1.0);
    EXPECT_EQ(CEmissivity(0.0).GetEmissivity(), 0.0);
    CEmissivity e(0.95);
    e.SetEmissivity(1.5);
    EXPECT_EQ(e.GetEmissivity(), 0.95);
    e.SetEmissivity(1.0);
    EXPECT_EQ(e.GetEmissivity(), 1.0);
    CEmissivity c(0.3);
    e = c;
    EXPECT_EQ(e.GetEmissivity(), 0.3);
}

TEST(ResponseFile, AddAndTransmissionLookup) {
    CResponseFile f(nullptr);
    EXPECT_EQ(f.Add(3.0, 0.5), 1);
    EXPECT_EQ(f.Add(3.0, 0.9), 0);  // equal wavelength refused
    EXPECT_EQ(f.Add(2.0, 0.9), 0);
    EXPECT_EQ(f.Add(4.0, 0.7), 1);
    EXPECT_EQ(f.Add(5.0, 0.1), 1);
    EXPECT_EQ(f.Remove(4.0), 1);
    EXPECT_EQ(f.GetArray().size(), 3u);

    // The result and the transmission written (-1 where none is).
    const auto at = [&f](double lambda, int extrapolate) {
        double t = -1.0;
        return std::pair{f.GetTransmission(lambda, t, extrapolate), t};
    };
    EXPECT_EQ(at(3.0, 0), std::pair(1, 0.5));  // exact, even without extrapolation
    EXPECT_EQ(at(3.5, 0).first, 1);
    EXPECT_DOUBLE_EQ(at(3.5, 0).second, 0.6);
    EXPECT_EQ(at(5.0, 0), std::pair(1, 0.1));
    EXPECT_EQ(at(2.5, 0), std::pair(0, -1.0));
    EXPECT_EQ(at(5.5, 0), std::pair(0, -1.0));
    EXPECT_DOUBLE_EQ(at(2.5, 1).second, 0.4);   // line through the first two
    EXPECT_DOUBLE_EQ(at(6.0, 1).second, -0.5);  // line through the last two
    EXPECT_EQ(at(6.0, 1).first, 1);
}

TEST(ResponseFile, ExtrapolationWithFewerThanTwoRecordsThrows) {
    CResponseFile empty(nullptr);
    double t = 0.0;
    EXPECT_EQ(empty.GetTransmission(1.0, t, 0), 0);
    EXPECT_THROW(empty.GetTransmission(1.0, t, 1), std::out_of_range);
    CResponseFile one(nullptr);
    one.Add(3.0, 0.5);
    EXPECT_EQ(one.GetTransmission(3.0, t, 1), 1);
    EXPECT_THROW(one.GetTransmission(2.0, t, 1), std::out_of_range);
    EXPECT_THROW(one.GetTransmission(4.0, t, 1), std::out_of_range);
}

TEST(ResponseFile, TextFormatRoundTrip) {
    const std::string path = TempPath("resp.rsp");
    CResponseFile f(nullptr);
    f.Add(3.5, 0.25);
    f.Add(4.0, 0.875);
    ASSERT_EQ(f.Save(path.c_str()), 1);
    EXPECT_EQ(thermokit::test::ReadText(path), "RSP\nLambda\tTransmission\n3.500000\t0.250000\n4.000000\t0.875000\n");
    EXPECT_EQ(f.GetFileName(), path);
    CResponseFile back(path.c_str());
    ASSERT_EQ(back.GetArray().size(), 2u);
    EXPECT_EQ(back.GetArray()[1].m_dLambda, 4.0);
    EXPECT_EQ(back.GetArray()[1].m_dTransmission, 0.875);
    EXPECT_EQ(f.Save("/nonexistent-dir/x.rsp"), 0);
}

TEST(ResponseFile, ReadingIsTolerantButChecksTheTag) {
    const std::string path = TempPath("r.rsp");
    // Only the first token is compared; non-increasing records are dropped; bad numbers become 0.
    thermokit::test::WriteText(path, "RSP\nX\tY\n1.0\t0.5\n0.5\t0.9\n2.0\tabc\n3.0\t0.7\n");
    CResponseFile f(path.c_str());
    ASSERT_EQ(f.GetArray().size(), 3u);
    EXPECT_EQ(f.GetArray()[1].m_dLambda, 2.0);
    EXPECT_EQ(f.GetArray()[1].m_dTransmission, 0.0);
    // The file is read token by token: words after the tag pass, and shift the
    // tokens, so that the column header becomes a record (0, 0).
    thermokit::test::WriteText(path, "RSP extra words\nLambda\tTransmission\n1.0\t0.5\n");
    CResponseFile shifted(path.c_str());
    ASSERT_EQ(shifted.GetArray().size(), 2u);
    EXPECT_EQ(shifted.GetArray()[0].m_dLambda, 0.0);
    EXPECT_EQ(shifted.GetArray()[1].m_dTransmission, 0.5);

    thermokit::test::WriteText(path, "rsp\nLambda\tTransmission\n1.0\t0.5\n");
    EXPECT_TRUE(CResponseFile(path.c_str()).GetArray().empty());
    EXPECT_TRUE(CResponseFile("/nonexistent/response.rsp").GetArray().empty());
    // An overlong token is read in pieces, never past the buffer.
    thermokit::test::WriteText(path, "RSP\nLambda\tTransmission\n" + std::string(500, '7') + "\t0.5\n");
    CResponseFile longToken(path.c_str());
    EXPECT_LE(longToken.GetArray().size(), 10u);
}

TEST(SpectralResponse, GridAndIndex) {
    CSpectralResponse r(3.0, 5.0, 4);
    EXPECT_EQ(r.GetStep(), 0.5);
    EXPECT_EQ(r.GetLambda()[0], 3.0);
    EXPECT_EQ(r.GetLambda()[3], 4.5);  // the upper bound is never a sample
    EXPECT_EQ(r.GetResponse()[2], 1.0);
    // The last cell (from 4.5) answers -1 (kept).
    std::vector<int> index;
    for (double lambda : {3.0, 3.49, 3.5, 4.4, 4.5, 5.0, 2.9, 5.1}) index.push_back(r.GetLamdbaIndex(lambda));
    EXPECT_EQ(index, (std::vector<int>{0, 0, 1, 2, -1, -1, -1, -1}));
    CSpectralResponse none(3.0, 5.0, 0);
    EXPECT_EQ(none.GetLamdbaIndex(4.0), -1);
}

TEST(SpectralResponse, ResponsesMultiplyAndCopiesShare) {
    CSpectralResponse r(3.0, 5.0, 4);  // samples 3.0, 3.5, 4.0, 4.5
    double l1[] = {3.4, 4.2};
    double t1[] = {0.5, 0.5};
    EXPECT_EQ(r.AddResponse(l1, t1, 2), 1);
    double l2[] = {3.0, 4.0};
    double t2[] = {0.5, 0.25};
    EXPECT_EQ(r.AddResponse(l2, t2, 2), 1);
    EXPECT_DOUBLE_EQ(r.GetResponse()[0], 0.5);         // outside the first table
    EXPECT_DOUBLE_EQ(r.GetResponse()[1], 0.5 * 0.375);
    EXPECT_DOUBLE_EQ(r.GetResponse()[2], 0.5 * 0.25);
    EXPECT_DOUBLE_EQ(r.GetResponse()[3], 1.0);         // outside both
    double bad[] = {4.0, 3.0};
    EXPECT_EQ(r.AddResponse(bad, t1, 2), 0);
    EXPECT_DOUBLE_EQ(r.GetResponse()[0], 0.5);

    {
        CSpectralResponse copy(r);
        CSpectralResponse assigned(1.0, 2.0, 3);
        assigned = copy;
        EXPECT_EQ(copy.GetResponse(), r.GetResponse());
        EXPECT_EQ(assigned.GetLambda(), r.GetLambda());
        copy.GetResponse()[3] = 0.75;
    }
    // The copies are gone; the arrays still belong to r (checked under the sanitizers).
    EXPECT_EQ(r.GetResponse()[3], 0.75);

    const std::string path = TempPath("grid.rsp");
    ASSERT_EQ(r.Save(path.c_str()), 1);
    CResponseFile back(path.c_str());
    ASSERT_EQ(back.GetArray().size(), 4u);
    EXPECT_EQ(back.GetArray()[3].m_dLambda, 4.5);
    EXPECT_EQ(back.GetArray()[3].m_dTransmission, 0.75);
}
