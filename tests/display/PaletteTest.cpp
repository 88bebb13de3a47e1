// Built-in palettes byte for byte, reversal, names, index table and the palette bar.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/platform/CWnd.h"

using namespace thermokit;

namespace {

// Entry as stored: blue, green, red, flags.
::testing::AssertionResult Entry(const tagLOGPALETTE* lp, int k, int r, int g, int b) {
    const tagPALETTEENTRY& e = lp->palPalEntry[k];
    if (e.peRed == b && e.peGreen == g && e.peBlue == r && e.peFlags == 1) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "entry " << k << " stored as (" << int(e.peRed) << "," << int(e.peGreen)
                                         << "," << int(e.peBlue) << "," << int(e.peFlags) << "), expected blue-first ("
                                         << b << "," << g << "," << r << ",1)";
}

// An entry number and its colour as shown (red, green, blue).
struct Boundary {
    int entry, r, g, b;
};

void ExpectPalette(unsigned short number, int count, std::initializer_list<Boundary> entries) {
    CLogPalette palette(number, 0, nullptr);
    tagLOGPALETTE* lp = palette.GetPLogPalette();
    ASSERT_EQ(lp->palVersion, 0x300);
    ASSERT_EQ(lp->palNumEntries, count) << CLogPalette::GetPaletteName(number);
    EXPECT_EQ(palette.GetEntryCount(), count);
    for (const Boundary& e : entries) EXPECT_TRUE(Entry(lp, e.entry, e.r, e.g, e.b)) << CLogPalette::GetPaletteName(number);
    // The created palette holds the same bytes.
    tagPALETTEENTRY copy[256];
    ASSERT_EQ(palette.GetPaletteEntries(0, 256, copy), static_cast<unsigned>(count));
    EXPECT_EQ(std::memcmp(copy, lp->palPalEntry, static_cast<size_t>(count) * 4), 0);
}

}  // namespace

TEST(Palette, InterpolatedBuiltInsByteForByte) {
    // Grey never reaches 255: the last control point itself is not written.
    ExpectPalette(CLogPalette::GREY, 256, {{0, 0, 0, 0}, {1, 0, 0, 0}, {2, 1, 1, 1}, {128, 127, 127, 127},
                                           {255, 254, 254, 254}});
    ExpectPalette(CLogPalette::GREY16, 16, {{0, 0, 0, 0}, {1, 15, 15, 15}, {8, 127, 127, 127}, {15, 239, 239, 239}});
    // Segments 128, 128.
    ExpectPalette(CLogPalette::HOTMETAL, 256, {{0, 0, 0, 0}, {127, 253, 0, 0}, {128, 255, 0, 0}, {255, 255, 253, 127}});
    // Segments 42, 43, 43, 42, 43, 43 (the step is rounded to single precision).
    ExpectPalette(CLogPalette::RAINBOW, 256,
                  {{0, 0, 0, 0}, {41, 0, 0, 248}, {42, 0, 0, 255}, {84, 0, 249, 255}, {85, 0, 255, 255},
                   {128, 0, 255, 0}, {170, 255, 255, 0}, {213, 255, 0, 0}, {255, 255, 0, 249}});
    ExpectPalette(CLogPalette::LOCKIN, 256,
                  {{0, 0, 255, 0}, {42, 0, 255, 255}, {85, 0, 0, 255}, {128, 0, 0, 0}, {170, 255, 0, 0},
                   {213, 255, 255, 0}, {255, 255, 255, 249}});
    // Segments 36, 37, 36, 37, 36, 37, 37.
    ExpectPalette(CLogPalette::STEEL, 256,
                  {{0, 0, 0, 0}, {35, 247, 0, 247}, {36, 255, 0, 255}, {73, 0, 0, 255}, {109, 0, 255, 255},
                   {146, 0, 255, 0}, {182, 255, 0, 0}, {219, 255, 255, 0}, {255, 255, 255, 248}});
    // Segments of 64; a falling component truncates toward zero (255 - 255/64 -> 252).
    ExpectPalette(CLogPalette::CYCLE, 256,
                  {{0, 255, 255, 255}, {1, 252, 252, 255}, {64, 0, 0, 255}, {128, 0, 0, 0}, {192, 255, 0, 0},
                   {255, 255, 251, 251}});
    // Segments of 32.
    ExpectPalette(CLogPalette::ROYGBIV_PALETTE, 256,
                  {{0, 0, 0, 0}, {32, 72, 61, 139}, {33, 72, 60, 139}, {64, 80, 0, 135}, {96, 0, 16, 255},
                   {128, 8, 240, 8}, {160, 255, 255, 32}, {192, 255, 140, 0}, {224, 255, 32, 0},
                   {255, 255, 248, 247}});
}

TEST(Palette, FixedTablesByteForByte) {
    ExpectPalette(CLogPalette::THRESHOLD, 16,
                  {{0, 0, 0, 0}, {1, 0x50, 0x00, 0xA0}, {3, 0x00, 0xA0, 0xFF}, {8, 0x50, 0x50, 0x00},
                   {12, 0xFF, 0x00, 0xFF}, {13, 0xFF, 0xA0, 0x00}, {15, 0xFF, 0xFF, 0xFF}});
    ExpectPalette(CLogPalette::RAINBOW16, 16,
                  {{0, 0, 0, 0xFF}, {1, 0x00, 0x42, 0xFF}, {4, 0x00, 0xFF, 0xEF}, {8, 0x21, 0xFF, 0x00},
                   {12, 0xFF, 0xC6, 0x00}, {15, 0xFF, 0, 0}});
    ExpectPalette(CLogPalette::LOCKIN16, 16,
                  {{0, 0x80, 0xFC, 0xF7}, {1, 0x00, 0xBF, 0xF7}, {7, 0, 0, 0}, {10, 0x80, 0x0F, 0x00},
                   {11, 0xBF, 0x21, 0x00}, {15, 0xF7, 0xFC, 0x40}});
}

TEST(Palette, InterpolationSegmentsOfTheRules) {
    // Count entries per segment by marking where each control point's colour starts: with
    // a palette whose red rises by one step per segment the lengths can be read off.
    CLogPalette palette(CLogPalette::GREY, 0, nullptr);
    tagLOGPALETTE lp{};
    int red[9], green[9], blue[9];
    auto segments = [&](int n, int p) {
        for (int i = 0; i < p; ++i) red[i] = green[i] = blue[i] = i * 10;
        palette.Interpolate(&lp, n, p, red, green, blue);
        std::string lengths;
        int run = 0;
        for (int k = 0; k < n; ++k) {
            if (k > 0 && lp.palPalEntry[k].peBlue / 10 != lp.palPalEntry[k - 1].peBlue / 10) {
                lengths += std::to_string(run) + " ";
                run = 0;
            }
            ++run;
        }
        return lengths + std::to_string(run);
    };
    EXPECT_EQ(segments(256, 2), "256");
    EXPECT_EQ(segments(256, 3), "128 128");
    EXPECT_EQ(segments(256, 5), "64 64 64 64");
    EXPECT_EQ(segments(256, 7), "42 43 43 42 43 43");
    EXPECT_EQ(segments(256, 8), "36 37 36 37 36 37 37");
    EXPECT_EQ(segments(256, 9), "32 32 32 32 32 32 32 32");
    EXPECT_EQ(segments(16, 2), "16");
    // More points than entries: segments of length 0 write nothing, and no entry beyond n is touched.
    lp.palPalEntry[2].peFlags = 0xEE;
    for (int i = 0; i < 9; ++i) red[i] = green[i] = blue[i] = i;
    palette.Interpolate(&lp, 2, 9, red, green, blue);
    EXPECT_EQ(lp.palNumEntries, 2);
    EXPECT_EQ(lp.palPalEntry[2].peFlags, 0xEE);
    // Sums keep their low byte only.
    int r2[] = {250, 350}, g2[] = {0, 0}, b2[] = {0, 0};
    palette.Interpolate(&lp, 16, 2, r2, g2, b2);
    EXPECT_EQ(lp.palPalEntry[15].peBlue, (250 + 100 * 15 / 16) & 0xFF);
}

TEST(Palette, SwappedReversesEntries) {
    CLogPalette threshold(CLogPalette::THRESHOLD, 1, nullptr);
    EXPECT_TRUE(threshold.IsSwapped());
    EXPECT_TRUE(Entry(threshold.GetPLogPalette(), 0, 255, 255, 255));
    EXPECT_TRUE(Entry(threshold.GetPLogPalette(), 15, 0, 0, 0));
    EXPECT_TRUE(Entry(threshold.GetPLogPalette(), 1, 0xFF, 0xFF, 0x00));
    CLogPalette grey(CLogPalette::GREY, 1, nullptr);
    EXPECT_TRUE(Entry(grey.GetPLogPalette(), 0, 254, 254, 254));
    EXPECT_TRUE(Entry(grey.GetPLogPalette(), 255, 0, 0, 0));
    // The created palette is the reversed one.
    tagPALETTEENTRY first{};
    grey.GetPaletteEntries(0, 1, &first);
    EXPECT_EQ(first.peRed, 254);
}

TEST(Palette, Names) {
    const char* expected[] = {"Threshold",  "Grey",      "Rainbow",   "Steel", "Lockin", "Grey 16",
                              "Rainbow 16", "Lockin 16", "Hot Metal", "Cycle", "ROYGBIV"};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(CLogPalette::GetPaletteName(i), expected[i]);
    EXPECT_EQ(CLogPalette::GetPaletteName(11), "Unknown palette");
    EXPECT_EQ(CLogPalette::GetPaletteName(-1), "Unknown palette");
    EXPECT_EQ(CLogPalette(8, 0, nullptr).GetPaletteName(), "Hot Metal");
    // A custom number without palette file: empty, not created, no bar.
    CLogPalette missing(11, 0, nullptr);
    EXPECT_EQ(missing.GetPaletteName(), "Unknown palette");
    EXPECT_FALSE(missing.IsCreated());
    EXPECT_EQ(missing.GetEntryCount(), 0);
    EXPECT_EQ(missing.GetLut(), nullptr);
    CWnd wnd(8, 8);
    missing.Display(&wnd, 0, 0, 0, 255, 0);  // nothing to draw, no crash
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(0, 0, 0));
}

TEST(Palette, IndexTableGivesTheSystemSlotOfEachEntry) {
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    // Reserved entries (flag 1) each get a slot of their own, in entry order.
    for (int i = 0; i < 256; ++i) ASSERT_EQ(rainbow.GetIndex()[i], i);
    CLogPalette grey16(CLogPalette::GREY16, 0, nullptr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(grey16.GetIndex()[i], i);
    // An entry without the reserved flag shares the slot of an equal earlier colour.
    tagLOGPALETTE lp{};
    lp.palVersion = 0x300;
    lp.palNumEntries = 3;
    lp.palPalEntry[0] = {1, 2, 3, 0};
    lp.palPalEntry[1] = {4, 5, 6, 0};
    lp.palPalEntry[2] = {1, 2, 3, 0};
    CPalette plain;
    ASSERT_TRUE(plain.CreatePalette(&lp));
    uint8_t index[256] = {};
    ASSERT_EQ(ReadPaletteIndices(nullptr, &plain, index), 3);
    EXPECT_EQ(index[0], 0);
    EXPECT_EQ(index[1], 1);
    EXPECT_EQ(index[2], 0);
}

TEST(Palette, BarRampZeroSplitAndInternalLut) {
    CLogPalette grey(CLogPalette::GREY, 0, nullptr);
    const unsigned short* ramp = grey.GetRamp();
    EXPECT_EQ(ramp[0], 255);
    EXPECT_EQ(ramp[1], 255);
    EXPECT_EQ(ramp[2], 254);
    EXPECT_EQ(ramp[511], 0);

    // Vertical bar: 2 x 256 image, level 255 at the top, stretched 1:1.
    CWnd wnd(2, 256);
    grey.Display(&wnd, 0, 0, 65535, 65535, 65535);
    EXPECT_TRUE(grey.IsDrawn());
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(254, 254, 254));
    EXPECT_EQ(wnd.GetCanvasPixel(1, 255), Rgb(0, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(0, 127), Rgb(127, 127, 127));  // level 128 -> entry 128

    // Zero split at (zero - min) * 256 / (max - min + 1) = 128: lower half of the palette below.
    CWnd split(2, 256);
    grey.Display(&split, 0, 0, 0, 255, 128);
    int enabled = 0;
    unsigned short position = 0;
    grey.GetLut()->GetZero(&enabled, &position);
    EXPECT_EQ(enabled, 1);
    EXPECT_EQ(position, 128);
    // Level 128 is the top of the lower part: entry (128 * 256 / 129) / 2 = 127, shown 126.
    EXPECT_EQ(split.GetCanvasPixel(0, 255 - 128), Rgb(126, 126, 126));
    // Level 129 starts the upper half: entry 128, shown 127; level 0 is entry 0.
    EXPECT_EQ(split.GetCanvasPixel(0, 255 - 129), Rgb(127, 127, 127));
    EXPECT_EQ(split.GetCanvasPixel(0, 255), Rgb(0, 0, 0));

    // Without force a drawn bar keeps its LUT.
    CLut24 source(1000);
    for (int i = 0; i <= 1000; ++i) source.GetBuffer()[i] = 0x01000000u | static_cast<uint32_t>(i);
    EXPECT_EQ(grey.UpdateInternalLut(100, 610, &source), 1);
    EXPECT_EQ(grey.GetLut()->GetBuffer()[0], 0x01000000u | 100);
    EXPECT_EQ(grey.GetLut()->GetBuffer()[1], 0x01000000u | 102);  // 100 + 1 * 510 / 255
    EXPECT_EQ(grey.GetLut()->GetBuffer()[128], 0x01000000u | 356);
    EXPECT_EQ(grey.GetLut()->GetBuffer()[255], 0x01000000u | 610);
    grey.Display(&wnd, nullptr, 0, 0, 0, 255, 65535, 0);
    EXPECT_EQ(grey.GetLut()->GetBuffer()[255], 0x01000000u | 610);
    // Refusals.
    EXPECT_EQ(grey.UpdateInternalLut(10, 5, &source), 0);
    EXPECT_EQ(grey.UpdateInternalLut(0, 1001, &source), 0);
    EXPECT_EQ(grey.UpdateInternalLut(0, 10, nullptr), 0);
}

TEST(Palette, HorizontalBarIsTheRampReadAs256By2) {
    CLogPalette grey(CLogPalette::GREY, 0, nullptr);
    CWnd wnd(256, 2);
    grey.Display(&wnd, 1, 0, 65535, 65535, 65535);
    // Row 0 holds ramp values 0..255 (levels 255..128), row 1 the rest (127..0).
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(254, 254, 254));
    EXPECT_EQ(wnd.GetCanvasPixel(255, 0), Rgb(127, 127, 127));
    EXPECT_EQ(wnd.GetCanvasPixel(0, 1), Rgb(126, 126, 126));
    EXPECT_EQ(wnd.GetCanvasPixel(255, 1), Rgb(0, 0, 0));
}
