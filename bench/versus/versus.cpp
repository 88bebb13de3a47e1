// thermokit's whole-image kernels beside their OpenCV counterparts, in the
// same run, on one thread, with a memcpy of the same bytes as the memory's
// pace. Prints one table: input GB/s of each, and thermokit over OpenCV.
//
// Each figure is the best of several rounds of CPU time (rounds alternate
// between the two sides, so that a busy machine slows both alike).
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/platform/Dispatch.h"

using namespace thermokit;

namespace {

constexpr int kRounds = 9;
constexpr double kRoundSeconds = 0.02;

double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

void KeepMemory() { asm volatile("" ::: "memory"); }

// Seconds a call of fn takes, best of the rounds measured so far.
struct Timer {
    std::function<void()> fn;
    long calls = 1;  // per round, set by the warm-up
    double best = 1e30;

    void WarmUp() {
        const double t0 = CpuSeconds();
        long n = 0;
        do {
            fn();
            KeepMemory();
            ++n;
        } while (CpuSeconds() - t0 < kRoundSeconds);
        calls = std::max(1L, n);
    }
    void Round() {
        const double t0 = CpuSeconds();
        for (long i = 0; i < calls; ++i) {
            fn();
            KeepMemory();
        }
        best = std::min(best, (CpuSeconds() - t0) / static_cast<double>(calls));
    }
};

// A reproducible 14-bit image: a ramp with pseudo-random noise.
std::vector<uint16_t> MakeImage(int point, int line) {
    std::vector<uint16_t> img(static_cast<size_t>(point) * static_cast<size_t>(line));
    uint32_t s = 12345;
    for (size_t i = 0; i < img.size(); ++i) {
        s = s * 1664525u + 1013904223u;
        img[i] = static_cast<uint16_t>(((i % static_cast<size_t>(point)) * 8 + (s >> 22)) & 0x3FFF);
    }
    return img;
}

// A 50-point curve over the 14-bit range.
CCalibration& Curve() {
    static CCalibration cal = [] {
        CCalibration c("VERSUS", 0);
        for (int i = 0; i < 50; ++i) c.Add(200.0f + 330.0f * static_cast<float>(i), -40.0f + 4.0f * static_cast<float>(i));
        return c;
    }();
    return cal;
}

struct Row {
    std::string kernel;
    int point, line;
    double ours, theirs, copy;  // GB/s
};

// Times ours, theirs and a memcpy of `bytes` bytes, round after round.
Row Compare(const std::string& kernel, int point, int line, size_t bytes, std::function<void()> ours,
            std::function<void()> theirs) {
    std::vector<uint8_t> from(bytes, 1), to(bytes);
    Timer t[3] = {{std::move(ours)}, {std::move(theirs)}, {[&] { std::memcpy(to.data(), from.data(), bytes); }}};
    for (Timer& x : t) x.WarmUp();
    for (int r = 0; r < kRounds; ++r)
        for (Timer& x : t) x.Round();
    const auto rate = [bytes](const Timer& x) { return static_cast<double>(bytes) / x.best / 1e9; };
    return {kernel, point, line, rate(t[0]), rate(t[1]), rate(t[2])};
}

std::vector<Row> RunAll(int point, int line) {
    std::vector<Row> rows;
    const size_t n = static_cast<size_t>(point) * static_cast<size_t>(line);
    const size_t bytes = n * sizeof(uint16_t);
    const auto p = static_cast<unsigned short>(point), l = static_cast<unsigned short>(line);
    const std::vector<uint16_t> image = MakeImage(point, line);
    std::vector<uint16_t> work = image;
    cv::Mat src(line, point, CV_16UC1, const_cast<uint16_t*>(image.data()));
    cv::Mat dst, scratch = src.clone();
    unsigned short mn = 0, mx = 0, mean = 0;
    double dmn = 0, dmx = 0, sd = 0, dm = 0;

    rows.push_back(Compare(
        "MinMax (u16, with mean) / minMaxLoc", point, line, bytes,
        [&] { MinMax(image.data(), static_cast<long>(n), &mn, &mx, &mean, 0); },
        [&] { cv::minMaxLoc(src, &dmn, &dmx); }));
    rows.push_back(Compare(
        "StdDev (u16) / meanStdDev", point, line, bytes, [&] { StdDev(image.data(), static_cast<long>(n), &sd, &dm); },
        [&] {
            cv::Scalar m, s;
            cv::meanStdDev(src, m, s);
            sd = s[0];
        }));
    rows.push_back(Compare(
        "CalculateHisto (14-bit) / calcHist", point, line, bytes,
        [&] {
            long* histo = nullptr;
            CalculateHisto(image.data(), static_cast<long>(n), nullptr, 0x3FFF, mn, mx, histo);
            delete[] histo;
        },
        [&] {
            const int channels[] = {0}, size[] = {16384};
            const float range[] = {0, 16384};
            const float* ranges[] = {range};
            cv::Mat hist;
            cv::calcHist(&src, 1, channels, cv::Mat(), hist, 1, size, ranges);
        }));
    rows.push_back(Compare(
        "Mask / bitwise_and", point, line, bytes, [&] { Mask(work.data(), static_cast<long>(n), 0x0FFF); },
        [&] { cv::bitwise_and(scratch, cv::Scalar(0x0FFF), scratch); }));
    {
        CFrame from(const_cast<uint16_t*>(image.data()), p, l, 14, 0, 0);
        CFrame turned(l, p, 14, 0, 0), half(p, l, 14, 0, 0);
        const struct {
            const char* name;
            int angle;
            cv::RotateFlags code;
        } turns[] = {{"ProcessRotation 90 / rotate", 90, cv::ROTATE_90_CLOCKWISE},
                     {"ProcessRotation 270 / rotate", 270, cv::ROTATE_90_COUNTERCLOCKWISE},
                     {"ProcessRotation 180 / rotate", 180, cv::ROTATE_180}};
        for (const auto& t : turns) {
            CFrame& into = t.angle == 180 ? half : turned;
            rows.push_back(Compare(
                t.name, point, line, bytes, [&] { into.ProcessRotation(&from, t.angle); },
                [&] { cv::rotate(src, dst, t.code); }));
        }
        const struct {
            const char* name;
            int rotation;
            cv::RotateFlags code;
        } inPlace[] = {{"RotateImage 90 (in place) / rotate", 90, cv::ROTATE_90_CLOCKWISE},
                       {"RotateImage 180 (in place) / rotate", 180, cv::ROTATE_180}};
        for (const auto& t : inPlace) {
            bool swapped = false;
            rows.push_back(Compare(
                t.name, point, line, bytes,
                [&] {
                    RotateImage(work.data(), swapped ? l : p, swapped ? p : l, static_cast<unsigned short>(t.rotation),
                                nullptr);
                    if (t.rotation == 90) swapped = !swapped;
                },
                [&] { cv::rotate(src, dst, t.code); }));
        }
        CFrame smaller(p / 2, l / 2, 14, 0, 0), larger(p * 2, l * 2, 14, 0, 0);
        rows.push_back(Compare(
            "Stretch x0.5 / resize nearest", point, line, bytes, [&] { smaller.Stretch(&from, nullptr); },
            [&] { cv::resize(src, dst, cv::Size(point / 2, line / 2), 0, 0, cv::INTER_NEAREST); }));
        rows.push_back(Compare(
            "Stretch x2 / resize nearest", point, line, bytes, [&] { larger.Stretch(&from, nullptr); },
            [&] { cv::resize(src, dst, cv::Size(point * 2, line * 2), 0, 0, cv::INTER_NEAREST); }));
    }
    {
        // Gain and offset: as a user of OpenCV writes it (in floats, back to levels).
        CNuc nuc(p, l);
        for (size_t i = 0; i < n; ++i) {
            nuc.GetAlpha()[i] = 1.0f + 0.001f * static_cast<float>(i % 37);
            nuc.GetBeta()[i] = -20.0f + static_cast<float>(i % 11);
        }
        cv::Mat gain(line, point, CV_32FC1, nuc.GetAlpha()), offset(line, point, CV_32FC1, nuc.GetBeta());
        cv::Mat f;
        std::vector<uint16_t> out(n);
        rows.push_back(Compare(
            "CNuc::Apply (levels) / convertTo, multiply, add", point, line, bytes,
            [&] { nuc.Apply(const_cast<uint16_t*>(image.data()), 0x3FFF, out.data()); },
            [&] {
                src.convertTo(f, CV_32F);
                cv::multiply(f, gain, f);
                cv::add(f, offset, f);
                f.convertTo(dst, CV_16U);
            }));
    }
    {
        CAverage avg(p, l, 14, 0);
        cv::Mat sum = cv::Mat::zeros(line, point, CV_64FC1);
        rows.push_back(Compare(
            "CAverage::Accumulate (u16) / accumulate", point, line, bytes,
            [&] { avg.Accumulate(const_cast<uint16_t*>(image.data()), static_cast<long>(n), 14, 1.0); },
            [&] { cv::accumulate(src, sum); }));
    }
    {
        // OpenCV's LUT takes 8-bit input only: the 16-bit table look-up as a
        // user writes it with forEach.
        const CLevelTable table(Curve(), 0x3FFF);
        std::vector<float> values(16384);
        for (int i = 0; i < 16384; ++i) values[static_cast<size_t>(i)] = table.Value(static_cast<unsigned short>(i));
        std::vector<float> out(n);
        cv::Mat temps(line, point, CV_32FC1);
        rows.push_back(Compare(
            "CLevelTable::Apply (u16 -> float) / forEach gather", point, line, bytes,
            [&] { table.Apply(image.data(), static_cast<long>(n), out.data()); },
            [&] {
                temps.forEach<float>([&](float& v, const int* at) {
                    v = values[src.at<uint16_t>(at[0], at[1]) & 0x3FFF];
                });
            }));
    }
    return rows;
}

}  // namespace

int main() {
    cv::setNumThreads(1);
    double load[3] = {0, 0, 0};
    if (getloadavg(load, 3) < 0) load[0] = -1;
    std::printf("thermokit (kernel variant %s) versus OpenCV %s, one thread, input GB/s: best of %d rounds of CPU time\n",
                GetIsa(), CV_VERSION, kRounds);
    std::printf("load average at start: %.2f\n\n", load[0]);
    std::printf("%-50s %-10s %10s %10s %7s %10s\n", "kernel / OpenCV counterpart", "size", "thermokit", "OpenCV",
                "ratio", "memcpy");
    int behind = 0;
    for (auto [point, line] : {std::pair{640, 512}, {1280, 1024}}) {
        for (const Row& r : RunAll(point, line)) {
            const std::string size = std::to_string(r.point) + "x" + std::to_string(r.line);
            const double ratio = r.ours / r.theirs;
            behind += ratio < 1.0;
            std::printf("%-50s %-10s %10.2f %10.2f %6.2fx %10.2f\n", r.kernel.c_str(), size.c_str(), r.ours, r.theirs,
                        ratio, r.copy);
        }
    }
    std::printf("\n%d of the kernels behind their OpenCV counterpart\n", behind);
    return 0;
}
