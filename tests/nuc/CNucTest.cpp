#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "nuc/NucTestSupport.h"
#include "thermokit/nuc/CNuc.h"

using namespace thermokit;
using namespace nuctest;
using thermokit::test::Bytes;

namespace {

void Fill(CNuc& nuc, float gain, float offset) {
    for (long i = 0; i < nuc.GetSize(); ++i) {
        nuc.GetAlpha()[i] = gain;
        nuc.GetBeta()[i] = offset;
    }
}

}  // namespace

TEST(CNuc, NewTableHeaderAndMetadata) {
    CNuc nuc(320, 240);
    EXPECT_EQ(nuc.IsValid(), 1);
    EXPECT_EQ(nuc.GetSize(), 76800);
    EXPECT_EQ(nuc.GetPoint(), 320);
    EXPECT_EQ(nuc.GetLine(), 240);
    float gmin = 0, gmax = 0;
    nuc.GetGainLimit(&gmin, &gmax);
    EXPECT_EQ(gmin, 0.1f);
    EXPECT_EQ(gmax, 10.0f);

    // Fields are cleared before each copy and cut to 19 / 10 / 19 characters.
    nuc.SetCamera("ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_EQ(nuc.GetCamera(), "ABCDEFGHIJKLMNOPQRS");
    nuc.SetCamera("XY");
    EXPECT_EQ(nuc.GetCamera(), "XY");
    EXPECT_EQ(nuc.GetHeader().szCamera[3], 0);
    nuc.SetCameraSerial("0123456789ABC");
    EXPECT_EQ(nuc.GetCameraSerial(), "0123456789");
    nuc.SetFilter("a-very-long-filter-name-indeed");
    EXPECT_EQ(nuc.GetFilter(), "a-very-long-filter-");
    nuc.SetIntegration(1.25e-3f);
    EXPECT_EQ(nuc.GetIntegration(), 1.25e-3f);

    nuc.SetWindowing(1, 17, 33);
    unsigned char flag = 9;
    unsigned short x = 0, y = 0, p = 0, l = 0;
    nuc.GetWindowing(&flag, &x, &y, nullptr, nullptr);
    EXPECT_EQ((std::vector<long>{flag, x, y, p, l}), (std::vector<long>{1, 17, 33, 0, 0}));
    nuc.GetWindowing(&flag, &x, &y, &p, &l);
    EXPECT_EQ((std::vector<long>{flag, x, y, p, l}), (std::vector<long>{1, 17, 33, 320, 240}));
    long lf = 0;
    unsigned long lx = 0, ly = 0, lp = 0, ll = 0;
    nuc.GetWindowing(&lf, &lx, &ly, &lp, &ll);
    EXPECT_EQ((std::vector<unsigned long>{static_cast<unsigned long>(lf), lx, ly, lp, ll}),
              (std::vector<unsigned long>{1, 17, 33, 320, 240}));

    nuc.Reset();
    EXPECT_EQ(nuc.GetAlpha()[0], 1.0f);
    EXPECT_EQ(nuc.GetBeta()[76799], 0.0f);
}

TEST(CNuc, FileLayoutByteByByte) {
    CNuc nuc(3, 2);
    for (int i = 0; i < 6; ++i) {
        nuc.GetAlpha()[i] = 1.0f + static_cast<float>(i);
        nuc.GetBeta()[i] = -0.5f * static_cast<float>(i);
    }
    nuc.SetCamera("CAM-1");
    nuc.SetCameraSerial("SN42");
    nuc.SetFilter("F0");
    nuc.SetIntegration(0.5f);
    nuc.SetWindowing(1, 0x0102, 0x0304);
    const std::string path = TempPath("layout.nuc");
    ASSERT_EQ(nuc.Save(path.c_str()), 1);
    const auto b = ReadBytes(path);
    ASSERT_EQ(b.size(), 260u + 8u * 6u);
    EXPECT_EQ(std::memcmp(b.data(), "COE\0\0", 5), 0);
    EXPECT_EQ(std::memcmp(b.data() + 5, "5.60\0", 5), 0);
    for (int i = 11; i < 192; ++i) ASSERT_EQ(b[i], 0) << "reserved byte " << i;
    // Camera, serial, filter, integration, windowing flag, x, y; points, lines, pixel count.
    ExpectFields(b, {{10, u8{0x1A}}, {192, "CAM-1"}, {212, "SN42"}, {223, "F0"}, {243, 0.5f}, {247, u8{1}},
                     {248, u16{0x0102}}, {250, u16{0x0304}}, {252, u16{3}}, {254, u16{2}}, {256, 6u}});
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(Get<float>(b, 260 + 4 * i), 1.0f + static_cast<float>(i));
        EXPECT_EQ(Get<float>(b, 260 + 24 + 4 * i), -0.5f * static_cast<float>(i));
    }

    CNuc back(path.c_str());
    ASSERT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetSize(), 6);
    EXPECT_EQ(back.GetCamera(), "CAM-1");
    EXPECT_EQ(back.GetCameraSerial(), "SN42");
    EXPECT_EQ(back.GetFilter(), "F0");
    EXPECT_EQ(std::memcmp(back.GetAlpha(), nuc.GetAlpha(), 24), 0);
    EXPECT_EQ(std::memcmp(back.GetBeta(), nuc.GetBeta(), 24), 0);
    // Saving what was read gives the same bytes.
    const std::string again = TempPath("again.nuc");
    ASSERT_EQ(back.Save(again.c_str()), 1);
    EXPECT_EQ(ReadBytes(again), b);
    // Save into a folder that does not exist.
    EXPECT_EQ(nuc.Save((::testing::TempDir() + "no/such/dir/x.nuc").c_str()), 0);
}

TEST(CNuc, ReadingOddAndHostileFiles) {
    CNuc src(2, 2);
    Fill(src, 2.0f, 3.0f);
    const std::string good = TempPath("good.nuc");
    ASSERT_EQ(src.Save(good.c_str()), 1);
    const auto bytes = ReadBytes(good);
    const std::string p = TempPath("hostile.nuc");
    // A copy of the file changed by damage, read back.
    const auto damaged = [&](const std::function<void(Bytes&)>& damage) {
        auto b = bytes;
        damage(b);
        WriteBytes(p, b);
        return std::make_unique<CNuc>(p.c_str());
    };

    // Zero points and lines read as 128 x 128; the pixel count stays the file's.
    {
        const auto held = damaged([](Bytes& b) {
            Put<uint16_t>(b, 252, 0);
            Put<uint16_t>(b, 254, 0);
        });
        CNuc& nuc = *held;
        ASSERT_EQ(nuc.IsValid(), 1);
        EXPECT_EQ(nuc.GetPoint(), 128);
        EXPECT_EQ(nuc.GetLine(), 128);
        EXPECT_EQ(nuc.GetSize(), 4);
        EXPECT_EQ(nuc.GetAlpha()[3], 2.0f);
        EXPECT_EQ(nuc.GetBeta()[3], 3.0f);
        float gmin = 0, gmax = 0;
        nuc.GetGainLimit(&gmin, &gmax);
        EXPECT_EQ(gmin, 0.1f);
        EXPECT_EQ(gmax, 10.0f);
        // The camera form may not hold more pixels than the table has.
        std::vector<unsigned char> packed(4 * 5, 0);
        EXPECT_EQ(nuc.FormatNuc(packed.data(), 4 * 5, 0), 0);
        EXPECT_EQ(nuc.FormatNuc(packed.data(), 4 * 4, 0), 1);
    }
    // The signature is compared as a zero-terminated text, case-sensitively;
    // the version is not checked.
    for (const char* sig : {"coe", "COEX", "CO", "PIX"}) {
        const auto held = damaged([sig](Bytes& b) {
            std::memset(b.data(), 0, 5);
            std::memcpy(b.data(), sig, std::strlen(sig));
        });
        CNuc& nuc = *held;
        EXPECT_EQ(nuc.IsValid(), 0) << sig;
        EXPECT_EQ(nuc.GetAlpha(), nullptr);
        EXPECT_EQ(nuc.IsCompatible(), 1);
        EXPECT_EQ(nuc.Save(TempPath("invalid.nuc").c_str()), 0);
        EXPECT_EQ(nuc.Apply(static_cast<float*>(nullptr)), 0);
        unsigned short px = 5;
        EXPECT_EQ(nuc.Apply(&px, 0x3FFF, nullptr), 0);
        EXPECT_EQ(px, 5);
    }
    EXPECT_EQ(damaged([](Bytes& b) { std::memcpy(b.data() + 5, "9.99", 4); })->IsValid(), 1);
    // A pixel count the file cannot hold is refused; so is a file cut short.
    for (uint32_t count : {5u, 0x20000000u, 0xFFFFFFFFu}) {
        const auto nuc = damaged([count](Bytes& b) { Put<uint32_t>(b, 256, count); });
        EXPECT_EQ(nuc->IsValid(), 0) << count;
        EXPECT_EQ(nuc->GetAlpha(), nullptr);
    }
    for (size_t length : {bytes.size() - 1, size_t(100)})
        EXPECT_EQ(damaged([length](Bytes& b) { b.resize(length); })->IsValid(), 0) << length;
    // A pixel count that disagrees with point x line is refused even when the
    // file holds its tables: Apply would run past a frame of the stated size.
    // Without a stated size (0, read as 128) a smaller count is accepted.
    {
        CNuc small(12, 8);
        small.Reset();
        ASSERT_EQ(small.Save(p.c_str()), 1);
        const auto saved = ReadBytes(p);
        for (uint32_t count : {128u, 95u}) {
            auto b = saved;
            Put<uint32_t>(b, 256, count);
            b.resize(260 + 8 * count, 0);
            WriteBytes(p, b);
            const CNuc refused(p.c_str());
            EXPECT_EQ(refused.IsValid(), 0) << count;
            EXPECT_EQ(refused.GetLastErrorText(),
                      "damaged: its pixel count " + std::to_string(count) + " disagrees with its 12 x 8 pixels");
            Put<uint16_t>(b, 252, 0);  // 128 x 8: 128 and 95 both fit
            WriteBytes(p, b);
            EXPECT_EQ(CNuc(p.c_str()).GetSize(), count);
        }
        auto b = saved;
        Put<uint16_t>(b, 252, 0);
        Put<uint16_t>(b, 254, 0);
        Put<uint32_t>(b, 256, 128 * 128 + 1);
        b.resize(260 + 8 * (128 * 128 + 1), 0);
        WriteBytes(p, b);
        EXPECT_EQ(CNuc(p.c_str()).IsValid(), 0);
    }
    EXPECT_EQ(CNuc((::testing::TempDir() + "missing.nuc").c_str()).IsValid(), 0);
    EXPECT_EQ(CNuc(static_cast<const char*>(nullptr)).IsValid(), 0);
}

TEST(CNuc, TwoPointUpdate) {
    CNuc nuc(3, 2);
    // Neither mean is representable in float, so the rounding of the means shows.
    std::vector<unsigned short> low = {100, 200, 300, 400, 500, 101};
    std::vector<unsigned short> high = {300, 300, 700, 410, 500, 90};
    ASSERT_EQ(nuc.Update(low.data(), high.data(), 0, 0), 1);
    const float meanL = static_cast<float>((100.0 + 200 + 300 + 400 + 500 + 101) / 6.0);
    const float meanH = static_cast<float>((300.0 + 300 + 700 + 410 + 500 + 90) / 6.0);
    const float* g = nuc.GetAlpha();
    const float* o = nuc.GetBeta();
    EXPECT_EQ(g[0], (meanH - meanL) / 200.0f);
    EXPECT_EQ(g[1], (meanH - meanL) / 100.0f);
    EXPECT_EQ(g[2], (meanH - meanL) / 400.0f);
    // A gain above the upper limit is held at it.
    EXPECT_EQ(g[3], 10.0f);
    // Equal values in both references: the lower limit, not 1.0.
    EXPECT_EQ(g[4], 0.1f);
    EXPECT_EQ(o[4], meanL - 500.0f * 0.1f);
    // The mean rises but this pixel falls: a negative gain, raised to the lower limit.
    EXPECT_EQ(g[5], 0.1f);
    // Offsets use the clamped gain, and L maps onto its own mean.
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(o[i], meanL - static_cast<float>(low[i]) * g[i]) << i;
        EXPECT_NEAR(static_cast<float>(low[i]) * g[i] + o[i], meanL, 1e-3f);
    }
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(static_cast<float>(high[i]) * g[i] + o[i], meanH, 1e-3f);

    // Float input gives the same tables for the same values.
    CNuc f(3, 2);
    std::vector<float> lowF(low.begin(), low.end()), highF(high.begin(), high.end());
    ASSERT_EQ(f.Update(lowF.data(), highF.data(), 0, 0), 1);
    EXPECT_EQ(std::memcmp(f.GetAlpha(), nuc.GetAlpha(), 24), 0);
    EXPECT_EQ(std::memcmp(f.GetBeta(), nuc.GetBeta(), 24), 0);

    // Clamp order: first the lower limit, then the upper. With the limits
    // crossed every gain ends at the upper one.
    CNuc crossed(3, 2);
    crossed.SetGainLimit(5.0f, 2.0f);
    ASSERT_EQ(crossed.Update(low.data(), high.data(), 0, 0), 1);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(crossed.GetAlpha()[i], 2.0f) << i;
    // New limits do not touch tables that exist.
    nuc.SetGainLimit(0.5f, 1.0f);
    EXPECT_EQ(nuc.GetAlpha()[3], 10.0f);
}

TEST(CNuc, OnePointUpdate) {
    CNuc nuc(2, 2);
    std::vector<unsigned short> ref = {10, 20, 30, 41};
    const float meanR = static_cast<float>(101.0 / 4.0);
    const float gains[] = {3.0f, 20.0f, -1.0f, 0.1f};
    std::copy(gains, gains + 4, nuc.GetAlpha());
    ASSERT_EQ(nuc.Update(ref.data(), nullptr, 1, 1), 1);
    // Kept gains are clamped again.
    EXPECT_EQ(std::vector<float>(nuc.GetAlpha(), nuc.GetAlpha() + 4), (std::vector<float>{3.0f, 10.0f, 0.1f, 0.1f}));
    EXPECT_EQ(nuc.GetBeta()[0], meanR - 10.0f * 3.0f);
    EXPECT_EQ(nuc.GetBeta()[1], meanR - 20.0f * 10.0f);
    ASSERT_EQ(nuc.Update(ref.data(), nullptr, 1, 0), 1);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(nuc.GetAlpha()[i], 1.0f);
        EXPECT_EQ(nuc.GetBeta()[i], meanR - static_cast<float>(ref[i]));
    }
    // A gain of 1.0 outside the limits is clamped too.
    nuc.SetGainLimit(2.0f, 4.0f);
    std::vector<float> refF = {10, 20, 30, 41};
    ASSERT_EQ(nuc.Update(refF.data(), nullptr, 1, 0), 1);
    EXPECT_EQ(nuc.GetAlpha()[2], 2.0f);
    EXPECT_EQ(nuc.GetBeta()[2], meanR - 60.0f);
}

TEST(CNuc, ApplyMasksClampsAndTruncates) {
    CNuc nuc(8, 1);
    Fill(nuc, 1.0f, 0.0f);
    float* o = nuc.GetBeta();
    float* g = nuc.GetAlpha();
    o[1] = 0.999f;              // 0 + 0.999 -> 0
    o[2] = 1.999f;              // 0 + 1.999 -> 1
    g[3] = 2.0f;                // 0x3FFF x 2 -> clamped to 0x3FFF
    o[4] = -5.0f;               // 3 - 5 -> 0
    o[5] = std::numeric_limits<float>::quiet_NaN();
    o[6] = 1.0f;                // 0x3FFE + 1 == maxLevel exactly
    g[7] = 0.5f;                // 7 x 0.5 = 3.5 -> 3
    std::vector<unsigned short> in = {0xC123, 0, 0, 0x3FFF, 3, 100, 0x3FFE, 7};
    std::vector<unsigned short> out(8, 0xEEEE);
    ASSERT_EQ(nuc.Apply(in.data(), 0x3FFF, out.data()), 1);
    const std::vector<unsigned short> want = {0x0123, 0, 1, 0x3FFF, 0, 0, 0x3FFF, 3};
    EXPECT_EQ(out, want);
    EXPECT_EQ(in[0], 0xC123);  // the input is left alone
    ASSERT_EQ(nuc.Apply(in.data(), 0x3FFF, nullptr), 1);
    EXPECT_EQ(in, want);

    // Float images: no mask, no clamp.
    std::vector<float> f = {70000.0f, -3.0f, 0.0f, 1.0f, 3.0f, 0.0f, 1.0f, 7.0f};
    ASSERT_EQ(nuc.Apply(f.data()), 1);
    EXPECT_EQ(f[0], 70000.0f);
    EXPECT_EQ(f[1], -3.0f + 0.999f);
    EXPECT_EQ(f[3], 2.0f);
    EXPECT_EQ(f[4], -2.0f);
    EXPECT_TRUE(std::isnan(f[5]));
    EXPECT_EQ(f[7], 3.5f);
}

TEST(CNuc, UndoRestoresAndGainZeroGivesZero) {
    CNuc nuc(4, 1);
    Fill(nuc, 2.0f, 10.0f);
    nuc.GetAlpha()[3] = 0.0f;
    std::vector<unsigned short> raw = {0, 100, 4000, 50};
    std::vector<unsigned short> corrected(4), undone(4);
    nuc.Apply(raw.data(), 0x3FFF, corrected.data());
    EXPECT_EQ(corrected[1], 210);
    ASSERT_EQ(nuc.ApplyDeNuc(corrected.data(), 0x3FFF, undone.data()), 1);
    EXPECT_EQ(undone, (std::vector<unsigned short>{0, 100, 4000, 0}));  // gain 0 gives 0
    // Bits above the depth are masked, results clamped to the depth.
    std::vector<unsigned short> high = {0xFFFF, 0xF000 | 9, 0x0FFF, 0x0FFF};
    ASSERT_EQ(nuc.ApplyDeNuc(high.data(), 0x0FFF, nullptr), 1);
    EXPECT_EQ(high[0], (0x0FFF - 10) / 2);
    EXPECT_EQ(high[1], 0);  // (9 - 10) / 2 < 0
    // Float undo.
    std::vector<float> f = {10.0f, 12.0f, 20.0f, 5.0f};
    ASSERT_EQ(nuc.ApplyDeNuc(f.data()), 1);
    EXPECT_EQ(f, (std::vector<float>{0.0f, 1.0f, 5.0f, 0.0f}));
}

TEST(CNuc, PackedCameraForm) {
    CNuc nuc(3, 2);
    Fill(nuc, 1.0f, -3.6f);
    float* g = nuc.GetAlpha();
    float* o = nuc.GetBeta();
    g[1] = 4.0f;           // wraps to 0 in format 0
    g[2] = -1.0f;          // negative gain wraps
    o[2] = 20000.0f;       // x 2 = 40000 wraps in format 1
    g[3] = 1.99997f;       // truncated, not rounded
    o[3] = 3.99f;
    g[4] = std::numeric_limits<float>::quiet_NaN();
    g[5] = 1e20f;
    std::vector<unsigned char> buf(24, 0xAB);
    ASSERT_EQ(nuc.CreateBufferNuc(buf.data(), 1), 1);
    // Pixel 1: 131072 wraps; 2: -32768; 4 and 5: out of range converts like the processor does.
    ExpectFields(buf, {{0, u16{0x8000}}, {2, int16_t{-7}}, {4, u16{0}}, {8, u16{0x8000}}, {10, int16_t(40000 - 65536)},
                  {12, u16(static_cast<int>(1.99997f * 32768.0f))}, {14, int16_t{7}}, {16, u16{0}}, {20, u16{0}}});

    ASSERT_EQ(nuc.CreateBufferNuc(buf.data(), 0), 1);
    ExpectFields(buf, {{0, u16{0x4000}}, {2, int16_t{-3}}, {4, u16{0}}, {8, u16{0xC000}}});  // 4.0 x 16384 = 65536 wraps

    std::vector<unsigned char> untouched(24, 0x5A);
    EXPECT_EQ(nuc.CreateBufferNuc(untouched.data(), 2), 0);
    EXPECT_EQ(nuc.CreateBufferNuc(untouched.data(), -1), 0);
    EXPECT_EQ(untouched, std::vector<unsigned char>(24, 0x5A));

    CNuc empty(0, 7);
    EXPECT_EQ(empty.GetSize(), 0);
    EXPECT_EQ(empty.CreateBufferNuc(untouched.data(), 0), 1);
    EXPECT_EQ(untouched, std::vector<unsigned char>(24, 0x5A));
}

TEST(CNuc, UnpackingCountRules) {
    CNuc nuc(3, 2);
    Fill(nuc, 7.0f, 7.0f);
    std::vector<uint8_t> packed;
    for (int i = 0; i < 7; ++i) {
        Put<uint16_t>(packed, 4 * i, static_cast<uint16_t>(0x8000 + i));
        Put<int16_t>(packed, 4 * i + 2, static_cast<int16_t>(-3 - i));
    }
    // Fewer pixels: only those change.
    ASSERT_EQ(nuc.FormatNuc(packed.data(), 4 * 2 + 3, 1), 1);
    EXPECT_EQ(nuc.GetAlpha()[0], 1.0f);
    EXPECT_EQ(nuc.GetBeta()[0], -1.5f);
    EXPECT_EQ(nuc.GetAlpha()[1], static_cast<float>(0x8001) / 32768.0f);
    EXPECT_EQ(nuc.GetAlpha()[2], 7.0f);
    // size x 4 + 3 bytes: size pixels; one pixel more: refused, nothing changed.
    Fill(nuc, 7.0f, 7.0f);
    EXPECT_EQ(nuc.FormatNuc(packed.data(), 4 * (6 + 1), 0), 0);
    EXPECT_EQ(nuc.GetAlpha()[0], 7.0f);
    EXPECT_EQ(nuc.FormatNuc(packed.data(), 4 * 6, 3), 0);
    EXPECT_EQ(nuc.GetAlpha()[0], 7.0f);
    EXPECT_EQ(nuc.FormatNuc(packed.data(), -4, 0), 0);  // unsigned length: huge
    ASSERT_EQ(nuc.FormatNuc(packed.data(), 4 * 6 + 3, 0), 1);
    EXPECT_EQ(nuc.GetAlpha()[5], static_cast<float>(0x8005) / 16384.0f);
    EXPECT_EQ(nuc.GetBeta()[5], -8.0f);
    // Round trip of the words.
    std::vector<unsigned char> again(24);
    ASSERT_EQ(nuc.CreateBufferNuc(again.data(), 0), 1);
    EXPECT_EQ(std::memcmp(again.data(), packed.data(), 24), 0);
}

TEST(CNuc, AssignmentSharesTablesWithoutDoubleFree) {
    auto a = std::make_unique<CNuc>(4, 4);
    a->Reset();
    a->SetCamera("A");
    CNuc b(2, 2);
    b = *a;
    EXPECT_EQ(b.GetAlpha(), a->GetAlpha());
    EXPECT_EQ(b.GetBeta(), a->GetBeta());
    EXPECT_EQ(b.GetSize(), 16);
    EXPECT_EQ(b.GetCamera(), "A");
    a->GetAlpha()[5] = 3.0f;
    EXPECT_EQ(b.GetAlpha()[5], 3.0f);
    a.reset();  // the source goes first; the copy still holds the tables
    b.GetBeta()[15] = 2.0f;
    std::vector<unsigned short> img(16, 4);
    ASSERT_EQ(b.Apply(img.data(), 0x3FFF, nullptr), 1);
    EXPECT_EQ(img[5], 12);
    EXPECT_EQ(img[15], 6);
    b = b;  // self-assignment is harmless
    EXPECT_EQ(b.GetAlpha()[5], 3.0f);
}

