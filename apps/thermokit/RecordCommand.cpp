// thermokit record: a synthetic camera recorded through the bank ring, with
// the throughput and the stalls the recording saw.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Command.h"
#include "OutputFile.h"
#include "Progress.h"
#include "thermokit/film/CPtr2.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::cli {
namespace {

using Clock = std::chrono::steady_clock;

// A film counts its frames in 32 bits; where long has 32 bits itself (Windows),
// its own limit is lower.
constexpr long kMaxFrames = static_cast<long>(std::min<long long>(4294967295LL, std::numeric_limits<long>::max()));

struct RecordOptions {
    std::string output;
    long frames = 0;
    std::string size = "640x512";
    int bits = 14;
    double rate = 100.0;
    int banks = 8;
    unsigned long bankSize = CStreamFile::kDefaultBankSize;
};

// "WxH" with both sides 1..65535.
bool ParseSize(const std::string& text, unsigned short& w, unsigned short& h) {
    const size_t x = text.find_first_of("xX");
    if (x == std::string::npos || x == 0 || x + 1 >= text.size()) return false;
    const std::string a = text.substr(0, x), b = text.substr(x + 1);
    if (a.find_first_not_of("0123456789") != std::string::npos || b.find_first_not_of("0123456789") != std::string::npos ||
        a.size() > 5 || b.size() > 5)
        return false;
    const long wl = std::strtol(a.c_str(), nullptr, 10), hl = std::strtol(b.c_str(), nullptr, 10);
    if (wl < 1 || wl > 65535 || hl < 1 || hl > 65535) return false;
    w = static_cast<unsigned short>(wl);
    h = static_cast<unsigned short>(hl);
    return true;
}

// The synthetic camera: a triangle wave of period 64 pixels along x + y,
// moving 2 pixels a frame. Pixel (x, y) of frame k is
// wave[(x + y + 2k) mod 64], with wave[j] = maxLevel x min(j, 64 - j) / 32.
// Each row is one copy out of a precomputed strip.
class MovingPattern {
public:
    MovingPattern(unsigned short point, unsigned short line, unsigned short maxLevel)
        : m_nPoint(point), m_nLine(line), m_Strip(static_cast<size_t>(point) + kPeriod) {
        for (size_t i = 0; i < m_Strip.size(); ++i) {
            const long j = static_cast<long>(i % kPeriod);
            m_Strip[i] = static_cast<unsigned short>(static_cast<long>(maxLevel) * std::min(j, kPeriod - j) / (kPeriod / 2));
        }
    }
    void Fill(unsigned short* out, long k) const {
        for (long y = 0; y < m_nLine; ++y) {
            const size_t shift = static_cast<size_t>((y + 2 * k) % kPeriod);
            std::copy_n(m_Strip.data() + shift, m_nPoint, out + static_cast<size_t>(y) * m_nPoint);
        }
    }

private:
    static constexpr long kPeriod = 64;
    long m_nPoint, m_nLine;
    std::vector<unsigned short> m_Strip;
};

// Seconds since local midnight, as image times are kept.
double TimeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&t, &local);
    const auto micro = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() % 1000000;
    double time = 0.0;
    MergeTime(&time, static_cast<unsigned long>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec),
              static_cast<unsigned long>(micro));
    return time;
}

int RunRecord(const RecordOptions& o) {
    unsigned short point = 0, line = 0;
    if (!ParseSize(o.size, point, line)) {
        Error("--size " + o.size + ": expected WxH, each side 1 to 65535");
        return kUsage;
    }
    const unsigned short bits = static_cast<unsigned short>(o.bits);
    CPtr2 film(point, line, bits, 0, 1, 0);
    film.SetFileTools("thermokit record");
    film.SetComment("synthetic moving pattern");
    if (o.rate > 0.0) film.SetFrameRate(static_cast<float>(o.rate));
    // Recorded under a temporary name, renamed into place once complete.
    OutputFile target(o.output);
    if (!film.Create(target.c_str(), o.bankSize, o.banks)) {
        Error("file " + o.output + ": cannot be created for recording with " + std::to_string(o.banks) +
              " banks of " + std::to_string(o.bankSize) + " bytes");
        return kFailed;
    }
    const bool direct = film.GetStream()->IsDirect();
    CFrame* frame = film.GetFrame();
    const MovingPattern pattern(point, line, film.GetMaxLevel());
    const double period = o.rate > 0.0 ? 1.0 / o.rate : 0.0;
    const double firstTime = TimeOfDay();

    long dropped = 0, written = 0;
    Clock::duration longest{0};
    const Clock::time_point start = Clock::now();
    auto due = [&](long k) {
        return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(period * static_cast<double>(k)));
    };
    Progress progress("record", static_cast<unsigned long>(o.frames));
    for (long k = 0; k < o.frames; ++k) {
        if (period > 0.0) std::this_thread::sleep_until(due(k));
        pattern.Fill(frame->GetBuffer(), k);
        // The frame's time is when the camera took it: on schedule at a set rate.
        frame->SetTime(period > 0.0 ? firstTime + period * static_cast<double>(k)
                                    : firstTime + std::chrono::duration<double>(Clock::now() - start).count());
        const Clock::time_point before = Clock::now();
        const int ok = film.AddFrame(frame);
        const Clock::time_point after = Clock::now();
        if (!ok) break;
        ++written;
        progress.Step(static_cast<unsigned long>(written));
        longest = std::max(longest, after - before);
        // A Write that blocks longer than a frame period cannot keep the
        // rate: a camera without a buffer of its own loses a frame there.
        // (Late wake-ups of this loop are not the writer's doing and do not count.)
        if (period > 0.0 && std::chrono::duration<double>(after - before).count() > period) ++dropped;
    }
    progress.Done();
    const int closed = film.Close();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double bytes = static_cast<double>(film.OffsetImage(film.GetFrameNumber()));
    if (!closed || written != o.frames) {
        Error("file " + o.output + ": the disk failed after " + std::to_string(film.GetFrameNumber()) + " of " +
              std::to_string(o.frames) + " frames; no film was written");
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    Note("%s: %ld frames of %u x %u, %u bits, %.15g MB\n", o.output.c_str(), written, point, line, bits,
                bytes / 1e6);
    Note("banks: %d x %lu bytes, %s writes\n", o.banks, o.bankSize, direct ? "direct" : "buffered");
    if (period > 0.0) Note("rate: %g Hz\n", o.rate);
    else Note("rate: as fast as possible\n");
    Note("sustained: %.1f MB/s over %.3f s\n", seconds > 0.0 ? bytes / seconds / 1e6 : 0.0, seconds);
    Note("frames dropped: %ld\n", dropped);
    Note("longest blocked Write: %.3f ms\n", std::chrono::duration<double, std::milli>(longest).count());
    return kDone;
}

RegisterCommand reg(320, [](CLI::App& app) {
    auto options = std::make_shared<RecordOptions>();
    auto* record = app.add_subcommand("record", "Record a synthetic moving pattern through the bank ring into a film");
    record->add_option("-o,--output", options->output, "Film file to write")->required();
    record->add_option("--frames", options->frames, "Number of frames")->required()->check(CLI::Range(1L, kMaxFrames));
    record->add_option("--size", options->size, "Frame size WxH (default 640x512)");
    record->add_option("--bits", options->bits, "Bit depth, 1 to 16 (default 14)")->check(CLI::Range(1, 16));
    record->add_option("--rate", options->rate, "Frames per second; 0 records as fast as possible (default 100)")
        ->check(CLI::Range(0.0, 1e6));
    record->add_option("--banks", options->banks, "Number of memory banks, 1 to 1024 (default 8)")
        ->check(CLI::Range(1, 1024));
    record->add_option("--bank-size", options->bankSize, "Bytes of one bank, the size of every disk write (default 1048576)")
        ->check(CLI::Range(1ul, 0xFFFFFFFFul));
    record->footer("Example: thermokit record -o run.film --frames 500 --size 640x512 --bits 14 --rate 200 --banks 16 --bank-size 4194304");
    record->callback([options] { SetAction([options] { return RunRecord(*options); }); });
});

}  // namespace
}  // namespace thermokit::cli
