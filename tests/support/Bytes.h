#pragma once
// Byte-level access to written files, shared by every suite that checks a
// layout: values at offsets, text fields, text files, and a table form that
// checks many fields of one block at once.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <variant>
#include <vector>

#include "support/ToolRun.h"  // TempPath, ReadAll, WriteAll

namespace thermokit::test {

using Bytes = std::vector<unsigned char>;
using u8 = uint8_t;  // short names for the typed values of field tables
using u16 = uint16_t;

// The value of type T at off (T{} where the block is too short).
template <class T>
T At(const Bytes& bytes, size_t off) {
    T v {};
    if (off + sizeof(T) <= bytes.size()) std::memcpy(&v, bytes.data() + off, sizeof(T));
    return v;
}

// Stores v at off, growing the block where needed.
template <class T>
void Put(Bytes& bytes, size_t off, T v) {
    if (bytes.size() < off + sizeof(T)) bytes.resize(off + sizeof(T));
    std::memcpy(bytes.data() + off, &v, sizeof(T));
}

// The zero-ended text at off, read at most size bytes.
inline std::string TextAt(const Bytes& bytes, size_t off, size_t size = 100000) {
    std::string s;
    for (size_t i = 0; i < size && off + i < bytes.size() && bytes[off + i]; ++i) s += static_cast<char>(bytes[off + i]);
    return s;
}

// Bytes as they are on every system (no line-end translation on Windows).
inline std::string ReadText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << text;
}

inline std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// One expected field of a block: its offset and its value, whose type says
// how many bytes it takes (a string is zero-ended text).
struct Field {
    size_t offset;
    std::variant<uint8_t, uint16_t, int16_t, uint32_t, int32_t, uint64_t, float, double, std::string> value;
};

// Checks every field of the table against the block, naming the offset of each that differs.
inline void ExpectFields(const Bytes& bytes, std::initializer_list<Field> fields) {
    for (const Field& f : fields)
        std::visit(
            [&](const auto& want) {
                using T = std::decay_t<decltype(want)>;
                if constexpr (std::is_same_v<T, std::string>) EXPECT_EQ(TextAt(bytes, f.offset), want) << "at " << f.offset;
                else EXPECT_EQ(At<T>(bytes, f.offset), want) << "at " << f.offset;
            },
            f.value);
}

}  // namespace thermokit::test
