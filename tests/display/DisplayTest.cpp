// Display bitmaps, device contexts, frame display (fitting, margins, regions) and PNG output.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <string>
#include <vector>

#include "support/Png.h"
#include "support/ToolRun.h"
#include "thermokit/display/CBit.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/CWnd.h"
#include "thermokit/platform/Display.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/PngWriter.h"

using namespace thermokit;
using namespace thermokit::test;

namespace {

// A LUT where level v shows as (v, 255 - v, 7) for v < 256 and white above.
void RampLut(CLut24& lut) {
    for (int v = 0; v <= lut.GetMaxLevel(); ++v)
        lut.GetBuffer()[v] = v < 256 ? ColorToBgra(Rgb(static_cast<uint8_t>(v), static_cast<uint8_t>(255 - v), 7)) |
                                           0x01000000u
                                     : 0x01FFFFFFu;
}

}  // namespace

TEST(Bit24, TrueColourMessageOnShallowDisplays) {
    const std::string expected =
        "This software requires true color 24/32 bits mode in your display. Please select 24/32 bits or 16 Millions "
        "or True color in the settings of your display system.";
    {
        MessageRecorder recorder;
        CBit24 deep(16, 0, 0);
        EXPECT_EQ(recorder.Count(), 0u);
        DisplayDepthGuard depth(24);
        CBit24 exact(16, 0, 0);
        EXPECT_EQ(recorder.Count(), 0u);
    }
    DisplayDepthGuard depth(16);
    MessageRecorder recorder;
    CBit24 shallow(16, 0, 0);
    ASSERT_EQ(recorder.Count(), 1u);
    EXPECT_EQ(recorder.Messages()[0].text, expected);
    EXPECT_NE(shallow.GetBuffer(), nullptr);  // the bitmap works all the same
    CBit24 quiet(16, 1, 0);
    EXPECT_EQ(recorder.Count(), 1u);
    // A frame's display bitmap shows it too.
    CFrame frame(4, 4, 14, 0, 1);
    CLut24 lut(16383);
    frame.Update(&lut);
    EXPECT_EQ(recorder.Count(), 2u);
}

TEST(Bit24, UpdateMasksLevelsAndHonoursRangeAndMask) {
    CLut24 lut(4095);  // 12-bit
    for (int v = 0; v <= 4095; ++v) lut.GetBuffer()[v] = 0x01000000u | static_cast<uint32_t>(v);
    std::vector<unsigned short> levels = {0, 1, 4095, 4096, 0xFFFF, 0x1234, 7, 8};
    CBit24 bit(8, 1, 0);
    ASSERT_EQ(bit.Update(levels.data(), &lut), 1);
    const uint32_t* out = bit.GetBuffer();
    using V = std::vector<uint32_t>;
    // Bits above the depth are masked off.
    EXPECT_EQ(V(out, out + 8), (V{0x01000000u, 0x01000001u, 0x01000FFFu, 0x01000000u, 0x01000FFFu, 0x01000234u,
                                  0x01000007u, 0x01000008u}));

    // first / count / step, and the mask colour where the mask byte is 0.
    std::memset(bit.GetBuffer(), 0, 32);
    const unsigned char mask[8] = {1, 1, 0, 1, 1, 1, 1, 1};
    ASSERT_EQ(bit.Update(levels.data(), &lut, mask, 0, 3, 2, Rgb(1, 2, 3)), 1);
    // Pixels 0, 2 and 4; 2 masked: blue, green, red bytes of the colour; count 3 stops after pixel 4.
    EXPECT_EQ(V(out, out + 8), (V{0x01000000u, 0, 0x00010203u, 0, 0x01000FFFu, 0, 0, 0}));
    // A count beyond the bitmap is cut; bad arguments are refused.
    EXPECT_EQ(bit.Update(levels.data(), &lut, nullptr, 6, 100, 1), 1);
    EXPECT_EQ(out[7], 0x01000008u);
    EXPECT_EQ(bit.Update(levels.data(), &lut, nullptr, 0, -1, 0), 0);
    EXPECT_EQ(bit.Update(levels.data(), &lut, nullptr, 8, 1, 1), 0);
    EXPECT_EQ(bit.Update(nullptr, &lut), 0);
    EXPECT_EQ(bit.Update(levels.data(), nullptr), 0);
}

TEST(DeviceContext, NearestNeighbourStretchClipAndFill) {
    CWnd wnd(10, 6);
    CDC* dc = wnd.GetDC();
    EXPECT_EQ(dc->GetDeviceCaps(BITSPIXEL), 32);
    {
        DisplayDepthGuard depth(8);
        EXPECT_EQ(dc->GetDeviceCaps(BITSPIXEL), 8);
        EXPECT_TRUE(dc->GetDeviceCaps(RASTERCAPS) & RC_PALETTE);
    }
    const uint32_t src[4] = {ColorToBgra(Rgb(1, 0, 0)), ColorToBgra(Rgb(2, 0, 0)), ColorToBgra(Rgb(3, 0, 0)),
                             ColorToBgra(Rgb(4, 0, 0))};
    // 2 x 2 into 5 x 4 at (1, 1): column x takes source (x - 1) * 2 / 5.
    ASSERT_EQ(dc->StretchBlt(CRect(1, 1, 6, 5), src, 2, 2, 2, CRect(0, 0, 2, 2)), 1);
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(0, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(1, 1), Rgb(1, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(3, 1), Rgb(1, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(4, 1), Rgb(2, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(5, 2), Rgb(2, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(5, 3), Rgb(4, 0, 0));
    EXPECT_EQ(wnd.GetCanvasPixel(6, 1), Rgb(0, 0, 0));
    // A source rectangle outside the source, or an empty one, draws nothing.
    EXPECT_EQ(dc->StretchBlt(CRect(0, 0, 2, 2), src, 2, 2, 2, CRect(1, 1, 3, 3)), 0);
    EXPECT_EQ(dc->StretchBlt(CRect(0, 0, 2, 2), src, 2, 2, 2, CRect(1, 1, 1, 3)), 0);
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(0, 0, 0));
    // Drawing beyond the canvas is cut, never written out of bounds: the visible part is
    // the bottom-right quarter of the 20 x 12 stretch.
    EXPECT_EQ(dc->StretchBlt(CRect(-10, -6, 10, 6), src, 2, 2, 2, CRect(0, 0, 2, 2)), 1);
    EXPECT_EQ(wnd.GetCanvasPixel(9, 5), Rgb(4, 0, 0));
    // Rectangles wider than 32 bits can count keep their arithmetic exact.
    EXPECT_EQ(dc->StretchBlt(CRect(-2000000000, 0, 2000000000, 6), src, 2, 2, 2, CRect(0, 0, 2, 2)), 1);
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(2, 0, 0));  // the middle of the stretch: column 1
    // Fills respect the clip region.
    CRgn region;
    region.CreateRectRgn(2, 2, 4, 4);
    dc->SelectClipRgn(&region);
    dc->FillSolidRect(0, 0, 10, 6, Rgb(9, 9, 9));
    EXPECT_EQ(wnd.GetCanvasPixel(2, 2), Rgb(9, 9, 9));
    EXPECT_EQ(wnd.GetCanvasPixel(4, 4), Rgb(4, 0, 0));
    dc->SelectClipRgn(nullptr);
    wnd.ReleaseDC(dc);
}

TEST(Bit24, DisplayWithRegionAndBrush) {
    CLut24 lut(255);
    RampLut(lut);
    std::vector<unsigned short> levels(4 * 4, 100);
    CBit24 bit(16, 1, 0);
    bit.Update(levels.data(), &lut);
    CWnd wnd(20, 20);
    wnd.GetDC()->FillSolidRect(0, 0, 20, 20, Rgb(50, 50, 50));
    CRgn region;
    region.CreateRectRgn(0, 0, 10, 5);
    CBrush brush(Rgb(0, 0, 200));
    const CRect dest(0, 0, 10, 10);
    ASSERT_EQ(bit.Display(&wnd, &dest, nullptr, 4, 4, &region, &brush), 1);
    EXPECT_EQ(wnd.GetCanvasPixel(3, 3), Rgb(100, 155, 7));  // inside the region: the image
    EXPECT_EQ(wnd.GetCanvasPixel(3, 7), Rgb(0, 0, 200));    // in dest, outside the region: the brush
    EXPECT_EQ(wnd.GetCanvasPixel(15, 3), Rgb(50, 50, 50));  // outside dest: untouched
    // A geometry larger than the bitmap is refused.
    EXPECT_EQ(bit.Display(&wnd, &dest, nullptr, 5, 4), 0);
    // Bottom-up storage shows the last buffer row at the top.
    CBit24 up(4, 1, 1);
    const unsigned short two[4] = {1, 1, 2, 2};
    up.Update(two, &lut);
    CWnd small(2, 2);
    ASSERT_EQ(up.Display(&small, 2, 2), 1);
    EXPECT_EQ(small.GetCanvasPixel(0, 0), Rgb(2, 253, 7));
    EXPECT_EQ(small.GetCanvasPixel(0, 1), Rgb(1, 254, 7));
    // DisplayNoStretch: 1:1, cut to the rectangle.
    CWnd other(4, 4);
    const CRect cut(1, 1, 2, 4);
    ASSERT_EQ(up.DisplayNoStretch(other.GetDC(), &cut), 1);
    EXPECT_EQ(other.GetCanvasPixel(1, 1), Rgb(2, 253, 7));
    EXPECT_EQ(other.GetCanvasPixel(1, 2), Rgb(1, 254, 7));
    EXPECT_EQ(other.GetCanvasPixel(2, 1), Rgb(0, 0, 0));
    EXPECT_EQ(other.GetCanvasPixel(1, 3), Rgb(0, 0, 0));
}

TEST(Bit8, PalettePathShowsRedAndBlueExchanged) {
    CLogPalette hot(CLogPalette::HOTMETAL, 0, nullptr);  // entry 128 is designed red
    CLut lut(255, 0);
    lut.Update(nullptr, &hot, 0, 255);
    std::vector<unsigned short> levels = {128, 0, 255, 128};
    CBit bit(4);
    ASSERT_EQ(bit.Update(levels.data(), &lut), 1);
    EXPECT_EQ(bit.GetBuffer()[0], 128);
    CWnd wnd(2, 2);
    ASSERT_EQ(bit.Display(&wnd, &hot, 2, 2), 1);
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(0, 0, 255));  // red shown as blue on the palette path
    EXPECT_EQ(wnd.GetCanvasPixel(0, 1), Rgb(127, 253, 255));
}

TEST(FrameDisplay, KeepAspectCentresAndPaintsMargins) {
    CFrame frame(320, 256, 14, 0, 1);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 320; ++x) frame.SetPixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y), static_cast<unsigned short>(x % 200));
    CLut24 lut(16383);
    RampLut(lut);
    CWnd wnd(1280, 1024);
    CRect dest(0, 0, 1280, 1024);
    CRect src(0, 0, 320, 256);
    frame.Display24(&wnd, &dest, &src, &lut, 1, 1, Rgb(10, 20, 30), nullptr, nullptr);
    // Never enlarged: 320 x 256 centred.
    EXPECT_EQ(dest, CRect(480, 384, 800, 640));
    EXPECT_EQ(wnd.GetCanvasPixel(480, 384), Rgb(0, 255, 7));
    EXPECT_EQ(wnd.GetCanvasPixel(480 + 199, 639), Rgb(199, 56, 7));
    // Margins in the background colour, on every side.
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(10, 20, 30));
    EXPECT_EQ(wnd.GetCanvasPixel(479, 500), Rgb(10, 20, 30));
    EXPECT_EQ(wnd.GetCanvasPixel(800, 500), Rgb(10, 20, 30));
    EXPECT_EQ(wnd.GetCanvasPixel(600, 383), Rgb(10, 20, 30));
    EXPECT_EQ(wnd.GetCanvasPixel(600, 640), Rgb(10, 20, 30));
    EXPECT_EQ(wnd.GetCanvasPixel(1279, 1023), Rgb(10, 20, 30));

    // A smaller window: scale = min(640 / 1280, 480 / 1024) = 0.46875 -> 600 x 480, centred.
    CFrame big(1280, 1024, 14, 0, 1);
    CWnd wnd2(640, 480);
    CRect d2(0, 0, 640, 480);
    CRect s2(0, 0, 1280, 1024);
    big.Display24(&wnd2, &d2, &s2, &lut, 1, 0, 0, nullptr, nullptr);
    EXPECT_EQ(d2, CRect(20, 0, 620, 480));
    // Odd margins truncate: 7 x 5 destination for a 4 x 4 source -> 4 x 4 at (+1, +0).
    CRect d3(10, 10, 17, 15);
    CRect s3(0, 0, 4, 4);
    big.Display24(&wnd2, &d3, &s3, &lut, 1, 0, 0, nullptr, nullptr);
    EXPECT_EQ(d3, CRect(11, 10, 15, 14));
    // Without keepAspect the destination is kept and filled.
    CRect d4(0, 0, 640, 480);
    big.Display24(&wnd2, &d4, &s2, &lut, 0, 1, Rgb(1, 1, 1), nullptr, nullptr);
    EXPECT_EQ(d4, CRect(0, 0, 640, 480));
    // A source of zero width draws nothing and leaves dest alone.
    CWnd wnd3(8, 8);
    CRect d5(0, 0, 8, 8);
    CRect empty(2, 2, 2, 6);
    frame.Display24(&wnd3, &d5, &empty, &lut, 1, 1, Rgb(200, 0, 0), nullptr, nullptr);
    EXPECT_EQ(d5, CRect(0, 0, 8, 8));
    EXPECT_EQ(wnd3.GetCanvasPixel(0, 0), Rgb(0, 0, 0));
}

TEST(FrameDisplay, ModesBitmapsAndCopy) {
    CLut24 lut24(16383);
    RampLut(lut24);
    CLut lut8(16383, 0);
    CFrame frame(8, 4, 14, 0, 1);
    frame.SetPixel(0, 0, 3);
    // The 8-bit update does nothing in true-colour mode; the bitmap is made on first need.
    frame.Update(&lut8);
    EXPECT_EQ(frame.GetBit8(), nullptr);
    ASSERT_NE(frame.GetBit24(), nullptr);
    frame.Update(&lut24);
    EXPECT_EQ(frame.GetBit24()->GetBuffer()[0], lut24.GetBuffer()[3]);
    CWnd wnd(8, 4);
    frame.Display24(&wnd, &lut24, nullptr, nullptr);
    EXPECT_EQ(wnd.GetCanvasPixel(0, 0), Rgb(3, 252, 7));
    // At a position: the source part 1:1 at (x, y).
    CWnd wnd2(20, 20);
    CRect part(0, 0, 2, 2);
    frame.Display24(&wnd2, 5, 6, &part, &lut24, nullptr, nullptr);
    EXPECT_EQ(wnd2.GetCanvasPixel(5, 6), Rgb(3, 252, 7));
    EXPECT_EQ(wnd2.GetCanvasPixel(7, 6), Rgb(0, 0, 0));

    // A copy from a frame of the other mode drops the bitmaps (the hook frees them).
    CFrame palette(8, 4, 14, 0, 0);
    frame.Copy(&palette);
    EXPECT_EQ(frame.GetBit24(), nullptr);
    frame.Update(&lut8);
    ASSERT_NE(frame.GetBit8(), nullptr);
    // A copy of another size keeps the mode; the next display makes a bitmap of the new size.
    CFrame larger(16, 16, 14, 0, 0);
    frame.Copy(&larger);
    frame.Update(&lut8);
    ASSERT_NE(frame.GetBit8(), nullptr);
    EXPECT_EQ(frame.GetBit8()->GetSize(), 256);
}

TEST(Png, CanvasAndBitmapRoundTrip) {
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 lut(16383);
    lut.Update(nullptr, &rainbow, 0, 16383);
    CFrame frame(64, 48, 14, 0, 1);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            frame.SetPixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y), static_cast<unsigned short>((x * 256 + y * 5) & 0x3FFF));
    CWnd wnd(100, 70);
    CRect dest(0, 0, 100, 70), src(0, 0, 64, 48);
    frame.Display24(&wnd, &dest, &src, &lut, 1, 1, Rgb(12, 34, 56), nullptr, nullptr);
    const auto expectRgb = [](const unsigned char* p, int r, int g, int b) {
        EXPECT_EQ(p[0], r);
        EXPECT_EQ(p[1], g);
        EXPECT_EQ(p[2], b);
    };
    const std::string path = TempPath("canvas.png");
    ASSERT_EQ(wnd.SavePng(path.c_str()), 1);
    Picture pic = ReadPng(path);
    ASSERT_EQ(pic.width, 100u);
    ASSERT_EQ(pic.height, 70u);
    EXPECT_FALSE(pic.alpha);
    long mismatches = 0;
    for (unsigned y = 0; y < pic.height; ++y)
        for (unsigned x = 0; x < pic.width; ++x) {
            const COLORREF c = wnd.GetCanvasPixel(static_cast<int>(x), static_cast<int>(y));
            const uint8_t* p = pic.At(x, y);
            if (p[0] != GetRValue(c) || p[1] != GetGValue(c) || p[2] != GetBValue(c)) ++mismatches;
        }
    EXPECT_EQ(mismatches, 0);
    expectRgb(pic.At(0, 0), 12, 34, 56);
    std::remove(path.c_str());

    // The frame's bitmap itself, as the screen shows it (blue-first entries -> RGB).
    const std::string bitPath = TempPath("bit.png");
    ASSERT_EQ(frame.GetBit24()->SavePng(bitPath.c_str(), 64, 48), 1);
    pic = ReadPng(bitPath);
    ASSERT_EQ(pic.width, 64u);
    ASSERT_EQ(pic.height, 48u);
    const uint32_t p = lut.GetBuffer()[frame.GetPixel(63, 47)];
    expectRgb(pic.At(63, 47), (p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF);
    std::remove(bitPath.c_str());

    // A memory context's own bitmap.
    CBitmap surface;
    ASSERT_EQ(surface.CreateBitmap(3, 2, 1, 32, nullptr), 1);
    CDC memory;
    memory.CreateCompatibleDC(nullptr);
    memory.SelectObject(&surface);
    memory.FillSolidRect(1, 0, 2, 2, Rgb(200, 100, 50));
    const std::string dcPath = TempPath("dc.png");
    ASSERT_EQ(PngWriter::WriteBitmap(dcPath.c_str(), &surface), 1);
    pic = ReadPng(dcPath);
    ASSERT_EQ(pic.rgb.size(), 18u);
    expectRgb(pic.At(0, 0), 0, 0, 0);
    expectRgb(pic.At(2, 1), 200, 100, 50);
    std::remove(dcPath.c_str());

    // Failures: unwritable path, geometry larger than the bitmap; no file is left behind.
    EXPECT_EQ(wnd.SavePng("/nonexistent-dir/x.png"), 0);
    EXPECT_EQ(frame.GetBit24()->SavePng(bitPath.c_str(), 65, 48), 0);
    EXPECT_EQ(std::fopen(bitPath.c_str(), "rb"), nullptr);
}
