#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
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

    CRgn ellipse;
    ellipse.CreateEllipticRgn(0, 0, 10, 10);
    EXPECT_TRUE(ellipse.PtInRegion(5, 5));
    EXPECT_FALSE(ellipse.PtInRegion(0, 0));  // corner of the bounding box

    CPoint tri[] = {{0, 0}, {10, 0}, {0, 10}};
    CRgn poly;
    ASSERT_TRUE(poly.CreatePolygonRgn(tri, 3, ALTERNATE));
    EXPECT_TRUE(poly.PtInRegion(1, 1));
    EXPECT_FALSE(poly.PtInRegion(8, 8));

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
    EXPECT_EQ(onlyA.GetRgnBox(&box), COMPLEXREGION);
    EXPECT_EQ(box, CRect(0, 0, 2, 4));

    std::vector<uint8_t> mask(8 * 4);
    either.FillMask(8, 4, mask.data());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) EXPECT_EQ(mask[y * 8 + x], either.PtInRegion(x, y) ? 1 : 0);

    CRgn empty;
    EXPECT_FALSE(empty.PtInRegion(0, 0));
    EXPECT_EQ(empty.GetRgnBox(&box), RGN_ERROR);
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

TEST(Messages, RecorderCapturesAndRestores) {
    {
        MessageRecorder rec;
        Messages::ShowMessage("Cannot read frame #3 in file a.film.", "thermokit", MB_ICONERROR);
        ASSERT_EQ(rec.Count(), 1u);
        EXPECT_EQ(rec.Messages()[0].text, "Cannot read frame #3 in file a.film.");
        EXPECT_EQ(rec.Messages()[0].icon, static_cast<unsigned>(MB_ICONERROR));
    }
    EXPECT_EQ(Format("#%ld in %s", 12L, "x"), "#12 in x");
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
