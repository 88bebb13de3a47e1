#pragma once
// What the test suites share: running the thermokit tool as a process, unique temporary paths, private
// settings stores and whole-file access.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace thermokit::test {

struct ToolRun {
    int status = -1;  // the exit status; -1 when the tool could not be started or did not exit normally
    std::string out;  // what it printed
    std::string err;  // its standard error, with ToolErrors::kSeparate
};

// Standard error: mixed into out, thrown away, or kept apart in err.
enum class ToolErrors { kCaptured, kDiscarded, kSeparate };

inline std::vector<uint8_t> ReadAll(const std::string& path);

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
            std::remove((base + "_user.db").c_str());
            std::remove((base + "_machine.db").c_str());
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
