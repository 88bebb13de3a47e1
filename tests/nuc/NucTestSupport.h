#pragma once
// Helpers shared by the NUC and bad-pixel tests.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace nuctest {

inline std::string TempPath(const std::string& name) {
    static int serial = 0;
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "nuc_" + (info ? info->name() : "x") + "_" + std::to_string(++serial) + "_" + name;
}

inline std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

template <class T>
T Get(const std::vector<uint8_t>& bytes, size_t offset) {
    T v;
    std::memcpy(&v, bytes.data() + offset, sizeof(T));
    return v;
}

template <class T>
void Put(std::vector<uint8_t>& bytes, size_t offset, T v) {
    if (bytes.size() < offset + sizeof(T)) bytes.resize(offset + sizeof(T));
    std::memcpy(bytes.data() + offset, &v, sizeof(T));
}

inline std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

}  // namespace nuctest
