#include "thermokit/film/HeaderFields.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "thermokit/film/CPtrOver.h"
#include "thermokit/platform/CRect.h"

namespace thermokit {

namespace {

std::string Hex(const unsigned char* p, size_t n) {
    std::string s;
    char b[4];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(b, sizeof(b), "%02x", p[i]);
        s += b;
    }
    return s;
}

std::string ClockText(const CPtrOver::PTR_TIME& t, unsigned thousandth) {
    char text[64];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u.%02u%u", t.hour, t.minute, t.second, t.hundredths, thousandth);
    return text;
}

}  // namespace

void VisitFileHeader(const CPtrOver& p, HeaderFieldVisitor& v) {
    const unsigned char* h = p.GetHeaderAddress();
    v.Text("signature", p.GetSignature());
    v.Text("version", p.GetVersion());
    v.Unsigned("header_size", p.GetHeaderSize());
    v.Unsigned("image_header_size", p.GetImageHeaderSize());
    v.Unsigned("record_words", p.GetRecordWords());
    v.Text("pixel_type", CPtrOver::PixelBytes(h) == 8 ? "double" : "u16");
    v.Signed("pixel_count", p.GetSize());
    v.Unsigned("frames", p.GetFrameNumber());
    v.Unsigned("current_frame", p.GetCurrentFrame());
    CPtrOver::PTR_DATE d;
    p.GetDate(&d);
    CPtrOver::PTR_TIME t;
    p.GetTime(&t);
    char date[32];
    std::snprintf(date, sizeof(date), "%04u-%02u-%02u", d.year, d.month, d.day);
    v.Text("date", date);
    v.Text("time", ClockText(t, p.GetThousandth()));
    v.Text("camera", p.GetCamera());
    v.Text("lens", p.GetLens());
    v.BeginList("filters");
    for (int i = 0; i < PtrHeader::kFilterCount; ++i) v.Text(nullptr, p.GetFilter(i));
    v.End();
    v.Text("aperture_name", p.GetApertureName());
    v.Real("billet_speed", p.GetBilletSpeed());
    v.Real("billet_diameter", p.GetBilletDiameter());
    v.Unsigned("billet_shape", p.GetBilletShape());
    v.Real("emissivity", p.GetEmissivity());
    v.Real("ambient_temperature_K", p.GetAmbiantTemperature());
    v.Real("distance", p.GetDistance());
    v.Unsigned("inductor_coil", p.GetInductorCoil());
    v.Signed("inductor_power", p.GetInductorPower());
    v.Unsigned("inductor_voltage", p.GetInductorVoltage());
    v.Signed("inductor_frequency", p.GetInductorFrequency());
    v.Unsigned("synchronisation", p.GetSynchronisation());
    v.Real("transmission", p.GetTransmission());
    v.Real("extinction", p.GetExtinction());
    v.Real("atmosphere_temperature", p.GetAtmosphereTemperature());
    v.Real("cut_on", p.GetCutOn());
    v.Real("cut_off", p.GetCutOff());
    v.Real("pixel_size", p.GetPixelSize());
    v.Real("pixel_pitch", p.GetPixelPitch());
    v.Real("aperture", p.GetAperture());
    v.Real("focal_length", p.GetFocalLength());
    v.BeginList("housing_temperature");
    v.Real(nullptr, p.GetHousingTemperature(0));
    v.Real(nullptr, p.GetHousingTemperature(1));
    v.End();
    v.Text("serial", p.GetSerial());
    v.Signed("detector", p.GetDetector());
    v.Unsigned("detector_gain", p.GetDetectorGain());
    v.Unsigned("lut_min", p.GetMinLUT());
    v.Unsigned("lut_max", p.GetMaxLUT());
    v.Unsigned("special_unit", p.GetSpecialUnit());
    v.Text("special_unit_name", p.GetSpecialUnitName());
    v.BeginList("special_scale");
    for (int i = 0; i < PtrHeader::kSpecialScaleCount; ++i)
        v.Real(nullptr, load<float>(h, PtrHeader::kSpecialScale + 4 * static_cast<size_t>(i)));
    v.End();
    v.Real("zoom_x", p.GetZoomX());
    v.Real("zoom_y", p.GetZoomY());
    v.Unsigned("point", p.GetPoint());
    v.Unsigned("line", p.GetLine());
    v.Unsigned("bit", p.GetBit());
    v.Unsigned("average", p.GetAverage());
    v.Real("longitude", p.GetLongitude());
    v.Real("latitude", p.GetLatitude());
    v.Real("altitude", p.GetAltitude());
    v.Signed("external_sync", p.IsExternalSync());
    v.Real("frame_period_s", p.GetFramePeriod());
    v.Real("frame_rate_hz", p.GetFrameRate());
    v.BeginList("integration_s");
    for (int i = 0; i < PtrHeader::kIntegrationCount; ++i) v.Real(nullptr, p.GetIntegration(i));
    v.End();
    v.Unsigned("integration_mode", p.GetIntegrationMode());
    v.Unsigned("window", p.GetWindow());
    v.Unsigned("nuc_index", p.GetNucIndex());
    v.Text("comment", p.GetComment());
    std::string cal;
    v.Text("calibration_file", p.GetFileCalibration(&cal) ? cal : std::string());
    v.Text("file_tools", p.GetFileTools());
    unsigned short index = 0;
    unsigned char f1 = 0, f2 = 0;
    if (p.GetCurrentPalette(index, f1, f2)) {
        v.BeginRecord("palette");
        v.Unsigned("index", index);
        v.Unsigned("reversed", f1);
        v.Unsigned("saturation", f2);
        v.End();
    } else {
        v.Null("palette");
    }
    if (p.GetIndexCurrentUnit(index)) v.Unsigned("unit_index", index);
    else v.Null("unit_index");
    int32_t sx = 0, sy = 0;
    p.GetZoomScrollPosition(sx, sy);
    v.BeginList("zoom_scroll");
    v.Signed(nullptr, sx);
    v.Signed(nullptr, sy);
    v.End();
    v.BeginList("isotherms");
    for (int i = 0; i < PtrHeader::kIsothermCount; ++i) {
        int on = 0;
        unsigned short lo = 0, hi = 0;
        uint32_t colour = 0;
        p.GetIsotherm(i, on, lo, hi, colour);
        char text[16];
        std::snprintf(text, sizeof(text), "0x%08x", colour);
        v.BeginRecord(nullptr);
        v.Signed("on", on);
        v.Unsigned("low", lo);
        v.Unsigned("high", hi);
        v.Text("colour", text);
        v.End();
    }
    v.End();
    int zeroOn = 0;
    unsigned short zero = 0;
    p.GetZero(zeroOn, zero);
    v.BeginRecord("zero");
    v.Signed("on", zeroOn);
    v.Unsigned("level", zero);
    v.End();
    v.Unsigned("palette_width", p.GetPaletteWidth());
    v.Signed("palette_full_scale", p.GetPaletteFullScaleDisplay());
    v.Real("km", p.GetKm());
    v.Real("demodulation_frequency", p.GetDemodeFrequency());
    v.Real("distance_offset", p.GetDistanceOffset());
    unsigned short pct = 0;
    const int histo = p.GetHistoEqualisation(pct);
    v.BeginRecord("histo_equalisation");
    v.Signed("on", histo);
    v.Unsigned("percent", pct);
    v.End();
    v.Signed("top_frame_valid", p.IsImageRealDriverTopFrameValid());
    v.Signed("sub_sampling", p.GetSubSampling());
    int fx = 0, fy = 0;
    if (p.GetCaptureFlip(fx, fy)) {
        v.BeginList("capture_flip");
        v.Signed(nullptr, fx);
        v.Signed(nullptr, fy);
        v.End();
    } else {
        v.Null("capture_flip");
    }
    v.Real("capture_black_body", p.GetCaptureBlackBody());
    v.Unsigned("capture_filter_wheel", p.GetCaptureFilterWheel());
    v.Unsigned("capture_focal", p.GetCaptureFocal());
    v.Text("lens_reference", p.GetLensReference());
    v.Real("master_clock", p.GetMasterClock());
    v.Signed("play_speed", p.GetPlaySpeed());
    v.Signed("irigb_play", p.IsIRIGBPlay());
    _SCalibrationRBF law{};
    if (p.GetRBFCalibParam(&law)) {
        v.BeginRecord("rbf_law");
        v.Unsigned("type", law.m_byType);
        v.Real("k", law.m_fNonLinearity);
        v.Signed("level_zero", law.m_nLevelZero);
        v.Signed("offset", law.m_nOffset);
        v.Real("scale", law.m_fScale);
        v.Unsigned("non_linear", law.m_wNonLinear);
        v.Real("R", law.m_fR);
        v.Real("B", law.m_fB);
        v.Real("F", law.m_fF);
        v.End();
    } else {
        v.Null("rbf_law");
    }
    v.Text("compensated_calibration", Hex(h + PtrHeader::kCompCalib, 16) + "...");
}

void VisitImageHeader(const CPtrOver& p, double readTime, HeaderFieldVisitor& v) {
    CPtrOver::PTR_TIME t;
    p.GetImageTime(&t);
    v.Text("time", ClockText(t, p.GetImageThousandth()));
    v.Unsigned("micro", p.GetImageMicro());
    v.Real("frame_time_s", p.GetFrameTime());
    v.Real("time_stamp_s", readTime);
    v.Real("detector_temperature", p.GetImageDetectorTemp());
    v.BeginList("sensor_temperatures");
    for (int i = 0; i < PtrImage::kSensorCount; ++i) v.Real(nullptr, p.GetImageSensorTemp(i));
    v.End();
    CPtrOver::PTR_LOCKIN_DATA lk;
    p.GetImageLockinData(&lk);
    float frequency;
    std::memcpy(&frequency, &lk.dwFrequency, sizeof(frequency));
    v.BeginRecord("lockin");
    v.Unsigned("valid", lk.wValid);
    v.Unsigned("period_index", lk.dwPeriodIndex);
    v.Unsigned("period_frames", lk.dwPeriodFrames);
    v.Unsigned("signal", lk.bySignal);
    v.Unsigned("channel", lk.byChannel);
    v.Unsigned("mode", lk.byMode);
    v.Real("frequency", frequency);
    v.Unsigned("period_count", lk.dwPeriodCount);
    v.End();
    v.Unsigned("multi_integration", p.GetImageMultiIntegration());
    CRect r;
    p.GetSubWindowRect(&r);
    v.Unsigned("window", p.GetImageWindow());
    v.BeginList("sub_window");
    v.Signed(nullptr, r.left);
    v.Signed(nullptr, r.top);
    v.Signed(nullptr, r.Width());
    v.Signed(nullptr, r.Height());
    v.End();
    v.Real("integration_s", p.GetImageIntegration());
    v.Unsigned("top_frame", load<uint64_t>(p.GetImageHeaderAddress(), PtrImage::kTopFrame));
    v.Unsigned("page", p.GetImagePage());
    v.Unsigned("camera_time_stamp", p.GetImageCameraTimeStamp());
    unsigned char mask = 0, year = 0, bytes[3] = {0, 0, 0};
    unsigned short day = 0;
    uint32_t micro = 0;
    p.GetImageIRIGB(mask, day, bytes, 3, micro, year);
    char text[16];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u", bytes[0], bytes[1], bytes[2]);
    v.BeginRecord("irigb");
    v.Unsigned("mask", mask);
    v.Unsigned("day", day);
    v.Text("time", text);
    v.Unsigned("micro", micro);
    v.Unsigned("year", year);
    v.End();
}

// ------------------------------------------------------------ setting by name

namespace {

enum class Kind { kText, kReal, kInteger };

// One settable field: its name, kind, limits and the setter that stores a
// checked value (index is the item of a list field, 0 for the others).
struct Settable {
    const char* name;
    Kind kind;
    double lo, hi;      // numbers: the values the field keeps
    size_t maxChars;    // texts: what the field keeps
    int count;          // list fields: their length; 0 for single fields
    void (*set)(CPtrOver& p, int index, double number, const std::string& text);
};

// Limits of the float fields (and of the one double) of the header.
constexpr double kF = std::numeric_limits<float>::max(), kD = std::numeric_limits<double>::max();
constexpr double kU8 = 255.0, kU16 = 65535.0, kU32 = 4294967295.0;
constexpr double kI32Lo = -2147483648.0, kI32Hi = 2147483647.0;

template <class T>
T As(double v) { return static_cast<T>(v); }

const Settable kSettable[] = {
    {"camera", Kind::kText, 0, 0, 19, 0, [](CPtrOver& p, int, double, const std::string& t) { p.SetCamera(t.c_str()); }},
    {"lens", Kind::kText, 0, 0, 19, 0, [](CPtrOver& p, int, double, const std::string& t) { p.SetLens(t.c_str()); }},
    {"filters", Kind::kText, 0, 0, 19, PtrHeader::kFilterCount,
     [](CPtrOver& p, int i, double, const std::string& t) { p.SetFilter(t.c_str(), i); }},
    {"aperture_name", Kind::kText, 0, 0, 19, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetApertureName(t.c_str()); }},
    {"billet_speed", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetBilletSpeed(As<float>(v)); }},
    {"billet_diameter", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetBilletDiameter(As<float>(v)); }},
    {"billet_shape", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetBilletShape(As<unsigned short>(v)); }},
    {"emissivity", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetEmissivity(As<float>(v)); }},
    {"ambient_temperature_K", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetAmbiantTemperature(As<float>(v)); }},
    {"distance", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetDistance(As<float>(v)); }},
    {"inductor_coil", Kind::kInteger, 0, kU8, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetInductorCoil(As<unsigned char>(v)); }},
    {"inductor_power", Kind::kInteger, kI32Lo, kI32Hi, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetInductorPower(As<int32_t>(v)); }},
    {"inductor_voltage", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetInductorVoltage(As<unsigned short>(v)); }},
    {"inductor_frequency", Kind::kInteger, kI32Lo, kI32Hi, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetInductorFrequency(As<int32_t>(v)); }},
    {"synchronisation", Kind::kInteger, 0, kU8, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetSynchronisation(As<unsigned char>(v)); }},
    {"transmission", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetTransmission(As<float>(v)); }},
    {"extinction", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetExtinction(As<float>(v)); }},
    {"atmosphere_temperature", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetAtmosphereTemperature(As<float>(v)); }},
    {"cut_on", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetCutOn(As<float>(v)); }},
    {"cut_off", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetCutOff(As<float>(v)); }},
    {"pixel_size", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetPixelSize(As<float>(v)); }},
    {"pixel_pitch", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetPixelPitch(As<float>(v)); }},
    {"aperture", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetAperture(As<float>(v)); }},
    {"housing_temperature", Kind::kReal, -kF, kF, 0, 2,
     [](CPtrOver& p, int i, double v, const std::string&) { p.SetHousingTemperature(As<float>(v), i); }},
    {"serial", Kind::kText, 0, 0, PtrHeader::kSerialChars, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetSerial(t.c_str()); }},
    {"detector", Kind::kInteger, kI32Lo, kI32Hi, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetDetector(As<int32_t>(v)); }},
    {"detector_gain", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetDetectorGain(As<unsigned short>(v)); }},
    {"lut_min", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetMinLUT(As<unsigned short>(v)); }},
    {"lut_max", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetMaxLUT(As<unsigned short>(v)); }},
    {"special_unit", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetSpecialUnit(As<unsigned short>(v)); }},
    {"special_unit_name", Kind::kText, 0, 0, PtrHeader::kSpecialUnitNameSize - 1, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetSpecialUnitName(t.c_str()); }},
    {"zoom_x", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetZoomX(As<float>(v)); }},
    {"zoom_y", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetZoomY(As<float>(v)); }},
    // Counts below 2 are kept out by the header itself (an average of one image).
    {"average", Kind::kInteger, 1, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetAverage(As<unsigned short>(v)); }},
    {"longitude", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetLongitude(As<float>(v)); }},
    {"latitude", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetLatitude(As<float>(v)); }},
    {"altitude", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetAltitude(As<float>(v)); }},
    {"external_sync", Kind::kInteger, 0, 1, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetExternalSync(As<unsigned char>(v)); }},
    {"frame_period_s", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetFramePeriod(As<float>(v)); }},
    {"frame_rate_hz", Kind::kReal, 1e-30, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetFrameRate(As<float>(v)); }},
    {"integration_s", Kind::kReal, -kF, kF, 0, PtrHeader::kIntegrationCount,
     [](CPtrOver& p, int i, double v, const std::string&) { p.SetIntegration(As<float>(v), i); }},
    {"integration_mode", Kind::kInteger, 0, kU32, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetIntegrationMode(As<uint32_t>(v)); }},
    {"window", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetWindow(As<unsigned short>(v)); }},
    {"nuc_index", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetNucIndex(As<unsigned short>(v)); }},
    {"comment", Kind::kText, 0, 0, PtrHeader::kCommentSize - 1, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetComment(t.c_str()); }},
    {"calibration_file", Kind::kText, 0, 0, PtrHeader::kCalibrationPathSize - 1, 0,
     [](CPtrOver& p, int, double, const std::string& t) {
         if (t.empty()) p.RemoveFileCalibration();
         else p.SetFileCalibration(t);
     }},
    {"file_tools", Kind::kText, 0, 0, PtrHeader::kFileToolsSize - 1, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetFileTools(t.c_str()); }},
    {"palette_width", Kind::kInteger, 0, kU16, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetPaletteWidth(As<unsigned short>(v)); }},
    {"palette_full_scale", Kind::kInteger, 0, 1, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetPaletteFullScaleDisplay(As<int>(v)); }},
    {"km", Kind::kReal, -kD, kD, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetKm(v); }},
    {"demodulation_frequency", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetDemodeFrequency(As<float>(v)); }},
    {"distance_offset", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetDistanceOffset(As<float>(v)); }},
    {"top_frame_valid", Kind::kInteger, 0, 1, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetImageRealDriverTopFrameValid(As<int>(v)); }},
    // Factors below 2 are kept out by the header itself (no sub-sampling).
    {"sub_sampling", Kind::kInteger, 1, kI32Hi, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetSubSampling(As<int32_t>(v)); }},
    {"capture_black_body", Kind::kReal, -kF, kF, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetCaptureBlackBody(As<float>(v)); }},
    {"capture_filter_wheel", Kind::kInteger, 0, kU8, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetCaptureFilterWheel(As<unsigned char>(v)); }},
    {"capture_focal", Kind::kInteger, 0, kU8, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetCaptureFocal(As<unsigned char>(v)); }},
    {"lens_reference", Kind::kText, 0, 0, 19, 0,
     [](CPtrOver& p, int, double, const std::string& t) { p.SetLensReference(t.c_str()); }},
    {"master_clock", Kind::kReal, -kF, kF, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetMasterClock(As<float>(v)); }},
    {"play_speed", Kind::kInteger, kI32Lo, kI32Hi, 0, 0,
     [](CPtrOver& p, int, double v, const std::string&) { p.SetPlaySpeed(As<int32_t>(v)); }},
    {"irigb_play", Kind::kInteger, 0, 1, 0, 0, [](CPtrOver& p, int, double v, const std::string&) { p.SetIRIGBPlay(As<int>(v)); }},
};

const Settable* FindSettable(const std::string& name) {
    for (const Settable& s : kSettable)
        if (name == s.name) return &s;
    return nullptr;
}

// Names the visitor gives that are not settable by name: the film's
// structure and the records behind validity flags.
bool IsHeaderFieldName(const std::string& name) {
    struct Names : HeaderFieldVisitor {
        const std::string& wanted;
        bool found = false;
        int depth = 0;
        explicit Names(const std::string& w) : wanted(w) {}
        void Check(const char* n) {
            if (depth == 0 && n && wanted == n) found = true;
        }
        void Signed(const char* n, int64_t) override { Check(n); }
        void Unsigned(const char* n, uint64_t) override { Check(n); }
        void Real(const char* n, double) override { Check(n); }
        void Text(const char* n, const std::string&) override { Check(n); }
        void Null(const char* n) override { Check(n); }
        void BeginRecord(const char* n) override { Check(n), ++depth; }
        void BeginList(const char* n) override { Check(n), ++depth; }
        void End() override { --depth; }
    } names(name);
    CPtrOver empty;
    VisitFileHeader(empty, names);
    return names.found;
}

std::string Range(double lo, double hi) {
    char text[96];
    std::snprintf(text, sizeof(text), "an integer from %.0f to %.0f expected", lo, hi);
    return text;
}

}  // namespace

int IsSettableHeaderField(const std::string& name, int& count) {
    const Settable* s = FindSettable(name);
    count = s ? s->count : 0;
    return s != nullptr;
}

int SetHeaderField(CPtrOver& film, const std::string& name, int index, const HeaderValue& value, std::string& why) {
    const Settable* s = FindSettable(name);
    if (!s) {
        why = IsHeaderFieldName(name) ? "cannot be set by name" : "unknown header field";
        return 0;
    }
    if (s->count > 0 && (index < 0 || index >= s->count)) {
        why = "a list of at most " + std::to_string(s->count) + " items";
        return 0;
    }
    if (s->count == 0 && index != -1) {
        why = "a single value, not a list";
        return 0;
    }
    if (s->kind == Kind::kText) {
        if (!value.isText) {
            why = "a text expected";
            return 0;
        }
        if (value.text.size() > s->maxChars || value.text.find('\0') != std::string::npos) {
            why = "at most " + std::to_string(s->maxChars) + " characters, with no NUL";
            return 0;
        }
    } else {
        if (value.isText) {
            why = "a number expected";
            return 0;
        }
        const double v = value.number;
        if (s->kind == Kind::kInteger && (!(v >= s->lo && v <= s->hi) || std::trunc(v) != v)) {
            why = Range(s->lo, s->hi);
            return 0;
        }
        if (s->kind == Kind::kReal && !(v >= s->lo && v <= s->hi)) {
            char text[96];
            std::snprintf(text, sizeof(text), "a number from %g to %g expected", s->lo, s->hi);
            why = text;
            return 0;
        }
    }
    s->set(film, index < 0 ? 0 : index, value.number, value.text);
    return 1;
}

}  // namespace thermokit
