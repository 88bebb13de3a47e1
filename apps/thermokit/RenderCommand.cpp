// thermokit render: one frame of a film through a palette into a PNG picture:
// levels, temperatures (--calib or --embedded) or the values of a film of
// doubles, with isotherms and a colour bar when asked.
#include <cstdio>
#include <memory>
#include <string>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "Picture.h"

namespace thermokit::cli {
namespace {

struct RenderOptions {
    std::string file;
    long frame = 0;
    PictureOptions picture;
    ConversionOptions conversion;
    std::string output;
};

int RunRender(const RenderOptions& o) {
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    PictureSetup setup;
    if (const int code = PreparePicture(o.picture, setup); code != kDone) return code;
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    const unsigned long n = static_cast<unsigned long>(o.frame);
    if (n >= film.frames) {
        FileError(o.file, "no frame " + std::to_string(n) + " (the film holds " + std::to_string(film.frames) +
              ")");
        return kFailed;
    }
    Conversion conv;
    if (o.conversion.Requested() && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    std::unique_ptr<Picture> picture;
    if (!StartFilmPicture(setup, film, o.file, o.conversion.Requested() ? &conv : nullptr, {n}, picture))
        return kFailed;
    if (!DrawFilmFrame(*picture, film, o.file, n)) return kFailed;
    OutputFile out(o.output);
    if (!picture->SavePng(out.c_str())) {
        FileError(o.output, "cannot be written");
        return kFailed;
    }
    if (!out.Commit()) return kFailed;
    Note("%s: frame %lu of %s, %u x %u, palette %s, %s\n", o.output.c_str(), n, o.file.c_str(), film.point, film.line,
         setup.paletteName.c_str(), picture->DescribeRange().c_str());
    return kDone;
}

}  // namespace

void AddRenderCommand(CLI::App& app) {
    auto o = std::make_shared<RenderOptions>();
    auto* render = app.add_subcommand("render", "Draw one frame of a film through a palette into a PNG picture");
    Input(render->add_option("film", o->file, "Film file"))->required();
    render->add_option("--frame", o->frame, "Frame number (default 0)")->check(NonNegative());
    AddPictureOptions(render, o->picture);
    AddConversionOptions(render, o->conversion);
    Output(render->add_option("-o,--output", o->output, "PNG file to write (a folder: FILM.png in it)"),
           [] { return std::string(".png"); })
        ->required();
    render->footer("Example: thermokit render run.film --frame 10 --palette \"Hot Metal\" --cut 2 -o frame.png\n"
                   "         thermokit render run.film --embedded --range 20:60 --isotherm 45:50:red --bar -o t.png");
    render->callback([o] { SetAction([o] { return RunRender(*o); }); });
}

}  // namespace thermokit::cli
