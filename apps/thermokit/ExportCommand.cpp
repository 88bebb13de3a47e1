// thermokit export: frames of a film as PNG pictures, CSV text, raw
// little-endian samples or a NumPy array: levels, temperatures (or a curve's
// values) through a calibration, or the values of a film of doubles.
#include <cinttypes>
#include <cstdio>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "OutputFile.h"
#include "Picture.h"
#include "Progress.h"
#include "thermokit/processing/FilmExport.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Utf8Path.h"

namespace thermokit::cli {
namespace {

struct ExportOptions {
    std::string file;
    std::string frames;
    unsigned long step = 1;
    std::string format;
    std::string output;
    ConversionOptions conversion;
    PictureOptions picture;
};

// Name of frame n in a PNG sequence: OUT with one number pattern ("f%04d.png":
// %d, %u or %lu with an optional zero flag and width) filled in, else OUT with
// "-NNNNN" before its extension. False when OUT holds another '%' pattern.
bool SequenceName(const std::string& out, unsigned long n, std::string& name) {
    const size_t pct = out.find('%');
    char number[48];
    if (pct != std::string::npos) {
        size_t i = pct + 1;
        const bool zero = i < out.size() && out[i] == '0';
        if (zero) ++i;
        int width = 0;
        while (i < out.size() && out[i] >= '0' && out[i] <= '9' && width < 100) width = width * 10 + (out[i++] - '0');
        if (i < out.size() && out[i] == 'l') ++i;
        if (i >= out.size() || (out[i] != 'd' && out[i] != 'u') || width > 20) return false;
        if (out.find('%', i + 1) != std::string::npos) return false;
        std::snprintf(number, sizeof(number), zero ? "%0*lu" : "%*lu", width, n);
        name = out.substr(0, pct) + number + out.substr(i + 1);
        return true;
    }
    std::snprintf(number, sizeof(number), "-%05lu", n);
    const size_t slash = out.find_last_of('/');
    const size_t dot = out.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) name = out + number;
    else name = out.substr(0, dot) + number + out.substr(dot);
    return true;
}

// Copies a finished file to standard output; false with a message.
bool CopyToStdout(const std::string& path) {
    std::FILE* in = File::OpenStream(path, "rb");
    if (!in) {
        Error(std::string("standard output: the export cannot be read back (") + std::strerror(errno) + ")");
        return false;
    }
    std::vector<char> buffer(1 << 20);
    size_t n = 0;
    bool ok = true;
    while (ok && (n = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) ok = std::fwrite(buffer.data(), 1, n, stdout) == n;
    std::fclose(in);
    if (!ok || std::fflush(stdout) != 0) {
        Error(std::string("standard output: cannot be written (") + std::strerror(errno) + ")");
        return false;
    }
    return true;
}

int CheckExportOptions(const ExportOptions& o, PictureSetup& setup) {
    const std::string& fmt = o.format;
    if (fmt != "png" && fmt != "csv" && fmt != "raw" && fmt != "npy") {
        Error("--format " + fmt + ": expected png, csv, raw or npy");
        return kUsage;
    }
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    if (fmt == "png") {
        const std::string extension = std::filesystem::path(o.output).extension().string();
        if (o.output == "-" || (!extension.empty() && extension != ".png" && extension != ".PNG")) {
            Error("-o " + o.output + ": --format png writes PNG pictures, one file a frame: give names ending in .png");
            return kUsage;
        }
        std::string name;
        if (!SequenceName(o.output, 0, name)) {
            Error("-o " + o.output + ": one number pattern (%d, %05d, %lu ...) and no other '%' expected");
            return kUsage;
        }
        return PreparePicture(o.picture, setup);
    }
    if (!o.picture.range.empty() || o.picture.cut >= 0.0 || !o.picture.isotherms.empty() || o.picture.bar ||
        !o.picture.paletteFile.empty()) {
        Error("--range, --cut, --isotherm, --bar and --palette-file draw pictures: they apply to --format png");
        return kUsage;
    }
    return kDone;
}

// The film, its calibration and the frames to write.
struct ExportWork {
    Film film;
    bool cal = false;
    Conversion conv;
    std::vector<unsigned long> frames;
};

bool OpenExport(const ExportOptions& o, ExportWork& w) {
    if (!OpenFilm(o.file, w.film)) return false;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, w.film.frames, first, last, o.file)) return false;
    w.cal = o.conversion.Requested();
    if (w.cal && !LoadConversion(o.conversion, w.film, o.file, w.conv)) return false;
    w.frames = SteppedFrames(first, last, o.step);
    return true;
}

// One range for the whole sequence. Every picture is made under a temporary
// name; all are renamed once all are drawn.
int WritePngSequence(const ExportOptions& o, const PictureSetup& setup, ExportWork& w, Progress& progress) {
    std::unique_ptr<Picture> picture;
    if (!StartFilmPicture(setup, w.film, o.file, w.cal ? &w.conv : nullptr, w.frames, picture)) return kFailed;
    std::vector<std::unique_ptr<OutputFile>> outs;
    for (const unsigned long n : w.frames) {
        std::string name;
        SequenceName(o.output, n, name);
        outs.push_back(std::make_unique<OutputFile>(name));
    }
    const auto save = [&](const DrawnFrame& d) {
        if (picture->SavePng(outs[d.item]->c_str(), *d.canvas)) return true;
        *d.error = FileErrorText(outs[d.item]->Path(), "cannot be written");
        return false;
    };
    if (!DrawFilmFrames(*picture, w.film, o.file, w.frames, save, {}, progress)) return kFailed;
    if (!CommitAll(outs)) return kFailed;
    progress.Done();
    Note("%s .. %s: %lu picture(s) of %u x %u, palette %s, %s\n", outs.front()->Path().c_str(),
         outs.back()->Path().c_str(), static_cast<unsigned long>(w.frames.size()), w.film.point, w.film.line,
         setup.paletteName.c_str(), picture->DescribeRange().c_str());
    return kDone;
}

// CSV, raw or NumPy: one file; "-o -" makes it in the temporary folder, then
// copies it to standard output.
int WriteDataFile(const ExportOptions& o, ExportWork& w, Progress& progress) {
    const bool toStdout = o.output == "-";
    OutputFile out(toStdout ? Utf8FromPath(std::filesystem::temp_directory_path() / "thermokit-export") : o.output);
    std::string error;
    if (!ExportFilm(*w.film.ptr, o.file, w.frames, o.format, w.cal ? &w.conv : nullptr, out.Temp(), o.output, error,
                    [&](unsigned long done) { progress.Step(done); })) {
        Error(error);
        return kFailed;
    }
    progress.Done();
    if (toStdout) return CopyToStdout(out.Temp()) ? kDone : kFailed;
    if (!out.Commit()) return kFailed;
    const std::string kind = w.film.doubles ? "doubles"
                             : w.cal        ? (w.conv.temperatures ? "temperatures" : "calibrated values") +
                                           std::string(" (float, ") + w.conv.unit + ")"
                                            : "levels (u16)";
    Note("%s: %lu frame(s) of %u x %u as %s %s\n", o.output.c_str(), static_cast<unsigned long>(w.frames.size()),
         w.film.point, w.film.line, o.format.c_str(), kind.c_str());
    return kDone;
}

int RunExport(const ExportOptions& o) {
    PictureSetup setup;
    if (const int code = CheckExportOptions(o, setup); code != kDone) return code;
    ExportWork w;
    if (!OpenExport(o, w)) return kFailed;
    Progress progress("export", w.frames.size());
    return o.format == "png" ? WritePngSequence(o, setup, w, progress) : WriteDataFile(o, w, progress);
}

}  // namespace

void AddExportCommand(CLI::App& app) {
    auto o = std::make_shared<ExportOptions>();
    auto* sub = app.add_subcommand("export", "Write frames of a film as PNG pictures, CSV, raw samples or a NumPy array");
    Input(sub->add_option("film", o->file, "Film file"))->required();
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)")->check(FrameRange());
    sub->add_option("--step", o->step, "Every STEP-th frame of the range (default 1)")->check(CLI::Range(1UL, 1000000000UL));
    sub->add_option("--format", o->format, "png, csv, raw (little-endian) or npy")->required();
    Output(sub->add_option("-o,--output", o->output,
                    "File to write (\"-\": standard output, for csv, raw and npy); for png the pattern of the pictures "
                    "(OUT-NNNNN.png, or a printf pattern); a folder: FILM.FORMAT in it"),
           [o] { return "." + o->format; })
        ->required();
    AddConversionOptions(sub, o->conversion);
    AddPictureOptions(sub, o->picture);
    sub->footer("Example: thermokit export run.film --frames 0:99 --format npy --embedded -o run.npy\n"
                "         thermokit export run.film --format png --embedded --range 20:60 --bar -o png/run.png");
    sub->callback([o] { SetAction([o] { return RunExport(*o); }); });
}

}  // namespace thermokit::cli
