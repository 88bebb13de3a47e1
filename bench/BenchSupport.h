#pragma once
// Shared pieces of the benchmarks: the two frame sizes, deterministic 14-bit
// test images and the memcpy baseline that every figure is read against.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

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

}  // namespace thermokit::bench
