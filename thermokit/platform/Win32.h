#pragma once
// The Windows API for the library's Windows sources (the *Win32.cpp files),
// and what they share: text conversion between the library's UTF-8 and the
// system's UTF-16, and the system's error texts.
//
// <windows.h> defines macros that collide with names of the library
// (FILE_BEGIN, INFINITE, REG_SZ, ...; their values are the same as ours).
// They are removed here, so include this header before the library's
// headers and never from a public header.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace thermokit::win32 {
// Methods of SetFilePointerEx, kept under names of their own.
constexpr DWORD kFileBegin = FILE_BEGIN;
constexpr DWORD kFileCurrent = FILE_CURRENT;
constexpr DWORD kFileEnd = FILE_END;
}  // namespace thermokit::win32

#undef FILE_BEGIN
#undef FILE_CURRENT
#undef FILE_END
#undef INFINITE
#undef REG_NONE
#undef REG_SZ
#undef REG_EXPAND_SZ
#undef REG_BINARY
#undef REG_DWORD
#undef REG_MULTI_SZ
#undef REG_QWORD
#undef ERROR
#undef DELETE

#include <string>

namespace thermokit::win32 {

// UTF-8 to UTF-16 and back. Bytes that are not UTF-8 become U+FFFD; count
// (-1: up to the NUL) lets embedded NULs through.
std::wstring Widen(const char* text, int count = -1);
inline std::wstring Widen(const std::string& text) { return Widen(text.data(), static_cast<int>(text.size())); }
std::string Narrow(const wchar_t* text, int count = -1);
inline std::string Narrow(const std::wstring& text) { return Narrow(text.data(), static_cast<int>(text.size())); }

// A file name for the wide file functions: UTF-16, with the "\\?\" prefix
// that lifts the 260-character limit when the absolute name is that long.
std::wstring FileName(const std::string& path);

// The system's text for an error code (GetLastError), without the final
// full stop and line end.
std::string ErrorText(unsigned long code);

}  // namespace thermokit::win32
