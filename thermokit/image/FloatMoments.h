#pragma once
// Figures of float values that do not depend on the order the values come
// in: a frame of temperatures measured pixel by pixel, or through the counts
// of its levels (each level's value times its count), on any number of
// threads, gives the same figures to the last bit.
//
// A finite float is a whole significand times a power of two, so the sums
// of the values and of their squares are kept exactly, per exponent, in
// 128-bit integers; nothing is rounded until the figures are formed: the
// mean is the exact sum rounded once to double, times 1/n, and the standard
// deviation the square root of the exact sum of squared deviations from that
// mean, rounded once, times 1/n (as for levels, see StdDev).
#include <cstdint>
#include <cstring>

#include "thermokit/image/Statistics.h"

namespace thermokit {

class FloatMoments {
public:
    // count times v; a value that is not finite is left out.
    void Add(float v, uint64_t count) {
        uint32_t u;
        std::memcpy(&u, &v, sizeof u);
        const unsigned e = (u >> 23) & 0xffu;
        if (e == 0xffu || count == 0) return;
        if (m_count == 0) m_min = m_max = v;
        m_min = v < m_min ? v : m_min;
        m_max = v > m_max ? v : m_max;
        const uint64_t m = (u & 0x7fffffu) | (e ? 0x800000u : 0u);
        const Sum s = static_cast<Sum>(static_cast<Squares>(m) * count);
        m_sum[e] += (u >> 31) ? -s : s;
        m_squares[e] += static_cast<Squares>(m * m) * count;
        m_count += count;
    }
    // The finite ones among v[0..n-1].
    void Add(const float* v, long n);
    // counts[i] times v[i] for i < n (the finite ones).
    void Add(const float* v, const uint32_t* counts, long n);
    // count whole numbers (below 2^24) of these sum and sum of squares, extremes min and max.
    __extension__ void AddWhole(uint64_t count, uint64_t sum, unsigned __int128 squares, float min, float max);

    long Count() const { return static_cast<long>(m_count); }
    // min, max, mean, standard deviation and count of what was added; every
    // figure NaN and the count 0 when nothing was.
    FrameStatistics Figures() const;

private:
    __extension__ typedef __int128 Sum;
    __extension__ typedef unsigned __int128 Squares;

    // Index: the float's biased exponent field (0..254).
    template <class Counts>
    void AddRuns(const float* v, long n, Counts count);

    Sum m_sum[255] = {};
    Squares m_squares[255] = {};
    uint64_t m_count = 0;
    float m_min = 0.0f, m_max = 0.0f;
};

}  // namespace thermokit
