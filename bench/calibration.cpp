// Levels to temperatures: per pixel through Interpolate, and through a level
// table, for a black body and with object parameters (emissivity, reflected
// temperature, air) folded into the table.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "BenchSupport.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/calibration/CObjectParameters.h"

using namespace thermokit;
using thermokit::bench::FrameSizes;
using thermokit::bench::MakeImage;

namespace {

constexpr unsigned short kMaxLevel = 0x3FFF;

// A 50-point curve over the 14-bit range, temperatures rising faster than linearly.
CCalibration& Curve() {
    static CCalibration cal = [] {
        CCalibration c("BENCH", 0);
        for (int i = 0; i < 50; ++i) {
            const float x = 200.0f + 330.0f * static_cast<float>(i);
            c.Add(x, -40.0f + 200.0f * std::sqrt(static_cast<float>(i) / 49.0f));
        }
        return c;
    }();
    return cal;
}

CCalibrationRBF& Law() {
    static CCalibrationRBF cal = [] {
        _SCalibrationRBF p{};
        p.m_fScale = 0.5f;
        p.m_nOffset = -200;
        p.m_fR = 2.0e8f;
        p.m_fB = 3400.0f;
        p.m_fF = 1.0f;
        return CCalibrationRBF(p);
    }();
    return cal;
}

size_t Pixels(const benchmark::State& state) {
    return static_cast<size_t>(state.range(0)) * static_cast<size_t>(state.range(1));
}

void BM_Memcpy(benchmark::State& state) { thermokit::bench::MemcpyBaseline(state, Pixels(state) * sizeof(uint16_t)); }

void PerPixel(benchmark::State& state, const CCalibration& cal) {
    const auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), kMaxLevel);
    std::vector<float> out(img.size());
    for (auto _ : state) {
        for (size_t i = 0; i < img.size(); ++i) {
            float y = NAN;
            out[i] = cal.Interpolate(static_cast<float>(img[i] & kMaxLevel), &y, 1) ? y : NAN;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(img.size() * 2));
}

// A grey surface before warm surroundings, seen through a little air.
const CObjectParameters& Grey() {
    static const CObjectParameters p = [] {
        CObjectParameters o(0.7, 45.0, 0.9);
        o.SetAtmosphereTemperature(15.0);
        return o;
    }();
    return p;
}

void Table(benchmark::State& state, const CCalibration& cal, const CObjectParameters& params = CObjectParameters()) {
    const auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), kMaxLevel);
    std::vector<float> out(img.size());
    const CLevelTable table(cal, params, kMaxLevel);
    for (auto _ : state) {
        table.Apply(img.data(), static_cast<long>(img.size()), out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(img.size() * 2));
}

// ConvertLevels builds its table every call: the cost of a one-off frame.
void Convert(benchmark::State& state, const CCalibration& cal, const CObjectParameters& params = CObjectParameters()) {
    const auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), kMaxLevel);
    std::vector<float> out(img.size());
    for (auto _ : state) {
        ConvertLevels(cal, params, img.data(), static_cast<long>(img.size()), kMaxLevel, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(img.size() * 2));
}

void BM_CurvePerPixel(benchmark::State& state) { PerPixel(state, Curve()); }
void BM_CurveTable(benchmark::State& state) { Table(state, Curve()); }
void BM_CurveConvertLevels(benchmark::State& state) { Convert(state, Curve()); }
void BM_LawPerPixel(benchmark::State& state) { PerPixel(state, Law()); }
void BM_LawTable(benchmark::State& state) { Table(state, Law()); }
void BM_LawConvertLevels(benchmark::State& state) { Convert(state, Law()); }
// With object parameters: the same gather per frame; the table costs one solve more per level.
void BM_CurveTableObject(benchmark::State& state) { Table(state, Curve(), Grey()); }
void BM_LawTableObject(benchmark::State& state) { Table(state, Law(), Grey()); }
void BM_CurveConvertLevelsObject(benchmark::State& state) { Convert(state, Curve(), Grey()); }
void BM_LawConvertLevelsObject(benchmark::State& state) { Convert(state, Law(), Grey()); }

// One Interpolate call on the 50-point curve, levels spread over the curve.
void BM_Interpolate50(benchmark::State& state) {
    const CCalibration& cal = Curve();
    float level = 0.0f;
    float y = 0.0f;
    for (auto _ : state) {
        level += 97.0f;
        if (level > 16383.0f) level -= 16383.0f;
        benchmark::DoNotOptimize(cal.Interpolate(level, &y, 1));
        benchmark::DoNotOptimize(y);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

}  // namespace

BENCHMARK(BM_Memcpy)->Apply(FrameSizes);
BENCHMARK(BM_CurvePerPixel)->Apply(FrameSizes);
THERMOKIT_BENCH_VARIANTS(BM_CurveTable, ->Apply(FrameSizes));
BENCHMARK(BM_CurveConvertLevels)->Apply(FrameSizes);
BENCHMARK(BM_LawPerPixel)->Apply(FrameSizes);
THERMOKIT_BENCH_VARIANTS(BM_LawTable, ->Apply(FrameSizes));
BENCHMARK(BM_LawConvertLevels)->Apply(FrameSizes);
BENCHMARK(BM_CurveTableObject)->Apply(FrameSizes);
BENCHMARK(BM_LawTableObject)->Apply(FrameSizes);
BENCHMARK(BM_CurveConvertLevelsObject)->Apply(FrameSizes);
BENCHMARK(BM_LawConvertLevelsObject)->Apply(FrameSizes);
BENCHMARK(BM_Interpolate50);

BENCHMARK_MAIN();
