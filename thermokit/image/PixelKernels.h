#pragma once
// Whole-image kernels behind the pixel-array functions and CFrame. Each is
// compiled for several instruction sets (chosen once at start-up) and gives
// bit for bit the result of the plain loop it replaces. Internal to the image
// layer.
#include <cstdint>

namespace thermokit::kernels {

__extension__ typedef unsigned __int128 uint128;

struct MinMaxU16Result {
    unsigned short min = 0xFFFF;  // smallest value (zeros left out when asked); 0xFFFF when none
    unsigned short max = 0;       // largest value
    uint64_t sum = 0;             // exact sum of the values (when asked)
    uint64_t zeros = 0;           // number of zero values (when zeros are left out)
};

// Over n masked values p[i] & mask.
MinMaxU16Result MinMaxU16(const unsigned short* p, long n, unsigned short mask, bool ignoreZero, bool wantSum);

// Exact sums of the values and of their squares.
struct MomentsU16 {
    uint64_t sum = 0;
    uint128 sumSquares = 0;
};
MomentsU16 MomentsOfU16(const unsigned short* p, long n);

void MaskU16(unsigned short* p, long n, unsigned short mask);
void MaskU32(uint32_t* p, long n, uint32_t mask);

// Counts of p[i] & mask into counts[0..mask] (added to what is there).
void HistogramU16(const unsigned short* p, long n, unsigned short mask, uint32_t* counts);

// dst[i] = src[n - 1 - i]; in place when dst == src.
void Reverse(const unsigned short* src, unsigned short* dst, long n);

// Quarter turns from src (point x line) into dst (line x point), out of place.
// 90: dst[c][line - 1 - r] = src[r][c]; 270: dst[point - 1 - c][r] = src[r][c].
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
