// Palette: the built-in and custom palettes, and frames drawn through them
// into RGB pictures.
#include <cctype>
#include <cmath>
#include <memory>
#include <mutex>

#include "_bindings.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/display/CLut24.h"
#include "thermokit/display/RgbPicture.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::python {

namespace {

bool SameName(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
    return true;
}

// The custom palettes of a file (none without one); OSError or ValueError when it cannot be read.
std::unique_ptr<CLogPalette> ReadCustom(const std::string& file) {
    auto reader = std::make_unique<CLogPalette>(CLogPalette::GREY, 0, nullptr);
    if (file.empty()) return reader;
    ErrorCapture errors;
    if (!reader->ReadIniFile(file.c_str())) errors.File(file, FileText(file, "cannot be read"));
    return reader;
}

struct Palette {
    std::mutex mutex;
    std::unique_ptr<CLogPalette> palette;
    int number = 0;
    bool reversed = false;
    std::string file;
};

std::shared_ptr<Palette> NewPalette(const py::object& which, bool reversed, const py::object& file) {
    auto p = std::make_shared<Palette>();
    p->reversed = reversed;
    if (!file.is_none()) p->file = file.cast<PathArg>().value;
    auto reader = ReadCustom(p->file);
    if (PyIndex_Check(which.ptr()) && !py::isinstance<py::bool_>(which)) {
        const long n = which.cast<long>();
        if (n < 0 || n > 65535) throw ValueError("palette " + std::to_string(n) + ": a number from 0 to 65535 expected");
        p->number = static_cast<int>(n);
    } else if (py::isinstance<py::str>(which)) {
        const std::string name = which.cast<std::string>();
        p->number = -1;
        for (int i = 0; i < CLogPalette::FIRST_CUSTOM && p->number < 0; ++i)
            if (SameName(name, CLogPalette::GetPaletteName(i))) p->number = i;
        const auto& names = *reader->GetCustomPalleteName();
        for (size_t k = 0; k < names.size() && p->number < 0; ++k)
            if (SameName(name, names[k])) p->number = CLogPalette::FIRST_CUSTOM + static_cast<int>(k);
        if (p->number < 0) throw ValueError("unknown palette \"" + name + "\" (thermokit.palettes() lists them)");
    } else {
        throw TypeError("palette: a name or a number expected");
    }
    p->palette = std::make_unique<CLogPalette>(static_cast<unsigned short>(p->number), reversed ? 1 : 0,
                                               p->file.empty() ? nullptr : p->file.c_str());
    if (!p->palette->IsCreated())
        throw ValueError("palette " + std::to_string(p->number) + " (" + p->palette->GetPaletteName() +
                              "): no entries to draw");
    return p;
}

py::dict Palettes(const py::object& file) {
    const std::string path = file.is_none() ? std::string() : file.cast<PathArg>().value;
    auto reader = ReadCustom(path);
    py::dict d;
    for (int i = 0; i < CLogPalette::FIRST_CUSTOM; ++i) d[py::int_(i)] = CLogPalette::GetPaletteName(i);
    const auto& names = *reader->GetCustomPalleteName();
    for (size_t k = 0; k < names.size(); ++k) d[py::int_(CLogPalette::FIRST_CUSTOM + static_cast<int>(k))] = names[k];
    return d;
}

// (lo, hi) of range, lo below hi, or ValueError.
std::pair<double, double> RangeOf(const py::object& range) {
    const auto r = range.cast<std::pair<double, double>>();
    if (!(r.first < r.second) || !std::isfinite(r.first) || !std::isfinite(r.second))
        throw ValueError("range: (low, high) with low below high expected");
    return r;
}

py::array Apply(Palette& p, const py::object& frame, const py::object& range, int bits) {
    if (bits < 1 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 1 to 16 expected");
    const py::array any = AnyArray(frame, "frame");
    const bool isLevels = any.dtype().kind() == 'u' && any.dtype().itemsize() == 2;
    std::vector<py::ssize_t> shape = ShapeOf(any);
    if (shape.size() != 2 && shape.size() != 3)
        throw ValueError("argument 'frame': a frame (2-D) or frames (3-D) expected, got shape " + ShapeText(shape));
    shape.push_back(3);
    auto out = NewArray<uint8_t>(shape);
    uint8_t* rgb = out.mutable_data();
    std::vector<unsigned short> spread;
    const unsigned short* levels = nullptr;
    unsigned short maxLevel = GetMaxLevel(static_cast<unsigned short>(bits));
    unsigned short min = 0, max = maxLevel;
    const bool hasRange = !range.is_none();
    const std::pair<double, double> r = hasRange ? RangeOf(range) : std::pair<double, double>{0.0, 0.0};
    CArray<uint16_t> levelArray;
    CArray<double> valueArray;
    if (isLevels) {
        levelArray = Levels(any, "frame", {2, 3});
        levels = levelArray.data();
        if (hasRange) {
            auto toLevel = [maxLevel](double v) {
                return static_cast<unsigned short>(v <= 0.0 ? 0.0 : v >= maxLevel ? maxLevel : v);
            };
            min = toLevel(r.first);
            max = toLevel(r.second);
        }
    } else {
        valueArray = Values<double>(any, "frame", {2, 3});
        maxLevel = 65535;
    }
    const long n = static_cast<long>(any.size());
    {
        py::gil_scoped_release nogil;
        if (!isLevels) {
            // Values are spread over 16-bit levels between the range's bounds,
            // or between their finite extremes (the tool's rule for films of doubles).
            const double* values = valueArray.data();
            double lo = r.first, hi = r.second;
            if (!hasRange) {
                bool found = false;
                for (long i = 0; i < n; ++i) {
                    if (!std::isfinite(values[i])) continue;
                    if (!found) lo = hi = values[i], found = true;
                    else if (values[i] < lo) lo = values[i];
                    else if (values[i] > hi) hi = values[i];
                }
                if (hi == lo) hi = lo + 1.0;
            }
            float scale[PtrHeader::kSpecialScaleCount];
            for (int k = 0; k < PtrHeader::kSpecialScaleCount; ++k)
                scale[k] = static_cast<float>(lo + (hi - lo) * k / (PtrHeader::kSpecialScaleCount - 1));
            spread.resize(static_cast<size_t>(n));
            CPtrOver::ConvDoubleToSpecialUnit(values, n, spread.data(), scale, maxLevel);
            levels = spread.data();
        }
        if (!hasRange) {
            // The tool's default display range: 1 % of the pixels cut, half at each end.
            if (!MinMaxHisto(levels, n, &min, &max, maxLevel, 99.0f, -1.0f, nullptr)) min = 0, max = maxLevel;
        }
        if (max <= min) max = static_cast<unsigned short>(min < maxLevel ? min + 1 : min);
        std::lock_guard<std::mutex> lock(p.mutex);
        CLut24 lut(maxLevel);
        lut.Update(nullptr, p.palette.get(), min, max);
        LutToRgb(lut, levels, n, rgb);
    }
    return out;
}

}  // namespace

void RegisterDisplay(py::module_& m) {
    py::class_<Palette, std::shared_ptr<Palette>>(m, "Palette",
                                                  "A colour palette: a built-in one by name or number (thermokit."
                                                  "palettes()), or a custom one of a palette file.")
        .def(py::init(&NewPalette), py::arg("palette"), py::arg("reversed") = false, py::arg("file") = py::none())
        .def_property_readonly("number", [](Palette& p) { return p.number; })
        .def_property_readonly("name", [](Palette& p) { return p.palette->GetPaletteName(); })
        .def_property_readonly("reversed", [](Palette& p) { return p.reversed; })
        .def("__len__", [](Palette& p) { return p.palette->GetEntryCount(); })
        .def_property_readonly(
            "colors",
            [](Palette& p) {
                const tagLOGPALETTE* lp = p.palette->GetPLogPalette();
                const py::ssize_t n = p.palette->GetEntryCount();
                auto out = NewArray<uint8_t>({n, 3});
                // Entries are stored blue first.
                for (py::ssize_t i = 0; i < n; ++i) {
                    out.mutable_data()[3 * i] = lp->palPalEntry[i].peBlue;
                    out.mutable_data()[3 * i + 1] = lp->palPalEntry[i].peGreen;
                    out.mutable_data()[3 * i + 2] = lp->palPalEntry[i].peRed;
                }
                return out;
            },
            "the entries as (red, green, blue) rows, uint8")
        .def("apply", &Apply, py::arg("frame"), py::arg("range") = py::none(), py::arg("bits") = 16,
             "An RGB picture (uint8, ... x 3) of a frame or frames: levels (masked to bits) or values; range (low, "
             "high) in levels or values, default the tool's (1 % of the pixels cut, half at each end). NaN takes the "
             "first colour.")
        .def("__repr__", [](Palette& p) {
            return "<thermokit.Palette " + std::to_string(p.number) + " \"" + p.palette->GetPaletteName() + "\"" +
                   (p.reversed ? " reversed" : "") + ">";
        });
    m.def("palettes", &Palettes, py::arg("file") = py::none(),
          "Every palette by number: the built-in ones and those of a palette file.");
}

}  // namespace thermokit::python
