#pragma once
// What the film commands share: opening a film with a clear message, frame
// ranges, rectangles and region files (the calibration that turns levels into
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

// A region file: text, one shape a line, the union of them all.
//   rect X Y W H          pixels X..X+W-1, Y..Y+H-1
//   ellipse X Y W H       the ellipse inscribed in that rectangle
//   polygon X1 Y1 X2 Y2 X3 Y3 ...   at least three corners
// Blank lines and lines starting with '#' are ignored. Anything else is an
// error naming the file and the line.
inline bool ReadRegionFile(const std::string& path, CRgn& region) {
    const std::string why = MissingOrEmpty(path);
    if (!why.empty()) {
        Error("file " + path + ": " + why);
        return false;
    }
    std::error_code ec;
    const auto bytes = std::filesystem::file_size(path, ec);
    if (ec || bytes > (16u << 20)) {
        Error("file " + path + ": not a region file (a text file of at most 16 MiB expected)");
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    std::string line;
    int number = 0, shapes = 0;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() > 65536) {
            Error("file " + path + ": line " + std::to_string(number) + " is too long");
            return false;
        }
        std::istringstream words(line);
        std::string kind;
        if (!(words >> kind) || kind[0] == '#') continue;
        std::vector<long> v;
        std::string w;
        bool ok = true;
        while (words >> w) {
            char* end = nullptr;
            const long n = std::strtol(w.c_str(), &end, 10);
            if (*end || n < -65536 || n > 65536) ok = false;
            v.push_back(n);
        }
        CRgn shape;
        if (ok && (kind == "rect" || kind == "ellipse") && v.size() == 4 && v[2] > 0 && v[3] > 0) {
            const int l = static_cast<int>(v[0]), t = static_cast<int>(v[1]);
            const int r = static_cast<int>(v[0] + v[2]), b = static_cast<int>(v[1] + v[3]);
            if (kind == "rect") shape.CreateRectRgn(l, t, r, b);
            else shape.CreateEllipticRgn(l, t, r, b);
        } else if (ok && kind == "polygon" && v.size() >= 6 && v.size() % 2 == 0 && v.size() <= 2 * 4096) {
            std::vector<CPoint> pts;
            for (size_t i = 0; i < v.size(); i += 2) pts.emplace_back(static_cast<int>(v[i]), static_cast<int>(v[i + 1]));
            shape.CreatePolygonRgn(pts.data(), static_cast<int>(pts.size()), ALTERNATE);
        } else {
            Error("file " + path + ": line " + std::to_string(number) +
                  ": expected \"rect X Y W H\", \"ellipse X Y W H\" or \"polygon X1 Y1 X2 Y2 X3 Y3 ...\"");
            return false;
        }
        if (shapes++ == 0) region.CopyRgn(&shape);
        else {
            CRgn all;
            all.CombineRgn(&region, &shape, RGN_OR);
            region = all;
        }
    }
    if (shapes == 0) {
        Error("file " + path + ": no shape (rect, ellipse or polygon lines expected)");
        return false;
    }
    return true;
}

}  // namespace thermokit::cli
