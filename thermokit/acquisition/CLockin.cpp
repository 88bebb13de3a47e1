#include "thermokit/acquisition/CLockin.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "thermokit/acquisition/LockinKernels.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/CpuFeatures.h"
#include "thermokit/platform/KernelTable.h"

namespace thermokit {

namespace kernels {
THERMOKIT_DEFINE_KERNELS(LockinKernels, Lockin)
}  // namespace kernels

namespace {

// Recomputes a result image (value(i) at each of the n pixels, then filter) unless it already holds
// the result for this filter; done and lastFilter record what it holds.
template <class Value, class Filter>
void Refresh(double* image, int32_t n, unsigned short filter, int force, unsigned short& lastFilter, int& done,
             Value value, Filter applyFilter) {
    if (filter != lastFilter || force) done = 0;
    if (done) return;
    for (int32_t i = 0; i < n; ++i) image[i] = value(i);
    applyFilter(image, filter);
    lastFilter = filter;
    done = 1;
}

}  // namespace

double CLockin::ReferenceAngle(double frequency, unsigned long frame, double frameRate) {
    return 2.0 * M_PI * frequency * static_cast<double>(frame) / frameRate;
}

CLockin::CLockin(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation)
    : CFrame(point, line, bit, rotation, 0) {
    // What the processor offers, as recorded; the accumulation runs the
    // kernel variant the dispatcher chose, which gives the same sums.
    m_bSse = CpuFeatures::Get().sse ? 1 : 0;
    m_bSse2 = CpuFeatures::Get().sse2 || CpuFeatures::Get().neon ? 1 : 0;
    Init();
}

CLockin::~CLockin() {
    AlignedFree(m_pReal);
    AlignedFree(m_pImag);
    AlignedFree(m_pModule);
    AlignedFree(m_pPhase);
    AlignedFree(m_pHeld);
}

void CLockin::Init() {
    AlignedFree(m_pReal);
    AlignedFree(m_pImag);
    AlignedFree(m_pModule);
    AlignedFree(m_pPhase);
    AlignedFree(m_pHeld);
    m_nHeldLimit = GetSize() >= (1L << 20) ? kHeld : 4;
    m_pHeld = static_cast<unsigned short*>(
        AlignedAlloc(static_cast<size_t>(m_nHeldLimit) * static_cast<size_t>(GetSize()) * sizeof(unsigned short)));
    const size_t bytes = static_cast<size_t>(GetSize()) * sizeof(double);
    m_pReal = static_cast<double*>(AlignedAlloc(bytes));
    m_pImag = static_cast<double*>(AlignedAlloc(bytes));
    m_pModule = static_cast<double*>(AlignedAlloc(bytes));
    m_pPhase = static_cast<double*>(AlignedAlloc(bytes));
    if (m_pModule) std::memset(m_pModule, 0, bytes);
    if (m_pPhase) std::memset(m_pPhase, 0, bytes);
    Reset();
}

void CLockin::Reset() {
    m_nHeld = 0;
    m_nFrame = 0;
    m_bModuleDone = 0;
    m_bPhaseDone = 0;
    const size_t bytes = static_cast<size_t>(GetSize()) * sizeof(double);
    if (m_pReal) std::memset(m_pReal, 0, bytes);
    if (m_pImag) std::memset(m_pImag, 0, bytes);
    CFrame::Reset();
}

void CLockin::SetParameters(DATA_LOCKIN* parameters) {
    if (parameters) m_Parameters = *parameters;
    m_bModuleDone = 0;
    m_bPhaseDone = 0;
}

int CLockin::Accumulate(unsigned short* levels, int32_t count, double angle, double* reference) {
    if (count != GetSize() || (count > 0 && (!levels || !m_pReal || !m_pImag))) return 0;
    const double* ref = nullptr;
    if (m_Parameters.bSubtractReference) {
        if (!reference && count > 0) return 0;
        ref = reference;
    }
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    if (!ref && m_pHeld && count > 0) {
        // Frames that no cache holds go round it (no read before the write).
        auto* held = reinterpret_cast<unsigned char*>(m_pHeld + static_cast<size_t>(m_nHeld) * static_cast<size_t>(count));
        const size_t bytes = static_cast<size_t>(count) * sizeof(unsigned short);
        if (m_nHeldLimit == kHeld)
            kernels::Pixel().copyStreaming(held, reinterpret_cast<const unsigned char*>(levels), bytes);
        else
            std::memcpy(held, levels, bytes);
        m_adHeldCos[m_nHeld] = c;
        m_adHeldSin[m_nHeld] = s;
        if (++m_nHeld == m_nHeldLimit) AddHeldFrames();
    } else {
        AddHeldFrames();
        kernels::Lockin().accumulate(levels, ref, count, c, s, m_pReal, m_pImag);
    }
    ++m_nFrame;
    m_bModuleDone = 0;
    m_bPhaseDone = 0;
    return 1;
}

int CLockin::Accumulate(CFrame* frame, double angle, double* reference) {
    if (!frame) return 0;
    return Accumulate(frame->GetBuffer(), static_cast<int32_t>(frame->GetSize()), angle, reference);
}

void CLockin::AddHeldFrames() const {
    if (m_nHeld == 0) return;
    kernels::Lockin().accumulateHeld(m_pHeld, m_nHeld, m_adHeldCos, m_adHeldSin, static_cast<int32_t>(GetSize()),
                                     m_pReal, m_pImag);
    m_nHeld = 0;
}

double CLockin::Module(int32_t i) const {
    const double re = m_pReal[i];
    const double im = m_pImag[i];
    double m = re * re + im * im;
    m = m <= 0.0 ? 0.0 : std::sqrt(m);
    return m / m_nFrame;
}

double CLockin::Phase(int32_t i) const {
    const double re = m_pReal[i];
    double phi = re == 0.0 ? 0.0 : std::atan2(m_pImag[i], re) * 57.29577951307855;
    phi += m_Parameters.nPhaseOffset + m_Parameters.dPhaseOffset - 90;
    // Kept as they are: 180 becomes -180 and -180 becomes 180.
    if (phi >= 0)
        phi = std::fmod(phi + 180, 360) - 180;
    else
        phi = -(std::fmod(180 - phi, 360) - 180);
    return phi;
}

double* CLockin::GetModule(unsigned short filter, int force) {
    if (m_nFrame == 0 || !m_pModule) return nullptr;
    AddHeldFrames();
    const double scale = m_Parameters.dScaleA - m_Parameters.dScaleB;
    Refresh(
        m_pModule, static_cast<int32_t>(GetSize()), filter, force, m_nModuleFilter, m_bModuleDone,
        [&](int32_t i) {
            double m = Module(i);
            if (m_Parameters.bScaleModule) m *= scale;
            if (m_Parameters.bSignedModule && std::fabs(Phase(i)) > 90) m = -m;
            return m;
        },
        [this](double* image, unsigned short f) { ApplyFilter(image, f); });
    return m_pModule;
}

double* CLockin::GetPhase(unsigned short filter, int force) {
    if (m_nFrame == 0 || !m_pPhase) return nullptr;
    AddHeldFrames();
    Refresh(
        m_pPhase, static_cast<int32_t>(GetSize()), filter, force, m_nPhaseFilter, m_bPhaseDone,
        [&](int32_t i) { return Module(i) > m_Parameters.dThreshold ? Phase(i) : 0.0; },
        [this](double* image, unsigned short f) { ApplyFilter(image, f); });
    return m_pPhase;
}

void CLockin::ApplyFilter(double* image, unsigned short filter) const {
    if (filter == FILTER_LOWPASS)
        LowPass(image, m_nPoint, m_nLine);
    else if (filter == FILTER_MEDIAN)
        Median(image, m_nPoint, m_nLine);
}

namespace {

// The border rule both filters share: in each interior row the first and
// last columns copy their neighbours' new values, then the first and last
// rows copy their neighbours.
void FillBorders(double* image, int point, int line) {
    for (int y = 1; y < line - 1; ++y) {
        double* row = image + static_cast<size_t>(y) * static_cast<size_t>(point);
        row[0] = row[1];
        row[point - 1] = row[point - 2];
    }
    const size_t p = static_cast<size_t>(point);
    std::memcpy(image, image + p, p * sizeof(double));
    std::memcpy(image + (static_cast<size_t>(line) - 1) * p, image + (static_cast<size_t>(line) - 2) * p,
                p * sizeof(double));
}

// Each interior pixel of image becomes reduce(v), v its 3 x 3 neighbourhood (row by row) in the
// image as it was before; then the borders are filled.
template <class Reduce>
void Filter3x3(double* image, int point, int line, Reduce reduce) {
    const size_t p = static_cast<size_t>(point);
    const std::vector<double> src(image, image + p * static_cast<size_t>(line));
    for (int y = 1; y < line - 1; ++y)
        for (int x = 1; x < point - 1; ++x) {
            double v[9];
            int k = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) v[k++] = src[static_cast<size_t>(y + dy) * p + static_cast<size_t>(x + dx)];
            image[static_cast<size_t>(y) * p + static_cast<size_t>(x)] = reduce(v);
        }
    FillBorders(image, point, line);
}

}  // namespace

void CLockin::LowPass(double* image, int point, int line) {
    if (!image || point < 3 || line < 3) return;
    Filter3x3(image, point, line, [](double* v) {
        double sum = 0.0;
        for (int k = 0; k < 9; ++k) sum += v[k];
        return sum * 0.1111111111111111;
    });
}

void CLockin::Median(double* image, int point, int line) {
    if (!image || point < 3 || line < 3) return;
    Filter3x3(image, point, line, [](double* v) {
        for (int i = 1; i < 9; ++i) {  // ascending insertion sort
            const double t = v[i];
            int j = i - 1;
            while (j >= 0 && v[j] > t) {
                v[j + 1] = v[j];
                --j;
            }
            v[j + 1] = t;
        }
        return v[4];
    });
}

// Both results are written through the frame's film saving: a one-image film
// of doubles, read back with CPtrFloat.
int CLockin::SaveModule(const char* fileName, const char* text1, const char* text2) {
    if (!m_bModuleDone) return 0;
    return Save(fileName, m_pModule, text1, text2);
}

int CLockin::SavePhase(const char* fileName, const char* text1, const char* text2) {
    if (!m_bPhaseDone) return 0;
    return Save(fileName, m_pPhase, text1, text2);
}

}  // namespace thermokit
