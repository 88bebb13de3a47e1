// Film commands on 1, 2 and 7 threads (--threads, and THERMOKIT_THREADS for
// the last): the same printed figures and the same output bytes. Films that
// the tool makes with a new header carry the time they were made; those four
// bytes are left out of the comparison.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cli/CliSupport.h"

using namespace clitest;

namespace {

bool ToolBuilt() { return !std::string(THERMOKIT_TOOL_PATH).empty(); }

// The inputs, made once: a film of a plate with a moving hot spot and bad
// pixels (its own radiometric law), its truth (a film of doubles), black
// bodies, and a NUC table and bad-pixel map to correct with.
struct Inputs {
    std::string dir;
    bool ok = false;
};

const Inputs& MakeInputs() {
    static const Inputs inputs = [] {
        Inputs in;
        in.dir = Folder("threads_inputs");
        const std::string d = in.dir + "/";
        in.ok = Tool("simulate --scene plate --move 1.5 --defects --size 53x41 --count 29 -o " + d +
                     "plate.film --truth " + d + "truth.film")
                        .code == 0 &&
                Tool("simulate -t 20 --size 53x41 --count 9 -o " + d + "cold.film").code == 0 &&
                Tool("simulate -t 60 --size 53x41 --count 9 --seed 3 -o " + d + "hot.film").code == 0 &&
                Tool("nuc compute --cold " + d + "cold.film --hot " + d + "hot.film -o " + d + "cam.nuc").code == 0 &&
                Tool("badpixels detect --noise-film " + d + "plate.film --noise 3 --noise-high -o " + d + "cam.bpr")
                        .code == 0;
        return in;
    }();
    return inputs;
}

struct Command {
    const char* name;
    std::string args;                  // IN/ names an input, OUT/ the run's own folder
    std::vector<std::string> outputs;  // files written, in OUT/
    bool printed = true;               // what it prints is compared too
};

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

// A file's bytes, the recording date and time of a film's header cleared.
std::string Bytes(const std::string& path) {
    std::string bytes = ReadText(path);
    if (bytes.size() > 3476 && bytes.compare(0, 4, std::string("RKK\0", 4)) == 0) bytes.replace(35, 8, 8, '\0');
    return bytes;
}

class ThreadCount : public testing::TestWithParam<Command> {
public:
    static void TearDownTestSuite() { std::filesystem::remove_all(MakeInputs().dir); }
};

TEST_P(ThreadCount, SameFiguresAndBytesOnOneTwoAndSevenThreads) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const Inputs& in = MakeInputs();
    ASSERT_TRUE(in.ok);
    const Command& c = GetParam();
    std::vector<std::string> first;
    for (const int threads : {1, 2, 7}) {
        const std::string out = Folder(std::string("threads_") + c.name + std::to_string(threads));
        std::string options = "--threads " + std::to_string(threads);
        if (threads == 7) {
            options.clear();
            ::setenv("THERMOKIT_THREADS", "7", 1);
        }
        const Result r = Tool(options + " " + Replace(Replace(c.args, "IN/", in.dir + "/"), "OUT/", out + "/"));
        ::unsetenv("THERMOKIT_THREADS");
        ASSERT_EQ(r.code, 0) << c.args << "\n" << r.err;
        std::vector<std::string> results{c.printed ? Replace(r.out, out, "OUT") : std::string()};
        for (const std::string& name : c.outputs) results.push_back(Bytes(out + "/" + name));
        if (first.empty()) first = results;
        ASSERT_EQ(results.size(), first.size());
        for (size_t k = 0; k < results.size(); ++k)
            EXPECT_TRUE(results[k] == first[k]) << c.name << ", " << threads << " threads: "
                                                << (k ? c.outputs[k - 1] : "printed") << " differs";
        std::filesystem::remove_all(out);
    }
}

const Command kCommands[] = {
    {"stats", "stats IN/plate.film --embedded --emissivity 0.9 --csv", {}},
    {"stats_region", "stats IN/truth.film --roi 3,4,40,30 --frames 2:27", {}},
    {"export_npy", "export IN/plate.film --embedded --step 3 --format npy -o OUT/t.npy", {"t.npy"}},
    {"export_csv", "export IN/truth.film --frames 5:20 --format csv -o OUT/t.csv", {"t.csv"}},
    {"export_raw", "export IN/plate.film --format raw -o OUT/l.raw", {"l.raw"}},
    {"export_png",
     "export IN/plate.film --frames 20:28 --step 4 --format png --bar --isotherm 40:45 -o OUT/p%02d.png",
     {"p20.png", "p24.png", "p28.png"}},
    {"render", "render IN/truth.film --frame 7 --bar -o OUT/r.png", {"r.png"}},
    {"animate", "animate IN/plate.film --embedded --kelvin --step 2 --fps 10 -o OUT/a.gif", {"a.gif"}},
    {"correct", "correct IN/plate.film --nuc IN/cam.nuc --badpixels IN/cam.bpr -o OUT/c.film", {"c.film"}},
    {"edit", "edit IN/plate.film --crop 2,3,31,17 --rotate 90 --flip h --frames 4:25 -o OUT/e.film", {"e.film"}},
    {"lockin", "lockin IN/plate.film --frequency 7 --frame-rate 100 -o OUT/l",
     {"l_module.film", "l_phase.film", "l_module.png", "l_phase.png"}},
    {"nuc", "nuc compute --cold IN/cold.film --hot IN/hot.film -o OUT/n.nuc", {"n.nuc"}},
    {"badpixels", "badpixels detect --noise-film IN/plate.film --noise 2 --noise-high -o OUT/b.bpr", {"b.bpr"}},
    {"simulate", "simulate --scene materials --size 61x37 --count 11 -o OUT/s.film --truth OUT/t.film",
     {"s.film", "t.film"}},
    // Its report holds timings: the tables, films and pictures are compared.
    {"demo", "demo --size 48x40 --count 4 --quick -o OUT/d",
     {"d/camera.nuc", "d/camera.bpr", "d/calibration.cal", "d/noise_map.film", "d/lockin_module.film",
      "d/lockin_phase.film", "d/scene_temperature.png", "d/materials_temperature.png"},
     false},
};

INSTANTIATE_TEST_SUITE_P(Commands, ThreadCount, testing::ValuesIn(kCommands),
                         [](const testing::TestParamInfo<Command>& info) { return std::string(info.param.name); });

}  // namespace
