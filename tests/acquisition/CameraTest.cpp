// Recording real GenICam cameras: Aravis' fake camera, in process (Fake_1)
// and as the GigE Vision camera process arv-fake-gv-camera-0.8 on the
// loopback, recorded by the tool and read back with the library; and the
// frame counting the lost-frame figures rest on.
#include <gtest/gtest.h>
#ifdef THERMOKIT_HAVE_ARAVIS
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "support/ToolRun.h"
#ifdef THERMOKIT_HAVE_ARAVIS
#include "support/ChildProcess.h"
#endif
#include "thermokit/acquisition/CFrameSource.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"

using namespace thermokit;
using thermokit::test::RunTool;
using thermokit::test::ToolErrors;

namespace {

const bool kPrivateStores = thermokit::test::UsePrivateStores();

// GigE Vision counters are 16 bits wide and skip 0; wider ones never wrap.
TEST(FrameSource, FramesMissingBetweenCounters) {
    EXPECT_EQ(CFrameSource::MissingBetween(7, 8), 0u);
    EXPECT_EQ(CFrameSource::MissingBetween(7, 10), 2u);
    EXPECT_EQ(CFrameSource::MissingBetween(65535, 1), 0u);
    EXPECT_EQ(CFrameSource::MissingBetween(65534, 2), 2u);      // 65535 and 1
    EXPECT_EQ(CFrameSource::MissingBetween(65536, 65537), 0u);  // a wide counter goes on
    EXPECT_EQ(CFrameSource::MissingBetween(70000, 3), 0u);      // and never wraps: a restart
    EXPECT_EQ(CFrameSource::MissingBetween(9, 9), 0u);
}

// A frame whose leader was lost arrives incomplete and numbered 0: it is
// one incomplete frame, and it fills a place of the gap that follows.
TEST(FrameSource, UnnumberedIncompleteFramesAreNotCountedTwice) {
    struct Counted : CFrameSource {
        int Start() override { return 1; }
        int Next(SOURCE_FRAME&, unsigned long) override { return 0; }
        void Stop() override {}
        using CFrameSource::CountFrame;
    } source;
    const std::pair<uint64_t, bool> received[] = {{703, true}, {0, false},   {705, true}, {0, false},
                                                  {0, false},  {709, false}, {710, true}};
    for (const auto& [id, complete] : received) source.CountFrame(id, complete);
    const SOURCE_STATISTICS s = source.GetStatistics();
    EXPECT_EQ(s.nDelivered, 3u);
    EXPECT_EQ(s.nIncomplete, 4u);
    EXPECT_EQ(s.nMissing, 1u);  // of 704 and 706 to 708, three were the unnumbered ones
    EXPECT_EQ(s.Lost(), 5u);
}

#ifdef THERMOKIT_HAVE_ARAVIS

// Aravis' fake camera's 16-bit image at gain 0 and a 10 ms exposure (its
// scale is then 1): pixel (x, y) of the window, in the frame it numbered id,
// is 256 (x + y + id) mod 65535.
unsigned short FakePixel(unsigned x, unsigned y, uint64_t id) { return static_cast<unsigned short>(256 * (x + y + id) % 65535); }

// Every frame of a film from the fake camera holds the pattern of the frame
// number kept in its image header; consecutive says no number was skipped.
void ExpectFakeFrames(const std::string& name, unsigned long count, unsigned short w, unsigned short h, bool consecutive) {
    CPtr film(name, 0, 0, 1);
    ASSERT_TRUE(film.IsValid()) << name;
    ASSERT_EQ(film.GetFrameNumber(), count);
    ASSERT_EQ(film.GetPoint(), w);
    ASSERT_EQ(film.GetLine(), h);
    EXPECT_EQ(film.GetBit(), 16);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(3476 + count * (1016 + 2ul * w * h)));
    uint64_t previous = 0;
    double previousTime = 0.0;
    for (unsigned long k = 0; k < count; ++k) {
        ASSERT_EQ(film.ReadFrame(k), 1);
        const uint64_t id = film.GetImageRealDriverTopFrame();
        if (k > 0 && consecutive) {
            EXPECT_EQ(id, previous == 65535 ? 1 : previous + 1) << "frame " << k;
        }
        const double time = film.GetFrame()->GetTime();  // a time of day: it may pass midnight once
        EXPECT_TRUE(k == 0 || time > previousTime || previousTime - time > 43200.0) << "frame " << k;
        int wrong = 0;
        for (unsigned short y = 0; y < h; ++y)
            for (unsigned short x = 0; x < w; ++x) wrong += film.GetFrame()->GetPixel(x, y) != FakePixel(x, y, id);
        EXPECT_EQ(wrong, 0) << "frame " << k << ", camera frame " << id;
        previous = id;
        previousTime = time;
    }
}

bool ToolBuilt() { return !std::string(THERMOKIT_TOOL_PATH).empty(); }

// The in-process fake camera: frames and header from the camera, and the
// settings it cannot take refused before any film is made.
TEST(CameraRecord, FakeCameraFramesHeaderAndRefusals) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    ::setenv("THERMOKIT_FAKE_CAMERA", "1", 1);
    const std::string name = thermokit::test::TempPath("fake.film");
    const std::string common = " -o " + name + " --count 12 --rate 100 --exposure 10000";
    thermokit::test::ToolRun r = RunTool("record --camera Fake_1" + common + " --roi 3,2,40,30 --bits 16", ToolErrors::kSeparate);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("frames lost: 0 (0 incomplete, 0 missing"), std::string::npos) << r.out;
    ExpectFakeFrames(name, 12, 40, 30, true);
    {
        CPtr film(name, 0, 0, 1);
        EXPECT_EQ(film.GetCamera(), "Fake");
        EXPECT_EQ(film.GetSerial(), "1");
        EXPECT_NEAR(film.GetFrameRate(), 100.0, 1e-3);
        EXPECT_FLOAT_EQ(film.GetIntegration(0), 0.01f);
        EXPECT_NE(film.GetComment().find("Aravis Fake, serial 1, firmware " THERMOKIT_ARAVIS_VERSION), std::string::npos)
            << film.GetComment();
        EXPECT_NE(film.GetComment().find("Mono16, window 3,2,40,30"), std::string::npos) << film.GetComment();
    }
    std::remove(name.c_str());

    struct Refusal {
        std::string args;
        int status;
        std::string text;
    };
    for (const Refusal& c : {Refusal{"--camera Fake_1 --bits 14", 2, "no Mono14 pixel format; it offers "},
                             Refusal{"--camera Fake_1 --roi 2000,0,100,100", 2, "outside its sensor (2048 x 2048)"},
                             Refusal{"--camera NoSuchCamera", 1, "camera NoSuchCamera: not found"}}) {
        r = RunTool("record " + c.args + common, ToolErrors::kSeparate);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_FALSE(File::Exists(name)) << c.args;
    }
    EXPECT_NE(RunTool("record --camera Fake_1 --bits 14" + common, ToolErrors::kSeparate).err.find("Mono16"), std::string::npos);
}

// One GigE Vision fake camera at a time can answer on 127.0.0.1:3956: the
// tests of every process on this machine take turns through a lock file.
class FakeGigECamera {
public:
    explicit FakeGigECamera(const std::string& serial) {
        m_lock = ::open("/tmp/thermokit-fake-gige.lock", O_CREAT | O_RDWR, 0666);
        for (int i = 0; i < 1200 && m_lock >= 0 && ::flock(m_lock, LOCK_EX | LOCK_NB) != 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const int s = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(3956);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_bFree = ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        ::close(s);
        if (m_bFree)
            m_pCamera = std::make_unique<thermokit::test::ChildProcess>(
                std::vector<std::string>{"arv-fake-gv-camera-0.8", "-i", "127.0.0.1", "-s", serial});
    }
    ~FakeGigECamera() {
        m_pCamera.reset();
        if (m_lock >= 0) ::close(m_lock);
    }
    bool Free() const { return m_bFree; }
    thermokit::test::ChildProcess& Process() { return *m_pCamera; }

private:
    int m_lock = -1;
    bool m_bFree = false;
    std::unique_ptr<thermokit::test::ChildProcess> m_pCamera;
};

// The camera process: listed, recorded frame by frame, and killed in the
// middle of a recording, which ends with a valid film and one message.
TEST(CameraRecord, GigEVisionCameraListedRecordedAndLostMidway) {
    if (!ToolBuilt()) GTEST_SKIP() << "the tool is not built";
    const std::string serial = "TK" + std::to_string(::getpid());
    FakeGigECamera camera(serial);
    if (!camera.Free()) GTEST_SKIP() << "another GigE Vision device answers on 127.0.0.1:3956";

    nlohmann::json listed;
    for (int attempt = 0; attempt < 5 && listed.is_null(); ++attempt) {
        const nlohmann::json all = nlohmann::json::parse(RunTool("cameras --json", ToolErrors::kDiscarded).out);
        for (const auto& c : all["cameras"])
            if (c["serial"] == serial) listed = c;
    }
    ASSERT_FALSE(listed.is_null()) << "the fake camera " << serial << " was not listed";
    EXPECT_EQ(listed["id"], "Aravis-Fake-" + serial);
    EXPECT_EQ(listed["interface"], "GigEVision");
    EXPECT_EQ(listed["address"], "127.0.0.1");

    const std::string dir = thermokit::test::TempPath("gige");
    std::filesystem::create_directories(dir);
    const std::string settings = " --rate 100 --exposure 10000 --roi 0,0,64,48 --bits 16";
    std::string out;
    ASSERT_EQ(RunTool("record --camera " + serial + " -o " + dir + "/a.film --count 30" + settings, out), 0) << out;
    ExpectFakeFrames(dir + "/a.film", 30, 64, 48, false);
    EXPECT_EQ(CPtr(dir + "/a.film", 0, 0, 1).GetSerial(), serial);

    // Killed once frames reach the disk (small banks show them soon).
    thermokit::test::ChildProcess tool({THERMOKIT_TOOL_PATH, "record", "--camera", serial, "-o", dir + "/b.film",
                                        "--duration", "60", "--banks", "2", "--bank-size", "65536", "--rate", "100",
                                        "--exposure", "10000", "--roi", "0,0,64,48"},
                                       dir + "/out.txt", dir + "/err.txt");
    bool flowing = false;
    for (int i = 0; i < 1000 && !flowing; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        for (const auto& e : std::filesystem::directory_iterator(dir))
            flowing |= e.path().filename().string().find(".b.film.part") == 0 && e.file_size() > 3 * 65536;
    }
    ASSERT_TRUE(flowing) << "no frame reached the disk";
    camera.Process().Signal(SIGKILL);
    ASSERT_EQ(tool.Wait(60), 1);
    const std::vector<uint8_t> errBytes = thermokit::test::ReadAll(dir + "/err.txt");
    const std::string err(errBytes.begin(), errBytes.end());
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    const unsigned long frames = CPtr(dir + "/b.film", 0, 0, 1).GetFrameNumber();
    EXPECT_GT(frames, 20u);
    EXPECT_NE(err.find("camera Aravis-Fake-" + serial + ": "), std::string::npos) << err;
    EXPECT_NE(err.find("keeps the " + std::to_string(frames) + " frames received"), std::string::npos) << err;
    ExpectFakeFrames(dir + "/b.film", frames, 64, 48, false);
    std::filesystem::remove_all(dir);
}

#endif  // THERMOKIT_HAVE_ARAVIS

}  // namespace
