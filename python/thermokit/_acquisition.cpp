// Cameras: the sources that can be recorded (the simulated camera, GenICam
// cameras through Aravis) and recording one into a film through the bank
// writer, as thermokit cameras and thermokit record do.
#include <cmath>
#include <memory>

#include "_bindings.h"
#include "thermokit/acquisition/CRecorder.h"
#include "thermokit/acquisition/FrameSources.h"

namespace thermokit::python {

namespace {

py::list Cameras() {
    std::vector<CAMERA_INFO> cameras;
    {
        py::gil_scoped_release nogil;
        ErrorCapture quiet;
        bool genicam = false;
        cameras = ListFrameSources(genicam);
    }
    py::list out;
    for (const CAMERA_INFO& c : cameras) {
        py::dict d;
        d["id"] = c.strId;
        d["vendor"] = c.strVendor;
        d["model"] = c.strModel;
        d["serial"] = c.strSerial;
        d["firmware"] = c.strFirmware;
        d["interface"] = c.strInterface;
        d["address"] = c.strAddress;
        out.append(d);
    }
    return out;
}

py::dict StatusDict(const RECORD_STATUS& s) {
    py::dict d;
    d["frames"] = s.nFrames;
    d["bytes"] = s.nBytes;
    d["seconds"] = s.dSeconds;
    d["lost"] = s.source.Lost();
    d["incomplete"] = s.source.nIncomplete;
    d["missing"] = s.source.nMissing;
    d["underruns"] = s.source.nUnderruns;
    d["bank_waits"] = s.nBankWaits;
    d["longest_write_s"] = s.dLongestWrite;
    d["direct"] = s.bDirect;
    d["stopped"] = s.bStopped;
    return d;
}

py::dict Record(const PathArg& output, const std::string& camera, const py::object& count, const py::object& duration,
                const py::object& rate, const py::object& exposure, const py::object& roi, const py::object& bits,
                const py::object& size, int banks, unsigned long bankSize, const py::object& progress) {
    const unsigned long frames = count.is_none() ? 0 : count.cast<unsigned long>();
    const double seconds = duration.is_none() ? 0.0 : duration.cast<double>();
    if (!count.is_none() && frames == 0) throw ValueError("count: 1 or more frames expected");
    if (!duration.is_none() && !(seconds > 0.0 && std::isfinite(seconds)))
        throw ValueError("duration: seconds above 0 expected");
    if (frames == 0 && seconds <= 0.0) throw ValueError("give the length of the recording: count=N or duration=S");
    if (banks < 1 || banks > 1024) throw ValueError("banks " + std::to_string(banks) + ": from 1 to 1024 expected");
    if (bankSize < 1 || bankSize > 0xFFFFFFFFul) throw ValueError("bank_size: from 1 to 4294967295 bytes expected");
    SOURCE_SETTINGS settings;
    settings.dRate = rate.is_none() ? -1.0 : rate.cast<double>();
    if (!rate.is_none() && !(settings.dRate >= 0.0 && settings.dRate <= 1e6))
        throw ValueError("rate: frames per second from 0 to 1000000 expected");
    settings.dExposure = exposure.is_none() ? 0.0 : exposure.cast<double>();
    if (!exposure.is_none() && !(settings.dExposure > 0.0 && std::isfinite(settings.dExposure)))
        throw ValueError("exposure: microseconds above 0 expected");
    settings.nBits = bits.is_none() ? 0 : bits.cast<int>();
    if (!bits.is_none() && (settings.nBits < 1 || settings.nBits > 16))
        throw ValueError("bits " + std::to_string(settings.nBits) + ": from 1 to 16 expected");
    if (!roi.is_none()) {
        std::vector<long> r;
        try {
            r = roi.cast<std::vector<long>>();
        } catch (const py::cast_error&) {
            throw TypeError("roi: (x, y, w, h), four integers, expected");
        }
        if (r.size() != 4 || r[0] < 0 || r[1] < 0 || r[0] > 65535 || r[1] > 65535 || r[2] < 1 || r[2] > 65535 ||
            r[3] < 1 || r[3] > 65535)
            throw ValueError("roi: (x, y, w, h) expected, offsets 0 to 65535, sides 1 to 65535");
        settings.roi = CRect(static_cast<int32_t>(r[0]), static_cast<int32_t>(r[1]), static_cast<int32_t>(r[0] + r[2]),
                             static_cast<int32_t>(r[1] + r[3]));
    }
    unsigned short point = 640, line = 512;
    if (!size.is_none()) {
        if (camera != "sim") throw ValueError("size is for the simulated camera; a camera's frame is chosen with roi");
        const auto wh = size.cast<std::pair<long, long>>();
        if (wh.first < 1 || wh.first > 65535 || wh.second < 1 || wh.second > 65535)
            throw ValueError("size: (width, height), each 1 to 65535, expected");
        point = static_cast<unsigned short>(wh.first);
        line = static_cast<unsigned short>(wh.second);
    }

    std::unique_ptr<CFrameSource> source;
    {
        py::gil_scoped_release nogil;
        ErrorCapture quiet;
        std::string error;
        bool usage = false;
        source = OpenFrameSource(camera, settings, point, line, error, usage);
        if (!source) {
            if (usage) throw ValueError(error);
            RaiseLine(error);
        }
    }
    CRecorder recorder;
    recorder.SetCount(frames);
    recorder.SetDuration(seconds);
    recorder.SetBanks(banks, bankSize);
    recorder.SetFileTools("thermokit (Python)");
    // Every quarter of a second the recording thread looks for Ctrl-C (and
    // other signals Python handles) and calls progress; a signal or an
    // exception in progress ends the recording cleanly, and is raised once
    // the film is complete.
    bool pending = false;
    py::object pendingType, pendingValue, pendingTrace;
    recorder.SetProgress([&](const RECORD_STATUS& s) {
        py::gil_scoped_acquire gil;
        if (pending) return;
        try {
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
            if (!progress.is_none()) progress(StatusDict(s));
        } catch (py::error_already_set& e) {
            pending = true;
            pendingType = e.type();
            pendingValue = e.value();
            pendingTrace = e.trace();
            recorder.RequestStop();
        }
    });
    int ok = 0, error = 0;
    std::string message;
    RECORD_STATUS status;
    {
        py::gil_scoped_release nogil;
        ErrorCapture quiet;
        try {
            WriteWhole(output.value, [&](const std::string& temp) {
                ok = recorder.Record(*source, temp.c_str());
                error = recorder.GetLastError();
                // A camera lost on the way leaves a valid film of every frame that came.
                return ok || error == CRecorder::RECORD_SOURCE_FAILED ? 1 : 0;
            });
        } catch (const OsError&) {
            status = recorder.GetStatus();
            if (error == CRecorder::RECORD_DISK_FAILED)
                throw OsError(FileText(output.value, "the disk failed after " + std::to_string(status.nFrames) +
                                                         " frames; no film was written"));
            if (error == CRecorder::RECORD_CREATE_FAILED)
                throw OsError(FileText(output.value, "cannot be created for recording with " + std::to_string(banks) +
                                                         " banks of " + std::to_string(bankSize) + " bytes"));
            RaiseLine(recorder.GetLastErrorMessage());
        }
        status = recorder.GetStatus();
        message = recorder.GetLastErrorMessage();
    }
    if (pending) {
        PyErr_Restore(pendingType.release().ptr(), pendingValue.release().ptr(), pendingTrace.release().ptr());
        throw py::error_already_set();
    }
    if (!ok)
        throw OsError(message + "; " + PathText(output.value).cast<std::string>() + " keeps the " +
                      std::to_string(status.nFrames) + " frames received");
    py::dict d = StatusDict(status);
    d["width"] = source->GetPoint();
    d["height"] = source->GetLine();
    d["bits"] = source->GetBit();
    d["rate"] = source->GetFrameRate();
    d["camera"] = source->GetInfo().strId;
    return d;
}

}  // namespace

void RegisterAcquisition(py::module_& m) {
    m.def("cameras", &Cameras,
          "The cameras that can be recorded now, as thermokit cameras lists them: the simulated one (\"sim\") and every "
          "GenICam camera Aravis finds, each a dict of id, vendor, model, serial, firmware, interface and address.");
    m.def("record", &Record, py::arg("output"), py::kw_only(), py::arg("camera") = "sim", py::arg("count") = py::none(),
          py::arg("duration") = py::none(), py::arg("rate") = py::none(), py::arg("exposure") = py::none(),
          py::arg("roi") = py::none(), py::arg("bits") = py::none(), py::arg("size") = py::none(), py::arg("banks") = 8,
          py::arg("bank_size") = CStreamFile::kDefaultBankSize, py::arg("progress") = py::none(),
          "Records a camera (its id, serial number or address; \"sim\" the simulated camera) into a film through "
          "the bank writer, as thermokit record: count frames or duration seconds, rate (Hz), exposure (us), roi "
          "(x, y, w, h), bits (12, 14, 16; simulated 1 to 16), size (width, height) of the simulated sensor. "
          "progress(status) is called about every quarter of a second. Returns what was counted; Ctrl-C ends the "
          "film cleanly, then is raised.");
}

}  // namespace thermokit::python
