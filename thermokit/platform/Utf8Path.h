#pragma once
// File names are UTF-8 text throughout the library and the tool. A
// std::filesystem::path made from a std::string takes it in the system's
// narrow encoding, which on Windows is not UTF-8: these two conversions say
// UTF-8 on every system (on Linux they change nothing). Names made from a
// path separate folders with "/" on every system (Windows takes it too), so
// that a program prints and writes the same names everywhere.
#include <filesystem>
#include <string>

namespace thermokit {

inline std::filesystem::path PathFromUtf8(const std::string& name) {
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

inline std::string Utf8FromPath(const std::filesystem::path& path) {
    const std::u8string name = path.generic_u8string();
    return std::string(name.begin(), name.end());
}

}  // namespace thermokit
