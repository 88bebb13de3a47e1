// Lock-in results saved as films, and the record and lockin commands run as
// processes: a recorded film read back, and a film of known sinusoids
// demodulated into the amplitude and phase they were made with.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/Png.h"
#include "support/ToolRun.h"
#if !defined(_WIN32)
#include "support/ChildProcess.h"
#endif
#include "thermokit/acquisition/CLockin.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"

using namespace thermokit;
using thermokit::test::RunTool;

namespace {

// Saving a film reads the camera configuration: keep it in private stores.
const bool kPrivateStores = thermokit::test::UsePrivateStores();

std::string TempName(const std::string& tag) { return thermokit::test::TempPath("recording_" + tag); }

// Difference of two angles in degrees, brought into [-180, 180).
double AngleDiff(double a, double b) {
    double d = std::fmod(a - b, 360.0);
    if (d < -180.0) d += 360.0;
    if (d >= 180.0) d -= 360.0;
    return d;
}

// The synthetic lock-in film: pixel (x, y) of frame k is
// 8000 + A(x) cos(2 pi F k / R - phi(y)), rounded, with A(x) = 200 + 100 x and
// phi(y) = -160 + 40 y degrees.
constexpr unsigned short kPoint = 12, kLine = 9;
constexpr double kRate = 50.0, kFrequency = 5.0;
constexpr unsigned kFrames = 100;  // ten whole periods
double Amplitude(int x) { return 200.0 + 100.0 * x; }
double PhaseDeg(int y) { return -160.0 + 40.0 * y; }

void MakeLockinFilm(const std::string& name, float rate) {
    CPtr film(kPoint, kLine, 14, 0, 1, 0);
    film.SetFramePeriod(rate > 0 ? 1.0f / rate : 0.0f);
    film.SetFileName(name);
    ASSERT_EQ(film.WriteHeader(), 1);
    for (unsigned k = 0; k < kFrames; ++k) {
        for (int y = 0; y < kLine; ++y)
            for (int x = 0; x < kPoint; ++x) {
                const double v = 8000.0 + Amplitude(x) * std::cos(2 * M_PI * kFrequency * k / kRate - PhaseDeg(y) * M_PI / 180);
                film.GetFrame()->SetPixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y),
                                          static_cast<unsigned short>(std::lround(v)));
            }
        film.GetFrame()->SetTime(100.0 + k / kRate);
        ASSERT_EQ(film.AddFrame(static_cast<CFrame*>(nullptr)), 1);
    }
}

}  // namespace

// Results are saved only once calculated, and a new frame makes them stale
// again; the saved films hold exactly the result arrays, as doubles.
TEST(LockinSave, ResultsAreSavedOnlyOnceCalculated) {
    const unsigned short point = 7, line = 5;
    const long n = point * line;
    CLockin lockin(point, line, 14, 0);
    const std::string module = TempName("module") + ".film", phase = TempName("phase") + ".film";
    EXPECT_EQ(lockin.SaveModule(module.c_str(), "DL", "m"), 0);  // nothing accumulated
    EXPECT_EQ(lockin.SavePhase(phase.c_str(), "deg", "p"), 0);
    std::vector<unsigned short> levels(static_cast<size_t>(n));
    for (unsigned k = 0; k < 8; ++k) {
        for (long i = 0; i < n; ++i) levels[static_cast<size_t>(i)] = static_cast<unsigned short>(1000 + 37 * i + 101 * ((k + i) % 8));
        ASSERT_EQ(lockin.Accumulate(levels.data(), static_cast<int32_t>(n), 2 * M_PI * k / 8, nullptr), 1);
    }
    EXPECT_EQ(lockin.SaveModule(module.c_str(), "DL", "m"), 0);  // accumulated, not yet calculated
    EXPECT_FALSE(File::Exists(module));
    const double* m = lockin.GetModule(CLockin::FILTER_NONE, 0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(lockin.SavePhase(phase.c_str(), "deg", "p"), 0);  // the module alone is done
    const double* p = lockin.GetPhase(CLockin::FILTER_MEDIAN, 0);
    ASSERT_NE(p, nullptr);
    lockin.SetTime(3723.5);
    ASSERT_EQ(lockin.SaveModule(module.c_str(), "DL", "module comment"), 1);
    ASSERT_EQ(lockin.SavePhase(phase.c_str(), "deg", "phase comment"), 1);

    for (const auto& [name, data] : {std::pair{module, m}, std::pair{phase, p}}) {
        CPtrFloat film(name, 0, 0, 1);
        ASSERT_TRUE(film.IsValid()) << name;
        EXPECT_EQ(film.GetFrameNumber(), 1u);
        EXPECT_EQ(film.GetPoint(), point);
        EXPECT_EQ(film.GetLine(), line);
        EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(3476 + 1016 + 8 * n));
        std::vector<double> back(static_cast<size_t>(n));
        ASSERT_EQ(film.ReadFrame(0, back.data(), static_cast<unsigned long>(n)), 1);
        EXPECT_EQ(std::memcmp(back.data(), data, static_cast<size_t>(n) * sizeof(double)), 0) << name;
        double t = 0;
        ASSERT_EQ(film.ReadTime(0, t), 1);
        EXPECT_NEAR(t, 3723.5, 1e-6);
    }
    EXPECT_EQ(CPtrFloat(module, 0, 0, 1).GetComment(), "module comment");
    EXPECT_EQ(CPtrFloat(phase, 0, 0, 1).GetSpecialUnitName(), "deg");

    // One more frame: both results are stale until asked for again.
    ASSERT_EQ(lockin.Accumulate(levels.data(), static_cast<int32_t>(n), 0.3, nullptr), 1);
    EXPECT_EQ(lockin.SaveModule(module.c_str(), "DL", "m"), 0);
    EXPECT_EQ(lockin.SavePhase(phase.c_str(), "deg", "p"), 0);
    std::remove(module.c_str());
    std::remove(phase.c_str());
}

// thermokit record from the simulated camera: the film holds the frames
// asked for at the rate asked for, the pattern moves two pixels a frame, the
// report names its figures; Ctrl-C ends a recording with a valid film.
TEST(RecordCommand, WritesTheMovingPatternAtTheRate) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    const std::string name = TempName("record") + ".film";
    std::string out;
    ASSERT_EQ(RunTool("record -o " + name + " --count 20 --size 64x48 --bits 12 --rate 500 --banks 3 --bank-size 8192", out), 0)
        << out;
    EXPECT_NE(out.find("sustained: "), std::string::npos) << out;
    EXPECT_NE(out.find("longest blocked Write: "), std::string::npos) << out;
    EXPECT_NE(out.find("frames lost: 0 (0 incomplete, 0 missing from the stream)"), std::string::npos) << out;
    EXPECT_NE(out.find("bank waits: "), std::string::npos) << out;
    CPtr film(name, 0, 0, 1);
    ASSERT_TRUE(film.IsValid());
    ASSERT_EQ(film.GetFrameNumber(), 20u);
    EXPECT_EQ(film.GetPoint(), 64);
    EXPECT_EQ(film.GetLine(), 48);
    EXPECT_EQ(film.GetBit(), 12);
    EXPECT_NEAR(film.GetFrameRate(), 500.0, 0.01);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(3476 + 20 * (1016 + 64 * 48 * 2)));
    CFrame previous(64, 48, 12, 0, 1);
    double previousTime = 0;
    unsigned short lo = 0xFFFF, hi = 0;
    for (unsigned k = 0; k < 20; ++k) {
        ASSERT_EQ(film.ReadFrame(k), 1);
        CFrame* f = film.GetFrame();
        unsigned short mean = 0, fmin = 0, fmax = 0;
        f->GetMinMax(&fmin, &fmax, &mean);
        lo = std::min(lo, fmin);
        hi = std::max(hi, fmax);
        if (k > 0) {
            EXPECT_NEAR(f->GetTime() - previousTime, 0.002, 2e-6) << "frame " << k;
            int moved = 0;
            for (unsigned short y = 0; y < 48; ++y)
                for (unsigned short x = 0; x + 2 < 64; ++x) moved += f->GetPixel(x, y) == previous.GetPixel(x + 2, y);
            EXPECT_EQ(moved, 62 * 48) << "frame " << k;
        }
        previous.Copy(f);
        previousTime = f->GetTime();
    }
    EXPECT_EQ(lo, 0);
    EXPECT_EQ(hi, 4095);  // the wave spans the whole depth
    std::remove(name.c_str());

    // Bad requests: usage errors, and a file that cannot be made.
    EXPECT_EQ(RunTool("record -o " + name + " --count 2 --size 0x48", out), 2) << out;
    EXPECT_NE(out.find("--size 0x48"), std::string::npos) << out;
    EXPECT_EQ(RunTool("record -o " + name + " --count 2 --size 64", out), 2) << out;
    EXPECT_EQ(RunTool("record -o " + name + " --count 2 --bits 17", out), 2) << out;
    EXPECT_EQ(RunTool("record -o " + name + " --count 0", out), 2) << out;
    EXPECT_EQ(RunTool("record -o " + name + " --rate 10", out), 2) << out;  // no length
    EXPECT_EQ(RunTool("record -o " + name + " --count 2 --roi 60,0,8,8 --size 64x48", out), 2) << out;
    EXPECT_NE(out.find("outside the simulated sensor (64 x 48)"), std::string::npos) << out;
    EXPECT_FALSE(File::Exists(name));
    const std::string nowhere = ::testing::TempDir() + "no_such_directory_tk/x.film";
    EXPECT_EQ(RunTool("record -o " + nowhere + " --count 2 --size 8x8", out), 1) << out;
    EXPECT_NE(out.find("file " + nowhere), std::string::npos) << out;

#if !defined(_WIN32)  // Ctrl-C reaches a program through its console; under Wine here it has none
    // Interrupted once frames reach the disk: every frame taken is in the film.
    const std::string outFile = TempName("interrupted.txt");
    thermokit::test::ChildProcess tool({THERMOKIT_TOOL_PATH, "record", "-o", name, "--duration", "60", "--size",
                                        "64x48", "--rate", "200", "--banks", "2", "--bank-size", "8192"},
                                       outFile);
    const std::string folder = name.substr(0, name.find_last_of('/') + 1);
    const std::string part = "." + name.substr(folder.size()) + ".part";
    bool flowing = false;
    for (int i = 0; i < 1000 && !flowing; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        for (const auto& e : std::filesystem::directory_iterator(folder))
            flowing |= e.path().filename().string().rfind(part, 0) == 0 && e.file_size() > 8192;
    }
    ASSERT_TRUE(flowing);
    tool.Signal(SIGINT);
    ASSERT_EQ(tool.Wait(30), 0);
    const std::vector<uint8_t> report = thermokit::test::ReadAll(outFile);
    const std::string text(report.begin(), report.end());
    CPtr kept(name, 0, 0, 1);
    ASSERT_TRUE(kept.IsValid()) << text;
    EXPECT_GE(kept.GetFrameNumber(), 2u);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(3476 + kept.GetFrameNumber() * (1016 + 64 * 48 * 2)));
    EXPECT_NE(text.find("interrupted: " + name + " keeps the " + std::to_string(kept.GetFrameNumber()) + " frames"),
              std::string::npos) << text;
    std::remove(name.c_str());
    std::remove(outFile.c_str());
#endif
}


// thermokit lockin on a film of known sinusoids: the module is half the
// amplitude (the sums over whole periods), the phase is the source's phase
// minus 90 degrees; the frame rate comes from the film unless given.
TEST(LockinCommand, RecoversAmplitudeAndPhaseOfKnownSinusoids) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    const std::string film = TempName("sine") + ".film";
    MakeLockinFilm(film, static_cast<float>(kRate));
    const std::string prefix = TempName("result");
    std::string out;
    ASSERT_EQ(RunTool("lockin " + film + " --frequency 5 -o " + prefix, out), 0) << out;

    CPtrFloat module(prefix + "_module.film", 0, 0, 1), phase(prefix + "_phase.film", 0, 0, 1);
    ASSERT_TRUE(module.IsValid());
    ASSERT_TRUE(phase.IsValid());
    ASSERT_EQ(module.ReadFrame(0UL, static_cast<CFrame*>(nullptr)), 1);
    ASSERT_EQ(phase.ReadFrame(0UL, static_cast<CFrame*>(nullptr)), 1);
    const double* m = module.GetDoubleBuffer();
    const double* p = phase.GetDoubleBuffer();
    for (int y = 0; y < kLine; ++y)
        for (int x = 0; x < kPoint; ++x) {
            const size_t i = static_cast<size_t>(y) * kPoint + x;
            EXPECT_NEAR(m[i], Amplitude(x) / 2, 0.5) << x << "," << y;
            EXPECT_NEAR(AngleDiff(p[i], PhaseDeg(y) - 90.0), 0.0, 0.5) << x << "," << y;
            EXPECT_GE(p[i], -180.0);
            EXPECT_LE(p[i], 180.0);
        }
    for (const char* suffix : {"_module.png", "_phase.png"}) {
        const thermokit::test::Picture picture = thermokit::test::ReadPng(prefix + suffix);
        EXPECT_EQ(picture.width, kPoint) << suffix;
        EXPECT_EQ(picture.height, kLine) << suffix;
    }

    // The low-pass filter: the module grows linearly along x, so interior
    // pixels keep it and the first column takes the second's value.
    ASSERT_EQ(RunTool("lockin " + film + " --frequency 5 --filter lowpass -o " + prefix, out), 0) << out;
    {
        CPtrFloat filtered(prefix + "_module.film", 0, 0, 1);
        ASSERT_EQ(filtered.ReadFrame(0UL, static_cast<CFrame*>(nullptr)), 1);
        const double* f = filtered.GetDoubleBuffer();
        EXPECT_NEAR(f[4 * kPoint + 0], Amplitude(1) / 2, 0.5);
        EXPECT_NEAR(f[4 * kPoint + 5], Amplitude(5) / 2, 0.5);
        EXPECT_NEAR(f[kPoint - 1], Amplitude(kPoint - 2) / 2, 0.5);
    }

    // A rate given on the command line wins over the film's: at 100 frames/s
    // the film's sinusoid is at 10 Hz, and 5 Hz finds next to nothing there.
    ASSERT_EQ(RunTool("lockin " + film + " --frequency 5 --frame-rate 100 -o " + prefix, out), 0) << out;
    {
        CPtrFloat off(prefix + "_module.film", 0, 0, 1);
        ASSERT_EQ(off.ReadFrame(0UL, static_cast<CFrame*>(nullptr)), 1);
        EXPECT_LT(off.GetDoubleBuffer()[kPoint - 1], 0.05 * Amplitude(kPoint - 1));
    }

    // No rate anywhere, a bad filter, a film of doubles, no film.
    const std::string norate = TempName("norate") + ".film";
    MakeLockinFilm(norate, 0.0f);
    EXPECT_EQ(RunTool("lockin " + norate + " --frequency 5 -o " + prefix, out), 2) << out;
    EXPECT_NE(out.find("--frame-rate"), std::string::npos) << out;
    EXPECT_EQ(RunTool("lockin " + norate + " --frequency 5 --frame-rate 50 -o " + prefix, out), 0) << out;
    EXPECT_EQ(RunTool("lockin " + film + " --frequency 5 --filter blur -o " + prefix, out), 2) << out;
    EXPECT_EQ(RunTool("lockin " + film + " --frequency 0 -o " + prefix, out), 2) << out;
    EXPECT_EQ(RunTool("lockin " + prefix + "_module.film --frequency 5 -o " + prefix + "x", out), 1) << out;
    EXPECT_EQ(RunTool("lockin " + film + ".missing --frequency 5 -o " + prefix, out), 1) << out;
    for (const char* suffix : {"_module.film", "_phase.film", "_module.png", "_phase.png"})
        std::remove((prefix + suffix).c_str());
    std::remove(film.c_str());
    std::remove(norate.c_str());
}
