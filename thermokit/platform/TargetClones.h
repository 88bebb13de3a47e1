#pragma once
// Attributes that compile a whole-image kernel for several instruction sets,
// the best one chosen once at start-up (GCC function multiversioning). Only
// on x86-64; elsewhere the kernel is compiled once.
//
// THERMOKIT_CLONES: SSE2, AVX2, AVX-512F.
// THERMOKIT_CLONES_V3_V4: x86-64 levels 3 (AVX2, BMI2) and 4 (AVX-512 with
// BW/VL, which 16-bit work needs to run at full width).
// THERMOKIT_CLONES_V3: x86-64 level 3 only.
//
// Not under ThreadSanitizer: the clones are chosen by ifunc resolvers, which
// run while the program is loaded, before the sanitizer's runtime is ready,
// and crash it at start. A TSan build runs the plain loops.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define THERMOKIT_CLONES __attribute__((target_clones("default", "avx2", "avx512f")))
#define THERMOKIT_CLONES_V3_V4 __attribute__((target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")))
#define THERMOKIT_CLONES_V3 __attribute__((target_clones("default", "arch=x86-64-v3")))
#else
#define THERMOKIT_CLONES
#define THERMOKIT_CLONES_V3_V4
#define THERMOKIT_CLONES_V3
#endif
