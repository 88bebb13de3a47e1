#pragma once
// The frames of a film through the ordered pipeline of platform/Parallel.h,
// and the whole-film helpers built on it (mean and temporal noise of a film).
//
// A FilmPipeline reads the frames, each into a FilmFrame of its own (a plain
// film on several threads at once, through a reader per slot; a recorder's
// film in order); process runs on several frames at once, write on one frame
// at a time in frame order. What is combined across frames belongs in write (or in
// Reduce's combine): then results are the same to the byte for any number of
// threads. A command that writes a film adds the frames in write; one that
// sums statistics combines them there:
//
//     FilmPipeline pipe(film);
//     pipe.Run([&](FilmFrame& f) { return Correct(f.frame); },           // any order
//              [&](FilmFrame& f) { return out.AddFrame(&f.frame) == 1; });  // frame order
//
//     pipe.Reduce<Stats>([](const FilmFrame& f) { return StatsOf(f.frame); },
//                        [&](unsigned long n, Stats& s) { all.push_back(s); });
#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/Parallel.h"

namespace thermokit {

class CPtr;
class CAverage;
class CNoise;

// One frame of a film on its way through a pipeline.
struct FilmFrame {
    FilmFrame(unsigned short point, unsigned short line, unsigned short bit)
        : frame(point, line, bit, 0, 0) {}

    unsigned long index = 0;  // frame number in the film
    unsigned long item = 0;   // its place among the frames that go through (0, 1, ...)
    int slot = 0;             // the pipeline slot it occupies
    CFrame frame;             // its levels (masked to the film's depth) and time
    std::vector<double> values;  // a film of doubles: its values (empty for a film of levels)
    alignas(8) unsigned char header[PtrImage::kSize] = {};  // its image header, as read
    std::string error;        // what went wrong, when a stage returns false: the whole message
};

class FilmPipeline {
public:
    using Stage = std::function<bool(FilmFrame&)>;

    // Frames first, first + step, ... up to first + count - 1 of film (as
    // many as it holds; a step of 0 is taken as 1).
    explicit FilmPipeline(CPtr& film, unsigned long first = 0, unsigned long count = ULONG_MAX,
                          unsigned long step = 1);
    // The frames listed, in that order (a frame the film does not hold fails
    // as a frame that cannot be read).
    FilmPipeline(CPtr& film, std::vector<unsigned long> frames);

    unsigned long GetFirst() const { return m_nFirst; }
    unsigned long GetStep() const { return m_nStep; }
    // Frames first, first + step ... (not a list).
    bool IsStepped() const { return m_frames.empty(); }
    // How many frames go through (those of the range the step takes).
    unsigned long GetCount() const { return m_nCount; }
    // Frame number of the item'th frame that goes through.
    unsigned long FrameOf(unsigned long item) const {
        return m_frames.empty() ? m_nFirst + item * m_nStep : m_frames[item];
    }

    // Returns 1 when every frame went through. 0 at the first failure: a
    // frame that cannot be read (the film shows its message too) or a stage
    // that returned false; no frame from that one on is written, and
    // GetLastError() tells it.
    int Run(const Stage& process, const Stage& write);

    // perFrame on several frames at once, combine(frame number, result) one
    // frame at a time in frame order. Returns as Run.
    template <class Result>
    int Reduce(const std::function<Result(const FilmFrame&)>& perFrame,
               const std::function<void(unsigned long, Result&)>& combine);

    // The film's name in messages (by default its file name).
    void NameFilm(const std::string& name) { m_name = name; }

    // Frames written by the last run (those before the failure).
    unsigned long GetFramesDone() const { return m_nDone; }
    // The first failure of the last run, as one message: the error the
    // failing stage left in its frame ("file NAME: frame N cannot be read"
    // for a read), else "frame N: stopped". Empty after a run that went through.
    const std::string& GetLastError() const { return m_strError; }

private:
    CPtr& m_film;
    unsigned long m_nFirst = 0;
    unsigned long m_nStep = 1;
    unsigned long m_nCount = 0;
    std::vector<unsigned long> m_frames;  // a list of frames; empty: first, first + step ...
    unsigned long m_nDone = 0;
    std::string m_name;
    std::string m_strError;
};

template <class Result>
int FilmPipeline::Reduce(const std::function<Result(const FilmFrame&)>& perFrame,
                         const std::function<void(unsigned long, Result&)>& combine) {
    std::vector<std::optional<Result>> results(static_cast<size_t>(FramePipeline::Slots()));
    return Run(
        [&](FilmFrame& f) {
            results[static_cast<size_t>(f.slot)].emplace(perFrame(f));
            return true;
        },
        [&](FilmFrame& f) {
            combine(f.index, *results[static_cast<size_t>(f.slot)]);
            return true;
        });
}

// One make() for each slot of a pipeline: what a process stage reuses from
// frame to frame, at PerSlot(make)[f.slot].
template <class Make>
auto PerSlot(const Make& make) {
    std::vector<decltype(make())> slots;
    for (int s = 0; s < FramePipeline::Slots(); ++s) slots.push_back(make());
    return slots;
}

// Adds frames first .. first + count - 1 to average with the weight, in frame
// order: the sums are those of Accumulate called frame by frame, whatever the
// number of threads. Returns 1 when every frame was added; 0 when the film
// and the average differ in size or a frame cannot be read (frames before it
// stay added).
int AccumulateFilm(CPtr& film, CAverage& average, double weight = 1.0, unsigned long first = 0,
                   unsigned long count = ULONG_MAX);

// Temporal noise of frames first .. first + count - 1: their mean into mean
// (AccumulateFilm), then each frame's deviations from that mean into noise.
// Returns 1 when both passes went through.
int NoiseFilm(CPtr& film, CAverage& mean, CNoise& noise, unsigned long first = 0, unsigned long count = ULONG_MAX);

}  // namespace thermokit
