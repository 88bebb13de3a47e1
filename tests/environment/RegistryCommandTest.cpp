// The registry command of the tool, run as a separate process.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <filesystem>
#include <string>

#include "support/StoreFixture.h"
#include "support/ToolRun.h"
#include "thermokit/environment/CRegistry.h"

using namespace thermokit;
using thermokit::test::StoreTest;

namespace {

using thermokit::test::ToolRun;

// Runs the tool with the given arguments (already quoted for the shell); only its standard output is kept.
ToolRun Tool(const std::string& args) { return thermokit::test::RunTool(args, thermokit::test::ToolErrors::kDiscarded); }

}  // namespace

TEST_F(StoreTest, RegistryCommandReadsAndWritesTypedValues) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    EXPECT_EQ(Tool("registry set setup Point 640 --type word").status, 0);
    EXPECT_EQ(Tool("registry set 8 Camera 'Kelm LW' --type string").status, 0);
    EXPECT_EQ(Tool("registry set 'Common Setup\\Setup' Gain 2.50 --type double").status, 0);
    EXPECT_EQ(Tool("registry set software/orbel/commonsetup/setup Offset -3 --type int").status, 0);

    // What the tool wrote is what the library reads.
    CRegistry reg(CRegistry::Setup);
    EXPECT_EQ(reg.GetWORDValue("Point", 0), 640);
    EXPECT_EQ(reg.GetSTRINGValue("Camera", ""), "Kelm LW");
    EXPECT_EQ(reg.GetSTRINGValue("Gain", ""), "2.50");  // decimals as given
    EXPECT_EQ(reg.GetINTValue("Offset", 0), -3);

    EXPECT_EQ(Tool("registry get Setup point").out, "640\n");
    EXPECT_EQ(Tool("registry get 8 Camera").out, "Kelm LW\n");
    EXPECT_EQ(Tool("registry get 8 Offset --type int").out, "-3\n");
    EXPECT_EQ(Tool("registry get 8 Missing --type int --default 17").out, "17\n");
    EXPECT_EQ(Tool("registry get 8 Missing").status, 1);

    // Bad input is a usage error.
    for (const char* usage : {"get nonsense Point", "get 13 Point", "set 8 Point 70000 --type word",
                              "set 8 Point 12x --type int", "set 8 Point 1 --type float",
                              "get 10 Point --user"})  // key 10 has no user copy
        EXPECT_EQ(Tool(std::string("registry ") + usage).status, 2) << usage;

    // Sub-keys, listing and deletion.
    EXPECT_EQ(Tool("registry set cameras Focal 25 --type dword --subkey 'Kelm\\Lenses'").status, 0);
    const ToolRun list = Tool("registry list cameras --user");
    EXPECT_EQ(list.status, 0);
    EXPECT_NE(list.out.find("Kelm\\"), std::string::npos) << list.out;
    EXPECT_EQ(Tool("registry get 5 Focal -s Kelm/Lenses").out, "25\n");
    EXPECT_EQ(Tool("registry delete setup Point").status, 0);
    EXPECT_EQ(Tool("registry get setup Point").status, 1);
    EXPECT_EQ(Tool("registry delete setup Point").status, 1);
    EXPECT_EQ(Tool("registry delete cameras Kelm --key").status, 0);
    EXPECT_EQ(Tool("registry get 5 Focal -s Kelm/Lenses").status, 1);
}

TEST_F(StoreTest, RegistryCommandRootsAndExport) {
    if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    // A non-administrator cannot write the machine store, and none is created.
    SetAdmin(false);
    EXPECT_EQ(Tool("registry set setup Point 1 --type word --machine").status, 1);
    EXPECT_FALSE(std::filesystem::exists(m_machine));
    EXPECT_EQ(Tool("registry get setup Point").status, 1);  // and the user store was not made either
    EXPECT_FALSE(std::filesystem::exists(m_user));

    SetAdmin(true);
    EXPECT_EQ(Tool("registry set setup Point 320 --type word --machine").status, 0);
    EXPECT_EQ(Tool("registry set setup Point 640 --type word --user").status, 0);
    EXPECT_EQ(Tool("registry get setup Point").out, "640\n");
    EXPECT_EQ(Tool("registry get setup Point --machine").out, "320\n");
    EXPECT_EQ(Tool("registry set 12 Version 1 --type dword").status, 1);  // read-only key
    EXPECT_EQ(Tool("registry set setup Flag true --type bool --user").status, 0);

    const ToolRun exp = Tool("registry export setup");
    ASSERT_EQ(exp.status, 0);
    const auto j = nlohmann::json::parse(exp.out);
    EXPECT_EQ(j["key"], "Software\\Orbel\\Common Setup\\Setup");
    EXPECT_EQ(j["user"]["values"]["Point"]["type"], "dword");
    EXPECT_EQ(j["user"]["values"]["Point"]["value"], 640);
    EXPECT_EQ(j["user"]["values"]["Flag"]["value"], 1);
    EXPECT_EQ(j["machine"]["values"]["Point"]["value"], 320);
    EXPECT_FALSE(j["machine"]["values"].contains("Flag"));

    const ToolRun userOnly = Tool("registry export setup --user");
    EXPECT_TRUE(nlohmann::json::parse(userOnly.out)["machine"].is_null());
}
