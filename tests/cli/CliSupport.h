#pragma once
// Running the tool as a process on files made by the library, in a folder of
// the test's own.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/ToolRun.h"

namespace clitest {

struct Result {
    int code = -1;
    std::string out, err;
};

inline std::string ReadText(const std::string& path) {
    const std::vector<uint8_t> bytes = thermokit::test::ReadAll(path);
    return std::string(bytes.begin(), bytes.end());
}

inline void WriteText(const std::string& path, const std::string& text) {
    thermokit::test::WriteAll(path, std::vector<uint8_t>(text.begin(), text.end()));
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
    thermokit::test::ToolRun run = thermokit::test::RunTool(args, thermokit::test::ToolErrors::kSeparate);
    return Result{run.status, std::move(run.out), std::move(run.err)};
}

}  // namespace clitest
