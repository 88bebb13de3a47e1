// Calibration: a calibration curve (plain, extended or compensated) or a
// film's radiometric law, converting levels to temperatures and back.
#include <cmath>
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

namespace thermokit::python {

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// What the calibration's values are: degrees Celsius, kelvin, or something
// else (radiance, a unit the curve names).
enum class ValueUnit { kCelsius, kKelvin, kOther };

ValueUnit UnitOfCurve(const std::string& unit) {
    if (unit == "C" || unit == "degC" || unit == "deg C" || unit == "\xb0" "C" || unit == "Celsius") return ValueUnit::kCelsius;
    if (unit == "K" || unit == "Kelvin") return ValueUnit::kKelvin;
    return ValueUnit::kOther;
}

struct Calibration {
    std::mutex mutex;
    std::unique_ptr<CCalibration> cal;
    std::string kind;  // "curve", "extended", "compensated" or "law"
    std::string path;
    // One level table per depth, made when first needed and dropped when the
    // curve changes (camera temperature, compensation record).
    std::map<unsigned short, std::shared_ptr<const CLevelTable>> tables;

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
        errors.File(path, FileText(path, "not a readable calibration file (tag \"EXP\" expected, or the file is damaged)"));
    return c;
}

py::object ToTemperature(Calibration& c, const py::object& levels, const py::object& unit, int bits,
                         const py::object& into) {
    if (bits < 1 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 1 to 16 expected");
    const double shift = UnitShift(c, unit);
    const auto in = Levels(levels, "levels", {0, 1, 2, 3, 4});
    c.CheckUsable();
    auto out = into.is_none() ? NewArray<float>(ShapeOf(in)) : OutArray<float>(into, "out", ShapeOf(in));
    const unsigned short* src = in.data();
    float* dst = out.mutable_data();
    const long n = static_cast<long>(in.size());
    {
        py::gil_scoped_release nogil;
        std::shared_ptr<const CLevelTable> table;
        {
            std::lock_guard<std::mutex> lock(c.mutex);
            table = c.Table(GetMaxLevel(static_cast<unsigned short>(bits)));
        }
        table->Apply(src, n, dst);
        if (shift != 0.0)
            for (long i = 0; i < n; ++i) dst[i] = static_cast<float>(static_cast<double>(dst[i]) + shift);
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

py::object CalibrationFromLaw(const _SCalibrationRBF& law, const std::string& film) {
    auto c = std::make_shared<Calibration>();
    c->kind = "law";
    c->path = film;
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
                c.tables.clear();
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
                c.tables.clear();
                return usable != 0;
            },
            py::arg("film"), "takes the compensation record of a film's header (a Film or a path); True when it is usable")
        .def("to_temperature", &ToTemperature, py::arg("levels"), py::arg("unit") = "degC", py::arg("bits") = 16,
             py::arg("out") = py::none(),
             "temperatures (float32, NaN where a level cannot be converted) of levels masked to bits; unit \"degC\", "
             "\"K\", or None for the calibration's values as they are; into out (float32, the shape of levels) when given")
        .def("to_level", &ToLevel, py::arg("temperatures"), py::arg("unit") = "degC",
             "levels (float32, NaN where a value cannot be converted) of temperatures in unit")
        .def("__repr__", [](Calibration& c) {
            return "<thermokit.Calibration " + c.kind + " '" + PathText(c.path).cast<std::string>() + "', " + std::to_string(c.cal->GetSize()) +
                   " points>";
        });
}

}  // namespace thermokit::python
