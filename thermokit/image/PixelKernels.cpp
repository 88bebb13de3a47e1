// The pixel kernels, compiled once per instruction-set variant (and once as
// the scalar reference): see platform/KernelTable.h. Most are plain loops the
// compiler vectorises for the variant's instructions; where it cannot do well
// the x86 forms below use intrinsics of the variant (never in the reference).
// Every variant computes the same integer and IEEE results: no operation is
// contracted or reordered across pixels.
#include "thermokit/image/PixelKernels.h"

#include <algorithm>
#include <cstring>

#include "thermokit/platform/KernelTable.h"

#if !defined(THERMOKIT_KERNEL_NS)
#error "compiled only through the kernel variants of thermokit/CMakeLists.txt"
#endif

#if defined(__SSE2__) && !defined(THERMOKIT_KERNEL_REFERENCE)
#define TK_X86_VECTORS 1
#include <immintrin.h>
#endif

#define TK_INLINE inline __attribute__((always_inline))

namespace thermokit::kernels::THERMOKIT_KERNEL_NS {

namespace {

// Chunk lengths for which 32-bit partial sums cannot overflow:
// 65536 x 65535 < 2^32.
constexpr long kSumChunk = 65536;

template <bool IgnoreZero, bool WantSum>
void MinMax(const unsigned short* p, long n, unsigned short mask, MinMaxU16Result& r) {
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

void Moments(const unsigned short* p, long n, uint64_t& sumOut, uint128& sqOut) {
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

void MaskU16(unsigned short* p, long n, unsigned short mask) {
    for (long i = 0; i < n; ++i) p[i] = static_cast<unsigned short>(p[i] & mask);
}
void MaskU32(uint32_t* p, long n, uint32_t mask) {
    for (long i = 0; i < n; ++i) p[i] &= mask;
}

unsigned short OrU16(const unsigned short* p, long n) {
    unsigned short acc = 0;
    long i = 0;
#if !defined(THERMOKIT_KERNEL_REFERENCE)
    // Two independent 64-byte accumulators: the loads, not the ORs' chain,
    // set the pace.
    typedef unsigned short Block __attribute__((vector_size(64)));
    constexpr long kLanes = 32;
    Block a{}, b{};
    for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        Block x, y;
        std::memcpy(&x, p + i, sizeof x);
        std::memcpy(&y, p + i + kLanes, sizeof y);
        a |= x;
        b |= y;
    }
    a |= b;
    for (long k = 0; k < kLanes; ++k) acc = static_cast<unsigned short>(acc | a[k]);
#endif
    for (; i < n; ++i) acc = static_cast<unsigned short>(acc | p[i]);
    return acc;
}

// ---------------------------------------------------------------- reversal

#if defined(TK_X86_VECTORS)
TK_INLINE __m128i Reverse8(__m128i a) {
    return _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0x1B), 0x1B), 0x4E);
}
#endif

void ReverseU16(const unsigned short* src, unsigned short* dst, long n) {
    if (n < 2) {
        if (n == 1 && dst != src) dst[0] = src[0];
        return;
    }
    if (src == dst) {
        long i = 0, j = n;  // swap [i, i+8) with [j-8, j)
#if defined(TK_X86_VECTORS)
        for (; j - i >= 16; i += 8, j -= 8) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + j - 8));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), Reverse8(b));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j - 8), Reverse8(a));
        }
#endif
        for (--j; i < j; ++i, --j) std::swap(dst[i], dst[j]);
        return;
    }
    long i = 0;
#if defined(TK_X86_VECTORS)
    for (; i + 8 <= n; i += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + n - 8 - i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), Reverse8(a));
    }
#endif
    for (; i < n; ++i) dst[i] = src[n - 1 - i];
}

// ---------------------------------------------------------------- quarter turns

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

template <class T, bool Clockwise>
void RotateAny(const T* src, T* dst, unsigned short point, unsigned short line) {
    RotateTiles<T, Clockwise>(src, dst, point, line, 0, line, 0, point);
}

#if defined(TK_X86_VECTORS)
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
void RotateU16(const unsigned short* src, unsigned short* dst, unsigned short point, unsigned short line) {
#if defined(TK_X86_VECTORS)
    const int rows = line & ~7;
    const int cols = point & ~7;
    RotateBlocksU16<Clockwise>(src, dst, point, line, rows, cols);
    // The strips left over: the last columns of every line, then the last lines.
    RotateTiles<unsigned short, Clockwise>(src, dst, point, line, 0, rows, cols, point);
    RotateTiles<unsigned short, Clockwise>(src, dst, point, line, rows, line, 0, point);
#else
    RotateAny<unsigned short, Clockwise>(src, dst, point, line);
#endif
}

// ---------------------------------------------------------------- nearest-neighbour rows

void GatherRow(const unsigned short* s, unsigned short* d, const int32_t* xmap, int count) {
    for (int i = 0; i < count; ++i) d[i] = s[xmap[i]];
}
void HalveRow(const unsigned short* s, unsigned short* d, int count) {
    for (int i = 0; i < count; ++i) d[i] = s[2 * i];
}
void DoubleRow(const unsigned short* s, unsigned short* d, int count) {
    const int pairs = count / 2;
    for (int i = 0; i < pairs; ++i) {
        d[2 * i] = s[i];
        d[2 * i + 1] = s[i];
    }
    if (count & 1) d[count - 1] = s[pairs];
}

// ---------------------------------------------------------------- table look-up

// Levels through a table, eight at a time: two 64-bit loads of four levels
// split with shifts (fewer loads than one a level, which is what limits this
// loop; gather instructions are slower on the machines we measured). A table
// of all 65536 entries needs no mask, which saves an instruction a level.
template <bool Whole>
TK_INLINE uint64_t Index(uint64_t word, int k, uint64_t mask) {
    if constexpr (Whole)
        return static_cast<uint16_t>(word >> (16 * k));
    else
        return (word >> (16 * k)) & mask;
}

#if defined(TK_X86_VECTORS)
template <bool Whole, class Entry>
TK_INLINE __m128i Four(const Entry* t, uint64_t w, uint64_t m) {
    const __m128i v0 = _mm_cvtsi32_si128(static_cast<int>(t[Index<Whole>(w, 0, m)]));
#if defined(__SSE4_1__)
    __m128i v = _mm_insert_epi32(v0, static_cast<int>(t[Index<Whole>(w, 1, m)]), 1);
    v = _mm_insert_epi32(v, static_cast<int>(t[Index<Whole>(w, 2, m)]), 2);
    return _mm_insert_epi32(v, static_cast<int>(t[Index<Whole>(w, 3, m)]), 3);
#else
    const __m128i v1 = _mm_cvtsi32_si128(static_cast<int>(t[Index<Whole>(w, 1, m)]));
    const __m128i v2 = _mm_cvtsi32_si128(static_cast<int>(t[Index<Whole>(w, 2, m)]));
    const __m128i v3 = _mm_cvtsi32_si128(static_cast<int>(t[Index<Whole>(w, 3, m)]));
    return _mm_unpacklo_epi64(_mm_unpacklo_epi32(v0, v1), _mm_unpacklo_epi32(v2, v3));
#endif
}

// Four values gathered into one register: one store instead of four, or a
// store that skips the cache.
template <bool Streaming>
TK_INLINE void Store4(void* at, __m128i v) {
    if constexpr (Streaming)
        _mm_stream_si128(static_cast<__m128i*>(at), v);
    else
        _mm_storeu_si128(static_cast<__m128i*>(at), v);
}
#endif

template <bool Whole, bool Streaming, class Entry>
void LookupBody(const Entry* __restrict t, uint16_t mask, const uint16_t* __restrict in, long n,
                Entry* __restrict out) {
    long i = 0;
#if !defined(THERMOKIT_KERNEL_REFERENCE)
    const uint64_t m = mask;
#if defined(TK_X86_VECTORS)
    if constexpr (Streaming)  // streaming stores need 16-byte aligned addresses
        for (; i < n && (reinterpret_cast<uintptr_t>(out + i) & 15) != 0; ++i) out[i] = t[in[i] & mask];
#endif
    for (; i + 8 <= n; i += 8) {
        uint64_t a, b;
        std::memcpy(&a, in + i, 8);
        std::memcpy(&b, in + i + 4, 8);
#if defined(TK_X86_VECTORS)
        Store4<Streaming>(out + i, Four<Whole>(t, a, m));
        Store4<Streaming>(out + i + 4, Four<Whole>(t, b, m));
#else
        for (int k = 0; k < 4; ++k) out[i + k] = t[Index<Whole>(a, k, m)];
        for (int k = 0; k < 4; ++k) out[i + 4 + k] = t[Index<Whole>(b, k, m)];
#endif
    }
#if defined(TK_X86_VECTORS)
    if constexpr (Streaming) _mm_sfence();  // the values are visible before the caller goes on
#endif
#endif
    for (; i < n; ++i) out[i] = t[in[i] & mask];
}

// The entries may be floats (level tables) read and written as their bits.
typedef uint32_t __attribute__((may_alias)) AnyBits32;

void Lookup32(const uint32_t* table, uint16_t mask, const uint16_t* in, long n, uint32_t* out, bool streaming) {
    const auto* t = reinterpret_cast<const AnyBits32*>(table);
    auto* o = reinterpret_cast<AnyBits32*>(out);
    if (mask == 0xFFFF)
        streaming ? LookupBody<true, true>(t, mask, in, n, o) : LookupBody<true, false>(t, mask, in, n, o);
    else
        streaming ? LookupBody<false, true>(t, mask, in, n, o) : LookupBody<false, false>(t, mask, in, n, o);
}

// ---------------------------------------------------------------- accumulators

// Two correctly rounded double operations a pixel in every variant.
void AccumulateLevels(double* __restrict sum, const unsigned short* __restrict data, long n, unsigned short mask,
                      double weight) {
    for (long i = 0; i < n; ++i) sum[i] += static_cast<double>(static_cast<unsigned short>(data[i] & mask)) * weight;
}
void AccumulateFloats(double* __restrict sum, const float* __restrict data, long n, double weight) {
    for (long i = 0; i < n; ++i) sum[i] += static_cast<double>(data[i]) * weight;
}
void AccumulateDoubles(double* __restrict sum, const double* __restrict data, long n, double weight) {
    for (long i = 0; i < n; ++i) sum[i] += data[i] * weight;
}

void CountLevels(uint32_t* __restrict counts, const unsigned short* __restrict data, long n, unsigned short mask) {
    for (long i = 0; i < n; ++i) counts[i] += static_cast<unsigned short>(data[i] & mask);
}
void FoldCounts(double* __restrict sum, uint32_t* __restrict counts, long n) {
    for (long i = 0; i < n; ++i) {
        sum[i] += static_cast<double>(counts[i]);
        counts[i] = 0;
    }
}

template <class T>
void Squares(double* __restrict square, const T* __restrict data, const double* __restrict mean, long n) {
    for (long i = 0; i < n; ++i) {
        const double d = static_cast<double>(data[i]) - mean[i];
        square[i] += d * d;
    }
}

// ---------------------------------------------------------------- streaming copy

void CopyStreaming(unsigned char* dst, const unsigned char* src, size_t n) {
#if defined(TK_X86_VECTORS)
    if (n >= 64 * 1024) {
        while (reinterpret_cast<uintptr_t>(dst) & 15) {
            *dst++ = *src++;
            --n;
        }
        size_t i = 0;
        for (; i + 64 <= n; i += 64) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 16));
            const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 32));
            const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 48));
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), a);
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 16), b);
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 32), c);
            _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 48), d);
        }
        _mm_sfence();  // the stores are visible before the caller hands the memory over
        std::memcpy(dst + i, src + i, n - i);
        return;
    }
#endif
    std::memcpy(dst, src, n);
}

}  // namespace

THERMOKIT_KERNEL_TABLE(PixelKernels) = {
    {{&MinMax<false, false>, &MinMax<false, true>}, {&MinMax<true, false>, &MinMax<true, true>}},
    &Moments,
    &MaskU16,
    &MaskU32,
    &OrU16,
    &ReverseU16,
    {&RotateU16<true>, &RotateU16<false>},
    {&RotateAny<unsigned char, true>, &RotateAny<unsigned char, false>},
    {&RotateAny<float, true>, &RotateAny<float, false>},
    &GatherRow,
    &HalveRow,
    &DoubleRow,
    &Lookup32,
    &AccumulateLevels,
    &AccumulateFloats,
    &AccumulateDoubles,
    &CountLevels,
    &FoldCounts,
    &Squares<unsigned short>,
    &Squares<float>,
    &Squares<double>,
    &CopyStreaming,
};

}  // namespace thermokit::kernels::THERMOKIT_KERNEL_NS
