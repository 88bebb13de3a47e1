#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

using namespace thermokit;

namespace {

// Counts how often the display-bitmap hook runs.
int g_releases = 0;
struct HookedFrame : CFrame {
    using CFrame::CFrame;
    void Hook() { m_pfnReleaseBitmaps = [](CFrame*) { ++g_releases; }; }
};

// Every pixel of a frame, in buffer order.
std::vector<unsigned short> Pixels(CFrame& f) { return {f.GetBuffer(), f.GetBuffer() + f.GetSize()}; }
using V = std::vector<unsigned short>;

}  // namespace

TEST(Frame, ConstructionAndPixels) {
    CFrame f(4, 3, 12, 0, 0);
    ASSERT_NE(f.GetBuffer(), nullptr);
    EXPECT_EQ(f.GetSize(), 12);
    EXPECT_EQ(f.GetMaxLevel(), 4095);
    EXPECT_EQ(f.GetTime(), 0.0);
    EXPECT_FALSE(f.IsExternalBuffer());
    EXPECT_EQ(Pixels(f), V(12, 0));
    f.SetPixel(3, 2, 77);
    EXPECT_EQ(f.GetBuffer()[4 * 2 + 3], 77);
    EXPECT_EQ(f.GetPixel(3, 2), 77);
    // x beyond the line reads on into the next line; beyond the buffer gives 0.
    f.SetPixel(1, 1, 5);
    EXPECT_EQ(f.GetPixel(5, 0), 5);
    EXPECT_EQ(f.GetPixel(0, 3), 0);
    f.SetPixel(0, 40, 9);  // refused, no write outside the buffer

    std::vector<unsigned short> mine = {9, 8, 7, 6};
    CFrame e(mine.data(), 2, 2, 16, 0, 1);
    EXPECT_TRUE(e.IsExternalBuffer());
    EXPECT_EQ(e.GetPixel(1, 1), 6);  // caller's content left as it is
    EXPECT_EQ(e.GetMaxLevel(), 65535);

    CFrame empty(0, 0, 14, 0, 0);
    EXPECT_EQ(empty.GetPixel(0, 0), 0);
    unsigned short mn = 1, mx = 1, mean = 1;
    empty.GetMinMax(&mn, &mx, &mean);
    EXPECT_EQ(mn + mx + mean, 3);  // nothing written without a buffer
}

TEST(Frame, CopyIntoExternalBufferFollowsTheSizeRule) {
    std::vector<unsigned short> mine(6, 0xAAAA);
    CFrame f(mine.data(), 3, 2, 16, 0, 0);
    CFrame same(3, 2, 12, 90, 0);
    for (int i = 0; i < 6; ++i) same.GetBuffer()[i] = static_cast<unsigned short>(i + 1);
    same.SetTime(12.5);
    f.Copy(&same);
    EXPECT_TRUE(f.IsExternalBuffer());
    EXPECT_EQ(f.GetBuffer(), mine.data());
    EXPECT_EQ(mine[5], 6);
    EXPECT_EQ(f.GetBit(), 12);
    EXPECT_EQ(f.GetRotation(), 90);
    EXPECT_EQ(f.GetTime(), 12.5);

    CFrame other(4, 4, 14, 0, 0);
    other.GetBuffer()[0] = 321;
    f.Copy(&other);
    EXPECT_FALSE(f.IsExternalBuffer());
    EXPECT_NE(f.GetBuffer(), mine.data());
    EXPECT_EQ(f.GetPoint(), 4);
    EXPECT_EQ(f.GetPixel(0, 0), 321);
    f.SetPixel(0, 0, 1);
    EXPECT_EQ(mine[0], 1);  // the caller's buffer is left alone from now on
    EXPECT_EQ(mine[5], 6);

    // Same pixel count in another shape is another size.
    CFrame tall(2, 3, 16, 0, 0);
    CFrame wide(3, 2, 16, 0, 0);
    tall.Copy(&wide);
    EXPECT_EQ(tall.GetPoint(), 3);
    EXPECT_EQ(tall.GetLine(), 2);
    f.Copy(nullptr);
    EXPECT_EQ(f.GetPoint(), 4);
}

TEST(Frame, DisplayBitmapsReleasedThroughTheHook) {
    g_releases = 0;
    {
        HookedFrame f(2, 2, 16, 0, 0);
        f.Hook();
        CFrame same(2, 2, 16, 0, 0);
        f.Copy(&same);
        EXPECT_EQ(g_releases, 0);  // same display mode: bitmaps kept
        CFrame true24(2, 2, 16, 0, 1);
        f.Copy(&true24);
        EXPECT_EQ(g_releases, 1);
        EXPECT_TRUE(f.Is24());
    }
    EXPECT_EQ(g_releases, 2);  // destructor
}

TEST(Frame, SubImageConstructorClipsTheCallersRectangle) {
    CFrame src(5, 4, 14, 270, 1);
    for (int i = 0; i < 20; ++i) src.GetBuffer()[i] = static_cast<unsigned short>(i);
    src.SetTime(7.25);

    CRect r(3, 2, 9, 9);  // partly outside: clipped to (3, 2, 5, 4)
    CFrame sub(&src, &r);
    EXPECT_EQ(r, CRect(3, 2, 5, 4));
    ASSERT_EQ(sub.GetPoint(), 2);
    ASSERT_EQ(sub.GetLine(), 2);
    EXPECT_EQ(Pixels(sub), (V{13, 14, 18, 19}));
    EXPECT_EQ(sub.GetBit(), 14);
    EXPECT_EQ(sub.GetRotation(), 270);
    EXPECT_TRUE(sub.Is24());
    EXPECT_EQ(sub.GetTime(), 7.25);

    CRect outside(10, 10, 20, 20);
    CFrame whole(&src, &outside);
    EXPECT_TRUE(outside.IsRectEmpty());
    EXPECT_EQ(whole.GetPoint(), 5);
    EXPECT_EQ(whole.GetLine(), 4);
    EXPECT_EQ(Pixels(whole), Pixels(src));

    CFrame all(&src, static_cast<CRect*>(nullptr));
    EXPECT_EQ(all.GetSize(), 20);
    EXPECT_EQ(all.GetPixel(4, 3), 19);
}

TEST(Frame, IndexListConstructor) {
    CFrame src(4, 2, 16, 0, 0);
    for (int i = 0; i < 8; ++i) src.GetBuffer()[i] = static_cast<unsigned short>(100 + i);
    src.SetTime(3.0);
    int idx[] = {1, 6, 99, -3};
    CFrame f(&src, idx, 4, 7);
    EXPECT_EQ(Pixels(f), (V{7, 101, 7, 7, 7, 7, 106, 7}));
    EXPECT_EQ(f.GetTime(), 0.0);
    CFrame none(&src, nullptr, 4, 0);
    EXPECT_EQ(Pixels(none), V(8, 0));
}

TEST(Frame, GetMinMaxMasksAndTruncates) {
    CFrame f(3, 1, 12, 0, 0);
    unsigned short* b = f.GetBuffer();
    b[0] = 0xF005;  // 5 after the 12-bit mask
    b[1] = 0x1007;  // 7
    b[2] = 0x0002;
    unsigned short mn = 0, mx = 0, mean = 0;
    f.GetMinMax(&mn, &mx, &mean);
    EXPECT_EQ(mn, 2);
    EXPECT_EQ(mx, 7);
    EXPECT_EQ(mean, 4);  // 14 / 3 truncated
    f.GetMinMax(nullptr, &mx, nullptr);
    EXPECT_EQ(mx, 7);
}

TEST(Frame, MaskAndSetFrameRotation) {
    CFrame f(2, 1, 16, 0, 0);
    f.GetBuffer()[0] = 0xFFFF;
    f.Mask();
    EXPECT_EQ(f.GetBuffer()[0], 0xFFFF);  // 16 bits: nothing to clear
    f.SetBit(10);
    f.Mask();
    EXPECT_EQ(f.GetBuffer()[0], 0x3FF);

    // A frame with rotation 90 turns what SetFrame gives it; the buffer then
    // holds line values per row.
    CFrame r(3, 2, 16, 90, 0);
    const std::vector<unsigned short> data = {1, 2, 3, 4, 5, 6};
    r.SetFrame(const_cast<unsigned short*>(data.data()));
    EXPECT_EQ(Pixels(r), (V{4, 1, 5, 2, 6, 3}));
    r.SetFrame(nullptr);
    EXPECT_EQ(r.GetBuffer()[0], 4);
}

TEST(Frame, ProcessRotationPixelOrder) {
    // 5 x 3 source: value = 10 * line + column.
    CFrame src(5, 3, 16, 0, 0);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) src.SetPixel(x, y, static_cast<unsigned short>(10 * y + x));
    src.SetTime(42.0);

    CFrame cw(3, 5, 16, 0, 0);
    ASSERT_EQ(cw.ProcessRotation(&src, 90), 1);
    EXPECT_EQ(cw.GetTime(), 42.0);
    // Clockwise: the first source line becomes the last column, top to bottom.
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 5; ++c) EXPECT_EQ(cw.GetPixel(3 - 1 - r, c), 10 * r + c);
    EXPECT_EQ(cw.GetPixel(0, 0), 20);  // bottom-left of the source comes top-left

    CFrame ccw(3, 5, 16, 0, 0);
    ASSERT_EQ(ccw.ProcessRotation(&src, 270), 1);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 5; ++c) EXPECT_EQ(ccw.GetPixel(r, 5 - 1 - c), 10 * r + c);
    EXPECT_EQ(ccw.GetPixel(0, 0), 4);  // top-right of the source comes top-left

    CFrame minus(3, 5, 16, 0, 0);
    ASSERT_EQ(minus.ProcessRotation(&src, -90), 1);
    EXPECT_EQ(Pixels(minus), Pixels(ccw));
    CFrame wrap(3, 5, 16, 0, 0);
    ASSERT_EQ(wrap.ProcessRotation(&src, 450), 1);
    EXPECT_EQ(Pixels(wrap), Pixels(cw));

    CFrame half(5, 3, 16, 0, 0);
    ASSERT_EQ(half.ProcessRotation(&src, 180), 1);
    for (int i = 0; i < 15; ++i) EXPECT_EQ(half.GetBuffer()[i], src.GetBuffer()[14 - i]);
    CFrame full(5, 3, 16, 0, 0);
    ASSERT_EQ(full.ProcessRotation(&src, -360), 1);
    EXPECT_EQ(full.GetPixel(4, 2), 24);
    EXPECT_EQ(full.GetTime(), 42.0);
}

TEST(Frame, ProcessRotationRefusesAndLeavesTheFrameAlone) {
    CFrame src(320, 240, 14, 0, 0);
    src.GetBuffer()[0] = 5;
    CFrame dst(320, 240, 14, 0, 0);
    dst.GetBuffer()[0] = 9;
    EXPECT_EQ(dst.ProcessRotation(&src, 90), 0);
    EXPECT_EQ(dst.ProcessRotation(&src, -90), 0);
    EXPECT_EQ(dst.ProcessRotation(&src, 45), 0);
    EXPECT_EQ(dst.ProcessRotation(nullptr, 180), 0);
    CFrame turned(240, 320, 14, 0, 0);
    EXPECT_EQ(turned.ProcessRotation(&src, 180), 0);
    EXPECT_EQ(dst.GetBuffer()[0], 9);
    CFrame noLines(4, 0, 14, 0, 0);
    CFrame target(0, 4, 14, 0, 0);
    EXPECT_EQ(target.ProcessRotation(&noLines, 90), 0);
}

TEST(Frame, StretchNearestNeighbour) {
    CFrame src(7, 5, 16, 0, 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x) src.SetPixel(x, y, static_cast<unsigned short>(100 * y + x));
    src.SetTime(9.0);

    CFrame small(3, 2, 16, 0, 0);
    ASSERT_EQ(small.Stretch(&src, nullptr), 1);
    // x: trunc(i * 7/3) = 0, 2, 4; y: trunc(j * 5/2) = 0, 2.
    EXPECT_EQ(Pixels(small), (V{0, 2, 4, 200, 202, 204}));
    EXPECT_EQ(small.GetTime(), 0.0);

    CFrame big(4, 4, 16, 0, 0);
    CRect r(5, 3, 50, 50);  // clipped to (5, 3, 7, 5)
    ASSERT_EQ(big.Stretch(&src, &r), 1);
    EXPECT_EQ(r, CRect(5, 3, 50, 50));  // the caller's rectangle is not changed
    EXPECT_EQ(Pixels(big), (V{305, 305, 306, 306, 305, 305, 306, 306, 405, 405, 406, 406, 405, 405, 406, 406}));

    CRect away(10, 10, 12, 12);
    big.GetBuffer()[0] = 1;
    EXPECT_EQ(big.Stretch(&src, &away), 0);
    EXPECT_EQ(big.GetBuffer()[0], 1);
    CFrame none(0, 3, 16, 0, 0);
    EXPECT_EQ(none.Stretch(&src, nullptr), 0);
}

// ---------------------------------------------------------------- CleanDoubleBuffer

namespace {
// 0, seven 10s, 15, 30: mean 11.5; low tail 0 and the 10s (mean 8.75); high
// tail 15 and 30 (mean 22.5).
std::vector<double> CleanInput() { return {0, 10, 10, 10, 10, 10, 10, 10, 15, 30}; }
}  // namespace

TEST(Frame, CleanDoubleBufferClipsAsymmetrically) {
    std::vector<double> in = CleanInput(), out(in.size(), -1);
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.1, 1, 1.0, nullptr), 1);
    // Low side: the computed limit 8.75. High side: the largest existing value
    // within the limit 22.5, that is 15.
    EXPECT_EQ(out, (std::vector<double>{8.75, 10, 10, 10, 10, 10, 10, 10, 15, 15}));

    // A second pass moves both tails further out: nothing is clipped.
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.1, 2, 1.0, nullptr), 1);
    EXPECT_EQ(out, in);
    // With fraction 0.2 (two values per tail) both tails stop after the first
    // pass and keep their first means.
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.2, 5, 1.0, nullptr), 1);
    EXPECT_EQ(out[0], 8.75);
    EXPECT_EQ(out[9], 15);
    // Factor 0.25: no value lies in (mean, 14.25], so the high side clips
    // to the mean itself; the low limit 10.8125 takes the 10s too.
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.1, 1, 0.25, nullptr), 1);
    EXPECT_EQ(out, (std::vector<double>{10.8125, 10.8125, 10.8125, 10.8125, 10.8125, 10.8125, 10.8125, 10.8125, 11.5,
                                        11.5}));
    // In place.
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, in.data(), 0.1, 1, 1.0, nullptr), 1);
    EXPECT_EQ(in[0], 8.75);
    EXPECT_EQ(in[9], 15);
}

TEST(Frame, CleanDoubleBufferRefusesBadArguments) {
    std::vector<double> in = CleanInput(), out(in.size(), -1);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.6, 1, 1.0, nullptr), 0);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), -0.1, 1, 1.0, nullptr), 0);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(in.data(), 0, out.data(), 0.1, 1, 1.0, nullptr), 0);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(nullptr, 10, out.data(), 0.1, 1, 1.0, nullptr), 0);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, nullptr, 0.1, 1, 1.0, nullptr), 0);
    for (double v : out) EXPECT_EQ(v, -1);
    EXPECT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.5, 0, 1.0, nullptr), 1);
}

// Statistics taken after bad-pixel replacement, with a real map: CorrectionTest.

TEST(Frame, StretchColumnPatternsEqualTheIndexRule) {
    // Halving, doubling, same width and arbitrary ratios take different
    // loops; all must give src[trunc(j * h / Line + top)][trunc(i * w / Point + left)].
    CFrame src(36, 21, 16, 0, 0);
    for (long i = 0; i < src.GetSize(); ++i) src.GetBuffer()[i] = static_cast<unsigned short>(i * 13 + 1);
    const CRect rects[] = {CRect(0, 0, 36, 21), CRect(3, 2, 21, 20), CRect(1, 0, 36, 21)};
    for (const CRect& rect : rects) {
        for (auto [p, l] : {std::pair{18, 10}, std::pair{36, 42}, std::pair{72, 5}, std::pair{35, 21},
                            std::pair{9, 9}, std::pair{71, 43}, std::pair{1, 1}}) {
            CFrame dst(p, l, 16, 0, 0);
            CRect r = rect;
            ASSERT_EQ(dst.Stretch(&src, &r), 1);
            const double xr = static_cast<double>(rect.Width()) / p, yr = static_cast<double>(rect.Height()) / l;
            int bad = 0;
            for (int j = 0; j < l; ++j)
                for (int i = 0; i < p; ++i) {
                    const int x = static_cast<int>(i * xr + rect.left), y = static_cast<int>(j * yr + rect.top);
                    bad += dst.GetPixel(i, j) != src.GetPixel(x, y);
                }
            EXPECT_EQ(bad, 0) << p << " x " << l << " from " << rect.left << "," << rect.top;
        }
    }
    // A frame stretched from itself reads the pixels as they were.
    CFrame self(4, 1, 16, 0, 0);
    const unsigned short row[] = {1, 2, 3, 4};
    self.SetFrame(const_cast<unsigned short*>(row));
    CRect right(2, 0, 4, 1);
    ASSERT_EQ(self.Stretch(&self, &right), 1);
    EXPECT_EQ(Pixels(self), (V{3, 3, 4, 4}));
    // A square frame turned into itself.
    CFrame sq(2, 2, 16, 0, 0);
    const unsigned short four[] = {1, 2, 3, 4};
    sq.SetFrame(const_cast<unsigned short*>(four));
    ASSERT_EQ(sq.ProcessRotation(&sq, 90), 1);
    EXPECT_EQ(Pixels(sq), (V{3, 1, 4, 2}));
    ASSERT_EQ(sq.ProcessRotation(&sq, 180), 1);
    EXPECT_EQ(Pixels(sq), (V{2, 4, 1, 3}));
}
