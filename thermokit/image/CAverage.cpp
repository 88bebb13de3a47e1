#include "thermokit/image/CAverage.h"

#include <cmath>
#include <cstring>
#include <new>

#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/AlignedBuffer.h"

namespace thermokit {

namespace {

// A double mean to a level: truncated toward zero, then its low 16 bits (as
// a 32-bit integer conversion gives); what no 32-bit integer holds becomes 0.
inline unsigned short ToLevel(double v) {
    const double t = std::trunc(v);
    if (!(t > -2147483649.0 && t < 2147483648.0)) return 0;
    return static_cast<unsigned short>(static_cast<uint32_t>(static_cast<int32_t>(t)));
}

}  // namespace

CAverage::CAverage(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation)
    : CFrame(point, line, bit, rotation, 0) {
    Init();
}

CAverage::CAverage(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short bit,
                   unsigned short rotation)
    : CFrame(buffer, point, line, bit, rotation, 0) {
    Init();
}

CAverage::~CAverage() {
    AlignedFree(m_pdSum);
    AlignedFree(m_pdMean);
    AlignedFree(m_pnCount);
}

void CAverage::Init() {
    const size_t bytes = static_cast<size_t>(GetSize()) * sizeof(double);
    m_pdSum = static_cast<double*>(AlignedAlloc(bytes, 64));
    m_pdMean = static_cast<double*>(AlignedAlloc(bytes, 64));
    m_pnCount = static_cast<uint32_t*>(AlignedAlloc(static_cast<size_t>(GetSize()) * sizeof(uint32_t), 64));
    if (!m_pdSum || !m_pdMean || !m_pnCount) throw std::bad_alloc();
    Reset();
}

void CAverage::ClearCounter() {
    m_dWeight = 0.0;
    m_nFrame = 0;
    m_bDivided = 0;
    const size_t n = static_cast<size_t>(GetSize());
    for (size_t i = 0; i < n; ++i) m_pdSum[i] = 0.0;
    for (size_t i = 0; i < n; ++i) m_pdMean[i] = 0.0;
    std::memset(m_pnCount, 0, n * sizeof(uint32_t));
    m_nCounted = 0;
    m_bExact = 1;
    m_bFoldEach = 0;
}

void CAverage::Fold() {
    if (m_nCounted == 0) return;
    kernels::Pixel().foldCounts(m_pdSum, m_pnCount, GetSize());
    m_nCounted = 0;
}

void CAverage::Reset() {
    ClearCounter();
    CFrame::Reset();
}

int CAverage::Accumulate(unsigned short* data, long n, unsigned short bit, double weight) {
    if (!(weight > 0.0) || n != GetSize() || !data) return 0;
    const unsigned short mask =
        (bit >= 1 && bit <= 15) ? static_cast<unsigned short>(0xFFFFu >> (16 - bit)) : static_cast<unsigned short>(0xFFFF);
    if (weight == 1.0 && m_bExact && !m_bFoldEach) {
        // The sums hold whole numbers below 2^53, where every double addition
        // of a level is exact: adding the levels in 32 bits first, then their
        // total, gives the same sums with a fifth of the memory traffic.
        if (m_nCounted == kMaxCounted) Fold();
        kernels::Pixel().countLevels(m_pnCount, data, n, mask);
        ++m_nCounted;
    } else {
        Fold();
        kernels::Pixel().accumulateLevels(m_pdSum, data, n, mask, weight);
        if (weight != 1.0) m_bExact = 0;
    }
    ++m_nFrame;
    m_dWeight += weight;
    m_bDivided = 0;
    return 1;
}

int CAverage::Accumulate(float* data, long n, double weight) {
    if (!(weight > 0.0) || n != GetSize() || !data) return 0;
    Fold();
    m_bExact = 0;
    kernels::Pixel().accumulateFloats(m_pdSum, data, n, weight);
    ++m_nFrame;
    m_dWeight += weight;
    m_bDivided = 0;
    return 1;
}

int CAverage::Accumulate(double* data, long n, double weight) {
    if (!(weight > 0.0) || n != GetSize() || !data) return 0;
    Fold();
    m_bExact = 0;
    kernels::Pixel().accumulateDoubles(m_pdSum, data, n, weight);
    ++m_nFrame;
    m_dWeight += weight;
    m_bDivided = 0;
    return 1;
}

int CAverage::Accumulate(CFrame* frame, double weight) {
    if (!frame) return 0;
    return Accumulate(frame->GetBuffer(), frame->GetSize(), frame->GetBit(), weight);
}

int CAverage::Divide(int force) {
    if (m_nFrame == 0 || !(m_dWeight > 0.0)) return 0;
    if (m_bDivided && !force) return 1;
    m_bDivided = 1;
    // A mean asked for after (almost) every image: from now on the images go
    // straight into the sums, without the 32-bit totals in between.
    if (m_nCounted == 1) m_bFoldEach = 1;
    Fold();
    const long n = GetSize();
    for (long i = 0; i < n; ++i) m_pdMean[i] = m_pdSum[i] / m_dWeight;
    if (m_pBuffer)
        for (long i = 0; i < n; ++i) m_pBuffer[i] = ToLevel(m_pdMean[i]);
    return 1;
}

unsigned short* CAverage::GetBuffer(int force) { return Divide(force) ? m_pBuffer : nullptr; }

double* CAverage::GetDoubleBuffer(int force) { return Divide(force) ? m_pdMean : nullptr; }

int CAverage::SaveAverage(const char* fileName, const char* text1, const char* text2, int asDouble) {
    if (!m_bDivided) {
        const int divided = Divide(0);
        if (!divided) return divided;
    }
    return Save(fileName, asDouble ? m_pdMean : nullptr, text1, text2);
}

}  // namespace thermokit
