#pragma once
// Running the tool as a process on files made by the library, in a folder of
// the test's own; splitting its text, reading its pictures back.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/Bytes.h"
#include "support/Png.h"
#include "support/ToolRun.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"

namespace clitest {

struct Result {
    int code = -1;
    std::string out, err;
};

using thermokit::test::ReadText;
using thermokit::test::WriteText;

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

// A film of point x line levels, level(i, k) for pixel i of frame k.
inline void MakeFilm(const std::string& path, unsigned short point, unsigned short line, unsigned short bit,
                     int frames, const std::function<unsigned short(long, int)>& level,
                     const char* camera = "CliCam") {
    thermokit::CPtr film(point, line, bit, 0, 1, 0);
    film.SetFileName(path);
    film.SetCamera(camera);
    film.SetComment("made by the tool's tests");
    for (int k = 0; k < frames; ++k) {
        for (long i = 0; i < film.GetSize(); ++i) film.GetFrame()->GetBuffer()[i] = level(i, k);
        film.GetFrame()->SetTime(100.0 + k);
        ASSERT_EQ(film.AddFrame(), 1);
    }
}

inline std::vector<std::string> Split(const std::string& text, char sep) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(text);
    while (std::getline(in, part, sep)) parts.push_back(part);
    return parts;
}

using thermokit::test::Picture;
using thermokit::test::ReadPng;

}  // namespace clitest
