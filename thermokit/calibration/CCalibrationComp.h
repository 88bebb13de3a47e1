#pragma once
// A calibration compensated for the camera's own temperature. The law (or the
// curve) converts levels measured at the reference camera temperature of a
// CNUC calibration record; levels measured at another camera temperature are
// first brought back to the reference with the record's drift polynomials
// (see CCnucFile.h).
//
// The camera temperature is the one given to SetCameraTemperature (kelvin).
// The constructors start from the settings value named "TempCamera"
// (kCameraTemperatureValue, kelvin, in the setup key "Common Setup\Setup")
// when the store holds one; -999 (never set) means "no compensation".
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CCnucFile.h"

namespace thermokit {

class CCalibrationComp : public CCalibrationRBF {
    THERMOKIT_DECLARE_DYNAMIC(CCalibrationComp)

public:
    static constexpr const char* kCameraTemperatureValue = "TempCamera";
    static constexpr float kNoTemperature = -999.0f;

    CCalibrationComp(int extensionTypes, std::string cameraName);
    explicit CCalibrationComp(const _SCalibrationRBF& param);
    CCalibrationComp(const char* fileName, int* result);

    // Copies the record in (a null pointer removes the compensation); 1 when the record is usable.
    int SetCalibrationFactor(const CCnucFile::_CNUC_CALIBRATION* cal);
    // Copies the record out; 0 for a null pointer or when none was set.
    int GetCalibrationFactor(CCnucFile::_CNUC_CALIBRATION* cal) const;
    // 1 when a record is set and equals cal byte for byte.
    int IsCalibrationFactorEqual(const CCnucFile::_CNUC_CALIBRATION* cal) const;
    using CCalibrationRBF::IsCalibrationFactorEqual;

    // The level an object at temperature (degrees Celsius) gives at the current
    // camera temperature and at integration time `integration` (microseconds):
    // the compensated FindAbscisse, then scaled from the record's reference
    // integration time when the record allows it.
    int ConvTempDlToIt(float temperature, float integration, float* level, int extrapolate) const;

    // Stores the window; 1 when the record was measured on this window (or on any), else 0.
    int SetRectDetector(CRect rect) override;
    unsigned short GetSize() const override;
    float* GetCurveX() override;
    float* GetCurveY() override;
    int FindAbscisse(float temperature, float* level, int extrapolate = 1) const override;
    int Interpolate(float level, float* temperature, int extrapolate = 1) const override;
    // The law's signal of the level brought back to the reference camera temperature.
    int LevelToSignal(float level, double* signal) const override;
    // 2 while a compensation record is set (the camera temperature changes the conversion), else as the base.
    int GetCalibModifyParam() override;

    // Level drift and gain drift at the current camera temperature. 0 when no
    // compensation applies (no record, no camera temperature), or when the
    // camera temperature is outside the record's range and the record says so
    // (*usable is then 0).
    int GetDrift(double* drift, double* gain, int* usable) const;

private:
    void LoadStoredCameraTemperature();
    int m_bCnucCal = 0;
    CCnucFile::_CNUC_CALIBRATION m_CnucCal{};
};

}  // namespace thermokit
