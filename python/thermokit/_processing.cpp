// Whole films as the tool's commands treat them: correct, stats, export and
// render, each through the library's code for that command, so that the
// files written are the tool's, byte for byte.
#include <cstdio>
#include <memory>

#include "_bindings.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/processing/FilmConversion.h"
#include "thermokit/processing/FilmCorrection.h"
#include "thermokit/processing/FilmExport.h"
#include "thermokit/processing/FilmPicture.h"
#include "thermokit/processing/FrameFigures.h"

namespace thermokit::python {

namespace {

// The file name of a film argument (a Film or a path); TypeError otherwise.
std::string FilmPath(const py::object& film) {
    const std::string path = SourcePath(film);
    if (path.empty()) throw TypeError("argument 'film': a Film or a path expected");
    return path;
}

// The film at path, checked as the tool checks it; the exception of its problem otherwise.
std::unique_ptr<CPtr> OpenChecked(const std::string& path) {
    ErrorCapture errors;
    ErrorKind kind = ErrorKind::None;
    auto film = OpenFilmForReading(path, &kind);
    if (!film) errors.File(path, FileText(path, "not a film, or its header is damaged or does not fit the file"), kind);
    return film;
}

py::dict Correct(const py::object& film, const PathArg& output, const py::object& nuc, const py::object& badPixels,
                 const py::object& mapping) {
    const std::string path = FilmPath(film);
    CorrectionFiles files;
    if (!nuc.is_none()) files.nuc = nuc.cast<PathArg>().value;
    if (!badPixels.is_none()) files.badPixels = badPixels.cast<PathArg>().value;
    if (!mapping.is_none()) files.mapping = mapping.cast<PathArg>().value;
    CorrectionResult result;
    {
        py::gil_scoped_release nogil;
        ErrorCapture quiet;  // the text below tells the failure once
        std::string error;
        bool usage = false;
        WriteWhole(output.value, [&](const std::string& temp) {
            if (CorrectFilm(path, files, temp, output.value, result, error, usage)) return 1;
            if (usage) throw ValueError(error);
            RaiseLine(error);
        });
    }
    py::dict d;
    d["frames"] = result.frames;
    d["nuc"] = result.nuc;
    d["badpixels"] = result.badPixels;
    d["mapping"] = result.mapping;
    return d;
}

// The columns of the figures, named as the CSV's.
std::vector<std::string> Columns(bool calibrated, const std::string& unit) {
    std::vector<std::string> names{"frame", "time_s", "pixels", "min", "max", "mean", "stddev"};
    if (calibrated)
        for (const char* f : {"_min", "_max", "_mean", "_stddev", "_pixels", "_not_converted"}) names.push_back(unit + f);
    return names;
}

py::object Stats(const py::object& film, const py::object& roi, const py::object& regionFile, const py::object& csv,
                 const py::kwargs& kwargs) {
    const std::string path = FilmPath(film);
    const ConversionOptions o = ConversionArgs(kwargs);
    std::string roiText;
    if (!roi.is_none()) {
        if (py::isinstance<py::str>(roi)) {
            roiText = roi.cast<std::string>();
        } else {
            std::vector<long> r;
            try {
                r = roi.cast<std::vector<long>>();
            } catch (const py::cast_error&) {
                throw TypeError("roi: (x, y, w, h), four integers, expected");
            }
            for (size_t k = 0; k < r.size(); ++k) roiText += (k ? "," : "") + std::to_string(r[k]);
        }
    }
    const std::string region = regionFile.is_none() ? std::string() : regionFile.cast<PathArg>().value;
    if (!roiText.empty() && !region.empty()) throw ValueError("roi and region_file: give one of them");
    const bool calibrated = o.Requested();
    const std::string csvPath = csv.is_none() ? std::string() : csv.cast<PathArg>().value;
    struct Row {
        unsigned long n;
        double time;
        FrameFigures f;
    };
    std::vector<Row> rows;
    std::string unit;
    {
        py::gil_scoped_release nogil;
        auto ptr = OpenChecked(path);
        ErrorCapture quiet;
        Selection selection;
        CRgn rgn;
        std::string error;
        bool usage = false;
        if (ptr->GetFrameNumber() == 0) throw ValueError(FileText(path, "the film holds no frame"));
        if (!SelectPixels(roiText, "--roi", region, ptr->GetPoint(), ptr->GetLine(), path, selection, rgn, error, usage))
            RaiseLine(error);
        Conversion conv;
        if (calibrated && !LoadConversion(o, *ptr, path, conv, error)) RaiseLine(error);
        unit = conv.unit;
        rows.reserve(ptr->GetFrameNumber());
        if (!MeasureFilm(*ptr, path, 0, ptr->GetFrameNumber() - 1, selection, calibrated ? &conv : nullptr,
                         [&](unsigned long n, double time, const FrameFigures& f) { rows.push_back({n, time, f}); },
                         error))
            RaiseLine(error);
        if (!csvPath.empty()) {
            const std::string text = [&] {
                std::string t = CsvHeader(calibrated, unit);
                for (const Row& r : rows) t += CsvRow(r.n, r.time, r.f, calibrated);
                return t;
            }();
            WriteWhole(csvPath, [&](const std::string& temp) {
                std::FILE* f = std::fopen(temp.c_str(), "wb");
                if (!f) return 0;
                const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
                return (std::fclose(f) == 0 && ok) ? 1 : 0;
            });
        }
    }
    // A structured array, one record per frame, filled column by column.
    const std::vector<std::string> names = Columns(calibrated, unit);
    py::list fields;
    for (size_t k = 0; k < names.size(); ++k) {
        const bool integer = k == 0 || k == 2 || k >= 11;
        fields.append(py::make_tuple(names[k], integer ? "<i8" : "<f8"));
    }
    py::module_ np = py::module_::import("numpy");
    py::array table = np.attr("zeros")(rows.size(), np.attr("dtype")(fields));
    for (size_t k = 0; k < names.size(); ++k) {
        std::vector<double> column(rows.size());
        for (size_t i = 0; i < rows.size(); ++i) {
            const FrameFigures& f = rows[i].f;
            const double all[] = {static_cast<double>(rows[i].n), rows[i].time, static_cast<double>(f.levels.count),
                                  f.levels.min, f.levels.max, f.levels.mean, f.levels.stdDev, f.values.min, f.values.max,
                                  f.values.mean, f.values.stdDev, static_cast<double>(f.values.count),
                                  static_cast<double>(f.notConverted)};
            column[i] = all[k];
        }
        table[py::str(names[k])] = py::array_t<double>(static_cast<py::ssize_t>(column.size()), column.data());
    }
    return table;
}

py::dict Export(const py::object& film, const PathArg& output, const std::string& format, const py::kwargs& kwargs) {
    if (format != "npy" && format != "raw" && format != "csv")
        throw ValueError("format " + format + ": \"npy\", \"raw\" or \"csv\" expected");
    const std::string path = FilmPath(film);
    const ConversionOptions o = ConversionArgs(kwargs);
    unsigned long count = 0;
    std::string unit;
    {
        py::gil_scoped_release nogil;
        auto ptr = OpenChecked(path);
        ErrorCapture quiet;
        std::string error;
        Conversion conv;
        if (o.Requested() && !LoadConversion(o, *ptr, path, conv, error)) RaiseLine(error);
        if (ptr->GetFrameNumber() == 0) throw ValueError(FileText(path, "the film holds no frame"));
        const std::vector<unsigned long> frames = SteppedFrames(0, ptr->GetFrameNumber() - 1, 1);
        WriteWhole(output.value, [&](const std::string& temp) {
            if (!ExportFilm(*ptr, path, frames, format, o.Requested() ? &conv : nullptr, temp, output.value, error))
                RaiseLine(error);
            return 1;
        });
        count = frames.size();
        unit = o.Requested() ? conv.unit : std::string(ptr->GetPixelBytes() == 8 ? ptr->GetSpecialUnitName() : "DL");
    }
    py::dict d;
    d["frames"] = count;
    d["unit"] = unit;
    return d;
}

PictureOptions PictureArgs(const std::string& palette, const py::object& paletteFile, const py::object& range,
                           const py::object& cut, const std::vector<std::string>& isotherms, bool bar) {
    PictureOptions p;
    p.palette = palette;
    if (!paletteFile.is_none()) p.paletteFile = paletteFile.cast<PathArg>().value;
    if (!range.is_none()) {
        if (py::isinstance<py::str>(range)) {
            p.range = range.cast<std::string>();
        } else {
            const auto r = range.cast<std::pair<double, double>>();
            char text[64];
            std::snprintf(text, sizeof text, "%.17g:%.17g", r.first, r.second);
            p.range = text;
        }
    }
    if (!cut.is_none()) {
        p.cut = cut.cast<double>();
        if (!(p.cut >= 0.0 && p.cut <= 100.0)) throw ValueError("cut: percent from 0 to 100 expected");
    }
    p.isotherms = isotherms;
    p.bar = bar;
    return p;
}

// The picture options checked: ValueError (or the palette file's error) with the tool's text.
PictureSetup CheckPicture(const PictureOptions& p) {
    std::string error;
    PictureSetup setup;
    bool fileFailed = false;
    if (!PreparePicture(p, setup, error, &fileFailed)) {
        if (fileFailed) RaiseLine(error);
        throw ValueError(error);
    }
    return setup;
}

py::dict Render(const py::object& film, const PathArg& output, long frame, const std::string& palette,
                const py::object& paletteFile, const py::object& range, const py::object& cut,
                const std::vector<std::string>& isotherms, bool bar, const py::kwargs& kwargs) {
    const std::string path = FilmPath(film);
    const ConversionOptions o = ConversionArgs(kwargs);
    const PictureOptions p = PictureArgs(palette, paletteFile, range, cut, isotherms, bar);
    if (frame < 0) throw IndexError("frame " + std::to_string(frame) + ": 0 or more expected");
    std::string description;
    {
        py::gil_scoped_release nogil;
        std::string error;
        const PictureSetup setup = CheckPicture(p);
        auto ptr = OpenChecked(path);
        ErrorCapture quiet;
        const unsigned long n = static_cast<unsigned long>(frame);
        if (n >= ptr->GetFrameNumber())
            throw IndexError(FileText(path, "no frame " + std::to_string(n) + " (the film holds " +
                                                std::to_string(ptr->GetFrameNumber()) + ")"));
        Conversion conv;
        if (o.Requested() && !LoadConversion(o, *ptr, path, conv, error)) RaiseLine(error);
        std::unique_ptr<Picture> picture;
        if (!StartFilmPicture(setup, *ptr, path, o.Requested() ? &conv : nullptr, {n}, picture, error) ||
            !DrawFilmFrame(*picture, *ptr, path, n, error))
            RaiseLine(error);
        WriteWhole(output.value, [&](const std::string& temp) { return picture->SavePng(temp.c_str()); });
        description = picture->DescribeRange();
    }
    py::dict d;
    d["range"] = description;
    return d;
}

}  // namespace

void RegisterProcessing(py::module_& m) {
    // Checks of options given ahead of the work (batch runs check them once, before any film).
    m.def("_check_conversion", [](const py::kwargs& kwargs) { ConversionArgs(kwargs); });
    m.def("_check_picture", [](const std::string& palette, const py::object& paletteFile, const py::object& range,
                               const py::object& cut, const std::vector<std::string>& isotherms, bool bar) {
        CheckPicture(PictureArgs(palette, paletteFile, range, cut, isotherms, bar));
    });
    m.def("correct", &Correct, py::arg("film"), py::arg("output"), py::kw_only(), py::arg("nuc") = py::none(),
          py::arg("badpixels") = py::none(), py::arg("mapping") = py::none(),
          "Writes a corrected copy of a film (a Film or a path), as thermokit correct: NUC table, bad pixels, then "
          "mapping, the headers kept. The output is whole or absent. Returns what was done.");
    m.def("stats", &Stats, py::arg("film"), py::kw_only(), py::arg("roi") = py::none(),
          py::arg("region_file") = py::none(), py::arg("csv") = py::none(),
          "Per-frame figures of a film as thermokit stats measures them, over the whole image, roi = (x, y, w, h) "
          "or a region file; with calib=FILE or embedded=True (and emissivity, reflected, atmosphere, transmission "
          "or distance, kelvin) also of the temperatures. A structured array with the CSV's columns; csv=PATH writes "
          "the CSV of thermokit stats --csv.");
    m.def("export", &Export, py::arg("film"), py::arg("output"), py::kw_only(), py::arg("format") = "npy",
          "Writes every frame of a film as thermokit export does: format \"npy\", \"raw\" or \"csv\"; levels, or "
          "temperatures with calib=FILE or embedded=True and the object parameters. Whole or absent.");
    m.def("render", &Render, py::arg("film"), py::arg("output"), py::kw_only(), py::arg("frame") = 0,
          py::arg("palette") = "2", py::arg("palette_file") = py::none(), py::arg("range") = py::none(),
          py::arg("cut") = py::none(), py::arg("isotherms") = std::vector<std::string>(), py::arg("bar") = false,
          "Draws one frame of a film into a PNG picture as thermokit render does (palette, range \"LO:HI\" or (lo, "
          "hi), cut, isotherms \"LO:HI[:COLOUR]\", bar; temperatures with calib=FILE or embedded=True).");
}

}  // namespace thermokit::python
