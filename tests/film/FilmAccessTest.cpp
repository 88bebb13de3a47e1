// Film frame access: positions of images, navigation, masking, time stamps,
// offsets beyond 4 GiB, hostile files, sharing, one-image films.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#if !defined(_WIN32)
#include <sys/resource.h>

#include "support/ChildProcess.h"
#endif

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FilmTestSupport.h"
#include "thermokit/film/CPtr.h"
#include "thermokit/film/CPtrFloat.h"
#include "thermokit/film/CPtrOver.h"
#include "thermokit/image/CFrame.h"
#include "thermokit/platform/CRgn.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using namespace filmtest;

namespace {

// A film of count images; pixel i of image k holds (k x 1000 + i) & mask.
std::string MakeFilm(unsigned short point, unsigned short line, unsigned short bit, int count,
                     const std::string& tag = "film") {
    const std::string name = TempName(tag);
    CPtr film(point, line, bit, 0, 1, 0);
    film.SetFileName(name);
    CFrame* f = film.GetFrame();
    for (int k = 0; k < count; ++k) {
        for (long i = 0; i < f->GetSize(); ++i)
            f->GetBuffer()[i] = static_cast<unsigned short>((k * 1000 + i) & film.GetMaxLevel());
        f->SetTime(100.0 + k);
        EXPECT_EQ(film.AddFrame(), 1);
    }
    return name;
}

std::string ReadMessage(long n, const std::string& name) {
    return "Cannot read frame #" + std::to_string(n) + " in file " + name + ".";
}

}  // namespace

TEST(FilmAccess, AddFrameWritesImagesAtTheirOffsetsAndCountsThem) {
    const std::string name = TempName("add");
    CPtr film(320, 256, 16, 0, 1, 0);
    film.SetFileName(name);
    EXPECT_EQ(film.GetImageSize(), 1016u + 163840u);
    EXPECT_EQ(film.OffsetImage(0), 3476u);
    EXPECT_EQ(film.OffsetImage(2), 3476u + 2u * 164856u);
    EXPECT_EQ(film.OffsetTrame(1), 3476u + 164856u + 1016u);

    CFrame* f = film.GetFrame();
    for (int k = 0; k < 2; ++k) {
        for (long i = 0; i < f->GetSize(); ++i) f->GetBuffer()[i] = static_cast<unsigned short>(k * 7 + i);
        f->SetTime(3725.5 + k);
        ASSERT_EQ(film.AddFrame(), 1);
        const auto bytes = ReadAll(name);
        EXPECT_EQ(At<uint32_t>(bytes, 27), static_cast<uint32_t>(k + 1));
        EXPECT_EQ(bytes.size(), 3476u + (k + 1) * 164856u);
    }
    EXPECT_EQ(film.GetFrameNumber(), 2u);
    EXPECT_EQ(film.GetCurrentFrame(), 0u);
    const auto bytes = ReadAll(name);
    // Image 0 at 3476, image 1 at 3476 + 164856; pixels 1016 further on. Image time: minute 2, hour 1,
    // hundredths 50, second 5 (6 in image 1).
    ExpectFields(bytes, {{3476 + 80, u8{2}}, {3476 + 81, u8{1}}, {3476 + 82, u8{50}}, {3476 + 83, u8{5}},
                         {3476 + 164856 + 83, u8{6}}, {3476 + 1016 + 2 * 5, u16{5}}, {3476 + 164856 + 1016 + 2 * 5, u16{12}}});

    CPtr back(name, 1, 1, 1);
    ASSERT_EQ(back.IsValid(), 1);
    EXPECT_EQ(back.GetFrame()->GetPixel(5, 0), 0);  // opening reads no image
    ASSERT_EQ(back.ReadFrame(0), 1);
    EXPECT_EQ(back.GetFrame()->GetPixel(5, 0), 5);
    ASSERT_EQ(back.ReadFrame(1), 1);
    EXPECT_EQ(back.GetFrame()->GetPixel(5, 0), 12);
    EXPECT_DOUBLE_EQ(back.GetFrame()->GetTime(), 3726.5);
    File::Remove(name);
}

TEST(FilmAccess, NavigationReturnRules) {
    const std::string name = MakeFilm(16, 8, 16, 5, "nav");
    CPtr film(name, 0, 0, 1);
    ASSERT_EQ(film.IsValid(), 1);
    ASSERT_EQ(film.GetFrameNumber(), 5u);
    CFrame* f = film.GetFrame();
    ASSERT_EQ(film.ReadFirstFrame(), 1);
    EXPECT_EQ(f->GetBuffer()[0], 0);
    for (int k = 1; k < 5; ++k) {
        ASSERT_EQ(film.ReadNextFrame(), 1);
        EXPECT_EQ(film.GetCurrentFrame(), static_cast<unsigned long>(k));
        EXPECT_EQ(f->GetBuffer()[3], k * 1000 + 3);
        EXPECT_DOUBLE_EQ(f->GetTime(), 100.0 + k);
    }
    // At the last image Next returns 0 and leaves the index.
    EXPECT_EQ(film.ReadNextFrame(), 0);
    EXPECT_EQ(film.GetCurrentFrame(), 4u);
    ASSERT_EQ(film.ReadPreviousFrame(), 1);
    EXPECT_EQ(film.GetCurrentFrame(), 3u);
    ASSERT_EQ(film.ReadFrame(0), 1);
    EXPECT_EQ(film.ReadPreviousFrame(), 0);
    EXPECT_EQ(film.GetCurrentFrame(), 0u);
    ASSERT_EQ(film.ReadLastFrame(), 1);
    EXPECT_EQ(film.GetCurrentFrame(), 4u);
    EXPECT_EQ(f->GetBuffer()[0], 4000);
    film.SetCurrentFrame(2);
    ASSERT_EQ(film.ReadCurrentFrame(), 1);
    EXPECT_EQ(f->GetBuffer()[0], 2000);

    // Into another frame of the right size; a frame of another size is refused.
    CFrame other(16, 8, 16, 0, 0);
    ASSERT_EQ(film.ReadFrame(1, &other), 1);
    EXPECT_EQ(other.GetBuffer()[1], 1001);
    CFrame wrong(8, 8, 16, 0, 0);
    MessageRecorder rec;
    EXPECT_EQ(film.ReadFrame(1, &wrong), 0);
    EXPECT_EQ(rec.Count(), 1u);

    // Doubles from a 16-bit film.
    std::vector<double> d(128);
    ASSERT_EQ(film.ReadFrame(3, d.data(), 128), 1);
    EXPECT_EQ(d[7], 3007.0);
    EXPECT_EQ(film.ReadFrame(3, d.data(), 127), 0);

    // Reading past the images the file holds: 0 and the read message.
    rec.Clear();
    EXPECT_EQ(film.ReadFrame(9), 0);
    ASSERT_EQ(rec.Count(), 1u);
    EXPECT_EQ(rec.Messages()[0].text, ReadMessage(9, name));
    EXPECT_EQ(rec.Messages()[0].icon, static_cast<unsigned>(MB_ICONERROR));
    File::Remove(name);

    // An empty film: no last image, no next image.
    CPtr empty(4, 4, 16, 0, 1, 0);
    EXPECT_EQ(empty.ReadLastFrame(), 0);
    EXPECT_EQ(empty.ReadNextFrame(), 0);
}

TEST(FilmAccess, ReadMasksToTheFilmDepth) {
    const std::string name = MakeFilm(8, 4, 12, 1, "mask");
    auto bytes = ReadAll(name);
    Put<uint16_t>(bytes, 3476 + 1016 + 0, 0xFFFF);
    Put<uint16_t>(bytes, 3476 + 1016 + 2, 0xF123);
    WriteAll(name, bytes);
    CPtr film(name, 0, 0, 1);
    ASSERT_EQ(film.ReadFrame(0), 1);
    EXPECT_EQ(film.GetFrame()->GetBuffer()[0], 4095);
    EXPECT_EQ(film.GetFrame()->GetBuffer()[1], 0x123);
    // A reader never changes the file.
    EXPECT_EQ(ReadAll(name), bytes);
    File::Remove(name);

    // One stray bit anywhere (vector body or remainder) is found and cleared.
    const std::string big = MakeFilm(333, 7, 14, 1, "maskbig");
    const auto clean = ReadAll(big);
    for (const size_t at : {size_t(0), size_t(1000), size_t(333 * 7 - 1)}) {
        auto raw = clean;
        Put<uint16_t>(raw, 3476 + 1016 + 2 * at, 0x8000 | 5);
        WriteAll(big, raw);
        CPtr film14(big, 0, 0, 1);
        ASSERT_EQ(film14.ReadFrame(0), 1);
        EXPECT_EQ(film14.GetFrame()->GetBuffer()[at], 5) << at;
        EXPECT_EQ(film14.GetFrame()->GetBuffer()[at == 0 ? 1 : 0], at == 0 ? 1 : 0);
    }
    File::Remove(big);
}

TEST(FilmAccess, TimeStampsAndIrigB) {
    const std::string name = TempName("time");
    CPtr film(8, 8, 14, 0, 1, 0);
    film.SetFileName(name);
    film.GetFrame()->SetTime(45296.25);
    // IRIG-B stamp of 10:20:30 and 250000 us on the image.
    const unsigned char irig[3] = {10, 20, 30};
    film.SetImageIRIGB(1, 100, irig, 3, 250000, 26);
    ASSERT_EQ(film.AddFrame(), 1);
    film.SetImageIRIGB(0, 100, irig, 3, 250000, 26);  // inactive on image 1
    film.GetFrame()->SetTime(7.5);
    ASSERT_EQ(film.AddFrame(), 1);

    CPtr back(name, 0, 0, 1);
    double t = 0.0;
    // IRIG-B active and played: its time; otherwise the image time fields.
    ASSERT_EQ(back.ReadTime(0, t), 1);
    EXPECT_DOUBLE_EQ(t, 10 * 3600 + 20 * 60 + 30 + 0.25);
    ASSERT_EQ(back.ReadTime(1, t), 1);
    EXPECT_DOUBLE_EQ(t, 7.5);
    back.SetIRIGBPlay(0);
    ASSERT_EQ(back.ReadTime(0, t), 1);
    EXPECT_DOUBLE_EQ(t, 45296.25);
    ASSERT_EQ(back.ReadFrame(0), 1);
    EXPECT_DOUBLE_EQ(back.GetFrame()->GetTime(), 45296.25);
    EXPECT_DOUBLE_EQ(back.GetFrameTime(), 45296.25);
    // ReadTime reads only the header and leaves the image header block alone.
    ASSERT_EQ(back.ReadTime(1, t), 1);
    EXPECT_DOUBLE_EQ(back.GetFrameTime(), 45296.25);

    MessageRecorder rec;
    EXPECT_EQ(back.ReadTime(5, t), 0);
    ASSERT_EQ(rec.Count(), 1u);
    EXPECT_EQ(rec.Messages()[0].text, ReadMessage(5, name));

    // Demodulation frequency of the image: kept exactly.
    back.SetImageDemodeFrequency(12.345f);
    EXPECT_EQ(back.GetImageDemodeFrequency(), 12.345f);
    File::Remove(name);
}

TEST(FilmAccess, OffsetsBeyondFourGiB) {
    // 640 x 512: a record of 656376 bytes; image 7000 starts past 4 GiB.
    const std::string name = TempName("big");
    CPtr film(640, 512, 14, 0, 1, 0);
    film.SetFileName(name);
    const uint64_t expected = 3476ull + 7000ull * 656376ull;
    ASSERT_GT(expected, 0x100000000ull);
    EXPECT_EQ(film.OffsetImage(7000), expected);
    EXPECT_EQ(film.OffsetTrame(7000), expected + 1016);
    // The record is summed in 32 bits and multiplied in 64: no wrap at 6544 x 656376.
    EXPECT_EQ(film.OffsetImage(6544), 3476ull + 6544ull * 656376ull);

    // A sparse file: write image 7000 only.
    CFrame* f = film.GetFrame();
    for (long i = 0; i < f->GetSize(); ++i) f->GetBuffer()[i] = static_cast<unsigned short>(i % 16384);
    f->SetTime(1.25);
    ASSERT_EQ(film.WriteFrame(7000), 1);
    film.SetFrameNumber(7001);
    ASSERT_EQ(film.WriteHeader(), 1);
    EXPECT_EQ(File::GetFileLength(name), static_cast<int64_t>(expected + 656376));

    CPtr back(name, 0, 0, 1);
    ASSERT_EQ(back.IsValid(), 1);
    ASSERT_EQ(back.ReadLastFrame(), 1);
    EXPECT_EQ(back.GetCurrentFrame(), 7000u);
    EXPECT_EQ(back.GetFrame()->GetBuffer()[16385], 1);
    EXPECT_DOUBLE_EQ(back.GetFrame()->GetTime(), 1.25);
    // Image 6999 is a hole of zeros, not image 7000 read at a wrapped offset.
    ASSERT_EQ(back.ReadPreviousFrame(), 1);
    EXPECT_EQ(back.GetFrame()->GetBuffer()[16385], 0);
    File::Remove(name);

    CPtrFloat doubles(640, 512, 16, 0, 1, 0);
    EXPECT_EQ(doubles.OffsetImage(1000), 3476ull + 1000ull * (1016ull + 8ull * 327680ull));
}

TEST(FilmAccess, HostileFilmsAreRefusedAndLeftAlone) {
    MessageRecorder rec;
    const std::string good = MakeFilm(8, 4, 14, 2, "good");
    const auto original = ReadAll(good);

    // what: the case; error: how the film's last error text begins.
    struct Case {
        const char* what;
        const char* error;
        void (*damage)(std::vector<unsigned char>&);
    };
    const Case cases[] = {
        {"short file", "not a film (shorter than the 3476-byte header)", [](std::vector<unsigned char>& b) { b.resize(3000); }},
        {"signature", "not a film (signature", [](std::vector<unsigned char>& b) { b[1] = 'X'; }},
        {"pixel count not Point x Line", "damaged: its pixel count 31 disagrees with its 8 x 4 pixels",
         [](std::vector<unsigned char>& b) { Put<uint32_t>(b, 23, 31); }},
        {"pixel count 0", "damaged: its pixel count 0", [](std::vector<unsigned char>& b) {
             Put<uint32_t>(b, 23, 0);
             Put<uint16_t>(b, 377, 0);
         }},
        {"record words disagree", "damaged: its record size",
         [](std::vector<unsigned char>& b) { Put<uint32_t>(b, 19, 508 + 33); }},
        {"image header too small", "damaged: an image header size of 100", [](std::vector<unsigned char>& b) {
             Put<uint32_t>(b, 15, 100);
             Put<uint32_t>(b, 19, 50 + 32);
         }},
        {"header size too small", "damaged: a header size of 100", [](std::vector<unsigned char>& b) { Put<uint32_t>(b, 11, 100); }},
        {"header size absurd", "damaged: a header size", [](std::vector<unsigned char>& b) { Put<uint32_t>(b, 11, 0xFFFFFFF0u); }},
        {"bit depth 0", "damaged: a depth of 0 bits", [](std::vector<unsigned char>& b) { Put<uint16_t>(b, 381, 0); }},
        {"bit depth 40", "damaged: a depth of 40 bits", [](std::vector<unsigned char>& b) { Put<uint16_t>(b, 381, 40); }},
        {"more pixels than the file holds", "shorter than its header says", [](std::vector<unsigned char>& b) {
             Put<uint16_t>(b, 377, 4000);
             Put<uint16_t>(b, 379, 4000);
             Put<uint32_t>(b, 23, 16000000);
             Put<uint32_t>(b, 19, 508 + 16000000);
         }},
        {"record beyond 32 bits", "damaged: an image record of 4 GiB or more", [](std::vector<unsigned char>& b) {
             Put<uint16_t>(b, 377, 65535);
             Put<uint16_t>(b, 379, 65535);
             Put<uint32_t>(b, 23, 65535u * 65535u);
             Put<uint32_t>(b, 19, 508 + 65535u * 65535u);
         }},
        {"an empty film announcing a giant image", "damaged: an image record", [](std::vector<unsigned char>& b) {
             b.resize(3476);
             Put<uint32_t>(b, 27, 0);
             Put<uint16_t>(b, 377, 60000);
             Put<uint16_t>(b, 379, 60000);
             Put<uint32_t>(b, 23, 3600000000u);
             Put<uint32_t>(b, 19, 508 + 3600000000u);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string name = TempName("hostile");
        auto bytes = original;
        c.damage(bytes);
        WriteAll(name, bytes);
        rec.Clear();
        CPtr film(name, 1, 1, 1);
        EXPECT_EQ(film.IsValid(), 0);
        EXPECT_EQ(film.GetLastErrorText().rfind(c.error, 0), 0u) << film.GetLastErrorText();
        EXPECT_EQ(film.GetLastErrorKind(), ErrorKind::Format);
        EXPECT_EQ(rec.Count(), 0u);  // opening is silent
        EXPECT_EQ(film.ReadFrame(0), 0);
        ASSERT_EQ(rec.Count(), 1u);
        EXPECT_EQ(rec.Messages().back().text, ReadMessage(0, name));
        EXPECT_EQ(rec.Messages().back().icon, static_cast<unsigned>(MB_ICONERROR));
        EXPECT_EQ(film.ReadNextFrame(), 0);
        CPtrFloat asDoubles(name, 1, 0, 1);
        EXPECT_EQ(asDoubles.IsValid(), 0);
        EXPECT_EQ(ReadAll(name), bytes);  // never changed by a reader
        File::Remove(name);
    }

    // A film claiming more images than it holds: the missing ones fail to read.
    auto bytes = original;
    Put<uint32_t>(bytes, 27, 5);
    const std::string name = TempName("claims");
    WriteAll(name, bytes);
    CPtr film(name, 0, 0, 1);
    ASSERT_EQ(film.IsValid(), 1);
    EXPECT_EQ(film.ReadFrame(1), 1);
    rec.Clear();
    EXPECT_EQ(film.ReadFrame(2), 0);
    EXPECT_EQ(rec.Count(), 1u);
    EXPECT_EQ(film.GetLastErrorText(), "frame 2 cannot be read (the file ends before it)");
    EXPECT_EQ(ReadAll(name), bytes);
    // A 16-bit film opened as a film of doubles; a header of the other kind refused.
    CPtrFloat wrongKind(name, 0, 0, 1);
    EXPECT_EQ(wrongKind.IsValid(), 0);
    EXPECT_EQ(wrongKind.GetLastErrorText(), "a film of 16-bit levels, not of doubles");
    CPtrFloat doubles(4, 4, 16, 0, 1, 0);
    doubles.SetFileName(name);
    EXPECT_EQ(doubles.ReadHeader(), 0);
    EXPECT_EQ(doubles.GetPoint(), 4);
    EXPECT_EQ(film.ReadHeader(), 1);
    // A missing file.
    CPtr missing(name + ".none", 0, 0, 1);
    EXPECT_EQ(missing.IsValid(), 0);
    EXPECT_EQ(missing.GetLastErrorKind(), ErrorKind::System);
    EXPECT_EQ(missing.GetLastSystemError(), ENOENT);
    EXPECT_EQ(missing.GetLastErrorText(), std::string("cannot be opened (") + std::strerror(ENOENT) + ")");
    File::Remove(name);
    File::Remove(good);
}

TEST(FilmAccess, ReadsShareLikeOpenReadClose) {
    const std::string name = MakeFilm(8, 8, 16, 3, "share");
    CPtr film(name, 0, 0, 1);
    ASSERT_EQ(film.ReadFrame(0), 1);
    {
        // Between reads nothing is held: a writer may open the film.
        File writer;
        ASSERT_TRUE(writer.Open(name, File::modeWrite | File::shareDenyWrite | File::modeNoTruncate | File::modeCreate));
        // While it has the file, a read fails (opening is refused: no message).
        MessageRecorder rec;
        EXPECT_EQ(film.ReadFrame(1), 0);
        EXPECT_EQ(rec.Count(), 0u);
    }
    ASSERT_EQ(film.ReadFrame(1), 1);
    {
        // Another reader that denies writing does not stop us.
        File reader;
        ASSERT_TRUE(reader.Open(name, File::modeRead | File::shareDenyWrite));
        EXPECT_EQ(film.ReadNextFrame(), 1);
    }
    // A file replaced under the same name is read as the new file.
    const std::string other = MakeFilm(8, 8, 16, 3, "other");
    auto bytes = ReadAll(other);
    Put<uint16_t>(bytes, 3476 + 1016, 777);
    WriteAll(other, bytes);
#if defined(_WIN32)
    File::Remove(name);  // the C library of Windows renames onto no existing file
#endif
    ASSERT_EQ(std::rename(other.c_str(), name.c_str()), 0);
    ASSERT_EQ(film.ReadFrame(0), 1);
    EXPECT_EQ(film.GetFrame()->GetBuffer()[0], 777);
    // A deleted file: opening fails.
    File::Remove(name);
    EXPECT_EQ(film.ReadFrame(0), 0);
}

TEST(FilmAccess, SavingOneImageFilmsAndWriteFailures) {
    const std::string name = TempName("save");
    // An older, longer file under that name is replaced.
    {
        const std::string longer = MakeFilm(8, 8, 16, 4, "longer");
        ASSERT_EQ(std::rename(longer.c_str(), name.c_str()), 0);
    }
    CFrame frame(8, 8, 12, 0, 0);
    for (long i = 0; i < 64; ++i) frame.GetBuffer()[i] = static_cast<unsigned short>(i * 60);
    frame.SetTime(12.5);
    ASSERT_EQ(frame.Save(name.c_str(), nullptr, nullptr, "a comment"), 1);
    EXPECT_EQ(File::GetFileLength(name), 3476 + 1016 + 128);
    CPtr back(name, 0, 0, 1);
    ASSERT_EQ(back.IsValid(), 1);
    ASSERT_EQ(back.ReadFrame(0), 1);
    EXPECT_EQ(back.GetFrameNumber(), 1u);
    EXPECT_EQ(back.GetBit(), 12);
    EXPECT_EQ(back.GetComment(), "a comment");
    EXPECT_EQ(back.GetFrame()->GetBuffer()[63], 63 * 60);
    EXPECT_DOUBLE_EQ(back.GetFrame()->GetTime(), 12.5);

    // Doubles: a one-image film of 8-byte pixels with the data range as scale.
    std::vector<double> data(64);
    for (int i = 0; i < 64; ++i) data[i] = -1.5 + i * 0.25;
    ASSERT_EQ(frame.Save(name.c_str(), data.data(), "K", "doubles"), 1);
    EXPECT_EQ(File::GetFileLength(name), 3476 + 1016 + 64 * 8);
    CPtrFloat fl(name, 0, 0, 1);
    ASSERT_EQ(fl.IsValid(), 1);
    EXPECT_EQ(fl.GetBit(), 16);
    std::vector<double> read(64);
    ASSERT_EQ(fl.ReadFrame(0, read.data(), 64), 1);
    EXPECT_EQ(read, data);
    EXPECT_EQ(fl.GetSpecialUnitName(), "K");
    EXPECT_EQ(fl.GetComment(), "doubles");
    float* scale = nullptr;
    int count = 0;
    ASSERT_EQ(fl.GetSpecialScale(scale, count), 1);
    EXPECT_EQ(scale[0], -1.5f);
    EXPECT_EQ(scale[16], static_cast<float>(-1.5 + 63 * 0.25));
    // Levels from doubles: clamped and truncated.
    ASSERT_EQ(fl.ReadFrame(0), 1);
    EXPECT_EQ(fl.GetFrame()->GetBuffer()[0], 0);
    EXPECT_EQ(fl.GetFrame()->GetBuffer()[10], 1);  // 1.0
    EXPECT_EQ(fl.GetFrame()->GetBuffer()[11], 1);  // 1.25
    CPtr asLevels(name, 0, 0, 1);
    EXPECT_EQ(asLevels.IsValid(), 0);

    // Explicit bounds are kept as given.
    CPtr maker(8, 8, 16, 0, 1, 0);
    ASSERT_EQ(maker.SaveFrame(name.c_str(), data.data(), "u", "c", 1, 0.0, 100.0), 1);
    CPtrFloat bounded(name, 0, 0, 1);
    ASSERT_EQ(bounded.GetSpecialScale(scale, count), 1);
    EXPECT_EQ(scale[0], 0.0f);
    EXPECT_EQ(scale[8], 50.0f);
    EXPECT_EQ(scale[16], 100.0f);
    // Without the scale flag the special unit stays off.
    ASSERT_EQ(maker.SaveFrame(name.c_str(), data.data(), "u", "c", 0, -1.0, -1.0), 1);
    CPtrFloat plain(name, 0, 0, 1);
    EXPECT_EQ(plain.GetSpecialUnit(), 0);

    // A file that cannot be made: the save message, nothing counted.
    MessageRecorder rec;
    const std::string bad = ::testing::TempDir() + "no_such_dir_tk/x.film";
    CPtr film(8, 8, 16, 0, 1, 0);
    EXPECT_EQ(film.SaveFrame(bad.c_str(), film.GetFrame(), nullptr), 0);
    ASSERT_GE(rec.Count(), 1u);
    EXPECT_EQ(rec.Messages()[0].text, "Cannot save frame #0 in file " + bad + ".");
    EXPECT_EQ(rec.Messages()[0].icon, static_cast<unsigned>(MB_ICONERROR));
    film.SetFileName(bad);
    rec.Clear();
    EXPECT_EQ(film.AddFrame(), 0);
    EXPECT_EQ(film.GetFrameNumber(), 0u);
    EXPECT_EQ(rec.Messages().at(0).text, "Cannot save frame #0 in file " + bad + ".");
    File::Remove(name);
}

TEST(FilmAccess, FloatAddSubWindowAndStatistics) {
    const std::string name = TempName("misc");
    CPtr film(4, 2, 12, 0, 1, 0);
    film.SetFileName(name);
    const float values[8] = {-3.0f, 0.5f, 1.99f, 4094.9f, 4095.0f, 5000.0f, 100.7f, 7.0f};
    EXPECT_EQ(film.AddFrame(const_cast<float*>(values), 7), 0);
    ASSERT_EQ(film.AddFrame(const_cast<float*>(values), 8), 1);
    EXPECT_EQ(std::vector<unsigned short>(film.GetFrame()->GetBuffer(), film.GetFrame()->GetBuffer() + 8),
              (std::vector<unsigned short>{0, 0, 1, 4094, 4095, 4095, 100, 7}));

    CRect win(1, 0, 3, 2);
    ASSERT_EQ(film.AddFrame(&win), 1);
    CPtr back(name, 0, 0, 1);
    ASSERT_EQ(back.GetFrameNumber(), 2u);
    ASSERT_EQ(back.ReadFrame(1), 1);
    EXPECT_EQ(back.GetImageWindow(), 1);
    CRect r;
    back.GetSubWindowRect(&r);
    EXPECT_EQ(r, win);
    ASSERT_EQ(back.ReadFrame(0), 1);
    EXPECT_EQ(back.GetImageWindow(), 0);

    // Display bounds of the own frame, in a region and overall.
    ASSERT_EQ(back.MinMax(nullptr), 1);
    EXPECT_EQ(back.GetMinLUT(), 0);
    EXPECT_EQ(back.GetMaxLUT(), 4095);
    CRgn region;
    region.CreateRectRgn(2, 1, 4, 2);  // pixels 6 and 7: 100 and 7
    ASSERT_EQ(back.MinMax(&region), 1);
    EXPECT_EQ(back.GetMinLUT(), 7);
    EXPECT_EQ(back.GetMaxLUT(), 100);
    CRgn outside;
    outside.CreateRectRgn(10, 10, 20, 20);
    EXPECT_EQ(back.MinMax(&outside), 0);
    EXPECT_EQ(back.MinMaxHisto(100.0f, &outside), 0);
    ASSERT_EQ(back.MinMaxHisto(100.0f, nullptr), 1);
    EXPECT_LE(back.GetMinLUT(), back.GetMaxLUT());
    File::Remove(name);
}

TEST(FilmAccess, FilmsWithoutImageHeaders) {
    // Image-header size 0: images are pixels only, one after the other.
    const std::string name = TempName("nohead");
    CPtrOver p;
    p.InitHeader(4, 2, 16);
    std::vector<unsigned char> bytes(p.GetHeaderAddress(), p.GetHeaderAddress() + 3476);
    Put<uint32_t>(bytes, 15, 0);
    Put<uint32_t>(bytes, 19, 8);
    Put<uint32_t>(bytes, 27, 2);
    for (int k = 0; k < 2; ++k)
        for (int i = 0; i < 8; ++i) Put<uint16_t>(bytes, 3476 + 16 * k + 2 * i, static_cast<uint16_t>(100 * k + i));
    WriteAll(name, bytes);
    CPtr film(name, 0, 0, 1);
    ASSERT_EQ(film.IsValid(), 1);
    EXPECT_EQ(film.OffsetImage(1), 3476u + 16u);
    EXPECT_EQ(film.OffsetTrame(1), 3476u + 16u);
    ASSERT_EQ(film.ReadFrame(1), 1);
    EXPECT_EQ(film.GetFrame()->GetBuffer()[7], 107);
    film.GetFrame()->GetBuffer()[0] = 555;
    ASSERT_EQ(film.WriteFrame(0), 1);
    EXPECT_EQ(At<uint16_t>(ReadAll(name), 3476), 555);
    EXPECT_EQ(ReadAll(name).size(), bytes.size());
    File::Remove(name);
}

// A header can pass every check and still ask for more memory than there is
// (a sparse file of giant images): the film is refused as such, not taken
// for one whose frames cannot be read. Memory is bounded in a child process.
TEST(FilmAccess, ImagesThatCannotBeAllocatedAreSaidSo) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "an address-space limit and the sanitizers' shadow memory exclude each other";
#elif defined(_WIN32)
    GTEST_SKIP() << "the child with a bounded address space is a fork() with setrlimit";
#else
    const std::string name = TempName("giant");
    {
        CPtrFloat small(2, 2, 14, 0, 1, 0);
        small.SetFileName(name);
        const double d[4] = {1, 2, 3, 4};
        ASSERT_EQ(small.AddFrame(const_cast<double*>(d), 4), 1);
    }
    auto bytes = ReadAll(name);
    const uint32_t count = 16384u * 16384u;  // 2 GiB of doubles, 512 MiB of levels an image
    Put<uint16_t>(bytes, 377, 16384);
    Put<uint16_t>(bytes, 379, 16384);
    Put<uint32_t>(bytes, 23, count);
    for (const uint32_t bytesPerPixel : {8u, 2u}) {
        Put<uint32_t>(bytes, 19, 508 + count / 2 * bytesPerPixel);
        bytes.resize(3476 + 1016);
        WriteAll(name, bytes);
        ASSERT_EQ(::truncate(name.c_str(), 3476 + 1016 + static_cast<off_t>(count) * bytesPerPixel), 0);
        const int status = thermokit::test::Join(thermokit::test::Spawn([&] {
            // Room for what runs now and a little more: the levels of a film
            // of doubles fit, its doubles do not; the levels of a 16-bit film do not.
            long pages = 0;
            if (FILE* f = std::fopen("/proc/self/statm", "r")) {
                if (std::fscanf(f, "%ld", &pages) != 1) pages = 0;
                std::fclose(f);
            }
            const rlim_t room = static_cast<rlim_t>(pages) * ::sysconf(_SC_PAGESIZE) +
                                (bytesPerPixel == 8 ? (1024u << 20) : (256u << 20));
            const rlimit limit{room, room};
            if (pages == 0 || ::setrlimit(RLIMIT_AS, &limit) != 0) return 2;
            std::unique_ptr<CPtr> film;
            if (bytesPerPixel == 8) film = std::make_unique<CPtrFloat>(name, 0, 0, 1);
            else film = std::make_unique<CPtr>(name, 0, 0, 1);
            const std::string expected = "an image of 268435456 " + std::string(bytesPerPixel == 8 ? "doubles" : "pixels") +
                                         " cannot be allocated";
            return !film->IsValid() && film->GetLastErrorKind() == ErrorKind::Memory && film->GetLastErrorText() == expected
                       ? 0
                       : 1;
        }));
        EXPECT_EQ(status, 0) << bytesPerPixel << " bytes a pixel";
    }
    File::Remove(name);
#endif
}

TEST(FilmAccess, FilmsOfDoublesRoundTrip) {
    const std::string name = TempName("doubles");
    CPtrFloat film(3, 2, 12, 0, 1, 0);
    film.SetFileName(name);
    EXPECT_EQ(film.GetRecordWords(), 508u + 4u * 6u);
    EXPECT_EQ(film.GetImageSize(), 1016u + 48u);
    const double d[6] = {-1.5, 0.25, 4095.5, 5000.0, 1e300, 17.75};
    const float f[6] = {1.0f, 2.5f, 3.0f, 4.0f, 5.0f, 6.0f};
    ASSERT_EQ(film.AddFrame(const_cast<double*>(d), 6), 1);
    ASSERT_EQ(film.AddFrame(const_cast<float*>(f), 6), 1);
    EXPECT_EQ(film.AddFrame(const_cast<float*>(f), 5), 0);
    CFrame levels(3, 2, 12, 0, 0);
    for (int i = 0; i < 6; ++i) levels.GetBuffer()[i] = static_cast<unsigned short>(i * 1000);
    levels.SetTime(99.5);
    ASSERT_EQ(film.AddFrame(&levels), 1);
    EXPECT_EQ(File::GetFileLength(name), 3476 + 3 * (1016 + 48));

    CPtrFloat back(name, 0, 0, 1);
    ASSERT_EQ(back.IsValid(), 1);
    ASSERT_EQ(back.GetFrameNumber(), 3u);
    std::vector<double> v(6);
    ASSERT_EQ(back.ReadFrame(0, v.data(), 6), 1);
    EXPECT_EQ(v, std::vector<double>(d, d + 6));
    // As levels: clamped to [0, 4095] and truncated.
    ASSERT_EQ(back.ReadFrame(0), 1);
    const unsigned short expected[6] = {0, 0, 4095, 4095, 4095, 17};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(back.GetFrame()->GetBuffer()[i], expected[i]) << i;
    EXPECT_EQ(back.GetDoubleBuffer()[5], 17.75);
    ASSERT_EQ(back.ReadNextFrame(), 1);
    EXPECT_EQ(back.GetFrame()->GetBuffer()[1], 2);
    ASSERT_EQ(back.ReadNextFrame(), 1);
    EXPECT_EQ(back.GetDoubleBuffer()[5], 5000.0);
    EXPECT_DOUBLE_EQ(back.GetFrame()->GetTime(), 99.5);
    MessageRecorder rec;
    EXPECT_EQ(back.ReadFrame(3, v.data(), 6), 0);
    EXPECT_EQ(rec.Count(), 1u);
    File::Remove(name);

    // A 16-bit film given doubles stores levels.
    CPtr levelsFilm(3, 2, 12, 0, 1, 0);
    levelsFilm.SetFileName(name);
    ASSERT_EQ(levelsFilm.AddFrame(const_cast<double*>(d), 6), 1);
    CPtr backLevels(name, 0, 0, 1);
    ASSERT_EQ(backLevels.ReadFrame(0), 1);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(backLevels.GetFrame()->GetBuffer()[i], expected[i]) << i;
    File::Remove(name);
}
