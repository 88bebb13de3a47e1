#pragma once
// Instruction-set extensions of the processor, detected once.
namespace thermokit {

struct CpuFeatures {
    bool sse = false;
    bool sse2 = false;
    bool sse41 = false;
    bool avx2 = false;
    bool avx512f = false;
    bool avx512bw = false;
    bool neon = false;

    // The features of this machine (detected on first call).
    static const CpuFeatures& Get();
    // Name of the widest vector extension available ("avx512", "avx2", "sse2", "neon" or "scalar").
    static const char* Best();
};

}  // namespace thermokit
