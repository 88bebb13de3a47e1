#pragma once
// What the test suites share: running the thermokit tool as a process, unique temporary paths, private
// settings stores and whole-file access.
#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sys/wait.h>
#endif
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "thermokit/environment/RegistryStore.h"

namespace thermokit::test {

struct ToolRun {
    int status = -1;  // the exit status; -1 when the tool could not be started or did not exit normally
    std::string out;  // what it printed
    std::string err;  // its standard error, with ToolErrors::kSeparate
};

// Standard error: mixed into out, thrown away, or kept apart in err.
enum class ToolErrors { kCaptured, kDiscarded, kSeparate };

inline std::vector<uint8_t> ReadAll(const std::string& path);

#if defined(_WIN32)
// Runs argv[0] with the other arguments as they are (support/ProcessWin32.cpp); the exit status, or -1.
int RunProgram(const std::vector<std::string>& argv, ToolErrors errors, std::string* out, std::string* err);
// Starts a program and leaves it running (its outputs go to ours); null when it cannot start.
// KillProgram ends it at once, as a crash would, and waits for it to be gone.
void* StartProgram(const std::vector<std::string>& argv);
void KillProgram(void* program);
// The file name of the running test program.
std::string ThisProgram();
// Removes a folder with everything in it, also below the 260 characters std::filesystem handles here.
void RemoveTree(const std::string& path);

// Arguments as a POSIX shell splits them: blanks separate, quotes group ('...' as it stands, "..." with
// \" \\ \$ \` escapes). A backslash outside quotes stays as it is: it separates folders in the
// Windows file names the tests put on command lines.
inline std::vector<std::string> SplitShellWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        inWord = true;
        if (c == '\'') {
            const size_t end = line.find('\'', i + 1);
            word += line.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1);
            i = end == std::string::npos ? line.size() : end;
        } else if (c == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size() && std::string("\"\\$`").find(line[i + 1]) != std::string::npos)
                    ++i;
                word += line[i];
            }
        } else {
            word += c;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

// Runs the built tool with args (quoted as for a POSIX shell).
inline ToolRun RunTool(const std::string& args, ToolErrors errors = ToolErrors::kCaptured) {
    ToolRun r;
    std::vector<std::string> argv = SplitShellWords(args);
    argv.insert(argv.begin(), THERMOKIT_TOOL_PATH);
    r.status = RunProgram(argv, errors, &r.out, &r.err);
    return r;
}
#else
// Runs the built tool with args (already quoted for the shell).
inline ToolRun RunTool(const std::string& args, ToolErrors errors = ToolErrors::kCaptured) {
    ToolRun r;
    const std::string errFile =
        ::testing::TempDir() + "tk_tool_stderr_" + std::to_string(::getpid());
    const std::string redirect = errors == ToolErrors::kCaptured    ? " 2>&1"
                                 : errors == ToolErrors::kDiscarded ? " 2>/dev/null"
                                                                    : " 2>'" + errFile + "'";
    const std::string command = std::string("'") + THERMOKIT_TOOL_PATH + "' " + args + redirect;
    FILE* p = ::popen(command.c_str(), "r");
    if (!p) return r;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int status = ::pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (errors == ToolErrors::kSeparate) {
        const std::vector<uint8_t> bytes = ReadAll(errFile);
        r.err.assign(bytes.begin(), bytes.end());
        std::remove(errFile.c_str());
    }
    return r;
}

inline void RemoveTree(const std::string& path) {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
}
#endif

// The same, the output in out, the exit status returned.
inline int RunTool(const std::string& args, std::string& out) {
    ToolRun r = RunTool(args);
    out = std::move(r.out);
    return r.status;
}

// A path under the test temporary directory no other call of this process, nor another process,
// gets; name ends it (give the extension there).
inline std::string TempPath(const std::string& name) {
    static int counter = 0;
    return ::testing::TempDir() + "tk_" + std::to_string(::getpid()) + "_" + std::to_string(++counter) + "_" +
           name;
}

// Saving films reads the camera configuration: the tests keep it in stores of their own, for this
// process and the tools it starts, never in the user's (removed at exit). Settings already made in the
// environment stay. Use as `const bool kPrivateStores = UsePrivateStores();` at namespace scope.
inline bool UsePrivateStores() {
    static const bool done = [] {
        static const std::string base = ::testing::TempDir() + "tk_stores_" + std::to_string(::getpid());
        ::setenv("THERMOKIT_USER_STORE", (base + "_user.db").c_str(), 0);
        ::setenv("THERMOKIT_MACHINE_STORE", (base + "_machine.db").c_str(), 0);
        std::atexit([] {
            thermokit::RegistryStore::Remove(base + "_user.db");
            thermokit::RegistryStore::Remove(base + "_machine.db");
        });
        return true;
    }();
    return done;
}

inline std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace thermokit::test
