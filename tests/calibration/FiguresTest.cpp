#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/image/Statistics.h"
#include "thermokit/processing/FrameFigures.h"

using namespace thermokit;

// A frame's figures through the histogram of its levels are those of its values converted pixel by
// pixel, bit for bit: levels that do not convert left out and counted, the kelvin shift, a
// rectangle, and levels with bits above the table (masked for the values, kept for the levels).
TEST(FrameFigures, FromTheLevelsHistogramAsPixelByPixel) {
    Conversion conv;
    conv.cal = std::make_unique<CCalibration>("T", 0);
    conv.cal->Add(100.0f, -10.0f);
    conv.cal->Add(3000.0f, 150.0f);
    conv.table.Build(*conv.cal, 0x0FFF, 0);  // no extrapolation: levels outside 100..3000 fail
    conv.shift = 273.15f;
    const unsigned short point = 40, line = 30;
    for (const unsigned short top : {0x0FFF, 0x1FFF}) {
        std::vector<unsigned short> frame(point * line);
        uint32_t s = top;
        for (auto& v : frame) {
            s = s * 1664525u + 1013904223u;
            v = static_cast<unsigned short>((s >> 16) % (top + 1));
        }
        Selection whole, rect;
        rect.Rect(CRect(3, 2, 37, 29), point);
        for (const Selection* sel : {&whole, &rect}) {
            std::vector<unsigned short> levels;
            for (long i = 0; i < point * line; ++i)
                if (sel->whole || std::find(sel->pixels.begin(), sel->pixels.end(), i) != sel->pixels.end())
                    levels.push_back(frame[static_cast<size_t>(i)]);
            std::vector<float> values(levels.size());
            conv.Apply(levels.data(), static_cast<long>(levels.size()), values.data());
            const FrameStatistics l = Measure(levels.data(), static_cast<long>(levels.size()));
            const FrameStatistics v = Measure(values.data(), static_cast<long>(values.size()));
            FrameMeasure measure;
            const FrameFigures f = measure.Measure(frame.data(), nullptr, point, line, *sel, &conv);
            EXPECT_EQ(f.levels.count, l.count);
            EXPECT_EQ(f.levels.min, l.min);
            EXPECT_EQ(f.levels.max, l.max);
            EXPECT_EQ(f.levels.mean, l.mean);
            EXPECT_EQ(f.levels.stdDev, l.stdDev);
            EXPECT_EQ(f.values.count, v.count);
            EXPECT_EQ(f.values.min, v.min);
            EXPECT_EQ(f.values.max, v.max);
            EXPECT_EQ(f.values.mean, v.mean);
            EXPECT_EQ(f.values.stdDev, v.stdDev);
            EXPECT_EQ(f.notConverted, l.count - v.count);
            EXPECT_GT(f.notConverted, 0);
            EXPECT_EQ(measure.Levels(), levels);
        }
    }
}
