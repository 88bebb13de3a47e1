#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/image/FloatMoments.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/image/Statistics.h"
#include "thermokit/platform/CRgn.h"

using namespace thermokit;

namespace {

// 113-bit binary floating point.
#if defined(__x86_64__)
__extension__ typedef __float128 Quad;
#else
typedef long double Quad;  // binary128 on 64-bit ARM Linux
#endif

std::vector<unsigned short> Noise(size_t n, uint32_t seed, unsigned short mask = 0xFFFF) {
    std::vector<unsigned short> v(n);
    for (auto& x : v) {
        seed = seed * 1664525u + 1013904223u;
        x = static_cast<unsigned short>((seed >> 12) & mask);
    }
    return v;
}

// The running rule of MinMax, one value after the other.
void ReferenceMinMax(const unsigned short* b, long n, unsigned short& mn, unsigned short& mx, unsigned short& mean,
                     int ignoreZero) {
    mn = mx = b[0];
    double sum = b[0];
    long count = n;
    for (long i = 1; i < n; ++i) {
        const unsigned short v = b[i];
        if (v < mn) {
            if (!(ignoreZero && v == 0)) mn = v;
        } else if (v > mx) {
            mx = v;
        }
        sum += v;
        if (ignoreZero && v == 0) --count;
    }
    mean = static_cast<unsigned short>(sum / count);
}

}  // namespace

TEST(PixelArray, MaxLevelAndMask) {
    EXPECT_EQ(GetMaxLevel(0), 0);
    EXPECT_EQ(GetMaxLevel(1), 1);
    EXPECT_EQ(GetMaxLevel(12), 4095);
    EXPECT_EQ(GetMaxLevel(14), 16383);
    EXPECT_EQ(GetMaxLevel(15), 32767);
    EXPECT_EQ(GetMaxLevel(16), 65535);

    // Odd lengths and unaligned starts: the word loop and the tail.
    auto data = Noise(1000, 7);
    for (long start : {0L, 1L, 3L}) {
        for (long n : {0L, 1L, 3L, 4L, 5L, 63L, 997L - start}) {
            auto v = data;
            Mask(v.data() + start, n, 0x0FFF);
            for (long i = 0; i < 1000; ++i) {
                const bool in = i >= start && i < start + n;
                ASSERT_EQ(v[i], in ? (data[i] & 0x0FFF) : data[i]) << start << " " << n << " " << i;
            }
        }
    }
    std::vector<uint32_t> w = {0xFFFFFFFFu, 0x12345678u, 0xF0F0F0F0u};
    Mask(w.data(), 3, 0x00FF00FFu);
    EXPECT_EQ(w, (std::vector<uint32_t>{0x00FF00FFu, 0x00340078u, 0x00F000F0u}));
}

TEST(PixelArray, MinMaxIgnoreZeroQuirks) {
    // Minimum, maximum and mean, of n values of a, with or without ignoring zeros.
    const auto minMax = [](const auto* a, long n, int ignoreZero) {
        using T = std::remove_const_t<std::remove_pointer_t<decltype(a)>>;
        T mn = 1, mx = 1, mean = 1;
        MinMax(a, n, &mn, &mx, &mean, ignoreZero);
        return std::array<double, 3>{double(mn), double(mx), double(mean)};
    };
    using R = std::array<double, 3>;
    const unsigned short a[] = {5, 0, 7}, b[] = {0, 5, 7}, c[] = {9, 0, 0, 0};
    EXPECT_EQ(minMax(a, 3, 1), (R{5, 7, 6}));
    EXPECT_EQ(minMax(a, 3, 0), (R{0, 7, 4}));
    // A zero in the first place is never tested: it stays the minimum and is counted.
    EXPECT_EQ(minMax(b, 3, 1), (R{0, 7, 4}));
    EXPECT_EQ(minMax(c, 4, 1), (R{9, 9, 9}));
    const uint32_t a32[] = {5, 0, 7};
    EXPECT_EQ(minMax(a32, 3, 1), (R{5, 7, 6}));
    const float af[] = {0.f, 5.f, 8.f};
    EXPECT_EQ(minMax(af, 3, 1), (R{0, 8, double(13.f / 3.f)}));  // not truncated for float
    const double ad[] = {5, 0, 8};
    EXPECT_EQ(minMax(ad, 3, 1), (R{5, 8, 6.5}));
    EXPECT_EQ(minMax(a, 0, 0), (R{1, 1, 1}));  // nothing to read: nothing written
}

TEST(PixelArray, MinMaxVectorPathEqualsTheRunningRule) {
    auto data = Noise(70000, 3);
    for (size_t i = 0; i < data.size(); i += 7) data[i] = 0;  // zeros for ignoreZero
    data[40000] = 65535;
    for (long start : {0L, 1L, 5L, 33L}) {
        for (long n : {1L, 2L, 31L, 64L, 65L, 1021L, 65537L, 69960L}) {
            for (int iz : {0, 1}) {
                unsigned short rmn, rmx, rmean, mn = 1, mx = 1, mean = 1;
                ReferenceMinMax(data.data() + start, n, rmn, rmx, rmean, iz);
                MinMax(data.data() + start, n, &mn, &mx, &mean, iz);
                ASSERT_EQ(mn, rmn) << start << " " << n << " " << iz;
                ASSERT_EQ(mx, rmx) << start << " " << n << " " << iz;
                ASSERT_EQ(mean, rmean) << start << " " << n << " " << iz;
            }
        }
    }
}

TEST(PixelArray, RegionStatisticsAndRemoval) {
    // 4 x 3 image, value = 10 * y + x; region: columns 1..2 of lines 1..2.
    std::vector<unsigned short> img(12);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) img[y * 4 + x] = static_cast<unsigned short>(10 * y + x);
    CRgn rgn;
    rgn.CreateRectRgn(1, 1, 3, 3);
    unsigned short mn = 0, mx = 0, mean = 0;
    MinMaxRgn(img.data(), 4, 3, &rgn, &mn, &mx, &mean);
    EXPECT_EQ(mn, 11);
    EXPECT_EQ(mx, 22);
    EXPECT_EQ(mean, 16);  // (11 + 12 + 21 + 22) / 4 = 16.5 truncated
    std::vector<float> f(img.begin(), img.end());
    float fmn = 0, fmx = 0, fmean = 0;
    MinMaxRgn(f.data(), 4, 3, &rgn, &fmn, &fmx, &fmean);
    EXPECT_EQ(fmean, 16.5f);
    std::vector<int32_t> s(12);
    for (int i = 0; i < 12; ++i) s[i] = -img[i];
    int32_t smn = 0, smx = 0, smean = 0;
    MinMaxRgn(s.data(), 4, 3, &rgn, &smn, &smx, &smean);
    EXPECT_EQ(smn, -22);
    EXPECT_EQ(smx, -11);
    EXPECT_EQ(smean, -16);  // toward zero

    CRgn far;
    far.CreateRectRgn(50, 50, 60, 60);
    mn = mx = mean = 7;
    MinMaxRgn(img.data(), 4, 3, &far, &mn, &mx, &mean);
    MinMaxRgn(img.data(), 4, 3, nullptr, &mn, &mx, &mean);
    EXPECT_EQ(mn + mx + mean, 21);

    auto cut = img;
    RemoveRgn(cut.data(), 4, 3, &rgn, static_cast<unsigned short>(999));
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool in = x >= 1 && x < 3 && y >= 1;
            EXPECT_EQ(cut[y * 4 + x], in ? img[y * 4 + x] : 999);
        }
    auto same = img;
    RemoveRgn(same.data(), 4, 3, nullptr, static_cast<unsigned short>(0));
    RemoveRgn(same.data(), 4, 0, &rgn, static_cast<unsigned short>(0));
    EXPECT_EQ(same, img);
    // The frame's RemoveRgn clears to 0.
    CFrame frame(4, 3, 16, 0, 0);
    frame.SetFrame(img.data());
    frame.RemoveRgn(&rgn);
    EXPECT_EQ(frame.GetPixel(0, 0), 0);
    EXPECT_EQ(frame.GetPixel(2, 2), 22);
}

TEST(PixelArray, PositionsIndexListsAndSwap) {
    const int32_t v[] = {4, -2, 9, -2, 9, 0};
    int32_t mn = 0, mx = 0, mean = 0;
    long mi = -1, ma = -1;
    MinMaxPosition(v, 6, &mn, &mx, mi, ma, &mean);
    EXPECT_EQ(mn, -2);
    EXPECT_EQ(mi, 1);  // first occurrence
    EXPECT_EQ(mx, 9);
    EXPECT_EQ(ma, 2);
    EXPECT_EQ(mean, 3);  // 18 / 6
    const double d[] = {1.5};
    double dmn = 0, dmx = 0;
    MinMaxPosition(d, 1, &dmn, &dmx, mi, ma, nullptr);
    EXPECT_EQ(dmn, 1.5);
    EXPECT_EQ(mi, 0);
    EXPECT_EQ(ma, 0);

    const unsigned short px[] = {0x1003, 50, 0xF00A, 7};
    const int idx[] = {2, 0, 3};
    unsigned short imn = 0, imx = 0, imean = 0;
    EXPECT_EQ(MinMaxIndex(px, idx, 3, 0x0FFF, imn, imx, &imean), 1);
    EXPECT_EQ(imn, 3);
    EXPECT_EQ(imx, 10);
    EXPECT_EQ(imean, 6);  // (10 + 3 + 7) / 3 truncated
    EXPECT_EQ(MinMaxIndex(px, idx, 1, 0xFFFF, imn, imx), 1);
    EXPECT_EQ(imn, 0xF00A);
    EXPECT_EQ(MinMaxIndex(px, idx, 0, 0xFFFF, imn, imx), 0);
    EXPECT_EQ(MinMaxIndex(px, nullptr, 2, 0xFFFF, imn, imx), 0);

    unsigned short s16[] = {0x1234, 0xFF00};
    Swap(s16, 2);
    EXPECT_EQ(s16[0], 0x3412);
    EXPECT_EQ(s16[1], 0x00FF);
    uint32_t s32[] = {0x11223344u};
    Swap(s32, 1);
    EXPECT_EQ(s32[0], 0x44332211u);
    int32_t si[] = {1};
    Swap(si, 1);
    EXPECT_EQ(si[0], 0x01000000);
    float sf[] = {1.0f};  // 0x3F800000
    Swap(sf, 1);
    Swap(sf, 1);
    EXPECT_EQ(sf[0], 1.0f);
}

TEST(PixelArray, StdDevPopulationForm) {
    const unsigned short a[] = {2, 4, 4, 4, 5, 5, 7, 9};
    double sd = 0, mean = 0;
    StdDev(a, 8, &sd, &mean);
    EXPECT_EQ(mean, 5.0);
    EXPECT_EQ(sd, 2.0);
    const uint32_t b[] = {2, 4, 4, 4, 5, 5, 7, 9};
    StdDev(b, 8, &sd, &mean);
    EXPECT_EQ(sd, 2.0);
    const int32_t c[] = {-2, -4, -4, -4, -5, -5, -7, -9};
    StdDev(c, 8, &sd, &mean);
    EXPECT_EQ(mean, -5.0);
    EXPECT_EQ(sd, 2.0);
    const float f[] = {1.5f, 2.5f};
    StdDev(f, 2, &sd, &mean);
    EXPECT_EQ(mean, 2.0);
    EXPECT_EQ(sd, 0.5);
    const double d[] = {3, 3, 3};
    StdDev(d, 3, &sd, &mean);
    EXPECT_EQ(sd, 0.0);
    sd = mean = -1;
    StdDev(a, 0, &sd, &mean);
    EXPECT_EQ(sd, -1);
    const unsigned short same[] = {65535, 65535, 65535};
    StdDev(same, 3, &sd, &mean);
    EXPECT_EQ(mean, 65535.0);
    EXPECT_EQ(sd, 0.0);
}

TEST(PixelArray, StdDevOfLevelsIsTheExactSumRoundedOnce) {
    // The mean is the running double sum (exact here) times 1 / n; the sum of
    // squared deviations is exact, checked against 113-bit arithmetic where
    // every term is exact and the sum's error is far below half a double ulp.
    for (auto [start, n] : {std::pair{0L, 327680L}, std::pair{3L, 1001L}, std::pair{1L, 3L}}) {
        const auto data = Noise(static_cast<size_t>(start + n), static_cast<uint32_t>(n), 0x3FFF);
        const unsigned short* p = data.data() + start;
        double sum = 0;
        for (long i = 0; i < n; ++i) sum += p[i];
        const double m = sum * (1.0 / n);
        Quad squares = 0;
        for (long i = 0; i < n; ++i) {
            const Quad dv = static_cast<Quad>(p[i]) - static_cast<Quad>(m);
            squares += dv * dv;
        }
        const double expect = std::sqrt(std::fabs(static_cast<double>(squares) * (1.0 / n)));
        double sd = 0, mean = 0;
        StdDev(p, n, &sd, &mean);
        EXPECT_EQ(mean, m) << n;
        EXPECT_EQ(sd, expect) << n;
    }
}

TEST(PixelArray, HistogramCounts) {
    const unsigned short px[] = {0x1005, 3, 5, 0xF003, 9};
    long* h = nullptr;
    unsigned short mn = 99, mx = 99;
    ASSERT_EQ(CalculateHisto(px, 5, nullptr, 0x0FFF, mn, mx, h), 1);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h[3], 2);
    EXPECT_EQ(h[5], 2);
    EXPECT_EQ(h[9], 1);
    EXPECT_EQ(std::accumulate(h, h + 4096, 0L), 5);
    EXPECT_EQ(mn, 3);
    EXPECT_EQ(mx, 9);
    delete[] h;

    const int idx[] = {4, 4, 1};
    int32_t* h32 = nullptr;
    ASSERT_EQ(CalculateHisto(px, 3, idx, 0x000F, mn, mx, h32), 1);
    EXPECT_EQ(h32[9], 2);
    EXPECT_EQ(h32[3], 1);
    EXPECT_EQ(mn, 3);
    EXPECT_EQ(mx, 9);
    delete[] h32;

    h = nullptr;
    EXPECT_EQ(CalculateHisto(px, 0, nullptr, 0x0FFF, mn, mx, h), 0);
    EXPECT_EQ(CalculateHisto(nullptr, 5, nullptr, 0x0FFF, mn, mx, h), 0);
    EXPECT_EQ(CalculateHisto(px, 5, nullptr, 0, mn, mx, h), 0);
    EXPECT_EQ(h, nullptr);

    // The sub-histogram path on a large odd-length image equals plain counting.
    const auto big = Noise(100003, 11);
    for (long start : {0L, 1L}) {
        ASSERT_EQ(CalculateHisto(big.data() + start, 100001, nullptr, 0x3FFF, mn, mx, h), 1);
        std::vector<long> ref(0x4000, 0);
        for (long i = 0; i < 100001; ++i) ++ref[big[start + i] & 0x3FFF];
        EXPECT_TRUE(std::equal(ref.begin(), ref.end(), h));
        delete[] h;
    }
}

TEST(PixelArray, ThresholdCutRules) {
    // One pixel in every bin from 100 to 200; the result and the range left of 100..200 (or of lo..hi).
    std::vector<long> h(4096, 0);
    for (int b = 100; b <= 200; ++b) h[b] = 1;
    const auto cut = [](const auto* histo, long max, long total, float low, float high, unsigned short lo = 100,
                        unsigned short hi = 200) {
        const int r = ApplyThresholdMinMaxHisto(histo, max, total, low, high, lo, hi);
        return std::array<int, 3>{r, lo, hi};
    };
    using R = std::array<int, 3>;
    EXPECT_EQ(cut(h.data(), 4095, 101, 0.f, 0.f), (R{1, 101, 199}));  // a percentage of 0 still cuts the end bin
    // 10 percent of 101 = 10 pixels: the bin where 10 is reached goes too (200..191 hold 10).
    EXPECT_EQ(cut(h.data(), 4095, 101, 10.f, 10.f), (R{1, 110, 190}));
    // A count never reached collapses the range onto the other bound.
    EXPECT_EQ(cut(h.data(), 4095, 1000, 0.f, 50.f), (R{1, 100, 100}));
    EXPECT_EQ(cut(h.data(), 4095, 1000, 50.f, 0.f), (R{1, 199, 199}));
    // Single precision: 3 x 33.333332 percent is 0.99999994 -> 0.
    std::vector<int32_t> h32(4096, 0);
    h32[7] = 1;
    h32[8] = 2;
    EXPECT_EQ(cut(h32.data(), 4095, 3, 33.333332f, 0.f, 7, 8), (R{1, 7, 7}));

    // Refusals leave min and max alone.
    EXPECT_EQ(cut(h.data(), 4095, 101, 0.f, 0.f, 150, 120), (R{0, 150, 120}));
    EXPECT_EQ(cut(h.data(), 4095, 101, -1.f, 0.f), (R{0, 100, 200}));
    EXPECT_EQ(cut(h.data(), 4095, 101, 0.f, 100.5f), (R{0, 100, 200}));
    EXPECT_EQ(cut(h.data(), 150, 101, 0.f, 0.f), (R{0, 100, 200}));
    EXPECT_EQ(cut(h.data(), 0, 101, 0.f, 0.f), (R{0, 100, 200}));
    EXPECT_EQ(cut(static_cast<long*>(nullptr), 4095, 101, 0.f, 0.f), (R{0, 100, 200}));
}

TEST(PixelArray, MinMaxHistoKeepRule) {
    // 10000 pixels: 100 each of the levels 1000..1099; the result and the range found.
    std::vector<unsigned short> px(10000);
    for (int i = 0; i < 10000; ++i) px[i] = static_cast<unsigned short>(1000 + i % 100);
    using R = std::array<int, 3>;
    const auto keep = [&px](long n, float low, float high, const int* idx = nullptr) {
        unsigned short mn = 5, mx = 5;
        const int r = MinMaxHisto(px.data(), n, &mn, &mx, 4095, low, high, idx);
        return R{r, mn, mx};
    };
    // Keep 98 percent: 1 percent (100 pixels, one level) cut at each end,
    // and the bin where the count is reached goes with it.
    EXPECT_EQ(keep(10000, 98.f, -1.f), (R{1, 1001, 1098}));
    EXPECT_EQ(keep(10000, 1.f, 1.f), (R{1, 1001, 1098}));
    // 2 percent = 200 pixels = two levels, the second one's bin included.
    EXPECT_EQ(keep(10000, 2.f, 0.f), (R{1, 1002, 1098}));
    const int idx[] = {0, 1, 2, 3};
    EXPECT_EQ(keep(4, 0.f, 0.f, idx), (R{1, 1001, 1002}));
    EXPECT_EQ(keep(10000, 101.f, 0.f), (R{0, 0, 0}));  // cleared before the percentages are checked
    EXPECT_EQ(keep(10000, 102.f, -1.f)[0], 0);
    EXPECT_EQ(keep(0, 0.f, 0.f)[0], 0);
    unsigned short mn = 0, mx = 0;
    EXPECT_EQ(MinMaxHisto(px.data(), 10, nullptr, &mx, 4095, 0.f, 0.f, nullptr), 0);

    // Region: the first line (levels 1000..1009 of a 10 x 10 image).
    CRgn rgn;
    rgn.CreateRectRgn(0, 0, 10, 1);
    ASSERT_EQ(MinMaxHistoRgn(px.data(), 10, 10, &rgn, &mn, &mx, 4095, 0.f, 0.f), 1);
    EXPECT_EQ(mn, 1001);
    EXPECT_EQ(mx, 1008);
    CRgn far;
    far.CreateRectRgn(20, 20, 30, 30);
    EXPECT_EQ(MinMaxHistoRgn(px.data(), 10, 10, &far, &mn, &mx, 4095, 0.f, 0.f), 0);
    ASSERT_EQ(MinMaxHistoRgn(px.data(), 100, 100, nullptr, &mn, &mx, 4095, 1.f, 1.f), 1);
    EXPECT_EQ(mn, 1001);
}

TEST(PixelArray, RotateImageFollowsProcessRotation) {
    for (auto [p, l] : {std::pair{13, 6}, std::pair{16, 40}, std::pair{3, 1}}) {
        const size_t n = static_cast<size_t>(p) * l;
        auto data = Noise(n, static_cast<uint32_t>(n));
        CFrame src(data.data(), p, l, 16, 0, 0);
        for (int code : {90, 270}) {
            CFrame turned(l, p, 16, 0, 0);
            ASSERT_EQ(turned.ProcessRotation(&src, code), 1);
            auto v16 = data;
            RotateImage(v16.data(), p, l, code, nullptr);
            EXPECT_TRUE(std::equal(v16.begin(), v16.end(), turned.GetBuffer())) << p << "x" << l << " " << code;
            std::vector<unsigned char> v8(n);
            std::vector<float> vf(n);
            for (size_t i = 0; i < n; ++i) {
                v8[i] = static_cast<unsigned char>(data[i]);
                vf[i] = static_cast<float>(data[i]) + 0.5f;
            }
            RotateImage(v8.data(), p, l, code, nullptr);
            RotateImage(vf.data(), p, l, code, nullptr);
            for (size_t i = 0; i < n; ++i) {
                ASSERT_EQ(v8[i], static_cast<unsigned char>(turned.GetBuffer()[i]));
                ASSERT_EQ(vf[i], static_cast<float>(turned.GetBuffer()[i]) + 0.5f);
            }
        }
        auto r = data;
        RotateImage(r.data(), p, l, 180, nullptr);
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(r[i], data[n - 1 - i]);
        std::vector<float> rf(data.begin(), data.end());
        RotateImage(rf.data(), p, l, 180, nullptr);
        EXPECT_EQ(rf.front(), data.back());
        for (int code : {0, 45, 360, 450}) {
            auto same = data;
            RotateImage(same.data(), p, l, static_cast<unsigned short>(code), nullptr);
            EXPECT_EQ(same, data) << code;
        }
    }
    // In-place reversal on lengths around the vector width.
    for (long n : {1L, 2L, 15L, 16L, 17L, 31L, 33L}) {
        std::vector<unsigned short> v(static_cast<size_t>(n));
        std::iota(v.begin(), v.end(), 0);
        RotateImage(v.data(), static_cast<unsigned short>(n), 1, 180, nullptr);
        for (long i = 0; i < n; ++i) ASSERT_EQ(v[i], n - 1 - i) << n;
    }
    // 360 applies a mapping.
    CMapping map(3, 1);
    map.SetEntry(0, 2);
    map.SetEntry(2, 0);
    unsigned short three[] = {1, 2, 3};
    RotateImage(three, 3, 1, 360, &map);
    EXPECT_EQ(three[0], 3);
    EXPECT_EQ(three[2], 1);
}

TEST(PixelArray, TimeOfDay) {
    // Hours, minutes, seconds, hundredths, thousandths, microseconds (77 where not given).
    using R = std::array<unsigned short, 6>;
    const auto split = [](double time, bool thousandths) {
        R r = {77, 77, 77, 77, 77, 77};
        SplitTime(time, &r[0], &r[1], &r[2], &r[3], thousandths ? &r[4] : nullptr, &r[5]);
        return r;
    };
    EXPECT_EQ(split(3725.5, false), (R{1, 2, 5, 50, 77, 77}));  // micro needs the thousandths pointer too
    EXPECT_EQ(split(3725.5, true), (R{1, 2, 5, 50, 0, 0}));

    double time = 0;
    MergeTime(&time, 13, 45, 30, 12, 3, 250);
    EXPECT_EQ(time, 13 * 3600 + 45 * 60 + 30 + 12 * 0.01 + 3 * 0.001 + 250 * 1e-6);
    R back = split(time, true);
    EXPECT_NEAR(back[5], 250, 1);
    back[5] = 250;
    EXPECT_EQ(back, (R{13, 45, 30, 12, 3, 250}));
    MergeTime(&time, 1, 0, 0, 1500000UL);
    EXPECT_EQ(time, 3601.5);
    MergeTime(&time, static_cast<unsigned long>(0x100000005ULL), 0UL);  // taken as 32 bits
    EXPECT_EQ(time, 5.0);
    MergeTime(&time, 10UL, 250000UL);
    EXPECT_EQ(time, 10.25);
    const R negative = split(-5.0, true);  // a negative remainder becomes 0
    EXPECT_EQ(negative[1] + negative[2], 0);
    MergeTime(nullptr, 1UL, 1UL);
}

TEST(PixelArray, InterlacedFieldsRoundTrip) {
    for (int lines : {7, 8, 1}) {
        const unsigned short point = 5;
        auto combined = Noise(static_cast<size_t>(point) * lines, 5);
        for (int k : {3, 4}) {
            std::vector<std::vector<unsigned short>> f(4, std::vector<unsigned short>(point * ((lines + 3) / 3), 0));
            const int ok = k == 3 ? DeInterlaceImage(combined.data(), f[0].data(), f[1].data(), f[2].data(), point,
                                                     static_cast<unsigned short>(lines))
                                  : DeInterlaceImage(combined.data(), f[0].data(), f[1].data(), f[2].data(),
                                                     f[3].data(), point, static_cast<unsigned short>(lines));
            ASSERT_EQ(ok, 1);
            // Field f holds the lines f, f + k, ...
            if (lines > 1) {
                EXPECT_EQ(f[1][0], combined[point * 1]);
            }
            if (lines > k) {
                EXPECT_EQ(f[0][point], combined[point * k]);
            }
            std::vector<unsigned short> back(combined.size(), 0);
            const int ok2 = k == 3 ? InterlaceImage(f[0].data(), f[1].data(), f[2].data(), back.data(), point,
                                                    static_cast<unsigned short>(lines))
                                   : InterlaceImage(f[0].data(), f[1].data(), f[2].data(), f[3].data(), back.data(),
                                                    point, static_cast<unsigned short>(lines));
            ASSERT_EQ(ok2, 1);
            EXPECT_EQ(back, combined);
        }
    }
    std::vector<float> cf = {1, 2, 3, 4, 5, 6}, a(2), b(2), c(2);
    ASSERT_EQ(DeInterlaceImage(cf.data(), a.data(), b.data(), c.data(), 2, 3), 1);
    EXPECT_EQ(b, (std::vector<float>{3, 4}));
    std::vector<float> back(6);
    ASSERT_EQ(InterlaceImage(a.data(), b.data(), c.data(), back.data(), 2, 3), 1);
    EXPECT_EQ(back, cf);
    EXPECT_EQ(InterlaceImage(a.data(), nullptr, c.data(), back.data(), 2, 3), 0);
    EXPECT_EQ(DeInterlaceImage(cf.data(), a.data(), b.data(), c.data(), 0, 3), 0);
}

TEST(PixelArray, LineDoublingAndPixelFootprint) {
    const unsigned short in[] = {10, 20, 13, 40, 0, 65535};  // 2 x 3
    unsigned short out[12] = {};
    InterpolateImage(in, out, 2, 3);
    const unsigned short expect[] = {10, 20, 11, 30, 13, 40, 6, 32787, 0, 65535, 0, 65535};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(out[i], expect[i]) << i;

    EXPECT_DOUBLE_EQ(GetPixelRes(15.0, 25.0, 1.0), 0.6);
    EXPECT_DOUBLE_EQ(GetPixelRes(25.0, 50.0, 10.0), 5.0);
    EXPECT_EQ(GetPixelRes(15.0, 0.0, 1.0), 0.0);
}

// Measurements leave out what is not finite (levels a calibration could not
// convert), keep the order of the rest, and say how many counted.
TEST(Statistics, FiniteValuesOnlyAndTheirCount) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const std::vector<float> v = {nan, 2.5f, -inf, 1.0f, 4.0f, nan};
    const std::vector<float> finite = {2.5f, 1.0f, 4.0f};
    const FrameStatistics a = Measure(v.data(), static_cast<long>(v.size()));
    const FrameStatistics b = Measure(finite.data(), static_cast<long>(finite.size()));
    EXPECT_EQ(a.count, 3);
    EXPECT_EQ(a.min, 1.0);
    EXPECT_EQ(a.max, 4.0);
    EXPECT_EQ(a.mean, b.mean);
    EXPECT_EQ(a.stdDev, b.stdDev);
    double sd = 0.0, mean = 0.0;
    StdDev(finite.data(), 3, &sd, &mean);
    EXPECT_EQ(a.stdDev, sd);
    const std::vector<double> none = {std::nan(""), std::nan("")};
    const FrameStatistics c = Measure(none.data(), 2);
    EXPECT_EQ(c.count, 0);
    EXPECT_TRUE(std::isnan(c.min) && std::isnan(c.max) && std::isnan(c.mean) && std::isnan(c.stdDev));
    const std::vector<unsigned short> levels = {7, 0, 65535};
    const FrameStatistics d = Measure(levels.data(), 3);
    EXPECT_EQ(d.count, 3);
    EXPECT_EQ(d.min, 0.0);
    EXPECT_EQ(d.max, 65535.0);
}

// Floats are summed exactly: the figures do not depend on the order of the values nor on whether
// equal values come one by one or counted (a frame's levels through their histogram), and a sum
// that cancels keeps what a running double sum loses.
TEST(Statistics, FloatFiguresAreExactWhateverTheOrder) {
    const float big = 1e30f;
    const std::vector<float> cancel = {big, 1.0f, -big};
    const FrameStatistics c = Measure(cancel.data(), 3);
    EXPECT_EQ(c.mean, 1.0 * (1.0 / 3.0));  // a running sum gives 0
    EXPECT_EQ(c.stdDev, std::sqrt(2.0 * big * big * (1.0 / 3.0)));
    const float tiny = std::ldexp(1.0f, -140);  // subnormal
    const std::vector<float> small = {-3 * tiny, -tiny, tiny, 3 * tiny, -0.0f};
    const FrameStatistics s = Measure(small.data(), 5);
    EXPECT_EQ(s.mean, 0.0);
    EXPECT_EQ(s.stdDev, std::sqrt(4.0) * std::ldexp(1.0, -140));
    EXPECT_EQ(s.min, -3 * tiny);

    // Values of every sign and scale, few of them distinct, with NaN and infinities among them.
    const std::vector<float> distinct = {0.0f, -273.15f, 21.5f, 21.500002f, 1e-42f, -7e25f, 3.4e38f, 65535.0f, 1e-3f};
    std::vector<float> all;
    FloatMoments counted;
    Quad sum = 0;
    uint32_t seed = 5;
    for (size_t k = 0; k < distinct.size(); ++k) {
        seed = seed * 1664525u + 1013904223u;
        const uint64_t times = 1 + (seed >> 20);
        all.insert(all.end(), times, distinct[k]);
        counted.Add(distinct[k], times);
        sum += static_cast<Quad>(distinct[k]) * times;
    }
    all.insert(all.end(), {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()});
    const FrameStatistics a = Measure(all.data(), static_cast<long>(all.size())), b = counted.Figures();
    for (size_t i = all.size() - 1; i > 0; --i) {  // shuffled
        seed = seed * 1664525u + 1013904223u;
        std::swap(all[i], all[(seed >> 8) % (i + 1)]);
    }
    const FrameStatistics shuffled = Measure(all.data(), static_cast<long>(all.size()));
    for (const FrameStatistics& x : {b, shuffled}) {
        EXPECT_EQ(x.count, a.count);
        EXPECT_EQ(x.min, a.min);
        EXPECT_EQ(x.max, a.max);
        EXPECT_EQ(x.mean, a.mean);
        EXPECT_EQ(x.stdDev, a.stdDev);
    }
    EXPECT_EQ(a.count, static_cast<long>(all.size()) - 2);
    EXPECT_EQ(a.max, 3.4e38f);
    EXPECT_EQ(a.mean, static_cast<double>(sum) * (1.0 / static_cast<double>(a.count)));
    Quad squares = 0;
    for (const float v : all)
        if (std::isfinite(v)) squares += (v - static_cast<Quad>(a.mean)) * (v - static_cast<Quad>(a.mean));
    EXPECT_NEAR(a.stdDev, std::sqrt(static_cast<double>(squares / a.count)), a.stdDev * 1e-15);
}
