// thermokit render: one frame of a film through a palette into a PNG picture.
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "Picture.h"
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
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    const unsigned long n = static_cast<unsigned long>(o.frame);
    if (n >= film.frames) {
        Error("file " + o.file + ": no frame " + std::to_string(n) + " (the film holds " + std::to_string(film.frames) +
              ")");
        return kFailed;
    }
    if (!ReadFilmFrame(film, o.file, n)) return kFailed;
    CFrame* frame = film.ptr->GetFrame();
    PictureOptions picture;
    picture.palette = paletteNumber;
    picture.hasRange = !o.range.empty();
    picture.lo = lo;
    picture.hi = hi;
    picture.cut = o.cut;
    const double* values = film.doubles ? static_cast<CPtrFloat*>(film.ptr.get())->GetDoubleBuffer() : nullptr;
    OutputFile out(o.output);
    unsigned short min = 0, max = 0;
    const int drawn = DrawPicture(frame->GetBuffer(), values, frame->GetPoint(), frame->GetLine(),
                                  film.ptr->GetMaxLevel(), picture, out.c_str(), min, max);
    if (drawn == 0) {
        Error("--cut " + std::to_string(o.cut) + ": no display range left");
        return kFailed;
    }
    if (drawn < 0) {
        Error("file " + o.output + ": cannot be written");
        return kFailed;
    }
    if (!out.Commit()) return kFailed;
    Note("%s: frame %lu of %s, %u x %u, palette %s, levels %u..%u\n", o.output.c_str(), n, o.file.c_str(),
         frame->GetPoint(), frame->GetLine(), CLogPalette::GetPaletteName(paletteNumber).c_str(), min, max);
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
    render->footer("Example: thermokit render run.film --frame 10 --palette \"Hot Metal\" --cut 2 -o frame.png");
    render->callback([options] { SetAction([options] { return RunRender(*options); }); });
});

}  // namespace
}  // namespace thermokit::cli
