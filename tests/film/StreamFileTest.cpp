#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "support/ToolRun.h"
#include "thermokit/film/CStreamFile.h"

using namespace thermokit;
using thermokit::test::ReadAll;
using thermokit::test::TempPath;

namespace {

std::string TempName(const char* tag) { return TempPath(std::string("streamfile_") + tag + ".bin"); }

std::vector<unsigned char> Pattern(size_t n, uint32_t seed) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        v[i] = static_cast<unsigned char>(seed >> 24);
    }
    return v;
}

// Writes data in uneven pieces so that pieces straddle bank boundaries.
void WriteInPieces(CStreamFile& s, const std::vector<unsigned char>& data) {
    const size_t pieces[] = {1, 999, 4096, 7777, 13, 20000};
    size_t at = 0;
    for (int i = 0; at < data.size(); ++i) {
        const size_t n = std::min(pieces[i % 6], data.size() - at);
        unsigned long written = 0;
        ASSERT_EQ(s.Write(data.data() + at, static_cast<unsigned long>(n), &written), 1);
        ASSERT_EQ(written, n);
        at += n;
    }
}

// A disk that is slow, or that fails after a number of banks.
class TestDisk : public CStreamFile {
public:
    std::atomic<int> writes{0};
    int failAfter = -1;  // banks written before every write fails
    int delayMs = 0;
    // The writer thread calls DiskWrite: close while this class still exists.
    ~TestDisk() override { CloseFile(); }

protected:
    long DiskWrite(const void* data, unsigned long size) override {
        if (delayMs) std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        if (failAfter >= 0 && writes.load() >= failAfter) return -1;
        const long n = CStreamFile::DiskWrite(data, size);
        ++writes;
        return n;
    }
};

}  // namespace

TEST(StreamFile, BankNumberBounds) {
    CStreamFile s;
    EXPECT_EQ(s.SetBankNumber(0), 0);
    EXPECT_EQ(s.SetBankNumber(-1), 0);
    EXPECT_EQ(s.SetBankNumber(1025), 0);
    EXPECT_EQ(s.SetBankNumber(1024), 1);
    EXPECT_EQ(s.GetBankNumber(), 1024);
    EXPECT_EQ(s.SetBankNumber(1), 1);
    const std::string name = TempName("bounds");
    ASSERT_EQ(s.OpenFile(name, 4096), 1);
    EXPECT_EQ(s.SetBankNumber(4), 0);  // refused while a file is open
    EXPECT_EQ(s.GetBankNumber(), 1);
    EXPECT_EQ(s.OpenFile(name, 4096), 0);  // already open
    EXPECT_EQ(s.CloseFile(), 1);
    EXPECT_EQ(s.CloseFile(), 1);  // nothing open
    EXPECT_EQ(s.SetBankNumber(4), 1);
    EXPECT_EQ(s.OpenFile(name, 0), 0);
    std::remove(name.c_str());
}

TEST(StreamFile, ClosedFileRefusesEverything) {
    CStreamFile s;
    unsigned long written = 7;
    char b[4] = {};
    EXPECT_EQ(s.Write(b, 4, &written), 0);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN), -1);
    long high = 0;
    EXPECT_EQ(s.SetFilePointer(0L, &high, CStreamFile::FILE_BEGIN), 0xFFFFFFFFul);
    EXPECT_EQ(s.Read(b, 4), 0u);
    EXPECT_EQ(s.Flush(), 0);
    EXPECT_EQ(s.SetEndOfFile(), 0);
    EXPECT_EQ(s.OpenFile(TempName("missing_dir") + "/no/such/file", 4096), 0);
    EXPECT_EQ(s.OpenFile(TempName("never_created"), 4096, CStreamFile::modeOpenExisting), 0);
}

// Through the ring, with direct writes (bank a multiple of the block size)
// and with plain writes (a bank size no direct write accepts); a partial
// last bank, then the exact length.
TEST(StreamFile, RoundTripThroughBanksWithExactLength) {
    for (unsigned long bank : {4096ul, 3000ul, 65536ul}) {
        for (int banks : {1, 3}) {
            SCOPED_TRACE("bank " + std::to_string(bank) + " x " + std::to_string(banks));
            const std::string name = TempName("roundtrip");
            const auto data = Pattern(10 * bank + 1234, static_cast<uint32_t>(bank + banks));
            {
                CStreamFile s;
                ASSERT_EQ(s.SetBankNumber(banks), 1);
                ASSERT_EQ(s.OpenFile(name, bank), 1);
                if (bank % 4096) {
                    EXPECT_FALSE(s.IsDirect());
                }
                WriteInPieces(s, data);
                EXPECT_EQ(s.SetEndOfFile(), 1);
                EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_CURRENT), static_cast<int64_t>(data.size()));
                EXPECT_EQ(s.CloseFile(), 1);
                EXPECT_EQ(s.GetError(), 0);
            }
            EXPECT_EQ(ReadAll(name), data);
            std::remove(name.c_str());
        }
    }
}

// Large pieces take the cache-bypassing copy: odd source and bank offsets,
// a piece larger than a bank, and a tail that is not a multiple of 64.
TEST(StreamFile, LargePiecesAtOddOffsets) {
    const std::string name = TempName("large");
    const unsigned long bank = 256 * 1024;
    const auto data = Pattern(5 * bank + 4321, 77);
    CStreamFile s;
    ASSERT_EQ(s.SetBankNumber(2), 1);
    ASSERT_EQ(s.OpenFile(name, bank), 1);
    unsigned long written = 0;
    ASSERT_EQ(s.Write(data.data(), 7, &written), 1);
    ASSERT_EQ(s.Write(data.data() + 7, 3 * bank + 100001, &written), 1);
    const size_t at = 7 + 3 * bank + 100001;
    ASSERT_EQ(s.Write(data.data() + at, static_cast<unsigned long>(data.size() - at), &written), 1);
    EXPECT_EQ(s.SetEndOfFile(), 1);
    EXPECT_EQ(s.CloseFile(), 1);
    EXPECT_EQ(ReadAll(name), data);
    std::remove(name.c_str());
}

TEST(StreamFile, UnalignedRepositionKeepsBytesBeforeAndAfter) {
    const unsigned long bank = 4096;
    const std::string name = TempName("reposition");
    auto data = Pattern(5 * bank, 11);
    const auto patch = Pattern(300, 99);
    CStreamFile s;
    ASSERT_EQ(s.SetBankNumber(2), 1);
    ASSERT_EQ(s.OpenFile(name, bank), 1);
    WriteInPieces(s, data);

    // Inside bank 1, then across the boundary into bank 2.
    const int64_t at = static_cast<int64_t>(bank) + 3900;
    EXPECT_EQ(s.SetFilePointer(at, CStreamFile::FILE_BEGIN), at);
    unsigned long written = 0;
    ASSERT_EQ(s.Write(patch.data(), static_cast<unsigned long>(patch.size()), &written), 1);
    std::memcpy(data.data() + at, patch.data(), patch.size());
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_CURRENT), at + 300);

    // Relative to the end, with a negative offset that is not on a boundary.
    EXPECT_EQ(s.SetFilePointer(int64_t{-10}, CStreamFile::FILE_END), static_cast<int64_t>(5 * bank - 10));
    ASSERT_EQ(s.Write(patch.data(), 4, &written), 1);
    std::memcpy(data.data() + 5 * bank - 10, patch.data(), 4);

    // Reading goes through the same logical position.
    std::vector<unsigned char> back(5000);
    EXPECT_EQ(s.SetFilePointer(int64_t{100}, CStreamFile::FILE_BEGIN), 100);
    EXPECT_EQ(s.Read(back.data(), 5000), 5000u);
    EXPECT_TRUE(std::equal(back.begin(), back.end(), data.begin() + 100));
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_CURRENT), 5100);
    EXPECT_EQ(s.Read(back.data(), 5000), 5000u);  // runs into the end of the file
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_END), static_cast<int64_t>(5 * bank));
    EXPECT_EQ(s.Read(back.data(), 10), 0u);

    EXPECT_EQ(s.CloseFile(), 1);
    EXPECT_EQ(ReadAll(name), data);  // length unchanged, every other byte kept
    std::remove(name.c_str());
}

// How a film is streamed: a header, images after it, the exact end fixed,
// then the header written again with the image count; the images stay.
TEST(StreamFile, HeaderRewrittenAfterImages) {
    const std::string name = TempName("film");
    const size_t header = 3476, image = 1016 + 2 * 320 * 256;
    auto data = Pattern(header + 5 * image, 21);
    CStreamFile s;
    ASSERT_EQ(s.SetBankNumber(3), 1);
    ASSERT_EQ(s.OpenFile(name, 64 * 1024), 1);
    unsigned long written = 0;
    ASSERT_EQ(s.Write(data.data(), static_cast<unsigned long>(header), &written), 1);
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(s.Write(data.data() + header + i * image, static_cast<unsigned long>(image), &written), 1);
    EXPECT_EQ(s.SetEndOfFile(), 1);
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN), 0);
    const auto newHeader = Pattern(header, 22);
    ASSERT_EQ(s.Write(newHeader.data(), static_cast<unsigned long>(header), &written), 1);
    EXPECT_EQ(s.CloseFile(), 1);
    std::copy(newHeader.begin(), newHeader.end(), data.begin());
    EXPECT_EQ(ReadAll(name), data);
    std::remove(name.c_str());
}

TEST(StreamFile, PairFormSplitsTheSixtyFourBitPosition) {
    const std::string name = TempName("pair");
    CStreamFile s;
    ASSERT_EQ(s.OpenFile(name, 4096), 1);
    long high = 1;
    // 4 GiB + 5000: beyond the end of an empty file, read back as zeros.
    EXPECT_EQ(s.SetFilePointer(5000L, &high, CStreamFile::FILE_BEGIN), 5000ul);
    EXPECT_EQ(high, 1);
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_CURRENT), (int64_t{1} << 32) + 5000);
    EXPECT_EQ(s.SetFilePointer(-1L, nullptr, CStreamFile::FILE_BEGIN), 0xFFFFFFFFul);  // before the start
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_BEGIN), 0);
    high = 0;
    EXPECT_EQ(s.SetFilePointer(8192L, &high, CStreamFile::FILE_CURRENT), 8192ul);
    EXPECT_EQ(high, 0);
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, 3), -1);  // no such method
    EXPECT_EQ(s.CloseFile(), 1);
    EXPECT_EQ(ReadAll(name).size(), 0u);  // moving alone writes nothing
    std::remove(name.c_str());
}

TEST(StreamFile, FlushTruncateAndSynchronousWrites) {
    const std::string name = TempName("flush");
    const auto data = Pattern(3 * 4096 + 100, 5);
    CStreamFile s;
    ASSERT_EQ(s.OpenFile(name, 4096), 1);
    unsigned long written = 0;
    ASSERT_EQ(s.Write(data.data(), 100, &written), 1);
    EXPECT_EQ(s.Flush(), 1);
    EXPECT_EQ(ReadAll(name), std::vector<unsigned char>(data.begin(), data.begin() + 100));
    // The partly written bank stays current: later bytes continue it.
    ASSERT_EQ(s.WriteSynchro(data.data() + 100, static_cast<unsigned long>(data.size() - 100), &written), 1);
    EXPECT_EQ(ReadAll(name), data);  // on file before any close
    EXPECT_EQ(s.Truncate(5000), 1);
    EXPECT_EQ(s.SetFilePointer(int64_t{0}, CStreamFile::FILE_CURRENT), 5000);
    EXPECT_EQ(s.CloseFile(), 1);
    EXPECT_EQ(ReadAll(name), std::vector<unsigned char>(data.begin(), data.begin() + 5000));

    // Reopening keeps the content; rewriting the first 10 bytes keeps the rest.
    ASSERT_EQ(s.OpenFile(name, 4096, CStreamFile::modeOpenExisting), 1);
    ASSERT_EQ(s.Write("0123456789", 10, &written), 1);
    EXPECT_EQ(s.CloseFile(), 1);
    auto expect = std::vector<unsigned char>(data.begin(), data.begin() + 5000);
    std::memcpy(expect.data(), "0123456789", 10);
    EXPECT_EQ(ReadAll(name), expect);
    std::remove(name.c_str());
}

TEST(StreamFile, CloseAndDestructionWaitForPendingBanks) {
    const std::string name = TempName("pending");
    const auto data = Pattern(3 * 4096, 7);
    {
        TestDisk s;
        s.delayMs = 30;
        ASSERT_EQ(s.SetBankNumber(4), 1);
        ASSERT_EQ(s.OpenFile(name, 4096), 1);
        unsigned long written = 0;
        ASSERT_EQ(s.Write(data.data(), static_cast<unsigned long>(data.size()), &written), 1);
        EXPECT_EQ(s.CloseFile(), 1);
        EXPECT_EQ(s.writes.load(), 3);  // all three on disk when CloseFile returns
    }
    EXPECT_EQ(ReadAll(name), data);
    const auto more = Pattern(5 * 4096 + 17, 8);
    {
        TestDisk s;  // destroyed with banks pending and a partial bank
        s.delayMs = 10;
        ASSERT_EQ(s.SetBankNumber(2), 1);
        ASSERT_EQ(s.OpenFile(name, 4096), 1);
        unsigned long written = 0;
        ASSERT_EQ(s.Write(more.data(), static_cast<unsigned long>(more.size()), &written), 1);
    }
    EXPECT_EQ(ReadAll(name), more);
    std::remove(name.c_str());
}

TEST(StreamFile, FailingDiskSetsStickyErrorWithoutDeadlock) {
    const std::string name = TempName("failing");
    const auto data = Pattern(8 * 4096, 3);
    TestDisk s;
    s.failAfter = 2;
    ASSERT_EQ(s.SetBankNumber(2), 1);
    ASSERT_EQ(s.OpenFile(name, 4096), 1);
    unsigned long written = 0;
    EXPECT_EQ(s.Write(data.data(), static_cast<unsigned long>(data.size()), &written), 0);
    EXPECT_LT(written, data.size());
    EXPECT_EQ(s.GetError(), 1);
    EXPECT_EQ(s.Write(data.data(), 10, &written), 0);  // sticky
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(s.Flush(), 0);
    EXPECT_EQ(s.CloseFile(), 1);
    const auto file = ReadAll(name);
    ASSERT_GE(file.size(), 2 * 4096u);
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 2 * 4096, file.begin()));  // written before: intact
    // A new file starts without the error.
    s.failAfter = -1;
    ASSERT_EQ(s.OpenFile(name, 4096), 1);
    EXPECT_EQ(s.GetError(), 0);
    EXPECT_EQ(s.CloseFile(), 1);
    std::remove(name.c_str());

    // A real device that is always full.
    CStreamFile full;
    if (full.OpenFile("/dev/full", 4096, CStreamFile::modeOpenExisting)) {
        full.Write(data.data(), 3 * 4096, &written);  // may see the error already
        EXPECT_EQ(full.Flush(), 0);
        EXPECT_EQ(full.GetError(), 1);
        EXPECT_EQ(full.CloseFile(), 1);
    }
}
