#pragma once
// What the film commands share: opening a film with a clear message, frame
// ranges, rectangles, region files and the calibration that turns levels
// into temperatures.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/RegionFile.h"

namespace thermokit::cli {

// Why a file cannot be used, as the end of "file X: ...": missing, empty or
// not of the expected kind.
inline std::string MissingOrEmpty(const std::string& path) {
    if (!File::Exists(path)) return "not found";
    File f;
    if (!f.Open(path, File::modeRead | File::shareDenyNone)) return "cannot be opened";
    if (f.GetLength() == 0) return "empty file";
    return std::string();
}

// False with a message when the file ends before the last frame its header
// counts (a film cut short by a full disk or an interrupted copy).
inline bool FilmComplete(const CPtr& film, const std::string& path) {
    const unsigned long frames = film.GetFrameNumber();
    if (frames == 0) return true;
    const uint64_t end = film.OffsetImage(frames - 1) + film.GetImageSize();
    const int64_t size = film.GetFileSize();
    if (size < 0 || static_cast<uint64_t>(size) < end) {
        Error("file " + path + ": shorter than its " + std::to_string(frames) + " frames (" + std::to_string(size) +
              " bytes, " + std::to_string(end) + " expected); the film is truncated");
        return false;
    }
    return true;
}

// A film of 16-bit levels (CPtr) or of doubles (CPtrFloat); null with a message.
struct Film {
    std::unique_ptr<CPtr> ptr;
    bool doubles = false;
    unsigned long frames = 0;
    unsigned short point = 0, line = 0;
};

inline bool OpenFilm(const std::string& path, Film& film) {
    const std::string why = MissingOrEmpty(path);
    if (!why.empty()) {
        Error("file " + path + ": " + why);
        return false;
    }
    CPtrOver header(path);
    if (!header.IsValid()) {
        Error("file " + path + ": " + header.GetLastErrorText());
        return false;
    }
    film.doubles = CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8;
    if (film.doubles) film.ptr = std::make_unique<CPtrFloat>(path, 0, 0, 1);
    else film.ptr = std::make_unique<CPtr>(path, 0, 0, 1);
    if (!film.ptr->IsValid()) {
        Error("file " + path + ": " + film.ptr->GetLastErrorText());
        return false;
    }
    if (!FilmComplete(*film.ptr, path)) return false;
    film.frames = film.ptr->GetFrameNumber();
    film.point = film.ptr->GetPoint();
    film.line = film.ptr->GetLine();
    return true;
}

// Reads image n into the film's own frame (and double buffer); false with a message.
inline bool ReadFilmFrame(Film& film, const std::string& path, unsigned long n) {
    if (!film.ptr->ReadFrame(n)) {
        Error("file " + path + ": frame " + std::to_string(n) + " cannot be read (the file is shorter than its header says)");
        return false;
    }
    return true;
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
    if (!ok || first > last) {
        Error("--frames " + text + ": expected A:B with A not above B");
        return false;
    }
    if (last >= count) {
        Error("file " + path + ": --frames " + text + " goes beyond the last frame " + std::to_string(count - 1));
        return false;
    }
    return true;
}

// "x,y,w,h" with w, h > 0; false when it is not that.
inline bool ParseRect(const std::string& text, CRect& rect) {
    long v[4];
    const char* p = text.c_str();
    for (int i = 0; i < 4; ++i) {
        char* end = nullptr;
        v[i] = std::strtol(p, &end, 10);
        if (end == p || (i < 3 && *end != ',') || (i == 3 && *end != '\0')) return false;
        if (v[i] < 0 || v[i] > 65535) return false;
        p = end + 1;
    }
    if (v[2] <= 0 || v[3] <= 0) return false;
    rect.SetRect(static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[0] + v[2]),
                 static_cast<int>(v[1] + v[3]));
    return true;
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

// The region file of --region-file (see thermokit/platform/RegionFile.h),
// cut to a point x line image; false with a message.
inline bool ReadRegionFile(const std::string& path, unsigned short point, unsigned short line, CRgn& region) {
    std::string why = MissingOrEmpty(path);
    if (why.empty()) {
        const CRect image(0, 0, point, line);
        if (thermokit::ReadRegionFile(path, image, region, why)) return true;
    }
    Error("file " + path + ": " + why);
    return false;
}

// The calibration of --calib FILE or of the film's own radiometric law
// (--embedded); null with a message.
inline std::unique_ptr<CCalibration> LoadCalibration(const std::string& calibPath, bool embedded, CPtrOver& film,
                                                     const std::string& filmPath) {
    if (embedded) {
        _SCalibrationRBF law{};
        if (!film.GetRBFCalibParam(&law)) {
            Error("file " + filmPath + ": the film carries no radiometric law (--embedded needs one; use --calib FILE)");
            return nullptr;
        }
        return std::make_unique<CCalibrationRBF>(law);
    }
    const std::string why = MissingOrEmpty(calibPath);
    if (!why.empty()) {
        Error("file " + calibPath + ": " + why);
        return nullptr;
    }
    auto cal = std::make_unique<CCalibration>("", 0);
    if (!cal->Open(calibPath.c_str())) {
        Error("file " + calibPath + ": not a readable calibration file (tag \"EXP\" expected, or the file is damaged)");
        return nullptr;
    }
    if (cal->GetSize() < 2) {
        Error("file " + calibPath + ": the calibration curve has fewer than two points");
        return nullptr;
    }
    return cal;
}

// The optional calibration of a command that converts levels (--calib FILE or
// --embedded). True when the command may go on: cal stays null when neither
// option was given. A film of doubles holds values already and is refused.
inline bool LoadOptionalCalibration(const std::string& calibPath, bool embedded, Film& film,
                                    const std::string& filmPath, std::unique_ptr<CCalibration>& cal) {
    if (calibPath.empty() && !embedded) return true;
    if (film.doubles) {
        Error("file " + filmPath + ": a film of doubles holds values already; --calib and --embedded apply to levels");
        return false;
    }
    cal = LoadCalibration(calibPath, embedded, *film.ptr, filmPath);
    return cal != nullptr;
}

// The unit of the calibrated values: the curve's Y unit, or degrees Celsius for a law.
inline std::string CalibrationUnit(CCalibration& cal, bool embedded) {
    if (embedded) return "degC";
    const std::string u = cal.GetUnitY();
    return u.empty() ? std::string("value") : u;
}

}  // namespace thermokit::cli
