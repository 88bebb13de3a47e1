// thermokit record: a camera (a GenICam camera through Aravis, or the
// simulated one) recorded through the bank ring, with a live line on a
// terminal and a summary of the throughput, the frames lost and the stalls.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Command.h"
#include "OutputFile.h"
#include "System.h"
#include "thermokit/acquisition/CRecorder.h"
#include "thermokit/acquisition/FrameSources.h"

namespace thermokit::cli {
namespace {

struct RecordOptions {
    std::string camera = "sim";
    std::string output;
    unsigned long count = 0;
    double duration = 0.0;
    std::string size;
    std::string roi;
    int bits = 0;
    double rate = -1.0;  // not given
    double exposure = 0.0;
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

// "X,Y,W,H": offsets 0..65535, sides 1..65535.
bool ParseRoi(const std::string& text, CRect& roi) {
    long v[4] = {};
    size_t at = 0;
    for (int i = 0; i < 4; ++i) {
        const size_t end = i < 3 ? text.find(',', at) : text.size();
        if (end == std::string::npos) return false;
        const std::string part = text.substr(at, end - at);
        if (part.empty() || part.size() > 5 || part.find_first_not_of("0123456789") != std::string::npos) return false;
        v[i] = std::strtol(part.c_str(), nullptr, 10);
        at = end + 1;
    }
    if (v[0] > 65535 || v[1] > 65535 || v[2] < 1 || v[2] > 65535 || v[3] < 1 || v[3] > 65535) return false;
    roi = CRect(static_cast<int32_t>(v[0]), static_cast<int32_t>(v[1]), static_cast<int32_t>(v[0] + v[2]),
                static_cast<int32_t>(v[1] + v[3]));
    return true;
}

// Ctrl-C (and SIGTERM, SIGHUP) ends the recording cleanly: the film is
// closed with every frame so far. A second signal does what it did before
// (the temporary film is removed and the tool ends).
std::atomic<CRecorder*> g_recorder{nullptr};

bool StopRecording() {
    CRecorder* recorder = g_recorder.exchange(nullptr);
    if (!recorder) return false;
    recorder->RequestStop();
    return true;
}

class StopOnSignal {
public:
    explicit StopOnSignal(CRecorder& recorder) {
        g_recorder = &recorder;
        DivertInterrupt(StopRecording);
    }
    ~StopOnSignal() {
        g_recorder = nullptr;
        RestoreInterrupt();
    }
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;
};

// The live line on a terminal: frames, rate and throughput over the last
// half second, frames lost and incomplete, and the times a frame waited for
// a free bank.
class LiveLine {
public:
    LiveLine(unsigned long count, double duration)
        : m_count(count), m_duration(duration), m_enabled(!Quiet() && IsTerminal(stderr)) {}
    ~LiveLine() { End(); }
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;

    bool Enabled() const { return m_enabled; }
    void Show(const RECORD_STATUS& s) {
        if (!m_enabled) return;
        const double dt = s.dSeconds - m_lastSeconds;
        if (dt > 0.0 && s.nFrames >= m_lastFrames) {
            m_fps = static_cast<double>(s.nFrames - m_lastFrames) / dt;
            m_mbps = static_cast<double>(s.nBytes - m_lastBytes) / dt / 1e6;
        }
        m_lastSeconds = s.dSeconds;
        m_lastFrames = s.nFrames;
        m_lastBytes = s.nBytes;
        std::string done = std::to_string(s.nFrames);
        if (m_count) done += " / " + std::to_string(m_count);
        char time[64];
        if (m_duration > 0.0) std::snprintf(time, sizeof time, "%.1f / %g s", s.dSeconds, m_duration);
        else std::snprintf(time, sizeof time, "%.1f s", s.dSeconds);
        std::fprintf(stderr, "\rrecord: %s frames, %.1f frames/s, %.1f MB/s, lost %llu, incomplete %llu, bank waits %llu, %s  ",
                     done.c_str(), m_fps, m_mbps, static_cast<unsigned long long>(s.source.Lost()),
                     static_cast<unsigned long long>(s.source.nIncomplete), static_cast<unsigned long long>(s.nBankWaits),
                     time);
        std::fflush(stderr);
        m_drawn = true;
    }
    void End() {
        if (m_drawn) std::fprintf(stderr, "\n");
        m_drawn = false;
    }

private:
    unsigned long m_count;
    double m_duration;
    bool m_enabled;
    bool m_drawn = false;
    double m_lastSeconds = 0.0, m_fps = 0.0, m_mbps = 0.0;
    unsigned long m_lastFrames = 0;
    uint64_t m_lastBytes = 0;
};

// Opens the source asked for; its exit status when it cannot be used.
int OpenSource(const RecordOptions& o, const SOURCE_SETTINGS& settings, std::unique_ptr<CFrameSource>& source) {
    unsigned short point = 640, line = 512;
    if (o.camera == "sim" && !o.size.empty() && !ParseSize(o.size, point, line)) {
        Error("--size " + o.size + ": expected WxH, each side 1 to 65535");
        return kUsage;
    }
    if (o.camera != "sim" && !o.size.empty()) {
        Error("--size is for the simulated camera; a camera's frame is chosen with --roi X,Y,W,H");
        return kUsage;
    }
    std::string error;
    bool usage = false;
    source = OpenFrameSource(o.camera, settings, point, line, error, usage);
    if (source) return kDone;
    Error(error);
    return usage ? kUsage : kFailed;
}

std::string Describe(const CFrameSource& source) {
    const CAMERA_INFO& i = source.GetInfo();
    if (i.strInterface == "simulation") return "simulated moving pattern";
    const CRect w = source.GetWindow();
    return i.strVendor + " " + i.strModel + ", serial " + i.strSerial + ", firmware " + i.strFirmware + ", id " + i.strId +
           ", " + source.GetPixelFormat() + ", window " + std::to_string(w.left) + "," + std::to_string(w.top) + "," +
           std::to_string(w.Width()) + "," + std::to_string(w.Height());
}

bool RecordSettings(const RecordOptions& o, SOURCE_SETTINGS& settings) {
    if (o.count == 0 && o.duration <= 0.0) {
        Error("give the length of the recording: --count N or --duration S");
        return false;
    }
    settings.nBits = o.bits;
    settings.dExposure = o.exposure;
    settings.dRate = o.rate;  // below 0: not given
    if (!o.roi.empty() && !ParseRoi(o.roi, settings.roi)) {
        Error("--roi " + o.roi + ": expected X,Y,W,H (offsets 0 to 65535, sides 1 to 65535)");
        return false;
    }
    return true;
}

// Why a recording left no film; the messages name the output, not the
// temporary file it is made under.
void ReportLostRecording(const RecordOptions& o, const CRecorder& recorder) {
    const int error = recorder.GetLastError();
    if (error == CRecorder::RECORD_DISK_FAILED)
        FileError(o.output, "the disk failed after " + std::to_string(recorder.GetStatus().nFrames) +
                                " frames; no film was written");
    else if (error == CRecorder::RECORD_CREATE_FAILED)
        FileError(o.output, "cannot be created for recording with " + std::to_string(o.banks) + " banks of " +
                                std::to_string(o.bankSize) + " bytes");
    else
        Error(recorder.GetLastErrorMessage());
}

void SummarizeRecording(const RecordOptions& o, const CFrameSource& source, const RECORD_STATUS& s) {
    Note("%s: %lu frames of %u x %u, %u bits, %.15g MB\n", o.output.c_str(), s.nFrames, source.GetPoint(),
         source.GetLine(), source.GetBit(), static_cast<double>(s.nBytes) / 1e6);
    Note("camera: %s\n", Describe(source).c_str());
    Note("banks: %d x %lu bytes, %s writes\n", o.banks, o.bankSize, s.bDirect ? "direct" : "buffered");
    if (source.GetFrameRate() > 0.0) Note("rate: %g Hz\n", source.GetFrameRate());
    else Note("rate: as fast as possible\n");
    Note("sustained: %.1f MB/s over %.3f s\n", s.dSeconds > 0.0 ? static_cast<double>(s.nBytes) / s.dSeconds / 1e6 : 0.0,
         s.dSeconds);
    Note("frames lost: %llu (%llu incomplete, %llu missing from the stream)\n",
         static_cast<unsigned long long>(s.source.Lost()), static_cast<unsigned long long>(s.source.nIncomplete),
         static_cast<unsigned long long>(s.source.nMissing));
    if (source.GetInfo().strInterface != "simulation")
        Note("pool underruns: %llu (frames that came while every buffer was taken; among the missing)\n",
             static_cast<unsigned long long>(s.source.nUnderruns));
    Note("bank waits: %llu\n", static_cast<unsigned long long>(s.nBankWaits));
    Note("longest blocked Write: %.3f ms\n", s.dLongestWrite * 1e3);
    if (s.bStopped) Note("interrupted: %s keeps the %lu frames recorded\n", o.output.c_str(), s.nFrames);
}

int RunRecord(const RecordOptions& o) {
    SOURCE_SETTINGS settings;
    if (!RecordSettings(o, settings)) return kUsage;
    std::unique_ptr<CFrameSource> source;
    if (const int status = OpenSource(o, settings, source); status != kDone) return status;
    CRecorder recorder;
    recorder.SetCount(o.count);
    recorder.SetDuration(o.duration);
    recorder.SetBanks(o.banks, o.bankSize);
    recorder.SetFileTools("thermokit record");
    LiveLine live(o.count, o.duration);
    if (live.Enabled()) recorder.SetProgress([&live](const RECORD_STATUS& s) { live.Show(s); }, 500);
    // Recorded under a temporary name, renamed into place once complete.
    OutputFile target(o.output);
    int ok = 0;
    {
        StopOnSignal stopper(recorder);
        ok = recorder.Record(*source, target.c_str());
    }
    live.End();
    const RECORD_STATUS& s = recorder.GetStatus();
    // A camera lost on the way leaves a valid film of every frame that came.
    if (!ok && recorder.GetLastError() != CRecorder::RECORD_SOURCE_FAILED) {
        ReportLostRecording(o, recorder);
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    if (!ok)
        Error(recorder.GetLastErrorMessage() + "; " + o.output + " keeps the " + std::to_string(s.nFrames) +
              " frames received");
    SummarizeRecording(o, *source, s);
    return ok ? kDone : kFailed;
}

}  // namespace

void AddRecordCommand(CLI::App& app) {
    auto options = std::make_shared<RecordOptions>();
    auto* record = app.add_subcommand("record", "Record a camera (or the simulated one) through the bank ring into a film");
    record->add_option("--camera", options->camera,
                       "Camera id, serial number or IP address (thermokit cameras lists them), or sim (default)");
    Output(record->add_option("-o,--output", options->output, "Film file to write"))->required();
    record->add_option("-n,--count", options->count, "Number of frames")->check(CLI::Range(1ul, 4294967295ul));
    record->add_option("--duration", options->duration, "Seconds to record from the first frame")
        ->check(Positive());
    record->add_option("--rate", options->rate,
                       "Frames per second (simulated camera: default 100, 0 as fast as possible; a camera keeps its own)")
        ->check(CLI::Range(0.0, 1e6));
    record->add_option("--exposure", options->exposure, "Exposure (integration) time in microseconds")
        ->check(Positive());
    record->add_option("--roi", options->roi, "Window on the sensor X,Y,W,H (default: as the camera is)");
    record->add_option("--bits", options->bits,
                       "Bit depth: a camera's Mono12, Mono14 or Mono16 (default: as offered); simulated 1 to 16 (default 14)")
        ->check(CLI::Range(1, 16));
    record->add_option("--size", options->size, "Simulated sensor size WxH (default 640x512)");
    record->add_option("--banks", options->banks, "Number of memory banks, 1 to 1024 (default 8)")
        ->check(CLI::Range(1, 1024));
    // Smaller banks make one system call per few bytes (a recording that
    // never keeps up); other sizes cannot be written straight to disk.
    record->add_option("--bank-size", options->bankSize,
                       "Bytes of one bank, the size of every disk write: a multiple of 4096 from 4096 to 1073741824 "
                       "(default 1048576)")
        ->check(CLI::Validator(
            [](const std::string& text) {
                const unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
                return v >= 4096 && v <= (1ull << 30) && v % 4096 == 0
                           ? std::string()
                           : "expected a multiple of 4096 from 4096 to 1073741824 bytes";
            },
            "BYTES"));
    record->footer(
        "Example: thermokit record --camera Aravis-Fake-GV01 -o run.film --duration 30 --rate 100 --roi 0,0,640,512 --bits 16\n"
        "Simulated: thermokit record -o sim.film --count 500 --size 640x512 --bits 14 --rate 200 --banks 16 --bank-size 4194304\n"
        "Ctrl-C ends the recording with a valid film of every frame so far.");
    record->callback([options] { SetAction([options] { return RunRecord(*options); }); });
}

}  // namespace thermokit::cli
