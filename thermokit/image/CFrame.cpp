#include "thermokit/image/CFrame.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "thermokit/image/PixelArray.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/AlignedBuffer.h"
#include "thermokit/platform/CRgn.h"

namespace thermokit {

namespace {
// Pixel buffers are 64-byte aligned so that vector code starts on a cache line.
unsigned short* AllocatePixels(long size) {
    if (size < 1) return nullptr;
    auto* p = static_cast<unsigned short*>(AlignedAlloc(static_cast<size_t>(size) * sizeof(unsigned short)));
    if (!p) throw std::bad_alloc();
    return p;
}
void FreePixels(unsigned short* p) { AlignedFree(p); }
}  // namespace

void CFrame::Init(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24,
                  int external, unsigned short* buffer) {
    m_dTime = 0.0;
    m_nPoint = point;
    m_nLine = line;
    m_nBit = bit;
    m_nRotation = rotation;
    m_b24 = b24;
    m_pBit = nullptr;
    m_pBit24 = nullptr;
    m_pBuffer = nullptr;
    if (external) {
        m_bExternalBuffer = 1;
        m_pBuffer = buffer;
    } else {
        m_bExternalBuffer = 0;
        m_pBuffer = AllocatePixels(GetSize());
        Reset();
    }
}

CFrame::CFrame(unsigned short point, unsigned short line, unsigned short bit, unsigned short rotation, int b24) {
    Init(point, line, bit, rotation, b24, 0, nullptr);
}

CFrame::CFrame(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short bit,
               unsigned short rotation, int b24) {
    Init(point, line, bit, rotation, b24, 1, buffer);
}

CFrame::CFrame(CFrame* src, CRect* rect) {
    if (!src) {
        Init(0, 0, 0, 0, 0, 0, nullptr);
        return;
    }
    const CRect full(0, 0, src->m_nPoint, src->m_nLine);
    CRect r = full;
    if (rect) {
        // The caller's rectangle comes back clipped (empty when it lies outside).
        rect->IntersectRect(rect, &full);
        if (rect->Width() > 0 && rect->Height() > 0) r = *rect;
    }
    Init(static_cast<unsigned short>(r.Width()), static_cast<unsigned short>(r.Height()), src->m_nBit,
         src->m_nRotation, src->m_b24, 0, nullptr);
    if (m_pBuffer && src->m_pBuffer) {
        if (r == full) {
            std::memcpy(m_pBuffer, src->m_pBuffer, static_cast<size_t>(GetSize()) * sizeof(unsigned short));
        } else {
            for (int32_t k = 0; k < r.Height(); ++k) {
                std::memcpy(m_pBuffer + static_cast<size_t>(k) * m_nPoint,
                            src->m_pBuffer + static_cast<size_t>(r.top + k) * src->m_nPoint + r.left,
                            static_cast<size_t>(r.Width()) * sizeof(unsigned short));
            }
        }
    }
    m_dTime = src->m_dTime;
}

CFrame::CFrame(CFrame* src, int* indices, int count, unsigned short fill) {
    if (!src) {
        Init(0, 0, 0, 0, 0, 0, nullptr);
        return;
    }
    Init(src->m_nPoint, src->m_nLine, src->m_nBit, src->m_nRotation, src->m_b24, 0, nullptr);
    if (!m_pBuffer) return;
    const long size = GetSize();
    if (fill != 0) std::fill(m_pBuffer, m_pBuffer + size, fill);
    if (!indices || !src->m_pBuffer) return;
    for (int k = 0; k < count; ++k) {
        const int i = indices[k];
        // An index outside the image names no pixel; it is skipped.
        if (i >= 0 && i < size) m_pBuffer[i] = src->m_pBuffer[i];
    }
}

CFrame::~CFrame() {
    if (!m_bExternalBuffer) FreePixels(m_pBuffer);
    m_pBuffer = nullptr;
    ReleaseBitmaps();
}

int CFrame::SetExternalBuffer(unsigned short* buffer) {
    if (!m_bExternalBuffer) FreePixels(m_pBuffer);
    m_pBuffer = buffer;
    m_bExternalBuffer = 1;
    return 1;
}

void CFrame::Reset() {
    if (m_pBuffer) std::memset(m_pBuffer, 0, static_cast<size_t>(GetSize()) * sizeof(unsigned short));
}

void CFrame::SetFrame(unsigned short* data) {
    if (!m_pBuffer || !data) return;
    std::memmove(m_pBuffer, data, static_cast<size_t>(GetSize()) * sizeof(unsigned short));
    if (m_nRotation != 0) RotateImage(m_pBuffer, m_nPoint, m_nLine, m_nRotation, nullptr);
}

void CFrame::Copy(CFrame* src) {
    if (!src) return;
    m_nBit = src->m_nBit;
    m_nRotation = src->m_nRotation;
    if (src->m_nPoint != m_nPoint || src->m_nLine != m_nLine) {
        m_nPoint = src->m_nPoint;
        m_nLine = src->m_nLine;
        if (!m_bExternalBuffer) FreePixels(m_pBuffer);
        m_pBuffer = nullptr;
        m_pBuffer = AllocatePixels(GetSize());
        m_bExternalBuffer = 0;
    }
    if (src->m_b24 != m_b24) {
        m_b24 = src->m_b24;
        ReleaseBitmaps();
    }
    if (m_pBuffer && src->m_pBuffer && m_pBuffer != src->m_pBuffer) {
        std::memmove(m_pBuffer, src->m_pBuffer, static_cast<size_t>(GetSize()) * sizeof(unsigned short));
    }
    m_dTime = src->m_dTime;
}

unsigned short CFrame::GetMaxLevel() const { return ::thermokit::GetMaxLevel(m_nBit); }

unsigned short CFrame::GetPixel(unsigned short x, unsigned short y) const {
    if (!m_pBuffer) return 0;
    const long i = GetIndex(x, y);
    // x beyond the line reads on into the next line as the index says; only an
    // index outside the buffer is refused.
    if (i < 0 || i >= GetSize()) return 0;
    return m_pBuffer[i];
}

void CFrame::SetPixel(unsigned short x, unsigned short y, unsigned short value) {
    if (!m_pBuffer) return;
    const long i = GetIndex(x, y);
    if (i < 0 || i >= GetSize()) return;
    m_pBuffer[i] = value;
}

void CFrame::GetMinMax(unsigned short* pMin, unsigned short* pMax, unsigned short* pMean) {
    if (!m_pBuffer) return;
    const long size = GetSize();
    if (size < 1) return;
    const unsigned short mask = GetMaxLevel();
    const unsigned short first = static_cast<unsigned short>(m_pBuffer[0] & mask);
    kernels::MinMaxU16Result r = kernels::MinMaxU16(m_pBuffer + 1, size - 1, mask, false, pMean != nullptr);
    const unsigned short mn = r.min < first ? r.min : first;
    const unsigned short mx = r.max > first ? r.max : first;
    if (pMin) *pMin = mn;
    if (pMax) *pMax = mx;
    if (pMean) {
        // The sum of at most 65535 x 65535 levels below 2^16 stays far below
        // 2^53, so the exact integer sum is the running double sum.
        const double sum = static_cast<double>(r.sum + first);
        *pMean = static_cast<unsigned short>(sum / static_cast<double>(size));
    }
}

void CFrame::Mask() {
    if (m_pBuffer && m_nBit < 16) ::thermokit::Mask(m_pBuffer, GetSize(), GetMaxLevel());
}

void CFrame::RemoveRgn(CRgn* region) {
    if (m_pBuffer) ::thermokit::RemoveRgn(m_pBuffer, m_nPoint, m_nLine, region, 0);
}

int CFrame::Stretch(CFrame* src, CRect* srcRect) {
    if (!src || !src->m_pBuffer || !m_pBuffer) return 0;
    const CRect full(0, 0, src->m_nPoint, src->m_nLine);
    CRect r = full;
    if (srcRect) r.IntersectRect(srcRect, &full);
    const int32_t regionWidth = r.Width();
    const int32_t regionHeight = r.Height();
    if (regionWidth < 1 || regionHeight < 1 || m_nPoint < 1 || m_nLine < 1) return 0;
    if (src == this) {
        // Reading and writing the same buffer: work from a copy of the source.
        CFrame copy(src, static_cast<CRect*>(nullptr));
        return Stretch(&copy, &r);
    }

    const double xRatio = static_cast<double>(regionWidth) / static_cast<double>(m_nPoint);
    const double yRatio = static_cast<double>(regionHeight) / static_cast<double>(m_nLine);
    std::vector<int32_t> xmap(m_nPoint);
    for (int i = 0; i < m_nPoint; ++i) xmap[i] = static_cast<int32_t>(i * xRatio + r.left);
    kernels::StretchRows(src->m_pBuffer, src->m_nPoint, m_pBuffer, m_nPoint, m_nLine, xmap.data(), yRatio, r.top);
    return 1;
}

int CFrame::ProcessRotation(CFrame* src, int angle) {
    if (!src || angle % 90 != 0) return 0;
    if (src->m_nPoint < 1 || src->m_nLine == 0) return 0;
    if (!src->m_pBuffer || !m_pBuffer) return 0;
    int a = angle % 360;
    if (a < 0) a += 360;
    if (a == 0 || a == 180) {
        if (m_nPoint != src->m_nPoint || m_nLine != src->m_nLine) return 0;
        if (a == 0) {
            Copy(src);
            return 1;
        }
        const long size = GetSize();
        if (m_pBuffer == src->m_pBuffer) {
            RotateImage(m_pBuffer, m_nPoint, m_nLine, 180, nullptr);
        } else {
            kernels::Reverse(src->m_pBuffer, m_pBuffer, size);
        }
    } else {
        if (m_nPoint != src->m_nLine || m_nLine != src->m_nPoint) return 0;
        const unsigned short code = static_cast<unsigned short>(a);
        if (m_pBuffer == src->m_pBuffer) {
            RotateImage(m_pBuffer, src->m_nPoint, src->m_nLine, code, nullptr);
        } else if (a == 90) {
            kernels::Rotate90(src->m_pBuffer, m_pBuffer, src->m_nPoint, src->m_nLine);
        } else {
            kernels::Rotate270(src->m_pBuffer, m_pBuffer, src->m_nPoint, src->m_nLine);
        }
    }
    m_dTime = src->m_dTime;
    return 1;
}

}  // namespace thermokit
