#include "thermokit/processing/FilmLockin.h"

#include <cmath>
#include <cstdio>
#include <vector>

#include "thermokit/acquisition/CLockin.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmPipeline.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CFrame.h"

namespace thermokit {

namespace {

// Values spread over 16-bit levels between lo and hi, drawn through a
// built-in palette into a PNG picture.
bool SavePicture(const std::string& path, const double* values, unsigned short point, unsigned short line, double lo,
                 double hi, unsigned short paletteNumber) {
    const long size = static_cast<long>(point) * line;
    if (!(hi > lo)) hi = lo + 1.0;
    std::vector<unsigned short> levels(static_cast<size_t>(size));
    for (long i = 0; i < size; ++i) {
        const double x = (values[i] - lo) / (hi - lo) * 65535.0;
        levels[static_cast<size_t>(i)] = !(x > 0.0) ? 0 : x >= 65535.0 ? 65535 : static_cast<unsigned short>(x);
    }
    CLogPalette palette(paletteNumber, 0, nullptr);
    CLut24 lut(65535);
    lut.Update(nullptr, &palette, 0, 65535);
    CBit24 bitmap(size, 1, 0);
    return bitmap.Update(levels.data(), &lut) && bitmap.SavePng(path.c_str(), point, line);
}

void Extremes(const double* v, long n, double& lo, double& hi) {
    lo = hi = 0.0;
    bool any = false;
    for (long i = 0; i < n; ++i) {
        if (!std::isfinite(v[i])) continue;
        if (!any) lo = hi = v[i], any = true;
        else if (v[i] < lo) lo = v[i];
        else if (v[i] > hi) hi = v[i];
    }
}

}  // namespace

bool ParseLockinFilter(const std::string& text, unsigned short& filter) {
    if (text == "lowpass") filter = CLockin::FILTER_LOWPASS;
    else if (text == "median") filter = CLockin::FILTER_MEDIAN;
    else if (text == "none") filter = CLockin::FILTER_NONE;
    else return false;
    return true;
}

LockinOutputs LockinOutputs::OfPrefix(const std::string& prefix) {
    return LockinOutputs{prefix + "_module.film", prefix + "_phase.film", prefix + "_module.png", prefix + "_phase.png"};
}

int DemodulateFilm(const std::string& path, double frequency, double frameRate, unsigned short filter,
                   const LockinOutputs& write, const LockinOutputs& names, LockinResult& result, std::string& error,
                   bool& usage) {
    usage = false;
    CPtrOver header(path);
    if (!header.IsValid()) {
        error = "file " + path + ": not a film, or its header is damaged or does not fit the file";
        return 0;
    }
    if (CPtrOver::PixelBytes(header.GetHeaderAddress()) != 2) {
        error = "file " + path + ": a film of doubles; lock-in needs a film of levels";
        return 0;
    }
    const double rate = frameRate > 0.0 ? frameRate : header.GetFrameRate();
    if (!(rate > 0.0)) {
        error = "file " + path + ": the film gives no frame rate; pass --frame-rate";
        usage = true;
        return 0;
    }
    CPtr film(path, 0, 0, 1);
    const unsigned long frames = film.GetFrameNumber();
    if (!film.IsValid() || frames == 0) {
        error = "file " + path + ": the film holds no frame";
        return 0;
    }
    if (const std::string why = FilmIncomplete(film); !why.empty()) {
        error = "file " + path + ": " + why;
        return 0;
    }
    const unsigned short point = film.GetPoint(), line = film.GetLine();
    CLockin lockin(point, line, film.GetBit(), 0);
    DATA_LOCKIN parameters{};
    lockin.SetParameters(&parameters);
    // Frames read on several threads, added to the sums in frame order (the
    // sums themselves are one running total).
    FilmPipeline pipe(film);
    const auto add = [&](FilmFrame& f) {
        if (f.index == 0) lockin.SetTime(f.frame.GetTime());
        // The reference angle of frame k: 2 pi F k / R.
        const double angle = CLockin::ReferenceAngle(frequency, f.index, rate);
        if (lockin.Accumulate(&f.frame, angle, nullptr)) return true;
        f.error = "file " + path + ": frame " + std::to_string(f.index) + " does not fit the film's size";
        return false;
    };
    if (!pipe.Run({}, add)) {
        error = pipe.GetLastError();
        return 0;
    }
    const double* module = lockin.GetModule(filter, 1);
    const double* phase = lockin.GetPhase(filter, 1);
    if (!module || !phase) {
        error = "file " + path + ": no result";
        return 0;
    }
    char comment[256];
    std::snprintf(comment, sizeof(comment), "lock-in at %g Hz, %g frames/s, %lu frames of %s", frequency, rate, frames,
                  path.c_str());
    if (!lockin.SaveModule(write.moduleFilm.c_str(), "DL", comment)) {
        error = "file " + names.moduleFilm + ": cannot be written";
        return 0;
    }
    if (!lockin.SavePhase(write.phaseFilm.c_str(), "deg", comment)) {
        error = "file " + names.phaseFilm + ": cannot be written";
        return 0;
    }
    const long size = static_cast<long>(point) * line;
    Extremes(module, size, result.moduleLo, result.moduleHi);
    Extremes(phase, size, result.phaseLo, result.phaseHi);
    if (!SavePicture(write.modulePng, module, point, line, result.moduleLo, result.moduleHi, CLogPalette::RAINBOW)) {
        error = "file " + names.modulePng + ": cannot be written";
        return 0;
    }
    if (!SavePicture(write.phasePng, phase, point, line, -180.0, 180.0, CLogPalette::LOCKIN)) {
        error = "file " + names.phasePng + ": cannot be written";
        return 0;
    }
    result.frames = frames;
    result.point = point;
    result.line = line;
    result.rate = rate;
    return 1;
}

}  // namespace thermokit
