// thermokit nuc compute: a NUC table from one or two uniform reference films.
#include <cstdio>
#include <string>

#include "Command.h"
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

// Opens a film and says what is wrong with it; null when it cannot be used.
bool CheckFilm(const std::string& path, CPtr& film) {
    if (!File::Exists(path)) {
        Error("file " + path + ": cannot be opened");
        return false;
    }
    if (!film.IsValid()) {
        Error("file " + path + ": not a film of 16-bit images");
        return false;
    }
    if (film.GetFrameNumber() == 0) {
        Error("file " + path + ": the film holds no image");
        return false;
    }
    return FilmComplete(film, path);
}

int RunNucCompute(const NucComputeOptions& o) {
    float gmin = 0.1f, gmax = 10.0f;
    if (!o.gainLimits.empty() && !ParseLimits(o.gainLimits, &gmin, &gmax)) {
        Error("--gain-limits " + o.gainLimits + ": expected MIN:MAX, for example 0.5:2");
        return kUsage;
    }
    const bool onePoint = o.hot.empty();
    if (o.keepGain && !onePoint) {
        Error("--keep-gain only applies to a one-point update (no --hot film)");
        return kUsage;
    }
    CPtr cold(o.cold, 0, 0, 0);
    if (!CheckFilm(o.cold, cold)) return kFailed;
    const unsigned short point = cold.GetPoint(), line = cold.GetLine();
    if (!onePoint) {
        CPtr hot(o.hot, 0, 0, 0);
        if (!CheckFilm(o.hot, hot)) return kFailed;
        if (hot.GetPoint() != point || hot.GetLine() != line) {
            Error("file " + o.hot + ": " + std::to_string(hot.GetPoint()) + " x " + std::to_string(hot.GetLine()) +
                  " pixels, but the cold film has " + std::to_string(point) + " x " + std::to_string(line));
            return kFailed;
        }
    }

    // Keeping the gain means re-centring the offsets of an existing table:
    // the output table is read first and its gains stay.
    CNuc nuc(point, line);
    if (o.keepGain) {
        CNuc existing(o.output.c_str());
        if (!existing.IsValid()) {
            Error("file " + o.output + ": --keep-gain needs an existing NUC table to keep the gains of");
            return kFailed;
        }
        if (existing.GetSize() != nuc.GetSize() || existing.GetPoint() != point || existing.GetLine() != line) {
            Error("file " + o.output + ": the table is " + std::to_string(existing.GetPoint()) + " x " +
                  std::to_string(existing.GetLine()) + " pixels, the film " + std::to_string(point) + " x " +
                  std::to_string(line));
            return kFailed;
        }
        nuc = existing;
    } else {
        nuc.Reset();
    }
    nuc.SetGainLimit(gmin, gmax);
    if (!Quiet()) std::fprintf(stderr, "averaging %lu frame(s) of %s%s\n", cold.GetFrameNumber(), o.cold.c_str(),
                 onePoint ? "" : (" and the frames of " + o.hot).c_str());
    nuc.Update(o.cold.c_str(), onePoint ? nullptr : o.hot.c_str(), onePoint ? 1 : 0, o.keepGain ? 1 : 0);
    OutputFile target(o.output);
    if (!nuc.Save(target.c_str())) {
        Error("file " + o.output + ": cannot be created");
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    const float* g = nuc.GetAlpha();
    const long n = nuc.GetSize();
    long atMin = 0, atMax = 0;
    double sum = 0.0;
    for (long i = 0; i < n; ++i) {
        sum += g[i];
        if (g[i] == gmin) ++atMin;
        if (g[i] == gmax) ++atMax;
    }
    Note("%s: %u x %u pixels, %s, mean gain %.6f, %ld gain(s) at the lower limit %g, %ld at the upper limit %g\n",
                o.output.c_str(), point, line, onePoint ? "one-point" : "two-point", n ? sum / n : 0.0, atMin,
                static_cast<double>(gmin), atMax, static_cast<double>(gmax));
    return kDone;
}

RegisterCommand reg(300, [](CLI::App& app) {
    auto* nuc = app.add_subcommand("nuc", "Non-uniformity correction tables");
    nuc->require_subcommand(1);
    nuc->footer("Example: thermokit nuc compute --cold bb20.film --hot bb40.film -o cam.nuc");
    auto opts = std::make_shared<NucComputeOptions>();
    auto* compute = nuc->add_subcommand(
        "compute",
        "Compute a NUC table from uniform reference films (each averaged over its frames): two-point with --hot, "
        "else one-point (gain 1, or the existing table's gains with --keep-gain)");
    compute->add_option("--cold", opts->cold, "Film of the cold (or only) uniform reference")->required();
    compute->add_option("--hot", opts->hot, "Film of the hot uniform reference (two-point update)");
    compute->add_flag("--keep-gain", opts->keepGain,
                      "One point: keep (and re-clamp) the gains of the existing table named by -o");
    compute->add_option("--gain-limits", opts->gainLimits, "Gain limits MIN:MAX (default 0.1:10)");
    compute->add_option("-o,--output", opts->output, "NUC table to write")->required();
    compute->footer("Example: thermokit nuc compute --cold bb20.film --hot bb40.film --gain-limits 0.5:2 -o cam.nuc");
    compute->callback([opts] { SetAction([opts] { return RunNucCompute(*opts); }); });
});

}  // namespace
}  // namespace thermokit::cli
