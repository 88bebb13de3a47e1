// thermokit lockin: lock-in demodulation of a film into module and phase
// images, saved as films of doubles and as PNG pictures (the library's
// FilmLockin.h does the work).
#include <memory>
#include <string>

#include "Command.h"
#include "OutputFile.h"
#include "thermokit/processing/FilmLockin.h"

namespace thermokit::cli {
namespace {

struct LockinOptions {
    std::string file;
    double frequency = 0.0;
    double frameRate = 0.0;
    std::string filter = "none";
    std::string prefix;
};

int RunLockin(const LockinOptions& o) {
    unsigned short filter = 0;
    if (!ParseLockinFilter(o.filter, filter)) {
        Error("--filter " + o.filter + ": expected lowpass, median or none");
        return kUsage;
    }
    // The four results are written under temporary names and renamed into place together.
    const LockinOutputs names = LockinOutputs::OfPrefix(o.prefix);
    OutputFile moduleOut(names.moduleFilm), phaseOut(names.phaseFilm), modulePngOut(names.modulePng),
        phasePngOut(names.phasePng);
    const LockinOutputs temps{moduleOut.Temp(), phaseOut.Temp(), modulePngOut.Temp(), phasePngOut.Temp()};
    LockinResult r;
    std::string error;
    bool usage = false;
    if (!DemodulateFilm(o.file, o.frequency, o.frameRate, filter, temps, names, r, error, usage)) {
        Error(error);
        return usage ? kUsage : kFailed;
    }
    if (!moduleOut.Commit() || !phaseOut.Commit() || !modulePngOut.Commit() || !phasePngOut.Commit()) return kFailed;
    Note("%s: %lu frames of %u x %u at %g frames/s, demodulated at %g Hz, filter %s\n", o.file.c_str(), r.frames,
         r.point, r.line, r.rate, o.frequency, o.filter.c_str());
    Note("module %.6g .. %.6g -> %s, %s\n", r.moduleLo, r.moduleHi, names.moduleFilm.c_str(), names.modulePng.c_str());
    Note("phase %.6g .. %.6g degrees -> %s, %s\n", r.phaseLo, r.phaseHi, names.phaseFilm.c_str(),
         names.phasePng.c_str());
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
