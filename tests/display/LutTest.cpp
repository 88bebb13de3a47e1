// True-colour and 8-bit look-up tables: ranges, zero split, isotherms, equalisation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/RgbPicture.h"

using namespace thermokit;

namespace {

// Palette entry k of a palette as a 32-bit LUT value.
uint32_t Pal(CPalette& palette, int k) {
    tagPALETTEENTRY e{};
    palette.GetPaletteEntries(static_cast<unsigned>(k), 1, &e);
    uint32_t v;
    std::memcpy(&v, &e, 4);
    return v;
}

// Index of the palette entry each LUT value came from (the palette's entries are distinct).
std::vector<int> Indices(CLut24& lut, CPalette& palette) {
    std::vector<int> out;
    const int n = palette.GetEntryCount();
    for (int i = 0; i <= lut.GetMaxLevel(); ++i) {
        int found = -1;
        for (int k = 0; k < n && found < 0; ++k)
            if (Pal(palette, k) == lut.GetBuffer()[i]) found = k;
        out.push_back(found);
    }
    return out;
}

// The entries of idx at the given levels.
std::vector<int> Pick(const std::vector<int>& idx, std::initializer_list<int> levels) {
    std::vector<int> out;
    for (int level : levels) out.push_back(idx.at(static_cast<size_t>(level)));
    return out;
}

using V = std::vector<int>;

// Isotherm k of a table: the result, then enabled, low, high and colour (7 where not written).
std::vector<long> Isotherm(CLut24& lut, int k) {
    int enabled = 7;
    unsigned short low = 7, high = 7;
    COLORREF colour = 7;
    const int r = lut.GetIsotherm(k, &enabled, &low, &high, &colour);
    return {r, enabled, low, high, static_cast<long>(colour)};
}
using L = std::vector<long>;

}  // namespace

TEST(Lut24, PlainUpdateRanges) {
    CLogPalette grey16(CLogPalette::GREY16, 0, nullptr);  // 16 distinct entries
    CLut24 lut(100);
    EXPECT_EQ(lut.GetMinLut(), 0);
    EXPECT_EQ(lut.GetMaxLut(), 100);
    lut.Update(nullptr, &grey16, 10, 41);  // span 32: entry i -> palette[(i - 10) * 16 / 32]
    auto idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {0, 9, 11, 12, 40, 41, 100}), (V{0, 0, 0, 1, 15, 15, 15}));
    // Entries are the palette's bytes unchanged: blue, green, red, flag 1.
    EXPECT_EQ(lut.GetBuffer()[12], 0x010F0F0Fu);

    // min = max: one entry palette[0], everything above palette[N-1].
    lut.Update(nullptr, &grey16, 50, 50);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {50, 51}), (V{0, 15}));
    // Bounds at or above maxLevel become maxLevel.
    lut.Update(nullptr, &grey16, 200, 300);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {99, 100}), (V{0, 0}));
    // min > max: nothing in between, the top overwrites from max + 1.
    lut.Update(nullptr, &grey16, 60, 20);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {20, 21}), (V{0, 15}));
    // No palette: the table is left as it was.
    lut.Update(nullptr, nullptr, 0, 100);
    EXPECT_EQ(Indices(lut, grey16)[21], 15);
}

TEST(Lut24, ZeroSplit) {
    CLogPalette grey16(CLogPalette::GREY16, 0, nullptr);
    CLut24 lut(255);
    ASSERT_EQ(lut.SetZero(1, 49), 1);
    lut.Update(nullptr, &grey16, 0, 99);
    auto idx = Indices(lut, grey16);
    // 49: (49 * 16 / 50) / 2; 50: upper half starts at N / 2; 99: (49 * 16 / 50) / 2 + 8
    EXPECT_EQ(Pick(idx, {0, 49, 50, 99, 100}), (V{0, 7, 8, 15, 15}));

    // Zero at or below min: the whole range in the upper half, divisor max - min + 1.
    lut.SetZero(1, 5);
    lut.Update(nullptr, &grey16, 10, 41);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {9, 10, 11, 41}), (V{0, 8, 8, 15}));
    lut.SetZero(1, 10);
    lut.Update(nullptr, &grey16, 10, 41);
    EXPECT_EQ(Indices(lut, grey16)[10], 8);

    // Zero above max: the range stays in the lower half, ending at max.
    lut.SetZero(1, 200);
    lut.Update(nullptr, &grey16, 0, 99);
    idx = Indices(lut, grey16);
    // 99: (99 * 16 / 100) / 2
    EXPECT_EQ(Pick(idx, {99, 100}), (V{7, 15}));

    // A position above maxLevel is refused and changes nothing.
    EXPECT_EQ(lut.SetZero(0, 256), 0);
    int enabled = 0;
    unsigned short position = 0;
    lut.GetZero(&enabled, &position);
    EXPECT_EQ(enabled, 1);
    EXPECT_EQ(position, 200);
    lut.RemoveZero();
    lut.GetZero(&enabled, &position);
    EXPECT_EQ(enabled, 0);
}

TEST(Lut24, IsothermRules) {
    CLogPalette grey(CLogPalette::GREY, 0, nullptr);
    CLut24 lut(1000);
    EXPECT_EQ(lut.SetIsotherm(3, 1, 0, 10, 0), 0);
    EXPECT_EQ(lut.SetIsotherm(-1, 1, 0, 10, 0), 0);
    ASSERT_EQ(lut.SetIsotherm(0, 1, 20, 30, Rgb(255, 0, 0)), 1);
    ASSERT_EQ(lut.SetIsotherm(1, 1, 25, 5000, Rgb(0, 0, 255)), 1);  // high clamped to 1000
    ASSERT_EQ(lut.SetIsotherm(2, 1, 1200, 40, Rgb(0, 255, 0)), 1);  // low above maxLevel stored as 0
    EXPECT_EQ(Isotherm(lut, 1), (L{1, 1, 25, 1000, static_cast<long>(Rgb(0, 0, 255))}));
    EXPECT_EQ(Isotherm(lut, 2), (L{1, 1, 0, 40, static_cast<long>(Rgb(0, 255, 0))}));
    EXPECT_EQ(Isotherm(lut, 3), (L{0, 0, 0, 0, 0}));  // refused, and every output cleared

    lut.RemoveIsotherm(2);
    lut.Update(nullptr, &grey, 0, 1000);
    // Isotherm colours go in as blue, green, red; the flag byte stays.
    EXPECT_EQ(lut.GetBuffer()[20], 0x01FF0000u);
    EXPECT_EQ(lut.GetBuffer()[24], 0x01FF0000u);
    EXPECT_EQ(lut.GetBuffer()[25], 0x010000FFu);  // the later isotherm wins
    EXPECT_EQ(lut.GetBuffer()[1000], 0x010000FFu);
    EXPECT_EQ(lut.GetBuffer()[19], Pal(grey, 19 * 256 / 1001));

    // low > high is ignored.
    CLut24 other(100);
    other.SetIsotherm(0, 1, 60, 50, Rgb(1, 2, 3));
    other.Update(nullptr, &grey, 0, 100);
    EXPECT_EQ(other.GetBuffer()[55], Pal(grey, 55 * 256 / 101));
    // Disabled isotherms are ignored too.
    other.SetIsotherm(0, 0, 50, 60, Rgb(1, 2, 3));
    other.Update(nullptr, &grey, 0, 100);
    EXPECT_EQ(other.GetBuffer()[55], Pal(grey, 55 * 256 / 101));
}

TEST(Lut24, CopyTakesEntriesIsothermsAndZero) {
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 src(4095);
    src.SetIsotherm(1, 1, 100, 200, Rgb(9, 8, 7));
    src.SetZero(1, 2000);
    src.Update(nullptr, &rainbow, 0, 4095);
    CLut24 dst(255);
    dst.Copy(&src);
    ASSERT_EQ(dst.GetMaxLevel(), 4095);
    EXPECT_EQ(std::memcmp(dst.GetBuffer(), src.GetBuffer(), 4096 * 4), 0);
    EXPECT_EQ(Isotherm(dst, 1), (L{1, 1, 100, 200, static_cast<long>(Rgb(9, 8, 7))}));
    int enabled = 0;
    unsigned short position = 0;
    dst.GetZero(&enabled, &position);
    EXPECT_EQ(position, 2000);
    // The copy is independent of its source.
    src.GetBuffer()[0] = 0xDEADBEEF;
    EXPECT_NE(dst.GetBuffer()[0], 0xDEADBEEF);
}

TEST(Lut24, EqualisingUpdateRefusals) {
    CLogPalette grey16(CLogPalette::GREY16, 0, nullptr);
    CLut24 lut(255);
    std::vector<long> histogram(256, 1);
    lut.Update(nullptr, &grey16, 0, 255);
    const std::vector<uint32_t> before(lut.GetBuffer(), lut.GetBuffer() + 256);
    auto unchanged = [&] { return std::memcmp(before.data(), lut.GetBuffer(), 256 * 4) == 0; };

    EXPECT_EQ(lut.Update(nullptr, nullptr, 0, 255, histogram.data(), 0.5f), 0);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 0, 255, nullptr, 0.5f), 0);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), -0.01f), 0);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), 1.01f), 0);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 200, 100, histogram.data(), 0.5f), 0);  // min > max
    CLogPalette empty(11, 0, nullptr);
    EXPECT_EQ(lut.Update(nullptr, &empty, 0, 255, histogram.data(), 0.5f), 0);  // no entries
    std::vector<long> zeros(256, 0);
    zeros[10] = 5;  // outside the range
    EXPECT_EQ(lut.Update(nullptr, &grey16, 100, 200, zeros.data(), 0.5f), 0);  // total 0
    EXPECT_TRUE(unchanged());
    CLut24 single(0);
    long one = 1;
    EXPECT_EQ(single.Update(nullptr, &grey16, 0, 0, &one, 0.5f), 0);  // maxLevel 0

    // alpha 0, an enabled zero split or min == max: the plain update, result 1.
    CLut24 plain(255);
    plain.Update(nullptr, &grey16, 10, 90);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 10, 90, histogram.data(), 0.0f), 1);
    EXPECT_EQ(std::memcmp(plain.GetBuffer(), lut.GetBuffer(), 256 * 4), 0);
    plain.Update(nullptr, &grey16, 40, 40);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 40, 40, zeros.data(), 1.0f), 1);
    EXPECT_EQ(std::memcmp(plain.GetBuffer(), lut.GetBuffer(), 256 * 4), 0);
    lut.SetZero(1, 50);
    plain.SetZero(1, 50);
    plain.Update(nullptr, &grey16, 0, 99);
    EXPECT_EQ(lut.Update(nullptr, &grey16, 0, 99, histogram.data(), 1.0f), 1);
    EXPECT_EQ(std::memcmp(plain.GetBuffer(), lut.GetBuffer(), 256 * 4), 0);
}

TEST(Lut24, EqualisingUpdateOnKnownHistograms) {
    CLogPalette grey16(CLogPalette::GREY16, 0, nullptr);
    CLut24 lut(255);
    std::vector<long> histogram(256, 0);
    histogram[100] = 1000;
    // One spike, alpha 1: total 1000, clip (2002)/16 = 125, S = 125, the whole palette
    // is crossed at the spike.
    ASSERT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), 1.0f), 1);
    auto idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {99, 100, 255}), (V{0, 15, 15}));

    // Half and half: the ramp term moves the index every 33 levels, the spike jumps to 11.
    ASSERT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), 0.5f), 1);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {32, 33, 66, 98, 99, 100, 133, 231}), (V{0, 1, 2, 3, 3, 11, 12, 15}));

    // The clip limit keeps a spike from taking the whole palette: with 10 more counts at
    // 200, clip = 2022 / 16 = 126, S = 136: the spike reaches entry 14 and level 200 entry 15.
    histogram[200] = 10;
    ASSERT_EQ(lut.Update(nullptr, &grey16, 0, 255, histogram.data(), 1.0f), 1);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {100, 199, 200}), (V{14, 14, 15}));

    // Levels below min take entry 0, max and above entry N-1 (max itself overwritten).
    std::fill(histogram.begin(), histogram.end(), 1);
    ASSERT_EQ(lut.Update(nullptr, &grey16, 50, 60, histogram.data(), 1.0f), 1);
    idx = Indices(lut, grey16);
    EXPECT_EQ(Pick(idx, {49, 60, 255}), (V{0, 15, 15}));
    EXPECT_LT(idx[59], 15);
}

TEST(Lut8, RangesDeltaAndIndexTable) {
    CLut lut(100, 16);
    EXPECT_EQ(lut.GetMaxColor(), 16);
    lut.Update(10, 40);  // delta 30: entry i = (i - 10) * 15 / 30
    EXPECT_EQ(lut.GetBuffer()[9], 0);
    EXPECT_EQ(lut.GetBuffer()[10], 0);
    EXPECT_EQ(lut.GetBuffer()[12], 1);
    EXPECT_EQ(lut.GetBuffer()[39], 14);
    EXPECT_EQ(lut.GetBuffer()[40], 15);
    EXPECT_EQ(lut.GetBuffer()[100], 15);
    // A min above maxLevel falls back to the stored default range 0..100.
    lut.Update(500, 20);
    EXPECT_EQ(lut.GetBuffer()[0], 0);
    EXPECT_EQ(lut.GetBuffer()[99], 99 * 15 / 100);
    EXPECT_EQ(lut.GetBuffer()[100], 15);
    // max is clamped; no ramp when min == max.
    lut.Update(30, 30);
    EXPECT_EQ(lut.GetBuffer()[29], 0);
    EXPECT_EQ(lut.GetBuffer()[30], 15);
    // Through an index table.
    uint8_t index[16];
    for (int i = 0; i < 16; ++i) index[i] = static_cast<uint8_t>(100 + i);
    lut.Update(index, 10, 40);
    EXPECT_EQ(lut.GetBuffer()[0], 100);
    EXPECT_EQ(lut.GetBuffer()[12], 101);
    EXPECT_EQ(lut.GetBuffer()[40], 115);
    lut.Reset(index);
    EXPECT_EQ(lut.GetBuffer()[100], 115);

    // From a 256-entry palette: the count is kept in a byte (0) and used as 256.
    CLogPalette grey(CLogPalette::GREY, 0, nullptr);
    CLut big(1023, 0);
    big.Update(nullptr, &grey, 0, 1023);
    EXPECT_EQ(big.GetMaxColor(), 0);
    EXPECT_EQ(big.GetColorBuffer()[200], 200);
    EXPECT_EQ(big.GetBuffer()[0], 0);
    EXPECT_EQ(big.GetBuffer()[512], 512 * 255 / 1023);
    EXPECT_EQ(big.GetBuffer()[1023], 255);
}

// RGB pictures take the colours CBit24 draws, red first, levels masked alike.
TEST(RgbPicture, SameColoursAsTheBitmapInRedGreenBlueOrder) {
    CLogPalette palette(CLogPalette::HOTMETAL, 0, nullptr);
    CLut24 lut(4095);
    lut.Update(nullptr, &palette, 100, 3000);
    const std::vector<unsigned short> levels = {0, 99, 100, 1500, 3000, 4095, 0xF123, 0xFFFF};
    CBit24 bitmap(static_cast<long>(levels.size()), 1, 0);
    ASSERT_TRUE(bitmap.Update(levels.data(), &lut));
    std::vector<uint8_t> rgb(3 * levels.size());
    LutToRgb(lut, levels.data(), static_cast<long>(levels.size()), rgb.data());
    for (size_t i = 0; i < levels.size(); ++i) {
        const uint32_t bgra = bitmap.GetBuffer()[i];
        EXPECT_EQ(rgb[3 * i], (bgra >> 16) & 0xFF) << i;
        EXPECT_EQ(rgb[3 * i + 1], (bgra >> 8) & 0xFF) << i;
        EXPECT_EQ(rgb[3 * i + 2], bgra & 0xFF) << i;
    }
    // Hot metal ends near (255, 255, 128): red and blue are told apart.
    EXPECT_EQ(rgb[3 * 5], 255);
    EXPECT_LT(rgb[3 * 5 + 2], 200);
}
