#pragma once
// A calibration file checked on opening and driven by the housing
// temperature: the file must carry the tag and version, a sane curve and sane
// extensions (ValidateCalibFile), and the curve is regenerated from the
// extended classes at the housing temperature (degrees Celsius).
//
// In a configured installation the camera temperature comes from the settings
// value named "TempCamera" (kCameraTemperatureValue); the application passes
// it to SetCameraTemperature (kelvin) or SetHousingTemperature (Celsius).
#include <string>

#include "thermokit/calibration/CCalibration.h"

namespace thermokit {

class CCalibrationEx : public CCalibration {
    THERMOKIT_DECLARE_DYNAMIC(CCalibrationEx)

public:
    static constexpr const char* kCameraTemperatureValue = "TempCamera";
    // Limits of a sane file.
    static constexpr int kMaxPoints = 4096;
    static constexpr int kMaxClasses = 1024;
    static constexpr int kMaxClassSamples = 4096;
    static constexpr int kMaxLensFormats = 1024;

    // Opens and checks fileName; *result (when given) gets 0 when the file
    // opened and passed the checks, 1 otherwise (as the base class).
    CCalibrationEx(const char* fileName, int* result);

    // Stores the housing temperature (degrees Celsius) and regenerates the
    // curve at it; returns the validity.
    int SetHousingTemperature(float celsius);

    // Why the last check failed ("" when it passed).
    const std::string& GetValidationError() const { return m_strValidation; }

protected:
    // 1 when the opened file is sound: tag "EXP", version "5.70", lens record
    // size 26, only known extension flags, at most kMaxPoints points with
    // strictly monotonic X and Y (at least two points unless extended classes
    // carry the curve), classes in strictly ascending key order each with
    // 1..kMaxClassSamples samples at strictly ascending camera temperatures,
    // and lens names terminated within their field.
    int ValidateCalibFile();

private:
    int Invalid(const std::string& why) {
        m_strValidation = why;
        return SetLastError(ErrorKind::Format, "not a usable calibration (" + why + ")");
    }
    std::string m_strValidation;
};

}  // namespace thermokit
