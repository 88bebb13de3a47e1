#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "TestSupport.h"
#include "thermokit/calibration/CCalibration.h"

using namespace thermokit;

namespace {

using thermokit::test::ToolRun;

ToolRun Tool(const std::string& args) { return thermokit::test::RunTool(args); }

}  // namespace

TEST(CalibCli, InfoAndConversionsBothWays) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "tool not built";
    const std::string path = thermokit::test::TempPath("cli.cal");
    CCalibration c("CLICAM", 0);
    c.Add(1000.0f, 10.0f);
    c.Add(3000.0f, 50.0f);
    c.SetUnitY("degC");
    ASSERT_EQ(c.Save(path.c_str()), 1);

    ToolRun info = Tool("calib info " + path + " --points");
    EXPECT_EQ(info.status, 0) << info.out;
    EXPECT_NE(info.out.find("CLICAM"), std::string::npos);
    EXPECT_NE(info.out.find("points        2"), std::string::npos) << info.out;

    ToolRun level = Tool("calib convert " + path + " --level 2000");
    EXPECT_EQ(level.status, 0) << level.out;
    EXPECT_EQ(level.out, "30 degC\n");
    ToolRun value = Tool("calib convert " + path + " --value 20");
    EXPECT_EQ(value.out, "1500 \n");
    ToolRun outside = Tool("calib convert " + path + " --level 5000 --no-extrapolate");
    EXPECT_EQ(outside.status, 1);
    EXPECT_EQ(Tool("calib convert " + path).status, 2);
    EXPECT_EQ(Tool("calib convert " + path + " --level 1 --value 2").status, 2);

    const std::string junk = thermokit::test::TempPath("junk.cal");
    thermokit::test::WriteText(junk, "not a calibration");
    ToolRun bad = Tool("calib info " + junk);
    EXPECT_EQ(bad.status, 1);
    // One line naming the file: the library's message box text is not printed a second time.
    EXPECT_EQ(bad.out.rfind("thermokit: file " + junk + ": ", 0), 0u) << bad.out;
    EXPECT_EQ(std::count(bad.out.begin(), bad.out.end(), '\n'), 1) << bad.out;
}

TEST(PlanckCli, BudgetAndRefusal) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "tool not built";
    ToolRun r = Tool("planck -t 300 -b 3 5 --json");
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("\"radiance_W_m2_sr\""), std::string::npos);
    EXPECT_NE(r.out.find("\"temperature_degC\": 300.0"), std::string::npos) << r.out;  // -t is degC
    EXPECT_EQ(Tool("planck -t -263.15 -b 3 5").status, 1);                            // 10 K: below the band's floor
    EXPECT_EQ(Tool("planck -t -273.15 -b 3 5").status, 2);                            // absolute zero
    EXPECT_EQ(Tool("planck -t 300 -b 5 3").status, 1);
    EXPECT_EQ(Tool("planck -b 3 5").status, 2);
}
