#include "thermokit/image/PixelArray.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "thermokit/image/CMapping.h"
#include "thermokit/image/PixelKernels.h"
#include "thermokit/image/WideInteger.h"
#include "thermokit/platform/CRgn.h"

namespace thermokit {

namespace {

// Largest count of unsigned 16-bit values whose exact sum stays below 2^53,
// where the running double sum is exact and equals the integer sum.
constexpr long long kExactU16Count = (1LL << 53) / 65536;

// True when no bin of a histogram of n values can pass 32 bits (always where
// long itself has 32 bits, as on Windows).
constexpr bool FitsU32Counts(long n) {
    if constexpr (sizeof(long) > 4) return n <= static_cast<long>(0xFFFFFFFFLL);
    return true;
}

// Pixels of [0, point) x [0, line) inside the region, 1 or 0 each.
std::vector<uint8_t> RegionMask(const CRgn* region, unsigned short point, unsigned short line) {
    std::vector<uint8_t> mask(static_cast<size_t>(point) * line);
    if (!mask.empty()) region->FillMask(point, line, mask.data());
    return mask;
}

}  // namespace

// ---------------------------------------------------------------- Mask

void Mask(unsigned short* buffer, long n, unsigned short mask) {
    if (buffer) kernels::MaskU16(buffer, n, mask);
}

void Mask(uint32_t* buffer, long n, uint32_t mask) {
    if (buffer) kernels::MaskU32(buffer, n, mask);
}

// ---------------------------------------------------------------- MinMax

namespace {

template <class T>
void MinMaxLiteral(const T* buffer, long n, T* min, T* max, T* mean, int ignoreZero) {
    T mn = buffer[0], mx = buffer[0];
    double sum = static_cast<double>(buffer[0]);
    long count = n;
    for (long i = 1; i < n; ++i) {
        const T v = buffer[i];
        if (v < mn) {
            if (!(ignoreZero && v == T(0))) mn = v;
        } else if (v > mx) {
            mx = v;
        }
        if (mean) {
            sum += static_cast<double>(v);
            if (ignoreZero && v == T(0)) --count;
        }
    }
    if (min) *min = mn;
    if (max) *max = mx;
    if (mean) *mean = static_cast<T>(sum / static_cast<double>(count));
}

}  // namespace

void MinMax(const unsigned short* buffer, long n, unsigned short* min, unsigned short* max, unsigned short* mean,
            int ignoreZero) {
    if (!buffer || n < 1) return;
    if (n > kExactU16Count) {
        MinMaxLiteral(buffer, n, min, max, mean, ignoreZero);
        return;
    }
    // The first value is taken as it is; the kernel sees the others. Their
    // minimum leaves zeros out when asked, which is what the running
    // comparison does, and the maximum is the plain maximum in both cases.
    const unsigned short first = buffer[0];
    const kernels::MinMaxU16Result r =
        kernels::MinMaxU16(buffer + 1, n - 1, 0xFFFF, ignoreZero != 0, mean != nullptr);
    if (min) *min = std::min(first, r.min);
    if (max) *max = std::max(first, r.max);
    if (mean) {
        const long count = n - (ignoreZero ? static_cast<long>(r.zeros) : 0L);
        const double sum = static_cast<double>(r.sum + first);  // exact: below 2^53
        *mean = static_cast<unsigned short>(sum / static_cast<double>(count));
    }
}

void MinMax(const uint32_t* buffer, long n, uint32_t* min, uint32_t* max, uint32_t* mean, int ignoreZero) {
    if (buffer && n >= 1) MinMaxLiteral(buffer, n, min, max, mean, ignoreZero);
}
void MinMax(const float* buffer, long n, float* min, float* max, float* mean, int ignoreZero) {
    if (buffer && n >= 1) MinMaxLiteral(buffer, n, min, max, mean, ignoreZero);
}
void MinMax(const double* buffer, long n, double* min, double* max, double* mean, int ignoreZero) {
    if (buffer && n >= 1) MinMaxLiteral(buffer, n, min, max, mean, ignoreZero);
}

// ---------------------------------------------------------------- MinMaxRgn

namespace {

template <class T>
void MinMaxRgnT(const T* buffer, unsigned short point, unsigned short line, CRgn* region, T* min, T* max, T* mean) {
    if (!buffer || !region || point == 0 || line == 0) return;
    const std::vector<uint8_t> inside = RegionMask(region, point, line);
    T mn{}, mx{};
    double sum = 0.0;
    long count = 0;
    const size_t size = inside.size();
    for (size_t i = 0; i < size; ++i) {
        if (!inside[i]) continue;
        const T v = buffer[i];
        if (count == 0) {
            mn = mx = v;
        } else if (v < mn) {
            mn = v;
        } else if (v > mx) {
            mx = v;
        }
        sum += static_cast<double>(v);
        ++count;
    }
    if (count == 0) return;
    if (min) *min = mn;
    if (max) *max = mx;
    if (mean) *mean = static_cast<T>(sum / static_cast<double>(count));
}

}  // namespace

void MinMaxRgn(const unsigned short* buffer, unsigned short point, unsigned short line, CRgn* region,
               unsigned short* min, unsigned short* max, unsigned short* mean) {
    MinMaxRgnT(buffer, point, line, region, min, max, mean);
}
void MinMaxRgn(const uint32_t* buffer, unsigned short point, unsigned short line, CRgn* region, uint32_t* min,
               uint32_t* max, uint32_t* mean) {
    MinMaxRgnT(buffer, point, line, region, min, max, mean);
}
void MinMaxRgn(const int32_t* buffer, unsigned short point, unsigned short line, CRgn* region, int32_t* min,
               int32_t* max, int32_t* mean) {
    MinMaxRgnT(buffer, point, line, region, min, max, mean);
}
void MinMaxRgn(const float* buffer, unsigned short point, unsigned short line, CRgn* region, float* min, float* max,
               float* mean) {
    MinMaxRgnT(buffer, point, line, region, min, max, mean);
}
void MinMaxRgn(const double* buffer, unsigned short point, unsigned short line, CRgn* region, double* min,
               double* max, double* mean) {
    MinMaxRgnT(buffer, point, line, region, min, max, mean);
}

// ---------------------------------------------------------------- MinMaxPosition

namespace {

template <class T>
void MinMaxPositionT(const T* buffer, long n, T* min, T* max, long& minIndex, long& maxIndex, T* mean) {
    if (!buffer || n < 1) return;
    T mn = buffer[0], mx = buffer[0];
    long mi = 0, ma = 0;
    double sum = static_cast<double>(buffer[0]);
    for (long i = 1; i < n; ++i) {
        const T v = buffer[i];
        if (v < mn) {
            mn = v;
            mi = i;
        } else if (v > mx) {
            mx = v;
            ma = i;
        }
        sum += static_cast<double>(v);
    }
    if (min) *min = mn;
    if (max) *max = mx;
    minIndex = mi;
    maxIndex = ma;
    if (mean) *mean = static_cast<T>(sum / static_cast<double>(n));
}

}  // namespace

void MinMaxPosition(const unsigned short* buffer, long n, unsigned short* min, unsigned short* max, long& minIndex,
                    long& maxIndex, unsigned short* mean) {
    MinMaxPositionT(buffer, n, min, max, minIndex, maxIndex, mean);
}
void MinMaxPosition(const uint32_t* buffer, long n, uint32_t* min, uint32_t* max, long& minIndex, long& maxIndex,
                    uint32_t* mean) {
    MinMaxPositionT(buffer, n, min, max, minIndex, maxIndex, mean);
}
void MinMaxPosition(const int32_t* buffer, long n, int32_t* min, int32_t* max, long& minIndex, long& maxIndex,
                    int32_t* mean) {
    MinMaxPositionT(buffer, n, min, max, minIndex, maxIndex, mean);
}
void MinMaxPosition(const float* buffer, long n, float* min, float* max, long& minIndex, long& maxIndex,
                    float* mean) {
    MinMaxPositionT(buffer, n, min, max, minIndex, maxIndex, mean);
}
void MinMaxPosition(const double* buffer, long n, double* min, double* max, long& minIndex, long& maxIndex,
                    double* mean) {
    MinMaxPositionT(buffer, n, min, max, minIndex, maxIndex, mean);
}

// ---------------------------------------------------------------- MinMaxIndex

int MinMaxIndex(const unsigned short* buffer, const int* indices, int count, unsigned short mask, unsigned short& min,
                unsigned short& max, unsigned short* mean) {
    if (!buffer || !indices || count < 1) return 0;
    unsigned short mn = static_cast<unsigned short>(buffer[indices[0]] & mask);
    unsigned short mx = mn;
    double sum = mn;
    for (int k = 1; k < count; ++k) {
        const unsigned short v = static_cast<unsigned short>(buffer[indices[k]] & mask);
        if (v < mn) {
            mn = v;
        } else if (v > mx) {
            mx = v;
        }
        sum += v;
    }
    min = mn;
    max = mx;
    if (mean) *mean = static_cast<unsigned short>(sum / static_cast<double>(count));
    return 1;
}

int MinMaxIndex(const unsigned short* buffer, const int* indices, int count, unsigned short mask, unsigned short& min,
                unsigned short& max) {
    return MinMaxIndex(buffer, indices, count, mask, min, max, nullptr);
}

// ---------------------------------------------------------------- StdDev

namespace {

template <class T>
void StdDevLiteral(const T* buffer, long n, double* stdDev, double* mean) {
    double sum = 0.0;
    for (long i = 0; i < n; ++i) sum += static_cast<double>(buffer[i]);
    const double m = sum * (1.0 / static_cast<double>(n));
    double squares = 0.0;
    for (long i = 0; i < n; ++i) {
        const double d = static_cast<double>(buffer[i]) - m;
        squares += d * d;
    }
    if (mean) *mean = m;
    if (stdDev) *stdDev = std::sqrt(std::fabs(squares * (1.0 / static_cast<double>(n))));
}

// Integer of 512 bits, just what the exact sum of squared deviations needs
// (all values here are positive: read as unsigned).
using Wide = detail::WideInteger<8>;

// sum over i of (v_i - m)^2, exactly, rounded once; m = mantissa x 2^-p.
double ExactSquaredDeviations(const kernels::MomentsU16& mo, long n, double m) {
    if (m == 0.0) return Wide(mo.sumSquares).ToDoubleUnsigned();
    int e = 0;
    const double fraction = std::frexp(m, &e);
    uint64_t mantissa = static_cast<uint64_t>(std::ldexp(fraction, 53));
    int p = 53 - e;
    while ((mantissa & 1u) == 0 && p > 0) {
        mantissa >>= 1;
        --p;
    }
    // (v - m)^2 x 4^p = (v x 2^p - mantissa)^2, summed:
    // sumSquares x 4^p - sum x mantissa x 2^(p + 1) + n x mantissa^2.
    Wide a(mo.sumSquares);
    a.ShiftLeft(2 * p);
    Wide b(static_cast<kernels::uint128>(n));
    b.Multiply(mantissa).Multiply(mantissa);
    Wide c(static_cast<kernels::uint128>(mo.sum));
    c.Multiply(mantissa).ShiftLeft(p + 1);
    a.Add(b).Subtract(c);
    return std::ldexp(a.ToDoubleUnsigned(), -2 * p);
}

}  // namespace

void StdDev(const unsigned short* buffer, long n, double* stdDev, double* mean) {
    if (!buffer || n < 1) return;
    if (n > kExactU16Count) {
        StdDevLiteral(buffer, n, stdDev, mean);
        return;
    }
    const kernels::MomentsU16 mo = kernels::MomentsOfU16(buffer, n);
    // Below 2^53 the exact sum is the running double sum.
    const double m = static_cast<double>(mo.sum) * (1.0 / static_cast<double>(n));
    if (mean) *mean = m;
    if (stdDev) {
        // m is at most 65535, so its scale p stays below 53 + 63 and every
        // intermediate fits in 512 bits.
        const double squares = ExactSquaredDeviations(mo, n, m);
        *stdDev = std::sqrt(std::fabs(squares * (1.0 / static_cast<double>(n))));
    }
}

void StdDev(const uint32_t* buffer, long n, double* stdDev, double* mean) {
    if (buffer && n >= 1) StdDevLiteral(buffer, n, stdDev, mean);
}
void StdDev(const int32_t* buffer, long n, double* stdDev, double* mean) {
    if (buffer && n >= 1) StdDevLiteral(buffer, n, stdDev, mean);
}
void StdDev(const float* buffer, long n, double* stdDev, double* mean) {
    if (buffer && n >= 1) StdDevLiteral(buffer, n, stdDev, mean);
}
void StdDev(const double* buffer, long n, double* stdDev, double* mean) {
    if (buffer && n >= 1) StdDevLiteral(buffer, n, stdDev, mean);
}

// ---------------------------------------------------------------- RemoveRgn

namespace {

template <class T>
void RemoveRgnT(T* buffer, unsigned short point, unsigned short line, CRgn* region, T value) {
    if (!buffer || !region || line == 0 || point == 0) return;
    const std::vector<uint8_t> inside = RegionMask(region, point, line);
    const size_t size = inside.size();
    for (size_t i = 0; i < size; ++i) {
        if (!inside[i]) buffer[i] = value;
    }
}

}  // namespace

void RemoveRgn(unsigned short* buffer, unsigned short point, unsigned short line, CRgn* region, unsigned short value) {
    RemoveRgnT(buffer, point, line, region, value);
}
void RemoveRgn(uint32_t* buffer, unsigned short point, unsigned short line, CRgn* region, uint32_t value) {
    RemoveRgnT(buffer, point, line, region, value);
}
void RemoveRgn(int32_t* buffer, unsigned short point, unsigned short line, CRgn* region, int32_t value) {
    RemoveRgnT(buffer, point, line, region, value);
}
void RemoveRgn(float* buffer, unsigned short point, unsigned short line, CRgn* region, float value) {
    RemoveRgnT(buffer, point, line, region, value);
}
void RemoveRgn(double* buffer, unsigned short point, unsigned short line, CRgn* region, double value) {
    RemoveRgnT(buffer, point, line, region, value);
}

// ---------------------------------------------------------------- Swap

void Swap(unsigned short* buffer, long n) {
    if (!buffer) return;
    for (long i = 0; i < n; ++i) buffer[i] = __builtin_bswap16(buffer[i]);
}
void Swap(uint32_t* buffer, long n) {
    if (!buffer) return;
    for (long i = 0; i < n; ++i) buffer[i] = __builtin_bswap32(buffer[i]);
}
void Swap(int32_t* buffer, long n) { Swap(reinterpret_cast<uint32_t*>(buffer), n); }
void Swap(float* buffer, long n) {
    if (!buffer) return;
    for (long i = 0; i < n; ++i) {
        uint32_t u;
        std::memcpy(&u, buffer + i, sizeof u);
        u = __builtin_bswap32(u);
        std::memcpy(buffer + i, &u, sizeof u);
    }
}

// ---------------------------------------------------------------- histograms

namespace {

template <class Count>
int CalculateHistoT(const unsigned short* pixels, long n, const int* indices, unsigned short mask,
                    unsigned short& min, unsigned short& max, Count*& histo) {
    if (n < 1 || !pixels || mask == 0) return 0;
    min = 0;
    max = 0;
    const size_t bins = static_cast<size_t>(mask) + 1;
    histo = new (std::nothrow) Count[bins]();
    if (!histo) return 0;
    if (indices) {
        for (long k = 0; k < n; ++k) ++histo[pixels[indices[k]] & mask];
    } else if (FitsU32Counts(n)) {
        std::vector<uint32_t> counts(bins, 0);
        kernels::HistogramU16(pixels, n, mask, counts.data());
        for (size_t b = 0; b < bins; ++b) histo[b] = static_cast<Count>(counts[b]);
    } else {
        for (long i = 0; i < n; ++i) ++histo[pixels[i] & mask];
    }
    // The smallest and largest masked values are the outer non-empty bins.
    size_t lo = 0;
    while (histo[lo] == 0) ++lo;
    size_t hi = bins - 1;
    while (histo[hi] == 0) --hi;
    min = static_cast<unsigned short>(lo);
    max = static_cast<unsigned short>(hi);
    return 1;
}

bool IsPercentage(float p) { return p >= 0.0f && p <= 100.0f; }

template <class Count>
int ApplyThresholdT(const Count* histo, unsigned short maxLevel, long total, float pctLow, float pctHigh,
                    unsigned short& min, unsigned short& max) {
    if (!histo || maxLevel == 0 || min > max || min > maxLevel || max > maxLevel) return 0;
    if (!IsPercentage(pctLow) || !IsPercentage(pctHigh)) return 0;
    // Single precision throughout, as the counts have always been computed.
    const long highCount = static_cast<long>(static_cast<float>(total) * pctHigh * 0.01f);
    const long lowCount = static_cast<long>(static_cast<float>(total) * pctLow * 0.01f);

    // The test follows the addition: the bin where the count is reached is
    // cut as well, and a count never reached collapses the range.
    int lo = min, hi = max;
    long sum = 0;
    bool reached = false;
    for (int b = hi; b >= lo; --b) {
        sum += static_cast<long>(histo[b]);
        if (sum >= highCount) {
            hi = b > lo ? b - 1 : lo;
            reached = true;
            break;
        }
    }
    if (!reached) hi = lo;

    sum = 0;
    reached = false;
    for (int a = lo; a <= hi; ++a) {
        sum += static_cast<long>(histo[a]);
        if (sum >= lowCount) {
            lo = a < hi ? a + 1 : hi;
            reached = true;
            break;
        }
    }
    if (!reached) lo = hi;

    min = static_cast<unsigned short>(lo);
    max = static_cast<unsigned short>(hi);
    return (hi <= maxLevel && lo <= maxLevel && lo <= hi) ? 1 : 0;
}

}  // namespace

int CalculateHisto(const unsigned short* pixels, long n, const int* indices, unsigned short mask,
                   unsigned short& min, unsigned short& max, long*& histo) {
    return CalculateHistoT(pixels, n, indices, mask, min, max, histo);
}
int CalculateHisto(const unsigned short* pixels, long n, const int* indices, unsigned short mask,
                   unsigned short& min, unsigned short& max, int32_t*& histo) {
    return CalculateHistoT(pixels, n, indices, mask, min, max, histo);
}

int ApplyThresholdMinMaxHisto(const long* histo, unsigned short maxLevel, long total, float pctLow, float pctHigh,
                              unsigned short& min, unsigned short& max) {
    return ApplyThresholdT(histo, maxLevel, total, pctLow, pctHigh, min, max);
}
int ApplyThresholdMinMaxHisto(const int32_t* histo, unsigned short maxLevel, long total, float pctLow,
                              float pctHigh, unsigned short& min, unsigned short& max) {
    return ApplyThresholdT(histo, maxLevel, total, pctLow, pctHigh, min, max);
}

int MinMaxHisto(const unsigned short* pixels, long n, unsigned short* min, unsigned short* max,
                unsigned short maxLevel, float pctLow, float pctHigh, const int* indices) {
    if (n == 0 || !pixels || !min || !max) return 0;
    *min = 0;
    *max = 0;
    if (pctHigh == -1.0f) {
        // pctLow is the share of pixels to keep; the rest is cut half at each end.
        pctLow = pctHigh = static_cast<float>((100 - pctLow) * 0.5);
    }
    if (!IsPercentage(pctLow) || !IsPercentage(pctHigh)) return 0;
    unsigned short mn = 0, mx = 0;
    long* histo = nullptr;
    if (!CalculateHisto(pixels, n, indices, maxLevel, mn, mx, histo)) return 0;
    const int ok = ApplyThresholdMinMaxHisto(histo, maxLevel, n, pctLow, pctHigh, mn, mx);
    delete[] histo;
    if (!ok) return 0;
    *min = mn;
    *max = mx;
    return 1;
}

int MinMaxHistoRgn(const unsigned short* pixels, unsigned short point, unsigned short line, CRgn* region,
                   unsigned short* min, unsigned short* max, unsigned short maxLevel, float pctLow, float pctHigh) {
    const long size = static_cast<long>(point) * line;
    if (!region) return MinMaxHisto(pixels, size, min, max, maxLevel, pctLow, pctHigh, nullptr);
    if (!pixels || size == 0) return MinMaxHisto(pixels, 0, min, max, maxLevel, pctLow, pctHigh, nullptr);
    const std::vector<uint8_t> inside = RegionMask(region, point, line);
    std::vector<int> indices;
    indices.reserve(inside.size());
    for (size_t i = 0; i < inside.size(); ++i) {
        if (inside[i]) indices.push_back(static_cast<int>(i));
    }
    if (indices.empty()) {
        if (min) *min = 0;
        if (max) *max = 0;
        return 0;
    }
    return MinMaxHisto(pixels, static_cast<long>(indices.size()), min, max, maxLevel, pctLow, pctHigh,
                       indices.data());
}

// ---------------------------------------------------------------- RotateImage

namespace {

template <class T>
void QuarterTurn(T* buffer, unsigned short point, unsigned short line, bool clockwise) {
    const size_t size = static_cast<size_t>(point) * line;
    std::unique_ptr<T[]> source(new T[size]);
    std::memcpy(source.get(), buffer, size * sizeof(T));
    if (clockwise) {
        kernels::Rotate90(source.get(), buffer, point, line);
    } else {
        kernels::Rotate270(source.get(), buffer, point, line);
    }
}

template <class T>
void RotateImageT(T* buffer, unsigned short point, unsigned short line, unsigned short code, CMapping* mapping) {
    if (!buffer || point == 0 || line == 0) return;
    switch (code) {
        case 90: QuarterTurn(buffer, point, line, true); break;
        case 270: QuarterTurn(buffer, point, line, false); break;
        case 180:
            if constexpr (std::is_same_v<T, unsigned short>) {
                kernels::Reverse(buffer, buffer, static_cast<long>(point) * line);
            } else {
                std::reverse(buffer, buffer + static_cast<size_t>(point) * line);
            }
            break;
        case 360:
            if (mapping) mapping->Apply(buffer);
            break;
        default: break;
    }
}

}  // namespace

void RotateImage(unsigned char* buffer, unsigned short point, unsigned short line, unsigned short code,
                 CMapping* mapping) {
    RotateImageT(buffer, point, line, code, mapping);
}
void RotateImage(unsigned short* buffer, unsigned short point, unsigned short line, unsigned short code,
                 CMapping* mapping) {
    RotateImageT(buffer, point, line, code, mapping);
}
void RotateImage(float* buffer, unsigned short point, unsigned short line, unsigned short code, CMapping* mapping) {
    RotateImageT(buffer, point, line, code, mapping);
}

// ---------------------------------------------------------------- time of day

void MergeTime(double* time, unsigned short hour, unsigned short minute, unsigned short second,
               unsigned short hundredths, unsigned short thousandths, unsigned short micro) {
    if (!time) return;
    *time = hour * 3600 + minute * 60 + second + hundredths * 0.01 + thousandths * 0.001 + micro * 1e-6;
}

void MergeTime(double* time, unsigned short hour, unsigned short minute, unsigned short second, unsigned long micro) {
    if (!time) return;
    *time = hour * 3600 + minute * 60 + second + static_cast<uint32_t>(micro) * 1e-6;
}

void MergeTime(double* time, unsigned long seconds, unsigned long micro) {
    if (!time) return;
    *time = static_cast<double>(static_cast<uint32_t>(seconds)) + static_cast<uint32_t>(micro) * 1e-6;
}

void SplitTime(double time, unsigned short* hour, unsigned short* minute, unsigned short* second,
               unsigned short* hundredths, unsigned short* thousandths, unsigned short* micro) {
    // Whole units by truncation, each remainder kept at 0 or above.
    const auto whole = [](double v) {
        return std::isfinite(v) && std::fabs(v) < 9.2e18 ? static_cast<long long>(v) : 0LL;
    };
    const long long h = whole(time / 3600);
    double rest = time - static_cast<double>(h) * 3600;
    if (!(rest >= 0)) rest = 0;
    const long long m = whole(rest / 60);
    rest -= static_cast<double>(m) * 60;
    if (!(rest >= 0)) rest = 0;
    const long long s = whole(rest);
    rest -= static_cast<double>(s);
    if (!(rest >= 0)) rest = 0;
    const long long c = whole(100 * rest);
    rest -= static_cast<double>(c) * 0.01;
    if (!(rest >= 0)) rest = 0;
    if (hour) *hour = static_cast<unsigned short>(h);
    if (minute) *minute = static_cast<unsigned short>(m);
    if (second) *second = static_cast<unsigned short>(s);
    if (hundredths) *hundredths = static_cast<unsigned short>(c);
    if (thousandths) {
        const long long t = whole(1000 * rest);
        *thousandths = static_cast<unsigned short>(t);
        if (micro) {
            rest -= static_cast<double>(t) * 0.001;
            if (!(rest >= 0)) rest = 0;
            *micro = static_cast<unsigned short>(whole(rest * 1e6));
        }
    }
}

// ---------------------------------------------------------------- interlaced fields

namespace {

template <class T>
int InterlaceT(const T* const* fields, int k, T* combined, unsigned short point, unsigned short line) {
    if (!combined || point == 0 || line == 0) return 0;
    for (int f = 0; f < k; ++f) {
        if (!fields[f]) return 0;
    }
    for (int y = 0; y < line; ++y) {
        std::memcpy(combined + static_cast<size_t>(y) * point, fields[y % k] + static_cast<size_t>(y / k) * point,
                    static_cast<size_t>(point) * sizeof(T));
    }
    return 1;
}

template <class T>
int DeInterlaceT(const T* combined, T* const* fields, int k, unsigned short point, unsigned short line) {
    if (!combined || point == 0 || line == 0) return 0;
    for (int f = 0; f < k; ++f) {
        if (!fields[f]) return 0;
    }
    for (int y = 0; y < line; ++y) {
        std::memcpy(fields[y % k] + static_cast<size_t>(y / k) * point, combined + static_cast<size_t>(y) * point,
                    static_cast<size_t>(point) * sizeof(T));
    }
    return 1;
}

}  // namespace

int InterlaceImage(const unsigned short* field0, const unsigned short* field1, const unsigned short* field2,
                   unsigned short* combined, unsigned short point, unsigned short line) {
    const unsigned short* f[] = {field0, field1, field2};
    return InterlaceT(f, 3, combined, point, line);
}
int InterlaceImage(const unsigned short* field0, const unsigned short* field1, const unsigned short* field2,
                   const unsigned short* field3, unsigned short* combined, unsigned short point, unsigned short line) {
    const unsigned short* f[] = {field0, field1, field2, field3};
    return InterlaceT(f, 4, combined, point, line);
}
int InterlaceImage(const float* field0, const float* field1, const float* field2, float* combined,
                   unsigned short point, unsigned short line) {
    const float* f[] = {field0, field1, field2};
    return InterlaceT(f, 3, combined, point, line);
}
int InterlaceImage(const float* field0, const float* field1, const float* field2, const float* field3,
                   float* combined, unsigned short point, unsigned short line) {
    const float* f[] = {field0, field1, field2, field3};
    return InterlaceT(f, 4, combined, point, line);
}
int DeInterlaceImage(const unsigned short* combined, unsigned short* field0, unsigned short* field1,
                     unsigned short* field2, unsigned short point, unsigned short line) {
    unsigned short* f[] = {field0, field1, field2};
    return DeInterlaceT(combined, f, 3, point, line);
}
int DeInterlaceImage(const unsigned short* combined, unsigned short* field0, unsigned short* field1,
                     unsigned short* field2, unsigned short* field3, unsigned short point, unsigned short line) {
    unsigned short* f[] = {field0, field1, field2, field3};
    return DeInterlaceT(combined, f, 4, point, line);
}
int DeInterlaceImage(const float* combined, float* field0, float* field1, float* field2, unsigned short point,
                     unsigned short line) {
    float* f[] = {field0, field1, field2};
    return DeInterlaceT(combined, f, 3, point, line);
}
int DeInterlaceImage(const float* combined, float* field0, float* field1, float* field2, float* field3,
                     unsigned short point, unsigned short line) {
    float* f[] = {field0, field1, field2, field3};
    return DeInterlaceT(combined, f, 4, point, line);
}

// ---------------------------------------------------------------- line doubling

void InterpolateImage(const unsigned short* in, unsigned short* out, unsigned short point, unsigned short line) {
    if (!in || !out || point == 0 || line == 0) return;
    const size_t p = point;
    for (size_t y = 0; y < line; ++y) {
        const unsigned short* a = in + y * p;
        unsigned short* even = out + 2 * y * p;
        unsigned short* odd = even + p;
        std::memcpy(even, a, p * sizeof(unsigned short));
        if (y + 1 < line) {
            const unsigned short* b = a + p;
            for (size_t x = 0; x < p; ++x) odd[x] = static_cast<unsigned short>((a[x] + b[x]) / 2);
        } else {
            std::memcpy(odd, a, p * sizeof(unsigned short));
        }
    }
}

double GetPixelRes(double pitch, double focal, double distance) {
    if (!(focal > 0.0)) return 0.0;
    return pitch * distance / focal;
}

}  // namespace thermokit
