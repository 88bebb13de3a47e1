// thermokit correct: a corrected copy of a film, frame by frame: NUC table,
// bad pixels, then geometric mapping; the film's header is kept (the
// library's FilmCorrection.h does the work).
#include <memory>
#include <string>

#include "Command.h"
#include "OutputFile.h"
#include "Progress.h"
#include "thermokit/processing/FilmCorrection.h"

namespace thermokit::cli {
namespace {

struct CorrectOptions {
    std::string film;
    std::string nuc;
    std::string badPixels;
    std::string mapping;
    std::string output;
};

std::string SizeText(long point, long line) { return std::to_string(point) + " x " + std::to_string(line); }

int RunCorrect(const CorrectOptions& o) {
    const CorrectionFiles files{o.nuc, o.badPixels, o.mapping};
    // Written under a temporary name and renamed into place once complete.
    OutputFile target(o.output);
    std::unique_ptr<Progress> progress;
    CorrectionResult result;
    std::string error;
    bool usage = false;
    const bool ok = CorrectFilm(o.film, files, target.Temp(), o.output, result, error, usage, [&](unsigned long done, unsigned long total) {
        if (!progress) progress = std::make_unique<Progress>("correct", total);
        progress->Step(done);
    });
    if (progress) progress->Done();
    if (!ok) {
        Error(error);
        return usage ? kUsage : kFailed;
    }
    if (!target.Commit()) return kFailed;
    Note("%s: %lu frame(s) of %s pixels corrected (%s%s%s)\n", o.output.c_str(), result.frames,
         SizeText(result.point, result.line).c_str(), result.nuc ? "NUC " : "", result.badPixels ? "bad pixels " : "",
         result.mapping ? "mapping" : "");
    return kDone;
}

}  // namespace

void AddCorrectCommand(CLI::App& app) {
    auto o = std::make_shared<CorrectOptions>();
    auto* correct = app.add_subcommand(
        "correct",
        "Write a corrected copy of a film: NUC, bad pixels, then mapping; headers kept");
    Input(correct->add_option("film", o->film, "Film to correct"))->required();
    Input(correct->add_option("--nuc", o->nuc, "NUC table"));
    Input(correct->add_option("--badpixels", o->badPixels, "Bad-pixel map"));
    Input(correct->add_option("--mapping", o->mapping, "Mapping file (pixel permutation)"));
    Output(correct->add_option("-o,--output", o->output, "Corrected film to write (a folder: FILM.film in it)"),
           [] { return std::string(".film"); })
        ->required();
    correct->footer("Example: thermokit correct raw.film --nuc cam.nuc --badpixels cam.bpr -o corrected.film");
    correct->callback([o] { SetAction([o] { return RunCorrect(*o); }); });
}

}  // namespace thermokit::cli
