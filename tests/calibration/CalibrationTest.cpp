#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "TestSupport.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using thermokit::test::ReadAll;
using thermokit::test::TempPath;
using thermokit::test::WriteAll;
using namespace thermokit::test;

namespace {

CCalibration ThreePoints() {
    CCalibration c("CAM", 0);
    c.Add(1000.0f, 10.0f);
    c.Add(2000.0f, 30.0f);
    c.Add(4000.0f, 50.0f);
    return c;
}

}  // namespace

TEST(CalibrationCurve, InterpolationBothWays) {
    CCalibration c = ThreePoints();
    // The result and the value written (-1 where none is).
    const auto interp = [&c](float x, int extrapolate) {
        float y = -1.0f;
        return std::pair{c.Interpolate(x, &y, extrapolate), y};
    };
    const auto find = [&c](float y, int extrapolate) {
        float x = -1.0f;
        return std::pair{c.FindAbscisse(y, &x, extrapolate), x};
    };
    EXPECT_EQ(interp(1500.0f, 0), std::pair(1, 20.0f));
    EXPECT_EQ(interp(2000.0f, 0), std::pair(1, 30.0f));  // a stored abscissa gives its ordinate
    EXPECT_EQ(interp(500.0f, 0), std::pair(0, -1.0f));
    EXPECT_EQ(interp(5000.0f, 0), std::pair(0, -1.0f));
    EXPECT_EQ(interp(500.0f, 1), std::pair(1, 0.0f));
    EXPECT_EQ(interp(5000.0f, 1), std::pair(1, 60.0f));
    EXPECT_EQ(find(40.0f, 0), std::pair(1, 3000.0f));
    EXPECT_EQ(find(50.0f, 0), std::pair(1, 4000.0f));
    EXPECT_EQ(find(0.0f, 0).first, 0);
    EXPECT_EQ(find(0.0f, 1), std::pair(1, 500.0f));
    float x = 0.0f, y = 0.0f;

    // One point: no conversion at all, even at its own abscissa.
    CCalibration one("CAM", 0);
    one.Add(1000.0f, 10.0f);
    EXPECT_EQ(one.Interpolate(1000.0f, &y, 1), 0);
    EXPECT_EQ(one.FindAbscisse(10.0f, &x, 1), 0);

    // Equal successive abscissae: the first point's ordinate.
    CCalibration eq("CAM", 0);
    eq.Add(0.0f, 0.0f);
    eq.Add(10.0f, 5.0f);
    eq.Add(10.0f, 7.0f);
    eq.Add(20.0f, 9.0f);
    EXPECT_EQ(eq.Interpolate(10.0f, &y, 0), 1);
    EXPECT_EQ(y, 5.0f);
    CCalibration flat("CAM", 0);
    flat.Add(10.0f, 5.0f);
    flat.Add(10.0f, 7.0f);
    EXPECT_EQ(flat.Interpolate(12.0f, &y, 1), 1);
    EXPECT_EQ(y, 5.0f);
}

TEST(CalibrationCurve, InsertDeleteAndGrowth) {
    CCalibration c("CAM", 0);
    EXPECT_TRUE(c.IsEmpty());
    for (int i = 0; i < 60; ++i) ASSERT_EQ(c.Add(static_cast<float>(i * 10), static_cast<float>(i)), 1);
    EXPECT_EQ(c.GetSize(), 60);
    EXPECT_TRUE(c.IsFull());
    EXPECT_EQ(c.GetCurveX()[59], 590.0f);
    ASSERT_EQ(c.Insert(0, -10.0f, -1.0f), 1);
    EXPECT_EQ(c.GetCurveX()[0], -10.0f);
    EXPECT_EQ(c.GetCurveX()[60], 590.0f);
    EXPECT_EQ(c.Insert(200, 1.0f, 1.0f), 0);  // beyond the end: refused, nothing written
    EXPECT_EQ(c.Delete(0), 1);
    EXPECT_EQ(c.GetCurveX()[0], 0.0f);
    EXPECT_EQ(c.GetSize(), 60);
    // Delete past the end still drops the count.
    EXPECT_EQ(c.Delete(1000), 1);
    EXPECT_EQ(c.GetSize(), 59);

    // Delete on an empty curve wraps the count (kept); reading it stays in bounds.
    CCalibration e("CAM", 0);
    EXPECT_EQ(e.Delete(0), 1);
    EXPECT_EQ(e.GetSize(), 65535);
    float y;
    EXPECT_EQ(e.Interpolate(1.0f, &y, 1), 1);
    EXPECT_EQ(e.GetSize(), 65535);
}

TEST(CalibrationCurve, Slopes) {
    CCalibration c = ThreePoints();
    float s = 0.0f;
    EXPECT_EQ(c.GetSlew(1000.0f, 2000.0f, &s), 1);
    EXPECT_FLOAT_EQ(s, 0.02f);
    EXPECT_EQ(c.GetSlew(1000.0f, 1000.0f, &s), 0);
    EXPECT_EQ(c.GetSlew(0.0f, &s), 1);  // below the first: first segment
    EXPECT_FLOAT_EQ(s, 0.02f);
    EXPECT_EQ(c.GetSlew(2000.0f, &s), 1);  // on a point: the segment that starts there
    EXPECT_FLOAT_EQ(s, 0.01f);
    EXPECT_EQ(c.GetSlew(9000.0f, &s), 1);
    EXPECT_FLOAT_EQ(s, 0.01f);
    CCalibration flat("CAM", 0);
    flat.Add(0.0f, 5.0f);
    flat.Add(10.0f, 5.0f);
    EXPECT_EQ(flat.GetSlew(1.0f, 2.0f, &s), 0);  // a flat stretch is a failure
    EXPECT_EQ(flat.GetSlew(1.0f, &s), 1);
    EXPECT_EQ(s, 0.0f);
}

TEST(CalibrationCurve, ContextFieldsAndRuntimeClass) {
    CCalibration c("A camera name that is far too long", 3);
    EXPECT_EQ(c.GetCamera(), std::string("A camera name that ").substr(0, 19));
    EXPECT_EQ(c.GetExtensionTypes(), 3);
    EXPECT_EQ(c.IsExtended(), 1);
    EXPECT_EQ(c.GetDistance(), 1.0f);
    EXPECT_EQ(c.GetCameraTemperature(), -999.0f);
    EXPECT_EQ(c.GetCurrentConfig(), -1);
    EXPECT_EQ(c.IsValid(), 1);
    int d, m, y;
    c.GetDate(&d, &m, &y);
    EXPECT_GE(y, 2020);
    EXPECT_GE(m, 1);
    EXPECT_LE(m, 12);
    EXPECT_EQ(c.SetUnitX("123456789"), 1);
    EXPECT_EQ(c.SetUnitX("1234567890"), 0);  // needs its terminator
    EXPECT_EQ(c.GetUnitX(), "123456789");
    EXPECT_EQ(c.SetFilterName("WI_3.70-4.10_085%"), 1);
    EXPECT_EQ(c.GetFilterName(), "WI_3.70-4.10_085%");
    c.SetLens("LENS-25mm-WIDE");
    EXPECT_EQ(c.GetLens(), "LENS-25mm");
    c.SetIntegration(1234.6f);
    EXPECT_EQ(c.GetIntegration(), 1234.6f);
    const uint16_t integration = c.GetHeader().m_wIntegration;
    EXPECT_EQ(integration, 1235);
    c.SetIntegration(static_cast<unsigned short>(500));
    EXPECT_EQ(c.GetIntegration(), 500.0f);
    c.SetFormat(CRect(10, 20, 650, 532));
    EXPECT_EQ(c.GetFormat(), CRect(10, 20, 650, 532));
    const int16_t width = c.GetHeader().m_Format.width;  // copied: a packed field
    EXPECT_EQ(width, 640);
    EXPECT_EQ(c.SetRectDetector(CRect(1, 2, 3, 4)), 1);

    EXPECT_STREQ(c.GetRuntimeClass()->m_lpszClassName, "CCalibration");
    EXPECT_EQ(c.IsKindOf(RUNTIME_CLASS(CObject)), 1);
    EXPECT_EQ(c.IsKindOf(RUNTIME_CLASS(CCalibration)), 1);
}

TEST(CalibrationFile, ThreePointsWriteFiftyPlusFiftyFloats) {
    const std::string path = TempPath("three.cal");
    CCalibration c = ThreePoints();
    c.SetDate(14, 7, 2024);
    c.SetHousingTemp(25.5f);
    c.SetUnitY("degC");
    c.SetIntegration(static_cast<unsigned short>(1500));
    c.SetFrameRate(100);
    ASSERT_EQ(c.Save(path.c_str()), 1);
    EXPECT_EQ(c.GetFileName(), path);
    const std::vector<uint8_t> b = ReadAll(path);
    ASSERT_EQ(b.size(), 267u + 50 * 4 + 50 * 4);
    EXPECT_EQ(std::memcmp(b.data(), "EXP\0\0" "5.70\0CAM", 13), 0);
    // End of text, integration, frame rate, housing temperature, extensions, year, day, month, distance,
    // unit, points; then abscissae and ordinates of 50 each.
    ExpectFields(b, {{30, u8{26}}, {31, u16{1500}}, {33, u16{100}}, {43, 25.5f}, {47, u8{0}}, {137, u16{2024}},
                     {139, u8{14}}, {140, u8{7}}, {171, 1.0f}, {185, "degC"}, {189, u8{0}}, {265, u16{3}},
                     {267 + 8, 4000.0f}, {267 + 12, 0.0f}, {267 + 200 + 4, 30.0f}});
    for (size_t i = 48; i < 137; ++i) EXPECT_EQ(b[i], 0) << i;

    EXPECT_EQ(c.Save("/nonexistent-dir/x.cal"), 0);

    int result = -1;
    CCalibration back(path.c_str(), &result);
    EXPECT_EQ(result, 0);  // inverted sense: 0 means opened
    EXPECT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetSize(), 3);
    EXPECT_EQ(back.GetIntegration(), 1500.0f);
    EXPECT_EQ(back.GetCamera(), "CAM");
    EXPECT_EQ(back.GetCameraTemperature(), 25.5f);  // the stored value as it stands
    float y;
    EXPECT_EQ(back.Interpolate(3000.0f, &y, 0), 1);
    EXPECT_EQ(y, 40.0f);
}

TEST(CalibrationFile, ExtensionsRoundTripByteExact) {
    const std::string path = TempPath("ext.cal");
    CCalibration c("CAM", CCalibration::kExtendedClasses | CCalibration::kLensFormats);
    ASSERT_EQ(c.Add(50.0f, 20.0f, 3000.0f), 1);
    ASSERT_EQ(c.Add(20.0f, 20.0f, 1000.0f), 1);
    ASSERT_EQ(c.Add(20.0f, 40.0f, 1200.0f), 1);
    ASSERT_EQ(c.Insert(20.0f, 10.0f, 900.0f, 0), 1);
    EXPECT_EQ(c.Insert(20.0f, 10.0f, 900.0f, 9), 0);
    ASSERT_EQ(c.AddLensFormat("L25", CRect(0, 0, 640, 512), 2.0f, 100.0f), 1);
    // Opening regenerates the curve at the stored housing temperature (0); do the same before saving.
    c.SetCameraTemperature(0.0f, 1);
    ASSERT_EQ(c.GetSize(), 2);
    ASSERT_EQ(c.Save(path.c_str()), 1);
    const std::vector<uint8_t> b = ReadAll(path);
    const size_t ext = 267 + 400;
    ASSERT_EQ(b.size(), ext + 64 + (8 + 3 * 8) + (8 + 1 * 8) + 64 + 26);
    const size_t lens = ext + 64 + 32 + 16;
    // Points, extension flags, class count; classes in key order (key, element count, elements); lenses.
    ExpectFields(b, {{265, u16{2}}, {47, u8{3}}, {ext, int32_t{2}}, {ext + 64, 20.0f}, {ext + 68, int32_t{3}},
                     {ext + 72, 10.0f}, {ext + 72 + 12, 900.0f}, {lens, int32_t{1}}, {lens + 64, "L25"},
                     {lens + 64 + 14, int16_t{640}}, {lens + 64 + 18, 2.0f}, {lens + 64 + 22, 100.0f}});

    CCalibration back(path.c_str(), nullptr);
    ASSERT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetExtendedClassCount(), 2);
    EXPECT_EQ(back.GetExtendedClassElementCount(0), 3);
    EXPECT_EQ(back.GetLensExtendedClassCount(), 1);
    const std::string again = TempPath("ext2.cal");
    ASSERT_EQ(back.Save(again.c_str()), 1);
    EXPECT_EQ(ReadAll(again), b);
    float k, t, x;
    EXPECT_EQ(back.GetCalibValue(0, 2, k, t, x), 1);
    EXPECT_EQ(t, 40.0f);
    EXPECT_EQ(x, 1200.0f);
    EXPECT_EQ(back.GetCalibValue(0, 3, k, t, x), 0);
    EXPECT_THROW(back.GetCalibValue(2, 0, k, t, x), std::out_of_range);
    EXPECT_THROW(back.GetExtendedClassElementCount(-1), std::out_of_range);
    EXPECT_THROW(back.GetLens(1), std::out_of_range);
}

TEST(CalibrationExtended, RegenerationFollowsTheCameraTemperature) {
    CCalibration c("CAM", CCalibration::kExtendedClasses);
    EXPECT_EQ(c.Add(20.0f, 10.0f, 1000.0f), 1);
    EXPECT_EQ(c.Add(20.0f, 30.0f, 1400.0f), 1);
    EXPECT_EQ(c.Add(40.0f, 10.0f, 2000.0f), 1);
    EXPECT_EQ(c.Add(40.0f, 30.0f, 2200.0f), 1);
    EXPECT_EQ(c.Add(60.0f, 25.0f, 3000.0f), 1);  // one sample: used as it stands
    EXPECT_EQ(c.GetCalibModifyParam(), 2);
    EXPECT_EQ(c.SetCameraTemperature(293.15f, 0), 1);
    ASSERT_EQ(c.GetSize(), 3);
    EXPECT_NEAR(c.GetCurveX()[0], 1200.0f, 0.01f);
    EXPECT_NEAR(c.GetCurveX()[1], 2100.0f, 0.01f);
    EXPECT_EQ(c.GetCurveX()[2], 3000.0f);
    EXPECT_EQ(c.GetCurveY()[1], 40.0f);
    // Beyond the samples: extrapolated on the last two.
    c.SetCameraTemperature(323.15f, 0);
    EXPECT_NEAR(c.GetCurveX()[0], 1800.0f, 0.05f);
    // Same temperature without force: no regeneration.
    c.GetCurveX()[0] = -5.0f;
    c.SetCameraTemperature(323.15f, 0);
    EXPECT_EQ(c.GetCurveX()[0], -5.0f);
    c.SetCameraTemperature(323.15f, 1);
    EXPECT_NEAR(c.GetCurveX()[0], 1800.0f, 0.05f);
    // Without the flag nothing is inserted.
    CCalibration plain("CAM", 0);
    EXPECT_EQ(plain.Add(20.0f, 10.0f, 1000.0f), 0);
    EXPECT_EQ(plain.GetCalibModifyParam(), 0);
    EXPECT_EQ(plain.SetCameraTemperature(300.0f, 1), 1);
    EXPECT_EQ(plain.GetCameraTemperature(), 300.0f);
}

TEST(CalibrationLens, FormatsSelectionAndNames) {
    CCalibration c("CAM", CCalibration::kExtendedClasses | CCalibration::kLensFormats);
    c.Add(20.0f, 10.0f, 1000.0f);
    c.Add(40.0f, 10.0f, 2000.0f);
    c.SetHousingTemp(10.0f);
    ASSERT_EQ(c.AddLensFormat("L25", CRect(0, 0, 640, 512), 10.0f, 100.0f), 1);
    ASSERT_EQ(c.AddLensFormat("L50", CRect(8, 4, 328, 260), 2.0f, 0.0f), 1);
    EXPECT_EQ(c.SearchLensFormat("L50", CRect(8, 4, 328, 260)), 1);
    EXPECT_EQ(c.SearchLensFormat("L50", CRect(8, 4, 328, 261)), -1);
    std::vector<std::string> names;
    ASSERT_EQ(c.GetConfigName(names), 1);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[1], "Lens[L50]-format[8-4-320-256]");
    float g, o;
    EXPECT_EQ(c.GetConfigTransfo(0, g, o), 1);
    EXPECT_EQ(g, 10.0f);
    EXPECT_EQ(c.GetConfigTransfo(-1, g, o), 0);
    EXPECT_EQ(c.GetConfigTransfo(3, g, o), 0);
    EXPECT_THROW(c.GetConfigTransfo(2, g, o), std::out_of_range);  // index == count passes the test (kept)
    EXPECT_THROW(c.SetCurrentConfig(5), std::out_of_range);

    // The curve is empty: selecting regenerates it at the housing temperature + 273.15.
    ASSERT_EQ(c.GetSize(), 0);
    ASSERT_EQ(c.SetCurrentConfig(0), 1);
    EXPECT_EQ(c.GetSize(), 2);
    EXPECT_EQ(c.GetCameraTemperature(), static_cast<float>(10.0f + 273.15));
    EXPECT_EQ(c.GetCurveXCorrected()[0], 10.0f * 20.0f + 100.0f);  // gain times Y plus offset
    float y;
    EXPECT_EQ(c.Interpolate(500.0f, &y, 0), 1);  // corrected levels 300 .. 500
    EXPECT_EQ(y, 40.0f);
    EXPECT_EQ(c.SetCurrentConfig(-1), 1);
    EXPECT_EQ(c.Interpolate(1500.0f, &y, 0), 1);
    EXPECT_EQ(y, 30.0f);
    EXPECT_EQ(c.DeleteLensFormat(0), 1);
    EXPECT_EQ(c.DeleteLensFormat(1), 0);

    // SetCurrentConfig looks at the extended-classes flag (kept); the others at the lens flag.
    CCalibration lensOnly("CAM", CCalibration::kLensFormats);
    lensOnly.AddLensFormat("L", CRect(), 1.0f, 0.0f);
    EXPECT_EQ(lensOnly.SetCurrentConfig(0), 0);
    CCalibration none("CAM", 0);
    EXPECT_EQ(none.AddLensFormat("L", CRect(), 1.0f, 0.0f), 0);
    EXPECT_EQ(none.GetConfigName(names), 0);
    EXPECT_EQ(none.SearchLensFormat("L", CRect()), -1);
}

TEST(CalibrationLens, ComputeConfigCoefficientFitsTheReference) {
    CCalibration c("CAM", CCalibration::kLensFormats);
    CCalibration ref("CAM", 0);
    for (int i = 0; i < 10; ++i) {
        c.Add(1000.0f + 300.0f * i, 10.0f * i);
        ref.Add(500.0f + 200.0f * i, 10.0f * i);  // reference level = 20 Y + 500
    }
    float g = 0, o = 0;
    CCalibration::REGRESSION_QUALITY_PARAMS q{};
    ASSERT_EQ(c.ComputeConfigCoefficient(&ref, g, o, &q), 1);
    EXPECT_NEAR(g, 20.0f, 1e-4f);
    EXPECT_NEAR(o, 500.0f, 1e-2f);
    EXPECT_EQ(q.m_nPoints, 10);
    EXPECT_NEAR(q.m_dR2, 1.0, 1e-9);
    EXPECT_LT(q.m_dRms, 1e-6);
    // A bent reference: the fit is imperfect and says so.
    CCalibration bent("CAM", 0);
    for (int i = 0; i < 10; ++i) bent.Add(500.0f + 20.0f * i * i, 10.0f * i);
    ASSERT_EQ(c.ComputeConfigCoefficient(&bent, g, o, &q), 1);
    EXPECT_LT(q.m_dR2, 0.99);
    EXPECT_GT(q.m_dMaxResidual, q.m_dRms);
    EXPECT_EQ(c.ComputeConfigCoefficient(nullptr, g, o, &q), 0);
    ASSERT_EQ(c.AddLensFormat("L", CRect(), &ref), 1);
    float gg, oo;
    c.GetConfigTransfo(0, gg, oo);
    EXPECT_NEAR(gg, 20.0f, 1e-4f);
}

TEST(CalibrationFile, HostileFilesNeverCrash) {
    const std::string good = TempPath("good.cal");
    CCalibration c("CAM", CCalibration::kExtendedClasses | CCalibration::kLensFormats);
    c.Add(20.0f, 10.0f, 1000.0f);
    c.Add(20.0f, 30.0f, 1100.0f);
    c.AddLensFormat("L", CRect(0, 0, 4, 4), 1.0f, 0.0f);
    ASSERT_EQ(c.Save(good.c_str()), 1);
    const std::vector<uint8_t> bytes = ReadAll(good);
    const std::string bad = TempPath("bad.cal");
    MessageRecorder rec;

    // Every truncation is refused with a message captioned "CCalibration".
    for (size_t cut : {size_t(0), size_t(100), size_t(266), size_t(267), size_t(500), bytes.size() - 1}) {
        WriteAll(bad, std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<long>(cut)));
        rec.Clear();
        CCalibration r("", 0);
        EXPECT_EQ(r.Open(bad.c_str()), 0) << cut;
        EXPECT_EQ(r.IsValid(), 0);
        EXPECT_EQ(r.GetSize(), 0);
        ASSERT_EQ(rec.Count(), 1u) << cut;
        EXPECT_EQ(rec.Messages()[0].caption, "CCalibration");
        EXPECT_LE(rec.Messages()[0].text.size(), 255u);
    }
    // Absurd counts are refused before anything is allocated.
    const size_t ext = 267 + 400;
    auto patched = [&](size_t off, int32_t v) {
        std::vector<uint8_t> b = bytes;
        store<int32_t>(b.data(), off, v);
        return b;
    };
    for (auto b : {patched(ext, 0x7fffffff), patched(ext, -1), patched(ext + 68, 0x40000000), patched(ext + 68, -5),
                   patched(ext + 64 + 24 + 0, 0x7fffffff)}) {
        WriteAll(bad, b);
        rec.Clear();
        int result = 0;
        CCalibration r(bad.c_str(), &result);
        EXPECT_EQ(result, 1);
        EXPECT_EQ(r.IsValid(), 0);
        EXPECT_EQ(rec.Count(), 1u);
    }
    // Classes of no sample cost eight bytes each in the file: more of them
    // than a curve has points (65535) are refused, the message and the last
    // error saying why, so that memory stays bounded whatever the file's size.
    for (const int32_t classes : {65535, 65536}) {
        std::vector<uint8_t> b(bytes.begin(), bytes.begin() + static_cast<long>(ext + 64));
        b[47] = CCalibration::kExtendedClasses;
        store<int32_t>(b.data(), ext, classes);
        b.resize(b.size() + 8 * static_cast<size_t>(classes), 0);
        WriteAll(bad, b);
        rec.Clear();
        CCalibration r("", 0);
        EXPECT_EQ(r.Open(bad.c_str()), classes == 65535 ? 1 : 0);
        EXPECT_EQ(r.GetExtendedClassCount(), classes == 65535 ? classes : 0);
        if (classes == 65535) continue;
        ASSERT_EQ(rec.Count(), 1u);
        EXPECT_EQ(rec.Messages()[0].text, "File " + bad + " is damaged: 65536 extended classes, more than the 65535 points a curve holds.");
        EXPECT_EQ(r.GetLastErrorText(), "damaged: 65536 extended classes, more than the 65535 points a curve holds");
        EXPECT_EQ(r.GetLastErrorKind(), ErrorKind::Format);
    }
    std::vector<uint8_t> many = bytes;
    store<uint16_t>(many.data(), 265, 60000);  // more points than the file holds
    WriteAll(bad, many);
    EXPECT_EQ(CCalibration(bad.c_str(), nullptr).IsValid(), 0);

    // A wrong tag: read in full, but not valid, and no message.
    std::vector<uint8_t> tag = bytes;
    tag[0] = 'X';
    WriteAll(bad, tag);
    rec.Clear();
    CCalibration t("", 0);
    EXPECT_EQ(t.Open(bad.c_str()), 0);
    EXPECT_EQ(t.IsValid(), 0);
    EXPECT_EQ(rec.Count(), 0u);
    EXPECT_EQ(t.GetLastErrorText(), "not a calibration file (tag \"EXP\" expected)");
    EXPECT_EQ(t.GetExtendedClassCount(), 1);
    EXPECT_EQ(t.GetLensExtendedClassCount(), 1);

    // Missing file: a message; empty name: nothing.
    rec.Clear();
    EXPECT_EQ(t.Open("/nonexistent/none.cal"), 0);
    EXPECT_EQ(rec.Count(), 1u);
    EXPECT_EQ(t.GetLastSystemError(), ENOENT);
    EXPECT_EQ(t.Open(""), 0);
    EXPECT_EQ(t.Open(nullptr), 0);
    EXPECT_EQ(rec.Count(), 1u);
}
