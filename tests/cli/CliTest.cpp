// Every command of the tool run as a process on files made by the library:
// values printed, JSON fields, PNG pictures, NumPy arrays, exit statuses,
// messages on bad files and no output left behind after a failure.
#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>
#if !defined(_WIN32)
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CliSupport.h"
#include "thermokit/calibration/CCalibration.h"
#include "thermokit/calibration/CCalibrationRBF.h"
#include "thermokit/calibration/CResponseFile.h"
#include "thermokit/display/CLogPalette.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/image/PixelArray.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/nuc/CPixel.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Utf8Path.h"

using namespace thermokit;
using namespace clitest;
using Json = nlohmann::json;

namespace {

bool ToolBuilt() { return !std::string(THERMOKIT_TOOL_PATH).empty(); }

unsigned short Ramp(long i, int k) { return static_cast<unsigned short>(i * 10 + k); }

// A calibration from level 0 to 4000 onto 0 to 100 degrees, in a straight line.
void MakeCalibration(const std::string& path, const char* unitY = "degC") {
    CCalibration cal("TestCam", 0);
    cal.SetUnitY(unitY);
    ASSERT_TRUE(cal.Add(0.0f, 0.0f));
    ASSERT_TRUE(cal.Add(2000.0f, 50.0f));
    ASSERT_TRUE(cal.Add(4000.0f, 100.0f));
    ASSERT_EQ(cal.Save(path.c_str()), 1);
}

}  // namespace

TEST(Cli, InfoTellsEveryFileBySignature) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("info");
    MakeFilm(dir + "/a.film", 6, 4, 12, 2, Ramp);
    {
        CFrame frame(6, 4, 12, 0, 0);
        std::vector<double> values(24, 1.5);
        ASSERT_EQ(frame.Save((dir + "/d.film").c_str(), values.data(), "K", "doubles"), 1);
        CNuc nuc(6, 4);
        nuc.SetCamera("NucCam");
        nuc.GetAlpha()[5] = 1.25f;
        nuc.GetBeta()[3] = -7.5f;
        ASSERT_EQ(nuc.Save((dir + "/t.nuc").c_str()), 1);
        CPixel map(6, 4, 0);
        ASSERT_TRUE(map.Add(7, 8, 0x1F));
        ASSERT_EQ(map.Save((dir + "/b.bpr").c_str()), 1);
        CMapping mapping(6, 4);
        ASSERT_EQ(mapping.Save((dir + "/m.map").c_str()), 1);
        CNucFile catalogue(0);
        ASSERT_EQ(catalogue.Save((dir + "/c.nucf").c_str(), 0), 1);
        CResponseFile response(nullptr);
        response.Add(3.5, 0.25);
        response.Add(4.0, 0.875);
        ASSERT_EQ(response.Save((dir + "/r.rsp").c_str()), 1);
    }
    MakeCalibration(dir + "/k.cal");
    WriteText(dir + "/p.ini", "; mine\r\n[Sunset]\r\n(0,0,64)\r\n(255,96,0)\r\nEntries=128\r\n");

    struct Case {
        const char* file;
        const char* kind;
    };
    const Case cases[] = {{"a.film", "film"},       {"d.film", "film of doubles"}, {"t.nuc", "nuc table"},
                          {"b.bpr", "bad-pixel map"}, {"m.map", "mapping"},         {"k.cal", "calibration"},
                          {"c.nucf", "nuc catalogue"}, {"r.rsp", "response file"},   {"p.ini", "palette file"}};
    for (const Case& c : cases) {
        const Result r = Tool("info --json " + dir + "/" + c.file);
        ASSERT_EQ(r.code, 0) << c.file << r.err;
        const Json j = Json::parse(r.out);
        EXPECT_EQ(j["kind"], c.kind) << c.file;
        EXPECT_EQ(j["file"], dir + "/" + c.file);
    }
    Json j = Json::parse(Tool("info -v --json " + dir + "/a.film").out);
    EXPECT_EQ(j["header"]["camera"], "CliCam");
    EXPECT_EQ(j["header"]["frames"], 2);
    EXPECT_EQ(j["header"]["point"], 6);
    EXPECT_EQ(j["header"]["pixel_type"], "u16");
    j = Json::parse(Tool("info -v --json " + dir + "/t.nuc").out);
    EXPECT_EQ(j["header"]["signature"], "COE");
    EXPECT_EQ(j["header"]["camera"], "NucCam");
    EXPECT_EQ(j["header"]["pixel_count"], 24);
    EXPECT_EQ(j["gain"]["max"], 1.25);
    EXPECT_EQ(j["offset"]["min"], -7.5);
    j = Json::parse(Tool("info -v --json " + dir + "/b.bpr").out);
    EXPECT_EQ(j["header"]["count"], 1);
    EXPECT_EQ(j["header"]["line"], 4);
    // 0-based columns and lines, the criteria by name.
    j = Json::parse(Tool("badpixels list --json " + dir + "/b.bpr").out);
    EXPECT_EQ(j["pixels"], Json::parse(R"([{"x": 1, "y": 1, "kind": "gain+offset+noise", "replacement": [2, 1]}])"));
    j = Json::parse(Tool("info -v --json " + dir + "/m.map").out);
    EXPECT_EQ(j["header"]["signature"], "MAP");
    EXPECT_EQ(j["permutation"], "yes");
    j = Json::parse(Tool("info -v --json " + dir + "/k.cal").out);
    EXPECT_EQ(j["header"]["version"], "5.70");
    EXPECT_EQ(j["header"]["points"], 3);
    EXPECT_EQ(j["last_point"][1], 100.0);
    j = Json::parse(Tool("info -v --json " + dir + "/c.nucf").out);
    EXPECT_EQ(j["header"]["tables"], 24);
    EXPECT_EQ(j["header"]["windows"], 4);
    j = Json::parse(Tool("info --json " + dir + "/r.rsp").out);
    EXPECT_EQ(j["records"], 2);
    EXPECT_EQ(j["last"][1], 0.875);
    j = Json::parse(Tool("info --json " + dir + "/p.ini").out);
    ASSERT_EQ(j["palettes"].size(), 1u);
    EXPECT_EQ(j["palettes"][0]["name"], "Sunset");
    EXPECT_EQ(j["palettes"][0]["number"], 11);
    EXPECT_EQ(j["palettes"][0]["entries"], 128);

    // Text output: name: value lines.
    Result r = Tool("info -v " + dir + "/t.nuc");
    EXPECT_NE(r.out.find("header.camera: NucCam\n"), std::string::npos) << r.out;

    // What a file is not, said plainly with the file's name.
    WriteText(dir + "/foreign.bin", "hello world");
    r = Tool("info " + dir + "/foreign.bin");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("file " + dir + "/foreign.bin: not a thermokit file (unknown signature 68 65 6c 6c)"),
              std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty());
    WriteText(dir + "/empty", "");
    r = Tool("info " + dir + "/empty");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("file " + dir + "/empty: empty file"), std::string::npos) << r.err;
    r = Tool("info " + dir + "/missing");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("missing: not found"), std::string::npos) << r.err;
    // Truncated files of each binary kind: the signature is known, the rest refused.
    for (const char* name : {"a.film", "t.nuc", "b.bpr", "m.map", "k.cal", "c.nucf"}) {
        const std::string whole = ReadText(dir + "/" + name);
        WriteText(dir + "/cut", whole.substr(0, whole.size() / 2 > 300 ? 300 : whole.size() / 2));
        r = Tool("info " + dir + "/cut");
        EXPECT_EQ(r.code, 1) << name << r.out;
        EXPECT_NE(r.err.find("file " + dir + "/cut: "), std::string::npos) << name << r.err;
    }
    // --frame asks for a film.
    EXPECT_EQ(Tool("info " + dir + "/t.nuc --frame 0").code, 2);
    std::filesystem::remove_all(dir);
}

TEST(Cli, ExportNpyRawCsvByteExact) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("export");
    const std::string film = dir + "/f.film";
    MakeFilm(film, 5, 3, 12, 4, Ramp);
    MakeCalibration(dir + "/k.cal");

    // NumPy 1.0: magic, version 1.0, a little-endian header length, the
    // dictionary padded to a 64-byte boundary and ended by a newline; then frames 1..2.
    Result r = Tool("export " + film + " --frames 1:2 --format npy -o " + dir + "/f.npy");
    ASSERT_EQ(r.code, 0) << r.err;
    std::string npy = ReadText(dir + "/f.npy");
    ASSERT_GT(npy.size(), 10u);
    EXPECT_EQ(npy.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    const size_t headerLength = static_cast<unsigned char>(npy[8]) | (static_cast<unsigned char>(npy[9]) << 8);
    EXPECT_EQ((10 + headerLength) % 64, 0u);
    std::string dict = npy.substr(10, headerLength);
    EXPECT_EQ(dict.back(), '\n');
    EXPECT_EQ(dict.substr(0, dict.find('}') + 1), "{'descr': '<u2', 'fortran_order': False, 'shape': (2, 3, 5), }");
    ASSERT_EQ(npy.size(), 10 + headerLength + 2 * 15 * 2);
    for (int k = 0; k < 2; ++k)
        for (long i = 0; i < 15; ++i) {
            uint16_t v;
            std::memcpy(&v, npy.data() + 10 + headerLength + 2 * (k * 15 + i), 2);
            ASSERT_EQ(v, Ramp(i, k + 1)) << k << " " << i;
        }

    // Calibrated values as <f4: the straight line 0..4000 -> 0..100.
    r = Tool("export " + film + " --frames 3 --format npy --calib " + dir + "/k.cal -o " + dir + "/t.npy");
    ASSERT_EQ(r.code, 0) << r.err;
    npy = ReadText(dir + "/t.npy");
    const size_t h2 = static_cast<unsigned char>(npy[8]) | (static_cast<unsigned char>(npy[9]) << 8);
    EXPECT_NE(npy.find("'descr': '<f4'"), std::string::npos);
    EXPECT_NE(npy.find("'shape': (1, 3, 5)"), std::string::npos);
    ASSERT_EQ(npy.size(), 10 + h2 + 4 * 15);
    for (long i = 0; i < 15; ++i) {
        float v;
        std::memcpy(&v, npy.data() + 10 + h2 + 4 * i, 4);
        EXPECT_NEAR(v, Ramp(i, 3) / 40.0, 1e-4) << i;
    }

    // Raw: frames one after the other, little-endian, nothing else.
    ASSERT_EQ(Tool("export " + film + " --format raw -o " + dir + "/f.raw").code, 0);
    const std::string raw = ReadText(dir + "/f.raw");
    ASSERT_EQ(raw.size(), 4u * 15 * 2);
    EXPECT_EQ(static_cast<unsigned char>(raw[2 * 16]), Ramp(1, 1) & 0xff);
    EXPECT_EQ(static_cast<unsigned char>(raw[2 * 59 + 1]), Ramp(14, 3) >> 8);

    // A film of doubles exports its values as <f8.
    {
        CFrame frame(5, 3, 12, 0, 0);
        std::vector<double> values(15);
        for (size_t i = 0; i < values.size(); ++i) values[i] = -2.5 + 0.125 * static_cast<double>(i);
        ASSERT_EQ(frame.Save((dir + "/d.film").c_str(), values.data(), "K", "doubles"), 1);
        ASSERT_EQ(Tool("export " + dir + "/d.film --format npy -o " + dir + "/d.npy").code, 0);
        npy = ReadText(dir + "/d.npy");
        const size_t h3 = static_cast<unsigned char>(npy[8]) | (static_cast<unsigned char>(npy[9]) << 8);
        EXPECT_NE(npy.find("{'descr': '<f8', 'fortran_order': False, 'shape': (1, 3, 5), }"), std::string::npos);
        ASSERT_EQ(npy.size(), 10 + h3 + 8 * 15);
        double v;
        std::memcpy(&v, npy.data() + 10 + h3 + 8 * 14, 8);
        EXPECT_EQ(v, values[14]);
        const auto cells = Split(Split(Tool("stats --csv " + dir + "/d.film").out, '\n')[1], ',');
        ASSERT_GE(cells.size(), 7u);
        EXPECT_EQ(std::stod(cells[3]), -2.5);
        EXPECT_EQ(std::stod(cells[4]), -0.75);
        EXPECT_EQ(Tool("export " + dir + "/d.film --format npy --embedded -o " + dir + "/e.npy").code, 1);
    }

    // CSV: a header line, then frame, line and the pixels of that line.
    ASSERT_EQ(Tool("export " + film + " --frames 2:2 --format csv -o " + dir + "/f.csv").code, 0);
    const auto lines = Split(ReadText(dir + "/f.csv"), '\n');
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "frame,line,x0,x1,x2,x3,x4");
    EXPECT_EQ(lines[2], "2,1,52,62,72,82,92");
    std::filesystem::remove_all(dir);
}

TEST(Cli, ExportPngSequenceReadBack) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("png");
    const std::string film = dir + "/f.film";
    MakeFilm(film, 9, 7, 12, 3, [](long i, int k) { return static_cast<unsigned short>(i * 60 + k * 100); });
    const Result r = Tool("export " + film + " --frames 1:2 --format png --palette " +
                         std::to_string(CLogPalette::GREY) + " --range 0:4095 -o " + dir + "/p.png");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(List(dir), (std::vector<std::string>{"f.film", "p-00001.png", "p-00002.png"}));
    const Picture a = ReadPng(dir + "/p-00001.png");
    ASSERT_EQ(a.width, 9u);
    ASSERT_EQ(a.height, 7u);
    // Grey palette over the whole range: the ramp grows brighter pixel after pixel, grey (r = g = b).
    for (unsigned i = 1; i < 63; ++i) {
        EXPECT_EQ(a.rgb[3 * i], a.rgb[3 * i + 1]);
        EXPECT_GE(a.rgb[3 * i], a.rgb[3 * (i - 1)]) << i;
    }
    EXPECT_LT(a.rgb[0], 40);
    EXPECT_GT(a.rgb[3 * 62], 200);
    // A printf-like pattern names the pictures; a hostile one is refused as usage.
    ASSERT_EQ(Tool("export " + film + " --frames 0 --format png -o " + dir + "/q%03d.png").code, 0);
    EXPECT_EQ(ReadPng(dir + "/q000.png").width, 9u);
    EXPECT_EQ(Tool("export " + film + " --format png -o " + dir + "/%s%n.png").code, 2);
    EXPECT_EQ(Tool("export " + film + " --format gif -o " + dir + "/x").code, 2);
    EXPECT_EQ(Tool("export " + film + " --frames 2:9 --format raw -o " + dir + "/x").code, 1);
    EXPECT_EQ(Tool("export " + film + " --frames 2:1 --format raw -o " + dir + "/x").code, 2);
    EXPECT_FALSE(std::filesystem::exists(dir + "/x"));
    std::filesystem::remove_all(dir);
}

TEST(Cli, StatsOverImageRectangleAndRegion) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("stats");
    const std::string film = dir + "/f.film";
    // 4 x 3: levels 100 + 7 i + 1000 k.
    MakeFilm(film, 4, 3, 14, 2, [](long i, int k) { return static_cast<unsigned short>(100 + 7 * i + 1000 * k); });
    MakeCalibration(dir + "/k.cal");
    auto figures = [](const std::vector<double>& v, double& mean, double& sd) {
        mean = 0.0;
        for (double x : v) mean += x;
        mean /= static_cast<double>(v.size());
        sd = 0.0;
        for (double x : v) sd += (x - mean) * (x - mean);
        sd = std::sqrt(sd / static_cast<double>(v.size()));
    };
    Result r = Tool("stats " + film + " --csv --calib " + dir + "/k.cal");
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = Split(r.out, '\n');
    ASSERT_EQ(lines.size(), 3u) << r.out;
    EXPECT_EQ(lines[0].substr(0, 39), "frame,time_s,pixels,min,max,mean,stddev");
    auto cells = Split(lines[2], ',');
    ASSERT_EQ(cells.size(), 13u);
    std::vector<double> v;
    for (long i = 0; i < 12; ++i) v.push_back(1100 + 7 * i);
    double mean, sd;
    figures(v, mean, sd);
    EXPECT_EQ(cells[0], "1");
    EXPECT_DOUBLE_EQ(std::stod(cells[1]), 101.0);
    EXPECT_EQ(cells[2], "12");
    EXPECT_EQ(std::stod(cells[3]), 1100);
    EXPECT_EQ(std::stod(cells[4]), 1177);
    EXPECT_NEAR(std::stod(cells[5]), mean, 1e-9);
    EXPECT_NEAR(std::stod(cells[6]), sd, 1e-9);
    EXPECT_NEAR(std::stod(cells[7]), 1100 / 40.0, 1e-4);
    EXPECT_NEAR(std::stod(cells[8]), 1177 / 40.0, 1e-4);
    EXPECT_NEAR(std::stod(cells[9]), mean / 40.0, 1e-4);
    EXPECT_NEAR(std::stod(cells[10]), sd / 40.0, 1e-4);

    // A rectangle: columns 1..2 of lines 1..2 (indexes 5, 6, 9, 10).
    r = Tool("stats " + film + " --csv --frames 0 --roi 1,1,2,2");
    ASSERT_EQ(r.code, 0) << r.err;
    cells = Split(Split(r.out, '\n')[1], ',');
    figures({135, 142, 163, 170}, mean, sd);
    EXPECT_EQ(cells[2], "4");
    EXPECT_EQ(std::stod(cells[3]), 135);
    EXPECT_EQ(std::stod(cells[4]), 170);
    EXPECT_NEAR(std::stod(cells[6]), sd, 1e-9);
    // A region file: two rectangles, the union counted once; comments skipped.
    WriteText(dir + "/r.txt", "# two shapes\nrect 0 0 1 3\n\nrect 0 2 2 1\n");
    r = Tool("stats " + film + " --csv --frames 0 --region-file " + dir + "/r.txt");
    ASSERT_EQ(r.code, 0) << r.err;
    cells = Split(Split(r.out, '\n')[1], ',');
    figures({100, 128, 156, 163}, mean, sd);
    EXPECT_EQ(cells[2], "4");
    EXPECT_EQ(std::stod(cells[3]), 100);
    EXPECT_EQ(std::stod(cells[4]), 163);
    EXPECT_NEAR(std::stod(cells[5]), mean, 1e-9);
    // Region and rectangle faults.
    WriteText(dir + "/shapes.txt", "ellipse 0 0 4 3\r\npolygon 0 0 1 0 1 1\n");
    r = Tool("stats " + film + " --csv --frames 0 --region-file " + dir + "/shapes.txt");
    ASSERT_EQ(r.code, 0) << r.err;
    {
        // The same shapes through the region class: the same pixels are counted.
        CRgn ellipse, triangle, both;
        ellipse.CreateEllipticRgn(0, 0, 4, 3);
        const CPoint corners[3] = {CPoint(0, 0), CPoint(1, 0), CPoint(1, 1)};
        triangle.CreatePolygonRgn(corners, 3, ALTERNATE);
        both.CombineRgn(&ellipse, &triangle, RGN_OR);
        int inside = 0;
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 4; ++x) inside += both.PtInRegion(x, y) ? 1 : 0;
        ASSERT_GT(inside, 0);
        EXPECT_EQ(Split(Split(r.out, '\n')[1], ',')[2], std::to_string(inside));
    }
    EXPECT_EQ(Tool("stats " + film + " --region-file " + dir).code, 1);  // a folder
    WriteText(dir + "/bad.txt", "rect 0 0 1\n");
    r = Tool("stats " + film + " --region-file " + dir + "/bad.txt");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("bad.txt: line 1"), std::string::npos) << r.err;
    WriteText(dir + "/out.txt", "rect 50 50 3 3\n");
    EXPECT_EQ(Tool("stats " + film + " --region-file " + dir + "/out.txt").code, 1);
    EXPECT_EQ(Tool("stats " + film + " --roi 3,2,2,1").code, 1);  // one column beyond the image
    EXPECT_EQ(Tool("stats " + film + " --roi 3,2,1,1").code, 0);  // the last pixel
    EXPECT_EQ(Tool("stats " + film + " --roi 1,1,0,2").code, 2);
    r = Tool("stats " + film + " --embedded");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("carries no radiometric law"), std::string::npos) << r.err;
    std::filesystem::remove_all(dir);
}

TEST(Cli, TemperatureThroughFileAndEmbeddedLaw) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("temperature");
    const std::string film = dir + "/f.film";
    MakeFilm(film, 8, 6, 12, 3, Ramp);
    MakeCalibration(dir + "/k.cal");
    Result r = Tool("temperature " + film + " --calib " + dir + "/k.cal --pixel 3,2 --frame 2 --json");
    ASSERT_EQ(r.code, 0) << r.err;
    Json j = Json::parse(r.out);
    EXPECT_EQ(j["level"], Ramp(19, 2));
    EXPECT_NEAR(j["value"].get<double>(), Ramp(19, 2) / 40.0, 1e-4);
    EXPECT_EQ(j["unit"], "degC");
    r = Tool("temperature " + film + " --calib " + dir + "/k.cal --roi 1,1,3,2 --json");
    ASSERT_EQ(r.code, 0) << r.err;
    j = Json::parse(r.out);
    EXPECT_EQ(j["pixels"], 6);
    EXPECT_NEAR(j["max"]["value"].get<double>(), Ramp(19, 0) / 40.0, 1e-4);
    EXPECT_EQ(j["max"]["x"], 3);
    EXPECT_EQ(j["max"]["y"], 2);
    EXPECT_EQ(j["min"]["x"], 1);
    r = Tool("temperature " + film + " --calib " + dir + "/k.cal --pixel 8,0");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("lies outside the 8 x 6 image"), std::string::npos) << r.err;
    EXPECT_EQ(Tool("temperature " + film + " --pixel 1,1").code, 2);  // no calibration given
    EXPECT_EQ(Tool("temperature " + film + " --calib " + dir + "/k.cal --frame 3").code, 1);

    // A simulated film carries its own law: every command converts through it as the library does.
    r = Tool("simulate -t 40 --size 16x12 --count 2 -o " + dir + "/s.film --truth " + dir + "/truth.film");
    ASSERT_EQ(r.code, 0) << r.err;
    CPtr sim(dir + "/s.film", 0, 0, 1);
    ASSERT_TRUE(sim.IsValid());
    ASSERT_EQ(sim.GetFrameNumber(), 2u);
    _SCalibrationRBF law{};
    ASSERT_EQ(sim.GetRBFCalibParam(&law), 1);
    CCalibrationRBF rbf(law);
    ASSERT_EQ(sim.ReadFrame(1), 1);
    const unsigned short level = sim.GetFrame()->GetPixel(5, 7);
    float expected = 0.0f;
    ASSERT_EQ(rbf.Interpolate(level, &expected), 1);
    r = Tool("temperature " + dir + "/s.film --embedded --pixel 5,7 --frame 1 --json");
    ASSERT_EQ(r.code, 0) << r.err;
    j = Json::parse(r.out);
    EXPECT_EQ(j["level"], level);
    EXPECT_EQ(j["value"].get<float>(), expected);
    // The law was fitted to the simulated camera; a raw pixel keeps its fixed-pattern offset.
    EXPECT_NEAR(expected, 40.0, 5.0);
    CPtrFloat truth(dir + "/truth.film", 0, 0, 1);
    ASSERT_TRUE(truth.IsValid());
    EXPECT_EQ(truth.GetFrameNumber(), 2u);
    std::filesystem::remove_all(dir);
}

// The files' text is 8-bit (Latin-1): every output shows it as UTF-8, and text
// output escapes its control bytes, so that a field cannot forge a line.
TEST(Cli, EightBitTextIsUtf8InEveryOutput) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("latin1");
    const std::string film = dir + "/r\xe9sultat.film";
    MakeFilm(film, 4, 3, 12, 2, Ramp, "Cam\xe9ra\x07\nframes: 999");
    MakeCalibration(dir + "/w.cal", "W/m\xb2");
    WriteText(dir + "/p.ini", "[Temp\xe9rature]\r\n(0,0,64)\r\n(255,96,0)\r\nEntries=16\r\n");

    Result r = Tool("info --json '" + film + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    Json j = Json::parse(r.out);
    EXPECT_EQ(j["camera"], "Cam\xc3\xa9ra\x07\nframes: 999");
#if !defined(_WIN32)  // Windows names are Unicode: a Latin-1 byte in a name does not reach the tool as such
    EXPECT_EQ(j["file"], dir + "/r\xc3\xa9sultat.film");
#endif
    r = Tool("info '" + film + "'");
    EXPECT_NE(r.out.find("camera: Cam\xc3\xa9ra\\x07\\nframes: 999\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("\nframes: 999"), std::string::npos) << r.out;

    r = Tool("temperature '" + film + "' --calib " + dir + "/w.cal --pixel 1,1 --json");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(Json::parse(r.out)["unit"], "W/m\xc2\xb2");
    r = Tool("calib info " + dir + "/w.cal");
    EXPECT_NE(r.out.find("Y W/m\xc2\xb2"), std::string::npos) << r.out;
    r = Tool("palette list --file " + dir + "/p.ini");
    EXPECT_NE(r.out.find("Temp\xc3\xa9rature"), std::string::npos) << r.out;
    std::filesystem::remove_all(dir);
}

TEST(Cli, EditCropsTurnsMirrorsAndKeepsTheHeader) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("edit");
    const std::string film = dir + "/f.film";
    MakeFilm(film, 10, 8, 12, 5, Ramp, "EditCam");
    const std::string out = dir + "/e.film";
    Result r = Tool("edit " + film + " -o " + out + " --crop 2,1,5,3 --rotate 90 --flip h --frames 1:3");
    ASSERT_EQ(r.code, 0) << r.err;
    CPtr src(film, 0, 0, 1), dst(out, 0, 0, 1);
    ASSERT_TRUE(dst.IsValid());
    EXPECT_EQ(dst.GetFrameNumber(), 3u);
    EXPECT_EQ(dst.GetPoint(), 3);
    EXPECT_EQ(dst.GetLine(), 5);
    EXPECT_EQ(dst.GetBit(), 12);
    EXPECT_EQ(dst.GetCamera(), "EditCam");
    EXPECT_EQ(dst.GetComment(), "made by the tool's tests");
    for (unsigned long k = 0; k < 3; ++k) {
        ASSERT_EQ(src.ReadFrame(k + 1), 1);
        ASSERT_EQ(dst.ReadFrame(k), 1);
        // The same steps through the image layer: crop, quarter turn, then mirror the columns.
        CRect crop(2, 1, 7, 4);
        CFrame part(src.GetFrame(), &crop);
        std::vector<unsigned short> expect(part.GetBuffer(), part.GetBuffer() + 15);
        RotateImage(expect.data(), 5, 3, 90, nullptr);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 3; ++x)
                EXPECT_EQ(dst.GetFrame()->GetPixel(static_cast<unsigned short>(x), static_cast<unsigned short>(y)),
                          expect[y * 3 + (2 - x)]) << k << " " << x << "," << y;
        EXPECT_DOUBLE_EQ(dst.GetFrame()->GetTime(), 101.0 + k);
        CRect sub;
        dst.GetSubWindowRect(&sub);
        EXPECT_EQ(dst.GetImageWindow(), 1);
        EXPECT_EQ(sub.left, 2);
        EXPECT_EQ(sub.top, 1);
        EXPECT_EQ(sub.Width(), 5);
        EXPECT_EQ(sub.Height(), 3);
    }
    // 180 and a vertical mirror give the columns mirrored only.
    ASSERT_EQ(Tool("edit " + film + " -o " + out + " --rotate 180 --flip v --frames 0").code, 0);
    CPtr turned(out, 0, 0, 1);
    ASSERT_EQ(turned.ReadFrame(0), 1);
    ASSERT_EQ(src.ReadFrame(0), 1);
    EXPECT_EQ(turned.GetFrame()->GetPixel(0, 0), src.GetFrame()->GetPixel(9, 0));
    EXPECT_EQ(turned.GetFrame()->GetPixel(9, 7), src.GetFrame()->GetPixel(0, 7));
    // The output is never the source itself, under any name: refused, the source untouched.
    const std::vector<uint8_t> before = thermokit::test::ReadAll(out);
    EXPECT_EQ(Tool("edit " + out + " -o " + dir + "/./" + std::filesystem::path(out).filename().string() +
                   " --crop 0,0,4,2").code, 2);
    EXPECT_EQ(thermokit::test::ReadAll(out), before);
    EXPECT_EQ(List(dir), (std::vector<std::string>{"e.film", "f.film"}));
    EXPECT_EQ(Tool("edit " + film + " -o " + out + " --rotate 45").code, 2);
    EXPECT_EQ(Tool("edit " + film + " -o " + out + " --flip x").code, 2);
    EXPECT_EQ(Tool("edit " + film + " -o " + out + " --crop 6,0,5,2").code, 1);
    std::filesystem::remove_all(dir);
}

TEST(Cli, BadFilesFailCleanlyEverywhere) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("bad");
    const std::string good = dir + "/good.film";
    MakeFilm(good, 16, 12, 12, 3, Ramp);
    MakeCalibration(dir + "/k.cal");
    const std::string whole = ReadText(good);
    WriteText(dir + "/cut.film", whole.substr(0, whole.size() - 100));  // the last frame is short
    WriteText(dir + "/head.film", whole.substr(0, 1000));                // not even a header
    WriteText(dir + "/foreign.film", "PK\x03\x04 this is a zip file, not a film");
    WriteText(dir + "/empty.film", "");
    std::string hostile = whole;
    hostile[377] = '\xff';  // Point no longer matches the pixel count
    hostile[378] = '\xff';
    WriteText(dir + "/hostile.film", hostile);
    WriteText(dir + "/old", "an older output");

    const std::string o = " -o " + dir + "/old";
    {
        CNuc nuc(16, 12);
        ASSERT_EQ(nuc.Save((dir + "/n.nuc").c_str()), 1);
    }
    const std::vector<std::string> commands = {
        "info @",
        "render @ --frame 2" + o,
        "export @ --format npy" + o,
        "export @ --format png" + o,
        "export @ --format csv" + o,
        "stats @",
        "temperature @ --frame 2 --calib " + dir + "/k.cal",
        "edit @" + o,
        "correct @ --nuc " + dir + "/n.nuc" + o,
        "lockin @ --frequency 1 --frame-rate 10" + o,
        "nuc compute --cold " + good + " --hot @" + o,
        "badpixels detect --noise-film @ --noise 5" + o,
    };
    // Neither a FIFO nor a folder is opened: a reader would block on the one and misread the other.
#if !defined(_WIN32)
    ASSERT_EQ(::mkfifo((dir + "/fifo.film").c_str(), 0600), 0);
#endif
    std::filesystem::create_directory(dir + "/folder.film");
    for (const char* bad : {"cut.film", "head.film", "foreign.film", "empty.film", "hostile.film", "none.film",
                            "fifo.film", "folder.film"}) {
        const std::string path = dir + "/" + bad;
#if defined(_WIN32)
        // No FIFOs in the file system; and a program starts in about a second under Wine, so the
        // kinds of damage that the others already cover at the header's checks are left out.
        if (std::string(bad) == "fifo.film" || std::string(bad) == "head.film" || std::string(bad) == "empty.film" ||
            std::string(bad) == "hostile.film")
            continue;
#endif
        for (std::string command : commands) {
            for (size_t at = command.find('@'); at != std::string::npos; at = command.find('@'))
                command.replace(at, 1, path);
            if (std::string(bad) == "cut.film" && (command.rfind("info", 0) == 0)) continue;  // the header is whole
            const Result r = Tool(command);
            // One failure, one line: "thermokit: file NAME: what is wrong".
            EXPECT_EQ(r.code, 1) << command << "\n" << r.out << r.err;
            EXPECT_EQ(r.err.rfind("thermokit: file " + path + ": ", 0), 0u) << command << "\n" << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << command << "\n" << r.err;
            EXPECT_EQ(ReadText(dir + "/old"), "an older output") << command;
        }
    }
    // info still shows the header of a film cut short, and says it is.
    Result cut = Tool("info --json " + dir + "/cut.film");
    EXPECT_EQ(cut.code, 0);
    EXPECT_EQ(Json::parse(cut.out)["complete"], false);
    EXPECT_NE(cut.err.find("2 frame(s) are whole"), std::string::npos) << cut.err;
    EXPECT_EQ(Json::parse(Tool("info --json " + good).out)["complete"], true);
    // Nothing left behind: no partial output, no temporary file.
    std::vector<std::string> kept = {"cut.film", "empty.film", "fifo.film", "folder.film", "foreign.film",
                                     "good.film", "head.film", "hostile.film", "k.cal", "n.nuc", "old"};
#if defined(_WIN32)
    kept.erase(kept.begin() + 2);  // no FIFO made
#endif
    EXPECT_EQ(List(dir), kept);
    // A bad calibration with a good film: refused with the calibration's name.
    WriteText(dir + "/bad.cal", "EXP");
    Result r = Tool("stats " + good + " --calib " + dir + "/bad.cal");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("file " + dir + "/bad.cal"), std::string::npos) << r.err;
    // A complete new output replaces the older one.
    ASSERT_EQ(Tool("export " + good + " --format raw" + o).code, 0);
    EXPECT_EQ(ReadText(dir + "/old").size(), 3u * 16 * 12 * 2);
    std::filesystem::remove_all(dir);
}

TEST(Cli, HelpExamplesUsageAndQuiet) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    for (const char* command :
         {"info", "render", "animate", "export", "stats", "temperature", "edit", "simulate", "nuc compute", "badpixels detect",
          "correct", "cameras", "record", "lockin", "demo", "calib info", "calib convert", "planck", "palette list",
          "palette render", "about", "nuc", "badpixels", "palette", "calib", "registry", "registry get",
          "registry export"}) {
        const Result r = Tool(std::string(command) + " --help");
        EXPECT_EQ(r.code, 0) << command;
        EXPECT_NE(r.out.find("Example: thermokit " + std::string(command)), std::string::npos) << command << r.out;
    }
    EXPECT_EQ(Tool("help nuc compute").out, Tool("nuc compute --help").out);
    // Usage errors: exit 2, one line, the nearest name or the readable limits.
    const std::pair<const char*, const char*> usage[] = {
        {"export x.film", "export: --format is required"},
        {"stat x.film", "unknown command stat (did you mean `stats`?)"},
        {"stats x.film --frmes 1:2", "stats: unknown option --frmes (did you mean `--frames`?)"},
        {"stats x.film --frames a:b", "stats: --frames: expected A:B, frame numbers from 0 (A:, :B and A also); a:b is not that"},
        {"badpixels detect --gain -5 -o x.bpr", "badpixels detect: --gain: expected a number above 0, not -5"},
        {"record --bank-size 1 -n 1 -o x.film", "record: --bank-size: expected a multiple of 4096 from 4096 to 1073741824 bytes"},
    };
    for (const auto& [args, text] : usage) {
        const Result u = Tool(args);
        EXPECT_EQ(u.code, 2) << args;
        EXPECT_EQ(u.err, "thermokit: " + std::string(text) + "\n") << args;
    }

    const std::string dir = Folder("quiet");
    Result r = Tool("simulate --size 8x8 --count 1 -o " + dir + "/s.film");
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(r.out.empty());
    r = Tool("simulate --size 8x8 --count 1 --quiet -o " + dir + "/s.film");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
    r = Tool("--quiet export " + dir + "/s.film --format raw -o " + dir + "/s.raw");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(r.err.empty()) << r.err;  // not a terminal: no progress bar
    // "-o -" writes the one output to standard output; a picture under another format's name is refused.
    EXPECT_EQ(Tool("export " + dir + "/s.film --format raw -o -").out, ReadText(dir + "/s.raw"));
    EXPECT_EQ(Tool("export " + dir + "/s.film --format png -o " + dir + "/f.jpg").code, 2);
    // info: a summary of real booleans and numbers, 32-bit fields at their own precision; several files.
    Json j = Json::parse(Tool("info --json " + dir + "/s.film " + dir + "/s.film").out);
    ASSERT_EQ(j.size(), 2u);
    EXPECT_EQ(j[1]["width"], 8);
    EXPECT_EQ(j[1]["complete"], true);
    EXPECT_EQ(j[1]["law"], true);
    EXPECT_EQ(j[1]["frame_rate_hz"].dump(), "100.0");
    EXPECT_EQ(j[1]["duration_s"].dump(), "0.01");
    // The results of a command that only tells something are kept under --quiet.
    EXPECT_FALSE(Tool("--quiet stats " + dir + "/s.film").out.empty());
    EXPECT_EQ(Tool("simulate --scene sky -o " + dir + "/x.film").code, 2);
    EXPECT_EQ(Tool("simulate --size 1x9 -o " + dir + "/x.film").code, 2);
    std::filesystem::remove_all(dir);
}

// Names beyond ASCII in a path longer than the 260 characters Windows once allowed, and a film that
// another program holds without sharing: the first is read and written, the second refused by name.
TEST(Cli, UnusualNamesAndAFileInUse) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("names");
    std::string deep = dir + "/d\xC3\xA9j\xC3\xA0 vu";  // "déjà vu"
    for (char c : {'a', 'b', 'c'}) deep += "/" + std::string(100, c);
    std::filesystem::create_directories(PathFromUtf8(deep));
    const std::string film = deep + "/\xE2\x84\x83 \xE6\xB8\xA9\xE5\xBA\xA6.film";  // "℃ 温度.film"
    MakeFilm(film, 6, 4, 12, 2, Ramp);
    Result r = Tool("info '" + film + "' --json");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(Json::parse(r.out)["frames"], 2);
    r = Tool("render '" + film + "' --frame 1 -o '" + deep + "/\xC3\xA9.png'");
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(File::GetFileLength(deep + "/\xC3\xA9.png") > 0, true);
    {
        File holder;
        ASSERT_TRUE(holder.Open(film, File::modeReadWrite | File::shareExclusive));
        r = Tool("info '" + film + "'");
        EXPECT_EQ(r.code, 1);
        EXPECT_NE(r.err.find("file " + film + ": cannot be opened (Sharing violation: the file is in use"),
                  std::string::npos) << r.err;
    }
    EXPECT_EQ(Tool("info '" + film + "'").code, 0);
    thermokit::test::RemoveTree(dir);
}

#if !defined(_WIN32)  // SIGINT; Windows sends Ctrl-C to a console, which Wine has none of here
TEST(Cli, InterruptedCommandLeavesNothing) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string dir = Folder("interrupt");
    const std::string out = dir + "/s.film";
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::execl(THERMOKIT_TOOL_PATH, "thermokit", "simulate", "--size", "64x48", "--count", "1000000", "-o",
                out.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Interrupted once its temporary film exists (polled; no timing is measured).
    bool started = false;
    for (int i = 0; i < 2000 && !started; ++i) {
        started = !List(dir).empty();
        if (!started) ::usleep(5000);
    }
    ::kill(pid, SIGINT);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(started);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_TRUE(List(dir).empty());
    std::filesystem::remove_all(dir);
}
#endif

// A file that is not a palette file and a typed read of a missing setting are refused like the other
// failures; frame times come from the film's start beside the time of day, rounded to the microsecond.
TEST(Cli, RefusalsAndRoundedFrameTimes) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    thermokit::test::UsePrivateStores();
    const std::string dir = Folder("second");
    WriteText(dir + "/x.pal", "not a palette file\n");
    Result r = Tool("palette list --file " + dir + "/x.pal");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.rfind("thermokit: file " + dir + "/x.pal: no palette in it", 0), 0u) << r.err;
    const Result untyped = Tool("registry get setup NoSuchValue");
    r = Tool("registry get setup NoSuchValue --type int");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, untyped.err);
    EXPECT_NE(r.err.find("no value \"NoSuchValue\""), std::string::npos) << r.err;
    r = Tool("registry get setup NoSuchValue --type int --default 7");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out, "7\n");
    // 100 frames a second: frame 1 is stored as 9 ms 999 us after the first.
    ASSERT_EQ(Tool("simulate --quiet --size 8x8 --count 3 -o " + dir + "/s.film").code, 0);
    const Json times = Json::parse(Tool("info --json --frames 1:1 " + dir + "/s.film").out)["frame_times"][0];
    EXPECT_EQ(times["time_s"].dump(), "0.009999");
    EXPECT_EQ(times["time_of_day_s"].dump(), "32400.009999");
    const std::vector<std::string> lines = Split(Tool("stats " + dir + "/s.film").out, '\n');
    ASSERT_GE(lines.size(), 4u);
    const auto word = [](const std::string& line, int k) {
        std::istringstream in(line);
        std::string w;
        for (int i = 0; i <= k; ++i) in >> w;
        return w;
    };
    EXPECT_EQ(word(lines[1], 1), "time_s");
    EXPECT_EQ(word(lines[1], 2), "time_of_day_s");
    EXPECT_EQ(word(lines[3], 1), "0.009999");
    EXPECT_EQ(word(lines[3], 2), "32400.009999");
    // Written back, those times stay as they were: an unchanged edit copies the film byte for byte.
    const std::string film = dir + "/s.film";
    ASSERT_EQ(Tool("edit --quiet " + film + " -o " + dir + "/same.film").code, 0);
    EXPECT_EQ(ReadText(dir + "/same.film"), ReadText(film));
    // A film cut short: refused, or with --salvage its whole frames, as an edit of those frames writes them.
    WriteText(dir + "/cut.film", ReadText(film).substr(0, ReadText(film).size() - 50));
    EXPECT_EQ(Tool("edit " + dir + "/cut.film -o " + dir + "/r.film").code, 1);
    r = Tool("edit --quiet " + dir + "/cut.film --salvage -o " + dir + "/r.film");
    EXPECT_EQ(r.code, 0);
    EXPECT_NE(r.err.find("the 2 whole frame(s) are salvaged"), std::string::npos) << r.err;
    ASSERT_EQ(Tool("edit --quiet " + film + " --frames 0:1 -o " + dir + "/first.film").code, 0);
    EXPECT_EQ(ReadText(dir + "/r.film"), ReadText(dir + "/first.film"));
    // The horizontal palette bar is the vertical one on its side: one ramp, the highest level at the left.
    ASSERT_EQ(Tool("palette render --quiet Rainbow --width 200 --height 7 -o " + dir + "/h.png").code, 0);
    ASSERT_EQ(Tool("palette render --quiet Rainbow --vertical --width 7 --height 200 -o " + dir + "/v.png").code, 0);
    const Picture h = ReadPng(dir + "/h.png"), v = ReadPng(dir + "/v.png");
    ASSERT_EQ(h.width * h.height, 1400u);
    ASSERT_EQ(v.width * v.height, 1400u);
    for (unsigned y = 0; y < 7; ++y)
        for (unsigned x = 0; x < 200; ++x)
            ASSERT_EQ(std::memcmp(h.At(x, y), v.At(3, x), 3), 0) << x << "," << y;
    // An output that is a folder: the file in it is named after the input.
    std::filesystem::create_directory(dir + "/out");
    ASSERT_EQ(Tool("export --quiet " + film + " --format npy -o " + dir + "/out").code, 0);
    ASSERT_EQ(Tool("edit --quiet " + film + " -o " + dir + "/out/").code, 0);
    EXPECT_EQ(List(dir + "/out"), (std::vector<std::string>{"s.film", "s.npy"}));
    EXPECT_EQ(ReadText(dir + "/out/s.film"), ReadText(film));
    std::filesystem::remove_all(dir);
}
