// The palette command of the command-line tool, run as a process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/Png.h"
#include "support/ToolRun.h"

namespace {

using namespace thermokit::test;

ToolRun Tool(const std::string& args) { return thermokit::test::RunTool(args); }

std::string Temp(const std::string& name) { return thermokit::test::TempPath("palcmd_" + name); }

}  // namespace

TEST(PaletteCommand, ListAndRender) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "tool not built";
    const std::string ini = Temp("p.ini");
    std::ofstream(ini) << "[Sunset]\n(0,0,64)\n(255,96,0)\n(255,255,160)\nEntries=128\n[Broken]\n(1,2,3)\n";
    ToolRun list = Tool("palette list --file " + ini);
    ASSERT_EQ(list.status, 0) << list.out;
    EXPECT_NE(list.out.find(" 0  Threshold"), std::string::npos);
    EXPECT_NE(list.out.find(" 8  Hot Metal"), std::string::npos);
    EXPECT_NE(list.out.find("11  Sunset"), std::string::npos);
    EXPECT_NE(list.out.find("12  Broken"), std::string::npos);
    EXPECT_NE(list.out.find("empty"), std::string::npos);

    const std::string png = Temp("bar.png");
    ToolRun render = Tool("palette render sunset --vertical --file " + ini + " -o " + png);
    ASSERT_EQ(render.status, 0) << render.out;
    Picture bar = ReadPng(png);
    EXPECT_EQ(bar.width, 32u);
    ASSERT_EQ(bar.height, 256u);
    // Bottom row: level 0, the first control point.
    EXPECT_EQ(bar.At(0, 255)[0], 0);
    EXPECT_EQ(bar.At(0, 255)[1], 0);
    EXPECT_EQ(bar.At(0, 255)[2], 64);

    ToolRun swapped = Tool("palette render 0 --swap --width 16 --height 4 -o " + png);
    ASSERT_EQ(swapped.status, 0) << swapped.out;
    const Picture ramp = ReadPng(png);
    ASSERT_EQ(ramp.width, 16u);
    // Horizontal: the top-left pixel is level 255, the last entry of the swapped Threshold: black.
    EXPECT_EQ(ramp.rgb[0] + ramp.rgb[1] + ramp.rgb[2], 0);

    EXPECT_EQ(Tool("palette render nosuch -o " + png).status, 2);
    EXPECT_EQ(Tool("palette render 12 --file " + ini + " -o " + png).status, 1);  // empty palette
    EXPECT_EQ(Tool("palette list --file /nonexistent/p.ini").status, 1);
    EXPECT_EQ(Tool("palette render 1 -o /nonexistent-dir/bar.png").status, 1);
    EXPECT_EQ(Tool("palette render 1").status, 2);  // no output file
    std::remove(ini.c_str());
    std::remove(png.c_str());
}
