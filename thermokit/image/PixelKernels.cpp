#include "thermokit/image/PixelKernels.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "thermokit/platform/TargetClones.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Several instruction sets for the hot loops, the best one chosen once by the
// loader (GCC function multiversioning). The loops are plain C++; every
// variant computes the same integer results.
#define TK_CLONES THERMOKIT_CLONES_V3_V4
#define TK_INLINE inline __attribute__((always_inline))

namespace thermokit::kernels {

namespace {

// Chunk lengths for which 32-bit partial sums cannot overflow:
// 65536 x 65535 < 2^32.
constexpr long kSumChunk = 65536;

template <bool IgnoreZero, bool WantSum>
TK_INLINE void MinMaxBody(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
    unsigned short mn = r.min, mx = r.max;
    uint64_t sum = 0, zeros = 0;
    for (long base = 0; base < n; base += kSumChunk) {
        const long end = std::min(n, base + kSumChunk);
        uint32_t s = 0, z = 0;
        unsigned short a = mn, b = mx;
        for (long i = base; i < end; ++i) {
            const unsigned short v = static_cast<unsigned short>(p[i] & mask);
            if constexpr (IgnoreZero) {
                const unsigned short w = v == 0 ? static_cast<unsigned short>(0xFFFF) : v;
                a = w < a ? w : a;
                z += v == 0;
            } else {
                a = v < a ? v : a;
            }
            b = v > b ? v : b;
            if constexpr (WantSum) s += v;
        }
        mn = a;
        mx = b;
        sum += s;
        zeros += z;
    }
    r.min = mn;
    r.max = mx;
    r.sum = sum;
    r.zeros = zeros;
}

TK_CLONES void MinMaxPlain(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
    MinMaxBody<false, false>(p, n, mask, r);
}
TK_CLONES void MinMaxSum(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
    MinMaxBody<false, true>(p, n, mask, r);
}
TK_CLONES void MinMaxNoZero(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
    MinMaxBody<true, false>(p, n, mask, r);
}
TK_CLONES void MinMaxNoZeroSum(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
    MinMaxBody<true, true>(p, n, mask, r);
}

TK_CLONES void MomentsChunks(const unsigned short* p, long n, uint64_t& sumOut, uint128& sqOut) {
    uint64_t sum = 0;
    uint128 sq = 0;
    for (long base = 0; base < n; base += kSumChunk) {
        const long end = std::min(n, base + kSumChunk);
        uint32_t s = 0;
        uint64_t q = 0;  // at most 65536 x 65535^2 < 2^48
        for (long i = base; i < end; ++i) {
            const uint32_t v = p[i];
            s += v;
            q += static_cast<uint64_t>(v * v);
        }
        sum += s;
        sq += q;
    }
    sumOut = sum;
    sqOut = sq;
}

TK_CLONES void MaskU16Impl(unsigned short* p, long n, unsigned short mask) {
    for (long i = 0; i < n; ++i) p[i] = static_cast<unsigned short>(p[i] & mask);
}
TK_CLONES void MaskU32Impl(uint32_t* p, long n, uint32_t mask) {
    for (long i = 0; i < n; ++i) p[i] &= mask;
}

}  // namespace

MinMaxU16Result MinMaxU16(const unsigned short* p, long n, unsigned short mask, bool ignoreZero, bool wantSum) {
    MinMaxU16Result r;
    if (n < 1) return r;
    if (ignoreZero) {
        wantSum ? MinMaxNoZeroSum(p, n, mask, r) : MinMaxNoZero(p, n, mask, r);
    } else {
        wantSum ? MinMaxSum(p, n, mask, r) : MinMaxPlain(p, n, mask, r);
    }
    return r;
}

MomentsU16 MomentsOfU16(const unsigned short* p, long n) {
    MomentsU16 m;
    if (n > 0) MomentsChunks(p, n, m.sum, m.sumSquares);
    return m;
}

void MaskU16(unsigned short* p, long n, unsigned short mask) {
    if (n > 0) MaskU16Impl(p, n, mask);
}
void MaskU32(uint32_t* p, long n, uint32_t mask) {
    if (n > 0) MaskU32Impl(p, n, mask);
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

// ---------------------------------------------------------------- reversal

void Reverse(const unsigned short* src, unsigned short* dst, long n) {
    if (n < 2) {
        if (n == 1 && dst != src) dst[0] = src[0];
        return;
    }
    if (src == dst) {
        long i = 0, j = n;  // swap [i, i+8) with [j-8, j)
#if defined(__SSE2__)
        for (; j - i >= 16; i += 8, j -= 8) {
            __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
            __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + j - 8));
            a = _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0x1B), 0x1B), 0x4E);
            b = _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_shufflelo_epi16(b, 0x1B), 0x1B), 0x4E);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), b);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j - 8), a);
        }
#endif
        for (--j; i < j; ++i, --j) std::swap(dst[i], dst[j]);
        return;
    }
    long i = 0;
#if defined(__SSE2__)
    for (; i + 8 <= n; i += 8) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + n - 8 - i));
        a = _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0x1B), 0x1B), 0x4E);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), a);
    }
#endif
    for (; i < n; ++i) dst[i] = src[n - 1 - i];
}

// ---------------------------------------------------------------- quarter turns

namespace {

constexpr int kTile = 64;

// Scalar tiles for any element type; the tile keeps source and destination
// lines in cache while a block is turned.
template <class T, bool Clockwise>
void RotateTiles(const T* src, T* dst, int point, int line, int r0, int r1, int c0, int c1) {
    for (int rt = r0; rt < r1; rt += kTile) {
        const int re = std::min(r1, rt + kTile);
        for (int ct = c0; ct < c1; ct += kTile) {
            const int ce = std::min(c1, ct + kTile);
            for (int c = ct; c < ce; ++c) {
                if constexpr (Clockwise) {
                    T* d = dst + static_cast<size_t>(c) * line + (line - 1);
                    for (int r = rt; r < re; ++r) *(d - r) = src[static_cast<size_t>(r) * point + c];
                } else {
                    T* d = dst + static_cast<size_t>(point - 1 - c) * line;
                    for (int r = rt; r < re; ++r) d[r] = src[static_cast<size_t>(r) * point + c];
                }
            }
        }
    }
}

#if defined(__SSE2__)
TK_INLINE void Transpose8x8(__m128i* r) {
    const __m128i t0 = _mm_unpacklo_epi16(r[0], r[1]);
    const __m128i t1 = _mm_unpackhi_epi16(r[0], r[1]);
    const __m128i t2 = _mm_unpacklo_epi16(r[2], r[3]);
    const __m128i t3 = _mm_unpackhi_epi16(r[2], r[3]);
    const __m128i t4 = _mm_unpacklo_epi16(r[4], r[5]);
    const __m128i t5 = _mm_unpackhi_epi16(r[4], r[5]);
    const __m128i t6 = _mm_unpacklo_epi16(r[6], r[7]);
    const __m128i t7 = _mm_unpackhi_epi16(r[6], r[7]);
    const __m128i u0 = _mm_unpacklo_epi32(t0, t2);
    const __m128i u1 = _mm_unpackhi_epi32(t0, t2);
    const __m128i u2 = _mm_unpacklo_epi32(t1, t3);
    const __m128i u3 = _mm_unpackhi_epi32(t1, t3);
    const __m128i u4 = _mm_unpacklo_epi32(t4, t6);
    const __m128i u5 = _mm_unpackhi_epi32(t4, t6);
    const __m128i u6 = _mm_unpacklo_epi32(t5, t7);
    const __m128i u7 = _mm_unpackhi_epi32(t5, t7);
    r[0] = _mm_unpacklo_epi64(u0, u4);
    r[1] = _mm_unpackhi_epi64(u0, u4);
    r[2] = _mm_unpacklo_epi64(u1, u5);
    r[3] = _mm_unpackhi_epi64(u1, u5);
    r[4] = _mm_unpacklo_epi64(u2, u6);
    r[5] = _mm_unpackhi_epi64(u2, u6);
    r[6] = _mm_unpacklo_epi64(u3, u7);
    r[7] = _mm_unpackhi_epi64(u3, u7);
}

// The 8 x 8 blocks of the whole multiple-of-8 part, tile by tile.
template <bool Clockwise>
void RotateBlocksU16(const unsigned short* src, unsigned short* dst, int point, int line, int rows, int cols) {
    // Source lines a multiple of 1 KiB apart fall into few cache sets: a
    // tile of 64 of them evicts itself, so such images go in flatter tiles.
    const bool flat = (static_cast<size_t>(point) * sizeof(unsigned short)) % 1024 == 0;
    const int tileRows = flat ? 16 : kTile;
    const int tileCols = flat ? 2 * kTile : kTile;
    for (int rt = 0; rt < rows; rt += tileRows) {
        const int re = std::min(rows, rt + tileRows);
        for (int ct = 0; ct < cols; ct += tileCols) {
            const int ce = std::min(cols, ct + tileCols);
            // Down the tile's columns: each destination line of the tile is
            // then written left to right.
            for (int c0 = ct; c0 < ce; c0 += 8) {
                for (int r0 = rt; r0 < re; r0 += 8) {
                    __m128i v[8];
                    for (int k = 0; k < 8; ++k) {
                        // Clockwise: the rows in reverse so that each turned
                        // column comes out left to right.
                        const int r = Clockwise ? r0 + 7 - k : r0 + k;
                        v[k] = _mm_loadu_si128(
                            reinterpret_cast<const __m128i*>(src + static_cast<size_t>(r) * point + c0));
                    }
                    Transpose8x8(v);
                    for (int j = 0; j < 8; ++j) {
                        unsigned short* d = Clockwise
                                                ? dst + static_cast<size_t>(c0 + j) * line + (line - 8 - r0)
                                                : dst + static_cast<size_t>(point - 1 - c0 - j) * line + r0;
                        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v[j]);
                    }
                }
            }
        }
    }
}
#endif

template <bool Clockwise>
void RotateU16(const unsigned short* src, unsigned short* dst, int point, int line) {
#if defined(__SSE2__)
    const int rows = line & ~7;
    const int cols = point & ~7;
    RotateBlocksU16<Clockwise>(src, dst, point, line, rows, cols);
    // The strips left over: the last columns of every line, then the last lines.
    RotateTiles<unsigned short, Clockwise>(src, dst, point, line, 0, rows, cols, point);
    RotateTiles<unsigned short, Clockwise>(src, dst, point, line, rows, line, 0, point);
#else
    RotateTiles<unsigned short, Clockwise>(src, dst, point, line, 0, line, 0, point);
#endif
}

}  // namespace

void Rotate90(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line) {
    RotateU16<true>(src, dst, point, line);
}
void Rotate270(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line) {
    RotateU16<false>(src, dst, point, line);
}
void Rotate90(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line) {
    RotateTiles<unsigned char, true>(src, dst, point, line, 0, line, 0, point);
}
void Rotate270(const unsigned char* src, unsigned char* dst, unsigned short point, unsigned short line) {
    RotateTiles<unsigned char, false>(src, dst, point, line, 0, line, 0, point);
}
void Rotate90(const float* src, float* dst, unsigned short point, unsigned short line) {
    RotateTiles<float, true>(src, dst, point, line, 0, line, 0, point);
}
void Rotate270(const float* src, float* dst, unsigned short point, unsigned short line) {
    RotateTiles<float, false>(src, dst, point, line, 0, line, 0, point);
}

// ---------------------------------------------------------------- nearest-neighbour rows

namespace {
TK_CLONES void GatherRow(const unsigned short* s, unsigned short* d, const int32_t* xmap, int count) {
    for (int i = 0; i < count; ++i) d[i] = s[xmap[i]];
}
// xmap[i] = 2 i: every second value.
TK_CLONES void HalveRow(const unsigned short* s, unsigned short* d, int count) {
    for (int i = 0; i < count; ++i) d[i] = s[2 * i];
}
// xmap[i] = i / 2: every value twice.
TK_CLONES void DoubleRow(const unsigned short* s, unsigned short* d, int count) {
    const int pairs = count / 2;
    for (int i = 0; i < pairs; ++i) {
        d[2 * i] = s[i];
        d[2 * i + 1] = s[i];
    }
    if (count & 1) d[count - 1] = s[pairs];
}

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
                case Columns::Halve: HalveRow(s + x0, d, dstPoint); break;
                case Columns::Double: DoubleRow(s + x0, d, dstPoint); break;
                case Columns::Any: GatherRow(s, d, xmap, dstPoint); break;
            }
        }
        previous = y;
    }
}

}  // namespace thermokit::kernels
