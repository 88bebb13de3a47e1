#pragma once
// Fixed-width, NUL-terminated text fields of file records.
#include <cstddef>
#include <cstring>
#include <string>

namespace thermokit {

// Clears the whole field, then copies at most maxChars characters of text
// (and never more than fieldSize - 1), so the field always ends with a NUL.
// A null text leaves the field empty.
inline void SetTextField(char* field, size_t fieldSize, const char* text, size_t maxChars) {
    if (!field || fieldSize == 0) return;
    std::memset(field, 0, fieldSize);
    if (!text) return;
    size_t n = std::strlen(text);
    if (n > maxChars) n = maxChars;
    if (n > fieldSize - 1) n = fieldSize - 1;
    std::memcpy(field, text, n);
}

// The text of a field up to its first NUL, never reading past the field.
inline std::string GetTextField(const char* field, size_t fieldSize) {
    if (!field) return std::string();
    const void* nul = std::memchr(field, 0, fieldSize);
    const size_t n = nul ? static_cast<size_t>(static_cast<const char*>(nul) - field) : fieldSize;
    return std::string(field, n);
}

}  // namespace thermokit
