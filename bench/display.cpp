// Display hot paths: levels to 32-bit pixels through a true-colour LUT, LUT
// updates over 14 bits, and a frame drawn into a window and written as PNG.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "BenchSupport.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/CWnd.h"

using namespace thermokit;
using namespace thermokit::bench;

namespace {

// memcpy of the 32-bit output pixels of one frame.
void BM_MemcpyOutput(benchmark::State& state) {
    MemcpyBaseline(state, static_cast<size_t>(state.range(0) * state.range(1)) * 4);
}
BENCHMARK(BM_MemcpyOutput)->Apply(FrameSizes);

// memcpy of the 16-bit input levels of one frame.
void BM_MemcpyInput(benchmark::State& state) {
    MemcpyBaseline(state, static_cast<size_t>(state.range(0) * state.range(1)) * 2);
}
BENCHMARK(BM_MemcpyInput)->Apply(FrameSizes);

// CBit24::Update: bytes are the input levels (2 a pixel).
void BM_Bit24Update(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    std::vector<uint16_t> image = MakeImage(point, line);
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 lut(0x3FFF);
    lut.Update(nullptr, &rainbow, 1000, 12000);
    CBit24 bit(static_cast<long>(image.size()), 1, 0);
    for (auto _ : state) {
        bit.Update(image.data(), &lut);
        benchmark::DoNotOptimize(bit.GetBuffer());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(image.size() * 2));
}
THERMOKIT_BENCH_VARIANTS(BM_Bit24Update, ->Apply(FrameSizes));

// A plain loop doing the same, for comparison in the same run.
void BM_PlainLoopReference(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    std::vector<uint16_t> image = MakeImage(point, line);
    std::vector<uint32_t> lut(0x4000, 0x01020304u), out(image.size());
    for (auto _ : state) {
        for (size_t i = 0; i < image.size(); ++i) out[i] = lut[image[i] & 0x3FFF];
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(image.size() * 2));
}
BENCHMARK(BM_PlainLoopReference)->Apply(FrameSizes);

// CLut24::Update over 16,384 levels; bytes are the table (4 a level).
void BM_Lut24UpdatePlain(benchmark::State& state) {
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 lut(0x3FFF);
    lut.SetIsotherm(0, 1, 5000, 5100, Rgb(255, 255, 255));
    for (auto _ : state) {
        lut.Update(nullptr, &rainbow, 1000, 12000);
        benchmark::DoNotOptimize(lut.GetBuffer());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 0x4000 * 4);
}
BENCHMARK(BM_Lut24UpdatePlain);

void BM_Lut24UpdateEqualising(benchmark::State& state) {
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 lut(0x3FFF);
    std::vector<uint16_t> image = MakeImage(640, 512);
    std::vector<long> histogram(0x4000, 0);
    for (uint16_t v : image) ++histogram[v];
    for (auto _ : state) {
        benchmark::DoNotOptimize(lut.Update(nullptr, &rainbow, 1000, 12000, histogram.data(), 0.7f));
        benchmark::DoNotOptimize(lut.GetBuffer());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 0x4000 * 4);
}
BENCHMARK(BM_Lut24UpdateEqualising);

void BM_MemcpyLut(benchmark::State& state) { MemcpyBaseline(state, 0x4000 * 4); }
BENCHMARK(BM_MemcpyLut);

// Frame -> LUT -> window (1:1) -> PNG file; bytes are the input levels.
void BM_FrameToPng(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    std::vector<uint16_t> image = MakeImage(point, line);
    CFrame frame(image.data(), static_cast<unsigned short>(point), static_cast<unsigned short>(line), 14, 0, 1);
    CLogPalette rainbow(CLogPalette::RAINBOW, 0, nullptr);
    CLut24 lut(0x3FFF);
    lut.Update(nullptr, &rainbow, 1000, 12000);
    CWnd wnd(point, line);
    const std::string path = "/tmp/bench_display_" + std::to_string(::getpid()) + ".png";
    for (auto _ : state) {
        frame.Display24(&wnd, &lut, nullptr, nullptr);
        if (!wnd.SavePng(path.c_str())) state.SkipWithError("PNG not written");
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(image.size() * 2));
}
BENCHMARK(BM_FrameToPng)->Apply(FrameSizes)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
