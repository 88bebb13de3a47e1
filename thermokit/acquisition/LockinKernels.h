#pragma once
// The accumulation kernel of CLockin, compiled once per instruction-set
// variant and once as the scalar reference (platform/KernelTable.h).
// Internal to the library.
#include <cstdint>

namespace thermokit::kernels {

struct LockinKernels {
    // d = levels[i] (less reference[i] when reference is given);
    // real[i] += d x c; imag[i] += d x s.
    void (*accumulate)(const unsigned short* levels, const double* reference, int32_t n, double c, double s,
                       double* real, double* imag);
    // The same for `frames` frames one after the other (1 to 8), frame f's
    // n levels at levels + f n, its angle's cosine and sine in c[f], s[f].
    void (*accumulateHeld)(const unsigned short* levels, int frames, const double* c, const double* s, int32_t n,
                           double* real, double* imag);
};

const LockinKernels& Lockin();
const LockinKernels& LockinReference();

}  // namespace thermokit::kernels
