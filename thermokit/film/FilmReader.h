#pragma once
// Opening films for work on whole films (the tool's commands, the Python
// package): the film is checked before any frame is read, and what keeps it
// from being used is told in one form, "file NAME: what is wrong (reason)",
// shown through Messages with the caption "thermokit" and the error icon
// (the default sink prints it as the tool's error line).
#include <memory>
#include <string>

namespace thermokit {

class CPtr;
enum class ErrorKind : int;

// What keeps a file from being read: "not found", "not a regular file (a
// FIFO)", "cannot be opened (system reason)" or "empty file"; empty when
// nothing does. Shows nothing.
std::string FileProblem(const std::string& path);

// 1 when the film's file holds every frame its header counts; otherwise 0 and
// "file NAME: shorter than its N frames (S bytes, E expected); the film is
// truncated" is shown.
int CheckFilmComplete(const CPtr& film);
// The same check, showing nothing: "shorter than its N frames (...); the film
// is truncated", or empty when the film is complete.
std::string FilmIncomplete(const CPtr& film);

// The film at path as a film of levels (CPtr) or of doubles (CPtrFloat), as
// its header says, checked: the file can be read, its header is a film's and
// fits the file, and the film is complete. Null, with the message shown,
// when not; then *kind (when given) says what kind of failure it was
// (System, Format, Memory), for callers that raise their own error types.
std::unique_ptr<CPtr> OpenFilmForReading(const std::string& path, ErrorKind* kind = nullptr);

// Reads image n into the film's own frame (and the double buffer of a film
// of doubles). False, showing nothing, with "file PATH: frame N cannot be
// read (the file is shorter than its header says)" in error.
bool ReadFilmFrame(CPtr& film, const std::string& path, unsigned long n, std::string& error);

// The time of every image of the film from its image header, as seconds since
// the first image (a time of day more than twelve hours below the image
// before it is taken to be on the next day): film.GetFrameNumber() values into seconds. 0 when
// an image header cannot be read (the film's read message is shown).
int ReadElapsedTimes(CPtr& film, double* seconds);

// The temporal noise of every pixel of a film of levels: the root-mean-square
// deviation of its frames from their mean (CAverage over every frame, then
// CNoise against that mean: NoiseFilm, on every core), GetSize() values into
// noise. 0 when a frame cannot be read or the film holds no frame.
int ReadTemporalNoise(CPtr& film, float* noise);

}  // namespace thermokit
