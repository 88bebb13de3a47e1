#pragma once
// Text of the files as UTF-8 for output. The text fields of every file kind
// (camera names, comments, units, palette names) are 8-bit text, one byte a
// character: they are decoded as Latin-1, so that JSON stays valid and a
// terminal shows "Caméra" for the byte 0xE9. File names come from the system
// and are usually UTF-8 already: valid UTF-8 is kept as it is and only bytes
// that are not are decoded as Latin-1. Text meant for a terminal also has its
// control characters escaped, so that a field cannot move the cursor, ring
// the bell or forge a line of its own.
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace thermokit {

namespace utf8_detail {
inline void Append(std::string& out, unsigned code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Length of the valid UTF-8 sequence at s[i] (shortest form, no surrogates,
// at most U+10FFFF), 0 when there is none.
inline size_t Sequence(std::string_view s, size_t i) {
    const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned c = b(i);
    if (c < 0x80) return 1;
    size_t n;
    unsigned low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) n = 2;
    else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        if (c == 0xE0) low = 0xA0;
        if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        if (c == 0xF0) low = 0x90;
        if (c == 0xF4) high = 0x8F;
    } else return 0;
    if (i + n > s.size()) return 0;
    if (b(i + 1) < low || b(i + 1) > high) return 0;
    for (size_t k = 2; k < n; ++k)
        if (b(i + k) < 0x80 || b(i + k) > 0xBF) return 0;
    return n;
}
}  // namespace utf8_detail

// Every byte one character (ISO 8859-1), as UTF-8.
inline std::string Latin1ToUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char ch : text) utf8_detail::Append(out, static_cast<unsigned char>(ch));
    return out;
}

// A file name as UTF-8: valid UTF-8 sequences kept, any other byte decoded as Latin-1.
inline std::string NameToUtf8(std::string_view name) {
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size();) {
        const size_t n = utf8_detail::Sequence(name, i);
        if (n) {
            out.append(name.substr(i, n));
            i += n;
        } else {
            utf8_detail::Append(out, static_cast<unsigned char>(name[i]));
            ++i;
        }
    }
    return out;
}

// UTF-8 text for a terminal: C0 controls, DEL and the C1 controls (U+0080 to
// U+009F) written as \n, \r, \t, \e or \xNN, and a backslash doubled, so that
// the text shown is one line and says what the bytes were. On Windows the
// backslash separates folders and is kept as it is.
inline std::string EscapeControls(std::string_view utf8) {
#if defined(_WIN32)
    constexpr bool doubleBackslash = false;
#else
    constexpr bool doubleBackslash = true;
#endif
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
        const unsigned c = static_cast<unsigned char>(utf8[i]);
        unsigned control = 0x100;
        if (c < 0x20 || c == 0x7F) control = c;
        else if (c == 0xC2 && i + 1 < utf8.size()) {
            const unsigned next = static_cast<unsigned char>(utf8[i + 1]);
            if (next >= 0x80 && next <= 0x9F) {
                control = next;
                ++i;
            }
        }
        if (c == '\\' && doubleBackslash) out += "\\\\";
        else if (control == 0x100) out += static_cast<char>(c);
        else if (control == '\n') out += "\\n";
        else if (control == '\r') out += "\\r";
        else if (control == '\t') out += "\\t";
        else if (control == 0x1B) out += "\\e";
        else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", control);
            out += hex;
        }
    }
    return out;
}

}  // namespace thermokit
