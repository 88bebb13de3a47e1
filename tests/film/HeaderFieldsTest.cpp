// Header fields by name (what info and the Python package show and set) and
// the whole-film reading helpers: their refusals and their messages.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "FilmTestSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/FilmReader.h"
#include "thermokit/film/HeaderFields.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using namespace filmtest;

namespace {

// Top-level fields as text, list items as "name[k]".
struct Collect : HeaderFieldVisitor {
    std::map<std::string, std::string> values;
    std::vector<std::string> open;
    std::vector<int> items;
    std::string Name(const char* name) {
        if (!open.empty() && !name) return open.back() + "[" + std::to_string(items.back()++) + "]";
        return (open.empty() ? std::string() : open.back() + ".") + name;
    }
    void Signed(const char* n, int64_t v) override { values[Name(n)] = std::to_string(v); }
    void Unsigned(const char* n, uint64_t v) override { values[Name(n)] = std::to_string(v); }
    void Real(const char* n, double v) override { values[Name(n)] = std::to_string(v); }
    void Text(const char* n, const std::string& v) override { values[Name(n)] = v; }
    void Null(const char* n) override { values[Name(n)] = "null"; }
    void BeginRecord(const char* n) override { open.push_back(Name(n)), items.push_back(0); }
    void BeginList(const char* n) override { open.push_back(Name(n)), items.push_back(0); }
    void End() override { open.pop_back(), items.pop_back(); }
};

std::map<std::string, std::string> Fields(const CPtrOver& p) {
    Collect c;
    VisitFileHeader(p, c);
    EXPECT_TRUE(c.open.empty());
    return c.values;
}

HeaderValue Number(double v) { return HeaderValue{false, v, {}}; }
HeaderValue Text(const std::string& t) { return HeaderValue{true, 0.0, t}; }

}  // namespace

TEST(HeaderFields, SetByNameShowsUnderTheSameNameAndRefusalsChangeNothing) {
    CPtrOver p;
    p.InitHeader(64, 48, 14);
    std::string why;
    ASSERT_TRUE(SetHeaderField(p, "camera", -1, Text("Cam\xe9ra-19-chars-xyz"), why)) << why;
    ASSERT_TRUE(SetHeaderField(p, "filters", 7, Text("last"), why)) << why;
    ASSERT_TRUE(SetHeaderField(p, "billet_shape", -1, Number(65535), why)) << why;
    ASSERT_TRUE(SetHeaderField(p, "inductor_power", -1, Number(-2147483648.0), why)) << why;
    ASSERT_TRUE(SetHeaderField(p, "integration_s", 36, Number(0.5), why)) << why;
    ASSERT_TRUE(SetHeaderField(p, "frame_rate_hz", -1, Number(50), why)) << why;
    auto f = Fields(p);
    EXPECT_EQ(f["camera"], "Cam\xe9ra-19-chars-xyz");
    EXPECT_EQ(f["filters[7]"], "last");
    EXPECT_EQ(f["billet_shape"], "65535");
    EXPECT_EQ(f["inductor_power"], "-2147483648");
    EXPECT_EQ(f["integration_s[36]"], "0.500000");
    EXPECT_EQ(f["frame_period_s"], std::to_string(static_cast<double>(1.0f / 50.0f)));
    EXPECT_EQ(f["palette"], "null");
    EXPECT_EQ(f["zero.level"], "0");

    const std::vector<unsigned char> before(p.GetHeaderAddress(), p.GetHeaderAddress() + PtrHeader::kSize);
    const struct {
        const char* name;
        int index;
        HeaderValue value;
        const char* why;
    } refused[] = {
        {"cameras", -1, Text("x"), "unknown header field"},
        {"point", -1, Number(3), "cannot be set by name"},
        {"rbf_law", -1, Number(1), "cannot be set by name"},
        {"camera", -1, Text(std::string(20, 'x')), "at most 19 characters, with no NUL"},
        {"camera", -1, Text(std::string("a\0b", 3)), "at most 19 characters, with no NUL"},
        {"camera", -1, Number(1), "a text expected"},
        {"emissivity", -1, Text("1"), "a number expected"},
        {"billet_shape", -1, Number(65536), "an integer from 0 to 65535 expected"},
        {"billet_shape", -1, Number(1.5), "an integer from 0 to 65535 expected"},
        {"emissivity", -1, Number(1e39), "a number from -3.40282e+38 to 3.40282e+38 expected"},
        {"frame_rate_hz", -1, Number(0), "a number from 1e-30 to 3.40282e+38 expected"},
        {"filters", 8, Text("x"), "a list of at most 8 items"},
        {"filters", -1, Text("x"), "a list of at most 8 items"},
        {"camera", 0, Text("x"), "a single value, not a list"},
    };
    for (const auto& r : refused) {
        EXPECT_FALSE(SetHeaderField(p, r.name, r.index, r.value, why)) << r.name;
        EXPECT_EQ(why, r.why) << r.name;
    }
    EXPECT_EQ(std::vector<unsigned char>(p.GetHeaderAddress(), p.GetHeaderAddress() + PtrHeader::kSize), before);
}

TEST(FilmReader, RefusesWhatCannotBeReadWithOneMessageNamingTheFile) {
    const std::string missing = TempName("missing"), empty = TempName("empty"), text = TempName("text"),
                      cut = TempName("cut");
    WriteAll(empty, {});
    WriteAll(text, std::vector<uint8_t>(5000, 'a'));
    {
        CPtr film(8, 4, 12, 0, 0, 0);
        film.SetFileName(cut);
        CFrame frame(8, 4, 12, 0, 0);
        ASSERT_TRUE(film.AddFrame(&frame) && film.AddFrame(&frame));
    }
    std::vector<uint8_t> bytes = ReadAll(cut);
    bytes.resize(bytes.size() - 1);
    WriteAll(cut, bytes);
    const std::pair<std::string, std::string> cases[] = {
        {missing, "not found"},
        {empty, "empty file"},
        {text, "not a film (signature \"RKK\" expected)"},
        {cut, "shorter than its 2 frames (" + std::to_string(bytes.size()) + " bytes, " +
                  std::to_string(bytes.size() + 1) + " expected); the film is truncated"},
    };
    for (const auto& [path, what] : cases) {
        MessageRecorder recorder;
        EXPECT_EQ(OpenFilmForReading(path), nullptr) << path;
        ASSERT_EQ(recorder.Count(), 1u) << path;
        EXPECT_EQ(recorder.Messages()[0].text, "file " + path + ": " + what);
        EXPECT_EQ(recorder.Messages()[0].caption, "thermokit");
    }
    for (const auto& p : {empty, text, cut}) std::remove(p.c_str());
}

TEST(FilmReader, ElapsedTimesCountFromTheFirstFrameAcrossMidnight) {
    const std::string path = TempName("times");
    {
        CPtr film(4, 2, 14, 0, 0, 0);
        film.SetFileName(path);
        CFrame frame(4, 2, 14, 0, 0);
        for (double t : {86399.5, 86399.75, 0.25, 0.125}) {
            frame.SetTime(t);
            ASSERT_TRUE(film.AddFrame(&frame));
        }
    }
    auto film = OpenFilmForReading(path);
    ASSERT_NE(film, nullptr);
    double seconds[4] = {};
    ASSERT_TRUE(ReadElapsedTimes(*film, seconds));
    // Past midnight the day is added; a small step back stays a step back.
    EXPECT_NEAR(seconds[0], 0.0, 2e-6);
    EXPECT_NEAR(seconds[1], 0.25, 2e-6);
    EXPECT_NEAR(seconds[2], 0.75, 2e-6);
    EXPECT_NEAR(seconds[3], 0.625, 2e-6);
    std::remove(path.c_str());
}
