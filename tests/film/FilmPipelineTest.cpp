// Whole films on several threads: the same bytes whatever the thread count,
// frames written in order, and a run that stops cleanly at a bad frame.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "FilmTestSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"
#include "thermokit/platform/Parallel.h"

using namespace thermokit;

namespace {

constexpr unsigned short kPoint = 37, kLine = 29;
constexpr unsigned long kFrames = 23;

// A 14-bit film whose frames differ; some pixels carry bits above the depth.
std::string MakeFilm(const std::string& tag, int seed) {
    const std::string name = filmtest::TempName(tag);
    CPtr film(kPoint, kLine, 14, 0, 1, 0);
    film.SetFileName(name);
    uint32_t s = static_cast<uint32_t>(seed);
    for (unsigned long k = 0; k < kFrames; ++k) {
        unsigned short* p = film.GetFrame()->GetBuffer();
        for (long i = 0; i < film.GetSize(); ++i) {
            s = s * 1664525u + 1013904223u;
            p[i] = static_cast<unsigned short>(1000 + 40 * k + (s >> 24) + (i % 97 == 3 ? 0xC000 : 0));
        }
        film.GetFrame()->SetTime(0.25 * static_cast<double>(k));
        EXPECT_EQ(film.AddFrame(), 1);
    }
    return name;
}

// Everything the helpers compute from the films, as bytes.
std::vector<unsigned char> Results(const std::string& cold, const std::string& hot, const std::string& out) {
    std::vector<unsigned char> bytes;
    const auto keep = [&bytes](const void* p, size_t n) {
        bytes.insert(bytes.end(), static_cast<const unsigned char*>(p), static_cast<const unsigned char*>(p) + n);
    };
    const size_t n = size_t{kPoint} * kLine;
    CPtr film(cold, 0, 0, 0);
    CAverage avg(kPoint, kLine, 14, 0);
    EXPECT_EQ(AccumulateFilm(film, avg, 0.37, 2, 19), 1);
    keep(avg.GetDoubleBuffer(0), n * sizeof(double));
    CAverage mean(kPoint, kLine, 14, 0);
    CNoise noise(kPoint, kLine, 14, 0);
    EXPECT_EQ(NoiseFilm(film, mean, noise), 1);
    keep(noise.GetBuffer(), n * sizeof(double));
    CNuc nuc(kPoint, kLine);
    nuc.Update(cold.c_str(), hot.c_str(), 0, 0);
    keep(nuc.GetAlpha(), n * sizeof(float));
    keep(nuc.GetBeta(), n * sizeof(float));
    // Per-frame standard deviations, summed in frame order (not associative).
    double total = 0.0;
    std::vector<unsigned long> order;
    FilmPipeline pipe(film);
    EXPECT_EQ(pipe.Reduce<double>(
                  [](const FilmFrame& f) {
                      double sd = 0, m = 0;
                      StdDev(f.frame.GetBuffer(), f.frame.GetSize(), &sd, &m);
                      return sd * 1.1 + f.frame.GetTime();
                  },
                  [&](unsigned long k, double& sd) {
                      order.push_back(k);
                      total = total * 0.999 + sd;
                  }),
              1);
    EXPECT_EQ(order.size(), kFrames);
    for (size_t k = 0; k < order.size(); ++k) EXPECT_EQ(order[k], k);
    keep(&total, sizeof total);
    // A corrected copy of the film: each frame changed on its own, added in order.
    CPtr copy(kPoint, kLine, 14, 0, 1, 0);
    copy.SetFileName(out);
    copy.SetRecordingClock(nullptr);  // the same header bytes whenever the run starts
    EXPECT_EQ(FilmPipeline(film, 3).Run(
                  [&](FilmFrame& f) {
                      if (f.index % 4 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
                      nuc.Apply(f.frame.GetBuffer(), 0x3FFF, nullptr);
                      return true;
                  },
                  [&](FilmFrame& f) {
                      std::memcpy(copy.GetImageHeaderAddress(), f.header, sizeof f.header);
                      return copy.AddFrame(&f.frame) == 1;
                  }),
              1);
    const auto file = filmtest::ReadAll(out);
    bytes.insert(bytes.end(), file.begin(), file.end());
    return bytes;
}

}  // namespace

TEST(FilmPipeline, SameResultsForOneTwoAndSevenThreads) {
    const std::string cold = MakeFilm("cold", 1), hot = MakeFilm("hot", 2), out = filmtest::TempName("out");
    std::vector<unsigned char> first;
    for (int threads : {1, 2, 7}) {
        SetThreadCount(threads);
        EXPECT_EQ(GetThreadCount(), threads);
        const auto bytes = Results(cold, hot, out);
        if (first.empty()) first = bytes;
        EXPECT_TRUE(bytes == first) << threads << " threads";
        // The copy holds the frames from 3 on, in order, with their own times.
        CPtr copy(out, 0, 0, 0);
        EXPECT_EQ(copy.GetFrameNumber(), kFrames - 3);
        double t = 0;
        EXPECT_EQ(copy.ReadTime(kFrames - 4, t), 1);
        EXPECT_EQ(t, 0.25 * (kFrames - 1));
        File::Remove(out);
    }
    SetThreadCount(0);
    File::Remove(cold);
    File::Remove(hot);
}

TEST(FilmPipeline, StopsAtTheFirstBadFrameAndWritesNothingAfterIt) {
    const char* kCut = "cannot be read (the file is shorter than its header says)";
    const std::string name = MakeFilm("short", 3);
    CPtr film(name, 0, 0, 0);
    const uint64_t record = 1016 + uint64_t{kPoint} * kLine * 2;
    // Cut inside frame 17: the film still claims 23 frames.
    ASSERT_EQ(::truncate(name.c_str(), static_cast<off_t>(3476 + 17 * record + 100)), 0);
    for (int threads : {1, 2, 7}) {
        SetThreadCount(threads);
        MessageRecorder messages;
        std::vector<unsigned long> written;
        FilmPipeline pipe(film);
        EXPECT_EQ(pipe.Run({}, [&](FilmFrame& f) {
            written.push_back(f.index);
            return true;
        }), 0);
        EXPECT_EQ(pipe.GetFramesDone(), 17u);
        EXPECT_EQ(written.size(), 17u);
        EXPECT_EQ(pipe.GetLastError(), "file " + name + ": frame 17 " + kCut);
        EXPECT_EQ(messages.Count(), 1u);  // the reader's message, once
        // A stage that refuses a frame stops the run there too.
        written.clear();
        FilmPipeline refuse(film, 2, 10);
        EXPECT_EQ(refuse.Run(
                      [](FilmFrame& f) {
                          if (f.index == 6) f.error = "frame 6 refused";
                          return f.index != 6;
                      },
                      [&](FilmFrame& f) {
                          written.push_back(f.index);
                          return true;
                      }),
                  0);
        EXPECT_EQ(written, (std::vector<unsigned long>{2, 3, 4, 5}));
        EXPECT_EQ(refuse.GetLastError(), "frame 6 refused");
        // Every fourth frame from 1: 1, 5, 9, 13 are read, 17 is cut.
        written.clear();
        FilmPipeline stepped(film, 1, ULONG_MAX, 4);
        EXPECT_EQ(stepped.GetCount(), 6u);
        EXPECT_EQ(stepped.Run({}, [&](FilmFrame& f) {
            written.push_back(f.index);
            return true;
        }), 0);
        EXPECT_EQ(written, (std::vector<unsigned long>{1, 5, 9, 13}));
        EXPECT_EQ(stepped.GetLastError(), "file " + name + ": frame 17 " + kCut);
        // A list goes in its own order; a frame beyond the film fails as one cut off.
        written.clear();
        FilmPipeline listed(film, {9, 2, 40, 3});
        listed.NameFilm("cut.film");
        EXPECT_EQ(listed.Run({}, [&](FilmFrame& f) {
            written.push_back(f.index * 100 + f.item);
            return true;
        }), 0);
        EXPECT_EQ(written, (std::vector<unsigned long>{900, 201}));
        EXPECT_EQ(listed.GetLastError(), std::string("file cut.film: frame 40 ") + kCut);
        // A mean over a cut film keeps the frames before the cut.
        CAverage avg(kPoint, kLine, 14, 0);
        EXPECT_EQ(AccumulateFilm(film, avg), 0);
        EXPECT_EQ(avg.GetFrame(), 17u);
    }
    SetThreadCount(0);
    // Frames past the end, and an average of another size, are refused without reading.
    FilmPipeline none(film, 40);
    EXPECT_EQ(none.GetCount(), 0u);
    EXPECT_EQ(none.Run({}, {}), 1);
    CAverage other(kPoint + 1, kLine, 14, 0);
    EXPECT_EQ(AccumulateFilm(film, other), 0);
    EXPECT_EQ(other.GetFrame(), 0u);
    File::Remove(name);
}
