#pragma once
// CNoise: each pixel's temporal noise, the root-mean-square deviation of a
// sequence of images from a mean image that the caller supplies (usually
// CAverage::GetDoubleBuffer over the same images).
//
// Assignment copies the object member-wise: the two objects then share their
// sum and noise buffers (accumulating into one changes the other's sums).
// The buffers are freed when the last object sharing them goes.
#include <cstdint>
#include <memory>

#include "thermokit/image/CFrame.h"

namespace thermokit {

class CNoise : public CFrame {
public:
    CNoise(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation);
    ~CNoise();
    CNoise(const CNoise&) = delete;
    CNoise& operator=(const CNoise& other);

    // Sums and noise 0, image count 0, not divided; the pixels are not touched.
    void Reset();
    // square[i] += (data[i] - mean[i])^2; 0 when n is not the size fixed at
    // construction (or a pointer is null). No weight, no masking.
    int Accumulate(unsigned short* data, long n, double* mean);
    int Accumulate(float* data, long n, double* mean);
    int Accumulate(double* data, long n, double* mean);
    int Accumulate(CFrame* frame, double* mean);

    // The noise image (recomputed on every call), null before any image.
    double* GetBuffer();
    uint32_t GetFrame() const { return m_nFrame; }
    // Writes the noise image as a double one-image film; returns 1 whatever
    // the save gave (0 only when there is nothing to save).
    int SaveNoise(const char* fileName, const char* text1, const char* text2);

protected:
    void Init(unsigned short point, unsigned short line);
    // noise[i] = sqrt(|square[i]| / count); 0 before any image.
    int Divide();

    double* m_pdSquare = nullptr;
    uint32_t m_nSize = 0;
    uint32_t m_nFrame = 0;
    int m_bDivided = 0;
    double* m_pdNoise = nullptr;

private:
    std::shared_ptr<double[]> m_spSquare;
    std::shared_ptr<double[]> m_spNoise;
};

}  // namespace thermokit
