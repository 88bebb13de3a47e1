#pragma once
// Which instruction-set variant of the whole-image kernels runs.
//
// Every hot kernel (statistics, masks, turns, NUC, accumulators, lock-in,
// level tables, display mapping, ...) is compiled once per variant of one
// list: on x86-64 "baseline" (SSE2), "v3" (x86-64-v3: AVX2) and "v4"
// (x86-64-v4: AVX-512); on ARM64 only "baseline" (NEON). Each variant gives
// bit for bit the results of the scalar reference loops. The variant is
// chosen once, on first use: the one THERMOKIT_ISA names when the processor
// runs it, otherwise the widest it runs. SetIsa changes it for the whole
// process (tests, benchmarks, comparisons); the change applies to kernel
// calls that start after it.
#include <string>
#include <vector>

namespace thermokit {

// Name of the variant in use ("baseline", "v3", "v4").
const char* GetIsa();
// How it was chosen: "widest this processor runs", "THERMOKIT_ISA" or "SetIsa".
const char* GetIsaChoice();
// Uses the named variant from now on. Null or "" goes back to the start-up
// rule. Returns 0, changing nothing, when this build has no variant of that
// name or the processor cannot run it.
int SetIsa(const char* name);
// The variants of this build that the processor runs, narrowest first.
std::vector<std::string> GetIsaList();

namespace dispatch {
// Index of the variant in use, in the build's list (for the kernel tables).
int ActiveIndex() noexcept;
}  // namespace dispatch

}  // namespace thermokit
