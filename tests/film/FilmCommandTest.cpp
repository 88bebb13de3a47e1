// thermokit info and render, run as a process on a film made here.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "FilmTestSupport.h"
#include "support/ToolRun.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"

using namespace thermokit;
using namespace filmtest;

using thermokit::test::RunTool;

TEST(FilmCommand, InfoAndRender) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    const std::string name = TempName("cli");
    {
        CPtr film(32, 16, 12, 0, 1, 0);
        film.SetFileName(name);
        film.SetCamera("CliCam");
        film.SetComment("two frames");
        for (int k = 0; k < 2; ++k) {
            for (long i = 0; i < film.GetSize(); ++i) film.GetFrame()->GetBuffer()[i] = static_cast<unsigned short>(i * 8 + k);
            film.GetFrame()->SetTime(3725.5 + k);
            ASSERT_EQ(film.AddFrame(), 1);
        }
    }
    std::string out;
    ASSERT_EQ(RunTool("info -v " + name, out), 0) << out;
    EXPECT_NE(out.find("header.camera: CliCam"), std::string::npos) << out;
    EXPECT_NE(out.find("header.frames: 2"), std::string::npos);
    EXPECT_NE(out.find("header.lut_max: 4095"), std::string::npos);
    ASSERT_EQ(RunTool("info -v " + name + " --json --frame 1", out), 0) << out;
    EXPECT_NE(out.find("\"comment\": \"two frames\""), std::string::npos) << out;
    EXPECT_NE(out.find("\"time\": \"01:02:06.500\""), std::string::npos) << out;
    EXPECT_EQ(RunTool("info " + name + " --frame 2", out), 2);
    EXPECT_NE(out.find("--frame 2: the film holds frames 0 to 1"), std::string::npos) << out;

    const std::string png = name + ".png";
    ASSERT_EQ(RunTool("render " + name + " --frame 1 --palette 1 --range 0:4095 -o " + png, out), 0) << out;
    const auto bytes = ReadAll(png);
    ASSERT_GT(bytes.size(), 8u);
    EXPECT_EQ(bytes[1], 'P');
    EXPECT_EQ(bytes[2], 'N');
    EXPECT_EQ(RunTool("render " + name + " --range 9:1 -o " + png, out), 2);
    EXPECT_EQ(RunTool("render " + name + " --palette nosuch -o " + png, out), 2);

    // A damaged film is refused with the file's name.
    auto film = ReadAll(name);
    film[0] = 'X';
    WriteAll(name, film);
    EXPECT_EQ(RunTool("info " + name, out), 1);
    EXPECT_NE(out.find("file " + name), std::string::npos) << out;
    File::Remove(name);
    File::Remove(png);
}
