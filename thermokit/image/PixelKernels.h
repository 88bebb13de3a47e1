#pragma once
// Whole-image kernels behind the pixel-array functions, CFrame, the
// accumulators, the level tables, the display bitmaps and the film reader.
// Internal to the library.
//
// PixelKernels.cpp is compiled once per instruction-set variant and once as
// the scalar reference (platform/KernelTable.h); Pixel() is the table of the
// variant in use, PixelReference() the reference every variant matches bit
// for bit. The functions below the table are the entry points the library
// calls: they choose the table's entry and handle what is not a hot loop.
#include <cstddef>
#include <cstdint>

namespace thermokit::kernels {

__extension__ typedef unsigned __int128 uint128;

struct MinMaxU16Result {
    unsigned short min = 0xFFFF;  // smallest value (zeros left out when asked); 0xFFFF when none
    unsigned short max = 0;       // largest value
    uint64_t sum = 0;             // exact sum of the values (when asked)
    uint64_t zeros = 0;           // number of zero values (when zeros are left out)
};

// Exact sums of the values and of their squares.
struct MomentsU16 {
    uint64_t sum = 0;
    uint128 sumSquares = 0;
};

struct PixelKernels {
    // Over n masked values p[i] & mask, starting from r.min and r.max;
    // indexed [leave zeros out][want the sum]. n >= 1.
    void (*minMax[2][2])(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r);
    void (*moments)(const unsigned short* p, long n, uint64_t& sum, uint128& sumSquares);
    void (*maskU16)(unsigned short* p, long n, unsigned short mask);
    void (*maskU32)(uint32_t* p, long n, uint32_t mask);
    // The OR of all n values (0 for none).
    unsigned short (*orU16)(const unsigned short* p, long n);
    // dst[i] = src[n - 1 - i]; in place when dst == src.
    void (*reverseU16)(const unsigned short* src, unsigned short* dst, long n);
    // Quarter turns from src (point x line) into dst (line x point), out of
    // place; [0] clockwise, dst[c][line - 1 - r] = src[r][c]; [1] counter-
    // clockwise, dst[point - 1 - c][r] = src[r][c].
    void (*rotateU16[2])(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line);
    void (*rotateU8[2])(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line);
    void (*rotateF32[2])(const float* src, float* dst, unsigned short point, unsigned short line);
    // Nearest-neighbour rows: d[i] = s[xmap[i]]; s[2 i]; s[i / 2].
    void (*gatherRow)(const unsigned short* s, unsigned short* d, const int32_t* xmap, int count);
    void (*halveRow)(const unsigned short* s, unsigned short* d, int count);
    void (*doubleRow)(const unsigned short* s, unsigned short* d, int count);
    // out[i] = table[in[i] & mask]: levels through a table of 32-bit entries
    // (floats or colours), table holding mask + 1 entries. streaming: out is
    // not read back soon (its stores skip the cache, which keeps the table there).
    void (*lookup32)(const uint32_t* table, uint16_t mask, const uint16_t* in, long n, uint32_t* out,
                     bool streaming);
    // sum[i] += value x weight in double, the levels masked first.
    void (*accumulateLevels)(double* sum, const unsigned short* data, long n, unsigned short mask, double weight);
    void (*accumulateFloats)(double* sum, const float* data, long n, double weight);
    void (*accumulateDoubles)(double* sum, const double* data, long n, double weight);
    // counts[i] += data[i] & mask, in 32 bits.
    void (*countLevels)(uint32_t* counts, const unsigned short* data, long n, unsigned short mask);
    // sum[i] += counts[i] in double, then counts[i] = 0.
    void (*foldCounts)(double* sum, uint32_t* counts, long n);
    // square[i] += (data[i] - mean[i])^2 in double.
    void (*squaresLevels)(double* square, const unsigned short* data, const double* mean, long n);
    void (*squaresFloats)(double* square, const float* data, const double* mean, long n);
    void (*squaresDoubles)(double* square, const double* data, const double* mean, long n);
    // memcpy into memory that is not read back soon (stores that skip the cache).
    void (*copyStreaming)(unsigned char* dst, const unsigned char* src, size_t n);
};

const PixelKernels& Pixel();
const PixelKernels& PixelReference();

// ---- entry points

MinMaxU16Result MinMaxU16(const unsigned short* p, long n, unsigned short mask, bool ignoreZero, bool wantSum);
MomentsU16 MomentsOfU16(const unsigned short* p, long n);
void MaskU16(unsigned short* p, long n, unsigned short mask);
void MaskU32(uint32_t* p, long n, uint32_t mask);
// Counts of p[i] & mask into counts[0..mask] (added to what is there).
void HistogramU16(const unsigned short* p, long n, unsigned short mask, uint32_t* counts);
void Reverse(const unsigned short* src, unsigned short* dst, long n);
void Rotate90(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line);
void Rotate270(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line);
void Rotate90(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line);
void Rotate270(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line);
void Rotate90(const float* src, float* dst, unsigned short point, unsigned short line);
void Rotate270(const float* src, float* dst, unsigned short point, unsigned short line);
// Nearest-neighbour rows: dst line j = src line trunc(j * yRatio + top)
// sampled at the columns xmap.
void StretchRows(const unsigned short* src, unsigned short srcPoint, unsigned short* dst, unsigned short dstPoint,
                 unsigned short dstLine, const int32_t* xmap, double yRatio, int32_t top);

}  // namespace thermokit::kernels
