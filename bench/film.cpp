// Film reading frame by frame against plain pread of the same bytes, film
// appending, and the temporal mean's accumulation, each beside memcpy.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Parallel.h"

using namespace thermokit;

namespace {

constexpr unsigned short kPoint = 640;
constexpr unsigned short kLine = 512;
constexpr int kFrames = 1000;
constexpr size_t kRecord = 1016 + size_t(kPoint) * kLine * 2;

std::string TempDir() {
    const char* t = std::getenv("TMPDIR");
    return std::string(t && *t ? t : "/tmp") + "/";
}

// The 1,000-image 14-bit film of the reading benchmarks, made once.
const std::string& Film() {
    // Never destroyed, so that the exit handler can still remove the file.
    static const std::string& name = *[] {
        auto* n = new std::string(TempDir() + "thermokit_bench_film_" + std::to_string(::getpid()) + ".film");
        CPtr film(kPoint, kLine, 14, 0, 1, 0);
        film.SetFileName(*n);
        const auto img = bench::MakeImage(kPoint, kLine);
        CFrame* f = film.GetFrame();
        for (int k = 0; k < kFrames; ++k) {
            std::copy(img.begin(), img.end(), f->GetBuffer());
            f->GetBuffer()[0] = static_cast<unsigned short>(k);
            if (!film.AddFrame()) std::abort();
        }
        std::atexit([] { File::Remove(Film()); });
        return n;
    }();
    return name;
}

void BM_MemcpyRecord(benchmark::State& state) { bench::MemcpyBaseline(state, kRecord); }
BENCHMARK(BM_MemcpyRecord);

// Plain pread of each image record (image header and pixels) in order.
void BM_PreadRecords(benchmark::State& state) {
    const int fd = ::open(Film().c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<unsigned char> buf(kRecord);
    int k = 0;
    for (auto _ : state) {
        const off_t at = static_cast<off_t>(3476 + uint64_t(k) * kRecord);
        if (::pread(fd, buf.data(), kRecord, at) != static_cast<ssize_t>(kRecord)) std::abort();
        benchmark::DoNotOptimize(buf.data());
        k = (k + 1) % kFrames;
    }
    ::close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kRecord));
}
BENCHMARK(BM_PreadRecords);

// ReadNextFrame through the film (back to the first image at the end).
void BM_ReadNextFrame(benchmark::State& state) {
    CPtr film(Film(), 0, 0, 1);
    if (!film.IsValid() || !film.ReadFirstFrame()) std::abort();
    for (auto _ : state) {
        if (!film.ReadNextFrame() && !film.ReadFirstFrame()) std::abort();
        benchmark::DoNotOptimize(film.GetFrame()->GetBuffer());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kRecord));
}
BENCHMARK(BM_ReadNextFrame);

// AddFrame appending to a film (a fresh film every 1,000 images).
void BM_AddFrame(benchmark::State& state) {
    const std::string name = TempDir() + "thermokit_bench_add_" + std::to_string(::getpid()) + ".film";
    auto film = std::make_unique<CPtr>(kPoint, kLine, 14, 0, 1, 0);
    film->SetFileName(name);
    const auto img = bench::MakeImage(kPoint, kLine);
    std::copy(img.begin(), img.end(), film->GetFrame()->GetBuffer());
    for (auto _ : state) {
        if (film->GetFrameNumber() == kFrames) {
            state.PauseTiming();
            film->SetFrameNumber(0);
            File::Remove(name);
            state.ResumeTiming();
        }
        if (!film->AddFrame()) std::abort();
    }
    File::Remove(name);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kRecord));
}
BENCHMARK(BM_AddFrame);

void BM_MemcpyFrame(benchmark::State& state) {
    bench::MemcpyBaseline(state, size_t(state.range(0)) * size_t(state.range(1)) * 2);
}
BENCHMARK(BM_MemcpyFrame)->Apply(bench::FrameSizes);

// CAverage::Accumulate of 16-bit levels (input bytes per second).
void BM_AverageAccumulate(benchmark::State& state) {
    const auto point = static_cast<unsigned short>(state.range(0));
    const auto line = static_cast<unsigned short>(state.range(1));
    auto img = bench::MakeImage(point, line);
    CAverage avg(point, line, 14, 0);
    for (auto _ : state) {
        avg.Accumulate(img.data(), static_cast<long>(img.size()), 14, 1.0);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(img.size() * 2));
}
THERMOKIT_BENCH_VARIANTS(BM_AverageAccumulate, ->Apply(bench::FrameSizes));

// AccumulateFilm over the whole film (read, then added in order) on 1 and 2
// threads: the frame pipeline's gain (input bytes per second of wall time).
void BM_AccumulateFilm(benchmark::State& state) {
    SetThreadCount(static_cast<int>(state.range(0)));
    CPtr film(Film(), 0, 0, 0);
    CAverage avg(kPoint, kLine, 14, 0);
    for (auto _ : state) {
        avg.ClearCounter();
        if (!AccumulateFilm(film, avg)) std::abort();
    }
    SetThreadCount(0);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFrames * static_cast<int64_t>(kRecord));
}
BENCHMARK(BM_AccumulateFilm)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
