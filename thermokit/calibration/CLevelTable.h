#pragma once
// Whole frames of levels to calibrated values. A calibration's conversion
// depends on the level only, so one value per level 0..maxLevel, computed
// once, serves every pixel. The table holds, for each level, what
// CObjectParameters::Convert gives for it: with the default parameters (a
// black body) exactly the value of the calibration's virtual Interpolate;
// with others the object temperature of the measurement model. Building with
// object parameters costs one more solve per level, converting a frame costs
// the same.
//
// Levels are first masked with maxLevel (2^bit - 1), as every input level.
// A level does not convert, and the output is the table's fail value (quiet
// NaN unless another is given), where Interpolate fails (fewer than two
// points, a level outside the curve without extrapolation, level 0 through a
// law), where the level has no signal (through a law: the levels whose signal
// is not above the law's zero, which Interpolate itself turns into -273.15),
// where the result is not finite, and where the object parameters leave no
// solution.
#include <cstdint>
#include <limits>
#include <vector>

namespace thermokit {

class CCalibration;
class CFrame;
class CObjectParameters;

class CLevelTable {
public:
    static constexpr float kDefaultFail = std::numeric_limits<float>::quiet_NaN();

    CLevelTable() = default;
    CLevelTable(const CCalibration& calibration, unsigned short maxLevel, int extrapolate = 1,
                float failValue = kDefaultFail) {
        Build(calibration, maxLevel, extrapolate, failValue);
    }

    CLevelTable(const CCalibration& calibration, const CObjectParameters& parameters, unsigned short maxLevel,
                int extrapolate = 1, float failValue = kDefaultFail) {
        Build(calibration, parameters, maxLevel, extrapolate, failValue);
    }

    // One conversion per level 0..maxLevel. Rebuild after the calibration
    // changes (points, lens format, camera temperature).
    void Build(const CCalibration& calibration, unsigned short maxLevel, int extrapolate = 1,
               float failValue = kDefaultFail);
    void Build(const CCalibration& calibration, const CObjectParameters& parameters, unsigned short maxLevel,
               int extrapolate = 1, float failValue = kDefaultFail);

    // out[i] = table[levels[i] & maxLevel] for i < n. Nothing when the table is empty or n <= 0.
    // Safe to call from several threads at once.
    void Apply(const unsigned short* levels, long n, float* out) const;

    // Value of one level (masked); 1 when the level converted.
    float Value(unsigned short level) const { return m_afValue[level & m_wMaxLevel]; }
    int Succeeded(unsigned short level) const { return m_abOk[level & m_wMaxLevel]; }
    unsigned short GetMaxLevel() const { return m_wMaxLevel; }
    bool IsEmpty() const { return m_afValue.empty(); }

private:
    // Fills m_afLookup from m_afValue; every way of filling the values ends with it.
    void Expand();

    std::vector<float> m_afValue;
    // The values again for every 16-bit level (that level & maxLevel), so that
    // Apply's loop needs no mask (a tenth faster); empty when m_afValue already
    // covers them.
    std::vector<float> m_afLookup;
    std::vector<uint8_t> m_abOk;
    unsigned short m_wMaxLevel = 0;
};

// Converts n levels through calibration into out, by the rule above (levels
// masked with maxLevel, failValue where a level does not convert). Builds a
// level table when the frame is larger than the table, otherwise converts
// pixel by pixel; both give the same values.
void ConvertLevels(const CCalibration& calibration, const unsigned short* levels, long n, unsigned short maxLevel,
                   float* out, int extrapolate = 1, float failValue = CLevelTable::kDefaultFail);
void ConvertLevels(const CCalibration* calibration, const unsigned short* levels, long n, unsigned short maxLevel,
                   float* out, int extrapolate = 1, float failValue = CLevelTable::kDefaultFail);
// The same with object parameters.
void ConvertLevels(const CCalibration& calibration, const CObjectParameters& parameters, const unsigned short* levels,
                   long n, unsigned short maxLevel, float* out, int extrapolate = 1,
                   float failValue = CLevelTable::kDefaultFail);
// A whole frame: Point x Line values into out, levels masked with the frame's maximal level.
void ConvertFrame(const CCalibration& calibration, const CFrame& frame, float* out, int extrapolate = 1,
                  float failValue = CLevelTable::kDefaultFail);

}  // namespace thermokit
