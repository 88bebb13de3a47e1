// Measurements and whole-film work: statistics, lock-in demodulation and the
// simulated camera.
#include <cmath>
#include <memory>

#include "_bindings.h"
#include "thermokit/acquisition/CLockin.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/processing/FilmLockin.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/Statistics.h"
#include "thermokit/simulation/CSimDetector.h"
#include "thermokit/simulation/CSimFilm.h"
#include "thermokit/simulation/CSimScene.h"

namespace thermokit::python {

namespace {

// ---------------------------------------------------------------- statistics

// The values of a rectangle (x, y, w, h) of a 2-D array, row after row.
template <class T>
std::vector<T> Rectangle(const CArray<T>& a, const py::object& roi) {
    if (a.ndim() != 2)
        throw ValueError("argument 'frame': a 2-D frame expected with roi, got shape " + ShapeText(ShapeOf(a)));
    std::vector<long> r;
    try {
        r = roi.cast<std::vector<long>>();
    } catch (const py::cast_error&) {
        throw TypeError("roi: (x, y, w, h), four integers, expected");
    }
    const long width = static_cast<long>(a.shape(1)), height = static_cast<long>(a.shape(0));
    if (r.size() != 4 || r[2] <= 0 || r[3] <= 0 || r[0] < 0 || r[1] < 0 || r[0] + r[2] > width || r[1] + r[3] > height) {
        std::string text = "roi";
        for (size_t k = 0; k < r.size(); ++k) {
            text.append(k ? "," : " ");
            text.append(std::to_string(r[k]));
        }
        text.append(": (x, y, w, h) with w and h above 0 inside the ");
        text.append(std::to_string(width)).append(" x ").append(std::to_string(height)).append(" image expected");
        throw ValueError(text);
    }
    std::vector<T> v;
    v.reserve(static_cast<size_t>(r[2] * r[3]));
    for (long y = r[1]; y < r[1] + r[3]; ++y) {
        const T* row = a.data() + y * width + r[0];
        v.insert(v.end(), row, row + r[2]);
    }
    return v;
}

template <class T>
FrameStatistics MeasureArray(const CArray<T>& a, const py::object& roi) {
    if (roi.is_none()) {
        const T* data = a.data();
        const long n = static_cast<long>(a.size());
        py::gil_scoped_release nogil;
        return Measure(data, n);
    }
    const std::vector<T> v = Rectangle(a, roi);
    py::gil_scoped_release nogil;
    return Measure(v.data(), static_cast<long>(v.size()));
}

py::object Statistics(const py::object& frame, const py::object& roi) {
    const py::array any = AnyArray(frame, "frame");
    const py::dtype dt = any.dtype();
    FrameStatistics s;
    if (dt.kind() == 'u' && dt.itemsize() == 2) s = MeasureArray(Levels(any, "frame", {1, 2, 3}), roi);
    else if (dt.kind() == 'f' && dt.itemsize() == 4) s = MeasureArray(Values<float>(any, "frame", {1, 2, 3}), roi);
    else s = MeasureArray(Values<double>(any, "frame", {1, 2, 3}), roi);
    return py::module_::import("thermokit._thermokit").attr("Statistics")(s.min, s.max, s.mean, s.stdDev, s.count);
}

// ---------------------------------------------------------------- lock-in

unsigned short FilterOf(const py::object& filter) {
    if (filter.is_none()) return CLockin::FILTER_NONE;
    const std::string f = filter.cast<std::string>();
    if (f == "none") return CLockin::FILTER_NONE;
    if (f == "lowpass") return CLockin::FILTER_LOWPASS;
    if (f == "median") return CLockin::FILTER_MEDIAN;
    throw ValueError("filter " + f + ": \"lowpass\", \"median\" or None expected");
}

py::tuple Results(CLockin& lockin, unsigned short filter, unsigned short point, unsigned short line) {
    const double* module = lockin.GetModule(filter, 1);
    const double* phase = lockin.GetPhase(filter, 1);
    if (!module || !phase) throw ValueError("lock-in: no result (no frame of at least one pixel)");
    auto m = NewArray<double>({line, point});
    auto p = NewArray<double>({line, point});
    const size_t size = static_cast<size_t>(point) * line;
    std::copy(module, module + size, m.mutable_data());
    std::copy(phase, phase + size, p.mutable_data());
    return py::make_tuple(m, p);
}

// The first image of a film of doubles as a 2-D array.
py::array ReadDoubles(const std::string& path) {
    std::unique_ptr<CPtr> film;
    {
        py::gil_scoped_release nogil;
        ErrorCapture errors;
        film = OpenFilmForReading(path);
        if (!film || film->GetPixelBytes() != 8 || film->GetFrameNumber() == 0 || !film->ReadFrame(0))
            errors.Os(FileText(path, "cannot be read back"));
    }
    auto out = NewArray<double>({film->GetLine(), film->GetPoint()});
    const double* data = static_cast<CPtrFloat&>(*film).GetDoubleBuffer();
    std::copy(data, data + out.size(), out.mutable_data());
    return out;
}

// The tool's lockin: the four result files of PREFIX, whole or absent, and the images read back.
py::tuple LockinFiles(const std::string& path, double frequency, double rate, unsigned short filter,
                      const std::string& prefix) {
    const LockinOutputs names = LockinOutputs::OfPrefix(prefix);
    {
        py::gil_scoped_release nogil;
        ErrorCapture quiet;
        WriteAllWhole({names.moduleFilm, names.phaseFilm, names.modulePng, names.phasePng},
                      [&](const std::vector<std::string>& t) {
                          LockinResult result;
                          std::string error;
                          bool usage = false;
                          if (!DemodulateFilm(path, frequency, rate, filter, LockinOutputs{t[0], t[1], t[2], t[3]},
                                              names, result, error, usage)) {
                              if (usage) throw ValueError(error);
                              RaiseLine(error);
                          }
                          return 1;
                      });
    }
    return py::make_tuple(ReadDoubles(names.moduleFilm), ReadDoubles(names.phaseFilm));
}

py::tuple Lockin(const py::object& source, double frequency, const py::object& frameRate, const py::object& filterName,
                 const py::object& output) {
    if (!(frequency > 0.0) || !std::isfinite(frequency)) throw ValueError("frequency: hertz above 0 expected");
    const unsigned short filter = FilterOf(filterName);
    double rate = 0.0;
    if (!frameRate.is_none()) {
        rate = frameRate.cast<double>();
        if (!(rate > 0.0) || !std::isfinite(rate)) throw ValueError("frame_rate: frames per second above 0 expected");
    }
    DATA_LOCKIN parameters{};
    const std::string path = SourcePath(source);
    if (!output.is_none()) {
        if (path.empty()) throw ValueError("output: results are written for films (a Film or a path), not for arrays");
        return LockinFiles(path, frequency, rate, filter, output.cast<PathArg>().value);
    }
    if (!path.empty()) {
        std::unique_ptr<CLockin> lockin;
        unsigned short point = 0, line = 0;
        {
            py::gil_scoped_release nogil;
            ErrorCapture errors;
            ErrorKind kind = ErrorKind::None;
            auto film = OpenFilmForReading(path, &kind);
            if (!film) errors.File(path, "", kind);
            if (film->GetPixelBytes() != 2) errors.Value(FileText(path, "a film of doubles; lock-in needs a film of levels"));
            if (rate == 0.0) rate = film->GetFrameRate();
            if (!(rate > 0.0)) errors.Value(FileText(path, "the film gives no frame rate; pass frame_rate"));
            if (film->GetFrameNumber() == 0) errors.Value(FileText(path, "the film holds no frame"));
            point = film->GetPoint();
            line = film->GetLine();
            lockin = std::make_unique<CLockin>(point, line, film->GetBit(), 0);
            lockin->SetParameters(&parameters);
            for (unsigned long k = 0; k < film->GetFrameNumber(); ++k) {
                if (!film->ReadFrame(k))
                    errors.Os(FileText(path, "frame " + std::to_string(k) + " cannot be read"));
                lockin->Accumulate(film->GetFrame(), CLockin::ReferenceAngle(frequency, k, rate), nullptr);
            }
        }
        return Results(*lockin, filter, point, line);
    }
    const auto frames = Levels(source, "film", {3});
    if (rate == 0.0) throw ValueError("frame_rate: needed for frames given as an array");
    if (frames.shape(0) == 0) throw ValueError("argument 'film': no frame");
    if (frames.shape(1) > 65535 || frames.shape(2) > 65535 || frames.shape(1) * frames.shape(2) > 0x7fffffff)
        throw ValueError("argument 'film': frames of at most 65535 x 65535 pixels expected");
    const auto line = static_cast<unsigned short>(frames.shape(1)), point = static_cast<unsigned short>(frames.shape(2));
    CLockin lockin(point, line, 16, 0);
    lockin.SetParameters(&parameters);
    const unsigned short* data = frames.data();
    const size_t size = static_cast<size_t>(point) * line;
    {
        py::gil_scoped_release nogil;
        for (py::ssize_t k = 0; k < frames.shape(0); ++k)
            lockin.Accumulate(const_cast<unsigned short*>(data + static_cast<size_t>(k) * size), static_cast<int32_t>(size),
                              CLockin::ReferenceAngle(frequency, static_cast<unsigned long>(k), rate), nullptr);
    }
    return Results(lockin, filter, point, line);
}

// ---------------------------------------------------------------- simulation

void Simulate(const PathArg& pathArg, const PathArg& truthArg, const std::string& sceneName, long width, long height,
              long frames, int bits, double rate, uint64_t seed, bool defects, double temperature, double left,
              double right, double spot, double move, int period, double amplitude) {
    const std::string &path = pathArg.value, &truth = truthArg.value;
    if (width < 2 || height < 2 || width > 4096 || height > 4096)
        throw ValueError("size " + std::to_string(width) + " x " + std::to_string(height) + ": each from 2 to 4096 expected");
    if (bits < 8 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 8 to 16 expected");
    if (frames < 1 || frames > 1000000) throw ValueError("frames " + std::to_string(frames) + ": from 1 to 1000000 expected");
    if (!(rate >= 0.01 && rate <= 100000.0)) throw ValueError("frame_rate: from 0.01 to 100000 expected");
    if (period < 2 || period > 100000) throw ValueError("period " + std::to_string(period) + ": from 2 to 100000 expected");
    for (double v : {temperature, left, right, spot, move, amplitude})
        if (!std::isfinite(v)) throw ValueError("scene parameters: finite numbers expected");
    CSimDetector::Config cfg;
    cfg.point = static_cast<unsigned short>(width);
    cfg.line = static_cast<unsigned short>(height);
    cfg.bit = static_cast<unsigned short>(bits);
    cfg.seed = seed;
    cfg.frameRate = rate;
    if (defects) cfg.deadCount = cfg.hotCount = cfg.noisyCount = CSimDetector::DefaultDefectCount(cfg.point, cfg.line);
    CSimScene scene = CSimScene::Uniform(temperature);
    if (sceneName == "plate") {
        CSimScene::PlateParams p;
        p.leftCelsius = left;
        p.rightCelsius = right;
        p.spotRise = spot;
        p.moveX = move;
        scene = CSimScene::Plate(p);
    } else if (sceneName == "lockin") {
        CSimScene::LockinParams p;
        p.baseCelsius = temperature;
        p.framesPerPeriod = period;
        p.amplitude = amplitude;
        scene = CSimScene::Lockin(p);
    } else if (sceneName != "uniform") {
        throw ValueError("scene " + sceneName + ": \"uniform\", \"plate\" or \"lockin\" expected");
    }
    py::gil_scoped_release nogil;
    CSimDetector detector(cfg);
    WriteWhole(path, [&](const std::string& film) {
        if (truth.empty()) return CSimFilm::Record(film, detector, scene, static_cast<unsigned long>(frames));
        int ok = 0;
        WriteWhole(truth, [&](const std::string& temperatures) {
            ok = CSimFilm::Record(film, detector, scene, static_cast<unsigned long>(frames), temperatures);
            return ok;
        });
        return ok;
    });
}

}  // namespace

void RegisterAnalysis(py::module_& m) {
    py::object type = py::module_::import("collections").attr("namedtuple")("Statistics", "min max mean std count");
    type.attr("__module__") = "thermokit";
    m.attr("Statistics") = type;
    m.def("statistics", &Statistics, py::arg("frame"), py::arg("roi") = py::none(),
        "Minimum, maximum, mean and population standard deviation of a frame's values, over the whole frame or the "
        "rectangle roi = (x, y, w, h), and how many values counted (NaN values of float frames are left out).");
    m.def("lockin", &Lockin, py::arg("film"), py::arg("frequency"), py::arg("frame_rate") = py::none(),
          py::arg("filter") = py::none(), py::arg("output") = py::none(),
          "Lock-in demodulation of a film of levels (a Film, a path, or frames as a uint16 array) at frequency (Hz): "
          "(module, phase) as float64 images, phase in degrees. frame_rate: default the film's own. output=PREFIX "
          "also writes the tool's four results: PREFIX_module.film, PREFIX_phase.film and their .png pictures.");
    m.def("_simulate", &Simulate, py::arg("path"), py::arg("truth"), py::arg("scene"), py::arg("width"), py::arg("height"),
          py::arg("frames"), py::arg("bits"), py::arg("frame_rate"), py::arg("seed"), py::arg("defects"),
          py::arg("temperature"), py::arg("left"), py::arg("right"), py::arg("spot"), py::arg("move"), py::arg("period"),
          py::arg("amplitude"));
}

}  // namespace thermokit::python
