// thermokit export: frames of a film as PNG pictures, CSV text, raw
// little-endian samples or a NumPy array: levels, temperatures (or a curve's
// values) through a calibration, or the values of a film of doubles.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Conversion.h"
#include "FilmInput.h"
#include "FilmWork.h"
#include "OutputFile.h"
#include "Picture.h"
#include "thermokit/image/CFrame.h"

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

// The NumPy 1.0 header: magic, version, header length, the dictionary padded
// with spaces and a newline so that the data starts on a 64-byte boundary.
std::string NpyHeader(const char* descr, unsigned long frames, unsigned line, unsigned point) {
    char dict[160];
    std::snprintf(dict, sizeof(dict), "{'descr': '%s', 'fortran_order': False, 'shape': (%lu, %u, %u), }", descr,
                  frames, line, point);
    std::string header(dict);
    const size_t total = 10 + header.size() + 1;
    header.append((64 - total % 64) % 64, ' ');
    header += '\n';
    std::string out("\x93NUMPY\x01\x00", 8);
    out += static_cast<char>(header.size() & 0xff);
    out += static_cast<char>((header.size() >> 8) & 0xff);
    return out + header;
}

// The frames as PNG pictures, one range for the whole sequence. Every picture
// is drawn and written on every core under a temporary name; all are renamed
// once all are written.
int ExportPng(const ExportOptions& o, const PictureSetup& setup, Film& film, const Conversion* conv,
              FilmPipeline& pipe) {
    std::unique_ptr<Picture> picture;
    if (!StartFilmPicture(setup, film, conv, pipe, picture)) return kFailed;
    std::vector<std::unique_ptr<OutputFile>> outs;
    for (unsigned long k = 0; k < pipe.GetCount(); ++k) {
        std::string name;
        SequenceName(o.output, pipe.FrameOf(k), name);
        outs.push_back(std::make_unique<OutputFile>(name));
    }
    std::vector<std::vector<uint16_t>> canvases;
    const auto save = [&](FilmFrame& f) {
        const OutputFile& out = *outs[(f.index - pipe.GetFirst()) / pipe.GetStep()];
        if (picture->SavePng(out.c_str(), canvases[static_cast<size_t>(f.slot)])) return true;
        f.error = "file " + out.Path() + ": cannot be written";
        return false;
    };
    if (!DrawFilmFrames(*picture, pipe, "export", {}, canvases, save)) return kFailed;
    for (auto& out : outs)
        if (!out->Commit()) return kFailed;
    Note("%s .. %s: %lu picture(s) of %u x %u, palette %s, %s\n", outs.front()->Path().c_str(),
         outs.back()->Path().c_str(), pipe.GetCount(), film.point, film.line, setup.paletteName.c_str(),
         picture->DescribeRange().c_str());
    return kDone;
}

// Frame f as CSV lines "frame,line,x0,x1,...": levels, calibrated values or a film of doubles' values.
void CsvLines(const FilmFrame& f, const float* values, unsigned point, unsigned line, std::string& text) {
    const unsigned short* levels = f.frame.GetBuffer();
    const double* doubles = f.values.empty() ? nullptr : f.values.data();
    char cell[40];
    text.clear();
    for (unsigned y = 0; y < line; ++y) {
        std::snprintf(cell, sizeof(cell), "%lu,%u", f.index, y);
        text += cell;
        for (unsigned x = 0; x < point; ++x) {
            const long i = static_cast<long>(y) * point + x;
            if (doubles) std::snprintf(cell, sizeof(cell), ",%.17g", doubles[i]);
            else if (values) std::snprintf(cell, sizeof(cell), ",%.9g", static_cast<double>(values[i]));
            else std::snprintf(cell, sizeof(cell), ",%u", levels[i]);
            text += cell;
        }
        text += '\n';
    }
}

// The frames as one file (csv, raw or npy): each frame converted or
// formatted on every core in buffers of its slot, written in frame order.
int ExportData(const ExportOptions& o, Film& film, const Conversion* conv, FilmPipeline& pipe) {
    OutputFile out(o.output);
    std::FILE* file = std::fopen(out.c_str(), "wb");
    if (!file) {
        Error("file " + o.output + ": cannot be written (" + std::strerror(errno) + ")");
        return kFailed;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(file, std::fclose);
    const std::string& fmt = o.format;
    if (fmt == "npy") {
        const std::string h = NpyHeader(film.doubles ? "<f8" : (conv ? "<f4" : "<u2"), pipe.GetCount(), film.line,
                                        film.point);
        std::fwrite(h.data(), 1, h.size(), file);
    } else if (fmt == "csv") {
        std::fprintf(file, "frame,line");
        for (unsigned x = 0; x < film.point; ++x) std::fprintf(file, ",x%u", x);
        std::fprintf(file, "\n");
    }
    const size_t size = static_cast<size_t>(film.point) * film.line;
    auto values = PerSlot([&] { return std::vector<float>(conv ? size : 0); });
    auto texts = PerSlot([] { return std::string(); });
    const auto convert = [&](FilmFrame& f) {
        float* v = values[static_cast<size_t>(f.slot)].data();
        if (conv) conv->Apply(f.frame.GetBuffer(), static_cast<long>(size), v);
        if (fmt == "csv") CsvLines(f, conv ? v : nullptr, film.point, film.line, texts[static_cast<size_t>(f.slot)]);
        return true;
    };
    const auto write = [&](FilmFrame& f) {
        const size_t slot = static_cast<size_t>(f.slot);
        if (fmt == "csv") std::fwrite(texts[slot].data(), 1, texts[slot].size(), file);
        else if (film.doubles) std::fwrite(f.values.data(), sizeof(double), size, file);
        else if (conv) std::fwrite(values[slot].data(), sizeof(float), size, file);
        else std::fwrite(f.frame.GetBuffer(), sizeof(unsigned short), size, file);
        return true;
    };
    if (!RunFrames(pipe, "export", convert, write)) return kFailed;
    const bool failed = std::ferror(file) != 0;
    if (std::fclose(closer.release()) != 0 || failed) {
        Error("file " + o.output + ": cannot be written (disk full?)");
        return kFailed;
    }
    if (!out.Commit()) return kFailed;
    const std::string kind = film.doubles ? "doubles"
                             : conv       ? (conv->temperatures ? "temperatures" : "calibrated values") +
                                         std::string(" (float, ") + conv->unit + ")"
                                          : "levels (u16)";
    Note("%s: %lu frame(s) of %u x %u as %s %s\n", o.output.c_str(), pipe.GetCount(), film.point, film.line,
         fmt.c_str(), kind.c_str());
    return kDone;
}

int RunExport(const ExportOptions& o) {
    const std::string& fmt = o.format;
    if (fmt != "png" && fmt != "csv" && fmt != "raw" && fmt != "npy") {
        Error("--format " + fmt + ": expected png, csv, raw or npy");
        return kUsage;
    }
    if (!CheckConversionOptions(o.conversion)) return kUsage;
    PictureSetup setup;
    if (fmt == "png") {
        std::string name;
        if (!SequenceName(o.output, 0, name)) {
            Error("-o " + o.output + ": one number pattern (%d, %05d, %lu ...) and no other '%' expected");
            return kUsage;
        }
        if (const int code = PreparePicture(o.picture, setup); code != kDone) return code;
    } else if (!o.picture.range.empty() || o.picture.cut >= 0.0 || !o.picture.isotherms.empty() || o.picture.bar ||
               !o.picture.paletteFile.empty()) {
        Error("--range, --cut, --isotherm, --bar and --palette-file draw pictures: they apply to --format png");
        return kUsage;
    }
    Film film;
    if (!OpenFilm(o.file, film)) return kFailed;
    unsigned long first = 0, last = 0;
    if (!ParseFrames(o.frames, film.frames, first, last, o.file)) return kFailed;
    Conversion conv;
    if (o.conversion.Requested() && !LoadConversion(o.conversion, film, o.file, conv)) return kFailed;
    FilmPipeline pipe(*film.ptr, first, last - first + 1, o.step);
    const Conversion* cal = o.conversion.Requested() ? &conv : nullptr;
    return fmt == "png" ? ExportPng(o, setup, film, cal, pipe) : ExportData(o, film, cal, pipe);
}

RegisterCommand reg(320, [](CLI::App& app) {
    auto o = std::make_shared<ExportOptions>();
    auto* sub = app.add_subcommand("export", "Write frames of a film as PNG pictures, CSV, raw samples or a NumPy array");
    sub->add_option("film", o->file, "Film file")->required();
    sub->add_option("--frames", o->frames, "Frames A:B, both included (default every frame)");
    sub->add_option("--step", o->step, "Every STEP-th frame of the range (default 1)")->check(CLI::Range(1UL, 1000000000UL));
    sub->add_option("--format", o->format, "png, csv, raw (little-endian) or npy")->required();
    sub->add_option("-o,--output", o->output,
                    "File to write; for png the pattern of the pictures (OUT-NNNNN.png, or a printf pattern)")
        ->required();
    AddConversionOptions(sub, o->conversion);
    AddPictureOptions(sub, o->picture);
    sub->footer("Example: thermokit export run.film --frames 0:99 --format npy --embedded -o run.npy\n"
                "         thermokit export run.film --format png --embedded --range 20:60 --bar -o png/run.png");
    sub->callback([o] { SetAction([o] { return RunExport(*o); }); });
});

}  // namespace
}  // namespace thermokit::cli
