// thermokit badpixels detect: a bad-pixel map from a NUC table's gains and
// offsets and from the temporal noise of a film.
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Command.h"
#include "FilmHeaderJson.h"
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
        FileError(path, film.GetLastErrorText().empty() ? "a frame cannot be read" : film.GetLastErrorText());
        return false;
    }
    return true;
}

bool CheckCriteria(const DetectOptions& o) {
    if (!o.gainGiven && !o.offsetGiven && !o.noiseGiven) {
        Error("give at least one criterion: --gain, --offset or --noise");
        return false;
    }
    if ((o.gainGiven || o.offsetGiven) && o.nuc.empty()) {
        Error("--gain and --offset need the NUC table (--nuc) whose gains and offsets are tested");
        return false;
    }
    if (o.noiseGiven && o.noiseFilm.empty()) {
        Error("--noise needs the film (--noise-film) whose temporal noise is tested");
        return false;
    }
    return true;
}

// What the criteria are tested on: the NUC table, the film's noise, and their common size.
struct DetectSources {
    unsigned short point = 0, line = 0;
    std::unique_ptr<CNuc> nuc;
    std::vector<float> noise;
};

bool OpenDetectNuc(const std::string& path, DetectSources& src) {
    src.nuc = std::make_unique<CNuc>(path.c_str());
    if (!src.nuc->IsValid()) {
        FileError(path, src.nuc->GetLastErrorText());
        return false;
    }
    src.point = src.nuc->GetPoint();
    src.line = src.nuc->GetLine();
    if (src.nuc->GetSize() != static_cast<long>(src.point) * src.line) {
        FileError(path, "holds " + std::to_string(src.nuc->GetSize()) + " pixels, not " + std::to_string(src.point) +
                            " x " + std::to_string(src.line));
        return false;
    }
    return true;
}

bool OpenDetectNoise(const std::string& path, DetectSources& src) {
    // Opened once: its header, its completeness and its frames are those of one file.
    std::unique_ptr<CPtr> film = OpenFilmForReading(path);
    if (!film) return false;
    if (film->GetPixelBytes() != 2 || film->GetFrameNumber() < 2) {
        FileError(path, "not a film of at least two 16-bit images");
        return false;
    }
    if (src.nuc && (film->GetPoint() != src.point || film->GetLine() != src.line)) {
        FileError(path, std::to_string(film->GetPoint()) + " x " + std::to_string(film->GetLine()) +
                            " pixels, the NUC table " + std::to_string(src.point) + " x " + std::to_string(src.line));
        return false;
    }
    src.point = film->GetPoint();
    src.line = film->GetLine();
    return FilmNoise(path, *film, src.noise);
}

bool BuildMap(const DetectOptions& o, DetectSources& src, CPixel& map) {
    const long size = static_cast<long>(src.point) * src.line;
    if ((o.gainGiven && !map.UpdateGain(src.nuc->GetAlpha(), size, o.gainPercent, o.gainReference)) ||
        (o.offsetGiven && !map.UpdateOffset(src.nuc->GetBeta(), size, o.offsetPercent, o.level)) ||
        (o.noiseGiven && !map.UpdateNoise(src.noise.data(), size, o.noiseThreshold, o.noiseHigh ? 1 : 0))) {
        Error("more than " + std::to_string(CPixel::kMaxBad) + " bad pixels: " + map.GetLastErrorMessage() +
              "; loosen the criteria");
        return false;
    }
    map.UpdateReplacement();
    map.UpdateDistribution(nullptr, 0);
    return true;
}

// Both files or neither: the map is written under a temporary name, the
// report (which names its own file in its first line) under its name, and
// the map is renamed into place only once the report is whole.
bool WriteMapAndReport(const DetectOptions& o, CPixel& map) {
    OutputFile target(o.output);
    if (!map.Save(target.c_str())) {
        FileError(o.output, "cannot be written (" + map.GetLastErrorText() + ")");
        return false;
    }
    if (!o.report.empty() &&
        !map.SaveAscii(o.report.c_str(), o.gainGiven ? 1 : 0, o.offsetGiven ? 1 : 0, o.noiseGiven ? 1 : 0)) {
        FileError(o.report, map.GetLastErrorText());
        std::remove(o.report.c_str());
        return false;
    }
    if (!target.Commit()) {
        if (!o.report.empty()) std::remove(o.report.c_str());
        return false;
    }
    return true;
}

int RunDetect(const DetectOptions& o) {
    if (!CheckCriteria(o)) return kUsage;
    DetectSources src;
    if (!o.nuc.empty() && !OpenDetectNuc(o.nuc, src)) return kFailed;
    if (!o.noiseFilm.empty() && !OpenDetectNoise(o.noiseFilm, src)) return kFailed;
    CPixel map(src.point, src.line, 0);
    if (!BuildMap(o, src, map) || !WriteMapAndReport(o, map)) return kFailed;
    Note("%s: %u x %u pixels, %ld bad (gain %ld, offset %ld, noise %ld, gain & offset %ld, "
         "offset & noise %ld, gain & noise %ld, all three %ld)\n",
         o.output.c_str(), src.point, src.line, map.GetSize(), map.GetGain(), map.GetOffset(), map.GetNoise(),
         map.GetOffsetGain(), map.GetOffsetNoise(), map.GetGainNoise(), map.GetOffsetGainNoise());
    // The report's own first line names the report file (its fixed format); said here: whose it is, and how
    // it counts places (badpixels list gives them from 0).
    if (!o.report.empty())
        Note("%s: report of the map %s; coordinates 1-based (column 1, line 1 is the first pixel)\n",
             o.report.c_str(), o.output.c_str());
    return kDone;
}

// The criteria a pixel failed, by its code; empty when the map keeps none.
std::string Kind(unsigned char code) {
    std::string kind;
    for (const auto& [bits, name] : {std::pair<unsigned char, const char*>{CPixel::kGain, "gain"},
                                     {CPixel::kOffset, "offset"}, {CPixel::kNoise, "noise"}})
        if (code & bits) kind += (kind.empty() ? "" : "+") + std::string(name);
    return kind;
}

// Every bad pixel of a map with its replacement, 0-based columns and lines.
int RunList(const std::string& path, bool json) {
    CPixel map(path.c_str());
    if (!map.IsValid()) {
        FileError(path, map.GetLastErrorText().empty() ? map.GetLastErrorMessage() : map.GetLastErrorText());
        return kFailed;
    }
    Json pixels = Json::array();
    for (long k = 0; k < map.GetSize(); ++k) {
        unsigned short x = 0, y = 0, rx = 0, ry = 0;
        map.Coordinates(map.GetPixel1()[k], &x, &y);
        map.Coordinates(map.GetPixel2()[k], &rx, &ry);
        const unsigned char code = map.IsDistributed() && map.GetCriteria() ? map.GetCriteria()[k] : 0;
        pixels.push_back({{"x", x}, {"y", y}, {"kind", Kind(code)}, {"replacement", {rx, ry}}});
    }
    if (json) {
        const Json out = {{"file", NameToUtf8(path)}, {"width", map.GetPoint()}, {"height", map.GetLine()},
                          {"count", map.GetSize()}, {"pixels", pixels}};
        std::printf("%s\n", out.dump(2).c_str());
        return kDone;
    }
    std::printf("%6s %6s %-18s %s\n", "x", "y", "kind", "replacement");
    for (const Json& p : pixels)
        std::printf("%6u %6u %-18s %u,%u\n", p["x"].get<unsigned>(), p["y"].get<unsigned>(),
                    p["kind"].get<std::string>().empty() ? "-" : p["kind"].get<std::string>().c_str(),
                    p["replacement"][0].get<unsigned>(), p["replacement"][1].get<unsigned>());
    return kDone;
}

}  // namespace

void AddBadPixelsCommand(CLI::App& app) {
    auto* bad = app.add_subcommand("badpixels", "Bad-pixel maps");
    bad->require_subcommand(1);
    bad->footer("Example: thermokit badpixels detect --nuc cam.nuc --gain 20 --offset 5 -o cam.bpr");
    auto o = std::make_shared<DetectOptions>();
    auto* detect = bad->add_subcommand(
        "detect",
        "Detect bad pixels: gains outside +/-PERCENT of the reference, offsets outside +/-PERCENT of the level, "
        "temporal noise at or below (or, with --noise-high, at or above) a threshold; replacements are chosen "
        "among the nearest good neighbours");
    Input(detect->add_option("--nuc", o->nuc, "NUC table whose gains and offsets are tested"));
    detect->add_option("--gain", o->gainPercent, "Gain criterion in percent (e.g. 20: outside 0.8..1.2 x reference)")
        ->check(Positive())
        ->each([o](const std::string&) { o->gainGiven = true; });
    detect->add_option("--gain-reference", o->gainReference, "Nominal gain (default 1.0)")->check(Positive());
    detect->add_option("--offset", o->offsetPercent, "Offset criterion in percent of --level")
        ->check(Positive())
        ->each([o](const std::string&) { o->offsetGiven = true; });
    detect->add_option("--level", o->level, "Level the offset criterion is a percentage of (default 16383)");
    Input(detect->add_option("--noise-film", o->noiseFilm, "Film of a uniform scene whose temporal noise is tested"));
    detect->add_option("--noise", o->noiseThreshold, "Noise threshold in DL")
        ->check(NonNegative())
        ->each([o](const std::string&) { o->noiseGiven = true; });
    detect->add_flag("--noise-high", o->noiseHigh, "Flag noisy pixels (noise >= threshold) instead of dead ones");
    Output(detect->add_option("-o,--output", o->output, "Bad-pixel map to write"))->required();
    Output(detect->add_option("--report", o->report, "Also write the text report of the map"));
    detect->footer(
        "Example: thermokit badpixels detect --nuc cam.nuc --gain 20 --offset 10 --noise-film flat.film --noise 0.5 "
        "-o cam.bpr --report cam.txt");
    detect->callback([o] { SetAction([o] { return RunDetect(*o); }); });

    auto listed = std::make_shared<std::pair<std::string, bool>>();
    auto* list = bad->add_subcommand("list", "List the bad pixels of a map: x, y (from 0), the criteria failed, the replacement");
    Input(list->add_option("map", listed->first, "Bad-pixel map"))->required();
    list->add_flag("--json", listed->second, "Write JSON");
    list->footer("Example: thermokit badpixels list cam.bpr --json");
    list->callback([listed] { SetAction([listed] { return RunList(listed->first, listed->second); }); });
}

}  // namespace thermokit::cli
