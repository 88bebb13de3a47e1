#pragma once
// The fields of a film's file header and of one image header as JSON, name
// by name: what `info` prints and what the viewer's header panel shows.
#include <cstdio>
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/platform/CRect.h"

namespace thermokit::cli {

using Json = nlohmann::ordered_json;

inline std::string HexBytes(const unsigned char* p, size_t n) {
    std::string s;
    char b[4];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(b, sizeof(b), "%02x", p[i]);
        s += b;
    }
    return s;
}

inline Json FileHeader(CPtrOver& p) {
    Json j;
    const unsigned char* h = p.GetHeaderAddress();
    j["signature"] = p.GetSignature();
    j["version"] = p.GetVersion();
    j["header_size"] = p.GetHeaderSize();
    j["image_header_size"] = p.GetImageHeaderSize();
    j["record_words"] = p.GetRecordWords();
    j["pixel_type"] = CPtrOver::PixelBytes(h) == 8 ? "double" : "u16";
    j["pixel_count"] = p.GetSize();
    j["frames"] = p.GetFrameNumber();
    j["current_frame"] = p.GetCurrentFrame();
    CPtrOver::PTR_DATE d;
    p.GetDate(&d);
    CPtrOver::PTR_TIME t;
    p.GetTime(&t);
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u", d.year, d.month, d.day);
    j["date"] = text;
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u.%02u%u", t.hour, t.minute, t.second, t.hundredths,
                  p.GetThousandth());
    j["time"] = text;
    j["camera"] = p.GetCamera();
    j["lens"] = p.GetLens();
    Json filters = Json::array();
    for (int i = 0; i < PtrHeader::kFilterCount; ++i) filters.push_back(p.GetFilter(i));
    j["filters"] = filters;
    j["aperture_name"] = p.GetApertureName();
    j["billet_speed"] = p.GetBilletSpeed();
    j["billet_diameter"] = p.GetBilletDiameter();
    j["billet_shape"] = p.GetBilletShape();
    j["emissivity"] = p.GetEmissivity();
    j["ambient_temperature_K"] = p.GetAmbiantTemperature();
    j["distance"] = p.GetDistance();
    j["inductor_coil"] = p.GetInductorCoil();
    j["inductor_power"] = p.GetInductorPower();
    j["inductor_voltage"] = p.GetInductorVoltage();
    j["inductor_frequency"] = p.GetInductorFrequency();
    j["synchronisation"] = p.GetSynchronisation();
    j["transmission"] = p.GetTransmission();
    j["extinction"] = p.GetExtinction();
    j["atmosphere_temperature"] = p.GetAtmosphereTemperature();
    j["cut_on"] = p.GetCutOn();
    j["cut_off"] = p.GetCutOff();
    j["pixel_size"] = p.GetPixelSize();
    j["pixel_pitch"] = p.GetPixelPitch();
    j["aperture"] = p.GetAperture();
    j["focal_length"] = p.GetFocalLength();
    j["housing_temperature"] = {p.GetHousingTemperature(0), p.GetHousingTemperature(1)};
    j["serial"] = p.GetSerial();
    j["detector"] = p.GetDetector();
    j["detector_gain"] = p.GetDetectorGain();
    j["lut_min"] = p.GetMinLUT();
    j["lut_max"] = p.GetMaxLUT();
    j["special_unit"] = p.GetSpecialUnit();
    j["special_unit_name"] = p.GetSpecialUnitName();
    Json scale = Json::array();
    for (int i = 0; i < PtrHeader::kSpecialScaleCount; ++i) scale.push_back(load<float>(h, PtrHeader::kSpecialScale + 4 * i));
    j["special_scale"] = scale;
    j["zoom_x"] = p.GetZoomX();
    j["zoom_y"] = p.GetZoomY();
    j["point"] = p.GetPoint();
    j["line"] = p.GetLine();
    j["bit"] = p.GetBit();
    j["average"] = p.GetAverage();
    j["longitude"] = p.GetLongitude();
    j["latitude"] = p.GetLatitude();
    j["altitude"] = p.GetAltitude();
    j["external_sync"] = p.IsExternalSync();
    j["frame_period_s"] = p.GetFramePeriod();
    j["frame_rate_hz"] = p.GetFrameRate();
    Json integration = Json::array();
    for (int i = 0; i < PtrHeader::kIntegrationCount; ++i) integration.push_back(p.GetIntegration(i));
    j["integration_s"] = integration;
    j["integration_mode"] = p.GetIntegrationMode();
    j["window"] = p.GetWindow();
    j["nuc_index"] = p.GetNucIndex();
    j["comment"] = p.GetComment();
    std::string cal;
    j["calibration_file"] = p.GetFileCalibration(&cal) ? cal : std::string();
    j["file_tools"] = p.GetFileTools();
    unsigned short index = 0;
    unsigned char f1 = 0, f2 = 0;
    if (p.GetCurrentPalette(index, f1, f2)) j["palette"] = {{"index", index}, {"reversed", f1}, {"saturation", f2}};
    else j["palette"] = nullptr;
    if (p.GetIndexCurrentUnit(index)) j["unit_index"] = index;
    else j["unit_index"] = nullptr;
    int32_t sx = 0, sy = 0;
    p.GetZoomScrollPosition(sx, sy);
    j["zoom_scroll"] = {sx, sy};
    Json isotherms = Json::array();
    for (int i = 0; i < PtrHeader::kIsothermCount; ++i) {
        int on = 0;
        unsigned short lo = 0, hi = 0;
        uint32_t colour = 0;
        p.GetIsotherm(i, on, lo, hi, colour);
        std::snprintf(text, sizeof(text), "0x%08x", colour);
        isotherms.push_back({{"on", on}, {"low", lo}, {"high", hi}, {"colour", text}});
    }
    j["isotherms"] = isotherms;
    int zeroOn = 0;
    unsigned short zero = 0;
    p.GetZero(zeroOn, zero);
    j["zero"] = {{"on", zeroOn}, {"level", zero}};
    j["palette_width"] = p.GetPaletteWidth();
    j["palette_full_scale"] = p.GetPaletteFullScaleDisplay();
    j["km"] = p.GetKm();
    j["demodulation_frequency"] = p.GetDemodeFrequency();
    j["distance_offset"] = p.GetDistanceOffset();
    unsigned short pct = 0;
    const int histo = p.GetHistoEqualisation(pct);
    j["histo_equalisation"] = {{"on", histo}, {"percent", pct}};
    j["top_frame_valid"] = p.IsImageRealDriverTopFrameValid();
    j["sub_sampling"] = p.GetSubSampling();
    int fx = 0, fy = 0;
    if (p.GetCaptureFlip(fx, fy)) j["capture_flip"] = {fx, fy};
    else j["capture_flip"] = nullptr;
    j["capture_black_body"] = p.GetCaptureBlackBody();
    j["capture_filter_wheel"] = p.GetCaptureFilterWheel();
    j["capture_focal"] = p.GetCaptureFocal();
    j["lens_reference"] = p.GetLensReference();
    j["master_clock"] = p.GetMasterClock();
    j["play_speed"] = p.GetPlaySpeed();
    j["irigb_play"] = p.IsIRIGBPlay();
    _SCalibrationRBF law {};
    if (p.GetRBFCalibParam(&law))
        j["rbf_law"] = {{"type", +law.m_byType},   {"k", +law.m_fNonLinearity}, {"level_zero", +law.m_nLevelZero},
                        {"offset", +law.m_nOffset}, {"scale", +law.m_fScale},      {"non_linear", +law.m_wNonLinear},
                        {"R", +law.m_fR},           {"B", +law.m_fB},              {"F", +law.m_fF}};
    else j["rbf_law"] = nullptr;
    j["compensated_calibration"] = HexBytes(h + PtrHeader::kCompCalib, 16) + "...";
    return j;
}

inline Json ImageHeader(CPtrOver& p, double readTime) {
    Json j;
    CPtrOver::PTR_TIME t;
    p.GetImageTime(&t);
    char text[64];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u.%02u%u", t.hour, t.minute, t.second, t.hundredths,
                  p.GetImageThousandth());
    j["time"] = text;
    j["micro"] = p.GetImageMicro();
    j["frame_time_s"] = p.GetFrameTime();
    j["time_stamp_s"] = readTime;
    j["detector_temperature"] = p.GetImageDetectorTemp();
    Json sensors = Json::array();
    for (int i = 0; i < PtrImage::kSensorCount; ++i) sensors.push_back(p.GetImageSensorTemp(i));
    j["sensor_temperatures"] = sensors;
    CPtrOver::PTR_LOCKIN_DATA lk;
    p.GetImageLockinData(&lk);
    float frequency;
    std::memcpy(&frequency, &lk.dwFrequency, sizeof(frequency));
    j["lockin"] = {{"valid", +lk.wValid},     {"period_index", +lk.dwPeriodIndex}, {"period_frames", +lk.dwPeriodFrames},
                   {"signal", +lk.bySignal},  {"channel", +lk.byChannel},          {"mode", +lk.byMode},
                   {"frequency", frequency}, {"period_count", +lk.dwPeriodCount}};
    j["multi_integration"] = p.GetImageMultiIntegration();
    CRect r;
    p.GetSubWindowRect(&r);
    j["window"] = p.GetImageWindow();
    j["sub_window"] = {r.left, r.top, r.Width(), r.Height()};
    j["integration_s"] = p.GetImageIntegration();
    j["top_frame"] = load<uint64_t>(p.GetImageHeaderAddress(), PtrImage::kTopFrame);
    j["page"] = p.GetImagePage();
    j["camera_time_stamp"] = p.GetImageCameraTimeStamp();
    unsigned char mask = 0, year = 0, bytes[3] = {0, 0, 0};
    unsigned short day = 0;
    uint32_t micro = 0;
    p.GetImageIRIGB(mask, day, bytes, 3, micro, year);
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u", bytes[0], bytes[1], bytes[2]);
    j["irigb"] = {{"mask", mask}, {"day", day}, {"time", text}, {"micro", micro}, {"year", year}};
    return j;
}

}  // namespace thermokit::cli
