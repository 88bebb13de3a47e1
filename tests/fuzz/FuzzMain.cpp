// The libFuzzer entry of one target, chosen when it is built
// (THERMOKIT_FUZZ_TARGET, the target's name).
#include <cstdio>
#include <cstdlib>

#include "FuzzTargets.h"

namespace {
const thermokit::fuzz::Entry kEntry = [] {
    const thermokit::fuzz::Entry entry = thermokit::fuzz::FindTarget(THERMOKIT_FUZZ_TARGET);
    if (!entry) {
        std::fprintf(stderr, "no fuzz target named %s\n", THERMOKIT_FUZZ_TARGET);
        std::abort();
    }
    return entry;
}();
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kEntry(data, size);
    return 0;
}
