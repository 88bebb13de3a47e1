#pragma once
// What the binding files share: how library failures become Python
// exceptions, how arrays come in and go out, and how objects are guarded
// while the GIL is released.
//
// Bindings only translate: arguments are checked and converted, the library
// does the work, and its results come back as NumPy arrays and Python values.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "thermokit/platform/Messages.h"

namespace thermokit {
struct _SCalibrationRBF;
struct ConversionOptions;
class LastError;
enum class ErrorKind : int;
}

namespace thermokit::python {

namespace py = pybind11;

// ---------------------------------------------------------------- errors
//
// Exceptions carry the text the tool prints for the same failure, without its
// "thermokit: " prefix: "file NAME: what is wrong (reason)".

// The exceptions of the bindings, each raised as the Python exception of its
// name. Their text is decoded as file names are (os.fsdecode), so that a
// file name comes back in a message as it was given, whatever its bytes.
struct OsError : std::runtime_error {  // the file system failed: OSError
    using std::runtime_error::runtime_error;
};
struct NotFoundError : OsError {  // FileNotFoundError
    using OsError::OsError;
};
struct ValueError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct IndexError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct TypeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct MemoryError : std::runtime_error {  // what a file asks for cannot be allocated
    using std::runtime_error::runtime_error;
};

// A file name argument: str, bytes or os.PathLike, encoded as os.fsencode does.
struct PathArg {
    std::string value;
};
// A file name as Python text (os.fsdecode).
py::str PathText(const std::string& path);
// The file name of a film source given as a path or as a Film; empty for anything else.
std::string SourcePath(const py::handle& source);

// The one place where what the library reported becomes an exception's text.
//
// While an ErrorCapture lives, the messages the library shows on this thread
// (through Messages, whose sink is process-wide) are kept instead of printed.
// A failure's text is the last message the library showed in the tool's own
// form ("file NAME: ...", caption "thermokit"); when it showed none, the text
// the binding gives, in the same form. Messages of a call that succeeds go on
// to the sink that was installed before the module (standard error by
// default); those of a call that fails (an exception leaves while the capture
// lives) go with it. When the library keeps a last error text on each
// object, that is read here instead.
class ErrorCapture {
public:
    ErrorCapture();
    ~ErrorCapture();
    ErrorCapture(const ErrorCapture&) = delete;
    ErrorCapture& operator=(const ErrorCapture&) = delete;

    std::string Text(const std::string& fallback) const;
    [[noreturn]] void Os(const std::string& fallback);
    [[noreturn]] void Value(const std::string& fallback);
    // A file that could not be used: FileNotFoundError or OSError when the
    // file system is the reason (missing, unreadable, empty is not one of
    // them), MemoryError when the library recorded that what the file asks
    // for cannot be allocated (kind, or the LastError of the object that
    // read it), else ValueError, each with the library's text or the
    // fallback.
    [[noreturn]] void File(const std::string& path, const std::string& fallback);
    [[noreturn]] void File(const std::string& path, const std::string& fallback, ErrorKind kind);
    [[noreturn]] void File(const std::string& path, const std::string& fallback, const LastError& source);

private:
    std::vector<Message> m_messages;
    std::vector<Message>* m_outer;
    bool m_raised = false;
    int m_unwinding;  // exceptions in flight when made: one more at the end is a failure leaving
};

// Installs the routing sink (once, at import).
void InstallMessageRouting();

// "file PATH: what"
inline std::string FileText(const std::string& path, const std::string& what) { return "file " + path + ": " + what; }

// ---------------------------------------------------------------- arrays

// A C-contiguous array of T, converted on the way in when needed.
template <class T>
using CArray = py::array_t<T, py::array::c_style | py::array::forcecast>;

// The name of a dtype, as NumPy prints it.
std::string DtypeName(const py::dtype& dtype);
// "(3, 4)"
std::string ShapeText(const std::vector<py::ssize_t>& shape);
std::vector<py::ssize_t> ShapeOf(const py::array& a);

// obj as an array, or TypeError naming the argument.
py::array AnyArray(const py::handle& obj, const char* name);

// Levels: an array of unsigned 16-bit integers (any byte order and strides;
// copied once when not C-contiguous and native), else TypeError. The
// dimensions are checked against ndims (a list of allowed counts).
CArray<uint16_t> Levels(const py::handle& obj, const char* name,
                          std::initializer_list<int> ndims);
// Values: floating-point or integer arrays converted to T (float or double),
// copied once when needed; booleans, complex numbers and objects are refused.
template <class T>
CArray<T> Values(const py::handle& obj, const char* name, std::initializer_list<int> ndims);

// ValueError unless a's last two dimensions are (line, point).
void CheckFrameShape(const py::array& a, const char* name, unsigned line, unsigned point);

// The caller's output array: exactly dtype T, C-contiguous, writeable and of
// the shape given, else TypeError (type, layout) or ValueError (shape).
template <class T>
CArray<T> OutArray(const py::handle& obj, const char* name, const std::vector<py::ssize_t>& shape);

// A new C-contiguous array of that shape.
template <class T>
CArray<T> NewArray(const std::vector<py::ssize_t>& shape) {
    return CArray<T>(shape);
}

// A 2-D array over memory that owner keeps alive.
template <class T>
py::array_t<T> View(T* data, py::ssize_t line, py::ssize_t point, py::handle owner) {
    return py::array_t<T>({line, point}, {point * static_cast<py::ssize_t>(sizeof(T)), static_cast<py::ssize_t>(sizeof(T))},
                          data, owner);
}

// ---------------------------------------------------------------- files

// Writes a file whole or not at all: write(temp) makes it under a temporary
// name in the same folder, which is renamed to path only when write returned
// non-zero; otherwise, or when the rename fails, the temporary file is
// removed and OSError "file PATH: cannot be created/written (reason)" raised.
void WriteWhole(const std::string& path, const std::function<int(const std::string& temp)>& write);

// The same for several files written together: all are renamed into place
// once write returned non-zero, or none is (the temporary files removed).
void WriteAllWhole(const std::vector<std::string>& paths,
                   const std::function<int(const std::vector<std::string>& temps)>& write);

// A failure the library told as one line ("file NAME: what is wrong"):
// FileNotFoundError or OSError when the file system is the reason (a file
// not found, one that cannot be opened, read, created or written), else
// ValueError.
[[noreturn]] void RaiseLine(const std::string& text);

// The conversion options (calib, embedded, emissivity, reflected,
// atmosphere, transmission, distance, kelvin: the tool's options) among
// keyword arguments; TypeError for any other keyword. Checked: ValueError
// with the tool's text for a value out of range.
ConversionOptions ConversionArgs(const py::kwargs& kwargs);

// "degC" or "K"; ValueError otherwise. True for kelvin.
bool KelvinUnit(const std::string& unit);

// ---------------------------------------------------------------- registration

// A Calibration object of the law the film at path carries, with the
// emissivity and ambient temperature (kelvin) of that film's header.
py::object CalibrationFromLaw(const _SCalibrationRBF& law, const std::string& path, float emissivity, float ambient);

void RegisterFilm(py::module_& m);
void RegisterNuc(py::module_& m);
void RegisterCalibration(py::module_& m);
void RegisterDisplay(py::module_& m);
void RegisterAnalysis(py::module_& m);
void RegisterProcessing(py::module_& m);
void RegisterAcquisition(py::module_& m);
void RegisterThreads(py::module_& m);

}  // namespace thermokit::python

namespace pybind11::detail {
template <>
struct type_caster<thermokit::python::PathArg> {
    PYBIND11_TYPE_CASTER(thermokit::python::PathArg, const_name("os.PathLike"));
    bool load(handle src, bool) {
        if (!PyUnicode_Check(src.ptr()) && !PyBytes_Check(src.ptr()) && !PyObject_HasAttrString(src.ptr(), "__fspath__"))
            return false;
        object fs = reinterpret_steal<object>(PyOS_FSPath(src.ptr()));
        if (!fs) throw error_already_set();
        object bytes = PyBytes_Check(fs.ptr()) ? fs : reinterpret_steal<object>(PyUnicode_EncodeFSDefault(fs.ptr()));
        if (!bytes) throw error_already_set();
        value.value.assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<size_t>(PyBytes_GET_SIZE(bytes.ptr())));
        return true;
    }
    static handle cast(const thermokit::python::PathArg& p, return_value_policy, handle) {
        return thermokit::python::PathText(p.value).release();
    }
};
}  // namespace pybind11::detail
