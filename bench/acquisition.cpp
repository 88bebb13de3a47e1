// Acquisition hot paths: lock-in accumulation, the banked disk writer beside
// a plain direct-write loop of the same block size, the two-process mailbox,
// and recording a camera (Aravis' fake camera) through the bank writer, each
// beside memcpy of the same bytes.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#ifdef THERMOKIT_HAVE_ARAVIS
#include "thermokit/acquisition/CGenICamSource.h"
#endif
#include "thermokit/acquisition/CLockin.h"
#include "thermokit/acquisition/CRecorder.h"
#include "thermokit/acquisition/CSharedMemory.h"
#include "thermokit/film/CStreamFile.h"
#include "thermokit/platform/AlignedBuffer.h"

using namespace thermokit;

namespace {

constexpr unsigned long kBank = 4ul << 20;        // 4 MiB banks and direct blocks
constexpr int64_t kPass = int64_t{128} << 20;     // bytes written per iteration

std::string TempFile(const char* tag) {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/thermokit_bench_" + tag + "_" + std::to_string(getpid());
}

// ---- memcpy of the levels of one frame ----
void BM_Memcpy(benchmark::State& state) {
    bench::MemcpyBaseline(state, static_cast<size_t>(state.range(0) * state.range(1)) * 2);
}
BENCHMARK(BM_Memcpy)->Apply(bench::FrameSizes);

// ---- CLockin::Accumulate: bytes = the frame's levels; every kernel variant ----
void BM_LockinAccumulate(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    auto img = bench::MakeImage(point, line);
    CLockin l(static_cast<unsigned short>(point), static_cast<unsigned short>(line), 14, 0);
    double angle = 0;
    for (auto _ : state) {
        l.Accumulate(img.data(), point * line, angle, nullptr);
        angle += 0.1;
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(l.GetReal());  // the sums complete
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * point * line * 2);
}
THERMOKIT_BENCH_VARIANTS(BM_LockinAccumulate, ->Apply(bench::FrameSizes));

// ---- direct writes: a plain O_DIRECT loop of 4 MiB blocks ----
void BM_DirectWriteLoop(benchmark::State& state) {
    const std::string name = TempFile("direct");
    const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_DIRECT, 0644);
    if (fd < 0) {
        state.SkipWithError("no direct writes here");
        return;
    }
    AlignedBuffer<unsigned char> block(kBank, 4096);
    std::memset(block.data(), 0x5A, kBank);
    for (auto _ : state) {
        for (int64_t at = 0; at < kPass; at += static_cast<int64_t>(kBank))
            if (pwrite(fd, block.data(), kBank, at) != static_cast<ssize_t>(kBank)) state.SkipWithError("write failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kPass);
    close(fd);
    unlink(name.c_str());
}
BENCHMARK(BM_DirectWriteLoop)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- CStreamFile: 1280 x 1024 frames through 8 banks of 4 MiB ----
void BM_StreamFileSustained(benchmark::State& state) {
    const std::string name = TempFile("stream");
    auto frame = bench::MakeImage(1280, 1024);
    const unsigned long bytes = static_cast<unsigned long>(frame.size() * 2);
    CStreamFile s;
    s.SetBankNumber(8);
    if (!s.OpenFile(name, kBank)) {
        state.SkipWithError("cannot open");
        return;
    }
    for (auto _ : state) {
        unsigned long written = 0;
        for (int64_t at = 0; at < kPass; at += bytes) s.Write(frame.data(), bytes, &written);
        s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN);  // waits until every bank is on disk
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * ((kPass + bytes - 1) / bytes) * bytes);
    state.SetLabel(s.IsDirect() ? "direct" : "buffered");
    if (s.GetError()) state.SkipWithError("background write failed");
    s.CloseFile();
    unlink(name.c_str());
}
BENCHMARK(BM_StreamFileSustained)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- both, alternating pass by pass, so that the ratio survives a busy disk ----
void BM_StreamFileVsDirectPaired(benchmark::State& state) {
    const std::string directName = TempFile("paired_direct"), streamName = TempFile("paired_stream");
    const int fd = open(directName.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_DIRECT, 0644);
    CStreamFile s;
    s.SetBankNumber(8);
    if (fd < 0 || !s.OpenFile(streamName, kBank)) {
        state.SkipWithError("cannot open");
        if (fd >= 0) close(fd);
        return;
    }
    // The plain loop writes from an ordinary aligned buffer (4 KiB pages, as
    // fio does by default); a second loop writes from a huge-page buffer,
    // the memory the writer's banks use.
    AlignedBuffer<unsigned char> block(kBank, 4096);
    std::memset(block.data(), 0x5A, kBank);
    const size_t huge = size_t{2} << 20;
    void* raw = mmap(nullptr, kBank + huge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* hugeBlock = static_cast<unsigned char*>(raw) + (huge - reinterpret_cast<uintptr_t>(raw) % huge) % huge;
    madvise(hugeBlock, kBank, MADV_HUGEPAGE);
    std::memset(hugeBlock, 0x5A, kBank);
    auto frame = bench::MakeImage(1280, 1024);
    const unsigned long bytes = static_cast<unsigned long>(frame.size() * 2);
    const int64_t streamBytes = (kPass + bytes - 1) / bytes * bytes;
    double directSeconds = 0, hugeSeconds = 0, streamSeconds = 0;
    using Clock = std::chrono::steady_clock;
    for (auto _ : state) {
        auto t0 = Clock::now();
        for (int64_t at = 0; at < kPass; at += static_cast<int64_t>(kBank))
            if (pwrite(fd, block.data(), kBank, at) != static_cast<ssize_t>(kBank)) state.SkipWithError("write failed");
        auto t1 = Clock::now();
        for (int64_t at = 0; at < kPass; at += static_cast<int64_t>(kBank))
            if (pwrite(fd, hugeBlock, kBank, at) != static_cast<ssize_t>(kBank)) state.SkipWithError("write failed");
        auto t2 = Clock::now();
        unsigned long written = 0;
        for (int64_t at = 0; at < kPass; at += bytes) s.Write(frame.data(), bytes, &written);
        s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN);  // every bank on disk
        auto t3 = Clock::now();
        directSeconds += std::chrono::duration<double>(t1 - t0).count();
        hugeSeconds += std::chrono::duration<double>(t2 - t1).count();
        streamSeconds += std::chrono::duration<double>(t3 - t2).count();
    }
    munmap(raw, kBank + huge);
    const double n = static_cast<double>(state.iterations());
    const double stream = static_cast<double>(streamBytes) / streamSeconds;
    state.counters["direct_GBps"] = n * static_cast<double>(kPass) / directSeconds / 1e9;
    state.counters["direct_huge_GBps"] = n * static_cast<double>(kPass) / hugeSeconds / 1e9;
    state.counters["stream_GBps"] = n * stream / 1e9;
    state.counters["stream_over_direct"] = stream / (static_cast<double>(kPass) / directSeconds);
    state.counters["stream_over_direct_huge"] = stream / (static_cast<double>(kPass) / hugeSeconds);
    state.SetLabel(s.IsDirect() ? "direct" : "buffered");
    s.CloseFile();
    close(fd);
    unlink(directName.c_str());
    unlink(streamName.c_str());
}
BENCHMARK(BM_StreamFileVsDirectPaired)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(12);

// ---- how long Write holds the caller while banks are free ----
void BM_StreamFileWriteWhileBanksFree(benchmark::State& state) {
    const std::string name = TempFile("free");
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    auto frame = bench::MakeImage(point, line);
    const unsigned long bytes = static_cast<unsigned long>(frame.size() * 2);
    CStreamFile s;
    s.SetBankNumber(16);
    if (!s.OpenFile(name, kBank)) {
        state.SkipWithError("cannot open");
        return;
    }
    uint64_t sinceDrain = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        unsigned long written = 0;
        s.Write(frame.data(), bytes, &written);
        const auto t1 = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
        sinceDrain += bytes;
        if (sinceDrain > 8 * kBank) {  // keep banks free: drain outside the measured time
            s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN);
            sinceDrain = 0;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
    s.CloseFile();
    unlink(name.c_str());
}
BENCHMARK(BM_StreamFileWriteWhileBanksFree)->Apply(bench::FrameSizes)->UseManualTime();

// ---- the mailbox: 640 x 512 x 2-byte blocks to another process ----
void BM_SharedMemoryBlocks(benchmark::State& state) {
    static int run = 0;
    const std::string name = "tkbench_" + std::to_string(getpid()) + "_" + std::to_string(run++);
    const int size = 640 * 512 * 2;
    const pid_t child = fork();
    if (child == 0) {
        CSharedMemory m;
        bool open = false;
        for (int i = 0; i < 2000 && !open; ++i) open = m.Open(name.c_str(), size, 200);
        if (!open) _exit(1);
        std::vector<unsigned char> in(static_cast<size_t>(size));
        for (;;) {
            if (m.Read(in.data(), size, 10000) != 0) _exit(2);
            uint32_t mark = 0;
            std::memcpy(&mark, in.data(), 4);
            if (mark == 0xFFFFFFFFu) break;
        }
        m.Close();
        _exit(0);
    }
    CSharedMemory m;
    bool open = false;
    for (int i = 0; i < 2000 && !open; ++i) open = m.Open(name.c_str(), size, 200);
    std::vector<unsigned char> block(static_cast<size_t>(size), 1);
    if (!open) {
        state.SkipWithError("the mailbox did not open");
    } else {
        for (auto _ : state)
            if (m.Write(block.data(), size, 10000) != 0) state.SkipWithError("write failed");
        const uint32_t stop = 0xFFFFFFFFu;
        std::memcpy(block.data(), &stop, 4);
        m.Write(block.data(), size, 10000);
    }
    waitpid(child, nullptr, 0);
    m.Close();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}
BENCHMARK(BM_SharedMemoryBlocks)->UseRealTime();

}  // namespace

#ifdef THERMOKIT_HAVE_ARAVIS
// ---- a camera recorded into a film: Aravis' in-process fake camera, Mono16 ----
// The time is what the recorder spends putting frames into the banks (image
// header, then the pixels straight from the camera's buffer); the camera's
// own work and waiting for its frames are not counted. bytes_copied_per_frame
// is what went into the banks per frame: one image record, so the pixels are
// copied once. Compare the bytes/s with BM_Memcpy of the same frame size.
void BM_RecordFakeCamera(benchmark::State& state) {
    const int point = static_cast<int>(state.range(0)), line = static_cast<int>(state.range(1));
    const std::string name = TempFile("camera");
    CGenICamSource::EnableFakeCamera(true);
    CGenICamSource camera;
    SOURCE_SETTINGS settings;
    settings.nBits = 16;
    settings.dRate = 1000;
    settings.roi = CRect(0, 0, point, line);
    if (!camera.Open("Fake_1", settings)) {
        state.SkipWithError(camera.GetLastErrorMessage().c_str());
        return;
    }
    constexpr unsigned long kFrames = 40;
    uint64_t frames = 0, copied = 0, lost = 0;
    for (auto _ : state) {
        CRecorder recorder;
        recorder.SetCount(kFrames);
        recorder.SetBanks(8, kBank);
        if (!recorder.Record(camera, name.c_str())) {
            state.SkipWithError(recorder.GetLastErrorMessage().c_str());
            break;
        }
        const RECORD_STATUS& s = recorder.GetStatus();
        state.SetIterationTime(s.dWriteSeconds);
        frames += s.nFrames;
        copied += s.nBytesCopied - 3476;  // the file header, once a film
        lost += s.source.Lost();
    }
    state.SetItemsProcessed(static_cast<int64_t>(frames));
    state.SetBytesProcessed(static_cast<int64_t>(frames) * point * line * 2);
    state.counters["bytes_copied_per_frame"] = frames ? static_cast<double>(copied) / static_cast<double>(frames) : 0.0;
    state.counters["frames_lost"] = static_cast<double>(lost);
    unlink(name.c_str());
}
BENCHMARK(BM_RecordFakeCamera)->Apply(bench::FrameSizes)->UseManualTime()->Iterations(10);
#endif

BENCHMARK_MAIN();
