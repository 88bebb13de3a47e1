// thermokit correct: a corrected copy of a film, frame by frame: NUC table,
// bad pixels, then geometric mapping; the film's header is kept.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "Command.h"
#include "FilmInput.h"
#include "FilmWork.h"
#include "OutputFile.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"

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
    if (o.nuc.empty() && o.badPixels.empty() && o.mapping.empty()) {
        Error("give at least one correction: --nuc, --badpixels or --mapping");
        return kUsage;
    }
    if (!File::Exists(o.film)) {
        Error("file " + o.film + ": cannot be opened");
        return kFailed;
    }
    for (const std::string* given : {&o.nuc, &o.badPixels, &o.mapping}) {
        if (!given->empty() && !File::Exists(*given)) {
            Error("file " + *given + ": cannot be opened");
            return kFailed;
        }
    }
    std::error_code ec;
    if (File::Exists(o.output) && std::filesystem::equivalent(o.film, o.output, ec)) {
        Error("file " + o.output + ": the output would overwrite the input film");
        return kUsage;
    }
    CPtr in(o.film, 0, 0, 0);
    if (!in.IsValid()) {
        Error("file " + o.film + ": not a film of 16-bit images");
        return kFailed;
    }
    if (!FilmComplete(in, o.film)) return kFailed;
    const long point = in.GetPoint(), line = in.GetLine();

    CCorrection chain(o.nuc, o.badPixels, o.mapping);
    if (!o.nuc.empty()) {
        CNuc* nuc = chain.GetNuc();
        if (!nuc->IsValid()) {
            Error("file " + o.nuc + ": not a readable NUC table");
            return kFailed;
        }
        if (nuc->GetPoint() != point || nuc->GetLine() != line || nuc->GetSize() != point * line) {
            Error("file " + o.nuc + ": the table is for " + SizeText(nuc->GetPoint(), nuc->GetLine()) +
                  " pixels, the film has " + SizeText(point, line));
            return kFailed;
        }
    }
    if (!o.badPixels.empty()) {
        CPixel* map = chain.GetBadPixels();
        if (!map->IsValid()) {
            Error("file " + o.badPixels + ": not a readable bad-pixel map (" + map->GetLastErrorMessage() + ")");
            return kFailed;
        }
        if (map->GetPoint() != point || map->GetLine() != line) {
            Error("file " + o.badPixels + ": the map is for " + SizeText(map->GetPoint(), map->GetLine()) +
                  " pixels, the film has " + SizeText(point, line));
            return kFailed;
        }
    }
    if (!o.mapping.empty()) {
        CMapping* mapping = chain.GetMapping();
        if (!mapping->IsValid()) {
            Error("file " + o.mapping + ": not a readable mapping file");
            return kFailed;
        }
        if (mapping->GetPoint() != point || mapping->GetLine() != line) {
            Error("file " + o.mapping + ": the mapping is for " + SizeText(mapping->GetPoint(), mapping->GetLine()) +
                  " pixels, the film has " + SizeText(point, line));
            return kFailed;
        }
        int reason = 0;
        if (!mapping->Check(&reason)) {
            Error("file " + o.mapping + (reason == 1 ? ": an entry lies outside the image" : ": not a permutation"));
            return kFailed;
        }
    }

    // The output starts as a copy of the input's header with no image; it is
    // written under a temporary name and renamed into place once complete.
    OutputFile target(o.output);
    CPtr out(in);
    out.SetFileName(target.Temp());
    out.SetFrameNumber(0);
    out.SetCurrentFrame(0);
    const unsigned long frames = in.GetFrameNumber();
    const unsigned short maxLevel = in.GetMaxLevel();
    if (frames == 0 && !out.WriteHeader()) {
        Error("file " + o.output + ": cannot be created");
        return kFailed;
    }
    // Frames corrected on every core, added to the output in frame order.
    FilmPipeline pipe(in);
    const auto correct = [&](FilmFrame& f) { return chain.Apply(f.frame.GetBuffer(), maxLevel) == 1; };
    if (!RunFrames(pipe, "correct", correct, [&](FilmFrame& f) { return AppendFrame(out, o.output, f); }))
        return kFailed;
    if (!target.Commit()) return kFailed;
    Note("%s: %lu frame(s) of %s pixels corrected (%s%s%s)\n", o.output.c_str(), frames,
                SizeText(point, line).c_str(), chain.IsNucUsed() ? "NUC " : "",
                chain.IsBadPixelsUsed() ? "bad pixels " : "", chain.IsMappingUsed() ? "mapping" : "");
    return kDone;
}

RegisterCommand reg(320, [](CLI::App& app) {
    auto o = std::make_shared<CorrectOptions>();
    auto* correct = app.add_subcommand(
        "correct",
        "Write a corrected copy of a film: NUC, bad pixels, then mapping; headers kept");
    correct->add_option("film", o->film, "Film to correct")->required();
    correct->add_option("--nuc", o->nuc, "NUC table");
    correct->add_option("--badpixels", o->badPixels, "Bad-pixel map");
    correct->add_option("--mapping", o->mapping, "Mapping file (pixel permutation)");
    correct->add_option("-o,--output", o->output, "Corrected film to write")->required();
    correct->footer("Example: thermokit correct raw.film --nuc cam.nuc --badpixels cam.bpr -o corrected.film");
    correct->callback([o] { SetAction([o] { return RunCorrect(*o); }); });
});

}  // namespace
}  // namespace thermokit::cli
