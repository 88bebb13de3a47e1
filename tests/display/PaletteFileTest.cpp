// Custom palettes from palette files, including hostile ones.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

#include "support/Bytes.h"
#include "thermokit/display/CLogPalette.h"

using namespace thermokit;

namespace {

std::string WriteFile(const std::string& name, const std::string& text) {
    const std::string path = thermokit::test::TempPath("palfile_" + name);
    thermokit::test::WriteText(path, text);
    return path;
}

// Stored blue first.
void ExpectEntry(CLogPalette& p, int k, int r, int g, int b) {
    const tagPALETTEENTRY& e = p.GetPLogPalette()->palPalEntry[k];
    EXPECT_EQ(e.peRed, b) << "entry " << k;
    EXPECT_EQ(e.peGreen, g) << "entry " << k;
    EXPECT_EQ(e.peBlue, r) << "entry " << k;
    EXPECT_EQ(e.peFlags, 1) << "entry " << k;
}

}  // namespace

TEST(PaletteFile, SectionsBecomeNumberedCustomPalettes) {
    const std::string path = WriteFile("good.ini",
                                       "; comment before any section\r\n"
                                       "stray line\r\n"
                                       "[Fire]\r\n"
                                       "(0,0,0)\r\n"
                                       "( 255 , 128 , 0 )\r\n"
                                       "Entries=256\r\n"
                                       "\r\n"
                                       "[Ice]\n"
                                       "(0,0,64)\n"
                                       "# a comment line\n"
                                       "(128,128,255)\n"
                                       "(255,255,255)\n"
                                       "Count=16\n");
    CLogPalette fire(11, 0, path.c_str());
    ASSERT_EQ(fire.GetCustomPalleteName()->size(), 2u);
    EXPECT_EQ((*fire.GetCustomPalleteName())[0], "Fire");
    EXPECT_EQ((*fire.GetCustomPalleteName())[1], "Ice");
    EXPECT_EQ(fire.GetPaletteName(), "Fire");
    ASSERT_TRUE(fire.IsCreated());
    EXPECT_EQ(fire.GetEntryCount(), 256);
    ExpectEntry(fire, 0, 0, 0, 0);
    ExpectEntry(fire, 128, 127, 64, 0);
    ExpectEntry(fire, 255, 254, 127, 0);  // the last point is never reached

    CLogPalette ice(12, 1, path.c_str());
    EXPECT_EQ(ice.GetPaletteName(), "Ice");
    ASSERT_EQ(ice.GetEntryCount(), 16);
    EXPECT_EQ(ice.GetCustomPalettes()->at(1).nPoints, 3);
    // Two segments of 8 entries, reversed: entry 15 is the first point, entry 7 the second.
    ExpectEntry(ice, 15, 0, 0, 64);
    ExpectEntry(ice, 7, 128, 128, 255);
    ExpectEntry(ice, 0, 128 + 127 * 7 / 8, 128 + 127 * 7 / 8, 255);

    // Beyond the loaded palettes: empty.
    CLogPalette beyond(13, 0, path.c_str());
    EXPECT_FALSE(beyond.IsCreated());
    EXPECT_EQ(beyond.GetPaletteName(), "Unknown palette");
    std::remove(path.c_str());
}

TEST(PaletteFile, CountsArePointsAndEntriesAreClamped) {
    std::string text = "[Many]\n";
    for (int i = 0; i < 25; ++i) {
        text += '(';
        text += std::to_string(i * 10);
        text += ",0,0)\n";
    }
    text += "N=100000\n";
    text += "[Low]\n(0,0,0)\n(255,255,255)\nN=1\n";
    text += "[Negative]\n(0,0,0)\n(255,255,255)\nN=-40\n";
    text += "[Words]\n(0,0,0)\n(255,255,255)\nN=lots\n";
    text += "[Huge]\n(0,0,0)\n(255,255,255)\nN=999999999999999999999999\n";
    const std::string path = WriteFile("counts.ini", text);
    CLogPalette many(11, 0, path.c_str());
    const auto& custom = *many.GetCustomPalettes();
    ASSERT_EQ(custom.size(), 5u);
    EXPECT_EQ(custom[0].nPoints, 20);  // only 20 control lines are taken
    EXPECT_EQ(custom[0].nEntries, 256);
    EXPECT_EQ(custom[0].red[19], 190);
    EXPECT_EQ(custom[1].nEntries, 2);
    EXPECT_EQ(custom[2].nEntries, 2);
    EXPECT_EQ(custom[3].nEntries, 2);
    EXPECT_EQ(custom[4].nEntries, 256);
    ASSERT_EQ(many.GetEntryCount(), 256);
    // 20 points over 256 entries: step 256 / 19 in single precision; segment 0 has 13 entries.
    ExpectEntry(many, 13, 10, 0, 0);
    CLogPalette low(12, 0, path.c_str());
    ASSERT_EQ(low.GetEntryCount(), 2);
    ExpectEntry(low, 0, 0, 0, 0);
    ExpectEntry(low, 1, 127, 127, 127);
    std::remove(path.c_str());
}

TEST(PaletteFile, MalformedLinesAndMissingCountLine) {
    const std::string path = WriteFile("bad.ini",
                                       "[NoCount]\n(0,0,0)\n(255,0,0)\n"
                                       "[Broken]\n(1,2)\n(a,b,c)\ngarbage\n(1,2,3\n(0,0,0)\n(0,0,255)\nN=16\n"
                                       "[Empty]\n"
                                       "[Single]\n(10,20,30)\nN=4\n"
                                       "[unterminated\n(5,5,5)\n"
                                       "[CountInMiddle]\nN=16\n(0,0,0)\n(9,9,9)\n"
                                       "[Wide]\n(1000000000000,-99999999999,300)\n(0,0,0)\nN=2\n"
                                       "[Last]\n(0,0,0)\n(0,255,0)\nN=16\n");
    CLogPalette reader(11, 0, path.c_str());
    const auto& names = *reader.GetCustomPalleteName();
    ASSERT_EQ(names.size(), 7u);
    EXPECT_EQ(names[0], "NoCount");
    EXPECT_EQ(names[6], "Last");
    const auto& custom = *reader.GetCustomPalettes();
    // No key=value line: entry count 0, the palette stays empty.
    EXPECT_EQ(custom[0].nEntries, 0);
    EXPECT_FALSE(reader.IsCreated());
    EXPECT_EQ(reader.GetLut(), nullptr);
    // Malformed control lines are skipped.
    EXPECT_EQ(custom[1].nPoints, 2);
    CLogPalette broken(12, 0, path.c_str());
    ASSERT_EQ(broken.GetEntryCount(), 16);
    ExpectEntry(broken, 15, 0, 0, 255 * 15 / 16);
    // An empty section is an empty palette.
    EXPECT_EQ(custom[2].nEntries, 0);
    EXPECT_FALSE(CLogPalette(13, 0, path.c_str()).IsCreated());
    // A single point paints every entry. A header without ']' is dropped with its lines,
    // leaving the section before it as it was.
    CLogPalette single(14, 0, path.c_str());
    EXPECT_EQ(custom[3].nPoints, 1);
    ASSERT_EQ(single.GetEntryCount(), 4);
    ExpectEntry(single, 0, 10, 20, 30);
    ExpectEntry(single, 3, 10, 20, 30);
    // The count line must be the last line.
    EXPECT_EQ(custom[4].nEntries, 0);
    EXPECT_FALSE(CLogPalette(15, 0, path.c_str()).IsCreated());
    // Absurd control values are bounded; only their low byte shows.
    CLogPalette wide(16, 0, path.c_str());
    ASSERT_EQ(wide.GetEntryCount(), 2);
    EXPECT_EQ(custom[5].red[0], 1 << 20);
    EXPECT_EQ(custom[5].green[0], -(1 << 20));
    ExpectEntry(wide, 0, 0, 0, 300 & 0xFF);
    // The rest of the file still loads.
    CLogPalette last(17, 0, path.c_str());
    ASSERT_EQ(last.GetEntryCount(), 16);
    ExpectEntry(last, 15, 0, 239, 0);
    std::remove(path.c_str());
}

TEST(PaletteFile, MissingAndBinaryFiles) {
    CLogPalette none(11, 0, "/nonexistent/palettes.ini");
    EXPECT_TRUE(none.GetCustomPalleteName()->empty());
    EXPECT_FALSE(none.IsCreated());
    EXPECT_EQ(none.ReadIniFile(nullptr), 0);
    CLogPalette grey(1, 0, "/nonexistent/palettes.ini");  // built-ins do not need the file
    EXPECT_EQ(grey.GetEntryCount(), 256);

    std::string junk;
    uint32_t s = 99;
    for (int i = 0; i < 200000; ++i) {
        s = s * 1103515245u + 12345u;
        junk.push_back(static_cast<char>(s >> 24));
    }
    junk += "\n[Tail]\n(0,0,0)\n(255,255,255)\nN=8\n";
    const std::string path = WriteFile("junk.ini", junk);
    CLogPalette reader(1, 0, path.c_str());
    ASSERT_FALSE(reader.GetCustomPalleteName()->empty());
    EXPECT_EQ(reader.GetCustomPalleteName()->back(), "Tail");
    CLogPalette tail(static_cast<unsigned short>(10 + reader.GetCustomPalleteName()->size()), 0, path.c_str());
    EXPECT_EQ(tail.GetEntryCount(), 8);
    std::remove(path.c_str());
}
