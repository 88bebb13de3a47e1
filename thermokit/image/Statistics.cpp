#include "thermokit/image/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "thermokit/image/FloatMoments.h"
#include "thermokit/image/PixelArray.h"

namespace thermokit {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
FrameStatistics Figures(const T* v, long n) {
    FrameStatistics f{kNaN, kNaN, kNaN, kNaN, 0};
    if (!v || n <= 0) return f;
    T min{}, max{};
    MinMax(v, n, &min, &max, static_cast<T*>(nullptr), 0);
    StdDev(v, n, &f.stdDev, &f.mean);
    f.min = static_cast<double>(min);
    f.max = static_cast<double>(max);
    f.count = n;
    return f;
}

// Index of the first value that is not finite (NaN, an infinity), or n. The
// exponent bits are tested a block at a time, a loop the compiler turns into
// vector code; a block that holds such a value is searched again one by one.
template <class T>
long FirstNotFinite(const T* v, long n) {
    using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
    constexpr Bits kExponent = static_cast<Bits>(sizeof(T) == 4 ? 0x7f800000ull : 0x7ff0000000000000ull);
    constexpr long kBlock = 1024;
    for (long b = 0; b < n; b += kBlock) {
        const long e = std::min(n, b + kBlock);
        Bits bad = 0;
        for (long i = b; i < e; ++i) {
            Bits u;
            std::memcpy(&u, v + i, sizeof u);
            bad |= static_cast<Bits>((u & kExponent) == kExponent);
        }
        if (bad)
            for (long i = b; i < e; ++i)
                if (!std::isfinite(v[i])) return i;
    }
    return n;
}

// The finite values, in their order; the values themselves when all are.
template <class T>
FrameStatistics FiniteFigures(const T* v, long n) {
    const long first = FirstNotFinite(v, n);
    if (first == n) return Figures(v, n);
    std::vector<T> kept(v, v + first);
    for (long i = first + 1; i < n; ++i)
        if (std::isfinite(v[i])) kept.push_back(v[i]);
    return Figures(kept.data(), static_cast<long>(kept.size()));
}

}  // namespace

FrameStatistics Measure(const unsigned short* values, long n) { return Figures(values, n); }
FrameStatistics Measure(const float* values, long n) {
    FloatMoments moments;
    if (values && n > 0) moments.Add(values, n);
    return moments.Figures();
}
FrameStatistics Measure(const double* values, long n) { return values ? FiniteFigures(values, n) : Figures(values, n); }

}  // namespace thermokit
