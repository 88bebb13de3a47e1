#pragma once
// CLockin: lock-in demodulation of a periodically excited scene. Frame by
// frame, each pixel's level is correlated with the reference sine and cosine
// at the phase angle the caller gives: the in-phase (real) and quadrature
// (imaginary) sums grow with every frame. From them come the amplitude image
// (the module) and the phase image in degrees, optionally smoothed by a 3x3
// low-pass or median filter. The frame's point and line counts give the
// image size.
#include <cstdint>

#include "thermokit/image/CFrame.h"

namespace thermokit {

// Parameters of a demodulation, in this order.
struct DATA_LOCKIN {
    // Frames the camera takes per excitation period, and the periods of the
    // sequence: information for the recorder; the computations do not read them.
    int32_t nFramesPerPeriod;
    int32_t nPeriods;
    int bSubtractReference;  // subtract a per-pixel reference image first
    int bScaleModule;        // multiply the module by (dScaleA - dScaleB)
    double dScaleA;
    int bSignedModule;       // negate the module where |phase| > 90
    double dThreshold;       // phase only where the module exceeds this
    int nPhaseOffset;        // whole degrees
    double dPhaseOffset;     // degrees
    double dScaleB;
};

class CLockin : public CFrame {
public:
    // Filters of GetModule and GetPhase.
    enum : unsigned short { FILTER_NONE = 0, FILTER_LOWPASS = 1, FILTER_MEDIAN = 2 };

    CLockin(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation);
    ~CLockin();
    CLockin(const CLockin&) = delete;
    CLockin& operator=(const CLockin&) = delete;

    // Allocates the four per-pixel arrays (16-byte aligned) and resets.
    void Init();
    // Zeroes the frame counter, the sums and both done flags; resets the frame.
    void Reset();
    void SetParameters(DATA_LOCKIN* parameters);
    const DATA_LOCKIN& GetParameters() const { return m_Parameters; }

    // Adds a frame of count levels at the phase angle (radians). 0 when the
    // count differs from the frame's pixel count, or when the reference is
    // to be subtracted and none is given; the sums stay unchanged then.
    int Accumulate(unsigned short* levels, int32_t count, double angle, double* reference);
    int Accumulate(CFrame* frame, double angle, double* reference);

    // The module image (null before the first accumulation), computed again
    // unless the filter equals the last one and force is 0.
    double* GetModule(unsigned short filter, int force);
    // The phase image in degrees, same rules; 0 where the module does not
    // exceed the threshold.
    double* GetPhase(unsigned short filter, int force);
    // Writes the result through the frame's film saving (file name, two
    // texts); 0 when the result has not been calculated.
    int SaveModule(const char* fileName, const char* text1, const char* text2);
    int SavePhase(const char* fileName, const char* text1, const char* text2);

    uint32_t GetFrame() const { return m_nFrame; }
    int ModuleCalculated() const { return m_bModuleDone; }
    int PhaseCalculated() const { return m_bPhaseDone; }
    const double* GetReal() const {
        AddHeldFrames();
        return m_pReal;
    }
    const double* GetImag() const {
        AddHeldFrames();
        return m_pImag;
    }

    // The 3x3 filters, in place; images of fewer than 3 lines or points are
    // left as they are.
    static void LowPass(double* image, int point, int line);
    static void Median(double* image, int point, int line);

    // The reference angle of frame k of a film taken at frameRate frames a
    // second, demodulated at frequency (hertz): 2 pi frequency k / frameRate,
    // radians.
    static double ReferenceAngle(double frequency, unsigned long frame, double frameRate);

protected:
    double Module(int32_t i) const;
    double Phase(int32_t i) const;
    void ApplyFilter(double* image, unsigned short filter) const;

    double* m_pReal = nullptr;
    double* m_pImag = nullptr;
    double* m_pModule = nullptr;
    double* m_pPhase = nullptr;
    uint32_t m_nFrame = 0;
    int m_bModuleDone = 0;
    int m_bPhaseDone = 0;
    unsigned short m_nModuleFilter = 0;
    unsigned short m_nPhaseFilter = 0;
    int m_bSse = 0;
    int m_bSse2 = 0;
    DATA_LOCKIN m_Parameters{};

private:
    // Adds the frames held back to the sums.
    void AddHeldFrames() const;

    // Frames accumulated without a reference image are held back, up to
    // m_nHeldLimit of them (4, or kHeld for images of a million pixels and
    // more, whose sums no cache holds), and added to the sums in one pass:
    // each pixel's sums see the same additions in the same order, for a
    // third of the memory traffic or less. The sums are complete whenever
    // they or the results are read.
    static constexpr int kHeld = 8;
    mutable unsigned short* m_pHeld = nullptr;  // m_nHeldLimit frames of levels
    mutable double m_adHeldCos[kHeld] = {};
    mutable double m_adHeldSin[kHeld] = {};
    mutable int m_nHeld = 0;
    int m_nHeldLimit = 4;
};

}  // namespace thermokit
