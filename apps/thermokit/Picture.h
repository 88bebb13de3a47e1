#pragma once
// Frames of a film drawn through a palette in render, export --format png and
// animate: the options --palette, --palette-file, --range, --cut, --isotherm
// and --bar. What they draw is the library's FilmPicture.h, shared with the
// Python package's batch runs.
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "Progress.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/processing/FilmPicture.h"

namespace thermokit::cli {

inline void AddPictureOptions(CLI::App* sub, PictureOptions& o) {
    sub->add_option("--palette", o.palette, "Palette name or number (default 2, rainbow)");
    Input(sub->add_option("--palette-file", o.paletteFile, "Palette file with custom palettes (their names or numbers 11..)"));
    sub->add_option("--range", o.range,
                    "Display range LO:HI (degC with a calibration, levels without, a film of doubles' own unit), "
                    "or auto (default): one range for all frames drawn");
    sub->add_option("--cut", o.cut, "auto range: percent of the pixels cut from it, half at each end (default 1)")
        ->check(CLI::Range(0.0, 100.0));
    sub->add_option("--isotherm", o.isotherms,
                    "LO:HI[:COLOUR] in the unit of --range: those values in one colour (name or RRGGBB; at most 3)")
        ->allow_extra_args(false);
    sub->add_flag("--bar", o.bar, "A colour bar with its scale beside the image");
}

// Checks the options; kUsage or kFailed (palette file) with a message, kDone when usable.
inline int PreparePicture(const PictureOptions& o, PictureSetup& s) {
    std::string error;
    bool fileFailed = false;
    if (thermokit::PreparePicture(o, s, error, &fileFailed)) return kDone;
    Error(error);
    return fileFailed ? kFailed : kUsage;
}

// Loads the custom palettes of the file (if any); false with a message when
// it cannot be read or holds no palette (not a palette file).
inline bool LoadCustomPalettes(const std::string& file, CLogPalette& reader) {
    std::string error;
    if (!thermokit::LoadCustomPalettes(file, reader, error)) {
        Error(error);
        return false;
    }
    if (file.empty() || !reader.GetCustomPalleteName()->empty()) return true;
    FileError(file, "no palette in it (a palette file has a [name] section per palette)");
    return false;
}

// The picture of a film's frames, its range read from every frame when automatic; false with a message.
inline bool StartFilmPicture(const PictureSetup& setup, Film& film, const std::string& path, const Conversion* conv,
                             const std::vector<unsigned long>& frames, std::unique_ptr<Picture>& picture) {
    std::string error;
    if (thermokit::StartFilmPicture(setup, *film.ptr, path, conv, frames, picture, error)) return true;
    Error(error);
    return false;
}

// Reads frame n and draws it; false with a message.
inline bool DrawFilmFrame(Picture& picture, Film& film, const std::string& path, unsigned long n) {
    std::string error;
    if (thermokit::DrawFilmFrame(picture, *film.ptr, path, n, error)) return true;
    Error(error);
    return false;
}

// Draws the frames on several threads (process: several at once, write: in
// frame order, each with its canvas), stepping progress after each write;
// false with a message.
inline bool DrawFilmFrames(const Picture& picture, Film& film, const std::string& path,
                           const std::vector<unsigned long>& frames, const DrawnStage& process, const DrawnStage& write,
                           Progress& progress) {
    std::string error;
    const auto step = [&](const DrawnFrame& d) {
        if (write && !write(d)) return false;
        progress.Step(d.item + 1);
        return true;
    };
    if (thermokit::DrawFilmFrames(picture, *film.ptr, path, frames, process, step, error)) return true;
    Error(error);
    return false;
}

}  // namespace thermokit::cli
