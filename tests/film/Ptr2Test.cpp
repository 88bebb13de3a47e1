// Films recorded through the bank ring (CPtr2) against films written image by
// image (CPtr): the same bytes, the same frames and times, the count right
// after closing, and what is left when the disk fails or the recording stops.
#include <gtest/gtest.h>
#include <unistd.h>
#if !defined(_WIN32)
#include "support/ChildProcess.h"
#endif

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FilmTestSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtr2.h"
#include "thermokit/film/CStreamFile.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using namespace filmtest;

namespace {

constexpr size_t kHeader = 3476;
constexpr size_t kImageHeader = 1016;

// Frame k of a test sequence: pseudo-random levels over all 16 bits (the
// film's depth masks them only on reading), and a time with microseconds.
void MakeFrame(CFrame& f, unsigned k) {
    uint32_t seed = 2654435761u * (k + 1);
    unsigned short* p = f.GetBuffer();
    for (long i = 0; i < f.GetSize(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        p[i] = static_cast<unsigned short>(seed >> 16);
    }
    f.SetTime(3600.0 * 13 + 61.0 * k + 0.001234 * k + 0.5e-6 * (k % 3));
}

// A disk that fails: every write from number failFrom on, or only write number failOnly.
class FailingDisk : public CStreamFile {
public:
    std::atomic<int> writes{0};
    std::atomic<bool> open{true};  // while false, the disk holds every write back
    int failFrom = -1;
    int failOnly = -1;
    ~FailingDisk() override { CloseFile(); }

protected:
    long DiskWrite(const void* data, unsigned long size) override {
        while (!open) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const int n = writes++;
        if ((failFrom >= 0 && n >= failFrom) || n == failOnly) return -1;
        return CStreamFile::DiskWrite(data, size);
    }
};

class FailingFilm : public CPtr2 {
public:
    using CPtr2::CPtr2;
    int failFrom = -1;
    FailingDisk* disk = nullptr;

protected:
    std::unique_ptr<CStreamFile> NewStream() override {
        auto s = std::make_unique<FailingDisk>();
        s->failFrom = failFrom;
        disk = s.get();
        return s;
    }
};

// Compares two films byte for byte, leaving out the recording date and time
// (35..43), which each film takes from the clock when it is made.
void ExpectSameFilm(const std::string& a, const std::string& b) {
    auto x = ReadAll(a), y = ReadAll(b);
    ASSERT_EQ(x.size(), y.size());
    ASSERT_GE(x.size(), kHeader);
    std::memset(x.data() + 35, 0, 9);
    std::memset(y.data() + 35, 0, 9);
    for (size_t i = 0; i < x.size(); ++i)
        if (x[i] != y[i]) {
            ADD_FAILURE() << "films differ first at byte " << i;
            return;
        }
}

}  // namespace

// Through rings that wrap many times (banks of 4 KiB: direct writes), banks of
// an odd size (plain writes) and one bank larger than the whole film (the
// header and every image share the bank rewritten at the close), the file is
// the file CPtr::AddFrame makes, and reads back frame for frame with its times.
TEST(Ptr2, RecordedFilmMatchesFrameByFrameFilm) {
    const unsigned short point = 37, line = 23, bit = 12;
    const unsigned frames = 11;
    const size_t record = kImageHeader + size_t{point} * line * 2;
    const std::string reference = TempName("reference");
    {
        CPtr film(point, line, bit, 0, 1, 0);
        film.SetFileName(reference);
        ASSERT_EQ(film.WriteHeader(), 1);
        for (unsigned k = 0; k < frames; ++k) {
            MakeFrame(*film.GetFrame(), k);
            ASSERT_EQ(film.AddFrame(static_cast<CFrame*>(nullptr)), 1);
        }
    }
    struct Ring {
        unsigned long bankSize;
        int banks;
    };
    for (const Ring ring : {Ring{4096, 3}, Ring{1000, 2}, Ring{1u << 20, 1}, Ring{4096, 1}}) {
        SCOPED_TRACE(std::to_string(ring.banks) + " banks of " + std::to_string(ring.bankSize));
        const std::string name = TempName("recorded");
        CPtr2 film(point, line, bit, 0, 1, 0);
        ASSERT_EQ(film.Create(name.c_str(), ring.bankSize, ring.banks), 1);
        EXPECT_EQ(film.IsRecording(), 1);
        EXPECT_EQ(film.Create(name.c_str(), ring.bankSize, ring.banks), 0);  // already recording
        CFrame frame(point, line, bit, 0, 1);
        for (unsigned k = 0; k < frames; ++k) {
            MakeFrame(frame, k);
            ASSERT_EQ(film.AddFrame(&frame), 1);
            EXPECT_EQ(film.GetFrameNumber(), k + 1);
        }
        EXPECT_EQ(film.Close(), 1);
        EXPECT_EQ(film.IsRecording(), 0);
        EXPECT_EQ(film.Close(), 0);  // nothing left to close

        const auto bytes = ReadAll(name);
        EXPECT_EQ(bytes.size(), kHeader + frames * record);  // exact length
        EXPECT_EQ(At<uint32_t>(bytes, 27), frames);          // the count, rewritten at the close
        EXPECT_EQ(std::memcmp(bytes.data(), film.GetHeaderAddress(), kHeader), 0);
        ExpectSameFilm(name, reference);

        // Read back (the same bytes as the reference read the same): levels masked, times to the microsecond.
        CPtr back(name, 0, 0, 1);
        ASSERT_TRUE(back.IsValid());
        ASSERT_EQ(back.GetFrameNumber(), frames);
        for (unsigned k = 0; k < frames; ++k) {
            ASSERT_EQ(back.ReadFrame(k), 1);
            MakeFrame(frame, k);
            EXPECT_NEAR(back.GetFrame()->GetTime(), frame.GetTime(), 2e-6);  // kept to the microsecond
            EXPECT_EQ(back.GetFrame()->GetPixel(3, 2), frame.GetPixel(3, 2) & 4095);
        }
        std::remove(name.c_str());
    }
    // An empty recording is a valid film of no image.
    const std::string empty = TempName("empty");
    {
        CPtr2 film(16, 8, 14, 0, 1, 0);
        ASSERT_EQ(film.Create(empty.c_str(), 4096, 2), 1);
    }  // the destructor closes
    const auto bytes = ReadAll(empty);
    EXPECT_EQ(bytes.size(), kHeader);
    EXPECT_EQ(At<uint32_t>(bytes, 27), 0u);
    EXPECT_EQ(TextAt(bytes, 0, 4), "RKK");
    std::remove(empty.c_str());
    std::remove(reference.c_str());
}

// Rewriting an earlier image and reading while recording: the stream moves
// back and forth and nothing already written is lost or cut.
TEST(Ptr2, RewriteAndReadDuringRecording) {
    const unsigned short point = 40, line = 30;
    const std::string name = TempName("rewrite");
    CPtr2 film(point, line, 16, 0, 1, 0);
    ASSERT_EQ(film.Create(name.c_str(), 8192, 2), 1);
    CFrame frame(point, line, 16, 0, 1), seen(point, line, 16, 0, 1);
    for (unsigned k = 0; k < 6; ++k) {
        MakeFrame(frame, k);
        ASSERT_EQ(film.AddFrame(&frame), 1);
    }
    // Image 2 again, with the content of image 9; then more images appended.
    MakeFrame(frame, 9);
    ASSERT_EQ(film.WriteFrame(2, &frame), 1);
    ASSERT_EQ(film.Read(2, &seen), 1);
    EXPECT_EQ(std::memcmp(seen.GetBuffer(), frame.GetBuffer(), size_t{point} * line * 2), 0);
    ASSERT_EQ(film.Read(5, &seen), 1);  // the last image, still in a bank when asked for
    MakeFrame(frame, 5);
    EXPECT_EQ(std::memcmp(seen.GetBuffer(), frame.GetBuffer(), size_t{point} * line * 2), 0);
    for (unsigned k = 6; k < 8; ++k) {
        MakeFrame(frame, k);
        ASSERT_EQ(film.AddFrame(&frame), 1);
    }
    ASSERT_EQ(film.Close(), 1);

    CPtr back(name, 0, 0, 1);
    ASSERT_EQ(back.GetFrameNumber(), 8u);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(back.OffsetImage(8)));
    for (unsigned k = 0; k < 8; ++k) {
        ASSERT_EQ(back.ReadFrame(k), 1);
        MakeFrame(frame, k == 2 ? 9 : k);
        EXPECT_EQ(std::memcmp(back.GetFrame()->GetBuffer(), frame.GetBuffer(), size_t{point} * line * 2), 0)
            << "frame " << k;
        EXPECT_NEAR(back.GetFrame()->GetTime(), frame.GetTime(), 2e-6);  // kept to the microsecond
    }
    // After the close the film is a plain film again: AddFrame writes directly.
    MakeFrame(frame, 8);
    ASSERT_EQ(film.AddFrame(&frame), 1);
    CPtr again(name, 0, 0, 1);
    EXPECT_EQ(again.GetFrameNumber(), 9u);
    std::remove(name.c_str());
}

// A failed bank write leaves a hole of one bank; the banks behind it keep
// their places, and the stream tells where the failure began.
TEST(Ptr2, FailedBankKeepsTheFollowingBanksInPlace) {
    const std::string name = TempName("hole");
    std::vector<unsigned char> data(4 * 4096);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + i / 4096);
    {
        FailingDisk s;
        s.failOnly = 2;
        ASSERT_EQ(s.SetBankNumber(8), 1);
        ASSERT_EQ(s.OpenFile(name, 4096), 1);
        EXPECT_EQ(s.GetErrorPosition(), -1);
        // All four banks are handed over before the disk takes the first one.
        s.open = false;
        unsigned long written = 0;
        EXPECT_EQ(s.Write(data.data(), static_cast<unsigned long>(data.size()), &written), 1);
        EXPECT_EQ(written, data.size());
        s.open = true;
        EXPECT_EQ(s.Flush(), 0);
        EXPECT_EQ(s.GetErrorPosition(), 2 * 4096);
        EXPECT_EQ(s.CloseFile(), 1);
        // A new file starts without a failure.
        ASSERT_EQ(s.OpenFile(name + ".2", 4096), 1);
        EXPECT_EQ(s.GetErrorPosition(), -1);
    }
    const auto file = ReadAll(name);
    ASSERT_EQ(file.size(), data.size());
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 2 * 4096, file.begin()));
    EXPECT_TRUE(std::equal(data.begin() + 3 * 4096, data.end(), file.begin() + 3 * 4096));
    std::remove(name.c_str());
    std::remove((name + ".2").c_str());
}

// When the disk fails during a recording, the film keeps every image wholly
// written before the failure: count, length and content, readable by CPtr.
TEST(Ptr2, FailingDiskLeavesFilmUpToLastCompleteImage) {
    const unsigned short point = 32, line = 32;
    const size_t record = kImageHeader + size_t{point} * line * 2;  // 1,016 + 2,048 = 3,064 bytes
    const std::string name = TempName("failing");
    MessageRecorder messages;
    FailingFilm film(point, line, 14, 0, 1, 0);
    // Write j is bank j. Write 5 fails: bank 5, at 20,480 bytes, in image 5
    // (which starts at 18,796).
    film.failFrom = 5;
    ASSERT_EQ(film.Create(name.c_str(), 4096, 2), 1);
    CFrame frame(point, line, 14, 0, 1);
    unsigned accepted = 0;
    for (unsigned k = 0; k < 40; ++k) {
        MakeFrame(frame, k);
        if (!film.AddFrame(&frame)) break;
        ++accepted;
    }
    EXPECT_LT(accepted, 40u);  // the failure reached the caller
    EXPECT_GE(accepted, 5u);
    ASSERT_NE(film.disk, nullptr);
    EXPECT_EQ(film.disk->GetErrorPosition(), 5 * 4096);
    EXPECT_EQ(film.Close(), 0);
    EXPECT_EQ(film.GetFrameNumber(), 5u);
    ASSERT_GE(messages.Count(), 1u);
    EXPECT_EQ(messages.Messages().back().text, "Cannot save frame #5 in file " + name + ".");

    const auto bytes = ReadAll(name);
    EXPECT_EQ(bytes.size(), kHeader + 5 * record);
    EXPECT_EQ(At<uint32_t>(bytes, 27), 5u);
    CPtr back(name, 0, 0, 1);
    ASSERT_TRUE(back.IsValid());
    ASSERT_EQ(back.GetFrameNumber(), 5u);
    for (unsigned k = 0; k < 5; ++k) {
        ASSERT_EQ(back.ReadFrame(k), 1);
        MakeFrame(frame, k);
        frame.Mask();
        EXPECT_EQ(std::memcmp(back.GetFrame()->GetBuffer(), frame.GetBuffer(), size_t{point} * line * 2), 0);
    }
    std::remove(name.c_str());

    // A disk that refuses every bank: the film keeps its header, written
    // directly at the start and again at the close, and no image.
    FailingFilm dead(point, line, 14, 0, 1, 0);
    dead.failFrom = 0;
    ASSERT_EQ(dead.Create(name.c_str(), 4096, 2), 1);
    for (unsigned k = 0; k < 10 && dead.AddFrame(&frame); ++k) {
    }
    EXPECT_EQ(dead.Close(), 0);
    EXPECT_EQ(dead.GetFrameNumber(), 0u);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(kHeader));
    EXPECT_TRUE(CPtr(name, 0, 0, 1).IsValid());
    std::remove(name.c_str());
}

#if !defined(_WIN32)  // the recording process is a fork() of the test
// A recording that never closes (the process dies) leaves a header that counts
// no image; Recover counts the complete images and cuts a torn last one.
TEST(Ptr2, RecoverAfterInterruptedRecording) {
    const unsigned short point = 24, line = 10;
    const size_t record = kImageHeader + size_t{point} * line * 2;
    const std::string name = TempName("killed");
    ASSERT_EQ(thermokit::test::Join(thermokit::test::Spawn([&] {
        CPtr2 film(point, line, 16, 0, 1, 0);
        if (!film.Create(name.c_str(), 4096, 4)) return 3;
        CFrame frame(point, line, 16, 0, 1);
        for (unsigned k = 0; k < 7; ++k) {
            MakeFrame(frame, k);
            if (!film.AddFrame(&frame)) return 4;
        }
        // Half of an eighth image reaches the disk, then the process is gone.
        std::vector<unsigned char> half(record / 2, 0xAB);
        film.GetStream()->Write(half.data(), static_cast<unsigned long>(half.size()), nullptr);
        if (!film.GetStream()->Flush()) return 5;
        ::_exit(0);  // the process is gone: the film is never closed
    })), 0);

    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(kHeader + 7 * record + record / 2));
    {
        CPtr before(name, 0, 0, 1);
        ASSERT_TRUE(before.IsValid());
        EXPECT_EQ(before.GetFrameNumber(), 0u);
    }
    EXPECT_EQ(CPtr2::Recover(name.c_str()), 7);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(kHeader + 7 * record));
    CPtr back(name, 0, 0, 1);
    ASSERT_EQ(back.GetFrameNumber(), 7u);
    CFrame frame(point, line, 16, 0, 1);
    for (unsigned k = 0; k < 7; ++k) {
        ASSERT_EQ(back.ReadFrame(k), 1);
        MakeFrame(frame, k);
        EXPECT_EQ(std::memcmp(back.GetFrame()->GetBuffer(), frame.GetBuffer(), size_t{point} * line * 2), 0);
        EXPECT_NEAR(back.GetFrame()->GetTime(), frame.GetTime(), 2e-6);  // kept to the microsecond
    }
    EXPECT_EQ(CPtr2::Recover(name.c_str()), 7);  // a sound film stays as it is
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(kHeader + 7 * record));

    // Not a film, or no file: refused, and the file is left alone.
    WriteAll(name, std::vector<unsigned char>(5000, 7));
    EXPECT_EQ(CPtr2::Recover(name.c_str()), -1);
    EXPECT_EQ(File::GetFileLength(name), 5000);
    std::remove(name.c_str());
    EXPECT_EQ(CPtr2::Recover(name.c_str()), -1);
    EXPECT_EQ(CPtr2::Recover(nullptr), -1);
}
#endif
