#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "nuc/NucTestSupport.h"
#include "thermokit/nuc/CPixel.h"

using namespace thermokit;
using namespace nuctest;

namespace {

constexpr unsigned short W = 20, H = 20;
long At(long x, long y) { return y * W + x; }

void MarkBlock(CPixel& map, long x0, long y0, long x1, long y1) {
    for (long y = y0; y <= y1; ++y)
        for (long x = x0; x <= x1; ++x) ASSERT_EQ(map.Add(At(x, y), 0, CPixel::kGain), 1);
}

long FindOf(const CPixel& map, long pixel, int* result = nullptr) {
    long r = -99;
    const int ok = map.Find(pixel, &r);
    if (result) *result = ok;
    return r;
}

}  // namespace

TEST(CPixel, NewMapAndErrors) {
    CPixel map(W, H, 0);
    EXPECT_EQ(map.IsValid(), 1);
    EXPECT_EQ(map.IsEmpty(), 1);
    EXPECT_EQ(map.IsDistributed(), 1);
    const auto expectError = [&](int result, int code, const char* message) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(map.GetLastError(), code);
        EXPECT_EQ(map.GetLastErrorMessage(), message);
    };
    expectError(0, -1, "No error");
    expectError(map.Delete(0), 1, "Invalid Bad pixel buffer size (must > 0)");
    expectError(map.Apply(static_cast<unsigned short*>(nullptr)), 2, "Invalid buffer");
    expectError(map.Insert(1, 5, 6, 0x03), 3, "Invalid Index");
    // Any index goes into the list; Apply skips those off the detector.
    EXPECT_EQ(map.Add(W * H, 0, 0x03), 1);
    EXPECT_EQ(map.Add(-1, 0, 0x03), 1);
    EXPECT_EQ(map.Add(0, W * H + 5, 0x03), 1);
    std::vector<unsigned short> img(W * H, 3);
    img[0] = 9;
    EXPECT_EQ(map.Apply(img.data()), 1);
    EXPECT_EQ(img[0], 9);
    map.Reset();

    EXPECT_EQ(map.Index(3, 2), 43);
    unsigned short x = 0, y = 0;
    map.Coordinates(43, &x, &y);
    EXPECT_EQ(x, 3);
    EXPECT_EQ(y, 2);
    EXPECT_EQ(map.Coordinates(399), CPoint(19, 19));
}

TEST(CPixel, ReplacementAtCornersAndInsideClusters) {
    CPixel map(W, H, 0);
    int ok = -1;
    // Top-left corner: left and up are off the detector, so (0,+1), then (+1,0), then (+1,+1).
    EXPECT_EQ(FindOf(map, At(0, 0), &ok), At(0, 1));
    EXPECT_EQ(ok, 1);
    map.Add(At(0, 1), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(0, 0)), At(1, 0));
    map.Add(At(1, 0), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(0, 0)), At(1, 1));
    // Bottom-right corner takes its left neighbour, then the one above.
    EXPECT_EQ(FindOf(map, At(19, 19)), At(18, 19));
    map.Add(At(18, 19), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(19, 19)), At(19, 18));
    // Ring one in order: left, down, right, up, then the diagonals.
    EXPECT_EQ(FindOf(map, At(10, 10)), At(9, 10));

    map.Reset();
    MarkBlock(map, 9, 9, 11, 11);  // 3 x 3
    EXPECT_EQ(FindOf(map, At(10, 10)), At(8, 10));
    for (auto p : {At(8, 10), At(10, 12), At(12, 10), At(10, 8)}) map.Add(p, 0, 0x03);
    EXPECT_EQ(FindOf(map, At(10, 10)), At(8, 9));
    map.Add(At(8, 9), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(10, 10)), At(8, 11));
    map.Add(At(8, 11), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(10, 10)), At(9, 12));

    map.Reset();
    MarkBlock(map, 8, 8, 12, 12);  // 5 x 5: the first free place is (-3, 0)
    EXPECT_EQ(FindOf(map, At(10, 10)), At(7, 10));
    map.Add(At(7, 10), 0, 0x03);
    EXPECT_EQ(FindOf(map, At(10, 10)), At(10, 13));
    // The last neighbour tried is (+3, -3).
    map.Reset();
    MarkBlock(map, 7, 7, 13, 13);
    map.Delete(static_cast<unsigned short>(map.IsBad(At(13, 7))));
    EXPECT_EQ(FindOf(map, At(10, 10), &ok), At(13, 7));
    EXPECT_EQ(ok, 1);

    // Inside a 7 x 7 cluster: its own replacement, result 0.
    map.Reset();
    MarkBlock(map, 7, 7, 13, 13);
    EXPECT_EQ(FindOf(map, At(10, 10), &ok), At(10, 10));
    EXPECT_EQ(ok, 0);

    // UpdateReplacement fills every entry the same way.
    map.Reset();
    MarkBlock(map, 9, 9, 11, 11);
    map.Add(At(0, 0), 0, 0x03);
    ASSERT_EQ(map.UpdateReplacement(), 1);
    const int32_t* repl = map.GetPixel2();
    EXPECT_EQ(repl[map.IsBad(At(9, 9))], At(8, 9));
    EXPECT_EQ(repl[map.IsBad(At(10, 10))], At(8, 10));
    EXPECT_EQ(repl[map.IsBad(At(11, 11))], At(11, 12));
    EXPECT_EQ(repl[map.IsBad(At(0, 0))], At(0, 1));
    EXPECT_EQ(map.IsReplacement(At(8, 10)), map.IsBad(At(9, 10)));  // the first entry using it
    EXPECT_EQ(map.IsReplacement(At(5, 5)), -1);
    EXPECT_EQ(map.IsBad(At(5, 5)), -1);
}

TEST(CPixel, DetectionThresholdsAreStrictAndCodesCombine) {
    CPixel map(W, H, 0);
    std::vector<float> gain(W * H, 1.0f), offset(W * H, 0.0f), noise(W * H, 1.0f);
    gain[1] = 0.79f;
    gain[2] = 0.8f;  // the limit itself is good
    gain[3] = 1.2f;
    gain[4] = 1.21f;
    ASSERT_EQ(map.UpdateGain(gain.data(), W * H, 20.0f, 1.0f), 1);
    EXPECT_EQ(map.GetGainCriteria(), 20.0f);
    ASSERT_EQ(map.GetSize(), 2);
    EXPECT_EQ(map.GetPixel1()[0], 1);
    EXPECT_EQ(map.GetPixel1()[1], 4);
    EXPECT_EQ(map.GetPixel2()[0], 0);

    offset[4] = 150.0f;
    offset[5] = -150.0f;
    offset[6] = 100.0f;  // limit: 0.01 x 1000 x 10
    offset[9] = -100.0f;
    ASSERT_EQ(map.UpdateOffset(offset.data(), W * H, 10.0f, 1000), 1);
    EXPECT_EQ(map.GetOffsetCriteria(), 10.0f);
    ASSERT_EQ(map.GetSize(), 3);

    noise[5] = 0.0f;
    noise[7] = 0.0f;
    noise[8] = -0.0f;
    noise[10] = 1e-7f;
    ASSERT_EQ(map.UpdateNoise(noise.data(), W * H, 0.0f, 0), 1);
    EXPECT_EQ(map.GetNoiseCriteria(), 0.0f);
    ASSERT_EQ(map.GetSize(), 5);
    // Pixel 1 gain, 4 gain and offset, 5 offset and noise, 7 noise, 8 noise (-0 <= 0).
    EXPECT_EQ(std::vector<unsigned char>(map.GetCriteria(), map.GetCriteria() + 5),
              (std::vector<unsigned char>{0x03, 0x0F, 0x1C, 0x10, 0x10}));
    EXPECT_NE(map.IsGain(1), 0);
    EXPECT_NE(map.IsOffset(1), 0);
    EXPECT_EQ(map.IsNoise(1), 0);
    EXPECT_NE(map.IsOffsetGain(0), 0);  // any of the mask's bits
    EXPECT_EQ(map.IsOffsetGainNoise(1), 0);
    EXPECT_EQ(map.Color(0), 0x00FF00u);
    EXPECT_EQ(map.Color(1), 0x00FFFFu);
    EXPECT_EQ(map.Color(2), 0xFF00FFu);
    EXPECT_EQ(map.Color(3), 0xFF0000u);

    map.UpdateDistribution(nullptr, 0);
    // Each entry counted only under its exact code.
    const auto counts = [](const CPixel& m) {
        return std::vector<long>{m.GetTotal(), m.GetGain(), m.GetOffsetGain(), m.GetOffset(), m.GetOffsetNoise(),
                                 m.GetNoise(), m.GetGainNoise(), m.GetOffsetGainNoise(), m.GetWindowSize()};
    };
    EXPECT_EQ(counts(map), (std::vector<long>{5, 1, 1, 0, 1, 2, 0, 0, 400}));

    // Inside / outside a rectangle whose right edge is excluded.
    CRect r(0, 0, 5, 1);
    map.UpdateDistribution(&r, 0);
    EXPECT_EQ(map.GetTotal(), 2);
    EXPECT_EQ(map.GetWindowSize(), 5);
    map.UpdateDistribution(&r, 1);
    EXPECT_EQ(map.GetTotal(), 3);
    EXPECT_EQ(map.GetOffsetNoise(), 1);
    EXPECT_EQ(map.GetWindowSize(), 395);

    // High noise: at or above the threshold. Reference scales the gain limits.
    CPixel hot(W, H, 0);
    std::vector<float> n2(W * H, 4.9f);
    n2[3] = 5.0f;
    n2[4] = 7.0f;
    ASSERT_EQ(hot.UpdateNoise(n2.data(), W * H, 5.0f, 1), 1);
    EXPECT_EQ(hot.GetSize(), 2);
    CPixel scaled(W, H, 0);
    std::vector<float> g2(W * H, 2.0f);
    g2[0] = 1.6f;
    g2[1] = 1.59f;
    g2[2] = 2.4f;
    g2[3] = 2.41f;
    ASSERT_EQ(scaled.UpdateGain(g2.data(), W * H, 20.0f, 2.0f), 1);
    ASSERT_EQ(scaled.GetSize(), 2);
    EXPECT_EQ(scaled.GetPixel1()[0], 1);
    EXPECT_EQ(scaled.GetPixel1()[1], 3);
}

TEST(CPixel, CapacityLimit) {
    CPixel map(200, 100, 0);
    std::vector<float> gain(20000, 0.0f);
    EXPECT_EQ(map.UpdateGain(gain.data(), 20000, 20.0f, 1.0f), 0);
    EXPECT_EQ(map.GetLastError(), 0);
    EXPECT_EQ(map.GetLastErrorMessage(), "Too many bad pixels (maximum = 16384)");
    EXPECT_EQ(map.GetSize(), 16384);
    EXPECT_EQ(map.IsFull(), 1);
    EXPECT_EQ(map.GetPixel1()[16383], 16383);
    EXPECT_EQ(map.Add(19999, 0, 0x10), 0);
    EXPECT_EQ(map.GetLastError(), 0);
    // Capacity is checked before the position.
    EXPECT_EQ(map.Insert(20000, 1, 2, 0x10), 0);
    EXPECT_EQ(map.GetLastError(), 0);
    // The camera form does not fit either, and nothing is added.
    std::vector<uint8_t> buf;
    Put<uint16_t>(buf, 4, 1);
    Put<uint32_t>(buf, 6, 5);
    Put<uint32_t>(buf, 10, 6);
    EXPECT_EQ(map.FormatBPR(buf.data()), 0);
    EXPECT_EQ(map.GetSize(), 16384);
}

TEST(CPixel, ApplyInListOrderOnEveryType) {
    CPixel map(4, 2, 0);
    ASSERT_EQ(map.Add(5, 6, 0x03), 1);
    ASSERT_EQ(map.Add(6, 7, 0x03), 1);
    ASSERT_EQ(map.Add(0, 5, 0x03), 1);
    std::vector<unsigned short> u = {10, 11, 12, 13, 14, 15, 16, 17};
    ASSERT_EQ(map.Apply(u.data()), 1);
    EXPECT_EQ(u, (std::vector<unsigned short>{16, 11, 12, 13, 14, 16, 17, 17}));
    std::vector<float> f = {10, 11, 12, 13, 14, 15, 16, 17};
    ASSERT_EQ(map.Apply(f.data()), 1);
    EXPECT_EQ(f, (std::vector<float>{16, 11, 12, 13, 14, 16, 17, 17}));
    std::vector<double> d = {10, 11, 12, 13, 14, 15, 16, 17};
    ASSERT_EQ(map.Apply(d.data()), 1);
    EXPECT_EQ(d, (std::vector<double>{16, 11, 12, 13, 14, 16, 17, 17}));
    EXPECT_EQ(map.Apply(static_cast<double*>(nullptr)), 0);
    EXPECT_EQ(map.Apply(static_cast<float*>(nullptr)), 0);

    // Entries edited to point off the detector are never used to write or read.
    map.GetPixel1()[0] = 8;
    map.GetPixel2()[1] = -1;
    map.GetPixel1()[2] = 1 << 30;
    std::vector<unsigned short> v = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(map.Apply(v.data()), 1);
    EXPECT_EQ(v, (std::vector<unsigned short>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(CPixel, ListEditsKeepTheirQuirks) {
    CPixel map(W, H, 0);
    map.Add(10, 11, 0x03);
    map.Add(20, 21, 0x0C);
    map.Add(30, 31, 0x10);
    // Insert before the end duplicates the entry at the position, drops the
    // former last one, writes the new one at the end; codes do not move.
    ASSERT_EQ(map.Insert(1, 40, 41, 0x1F), 1);
    ASSERT_EQ(map.GetSize(), 4);
    const int32_t* bad = map.GetPixel1();
    const int32_t* repl = map.GetPixel2();
    EXPECT_EQ(std::vector<int32_t>(bad, bad + 4), (std::vector<int32_t>{10, 20, 20, 40}));
    EXPECT_EQ(std::vector<int32_t>(repl, repl + 4), (std::vector<int32_t>{11, 21, 21, 41}));
    const unsigned char* code = map.GetCriteria();
    EXPECT_EQ(std::vector<unsigned char>(code, code + 4), (std::vector<unsigned char>{0x03, 0x0C, 0x10, 0x1F}));
    EXPECT_EQ(map.Insert(5, 1, 2, 0x03), 0);
    EXPECT_EQ(map.GetLastError(), 3);

    // Delete moves everything after the position down, codes too.
    ASSERT_EQ(map.Delete(1), 1);
    ASSERT_EQ(map.GetSize(), 3);
    EXPECT_EQ(std::vector<int32_t>(bad, bad + 3), (std::vector<int32_t>{10, 20, 40}));
    EXPECT_EQ(code[1], 0x10);
    EXPECT_EQ(code[2], 0x1F);

    ASSERT_EQ(map.Modify(0, 0x10), 1);
    EXPECT_EQ(code[0], 0x13);
    EXPECT_EQ(map.Modify(3, 0x10), 0);
    ASSERT_EQ(map.SetGain(0, 0), 1);
    EXPECT_EQ(code[0], 0x10);
    ASSERT_EQ(map.SetOffset(0, 1), 1);
    EXPECT_EQ(code[0], 0x1C);
    ASSERT_EQ(map.SetNoise(2, 0), 1);
    EXPECT_EQ(code[2], 0x0F);
    EXPECT_EQ(map.SetNoise(3, 1), 0);  // beyond the count

    map.Reset();
    EXPECT_EQ(map.GetSize(), 0);
    EXPECT_EQ(map.GetPixel1()[2], 0);
    EXPECT_EQ(map.GetCriteria()[2], 0);
    EXPECT_EQ(map.GetTotal(), 0);
}

TEST(CPixel, FlipMirrorsIndicesAndTogglesFlags) {
    CPixel map(4, 3, 0);
    int l = -1, c = -1;
    EXPECT_EQ(map.GetFlip(l, c), 0);
    map.Add(0, 1, 0x03);   // (0,0) <- (1,0)
    map.Add(6, 10, 0x03);  // (2,1) <- (2,2)
    map.Flip(0, 1);
    // Both entries as bad, replacement, bad, replacement; then the line and column flags.
    const auto state = [&map] {
        return std::vector<int>{map.GetPixel1()[0], map.GetPixel2()[0], map.GetPixel1()[1], map.GetPixel2()[1],
                                map.GetHeader().byFlipLine, map.GetHeader().byFlipColumn};
    };
    EXPECT_EQ(state(), (std::vector<int>{3, 2, 5, 9, 0, 1}));
    map.Flip(1, 0);
    EXPECT_EQ(state(), (std::vector<int>{11, 10, 5, 1, 1, 1}));
    EXPECT_EQ(map.GetFlip(l, c), 0);  // flags are not "stored" until SetFlip
    map.Flip(1, 1);
    EXPECT_EQ(state(), (std::vector<int>{0, 1, 6, 10, 0, 0}));
    map.SetFlip(1, 0);
    ASSERT_EQ(map.GetFlip(l, c), 1);
    EXPECT_EQ(l, 1);
    EXPECT_EQ(c, 0);
    EXPECT_EQ(map.GetPixel1()[0], 0);  // SetFlip moves nothing
}

TEST(CPixel, FileLayoutAndRoundTrip) {
    CPixel map(4, 3, 0);
    map.Add(0, 1, 0x03);
    map.Add(11, 10, 0x1C);
    map.SetFlip(1, 1);
    std::vector<float> g(12, 1.0f);
    map.UpdateGain(g.data(), 12, 25.0f, 1.0f);
    const std::string path = TempPath("layout.bpr");
    ASSERT_EQ(map.Save(path.c_str()), 1);
    const auto b = ReadBytes(path);
    ASSERT_EQ(b.size(), 258u + 8u + 8u + 2u);
    EXPECT_EQ(std::memcmp(b.data(), "PIX\0\0", 5), 0);
    EXPECT_EQ(std::memcmp(b.data() + 5, "5.60\0", 5), 0);
    for (int i = 11; i < 252; ++i)
        if (i < 231 || i > 246) {
            ASSERT_EQ(b[i], 0) << i;
        }
    // Flags stored, flip line and column, gain, offset and noise limits, codes present, 4 x 3, 2 entries;
    // the bad indices, the replacements, the codes.
    ExpectFields(b, {{10, u8{0x1A}},  {231, u8{1}},   {232, u8{1}},   {233, u8{1}},  {234, 25.0f}, {238, 0.0f},
                     {242, 0.0f},     {246, u8{1}},   {252, u16{4}},  {254, u16{3}}, {256, u16{2}},
                     {258, int32_t{0}}, {262, int32_t{11}}, {266, int32_t{1}}, {270, int32_t{10}},
                     {274, u8{0x03}}, {275, u8{0x1C}}});

    CPixel back(path.c_str());
    ASSERT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetSize(), 2);
    EXPECT_EQ(back.GetPixel2()[1], 10);
    EXPECT_EQ(back.GetCriteria()[1], 0x1C);
    EXPECT_EQ(back.GetTotal(), 2);
    EXPECT_EQ(back.GetOffsetNoise(), 1);
    int l = 0, c = 0;
    EXPECT_EQ(back.GetFlip(l, c), 1);
    const std::string again = TempPath("again.bpr");
    ASSERT_EQ(back.Save(again.c_str()), 1);
    EXPECT_EQ(ReadBytes(again), b);

    // Without criteria codes: no code bytes; the per-entry tests give 0,
    // IsOffsetGainNoise 1, colours white, every entry counted as all three.
    auto nb = b;
    nb[246] = 0;
    nb.resize(274);
    Put<uint16_t>(nb, 252, 0);  // 0 points, 0 lines: 128 x 128
    Put<uint16_t>(nb, 254, 0);
    nb[231] = 0;                 // flags not stored: both cleared
    const std::string plain = TempPath("plain.bpr");
    WriteBytes(plain, nb);
    CPixel p(plain.c_str());
    ASSERT_EQ(p.IsValid(), 1);
    EXPECT_EQ(p.GetPoint(), 128);
    EXPECT_EQ(p.GetLine(), 128);
    EXPECT_EQ(p.IsDistributed(), 0);
    EXPECT_EQ(p.GetHeader().byFlipLine, 0);
    EXPECT_EQ(p.GetHeader().byFlipColumn, 0);
    EXPECT_EQ(p.IsGain(0), 0);
    EXPECT_EQ(p.IsNoise(1), 0);
    EXPECT_EQ(p.IsOffsetGainNoise(0), 1);
    EXPECT_EQ(p.Color(1), 0xFFFFFFu);
    EXPECT_EQ(p.GetOffsetGainNoise(), 2);
    EXPECT_EQ(p.GetTotal(), 0);
    EXPECT_EQ(p.SetGain(0, 1), 0);
    // The signature is not compared.
    auto sb = b;
    std::memcpy(sb.data(), "XYZ", 3);
    WriteBytes(plain, sb);
    EXPECT_EQ(CPixel(plain.c_str()).IsValid(), 1);
}

TEST(CPixel, HostileFilesAreRefused) {
    CPixel map(4, 3, 0);
    map.Add(0, 1, 0x03);
    const std::string path = TempPath("src.bpr");
    ASSERT_EQ(map.Save(path.c_str()), 1);
    const auto b = ReadBytes(path);
    const std::string bad = TempPath("bad.bpr");
    auto expectRefused = [&](const std::vector<uint8_t>& bytes, int error, const std::string& text) {
        WriteBytes(bad, bytes);
        CPixel p(bad.c_str());
        EXPECT_EQ(p.IsValid(), 0);
        EXPECT_EQ(p.GetSize(), 0);
        EXPECT_EQ(p.GetLastError(), error);
        EXPECT_EQ(p.GetLastErrorText(), text);
        EXPECT_EQ(p.GetLastErrorKind(), ErrorKind::Format);
        std::vector<unsigned short> img(12, 7);
        EXPECT_EQ(p.Apply(img.data()), 1);
        EXPECT_EQ(img, std::vector<unsigned short>(12, 7));
    };
    auto many = b;
    Put<uint16_t>(many, 256, 16385);
    many.resize(258 + 16385 * 9, 0);
    expectRefused(many, 0, "damaged: 16385 entries, more than the 16384 a map holds");
    auto offDetector = b;
    Put<int32_t>(offDetector, 258, 12);
    expectRefused(offDetector, 3, "damaged: entry 0 names a pixel outside the 4 x 3 detector");
    auto negative = b;
    Put<int32_t>(negative, 262, -1);
    expectRefused(negative, 3, "damaged: entry 0 names a pixel outside the 4 x 3 detector");
    auto shortList = b;
    Put<uint16_t>(shortList, 256, 200);
    expectRefused(shortList, 2, "shorter than its 200 entries (267 bytes, 2058 expected)");
    auto shortHeader = b;
    shortHeader.resize(100);
    expectRefused(shortHeader, 2, "not a bad-pixel map (shorter than the 258-byte header)");
    CPixel missing((::testing::TempDir() + "missing.bpr").c_str());
    EXPECT_EQ(missing.IsValid(), 0);
    EXPECT_EQ(missing.GetSize(), 0);
    EXPECT_EQ(missing.GetLastError(), -1);
    EXPECT_EQ(missing.GetLastErrorKind(), ErrorKind::System);
}

TEST(CPixel, PackedBuffers) {
    CPixel map(4, 3, 0);
    map.Add(0, 1, 0x03);
    map.Add(11, 10, 0x0C);
    std::vector<uint8_t> buf(12 + 16, 0xEE);
    ASSERT_EQ(map.CreateBufferBpr(buf.data()), 1);
    // Points, lines, count; the bad indices; the replacements.
    ExpectFields(buf, {{0, 4u}, {4, 3u}, {8, 2u}, {12, 0u}, {16, 11u}, {20, 1u}, {24, 10u}});

    // Camera form: count at byte 4, bad indices from byte 6, replacements after them.
    std::vector<uint8_t> cam(6 + 8 * 3, 0);
    Put<uint16_t>(cam, 4, 3);
    for (int k = 0; k < 3; ++k) {
        Put<uint32_t>(cam, 6 + 4 * k, static_cast<uint32_t>(2 + k));
        Put<uint32_t>(cam, 18 + 4 * k, static_cast<uint32_t>(7 + k));
    }
    ASSERT_EQ(map.FormatBPR(cam.data()), 1);
    ASSERT_EQ(map.GetSize(), 5);
    EXPECT_EQ(map.GetPixel1()[2], 2);
    EXPECT_EQ(map.GetPixel1()[4], 4);
    EXPECT_EQ(map.GetPixel2()[4], 9);
    EXPECT_EQ(map.GetCriteria()[3], 0x1F);
    std::vector<uint8_t> huge(8, 0);
    Put<uint16_t>(huge, 4, 0xFFFF);
    EXPECT_EQ(map.FormatBPR(huge.data()), 0);
    EXPECT_EQ(map.GetLastError(), 0);
}

TEST(CPixel, CopiesRecountOverTheWholeDetector) {
    CPixel map(W, H, 0);
    map.Add(At(1, 1), 0, 0x03);
    map.Add(At(15, 15), 0, 0x10);
    CRect r(0, 0, 5, 5);
    map.UpdateDistribution(&r, 0);
    EXPECT_EQ(map.GetTotal(), 1);
    CPixel copy(map);
    EXPECT_EQ(copy.GetTotal(), 2);
    EXPECT_EQ(copy.GetWindow(), CRect(0, 0, W, H));
    CPixel fromPtr(&map);
    EXPECT_EQ(fromPtr.GetTotal(), 2);
    EXPECT_EQ(fromPtr.GetPixel1()[1], At(15, 15));
    fromPtr.Add(3, 4, 0x03);
    EXPECT_EQ(map.GetSize(), 2);  // a deep copy
    CPixel assigned(2, 2, 0);
    assigned = fromPtr;
    EXPECT_EQ(assigned.GetSize(), 3);
    EXPECT_EQ(assigned.GetPoint(), W);
}

TEST(CPixel, TextReportLineByLine) {
    CPixel map(W, H, 0);
    std::vector<float> gain(W * H, 1.0f), offset(W * H, 0.0f), noise(W * H, 2.0f);
    gain[At(1, 0)] = 0.5f;
    gain[At(2, 3)] = 2.0f;
    offset[At(2, 3)] = 500.0f;
    noise[At(19, 19)] = 0.0f;
    map.UpdateGain(gain.data(), W * H, 10.0f, 1.0f);
    map.UpdateOffset(offset.data(), W * H, 5.0f, 1000);
    map.UpdateNoise(noise.data(), W * H, 0.5f, 0);
    map.UpdateReplacement();
    map.UpdateDistribution(nullptr, 0);
    const std::string path = TempPath("report.txt");
    ASSERT_EQ(map.SaveAscii(path.c_str(), 1, 1, 0), 1);
    const std::vector<std::string> want = {
        "Bad Pixel File : " + path,
        "Detector Format:",
        "----------------",
        "Horz : 20",
        "Vert : 20",
        "Window Coordinates:",
        "-------------------",
        "Left   : 0",
        "Top    : 0",
        "Right  : 20",
        "Bottom : 20",
        "Width  : 20",
        "Height : 20",
        "Pixels are INSIDE this window",
        "Detection Criterias:",
        "--------------------",
        "Noise  : 0.5 DL",
        "Gain   : +/-10 %",
        "Offset : +/-5 %",
        "Criteria Statistics        #\t %",
        "----------------------------------",
        "Gain                  :    1\t33.33",
        "Offset                :    0\t0.00",
        "Noise                 :    1\t33.33",
        "Gain & Offset         :    1\t33.33",
        "Offset & Noise        :    0\t0.00",
        "Gain & Noise          :    0\t0.00",
        "Gain & Offset & Noise :    0\t0.00",
        "----------------------------------",
        "Total                 :    3\t100.00",
        "Gain : selected",
        "Offset : selected",
        "Noise : unselected",
        "BPR#\t  Bad(X,Y)\tRepl.(X,Y)\tCrit.",
        "----------------------------------",
        "   1\t   2\t   1\t   1\t   1\tG",
        "   2\t   3\t   4\t   2\t   4\tGO",
    };
    EXPECT_EQ(ReadLines(path), want);

    // Criteria left at 0 read "n/a"; the noise entry is listed once noise is selected.
    CPixel fresh(W, H, 0);
    fresh.Add(At(19, 19), At(18, 19), 0x10);
    fresh.UpdateDistribution(nullptr, 1);
    ASSERT_EQ(fresh.SaveAscii(path.c_str(), 0, 0, 1), 1);
    const auto lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 35u);
    EXPECT_EQ(lines[13], "Pixels are OUTSIDE this window");
    EXPECT_EQ(lines[16], "Noise  : n/a");
    EXPECT_EQ(lines[17], "Gain   : n/a");
    EXPECT_EQ(lines[18], "Offset : n/a");
    EXPECT_EQ(lines[29], "Total                 :    0\t0.00");
    // Counting outside the whole detector lists nothing.
    fresh.UpdateDistribution(nullptr, 0);
    ASSERT_EQ(fresh.SaveAscii(path.c_str(), 0, 0, 1), 1);
    const auto inside = ReadLines(path);
    ASSERT_EQ(inside.size(), 36u);
    EXPECT_EQ(inside[35], "   1\t  20\t  20\t  19\t  20\tN");
    EXPECT_EQ(fresh.SaveAscii((::testing::TempDir() + "no/dir/r.txt").c_str(), 1, 1, 1), 0);
}
