// The film file header: defaults, the byte position of every field in a
// written file, the accessor rules, rewrites that keep unknown bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <set>
#include <string>

#include "FilmTestSupport.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CCnucFile.h"
#include "thermokit/environment/CConfig.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/platform/File.h"

using namespace thermokit;
using namespace filmtest;

namespace {

std::vector<unsigned char> HeaderBytes(const CPtrOver& p) {
    return std::vector<unsigned char>(p.GetHeaderAddress(), p.GetHeaderAddress() + 3476);
}

}  // namespace

TEST(FilmHeader, InitHeaderWritesTheDefaultsAndNothingElse) {
    CPtrOver p;
    const std::time_t before = std::time(nullptr);
    p.InitHeader(640, 512, 14);
    const auto h = HeaderBytes(p);

    EXPECT_EQ(std::string(reinterpret_cast<const char*>(h.data()), 4), std::string("RKK\0", 4));
    EXPECT_EQ(h[4], 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(h.data() + 5), 5), std::string("5.60\0", 5));
    EXPECT_EQ(h[10], 26);
    EXPECT_EQ(At<uint32_t>(h, 11), 3476u);
    EXPECT_EQ(At<uint32_t>(h, 15), 1016u);
    EXPECT_EQ(At<uint32_t>(h, 19), 328188u);  // 508 + 640 x 512
    EXPECT_EQ(At<uint32_t>(h, 23), 327680u);
    EXPECT_EQ(At<uint32_t>(h, 27), 0u);
    EXPECT_EQ(At<uint32_t>(h, 31), 0u);
    EXPECT_EQ(At<float>(h, 141), 1.0f);
    EXPECT_EQ(At<float>(h, 145), 293.15f);
    EXPECT_EQ(At<float>(h, 149), 1.0f);
    EXPECT_EQ(At<uint16_t>(h, 245), 0);
    EXPECT_EQ(At<uint16_t>(h, 247), 16383);
    EXPECT_EQ(At<uint16_t>(h, 377), 640);
    EXPECT_EQ(At<uint16_t>(h, 379), 512);
    EXPECT_EQ(At<uint16_t>(h, 381), 14);
    EXPECT_EQ(At<uint16_t>(h, 383), 1);
    EXPECT_EQ(At<float>(h, 403), 0.04f);
    EXPECT_EQ(At<float>(h, 407), 0.001f);
    EXPECT_EQ(h[2940], 1);
    EXPECT_EQ(p.GetHeaderSize(), 3476u);
    EXPECT_EQ(p.GetMaxLUT(), 16383);
    EXPECT_EQ(p.GetRecordWords(), 328188u);

    // Date and time of the local clock: year + 1900, month 1..12, hundredths 0.
    std::tm local {};
    localtime_r(&before, &local);
    EXPECT_NEAR(At<uint16_t>(h, 35), local.tm_year + 1900, 1);
    EXPECT_GE(h[37], 1);
    EXPECT_LE(h[37], 31);
    EXPECT_GE(h[38], 1);
    EXPECT_LE(h[38], 12);
    EXPECT_LE(h[39], 59);
    EXPECT_LE(h[40], 23);
    EXPECT_EQ(h[41], 0);
    EXPECT_EQ(h[43], 0);

    // Every other byte is 0.
    const std::set<size_t> fields = {0, 1, 2, 5, 6, 7, 8, 10, 11, 12, 15, 16, 19, 20, 21, 23, 24, 25,
                                     35, 36, 37, 38, 39, 40, 42, 141, 142, 143, 144, 145, 146, 147, 148,
                                     149, 150, 151, 152, 247, 248, 377, 378, 379, 380, 381, 383, 403, 404,
                                     405, 406, 407, 408, 409, 410, 2940};
    for (size_t i = 0; i < h.size(); ++i)
        if (!fields.count(i)) {
            ASSERT_EQ(h[i], 0) << "byte " << i;
        }

    // A 16-bit film: LUT up to 65535; a 320 x 256 film: record of 1016 + 163840 bytes.
    p.InitHeader(320, 256, 16);
    EXPECT_EQ(p.GetMaxLUT(), 65535);
    EXPECT_EQ(p.GetRecordWords() * 2, 1016u + 163840u);

    // An unreadable clock: minute and hour 255, second all ones, hundredths 0.
    p.SetRecordingClock(nullptr);
    const auto c = HeaderBytes(p);
    EXPECT_EQ(c[39], 255);
    EXPECT_EQ(c[40], 255);
    EXPECT_EQ(c[41], 0);
    EXPECT_EQ(c[42], 255);
    std::tm fixed {};
    fixed.tm_year = 126;
    fixed.tm_mon = 10;
    fixed.tm_mday = 21;
    fixed.tm_hour = 9;
    fixed.tm_min = 7;
    fixed.tm_sec = 3;
    p.SetRecordingClock(&fixed);
    const auto d = HeaderBytes(p);
    EXPECT_EQ(At<uint16_t>(d, 35), 2026);
    EXPECT_EQ(d[37], 21);  // day
    EXPECT_EQ(d[38], 11);  // month
    EXPECT_EQ(d[39], 7);   // minute
    EXPECT_EQ(d[40], 9);   // hour
    EXPECT_EQ(d[41], 0);
    EXPECT_EQ(d[42], 3);   // second
    EXPECT_EQ(p.GetImageHeaderAddress()[0], 0);
}

TEST(FilmHeader, EveryFieldLandsAtItsOffsetInTheWrittenFile) {
    const std::string name = TempName("layout");
    CPtr film(64, 32, 12, 0, 1, 0);
    film.SetFileName(name);
    film.SetCamera("CamX");
    film.SetFilter("F1");
    film.SetApertureName("Ap");
    film.SetBilletSpeed(1.5f);
    film.SetBilletDiameter(2.5f);
    film.SetBilletShape(7);
    film.SetEmissivity(0.95f);
    film.SetAmbiantTemperature(300.0f);
    film.SetDistance(12.0f);
    film.SetInductorCoil(3);
    film.SetInductorPower(-1000);
    film.SetInductorVoltage(400);
    film.SetInductorFrequency(50000);
    film.SetSynchronisation(2);
    film.SetTransmission(0.9f);
    film.SetExtinction(0.1f);
    film.SetAtmosphereTemperature(280.0f);
    film.SetCutOn(3.0f);
    film.SetCutOff(5.0f);
    film.SetPixelSize(15.0f);
    film.SetPixelPitch(16.0f);
    film.SetAperture(2.0f);
    film.SetFocal(25.0f);
    film.SetHousingTemperature(31.0f, 0);
    film.SetHousingTemperature(32.0f, 1);
    film.SetSerial("SN12345");
    film.SetDetector(0x2C00002);
    film.SetDetectorGain(3);
    film.SetMinLUT(100);
    film.SetMaxLUT(4000);
    film.SetSpecialUnit(1);
    film.SetSpecialUnitName("mV");
    float scale[17];
    for (int i = 0; i < 17; ++i) scale[i] = static_cast<float>(i) * 0.5f;
    EXPECT_EQ(film.SetSpecialScale(scale, 17), 1);
    film.SetZoomX(2.0f);
    film.SetZoomY(3.0f);
    film.SetAverage(4);
    film.SetLongitude(6.5f);
    film.SetLatitude(45.5f);
    film.SetAltitude(200.0f);
    film.SetExternalSync(1);
    film.SetFramePeriod(0.02f);
    film.SetIntegration(0.002f, 0);
    film.SetIntegration(0.003f, 1);
    film.SetIntegration(0.004f, 36);
    film.SetWindow(1);
    film.SetNucIndex(5);
    film.SetComment("hello");
    film.SetFileCalibration("/cal/dir/law.clb");
    film.SetFileTools("tool");
    film.SetCurrentPalette(6, 1, 0);
    film.SetIndexCurrentUnit(2);
    film.SetZoomScrollPosition(-5, 7);
    film.SetIsotherm(0, 1, 10, 20, 0x00FF0000u);
    film.SetIsotherm(2, 1, 30, 40, 0x0000FF00u);
    film.SetZero(1, 1234);
    film.SetPaletteWidth(256);
    film.SetPaletteFullScaleDisplay(1);
    film.SetKm(1.25);
    film.SetDemodeFrequency(0.5f);
    film.SetDistanceOffset(0.75f);
    film.SetHistoEqualisation(1, 42);
    film.SetImageRealDriverTopFrameValid(1);
    film.SetSubSampling(3);
    film.SetCaptureFlip(1, 1);
    film.SetCaptureBlackBody(35.0f);
    film.SetCaptureFilterWheel(2);
    film.SetCaptureFocal(1);
    film.SetLensReference("L-REF");
    film.SetMasterClock(40e6f);
    film.SetPlaySpeed(-2);
    film.SetIRIGBPlay(0);
    film.SetIntegrationMode(3);
    film.SetTime(3725.5);
    ASSERT_EQ(film.WriteHeader(), 1);

    const auto h = ReadAll(name);
    ASSERT_EQ(h.size(), 3476u);
    EXPECT_EQ(TextAt(h, 44, 20), "CamX");
    EXPECT_EQ(TextAt(h, 64, 20), "25 mm");
    EXPECT_EQ(TextAt(h, 84, 20), "F1");
    EXPECT_EQ(TextAt(h, 104, 20), "Ap");
    EXPECT_EQ(At<float>(h, 124), 1.5f);
    EXPECT_EQ(At<float>(h, 128), 2.5f);
    EXPECT_EQ(At<uint16_t>(h, 132), 7);
    EXPECT_EQ(At<float>(h, 141), 0.95f);
    EXPECT_EQ(At<float>(h, 145), 300.0f);
    EXPECT_EQ(At<float>(h, 149), 12.0f);
    EXPECT_EQ(h[153], 3);
    EXPECT_EQ(At<int32_t>(h, 154), -1000);
    EXPECT_EQ(At<uint16_t>(h, 158), 400);
    EXPECT_EQ(At<int32_t>(h, 160), 50000);
    EXPECT_EQ(h[169], 2);
    EXPECT_EQ(At<float>(h, 170), 0.9f);
    EXPECT_EQ(At<float>(h, 174), 0.1f);
    EXPECT_EQ(At<float>(h, 184), 280.0f);
    EXPECT_EQ(At<float>(h, 188), 3.0f);
    EXPECT_EQ(At<float>(h, 192), 5.0f);
    EXPECT_EQ(At<float>(h, 196), 15.0f);
    EXPECT_EQ(At<float>(h, 200), 16.0f);
    EXPECT_EQ(At<float>(h, 204), 2.0f);
    EXPECT_EQ(At<float>(h, 208), 25.0f);
    EXPECT_EQ(At<float>(h, 212), 31.0f);
    EXPECT_EQ(At<float>(h, 216), 32.0f);
    EXPECT_EQ(TextAt(h, 220, 19), "SN12345");
    EXPECT_EQ(At<int32_t>(h, 239), 0x2C00002);
    EXPECT_EQ(At<uint16_t>(h, 243), 3);
    EXPECT_EQ(At<uint16_t>(h, 245), 100);
    EXPECT_EQ(At<uint16_t>(h, 247), 4000);
    EXPECT_EQ(At<uint16_t>(h, 277), 1);
    EXPECT_EQ(TextAt(h, 279, 10), "mV");
    EXPECT_EQ(At<float>(h, 289), 0.0f);
    EXPECT_EQ(At<float>(h, 289 + 4 * 16), 8.0f);
    EXPECT_EQ(At<float>(h, 365), 2.0f);
    EXPECT_EQ(At<float>(h, 369), 3.0f);
    EXPECT_EQ(At<uint16_t>(h, 377), 64);
    EXPECT_EQ(At<uint16_t>(h, 379), 32);
    EXPECT_EQ(At<uint16_t>(h, 381), 12);
    EXPECT_EQ(At<uint16_t>(h, 383), 4);
    EXPECT_EQ(At<float>(h, 385), 6.5f);
    EXPECT_EQ(At<float>(h, 389), 45.5f);
    EXPECT_EQ(At<float>(h, 393), 200.0f);
    EXPECT_EQ(h[397], 1);
    EXPECT_EQ(At<float>(h, 403), 0.02f);
    EXPECT_EQ(At<float>(h, 407), 0.002f);
    EXPECT_EQ(At<uint16_t>(h, 411), 1);
    EXPECT_EQ(At<float>(h, 413), 0.003f);  // index 1, just behind the sub-window flag
    EXPECT_EQ(At<float>(h, 553), 0.004f);  // index 36, the last before the NUC index
    EXPECT_EQ(At<uint16_t>(h, 557), 5);
    EXPECT_EQ(TextAt(h, 563, 1000), "hello");
    EXPECT_EQ(TextAt(h, 1563, 100), "law.clb");
    EXPECT_EQ(TextAt(h, 1663, 256), "tool");
    EXPECT_EQ(h[1919], 1);
    EXPECT_EQ(At<uint16_t>(h, 1920), 6);
    EXPECT_EQ(h[1922], 1);
    EXPECT_EQ(h[1923], 0);
    EXPECT_EQ(h[1924], 1);
    EXPECT_EQ(At<uint16_t>(h, 1925), 2);
    EXPECT_EQ(At<int32_t>(h, 1927), -5);
    EXPECT_EQ(At<int32_t>(h, 1931), 7);
    EXPECT_EQ(h[2072], 1);
    EXPECT_EQ(At<uint16_t>(h, 2073), 10);
    EXPECT_EQ(At<uint16_t>(h, 2075), 20);
    EXPECT_EQ(At<uint32_t>(h, 2077), 0x00FF0000u);
    EXPECT_EQ(h[2081], 0);
    EXPECT_EQ(h[2090], 1);
    EXPECT_EQ(At<uint16_t>(h, 2091), 30);
    EXPECT_EQ(At<uint16_t>(h, 2093), 40);
    EXPECT_EQ(At<uint32_t>(h, 2095), 0x0000FF00u);
    EXPECT_EQ(h[2099], 1);
    EXPECT_EQ(At<uint16_t>(h, 2100), 1234);
    EXPECT_EQ(At<uint16_t>(h, 2102), 256);
    EXPECT_EQ(h[2104], 1);
    EXPECT_EQ(h[2105], 0);
    EXPECT_EQ(At<double>(h, 2106), 1.25);
    EXPECT_EQ(At<float>(h, 2114), 0.5f);
    EXPECT_EQ(At<float>(h, 2140), 0.75f);
    EXPECT_EQ(h[2144], 1);
    EXPECT_EQ(At<uint16_t>(h, 2145), 42);
    EXPECT_EQ(TextAt(h, 2147, 256), "/cal/dir/law.clb");
    EXPECT_EQ(h[2403], 1);
    EXPECT_EQ(At<int32_t>(h, 2404), 3);
    EXPECT_EQ(h[2408], 1);
    EXPECT_EQ(h[2409], 1);
    EXPECT_EQ(At<float>(h, 2410), 35.0f);
    EXPECT_EQ(h[2414], 2);
    EXPECT_EQ(h[2415], 1);
    EXPECT_EQ(h[2416], 1);
    EXPECT_EQ(TextAt(h, 2417, 20), "L-REF");
    EXPECT_EQ(At<float>(h, 2437), 40e6f);
    EXPECT_EQ(At<int32_t>(h, 2441), -2);
    EXPECT_EQ(h[2940], 0);
    EXPECT_EQ(At<uint32_t>(h, 3020), 3u);
    // 3725.5 s: minute 2, hour 1, hundredths 50, second 5, thousandths 0.
    EXPECT_EQ(h[39], 2);
    EXPECT_EQ(h[40], 1);
    EXPECT_EQ(h[41], 50);
    EXPECT_EQ(h[42], 5);
    EXPECT_EQ(h[43], 0);
    EXPECT_DOUBLE_EQ(film.GetTime(), 3725.5);

    // Read back through a new object: the same values by name.
    CPtrOver back(name);
    ASSERT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetCamera(), "CamX");
    EXPECT_EQ(back.GetFocal(), 25.0f);
    EXPECT_EQ(back.GetIntegration(36), 0.004f);
    EXPECT_EQ(back.GetKm(), 1.25);
    EXPECT_EQ(back.GetSubSampling(), 3);
    EXPECT_EQ(back.IsIRIGBPlay(), 0);
    File::Remove(name);
}

TEST(FilmHeader, AccessorRules) {
    CPtrOver p;
    p.InitHeader(320, 256, 14);
    unsigned char* h = p.GetHeaderAddress();

    // Averaging: values below 2 ignored; a stored 0 or 1 reads as 1.
    p.SetAverage(4);
    p.SetAverage(1);
    EXPECT_EQ(p.GetAverage(), 4);
    EXPECT_EQ(p.IsAverage(), 1);
    store<uint16_t>(h, 383, 0);
    EXPECT_EQ(p.GetAverage(), 1);
    EXPECT_EQ(p.IsAverage(), 0);
    store<uint16_t>(h, 383, 1);
    EXPECT_EQ(p.IsAverage(), 0);

    // Sub-sampling: the stored 0 reads 1, SetSubSampling(1) ignored, negative reads 1.
    EXPECT_EQ(p.GetSubSampling(), 1);
    p.SetSubSampling(1);
    EXPECT_EQ(load<int32_t>(h, 2404), 0);
    p.SetSubSampling(2);
    EXPECT_EQ(p.GetSubSampling(), 2);
    store<int32_t>(h, 2404, -7);
    EXPECT_EQ(p.GetSubSampling(), 1);

    // Frame rate: 1 / period; a non-positive period gives 0; rates <= 0 ignored.
    EXPECT_FLOAT_EQ(p.GetFrameRate(), 25.0f);
    p.SetFrameRate(0.0f);
    p.SetFrameRate(-5.0f);
    EXPECT_EQ(p.GetFramePeriod(), 0.04f);
    p.SetFrameRate(50.0f);
    EXPECT_EQ(p.GetFramePeriod(), 1.0f / 50.0f);
    p.SetFramePeriod(0.0f);
    EXPECT_EQ(p.GetFrameRate(), 0.0f);
    p.SetFramePeriod(-1.0f);
    EXPECT_EQ(p.GetFrameRate(), 0.0f);

    // Integration: index 0 also writes the current image's field; out of range ignored.
    p.SetIntegration(0.005f, 0);
    EXPECT_EQ(load<float>(h, 407), 0.005f);
    EXPECT_EQ(p.GetImageIntegration(), 0.005f);
    EXPECT_EQ(load<float>(p.GetImageHeaderAddress(), 288), 0.005f);
    p.SetIntegration(0.007f, 2);
    EXPECT_EQ(load<float>(h, 417), 0.007f);
    EXPECT_EQ(p.GetImageIntegration(), 0.005f);
    const auto before = HeaderBytes(p);
    p.SetIntegration(9.0f, 37);
    p.SetIntegration(9.0f, -1);
    EXPECT_EQ(HeaderBytes(p), before);
    EXPECT_EQ(p.GetIntegration(37), 0.0f);
    EXPECT_EQ(p.GetIntegration(-1), 0.0f);

    // Housing temperature: indexes 0 and 1 only.
    p.SetHousingTemperature(1.0f, 0);
    p.SetHousingTemperature(2.0f, 1);
    p.SetHousingTemperature(3.0f, 2);
    EXPECT_EQ(p.GetHousingTemperature(0), 1.0f);
    EXPECT_EQ(p.GetHousingTemperature(1), 2.0f);
    EXPECT_EQ(p.GetHousingTemperature(2), 0.0f);
    EXPECT_EQ(load<float>(h, 220), 0.0f);  // the serial number behind them is untouched

    // Frame position predicates.
    EXPECT_EQ(p.IsEmpty(), 1);
    p.SetFrameNumber(1);
    EXPECT_EQ(p.IsSingle(), 1);
    EXPECT_EQ(p.IsFirstFrame(), 1);
    EXPECT_EQ(p.IsLastFrame(), 1);
    p.SetFrameNumber(3);
    p.SetCurrentFrame(2);
    EXPECT_EQ(p.IsLastFrame(), 1);
    EXPECT_EQ(p.IsFirstFrame(), 0);
    EXPECT_EQ(p.IsCompatible(), 1);

    // Special scale: only with a special unit in use; only 17 values accepted.
    float* out = nullptr;
    int count = 0;
    EXPECT_EQ(p.GetSpecialScale(out, count), 0);
    float s16[16] = {};
    const auto noScale = HeaderBytes(p);
    EXPECT_EQ(p.SetSpecialScale(s16, 16), 0);
    EXPECT_EQ(p.SetSpecialScale(nullptr, 17), 0);
    EXPECT_EQ(HeaderBytes(p), noScale);
    float s17[17];
    for (int i = 0; i < 17; ++i) s17[i] = 10.0f + i;
    EXPECT_EQ(p.SetSpecialScale(s17, 17), 1);
    EXPECT_EQ(p.GetSpecialScale(out, count), 0);  // not in use yet
    p.SetSpecialUnit(2);
    ASSERT_EQ(p.GetSpecialScale(out, count), 1);
    EXPECT_EQ(count, 17);
    EXPECT_EQ(out[0], 10.0f);
    EXPECT_EQ(out[16], 26.0f);

    // Capture flip: 0 and (0, 0) while not valid.
    int fx = 7, fy = 7;
    EXPECT_EQ(p.GetCaptureFlip(fx, fy), 0);
    EXPECT_EQ(fx, 0);
    EXPECT_EQ(fy, 0);
    p.SetCaptureFlip(1, 0);
    EXPECT_EQ(p.GetCaptureFlip(fx, fy), 1);
    EXPECT_EQ(fx, 1);
    EXPECT_EQ(fy, 0);

    // Palette and unit: 0 while not marked valid.
    unsigned short index = 99;
    unsigned char f1 = 9, f2 = 9;
    EXPECT_EQ(p.GetCurrentPalette(index, f1, f2), 0);
    EXPECT_EQ(p.GetIndexCurrentUnit(index), 0);
    p.SetCurrentPalette(3, 1, 1);
    EXPECT_EQ(p.GetCurrentPalette(index, f1, f2), 1);
    EXPECT_EQ(index, 3);
    EXPECT_EQ(f1, 1);
    EXPECT_EQ(f2, 1);
    p.SetIndexCurrentUnit(4);
    EXPECT_EQ(p.GetIndexCurrentUnit(index), 1);
    EXPECT_EQ(index, 4);

    // Isotherms 0..2 only.
    int on = 0;
    unsigned short lo = 0, hi = 0;
    uint32_t colour = 0;
    EXPECT_EQ(p.SetIsotherm(3, 1, 1, 2, 3), 0);
    EXPECT_EQ(p.SetIsotherm(-1, 1, 1, 2, 3), 0);
    EXPECT_EQ(p.GetIsotherm(3, on, lo, hi, colour), 0);
    EXPECT_EQ(p.SetIsotherm(1, 1, 5, 6, 0x123456u), 1);
    EXPECT_EQ(p.GetIsotherm(1, on, lo, hi, colour), 1);
    EXPECT_EQ(on, 1);
    EXPECT_EQ(lo, 5);
    EXPECT_EQ(hi, 6);
    EXPECT_EQ(colour, 0x123456u);
    EXPECT_EQ(p.SetZero(1, 77), 1);
    EXPECT_EQ(p.SetPaletteWidth(100), 1);
    EXPECT_EQ(p.SetPaletteFullScaleDisplay(1), 1);

    // Histogram equalisation: bit 0 of on; 100 % and more bounded to 99.
    unsigned short pct = 0;
    p.SetHistoEqualisation(2, 50);
    EXPECT_EQ(h[2144], 0);
    EXPECT_EQ(p.GetHistoEqualisation(pct), 0);
    p.SetHistoEqualisation(3, 99);
    EXPECT_EQ(h[2144], 1);
    EXPECT_EQ(p.GetHistoEqualisation(pct), 1);
    EXPECT_EQ(pct, 99);
    p.SetHistoEqualisation(1, 100);
    EXPECT_EQ(load<uint16_t>(h, 2145), 99);
    p.SetHistoEqualisation(1, 65535);
    EXPECT_EQ(load<uint16_t>(h, 2145), 99);

    // Top-frame counter: read as 0 unless the file header says it is valid.
    p.SetImageRealDriverTopFrame(0x0102030405060708ull);
    EXPECT_EQ(load<uint64_t>(p.GetImageHeaderAddress(), 292), 0x0102030405060708ull);
    EXPECT_EQ(p.IsImageRealDriverTopFrameValid(), 0);
    EXPECT_EQ(p.GetImageRealDriverTopFrame(), 0u);
    p.SetImageRealDriverTopFrameValid(1);
    EXPECT_EQ(p.GetImageRealDriverTopFrame(), 0x0102030405060708ull);

    // Sensor temperatures 0..3 only.
    p.SetImageSensorTemp(1.5f, 3);
    p.SetImageSensorTemp(9.0f, 4);
    EXPECT_EQ(load<float>(p.GetImageHeaderAddress(), 244), 1.5f);
    EXPECT_EQ(load<float>(p.GetImageHeaderAddress(), 248), 0.0f);
    EXPECT_EQ(p.GetImageSensorTemp(4), 0.0f);
    EXPECT_EQ(p.GetImageSensorTemp(-1), 0.0f);
}

TEST(FilmHeader, TextFieldsAreCutAtTheirLengths) {
    CPtrOver p;
    p.InitHeader(8, 8, 14);
    const std::string longText(1200, 'x');
    p.SetCamera(longText.c_str());
    EXPECT_EQ(p.GetCamera().size(), 19u);
    EXPECT_EQ(p.GetHeaderAddress()[44 + 19], 0);
    EXPECT_EQ(p.GetHeaderAddress()[64], 0);  // the lens field behind is untouched
    p.SetSerial("ABCDEFGHIJKLMNOP");
    EXPECT_EQ(p.GetSerial(), "ABCDEFGHIJ");  // 10 characters in a 19-byte field
    EXPECT_EQ(p.GetHeaderAddress()[230], 0);
    p.SetSpecialUnitName("0123456789AB");
    EXPECT_EQ(p.GetSpecialUnitName(), "012345678");
    p.SetComment(longText.c_str());
    EXPECT_EQ(p.GetComment().size(), 999u);
    EXPECT_EQ(p.GetHeaderAddress()[563 + 999], 0);
    p.SetComment(nullptr);  // ignored
    EXPECT_EQ(p.GetComment().size(), 999u);
    p.SetComment("short");
    EXPECT_EQ(p.GetComment(), "short");
    EXPECT_EQ(p.GetHeaderAddress()[563 + 6], 0);  // the rest of the old text is cleared
    p.SetFileTools(longText.c_str());
    EXPECT_EQ(p.GetFileTools().size(), 255u);
    EXPECT_EQ(p.GetHeaderAddress()[1919], 0);  // the palette byte behind is untouched
    p.SetLensReference(longText.c_str());
    EXPECT_EQ(p.GetLensReference().size(), 19u);

    // Lens from the focal length, "%g mm", and back.
    p.SetFocal(12.5f);
    EXPECT_EQ(p.GetLens(), "12.5 mm");
    EXPECT_EQ(p.GetFocal(), 12.5f);
    EXPECT_EQ(p.GetFocalLength(), 12.5f);
    p.SetFocal(100.0f);
    EXPECT_EQ(p.GetLens(), "100 mm");
    p.SetLens("wide");
    EXPECT_EQ(p.GetFocal(), 0.0f);

    // Filter names: 0 in its field, 1..7 kept in the reserved area, others ignored.
    p.SetFilter("F0", 0);
    p.SetFilter("F1", 1);
    p.SetFilter("F7", 7);
    p.SetFilter("F8", 8);
    p.SetFilter("Fm", -1);
    EXPECT_EQ(p.GetFilter(0), "F0");
    EXPECT_EQ(p.GetFilter(1), "F1");
    EXPECT_EQ(p.GetFilter(7), "F7");
    EXPECT_EQ(p.GetFilter(8), "");
    EXPECT_EQ(p.GetFilter(-1), "");
    EXPECT_EQ(TextAt(std::vector<unsigned char>(p.GetHeaderAddress(), p.GetHeaderAddress() + 3476), 2920, 20),
              "F7");
    EXPECT_EQ(p.GetHeaderAddress()[2940], 1);  // IRIG-B play byte behind is untouched

    // Calibration file blocks: name and path; removal clears both.
    std::string path;
    EXPECT_EQ(p.GetFileCalibration(&path), 0);
    p.SetFileCalibration("/a/b/cal.clb");
    EXPECT_EQ(p.GetFileCalibration(&path), 1);
    EXPECT_EQ(path, "/a/b/cal.clb");
    p.SetFileCalibration("plain.clb");
    EXPECT_EQ(p.GetFileCalibration(&path), 1);
    EXPECT_EQ(path, "plain.clb");
    p.RemoveFileCalibration();
    EXPECT_EQ(p.GetFileCalibration(&path), 0);
    for (size_t i = 1563; i < 1663; ++i) ASSERT_EQ(p.GetHeaderAddress()[i], 0);
    for (size_t i = 2147; i < 2403; ++i) ASSERT_EQ(p.GetHeaderAddress()[i], 0);
}

TEST(FilmHeader, TimesSubWindowAndIrigB) {
    CPtrOver p;
    p.InitHeader(100, 80, 14);
    const unsigned char* img = p.GetImageHeaderAddress();

    p.SetFrameTime(3725.5);
    EXPECT_EQ(img[80], 2);   // minute
    EXPECT_EQ(img[81], 1);   // hour
    EXPECT_EQ(img[82], 50);  // hundredths
    EXPECT_EQ(img[83], 5);   // second
    EXPECT_EQ(img[160], 0);
    EXPECT_EQ(load<uint16_t>(img, 161), 0);
    EXPECT_DOUBLE_EQ(p.GetFrameTime(), 3725.5);
    p.SetFrameTime(45296.123456);
    EXPECT_NEAR(p.GetFrameTime(), 45296.123456, 2e-6);
    EXPECT_EQ(img[81], 12);
    EXPECT_EQ(img[80], 34);
    EXPECT_EQ(img[83], 56);

    // Sub-window: full frame while no flag is set; null clears both flags.
    CRect r;
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, CRect(0, 0, 100, 80));
    const CRect win(10, 20, 50, 60);
    p.SetSubWindowRect(&win);
    EXPECT_EQ(load<uint16_t>(p.GetHeaderAddress(), 411), 1);
    EXPECT_EQ(load<uint16_t>(img, 278), 1);
    EXPECT_EQ(load<int16_t>(img, 280), 10);
    EXPECT_EQ(load<int16_t>(img, 282), 20);
    EXPECT_EQ(load<int16_t>(img, 284), 40);
    EXPECT_EQ(load<int16_t>(img, 286), 40);
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, win);
    p.SetWindow(0);  // either flag is enough
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, win);
    p.SetSubWindowRect(nullptr);
    EXPECT_EQ(load<uint16_t>(p.GetHeaderAddress(), 411), 0);
    EXPECT_EQ(load<uint16_t>(img, 278), 0);
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, CRect(0, 0, 100, 80));
    p.GetSubWindowRect(nullptr);  // nothing happens

    // IRIG-B: at most three time bytes in and out.
    const unsigned char bytes[5] = {1, 2, 3, 4, 5};
    p.SetImageIRIGB(0x5, 200, bytes, 5, 123456, 26);
    EXPECT_EQ(img[309], 5);
    EXPECT_EQ(load<uint16_t>(img, 310), 200);
    EXPECT_EQ(img[312], 1);
    EXPECT_EQ(img[314], 3);
    EXPECT_EQ(load<uint32_t>(img, 315), 123456u);
    EXPECT_EQ(img[319], 26);
    unsigned char back[5] = {9, 9, 9, 9, 9};
    unsigned char mask = 0, year = 0;
    unsigned short day = 0;
    uint32_t micro = 0;
    p.GetImageIRIGB(mask, day, back, 5, micro, year);
    EXPECT_EQ(back[2], 3);
    EXPECT_EQ(back[3], 9);
    EXPECT_EQ(p.IsImageIRIGBActive(), 1);

    // Lock-in data: 21 bytes at 248 in the stated order.
    CPtrOver::PTR_LOCKIN_DATA lk {0x1122, 0x33445566, 7, 1, 2, 3, 0xAABBCCDD, 9};
    p.SetImageLockinData(&lk);
    EXPECT_EQ(load<uint16_t>(img, 248), 0x1122);
    EXPECT_EQ(load<uint32_t>(img, 250), 0x33445566u);
    EXPECT_EQ(load<uint32_t>(img, 254), 7u);
    EXPECT_EQ(img[258], 1);
    EXPECT_EQ(img[260], 3);
    EXPECT_EQ(load<uint32_t>(img, 261), 0xAABBCCDDu);
    EXPECT_EQ(load<uint32_t>(img, 265), 9u);
    EXPECT_EQ(img[269], 0);
    EXPECT_EQ(img[277], 0);  // multi-integration number behind it untouched
}

TEST(FilmHeader, CalibrationBlocksRoundTrip) {
    CPtrOver p;
    p.InitHeader(16, 16, 14);
    _SCalibrationRBF law {};
    EXPECT_EQ(p.GetRBFCalibParam(&law), 0);  // a cleared header carries no law
    law.m_byType = 2;
    law.m_fNonLinearity = 0.001f;
    law.m_nLevelZero = 1000;
    law.m_nOffset = -50;
    law.m_fScale = 0.5f;
    law.m_wNonLinear = 1;
    law.m_wParam19 = 19;
    law.m_wParam21 = 21;
    law.m_fR = 400000.0f;
    law.m_fB = 1500.0f;
    law.m_fF = 1.2f;
    law.m_fParam35 = 3.5f;
    law.m_fParam39 = 3.9f;
    ASSERT_EQ(p.SetRBFCalibParam(&law), 1);
    uint8_t block[44];
    law.ToFilmBlock(block);
    EXPECT_EQ(std::memcmp(p.GetHeaderAddress() + 2976, block, 44), 0);
    EXPECT_EQ(load<uint32_t>(p.GetHeaderAddress(), 3020), 0u);  // the integration mode behind is untouched
    _SCalibrationRBF back {};
    EXPECT_EQ(p.GetRBFCalibParam(&back), 1);
    EXPECT_EQ(+back.m_byType, 2);
    EXPECT_EQ(+back.m_nOffset, -50);
    EXPECT_EQ(+back.m_fB, 1500.0f);
    EXPECT_EQ(+back.m_fParam39, 3.9f);
    EXPECT_EQ(p.SetRBFCalibParam(nullptr), 0);
    EXPECT_EQ(p.GetRBFCalibParam(nullptr), 0);

    CCnucFile::_CNUC_CALIBRATION comp {};
    auto* raw = reinterpret_cast<unsigned char*>(&comp);
    for (size_t i = 0; i < sizeof(comp); ++i) raw[i] = static_cast<unsigned char>(i * 7 + 1);
    ASSERT_EQ(p.SetCompCalibParam(&comp), 1);
    EXPECT_EQ(std::memcmp(p.GetHeaderAddress() + 3028, raw, 448), 0);
    CCnucFile::_CNUC_CALIBRATION compBack {};
    EXPECT_EQ(p.GetCompCalibParam(&compBack), 1);
    EXPECT_EQ(std::memcmp(&compBack, &comp, 448), 0);
}

TEST(FilmHeader, RewriteKeepsUnlistedBytesAndCopiesWorkAsStated) {
    const std::string name = TempName("rewrite");
    CPtrOver p;
    p.InitHeader(32, 16, 14);
    p.SetFileName(name);
    ASSERT_EQ(p.WriteHeader(), 1);
    // A newer writer's bytes in reserved places, and a longer file.
    auto bytes = ReadAll(name);
    bytes[4] = 0x44;
    bytes[135] = 0x55;
    bytes[2500] = 0x66;
    bytes[3024] = 0x77;
    bytes.resize(3476 + 1016 + 32 * 16 * 2, 0x11);
    WriteAll(name, bytes);

    CPtrOver q(name);
    ASSERT_EQ(q.IsValid(), 1);
    q.SetCamera("changed");
    q.SetFrameNumber(1);
    ASSERT_EQ(q.WriteHeader(), 1);
    const auto after = ReadAll(name);
    ASSERT_EQ(after.size(), bytes.size());
    EXPECT_EQ(after[4], 0x44);
    EXPECT_EQ(after[135], 0x55);
    EXPECT_EQ(after[2500], 0x66);
    EXPECT_EQ(after[3024], 0x77);
    EXPECT_EQ(TextAt(after, 44, 20), "changed");
    EXPECT_EQ(after[3476], 0x11);  // the image behind the header is untouched

    // CopyImageHeader: only when the image-header sizes agree.
    CPtrOver a, b;
    a.InitHeader(8, 8, 14);
    b.InitHeader(4, 4, 12);
    a.SetImageDetectorTemp(77.0f);
    EXPECT_EQ(CPtrOver::CopyImageHeader(&b, &a), 1);
    EXPECT_EQ(b.GetImageDetectorTemp(), 77.0f);
    EXPECT_EQ(CPtrOver::CopyImageHeader(nullptr, &a), 0);
    EXPECT_EQ(CPtrOver::CopyImageHeader(&b, nullptr), 0);
    store<uint32_t>(b.GetHeaderAddress(), 15, 0);
    a.SetImageDetectorTemp(5.0f);
    EXPECT_EQ(CPtrOver::CopyImageHeader(&b, &a), 0);
    EXPECT_EQ(b.GetImageDetectorTemp(), 77.0f);

    // CopyHeaderPtr: descriptive fields only; the structure of dst stays.
    CPtrOver src, dst;
    src.InitHeader(640, 512, 16);
    dst.InitHeader(320, 256, 12);
    src.SetCamera("Cam");
    src.SetEmissivity(0.5f);
    src.SetComment("from src");
    src.SetFileCalibration("/x/y.clb");
    src.SetMaxLUT(60000);
    src.SetFrameNumber(9);
    dst.SetComment("mine");
    EXPECT_EQ(CPtrOver::CopyHeaderPtr(&dst, &src, 0, 0), 1);
    EXPECT_EQ(dst.GetCamera(), "Cam");
    EXPECT_EQ(dst.GetEmissivity(), 0.5f);
    EXPECT_EQ(dst.GetComment(), "mine");
    EXPECT_EQ(dst.GetFileCalibration(nullptr), 0);
    EXPECT_EQ(dst.GetPoint(), 320);
    EXPECT_EQ(dst.GetBit(), 12);
    EXPECT_EQ(dst.GetSize(), 320 * 256);
    EXPECT_EQ(dst.GetFrameNumber(), 0u);
    EXPECT_EQ(dst.GetMaxLUT(), 4095);  // limited to dst's depth
    EXPECT_EQ(CPtrOver::CopyHeaderPtr(&dst, &src, 1, 1), 1);
    EXPECT_EQ(dst.GetComment(), "from src");
    EXPECT_EQ(dst.GetFileCalibration(nullptr), 1);
    EXPECT_EQ(CPtrOver::CopyHeaderPtr(nullptr, &src, 1, 1), 0);

    // Copy construction copies the name and both blocks.
    CPtrOver copy(q);
    EXPECT_EQ(copy.GetFileName(), name);
    EXPECT_EQ(std::memcmp(copy.GetHeaderAddress(), q.GetHeaderAddress(), 3476), 0);
    EXPECT_EQ(copy.GetFileSize(), static_cast<int64_t>(bytes.size()));
    File::Remove(name);
    EXPECT_EQ(copy.GetFileSize(), 0);
    EXPECT_EQ(copy.IsCDRom(), 0);
    EXPECT_EQ(copy.IsNetwork(), 0);
}

TEST(FilmHeader, SpecialUnitConversionsAreInverse) {
    const float scale[17] = {-10.0f, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 30.0f};
    const double values[6] = {-20.0, -10.0, 10.0, 30.0, 99.0, std::nan("")};
    unsigned short out[6];
    ASSERT_EQ(CPtrOver::ConvDoubleToSpecialUnit(values, 6, out, scale, 4095), 1);
    EXPECT_EQ(out[0], 0);     // clamped
    EXPECT_EQ(out[1], 0);
    EXPECT_EQ(out[2], 2047);  // (20 / 40) x 4095 = 2047.5, truncated
    EXPECT_EQ(out[3], 4095);
    EXPECT_EQ(out[4], 4095);  // clamped
    EXPECT_EQ(out[5], 0);     // not a number
    const float flat[17] = {};
    EXPECT_EQ(CPtrOver::ConvDoubleToSpecialUnit(values, 6, out, flat, 4095), 0);
    EXPECT_EQ(CPtrOver::ConvDoubleToSpecialUnit(values, 0, out, scale, 4095), 0);

    CPtr film(4, 4, 12, 0, 1, 0);
    double v = 0.0;
    EXPECT_EQ(film.DL2Float(100, &v), 0);  // no special unit
    film.SetSpecialScale(scale, 17);
    film.SetSpecialUnit(1);
    ASSERT_EQ(film.DL2Float(2047, &v), 1);
    EXPECT_EQ(v, static_cast<double>(-10.0f + (30.0f - -10.0f) * 2047 / 4095));
    ASSERT_EQ(film.DL2Float(4095, &v), 1);
    EXPECT_EQ(v, 30.0);
}

TEST(FilmHeader, FilledFromTheCameraConfigurationAndTheDriver) {
    const std::string user = TempName("user") + ".db";
    const std::string machine = TempName("machine") + ".db";
    const std::string oldUser = std::getenv("THERMOKIT_USER_STORE") ? std::getenv("THERMOKIT_USER_STORE") : "";
    const std::string oldMachine = std::getenv("THERMOKIT_MACHINE_STORE") ? std::getenv("THERMOKIT_MACHINE_STORE") : "";
    ::setenv("THERMOKIT_USER_STORE", user.c_str(), 1);
    ::setenv("THERMOKIT_MACHINE_STORE", machine.c_str(), 1);
    ::setenv("THERMOKIT_ADMIN", "0", 1);
    {
        CConfig config(0);
        config.SetCamera("StoreCam");
        config.SetLens("35 mm");
        config.SetSerial("S-0042");
        config.SetLensSerial("LS-7");
        config.SetDetector(1234567);
        ASSERT_NE(config.SetRegistry(), 0);
    }
    CPtrOver p;
    p.InitHeader(16, 8, 14);
    ASSERT_EQ(p.FillHeaderInfoSetup(), 1);
    EXPECT_EQ(p.GetCamera(), "StoreCam");
    EXPECT_EQ(p.GetLens(), "35 mm");
    EXPECT_EQ(p.GetSerial(), "S-0042");
    EXPECT_EQ(p.GetLensReference(), "LS-7");
    EXPECT_EQ(p.GetDetector(), 1234567);
    EXPECT_EQ(p.GetPoint(), 16);  // the structure is the film's own
    ::setenv("THERMOKIT_USER_STORE", oldUser.c_str(), 1);
    ::setenv("THERMOKIT_MACHINE_STORE", oldMachine.c_str(), 1);
    ::unsetenv("THERMOKIT_ADMIN");
    File::Remove(user);
    File::Remove(machine);

    InfoImageStruct info;
    info.byHour = 1;
    info.byMinute = 2;
    info.bySecond = 5;
    info.byHundredth = 50;
    info.byThousandth = 3;
    info.wMicro = 7;
    info.fDetectorTemp = 77.5f;
    info.fSensorTemp[3] = 30.0f;
    info.fIntegration = 0.002f;
    info.qwTopFrame = 99;
    info.bTopFrameValid = true;
    info.byIRIGBMask = 1;
    info.byIRIGBTime[0] = 4;
    std::vector<std::string> lines;
    EXPECT_EQ(p.FillHeaderInfoImage(nullptr, lines, CRect(), ""), 0);
    ASSERT_EQ(p.FillHeaderInfoImage(&info, lines, CRect(2, 2, 10, 6), "DriverCam"), 1);
    const unsigned char* img = p.GetImageHeaderAddress();
    EXPECT_EQ(img[80], 2);
    EXPECT_EQ(img[81], 1);
    EXPECT_EQ(img[160], 3);
    EXPECT_DOUBLE_EQ(p.GetFrameTime(), 3725.5 + 0.003 + 7e-6);
    EXPECT_EQ(load<float>(img, 228), 77.5f);
    EXPECT_EQ(load<float>(img, 244), 30.0f);
    EXPECT_EQ(load<float>(img, 288), 0.002f);
    EXPECT_EQ(p.GetImageRealDriverTopFrame(), 99u);
    EXPECT_EQ(img[312], 4);
    CRect r;
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, CRect(2, 2, 10, 6));
    EXPECT_EQ(p.GetCamera(), "DriverCam");
    EXPECT_FALSE(lines.empty());
    ASSERT_EQ(p.FillHeaderInfoImage(&info, lines, CRect(), ""), 1);
    EXPECT_EQ(p.GetImageWindow(), 0);
    EXPECT_EQ(p.GetCamera(), "DriverCam");
}
