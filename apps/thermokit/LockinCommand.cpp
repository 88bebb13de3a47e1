// thermokit lockin: lock-in demodulation of a film into module and phase
// images, saved as films of doubles and as PNG pictures (the library's
// FilmLockin.h does the work).
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmHeaderJson.h"
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
    bool json = false;
};

// What makes a demodulation doubtful, said without stopping it.
void WarnAboutFrequency(const LockinOptions& o, const LockinResult& r) {
    if (r.rate > 0.0 && o.frequency > r.rate / 2.0)
        Warning("--frequency " + Number(o.frequency) + " Hz is above half the frame rate (" + Number(r.rate / 2.0) +
                " Hz): the film cannot show it, the result is an alias");
    const double periods = r.rate > 0.0 ? static_cast<double>(r.frames) * o.frequency / r.rate : 0.0;
    if (periods > 0.0 && std::fabs(periods - std::round(periods)) > 1e-6)
        Warning("the film holds " + Number(periods) + " periods of " + Number(o.frequency) +
                " Hz; a whole number of periods gives the cleanest module and phase");
}

int RunLockin(const LockinOptions& o) {
    unsigned short filter = 0;
    if (!ParseLockinFilter(o.filter, filter)) {
        Error("--filter " + o.filter + ": expected lowpass, median or none");
        return kUsage;
    }
    // The four results are written under temporary names and renamed into place together.
    const LockinOutputs names = LockinOutputs::OfPrefix(o.prefix);
    for (const std::string& out : {names.moduleFilm, names.phaseFilm, names.modulePng, names.phasePng})
        if (SameFile(out, o.file)) {
            FileError(out, "is also the input; give another -o prefix");
            return kUsage;
        }
    std::vector<std::unique_ptr<OutputFile>> outs;
    for (const std::string& out : {names.moduleFilm, names.phaseFilm, names.modulePng, names.phasePng})
        outs.push_back(std::make_unique<OutputFile>(out));
    const LockinOutputs temps{outs[0]->Temp(), outs[1]->Temp(), outs[2]->Temp(), outs[3]->Temp()};
    LockinResult r;
    std::string error;
    bool usage = false;
    if (!DemodulateFilm(o.file, o.frequency, o.frameRate, filter, temps, names, r, error, usage)) {
        Error(error);
        return usage ? kUsage : kFailed;
    }
    if (!CommitAll(outs)) return kFailed;
    WarnAboutFrequency(o, r);
    if (o.json) {
        const Json j = {{"file", NameToUtf8(o.file)}, {"frames", r.frames}, {"width", r.point}, {"height", r.line},
                        {"frame_rate_hz", r.rate}, {"frequency_hz", o.frequency}, {"filter", o.filter},
                        {"module", {{"min", r.moduleLo}, {"max", r.moduleHi}, {"film", NameToUtf8(names.moduleFilm)},
                                    {"png", NameToUtf8(names.modulePng)}}},
                        {"phase_deg", {{"min", r.phaseLo}, {"max", r.phaseHi}, {"film", NameToUtf8(names.phaseFilm)},
                                       {"png", NameToUtf8(names.phasePng)}}}};
        std::printf("%s\n", j.dump(2).c_str());
        return kDone;
    }
    Note("%s: %lu frames of %u x %u at %g frames/s, demodulated at %g Hz, filter %s\n", o.file.c_str(), r.frames,
         r.point, r.line, r.rate, o.frequency, o.filter.c_str());
    Note("module %.6g .. %.6g -> %s, %s\n", r.moduleLo, r.moduleHi, names.moduleFilm.c_str(), names.modulePng.c_str());
    Note("phase %.6g .. %.6g degrees -> %s, %s\n", r.phaseLo, r.phaseHi, names.phaseFilm.c_str(),
         names.phasePng.c_str());
    return kDone;
}

}  // namespace

void AddLockinCommand(CLI::App& app) {
    auto options = std::make_shared<LockinOptions>();
    auto* lockin = app.add_subcommand("lockin", "Demodulate a film at a frequency into module and phase images");
    Input(lockin->add_option("film", options->file, "Film file of levels"))->required();
    lockin->add_option("--frequency", options->frequency, "Demodulation frequency, Hz")
        ->required()
        ->check(Positive());
    lockin->add_option("--frame-rate", options->frameRate, "Frames per second (default: the film's own)")
        ->check(Positive());
    lockin->add_option("--filter", options->filter, "3x3 filter of the results: lowpass, median or none (default none)");
    lockin->add_option("-o,--output", options->prefix,
                       "Prefix of the results: PREFIX_module.film, PREFIX_phase.film and their .png pictures")
        ->required();
    lockin->add_flag("--json", options->json, "Write the summary as JSON");
    lockin->footer("Example: thermokit lockin run.film --frequency 0.5 --frame-rate 50 --filter median -o run");
    lockin->callback([options] { SetAction([options] { return RunLockin(*options); }); });
}

}  // namespace thermokit::cli
