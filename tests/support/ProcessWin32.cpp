// Running a program on Windows for the tests: CreateProcessW with its
// outputs on pipes, read on threads of their own so that neither fills up.
#include "support/ToolRun.h"  // before <windows.h>, whose macros would rename the library's constants

#include <string>
#include <thread>
#include <vector>

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

namespace thermokit::test {

namespace {

std::wstring Wide(const std::string& text) {
    if (text.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

// One argument as the C runtime of the started program splits it back.
void AppendQuoted(std::wstring& line, const std::wstring& arg) {
    if (!line.empty()) line += L' ';
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        line += arg;
        return;
    }
    line += L'"';
    size_t backslashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') line.append(backslashes * 2 + 1, L'\\');
        else line.append(backslashes, L'\\');
        backslashes = 0;
        line += c;
    }
    line.append(backslashes * 2, L'\\');
    line += L'"';
}

void Drain(HANDLE pipe, std::string* into) {
    char buffer[65536];
    DWORD got = 0;
    while (ReadFile(pipe, buffer, sizeof buffer, &got, nullptr) && got > 0) {
        if (into) into->append(buffer, got);
    }
}

}  // namespace

int RunProgram(const std::vector<std::string>& argv, ToolErrors errors, std::string* out, std::string* err) {
    if (argv.empty()) return -1;
    std::wstring line;
    for (const auto& a : argv) AppendQuoted(line, Wide(a));

    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE outRead = nullptr, outWrite = nullptr, errRead = nullptr, errWrite = nullptr;
    if (!CreatePipe(&outRead, &outWrite, &inherit, 0)) return -1;
    SetHandleInformation(outRead, HANDLE_FLAG_INHERIT, 0);
    HANDLE errTarget = outWrite;
    if (errors != ToolErrors::kCaptured) {
        if (!CreatePipe(&errRead, &errWrite, &inherit, 0)) {
            CloseHandle(outRead);
            CloseHandle(outWrite);
            return -1;
        }
        SetHandleInformation(errRead, HANDLE_FLAG_INHERIT, 0);
        errTarget = errWrite;
    }
    HANDLE nul = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, nullptr);

    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = nul;
    si.hStdOutput = outWrite;
    si.hStdError = errTarget;
    PROCESS_INFORMATION pi{};
    std::vector<wchar_t> mutableLine(line.begin(), line.end());
    mutableLine.push_back(L'\0');
    const BOOL started = CreateProcessW(nullptr, mutableLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &si, &pi);
    // Only the child keeps the writing ends: the reads end when it does.
    CloseHandle(outWrite);
    if (errWrite) CloseHandle(errWrite);
    if (nul != INVALID_HANDLE_VALUE) CloseHandle(nul);
    int status = -1;
    std::thread errReader;
    if (errRead) errReader = std::thread(Drain, errRead, errors == ToolErrors::kSeparate ? err : nullptr);
    if (started) {
        Drain(outRead, out);
        WaitForSingleObject(pi.hProcess, INFINITE);
        DWORD code = 0;
        if (GetExitCodeProcess(pi.hProcess, &code)) status = code < 256 ? static_cast<int>(code) : -1;
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    if (errReader.joinable()) errReader.join();
    CloseHandle(outRead);
    if (errRead) CloseHandle(errRead);
    return status;
}

void* StartProgram(const std::vector<std::string>& argv) {
    if (argv.empty()) return nullptr;
    std::wstring line;
    for (const auto& a : argv) AppendQuoted(line, Wide(a));
    std::vector<wchar_t> mutableLine(line.begin(), line.end());
    mutableLine.push_back(L'\0');
    STARTUPINFOW si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    if (!CreateProcessW(nullptr, mutableLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
        return nullptr;
    CloseHandle(pi.hThread);
    return pi.hProcess;
}

void KillProgram(void* program) {
    if (!program) return;
    TerminateProcess(static_cast<HANDLE>(program), 137);
    WaitForSingleObject(static_cast<HANDLE>(program), INFINITE);
    CloseHandle(static_cast<HANDLE>(program));
}

namespace {

void RemoveTreeW(const std::wstring& path) {
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring full = path + L"\\" + name;
            if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) RemoveTreeW(full);
            else DeleteFileW(full.c_str());
        } while (FindNextFileW(find, &entry));
        FindClose(find);
    }
    RemoveDirectoryW(path.c_str());
}

}  // namespace

void RemoveTree(const std::string& path) {
    std::wstring full(32768, L'\0');
    const DWORD n = GetFullPathNameW(Wide(path).c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (n == 0 || n >= full.size()) return;
    full.resize(n);
    RemoveTreeW(L"\\\\?\\" + full);  // no length limit below this prefix
}

std::string ThisProgram() {
    std::vector<wchar_t> name(32768);
    const DWORD n = GetModuleFileNameW(nullptr, name.data(), static_cast<DWORD>(name.size()));
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, name.data(), static_cast<int>(n), nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, name.data(), static_cast<int>(n), out.data(), bytes, nullptr, nullptr);
    return out;
}

}  // namespace thermokit::test
