// Every kernel of every instruction-set variant this processor runs against
// the scalar reference, bit for bit, on the values that break vector code:
// 0, the maximal level and the bits above it, NaN, infinities, negative zero,
// sizes below one vector and odd tails, unaligned starts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/ToolRun.h"
#include "thermokit/acquisition/LockinKernels.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/nuc/NucKernels.h"
#include "thermokit/platform/Dispatch.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using namespace thermokit::kernels;

namespace {

const long kSizes[] = {1, 2, 3, 7, 8, 15, 17, 31, 33, 63, 65, 127, 129, 1031};

// Random values with the edge cases sown in; T is a level or a float type.
template <class T>
std::vector<T> Values(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<T> v(n);
    if constexpr (std::is_floating_point_v<T>) {
        const T specials[] = {T(0), -T(0), T(1), -T(1), std::numeric_limits<T>::quiet_NaN(),
                              std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity(),
                              std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::max(), T(16383.5)};
        std::uniform_real_distribution<double> d(-70000.0, 70000.0);
        for (size_t i = 0; i < n; ++i) v[i] = i % 5 == 2 ? specials[(i / 5) % 10] : static_cast<T>(d(rng));
    } else {
        const T all = static_cast<T>(~T(0));
        const T specials[] = {0, all, static_cast<T>(0x3FFF), static_cast<T>(0x4000), 1, static_cast<T>(all >> 1)};
        for (size_t i = 0; i < n; ++i) v[i] = i % 3 == 1 ? specials[(i / 3) % 6] : static_cast<T>(rng());
    }
    return v;
}

template <class T>
bool SameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

class KernelVariants : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override { ASSERT_EQ(SetIsa(GetParam().c_str()), 1); }
    void TearDown() override { SetIsa(nullptr); }
};

TEST_P(KernelVariants, StatisticsOfLevels) {
    const PixelKernels &k = Pixel(), &r = PixelReference();
    const auto data = Values<unsigned short>(70000, 1);  // past one 65536-value partial sum
    for (long start : {0L, 1L, 5L})
        for (long n : {1L, 2L, 7L, 33L, 65L, 1031L, 65537L, 69990L})
            for (unsigned short mask : {0xFFFF, 0x3FFF}) {
                const unsigned short* p = data.data() + start;
                for (int zero = 0; zero < 2; ++zero)
                    for (int sum = 0; sum < 2; ++sum) {
                        MinMaxU16Result a, b;
                        a.min = b.min = 0x1234;
                        k.minMax[zero][sum](p, n, mask, a);
                        r.minMax[zero][sum](p, n, mask, b);
                        ASSERT_TRUE(a.min == b.min && a.max == b.max && a.sum == b.sum && a.zeros == b.zeros)
                            << start << " " << n << " " << zero << sum;
                    }
                uint64_t s1 = 0, s2 = 0;
                uint128 q1 = 0, q2 = 0;
                k.moments(p, n, s1, q1);
                r.moments(p, n, s2, q2);
                ASSERT_TRUE(s1 == s2 && q1 == q2) << n;
                ASSERT_EQ(k.orU16(p, n), r.orU16(p, n)) << n;
            }
    EXPECT_EQ(k.orU16(data.data(), 0), 0);
}

TEST_P(KernelVariants, MasksTurnsRowsAndLookUps) {
    const PixelKernels &k = Pixel(), &r = PixelReference();
    for (long n : kSizes) {
        auto a16 = Values<unsigned short>(static_cast<size_t>(n), 2), b16 = a16;
        k.maskU16(a16.data(), n, 0x0FFF);
        r.maskU16(b16.data(), n, 0x0FFF);
        ASSERT_TRUE(SameBits(a16, b16));
        auto a32 = Values<uint32_t>(static_cast<size_t>(n), 3), b32 = a32;
        k.maskU32(a32.data(), n, 0x00FFFF0Fu);
        r.maskU32(b32.data(), n, 0x00FFFF0Fu);
        ASSERT_TRUE(SameBits(a32, b32));
        // Reversal into another buffer and in place.
        const auto src = Values<unsigned short>(static_cast<size_t>(n), 4);
        std::vector<unsigned short> c1(src.size()), c2(src.size()), i1 = src, i2 = src;
        k.reverseU16(src.data(), c1.data(), n);
        r.reverseU16(src.data(), c2.data(), n);
        k.reverseU16(i1.data(), i1.data(), n);
        r.reverseU16(i2.data(), i2.data(), n);
        ASSERT_TRUE(SameBits(c1, c2) && SameBits(i1, i2) && SameBits(c1, i1)) << n;
        // Nearest-neighbour rows.
        std::vector<int32_t> xmap(static_cast<size_t>(n));
        for (long i = 0; i < n; ++i) xmap[i] = static_cast<int32_t>((i * 7) % n);
        const auto row = Values<unsigned short>(static_cast<size_t>(2 * n), 5);
        std::vector<unsigned short> d1(src.size()), d2(src.size());
        k.gatherRow(row.data(), d1.data(), xmap.data(), static_cast<int>(n));
        r.gatherRow(row.data(), d2.data(), xmap.data(), static_cast<int>(n));
        ASSERT_TRUE(SameBits(d1, d2));
        k.halveRow(row.data(), d1.data(), static_cast<int>(n));
        r.halveRow(row.data(), d2.data(), static_cast<int>(n));
        ASSERT_TRUE(SameBits(d1, d2));
        k.doubleRow(row.data(), d1.data(), static_cast<int>(n));
        r.doubleRow(row.data(), d2.data(), static_cast<int>(n));
        ASSERT_TRUE(SameBits(d1, d2));
        // Levels through a whole table and through a 14-bit one (entries of
        // every bit pattern, NaNs included).
        const auto table = Values<uint32_t>(65536, 6);
        for (uint16_t mask : {uint16_t(0xFFFF), uint16_t(0x3FFF), uint16_t(0x0005)})
            for (bool streaming : {false, true}) {
                std::vector<uint32_t> o1(src.size() + 1), o2(src.size());
                k.lookup32(table.data(), mask, src.data(), n, o1.data() + 1, streaming);  // 4-byte aligned only
                r.lookup32(table.data(), mask, src.data(), n, o2.data(), streaming);
                ASSERT_TRUE(std::memcmp(o1.data() + 1, o2.data(), o2.size() * 4) == 0) << n << " " << mask;
            }
    }
    // Quarter turns of the three pixel types, on sizes on and off the 8 x 8 grid
    // (lines of 2 KiB take the flat tiles).
    for (auto [point, line] : {std::pair{1, 1}, {7, 3}, {8, 8}, {9, 17}, {64, 8}, {33, 65}, {512, 3}, {1024, 21}}) {
        const size_t n = static_cast<size_t>(point) * line;
        const auto w = Values<unsigned short>(n, 7);
        const auto f = Values<float>(n, 8);
        std::vector<unsigned char> b(n);
        for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(w[i]);
        for (int turn = 0; turn < 2; ++turn) {
            std::vector<unsigned short> w1(n), w2(n);
            std::vector<float> f1(n), f2(n);
            std::vector<unsigned char> b1(n), b2(n);
            const auto p = static_cast<unsigned short>(point), l = static_cast<unsigned short>(line);
            k.rotateU16[turn](w.data(), w1.data(), p, l);
            r.rotateU16[turn](w.data(), w2.data(), p, l);
            k.rotateF32[turn](f.data(), f1.data(), p, l);
            r.rotateF32[turn](f.data(), f2.data(), p, l);
            k.rotateU8[turn](b.data(), b1.data(), p, l);
            r.rotateU8[turn](b.data(), b2.data(), p, l);
            ASSERT_TRUE(SameBits(w1, w2) && SameBits(f1, f2) && SameBits(b1, b2)) << point << "x" << line;
        }
    }
    // The streaming copy, into an unaligned destination, below and above the streamed size.
    for (size_t n : {size_t(100), size_t(65536 + 77), size_t(300001)}) {
        const auto src = Values<unsigned char>(n, 9);
        std::vector<unsigned char> dst(n + 3, 0xAA);
        k.copyStreaming(dst.data() + 3, src.data(), n);
        ASSERT_EQ(std::memcmp(dst.data() + 3, src.data(), n), 0) << n;
        ASSERT_EQ(dst[2], 0xAA);
    }
}

TEST_P(KernelVariants, AccumulatorsAndSquares) {
    const PixelKernels &k = Pixel(), &r = PixelReference();
    for (long n : kSizes) {
        const size_t m = static_cast<size_t>(n);
        const auto levels = Values<unsigned short>(m, 10);
        const auto floats = Values<float>(m, 11);
        const auto doubles = Values<double>(m, 12);
        auto mean = Values<double>(m, 13);
        for (double weight : {1.0, 0.1, 3.7}) {
            auto s1 = Values<double>(m, 14), s2 = s1;
            k.accumulateLevels(s1.data(), levels.data(), n, 0x3FFF, weight);
            r.accumulateLevels(s2.data(), levels.data(), n, 0x3FFF, weight);
            k.accumulateFloats(s1.data(), floats.data(), n, weight);
            r.accumulateFloats(s2.data(), floats.data(), n, weight);
            k.accumulateDoubles(s1.data(), doubles.data(), n, weight);
            r.accumulateDoubles(s2.data(), doubles.data(), n, weight);
            ASSERT_TRUE(SameBits(s1, s2)) << n << " " << weight;
        }
        auto c1 = Values<uint32_t>(m, 15), c2 = c1;
        k.countLevels(c1.data(), levels.data(), n, 0x3FFF);
        r.countLevels(c2.data(), levels.data(), n, 0x3FFF);
        ASSERT_TRUE(SameBits(c1, c2));
        auto s1 = Values<double>(m, 16), s2 = s1;
        k.foldCounts(s1.data(), c1.data(), n);
        r.foldCounts(s2.data(), c2.data(), n);
        ASSERT_TRUE(SameBits(s1, s2) && SameBits(c1, c2) && c1 == std::vector<uint32_t>(m, 0));
        std::vector<double> q1(m, 0.5), q2(m, 0.5);
        k.squaresLevels(q1.data(), levels.data(), mean.data(), n);
        r.squaresLevels(q2.data(), levels.data(), mean.data(), n);
        k.squaresFloats(q1.data(), floats.data(), mean.data(), n);
        r.squaresFloats(q2.data(), floats.data(), mean.data(), n);
        k.squaresDoubles(q1.data(), doubles.data(), mean.data(), n);
        r.squaresDoubles(q2.data(), doubles.data(), mean.data(), n);
        ASSERT_TRUE(SameBits(q1, q2)) << n;
    }
}

TEST_P(KernelVariants, NucGainOffsetAndItsUndo) {
    const NucKernels &k = Nuc(), &r = NucReference();
    for (long n : kSizes) {
        const size_t m = static_cast<size_t>(n);
        // Gains and offsets holding 0, ±0, ±inf, NaN, tiny and huge values.
        const auto gain = Values<float>(m, 20), offset = Values<float>(m, 21);
        const auto in = Values<unsigned short>(m, 22);
        for (unsigned short maxLevel : {0x3FFF, 0xFFFF, 0x0000, 0x00FF}) {
            std::vector<unsigned short> a(m), b(m), ia = in, ib = in;
            k.applyLevels(in.data(), a.data(), gain.data(), offset.data(), m, maxLevel);
            r.applyLevels(in.data(), b.data(), gain.data(), offset.data(), m, maxLevel);
            k.applyLevelsInPlace(ia.data(), gain.data(), offset.data(), m, maxLevel);
            r.applyLevelsInPlace(ib.data(), gain.data(), offset.data(), m, maxLevel);
            ASSERT_TRUE(SameBits(a, b) && SameBits(ia, ib) && SameBits(a, ia)) << n << " " << maxLevel;
            k.undoLevels(in.data(), a.data(), gain.data(), offset.data(), m, maxLevel);
            r.undoLevels(in.data(), b.data(), gain.data(), offset.data(), m, maxLevel);
            ia = in;
            ib = in;
            k.undoLevelsInPlace(ia.data(), gain.data(), offset.data(), m, maxLevel);
            r.undoLevelsInPlace(ib.data(), gain.data(), offset.data(), m, maxLevel);
            ASSERT_TRUE(SameBits(a, b) && SameBits(ia, ib) && SameBits(a, ia)) << n << " " << maxLevel;
        }
        auto f1 = Values<float>(m, 23), f2 = f1;
        k.applyFloats(f1.data(), gain.data(), offset.data(), m);
        r.applyFloats(f2.data(), gain.data(), offset.data(), m);
        k.undoFloats(f1.data(), gain.data(), offset.data(), m);
        r.undoFloats(f2.data(), gain.data(), offset.data(), m);
        ASSERT_TRUE(SameBits(f1, f2)) << n;
    }
}

TEST_P(KernelVariants, LockinSumsWithAndWithoutReference) {
    const LockinKernels &k = Lockin(), &r = LockinReference();
    for (long n : kSizes) {
        const size_t m = static_cast<size_t>(n);
        const auto levels = Values<unsigned short>(m, 30);
        const auto reference = Values<double>(m, 31);
        for (const double* ref : {static_cast<const double*>(nullptr), reference.data()}) {
            std::vector<double> re1(m, 0.0), im1(m, 0.0), re2(m, 0.0), im2(m, 0.0);
            for (double angle : {0.0, 0.1, 2.0, -3.1}) {
                k.accumulate(levels.data(), ref, static_cast<int32_t>(n), std::cos(angle), std::sin(angle),
                             re1.data(), im1.data());
                r.accumulate(levels.data(), ref, static_cast<int32_t>(n), std::cos(angle), std::sin(angle),
                             re2.data(), im2.data());
            }
            ASSERT_TRUE(SameBits(re1, re2) && SameBits(im1, im2)) << n << " " << (ref != nullptr);
        }
        // One to eight frames held back and added in one pass.
        const auto held = Values<unsigned short>(8 * m, 32);
        double c[8], s[8];
        for (int f = 0; f < 8; ++f) {
            c[f] = std::cos(0.9 * f - 1.0);
            s[f] = std::sin(0.9 * f - 1.0);
        }
        for (int frames = 1; frames <= 8; ++frames) {
            std::vector<double> re1 = Values<double>(m, 33), im1 = re1, re2 = re1, im2 = re1;
            k.accumulateHeld(held.data(), frames, c, s, static_cast<int32_t>(n), re1.data(), im1.data());
            r.accumulateHeld(held.data(), frames, c, s, static_cast<int32_t>(n), re2.data(), im2.data());
            ASSERT_TRUE(SameBits(re1, re2) && SameBits(im1, im2)) << n << " " << frames;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Isa, KernelVariants, testing::ValuesIn(GetIsaList()),
                         [](const testing::TestParamInfo<std::string>& info) { return info.param; });

}  // namespace

// The choice itself: forced, refused, back to the start-up rule, and the
// environment variable as the tool reports it.
TEST(Dispatch, ForcingRefusingAndTheEnvironment) {
    if (std::getenv("THERMOKIT_ISA")) GTEST_SKIP() << "the suite runs under a forced variant";
    const std::string startup = GetIsa();
    const std::vector<std::string> list = GetIsaList();
    ASSERT_FALSE(list.empty());
    EXPECT_EQ(list.front(), "baseline");
    EXPECT_EQ(list.back(), startup);  // the widest
    EXPECT_EQ(SetIsa("baseline"), 1);
    EXPECT_STREQ(GetIsa(), "baseline");
    EXPECT_STREQ(GetIsaChoice(), "SetIsa");
    EXPECT_EQ(SetIsa("v9"), 0);
    EXPECT_STREQ(GetIsa(), "baseline");
    EXPECT_EQ(SetIsa(nullptr), 1);
    EXPECT_EQ(GetIsa(), startup);

    test::ToolRun run = test::RunTool("about", test::ToolErrors::kSeparate);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Kernel variant: " + startup + " (widest this processor runs"), std::string::npos);
    ::setenv("THERMOKIT_ISA", "baseline", 1);
    run = test::RunTool("about", test::ToolErrors::kSeparate);
    EXPECT_NE(run.out.find("Kernel variant: baseline (THERMOKIT_ISA"), std::string::npos) << run.out;
    EXPECT_EQ(run.err, "");
    ::setenv("THERMOKIT_ISA", "v9", 1);
    run = test::RunTool("about", test::ToolErrors::kSeparate);
    ::unsetenv("THERMOKIT_ISA");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Kernel variant: " + startup + " (widest"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("THERMOKIT_ISA=v9 is not a variant of this build"), std::string::npos) << run.err;
}
