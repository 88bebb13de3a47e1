#pragma once
// CAverage: the weighted temporal mean of a sequence of images, pixel by
// pixel. The running sums are kept in double so that long sequences of 16-bit
// images lose nothing; the mean is produced on demand, both as doubles and as
// levels in the frame's own buffer (or the caller's, for the external form).
#include <cstdint>

#include "thermokit/image/CFrame.h"

namespace thermokit {

class CAverage : public CFrame {
public:
    CAverage(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation);
    // Over the caller's buffer: the mean in levels is written there.
    CAverage(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short bit,
             unsigned short rotation);
    ~CAverage();
    CAverage(const CAverage&) = delete;
    CAverage& operator=(const CAverage&) = delete;

    // ClearCounter, then every pixel 0.
    void Reset();
    // Weight sum 0, image count 0, not divided, sums and mean 0; pixels left alone.
    void ClearCounter();

    // Adds weight x value to every pixel's sum. Refused (0, nothing changed)
    // when weight is not above 0 or n is not the frame size. With bit 1..15
    // each level is first masked to that depth; 0 or 16 and above: as it is.
    int Accumulate(unsigned short* data, long n, unsigned short bit, double weight);
    // Floating-point images, never masked.
    int Accumulate(float* data, long n, double weight);
    int Accumulate(double* data, long n, double weight);
    int Accumulate(CFrame* frame, double weight);

    // The mean in levels (the frame's buffer), null when it cannot be formed.
    unsigned short* GetBuffer(int force);
    // The mean in doubles, null when it cannot be formed.
    double* GetDoubleBuffer(int force);
    uint32_t GetFrame() const { return m_nFrame; }
    // Writes the mean as a one-image film: levels, or doubles when asDouble.
    int SaveAverage(const char* fileName, const char* text1, const char* text2, int asDouble);

protected:
    void Init();
    // mean = sum / weight sum, and the levels by truncation toward zero.
    // 0 before any image (or with no positive weight); 1 at once when the mean
    // is up to date and force is 0.
    int Divide(int force);

    double* m_pdSum = nullptr;
    double* m_pdMean = nullptr;
    uint32_t m_nFrame = 0;
    int m_bDivided = 0;
    double m_dWeight = 0.0;

private:
    // Adds the 32-bit totals to the sums and clears them.
    void Fold();

    // Images of levels with weight 1.0, while the sums hold whole numbers
    // (m_bExact), are first totalled per pixel in 32 bits (m_nCounted of
    // them, at most kMaxCounted: 65537 x 65535 < 2^32) and added to the sums
    // when the mean is formed or another kind of image comes.
    static constexpr uint32_t kMaxCounted = 65536;
    uint32_t* m_pnCount = nullptr;
    uint32_t m_nCounted = 0;
    int m_bExact = 1;
    int m_bFoldEach = 0;
};

}  // namespace thermokit
