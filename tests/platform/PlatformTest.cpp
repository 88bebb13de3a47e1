#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/RegionFile.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/PngWriter.h"
#include "thermokit/platform/Text.h"
#include "thermokit/platform/WaitCursor.h"

using namespace thermokit;

TEST(Rect, EdgesIntersectionAndNormalisation) {
    CRect r(2, 3, 6, 8);
    EXPECT_EQ(r.Width(), 4);
    EXPECT_EQ(r.Height(), 5);
    EXPECT_TRUE(r.PtInRect(CPoint(2, 3)));
    EXPECT_FALSE(r.PtInRect(CPoint(6, 3)));  // right edge excluded
    EXPECT_FALSE(r.PtInRect(CPoint(2, 8)));  // bottom edge excluded

    CRect out;
    CRect far(100, 100, 110, 110);
    EXPECT_FALSE(out.IntersectRect(&r, &far));
    EXPECT_TRUE(out.IsRectEmpty());
    EXPECT_TRUE(out.IsRectNull());

    CRect flipped(6, 8, 2, 3);
    EXPECT_TRUE(flipped.IsRectEmpty());
    flipped.NormalizeRect();
    EXPECT_TRUE(flipped.EqualRect(&r));
}

TEST(Region, ShapesAndCombinations) {
    CRgn rect;
    rect.CreateRectRgn(0, 0, 4, 4);
    EXPECT_TRUE(rect.PtInRegion(3, 3));
    EXPECT_FALSE(rect.PtInRegion(4, 3));

    // Ellipses and polygons: RunsHoldExactlyThePixelsWhoseCentreIsInside.
    CRgn both, either, onlyA, xored;
    CRgn right;
    right.CreateRectRgn(2, 0, 6, 4);
    EXPECT_NE(both.CombineRgn(&rect, &right, RGN_AND), RGN_ERROR);
    either.CombineRgn(&rect, &right, RGN_OR);
    onlyA.CombineRgn(&rect, &right, RGN_DIFF);
    xored.CombineRgn(&rect, &right, RGN_XOR);
    EXPECT_TRUE(both.PtInRegion(2, 0));
    EXPECT_FALSE(both.PtInRegion(1, 0));
    EXPECT_TRUE(either.PtInRegion(5, 0));
    EXPECT_TRUE(onlyA.PtInRegion(1, 0));
    EXPECT_FALSE(onlyA.PtInRegion(2, 0));
    EXPECT_TRUE(xored.PtInRegion(5, 0));
    EXPECT_FALSE(xored.PtInRegion(3, 0));

    CRect box;
    EXPECT_EQ(onlyA.GetRgnBox(&box), SIMPLEREGION);  // what is left is one rectangle
    EXPECT_EQ(box, CRect(0, 0, 2, 4));
    EXPECT_EQ(xored.GetRgnBox(&box), COMPLEXREGION);
    EXPECT_EQ(box, CRect(0, 0, 6, 4));

    std::vector<uint8_t> mask(8 * 4);
    either.FillMask(8, 4, mask.data());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) EXPECT_EQ(mask[y * 8 + x], either.PtInRegion(x, y) ? 1 : 0);

    CRgn empty;
    EXPECT_FALSE(empty.PtInRegion(0, 0));
    EXPECT_EQ(empty.GetRgnBox(&box), RGN_ERROR);
}

// Shapes are built as runs of pixels: each pixel must still be inside exactly
// when its centre is, for ellipses and for crossing polygons under both fill
// rules, clipped or not.
TEST(Region, RunsHoldExactlyThePixelsWhoseCentreIsInside) {
    const CPoint star[] = {{10, 0}, {16, 19}, {0, 7}, {20, 7}, {4, 19}};  // self-crossing: the rules differ
    const auto inPolygon = [&](double px, double py, bool winding) {
        int w = 0, c = 0;
        for (int i = 0, j = 4; i < 5; j = i++) {
            const double xi = star[i].x, yi = star[i].y, xj = star[j].x, yj = star[j].y;
            if ((yi > py) != (yj > py) && px < xj + (py - yj) * (xi - xj) / (yi - yj)) ++c, w += yi > yj ? 1 : -1;
        }
        return winding ? w != 0 : (c & 1) != 0;
    };
    const CRect clip(3, 2, 14, 30);
    for (const bool clipped : {false, true}) {
        CRgn alternate, winding, ellipse;
        alternate.CreatePolygonRgn(star, 5, ALTERNATE, clipped ? &clip : nullptr);
        winding.CreatePolygonRgn(star, 5, WINDING, clipped ? &clip : nullptr);
        ellipse.CreateEllipticRgn(1, 2, 18, 11, clipped ? &clip : nullptr);
        for (int y = -2; y < 24; ++y)
            for (int x = -2; x < 24; ++x) {
                const bool in = !clipped || clip.PtInRect(CPoint(x, y));
                const double ux = (x + 0.5 - 9.5) / 8.5, uy = (y + 0.5 - 6.5) / 4.5;
                EXPECT_EQ(alternate.PtInRegion(x, y), in && inPolygon(x + 0.5, y + 0.5, false)) << x << "," << y;
                EXPECT_EQ(winding.PtInRegion(x, y), in && inPolygon(x + 0.5, y + 0.5, true)) << x << "," << y;
                EXPECT_EQ(ellipse.PtInRegion(x, y), in && ux * ux + uy * uy <= 1.0) << x << "," << y;
            }
    }
}

// Region files come from users: far coordinates, many lines and large
// polygons cost what the image costs, and the union is exact.
TEST(Region, HostileRegionFilesAreBoundedByTheImage) {
    const std::string path = ::testing::TempDir() + "tk_region_" + std::to_string(::getpid()) + ".txt";
    const auto read = [&](const std::string& text, CRgn& region, std::string& why) {
        std::ofstream(path, std::ios::binary) << text;
        return ReadRegionFile(path, CRect(0, 0, 64, 48), region, why);
    };
    CRgn region;
    std::string why, many;
    for (int i = 0; i < 100000; ++i) many += "rect 2 2 1 1\n";
    many += "ellipse -65536 -65536 65536 65536\nrect -65536 -65536 65536 65536\nrect -9 -9 65536 65536\n";
    ASSERT_TRUE(read(many, region, why)) << why;
    CRect box;
    EXPECT_EQ(region.GetRgnBox(&box), SIMPLEREGION);
    EXPECT_EQ(box, CRect(0, 0, 64, 48));
    std::string polygon = "# far away\npolygon";
    for (int k = 0; k < 4096; ++k) {
        const double a = 6.283185307179586 * k / 4096, r = k % 2 ? 65536 : 60000;
        for (const double v : {r * std::cos(a), r * std::sin(a)}) polygon.append(" ").append(std::to_string(std::lround(v)));
    }
    polygon += "\nrect 70 0 5 5\n";
    ASSERT_TRUE(read(polygon, region, why)) << why;
    EXPECT_EQ(region.GetRgnBox(&box), SIMPLEREGION);
    EXPECT_EQ(box, CRect(0, 0, 64, 48));
    ASSERT_TRUE(read("rect 1 1 2 2\r\nrect 5 1 2 2\n\nrect 2 1 3 1\n", region, why)) << why;
    EXPECT_EQ(region.GetRgnBox(&box), COMPLEXREGION);
    EXPECT_EQ(box, CRect(1, 1, 7, 3));
    EXPECT_TRUE(region.PtInRegion(4, 1));
    EXPECT_FALSE(region.PtInRegion(4, 2));
    for (const char* bad : {"rect 1 2 3\n", "rect 0 0 0 5\n", "polygon 0 0 1 1\n", "circle 1 1 1 1\n",
                            "rect 0 0 65537 1\n", "rect 0 0 1 1x\n"}) {
        EXPECT_FALSE(read(bad, region, why)) << bad;
        EXPECT_EQ(why.rfind("line 1: expected", 0), 0u) << why;
    }
    EXPECT_FALSE(read("# nothing\n\n", region, why));
    EXPECT_EQ(why, "no shape (rect, ellipse or polygon lines expected)");
    std::string longLine(70000, ' ');
    longLine.insert(0, "rect 1 1 1 1\n");
    EXPECT_FALSE(read(longLine, region, why));
    EXPECT_EQ(why, "line 2 is too long");
    std::remove(path.c_str());
    EXPECT_FALSE(ReadRegionFile("/dev/null", CRect(0, 0, 8, 8), region, why));
    EXPECT_FALSE(ReadRegionFile(path, CRect(0, 0, 8, 8), region, why));
    EXPECT_EQ(why.rfind("cannot be opened (", 0), 0u) << why;
}

class FileTest : public ::testing::Test {
protected:
    std::string path = ::testing::TempDir() + "thermokit_platform_file.bin";
    void TearDown() override { File::Remove(path); }
};

TEST_F(FileTest, SharingModes) {
    File writer;
    ASSERT_TRUE(writer.Open(path, File::modeCreate | File::modeWrite | File::shareDenyWrite));
    // A second writer and a reader that denies writing are refused while it is open.
    File second;
    EXPECT_FALSE(second.Open(path, File::modeWrite | File::shareDenyWrite));
    EXPECT_FALSE(second.Open(path, File::modeRead | File::shareDenyWrite));
    // A reader that allows writing may look.
    EXPECT_TRUE(second.Open(path, File::modeRead | File::shareDenyNone));
    second.Close();
    writer.Close();
    // Two readers that both deny writing coexist.
    File r1, r2;
    EXPECT_TRUE(r1.Open(path, File::modeRead | File::shareDenyWrite));
    EXPECT_TRUE(r2.Open(path, File::modeRead | File::shareDenyWrite));
    EXPECT_FALSE(writer.Open(path, File::modeWrite | File::shareDenyNone));
}

TEST_F(FileTest, PositionsBeyondFourGigabytesAndShortReads) {
    File f;
    ASSERT_TRUE(f.Open(path, File::modeCreate | File::modeReadWrite));
    const uint64_t far = 5ULL << 30;  // sparse: nothing is really written below
    const uint32_t value = 0xA1B2C3D4;
    EXPECT_EQ(f.Seek(static_cast<int64_t>(far), File::begin), static_cast<int64_t>(far));
    ASSERT_TRUE(f.Write(&value, sizeof value));
    EXPECT_EQ(f.GetLength(), static_cast<int64_t>(far + 4));
    uint32_t back = 0;
    EXPECT_EQ(f.ReadAt(far, &back, 4), 4u);
    EXPECT_EQ(back, value);
    uint8_t buf[16];
    EXPECT_EQ(f.ReadAt(far + 2, buf, sizeof buf), 2u);
    EXPECT_TRUE(f.SetLength(0));
    EXPECT_FALSE(f.ReadRecord(buf, 1));

    File missing;
    EXPECT_FALSE(missing.Open(::testing::TempDir() + "no/such/dir/file", File::modeRead));
    EXPECT_NE(missing.GetLastError(), 0);
}

// A full disk fails every saver: none may report a truncated file as saved.
TEST(Savers, EverySaverReportsAFullDisk) {
    const char* full = "/dev/full";
    if (!File::Exists(full)) GTEST_SKIP() << "no /dev/full here";
    MessageRecorder quiet;  // the film classes show their save message
    CNuc nuc(64, 32);
    nuc.Reset();
    EXPECT_EQ(nuc.Save(full), 0);
    CPixel map(64, 32, 0);
    map.Add(5, 6, CPixel::kGain);
    EXPECT_EQ(map.Save(full), 0);
    EXPECT_EQ(map.SaveAscii(full, 1, 1, 1), 0);
    EXPECT_EQ(CMapping(64, 32).Save(full), 0);
    EXPECT_EQ(CNucFile(0).Save(full, 0), 0);
    CCalibration cal("cam", CCalibration::kExtendedClasses);
    cal.Add(100.0f, 20.0f);
    EXPECT_EQ(cal.Save(full), 0);
    CResponseFile response(nullptr);
    for (int k = 0; k < 2000; ++k) response.Add(3.0 + k * 0.001, 0.5);
    EXPECT_EQ(response.Save(full), 0);
    CPtr film(64, 32, 14, 0, 0, 0);
    EXPECT_EQ(film.SaveFrame(full, nullptr, "comment"), 0);
    std::vector<double> values(64 * 32, 1.5);
    EXPECT_EQ(CPtrFloat(64, 32, 14, 0, 0, 0).SaveFrame(full, values.data(), "", "", 0, 0.0, 0.0), 0);
    std::vector<uint8_t> bgra(64 * 32 * 4, 7);
    EXPECT_EQ(PngWriter::WriteBgra(full, bgra.data(), 64, 32, 64 * 4), 0);
    EXPECT_TRUE(File::Exists(full));  // a failed picture removes files, never a device
}

TEST(WaitCursor, HookSeesOnlyOutermostGuard) {
    std::vector<bool> calls;
    auto previous = WaitCursor::SetHook([&](bool busy) { calls.push_back(busy); });
    {
        WaitCursor outer;
        WaitCursor inner;
        EXPECT_EQ(WaitCursor::Depth(), 2);
    }
    WaitCursor::SetHook(previous);
    EXPECT_EQ(calls, (std::vector<bool>{true, false}));
}

TEST(Records, EndianTextAndAlignment) {
    uint8_t block[8] = {};
    store<uint32_t>(block, 1, 0x11223344u);
    EXPECT_EQ(block[1], 0x44);
    EXPECT_EQ(block[4], 0x11);
    EXPECT_EQ(load<uint32_t>(block, 1), 0x11223344u);
    store<float>(block, 3, 1.5f);
    EXPECT_EQ(load<float>(block, 3), 1.5f);

    char field[5];
    SetTextField(field, sizeof field, "abcdefgh", 19);
    EXPECT_EQ(GetTextField(field, sizeof field), "abcd");
    SetTextField(field, sizeof field, "abcdefgh", 2);
    EXPECT_EQ(GetTextField(field, sizeof field), "ab");
    EXPECT_EQ(field[4], 0);

    AlignedBuffer<double> buf(3, 16);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buf.data()) % 16, 0u);
    EXPECT_EQ(buf[2], 0.0);
}
