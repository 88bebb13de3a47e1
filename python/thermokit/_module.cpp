// The compiled part of the thermokit package: errors, arrays, files, and the
// registration of every class and function.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>

#include "_bindings.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/platform/LastError.h"
#include "thermokit/platform/Parallel.h"
#include "thermokit/platform/Version.h"
#include "thermokit/processing/FilmConversion.h"

namespace thermokit::python {

// ---------------------------------------------------------------- errors

namespace {

thread_local std::vector<Message>* t_capture = nullptr;

Messages::Sink& PreviousSink() {
    static Messages::Sink sink;
    return sink;
}

void Forward(const Message& m) {
    if (t_capture) t_capture->push_back(m);
    else if (PreviousSink()) PreviousSink()(m);
    else Messages::DefaultSink(m);
}

}  // namespace

void InstallMessageRouting() {
    static std::once_flag once;
    std::call_once(once, [] { PreviousSink() = Messages::SetSink(Forward); });
}

ErrorCapture::ErrorCapture() : m_outer(t_capture), m_unwinding(std::uncaught_exceptions()) { t_capture = &m_messages; }

ErrorCapture::~ErrorCapture() {
    t_capture = m_outer;
    if (m_raised || std::uncaught_exceptions() > m_unwinding) return;
    for (const Message& m : m_messages) Forward(m);
}

std::string ErrorCapture::Text(const std::string& fallback) const {
    for (auto it = m_messages.rbegin(); it != m_messages.rend(); ++it)
        if (it->caption == "thermokit" && it->text.rfind("file ", 0) == 0) return it->text;
    return fallback;
}

void ErrorCapture::Os(const std::string& fallback) {
    m_raised = true;
    throw OsError(Text(fallback));
}

void ErrorCapture::Value(const std::string& fallback) {
    m_raised = true;
    throw ValueError(Text(fallback));
}

py::str PathText(const std::string& path) {
    PyObject* o = PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
    if (!o) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}

std::string SourcePath(const py::handle& source) {
    if (py::isinstance<py::str>(source) || py::isinstance<py::bytes>(source) || py::hasattr(source, "__fspath__"))
        return source.cast<PathArg>().value;
    if (py::hasattr(source, "read") && py::hasattr(source, "path") && py::hasattr(source, "header"))
        return source.attr("path").cast<PathArg>().value;
    return std::string();
}

void ErrorCapture::File(const std::string& path, const std::string& fallback, ErrorKind kind) {
    if (kind == ErrorKind::Memory) {
        m_raised = true;
        throw MemoryError(Text(fallback));
    }
    File(path, fallback);
}

void ErrorCapture::File(const std::string& path, const std::string& fallback, const LastError& source) {
    // The object's own text, when it kept one, is what the tool prints after the file name.
    const std::string text = source.GetLastErrorText().empty() ? fallback : FileText(path, source.GetLastErrorText());
    File(path, text, source.GetLastErrorKind());
}

void ErrorCapture::File(const std::string& path, const std::string& fallback) {
    m_raised = true;
    const std::string why = FileProblem(path);
    if (why == "not found") throw NotFoundError(Text(FileText(path, why)));
    if (why.rfind("cannot be opened", 0) == 0) throw OsError(Text(FileText(path, why)));
    if (!why.empty()) throw ValueError(Text(FileText(path, why)));
    throw ValueError(Text(fallback));
}

// ---------------------------------------------------------------- arrays

std::string DtypeName(const py::dtype& dtype) { return py::str(static_cast<const py::handle&>(dtype)).cast<std::string>(); }

std::string ShapeText(const std::vector<py::ssize_t>& shape) {
    std::string s = "(";
    for (size_t i = 0; i < shape.size(); ++i) s += (i ? ", " : "") + std::to_string(shape[i]);
    return s + (shape.size() == 1 ? ",)" : ")");
}

std::vector<py::ssize_t> ShapeOf(const py::array& a) { return std::vector<py::ssize_t>(a.shape(), a.shape() + a.ndim()); }

namespace {

std::string Argument(const char* name) { return std::string("argument '") + name + "': "; }

void CheckDims(const py::array& a, const char* name, std::initializer_list<int> ndims) {
    for (int n : ndims)
        if (a.ndim() == n) return;
    std::string allowed;
    int k = 0;
    for (int n : ndims) allowed += (k++ ? " or " : "") + std::to_string(n);
    throw ValueError(Argument(name) + "an array of " + allowed + " dimensions expected, got shape " +
                          ShapeText(ShapeOf(a)));
}

}  // namespace

py::array AnyArray(const py::handle& obj, const char* name) {
    if (py::isinstance<py::array>(obj)) return py::reinterpret_borrow<py::array>(obj);
    if (obj.is_none()) throw TypeError(Argument(name) + "an array expected, got None");
    py::array a = py::array::ensure(obj);
    if (!a) throw TypeError(Argument(name) + "an array expected, got " + std::string(py::str(obj.get_type().attr("__name__"))));
    return a;
}

CArray<uint16_t> Levels(const py::handle& obj, const char* name, std::initializer_list<int> ndims) {
    py::array a = AnyArray(obj, name);
    const py::dtype dt = a.dtype();
    // Python numbers and lists (not arrays) are taken as levels when they are integers from 0 to 65535.
    if (!py::isinstance<py::array>(obj) && (dt.kind() == 'i' || dt.kind() == 'u')) {
        const bool fits = a.size() == 0 || (py::cast<long long>(a.attr("min")()) >= 0 && py::cast<long long>(a.attr("max")()) <= 65535);
        if (!fits) throw ValueError(Argument(name) + "levels from 0 to 65535 expected");
        CheckDims(a, name, ndims);
        return CArray<uint16_t>::ensure(a);
    }
    if (dt.kind() != 'u' || dt.itemsize() != 2)
        throw TypeError(Argument(name) + "levels of type uint16 expected, got " + DtypeName(dt));
    CheckDims(a, name, ndims);
    return CArray<uint16_t>::ensure(a);
}

template <class T>
CArray<T> Values(const py::handle& obj, const char* name, std::initializer_list<int> ndims) {
    py::array a = AnyArray(obj, name);
    const py::dtype dt = a.dtype();
    if (dt.kind() != 'f' && dt.kind() != 'i' && dt.kind() != 'u')
        throw TypeError(Argument(name) + "numbers (a float or integer array) expected, got " + DtypeName(dt));
    CheckDims(a, name, ndims);
    CArray<T> out = CArray<T>::ensure(a);
    if (!out) throw TypeError(Argument(name) + "cannot be converted to " + DtypeName(py::dtype::of<T>()));
    return out;
}
template CArray<float> Values<float>(const py::handle&, const char*, std::initializer_list<int>);
template CArray<double> Values<double>(const py::handle&, const char*, std::initializer_list<int>);

void CheckFrameShape(const py::array& a, const char* name, unsigned line, unsigned point) {
    const py::ssize_t n = a.ndim();
    if (n < 2 || a.shape(n - 2) != static_cast<py::ssize_t>(line) || a.shape(n - 1) != static_cast<py::ssize_t>(point))
        throw ValueError(Argument(name) + "frames of " + std::to_string(line) + " x " + std::to_string(point) +
                              " (lines x points) expected, got shape " + ShapeText(ShapeOf(a)));
}

template <class T>
CArray<T> OutArray(const py::handle& obj, const char* name, const std::vector<py::ssize_t>& shape) {
    if (!py::isinstance<py::array>(obj))
        throw TypeError(Argument(name) + "a NumPy array expected, got " +
                             std::string(py::str(obj.get_type().attr("__name__"))));
    py::array a = py::reinterpret_borrow<py::array>(obj);
    if (!py::isinstance<py::array_t<T>>(a))
        throw TypeError(Argument(name) + DtypeName(py::dtype::of<T>()) + " expected, got " + DtypeName(a.dtype()));
    if (!(a.flags() & py::array::c_style)) throw TypeError(Argument(name) + "a C-contiguous array expected");
    if (!a.writeable()) throw TypeError(Argument(name) + "a writeable array expected");
    if (ShapeOf(a) != shape)
        throw ValueError(Argument(name) + "shape " + ShapeText(shape) + " expected, got " + ShapeText(ShapeOf(a)));
    return py::reinterpret_borrow<CArray<T>>(a);
}
template CArray<uint16_t> OutArray<uint16_t>(const py::handle&, const char*, const std::vector<py::ssize_t>&);
template CArray<float> OutArray<float>(const py::handle&, const char*, const std::vector<py::ssize_t>&);
template CArray<double> OutArray<double>(const py::handle&, const char*, const std::vector<py::ssize_t>&);

// ---------------------------------------------------------------- files

void WriteWhole(const std::string& path, const std::function<int(const std::string&)>& write) {
    static std::atomic<unsigned> counter{0};
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.empty()) throw OsError(FileText(path, "cannot be created (a file name expected)"));
    const std::string temp =
        dir + "." + base + ".part-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    // Made here first, so that a missing folder or a refused permission is told with its reason.
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) throw OsError(FileText(path, std::string("cannot be created (") + std::strerror(errno) + ")"));
    ::close(fd);
    int ok = 0;
    try {
        ok = write(temp);
    } catch (...) {
        std::remove(temp.c_str());
        throw;
    }
    if (!ok) {
        std::remove(temp.c_str());
        throw OsError(FileText(path, "cannot be written"));
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        const int err = errno;
        std::remove(temp.c_str());
        throw OsError(FileText(path, std::string("cannot be written (") + std::strerror(err) + ")"));
    }
}

void WriteAllWhole(const std::vector<std::string>& paths,
                   const std::function<int(const std::vector<std::string>&)>& write) {
    // Each file is made whole under its temporary name inside the next one's
    // write; the innermost write does the work, and the renames happen from
    // the inside out only when it succeeded.
    std::vector<std::string> temps(paths.size());
    std::function<int(size_t)> nest = [&](size_t k) -> int {
        if (k == paths.size()) return write(temps);
        int ok = 0;
        WriteWhole(paths[k], [&](const std::string& temp) {
            temps[k] = temp;
            ok = nest(k + 1);
            return ok;
        });
        return ok;
    };
    nest(0);
}

void RaiseLine(const std::string& text) {
    if (text.size() > 11 && text.compare(text.size() - 11, 11, ": not found") == 0) throw NotFoundError(text);
    for (const char* os : {": not found", "cannot be opened", "cannot be read", "cannot read", "cannot be created",
                           "cannot be written", "cannot write"})
        if (text.find(os) != std::string::npos) throw OsError(text);
    throw ValueError(text);
}

ConversionOptions ConversionArgs(const py::kwargs& kwargs) {
    ConversionOptions o;
    for (auto item : kwargs) {
        const std::string key = py::str(item.first);
        const py::handle v = item.second;
        auto number = [&](double& target) {
            if (v.is_none()) return;
            try {
                target = v.cast<double>();
            } catch (const py::cast_error&) {
                throw TypeError(key + ": a number expected");
            }
            if (std::isnan(target)) throw ValueError(key + ": a number expected, got nan");
        };
        if (key == "calib") o.calib = v.is_none() ? std::string() : v.cast<PathArg>().value;
        else if (key == "embedded") o.embedded = v.cast<bool>();
        else if (key == "kelvin") o.kelvin = v.cast<bool>();
        else if (key == "emissivity") number(o.emissivity);
        else if (key == "reflected") number(o.reflected);
        else if (key == "atmosphere") number(o.atmosphere);
        else if (key == "transmission") number(o.transmission);
        else if (key == "distance") number(o.distance);
        else throw TypeError("unexpected keyword argument '" + key + "'");
    }
    if (!o.calib.empty() && o.embedded) throw ValueError("calib and embedded: give one of them");
    std::string error;
    if (!CheckConversionOptions(o, error)) throw ValueError(error);
    return o;
}

bool KelvinUnit(const std::string& unit) {
    if (unit == "K") return true;
    if (unit == "degC") return false;
    throw ValueError("unit " + unit + ": \"degC\" or \"K\" expected");
}

// ---------------------------------------------------------------- threads
//
// Whole-film calls (stats, export, correct, render, lockin, simulate, tables
// computed from films) run the library's frame pipeline. Called from the
// main thread, it takes every core (or THERMOKIT_THREADS); called from any
// other thread, one, because a program that runs its own threads over films
// (a thread pool, a Dask worker) already keeps the cores busy and the two
// kinds of threads would only compete. set_threads(n) sets the count for
// every thread, threads(n) for the calls of one thread; results are the
// same to the byte whatever the count.

namespace {

std::atomic<int> g_everyThread{0};  // set_threads(n); 0: the defaults
thread_local int t_thisThread = 0;  // threads(n) on this thread; 0: none
unsigned long g_mainThread = 0;     // PyThread_get_thread_ident() of Python's main thread
bool g_environment = false;         // THERMOKIT_THREADS given: it holds for every thread

// Asked by the library on the thread that starts whole-film work, without
// the GIL (PyThread_get_thread_ident needs none).
int PythonThreadRule() {
    if (t_thisThread > 0) return t_thisThread;
    if (const int n = g_everyThread.load(std::memory_order_relaxed); n > 0) return n;
    if (g_environment || PyThread_get_thread_ident() == g_mainThread) return 0;
    return 1;
}

int CheckedCount(const py::object& count, const char* name) {
    if (count.is_none()) return 0;
    if (py::isinstance<py::bool_>(count) || !py::isinstance<py::int_>(count))
        throw TypeError(std::string(name) + ": a whole number or None expected");
    const long long n = count.cast<long long>();
    if (n < 1 || n > 4096) throw ValueError(std::string(name) + " " + std::to_string(n) + ": from 1 to 4096 expected");
    return static_cast<int>(n);
}

}  // namespace

void RegisterThreads(py::module_& m) {
    g_mainThread = py::module_::import("threading").attr("main_thread")().attr("ident").cast<unsigned long>();
    const char* env = std::getenv("THERMOKIT_THREADS");
    g_environment = env && *env;
    SetThreadCountRule(PythonThreadRule);
    m.def("get_threads", [] { return GetThreadCount(); },
          "The number of threads a whole-film call made from this thread uses now.");
    m.def("set_threads", [](const py::object& count) { g_everyThread.store(CheckedCount(count, "count")); },
          py::arg("count"),
          "Threads for whole-film calls from every thread; None: the defaults (every core from the main "
          "thread, or THERMOKIT_THREADS; one from other threads).");
    m.def("_set_this_thread", [](const py::object& count) {
              const int previous = t_thisThread;
              t_thisThread = CheckedCount(count, "count");
              return previous;
          },
          py::arg("count"));
    m.def("_restore_this_thread", [](int previous) { t_thisThread = previous; }, py::arg("previous"));
}

}  // namespace thermokit::python

PYBIND11_MODULE(_thermokit, m) {
    namespace tp = thermokit::python;
    namespace py = pybind11;
    m.doc() = "thermokit: thermal-infrared films, NUC tables, bad pixels, calibrations and palettes";
    tp::InstallMessageRouting();
    py::register_exception_translator([](std::exception_ptr p) {
        auto raise = [](PyObject* type, const char* text) {
            PyObject* message = PyUnicode_DecodeFSDefault(text);
            if (!message) return;
            PyErr_SetObject(type, message);
            Py_DECREF(message);
        };
        try {
            if (p) std::rethrow_exception(p);
        } catch (const tp::NotFoundError& e) {
            raise(PyExc_FileNotFoundError, e.what());
        } catch (const tp::OsError& e) {
            raise(PyExc_OSError, e.what());
        } catch (const tp::ValueError& e) {
            raise(PyExc_ValueError, e.what());
        } catch (const tp::IndexError& e) {
            raise(PyExc_IndexError, e.what());
        } catch (const tp::TypeError& e) {
            raise(PyExc_TypeError, e.what());
        } catch (const tp::MemoryError& e) {
            raise(PyExc_MemoryError, e.what());
        }
    });
    m.attr("__version__") = thermokit::GetVersion();
    tp::RegisterFilm(m);
    tp::RegisterNuc(m);
    tp::RegisterCalibration(m);
    tp::RegisterDisplay(m);
    tp::RegisterAnalysis(m);
    tp::RegisterProcessing(m);
    tp::RegisterAcquisition(m);
    tp::RegisterThreads(m);
}
