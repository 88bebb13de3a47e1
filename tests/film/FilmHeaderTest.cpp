// The film file header: defaults, the byte position of every field in a
// written file, the accessor rules, rewrites that keep unknown bytes.
#include <gtest/gtest.h>

#include <array>
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

std::vector<unsigned char> ImageHeaderBytes(const CPtrOver& p) {
    return std::vector<unsigned char>(p.GetImageHeaderAddress(), p.GetImageHeaderAddress() + 1016);
}

}  // namespace

TEST(FilmHeader, InitHeaderWritesTheDefaultsAndNothingElse) {
    CPtrOver p;
    const std::time_t before = std::time(nullptr);
    p.InitHeader(640, 512, 14);
    const auto h = HeaderBytes(p);

    EXPECT_EQ(std::string(reinterpret_cast<const char*>(h.data()), 4), std::string("RKK\0", 4));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(h.data() + 5), 5), std::string("5.60\0", 5));
    ExpectFields(h, {{4, u8{0}},          {10, u8{26}},         {11, 3476u},          {15, 1016u},
                     {19, 328188u},       {23, 327680u},        {27, 0u},             {31, 0u},  // 328188 = 508 + 640 x 512
                     {141, 1.0f},         {145, 293.15f},       {149, 1.0f},          {245, u16{0}},
                     {247, u16{16383}},   {377, u16{640}},      {379, u16{512}},      {381, u16{14}},
                     {383, u16{1}},       {403, 0.04f},         {407, 0.001f},        {2940, u8{1}}});
    EXPECT_EQ(p.GetHeaderSize(), 3476u);
    EXPECT_EQ(p.GetMaxLUT(), 16383);
    EXPECT_EQ(p.GetRecordWords(), 328188u);

    // Date and time of the local clock: year + 1900, month 1..12, hundredths 0.
    std::tm local {};
    localtime_r(&before, &local);
    EXPECT_NEAR(At<uint16_t>(h, 35), local.tm_year + 1900, 1);
    EXPECT_TRUE(h[37] >= 1 && h[37] <= 31 && h[38] >= 1 && h[38] <= 12 && h[39] <= 59 && h[40] <= 23)
        << +h[37] << " " << +h[38] << " " << +h[39] << " " << +h[40];
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
    ExpectFields(HeaderBytes(p), {{39, u8{255}}, {40, u8{255}}, {41, u8{0}}, {42, u8{255}}});
    std::tm fixed {};
    fixed.tm_year = 126;
    fixed.tm_mon = 10;
    fixed.tm_mday = 21;
    fixed.tm_hour = 9;
    fixed.tm_min = 7;
    fixed.tm_sec = 3;
    p.SetRecordingClock(&fixed);
    // Year, day, month, minute, hour, hundredths, second.
    ExpectFields(HeaderBytes(p), {{35, u16{2026}}, {37, u8{21}}, {38, u8{11}}, {39, u8{7}}, {40, u8{9}}, {41, u8{0}},
                                  {42, u8{3}}});
    EXPECT_EQ(p.GetImageHeaderAddress()[0], 0);
}

TEST(FilmHeader, EveryFieldLandsAtItsOffsetInTheWrittenFile) {
    const std::string name = TempName("layout");
    CPtr film(64, 32, 12, 0, 1, 0);
    film.SetFileName(name);
    // Fields of one value each: set, then found at their offsets.
    struct FloatField { void (CPtrOver::*set)(float); float value; size_t offset; };
    const FloatField floats[] = {
        {&CPtrOver::SetBilletSpeed, 1.5f, 124},        {&CPtrOver::SetBilletDiameter, 2.5f, 128},
        {&CPtrOver::SetEmissivity, 0.95f, 141},        {&CPtrOver::SetAmbiantTemperature, 300.0f, 145},
        {&CPtrOver::SetDistance, 12.0f, 149},          {&CPtrOver::SetTransmission, 0.9f, 170},
        {&CPtrOver::SetExtinction, 0.1f, 174},         {&CPtrOver::SetAtmosphereTemperature, 280.0f, 184},
        {&CPtrOver::SetCutOn, 3.0f, 188},              {&CPtrOver::SetCutOff, 5.0f, 192},
        {&CPtrOver::SetPixelSize, 15.0f, 196},         {&CPtrOver::SetPixelPitch, 16.0f, 200},
        {&CPtrOver::SetAperture, 2.0f, 204},           {&CPtrOver::SetFocal, 25.0f, 208},
        {&CPtrOver::SetZoomX, 2.0f, 365},              {&CPtrOver::SetZoomY, 3.0f, 369},
        {&CPtrOver::SetLongitude, 6.5f, 385},          {&CPtrOver::SetLatitude, 45.5f, 389},
        {&CPtrOver::SetAltitude, 200.0f, 393},         {&CPtrOver::SetFramePeriod, 0.02f, 403},
        {&CPtrOver::SetDemodeFrequency, 0.5f, 2114},   {&CPtrOver::SetDistanceOffset, 0.75f, 2140},
        {&CPtrOver::SetCaptureBlackBody, 35.0f, 2410}, {&CPtrOver::SetMasterClock, 40e6f, 2437}};
    struct WordField { void (CPtrOver::*set)(unsigned short); unsigned short value; size_t offset; };
    const WordField words[] = {
        {&CPtrOver::SetBilletShape, 7, 132}, {&CPtrOver::SetInductorVoltage, 400, 158},
        {&CPtrOver::SetDetectorGain, 3, 243}, {&CPtrOver::SetMinLUT, 100, 245},
        {&CPtrOver::SetMaxLUT, 4000, 247},    {&CPtrOver::SetSpecialUnit, 1, 277},
        {&CPtrOver::SetAverage, 4, 383},      {&CPtrOver::SetWindow, 1, 411},
        {&CPtrOver::SetNucIndex, 5, 557}};
    struct LongField { void (CPtrOver::*set)(int32_t); int32_t value; size_t offset; };
    const LongField longs[] = {{&CPtrOver::SetInductorPower, -1000, 154}, {&CPtrOver::SetInductorFrequency, 50000, 160},
                               {&CPtrOver::SetDetector, 0x2C00002, 239},  {&CPtrOver::SetSubSampling, 3, 2404},
                               {&CPtrOver::SetPlaySpeed, -2, 2441}};
    struct ByteField { void (CPtrOver::*set)(unsigned char); unsigned char value; size_t offset; };
    const ByteField bytes[] = {{&CPtrOver::SetInductorCoil, 3, 153}, {&CPtrOver::SetSynchronisation, 2, 169},
                               {&CPtrOver::SetExternalSync, 1, 397}};
    struct TextField { void (CPtrOver::*set)(const char*); const char* value; size_t offset, size; };
    const TextField texts[] = {{&CPtrOver::SetCamera, "CamX", 44, 20},       {&CPtrOver::SetApertureName, "Ap", 104, 20},
                               {&CPtrOver::SetSerial, "SN12345", 220, 19},   {&CPtrOver::SetSpecialUnitName, "mV", 279, 10},
                               {&CPtrOver::SetComment, "hello", 563, 1000},  {&CPtrOver::SetFileTools, "tool", 1663, 256},
                               {&CPtrOver::SetLensReference, "L-REF", 2417, 20}};
    for (const auto& f : floats) (film.*f.set)(f.value);
    for (const auto& f : words) (film.*f.set)(f.value);
    for (const auto& f : longs) (film.*f.set)(f.value);
    for (const auto& f : bytes) (film.*f.set)(f.value);
    for (const auto& f : texts) (film.*f.set)(f.value);
    film.SetFilter("F1");
    film.SetHousingTemperature(31.0f, 0);
    film.SetHousingTemperature(32.0f, 1);
    float scale[17];
    for (int i = 0; i < 17; ++i) scale[i] = static_cast<float>(i) * 0.5f;
    EXPECT_EQ(film.SetSpecialScale(scale, 17), 1);
    film.SetIntegration(0.002f, 0);
    film.SetIntegration(0.003f, 1);
    film.SetIntegration(0.004f, 36);
    film.SetFileCalibration("/cal/dir/law.clb");
    film.SetCurrentPalette(6, 1, 0);
    film.SetIndexCurrentUnit(2);
    film.SetZoomScrollPosition(-5, 7);
    film.SetIsotherm(0, 1, 10, 20, 0x00FF0000u);
    film.SetIsotherm(2, 1, 30, 40, 0x0000FF00u);
    film.SetZero(1, 1234);
    film.SetPaletteWidth(256);
    film.SetPaletteFullScaleDisplay(1);
    film.SetKm(1.25);
    film.SetHistoEqualisation(1, 42);
    film.SetImageRealDriverTopFrameValid(1);
    film.SetCaptureFlip(1, 1);
    film.SetCaptureFilterWheel(2);
    film.SetCaptureFocal(1);
    film.SetIRIGBPlay(0);
    film.SetIntegrationMode(3);
    film.SetTime(3725.5);
    ASSERT_EQ(film.WriteHeader(), 1);

    const auto h = ReadAll(name);
    ASSERT_EQ(h.size(), 3476u);
    for (const auto& f : floats) EXPECT_EQ(At<float>(h, f.offset), f.value) << "at " << f.offset;
    for (const auto& f : words) EXPECT_EQ(At<uint16_t>(h, f.offset), f.value) << "at " << f.offset;
    for (const auto& f : longs) EXPECT_EQ(At<int32_t>(h, f.offset), f.value) << "at " << f.offset;
    for (const auto& f : bytes) EXPECT_EQ(h[f.offset], f.value) << "at " << f.offset;
    for (const auto& f : texts) EXPECT_EQ(TextAt(h, f.offset, f.size), f.value) << "at " << f.offset;
    ExpectFields(h, {
        {64, "25 mm"}, {84, "F1"}, {212, 31.0f}, {216, 32.0f},                    // lens from the focal length
        {289, 0.0f}, {289 + 4 * 16, 8.0f},                                           // special scale
        {377, u16{64}}, {379, u16{32}}, {381, u16{12}},                              // structure
        {407, 0.002f}, {413, 0.003f}, {553, 0.004f},  // integration 0, 1 (behind the sub-window flag), 36 (before the NUC index)
        {1563, "law.clb"}, {2147, "/cal/dir/law.clb"},                               // calibration name and path
        {1919, u8{1}}, {1920, u16{6}}, {1922, u8{1}}, {1923, u8{0}},                 // palette
        {1924, u8{1}}, {1925, u16{2}}, {1927, int32_t{-5}}, {1931, int32_t{7}},     // unit, scroll position
        {2072, u8{1}}, {2073, u16{10}}, {2075, u16{20}}, {2077, 0x00FF0000u}, {2081, u8{0}},  // isotherms 0 and 2
        {2090, u8{1}}, {2091, u16{30}}, {2093, u16{40}}, {2095, 0x0000FF00u},
        {2099, u8{1}}, {2100, u16{1234}}, {2102, u16{256}}, {2104, u8{1}}, {2105, u8{0}},  // zero, palette width
        {2106, 1.25}, {2144, u8{1}}, {2145, u16{42}}, {2403, u8{1}},                 // Km, equalisation
        {2408, u8{1}}, {2409, u8{1}}, {2414, u8{2}}, {2415, u8{1}}, {2416, u8{1}},  // capture
        {2940, u8{0}}, {3020, 3u},                                                   // IRIG-B play, integration mode
        {39, u8{2}}, {40, u8{1}}, {41, u8{50}}, {42, u8{5}}, {43, u8{0}}});  // 3725.5 s: min, hour, 1/100, s, 1/1000
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
    for (int k = 0; k < 3; ++k) p.SetHousingTemperature(1.0f + k, k);
    EXPECT_EQ((std::array<float, 3>{p.GetHousingTemperature(0), p.GetHousingTemperature(1), p.GetHousingTemperature(2)}),
              (std::array<float, 3>{1.0f, 2.0f, 0.0f}));
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
    const auto flip = [&p] {
        int fx = 7, fy = 7;
        const int r = p.GetCaptureFlip(fx, fy);
        return std::array<int, 3>{r, fx, fy};
    };
    EXPECT_EQ(flip(), (std::array<int, 3>{0, 0, 0}));
    p.SetCaptureFlip(1, 0);
    EXPECT_EQ(flip(), (std::array<int, 3>{1, 1, 0}));

    // Palette and unit: 0 while not marked valid.
    unsigned short index = 99;
    unsigned char f1 = 9, f2 = 9;
    EXPECT_EQ(p.GetCurrentPalette(index, f1, f2), 0);
    EXPECT_EQ(p.GetIndexCurrentUnit(index), 0);
    p.SetCurrentPalette(3, 1, 1);
    EXPECT_EQ(p.GetCurrentPalette(index, f1, f2), 1);
    EXPECT_EQ((std::array<int, 3>{index, f1, f2}), (std::array<int, 3>{3, 1, 1}));
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
    EXPECT_EQ((std::array<uint32_t, 4>{uint32_t(on), lo, hi, colour}), (std::array<uint32_t, 4>{1, 5, 6, 0x123456u}));
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

    // Minute, hour, hundredths, second, thousandths, microseconds.
    p.SetFrameTime(3725.5);
    ExpectFields(ImageHeaderBytes(p), {{80, u8{2}}, {81, u8{1}}, {82, u8{50}}, {83, u8{5}}, {160, u8{0}}, {161, u16{0}}});
    EXPECT_DOUBLE_EQ(p.GetFrameTime(), 3725.5);
    p.SetFrameTime(45296.123456);
    EXPECT_NEAR(p.GetFrameTime(), 45296.123456, 2e-6);
    ExpectFields(ImageHeaderBytes(p), {{80, u8{34}}, {81, u8{12}}, {83, u8{56}}});

    // Sub-window: full frame while no flag is set; null clears both flags.
    CRect r;
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, CRect(0, 0, 100, 80));
    const CRect win(10, 20, 50, 60);
    p.SetSubWindowRect(&win);
    EXPECT_EQ(load<uint16_t>(p.GetHeaderAddress(), 411), 1);
    // Flag, x, y, width, height.
    ExpectFields(ImageHeaderBytes(p), {{278, u16{1}}, {280, int16_t{10}}, {282, int16_t{20}}, {284, int16_t{40}},
                                       {286, int16_t{40}}});
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
    // Mask, day, time bytes, microseconds, year.
    ExpectFields(ImageHeaderBytes(p), {{309, u8{5}}, {310, u16{200}}, {312, u8{1}}, {314, u8{3}}, {315, 123456u},
                                       {319, u8{26}}});
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
    // The multi-integration number behind it (277) is untouched.
    ExpectFields(ImageHeaderBytes(p), {{248, u16{0x1122}}, {250, 0x33445566u}, {254, 7u}, {258, u8{1}}, {260, u8{3}},
                                       {261, 0xAABBCCDDu}, {265, 9u}, {269, u8{0}}, {277, u8{0}}});
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
    // Minute, hour, thousandths, detector and sensor 3 temperatures, integration, IRIG-B time.
    ExpectFields(ImageHeaderBytes(p), {{80, u8{2}}, {81, u8{1}}, {160, u8{3}}, {228, 77.5f}, {244, 30.0f}, {288, 0.002f},
                                       {312, u8{4}}});
    EXPECT_DOUBLE_EQ(p.GetFrameTime(), 3725.5 + 0.003 + 7e-6);
    EXPECT_EQ(p.GetImageRealDriverTopFrame(), 99u);
    CRect r;
    p.GetSubWindowRect(&r);
    EXPECT_EQ(r, CRect(2, 2, 10, 6));
    EXPECT_EQ(p.GetCamera(), "DriverCam");
    EXPECT_FALSE(lines.empty());
    ASSERT_EQ(p.FillHeaderInfoImage(&info, lines, CRect(), ""), 1);
    EXPECT_EQ(p.GetImageWindow(), 0);
    EXPECT_EQ(p.GetCamera(), "DriverCam");
}
