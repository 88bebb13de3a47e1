// Whole-image kernels of the image layer, in input bytes per second, beside a
// memcpy of the same bytes.
#include <benchmark/benchmark.h>

#include <vector>

#include "BenchSupport.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/image/PixelArray.h"

using namespace thermokit;
using thermokit::bench::FrameSizes;
using thermokit::bench::MakeImage;

namespace {

size_t Pixels(const benchmark::State& state) {
    return static_cast<size_t>(state.range(0)) * static_cast<size_t>(state.range(1));
}
void Bytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Pixels(state) * sizeof(unsigned short)));
}

void BM_Memcpy(benchmark::State& state) {
    thermokit::bench::MemcpyBaseline(state, Pixels(state) * sizeof(unsigned short));
}

void BM_Mask(benchmark::State& state) {
    auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        Mask(img.data(), static_cast<long>(img.size()), 0x0FFF);
        benchmark::ClobberMemory();
    }
    Bytes(state);
}

void BM_MinMaxMean(benchmark::State& state) {
    auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    unsigned short mn, mx, mean;
    for (auto _ : state) {
        MinMax(img.data(), static_cast<long>(img.size()), &mn, &mx, &mean, 0);
        benchmark::DoNotOptimize(mean);
    }
    Bytes(state);
}

void BM_StdDev(benchmark::State& state) {
    auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    double sd, mean;
    for (auto _ : state) {
        StdDev(img.data(), static_cast<long>(img.size()), &sd, &mean);
        benchmark::DoNotOptimize(sd);
    }
    Bytes(state);
}

void BM_CalculateHisto14(benchmark::State& state) {
    auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        long* histo = nullptr;
        unsigned short mn, mx;
        CalculateHisto(img.data(), static_cast<long>(img.size()), nullptr, 0x3FFF, mn, mx, histo);
        benchmark::DoNotOptimize(histo);
        delete[] histo;
    }
    Bytes(state);
}

void BM_MinMaxHisto14(benchmark::State& state) {
    auto img = MakeImage(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    unsigned short mn, mx;
    for (auto _ : state) {
        MinMaxHisto(img.data(), static_cast<long>(img.size()), &mn, &mx, 0x3FFF, 98.f, -1.f, nullptr);
        benchmark::DoNotOptimize(mx);
    }
    Bytes(state);
}

template <unsigned short Code>
void BM_RotateImage(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = MakeImage(point, line);
    bool turned = false;
    for (auto _ : state) {
        // A quarter turn swaps the sides each time.
        const bool quarter = Code != 180;
        RotateImage(img.data(), turned ? line : point, turned ? point : line, Code, nullptr);
        if (quarter) turned = !turned;
        benchmark::ClobberMemory();
    }
    Bytes(state);
}

template <int Angle>
void BM_ProcessRotation(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = MakeImage(point, line);
    CFrame src(img.data(), point, line, 14, 0, 0);
    CFrame dst(Angle == 180 ? point : line, Angle == 180 ? line : point, 14, 0, 0);
    for (auto _ : state) {
        dst.ProcessRotation(&src, Angle);
        benchmark::ClobberMemory();
    }
    Bytes(state);
}

void BM_StretchHalf(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = MakeImage(point, line);
    CFrame src(img.data(), point, line, 14, 0, 0);
    CFrame dst(point / 2, line / 2, 14, 0, 0);
    for (auto _ : state) {
        dst.Stretch(&src, nullptr);
        benchmark::ClobberMemory();
    }
    Bytes(state);  // source bytes
}

void BM_StretchDouble(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = MakeImage(point, line);
    CFrame src(img.data(), point, line, 14, 0, 0);
    CFrame dst(point * 2, line * 2, 14, 0, 0);
    for (auto _ : state) {
        dst.Stretch(&src, nullptr);
        benchmark::ClobberMemory();
    }
    Bytes(state);  // source bytes
}

void BM_MappingApply(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = MakeImage(point, line);
    // A horizontal mirror: what a detector read out right to left needs.
    CMapping map(point, line);
    for (long y = 0; y < line; ++y)
        for (long x = 0; x < point; ++x) map.SetEntry(y * point + x, static_cast<int32_t>(y * point + point - 1 - x));
    for (auto _ : state) {
        map.Apply(img.data());
        benchmark::ClobberMemory();
    }
    Bytes(state);
}

}  // namespace

BENCHMARK(BM_Memcpy)->Apply(FrameSizes);
BENCHMARK(BM_Mask)->Apply(FrameSizes);
BENCHMARK(BM_MinMaxMean)->Apply(FrameSizes);
BENCHMARK(BM_StdDev)->Apply(FrameSizes);
BENCHMARK(BM_CalculateHisto14)->Apply(FrameSizes);
BENCHMARK(BM_MinMaxHisto14)->Apply(FrameSizes);
BENCHMARK(BM_RotateImage<90>)->Apply(FrameSizes);
BENCHMARK(BM_RotateImage<180>)->Apply(FrameSizes);
BENCHMARK(BM_RotateImage<270>)->Apply(FrameSizes);
BENCHMARK(BM_ProcessRotation<90>)->Apply(FrameSizes);
BENCHMARK(BM_ProcessRotation<270>)->Apply(FrameSizes);
BENCHMARK(BM_StretchHalf)->Apply(FrameSizes);
BENCHMARK(BM_StretchDouble)->Apply(FrameSizes);
BENCHMARK(BM_MappingApply)->Apply(FrameSizes);

BENCHMARK_MAIN();
