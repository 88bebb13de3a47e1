#pragma once
// Whole films through the library's frame pipeline (thermokit/film/FilmPipeline.h),
// the one way every film command goes over frames: frames are read and
// processed on every core (--threads, THERMOKIT_THREADS), then written,
// printed or added up one at a time in frame order, so that what a command
// writes or prints is the same to the byte whatever the number of threads.
//
// Process stages work on their frame and on buffers of their slot (one per
// pipeline slot, thermokit::PerSlot), never on anything another frame uses; write stages
// own everything that crosses frames. A stage that fails returns false and
// leaves the whole message in f.error ("file OUT: frame N cannot be written");
// a frame that cannot be read is told by the pipeline. The run prints the
// first failure once.
#include <cstring>
#include <string>
#include <vector>

#include "Command.h"
#include "Progress.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/image/CFrame.h"

namespace thermokit::cli {

using FrameStage = FilmPipeline::Stage;

// The frames of pipe through process (several at once, any order) and write
// (one at a time, in frame order; either may be empty), with a progress bar.
// False with the first failure's message.
inline bool RunFrames(FilmPipeline& pipe, const char* label, const FrameStage& process, const FrameStage& write) {
    Progress progress(label, pipe.GetCount());
    unsigned long done = 0;
    const int ok = pipe.Run(process, [&](FilmFrame& f) {
        if (write && !write(f)) return false;
        progress.Step(++done);
        return true;
    });
    progress.Done();
    if (!ok) Error(pipe.GetLastError());
    return ok == 1;
}

// Appends frame to out as the next image, with the image header f was read
// with (its time stamp, lock-in data ...), or with that header as adjust
// leaves it. False with the message in f.error.
template <class Adjust>
bool AppendFrame(CPtr& out, const std::string& outPath, FilmFrame& f, CFrame& frame, const Adjust& adjust) {
    std::memcpy(out.GetImageHeaderAddress(), f.header, sizeof f.header);
    adjust(out);
    // The frame's time is split into the image header's fields by truncation:
    // half a microsecond more makes that the nearest microsecond, so a time
    // read from a film is written back as it was.
    frame.SetTime(frame.GetTime() + 0.5e-6);
    if (out.AddFrame(&frame) == 1) return true;
    f.error = FileErrorText(outPath, "frame " + std::to_string(f.index) + " cannot be written");
    return false;
}

inline bool AppendFrame(CPtr& out, const std::string& outPath, FilmFrame& f) {
    return AppendFrame(out, outPath, f, f.frame, [](CPtr&) {});
}

}  // namespace thermokit::cli
