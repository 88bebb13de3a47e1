// The gain/offset kernels, compiled once per instruction-set variant (and
// once as the scalar reference): see platform/KernelTable.h.
#include "thermokit/nuc/NucKernels.h"

#include "thermokit/platform/KernelTable.h"

#if !defined(THERMOKIT_KERNEL_NS)
#error "compiled only through the kernel variants of thermokit/CMakeLists.txt"
#endif

#define TK_INLINE inline __attribute__((always_inline))

namespace thermokit::kernels::THERMOKIT_KERNEL_NS {

namespace {

// The per-pixel rules. Every step is a single IEEE float operation (no
// contraction), so all instruction sets give the same bits.
//
// A result at or above the maximal level is the maximal level, one that is
// not above zero is 0 (a NaN lands here too), anything else is truncated.
// Written as "raise to 0, then lower to the maximum", which gives exactly
// that (also for a maximum of 0) and maps onto one max and one min
// instruction per vector.
TK_INLINE unsigned short ClampLevel(float v, float fmax) {
    float r = v > 0.0f ? v : 0.0f;
    r = r < fmax ? r : fmax;
    return static_cast<unsigned short>(static_cast<int>(r));
}

TK_INLINE unsigned short ApplyOne(unsigned short in, unsigned short maxLevel, float fmax, float gain, float offset) {
    const float x = static_cast<float>(static_cast<unsigned short>(in & maxLevel));
    const float v = x * gain + offset;
    return ClampLevel(v, fmax);
}

TK_INLINE unsigned short UndoOne(unsigned short in, unsigned short maxLevel, float fmax, float gain, float offset) {
    const float x = static_cast<float>(static_cast<unsigned short>(in & maxLevel));
    // The divisor is kept finite for a gain of 0, whose result is 0 anyway.
    const float r = 1.0f / (gain == 0.0f ? 1.0f : gain);
    const float v = x * r - offset * r;
    return gain == 0.0f ? static_cast<unsigned short>(0) : ClampLevel(v, fmax);
}

void ApplyLevels(const unsigned short* __restrict in, unsigned short* __restrict out, const float* __restrict gain,
                 const float* __restrict offset, size_t n, unsigned short maxLevel) {
    const float fmax = static_cast<float>(maxLevel);
    for (size_t i = 0; i < n; ++i) out[i] = ApplyOne(in[i], maxLevel, fmax, gain[i], offset[i]);
}

void ApplyLevelsInPlace(unsigned short* __restrict image, const float* __restrict gain,
                        const float* __restrict offset, size_t n, unsigned short maxLevel) {
    const float fmax = static_cast<float>(maxLevel);
    for (size_t i = 0; i < n; ++i) image[i] = ApplyOne(image[i], maxLevel, fmax, gain[i], offset[i]);
}

void UndoLevels(const unsigned short* __restrict in, unsigned short* __restrict out, const float* __restrict gain,
                const float* __restrict offset, size_t n, unsigned short maxLevel) {
    const float fmax = static_cast<float>(maxLevel);
    for (size_t i = 0; i < n; ++i) out[i] = UndoOne(in[i], maxLevel, fmax, gain[i], offset[i]);
}

void UndoLevelsInPlace(unsigned short* __restrict image, const float* __restrict gain,
                       const float* __restrict offset, size_t n, unsigned short maxLevel) {
    const float fmax = static_cast<float>(maxLevel);
    for (size_t i = 0; i < n; ++i) image[i] = UndoOne(image[i], maxLevel, fmax, gain[i], offset[i]);
}

void ApplyFloats(float* __restrict image, const float* __restrict gain, const float* __restrict offset, size_t n) {
    for (size_t i = 0; i < n; ++i) image[i] = gain[i] * image[i] + offset[i];
}

void UndoFloats(float* __restrict image, const float* __restrict gain, const float* __restrict offset, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        const float g = gain[i];
        const float r = 1.0f / (g == 0.0f ? 1.0f : g);
        const float v = image[i] * r - offset[i] * r;
        image[i] = g == 0.0f ? 0.0f : v;
    }
}

}  // namespace

THERMOKIT_KERNEL_TABLE(NucKernels) = {&ApplyLevels, &ApplyLevelsInPlace, &UndoLevels,
                                      &UndoLevelsInPlace, &ApplyFloats, &UndoFloats};

}  // namespace thermokit::kernels::THERMOKIT_KERNEL_NS
