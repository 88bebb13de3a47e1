// Temperatures on the command line: the law's domain in every output, the
// object parameters and the units, and pictures and animations over one range.
#include <gif_lib.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/CliSupport.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/film/CPtr.h"

using namespace thermokit;
using namespace clitest;
using Json = nlohmann::json;

namespace {

bool ToolBuilt() { return !std::string(THERMOKIT_TOOL_PATH).empty(); }

long Count(const std::string& text, const std::string& word) {
    long n = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++n;
    return n;
}

}  // namespace

// A cold scene: the levels whose signal through the film's law (level + offset, scale 1) is not
// above 0 have no temperature. Every output says so, the same pixels, counted; a law that cannot
// convert is refused naming its field.
TEST(Radiometry, LevelsBelowTheLawsZeroAreNaNInEveryOutput) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("radiometry_domain"), film = dir + "/cold.film";
    ASSERT_EQ(Tool("simulate -t -60 --size 32x32 --count 1 -o " + film).code, 0);
    CPtr ptr(film, 0, 0, 1);
    _SCalibrationRBF law{};
    ASSERT_EQ(ptr.GetRBFCalibParam(&law), 1);
    const float scale = law.m_fScale;  // packed: read by value
    const long offset = law.m_nOffset;
    ASSERT_EQ(scale, 1.0f);
    ASSERT_EQ(ptr.ReadFrame(0), 1);
    std::vector<bool> none(1024);
    long below = 0;
    for (long i = 0; i < 1024; ++i) {
        const long level = ptr.GetFrame()->GetBuffer()[i] & ptr.GetMaxLevel();
        none[i] = level == 0 || level + offset <= 0;
        below += none[i];
    }
    ASSERT_GT(below, 10);
    ASSERT_LT(below, 1000);

    Result r = Tool("temperature " + film + " --embedded --json");
    ASSERT_EQ(r.code, 0) << r.err;
    Json j = Json::parse(r.out);
    EXPECT_EQ(j["unit"], "degC");
    EXPECT_EQ(j["not_converted"], below);
    EXPECT_EQ(j["converted"], 1024 - below);
    EXPECT_GT(j["min"]["value"].get<double>(), -200.0);  // not -273.15
    long at = 0;
    while (!none[at]) ++at;
    r = Tool("temperature " + film + " --embedded --json --pixel " + std::to_string(at % 32) + "," +
             std::to_string(at / 32));
    EXPECT_TRUE(Json::parse(r.out)["value"].is_null()) << r.out;

    r = Tool("stats " + film + " --embedded --csv");
    ASSERT_EQ(r.code, 0) << r.err;
    std::vector<std::string> head = Split(Split(r.out, '\n')[0], ','), row = Split(Split(r.out, '\n')[1], ',');
    ASSERT_EQ(head.size(), 13u);
    EXPECT_EQ(head[7], "degC_min");
    EXPECT_EQ(head[12], "degC_not_converted");
    EXPECT_EQ(std::stol(row[11]), 1024 - below);
    EXPECT_EQ(std::stol(row[12]), below);
    r = Tool("stats " + film + " --embedded --csv --kelvin");
    const std::vector<std::string> kelvin = Split(Split(r.out, '\n')[1], ',');
    EXPECT_EQ(Split(Split(r.out, '\n')[0], ',')[9], "K_mean");
    EXPECT_NEAR(std::stod(kelvin[9]) - std::stod(row[9]), 273.15, 1e-3);

    ASSERT_EQ(Tool("export " + film + " --embedded --format npy -o " + dir + "/t.npy").code, 0);
    const std::vector<uint8_t> npy = thermokit::test::ReadAll(dir + "/t.npy");
    ASSERT_EQ(npy.size(), 10u + (npy[8] | npy[9] << 8) + 4096u);
    EXPECT_NE(std::string(npy.begin(), npy.begin() + 128).find("'<f4'"), std::string::npos);
    const uint8_t* data = npy.data() + 10 + (npy[8] | npy[9] << 8);
    for (long i = 0; i < 1024; ++i) {
        float v;
        std::memcpy(&v, data + 4 * i, 4);
        ASSERT_EQ(std::isnan(v), none[i]) << i;
    }
    ASSERT_EQ(Tool("export " + film + " --embedded --format csv -o " + dir + "/t.csv").code, 0);
    EXPECT_EQ(Count(ReadText(dir + "/t.csv"), "nan"), below);

    // Laws that cannot give temperatures: refused before any output, naming the file and the field.
    std::vector<uint8_t> bytes = thermokit::test::ReadAll(film);
    const float nan = std::numeric_limits<float>::quiet_NaN(), zero = 0.0f;
    for (const auto& [offset, value, field] :
         {std::make_tuple(23, nan, "R (m_fR)"), std::make_tuple(27, zero, "B (m_fB)")}) {
        std::vector<uint8_t> broken = bytes;
        std::memcpy(broken.data() + 2976 + offset, &value, 4);
        thermokit::test::WriteAll(dir + "/broken.film", broken);
        r = Tool("export " + dir + "/broken.film --embedded --format npy -o " + dir + "/b.npy");
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find("file " + dir + "/broken.film"), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(field), std::string::npos) << r.err;
    }
    MakeFilm(dir + "/plain.film", 4, 4, 14, 1, [](long i, int) { return static_cast<unsigned short>(i); });
    r = Tool("render " + dir + "/plain.film --embedded -o " + dir + "/p.png");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("carries no radiometric law"), std::string::npos) << r.err;
    EXPECT_EQ(List(dir), (std::vector<std::string>{"broken.film", "cold.film", "plain.film", "t.csv", "t.npy"}));
    std::filesystem::remove_all(dir);
}

// A grey body before warm surroundings: the header's emissivity and ambient temperature are the
// defaults, the options override them, --kelvin shifts every temperature, out-of-range values are
// usage errors that write nothing, and surroundings too bright for the scene leave nothing converted.
TEST(Radiometry, ObjectParametersUnitsAndUsage) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("radiometry_object"), film = dir + "/grey.film";
    ASSERT_EQ(Tool("simulate -t 80 --emissivity 0.7 --reflected 60 --size 32x32 --count 1 -o " + film).code, 0);
    auto mean = [&](const std::string& options) {
        const Result r = Tool("temperature " + film + " --embedded --json " + options);
        EXPECT_EQ(r.code, 0) << options << r.err;
        return Json::parse(r.out);
    };
    const Json header = mean(""), given = mean("--emissivity 0.7 --reflected 60");
    EXPECT_NEAR(header["mean"].get<double>(), 80.0, 0.5);  // the law's fit and the camera's offsets
    EXPECT_NEAR(header["mean"].get<double>(), given["mean"].get<double>(), 1e-4);  // the header holds floats
    EXPECT_NEAR(header["object"]["reflected_degC"].get<double>(), 60.0, 1e-4);
    EXPECT_LT(mean("--emissivity 1")["mean"].get<double>(), 77.0);  // the apparent temperature
    const Json kelvin = mean("--kelvin");
    EXPECT_EQ(kelvin["unit"], "K");
    EXPECT_NEAR(kelvin["mean"].get<double>() - header["mean"].get<double>(), 273.15, 1e-3);
    EXPECT_NEAR(kelvin["object"]["reflected_K"].get<double>(), 333.15, 1e-4);
    const Json dark = mean("--emissivity 0.05 --reflected 200");
    EXPECT_EQ(dark["not_converted"], 1024);
    EXPECT_TRUE(dark["mean"].is_null());

    for (const char* bad : {"--emissivity 0", "--emissivity 1.5", "--transmission 0", "--transmission 1.01",
                            "--distance -1", "--reflected -300", "--atmosphere -273.15", "--range 5:5",
                            "--range 6:5", "--isotherm 6:5", "--isotherm 1:2:mauve", "--range 1:2 --cut 3"}) {
        const Result r = Tool("render " + film + " --embedded " + bad + " -o " + dir + "/x.png");
        EXPECT_EQ(r.code, 2) << bad;
        EXPECT_FALSE(r.err.empty()) << bad;
    }
    EXPECT_EQ(Tool("stats " + film + " --emissivity 0.5").code, 2);  // nothing to convert with it
    EXPECT_EQ(Tool("stats " + film + " --kelvin").code, 2);
    EXPECT_EQ(Tool("planck -t -300").code, 2);
    EXPECT_EQ(List(dir), std::vector<std::string>{"grey.film"});
    std::filesystem::remove_all(dir);
}

// A sequence whose frames grow brighter keeps one colour for one level in PNG pictures and in an
// animated GIF; the GIF holds the palette's colours exactly, its frames and their delays.
TEST(Radiometry, PicturesAndAnimationsKeepOneRange) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("radiometry_pictures"), film = dir + "/f.film";
    // Frame k: 1000 + x * 100 * 2^k along each line of 16, so level 1400 lies at x = 4, 2, 1.
    MakeFilm(film, 16, 8, 14, 3, [](long i, int k) { return static_cast<unsigned short>(1000 + (i % 16) * (100 << k)); });
    ASSERT_EQ(Tool("export " + film + " --format png --palette Grey -o " + dir + "/p.png").code, 0);
    std::vector<Picture> png;
    for (const char* name : {"p-00000.png", "p-00001.png", "p-00002.png"}) png.push_back(ReadPng(dir + "/" + name));
    auto rgb = [](const Picture& p, int x) { return std::vector<unsigned char>(&p.rgb[3 * x], &p.rgb[3 * x] + 3); };
    EXPECT_EQ(rgb(png[0], 4), rgb(png[1], 2));
    EXPECT_EQ(rgb(png[0], 4), rgb(png[2], 1));
    EXPECT_LT(rgb(png[0], 15)[0], 200);  // frame 0's brightest is far from the top of the range

    Result r = Tool("animate " + film + " --palette Grey --bar -o " + dir + "/a.gif");
    ASSERT_EQ(r.code, 0) << r.err;
    ASSERT_EQ(Tool("animate " + film + " --palette Grey --bar --step 2 --fps 20 -o " + dir + "/b.gif").code, 0);
    for (const auto& [name, frames, delay] : {std::make_tuple("a.gif", 3, 4), std::make_tuple("b.gif", 2, 5)}) {
        int error = 0;
        GifFileType* gif = DGifOpenFileName((dir + "/" + name).c_str(), &error);
        ASSERT_NE(gif, nullptr);
        ASSERT_EQ(DGifSlurp(gif), GIF_OK);
        EXPECT_EQ(gif->ImageCount, frames) << name;
        EXPECT_GT(gif->SWidth, 16);  // the image and its bar
        for (int k = 0; k < gif->ImageCount; ++k) {
            GraphicsControlBlock gcb{};
            ASSERT_EQ(DGifSavedExtensionToGCB(gif, k, &gcb), GIF_OK);
            EXPECT_EQ(gcb.DelayTime, delay) << name << k;  // 25 frames a second in the header, or --fps
        }
        // Every colour of the palette is in the map, and each frame shows the PNG's colours.
        CLogPalette grey(CLogPalette::GREY, 0, nullptr);
        const ColorMapObject* map = gif->SColorMap;
        ASSERT_NE(map, nullptr);
        for (int e = 0; e < grey.GetEntryCount(); ++e) {
            const tagPALETTEENTRY& p = grey.GetPLogPalette()->palPalEntry[e];  // stored blue, green, red
            bool found = false;
            for (int c = 0; c < map->ColorCount && !found; ++c)
                found = map->Colors[c].Red == p.peBlue && map->Colors[c].Green == p.peGreen && map->Colors[c].Blue == p.peRed;
            EXPECT_TRUE(found) << e;
        }
        for (int k = 0; k < gif->ImageCount; ++k) {
            const int frame = k * (frames == 3 ? 1 : 2);
            for (int x : {1, 4, 15}) {
                const GifColorType c = map->Colors[gif->SavedImages[k].RasterBits[x]];
                EXPECT_EQ(rgb(png[frame], x), (std::vector<unsigned char>{c.Red, c.Green, c.Blue})) << name << k << x;
            }
        }
        DGifCloseFile(gif, &error);
    }
    r = Tool("animate " + film + " -o " + dir + "/missing/a.gif");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("missing/a.gif"), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir + "/missing"));
    std::filesystem::remove_all(dir);
}
