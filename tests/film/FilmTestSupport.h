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

namespace filmtest {

// Saving a frame reads the camera configuration: the tests keep it in
// stores of their own, never in the user's.
inline const bool kPrivateStores = [] {
    static const std::string* base =
        new std::string(::testing::TempDir() + "tk_film_store_" + std::to_string(::getpid()));
    ::setenv("THERMOKIT_USER_STORE", (*base + "_user.db").c_str(), 0);
    ::setenv("THERMOKIT_MACHINE_STORE", (*base + "_machine.db").c_str(), 0);
    std::atexit([] {
        std::remove((*base + "_user.db").c_str());
        std::remove((*base + "_machine.db").c_str());
    });
    return true;
}();

inline std::string TempName(const std::string& tag) {
    static int counter = 0;
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "tk_" + (info ? info->name() : "x") + "_" + tag + "_" +
           std::to_string(::getpid()) + "_" + std::to_string(++counter) + ".ptw";
}

inline std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

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
