#pragma once
// The gain/offset kernels of CNuc, compiled once per instruction-set variant
// and once as the scalar reference (platform/KernelTable.h). Internal to the
// library.
#include <cstddef>

namespace thermokit::kernels {

struct NucKernels {
    // Levels: out[i] = gain[i] x (in[i] & maxLevel) + offset[i] clamped to
    // [0, maxLevel] and truncated; the undo divides instead. The copy forms
    // take distinct in and out, the in-place forms one image.
    void (*applyLevels)(const unsigned short* in, unsigned short* out, const float* gain, const float* offset,
                        size_t n, unsigned short maxLevel);
    void (*applyLevelsInPlace)(unsigned short* image, const float* gain, const float* offset, size_t n,
                               unsigned short maxLevel);
    void (*undoLevels)(const unsigned short* in, unsigned short* out, const float* gain, const float* offset,
                       size_t n, unsigned short maxLevel);
    void (*undoLevelsInPlace)(unsigned short* image, const float* gain, const float* offset, size_t n,
                              unsigned short maxLevel);
    // Floats, in place: gain x value + offset, and its undo.
    void (*applyFloats)(float* image, const float* gain, const float* offset, size_t n);
    void (*undoFloats)(float* image, const float* gain, const float* offset, size_t n);
};

const NucKernels& Nuc();
const NucKernels& NucReference();

}  // namespace thermokit::kernels
