#include "thermokit/platform/Win32.h"

#include <cstdio>

namespace thermokit::win32 {

std::wstring Widen(const char* text, int count) {
    if (!text || count == 0) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, text, count, nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text, count, out.data(), n);
    if (count < 0 && !out.empty() && out.back() == L'\0') out.pop_back();
    return out;
}

std::string Narrow(const wchar_t* text, int count) {
    if (!text || count == 0) return std::string();
    const int n = WideCharToMultiByte(CP_UTF8, 0, text, count, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return std::string();
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, count, out.data(), n, nullptr, nullptr);
    if (count < 0 && !out.empty() && out.back() == '\0') out.pop_back();
    return out;
}

std::wstring FileName(const std::string& path) {
    std::wstring wide = Widen(path);
    // Below this length every file function takes the name as it is (248 is
    // the limit of a folder name).
    if (wide.size() < 248 || wide.rfind(L"\\\\?\\", 0) == 0) return wide;
    const DWORD n = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
    if (n == 0) return wide;
    std::wstring full(n, L'\0');
    const DWORD got = GetFullPathNameW(wide.c_str(), n, full.data(), nullptr);
    if (got == 0 || got >= n) return wide;
    full.resize(got);
    if (full.rfind(L"\\\\", 0) == 0) return L"\\\\?\\UNC\\" + full.substr(2);  // \\server\share\...
    return L"\\\\?\\" + full;
}

std::string ErrorText(unsigned long code) {
    wchar_t* buffer = nullptr;
    const DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                       FORMAT_MESSAGE_IGNORE_INSERTS,
                                   nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                   reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::string text;
    if (n && buffer) text = Narrow(buffer, static_cast<int>(n));
    if (buffer) LocalFree(buffer);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' || text.back() == '.'))
        text.pop_back();
    if (text.empty()) {
        char fallback[32];
        std::snprintf(fallback, sizeof fallback, "system error %lu", code);
        text = fallback;
    }
    return text;
}

}  // namespace thermokit::win32
