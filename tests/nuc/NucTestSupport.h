#pragma once
// The NUC and bad-pixel tests' names for the shared byte helpers.
#include "support/Bytes.h"

namespace nuctest {

using thermokit::test::ExpectFields;
using thermokit::test::Put;
using thermokit::test::ReadLines;
using thermokit::test::TempPath;
using thermokit::test::u16;
using thermokit::test::u8;
inline thermokit::test::Bytes ReadBytes(const std::string& path) { return thermokit::test::ReadAll(path); }
inline void WriteBytes(const std::string& path, const thermokit::test::Bytes& bytes) {
    thermokit::test::WriteAll(path, bytes);
}
template <class T>
T Get(const thermokit::test::Bytes& bytes, size_t offset) {
    return thermokit::test::At<T>(bytes, offset);
}

}  // namespace nuctest
