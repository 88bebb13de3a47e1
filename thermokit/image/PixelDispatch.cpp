// The entry points of the pixel kernels: each takes the table of the variant
// in use (platform/KernelTable.h) and does what is not a hot loop.
#include <cstring>
#include <vector>

#include "thermokit/image/PixelKernels.h"
#include "thermokit/platform/KernelTable.h"

namespace thermokit::kernels {

THERMOKIT_DEFINE_KERNELS(PixelKernels, Pixel)

MinMaxU16Result MinMaxU16(const unsigned short* p, long n, unsigned short mask, bool ignoreZero, bool wantSum) {
    MinMaxU16Result r;
    if (n >= 1) Pixel().minMax[ignoreZero ? 1 : 0][wantSum ? 1 : 0](p, n, mask, r);
    return r;
}

MomentsU16 MomentsOfU16(const unsigned short* p, long n) {
    MomentsU16 m;
    if (n > 0) Pixel().moments(p, n, m.sum, m.sumSquares);
    return m;
}

void MaskU16(unsigned short* p, long n, unsigned short mask) {
    if (n > 0) Pixel().maskU16(p, n, mask);
}
void MaskU32(uint32_t* p, long n, uint32_t mask) {
    if (n > 0) Pixel().maskU32(p, n, mask);
}

void HistogramU16(const unsigned short* p, long n, unsigned short mask, uint32_t* counts) {
    const size_t bins = static_cast<size_t>(mask) + 1;
    if (n < 4 * static_cast<long>(bins) || n < 4096) {
        for (long i = 0; i < n; ++i) ++counts[p[i] & mask];
        return;
    }
    // Four sub-histograms: neighbouring equal values no longer wait on each
    // other's increment.
    std::vector<uint32_t> sub(3 * bins, 0);
    uint32_t* h1 = sub.data();
    uint32_t* h2 = h1 + bins;
    uint32_t* h3 = h2 + bins;
    long i = 0;
    for (; i + 4 <= n; i += 4) {
        uint64_t w;
        std::memcpy(&w, p + i, sizeof w);
        ++counts[static_cast<unsigned short>(w) & mask];
        ++h1[static_cast<unsigned short>(w >> 16) & mask];
        ++h2[static_cast<unsigned short>(w >> 32) & mask];
        ++h3[static_cast<unsigned short>(w >> 48) & mask];
    }
    for (; i < n; ++i) ++counts[p[i] & mask];
    for (size_t b = 0; b < bins; ++b) counts[b] += h1[b] + h2[b] + h3[b];
}

void Reverse(const unsigned short* src, unsigned short* dst, long n) { Pixel().reverseU16(src, dst, n); }

void Rotate90(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line) {
    Pixel().rotateU16[0](src, dst, point, line);
}
void Rotate270(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line) {
    Pixel().rotateU16[1](src, dst, point, line);
}
void Rotate90(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line) {
    Pixel().rotateU8[0](src, dst, point, line);
}
void Rotate270(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line) {
    Pixel().rotateU8[1](src, dst, point, line);
}
void Rotate90(const float* src, float* dst, unsigned short point, unsigned short line) {
    Pixel().rotateF32[0](src, dst, point, line);
}
void Rotate270(const float* src, float* dst, unsigned short point, unsigned short line) {
    Pixel().rotateF32[1](src, dst, point, line);
}

namespace {
// Column tables of the common ratios take a loop the compiler vectorises;
// the values written are the same.
enum class Columns { Any, Same, Halve, Double };
Columns Classify(const int32_t* xmap, int count) {
    const int32_t x0 = xmap[0];
    bool same = true, halve = true, twice = true;
    for (int i = 0; i < count; ++i) {
        const int32_t dx = xmap[i] - x0;
        same = same && dx == i;
        halve = halve && dx == 2 * i;
        twice = twice && dx == i / 2;
    }
    return same ? Columns::Same : halve ? Columns::Halve : twice ? Columns::Double : Columns::Any;
}
}  // namespace

void StretchRows(const unsigned short* src, unsigned short srcPoint, unsigned short* dst, unsigned short dstPoint,
                 unsigned short dstLine, const int32_t* xmap, double yRatio, int32_t top) {
    if (dstPoint == 0) return;
    const PixelKernels& k = Pixel();
    const Columns kind = Classify(xmap, dstPoint);
    const int32_t x0 = xmap[0];
    int32_t previous = -1;
    for (int j = 0; j < dstLine; ++j) {
        const int32_t y = static_cast<int32_t>(j * yRatio + top);
        unsigned short* d = dst + static_cast<size_t>(j) * dstPoint;
        if (y == previous) {
            // Same source line as the line above: copy the finished line.
            std::memcpy(d, d - dstPoint, static_cast<size_t>(dstPoint) * sizeof(unsigned short));
        } else {
            const unsigned short* s = src + static_cast<size_t>(y) * srcPoint;
            switch (kind) {
                case Columns::Same: std::memcpy(d, s + x0, static_cast<size_t>(dstPoint) * sizeof(unsigned short)); break;
                case Columns::Halve: k.halveRow(s + x0, d, dstPoint); break;
                case Columns::Double: k.doubleRow(s + x0, d, dstPoint); break;
                case Columns::Any: k.gatherRow(s, d, xmap, dstPoint); break;
            }
        }
        previous = y;
    }
}

}  // namespace thermokit::kernels
