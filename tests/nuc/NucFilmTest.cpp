#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "nuc/NucTestSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/nuc/CNuc.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using namespace nuctest;

namespace {

// Writes a film of the given frames (point x line levels each).
std::string MakeFilm(const std::string& name, unsigned short point, unsigned short line,
                     const std::vector<std::vector<unsigned short>>& frames, const CRect* window = nullptr) {
    const std::string path = TempPath(name);
    CPtr film(point, line, 14, 0, 0, 0);
    film.SetFileName(path);
    film.SetCamera("CAM-X");
    film.SetSerial("S-77");
    film.SetFilter("F-IR", 0);
    film.SetIntegration(0.25f, 0);
    if (window) film.SetSubWindowRect(window);
    for (const auto& f : frames) {
        std::memcpy(film.GetFrame()->GetBuffer(), f.data(), f.size() * 2);
        EXPECT_EQ(film.AddFrame(static_cast<CFrame*>(nullptr)), 1);
    }
    return path;
}

}  // namespace

TEST(CNucFilms, UpdateFromAveragedFilms) {
    // Means 10.5 / 21 / ... are truncated to levels by the averager.
    const std::string cold = MakeFilm("cold.film", 4, 2,
                                      {{10, 20, 30, 40, 50, 60, 70, 80}, {11, 22, 30, 41, 50, 60, 70, 83}});
    const std::string hot = MakeFilm("hot.film", 4, 2,
                                     {{110, 220, 330, 140, 150, 160, 170, 180}, {111, 220, 330, 141, 150, 160, 171, 181}});
    CNuc fromFilms(4, 2);
    ASSERT_EQ(fromFilms.Update(cold.c_str(), hot.c_str(), 0, 0), 1);
    std::vector<unsigned short> low = {10, 21, 30, 40, 50, 60, 70, 81};
    std::vector<unsigned short> high = {110, 220, 330, 140, 150, 160, 170, 180};
    CNuc direct(4, 2);
    direct.Update(low.data(), high.data(), 0, 0);
    EXPECT_EQ(std::memcmp(fromFilms.GetAlpha(), direct.GetAlpha(), 32), 0);
    EXPECT_EQ(std::memcmp(fromFilms.GetBeta(), direct.GetBeta(), 32), 0);
    EXPECT_EQ(fromFilms.GetCamera(), "CAM-X");
    EXPECT_EQ(fromFilms.GetCameraSerial(), "S-77");
    EXPECT_EQ(fromFilms.GetFilter(), "F-IR");
    EXPECT_EQ(fromFilms.GetIntegration(), 0.25f);
    unsigned char flag = 9;
    unsigned short x = 9, y = 9;
    fromFilms.GetWindowing(&flag, &x, &y, nullptr, nullptr);
    EXPECT_EQ(flag, 0);  // the whole detector
    EXPECT_EQ(x, 0);
    EXPECT_EQ(y, 0);

    // One point, keeping the gain: only the offsets follow the cold film.
    CNuc one(4, 2);
    one.Reset();
    one.GetAlpha()[1] = 2.0f;
    ASSERT_EQ(one.Update(cold.c_str(), nullptr, 1, 1), 1);
    CNuc oneDirect(4, 2);
    oneDirect.Reset();
    oneDirect.GetAlpha()[1] = 2.0f;
    oneDirect.Update(low.data(), nullptr, 1, 1);
    EXPECT_EQ(std::memcmp(one.GetBeta(), oneDirect.GetBeta(), 32), 0);
    EXPECT_EQ(one.GetAlpha()[1], 2.0f);
}

TEST(CNucFilms, MismatchedOrMissingFilmsLeaveTheTables) {
    MessageRecorder quiet;
    const std::vector<std::vector<unsigned short>> frame = {{1, 2, 3, 4, 5, 6, 7, 8}};
    const CRect window(2, 1, 5, 2);  // 3 x 1 at (2, 1)
    const std::string sub = MakeFilm("sub.film", 4, 2, frame, &window);
    const std::string wide = MakeFilm("wide.film", 8, 1, {{1, 2, 3, 4, 5, 6, 7, 8}});
    CNuc nuc(4, 2);
    nuc.Reset();
    // The second film has another shape: tables unchanged, but the first
    // film's description and sub-window are taken.
    ASSERT_EQ(nuc.Update(sub.c_str(), wide.c_str(), 0, 0), 1);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(nuc.GetAlpha()[i], 1.0f);
        EXPECT_EQ(nuc.GetBeta()[i], 0.0f);
    }
    EXPECT_EQ(nuc.GetCamera(), "CAM-X");
    unsigned char flag = 0;
    unsigned short x = 0, y = 0;
    nuc.GetWindowing(&flag, &x, &y, nullptr, nullptr);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(x, 2);
    EXPECT_EQ(y, 1);
    // A first film of another shape changes nothing at all.
    CNuc other(4, 2);
    other.Reset();
    ASSERT_EQ(other.Update(wide.c_str(), sub.c_str(), 0, 0), 1);
    EXPECT_EQ(other.GetCamera(), "");
    EXPECT_EQ(other.GetAlpha()[0], 1.0f);
    ASSERT_EQ(other.Update(TempPath("missing.film").c_str(), nullptr, 1, 0), 1);
    ASSERT_EQ(other.Update(static_cast<const char*>(nullptr), nullptr, 0, 0), 1);
    EXPECT_EQ(other.GetBeta()[0], 0.0f);
    // The flag is never lowered again by a full-detector film.
    const std::string full = MakeFilm("full.film", 4, 2, frame);
    ASSERT_EQ(nuc.Update(full.c_str(), nullptr, 1, 0), 1);
    nuc.GetWindowing(&flag, &x, &y, nullptr, nullptr);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(x, 0);
    EXPECT_EQ(y, 0);
}
