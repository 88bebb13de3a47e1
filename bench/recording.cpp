// Recording a film through the bank ring (CPtr2: create, append every frame,
// close with the final header) beside a plain O_DIRECT loop writing the same
// bytes into a new file, and beside memcpy of one image record.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "BenchSupport.h"
#include "thermokit/film/CPtr2.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/AlignedBuffer.h"

using namespace thermokit;

namespace {

constexpr unsigned long kBank = 4ul << 20;     // 4 MiB banks and direct blocks
constexpr int kBanks = 8;
constexpr int64_t kFilm = int64_t{128} << 20;  // bytes of images in one recorded film

std::string TempFile(const char* tag) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/thermokit_bench_" + tag + "_" + std::to_string(getpid());
}

int64_t RecordBytes(int point, int line) { return 1016 + int64_t{point} * line * 2; }
long FramesPerFilm(int point, int line) { return static_cast<long>(kFilm / RecordBytes(point, line)); }

// ---- memcpy of one image record (image header + pixels) ----
void BM_Memcpy(benchmark::State& state) {
    bench::MemcpyBaseline(state, static_cast<size_t>(RecordBytes(static_cast<int>(state.range(0)),
                                                                 static_cast<int>(state.range(1)))));
}
BENCHMARK(BM_Memcpy)->Apply(bench::FrameSizes);

// One whole recording; false when the film could not be written.
bool RecordFilm(const std::string& name, CFrame& frame, long frames) {
    CPtr2 film(frame.GetPoint(), frame.GetLine(), 14, 0, 1, 0);
    if (!film.Create(name.c_str(), kBank, kBanks)) return false;
    for (long k = 0; k < frames; ++k) {
        frame.SetTime(static_cast<double>(k) * 0.01);
        if (!film.AddFrame(&frame)) return false;
    }
    return film.Close() == 1;
}

// The same bytes as a recorded film, 4 MiB blocks written directly into a new file.
bool DirectLoop(const std::string& name, const unsigned char* block, int64_t bytes) {
    const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_DIRECT, 0644);
    if (fd < 0) return false;
    bool ok = true;
    for (int64_t at = 0; at < bytes && ok; at += static_cast<int64_t>(kBank))
        ok = pwrite(fd, block, kBank, at) == static_cast<ssize_t>(kBank);
    close(fd);
    return ok;
}

// ---- CPtr2: a film of 128 MiB of images, bytes = the film's length ----
void BM_Ptr2Recording(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    const std::string name = TempFile("ptr2");
    auto image = bench::MakeImage(point, line);
    CFrame frame(static_cast<unsigned short>(point), static_cast<unsigned short>(line), 14, 0, 1);
    std::memcpy(frame.GetBuffer(), image.data(), image.size() * 2);
    const long frames = FramesPerFilm(point, line);
    for (auto _ : state)
        if (!RecordFilm(name, frame, frames)) state.SkipWithError("recording failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (3476 + frames * RecordBytes(point, line)));
    unlink(name.c_str());
}
BENCHMARK(BM_Ptr2Recording)->Apply(bench::FrameSizes)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- the same bytes through a plain direct loop ----
void BM_DirectLoopNewFile(benchmark::State& state) {
    const std::string name = TempFile("ptr2_direct");
    AlignedBuffer<unsigned char> block(kBank, 4096);
    std::memset(block.data(), 0x5A, kBank);
    for (auto _ : state)
        if (!DirectLoop(name, block.data(), kFilm)) state.SkipWithError("no direct writes here");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFilm);
    unlink(name.c_str());
}
BENCHMARK(BM_DirectLoopNewFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- both, alternating film by film, so that the ratio survives a busy disk ----
void BM_Ptr2VsDirectPaired(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    const std::string filmName = TempFile("paired_ptr2"), directName = TempFile("paired_plain");
    auto image = bench::MakeImage(point, line);
    CFrame frame(static_cast<unsigned short>(point), static_cast<unsigned short>(line), 14, 0, 1);
    std::memcpy(frame.GetBuffer(), image.data(), image.size() * 2);
    AlignedBuffer<unsigned char> block(kBank, 4096);
    std::memset(block.data(), 0x5A, kBank);
    const long frames = FramesPerFilm(point, line);
    const int64_t filmBytes = 3476 + frames * RecordBytes(point, line);
    using Clock = std::chrono::steady_clock;
    double filmSeconds = 0, directSeconds = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        if (!RecordFilm(filmName, frame, frames)) state.SkipWithError("recording failed");
        const auto t1 = Clock::now();
        if (!DirectLoop(directName, block.data(), filmBytes)) state.SkipWithError("no direct writes here");
        const auto t2 = Clock::now();
        filmSeconds += std::chrono::duration<double>(t1 - t0).count();
        directSeconds += std::chrono::duration<double>(t2 - t1).count();
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["film_GBps"] = n * static_cast<double>(filmBytes) / filmSeconds / 1e9;
    state.counters["direct_GBps"] = n * static_cast<double>(filmBytes) / directSeconds / 1e9;
    state.counters["film_over_direct"] = directSeconds / filmSeconds;
    unlink(filmName.c_str());
    unlink(directName.c_str());
}
BENCHMARK(BM_Ptr2VsDirectPaired)->Apply(bench::FrameSizes)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(8);

}  // namespace

BENCHMARK_MAIN();
