// thermokit nuc compute: a NUC table from one or two uniform reference films.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "FilmHeaderJson.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/platform/File.h"

namespace thermokit::cli {
namespace {

struct NucComputeOptions {
    std::string cold;
    std::string hot;
    bool keepGain = false;
    std::string gainLimits;
    std::string output;
    bool json = false;
};

// "MIN:MAX" with MIN and MAX finite numbers.
bool ParseLimits(const std::string& text, float* min, float* max) {
    const auto colon = text.find(':');
    if (colon == std::string::npos) return false;
    try {
        size_t used = 0;
        const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
        *min = std::stof(a, &used);
        if (used != a.size()) return false;
        *max = std::stof(b, &used);
        if (used != b.size()) return false;
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

// A reference film of levels, opened once and kept for the whole update; null with a message.
std::unique_ptr<CPtr> OpenReference(const std::string& path) {
    std::unique_ptr<CPtr> film = OpenFilmForReading(path);
    if (!film) return nullptr;
    if (film->GetPixelBytes() == 8) {
        FileError(path, "a film of doubles; a NUC table is computed from a film of 16-bit levels");
        return nullptr;
    }
    if (film->GetFrameNumber() == 0) {
        FileError(path, "the film holds no frame");
        return nullptr;
    }
    return film;
}

std::string SizeText(const CPtr& film) { return std::to_string(film.GetPoint()) + " x " + std::to_string(film.GetLine()); }

// The options that do not need the files; kDone or kUsage with a message.
int CheckOptions(const NucComputeOptions& o, float& gmin, float& gmax) {
    if (!o.gainLimits.empty() && !ParseLimits(o.gainLimits, &gmin, &gmax)) {
        Error("--gain-limits " + o.gainLimits + ": expected MIN:MAX, two numbers, for example 0.5:2");
        return kUsage;
    }
    if (!(gmin > 0.0f) || !(gmin < gmax) || !std::isfinite(gmax)) {
        Error("--gain-limits " + o.gainLimits + ": expected 0 < MIN < MAX, for example 0.5:2");
        return kUsage;
    }
    if (o.keepGain && !o.hot.empty()) {
        Error("--keep-gain only applies to a one-point update (no --hot film)");
        return kUsage;
    }
    if (!o.hot.empty() && SameFile(o.cold, o.hot)) {
        Error("--hot " + o.hot + ": the same film as --cold; a two-point update needs two scenes");
        return kUsage;
    }
    return kDone;
}

// Keeping the gain re-centres the offsets of an existing table: the output is read first.
bool StartTable(const NucComputeOptions& o, const CPtr& cold, CNuc& nuc) {
    if (!o.keepGain) {
        nuc.Reset();
        return true;
    }
    CNuc existing(o.output.c_str());
    if (!existing.IsValid()) {
        FileError(o.output, "--keep-gain needs an existing NUC table to keep the gains of (" +
                                existing.GetLastErrorText() + ")");
        return false;
    }
    if (existing.GetPoint() != cold.GetPoint() || existing.GetLine() != cold.GetLine()) {
        FileError(o.output, "the table is for " + std::to_string(existing.GetPoint()) + " x " +
                                std::to_string(existing.GetLine()) + " pixels, the film has " + SizeText(cold));
        return false;
    }
    nuc = existing;
    return true;
}

void Summary(const NucComputeOptions& o, CNuc& nuc, float gmin, float gmax) {
    const float* g = nuc.GetAlpha();
    const long n = nuc.GetSize();
    long atMin = 0, atMax = 0;
    double sum = 0.0;
    for (long i = 0; i < n; ++i) {
        sum += g[i];
        if (g[i] == gmin) ++atMin;
        if (g[i] == gmax) ++atMax;
    }
    const char* kind = o.hot.empty() ? "one-point" : "two-point";
    if (o.json) {
        const Json j = {{"file", NameToUtf8(o.output)}, {"width", nuc.GetPoint()}, {"height", nuc.GetLine()},
                        {"update", kind}, {"mean_gain", n ? sum / n : 0.0},
                        {"gain_limits", {Float32(gmin), Float32(gmax)}}, {"at_lower_limit", atMin},
                        {"at_upper_limit", atMax}};
        std::printf("%s\n", j.dump(2).c_str());
        return;
    }
    Note("%s: %u x %u pixels, %s, mean gain %.6f, %ld gain(s) at the lower limit %g, %ld at the upper limit %g\n",
         o.output.c_str(), nuc.GetPoint(), nuc.GetLine(), kind, n ? sum / n : 0.0, atMin, static_cast<double>(gmin),
         atMax, static_cast<double>(gmax));
}

int RunNucCompute(const NucComputeOptions& o) {
    float gmin = 0.1f, gmax = 10.0f;
    if (const int rc = CheckOptions(o, gmin, gmax); rc != kDone) return rc;
    const bool onePoint = o.hot.empty();
    std::unique_ptr<CPtr> cold = OpenReference(o.cold), hot;
    if (!cold || (!onePoint && !(hot = OpenReference(o.hot)))) return kFailed;
    if (hot && (hot->GetPoint() != cold->GetPoint() || hot->GetLine() != cold->GetLine())) {
        FileError(o.hot, SizeText(*hot) + " pixels, but the cold film has " + SizeText(*cold));
        return kFailed;
    }
    CNuc nuc(cold->GetPoint(), cold->GetLine());
    if (!StartTable(o, *cold, nuc)) return kFailed;
    nuc.SetGainLimit(gmin, gmax);
    if (!Quiet() && !o.json)
        std::fprintf(stderr, "averaging %lu frame(s) of %s%s\n", cold->GetFrameNumber(), o.cold.c_str(),
                     onePoint ? "" : (" and the frames of " + o.hot).c_str());
    if (!nuc.Update(*cold, hot.get(), onePoint ? 1 : 0, o.keepGain ? 1 : 0)) {
        const CPtr& failed = cold->GetLastErrorText().empty() && hot ? *hot : *cold;
        FileError(failed.GetFileName(), failed.GetLastErrorText().empty() ? "a frame cannot be read"
                                                                          : failed.GetLastErrorText());
        return kFailed;
    }
    OutputFile target(o.output);
    if (!nuc.Save(target.c_str())) {
        FileError(o.output, "cannot be written (" + nuc.GetLastErrorText() + ")");
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    Summary(o, nuc, gmin, gmax);
    return kDone;
}

}  // namespace

void AddNucCommand(CLI::App& app) {
    auto* nuc = app.add_subcommand("nuc", "Non-uniformity correction tables");
    nuc->require_subcommand(1);
    nuc->footer("Example: thermokit nuc compute --cold bb20.film --hot bb40.film -o cam.nuc");
    auto opts = std::make_shared<NucComputeOptions>();
    auto* compute = nuc->add_subcommand(
        "compute",
        "Compute a NUC table from uniform reference films (each averaged over its frames): two-point with --hot, "
        "else one-point (gain 1, or the existing table's gains with --keep-gain)");
    Input(compute->add_option("--cold", opts->cold, "Film of the cold (or only) uniform reference"))->required();
    Input(compute->add_option("--hot", opts->hot, "Film of the hot uniform reference (two-point update)"));
    compute->add_flag("--keep-gain", opts->keepGain,
                      "One point: keep (and re-clamp) the gains of the existing table named by -o");
    compute->add_option("--gain-limits", opts->gainLimits, "Gain limits MIN:MAX (default 0.1:10)");
    Output(compute->add_option("-o,--output", opts->output, "NUC table to write"))->required();
    compute->add_flag("--json", opts->json, "Write the summary as JSON");
    compute->footer("Example: thermokit nuc compute --cold bb20.film --hot bb40.film --gain-limits 0.5:2 -o cam.nuc");
    compute->callback([opts] { SetAction([opts] { return RunNucCompute(*opts); }); });
}

}  // namespace thermokit::cli
