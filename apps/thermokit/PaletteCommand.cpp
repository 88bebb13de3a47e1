// thermokit palette: the built-in and custom palettes, listed or drawn as a colour bar into a PNG.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Command.h"
#include "FilmHeaderJson.h"
#include "OutputFile.h"
#include "Picture.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/platform/CWnd.h"

namespace thermokit::cli {
namespace {

struct PaletteOptions {
    std::string file;
    std::string palette;
    std::string output;
    bool swap = false;
    bool vertical = false;
    int width = 0;
    int height = 0;
    bool json = false;
};

int RunList(const PaletteOptions& o) {
    CLogPalette reader(CLogPalette::GREY, 0, nullptr);
    if (!LoadCustomPalettes(o.file, reader)) return kFailed;
    Json list = Json::array();
    for (int i = 0; i < CLogPalette::FIRST_CUSTOM; ++i) {
        CLogPalette p(static_cast<unsigned short>(i), 0, nullptr);
        list.push_back({{"number", i}, {"name", CLogPalette::GetPaletteName(i)}, {"entries", p.GetEntryCount()},
                        {"custom", false}});
    }
    const auto& names = *reader.GetCustomPalleteName();
    const auto& custom = *reader.GetCustomPalettes();
    for (size_t k = 0; k < names.size() && k < custom.size(); ++k)
        list.push_back({{"number", CLogPalette::FIRST_CUSTOM + static_cast<int>(k)}, {"name", Latin1ToUtf8(names[k])},
                        {"entries", custom[k].nEntries}, {"control_points", custom[k].nPoints}, {"custom", true}});
    if (o.json) {
        std::printf("%s\n", list.dump(2).c_str());
        return kDone;
    }
    for (const Json& p : list) {
        const std::string name = EscapeControls(p["name"].get<std::string>());
        const int number = p["number"], entries = p["entries"];
        if (!p["custom"]) std::printf("%3d  %-12s %3d entries\n", number, name.c_str(), entries);
        else if (entries == 0) std::printf("%3d  %-12s empty (no entry-count line)\n", number, name.c_str());
        else std::printf("%3d  %-12s %3d entries, %d control points\n", number, name.c_str(), entries, p["control_points"].get<int>());
    }
    return kDone;
}

// One continuous ramp from the highest level at the left (where the palette's
// own horizontal drawing starts it) to the lowest at the right: the vertical
// bar laid on its side (the palette's own drawing folds it over two rows).
void DrawHorizontalBar(CLogPalette& palette, CWnd& wnd, int width, int height) {
    CWnd tall(height, width);
    palette.Display(&tall, 0, 0, 65535, 65535, 65535);
    CDC* dc = wnd.GetDC();
    for (int x = 0; x < width; ++x) dc->FillSolidRect(x, 0, 1, height, tall.GetCanvasPixel(0, x));
    wnd.ReleaseDC(dc);
}

int RunRender(const PaletteOptions& o) {
    CLogPalette reader(CLogPalette::GREY, 0, nullptr);
    if (!LoadCustomPalettes(o.file, reader)) return kFailed;
    const int number = ResolvePalette(o.palette, reader);
    if (number < 0) {
        Error("unknown palette \"" + o.palette + "\" (thermokit palette list shows them)");
        return kUsage;
    }
    CLogPalette palette(static_cast<unsigned short>(number), o.swap ? 1 : 0, o.file.empty() ? nullptr : o.file.c_str());
    if (!palette.IsCreated()) {
        Error("palette " + std::to_string(number) + " (" + palette.GetPaletteName() + "): no entries to draw");
        return kFailed;
    }
    const int width = o.width > 0 ? o.width : (o.vertical ? 32 : 256);
    const int height = o.height > 0 ? o.height : (o.vertical ? 256 : 32);
    CWnd wnd(width, height);
    if (o.vertical) palette.Display(&wnd, 0, 0, 65535, 65535, 65535);
    else DrawHorizontalBar(palette, wnd, width, height);
    OutputFile target(o.output);
    if (!wnd.SavePng(target.c_str())) {
        FileError(o.output, "cannot be written");
        return kFailed;
    }
    if (!target.Commit()) return kFailed;
    Note("%s: palette %d \"%s\"%s, %d x %d\n", o.output.c_str(), number, palette.GetPaletteName().c_str(),
                o.swap ? " (swapped)" : "", width, height);
    return kDone;
}

}  // namespace

void AddPaletteCommand(CLI::App& app) {
    auto options = std::make_shared<PaletteOptions>();
    auto* group = app.add_subcommand("palette", "Built-in and custom colour palettes");
    group->require_subcommand(1);
    group->footer("Example: thermokit palette list --file palettes.ini");

    auto* list = group->add_subcommand("list", "List the number and name of every built-in and custom palette");
    Input(list->add_option("--file", options->file, "Palette file with custom palettes"));
    list->add_flag("--json", options->json, "Write JSON: number, name, entries of each palette");
    list->footer("Example: thermokit palette list --file palettes.ini");
    list->callback([options] { SetAction([options] { return RunList(*options); }); });

    auto* render = group->add_subcommand("render", "Draw a palette as a colour bar into a PNG picture");
    render->add_option("palette", options->palette, "Palette name or number")->required();
    render->add_flag("--swap", options->swap, "Reverse the palette");
    render->add_flag("--vertical", options->vertical,
                     "Vertical bar, highest level at the top (default: horizontal, one ramp from the highest level "
                     "at the left)");
    Input(render->add_option("--file", options->file, "Palette file with custom palettes"));
    render->add_option("--width", options->width, "Picture width in pixels")->check(CLI::Range(1, 16384));
    render->add_option("--height", options->height, "Picture height in pixels")->check(CLI::Range(1, 16384));
    Output(render->add_option("-o,--output", options->output, "PNG file to write"))->required();
    render->footer("Example: thermokit palette render \"Hot Metal\" --vertical -o bar.png");
    render->callback([options] { SetAction([options] { return RunRender(*options); }); });
}

}  // namespace thermokit::cli
