#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "nuc/NucTestSupport.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"

using namespace thermokit;
using namespace nuctest;

namespace {

// A 4 x 1 chain where every stage shows: gains 1..4, a reversing mapping and
// pixel 0 replaced by pixel 1.
struct Chain {
    CNuc nuc{4, 1};
    CPixel bad{4, 1, 0};
    CMapping map{4, 1};
    Chain() {
        for (int i = 0; i < 4; ++i) {
            nuc.GetAlpha()[i] = static_cast<float>(i + 1);
            nuc.GetBeta()[i] = 0.0f;
            map.SetEntry(i, 3 - i);
        }
        bad.Add(0, 1, CPixel::kGain);
    }
};

}  // namespace

TEST(Correction, CorrectImageRotatesFirstThenNucThenBadPixels) {
    Chain c;
    std::vector<unsigned short> px = {10, 20, 30, 40};
    CFrame frame(px.data(), 4, 1, 14, 360, 0);
    ASSERT_EQ(CorrectImage(&frame, &c.nuc, nullptr, &c.map), 1);
    // Mapping first: 40 30 20 10, then gains 1..4.
    EXPECT_EQ(px, (std::vector<unsigned short>{40, 60, 60, 40}));
    px = {10, 20, 30, 40};
    ASSERT_EQ(CorrectImage(&frame, &c.nuc, &c.bad, &c.map), 1);
    EXPECT_EQ(px, (std::vector<unsigned short>{60, 60, 60, 40}));
    // The frame's depth is the clamp: 12 bits here, and bits above it are masked.
    px = {0xF000 | 4000, 3000, 30, 40};
    CFrame f12(px.data(), 4, 1, 12, 0, 0);
    ASSERT_EQ(CorrectImage(&f12, &c.nuc, nullptr, nullptr), 1);
    EXPECT_EQ(px, (std::vector<unsigned short>{4000, 4095, 90, 160}));
    // Rotation 180 without a mapping reverses the buffer before the NUC.
    px = {10, 20, 30, 40};
    CFrame f180(px.data(), 4, 1, 14, 180, 0);
    ASSERT_EQ(CorrectImage(&f180, &c.nuc, nullptr, nullptr), 1);
    EXPECT_EQ(px, (std::vector<unsigned short>{40, 60, 60, 40}));
    // Nothing given: only the rotation code matters; no frame: 0.
    px = {1, 2, 3, 4};
    ASSERT_EQ(CorrectImage(&frame, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(px, (std::vector<unsigned short>{1, 2, 3, 4}));
    EXPECT_EQ(CorrectImage(nullptr, &c.nuc, &c.bad, &c.map), 0);
    // Tables made for a larger detector are not applied to a smaller frame.
    CNuc big(8, 8);
    big.Reset();
    CPixel bigMap(8, 8, 0);
    bigMap.Add(63, 62, CPixel::kGain);
    std::vector<unsigned short> small = {5, 6, 7, 8};
    CFrame fs(small.data(), 2, 2, 14, 0, 0);
    ASSERT_EQ(CorrectImage(&fs, &big, &bigMap, nullptr), 1);
    EXPECT_EQ(small, (std::vector<unsigned short>{5, 6, 7, 8}));
}

TEST(Correction, ObjectAppliesMappingLast) {
    Chain c;
    const std::string nucPath = TempPath("c.nuc"), badPath = TempPath("c.bpr"), mapPath = TempPath("c.map");
    ASSERT_EQ(c.nuc.Save(nucPath.c_str()), 1);
    ASSERT_EQ(c.bad.Save(badPath.c_str()), 1);
    ASSERT_EQ(c.map.Save(mapPath.c_str()), 1);

    CCorrection all(nucPath, badPath, mapPath);
    EXPECT_EQ(all.IsNucUsed(), 1);
    EXPECT_EQ(all.IsBadPixelsUsed(), 1);
    EXPECT_EQ(all.IsMappingUsed(), 1);
    std::vector<unsigned short> px = {10, 20, 30, 40};
    ASSERT_EQ(all.Apply(px.data(), 0x3FFF), 1);
    // NUC: 10 40 90 160; pixel 0 <- pixel 1: 40 40 90 160; reversed last.
    EXPECT_EQ(px, (std::vector<unsigned short>{160, 90, 40, 40}));
    std::vector<float> f = {10, 20, 30, 40.5f};
    ASSERT_EQ(all.Apply(f.data()), 1);
    EXPECT_EQ(f, (std::vector<float>{162, 90, 40, 40}));

    // A file that cannot be read switches its stage off.
    CCorrection noMap(nucPath, badPath, TempPath("missing.map"));
    EXPECT_EQ(noMap.IsMappingUsed(), 0);
    px = {10, 20, 30, 40};
    noMap.Apply(px.data(), 0x3FFF);
    EXPECT_EQ(px, (std::vector<unsigned short>{40, 40, 90, 160}));
    CCorrection none("", "", "");
    EXPECT_EQ(none.IsNucUsed() + none.IsBadPixelsUsed() + none.IsMappingUsed(), 0);
    px = {10, 20, 30, 40};
    none.Apply(px.data(), 0x3FFF);
    EXPECT_EQ(px, (std::vector<unsigned short>{10, 20, 30, 40}));

    // The size constructor: everything made, everything off.
    CCorrection sized(4, 1);
    EXPECT_EQ(sized.IsNucUsed() + sized.IsBadPixelsUsed() + sized.IsMappingUsed(), 0);
    ASSERT_NE(sized.GetNuc(), nullptr);
    EXPECT_EQ(sized.GetNuc()->GetSize(), 4);
    EXPECT_EQ(sized.GetBadPixels()->GetSize(), 0);
    int reason = -1;
    EXPECT_EQ(sized.GetMapping()->Check(&reason), 1);
    px = {10, 20, 30, 40};
    sized.Apply(px.data(), 0x3FFF);
    EXPECT_EQ(px, (std::vector<unsigned short>{10, 20, 30, 40}));
}

TEST(Correction, AssignmentSharesTheStages) {
    auto first = std::make_unique<CCorrection>(4, 1);
    first->GetNuc()->Reset();
    first->GetNuc()->GetBeta()[2] = 5.0f;
    first->SetUse(1, 0, 0);
    CCorrection second(2, 2);
    second = *first;
    EXPECT_EQ(second.GetNuc(), first->GetNuc());
    EXPECT_EQ(second.GetBadPixels(), first->GetBadPixels());
    EXPECT_EQ(second.IsNucUsed(), 1);
    first.reset();
    std::vector<unsigned short> px = {1, 2, 3, 4};
    ASSERT_EQ(second.Apply(px.data(), 0x3FFF), 1);
    EXPECT_EQ(px, (std::vector<unsigned short>{1, 2, 8, 4}));
    CCorrection third(second);
    EXPECT_EQ(third.GetMapping(), second.GetMapping());
}

TEST(Correction, CleanDoubleBufferTakesStatisticsAfterReplacement) {
    std::vector<double> in = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1000};
    std::vector<double> out(10, -1);
    // Without a map the hot pixel drives the high tail and survives.
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.0, 1, 1.0, nullptr), 1);
    EXPECT_EQ(out[9], 1000.0);
    // With the hot pixel replaced by its neighbour on the work copy, the high
    // side clips to 7, the largest value under the new limit; the input is
    // what gets clipped, so the hot pixel itself becomes 7.
    CPixel map(10, 1, 0);
    map.Add(9, 8, CPixel::kGain);
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.0, 1, 1.0, &map), 1);
    EXPECT_EQ(out[9], 7.0);
    EXPECT_EQ(out[8], 7.0);
    EXPECT_EQ(out[5], 6.0);
    EXPECT_NEAR(out[0], 3.0, 1e-12);
    EXPECT_EQ(in[9], 1000.0);  // the caller's input is not replaced
    // A map of another size is ignored silently.
    CPixel other(3, 3, 0);
    other.Add(8, 7, CPixel::kGain);
    ASSERT_EQ(CFrame::CleanDoubleBuffer(in.data(), 10, out.data(), 0.0, 1, 1.0, &other), 1);
    EXPECT_EQ(out[9], 1000.0);
}
