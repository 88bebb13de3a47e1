#pragma once
// What the film commands share: opening a film with a clear message, frame
// ranges and rectangles (rectangles and region files are read by the
// library's FrameFigures.h; the calibration that turns levels into
// temperatures: Conversion.h).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

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
inline std::string MissingOrEmpty(const std::string& path) { return FileProblem(path); }

// False with a message when the file ends before the last frame its header
// counts (a film cut short by a full disk or an interrupted copy).
inline bool FilmComplete(const CPtr& film, const std::string&) { return CheckFilmComplete(film) != 0; }

// A film of 16-bit levels (CPtr) or of doubles (CPtrFloat); null with a message.
struct Film {
    std::unique_ptr<CPtr> ptr;
    bool doubles = false;
    unsigned long frames = 0;
    unsigned short point = 0, line = 0;
};

inline bool OpenFilm(const std::string& path, Film& film) {
    film.ptr = OpenFilmForReading(path);
    if (!film.ptr) return false;
    film.doubles = film.ptr->GetPixelBytes() == 8;
    film.frames = film.ptr->GetFrameNumber();
    film.point = film.ptr->GetPoint();
    film.line = film.ptr->GetLine();
    return true;
}

// Reads image n into the film's own frame (and double buffer); false with a message.
inline bool ReadFilmFrame(Film& film, const std::string& path, unsigned long n) {
    std::string error;
    if (thermokit::ReadFilmFrame(*film.ptr, path, n, error)) return true;
    Error(error);
    return false;
}

// "A:B" (both inclusive; "A:" to the last frame, ":B" from the first, "A" one
// frame, empty every frame) within a film of count frames. False with a message.
inline bool ParseFrames(const std::string& text, unsigned long count, unsigned long& first, unsigned long& last,
                        const std::string& path) {
    if (count == 0) {
        Error("file " + path + ": the film holds no frame");
        return false;
    }
    first = 0;
    last = count - 1;
    if (text.empty()) return true;
    auto number = [](const std::string& s, unsigned long& v) {
        if (s.empty() || s.find_first_not_of("0123456789") != std::string::npos || s.size() > 10) return false;
        v = std::strtoul(s.c_str(), nullptr, 10);
        return true;
    };
    const size_t colon = text.find(':');
    bool ok = true;
    if (colon == std::string::npos) {
        ok = number(text, first);
        last = first;
    } else {
        const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
        if (!a.empty()) ok = number(a, first);
        if (ok && !b.empty()) ok = number(b, last);
    }
    if (!ok) {
        Error("--frames " + text + ": expected A:B, frame numbers from 0 (A:, :B and A also)");
        return false;
    }
    if (first > last) {
        Error("--frames " + text + ": the first frame is after the last");
        return false;
    }
    if (last >= count) {
        Error("file " + path + ": --frames " + text + " goes beyond the last frame " + std::to_string(count - 1));
        return false;
    }
    return true;
}

// Checks the form of --frames when the command line is read, so that a
// range that is not one is a usage error.
inline CLI::Validator FrameRange() {
    return CLI::Validator(
        [](const std::string& text) {
            const std::string digits = "0123456789";
            const size_t colon = text.find(':');
            const std::string a = text.substr(0, colon), b = colon == std::string::npos ? "" : text.substr(colon + 1);
            const bool ok = (colon != std::string::npos || !a.empty()) && a.size() <= 10 && b.size() <= 10 &&
                            a.find_first_not_of(digits) == std::string::npos &&
                            b.find_first_not_of(digits) == std::string::npos;
            if (!ok) return "expected A:B, frame numbers from 0 (A:, :B and A also); " + text + " is not that";
            if (!a.empty() && !b.empty() && std::stoul(a) > std::stoul(b)) return std::string("the first frame is after the last");
            return std::string();
        },
        "A:B");
}

// "X,Y"; false when it is not that.
inline bool ParsePoint(const std::string& text, long& x, long& y) {
    char* end = nullptr;
    x = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != ',') return false;
    const char* q = end + 1;
    y = std::strtol(q, &end, 10);
    return end != q && *end == '\0' && x >= 0 && y >= 0;
}

// Checks that the rectangle lies inside the film's image; false with a message.
inline bool RectInFilm(const CRect& r, const Film& film, const std::string& path, const char* option) {
    if (r.right > film.point || r.bottom > film.line) {
        Error("file " + path + ": " + option + " " + std::to_string(r.left) + "," + std::to_string(r.top) + "," +
              std::to_string(r.Width()) + "," + std::to_string(r.Height()) + " goes beyond the " +
              std::to_string(film.point) + " x " + std::to_string(film.line) + " image");
        return false;
    }
    return true;
}

}  // namespace thermokit::cli
