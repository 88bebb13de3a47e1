#include "thermokit/image/FloatMoments.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "thermokit/image/WideInteger.h"

namespace thermokit {

namespace {

typedef detail::WideU128 U128;
typedef detail::WideS128 S128;

// Two's complement integer of 1024 bits: what the exact sums of squared
// deviations of floats need (their values span 2^-149..2^128, the mean's
// significand adds 53 bits below, the count 63 above; see Figures).
using Big = detail::WideInteger<16>;

// The power of two of a significand with exponent field e (subnormals: field 0, as field 1).
int Scale(int e) { return (e == 0 ? 1 : e) - 150; }

uint32_t BitsOf(float v) {
    uint32_t u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

}  // namespace

template <class Counts>
void FloatMoments::AddRuns(const float* v, long n, Counts count) {
    long i = 0;
    while (i < n && (!std::isfinite(v[i]) || count(i) == 0)) ++i;
    if (i == n) return;
    if (m_count == 0) m_min = m_max = v[i];
    float mn = m_min, mx = m_max;
    // Runs of values of one exponent are summed in registers.
    unsigned current = 0;
    Sum sum = 0;
    Squares squares = 0;
    uint64_t counted = 0;
    for (; i < n; ++i) {
        const float f = v[i];
        const uint32_t u = BitsOf(f);
        const unsigned e = (u >> 23) & 0xffu;
        const uint64_t c = count(i);
        if (e == 0xffu || c == 0) continue;
        if (e != current) {
            m_sum[current] += sum;
            m_squares[current] += squares;
            sum = 0;
            squares = 0;
            current = e;
        }
        const uint64_t m = (u & 0x7fffffu) | (e ? 0x800000u : 0u);
        const uint64_t mc = m * c;  // below 2^56 for counts below 2^32
        sum += (u >> 31) ? -static_cast<Sum>(mc) : static_cast<Sum>(mc);
        squares += static_cast<Squares>(mc) * m;
        counted += c;
        mn = f < mn ? f : mn;
        mx = f > mx ? f : mx;
    }
    m_sum[current] += sum;
    m_squares[current] += squares;
    m_min = mn;
    m_max = mx;
    m_count += counted;
}

void FloatMoments::Add(const float* v, long n) {
    long i = 0;
    while (i < n && !std::isfinite(v[i])) ++i;
    if (i == n) return;
    if (m_count == 0) m_min = m_max = v[i];
    // Two lanes (even and odd places), each with 64-bit sums per exponent
    // (65535 significands of 24 bits and their squares fit) and its own
    // extremes: no branch on the values, and no chain of additions or
    // comparisons that waits on the one before.
    struct Bin {
        int64_t sum;
        uint64_t squares;
    };
    Bin bins[2][256] = {};
    float mn[2] = {m_min, m_min}, mx[2] = {m_max, m_max};
    uint64_t counted = 0;
    const auto flush = [&] {
        for (auto& lane : bins)
            for (int e = 0; e < 255; ++e) {
                m_sum[e] += lane[e].sum;
                m_squares[e] += lane[e].squares;
                lane[e] = Bin{0, 0};
            }
    };
    const auto add = [&](float f, int lane) {
        const uint32_t u = BitsOf(f);
        const unsigned e = (u >> 23) & 0xffu;
        const bool finite = e != 0xffu;
        const int64_t m = finite ? static_cast<int64_t>((u & 0x7fffffu) | (e ? 0x800000u : 0u)) : 0;
        Bin& b = bins[lane][e];  // bin 255 (not finite) gets zeros
        b.sum += (u >> 31) ? -m : m;
        b.squares += static_cast<uint64_t>(m * m);
        counted += finite;
        if (finite) {
            mn[lane] = f < mn[lane] ? f : mn[lane];
            mx[lane] = f > mx[lane] ? f : mx[lane];
        }
    };
    while (i < n) {
        const long end = std::min(n, i + 2 * 65535L);
        for (; i + 1 < end; i += 2) {
            add(v[i], 0);
            add(v[i + 1], 1);
        }
        if (i < end) add(v[i++], 0);
        flush();
    }
    m_min = mn[1] < mn[0] ? mn[1] : mn[0];
    m_max = mx[1] > mx[0] ? mx[1] : mx[0];
    m_count += counted;
}

void FloatMoments::Add(const float* v, const uint32_t* counts, long n) {
    AddRuns(v, n, [counts](long i) { return uint64_t{counts[i]}; });
}

void FloatMoments::AddWhole(uint64_t count, uint64_t sum, Squares squares, float min, float max) {
    if (count == 0) return;
    if (m_count == 0) m_min = m_max = min;
    m_min = min < m_min ? min : m_min;
    m_max = max > m_max ? max : m_max;
    m_sum[150] += static_cast<Sum>(sum);  // exponent field 150: significands of scale 2^0
    m_squares[150] += squares;
    m_count += count;
}

FrameStatistics FloatMoments::Figures() const {
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    FrameStatistics f{kNaN, kNaN, kNaN, kNaN, 0};
    if (m_count == 0) return f;
    f.min = m_min;
    f.max = m_max;
    f.count = static_cast<long>(m_count);
    const double inverse = 1.0 / static_cast<double>(m_count);
    int lo = 0;
    while (lo < 255 && m_squares[lo] == 0) ++lo;
    if (lo == 255) {  // only zeros
        f.mean = 0.0 * inverse;
        f.stdDev = 0.0;
        return f;
    }
    const int base = Scale(lo);
    // The sum, in units of 2^base.
    Big sum;
    for (int e = lo; e < 255; ++e)
        if (m_sum[e] != 0) sum.Add(Big::Signed(m_sum[e]).ShiftLeft(Scale(e) - base));
    const double mean = std::ldexp(sum.ToDouble(), base) * inverse;
    f.mean = mean;
    // The sum of (v - mean)^2 = squares - 2 x mean x sum + n x mean^2, in
    // units of 2^low with mean = significand x 2^k.
    int64_t significand = 0;
    int k = 0, low = 2 * base;
    if (mean != 0.0) {
        int exponent = 0;
        const double fraction = std::frexp(mean, &exponent);
        significand = static_cast<int64_t>(std::ldexp(fraction, 53));
        k = exponent - 53;
        while ((significand & 1) == 0) {
            significand /= 2;
            ++k;
        }
        low = std::min({2 * base, base + k + 1, 2 * k});
    }
    Big q;
    for (int e = lo; e < 255; ++e)
        if (m_squares[e] != 0) q.Add(Big(m_squares[e]).ShiftLeft(2 * Scale(e) - low));
    if (significand != 0) {
        const uint64_t magnitude = static_cast<uint64_t>(significand < 0 ? -significand : significand);
        Big twice = sum;
        twice.Multiply(magnitude).ShiftLeft(base + k + 1 - low);
        if (significand < 0) twice.Negate();
        q.Subtract(twice);
        Big n(static_cast<U128>(m_count));
        q.Add(n.Multiply(magnitude).Multiply(magnitude).ShiftLeft(2 * k - low));
    }
    const double squares = std::ldexp(q.ToDouble(), low);
    f.stdDev = std::sqrt(std::fabs(squares * inverse));
    return f;
}

}  // namespace thermokit
