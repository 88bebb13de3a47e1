#include "thermokit/platform/CpuFeatures.h"

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace thermokit {

namespace {

#if defined(__x86_64__) || defined(__i386__)
// Register state the operating system saves on a switch (XCR0).
uint64_t EnabledState() {
    uint32_t lo = 0, hi = 0;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<uint64_t>(hi) << 32) | lo;
}

bool Bit(unsigned reg, int bit) { return (reg >> bit) & 1u; }
#endif

CpuFeatures Detect() {
    CpuFeatures f;
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return f;
    f.sse = Bit(d, 25);
    f.sse2 = Bit(d, 26);
    f.sse41 = Bit(c, 19);
    const bool level2 = Bit(c, 0) && Bit(c, 9) && Bit(c, 13) && f.sse41 && Bit(c, 20) && Bit(c, 23);
    const bool fma = Bit(c, 12), movbe = Bit(c, 22), osxsave = Bit(c, 27), avx = Bit(c, 28), f16c = Bit(c, 29);
    const uint64_t state = osxsave ? EnabledState() : 0;
    const bool ymm = (state & 0x6) == 0x6;     // SSE and AVX state
    const bool zmm = (state & 0xE6) == 0xE6;   // and the AVX-512 opmask and upper registers

    unsigned b7 = 0, c7 = 0, d7 = 0;
    unsigned maxLeaf = __get_cpuid_max(0, nullptr);
    if (maxLeaf >= 7) __cpuid_count(7, 0, a, b7, c7, d7);
    unsigned cx = 0;
    if (static_cast<unsigned>(__get_cpuid_max(0x80000000u, nullptr)) >= 0x80000001u) __get_cpuid(0x80000001u, &a, &b, &cx, &d);
    const bool lahf = Bit(cx, 0), lzcnt = Bit(cx, 5);
    const bool bmi1 = Bit(b7, 3), bmi2 = Bit(b7, 8);

    f.avx2 = Bit(b7, 5) && avx && ymm;
    f.avx512f = Bit(b7, 16) && zmm;
    f.avx512bw = Bit(b7, 30) && zmm;
    f.x86_64_v3 = level2 && lahf && f.avx2 && bmi1 && bmi2 && fma && f16c && lzcnt && movbe;
    f.x86_64_v4 = f.x86_64_v3 && f.avx512f && f.avx512bw && Bit(b7, 17) && Bit(b7, 28) && Bit(b7, 31);
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

}  // namespace thermokit
