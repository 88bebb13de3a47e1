// thermokit lockin: lock-in demodulation of a film into module and phase
// images, saved as films of doubles and as PNG pictures.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmInput.h"
#include "FilmWork.h"
#include "OutputFile.h"
#include "thermokit/acquisition/CLockin.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"

namespace thermokit::cli {
namespace {

struct LockinOptions {
    std::string file;
    double frequency = 0.0;
    double frameRate = 0.0;
    std::string filter = "none";
    std::string prefix;
};

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

int RunLockin(const LockinOptions& o) {
    unsigned short filter = CLockin::FILTER_NONE;
    if (o.filter == "lowpass") filter = CLockin::FILTER_LOWPASS;
    else if (o.filter == "median") filter = CLockin::FILTER_MEDIAN;
    else if (o.filter != "none") {
        Error("--filter " + o.filter + ": expected lowpass, median or none");
        return kUsage;
    }
    CPtrOver header(o.file);
    if (!header.IsValid()) {
        Error("file " + o.file + ": not a film, or its header is damaged or does not fit the file");
        return kFailed;
    }
    if (CPtrOver::PixelBytes(header.GetHeaderAddress()) != 2) {
        Error("file " + o.file + ": a film of doubles; lock-in needs a film of levels");
        return kFailed;
    }
    const double rate = o.frameRate > 0.0 ? o.frameRate : header.GetFrameRate();
    if (!(rate > 0.0)) {
        Error("file " + o.file + ": the film gives no frame rate; pass --frame-rate");
        return kUsage;
    }
    CPtr film(o.file, 0, 0, 1);
    const unsigned long frames = film.GetFrameNumber();
    if (!film.IsValid() || frames == 0) {
        Error("file " + o.file + ": the film holds no frame");
        return kFailed;
    }
    if (!FilmComplete(film, o.file)) return kFailed;
    const unsigned short point = film.GetPoint(), line = film.GetLine();
    CLockin lockin(point, line, film.GetBit(), 0);
    DATA_LOCKIN parameters{};
    lockin.SetParameters(&parameters);
    // Frames read on every core, added to the sums in frame order.
    FilmPipeline pipe(film);
    const auto add = [&](FilmFrame& f) {
        if (f.index == 0) lockin.SetTime(f.frame.GetTime());
        // The reference angle of frame k: 2 pi F k / R.
        if (lockin.Accumulate(&f.frame, CLockin::ReferenceAngle(o.frequency, f.index, rate), nullptr)) return true;
        f.error = "file " + o.file + ": frame " + std::to_string(f.index) + " does not fit the film's size";
        return false;
    };
    if (!RunFrames(pipe, "lockin", {}, add)) return kFailed;
    const double* module = lockin.GetModule(filter, 1);
    const double* phase = lockin.GetPhase(filter, 1);
    if (!module || !phase) {
        Error("file " + o.file + ": no result");
        return kFailed;
    }
    char comment[256];
    std::snprintf(comment, sizeof(comment), "lock-in at %g Hz, %g frames/s, %lu frames of %s", o.frequency, rate,
                  frames, o.file.c_str());
    const std::string moduleFilm = o.prefix + "_module.film", phaseFilm = o.prefix + "_phase.film";
    const std::string modulePng = o.prefix + "_module.png", phasePng = o.prefix + "_phase.png";
    // The four results are written under temporary names and renamed into place together.
    OutputFile moduleOut(moduleFilm), phaseOut(phaseFilm), modulePngOut(modulePng), phasePngOut(phasePng);
    if (!lockin.SaveModule(moduleOut.c_str(), "DL", comment)) {
        Error("file " + moduleFilm + ": cannot be written");
        return kFailed;
    }
    if (!lockin.SavePhase(phaseOut.c_str(), "deg", comment)) {
        Error("file " + phaseFilm + ": cannot be written");
        return kFailed;
    }
    const long size = static_cast<long>(point) * line;
    double mlo = 0.0, mhi = 0.0, plo = 0.0, phi = 0.0;
    Extremes(module, size, mlo, mhi);
    Extremes(phase, size, plo, phi);
    if (!SavePicture(modulePngOut.Temp(), module, point, line, mlo, mhi, CLogPalette::RAINBOW)) {
        Error("file " + modulePng + ": cannot be written");
        return kFailed;
    }
    // The phase picture spans the whole circle, so that colours compare between films.
    if (!SavePicture(phasePngOut.Temp(), phase, point, line, -180.0, 180.0, CLogPalette::LOCKIN)) {
        Error("file " + phasePng + ": cannot be written");
        return kFailed;
    }
    if (!moduleOut.Commit() || !phaseOut.Commit() || !modulePngOut.Commit() || !phasePngOut.Commit()) return kFailed;
    Note("%s: %lu frames of %u x %u at %g frames/s, demodulated at %g Hz, filter %s\n", o.file.c_str(), frames,
                point, line, rate, o.frequency, o.filter.c_str());
    Note("module %.6g .. %.6g -> %s, %s\n", mlo, mhi, moduleFilm.c_str(), modulePng.c_str());
    Note("phase %.6g .. %.6g degrees -> %s, %s\n", plo, phi, phaseFilm.c_str(), phasePng.c_str());
    return kDone;
}

RegisterCommand reg(330, [](CLI::App& app) {
    auto options = std::make_shared<LockinOptions>();
    auto* lockin = app.add_subcommand("lockin", "Demodulate a film at a frequency into module and phase images");
    lockin->add_option("film", options->file, "Film file of levels")->required();
    lockin->add_option("--frequency", options->frequency, "Demodulation frequency, Hz")
        ->required()
        ->check(CLI::PositiveNumber);
    lockin->add_option("--frame-rate", options->frameRate, "Frames per second (default: the film's own)")
        ->check(CLI::PositiveNumber);
    lockin->add_option("--filter", options->filter, "3x3 filter of the results: lowpass, median or none (default none)");
    lockin->add_option("-o,--output", options->prefix,
                       "Prefix of the results: PREFIX_module.film, PREFIX_phase.film and their .png pictures")
        ->required();
    lockin->footer("Example: thermokit lockin run.film --frequency 0.5 --frame-rate 50 --filter median -o run");
    lockin->callback([options] { SetAction([options] { return RunLockin(*options); }); });
});

}  // namespace
}  // namespace thermokit::cli
