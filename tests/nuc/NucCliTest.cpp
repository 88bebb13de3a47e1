#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "nuc/NucTestSupport.h"
#include "support/ToolRun.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/nuc/CCorrection.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/File.h"

using namespace thermokit;
using namespace nuctest;

namespace {

using thermokit::test::ToolRun;

ToolRun Tool(const std::string& args) {
    return thermokit::test::RunTool(args, thermokit::test::ToolErrors::kSeparate);
}

// Pixel 5 gets bump on top: a pixel that responds differently from the rest.
std::string MakeFilm(const std::string& name, unsigned short point, unsigned short line, int frames, int base,
                     int step, int bump = 0) {
    const std::string path = TempPath(name);
    CPtr film(point, line, 14, 0, 0, 0);
    film.SetFileName(path);
    film.SetCamera("CLI-CAM");
    for (int k = 0; k < frames; ++k) {
        unsigned short* px = film.GetFrame()->GetBuffer();
        for (int i = 0; i < point * line; ++i)
            px[i] = static_cast<unsigned short>(base + step * i + ((i * 7 + k * 3) % 5) + (i == 5 ? bump : 0));
        film.GetFrame()->SetTime(100.0 + k);
        EXPECT_EQ(film.AddFrame(static_cast<CFrame*>(nullptr)), 1);
    }
    return path;
}

class NucCli : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::string(THERMOKIT_TOOL_PATH).empty() || !File::Exists(THERMOKIT_TOOL_PATH))
            GTEST_SKIP() << "the thermokit tool is not built";
    }
};

}  // namespace

TEST_F(NucCli, ComputeDetectAndCorrectMatchTheLibrary) {
    const std::string cold = MakeFilm("cold.film", 8, 4, 3, 1000, 3);
    const std::string hot = MakeFilm("hot.film", 8, 4, 3, 3000, 5, 900);
    const std::string table = TempPath("t.nuc");
    ASSERT_EQ(Tool("nuc compute --cold " + cold + " --hot " + hot + " --gain-limits 0.5:2 -o " + table).status, 0);
    CNuc want(8, 4);
    want.Reset();
    want.SetGainLimit(0.5f, 2.0f);
    want.Update(cold.c_str(), hot.c_str(), 0, 0);
    CNuc got(table.c_str());
    ASSERT_EQ(got.IsValid(), 1);
    EXPECT_EQ(std::memcmp(got.GetAlpha(), want.GetAlpha(), 32 * 4), 0);
    EXPECT_EQ(std::memcmp(got.GetBeta(), want.GetBeta(), 32 * 4), 0);
    EXPECT_EQ(got.GetCamera(), "CLI-CAM");

    // One point keeping the gains of the table just written.
    ASSERT_EQ(Tool("nuc compute --cold " + hot + " --keep-gain -o " + table).status, 0);
    CNuc kept(table.c_str());
    want.Update(hot.c_str(), nullptr, 1, 1);
    EXPECT_EQ(std::memcmp(kept.GetAlpha(), want.GetAlpha(), 32 * 4), 0);
    EXPECT_EQ(std::memcmp(kept.GetBeta(), want.GetBeta(), 32 * 4), 0);

    // Gain criterion on the table: pixel 5 (the one that did not follow) is out.
    const std::string map = TempPath("m.bpr"), report = TempPath("m.txt");
    ASSERT_EQ(Tool("badpixels detect --nuc " + table + " --gain 20 -o " + map + " --report " + report).status, 0);
    CPixel bad(map.c_str());
    ASSERT_EQ(bad.IsValid(), 1);
    CPixel wantBad(8, 4, 0);
    wantBad.UpdateGain(want.GetAlpha(), 32, 20.0f, 1.0f);
    wantBad.UpdateReplacement();
    ASSERT_GT(wantBad.GetSize(), 0);
    ASSERT_EQ(bad.GetSize(), wantBad.GetSize());
    EXPECT_EQ(std::memcmp(bad.GetPixel1(), wantBad.GetPixel1(), 4 * bad.GetSize()), 0);
    EXPECT_EQ(std::memcmp(bad.GetPixel2(), wantBad.GetPixel2(), 4 * bad.GetSize()), 0);
    const auto lines = ReadLines(report);
    ASSERT_GT(lines.size(), 33u);
    EXPECT_EQ(lines[30], "Gain : selected");
    EXPECT_EQ(lines[31], "Offset : unselected");

    // Correct the cold film: header and times kept, every frame through the chain.
    const std::string out = TempPath("out.film");
    ASSERT_EQ(Tool("correct " + cold + " --nuc " + table + " --badpixels " + map + " -o " + out).status, 0);
    CPtr src(cold, 0, 0, 0), dst(out, 0, 0, 0);
    ASSERT_EQ(dst.IsValid(), 1);
    ASSERT_EQ(dst.GetFrameNumber(), 3u);
    EXPECT_EQ(dst.GetCamera(), "CLI-CAM");
    CCorrection chain(table, map, "");
    for (unsigned long n = 0; n < 3; ++n) {
        ASSERT_EQ(src.ReadFrame(n), 1);
        ASSERT_EQ(dst.ReadFrame(n), 1);
        chain.Apply(src.GetFrame()->GetBuffer(), 0x3FFF);
        EXPECT_EQ(std::memcmp(src.GetFrame()->GetBuffer(), dst.GetFrame()->GetBuffer(), 64), 0) << n;
        EXPECT_EQ(dst.GetFrame()->GetTime(), src.GetFrame()->GetTime());
    }
}

TEST_F(NucCli, RefusesBadInputWithClearMessages) {
    const std::string film = MakeFilm("f.film", 8, 4, 2, 100, 1);
    const std::string small = MakeFilm("s.film", 4, 4, 2, 100, 1);
    const std::string missing = TempPath("missing.film");
    ToolRun r = Tool("nuc compute --cold " + missing + " -o " + TempPath("x.nuc"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "thermokit: file " + missing + ": not found\n");
    r = Tool("nuc compute --cold " + film + " --hot " + small + " -o " + TempPath("x.nuc"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("4 x 4"), std::string::npos) << r.err;
    EXPECT_EQ(Tool("nuc compute --cold " + film + " --gain-limits 2 -o " + TempPath("x.nuc")).status, 2);
    EXPECT_EQ(Tool("nuc compute --cold " + film + " --keep-gain -o " + TempPath("none.nuc")).status, 1);
    EXPECT_EQ(Tool("badpixels detect -o " + TempPath("x.bpr")).status, 2);
    EXPECT_EQ(Tool("badpixels detect --gain 10 -o " + TempPath("x.bpr")).status, 2);

    // A table of another size is refused by correct, and nothing is written.
    CNuc other(4, 4);
    other.Reset();
    const std::string table = TempPath("o.nuc");
    ASSERT_EQ(other.Save(table.c_str()), 1);
    const std::string out = TempPath("never.film");
    r = Tool("correct " + film + " --nuc " + table + " -o " + out);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("file " + table), std::string::npos) << r.err;
    EXPECT_FALSE(File::Exists(out));
    EXPECT_EQ(Tool("correct " + film + " --nuc " + table + " -o " + film).status, 2);
    EXPECT_EQ(Tool("correct " + film + " -o " + out).status, 2);
}
