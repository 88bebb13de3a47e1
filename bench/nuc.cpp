// Correction kernels: NUC on levels, bad-pixel replacement and the two
// correction chains, beside memcpy of the same frame bytes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "BenchSupport.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"

using namespace thermokit;
using thermokit::bench::FrameSizes;
using thermokit::bench::MakeImage;

namespace {

void FillNuc(CNuc& nuc) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> g(0.8f, 1.2f), o(-200.0f, 200.0f);
    for (long i = 0; i < nuc.GetSize(); ++i) {
        nuc.GetAlpha()[i] = g(rng);
        nuc.GetBeta()[i] = o(rng);
    }
}

void FillBad(CPixel& map, int count) {
    const long size = static_cast<long>(map.GetPoint()) * map.GetLine();
    std::mt19937 rng(5);
    std::uniform_int_distribution<long> pick(0, size - 1);
    while (map.GetSize() < count) {
        const long p = pick(rng);
        if (map.IsBad(p) < 0) map.Add(p, 0, CPixel::kGain);
    }
    map.UpdateReplacement();
}

int64_t FrameBytes(const benchmark::State& state) { return state.range(0) * state.range(1) * 2; }

// memcpy of one frame of levels (the input bytes of every kernel below).
void BM_MemcpyFrame(benchmark::State& state) {
    thermokit::bench::MemcpyBaseline(state, static_cast<size_t>(FrameBytes(state)));
}

// memcpy of the bytes a NUC pass reads besides the frame: the two float tables.
void BM_MemcpyNucTables(benchmark::State& state) {
    thermokit::bench::MemcpyBaseline(state, static_cast<size_t>(FrameBytes(state)) * 4);
}

void BM_NucApplyLevels(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    CNuc nuc(point, line);
    FillNuc(nuc);
    auto in = MakeImage(point, line);
    std::vector<uint16_t> out(in.size());
    for (auto _ : state) {
        nuc.Apply(in.data(), 0x3FFF, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FrameBytes(state));
}

void BM_NucApplyLevelsInPlace(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    CNuc nuc(point, line);
    nuc.Reset();  // identity, so the frame stays the same from pass to pass
    auto img = MakeImage(point, line);
    for (auto _ : state) {
        nuc.Apply(img.data(), 0x3FFF, nullptr);
        benchmark::DoNotOptimize(img.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FrameBytes(state));
}

void BM_PixelApply5000(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    CPixel map(point, line, 0);
    FillBad(map, 5000);
    auto img = MakeImage(point, line);
    for (auto _ : state) {
        map.Apply(img.data());
        benchmark::DoNotOptimize(img.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FrameBytes(state));
}

void BM_CorrectImage(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    CNuc nuc(point, line);
    nuc.Reset();
    CPixel map(point, line, 0);
    FillBad(map, 5000);
    auto img = MakeImage(point, line);
    CFrame frame(img.data(), point, line, 14, 0, 0);
    for (auto _ : state) {
        CorrectImage(&frame, &nuc, &map, nullptr);
        benchmark::DoNotOptimize(img.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FrameBytes(state));
}

void BM_CorrectionApply(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0)), line = static_cast<unsigned short>(state.range(1));
    CCorrection chain(point, line);
    chain.GetNuc()->Reset();
    FillBad(*chain.GetBadPixels(), 5000);
    chain.SetUse(1, 1, 1);  // identity mapping: the full three-stage pass
    auto img = MakeImage(point, line);
    for (auto _ : state) {
        chain.Apply(img.data(), 0x3FFF);
        benchmark::DoNotOptimize(img.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * FrameBytes(state));
}

}  // namespace

BENCHMARK(BM_MemcpyFrame)->Apply(FrameSizes);
BENCHMARK(BM_MemcpyNucTables)->Apply(FrameSizes);
THERMOKIT_BENCH_VARIANTS(BM_NucApplyLevels, ->Apply(FrameSizes));
BENCHMARK(BM_NucApplyLevelsInPlace)->Apply(FrameSizes);
BENCHMARK(BM_PixelApply5000)->Apply(FrameSizes);
BENCHMARK(BM_CorrectImage)->Apply(FrameSizes);
BENCHMARK(BM_CorrectionApply)->Apply(FrameSizes);

BENCHMARK_MAIN();
