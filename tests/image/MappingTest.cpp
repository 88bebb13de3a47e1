#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "support/ToolRun.h"
#include "thermokit/image/CMapping.h"
#include "thermokit/platform/Endian.h"

using namespace thermokit;

using thermokit::test::ReadAll;
using thermokit::test::TempPath;
using thermokit::test::WriteAll;

namespace {

// The pixels of a small image as a vector, for comparing whole images.
template <class T, size_t N>
std::vector<int> Pixels(const T (&image)[N]) {
    return std::vector<int>(image, image + N);
}
using V = std::vector<int>;

// The result of Check and the reason it gives.
std::pair<int, int> Checked(CMapping& map) {
    int reason = -1;
    const int r = map.Check(&reason);
    return {r, reason};
}

}  // namespace

TEST(Mapping, NewMappingIsTheIdentity) {
    CMapping map(4, 2);
    EXPECT_TRUE(map.IsValid());
    EXPECT_EQ(map.GetPoint(), 4);
    EXPECT_EQ(map.GetLine(), 2);
    EXPECT_EQ(map.GetSize(), 8);
    for (long i = 0; i < 8; ++i) EXPECT_EQ(map.GetEntry(i), i);
    unsigned short img[] = {8, 7, 6, 5, 4, 3, 2, 1};
    ASSERT_EQ(map.Apply(img), 1);
    EXPECT_EQ(Pixels(img), (V{8, 7, 6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(Checked(map), std::pair(1, 0));
    EXPECT_EQ(map.Check(nullptr), 1);
}

TEST(Mapping, CheckReasons) {
    CMapping map(4, 2);
    ASSERT_EQ(map.SetEntry(3, 8), 1);  // equal to the size
    EXPECT_EQ(Checked(map), std::pair(0, 1));
    map.SetEntry(3, 5);  // in range, 5 now named twice
    EXPECT_EQ(Checked(map), std::pair(0, 2));
    map.SetEntry(3, -1);  // negative: not caught by the range test
    EXPECT_EQ(Checked(map), std::pair(0, 2));
    map.SetEntry(3, 3);
    EXPECT_EQ(Checked(map), std::pair(1, 0));

    EXPECT_EQ(map.SetEntry(8, 0), 0);
    EXPECT_EQ(map.SetEntry(-1, 0), 0);
    EXPECT_EQ(map.GetEntry(8), -1);
}

TEST(Mapping, ApplyAndUnApplyArePermutationsOfEachOther) {
    // A horizontal mirror of a 3 x 2 image.
    CMapping map(3, 2);
    const int32_t mirror[] = {2, 1, 0, 5, 4, 3};
    for (int i = 0; i < 6; ++i) map.SetEntry(i, mirror[i]);
    ASSERT_EQ(map.Check(nullptr), 1);
    unsigned short u16[] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(map.Apply(u16), 1);
    EXPECT_EQ(Pixels(u16), (V{3, 2, 1, 6, 5, 4}));
    ASSERT_EQ(map.UnApply(u16), 1);
    EXPECT_EQ(Pixels(u16), (V{1, 2, 3, 4, 5, 6}));

    // A rotation of the indexes is not its own inverse: UnApply must scatter.
    const int32_t shift[] = {1, 2, 3, 4, 5, 0};
    for (int i = 0; i < 6; ++i) map.SetEntry(i, shift[i]);
    float f[] = {10, 11, 12, 13, 14, 15};
    map.Apply(f);
    EXPECT_EQ(Pixels(f), (V{11, 12, 13, 14, 15, 10}));
    map.UnApply(f);
    EXPECT_EQ(Pixels(f), (V{10, 11, 12, 13, 14, 15}));
    unsigned char u8[] = {0, 1, 2, 3, 4, 5};
    map.UnApply(u8);
    EXPECT_EQ(Pixels(u8), (V{5, 0, 1, 2, 3, 4}));
    map.Apply(u8);
    EXPECT_EQ(Pixels(u8), (V{0, 1, 2, 3, 4, 5}));

    // Entries outside the image name no pixel: 0 there, nothing read or written outside.
    map.SetEntry(0, 100);
    map.SetEntry(1, -7);
    unsigned short g[] = {1, 2, 3, 4, 5, 6};
    map.Apply(g);
    EXPECT_EQ(Pixels(g), (V{0, 0, 4, 5, 6, 1}));
    unsigned short k[] = {1, 2, 3, 4, 5, 6};
    map.UnApply(k);
    EXPECT_EQ(k[1], 0);  // nobody names 1 any more
}

TEST(Mapping, FileLayoutByteForByteAndRoundTrip) {
    CMapping map(320, 240);
    map.SetEntry(0, 76799);
    map.SetEntry(76799, 0);
    const std::string path = TempPath("layout.map");
    ASSERT_EQ(map.Save(path.c_str()), 1);
    const auto bytes = ReadAll(path);
    ASSERT_EQ(bytes.size(), 307456u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 11), std::string("MAP\0\0" "5.60\0\x1A", 11));
    for (int i = 11; i < 252; ++i) ASSERT_EQ(bytes[i], 0) << i;
    // Points and lines, little-endian; then the entries.
    EXPECT_EQ(V(bytes.begin() + 252, bytes.begin() + 256), (V{320 & 0xFF, 320 >> 8, 240, 0}));
    EXPECT_EQ(load<int32_t>(bytes.data(), 256), 76799);
    EXPECT_EQ(load<int32_t>(bytes.data(), 260), 1);
    EXPECT_EQ(load<int32_t>(bytes.data(), 256 + 4 * 76799), 0);

    CMapping back(path.c_str());
    ASSERT_TRUE(back.IsValid());
    EXPECT_EQ(back.GetPoint(), 320);
    EXPECT_EQ(back.GetLine(), 240);
    EXPECT_EQ(std::vector<int32_t>(back.GetMap(), back.GetMap() + 76800),
              std::vector<int32_t>(map.GetMap(), map.GetMap() + 76800));
    EXPECT_EQ(std::vector<unsigned char>(back.GetHeader(), back.GetHeader() + 256),
              std::vector<unsigned char>(bytes.begin(), bytes.begin() + 256));
    std::remove(path.c_str());
}

TEST(Mapping, HostileFilesGiveAnInvalidMapping) {
    CMapping missing((TempPath("does_not_exist.map")).c_str());
    EXPECT_FALSE(missing.IsValid());
    EXPECT_EQ(missing.GetMap(), nullptr);
    unsigned short img[] = {1, 2};
    EXPECT_EQ(missing.Apply(img), 0);
    EXPECT_EQ(missing.UnApply(img), 0);
    EXPECT_EQ(missing.Check(nullptr), 0);
    const std::string never = TempPath("never.map");
    EXPECT_EQ(missing.Save(never.c_str()), 0);
    EXPECT_FALSE(std::ifstream(never).good());
    CMapping none(static_cast<const char*>(nullptr));
    EXPECT_FALSE(none.IsValid());

    CMapping good(4, 2);
    const std::string path = TempPath("hostile.map");
    ASSERT_EQ(good.Save(path.c_str()), 1);
    const auto bytes = ReadAll(path);
    ASSERT_EQ(bytes.size(), 256u + 32u);
    // Shorter than its header, a table cut short, size fields 0, and a header
    // asking for 65535 x 65535 entries (16 GiB) from a tiny file.
    const auto sized = [&bytes](size_t length, uint16_t point, uint16_t line) {
        std::vector<unsigned char> b(bytes.begin(), bytes.begin() + static_cast<long>(length));
        if (point != 4) store<uint16_t>(b.data(), 252, point);
        if (line != 2) store<uint16_t>(b.data(), 254, line);
        return b;
    };
    for (const auto& b : {sized(100, 4, 2), sized(bytes.size() - 1, 4, 2), sized(bytes.size(), 0, 2),
                          sized(bytes.size(), 4, 0), sized(bytes.size(), 65535, 65535)}) {
        WriteAll(path, b);
        CMapping bad(path.c_str());
        EXPECT_FALSE(bad.IsValid()) << b.size();
        EXPECT_EQ(bad.GetMap(), nullptr);
        EXPECT_EQ(bad.GetEntry(0), -1);
        EXPECT_EQ(bad.Apply(img), 0);
    }
    // The exact length loads.
    WriteAll(path, bytes);
    EXPECT_TRUE(CMapping(path.c_str()).IsValid());
    std::remove(path.c_str());
}

TEST(Mapping, CopiesShareTheTable) {
    auto* first = new CMapping(2, 2);
    CMapping copy(*first);
    CMapping assigned(1, 1);
    assigned = *first;
    EXPECT_EQ(copy.GetMap(), first->GetMap());
    EXPECT_EQ(assigned.GetMap(), first->GetMap());
    EXPECT_EQ(assigned.GetSize(), 4);
    first->SetEntry(0, 3);
    EXPECT_EQ(copy.GetEntry(0), 3);  // shallow on purpose
    delete first;                    // the table lives on in the copies
    EXPECT_EQ(assigned.GetEntry(0), 3);
    assigned = assigned;
    EXPECT_EQ(assigned.GetEntry(3), 3);
}

TEST(Mapping, WorkBufferIsNeitherSharedNorRaced) {
    // A mirror of each 64-pixel line; applying it twice gives the image back.
    CMapping map(64, 32);
    for (long i = 0; i < map.GetSize(); ++i) map.SetEntry(i, static_cast<int32_t>((i / 64) * 64 + 63 - i % 64));
    CMapping copy(map);
    std::vector<unsigned short> original(static_cast<size_t>(map.GetSize()));
    for (size_t i = 0; i < original.size(); ++i) original[i] = static_cast<unsigned short>(i * 7);

    // The same mapping object and its copy used on several threads at once: every result stays exact.
    std::atomic<int> wrong{0};
    auto work = [&](CMapping* m) {
        for (int round = 0; round < 300; ++round) {
            std::vector<unsigned short> image = original;
            m->Apply(image.data());
            if (image[0] != original[63] || image[64] != original[127]) ++wrong;
            m->UnApply(image.data());
            if (image != original) ++wrong;
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(work, &map);
    threads.emplace_back(work, &map);
    threads.emplace_back(work, &copy);
    for (auto& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);

    // After a larger pixel type the buffer is reused for a smaller one, and the reverse.
    std::vector<float> f(original.begin(), original.end());
    map.Apply(f.data());
    EXPECT_EQ(f[0], static_cast<float>(original[63]));
    std::vector<unsigned char> small(static_cast<size_t>(map.GetSize()), 9);
    small[63] = 1;
    map.Apply(small.data());
    EXPECT_EQ(small[0], 1);
    EXPECT_EQ(small[63], 9);
}
