#include "thermokit/acquisition/CGenICamSource.h"

#include <arpa/inet.h>
#include <arv.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "thermokit/film/CPtrOver.h"

namespace thermokit {

namespace {

using Clock = std::chrono::steady_clock;

// GError to text, freeing it.
std::string Take(GError*& error) {
    std::string text = error && error->message ? error->message : "unknown error";
    g_clear_error(&error);
    return text;
}

std::string Text(const char* s) { return s ? s : ""; }

std::string Join(const std::vector<std::string>& items) {
    std::string all;
    for (const std::string& s : items) all += (all.empty() ? "" : ", ") + s;
    return all;
}

std::string Number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    return buf;
}

std::string Window(const CRect& r) {
    return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.Width()) + "," +
           std::to_string(r.Height());
}

bool IsIPv4(const std::string& text) {
    in_addr a{};
    return inet_pton(AF_INET, text.c_str(), &a) == 1;
}

// A string feature, or empty when the camera lacks it or the read fails.
std::string ReadString(ArvCamera* camera, const char* feature) {
    GError* error = nullptr;
    if (!arv_camera_is_feature_available(camera, feature, &error)) {
        g_clear_error(&error);
        return {};
    }
    const char* value = arv_camera_get_string(camera, feature, &error);
    std::string text = error ? std::string() : Text(value);
    g_clear_error(&error);
    return text;
}

// Cameras Aravis knows after the last arv_update_device_list.
CAMERA_INFO Listed(unsigned i) {
    CAMERA_INFO info;
    info.strId = Text(arv_get_device_id(i));
    info.strVendor = Text(arv_get_device_vendor(i));
    info.strModel = Text(arv_get_device_model(i));
    info.strSerial = Text(arv_get_device_serial_nbr(i));
    info.strInterface = Text(arv_get_device_protocol(i));
    if (info.strInterface == "GigEVision") info.strAddress = Text(arv_get_device_address(i));
    return info;
}

}  // namespace

struct CGenICamSource::Aravis {
    ArvCamera* camera = nullptr;
    ArvStream* stream = nullptr;
    ArvBuffer* held = nullptr;  // the buffer of the frame handed out last
    gulong lostHandler = 0;
    std::atomic<bool> controlLost{false};
    ArvPixelFormat format = 0;
    bool running = false;
    bool hasTemperature = false;
    bool firstFrame = true;
    guint64 firstSystemTime = 0;
    Clock::time_point lastFrame;
    Clock::time_point lastTemperature;
    uint64_t underruns = 0;  // kept when the stream goes

    static void OnControlLost(ArvDevice*, gpointer self) {
        static_cast<Aravis*>(self)->controlLost.store(true);
    }
};

CGenICamSource::CGenICamSource() : m_pArv(std::make_unique<Aravis>()) {}

CGenICamSource::~CGenICamSource() { Close(); }

std::vector<CAMERA_INFO> CGenICamSource::ListCameras() {
    arv_update_device_list();
    std::vector<CAMERA_INFO> cameras;
    for (unsigned i = 0; i < arv_get_n_devices(); ++i) cameras.push_back(Listed(i));
    return cameras;
}

void CGenICamSource::EnableFakeCamera(bool on) {
    if (on) arv_enable_interface("Fake");
    else arv_disable_interface("Fake");
}

int CGenICamSource::IsOpen() const { return m_pArv->camera != nullptr; }

int CGenICamSource::Refuse(const std::string& text) {
    return SetError(SOURCE_REFUSED, "camera " + m_Info.strId + ": " + text);
}

int CGenICamSource::Open(const char* id, const SOURCE_SETTINGS& settings) {
    Close();
    ClearError();
    const std::string wanted = Text(id);
    if (wanted.empty()) return SetError(SOURCE_NOT_FOUND, "no camera id given");

    // Find it among the cameras listed: by id, serial number, address or physical id.
    arv_update_device_list();
    std::string openName;
    std::vector<std::string> known;
    for (unsigned i = 0; i < arv_get_n_devices() && openName.empty(); ++i) {
        const CAMERA_INFO info = Listed(i);
        known.push_back(info.strId);
        if (wanted == info.strId || wanted == info.strSerial || wanted == Text(arv_get_device_physical_id(i)) ||
            (!info.strAddress.empty() && wanted == info.strAddress)) {
            m_Info = info;
            // A loopback camera goes through its address (see the header).
            openName = info.strAddress.rfind("127.", 0) == 0 ? info.strAddress : info.strId;
        }
    }
    if (openName.empty()) {
        // An address beyond the discovery's reach (another subnet) may still answer directly.
        if (!IsIPv4(wanted))
            return SetError(SOURCE_NOT_FOUND, "camera " + wanted + ": not found (" +
                                                  (known.empty() ? std::string("no camera is connected")
                                                                 : "connected: " + Join(known)) +
                                                  ")");
        openName = wanted;
        m_Info = CAMERA_INFO();
        m_Info.strId = wanted;
        m_Info.strInterface = "GigEVision";
        m_Info.strAddress = wanted;
    }

    GError* error = nullptr;
    ArvCamera* camera = arv_camera_new(openName.c_str(), &error);
    if (!camera) {
        const int code = m_Info.strVendor.empty() ? SOURCE_NOT_FOUND : SOURCE_FAILED;
        return SetError(code, "camera " + wanted + ": cannot be opened (" + Take(error) + ")");
    }
    m_pArv->camera = camera;
    m_pArv->controlLost = false;

    // What it is.
    if (const char* v = arv_camera_get_vendor_name(camera, &error)) m_Info.strVendor = v;
    g_clear_error(&error);
    if (const char* v = arv_camera_get_model_name(camera, &error)) m_Info.strModel = v;
    g_clear_error(&error);
    if (const char* v = arv_camera_get_device_serial_number(camera, &error); v && *v) m_Info.strSerial = v;
    g_clear_error(&error);
    m_Info.strFirmware = ReadString(camera, "DeviceFirmwareVersion");
    if (m_Info.strFirmware.empty()) m_Info.strFirmware = ReadString(camera, "DeviceVersion");

    // Pixel format: the one asked for, else the camera's own when it fits,
    // else the deepest one offered.
    m_PixelFormats.clear();
    guint count = 0;
    const char** formats = arv_camera_dup_available_pixel_formats_as_strings(camera, &count, &error);
    if (!formats) return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": cannot list its pixel formats (" + Take(error) + ")");
    for (guint i = 0; i < count; ++i)
        if (formats[i]) m_PixelFormats.emplace_back(formats[i]);
    g_free(formats);
    auto offered = [&](const std::string& f) {
        return std::find(m_PixelFormats.begin(), m_PixelFormats.end(), f) != m_PixelFormats.end();
    };
    std::string format;
    if (settings.nBits != 0) {
        if (settings.nBits != 12 && settings.nBits != 14 && settings.nBits != 16)
            return Refuse("records 12, 14 or 16 bits, not " + std::to_string(settings.nBits));
        format = "Mono" + std::to_string(settings.nBits);
        if (!offered(format))
            return Refuse("no " + format + " pixel format; it offers " + Join(m_PixelFormats));
    } else {
        const char* current = arv_camera_get_pixel_format_as_string(camera, &error);
        g_clear_error(&error);
        const std::string now = Text(current);
        if (now == "Mono16" || now == "Mono14" || now == "Mono12") format = now;
        for (const char* f : {"Mono16", "Mono14", "Mono12"})
            if (format.empty() && offered(f)) format = f;
        if (format.empty())
            return Refuse("offers none of Mono16, Mono14, Mono12 (unpacked); it offers " + Join(m_PixelFormats));
    }
    arv_camera_set_pixel_format_from_string(camera, format.c_str(), &error);
    if (error) return Refuse("cannot take pixel format " + format + " (" + Take(error) + ")");
    m_pArv->format = arv_camera_get_pixel_format(camera, &error);
    g_clear_error(&error);
    m_strPixelFormat = format;
    m_nBit = static_cast<unsigned short>(std::stoi(format.substr(4)));

    // Window.
    if (!settings.roi.IsRectNull()) {
        const CRect& r = settings.roi;
        gint sensorW = 0, sensorH = 0;
        arv_camera_get_sensor_size(camera, &sensorW, &sensorH, &error);
        if (error || sensorW <= 0 || sensorH <= 0) {
            g_clear_error(&error);
            gint lo = 0;
            arv_camera_get_width_bounds(camera, &lo, &sensorW, &error);
            g_clear_error(&error);
            arv_camera_get_height_bounds(camera, &lo, &sensorH, &error);
            g_clear_error(&error);
        }
        if (r.IsRectEmpty() || r.left < 0 || r.top < 0 || r.right > sensorW || r.bottom > sensorH)
            return Refuse("the window " + Window(r) + " lies outside its sensor (" + std::to_string(sensorW) + " x " +
                          std::to_string(sensorH) + ")");
        arv_camera_set_region(camera, r.left, r.top, r.Width(), r.Height(), &error);
        if (error) return Refuse("cannot take the window " + Window(r) + " (" + Take(error) + ")");
        gint x = 0, y = 0, w = 0, h = 0;
        arv_camera_get_region(camera, &x, &y, &w, &h, &error);
        g_clear_error(&error);
        if (CRect(x, y, x + w, y + h) != r) {
            const gint wStep = arv_camera_get_width_increment(camera, nullptr);
            const gint hStep = arv_camera_get_height_increment(camera, nullptr);
            return Refuse("cannot take the window " + Window(r) + ": it made it " + Window(CRect(x, y, x + w, y + h)) +
                          " (widths in steps of " + std::to_string(wStep) + ", heights in steps of " +
                          std::to_string(hStep) + ")");
        }
    }
    {
        gint x = 0, y = 0, w = 0, h = 0;
        arv_camera_get_region(camera, &x, &y, &w, &h, &error);
        if (error) return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": cannot read its window (" + Take(error) + ")");
        if (w < 1 || h < 1 || w > 65535 || h > 65535)
            return Refuse("frames of " + std::to_string(w) + " x " + std::to_string(h) + " cannot be recorded (1 to 65535 a side)");
        m_Window = CRect(x, y, x + w, y + h);
        m_nPoint = static_cast<unsigned short>(w);
        m_nLine = static_cast<unsigned short>(h);
    }

    // Frame rate.
    const bool hasRate = arv_camera_is_frame_rate_available(camera, &error);
    g_clear_error(&error);
    if (settings.dRate > 0.0) {
        if (!hasRate) return Refuse("has no frame rate setting");
        double lo = 0, hi = 0;
        arv_camera_get_frame_rate_bounds(camera, &lo, &hi, &error);
        g_clear_error(&error);
        if (hi > 0.0 && (settings.dRate < lo || settings.dRate > hi))
            return Refuse("takes frame rates from " + Number(lo) + " to " + Number(hi) + " Hz, not " + Number(settings.dRate));
        arv_camera_set_frame_rate(camera, settings.dRate, &error);
        if (error) return Refuse("cannot take the frame rate " + Number(settings.dRate) + " Hz (" + Take(error) + ")");
    }
    m_dRate = hasRate ? arv_camera_get_frame_rate(camera, &error) : 0.0;
    g_clear_error(&error);

    // Exposure.
    const bool hasExposure = arv_camera_is_exposure_time_available(camera, &error);
    g_clear_error(&error);
    if (settings.dExposure > 0.0) {
        if (!hasExposure) return Refuse("has no exposure time setting");
        double lo = 0, hi = 0;
        arv_camera_get_exposure_time_bounds(camera, &lo, &hi, &error);
        g_clear_error(&error);
        if (hi > 0.0 && (settings.dExposure < lo || settings.dExposure > hi))
            return Refuse("takes exposure times from " + Number(lo) + " to " + Number(hi) + " us, not " +
                          Number(settings.dExposure));
        arv_camera_set_exposure_time(camera, settings.dExposure, &error);
        if (error) return Refuse("cannot take the exposure time " + Number(settings.dExposure) + " us (" + Take(error) + ")");
    }
    m_dExposure = hasExposure ? arv_camera_get_exposure_time(camera, &error) : 0.0;
    g_clear_error(&error);

    m_pArv->hasTemperature = arv_camera_is_feature_available(camera, "DeviceTemperature", &error);
    g_clear_error(&error);
    m_fTemperature = std::numeric_limits<float>::quiet_NaN();
    if (m_pArv->hasTemperature) {
        const double t = arv_camera_get_float(camera, "DeviceTemperature", &error);
        if (!error) m_fTemperature = static_cast<float>(t);
        g_clear_error(&error);
    }

    // The pool: about one second of frames, 8 to 256 buffers, 512 MiB at most.
    m_nPayload = arv_camera_get_payload(camera, &error);
    if (error) return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": cannot read its payload size (" + Take(error) + ")");
    const size_t frameBytes = static_cast<size_t>(m_nPoint) * m_nLine * 2;
    if (m_nPayload < frameBytes)
        return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": announces " + std::to_string(m_nPayload) +
                                           " bytes a frame, less than " + std::to_string(frameBytes) + " for " +
                                           std::to_string(m_nPoint) + " x " + std::to_string(m_nLine) + " " + format);
    int buffers = settings.nBuffers > 0 ? settings.nBuffers
                                        : std::clamp(static_cast<int>(std::ceil(m_dRate > 0.0 ? m_dRate : 32.0)), 8, 256);
    buffers = static_cast<int>(std::min<size_t>(static_cast<size_t>(buffers), std::max<size_t>(2, (size_t{512} << 20) / m_nPayload)));
    m_nBuffers = buffers;
    return 1;
}

void CGenICamSource::Close() {
    Stop();
    if (m_pArv->camera) {
        g_object_unref(m_pArv->camera);
        m_pArv->camera = nullptr;
    }
}

double CGenICamSource::GetSilenceLimit() const { return std::max(5.0, m_dRate > 0.0 ? 20.0 / m_dRate : 0.0); }

int CGenICamSource::Start() {
    Aravis& a = *m_pArv;
    if (!a.camera) return SetError(SOURCE_FAILED, "no camera is open");
    if (a.running) return 1;
    ClearError();
    ResetCounts();
    GError* error = nullptr;
    a.stream = arv_camera_create_stream(a.camera, nullptr, nullptr, &error);
    if (!a.stream) return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": cannot open its stream (" + Take(error) + ")");
    // A GigE Vision frame arrives as a burst of packets: the socket takes a
    // whole frame (as far as the system's net.core.rmem_max allows).
    if (ARV_IS_GV_STREAM(a.stream)) g_object_set(a.stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_AUTO, nullptr);
    for (int i = 0; i < m_nBuffers; ++i) arv_stream_push_buffer(a.stream, arv_buffer_new_allocate(m_nPayload));
    a.controlLost = false;
    a.lostHandler = g_signal_connect(arv_camera_get_device(a.camera), "control-lost",
                                     G_CALLBACK(&Aravis::OnControlLost), &a);
    arv_camera_set_acquisition_mode(a.camera, ARV_ACQUISITION_MODE_CONTINUOUS, &error);
    g_clear_error(&error);  // a camera without the feature runs continuously anyway
    arv_camera_start_acquisition(a.camera, &error);
    a.running = true;
    a.firstFrame = true;
    a.underruns = 0;
    a.lastFrame = a.lastTemperature = Clock::now();
    if (error) {
        const std::string text = Take(error);
        Stop();
        return SetError(SOURCE_FAILED, "camera " + m_Info.strId + ": cannot start the acquisition (" + text + ")");
    }
    return 1;
}

void CGenICamSource::ReleaseHeld() {
    Aravis& a = *m_pArv;
    if (!a.held) return;
    if (a.stream) arv_stream_push_buffer(a.stream, a.held);
    else g_object_unref(a.held);
    a.held = nullptr;
}

void CGenICamSource::ReadTemperature() {
    Aravis& a = *m_pArv;
    GError* error = nullptr;
    const double t = arv_camera_get_float(a.camera, "DeviceTemperature", &error);
    if (!error) m_fTemperature = static_cast<float>(t);
    g_clear_error(&error);
    a.lastTemperature = Clock::now();
}

int CGenICamSource::Next(SOURCE_FRAME& frame, unsigned long timeoutMs) {
    Aravis& a = *m_pArv;
    if (!a.running) {
        SetError(SOURCE_FAILED, "camera " + m_Info.strId + " is not started");
        return -1;
    }
    ReleaseHeld();
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    const size_t lineBytes = static_cast<size_t>(m_nPoint) * 2;
    for (;;) {
        if (a.controlLost) {
            SetError(SOURCE_LOST, "camera " + m_Info.strId + ": the connection was lost (it no longer answers)");
            return -1;
        }
        const Clock::time_point now = Clock::now();
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(std::max(deadline - now, Clock::duration::zero()));
        ArvBuffer* b = left.count() > 0 ? arv_stream_timeout_pop_buffer(a.stream, static_cast<guint64>(left.count()))
                                        : arv_stream_try_pop_buffer(a.stream);
        if (!b) {
            if (std::chrono::duration<double>(Clock::now() - a.lastFrame).count() > GetSilenceLimit()) {
                SetError(SOURCE_LOST, "camera " + m_Info.strId + ": no frame for " + Number(GetSilenceLimit()) +
                                          " s (it stopped sending, or its frames do not reach this machine)");
                return -1;
            }
            if (Clock::now() >= deadline) return 0;
            continue;
        }
        a.lastFrame = Clock::now();
        // Complete: every packet arrived and it is the image set up in Open.
        size_t size = 0;
        const void* data = nullptr;
        size_t pitch = lineBytes;
        bool complete = arv_buffer_get_status(b) == ARV_BUFFER_STATUS_SUCCESS;
        if (complete) {
            data = arv_buffer_get_image_data(b, &size);
            gint padX = 0, padY = 0;
            arv_buffer_get_image_padding(b, &padX, &padY);
            pitch = lineBytes + static_cast<size_t>(std::max(padX, 0));
            complete = data && arv_buffer_get_image_pixel_format(b) == a.format &&
                       arv_buffer_get_image_width(b) == m_nPoint && arv_buffer_get_image_height(b) == m_nLine &&
                       pitch % 2 == 0 && size >= pitch * (m_nLine - 1u) + lineBytes;
        }
        CountFrame(arv_buffer_get_frame_id(b), complete);
        if (!complete) {
            arv_stream_push_buffer(a.stream, b);
            continue;
        }
        a.held = b;
        guint64 system = arv_buffer_get_system_timestamp(b);
        if (system == 0)
            system = static_cast<guint64>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                              std::chrono::system_clock::now().time_since_epoch())
                                              .count());
        if (a.firstFrame) {
            a.firstFrame = false;
            a.firstSystemTime = system;
        }
        if (a.hasTemperature && a.lastFrame - a.lastTemperature >= std::chrono::seconds(1)) ReadTemperature();
        frame.pPixels = static_cast<const unsigned short*>(data);
        frame.nPoint = m_nPoint;
        frame.nLine = m_nLine;
        frame.nPitch = static_cast<uint32_t>(pitch / 2);
        frame.nFrameId = arv_buffer_get_frame_id(b);
        frame.nCameraTime = arv_buffer_get_timestamp(b);
        frame.dTime = TimeOfDay(static_cast<int64_t>(system / 1000));
        frame.dElapsed = static_cast<double>(static_cast<int64_t>(system - a.firstSystemTime)) * 1e-9;
        frame.fTemperature = m_fTemperature;
        return 1;
    }
}

void CGenICamSource::Stop() {
    Aravis& a = *m_pArv;
    if (!a.running) return;
    GError* error = nullptr;
    // A lost camera is not asked for anything: every request would wait for its time-out.
    if (!a.controlLost && GetLastError() != SOURCE_LOST) arv_camera_stop_acquisition(a.camera, &error);
    g_clear_error(&error);
    if (a.lostHandler) {
        g_signal_handler_disconnect(arv_camera_get_device(a.camera), a.lostHandler);
        a.lostHandler = 0;
    }
    a.underruns = GetStatistics().nUnderruns;
    if (a.held) {
        g_object_unref(a.held);
        a.held = nullptr;
    }
    g_object_unref(a.stream);
    a.stream = nullptr;
    a.running = false;
}

SOURCE_STATISTICS CGenICamSource::GetStatistics() const {
    SOURCE_STATISTICS s = m_Stats;
    s.nUnderruns = m_pArv->underruns;
    if (m_pArv->stream) {
        guint64 completed = 0, failures = 0, underruns = 0;
        arv_stream_get_statistics(m_pArv->stream, &completed, &failures, &underruns);
        s.nUnderruns = underruns;
    }
    return s;
}

void CGenICamSource::FillHeader(CPtrOver& film) const {
    CFrameSource::FillHeader(film);
    std::string comment = m_Info.strVendor + " " + m_Info.strModel + ", serial " + m_Info.strSerial + ", firmware " +
                          m_Info.strFirmware + ", id " + m_Info.strId + " (" + m_Info.strInterface +
                          (m_Info.strAddress.empty() ? "" : " " + m_Info.strAddress) + "), " + m_strPixelFormat +
                          ", window " + Window(m_Window);
    if (m_dExposure > 0.0) comment += ", exposure " + Number(m_dExposure) + " us";
    if (!std::isnan(m_fTemperature)) comment += ", device temperature " + Number(m_fTemperature) + " C";
    film.SetComment(comment.c_str());
}

}  // namespace thermokit
