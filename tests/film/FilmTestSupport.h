#pragma once
// Helpers of the film tests: unique temporary names and raw file access.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/ToolRun.h"

namespace filmtest {

// Saving a frame reads the camera configuration: the tests keep it in
// stores of their own, never in the user's.
inline const bool kPrivateStores = thermokit::test::UsePrivateStores();

// A film path of its own, named after the running test.
inline std::string TempName(const std::string& tag) {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return thermokit::test::TempPath(std::string(info ? info->name() : "x") + "_" + tag + ".film");
}

using thermokit::test::ReadAll;
using thermokit::test::WriteAll;

template <class T>
T At(const std::vector<unsigned char>& bytes, size_t off) {
    T v {};
    if (off + sizeof(T) <= bytes.size()) std::memcpy(&v, bytes.data() + off, sizeof(T));
    return v;
}

template <class T>
void Put(std::vector<unsigned char>& bytes, size_t off, T v) {
    if (bytes.size() < off + sizeof(T)) bytes.resize(off + sizeof(T));
    std::memcpy(bytes.data() + off, &v, sizeof(T));
}

inline std::string TextAt(const std::vector<unsigned char>& bytes, size_t off, size_t size) {
    std::string s;
    for (size_t i = 0; i < size && off + i < bytes.size() && bytes[off + i]; ++i) s += static_cast<char>(bytes[off + i]);
    return s;
}

}  // namespace filmtest
