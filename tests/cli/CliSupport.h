#pragma once
// Running the tool as a process on files made by the library, in a folder of
// the test's own.
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace clitest {

struct Result {
    int code = -1;
    std::string out, err;
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// A fresh, empty folder for one test.
inline std::string Folder(const std::string& name) {
    const std::string dir = ::testing::TempDir() + "thermokit_cli_" + name + "_" + std::to_string(::getpid());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

// The names in a folder, sorted.
inline std::vector<std::string> List(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Runs "thermokit ARGS" (ARGS as a shell would split them) with its two
// outputs captured apart.
inline Result Tool(const std::string& args) {
    Result r;
    const std::string errFile = ::testing::TempDir() + "thermokit_cli_stderr_" + std::to_string(::getpid());
    const std::string command = std::string(THERMOKIT_TOOL_PATH) + " " + args + " 2>" + errFile;
    FILE* p = ::popen(command.c_str(), "r");
    if (!p) return r;
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), p)) > 0) r.out.append(buf, n);
    const int status = ::pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.err = ReadText(errFile);
    std::remove(errFile.c_str());
    return r;
}

}  // namespace clitest
