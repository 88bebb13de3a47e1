#pragma once
// What the film commands share: opening a film with a clear message, frame
// ranges and rectangles (rectangles and region files are read by the
// library's FrameFigures.h; the calibration that turns levels into
// temperatures: Conversion.h).
#include <memory>
#include <string>

#include "Command.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/File.h"
#include "thermokit/processing/FilmPicture.h"
#include "thermokit/processing/FrameFigures.h"

namespace thermokit::cli {

// Why a file cannot be used, as the end of "file X: ...": missing, unreadable
// or empty (empty when it can be read).
std::string MissingOrEmpty(const std::string& path);

// False with a message when the file ends before the last frame its header
// counts (a film cut short by a full disk or an interrupted copy).
bool FilmComplete(const CPtr& film, const std::string&);

// A film of 16-bit levels (CPtr) or of doubles (CPtrFloat); null with a message.
struct Film {
    std::unique_ptr<CPtr> ptr;
    bool doubles = false;
    unsigned long frames = 0;
    unsigned short point = 0, line = 0;
};

bool OpenFilm(const std::string& path, Film& film);

// The frames the file holds whole (the header's count, or fewer in a film cut short).
unsigned long WholeFrames(const CPtrOver& film);

// A film cut short opened all the same, its frame count that of its whole
// frames, with a warning naming them; false with a message when it cannot
// be read or holds no whole frame. A complete film opens as with OpenFilm.
bool OpenFilmToSalvage(const std::string& path, Film& film);

// Reads image n into the film's own frame (and double buffer); false with a message.
bool ReadFilmFrame(Film& film, const std::string& path, unsigned long n);

// "A:B" (both inclusive; "A:" to the last frame, ":B" from the first, "A" one
// frame, empty every frame) within a film of count frames. False with a message.
bool ParseFrames(const std::string& text, unsigned long count, unsigned long& first, unsigned long& last,
                 const std::string& path);

// Checks the form of --frames when the command line is read, so that a
// range that is not one is a usage error.
CLI::Validator FrameRange();

// Seconds to the nearest microsecond, the finest unit a frame's time holds
// (times are shown rounded, never truncated).
double RoundToMicroseconds(double seconds);

// "X,Y"; false when it is not that.
bool ParsePoint(const std::string& text, long& x, long& y);

// Checks that the rectangle lies inside the film's image; false with a message.
bool RectInFilm(const CRect& r, const Film& film, const std::string& path, const char* option);

}  // namespace thermokit::cli
