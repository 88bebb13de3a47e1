// Every stored input of every fuzz target, fed to the target's entry
// function in the normal build: the seeds (corpus/<name>) and every input
// that once made a target fail (regressions/<name>).
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzTargets.h"

namespace fs = std::filesystem;
using thermokit::fuzz::kTargets;

class FuzzReplay : public ::testing::TestWithParam<const thermokit::fuzz::Target*> {};

TEST_P(FuzzReplay, StoredInputsRunCleanly) {
    const thermokit::fuzz::Target& target = *GetParam();
    size_t seeds = 0;
    for (const char* kind : {"corpus", "regressions"}) {
        const fs::path dir = fs::path(THERMOKIT_FUZZ_DIR) / kind / target.name;
        if (!fs::is_directory(dir)) continue;
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (!entry.is_regular_file()) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            SCOPED_TRACE(entry.path().string());
            target.entry(bytes.data(), bytes.size());
            seeds += std::string(kind) == "corpus";
        }
    }
    EXPECT_GT(seeds, 0u) << "no seed for " << target.name;
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzReplay,
                         ::testing::ValuesIn([] {
                             std::vector<const thermokit::fuzz::Target*> all;
                             for (const auto* t = kTargets; t->name; ++t) all.push_back(t);
                             return all;
                         }()),
                         [](const auto& info) { return std::string(info.param->name); });
