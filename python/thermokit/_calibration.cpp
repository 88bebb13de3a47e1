// Calibration: a calibration curve (plain, extended or compensated) or a
// film's radiometric law, converting levels to temperatures and back.
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <mutex>

#include "_bindings.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationComp.h"
#include "thermokit/calibration/CCalibrationEx.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CLevelTable.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/platform/Levels.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit::python {

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// What the calibration's values are: degrees Celsius, kelvin, or something
// else (radiance, a unit the curve names).
enum class ValueUnit { kCelsius, kKelvin, kOther };

// By the tool's rule: no unit is degrees Celsius too.
ValueUnit UnitOfCurve(const std::string& unit) {
    const int kind = CurveTemperatureUnit(unit);
    return kind == 0 ? ValueUnit::kCelsius : kind == 1 ? ValueUnit::kKelvin : ValueUnit::kOther;
}

struct Calibration {
    std::mutex mutex;
    std::unique_ptr<CCalibration> cal;
    std::string kind;  // "curve", "extended", "compensated" or "law"
    std::string path;
    // One level table per depth, made when first needed and dropped when the
    // curve changes (camera temperature, compensation record).
    std::map<unsigned short, std::shared_ptr<const CLevelTable>> tables;
    // The conversions to temperatures asked for (object parameters, unit,
    // depth), kept likewise; a few at most.
    std::map<std::string, std::shared_ptr<const Conversion>> conversions;
    // A film's law: the emissivity and ambient temperature (kelvin) of that
    // film's header, the defaults of its object parameters.
    float headerEmissivity = 0.0f, headerAmbient = 0.0f;

    // A copy of the calibration, for a conversion of its own.
    std::unique_ptr<CCalibration> Copy() const {
        if (kind == "law") return std::make_unique<CCalibrationRBF>(static_cast<const CCalibrationRBF&>(*cal));
        if (kind == "extended") return std::make_unique<CCalibrationEx>(static_cast<const CCalibrationEx&>(*cal));
        if (kind == "compensated") return std::make_unique<CCalibrationComp>(static_cast<const CCalibrationComp&>(*cal));
        return std::make_unique<CCalibration>(*cal);
    }
    void Changed() {
        tables.clear();
        conversions.clear();
    }

    ValueUnit Unit() const { return kind == "law" ? ValueUnit::kCelsius : UnitOfCurve(cal->GetUnitY()); }
    std::string UnitName() const { return kind == "law" ? std::string("degC") : cal->GetUnitY(); }

    // The table of levels 0..maxLevel (the caller holds the mutex).
    std::shared_ptr<const CLevelTable> Table(unsigned short maxLevel) {
        auto& t = tables[maxLevel];
        if (!t) t = std::make_shared<const CLevelTable>(*cal, maxLevel);
        return t;
    }
    void CheckUsable() const {
        if (kind != "law" && cal->GetSize() < 2)
            throw ValueError(FileText(path, "the calibration curve has fewer than two points"));
    }
};

// Offset that takes the calibration's values to the unit asked (0 or +-273.15);
// ValueError when the values are not temperatures and a temperature unit is asked.
double UnitShift(const Calibration& c, const py::object& unit) {
    if (unit.is_none()) return 0.0;
    const bool kelvin = KelvinUnit(unit.cast<std::string>());
    switch (c.Unit()) {
        case ValueUnit::kCelsius: return kelvin ? CCalibrationRBF::kKelvin : 0.0;
        case ValueUnit::kKelvin: return kelvin ? 0.0 : -CCalibrationRBF::kKelvin;
        default: break;
    }
    throw ValueError(FileText(c.path, "the calibration gives values in \"" + c.UnitName() +
                                               "\", not temperatures; pass unit=None for them as they are"));
}

std::shared_ptr<Calibration> Load(const PathArg& file, const std::string& kind) {
    const std::string& path = file.value;
    auto c = std::make_shared<Calibration>();
    c->path = path;
    c->kind = kind;
    py::gil_scoped_release nogil;
    ErrorCapture errors;
    int result = 1;
    if (kind == "curve") {
        c->cal = std::make_unique<CCalibration>("", 0);
        result = c->cal->Open(path.c_str()) ? 0 : 1;
    } else if (kind == "extended") {
        auto ex = std::make_unique<CCalibrationEx>(path.c_str(), &result);
        if (result != 0 && FileProblem(path).empty() && !ex->GetValidationError().empty())
            errors.Value(FileText(path, "not a usable extended calibration (" + ex->GetValidationError() + ")"));
        c->cal = std::move(ex);
    } else if (kind == "compensated") {
        c->cal = std::make_unique<CCalibrationComp>(path.c_str(), &result);
    } else {
        throw ValueError("kind " + kind + ": \"curve\", \"extended\" or \"compensated\" expected");
    }
    if (result != 0)
        errors.File(path, FileText(path, "not a readable calibration file (tag \"EXP\" expected, or the file is damaged)"),
                    c->cal->GetLastErrorKind());
    return c;
}

// The conversion to temperatures of the object parameters and unit for
// levels of maxLevel, with the header defaults of the film at filmPath (or of
// the law's own film); made once and kept. The caller holds the mutex.
std::shared_ptr<const Conversion> TemperatureConversion(Calibration& c, const ConversionOptions& o, unsigned short maxLevel,
                                                        const std::string& filmPath, float emissivity, float ambient) {
    char key[256];
    std::snprintf(key, sizeof key, "%u|%.17g|%.17g|%.17g|%.17g|%.17g|%d|%.9g|%.9g", maxLevel, o.emissivity, o.reflected,
                  o.atmosphere, o.transmission, o.distance, o.kelvin ? 1 : 0, static_cast<double>(emissivity),
                  static_cast<double>(ambient));
    auto& kept = c.conversions[key];
    if (kept) return kept;
    auto conv = std::make_shared<Conversion>();
    std::string error;
    if (!PrepareConversion(c.Copy(), c.kind == "law", o, emissivity, ambient, maxLevel, c.path, filmPath, *conv, error)) {
        c.conversions.erase(key);
        throw ValueError(error);
    }
    if (c.conversions.size() > 16) {
        c.conversions.clear();
        return c.conversions[key] = conv;
    }
    return kept = conv;
}

py::object ToTemperature(Calibration& c, const py::object& levels, const py::object& unit, int bits,
                         const py::object& into, const py::object& film, const py::kwargs& parameters) {
    if (bits < 1 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 1 to 16 expected");
    for (auto item : parameters) {
        const std::string key = py::str(item.first);
        if (key != "emissivity" && key != "reflected" && key != "atmosphere" && key != "transmission" && key != "distance")
            throw TypeError("to_temperature() got an unexpected keyword argument '" + key + "'");
    }
    ConversionOptions o;
    if (!unit.is_none()) {
        py::kwargs all;
        for (auto item : parameters) all[item.first] = item.second;
        all["kelvin"] = KelvinUnit(unit.cast<std::string>());
        all["embedded"] = true;  // the options are about temperatures; the calibration is this one
        o = ConversionArgs(all);
        if (c.kind != "law" && CurveTemperatureUnit(c.cal->GetUnitY()) < 0)
            throw ValueError(FileText(c.path, "the calibration gives values in \"" + c.UnitName() +
                                                   "\", not temperatures; pass unit=None for them as they are"));
    } else {
        for (auto item : parameters)
            if (!item.second.is_none())
                throw ValueError("the object parameters apply to temperatures: unit=\"degC\" or \"K\" expected");
    }
    // The header defaults: those of the film given, else those of the law's own film.
    float emissivity = c.headerEmissivity, ambient = c.headerAmbient;
    std::string filmPath = c.kind == "law" ? c.path : std::string();
    if (!film.is_none()) {
        filmPath = SourcePath(film);
        if (filmPath.empty()) throw TypeError("film: a Film or a path expected");
        ErrorCapture errors;
        CPtrOver header(filmPath);
        if (!header.IsValid())
            errors.File(filmPath, FileText(filmPath, "not a film, or its header is damaged or does not fit the file"));
        emissivity = header.GetEmissivity();
        ambient = header.GetAmbiantTemperature();
    }
    const auto in = Levels(levels, "levels", {0, 1, 2, 3, 4});
    c.CheckUsable();
    auto out = into.is_none() ? NewArray<float>(ShapeOf(in)) : OutArray<float>(into, "out", ShapeOf(in));
    const unsigned short* src = in.data();
    float* dst = out.mutable_data();
    const long n = static_cast<long>(in.size());
    const unsigned short maxLevel = GetMaxLevel(static_cast<unsigned short>(bits));
    if (unit.is_none()) {
        py::gil_scoped_release nogil;
        std::shared_ptr<const CLevelTable> table;
        {
            std::lock_guard<std::mutex> lock(c.mutex);
            table = c.Table(maxLevel);
        }
        table->Apply(src, n, dst);
    } else {
        std::shared_ptr<const Conversion> conv;
        {
            // The conversion is made with the GIL held: its errors become exceptions here.
            std::lock_guard<std::mutex> lock(c.mutex);
            conv = TemperatureConversion(c, o, maxLevel, filmPath, emissivity, ambient);
        }
        py::gil_scoped_release nogil;
        conv->Apply(src, n, dst);
    }
    if (in.ndim() == 0) return out[py::tuple()];
    return out;
}

py::object ToLevel(Calibration& c, const py::object& temperatures, const py::object& unit) {
    const double shift = UnitShift(c, unit);
    const auto in = Values<double>(temperatures, "temperatures", {0, 1, 2, 3, 4});
    c.CheckUsable();
    auto out = NewArray<float>(ShapeOf(in));
    const double* src = in.data();
    float* dst = out.mutable_data();
    const long n = static_cast<long>(in.size());
    {
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(c.mutex);
        for (long i = 0; i < n; ++i) {
            float level = 0.0f;
            const double v = src[i] - shift;
            dst[i] = std::isfinite(v) && c.cal->FindAbscisse(static_cast<float>(v), &level, 1) ? level : kNaN;
        }
    }
    if (in.ndim() == 0) return out[py::tuple()];
    return out;
}

}  // namespace

py::object CalibrationFromLaw(const _SCalibrationRBF& law, const std::string& film, float emissivity, float ambient) {
    auto c = std::make_shared<Calibration>();
    c->kind = "law";
    c->path = film;
    c->headerEmissivity = emissivity;
    c->headerAmbient = ambient;
    c->cal = std::make_unique<CCalibrationRBF>(law);
    return py::cast(c);
}

void RegisterCalibration(py::module_& m) {
    py::class_<Calibration, std::shared_ptr<Calibration>>(
        m, "Calibration",
        "Levels to temperatures and back: a calibration file (Calibration.load) or the radiometric law a film "
        "carries (Film.law).")
        .def_static("load", &Load, py::arg("path"), py::arg("kind") = "curve",
                    "Opens a calibration file: kind \"curve\" (the plain curve), \"extended\" (checked, driven by "
                    "the camera temperature) or \"compensated\" (corrected for the camera's own temperature).")
        .def_property_readonly("kind", [](Calibration& c) { return c.kind; })
        .def_property_readonly("path", [](Calibration& c) { return PathText(c.path); })
        .def_property_readonly("unit", [](Calibration& c) { return c.UnitName(); },
                               "the unit of the calibration's values: degC for a law, the curve's Y unit otherwise")
        .def_property_readonly(
            "points",
            [](Calibration& c) {
                std::lock_guard<std::mutex> lock(c.mutex);
                const py::ssize_t n = c.cal->GetSize();
                auto out = NewArray<float>({n, 2});
                const float* x = c.cal->GetCurveX();
                const float* y = c.cal->GetCurveY();
                for (py::ssize_t i = 0; i < n; ++i) {
                    out.mutable_data()[2 * i] = x ? x[i] : kNaN;
                    out.mutable_data()[2 * i + 1] = y ? y[i] : kNaN;
                }
                return out;
            },
            "the curve's points, one (level, value) row each")
        .def_property(
            "camera_temperature",
            [](Calibration& c) {
                std::lock_guard<std::mutex> lock(c.mutex);
                return static_cast<double>(c.cal->GetCameraTemperature());
            },
            [](Calibration& c, double kelvin) {
                if (!std::isfinite(kelvin)) throw ValueError("camera_temperature: kelvin expected");
                std::lock_guard<std::mutex> lock(c.mutex);
                c.cal->SetCameraTemperature(static_cast<float>(kelvin), 0);
                c.Changed();
            },
            "the camera temperature in kelvin; setting it regenerates an extended curve")
        .def(
            "set_compensation",
            [](Calibration& c, py::object film) {
                if (c.kind != "compensated") throw ValueError("set_compensation: a compensated calibration expected");
                const std::string path = SourcePath(film);
                if (path.empty()) throw TypeError("set_compensation: a Film or a path expected");
                ErrorCapture errors;
                CPtrOver over(path);
                if (!over.IsValid())
                    errors.File(path, FileText(path, "not a film, or its header is damaged or does not fit the file"));
                CCnucFile::_CNUC_CALIBRATION record{};
                over.GetCompCalibParam(&record);
                std::lock_guard<std::mutex> lock(c.mutex);
                const int usable = static_cast<CCalibrationComp&>(*c.cal).SetCalibrationFactor(&record);
                c.Changed();
                return usable != 0;
            },
            py::arg("film"), "takes the compensation record of a film's header (a Film or a path); True when it is usable")
        .def("to_temperature", &ToTemperature, py::arg("levels"), py::kw_only(), py::arg("unit") = "degC",
             py::arg("bits") = 16, py::arg("out") = py::none(), py::arg("film") = py::none(),
             "temperatures (float32, NaN where a level cannot be converted) of levels masked to bits, as the tool "
             "converts them: unit \"degC\" or \"K\" (a kelvin curve read as degrees Celsius), or None for the "
             "calibration's values as they are; into out (float32, the shape of levels) when given. The object "
             "parameters emissivity, reflected (degC), atmosphere (degC), transmission or distance (m) default to "
             "those of the film's header: the film given, or for a film's law that film; else emissivity 1, "
             "reflected 20 degC, transmission 1.")
        .def("to_level", &ToLevel, py::arg("temperatures"), py::arg("unit") = "degC",
             "levels (float32, NaN where a value cannot be converted) of temperatures in unit")
        .def("__repr__", [](Calibration& c) {
            return "<thermokit.Calibration " + c.kind + " '" + PathText(c.path).cast<std::string>() + "', " + std::to_string(c.cal->GetSize()) +
                   " points>";
        });
}

}  // namespace thermokit::python
