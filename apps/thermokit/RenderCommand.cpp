// thermokit render: one frame of a film through a palette into a PNG picture.
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "thermokit/display/CBit24.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::cli {
namespace {

struct RenderOptions {
    std::string file;
    long frame = 0;
    std::string palette = "2";
    std::string range;
    double cut = -1.0;
    std::string output;
};

// "MIN:MAX" as two numbers; false when it is not that.
bool ParseRange(const std::string& text, double& lo, double& hi) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return false;
    char* end = nullptr;
    const std::string a = text.substr(0, colon), b = text.substr(colon + 1);
    lo = std::strtod(a.c_str(), &end);
    if (a.empty() || *end) return false;
    hi = std::strtod(b.c_str(), &end);
    if (b.empty() || *end) return false;
    return lo < hi;
}

int PaletteNumber(const std::string& text) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() <= 5)
        return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
    for (int i = 0; i < CLogPalette::FIRST_CUSTOM; ++i) {
        const std::string name = CLogPalette::GetPaletteName(i);
        if (name.size() != text.size()) continue;
        bool same = true;
        for (size_t k = 0; k < name.size() && same; ++k)
            same = std::tolower(static_cast<unsigned char>(name[k])) == std::tolower(static_cast<unsigned char>(text[k]));
        if (same) return i;
    }
    return -1;
}

int RunRender(const RenderOptions& o) {
    double lo = 0.0, hi = 0.0;
    if (!o.range.empty() && !ParseRange(o.range, lo, hi)) {
        Error("--range " + o.range + ": expected MIN:MAX with MIN below MAX");
        return kUsage;
    }
    const int paletteNumber = PaletteNumber(o.palette);
    if (paletteNumber < 0 || paletteNumber >= CLogPalette::FIRST_CUSTOM) {
        Error("unknown palette \"" + o.palette + "\" (thermokit palette list shows them)");
        return kUsage;
    }
    CPtrOver header(o.file);
    if (!header.IsValid()) {
        Error("file " + o.file + ": not a film, or its header is damaged or does not fit the file");
        return kFailed;
    }
    const unsigned long n = static_cast<unsigned long>(o.frame);
    if (n >= header.GetFrameNumber()) {
        Error("file " + o.file + ": no frame " + std::to_string(n) + " (the film holds " +
              std::to_string(header.GetFrameNumber()) + ")");
        return kFailed;
    }
    const bool doubles = CPtrOver::PixelBytes(header.GetHeaderAddress()) == 8;
    std::unique_ptr<CPtr> film;
    if (doubles) film = std::make_unique<CPtrFloat>(o.file, 0, 0, 1);
    else film = std::make_unique<CPtr>(o.file, 0, 0, 1);
    if (!film->IsValid() || !film->ReadFrame(n)) {
        Error("file " + o.file + ": frame " + std::to_string(n) + " cannot be read");
        return kFailed;
    }
    CFrame* frame = film->GetFrame();
    const long size = frame->GetSize();
    unsigned short maxLevel = film->GetMaxLevel();
    std::vector<unsigned short> levels(frame->GetBuffer(), frame->GetBuffer() + size);
    // A film of doubles: its values spread over 16-bit levels between their extremes.
    double vmin = 0.0, vmax = 0.0;
    if (doubles) {
        const double* v = static_cast<CPtrFloat*>(film.get())->GetDoubleBuffer();
        bool any = false;
        for (long i = 0; i < size; ++i) {
            if (!std::isfinite(v[i])) continue;
            if (!any) vmin = vmax = v[i], any = true;
            else if (v[i] < vmin) vmin = v[i];
            else if (v[i] > vmax) vmax = v[i];
        }
        if (vmax == vmin) vmax = vmin + 1.0;
        maxLevel = 65535;
        float scale[17];
        for (int k = 0; k < 17; ++k) scale[k] = static_cast<float>(vmin + (vmax - vmin) * k / 16);
        CPtrOver::ConvDoubleToSpecialUnit(v, size, levels.data(), scale, maxLevel);
    }
    auto toLevel = [&](double x) -> unsigned short {
        if (doubles) x = (x - vmin) / (vmax - vmin) * maxLevel;
        if (!(x > 0.0)) return 0;
        return x >= maxLevel ? maxLevel : static_cast<unsigned short>(x);
    };
    unsigned short min = 0, max = maxLevel;
    if (!o.range.empty()) {
        min = toLevel(lo);
        max = toLevel(hi);
    } else {
        const float cut = o.cut >= 0.0 ? static_cast<float>(o.cut) : 1.0f;
        if (!MinMaxHisto(levels.data(), size, &min, &max, maxLevel, 100.0f - cut, -1.0f, nullptr)) {
            Error("--cut " + std::to_string(cut) + ": no display range left");
            return kFailed;
        }
    }
    if (max <= min) max = static_cast<unsigned short>(min < maxLevel ? min + 1 : min);
    CLogPalette palette(static_cast<unsigned short>(paletteNumber), 0, nullptr);
    CLut24 lut(maxLevel);
    lut.Update(nullptr, &palette, min, max);
    CBit24 bitmap(size, 1, 0);
    if (!bitmap.Update(levels.data(), &lut) || !bitmap.SavePng(o.output.c_str(), frame->GetPoint(), frame->GetLine())) {
        Error("file " + o.output + ": cannot be written");
        return kFailed;
    }
    std::printf("%s: frame %lu of %s, %u x %u, palette %s, levels %u..%u\n", o.output.c_str(), n, o.file.c_str(),
                frame->GetPoint(), frame->GetLine(), palette.GetPaletteName().c_str(), min, max);
    return kDone;
}

RegisterCommand reg(310, [](CLI::App& app) {
    auto options = std::make_shared<RenderOptions>();
    auto* render = app.add_subcommand("render", "Draw one frame of a film through a palette into a PNG picture");
    render->add_option("film", options->file, "Film file")->required();
    render->add_option("--frame", options->frame, "Frame number (default 0)")->check(CLI::NonNegativeNumber);
    render->add_option("--palette", options->palette, "Palette name or number (default 2, rainbow)");
    auto* range = render->add_option("--range", options->range, "Display range MIN:MAX (levels, or values of a film of doubles)");
    auto* cut = render->add_option("--cut", options->cut, "Percent of the pixels cut from the display range, half at each end (default 1)")
                    ->check(CLI::Range(0.0, 100.0));
    range->excludes(cut);
    render->add_option("-o,--output", options->output, "PNG file to write")->required();
    render->footer("Example: thermokit render run.ptw --frame 10 --palette \"Hot Metal\" --cut 2 -o frame.png");
    render->callback([options] { SetAction([options] { return RunRender(*options); }); });
});

}  // namespace
}  // namespace thermokit::cli
