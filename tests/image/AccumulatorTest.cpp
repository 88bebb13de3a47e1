// Temporal accumulators: weighted mean and noise, their caching rules, the
// shared buffers of a noise assignment and their saving.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/ToolRun.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;

namespace {
// Saving reads the camera configuration: keep it in stores of the tests' own.
const bool kPrivateStores = thermokit::test::UsePrivateStores();

std::string Temp(const std::string& tag) { return thermokit::test::TempPath("acc_" + tag + ".film"); }
}  // namespace

TEST(Average, WeightsMaskingAndRefusals) {
    CAverage avg(4, 2, 12, 0);
    EXPECT_EQ(avg.GetBuffer(0), nullptr);  // nothing accumulated yet
    EXPECT_EQ(avg.GetDoubleBuffer(0), nullptr);
    std::vector<unsigned short> a = {0, 10, 100, 1000, 4095, 7, 8, 9};
    std::vector<unsigned short> b = {4, 14, 104, 1004, 4095, 7, 8, 0xF00F};
    ASSERT_EQ(avg.Accumulate(a.data(), 8, 16, 1.0), 1);
    ASSERT_EQ(avg.Accumulate(b.data(), 8, 12, 3.0), 1);
    EXPECT_EQ(avg.GetFrame(), 2u);
    const double* mean = avg.GetDoubleBuffer(0);
    ASSERT_NE(mean, nullptr);
    EXPECT_DOUBLE_EQ(mean[1], (10 + 3 * 14) / 4.0);  // (a + 3b) / 4
    EXPECT_DOUBLE_EQ(mean[7], (9 + 3 * 0x00F) / 4.0);  // b masked with bit 12
    const unsigned short* levels = avg.GetBuffer(0);
    EXPECT_EQ(levels[1], 13);  // 13.0
    EXPECT_EQ(levels[0], 3);   // 3.0
    EXPECT_EQ(levels[7], 13);  // 13.5 truncated

    // Refused without touching the sums: weight 0 or negative, wrong size.
    EXPECT_EQ(avg.Accumulate(a.data(), 8, 16, 0.0), 0);
    EXPECT_EQ(avg.Accumulate(a.data(), 8, 16, -1.0), 0);
    EXPECT_EQ(avg.Accumulate(a.data(), 7, 16, 1.0), 0);
    EXPECT_EQ(avg.Accumulate(a.data(), 8, 16, std::nan("")), 0);
    EXPECT_EQ(avg.GetFrame(), 2u);
    EXPECT_DOUBLE_EQ(avg.GetDoubleBuffer(1)[1], 13.0);

    // Bit 16 (and 0) take the level as it is; bits 1..15 mask.
    unsigned short v = 0xF123;
    for (auto [bit, expected] : {std::pair{16, 0xF123}, {0, 0xF123}, {12, 0x123}, {1, 1}, {15, 0x7123}}) {
        CAverage raw(1, 1, 12, 0);
        raw.Accumulate(&v, 1, bit, bit == 15 ? 2.0 : 1.0);
        EXPECT_DOUBLE_EQ(raw.GetDoubleBuffer(0)[0], expected) << bit;
    }

    // Frames: their own depth masks.
    CFrame frame(4, 2, 12, 0, 0);
    frame.GetBuffer()[0] = 0xFFFF;
    CAverage fromFrames(4, 2, 16, 0);
    ASSERT_EQ(fromFrames.Accumulate(&frame, 1.0), 1);
    EXPECT_EQ(fromFrames.GetBuffer(0)[0], 4095);
    EXPECT_EQ(fromFrames.Accumulate(static_cast<CFrame*>(nullptr), 1.0), 0);
}

TEST(Average, TruncationCachingAndCounters) {
    // A mean of 1023.9 becomes the level 1023; floats are never masked.
    std::vector<unsigned short> external(3, 0xABCD);
    CAverage avg(external.data(), 3, 1, 8, 0);
    EXPECT_EQ(external[0], 0);  // Init resets the pixels
    double d[3] = {1023.9, 70000.0, 0.99};
    ASSERT_EQ(avg.Accumulate(d, 3, 1.0), 1);
    ASSERT_EQ(avg.GetBuffer(0), external.data());
    EXPECT_EQ(external[0], 1023);
    EXPECT_EQ(external[1], 70000 - 65536);  // no clamping: the low 16 bits
    EXPECT_EQ(external[2], 0);
    float f[3] = {2.5f, 3.5f, 4.5f};
    ASSERT_EQ(avg.Accumulate(f, 3, 1.0), 1);
    EXPECT_DOUBLE_EQ(avg.GetDoubleBuffer(0)[0], (1023.9 + 2.5) / 2);
    EXPECT_EQ(avg.Accumulate(f, 2, 1.0), 0);

    // Up to date and not forced: no new division (a scribbled pixel stays).
    external[2] = 999;
    avg.GetBuffer(0);
    EXPECT_EQ(external[2], 999);
    avg.GetBuffer(1);  // forced: recomputed
    EXPECT_EQ(external[2], 2);
    // A new image makes the mean out of date: the next read divides.
    external[2] = 999;
    avg.Accumulate(f, 3, 2.0);
    avg.GetBuffer(0);
    EXPECT_NE(external[2], 999);

    // ClearCounter keeps the pixels; Reset clears them.
    avg.ClearCounter();
    EXPECT_EQ(avg.GetFrame(), 0u);
    EXPECT_EQ(avg.GetBuffer(0), nullptr);
    EXPECT_NE(external[0], 0);
    avg.Reset();
    EXPECT_EQ(external[0], 0);
}

TEST(Average, VectorPathsMatchTheScalarRule) {
    // Odd sizes so that every vector variant has a remainder; the sums must be
    // bit for bit those of one multiply and one add a pixel in double, on
    // whichever vector path this processor takes.
    for (int n : {1, 3, 17, 1001}) {
        CAverage avg(static_cast<unsigned short>(n), 1, 14, 0);
        std::vector<double> ref(static_cast<size_t>(n), 0.0);
        std::vector<unsigned short> img(static_cast<size_t>(n));
        std::vector<float> fimg(static_cast<size_t>(n));
        const double weights[] = {1.0, 0.1, 3.7, 1e-3};
        uint32_t s = 7;
        double weight = 0.0;  // summed in the order the images came
        for (double w : weights) {
            weight += w;
            weight += w;
            for (int i = 0; i < n; ++i) {
                s = s * 1664525u + 1013904223u;
                img[i] = static_cast<unsigned short>(s >> 16);
                fimg[i] = static_cast<float>(s >> 8) * 0.001f;
            }
            avg.Accumulate(img.data(), n, 14, w);
            for (int i = 0; i < n; ++i) ref[i] += static_cast<double>(img[i] & 0x3FFF) * w;
            avg.Accumulate(fimg.data(), n, w);
            for (int i = 0; i < n; ++i) ref[i] += static_cast<double>(fimg[i]) * w;
        }
        const double* mean = avg.GetDoubleBuffer(0);
        for (int i = 0; i < n; ++i) ASSERT_EQ(mean[i], ref[i] / weight) << "n " << n << " i " << i;
    }
}

// Long runs of whole level images (past the 32-bit totals' limit), the mean read
// at the end or after every image, then another weight: the sums stay those
// of one addition a pixel in double, in order.
TEST(Average, LongRunsOfLevelImagesKeepTheRunningSums) {
    const int n = 5;
    CAverage seldom(n, 1, 16, 0), often(n, 1, 16, 0);
    std::vector<double> ref(n, 0.0);
    std::vector<unsigned short> img(n);
    double weight = 0.0;
    for (uint32_t k = 0; k < 65543; ++k) {
        for (int i = 0; i < n; ++i) img[i] = static_cast<unsigned short>(65535 - (k * 7 + i) % 13 / 12);
        const double w = k < 65540 ? 1.0 : 0.3;
        ASSERT_EQ(seldom.Accumulate(img.data(), n, 16, w), 1);
        ASSERT_EQ(often.Accumulate(img.data(), n, 16, w), 1);
        for (int i = 0; i < n; ++i) ref[i] += img[i] * w;
        weight += w;
        if (k < 3) {
            ASSERT_NE(often.GetDoubleBuffer(0), nullptr);
        }
        if (k == 65539 || k == 65542) {
            const double* a = seldom.GetDoubleBuffer(0);
            const double* b = often.GetDoubleBuffer(0);
            for (int i = 0; i < n; ++i) ASSERT_TRUE(a[i] == ref[i] / weight && b[i] == a[i]) << k << " " << i;
        }
    }
    EXPECT_EQ(seldom.GetFrame(), 65543u);
}

TEST(Average, SaveAverageWritesLevelsOrDoubles) {
    CAverage avg(4, 2, 14, 0);
    const std::string name = Temp("avg");
    EXPECT_EQ(avg.SaveAverage(name.c_str(), "", "", 0), 0);  // nothing to divide
    EXPECT_FALSE(File::Exists(name));
    double d[8] = {1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5, 8.5};
    avg.Accumulate(d, 8, 1.0);
    ASSERT_EQ(avg.SaveAverage(name.c_str(), "", "mean", 0), 1);
    CPtr levels(name, 0, 0, 1);
    ASSERT_EQ(levels.IsValid(), 1);
    ASSERT_EQ(levels.ReadFrame(0), 1);
    EXPECT_EQ(levels.GetBit(), 14);
    EXPECT_EQ(levels.GetFrame()->GetBuffer()[7], 8);
    ASSERT_EQ(avg.SaveAverage(name.c_str(), "", "mean", 1), 1);
    CPtrFloat doubles(name, 0, 0, 1);
    ASSERT_EQ(doubles.IsValid(), 1);
    std::vector<double> back(8);
    ASSERT_EQ(doubles.ReadFrame(0, back.data(), 8), 1);
    EXPECT_EQ(back[7], 8.5);
    File::Remove(name);
}

TEST(Noise, RootMeanSquareAndRecomputation) {
    CNoise noise(2, 1, 14, 0);
    EXPECT_EQ(noise.GetBuffer(), nullptr);
    double mean[2] = {12.0, 0.0};
    unsigned short a[2] = {10, 3};
    unsigned short b[2] = {14, 0xFFFF};  // no masking
    ASSERT_EQ(noise.Accumulate(a, 2, mean), 1);
    ASSERT_EQ(noise.Accumulate(b, 2, mean), 1);
    EXPECT_EQ(noise.Accumulate(b, 3, mean), 0);
    EXPECT_EQ(noise.GetFrame(), 2u);
    double* n = noise.GetBuffer();
    ASSERT_NE(n, nullptr);
    EXPECT_DOUBLE_EQ(n[0], 2.0);
    EXPECT_DOUBLE_EQ(n[1], std::sqrt((9.0 + 65535.0 * 65535.0) / 2));
    // Recomputed on every call.
    n[0] = -1.0;
    EXPECT_DOUBLE_EQ(noise.GetBuffer()[0], 2.0);
    // The frame's own levels are never written; Reset leaves them alone.
    noise.SetPixel(0, 0, 77);
    noise.GetBuffer();
    EXPECT_EQ(noise.GetPixel(0, 0), 77);
    noise.Reset();
    EXPECT_EQ(noise.GetPixel(0, 0), 77);
    EXPECT_EQ(noise.GetFrame(), 0u);
    EXPECT_EQ(noise.GetBuffer(), nullptr);

    float fa[2] = {1.5f, 2.0f};
    double da[2] = {0.5, 2.0};
    double m2[2] = {1.0, 2.0};
    ASSERT_EQ(noise.Accumulate(fa, 2, m2), 1);
    ASSERT_EQ(noise.Accumulate(da, 2, m2), 1);
    EXPECT_EQ(std::vector<double>(noise.GetBuffer(), noise.GetBuffer() + 2), (std::vector<double>{0.5, 0.0}));
    CFrame frame(2, 1, 14, 0, 0);
    EXPECT_EQ(noise.Accumulate(&frame, m2), 1);
    EXPECT_EQ(noise.Accumulate(&frame, nullptr), 0);
}

TEST(Noise, AssignmentSharesTheBuffers) {
    double mean[2] = {12.0, 12.0};
    unsigned short ten[2] = {10, 10};
    unsigned short fourteen[2] = {14, 14};
    CNoise a(2, 1, 14, 0);
    a.Accumulate(ten, 2, mean);
    {
        CNoise b(2, 1, 14, 0);
        b = a;
        EXPECT_EQ(b.GetFrame(), 1u);
        b.Accumulate(fourteen, 2, mean);  // adds to the shared sums
        EXPECT_EQ(b.GetFrame(), 2u);
        EXPECT_DOUBLE_EQ(b.GetBuffer()[0], 2.0);
        EXPECT_EQ(b.GetBuffer(), a.GetBuffer());
    }  // b goes first: a still owns its buffers
    EXPECT_EQ(a.GetFrame(), 1u);
    EXPECT_DOUBLE_EQ(a.GetBuffer()[0], std::sqrt(8.0));
}

TEST(Noise, SaveNoiseReturnsOneWhateverTheSaveGave) {
    CNoise noise(2, 2, 14, 0);
    const std::string name = Temp("noise");
    EXPECT_EQ(noise.SaveNoise(name.c_str(), "", ""), 0);  // nothing accumulated
    double mean[4] = {1, 2, 3, 4};
    unsigned short img[4] = {2, 2, 2, 2};
    noise.Accumulate(img, 4, mean);
    ASSERT_EQ(noise.SaveNoise(name.c_str(), "DL", "noise"), 1);
    CPtrFloat back(name, 0, 0, 1);
    std::vector<double> v(4);
    ASSERT_EQ(back.ReadFrame(0, v.data(), 4), 1);
    EXPECT_EQ(v, (std::vector<double>{1.0, 0.0, 1.0, 2.0}));
    File::Remove(name);

    MessageRecorder rec;
    const std::string bad = ::testing::TempDir() + "no_such_dir_tk/noise.film";
    EXPECT_EQ(noise.SaveNoise(bad.c_str(), "", ""), 1);
    EXPECT_GE(rec.Count(), 1u);  // the save failed and said so
    EXPECT_FALSE(File::Exists(bad));
}
