// thermokit badpixels detect: a bad-pixel map from a NUC table's gains and
// offsets and from the temporal noise of a film.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"

namespace thermokit::cli {
namespace {

struct DetectOptions {
    std::string nuc;
    std::string noiseFilm;
    float gainPercent = 0.0f;
    float gainReference = 1.0f;
    float offsetPercent = 0.0f;
    unsigned short level = 16383;
    float noiseThreshold = 0.0f;
    bool noiseHigh = false;
    std::string output;
    std::string report;
    bool gainGiven = false, offsetGiven = false, noiseGiven = false;
};

// Temporal noise of every pixel of a film: the root-mean-square deviation of
// its frames from their mean.
bool FilmNoise(const std::string& path, CPtr& film, std::vector<float>& noise) {
    noise.assign(static_cast<size_t>(film.GetSize()), 0.0f);
    if (!ReadTemporalNoise(film, noise.data())) {
        Error("file " + path + ": a frame cannot be read");
        return false;
    }
    return true;
}

int RunDetect(const DetectOptions& o) {
    if (!o.gainGiven && !o.offsetGiven && !o.noiseGiven) {
        Error("give at least one criterion: --gain, --offset or --noise");
        return kUsage;
    }
    if ((o.gainGiven || o.offsetGiven) && o.nuc.empty()) {
        Error("--gain and --offset need the NUC table (--nuc) whose gains and offsets are tested");
        return kUsage;
    }
    if (o.noiseGiven && o.noiseFilm.empty()) {
        Error("--noise needs the film (--noise-film) whose temporal noise is tested");
        return kUsage;
    }

    unsigned short point = 0, line = 0;
    std::unique_ptr<CNuc> nuc;
    if (!o.nuc.empty()) {
        nuc = std::make_unique<CNuc>(o.nuc.c_str());
        if (!nuc->IsValid()) {
            Error("file " + o.nuc + ": " + nuc->GetLastErrorText());
            return kFailed;
        }
        point = nuc->GetPoint();
        line = nuc->GetLine();
        if (nuc->GetSize() != static_cast<long>(point) * line) {
            Error("file " + o.nuc + ": holds " + std::to_string(nuc->GetSize()) + " pixels, not " +
                  std::to_string(point) + " x " + std::to_string(line));
            return kFailed;
        }
    }
    std::vector<float> noise;
    if (!o.noiseFilm.empty()) {
        if (!File::Exists(o.noiseFilm)) {
            Error("file " + o.noiseFilm + ": cannot be opened");
            return kFailed;
        }
        CPtr film(o.noiseFilm, 0, 0, 0);
        if (!film.IsValid() || film.GetFrameNumber() < 2) {
            Error("file " + o.noiseFilm + ": not a film of at least two 16-bit images");
            return kFailed;
        }
        if (!FilmComplete(film, o.noiseFilm)) return kFailed;
        if (nuc && (film.GetPoint() != point || film.GetLine() != line)) {
            Error("file " + o.noiseFilm + ": " + std::to_string(film.GetPoint()) + " x " +
                  std::to_string(film.GetLine()) + " pixels, the NUC table " + std::to_string(point) + " x " +
                  std::to_string(line));
            return kFailed;
        }
        point = film.GetPoint();
        line = film.GetLine();
        if (!FilmNoise(o.noiseFilm, film, noise)) return kFailed;
    }

    const long size = static_cast<long>(point) * line;
    CPixel map(point, line, 0);
    auto full = [&map] {
        Error("more than " + std::to_string(CPixel::kMaxBad) + " bad pixels: " + map.GetLastErrorMessage() +
              "; loosen the criteria");
        return kFailed;
    };
    if (o.gainGiven && !map.UpdateGain(nuc->GetAlpha(), size, o.gainPercent, o.gainReference)) return full();
    if (o.offsetGiven && !map.UpdateOffset(nuc->GetBeta(), size, o.offsetPercent, o.level)) return full();
    if (o.noiseGiven && !map.UpdateNoise(noise.data(), size, o.noiseThreshold, o.noiseHigh ? 1 : 0)) return full();
    map.UpdateReplacement();
    map.UpdateDistribution(nullptr, 0);
    // The map is written under a temporary name and renamed into place once
    // complete; the report names its own file in its first line, so it is
    // written under its name, after the map.
    OutputFile target(o.output);
    if (!map.Save(target.c_str())) {
        Error("file " + o.output + ": cannot be created");
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    if (!o.report.empty() &&
        !map.SaveAscii(o.report.c_str(), o.gainGiven ? 1 : 0, o.offsetGiven ? 1 : 0, o.noiseGiven ? 1 : 0)) {
        Error("file " + o.report + ": cannot be created");
        return kFailed;
    }
    Note("%s: %u x %u pixels, %ld bad (gain %ld, offset %ld, noise %ld, gain & offset %ld, "
                "offset & noise %ld, gain & noise %ld, all three %ld)\n",
                o.output.c_str(), point, line, map.GetSize(), map.GetGain(), map.GetOffset(), map.GetNoise(),
                map.GetOffsetGain(), map.GetOffsetNoise(), map.GetGainNoise(), map.GetOffsetGainNoise());
    return kDone;
}

RegisterCommand reg(310, [](CLI::App& app) {
    auto* bad = app.add_subcommand("badpixels", "Bad-pixel maps");
    bad->require_subcommand(1);
    bad->footer("Example: thermokit badpixels detect --nuc cam.nuc --gain 20 --offset 5 -o cam.bpr");
    auto o = std::make_shared<DetectOptions>();
    auto* detect = bad->add_subcommand(
        "detect",
        "Detect bad pixels: gains outside +/-PERCENT of the reference, offsets outside +/-PERCENT of the level, "
        "temporal noise at or below (or, with --noise-high, at or above) a threshold; replacements are chosen "
        "among the nearest good neighbours");
    detect->add_option("--nuc", o->nuc, "NUC table whose gains and offsets are tested");
    detect->add_option("--gain", o->gainPercent, "Gain criterion in percent (e.g. 20: outside 0.8..1.2 x reference)")
        ->each([o](const std::string&) { o->gainGiven = true; });
    detect->add_option("--gain-reference", o->gainReference, "Nominal gain (default 1.0)");
    detect->add_option("--offset", o->offsetPercent, "Offset criterion in percent of --level")
        ->each([o](const std::string&) { o->offsetGiven = true; });
    detect->add_option("--level", o->level, "Level the offset criterion is a percentage of (default 16383)");
    detect->add_option("--noise-film", o->noiseFilm, "Film of a uniform scene whose temporal noise is tested");
    detect->add_option("--noise", o->noiseThreshold, "Noise threshold in DL")
        ->each([o](const std::string&) { o->noiseGiven = true; });
    detect->add_flag("--noise-high", o->noiseHigh, "Flag noisy pixels (noise >= threshold) instead of dead ones");
    detect->add_option("-o,--output", o->output, "Bad-pixel map to write")->required();
    detect->add_option("--report", o->report, "Also write the text report of the map");
    detect->footer(
        "Example: thermokit badpixels detect --nuc cam.nuc --gain 20 --offset 10 --noise-film flat.film --noise 0.5 "
        "-o cam.bpr --report cam.txt");
    detect->callback([o] { SetAction([o] { return RunDetect(*o); }); });
});

}  // namespace
}  // namespace thermokit::cli
