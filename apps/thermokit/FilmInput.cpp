// What the film commands share: opening, frame ranges, points and rectangles.
#include "FilmInput.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace thermokit::cli {

std::string MissingOrEmpty(const std::string& path) { return FileProblem(path); }

bool FilmComplete(const CPtr& film, const std::string&) { return CheckFilmComplete(film) != 0; }

bool OpenFilm(const std::string& path, Film& film) {
    film.ptr = OpenFilmForReading(path);
    if (!film.ptr) return false;
    film.doubles = film.ptr->GetPixelBytes() == 8;
    film.frames = film.ptr->GetFrameNumber();
    film.point = film.ptr->GetPoint();
    film.line = film.ptr->GetLine();
    return true;
}

unsigned long WholeFrames(const CPtrOver& film) {
    const uint64_t record = static_cast<uint64_t>(film.GetRecordWords()) * 2u;
    const int64_t size = film.GetFileSize();
    const uint64_t body = size > film.GetHeaderSize() ? static_cast<uint64_t>(size) - film.GetHeaderSize() : 0;
    const unsigned long frames = film.GetFrameNumber();
    return record ? static_cast<unsigned long>(std::min<uint64_t>(frames, body / record)) : 0;
}

bool OpenFilmToSalvage(const std::string& path, Film& film) {
    const std::string why = FileProblem(path);
    if (!why.empty()) {
        FileError(path, why);
        return false;
    }
    std::unique_ptr<CPtr> ptr;
    {
        CPtrOver header(path);
        if (!header.IsValid()) {
            FileError(path, header.GetLastErrorText().empty() ? "not a film" : header.GetLastErrorText());
            return false;
        }
        if (CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8) ptr = std::make_unique<CPtrFloat>(path, 0, 0, 1);
        else ptr = std::make_unique<CPtr>(path, 0, 0, 1);
    }
    if (ptr->IsValid() && FilmIncomplete(*ptr).empty()) return OpenFilm(path, film);
    const unsigned long whole = ptr->IsValid() ? WholeFrames(*ptr) : 0;
    if (whole == 0) {
        FileError(path, "cut short before its first whole frame: nothing to salvage");
        return false;
    }
    Warning("file " + path + ": shorter than its " + std::to_string(ptr->GetFrameNumber()) + " frames; the " +
            std::to_string(whole) + " whole frame(s) are salvaged");
    film.doubles = ptr->GetPixelBytes() == 8;
    film.frames = whole;
    film.point = ptr->GetPoint();
    film.line = ptr->GetLine();
    film.ptr = std::move(ptr);
    return true;
}

bool ReadFilmFrame(Film& film, const std::string& path, unsigned long n) {
    std::string error;
    if (thermokit::ReadFilmFrame(*film.ptr, path, n, error)) return true;
    Error(error);
    return false;
}

bool ParseFrames(const std::string& text, unsigned long count, unsigned long& first, unsigned long& last,
                 const std::string& path) {
    if (count == 0) {
        FileError(path, "the film holds no frame");
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
        FileError(path, "--frames " + text + " goes beyond the last frame " + std::to_string(count - 1));
        return false;
    }
    return true;
}

CLI::Validator FrameRange() {
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

double RoundToMicroseconds(double seconds) { return std::round(seconds * 1e6) / 1e6; }

bool ParsePoint(const std::string& text, long& x, long& y) {
    char* end = nullptr;
    x = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != ',') return false;
    const char* q = end + 1;
    y = std::strtol(q, &end, 10);
    return end != q && *end == '\0' && x >= 0 && y >= 0;
}

bool RectInFilm(const CRect& r, const Film& film, const std::string& path, const char* option) {
    if (r.right > film.point || r.bottom > film.line) {
        FileError(path, std::string(option) + " " + std::to_string(r.left) + "," + std::to_string(r.top) + "," +
              std::to_string(r.Width()) + "," + std::to_string(r.Height()) + " goes beyond the " +
              std::to_string(film.point) + " x " + std::to_string(film.line) + " image");
        return false;
    }
    return true;
}

}  // namespace thermokit::cli
