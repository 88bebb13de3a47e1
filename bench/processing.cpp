// The figures of one frame as stats measures it, beside memcpy of its levels:
// levels only (stats), and with temperatures through a level table (stats
// --embedded: the levels' histogram, one value per level used); and the
// figures of a frame of floats, summed exactly (Python's statistics,
// temperature).
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "BenchSupport.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/image/Statistics.h"
#include "thermokit/processing/FrameFigures.h"

using namespace thermokit;
using thermokit::bench::FrameSizes;
using thermokit::bench::MakeImage;

namespace {

constexpr unsigned short kMaxLevel = 0x3FFF;

size_t Pixels(const benchmark::State& state) {
    return static_cast<size_t>(state.range(0)) * static_cast<size_t>(state.range(1));
}

// A radiometric law over the 14-bit levels, as films carry them.
const Conversion& Law() {
    static const Conversion c = [] {
        _SCalibrationRBF p{};
        p.m_fScale = 0.5f;
        p.m_nOffset = -200;
        p.m_fR = 2.0e8f;
        p.m_fB = 3400.0f;
        p.m_fF = 1.0f;
        Conversion conv;
        conv.cal = std::make_unique<CCalibrationRBF>(p);
        conv.table.Build(*conv.cal, kMaxLevel);
        return conv;
    }();
    return c;
}

void BM_Memcpy(benchmark::State& state) { thermokit::bench::MemcpyBaseline(state, Pixels(state) * sizeof(uint16_t)); }

void Figures(benchmark::State& state, const Conversion* conv) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    const auto img = MakeImage(point, line, kMaxLevel);
    FrameMeasure measure;
    const Selection whole;
    for (auto _ : state) {
        const FrameFigures f = measure.Measure(img.data(), nullptr, point, line, whole, conv);
        benchmark::DoNotOptimize(f.values.stdDev);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(img.size() * 2));
}

void BM_FrameFiguresLevels(benchmark::State& state) { Figures(state, nullptr); }
void BM_FrameFiguresTemperatures(benchmark::State& state) { Figures(state, &Law()); }

// Bytes of floats per second.
void BM_MeasureFloats(benchmark::State& state) {
    const auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), kMaxLevel);
    std::vector<float> values(img.size());
    Law().Apply(img.data(), static_cast<long>(img.size()), values.data());
    for (auto _ : state) {
        const FrameStatistics s = Measure(values.data(), static_cast<long>(values.size()));
        benchmark::DoNotOptimize(s.stdDev);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(values.size() * 4));
}

}  // namespace

BENCHMARK(BM_Memcpy)->Apply(FrameSizes);
BENCHMARK(BM_FrameFiguresLevels)->Apply(FrameSizes);
BENCHMARK(BM_FrameFiguresTemperatures)->Apply(FrameSizes);
BENCHMARK(BM_MeasureFloats)->Apply(FrameSizes);

BENCHMARK_MAIN();
