#include "thermokit/image/Statistics.h"

#include <cmath>
#include <limits>
#include <vector>

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

// The finite values, in their order; the values themselves when all are.
template <class T>
FrameStatistics FiniteFigures(const T* v, long n) {
    long first = 0;
    while (first < n && std::isfinite(v[first])) ++first;
    if (first == n) return Figures(v, n);
    std::vector<T> kept(v, v + first);
    for (long i = first + 1; i < n; ++i)
        if (std::isfinite(v[i])) kept.push_back(v[i]);
    return Figures(kept.data(), static_cast<long>(kept.size()));
}

}  // namespace

FrameStatistics Measure(const unsigned short* values, long n) { return Figures(values, n); }
FrameStatistics Measure(const float* values, long n) { return values ? FiniteFigures(values, n) : Figures(values, n); }
FrameStatistics Measure(const double* values, long n) { return values ? FiniteFigures(values, n) : Figures(values, n); }

}  // namespace thermokit
