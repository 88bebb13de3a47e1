#pragma once
// Helpers shared by the calibration tests.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/ToolRun.h"  // TempPath, ReadAll, WriteAll

namespace thermokit::test {

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::trunc);
    f << text;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream f(path);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

}  // namespace thermokit::test
