#include "thermokit/image/CNoise.h"

#include <cmath>

#include "thermokit/image/PixelKernels.h"

namespace thermokit {

CNoise::CNoise(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation)
    : CFrame(point, line, bit, rotation, 0) {
    Init(point, line);
}

CNoise::~CNoise() = default;  // the shared owners free the buffers with array delete

void CNoise::Init(unsigned short point, unsigned short line) {
    m_nSize = static_cast<uint32_t>(point) * line;
    m_spSquare = std::shared_ptr<double[]>(new double[m_nSize]);
    m_spNoise = std::shared_ptr<double[]>(new double[m_nSize]);
    m_pdSquare = m_spSquare.get();
    m_pdNoise = m_spNoise.get();
    Reset();
}

CNoise& CNoise::operator=(const CNoise& other) {
    if (this == &other) return *this;
    // The frame part: same geometry, depth, rotation, mode, pixels and time.
    Copy(const_cast<CNoise*>(&other));
    // The accumulator part, member-wise: the buffers become shared.
    m_spSquare = other.m_spSquare;
    m_spNoise = other.m_spNoise;
    m_pdSquare = other.m_pdSquare;
    m_nSize = other.m_nSize;
    m_nFrame = other.m_nFrame;
    m_bDivided = other.m_bDivided;
    m_pdNoise = other.m_pdNoise;
    return *this;
}

void CNoise::Reset() {
    for (uint32_t i = 0; i < m_nSize; ++i) m_pdSquare[i] = 0.0;
    for (uint32_t i = 0; i < m_nSize; ++i) m_pdNoise[i] = 0.0;
    m_nFrame = 0;
    m_bDivided = 0;
}

int CNoise::Accumulate(unsigned short* data, long n, double* mean) {
    if (n != static_cast<long>(m_nSize) || !data || !mean) return 0;
    kernels::Pixel().squaresLevels(m_pdSquare, data, mean, m_nSize);
    ++m_nFrame;
    m_bDivided = 0;
    return 1;
}

int CNoise::Accumulate(float* data, long n, double* mean) {
    if (n != static_cast<long>(m_nSize) || !data || !mean) return 0;
    kernels::Pixel().squaresFloats(m_pdSquare, data, mean, m_nSize);
    ++m_nFrame;
    m_bDivided = 0;
    return 1;
}

int CNoise::Accumulate(double* data, long n, double* mean) {
    if (n != static_cast<long>(m_nSize) || !data || !mean) return 0;
    kernels::Pixel().squaresDoubles(m_pdSquare, data, mean, m_nSize);
    ++m_nFrame;
    m_bDivided = 0;
    return 1;
}

int CNoise::Accumulate(CFrame* frame, double* mean) {
    if (!frame) return 0;
    return Accumulate(frame->GetBuffer(), frame->GetSize(), mean);
}

int CNoise::Divide() {
    if (m_nFrame == 0) return 0;
    const double count = static_cast<double>(m_nFrame);
    for (uint32_t i = 0; i < m_nSize; ++i) m_pdNoise[i] = std::sqrt(std::fabs(m_pdSquare[i]) / count);
    m_bDivided = 1;
    return 1;
}

double* CNoise::GetBuffer() { return Divide() ? m_pdNoise : nullptr; }

int CNoise::SaveNoise(const char* fileName, const char* text1, const char* text2) {
    if (!m_bDivided) {
        const int divided = Divide();
        if (!divided) return divided;
    }
    Save(fileName, m_pdNoise, text1, text2);  // its result is deliberately not passed on
    return 1;
}

}  // namespace thermokit
