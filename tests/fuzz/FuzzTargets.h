#pragma once
// One entry function per reader of the library. Each takes the bytes of a
// file, hands them to the reader as the file it reads, and does with what it
// read what a caller naturally does next (apply it to a frame, convert
// through it, iterate over it), with buffers sized from the object's own
// getters. The functions run under libFuzzer (fuzz_<name>, preset "fuzz")
// and, for every stored input, in the normal test build (test_fuzz).
#include <cstddef>
#include <cstdint>

namespace thermokit::fuzz {

using Entry = void (*)(const uint8_t* data, size_t size);

struct Target {
    const char* name;  // fuzz_<name>, tests/fuzz/corpus/<name>, tests/fuzz/regressions/<name>
    Entry entry;
};

// Every target, in a fixed order; ends with {nullptr, nullptr}.
extern const Target kTargets[];
Entry FindTarget(const char* name);

}  // namespace thermokit::fuzz
