// The lock-in accumulation, compiled once per instruction-set variant (and
// once as the scalar reference): see platform/KernelTable.h.
#include "thermokit/acquisition/LockinKernels.h"

#include "thermokit/platform/KernelTable.h"

#if !defined(THERMOKIT_KERNEL_NS)
#error "compiled only through the kernel variants of thermokit/CMakeLists.txt"
#endif

namespace thermokit::kernels::THERMOKIT_KERNEL_NS {

namespace {

#if defined(THERMOKIT_KERNEL_REFERENCE)
// The scalar path: four pixels a pass, then the rest one by one.
// kSubtract: each level less its reference value.
template <bool kSubtract>
void AccumulateWith(const unsigned short* levels, const double* reference, int32_t n, double c, double s,
                    double* real, double* imag) {
    const auto level = [&](int32_t i) {
        if constexpr (kSubtract)
            return static_cast<double>(levels[i]) - reference[i];
        else
            return static_cast<double>(levels[i]);
    };
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const double d0 = level(i);
        const double d1 = level(i + 1);
        const double d2 = level(i + 2);
        const double d3 = level(i + 3);
        real[i] += d0 * c;
        imag[i] += d0 * s;
        real[i + 1] += d1 * c;
        imag[i + 1] += d1 * s;
        real[i + 2] += d2 * c;
        imag[i + 2] += d2 * s;
        real[i + 3] += d3 * c;
        imag[i + 3] += d3 * s;
    }
    for (; i < n; ++i) {
        const double d = level(i);
        real[i] += d * c;
        imag[i] += d * s;
    }
}
#else
// The vector paths: plain loops the compiler turns into two (SSE2, NEON),
// four (AVX2) or eight (AVX-512) doubles at a time. Each sum is the same
// sequence of IEEE operations as the scalar path, and no multiply-add is
// fused, so the results agree to the bit.
template <bool kSubtract>
void AccumulateWith(const unsigned short* __restrict levels, const double* __restrict reference, int32_t n,
                    double c, double s, double* __restrict real, double* __restrict imag) {
    for (int32_t i = 0; i < n; ++i) {
        double d = static_cast<double>(levels[i]);
        if constexpr (kSubtract) d -= reference[i];
        real[i] += d * c;
        imag[i] += d * s;
    }
}
#endif

void Accumulate(const unsigned short* levels, const double* reference, int32_t n, double c, double s, double* real,
                double* imag) {
    if (reference)
        AccumulateWith<true>(levels, reference, n, c, s, real, imag);
    else
        AccumulateWith<false>(levels, reference, n, c, s, real, imag);
}

#if !defined(THERMOKIT_KERNEL_REFERENCE)
// Frames frame after frame within each pixel: the sums are read and written
// once for all of them.
template <int kFrames>
void AccumulateFrames(const unsigned short* __restrict levels, const double* c, const double* s, int32_t n,
                      double* __restrict real, double* __restrict imag) {
    double cf[kFrames], sf[kFrames];
    for (int f = 0; f < kFrames; ++f) {
        cf[f] = c[f];
        sf[f] = s[f];
    }
    for (int32_t i = 0; i < n; ++i) {
        double re = real[i], im = imag[i];
        for (int f = 0; f < kFrames; ++f) {
            const double d = static_cast<double>(levels[static_cast<size_t>(f) * static_cast<size_t>(n) + i]);
            re += d * cf[f];
            im += d * sf[f];
        }
        real[i] = re;
        imag[i] = im;
    }
}
#endif

void AccumulateHeld(const unsigned short* levels, int frames, const double* c, const double* s, int32_t n,
                    double* real, double* imag) {
#if !defined(THERMOKIT_KERNEL_REFERENCE)
    switch (frames) {
        case 8: return AccumulateFrames<8>(levels, c, s, n, real, imag);
        case 7: return AccumulateFrames<7>(levels, c, s, n, real, imag);
        case 6: return AccumulateFrames<6>(levels, c, s, n, real, imag);
        case 5: return AccumulateFrames<5>(levels, c, s, n, real, imag);
        case 4: return AccumulateFrames<4>(levels, c, s, n, real, imag);
        case 3: return AccumulateFrames<3>(levels, c, s, n, real, imag);
        case 2: return AccumulateFrames<2>(levels, c, s, n, real, imag);
        default: break;
    }
#endif
    for (int f = 0; f < frames; ++f)
        AccumulateWith<false>(levels + static_cast<size_t>(f) * static_cast<size_t>(n), nullptr, n, c[f], s[f], real,
                              imag);
}

}  // namespace

THERMOKIT_KERNEL_TABLE(LockinKernels) = {&Accumulate, &AccumulateHeld};

}  // namespace thermokit::kernels::THERMOKIT_KERNEL_NS
