// The simulated camera: frames taken per second, as output bytes per second,
// beside a memcpy of the same bytes. One thread and two (the results are the
// same; only the time differs).
#include <benchmark/benchmark.h>

#include <vector>

#include "BenchSupport.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimScene.h"

using namespace thermokit;

namespace {

size_t Pixels(const benchmark::State& state) {
    return static_cast<size_t>(state.range(0)) * static_cast<size_t>(state.range(1));
}

void BM_Memcpy(benchmark::State& state) {
    thermokit::bench::MemcpyBaseline(state, Pixels(state) * sizeof(unsigned short));
}

void Capture(benchmark::State& state, unsigned threads, const CSimScene& scene) {
    CSimDetector::Config cfg;
    cfg.point = static_cast<unsigned short>(state.range(0));
    cfg.line = static_cast<unsigned short>(state.range(1));
    cfg.threads = threads;
    cfg.deadCount = cfg.hotCount = cfg.noisyCount = 50;
    CSimDetector det(cfg);
    std::vector<unsigned short> levels(Pixels(state));
    unsigned long k = 0;
    for (auto _ : state) {
        det.Capture(scene, k++, levels.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(Pixels(state) * sizeof(unsigned short)));
    state.counters["frames/s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_CaptureUniform1(benchmark::State& state) { Capture(state, 1, CSimScene::Uniform(30.0)); }
void BM_CaptureUniform2(benchmark::State& state) { Capture(state, 2, CSimScene::Uniform(30.0)); }
void BM_CapturePlate2(benchmark::State& state) {
    CSimScene::PlateParams p;
    p.moveX = 1.0;
    Capture(state, 2, CSimScene::Plate(p));
}

}  // namespace

BENCHMARK(BM_Memcpy)->Apply(thermokit::bench::FrameSizes);
BENCHMARK(BM_CaptureUniform1)->Apply(thermokit::bench::FrameSizes)->UseRealTime();
BENCHMARK(BM_CaptureUniform2)->Apply(thermokit::bench::FrameSizes)->UseRealTime();
BENCHMARK(BM_CapturePlate2)->Apply(thermokit::bench::FrameSizes)->UseRealTime();

BENCHMARK_MAIN();
