#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/StoreFixture.h"
#include "thermokit/environment/CConfig.h"
#include "thermokit/environment/CRegistry.h"

using namespace thermokit;
using thermokit::test::StoreTest;

namespace {

// Camera, lens, points, lines, bits, rotation, detector, band, serial, lens serial.
std::string Describe(const CConfig& c) {
    return c.GetCamera() + "|" + c.GetLens() + "|" + std::to_string(c.GetPoint()) + "|" + std::to_string(c.GetLine()) +
           "|" + std::to_string(c.GetBit()) + "|" + std::to_string(c.GetRotation()) + "|" +
           std::to_string(c.GetDetector()) + "|" + std::to_string(c.GetBand()) + "|" + c.GetSerial() + "|" +
           c.GetLensSerial();
}

}  // namespace

TEST_F(StoreTest, ConfigDefaultsAndDerivedValues) {
    const CConfig c(0);
    EXPECT_EQ(Describe(c), "Kelm|50 mm|320|240|14|0|46137346|1||");
    EXPECT_EQ(c.GetSize(), 76800u);
    EXPECT_EQ(c.GetMaxLevel(), 16383);
    EXPECT_EQ(c.GetBandName(), "MW");
    EXPECT_FALSE(std::filesystem::exists(m_user));  // no load: the store is not opened

    CConfig d;
    d.SetPoint(65535);
    d.SetLine(65535);
    EXPECT_EQ(d.GetSize(), 4294836225u);  // 32-bit product, no overflow
    for (auto [bit, max] : {std::pair{0, 0}, {1, 1}, {8, 255}, {16, 65535}, {17, 65535}, {40, 65535}}) {
        d.SetBit(static_cast<unsigned short>(bit));
        EXPECT_EQ(d.GetMaxLevel(), max) << bit;
    }
}

TEST_F(StoreTest, ConfigBandsAndRotations) {
    CConfig c;
    std::string names;
    for (int band : {0, 1, 2, 3, 4, -2}) names += c.GetBandName(band) + " ";
    EXPECT_EQ(names, "SW MW LW UC Unknown Unknown ");
    c.SetBand(2);
    EXPECT_EQ(c.GetBandName(-1), "LW");
    c.SetBand(9);
    EXPECT_EQ(c.GetBandName(), "Unknown");

    c.SetCamera("Kelm MW/LW dual");
    EXPECT_FALSE(c.IsSW());
    EXPECT_TRUE(c.IsMW());
    EXPECT_TRUE(c.IsLW());
    c.SetCamera("SWIR-640");
    EXPECT_TRUE(c.IsSW());
    EXPECT_FALSE(c.IsMW());
    c.SetCamera("Kelm");
    EXPECT_FALSE(c.IsSW() || c.IsMW() || c.IsLW());

    for (auto [rot, inv, map] : {std::tuple{0, 0, 0}, {90, 0, 0}, {180, 1, 0}, {270, 0, 0}, {360, 0, 1}, {540, 0, 0}}) {
        c.SetRotation(static_cast<unsigned short>(rot));
        EXPECT_EQ(c.GetInversion(), inv) << rot;
        EXPECT_EQ(c.GetMap(), map) << rot;
    }
}

TEST_F(StoreTest, ConfigRoundTripThroughTheStore) {
    CConfig c;
    c.SetCamera("Kelm LW");
    c.SetLens("25 mm");
    c.SetPoint(640);
    c.SetLine(512);
    c.SetBit(12);
    c.SetRotation(180);
    c.SetDetector(-5);
    c.SetBand(2);
    c.SetSerial("S-001");
    c.SetLensSerial("L-77");
    EXPECT_EQ(c.SetRegistry(), 1);

    // Encodings in the store: words as double-words, detector and band as text.
    CRegistry reg(CRegistry::Setup);
    EXPECT_EQ(reg.GetDWORDValue("Point", 0), 640u);
    EXPECT_EQ(reg.GetSTRINGValue("Detector", ""), "-5");
    EXPECT_EQ(reg.GetSTRINGValue("Band", ""), "2");
    // "Bit" is not written.
    EXPECT_EQ(reg.GetDWORDValue("Bit", 99), 99u);

    const CConfig loaded(1);
    EXPECT_EQ(Describe(loaded), "Kelm LW|25 mm|640|512|14|180|-5|2|S-001|L-77");  // bits not stored: 14

    // "Bit" is read when present; a value that is missing keeps the current field.
    EXPECT_EQ(reg.SetWORDValue("Bit", 16), 1);
    EXPECT_EQ(reg.DeleteValue("Lens"), 1);
    CConfig partial;
    partial.SetLens("kept");
    partial.GetRegistry();
    EXPECT_EQ(partial.GetBit(), 16);
    EXPECT_EQ(partial.GetLens(), "kept");
}
