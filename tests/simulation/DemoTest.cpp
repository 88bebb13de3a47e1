// The demo, run as the tool on a small detector: every target checked from
// the figures of report.json, the files it promises, and the usage errors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include "support/ToolRun.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/nuc/CPixel.h"

namespace thermokit {
namespace {

namespace fs = std::filesystem;

int RunTool(const std::string& args) { return test::RunTool(args, test::ToolErrors::kDiscarded).status; }

class Demo : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (std::string(THERMOKIT_TOOL_PATH).empty()) return;
        // One folder per process: ctest runs each test in a process of its own, maybe in parallel.
        s_dir = ::testing::TempDir() + "sim_demo_small_" + std::to_string(getpid());
        fs::remove_all(s_dir);
        s_status = RunTool("demo -o '" + s_dir + "' --size 160x128 --count 6");
        std::ifstream f(s_dir + "/report.json");
        if (f) s_report = nlohmann::json::parse(f, nullptr, false);
    }
    static void TearDownTestSuite() {
        if (!s_dir.empty()) fs::remove_all(s_dir);
    }
    void SetUp() override {
        if (std::string(THERMOKIT_TOOL_PATH).empty()) GTEST_SKIP() << "the tool is not built";
    }
    static std::string s_dir;
    static int s_status;
    static nlohmann::json s_report;
};
std::string Demo::s_dir;
int Demo::s_status = -1;
nlohmann::json Demo::s_report;

TEST_F(Demo, MeetsEveryTargetOnASmallDetector) {
    ASSERT_EQ(s_status, 0);
    ASSERT_TRUE(s_report.is_object());
    const auto& r = s_report;
    EXPECT_EQ(r["size"][0].get<int>(), 160);
    EXPECT_EQ(r["size"][1].get<int>(), 128);

    const double before = r["fpn"]["before_dl"], after = r["fpn"]["after_dl"], noise = r["fpn"]["temporal_noise_dl"];
    EXPECT_GT(before, 10.0 * noise);  // the raw pattern is plainly there
    EXPECT_TRUE(after <= 0.1 * before || after <= noise) << after << " vs " << before << ", noise " << noise;

    const auto& b = r["bad_pixels"];
    const long injected = b["injected"], hits = b["hits"], falseAlarms = b["false_alarms"];
    EXPECT_GT(injected, 0);
    EXPECT_GE(static_cast<double>(hits), 0.99 * injected);
    EXPECT_LT(static_cast<double>(falseAlarms), 0.001 * 160 * 128);
    EXPECT_EQ(b["misses"].get<long>(), injected - hits);

    const auto& t = r["temperature"];
    EXPECT_GT(t["pixels_counted"].get<long>(), 1000);
    EXPECT_LT(t["median_abs_k"].get<double>(), 0.2);
    EXPECT_LT(t["p99_abs_k"].get<double>(), 0.5);
    EXPECT_GE(t["worst_abs_k"].get<double>(), t["p99_abs_k"].get<double>() - 0.001);
    const auto& w = t["worst_at"];
    EXPECT_NEAR(std::fabs(w["measured_degC"].get<double>() - w["true_degC"].get<double>()),
                t["worst_abs_k"].get<double>(), 1e-6);
    EXPECT_LT(w["x"].get<long>(), 160);
    EXPECT_LT(w["frame"].get<long>(), t["frames"].get<long>());

    // The defect shows in phase far above the noise of sound material.
    EXPECT_GT(r["lockin"]["phase_cnr"].get<double>(), 3.0);
    EXPECT_GT(r["lockin"]["module_cnr"].get<double>(), 3.0);
    // The law fitted from the black bodies agrees with the one the films carry.
    EXPECT_LT(r["calibration"]["law_difference_max_k"].get<double>(), 0.2);
    EXPECT_TRUE(r["all_targets_met"].get<bool>());
    EXPECT_FALSE(r["runtime"]["checked"].get<bool>());
    EXPECT_EQ(r["stages"].size(), 7u);

    // The materials: right within the targets for emissivities of 0.7 and above, far off as a black body.
    const auto& bands = r["emissivity"]["bands"];
    ASSERT_EQ(bands.size(), 3u);
    for (const auto& band : bands) {
        EXPECT_GT(band["pixels_counted"].get<long>(), 1000);
        if (band["emissivity"].get<double>() >= 0.7) {
            EXPECT_LT(band["median_abs_k"].get<double>(), 0.2);
            EXPECT_LT(band["p99_abs_k"].get<double>(), 0.5);
        }
        EXPECT_GT(band["black_body_median_abs_k"].get<double>(), 5.0 * band["median_abs_k"].get<double>() + 0.5);
    }
}

TEST_F(Demo, WritesEveryPromisedFile) {
    ASSERT_EQ(s_status, 0);
    for (const char* name : {"report.md", "report.json", "camera.nuc", "camera.bpr", "badpixels.txt", "calibration.cal",
                             "scene_raw.png", "scene_corrected.png", "scene_temperature.png", "scene_isotherms.png",
                             "lockin_module.png", "lockin_phase.png", "films/scene.film", "films/lockin.film",
                             "truth/gain.film", "truth/offset.film", "truth/defects.csv",
                             "truth/scene_temperature.film", "materials_temperature.png", "materials_black_body.png",
                             "truth/materials_temperature.film"}) {
        const fs::path p = fs::path(s_dir) / name;
        EXPECT_TRUE(fs::exists(p) && fs::file_size(p) > 0) << name;
    }
    std::ifstream png(s_dir + "/scene_temperature.png", std::ios::binary);
    char sig[8] = {};
    png.read(sig, 8);
    EXPECT_EQ(std::string(sig + 1, 3), "PNG");
}

TEST_F(Demo, TablesItWroteMatchTheSimulatedDetector) {
    ASSERT_EQ(s_status, 0);
    // The NUC gain undoes each pixel's gain: gain x truth is the same for every good pixel.
    CNuc nuc((s_dir + "/camera.nuc").c_str());
    CPtrFloat gain(s_dir + "/truth/gain.film", 0, 0, 0);
    ASSERT_TRUE(nuc.IsValid());
    ASSERT_TRUE(gain.IsValid());
    ASSERT_TRUE(gain.ReadFrame(0));
    ASSERT_EQ(nuc.GetSize(), 160 * 128);
    const double* g = gain.GetDoubleBuffer();
    std::vector<double> products;
    for (long i = 0; i < nuc.GetSize(); ++i)
        if (g[i] > 0.5) products.push_back(nuc.GetAlpha()[i] * g[i]);
    double s = 0, s2 = 0;
    for (double p : products) s += p, s2 += p * p;
    const double m = s / products.size(), sd = std::sqrt(s2 / products.size() - m * m);
    EXPECT_NEAR(m, 1.0, 0.02);
    EXPECT_LT(sd, 0.003);  // far below the 3 % spread of the raw gains

    // Every listed bad pixel has a replacement on the detector.
    CPixel bp((s_dir + "/camera.bpr").c_str());
    ASSERT_TRUE(bp.IsValid());
    EXPECT_EQ(bp.GetSize(), s_report["bad_pixels"]["found"].get<long>());
    for (long k = 0; k < bp.GetSize(); ++k) {
        EXPECT_NE(bp.GetPixel1()[k], bp.GetPixel2()[k]);
        EXPECT_LT(bp.IsBad(bp.GetPixel2()[k]), 0);
    }
}

TEST_F(Demo, SameSeedSameFigures) {
    ASSERT_EQ(s_status, 0);
    const std::string again = ::testing::TempDir() + "sim_demo_again_" + std::to_string(getpid());
    fs::remove_all(again);
    ASSERT_EQ(RunTool("demo -o '" + again + "' --size 160x128 --count 6"), 0);
    const auto r = nlohmann::json::parse(std::ifstream(again + "/report.json"), nullptr, false);
    ASSERT_TRUE(r.is_object());
    for (const char* key : {"fpn", "bad_pixels", "temperature", "emissivity", "lockin", "calibration"})
        EXPECT_EQ(r[key], s_report[key]) << key;
    {
        std::ifstream a(s_dir + "/films/scene.film", std::ios::binary), b(again + "/films/scene.film", std::ios::binary);
        EXPECT_TRUE(std::equal(std::istreambuf_iterator<char>(a), {}, std::istreambuf_iterator<char>(b), {}));
    }  // closed: Windows removes no file that is open
    fs::remove_all(again);
}

TEST_F(Demo, RefusesBadUsage) {
    const std::string dir = ::testing::TempDir() + "sim_demo_usage_" + std::to_string(getpid());
    EXPECT_EQ(RunTool("demo -o '" + dir + "' --size 10x10"), 2);
    EXPECT_EQ(RunTool("demo -o '" + dir + "' --size wide"), 2);
    EXPECT_EQ(RunTool("demo -o '" + dir + "' --size 160x128x3"), 2);
    EXPECT_EQ(RunTool("demo -o '" + dir + "' --count 0"), 2);
    // An output folder that cannot be made (below a file) is a failure, not a crash.
    std::ofstream(dir + "_file") << "x";
    EXPECT_EQ(RunTool("demo -o '" + dir + "_file/demo' --size 64x64"), 1);
    std::remove((dir + "_file").c_str());
}

}  // namespace
}  // namespace thermokit
