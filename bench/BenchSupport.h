#pragma once
// Shared pieces of the benchmarks: the two frame sizes, deterministic 14-bit
// test images and the memcpy baseline that every figure is read against.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "thermokit/platform/Dispatch.h"

namespace thermokit::bench {

// Frame sizes of the benchmarks: 640 x 512 and 1280 x 1024.
inline void FrameSizes(benchmark::internal::Benchmark* b) {
    b->Args({640, 512});
    b->Args({1280, 1024});
}

// A reproducible 14-bit image: a ramp with pseudo-random noise.
inline std::vector<uint16_t> MakeImage(int point, int line, uint16_t maxLevel = 0x3FFF) {
    std::vector<uint16_t> img(static_cast<size_t>(point) * static_cast<size_t>(line));
    uint32_t s = 12345;
    for (size_t i = 0; i < img.size(); ++i) {
        s = s * 1664525u + 1013904223u;
        img[i] = static_cast<uint16_t>(((i % static_cast<size_t>(point)) * 8 + (s >> 22)) & maxLevel);
    }
    return img;
}

// memcpy of `bytes` bytes: the memory-speed baseline of the same run.
inline void MemcpyBaseline(benchmark::State& state, size_t bytes) {
    std::vector<uint8_t> src(bytes, 1), dst(bytes);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// Registers fn once for every kernel variant this processor runs, named
// name/<variant> and run with that variant forced; configure sets the
// arguments (as ->Apply(...) would).
inline int RegisterVariants(const char* name, void (*fn)(benchmark::State&),
                            void (*configure)(benchmark::internal::Benchmark*)) {
    for (const std::string& isa : GetIsaList()) {
        auto* b = benchmark::RegisterBenchmark((std::string(name) + "/" + isa).c_str(), [fn, isa](benchmark::State& s) {
            SetIsa(isa.c_str());
            fn(s);
            SetIsa(nullptr);
        });
        configure(b);
    }
    return 0;
}

}  // namespace thermokit::bench

// THERMOKIT_BENCH_VARIANTS(BM_Something, ->Apply(FrameSizes)): BM_Something in every variant.
#define THERMOKIT_BENCH_VARIANTS(fn, ...)                  \
    static const int fn##_variants = thermokit::bench::RegisterVariants( \
        #fn, fn, [](benchmark::internal::Benchmark* b) { b __VA_ARGS__; })
