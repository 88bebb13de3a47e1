#include "thermokit/platform/CpuFeatures.h"

namespace thermokit {

namespace {
CpuFeatures Detect() {
    CpuFeatures f;
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    f.sse = __builtin_cpu_supports("sse");
    f.sse2 = __builtin_cpu_supports("sse2");
    f.sse41 = __builtin_cpu_supports("sse4.1");
    f.avx2 = __builtin_cpu_supports("avx2");
    f.avx512f = __builtin_cpu_supports("avx512f");
    f.avx512bw = __builtin_cpu_supports("avx512bw");
#elif defined(__aarch64__)
    f.neon = true;  // part of the base architecture
#endif
    return f;
}
}  // namespace

const CpuFeatures& CpuFeatures::Get() {
    static const CpuFeatures features = Detect();
    return features;
}

const char* CpuFeatures::Best() {
    const CpuFeatures& f = Get();
    if (f.avx512f) return "avx512";
    if (f.avx2) return "avx2";
    if (f.sse2) return "sse2";
    if (f.neon) return "neon";
    return "scalar";
}

}  // namespace thermokit
