#pragma once
// A calibration given by a closed-form radiometric law instead of a curve:
// level -> signal (linear or non-linear response), signal -> temperature by
// T = B / ln(R / S + F). The constants travel in _SCalibrationRBF, which the
// film header also keeps so that each film carries its own law.
//
// Without a law (built from a file or a camera name) it behaves exactly as
// the curve calibration it derives from.
#include <cstddef>
#include <cstdint>
#include <string>

#include "thermokit/calibration/CCalibration.h"

namespace thermokit {

#pragma pack(push, 1)
struct _SCalibrationRBF {
    uint8_t m_byType;          // kind of record
    float m_fNonLinearity;     // k, curvature of the level response
    int32_t m_nLevelZero;      // level origin of the non-linear response
    int32_t m_nOffset;         // level offset
    float m_fScale;            // signal per level
    uint16_t m_wNonLinear;     // 0 linear level law, otherwise non-linear
    uint16_t m_wParam19;
    uint16_t m_wParam21;
    float m_fR;                // response constant
    float m_fB;                // spectral temperature constant, K
    float m_fF;                // form constant
    float m_fParam35;          // further constants, carried and compared
    float m_fParam39;
    float m_fParam43;
    float m_fParam47;
    float m_fParam51;
    float m_fParam55;
    float m_fParam59;
    float m_fParam63;
    float m_fParam67;
    float m_fParam71;
    float m_fParam75;

    // The film header keeps a 44-byte copy of the record. Its layout:
    //   bytes 0..34  the 35 bytes of named fields (m_byType .. m_fF), as in the record;
    //   bytes 35..38 m_fParam35; bytes 39..42 m_fParam39;
    //   byte 43      1 when the block holds a law written by ToFilmBlock, 0 in
    //                a cleared header (a film without a law).
    // m_fParam43 .. m_fParam75 do not travel with the film.
    static constexpr size_t kFilmBlockSize = 44;
    static constexpr size_t kFilmBlockPresent = 43;
    void ToFilmBlock(uint8_t out[kFilmBlockSize]) const;
    // Fills the record from a film block (the parameters it does not carry
    // become 0); returns the presence byte (1 law present, 0 none).
    int FromFilmBlock(const uint8_t in[kFilmBlockSize]);
};
#pragma pack(pop)

static_assert(sizeof(_SCalibrationRBF) == 79);
static_assert(offsetof(_SCalibrationRBF, m_fNonLinearity) == 1);
static_assert(offsetof(_SCalibrationRBF, m_nLevelZero) == 5);
static_assert(offsetof(_SCalibrationRBF, m_nOffset) == 9);
static_assert(offsetof(_SCalibrationRBF, m_fScale) == 13);
static_assert(offsetof(_SCalibrationRBF, m_wNonLinear) == 17);
static_assert(offsetof(_SCalibrationRBF, m_wParam19) == 19);
static_assert(offsetof(_SCalibrationRBF, m_wParam21) == 21);
static_assert(offsetof(_SCalibrationRBF, m_fR) == 23);
static_assert(offsetof(_SCalibrationRBF, m_fB) == 27);
static_assert(offsetof(_SCalibrationRBF, m_fF) == 31);
static_assert(offsetof(_SCalibrationRBF, m_fParam35) == 35);
static_assert(offsetof(_SCalibrationRBF, m_fParam39) == 39);
static_assert(offsetof(_SCalibrationRBF, m_fParam43) == 43);
static_assert(offsetof(_SCalibrationRBF, m_fParam47) == 47);
static_assert(offsetof(_SCalibrationRBF, m_fParam51) == 51);
static_assert(offsetof(_SCalibrationRBF, m_fParam55) == 55);
static_assert(offsetof(_SCalibrationRBF, m_fParam59) == 59);
static_assert(offsetof(_SCalibrationRBF, m_fParam63) == 63);
static_assert(offsetof(_SCalibrationRBF, m_fParam67) == 67);
static_assert(offsetof(_SCalibrationRBF, m_fParam71) == 71);
static_assert(offsetof(_SCalibrationRBF, m_fParam75) == 75);

class CCalibrationRBF : public CCalibration {
    THERMOKIT_DECLARE_DYNAMIC(CCalibrationRBF)

public:
    static constexpr double kKelvin = 273.15;
    static constexpr double kMaxExponent = 709.78;
    static constexpr double kMinExpRatio = 1.0002;
    static constexpr double kMinDivisor = 1e-10;
    static constexpr double kMinNonLinearDenominator = 0.0001;
    static constexpr double kPoleSignal = 100000.0;
    static constexpr int kMinLevel = 1;
    static constexpr int kMaxLevel = 65535;

    // With a law.
    explicit CCalibrationRBF(const _SCalibrationRBF& param);
    // Without a law: as the curve calibration's constructors.
    CCalibrationRBF(const char* fileName, int* result);
    explicit CCalibrationRBF(std::string cameraName, int extensionTypes = 0);
    CCalibrationRBF(const char* cameraName, int extensionTypes);

    // 0 for a null pointer; 1 when every member is equal (floats compared with ==).
    int IsCalibrationFactorEqual(const _SCalibrationRBF* param) const;

    // With a law: level -> degrees Celsius (the extrapolation flag is ignored).
    int Interpolate(float level, float* temperature, int extrapolate = 1) const override;
    // With a law: degrees Celsius -> level.
    int FindAbscisse(float temperature, float* level, int extrapolate = 1) const override;
    // With a law: the first two X are recomputed from their Y, clamped to [0, 65536].
    float* GetCurveX() override;

    // The law's signal (imgToPow) is the radiometric signal: LevelToSignal is
    // 0 where it is not above 0 (level 0, and the levels below the law's zero,
    // which Interpolate turns into -273.15); SignalToValue gives degrees Celsius
    // and is 0 where the result is not finite. Without a law, the base's.
    int LevelToSignal(float level, double* signal) const override;
    int SignalToValue(double signal, double* value, int extrapolate = 1) const override;
    int ValueToSignal(double value, double* signal, int extrapolate = 1) const override;

    // Why a law cannot give temperatures: the first field that is not a
    // finite number, or that makes the law degenerate (R, B or the scale not
    // above 0), named as in the record; empty when the law is usable.
    static std::string CheckLaw(const _SCalibrationRBF& law);

    int HasLaw() const { return m_bLaw; }
    const _SCalibrationRBF& GetRBFParam() const { return m_Param; }

    // The law's steps; public so that tools and tests can follow a conversion.
    double imgToPow(int level, int offset, float scale) const;
    unsigned short powToImg(double signal, int offset, float scale) const;
    unsigned short tempToImg(double kelvin) const;
    double imgToDblTemp(int level) const;
    double tempToObjSig(double kelvin) const;
    double objSigToDblTemp(double signal) const;

protected:
    int m_bLaw = 0;
    _SCalibrationRBF m_Param{};
};

}  // namespace thermokit
