// Nuc (gain and offset tables) and BadPixels (the bad-pixel map).
#include <cmath>
#include <memory>
#include <mutex>

#include "_bindings.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CAverage.h"
#include "thermokit/image/CNoise.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Levels.h"

namespace thermokit::python {

namespace {

std::string SizeText(unsigned point, unsigned line) { return std::to_string(point) + " x " + std::to_string(line); }

void CheckSize(long width, long height) {
    if (width < 1 || width > 65535 || height < 1 || height > 65535)
        throw ValueError("size " + std::to_string(width) + " x " + std::to_string(height) +
                              ": width and height from 1 to 65535 expected");
}

unsigned short MaxLevelOf(int bits) {
    if (bits < 1 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 1 to 16 expected");
    return GetMaxLevel(static_cast<unsigned short>(bits));
}

// A film of at least `frames` 16-bit frames that the caller may read; the
// tool's checks and messages.
std::unique_ptr<CPtr> OpenLevelFilm(const std::string& path, unsigned long frames) {
    ErrorCapture errors;
    auto film = std::make_unique<CPtr>(path, 0, 0, 0);
    if (!FileProblem(path).empty()) errors.File(path, "");
    if (!film->IsValid())
        errors.Value(FileText(path, frames > 1 ? "not a film of at least two 16-bit images" : "not a film of 16-bit images"));
    if (film->GetFrameNumber() < frames)
        errors.Value(FileText(path, frames > 1 ? "not a film of at least two 16-bit images" : "the film holds no image"));
    if (!CheckFilmComplete(*film)) errors.Value("");
    return film;
}

// ---------------------------------------------------------------- Nuc

struct Nuc {
    std::mutex mutex;
    std::unique_ptr<CNuc> nuc;
    unsigned short Point() const { return nuc->GetPoint(); }
    unsigned short Line() const { return nuc->GetLine(); }
};

std::shared_ptr<Nuc> NewNuc(long width, long height) {
    CheckSize(width, height);
    auto n = std::make_shared<Nuc>();
    n->nuc = std::make_unique<CNuc>(static_cast<unsigned short>(width), static_cast<unsigned short>(height));
    n->nuc->Reset();
    return n;
}

std::shared_ptr<Nuc> LoadNuc(const PathArg& file) {
    const std::string& path = file.value;
    auto n = std::make_shared<Nuc>();
    py::gil_scoped_release nogil;
    ErrorCapture errors;
    n->nuc = std::make_unique<CNuc>(path.c_str());
    if (!n->nuc->IsValid()) errors.File(path, FileText(path, "not a readable NUC table"), *n->nuc);
    const long size = static_cast<long>(n->Point()) * n->Line();
    if (n->nuc->GetSize() != size)
        errors.Value(FileText(path, "holds " + std::to_string(n->nuc->GetSize()) + " pixels, not " +
                                        SizeText(n->Point(), n->Line())));
    return n;
}

// The mean image of a source given as an array: a 2-D image as it is, or the
// mean of the frames of a 3-D one (levels truncated, as a film's mean is).
// Levels go to levels, anything else to floats.
struct Mean {
    std::vector<unsigned short> levels;
    std::vector<float> values;
    bool isLevels = true;
};

Mean MeanOf(const py::handle& source, const char* name, unsigned short point, unsigned short line) {
    Mean m;
    const py::array any = AnyArray(source, name);
    m.isLevels = any.dtype().kind() == 'u' && any.dtype().itemsize() == 2;
    const size_t size = static_cast<size_t>(point) * line;
    if (m.isLevels) {
        const auto a = Levels(any, name, {2, 3});
        CheckFrameShape(a, name, line, point);
        const unsigned short* data = a.data();
        py::gil_scoped_release nogil;
        if (a.ndim() == 2) {
            m.levels.assign(data, data + size);
        } else {
            CAverage mean(point, line, 16, 0);
            for (py::ssize_t k = 0; k < a.shape(0); ++k)
                mean.Accumulate(const_cast<unsigned short*>(data + static_cast<size_t>(k) * size), static_cast<long>(size), 16, 1.0);
            const unsigned short* levels = mean.GetBuffer(0);
            if (!levels) throw ValueError(std::string("argument '") + name + "': no frame to average");
            m.levels.assign(levels, levels + size);
        }
    } else {
        const auto a = Values<double>(any, name, {2, 3});
        CheckFrameShape(a, name, line, point);
        const double* data = a.data();
        py::gil_scoped_release nogil;
        m.values.resize(size);
        if (a.ndim() == 2) {
            for (size_t i = 0; i < size; ++i) m.values[i] = static_cast<float>(data[i]);
        } else {
            CAverage mean(point, line, 16, 0);
            for (py::ssize_t k = 0; k < a.shape(0); ++k)
                mean.Accumulate(const_cast<double*>(data + static_cast<size_t>(k) * size), static_cast<long>(size), 1.0);
            const double* d = mean.GetDoubleBuffer(0);
            if (!d) throw ValueError(std::string("argument '") + name + "': no frame to average");
            for (size_t i = 0; i < size; ++i) m.values[i] = static_cast<float>(d[i]);
        }
    }
    return m;
}

py::object Compute(py::object self, const py::object& cold, const py::object& hot, bool keepGain) {
    Nuc& n = self.cast<Nuc&>();
    const bool onePoint = hot.is_none();
    if (keepGain && !onePoint) throw ValueError("keep_gain only applies to a one-point update (no hot reference)");
    const unsigned short point = n.Point(), line = n.Line();
    const std::string coldPath = SourcePath(cold), hotPath = onePoint ? std::string() : SourcePath(hot);
    if (!coldPath.empty() || !hotPath.empty()) {
        if (coldPath.empty() || (!onePoint && hotPath.empty()))
            throw TypeError("cold and hot: both films (or paths) or both arrays expected");
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(n.mutex);
        ErrorCapture errors;
        for (const std::string& path : {coldPath, hotPath}) {
            if (path.empty()) continue;
            auto film = OpenLevelFilm(path, 1);
            if (film->GetPoint() != point || film->GetLine() != line || film->GetSize() != n.nuc->GetSize())
                errors.Value(FileText(path, SizeText(film->GetPoint(), film->GetLine()) + " pixels, the table " +
                                                SizeText(point, line)));
        }
        n.nuc->Update(coldPath.c_str(), onePoint ? nullptr : hotPath.c_str(), onePoint ? 1 : 0, keepGain ? 1 : 0);
        return self;
    }
    Mean low = MeanOf(cold, "cold", point, line);
    Mean high;
    if (!onePoint) high = MeanOf(hot, "hot", point, line);
    py::gil_scoped_release nogil;
    std::lock_guard<std::mutex> lock(n.mutex);
    if (low.isLevels && (onePoint || high.isLevels)) {
        n.nuc->Update(low.levels.data(), onePoint ? nullptr : high.levels.data(), onePoint ? 1 : 0, keepGain ? 1 : 0);
    } else {
        // One side in values: both go as floats.
        for (Mean* m : {&low, &high})
            if (m->isLevels && !m->levels.empty()) m->values.assign(m->levels.begin(), m->levels.end());
        n.nuc->Update(low.values.data(), onePoint ? nullptr : high.values.data(), onePoint ? 1 : 0, keepGain ? 1 : 0);
    }
    return self;
}

// Corrects (or, with remove, undoes the correction of) a frame or frames.
py::array ApplyNuc(Nuc& n, const py::object& frame, int bits, const py::object& out, bool remove) {
    const unsigned short maxLevel = MaxLevelOf(bits);
    const py::array any = AnyArray(frame, "frame");
    const bool levels = any.dtype().kind() == 'u' && any.dtype().itemsize() == 2;
    const size_t size = static_cast<size_t>(n.Point()) * n.Line();
    if (levels) {
        const auto in = Levels(any, "frame", {2, 3});
        CheckFrameShape(in, "frame", n.Line(), n.Point());
        auto target = out.is_none() ? NewArray<uint16_t>(ShapeOf(in)) : OutArray<uint16_t>(out, "out", ShapeOf(in));
        const unsigned short* src = in.data();
        unsigned short* dst = target.mutable_data();
        const size_t frames = static_cast<size_t>(in.size()) / size;
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(n.mutex);
        for (size_t k = 0; k < frames; ++k) {
            // The table reads the input and writes the output; the same array may be both.
            unsigned short* i = const_cast<unsigned short*>(src + k * size);
            if (remove) n.nuc->ApplyDeNuc(i, maxLevel, dst + k * size);
            else n.nuc->Apply(i, maxLevel, dst + k * size);
        }
        return target;
    }
    if (any.dtype().kind() != 'f')
        throw TypeError("argument 'frame': levels (uint16) or a float image expected, got " + DtypeName(any.dtype()));
    const auto in = Values<float>(any, "frame", {2, 3});
    CheckFrameShape(in, "frame", n.Line(), n.Point());
    auto target = out.is_none() ? NewArray<float>(ShapeOf(in)) : OutArray<float>(out, "out", ShapeOf(in));
    const float* src = in.data();
    float* dst = target.mutable_data();
    const size_t frames = static_cast<size_t>(in.size()) / size;
    py::gil_scoped_release nogil;
    std::lock_guard<std::mutex> lock(n.mutex);
    if (dst != src) std::copy(src, src + frames * size, dst);
    for (size_t k = 0; k < frames; ++k) {
        if (remove) n.nuc->ApplyDeNuc(dst + k * size);
        else n.nuc->Apply(dst + k * size);
    }
    return target;
}

// ---------------------------------------------------------------- BadPixels

struct BadPixels {
    std::mutex mutex;
    std::unique_ptr<CPixel> map;
    unsigned short Point() const { return map->GetPoint(); }
    unsigned short Line() const { return map->GetLine(); }
};

std::shared_ptr<BadPixels> NewMap(long width, long height) {
    CheckSize(width, height);
    auto b = std::make_shared<BadPixels>();
    b->map = std::make_unique<CPixel>(static_cast<unsigned short>(width), static_cast<unsigned short>(height), 0);
    return b;
}

std::shared_ptr<BadPixels> LoadMap(const PathArg& file) {
    const std::string& path = file.value;
    auto b = std::make_shared<BadPixels>();
    py::gil_scoped_release nogil;
    ErrorCapture errors;
    b->map = std::make_unique<CPixel>(path.c_str());
    if (!b->map->IsValid())
        errors.File(path, FileText(path, "not a readable bad-pixel map (" + b->map->GetLastErrorMessage() + ")"));
    return b;
}

// The noise image of a noise source: a film (or path) or a 3-D array of
// frames, whose temporal noise is computed, or a 2-D array that is the noise.
std::vector<float> NoiseOf(const py::object& source, unsigned short& point, unsigned short& line) {
    std::vector<float> noise;
    const std::string path = SourcePath(source);
    if (!path.empty()) {
        py::gil_scoped_release nogil;
        ErrorCapture errors;
        auto film = OpenLevelFilm(path, 2);
        if (point && (film->GetPoint() != point || film->GetLine() != line))
            errors.Value(FileText(path, SizeText(film->GetPoint(), film->GetLine()) + " pixels, the NUC table " +
                                            SizeText(point, line)));
        point = film->GetPoint();
        line = film->GetLine();
        noise.resize(static_cast<size_t>(film->GetSize()));
        if (!ReadTemporalNoise(*film, noise.data())) errors.Os(FileText(path, "a frame cannot be read"));
        return noise;
    }
    const py::array any = AnyArray(source, "noise_film");
    if (any.ndim() != 2 && any.ndim() != 3)
        throw ValueError("argument 'noise_film': a film, frames (3-D) or a noise image (2-D) expected, got shape " +
                              ShapeText(ShapeOf(any)));
    if (!point) {
        point = static_cast<unsigned short>(any.shape(any.ndim() - 1));
        line = static_cast<unsigned short>(any.shape(any.ndim() - 2));
        CheckSize(any.shape(any.ndim() - 1), any.shape(any.ndim() - 2));
    }
    CheckFrameShape(any, "noise_film", line, point);
    const size_t size = static_cast<size_t>(point) * line;
    if (any.ndim() == 2) {
        const auto a = Values<float>(any, "noise_film", {2});
        noise.assign(a.data(), a.data() + size);
        return noise;
    }
    if (any.shape(0) < 2) throw ValueError("argument 'noise_film': at least two frames expected");
    const auto a = Values<double>(any, "noise_film", {3});
    const double* data = a.data();
    py::gil_scoped_release nogil;
    CAverage mean(point, line, 16, 0);
    for (py::ssize_t k = 0; k < a.shape(0); ++k)
        mean.Accumulate(const_cast<double*>(data + static_cast<size_t>(k) * size), static_cast<long>(size), 1.0);
    double* m = mean.GetDoubleBuffer(0);
    CNoise rms(point, line, 16, 0);
    for (py::ssize_t k = 0; k < a.shape(0); ++k)
        rms.Accumulate(const_cast<double*>(data + static_cast<size_t>(k) * size), static_cast<long>(size), m);
    const double* r = rms.GetBuffer();
    noise.resize(size);
    for (size_t i = 0; i < size; ++i) noise[i] = static_cast<float>(r[i]);
    return noise;
}

std::shared_ptr<BadPixels> Detect(const py::object& nucObject, const py::object& gain, double gainReference,
                                  const py::object& offset, int level, const py::object& noise,
                                  const py::object& noiseFilm, bool noiseHigh) {
    if (gain.is_none() && offset.is_none() && noise.is_none())
        throw ValueError("give at least one criterion: gain, offset or noise");
    if ((!gain.is_none() || !offset.is_none()) && nucObject.is_none())
        throw ValueError("gain and offset need the NUC table (nuc) whose gains and offsets are tested");
    if (!noise.is_none() && noiseFilm.is_none())
        throw ValueError("noise needs the film (noise_film) whose temporal noise is tested");
    if (level < 0 || level > 65535) throw ValueError("level " + std::to_string(level) + ": from 0 to 65535 expected");
    unsigned short point = 0, line = 0;
    std::shared_ptr<Nuc> nuc;
    if (!nucObject.is_none()) {
        nuc = nucObject.cast<std::shared_ptr<Nuc>>();
        point = nuc->Point();
        line = nuc->Line();
    }
    std::vector<float> noiseImage;
    if (!noiseFilm.is_none()) noiseImage = NoiseOf(noiseFilm, point, line);
    if (!point) throw ValueError("no source: nuc or noise_film expected");
    auto b = NewMap(point, line);
    const long size = static_cast<long>(point) * line;
    const float gainPercent = gain.is_none() ? 0.0f : gain.cast<float>();
    const float offsetPercent = offset.is_none() ? 0.0f : offset.cast<float>();
    const float threshold = noise.is_none() ? 0.0f : noise.cast<float>();
    py::gil_scoped_release nogil;
    CPixel& map = *b->map;
    auto full = [&map] {
        throw ValueError("more than " + std::to_string(CPixel::kMaxBad) + " bad pixels: " + map.GetLastErrorMessage() +
                              "; loosen the criteria");
    };
    if (nuc) {
        std::lock_guard<std::mutex> lock(nuc->mutex);
        if (!gain.is_none() && !map.UpdateGain(nuc->nuc->GetAlpha(), size, gainPercent, static_cast<float>(gainReference)))
            full();
        if (!offset.is_none() && !map.UpdateOffset(nuc->nuc->GetBeta(), size, offsetPercent, static_cast<unsigned short>(level)))
            full();
    }
    if (!noise.is_none() && !map.UpdateNoise(noiseImage.data(), size, threshold, noiseHigh ? 1 : 0)) full();
    map.UpdateReplacement();
    map.UpdateDistribution(nullptr, 0);
    return b;
}

template <class T>
py::array ApplyMapTyped(BadPixels& b, const py::array& any, const py::object& out) {
    const auto in = Values<T>(any, "frame", {2, 3});
    CheckFrameShape(in, "frame", b.Line(), b.Point());
    auto target = out.is_none() ? NewArray<T>(ShapeOf(in)) : OutArray<T>(out, "out", ShapeOf(in));
    const T* src = in.data();
    T* dst = target.mutable_data();
    const size_t size = static_cast<size_t>(b.Point()) * b.Line();
    const size_t frames = static_cast<size_t>(in.size()) / size;
    py::gil_scoped_release nogil;
    std::lock_guard<std::mutex> lock(b.mutex);
    if (dst != src) std::copy(src, src + frames * size, dst);
    for (size_t k = 0; k < frames; ++k) b.map->Apply(dst + k * size);
    return target;
}

py::array ApplyMap(BadPixels& b, const py::object& frame, const py::object& out) {
    const py::array any = AnyArray(frame, "frame");
    if (any.dtype().kind() == 'u' && any.dtype().itemsize() == 2) {
        const auto in = Levels(any, "frame", {2, 3});
        CheckFrameShape(in, "frame", b.Line(), b.Point());
        auto target = out.is_none() ? NewArray<uint16_t>(ShapeOf(in)) : OutArray<uint16_t>(out, "out", ShapeOf(in));
        const unsigned short* src = in.data();
        unsigned short* dst = target.mutable_data();
        const size_t size = static_cast<size_t>(b.Point()) * b.Line();
        const size_t frames = static_cast<size_t>(in.size()) / size;
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(b.mutex);
        if (dst != src) std::copy(src, src + frames * size, dst);
        for (size_t k = 0; k < frames; ++k) b.map->Apply(dst + k * size);
        return target;
    }
    if (any.dtype().kind() == 'f' && any.dtype().itemsize() == 4) return ApplyMapTyped<float>(b, any, out);
    if (any.dtype().kind() == 'f') return ApplyMapTyped<double>(b, any, out);
    throw TypeError("argument 'frame': levels (uint16) or a float image expected, got " + DtypeName(any.dtype()));
}

// (x, y) of every entry's bad (which 1) or replacement (which 2) pixel.
py::array Places(BadPixels& b, int which) {
    std::lock_guard<std::mutex> lock(b.mutex);
    const py::ssize_t n = b.map->GetSize();
    auto out = NewArray<int32_t>({n, 2});
    const int32_t* index = which == 1 ? b.map->GetPixel1() : b.map->GetPixel2();
    for (py::ssize_t k = 0; k < n; ++k) {
        unsigned short x = 0, y = 0;
        b.map->Coordinates(index[k], &x, &y);
        out.mutable_data()[2 * k] = x;
        out.mutable_data()[2 * k + 1] = y;
    }
    return out;
}

}  // namespace

void RegisterNuc(py::module_& m) {
    py::class_<Nuc, std::shared_ptr<Nuc>>(m, "Nuc",
                                          "A non-uniformity correction: per-pixel gain and offset, corrected = gain x "
                                          "raw + offset. Nuc(width, height) starts at gain 1, offset 0.")
        .def(py::init(&NewNuc), py::arg("width"), py::arg("height"))
        .def_static("load", &LoadNuc, py::arg("path"), "Reads a NUC table file.")
        .def(
            "save",
            [](Nuc& n, const PathArg& path) {
                py::gil_scoped_release nogil;
                std::lock_guard<std::mutex> lock(n.mutex);
                WriteWhole(path.value, [&](const std::string& temp) { return n.nuc->Save(temp.c_str()); });
            },
            py::arg("path"), "Writes the table as a NUC file (whole or not at all).")
        .def("compute", &Compute, py::arg("cold"), py::arg("hot") = py::none(), py::arg("keep_gain") = false,
             "Two-point tables from a cold and a hot uniform reference, or one-point offsets from cold alone (gain 1, "
             "or the present gains with keep_gain). References are films (or paths), each averaged over its frames, "
             "or arrays: a mean image, or frames (3-D) averaged here. Returns the table.")
        .def("apply", [](Nuc& n, const py::object& f, int bits, const py::object& out) { return ApplyNuc(n, f, bits, out, false); },
             py::arg("frame"), py::arg("bits") = 16, py::arg("out") = py::none(),
             "Corrected frame(s): levels (masked to bits, clamped to the largest level, truncated) or float images.")
        .def("remove", [](Nuc& n, const py::object& f, int bits, const py::object& out) { return ApplyNuc(n, f, bits, out, true); },
             py::arg("frame"), py::arg("bits") = 16, py::arg("out") = py::none(), "Undoes the correction.")
        .def_property_readonly(
            "gain", [](py::object self) { Nuc& n = self.cast<Nuc&>(); return View(n.nuc->GetAlpha(), n.Line(), n.Point(), self); },
            "the gain table (float32, lines x points), a view of the table's memory")
        .def_property_readonly(
            "offset", [](py::object self) { Nuc& n = self.cast<Nuc&>(); return View(n.nuc->GetBeta(), n.Line(), n.Point(), self); },
            "the offset table (float32, lines x points), a view of the table's memory")
        .def_property(
            "gain_limits",
            [](Nuc& n) {
                float lo = 0, hi = 0;
                n.nuc->GetGainLimit(&lo, &hi);
                return py::make_tuple(lo, hi);
            },
            [](Nuc& n, std::pair<double, double> limits) {
                if (!std::isfinite(limits.first) || !std::isfinite(limits.second) || limits.first > limits.second)
                    throw ValueError("gain_limits: (low, high) with low not above high expected");
                n.nuc->SetGainLimit(static_cast<float>(limits.first), static_cast<float>(limits.second));
            },
            "the limits computed gains are clamped to (default 0.1, 10)")
        .def_property_readonly("width", [](Nuc& n) { return n.Point(); })
        .def_property_readonly("height", [](Nuc& n) { return n.Line(); })
        .def_property("camera", [](Nuc& n) { return n.nuc->GetCamera(); }, [](Nuc& n, const std::string& s) { n.nuc->SetCamera(s); })
        .def_property("serial", [](Nuc& n) { return n.nuc->GetCameraSerial(); },
                      [](Nuc& n, const std::string& s) { n.nuc->SetCameraSerial(s); })
        .def_property("filter", [](Nuc& n) { return n.nuc->GetFilter(); }, [](Nuc& n, const std::string& s) { n.nuc->SetFilter(s); })
        .def_property("integration", [](Nuc& n) { return n.nuc->GetIntegration(); },
                      [](Nuc& n, float v) { n.nuc->SetIntegration(v); })
        .def("__repr__", [](Nuc& n) { return "<thermokit.Nuc " + SizeText(n.Point(), n.Line()) + ">"; });

    py::class_<BadPixels, std::shared_ptr<BadPixels>> bp(
        m, "BadPixels", "A bad-pixel map: each bad pixel with the pixel that replaces it and why it was found bad.");
    bp.attr("GAIN") = 0x03;
    bp.attr("OFFSET") = 0x0C;
    bp.attr("NOISE") = 0x10;
    bp.def(py::init(&NewMap), py::arg("width"), py::arg("height"))
        .def_static("load", &LoadMap, py::arg("path"), "Reads a bad-pixel map file.")
        .def(
            "save",
            [](BadPixels& b, const PathArg& path) {
                py::gil_scoped_release nogil;
                std::lock_guard<std::mutex> lock(b.mutex);
                WriteWhole(path.value, [&](const std::string& temp) { return b.map->Save(temp.c_str()); });
            },
            py::arg("path"), "Writes the map as a bad-pixel file (whole or not at all).")
        .def(
            "save_report",
            [](BadPixels& b, const PathArg& path, bool gain, bool offset, bool noise) {
                py::gil_scoped_release nogil;
                std::lock_guard<std::mutex> lock(b.mutex);
                ErrorCapture errors;
                if (!b.map->SaveAscii(path.value.c_str(), gain, offset, noise))
                    errors.Os(FileText(path.value, "cannot be created"));
            },
            py::arg("path"), py::arg("gain") = true, py::arg("offset") = true, py::arg("noise") = true,
            "Writes the text report of the map; the flags say which criteria were selected.")
        .def_static("detect", &Detect, py::arg("nuc") = py::none(), py::arg("gain") = py::none(),
                    py::arg("gain_reference") = 1.0, py::arg("offset") = py::none(), py::arg("level") = 16383,
                    py::arg("noise") = py::none(), py::arg("noise_film") = py::none(), py::arg("noise_high") = false,
                    "Bad pixels of a NUC table's gains outside +-gain percent of gain_reference and offsets outside "
                    "+-offset percent of level, and of pixels whose temporal noise (of noise_film) is at or below "
                    "noise (at or above with noise_high); replacements from the nearest good neighbours.")
        .def("apply", &ApplyMap, py::arg("frame"), py::arg("out") = py::none(),
             "Frame(s) with every bad pixel replaced (levels, float32 or float64).")
        .def(
            "add",
            [](BadPixels& b, int x, int y, int kind) {
                if (x < 0 || y < 0 || x >= b.Point() || y >= b.Line())
                    throw IndexError("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is not on the " +
                                          SizeText(b.Point(), b.Line()) + " detector");
                if (kind < 0 || kind > 255) throw ValueError("kind: a code from 0 to 255 expected");
                std::lock_guard<std::mutex> lock(b.mutex);
                const long index = b.map->Index(static_cast<unsigned short>(x), static_cast<unsigned short>(y));
                if (b.map->IsBad(index) >= 0) return;
                long replacement = index;
                b.map->Find(index, &replacement);
                if (!b.map->Add(index, replacement, static_cast<unsigned char>(kind)))
                    throw ValueError(b.map->GetLastErrorMessage());
                b.map->UpdateDistribution(nullptr, 0);
            },
            py::arg("x"), py::arg("y"), py::arg("kind") = 0x1F, "Adds a bad pixel, replaced by its nearest good neighbour.")
        .def(
            "update_replacements",
            [](BadPixels& b) {
                std::lock_guard<std::mutex> lock(b.mutex);
                b.map->UpdateReplacement();
            },
            "Chooses every entry's replacement again (after adding neighbours).")
        .def("__len__", [](BadPixels& b) { return b.map->GetSize(); })
        .def_property_readonly("pixels", [](BadPixels& b) { return Places(b, 1); }, "(x, y) of each bad pixel, 0-based")
        .def_property_readonly("replacements", [](BadPixels& b) { return Places(b, 2); },
                               "(x, y) of the pixel that replaces each bad pixel")
        .def_property_readonly(
            "kinds",
            [](BadPixels& b) {
                std::lock_guard<std::mutex> lock(b.mutex);
                const py::ssize_t n = b.map->GetSize();
                auto out = NewArray<uint8_t>({n});
                std::copy(b.map->GetCriteria(), b.map->GetCriteria() + n, out.mutable_data());
                return out;
            },
            "why each pixel is bad: GAIN, OFFSET and NOISE bits (0 when the map keeps no criteria)")
        .def_property_readonly(
            "counts",
            [](BadPixels& b) {
                std::lock_guard<std::mutex> lock(b.mutex);
                const CPixel& p = *b.map;
                py::dict d;
                d["gain"] = p.GetGain();
                d["offset"] = p.GetOffset();
                d["noise"] = p.GetNoise();
                d["gain & offset"] = p.GetOffsetGain();
                d["offset & noise"] = p.GetOffsetNoise();
                d["gain & noise"] = p.GetGainNoise();
                d["gain & offset & noise"] = p.GetOffsetGainNoise();
                d["total"] = p.GetTotal();
                return d;
            },
            "bad pixels by their exact criteria")
        .def_property_readonly("width", [](BadPixels& b) { return b.Point(); })
        .def_property_readonly("height", [](BadPixels& b) { return b.Line(); })
        .def("__repr__", [](BadPixels& b) {
            return "<thermokit.BadPixels " + SizeText(b.Point(), b.Line()) + ", " + std::to_string(b.map->GetSize()) + " bad>";
        });
}

}  // namespace thermokit::python
