#pragma once
// A radiometric calibration: a curve of (X, Y) points, X the digital level and
// Y the calibrated quantity (labelled by the unit strings), with the context it
// was measured in. Two optional extensions let one file serve several cases:
// extended classes (for each Y, the level as a function of the camera's own
// temperature, from which the curve is regenerated) and lens formats (per lens
// and detector window, a gain and offset giving the levels of the curve).
//
// File layout ("EXP", "5.70"): see docs/formats.md, "Calibration files".
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "thermokit/platform/CObject.h"
#include "thermokit/platform/CRect.h"
#include "thermokit/platform/LastError.h"

namespace thermokit {

class File;

class CCalibration : public CObject, public LastError {
    THERMOKIT_DECLARE_DYNAMIC(CCalibration)

public:
    // Normal capacity of the curve: the arrays never hold fewer slots, and a
    // file always stores at least this many X and Y values.
    static constexpr int kMinPoints = 50;
    // Extension flags (header byte 47).
    static constexpr int kExtendedClasses = 0x01;
    static constexpr int kLensFormats = 0x02;
    static constexpr size_t kHeaderSize = 267;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kLensFormatSize = 26;

#pragma pack(push, 1)
    // A detector window.
    struct STRUCT_FORMAT {
        int16_t x;
        int16_t y;
        int16_t width;
        int16_t height;
    };

    // The file header, held whole at the start of the object.
    struct CALIBRATION_HEADER {
        char m_szTag[4];              // "EXP" and a zero byte
        uint8_t m_byReserved4;
        char m_szVersion[4];          // "5.70", no terminator
        uint8_t m_byReserved9;
        char m_szCamera[20];
        uint8_t m_byLensFormatSize;   // 26
        uint16_t m_wIntegration;
        uint16_t m_wFrameRate;
        float m_fAperture;
        float m_fBackground;
        float m_fHousingTemp;
        uint8_t m_byExtensionTypes;   // bit 0 extended classes, bit 1 lens formats
        uint8_t m_abyReserved48[89];
        uint16_t m_wYear;
        uint8_t m_byDay;
        uint8_t m_byMonth;
        char m_szLens[10];
        char m_szFilter[20];
        float m_fDistance;
        char m_szUnitX[10];
        char m_szUnitY[10];
        char m_szUnitLabelX[20];
        char m_szUnitLabelY[20];
        STRUCT_FORMAT m_Format;
        uint8_t m_abyReserved243[22];
        uint16_t m_wPoint;            // number of points n
    };

    // A lens format, in memory and in the file.
    struct LENS_FORMAT {
        char m_szLens[10];
        STRUCT_FORMAT m_Format;
        float m_fGain;
        float m_fOffset;
    };
#pragma pack(pop)

    // One extended class: for the Y value m_fKey, the level X measured at each
    // camera temperature (degrees Celsius, ascending). m_nCount slots are used;
    // a class made by Insert starts with fifty slots, one read from a file with
    // exactly its count.
    struct EXT_CLASS {
        float m_fKey = 0.0f;
        int32_t m_nCount = 0;
        std::vector<float> m_afCameraTemperature;
        std::vector<float> m_afX;
    };

    // How well ComputeConfigCoefficient's straight line fits.
    struct REGRESSION_QUALITY_PARAMS {
        int m_nPoints;           // points used in the fit
        double m_dR2;            // coefficient of determination (1 for a perfect fit)
        double m_dRms;           // root mean square of the residuals, in levels
        double m_dMaxResidual;   // largest absolute residual, in levels
        double m_dMeanX;         // mean of the fitted levels
    };

    // An empty calibration: tag, "5.70", the camera name, lens record size 26,
    // distance 1.0, flags = extensionTypes, today's date, no points.
    explicit CCalibration(std::string cameraName = std::string(), int extensionTypes = 0);
    // Same as above (lets a literal 0 choose this form).
    CCalibration(const char* cameraName, int extensionTypes);
    // Opens fileName; *result (when given) gets 0 when the file opened, 1 when it did not.
    CCalibration(const char* fileName, int* result);
    CCalibration(const CCalibration&) = default;
    CCalibration& operator=(const CCalibration&) = default;
    ~CCalibration() override;

    // Virtual operations, in slot order.
    // Stores t (kelvin); regenerates the curve from the extended classes when
    // there are any and t changed or force is set. Returns the validity.
    virtual int SetCameraTemperature(float t, int force);
    virtual float GetCameraTemperature() const;
    // X to Y; 0 when there are fewer than two points or the value is outside
    // the curve and extrapolate is 0.
    virtual int Interpolate(float x, float* y, int extrapolate = 1) const;
    // Y to X, same rule.
    virtual int FindAbscisse(float y, float* x, int extrapolate = 1) const;
    virtual unsigned short GetSize() const;
    virtual void SetIntegration(unsigned short integration);
    virtual void SetHousingTemp(float t);
    virtual float GetHousingTemp() const;
    virtual float* GetCurveX();
    virtual float* GetCurveY();
    // 2 when the calibration has extended classes (the camera temperature changes the curve), else 0.
    virtual int GetCalibModifyParam();
    virtual int SetRectDetector(CRect rect);

    // The radiometric signal: the quantity that grows in proportion to the
    // radiance reaching the detector, up to a constant. Radiations that add up
    // at the detector (an object, what it reflects, the air in between; see
    // CObjectParameters) add up in this quantity, so the object model works in
    // it. For a curve the signal is the level itself: a constant offset of the
    // levels cancels in the model's weighted sums. A radiometric law has a
    // signal of its own and overrides the three.
    // The signal of a level; 0 when the level has none (outside the law's domain).
    virtual int LevelToSignal(float level, double* signal) const;
    // The calibrated value (Y) of a signal and the signal of a value, by the
    // rule of Interpolate and FindAbscisse; 0 when there is none.
    virtual int SignalToValue(double signal, double* value, int extrapolate = 1) const;
    virtual int ValueToSignal(double value, double* signal, int extrapolate = 1) const;

    // Files.
    int Open(const char* fileName);
    int Save(const char* fileName);
    std::string GetFileName() const { return m_strFileName; }

    // Points.
    int IsEmpty() const { return m_Header.m_wPoint == 0; }
    int IsFull() const { return m_Header.m_wPoint >= kMinPoints; }
    int Add(float x, float y) { return Insert(m_Header.m_wPoint, x, y); }
    int Insert(unsigned short index, float x, float y);
    int Delete(unsigned short index);
    int Sort();
    void Reset();
    int GetSlew(float x, float* slope) const;
    int GetSlew(float x1, float x2, float* slope) const;
    int IsCompatible() const { return 1; }
    int IsValid() const { return m_bValid; }
    const float* GetCurveXCorrected() const { return m_pCurveXCorrected.data(); }

    // Context.
    void SetIntegration(float integration);
    float GetIntegration() const { return m_fIntegration; }
    void SetFrameRate(unsigned short rate) { m_Header.m_wFrameRate = rate; }
    unsigned short GetFrameRate() const { return m_Header.m_wFrameRate; }
    int SetFilterName(const std::string& name);
    std::string GetFilterName() const;
    void SetLens(const std::string& lens);  // cut to the field, never refused
    std::string GetLens() const;
    void SetDistance(float d) { m_Header.m_fDistance = d; }
    float GetDistance() const { return m_Header.m_fDistance; }
    void SetDate(int day, int month, int year);
    void GetDate(int* day, int* month, int* year) const;
    void SetCamera(const std::string& camera);  // cut to the field, never refused
    std::string GetCamera() const;
    void SetAperture(float a) { m_Header.m_fAperture = a; }
    float GetAperture() const { return m_Header.m_fAperture; }
    void SetBackground(float b) { m_Header.m_fBackground = b; }
    float GetBackground() const { return m_Header.m_fBackground; }
    int SetUnitX(const std::string& unit);
    std::string GetUnitX() const;
    int SetUnitY(const std::string& unit);
    std::string GetUnitY() const;
    int SetUnitLabelX(const std::string& label);
    std::string GetUnitLabelX() const;
    int SetUnitLabelY(const std::string& label);
    std::string GetUnitLabelY() const;
    void SetFormat(CRect rect) { m_Header.m_Format = CRectToFormat(rect); }
    CRect GetFormat() const { return FormatToCRect(m_Header.m_Format); }
    CRect GetRectDetector() const { return m_rcDetector; }
    const CALIBRATION_HEADER& GetHeader() const { return m_Header; }

    static STRUCT_FORMAT CRectToFormat(const CRect& rect);
    static CRect FormatToCRect(const STRUCT_FORMAT& format);

    // Extended classes.
    int IsExtended() const { return (m_Header.m_byExtensionTypes & kExtendedClasses) ? 1 : 0; }
    int GetExtensionTypes() const { return m_Header.m_byExtensionTypes; }
    int Add(float key, float cameraTemperature, float x) { return Insert(key, cameraTemperature, x, -1); }
    int Insert(float key, float cameraTemperature, float x, int index);
    void ResetExtended() { m_aExtClass.clear(); }
    int GetExtendedClassCount() const { return static_cast<int>(m_aExtClass.size()); }
    int GetExtendedClassElementCount(int cls) const;
    int GetCalibValue(int cls, int element, float& key, float& cameraTemperature, float& x) const;

    // Lens formats.
    int AddLensFormat(std::string lens, CRect format, float gain, float offset);
    int InsertLensFormat(int index, std::string lens, CRect format, float gain, float offset);
    int AddLensFormat(std::string lens, CRect format, CCalibration* reference,
                      REGRESSION_QUALITY_PARAMS* quality = nullptr);
    int InsertLensFormat(int index, std::string lens, CRect format, CCalibration* reference,
                         REGRESSION_QUALITY_PARAMS* quality = nullptr);
    // Least-squares line giving, for each point of this curve, the level the
    // reference calibration gives for the same Y: level = gain * Y + offset,
    // the form SetCurrentConfig applies. 0 when it cannot be fitted.
    int ComputeConfigCoefficient(CCalibration* reference, float& gain, float& offset,
                                 REGRESSION_QUALITY_PARAMS* quality = nullptr);
    int DeleteLensFormat(int index);
    int SearchLensFormat(std::string lens, CRect format) const;
    void ResetLensExtended() { m_aLensFormat.clear(); m_nCurrentConfig = -1; }
    int GetLensExtendedClassCount() const { return static_cast<int>(m_aLensFormat.size()); }
    std::string GetLens(int index) const;
    CRect GetFormat(int index) const;
    int GetConfigTransfo(int index, float& gain, float& offset) const;
    int GetConfigName(std::vector<std::string>& names) const;
    int SetCurrentConfig(int index);
    int GetCurrentConfig() const { return m_nCurrentConfig; }

protected:
    // The abscissae in use: the corrected levels while a lens format is selected.
    const float* ActiveX() const;
    // The shared rule of Interpolate and FindAbscisse over n points.
    static int InterpolateArrays(const float* abscissae, const float* ordinates, int n, float value,
                                 float* result, int extrapolate);
    // Rebuilds the curve from the extended classes at camera temperature t (kelvin).
    int Regenerate(float t);
    // Makes every curve array hold at least `slots` floats, new slots zeroed.
    void EnsureSlots(size_t slots);

    CALIBRATION_HEADER m_Header;
    uint8_t m_ExtClassHeader[kBlockSize];
    uint8_t m_LensHeader[kBlockSize];
    std::vector<EXT_CLASS> m_aExtClass;
    std::vector<LENS_FORMAT> m_aLensFormat;
    int m_bValid = 1;
    float m_fCameraTemperature = -999.0f;
    std::vector<float> m_pCurveX;
    std::vector<float> m_pCurveY;
    int m_nCurrentConfig = -1;
    std::vector<float> m_pCurveXCorrected;
    CRect m_rcDetector;
    std::string m_strFileName;
    float m_fIntegration = 0.0f;

private:
    void InitEmpty(const std::string& cameraName, int extensionTypes);
    // Reads the parts after the header; false with a message text on a bad file.
    bool ReadBody(File& file, std::string& error);
};

static_assert(sizeof(CCalibration::STRUCT_FORMAT) == 8);
static_assert(sizeof(CCalibration::LENS_FORMAT) == CCalibration::kLensFormatSize);
static_assert(offsetof(CCalibration::LENS_FORMAT, m_Format) == 10);
static_assert(offsetof(CCalibration::LENS_FORMAT, m_fGain) == 18);
static_assert(offsetof(CCalibration::LENS_FORMAT, m_fOffset) == 22);
static_assert(sizeof(CCalibration::CALIBRATION_HEADER) == CCalibration::kHeaderSize);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byReserved4) == 4);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szVersion) == 5);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byReserved9) == 9);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szCamera) == 10);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byLensFormatSize) == 30);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_wIntegration) == 31);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_wFrameRate) == 33);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_fAperture) == 35);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_fBackground) == 39);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_fHousingTemp) == 43);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byExtensionTypes) == 47);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_abyReserved48) == 48);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_wYear) == 137);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byDay) == 139);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_byMonth) == 140);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szLens) == 141);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szFilter) == 151);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_fDistance) == 171);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szUnitX) == 175);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szUnitY) == 185);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szUnitLabelX) == 195);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_szUnitLabelY) == 215);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_Format) == 235);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_abyReserved243) == 243);
static_assert(offsetof(CCalibration::CALIBRATION_HEADER, m_wPoint) == 265);

}  // namespace thermokit
