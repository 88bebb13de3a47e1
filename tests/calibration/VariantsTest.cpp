#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "TestSupport.h"
#include "thermokit/calibration/CCalibrationComp.h"
#include "thermokit/calibration/CCalibrationEx.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using thermokit::test::ReadAll;
using thermokit::test::TempPath;
using thermokit::test::WriteAll;

namespace {

// A 3-5 um camera: S = R / (exp(B / T) - F), 0.5 signal per level.
_SCalibrationRBF LinearLaw() {
    _SCalibrationRBF p{};
    p.m_byType = 1;
    p.m_fScale = 0.5f;
    p.m_nOffset = -200;
    p.m_fR = 2.0e8f;
    p.m_fB = 3400.0f;
    p.m_fF = 1.0f;
    return p;
}

_SCalibrationRBF NonLinearLaw() {
    _SCalibrationRBF p = LinearLaw();
    p.m_wNonLinear = 1;
    p.m_fNonLinearity = 1.0e-5f;
    p.m_nLevelZero = 1000;
    p.m_nOffset = 10;
    return p;
}

}  // namespace

// The compensated calibration reads the settings store: keep it private to this test run.
const bool kPrivateStores = thermokit::test::UsePrivateStores();

TEST(RBFRecord, LayoutAndFilmBlock) {
    _SCalibrationRBF p = NonLinearLaw();
    p.m_fParam35 = 1.5f;
    p.m_fParam39 = 2.5f;
    p.m_fParam43 = 3.5f;
    p.m_fParam75 = 9.5f;
    const auto* raw = reinterpret_cast<const uint8_t*>(&p);
    // Type, level zero, non-linear flag, B, the last parameter.
    using namespace thermokit::test;
    ExpectFields(Bytes(raw, raw + sizeof p), {{0, u8{1}}, {5, int32_t{1000}}, {17, u16{1}}, {27, 3400.0f}, {75, 9.5f}});

    uint8_t block[44];
    std::memset(block, 0xEE, sizeof block);
    p.ToFilmBlock(block);
    EXPECT_EQ(std::memcmp(block, raw, 43), 0);
    EXPECT_EQ(block[43], 1);
    _SCalibrationRBF q;
    std::memset(&q, 0x55, sizeof q);
    EXPECT_EQ(q.FromFilmBlock(block), 1);
    EXPECT_EQ(+q.m_fParam39, 2.5f);
    EXPECT_EQ(+q.m_fParam43, 0.0f);  // does not travel with the film
    EXPECT_EQ(+q.m_fParam75, 0.0f);
    uint8_t cleared[44] = {};
    EXPECT_EQ(q.FromFilmBlock(cleared), 0);

    CCalibrationRBF cal(p);
    EXPECT_EQ(cal.IsCalibrationFactorEqual(nullptr), 0);
    EXPECT_EQ(cal.IsCalibrationFactorEqual(&p), 1);
    // One member changed, whichever, is another law.
    for (void (*change)(_SCalibrationRBF&) : {+[](_SCalibrationRBF& o) { o.m_fParam75 = 9.25f; },
                                              +[](_SCalibrationRBF& o) { o.m_wParam21 = 3; },
                                              +[](_SCalibrationRBF& o) { o.m_byType = 2; }}) {
        _SCalibrationRBF other = p;
        change(other);
        EXPECT_EQ(cal.IsCalibrationFactorEqual(&other), 0);
    }

    EXPECT_STREQ(cal.GetRuntimeClass()->m_lpszClassName, "CCalibrationRBF");
    EXPECT_EQ(cal.IsKindOf(RUNTIME_CLASS(CCalibration)), 1);
    EXPECT_EQ(cal.IsKindOf(RUNTIME_CLASS(CCalibrationComp)), 0);
    CCalibrationComp comp(p);
    const CCalibration* base = &comp;
    EXPECT_EQ(base->IsKindOf(RUNTIME_CLASS(CCalibrationRBF)), 1);
    EXPECT_STREQ(base->GetRuntimeClass()->m_pBaseClass->m_lpszClassName, "CCalibrationRBF");
}

TEST(RBFLaw, LevelLawsAndClamps) {
    CCalibrationRBF lin(LinearLaw());
    EXPECT_EQ(lin.imgToPow(0, -200, 0.5f), 0.0);
    EXPECT_EQ(lin.imgToPow(1000, -200, 0.5f), 400.0);
    EXPECT_EQ(lin.imgToPow(-7, 0, 1.0f), 1.0);        // clamped to level 1
    EXPECT_EQ(lin.imgToPow(70000, 0, 1.0f), 65535.0);  // clamped to 65535
    EXPECT_EQ(lin.powToImg(0.0, 0, 1.0f), 0);
    EXPECT_EQ(lin.powToImg(400.0, -200, 0.5f), 1000);
    EXPECT_EQ(lin.powToImg(400.2, -200, 0.5f), 1000);  // + 0.5 rounds
    EXPECT_EQ(lin.powToImg(400.3, -200, 0.5f), 1001);
    EXPECT_EQ(lin.powToImg(1.0, 0, 1e-11f), 1);        // scale below 1e-10
    EXPECT_EQ(lin.powToImg(1e12, 0, 1.0f), 65535);
    EXPECT_EQ(lin.powToImg(0.1, 0, 1.0f), 1);          // below level 1
    EXPECT_EQ(lin.powToImg(-50.0, 0, 1.0f), 1);

    CCalibrationRBF nl(NonLinearLaw());
    // d = 3000 - 1000, den = 1 - 2000e-5 = 0.98.
    EXPECT_DOUBLE_EQ(nl.imgToPow(3000, 10, 0.5f), 2000.0 * 0.5 / (1.0 - 2000.0 * static_cast<double>(1.0e-5f)) + 10.0);
    EXPECT_EQ(nl.imgToPow(0, 10, 0.5f), 0.0);
    // Past the pole (den < 0.0001 with k > 0): 100000.
    _SCalibrationRBF strong = NonLinearLaw();
    strong.m_fNonLinearity = 1.0e-4f;
    CCalibrationRBF pole(strong);
    EXPECT_EQ(pole.imgToPow(11000, 10, 0.5f), 100000.0);   // den = 1 - 1.0 = 0
    EXPECT_EQ(pole.imgToPow(65535, 10, 0.5f), 100000.0);
    const double den = 1.0 - 9990.0 * static_cast<double>(1.0e-4f);  // just above 0.0001: no clamp
    EXPECT_DOUBLE_EQ(pole.imgToPow(10990, 10, 0.5f), 9990.0 * 0.5 / den + 10.0);
    strong.m_fNonLinearity = -1.0e-4f;  // k <= 0: no pole test
    CCalibrationRBF negative(strong);
    EXPECT_LT(negative.imgToPow(11000, 10, 0.5f), 100000.0);
    // Back: no rounding term, the quotient is truncated, then the level zero added.
    const double s = nl.imgToPow(3000, 10, 0.5f);
    const unsigned short back = nl.powToImg(s, 10, 0.5f);
    EXPECT_TRUE(back == 3000 || back == 2999) << back;
    EXPECT_EQ(nl.powToImg(s + 0.0001, 10, 0.5f), 3000);
    EXPECT_EQ(nl.powToImg(1.0, 10, -1.0f), 1);  // denominator below 1e-10
}

TEST(RBFLaw, TemperatureSignalClampsAndSaturation) {
    _SCalibrationRBF p = LinearLaw();
    CCalibrationRBF cal(p);
    EXPECT_EQ(cal.tempToObjSig(0.0), 0.0);
    EXPECT_EQ(cal.tempToObjSig(-5.0), 0.0);
    EXPECT_EQ(cal.tempToObjSig(3400.0 / 709.78), 0.0);  // B/T >= 709.78
    EXPECT_GT(cal.tempToObjSig(3400.0 / 709.0), 0.0);
    EXPECT_DOUBLE_EQ(cal.tempToObjSig(300.0), 2.0e8 / (std::exp(3400.0 / 300.0) - 1.0));
    // Very hot: exp(B/T) floored at 1.0002 for F <= 1.
    EXPECT_DOUBLE_EQ(cal.tempToObjSig(1e9), 2.0e8 / (1.0002 - 1.0));
    EXPECT_EQ(cal.objSigToDblTemp(0.0), 0.0);
    EXPECT_DOUBLE_EQ(cal.objSigToDblTemp(1e30), 3400.0 / std::log(1.0002));

    // A cold object gives level 0, a hot one saturates at 65535, a tiny signal gives 1.
    float level = -1.0f;
    EXPECT_EQ(cal.FindAbscisse(static_cast<float>(3400.0 / 710.0 - 273.15), &level, 1), 1);
    EXPECT_EQ(level, 0.0f);
    EXPECT_EQ(cal.FindAbscisse(2000.0f, &level, 1), 1);
    EXPECT_EQ(level, 65535.0f);
    EXPECT_EQ(cal.FindAbscisse(-273.15f - 1.0f, &level, 1), 0);
    EXPECT_EQ(level, 0.0f);
    _SCalibrationRBF noOffset = p;
    noOffset.m_nOffset = 0;
    EXPECT_EQ(CCalibrationRBF(noOffset).tempToImg(3400.0 / 40.0), 1);  // signal ~1e-9: level below 1

    // F > 1: every signal below the limit maps to the same hottest temperature.
    p.m_fF = 2.0f;
    CCalibrationRBF f2(p);
    const double hottest = 3400.0 / std::log(2.0 * 1.0002);
    EXPECT_DOUBLE_EQ(f2.objSigToDblTemp(1e30), hottest);
    EXPECT_DOUBLE_EQ(f2.objSigToDblTemp(1e15), hottest);
    EXPECT_DOUBLE_EQ(f2.tempToObjSig(1e9), 2.0e8 / (2.0 * 1.0002 - 2.0));

    // Level 0 and below: no temperature.
    float t = 5.0f;
    EXPECT_EQ(cal.Interpolate(0.0f, &t, 0), 0);
    EXPECT_EQ(t, 0.0f);
    EXPECT_EQ(cal.Interpolate(-3.0f, &t, 0), 0);
    EXPECT_EQ(cal.Interpolate(0.5f, &t, 0), 1);  // level 0 after truncation: signal 0, 0 K
    EXPECT_EQ(t, static_cast<float>(0.0 - 273.15));
}

TEST(RBFLaw, LevelTemperatureLevelRoundTripOverTheCameraRange) {
    CCalibrationRBF lin(LinearLaw());
    int lo = 0, hi = 0;
    // Levels at or below the offset (200) carry no signal; the camera's range starts above it.
    for (int level = 250; level <= 65000; level += 7) {
        float t = 0.0f, back = 0.0f;
        ASSERT_EQ(lin.Interpolate(static_cast<float>(level), &t, 0), 1);
        ASSERT_EQ(lin.FindAbscisse(t, &back, 0), 1);
        EXPECT_EQ(back, static_cast<float>(level)) << level << " " << t;
        if (level == 250) lo = static_cast<int>(t);
        hi = static_cast<int>(t);
    }
    EXPECT_LT(lo, 0);   // the range covers cold scenes ...
    EXPECT_GT(hi, 100);  // ... and hot ones
    CCalibrationRBF nl(NonLinearLaw());
    for (int level = 1100; level <= 40000; level += 13) {
        float t = 0.0f, back = 0.0f;
        ASSERT_EQ(nl.Interpolate(static_cast<float>(level), &t, 0), 1);
        ASSERT_EQ(nl.FindAbscisse(t, &back, 0), 1);
        EXPECT_LE(std::fabs(back - static_cast<float>(level)), 1.0f) << level;
        // Once through, the level is a fixed point.
        float t2 = 0.0f, back2 = 0.0f;
        nl.Interpolate(back, &t2, 0);
        nl.FindAbscisse(t2, &back2, 0);
        EXPECT_LE(std::fabs(back2 - back), 1.0f) << level;
    }
}

TEST(RBFLaw, WithoutALawTheCurveRulesAndGetCurveXRefreshesTwoPoints) {
    CCalibrationRBF noLaw("CAM", 0);
    noLaw.Add(1000.0f, 10.0f);
    noLaw.Add(2000.0f, 20.0f);
    float y;
    EXPECT_EQ(noLaw.Interpolate(1500.0f, &y, 0), 1);
    EXPECT_EQ(y, 15.0f);
    EXPECT_EQ(noLaw.GetCurveX()[0], 1000.0f);

    CCalibrationRBF cal(LinearLaw());
    cal.Add(0.0f, 20.0f);
    cal.Add(0.0f, 5000.0f);  // saturates
    cal.Add(123.0f, 40.0f);  // only the first two are refreshed
    float* x = cal.GetCurveX();
    float expected;
    cal.FindAbscisse(20.0f, &expected, 1);
    EXPECT_EQ(x[0], expected);
    EXPECT_EQ(x[1], 65535.0f);
    EXPECT_EQ(x[2], 123.0f);
}

TEST(Compensated, CameraTemperatureDriftIsUndone) {
    CCnucFile::_CNUC_CALIBRATION rec{};
    std::memcpy(rec.m_szSignature, "CNUCCAL", 8);
    rec.m_dwVersion = 1;
    rec.m_dwFlags = CCnucFile::kRecordValid | CCnucFile::kLevelDriftValid | CCnucFile::kGainDriftValid |
                    CCnucFile::kIntegrationValid | CCnucFile::kTemperatureRangeValid;
    rec.m_fRefCameraTemp = 300.0f;
    rec.m_fCameraTempMin = 280.0f;
    rec.m_fCameraTempMax = 330.0f;
    rec.m_wLevelDriftDegree = 1;
    rec.m_adLevelDrift[1] = 25.0;  // 25 levels per kelvin
    rec.m_wGainDriftDegree = 1;
    rec.m_adGainDrift[0] = 1.0;
    rec.m_adGainDrift[1] = 0.01;
    rec.m_fRefIntegration = 100.0f;
    rec.m_fDarkLevel = 1000.0f;

    CCalibrationComp comp(LinearLaw());
    CCalibrationRBF plain(LinearLaw());
    EXPECT_STREQ(CCalibrationComp::kCameraTemperatureValue, "TempCamera");
    EXPECT_EQ(comp.GetCalibModifyParam(), 0);
    EXPECT_EQ(comp.SetCalibrationFactor(&rec), 1);
    EXPECT_EQ(comp.IsCalibrationFactorEqual(&rec), 1);
    EXPECT_EQ(comp.GetCalibModifyParam(), 2);
    CCnucFile::_CNUC_CALIBRATION out{};
    EXPECT_EQ(comp.GetCalibrationFactor(&out), 1);
    EXPECT_EQ(std::memcmp(&out, &rec, sizeof rec), 0);

    float tc = 0.0f, tp = 0.0f;
    // No camera temperature yet: the plain law.
    comp.Interpolate(8000.0f, &tc, 0);
    plain.Interpolate(8000.0f, &tp, 0);
    EXPECT_EQ(tc, tp);
    // At 310 K a level reads as (level - 250) / 1.1 at the reference.
    comp.SetCameraTemperature(310.0f, 0);
    ASSERT_EQ(comp.Interpolate(8000.0f, &tc, 0), 1);
    plain.Interpolate(static_cast<float>((8000.0 - 250.0) / 1.1), &tp, 0);
    EXPECT_EQ(tc, tp);
    float level = 0.0f, ref = 0.0f;
    ASSERT_EQ(comp.FindAbscisse(35.0f, &level, 0), 1);
    plain.FindAbscisse(35.0f, &ref, 0);
    EXPECT_FLOAT_EQ(level, static_cast<float>(ref * 1.1 + 250.0));
    // Round trip through the compensation.
    float t = 0.0f;
    comp.Interpolate(level, &t, 0);
    EXPECT_NEAR(t, 35.0f, 0.05f);
    // Integration time scaling about the dark level.
    float it = 0.0f;
    ASSERT_EQ(comp.ConvTempDlToIt(35.0f, 200.0f, &it, 0), 1);
    EXPECT_FLOAT_EQ(it, static_cast<float>(1000.0 + (level - 1000.0) * 2.0));
    // Through the base class's virtual contract: level tables and curve refresh see the compensation.
    const CCalibration& asBase = comp;
    CLevelTable table(asBase, 0x3FFF, 0);
    float direct = 0.0f;
    comp.Interpolate(8000.0f, &direct, 0);
    EXPECT_EQ(table.Value(8000), direct);
    comp.Add(0.0f, 20.0f);
    comp.Add(0.0f, 30.0f);
    comp.Add(0.0f, 40.0f);
    const float* x = comp.GetCurveX();  // every point, not only the first two
    float expected = 0.0f;
    comp.FindAbscisse(40.0f, &expected, 1);
    EXPECT_EQ(x[2], expected);
    EXPECT_GT(x[2], x[1]);
    // Outside the record's camera-temperature range: refused.
    comp.SetCameraTemperature(350.0f, 0);
    EXPECT_EQ(comp.Interpolate(8000.0f, &tc, 0), 0);
    EXPECT_EQ(comp.FindAbscisse(35.0f, &level, 0), 0);
    // Window check.
    rec.m_nWindowWidth = 320;
    rec.m_nWindowHeight = 256;
    comp.SetCalibrationFactor(&rec);
    EXPECT_EQ(comp.SetRectDetector(CRect(0, 0, 320, 256)), 1);
    EXPECT_EQ(comp.SetRectDetector(CRect(0, 0, 640, 512)), 0);
    EXPECT_EQ(comp.SetCalibrationFactor(nullptr), 0);
    EXPECT_EQ(comp.GetCalibrationFactor(&out), 0);
}

TEST(Extended, ValidationOnOpening) {
    const std::string path = TempPath("ex.cal");
    CCalibration c("CAM", CCalibration::kExtendedClasses);
    c.Add(20.0f, 10.0f, 1000.0f);
    c.Add(20.0f, 30.0f, 1400.0f);
    c.Add(40.0f, 10.0f, 2000.0f);
    c.Add(40.0f, 30.0f, 2400.0f);
    c.SetHousingTemp(20.0f);
    ASSERT_EQ(c.Save(path.c_str()), 1);
    int result = -1;
    CCalibrationEx ex(path.c_str(), &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ex.IsValid(), 1);
    EXPECT_EQ(ex.GetValidationError(), "");
    // Regenerated at the housing temperature in degrees Celsius.
    ASSERT_EQ(ex.GetSize(), 2);
    EXPECT_NEAR(ex.GetCurveX()[0], 1200.0f, 0.01f);
    EXPECT_EQ(ex.SetHousingTemperature(30.0f), 1);
    EXPECT_NEAR(ex.GetCurveX()[1], 2400.0f, 0.01f);
    EXPECT_EQ(ex.GetHousingTemp(), 30.0f);
    EXPECT_EQ(ex.IsKindOf(RUNTIME_CLASS(CCalibrationRBF)), 0);

    std::vector<uint8_t> b = ReadAll(path);
    const std::string bad = TempPath("exbad.cal");
    auto expectRefused = [&](std::vector<uint8_t> bytes, const char* why) {
        WriteAll(bad, bytes);
        int r = -1;
        CCalibrationEx e(bad.c_str(), &r);
        EXPECT_EQ(r, 1) << why;
        EXPECT_EQ(e.IsValid(), 0) << why;
    };
    std::vector<uint8_t> v = b;
    v[8] = '1';  // "5.71"
    expectRefused(v, "version");
    v = b;
    v[30] = 27;
    expectRefused(v, "record size");
    v = b;
    v[47] = 0x05;
    expectRefused(v, "flags");
    v = b;
    // Camera temperatures of the first class out of order.
    store<float>(v.data(), 267 + 400 + 64 + 8, 50.0f);
    expectRefused(v, "temperatures");

    // A plain curve that is not monotonic.
    CCalibration zig("CAM", 0);
    zig.Add(1.0f, 1.0f);
    zig.Add(3.0f, 2.0f);
    zig.Add(2.0f, 3.0f);
    zig.Save(bad.c_str());
    int r = -1;
    CCalibrationEx e(bad.c_str(), &r);
    EXPECT_EQ(r, 1);
    EXPECT_EQ(e.GetValidationError(), "levels not monotonic");
    MessageRecorder rec;
    CCalibrationEx missing("/nonexistent/x.cal", &r);
    EXPECT_EQ(r, 1);
    EXPECT_EQ(rec.Count(), 1u);
}

TEST(LevelTable, EqualsInterpolateOnEveryLevel) {
    CCalibration curve("CAM", 0);
    curve.Add(1000.0f, -20.0f);
    curve.Add(5000.0f, 30.0f);
    curve.Add(9000.0f, 45.5f);
    curve.Add(16000.0f, 120.0f);
    CCalibrationRBF rbf(LinearLaw());
    const unsigned short maxLevel = 0x3FFF;
    std::vector<unsigned short> levels(maxLevel + 1 + 100);
    for (size_t i = 0; i < levels.size(); ++i) levels[i] = static_cast<unsigned short>(i * 7 + (i >> 3));
    levels[5] = 0xFFFF;  // masked to 0x3FFF
    CLevelTable table;  // built again for each case: nothing of the last one may stay
    for (int extrapolate = 0; extrapolate < 2; ++extrapolate) {
        for (const CCalibration* cal : {static_cast<const CCalibration*>(&curve), static_cast<const CCalibration*>(&rbf)}) {
            table.Build(*cal, maxLevel, extrapolate, -1000.0f);
            int failures = 0, belowZero = 0;
            for (unsigned level = 0; level <= maxLevel; ++level) {
                float y = 0.0f;
                int ok = cal->Interpolate(static_cast<float>(level), &y, extrapolate);
                // The law's levels whose signal is not above 0 read -273.15 through
                // Interpolate; whole-frame conversion leaves them out.
                if (ok && y == -273.15f) ok = 0, ++belowZero;
                failures += !ok;
                ASSERT_EQ(table.Succeeded(static_cast<unsigned short>(level)), ok) << level;
                const float expected = ok ? y : -1000.0f;
                ASSERT_EQ(table.Value(static_cast<unsigned short>(level)), expected) << level;
            }
            // Level 0 through the law, levels outside the curve without extrapolation.
            if (extrapolate == 0 || cal == &rbf) {
                EXPECT_GT(failures, 0);
            }
            EXPECT_EQ(belowZero, cal == &rbf ? 200 : 0);  // (level - 200) x 0.5 <= 0
            // Apply runs the table look-up kernel; it must give bit for bit what
            // Interpolate gives level by level.
            std::vector<float> viaTable(levels.size()), direct(levels.size()), small(50);
            ConvertLevels(cal, levels.data(), static_cast<long>(levels.size()), maxLevel, viaTable.data(), extrapolate, -1000.0f);
            // Short runs go pixel by pixel; both paths must agree bit for bit.
            ConvertLevels(*cal, levels.data(), 50, maxLevel, small.data(), extrapolate, -1000.0f);
            table.Apply(levels.data(), static_cast<long>(levels.size()), direct.data());
            for (size_t i = 0; i < levels.size(); ++i) {
                float y = 0.0f;
                const unsigned short level = levels[i] & maxLevel;
                const float expected = cal->Interpolate(level, &y, extrapolate) && y != -273.15f ? y : -1000.0f;
                ASSERT_EQ(viaTable[i], expected) << i;
                ASSERT_EQ(direct[i], expected) << i;
                if (i < 50) {
                    ASSERT_EQ(small[i], expected) << i;
                }
            }
        }
    }
    // The default fail value is NaN.
    CLevelTable nanTable(curve, 0x3FFF, 0);
    EXPECT_TRUE(std::isnan(nanTable.Value(0)));
}

TEST(LevelTable, WholeFrameMasksWithItsBitDepth) {
    CCalibration curve("CAM", 0);
    curve.Add(0.0f, 0.0f);
    curve.Add(4095.0f, 100.0f);
    std::vector<unsigned short> pixels = {0, 4095, 4096 + 10, 0xFFFF, 2000, 1};
    CFrame frame(pixels.data(), 3, 2, 12, 0, 0);
    std::vector<float> out(6, -1.0f);
    ConvertFrame(curve, frame, out.data());
    for (size_t i = 0; i < pixels.size(); ++i) {
        float y = 0.0f;
        ASSERT_EQ(curve.Interpolate(static_cast<float>(pixels[i] & 0x0FFF), &y, 1), 1);
        EXPECT_EQ(out[i], y) << i;
    }
    EXPECT_FLOAT_EQ(out[2], out[5] * 10.0f);  // 4106 & 4095 = 10
}


TEST(Compensated, ConstructorsStartFromTheStoredCameraTemperature) {
    thermokit::CRegistry setup(thermokit::CRegistry::Setup);
    setup.DeleteValue(thermokit::CCalibrationComp::kCameraTemperatureValue);
    {
        thermokit::CCalibrationComp none(0, "cam");
        EXPECT_EQ(none.GetCameraTemperature(), thermokit::CCalibrationComp::kNoTemperature);
    }
    ASSERT_NE(setup.SetDOUBLEValue(thermokit::CCalibrationComp::kCameraTemperatureValue, 301.25, 3), 0);
    thermokit::CCalibrationComp stored(0, "cam");
    EXPECT_FLOAT_EQ(stored.GetCameraTemperature(), 301.25f);
    setup.DeleteValue(thermokit::CCalibrationComp::kCameraTemperatureValue);
}
