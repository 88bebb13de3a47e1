// Films: Film (reading, frames as arrays), Writer (appending frames, plain
// or through the direct-to-disk writer) and write (a whole array at once).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "_bindings.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtr2.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/film/HeaderFields.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit::python {

namespace {

// 8-bit text of the files as Python text (each byte one character).
py::str Latin1(const std::string& s) {
    PyObject* o = PyUnicode_DecodeLatin1(s.data(), static_cast<Py_ssize_t>(s.size()), "strict");
    if (!o) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}

// The header fields as nested dictionaries and lists.
class DictFields : public HeaderFieldVisitor {
public:
    py::dict root;

    void Signed(const char* name, int64_t value) override { Put(name, py::int_(value)); }
    void Unsigned(const char* name, uint64_t value) override { Put(name, py::int_(value)); }
    void Real(const char* name, double value) override { Put(name, py::float_(value)); }
    void Text(const char* name, const std::string& value) override { Put(name, Latin1(value)); }
    void Null(const char* name) override { Put(name, py::none()); }
    void BeginRecord(const char* name) override { Open(name, py::dict()); }
    void BeginList(const char* name) override { Open(name, py::list()); }
    void End() override { m_open.pop_back(); }

private:
    void Put(const char* name, py::object value) {
        if (m_open.empty()) root[name] = value;
        else if (py::isinstance<py::list>(m_open.back())) m_open.back().cast<py::list>().append(value);
        else m_open.back()[py::str(name)] = value;
    }
    void Open(const char* name, py::object container) {
        Put(name, container);
        m_open.push_back(container);
    }
    std::vector<py::object> m_open;
};

// Sets the fields of a header dictionary; ValueError or TypeError naming the field.
void ApplyHeader(CPtrOver& film, const py::dict& header) {
    for (auto item : header) {
        if (!py::isinstance<py::str>(item.first)) throw TypeError("header: field names must be texts");
        const std::string name = item.first.cast<std::string>();
        auto value = [&](const py::handle& v) {
            HeaderValue hv;
            if (py::isinstance<py::str>(v)) {
                PyObject* bytes = PyUnicode_AsLatin1String(v.ptr());
                if (!bytes) {
                    PyErr_Clear();
                    throw ValueError("header field " + name + ": 8-bit (Latin-1) text expected");
                }
                hv.isText = true;
                hv.text = py::reinterpret_steal<py::bytes>(bytes).cast<std::string>();
            } else if (py::isinstance<py::bool_>(v) || PyIndex_Check(v.ptr()) || PyFloat_Check(v.ptr()) ||
                       py::isinstance(v, py::module_::import("numbers").attr("Real"))) {
                hv.number = py::reinterpret_borrow<py::object>(v).cast<double>();
            } else {
                throw TypeError("header field " + name + ": a number or a text expected, got " +
                                     std::string(py::str(v.get_type().attr("__name__"))));
            }
            return hv;
        };
        std::string why;
        int count = 0;
        const bool list = py::isinstance<py::list>(item.second) || py::isinstance<py::tuple>(item.second);
        if (list && IsSettableHeaderField(name, count) && count > 0) {
            const py::sequence items = py::reinterpret_borrow<py::sequence>(item.second);
            if (static_cast<int>(items.size()) > count)
                throw ValueError("header field " + name + ": a list of at most " + std::to_string(count) + " items");
            for (size_t i = 0; i < items.size(); ++i)
                if (!SetHeaderField(film, name, static_cast<int>(i), value(items[i]), why))
                    throw ValueError("header field " + name + "[" + std::to_string(i) + "]: " + why);
        } else if (list) {
            // Refused for what the name is: unknown, not settable, or a single value.
            SetHeaderField(film, name, 0, HeaderValue{}, why);
            throw ValueError("header field " + name + ": " + why);
        } else if (!SetHeaderField(film, name, -1, value(item.second), why)) {
            throw ValueError("header field " + name + ": " + why);
        }
    }
}

// ---------------------------------------------------------------- Film

struct Film {
    std::mutex mutex;
    std::unique_ptr<CPtr> ptr;
    // The file header as it was read: reading frames moves the reader's
    // current index, which is not the file's.
    std::unique_ptr<CPtrOver> header;
    std::string path;
    bool doubles = false;
    bool temporary = false;  // a simulated film: its file goes with it
    unsigned long frames = 0;
    unsigned short point = 0, line = 0, bit = 0;
    std::vector<double> times;
    bool timesRead = false;
    // The law's Calibration, made once so that its level tables are kept
    // (touched with the GIL held only).
    py::object law;

    ~Film() { Close(); }

    void Close() {
        ptr.reset();
        if (temporary) {
            std::remove(path.c_str());
            temporary = false;
        }
    }
    // The open film; the caller holds the mutex.
    CPtr& Open() {
        if (!ptr) throw ValueError(FileText(path, "the film is closed"));
        return *ptr;
    }
    size_t PixelBytes() const { return doubles ? 8 : 2; }
    std::vector<py::ssize_t> FrameShape() const { return {line, point}; }

    // Frame n into out, its time stamp into time when given (the caller
    // holds the mutex; the GIL may be released).
    void ReadInto(unsigned long n, void* out, double* time = nullptr) {
        CPtr& p = Open();
        ErrorCapture errors;
        int ok;
        if (doubles) {
            ok = static_cast<CPtrFloat&>(p).ReadFrame(n, static_cast<double*>(out), static_cast<unsigned long>(point) * line);
            if (time) *time = p.GetFrame()->GetTime();
        } else {
            CFrame frame(static_cast<unsigned short*>(out), point, line, bit, 0, 0);
            ok = p.ReadFrame(n, &frame);
            if (time) *time = frame.GetTime();
        }
        if (!ok)
            errors.Os(FileText(path, "frame " + std::to_string(n) +
                                         " cannot be read (the file is shorter than its header says)"));
    }
};

unsigned long FrameIndex(Film& f, py::ssize_t i) {
    const py::ssize_t n = static_cast<py::ssize_t>(f.frames);
    const py::ssize_t k = i < 0 ? i + n : i;
    if (k < 0 || k >= n)
        throw IndexError(FileText(f.path, "no frame " + std::to_string(i) + " (the film holds " + std::to_string(n) + ")"));
    return static_cast<unsigned long>(k);
}

py::dtype FilmDtype(const Film& f) { return f.doubles ? py::dtype::of<double>() : py::dtype::of<uint16_t>(); }

py::array NewFrames(const Film& f, std::vector<py::ssize_t> shape) {
    return f.doubles ? py::array(NewArray<double>(shape)) : py::array(NewArray<uint16_t>(shape));
}

// Frame n as a new array, or into out.
py::array Read(Film& f, py::ssize_t i, const py::object& out) {
    const unsigned long n = [&] {
        std::lock_guard<std::mutex> lock(f.mutex);
        f.Open();
        return FrameIndex(f, i);
    }();
    py::array target;
    if (out.is_none()) target = NewFrames(f, f.FrameShape());
    else if (f.doubles) target = OutArray<double>(out, "out", f.FrameShape());
    else target = OutArray<uint16_t>(out, "out", f.FrameShape());
    void* data = target.mutable_data();
    {
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(f.mutex);
        f.ReadInto(n, data);
    }
    return target;
}

// The frames of indexes into one new array, in one pass without the GIL.
py::array ReadMany(Film& f, const std::vector<unsigned long>& indexes) {
    py::array target = NewFrames(f, {static_cast<py::ssize_t>(indexes.size()), f.line, f.point});
    char* data = static_cast<char*>(target.mutable_data());
    const size_t bytes = static_cast<size_t>(f.point) * f.line * f.PixelBytes();
    {
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(f.mutex);
        for (size_t k = 0; k < indexes.size(); ++k) f.ReadInto(indexes[k], data + k * bytes);
    }
    return target;
}

py::object GetItem(Film& f, const py::object& key) {
    if (py::isinstance<py::tuple>(key)) {
        const py::tuple t = key.cast<py::tuple>();
        if (t.size() == 0) return GetItem(f, py::slice(py::none(), py::none(), py::none()));
        py::object frames = GetItem(f, t[0]);
        py::tuple rest(t.size() - 1);
        for (size_t k = 1; k < t.size(); ++k) rest[k - 1] = t[k];
        // A single frame drops its axis; a selection keeps it in front.
        if (py::isinstance<py::slice>(t[0]) || !PyIndex_Check(t[0].ptr())) {
            py::tuple all(t.size());
            all[0] = py::slice(py::none(), py::none(), py::none());
            for (size_t k = 1; k < t.size(); ++k) all[k] = t[k];
            return frames[all];
        }
        return frames[rest];
    }
    std::vector<unsigned long> indexes;
    {
        std::lock_guard<std::mutex> lock(f.mutex);
        f.Open();
    }
    if (py::isinstance<py::slice>(key)) {
        size_t start = 0, stop = 0, step = 0, length = 0;
        if (!key.cast<py::slice>().compute(f.frames, &start, &stop, &step, &length)) throw py::error_already_set();
        for (size_t k = 0; k < length; ++k) indexes.push_back(static_cast<unsigned long>(start + k * step));
        return ReadMany(f, indexes);
    }
    if (PyIndex_Check(key.ptr()) && !py::isinstance<py::bool_>(key)) {
        const py::ssize_t i = PyNumber_AsSsize_t(key.ptr(), nullptr);  // clipped to the index range
        if (i == -1 && PyErr_Occurred()) throw py::error_already_set();
        return Read(f, i, py::none());
    }
    const py::array a = AnyArray(key, "index");
    if (a.ndim() == 1 && a.size() == 0) return ReadMany(f, indexes);
    if ((a.dtype().kind() != 'i' && a.dtype().kind() != 'u') || a.ndim() != 1)
        throw TypeError(FileText(f.path, "frames are chosen by an integer, a slice or a list of integers"));
    const auto list = CArray<int64_t>::ensure(a);
    for (py::ssize_t k = 0; k < list.size(); ++k) indexes.push_back(FrameIndex(f, list.data()[k]));
    return ReadMany(f, indexes);
}

py::dict HeaderOf(Film& f) {
    std::lock_guard<std::mutex> lock(f.mutex);
    f.Open();
    DictFields fields;
    VisitFileHeader(*f.header, fields);
    return fields.root;
}

py::dict ImageHeaderOf(Film& f, py::ssize_t i) {
    const unsigned long n = [&] {
        std::lock_guard<std::mutex> lock(f.mutex);
        f.Open();
        return FrameIndex(f, i);
    }();
    // The frame is read for its image header; both under one lock, so that
    // no other read changes the header in between.
    py::array scratch = NewFrames(f, f.FrameShape());
    std::lock_guard<std::mutex> lock(f.mutex);
    double time = 0.0;
    f.ReadInto(n, scratch.mutable_data(), &time);
    DictFields fields;
    VisitImageHeader(f.Open(), time, fields);
    return fields.root;
}

py::array TimesOf(Film& f) {
    {
        py::gil_scoped_release nogil;
        std::lock_guard<std::mutex> lock(f.mutex);
        CPtr& p = f.Open();
        if (!f.timesRead) {
            ErrorCapture errors;
            std::vector<double> t(f.frames);
            if (!ReadElapsedTimes(p, t.data()))
                errors.Os(FileText(f.path, "an image header cannot be read (the file is shorter than its header says)"));
            f.times = std::move(t);
            f.timesRead = true;
        }
    }
    py::array_t<double> out(static_cast<py::ssize_t>(f.times.size()));
    std::copy(f.times.begin(), f.times.end(), out.mutable_data());
    return out;
}

std::shared_ptr<Film> OpenFilm(const PathArg& file) {
    const std::string& path = file.value;
    std::unique_ptr<CPtr> ptr;
    {
        py::gil_scoped_release nogil;
        ErrorCapture errors;
        ErrorKind kind = ErrorKind::None;
        ptr = OpenFilmForReading(path, &kind);
        if (!ptr) errors.File(path, FileText(path, "not a film, or its header is damaged or does not fit the file"), kind);
    }
    auto f = std::make_shared<Film>();
    f->path = path;
    f->doubles = ptr->GetPixelBytes() == 8;
    f->frames = ptr->GetFrameNumber();
    f->point = ptr->GetPoint();
    f->line = ptr->GetLine();
    f->bit = ptr->GetBit();
    f->header = std::make_unique<CPtrOver>(static_cast<const CPtrOver&>(*ptr));
    f->ptr = std::move(ptr);
    return f;
}

// ---------------------------------------------------------------- Writer

struct Writer {
    std::mutex mutex;
    std::unique_ptr<CPtr> ptr;
    CPtr2* recorder = nullptr;  // the direct-to-disk writer, when ptr is one
    std::string path;
    bool doubles = false;
    unsigned short point = 0, line = 0, bit = 0, maxLevel = 0;
    double start = 0.0, period = 0.0;
    unsigned long count = 0;

    ~Writer() {
        try {
            Close();
        } catch (...) {
        }
    }
    CPtr& Open() {
        if (!ptr) throw ValueError(FileText(path, "the film is closed"));
        return *ptr;
    }
    // Ends the film; the direct-to-disk writer writes its last banks and the
    // final header. OSError when a bank could not be written.
    void Close() {
        if (!ptr) return;
        int ok = 1;
        ErrorCapture errors;
        if (recorder) ok = recorder->Close();
        ptr.reset();
        recorder = nullptr;
        if (!ok) errors.Os(FileText(path, "cannot be written (the disk failed during the recording; the film keeps "
                                          "the frames written before)"));
    }

    // Appends one frame (the caller holds the mutex; the GIL may be released).
    void Append(const void* data, double time) {
        CPtr& p = Open();
        ErrorCapture errors;
        int ok;
        if (doubles) {
            p.GetFrame()->SetTime(time);
            ok = static_cast<CPtrFloat&>(p).AddFrame(const_cast<double*>(static_cast<const double*>(data)),
                                                     static_cast<int>(point) * line);
        } else {
            // The film only reads the frame's pixels.
            CFrame frame(const_cast<unsigned short*>(static_cast<const unsigned short*>(data)), point, line, bit, 0, 0);
            frame.SetTime(time);
            ok = p.AddFrame(&frame);
        }
        if (!ok) errors.Os(FileText(path, "frame " + std::to_string(count) + " cannot be written"));
        ++count;
    }
};

std::shared_ptr<Writer> CreateWriter(const PathArg& file, long width, long height, int bits,
                                     const py::object& frameRate, const py::object& header, bool doubles, bool direct,
                                     unsigned long bankSize, int banks) {
    if (width < 1 || width > 65535 || height < 1 || height > 65535)
        throw ValueError("size " + std::to_string(width) + " x " + std::to_string(height) +
                              ": width and height from 1 to 65535 expected");
    if (static_cast<uint64_t>(width) * static_cast<uint64_t>(height) > 0x7fffffffu / 8)
        throw ValueError("size " + std::to_string(width) + " x " + std::to_string(height) + ": too many pixels for a film");
    if (bits < 1 || bits > 16) throw ValueError("bits " + std::to_string(bits) + ": from 1 to 16 expected");
    if (direct && doubles) throw ValueError("the direct-to-disk writer records films of levels, not of doubles");
    if (direct && (bankSize < 4096 || bankSize > (1ul << 30)))
        throw ValueError("bank_size " + std::to_string(bankSize) + ": from 4096 to 1073741824 bytes expected");
    if (direct && (banks < 1 || banks > 1024)) throw ValueError("banks " + std::to_string(banks) + ": from 1 to 1024 expected");
    if (!header.is_none() && !py::isinstance<py::dict>(header)) throw TypeError("header: a dictionary expected");
    const std::string& path = file.value;
    auto w = std::make_shared<Writer>();
    w->path = path;
    w->doubles = doubles;
    w->point = static_cast<unsigned short>(width);
    w->line = static_cast<unsigned short>(height);
    w->bit = static_cast<unsigned short>(bits);
    w->maxLevel = GetMaxLevel(w->bit);
    if (direct) {
        auto recorder = std::make_unique<CPtr2>(w->point, w->line, w->bit, 0, 1, 0);
        w->recorder = recorder.get();
        w->ptr = std::move(recorder);
    } else if (doubles) {
        auto film = std::make_unique<CPtrFloat>(w->point, w->line, w->bit, 0, 1, 0);
        film->SetDoubleRecord();
        w->ptr = std::move(film);
    } else {
        w->ptr = std::make_unique<CPtr>(w->point, w->line, w->bit, 0, 1, 0);
    }
    CPtr& p = *w->ptr;
    if (!frameRate.is_none()) {
        const double rate = frameRate.cast<double>();
        if (!(rate > 0.0) || !std::isfinite(rate)) throw ValueError("frame_rate: a rate above 0 expected");
        p.SetFrameRate(static_cast<float>(rate));
    }
    if (!header.is_none()) ApplyHeader(p, header.cast<py::dict>());
    w->start = p.GetTime();
    w->period = p.GetFramePeriod() > 0.0f ? p.GetFramePeriod() : 0.0;

    py::gil_scoped_release nogil;
    ErrorCapture errors;
    // Made (or emptied) here, so that an old longer file leaves nothing behind
    // and a refusal is told with its reason.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) throw OsError(FileText(path, std::string("cannot be created (") + std::strerror(errno) + ")"));
    ::close(fd);
    int ok;
    if (direct) {
        ok = w->recorder->Create(path.c_str(), bankSize, banks);
    } else {
        p.SetFileName(path);
        ok = p.WriteHeader();
    }
    if (!ok) {
        w->ptr.reset();
        w->recorder = nullptr;
        errors.Os(FileText(path, "cannot be created"));
    }
    return w;
}

// Appends frame (2-D) or frames (3-D) with their times.
void Append(Writer& w, const py::object& frames, const py::object& time) {
    {
        std::lock_guard<std::mutex> lock(w.mutex);
        w.Open();
    }
    py::array a;
    if (w.doubles) {
        a = Values<double>(frames, "frame", {2, 3});
    } else {
        a = Levels(frames, "frame", {2, 3});
    }
    CheckFrameShape(a, "frame", w.line, w.point);
    const size_t pixels = static_cast<size_t>(w.point) * w.line;
    const py::ssize_t count = a.ndim() == 3 ? a.shape(0) : 1;
    // Times given: seconds since the first frame; else each frame one period after the last one written.
    std::vector<double> times;
    if (!time.is_none()) {
        const auto t = Values<double>(time, "time", {0, 1});
        if (t.size() != count)
            throw ValueError("argument 'time': " + std::to_string(count) + " time(s) expected, got " +
                                  std::to_string(t.size()));
        for (py::ssize_t k = 0; k < count; ++k) {
            if (!std::isfinite(t.data()[k])) throw ValueError("argument 'time': finite seconds expected");
            times.push_back(t.data()[k]);
        }
    }
    const char* data = static_cast<const char*>(a.data());
    const size_t bytes = pixels * (w.doubles ? 8 : 2);
    py::gil_scoped_release nogil;
    std::lock_guard<std::mutex> lock(w.mutex);
    if (!w.doubles) {
        // A level above the film's depth would be masked away when read: refused, not lost.
        for (py::ssize_t k = 0; k < count; ++k) {
            unsigned short min = 0, max = 0;
            MinMax(reinterpret_cast<const unsigned short*>(data + static_cast<size_t>(k) * bytes), static_cast<long>(pixels),
                   &min, &max, nullptr, 0);
            if (max > w.maxLevel)
                throw ValueError("argument 'frame': level " + std::to_string(max) + " above " +
                                      std::to_string(w.maxLevel) + ", the largest of a " + std::to_string(w.bit) +
                                      "-bit film");
        }
    }
    for (py::ssize_t k = 0; k < count; ++k) {
        const double t = times.empty() ? static_cast<double>(w.count) * w.period : times[static_cast<size_t>(k)];
        w.Append(data + static_cast<size_t>(k) * bytes, w.start + t);
    }
}

void WriteFilm(const PathArg& file, const py::object& frames, int bits, const py::object& frameRate,
               const py::object& header, const py::object& times) {
    const py::array a = AnyArray(frames, "frames");
    const char kind = a.dtype().kind();
    const bool doubles = kind == 'f';
    if (!doubles && !(kind == 'u' && a.dtype().itemsize() == 2))
        throw TypeError("argument 'frames': levels (uint16) or values (float) expected, got " + DtypeName(a.dtype()));
    if (a.ndim() != 2 && a.ndim() != 3)
        throw ValueError("argument 'frames': frames of shape (count, lines, points) expected, got " +
                              ShapeText(ShapeOf(a)));
    const py::ssize_t line = a.shape(a.ndim() - 2), point = a.shape(a.ndim() - 1);
    WriteWhole(file.value, [&](const std::string& temp) {
        auto w = CreateWriter(PathArg{temp}, static_cast<long>(point), static_cast<long>(line), bits, frameRate, header, doubles,
                              false, 0, 0);
        Append(*w, a, times);
        w->Close();
        return 1;
    });
}

}  // namespace

void RegisterFilm(py::module_& m) {
    py::class_<Film, std::shared_ptr<Film>>(m, "Film",
                                            "A film file opened for reading: frames as NumPy arrays, the header as a "
                                            "dictionary. Made by thermokit.open(path).")
        .def("__len__", [](Film& f) { return f.frames; })
        .def_property_readonly("shape", [](Film& f) { return py::make_tuple(f.frames, f.line, f.point); },
                               "(frames, lines, points)")
        .def_property_readonly("dtype", &FilmDtype, "uint16 for films of levels, float64 for films of doubles")
        .def_property_readonly("bits", [](Film& f) { return f.bit; }, "bit depth of the levels")
        .def_property_readonly("path", [](Film& f) { return PathText(f.path); })
        .def_property_readonly("closed", [](Film& f) { return !f.ptr; })
        .def_property_readonly(
            "frame_rate",
            [](Film& f) {
                std::lock_guard<std::mutex> lock(f.mutex);
                return static_cast<double>(f.Open().GetFrameRate());
            },
            "frames per second from the header (0 when it gives none)")
        .def_property_readonly("header", &HeaderOf, "every field of the file header (the names of thermokit info --json)")
        .def("image_header", &ImageHeaderOf, py::arg("index"), "every field of one frame's image header")
        .def_property_readonly("times", &TimesOf, "seconds since the first frame, one per frame (float64)")
        .def_property_readonly(
            "law",
            [](Film& f) -> py::object {
                if (f.law) return f.law;
                _SCalibrationRBF law{};
                float emissivity = 0.0f, ambient = 0.0f;
                {
                    std::lock_guard<std::mutex> lock(f.mutex);
                    if (!f.header->GetRBFCalibParam(&law)) return py::none();
                    emissivity = f.header->GetEmissivity();
                    ambient = f.header->GetAmbiantTemperature();
                }
                f.law = CalibrationFromLaw(law, f.path, emissivity, ambient);
                return f.law;
            },
            "the radiometric law the film carries, as a Calibration, or None")
        .def("read", &Read, py::arg("index"), py::arg("out") = py::none(),
             "frame index as a 2-D array; into out (C-contiguous, the film's dtype and frame shape) when given")
        .def("__getitem__", &GetItem)
        .def("__iter__",
             [](py::object self) {
                 const auto n = self.cast<Film&>().frames;
                 return py::module_::import("builtins").attr("map")(self.attr("read"), py::module_::import("builtins").attr("range")(n));
             })
        .def("close",
             [](Film& f) {
                 py::gil_scoped_release nogil;
                 std::lock_guard<std::mutex> lock(f.mutex);
                 f.Close();
             })
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](Film& f, py::args) {
                 py::gil_scoped_release nogil;
                 std::lock_guard<std::mutex> lock(f.mutex);
                 f.Close();
                 return false;
             })
        .def("__repr__",
             [](Film& f) {
                 return "<thermokit.Film '" + PathText(f.path).cast<std::string>() + "' " + std::to_string(f.frames) + " x " + std::to_string(f.line) +
                        " x " + std::to_string(f.point) + (f.doubles ? " float64" : " uint16, " + std::to_string(f.bit) + " bits") +
                        (f.ptr ? "" : ", closed") + ">";
             })
        .def("_delete_on_close", [](Film& f) { f.temporary = true; });

    m.def("open", &OpenFilm, py::arg("path"), "Opens a film of levels or of doubles for reading.");

    py::class_<Writer, std::shared_ptr<Writer>>(m, "Writer",
                                                "A new film being written frame by frame. Made by thermokit.create().")
        .def("append", &Append, py::arg("frame"), py::arg("time") = py::none(),
             "Appends a frame (2-D) or frames (3-D); time: seconds since the first frame (default: from the frame rate)")
        .def("close",
             [](Writer& w) {
                 py::gil_scoped_release nogil;
                 std::lock_guard<std::mutex> lock(w.mutex);
                 w.Close();
             })
        .def("__len__", [](Writer& w) { return w.count; })
        .def_property_readonly("path", [](Writer& w) { return PathText(w.path); })
        .def_property_readonly("closed", [](Writer& w) { return !w.ptr; })
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__",
             [](Writer& w, py::args) {
                 py::gil_scoped_release nogil;
                 std::lock_guard<std::mutex> lock(w.mutex);
                 w.Close();
                 return false;
             });

    m.def("create", &CreateWriter, py::arg("path"), py::arg("width"), py::arg("height"), py::arg("bits") = 14,
          py::arg("frame_rate") = py::none(), py::arg("header") = py::none(), py::arg("doubles") = false,
          py::arg("direct") = false, py::arg("bank_size") = CStreamFile::kDefaultBankSize, py::arg("banks") = 8,
          "A new film to append frames to (levels, or doubles with doubles=True); direct=True records through the "
          "direct-to-disk writer (banks of bank_size bytes written by a thread of their own).");
    m.def("write", &WriteFilm, py::arg("path"), py::arg("frames"), py::arg("bits") = 14,
          py::arg("frame_rate") = py::none(), py::arg("header") = py::none(), py::arg("times") = py::none(),
          "Writes frames (count x lines x points; uint16 levels or float values) as a new film, whole or not at all.");
}

}  // namespace thermokit::python
