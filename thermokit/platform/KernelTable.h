#pragma once
// The kernel tables behind the dispatcher (internal to the library).
//
// A layer's kernels are plain functions in a source named <Something>Kernels.cpp.
// The build compiles that source once per instruction-set variant, each time
// with THERMOKIT_KERNEL_NS set to the variant's namespace (isa_baseline,
// isa_v3, ...), and once more as the scalar reference (isa_reference, with
// THERMOKIT_KERNEL_REFERENCE set and no vectorisation). The source ends with
// its table of function pointers:
//
//     namespace thermokit::kernels::THERMOKIT_KERNEL_NS {
//     THERMOKIT_KERNEL_TABLE(PixelKernels) = {&MinMax, ...};
//     }
//
// and one ordinary source of the layer defines the accessors with
//
//     namespace thermokit::kernels { THERMOKIT_DEFINE_KERNELS(PixelKernels, Pixel) }
//
// which gives Pixel() (the table of the variant in use) and PixelReference().
#include "thermokit/platform/Dispatch.h"
#include "thermokit/platform/IsaList.h"

#define THERMOKIT_KERNEL_TABLE(Type) \
    extern const Type k##Type;       \
    const Type k##Type

#define THERMOKIT_KERNELS_DECLARE_(isa, Type) \
    namespace isa_##isa {                     \
    extern const Type k##Type;                \
    }
#define THERMOKIT_KERNELS_ENTRY_(isa, Type) &isa_##isa::k##Type,

#define THERMOKIT_DEFINE_KERNELS(Type, Accessor)                                                            \
    THERMOKIT_ISA_FOR_EACH(THERMOKIT_KERNELS_DECLARE_, Type)                                                \
    THERMOKIT_KERNELS_DECLARE_(reference, Type)                                                             \
    const Type& Accessor() {                                                                                \
        static const Type* const tables[] = {THERMOKIT_ISA_FOR_EACH(THERMOKIT_KERNELS_ENTRY_, Type)};       \
        return *tables[::thermokit::dispatch::ActiveIndex()];                                               \
    }                                                                                                       \
    const Type& Accessor##Reference() { return isa_reference::k##Type; }
