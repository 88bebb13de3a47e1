#pragma once
// Instruction-set extensions of the processor, detected once (with the
// operating system's support for the wider registers where that matters).
namespace thermokit {

struct CpuFeatures {
    bool sse = false;
    bool sse2 = false;
    bool sse41 = false;
    bool avx2 = false;
    bool avx512f = false;
    bool avx512bw = false;
    bool neon = false;
    // The x86-64 micro-architecture levels 3 (AVX2, BMI1/2, FMA, F16C, LZCNT,
    // MOVBE; 256-bit state enabled) and 4 (level 3 and AVX-512 F/BW/CD/DQ/VL;
    // 512-bit state enabled).
    bool x86_64_v3 = false;
    bool x86_64_v4 = false;

    // The features of this machine (detected on first call).
    static const CpuFeatures& Get();
};

}  // namespace thermokit
