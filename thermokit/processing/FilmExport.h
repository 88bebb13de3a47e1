#pragma once
// Frames of a film written as data: a NumPy array (.npy, version 1.0),
// little-endian raw samples, or CSV text; levels (uint16), the values of a
// film of doubles (float64), or levels through a conversion (float32,
// FilmConversion.h). The tool's export and the Python package's batch runs
// write their arrays with this one code, so that both give the same bytes.
//
// CSV: a header line "frame,line,x0,x1,...", then one line per image line:
// the frame, the line and its values (levels as integers, converted values
// with 9 significant digits, doubles with 17).
#include <functional>
#include <string>
#include <vector>

namespace thermokit {

class CPtr;
struct Conversion;

// The NumPy 1.0 header of a C-ordered array of frames x line x point of
// descr ("<u2", "<f4", "<f8"): magic, version, header length, the dictionary
// padded with spaces and a newline so that the data starts on a 64-byte boundary.
std::string NpyHeader(const char* descr, unsigned long frames, unsigned line, unsigned point);

// Writes the frames of the film (read from path) in format "npy", "raw" or
// "csv" into the file writePath (the caller renames it into place), naming
// outPath in messages; conv converts levels when given. progress, when
// given, is called with the frames done. 1; or 0 with the message.
int ExportFilm(CPtr& film, const std::string& path, const std::vector<unsigned long>& frames, const std::string& format,
               const Conversion* conv, const std::string& writePath, const std::string& outPath, std::string& error,
               const std::function<void(unsigned long)>& progress = nullptr);

}  // namespace thermokit
