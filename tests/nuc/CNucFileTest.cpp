#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/StoreFixture.h"
#include "support/Bytes.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/nuc/CNucFile.h"
#include "thermokit/platform/Endian.h"

using namespace thermokit;
using thermokit::test::StoreTest;

namespace {

struct Catalogue : CNucFile {
    using CNucFile::CNucFile;
    using CNucFile::GetTableIndex;
};

constexpr size_t kHeader = 258;
constexpr size_t kDesc = 70;
constexpr size_t kTable = 522;

// A catalogue file built byte by byte.
std::string BuildFile(uint16_t tables, uint16_t windows, const char* signature = "NUC", size_t records = SIZE_MAX) {
    std::string f(kHeader, '\0');
    std::memcpy(f.data(), signature, std::strlen(signature));
    std::memcpy(f.data() + 5, "9.99", 4);  // the version is not compared
    store<uint32_t>(f.data(), 10, 258);
    f[14] = 0x1A;
    store<uint16_t>(f.data(), 15, tables);
    store<uint16_t>(f.data(), 17, windows);
    const size_t count = records == SIZE_MAX ? windows + tables : records;
    for (size_t r = 0; r < count; ++r) {
        const bool isDesc = r < windows;
        std::string rec(isDesc ? kDesc : kTable, '\0');
        store<uint32_t>(rec.data(), 0, isDesc ? 70 : 522);
        if (isDesc) {
            store<uint16_t>(rec.data(), 4, static_cast<uint16_t>(r == 0 ? tables : 0));
            store<int32_t>(rec.data(), 6, static_cast<int32_t>(10 * r + 1));
        } else {
            const size_t t = r - windows;
            const std::string scene = "scene" + std::to_string(t);
            std::memcpy(rec.data() + 4, scene.data(), scene.size());
            store<uint16_t>(rec.data(), 29, static_cast<uint16_t>(100 + t));
            store<int32_t>(rec.data(), 55, 1);
            std::memcpy(rec.data() + 259, "lens text", 9);
        }
        f += rec;
    }
    return f;
}

// A value of the catalogue mirror in the user store, or DE AD when missing.
std::vector<unsigned char> Raw(const char* name, unsigned long* type) {
    HKEY key = RegistryKey::OpenRoot(RegistryRoot::User, false).OpenSubKey("Software\\Orbel\\Global Data\\NucFile", false);
    std::vector<unsigned char> data;
    if (!key || key.QueryValue(name, type, &data) != RegOk) data.assign({0xDE, 0xAD});
    return data;
}

// The table index of each (window, table) pair.
std::vector<int> Indices(Catalogue& c, std::initializer_list<std::pair<unsigned short, unsigned short>> pairs) {
    std::vector<int> out;
    for (auto [w, t] : pairs) out.push_back(c.GetTableIndex(w, t));
    return out;
}

}  // namespace

TEST(NucFile, TableLookupArithmetic) {
    Catalogue c;
    EXPECT_TRUE(c.IsValid());
    for (unsigned short w = 0; w < 4; ++w) EXPECT_EQ(c.GetTableIndex(w, 0), -1);  // fresh: no tables anywhere

    CRect r(0, 0, 320, 240);
    const unsigned short counts[4] = {10, 8, 6, 0};
    for (unsigned short w = 0; w < 4; ++w) ASSERT_EQ(c.SetWindowing(w, counts[w], &r), 1);
    EXPECT_EQ(Indices(c, {{0, 0}, {0, 9}, {0, 10}, {1, 7}, {2, 0}, {2, 5}, {2, 6}, {3, 0}, {4, 0}}),
              (std::vector<int>{0, 9, -1, 17, 18, 23, -1, -1, -1}));
    CNucFile::NUC_TABLE t;
    EXPECT_EQ(c.GetTable(2, 6, &t), 0);
    EXPECT_EQ(c.SetTable(2, 6, "x", 1, 2, 3, "f", 0, "u", "d"), 0);

    // Counts adding up past 24: everything from index 24 on is refused.
    for (unsigned short w = 0; w < 3; ++w) ASSERT_EQ(c.SetWindowing(w, 10, &r), 1);
    EXPECT_EQ(Indices(c, {{2, 3}, {2, 4}, {2, 9}}), (std::vector<int>{23, -1, -1}));
    ASSERT_EQ(c.SetWindowing(0, 65535, &r), 1);
    EXPECT_EQ(Indices(c, {{1, 0}, {0, 23}}), (std::vector<int>{-1, 23}));

    // The sub-window count.
    EXPECT_EQ(c.SetMaxWindowing(5), 0);
    EXPECT_EQ(c.GetMaxWindowing(), 4);
    EXPECT_EQ(c.SetMaxWindowing(4), 1);
    EXPECT_EQ(c.SetMaxWindowing(2), 1);
    EXPECT_EQ(c.GetMaxWindowing(), 2);
    EXPECT_EQ(c.SetWindowing(2, 1, &r), 0);
    CNucFile::NUC_TABLE_DESC d;
    EXPECT_EQ(c.GetWindowing(2, &d), 0);
    EXPECT_EQ(c.GetWindowing(1, &d), 1);
    EXPECT_EQ(+d.dwSize, 70u);
    EXPECT_EQ(+d.wNbTables, 10);
    EXPECT_EQ(+d.rcWindow.right, 320);
    EXPECT_TRUE(d.rcWindow == r);
    EXPECT_EQ(CRect(d.rcWindow), r);
    EXPECT_EQ(c.GetTableIndex(2, 0), -1);
    EXPECT_EQ(c.SetMaxWindowing(0), 1);
    EXPECT_EQ(c.GetTableIndex(0, 0), -1);
}

TEST(NucFile, SetTableKeepsUpdatedLensAndBytesAfterTheText) {
    const std::string path = thermokit::test::TempPath("catalogue.nuc");
    thermokit::test::WriteText(path, BuildFile(3, 1));
    CNucFile c(path.c_str());
    ASSERT_TRUE(c.IsValid());
    CNucFile::NUC_TABLE t;
    ASSERT_EQ(c.GetTable(0, 2, &t), 1);
    EXPECT_STREQ(t.szScene, "scene2");
    EXPECT_EQ(+t.bUpdated, 1);

    ASSERT_EQ(c.SetTable(0, 2, "ab", 50, 60, 7, "Filter A", 0, "UI", "DB"), 1);
    ASSERT_EQ(c.GetTable(0, 2, &t), 1);
    EXPECT_EQ(+t.bUpdated, 1);  // the updated argument is not stored
    EXPECT_STREQ(t.szLens, "lens text");
    EXPECT_EQ(std::memcmp(t.szScene, "ab\0ne2\0", 7), 0);  // copied to its NUL, the rest left as it was
    EXPECT_EQ(+t.wFrequency, 50);
    EXPECT_EQ(+t.wIntegration, 60);
    EXPECT_EQ(+t.wFilter, 7);
    EXPECT_STREQ(t.szFilterName, "Filter A");
    EXPECT_STREQ(t.szUILabel, "UI");
    EXPECT_STREQ(t.szDBLabel, "DB");

    // Texts longer than their field are cut to fit, ending with a NUL.
    const std::string longScene(40, 'S');
    ASSERT_EQ(c.SetTable(0, 1, longScene.c_str(), 1, 1, 1, nullptr, 1, "", ""), 1);
    ASSERT_EQ(c.GetTable(0, 1, &t), 1);
    EXPECT_EQ(std::string(t.szScene), std::string(24, 'S'));
    EXPECT_EQ(+t.wFrequency, 1);  // the next field is whole
    EXPECT_EQ(t.szFilterName[0], '\0');
    EXPECT_EQ(+t.bUpdated, 1);
    std::remove(path.c_str());
}

TEST(NucFile, FileLayoutByteByByte) {
    const std::string path = thermokit::test::TempPath("layout.nuc");
    CNucFile c;
    CRect r0(0, 0, 320, 256);
    CRect r1(-1, 2, 0x12345678, 4);
    ASSERT_EQ(c.SetWindowing(0, 2, &r0), 1);
    ASSERT_EQ(c.SetWindowing(1, 3, &r1), 1);
    ASSERT_EQ(c.SetTable(1, 1, "Blackbody", 100, 2000, 3, "ND1", 1, "100 Hz", "T3"), 1);
    ASSERT_EQ(c.Save(path.c_str(), 0), 1);

    const std::vector<unsigned char> b = thermokit::test::ReadAll(path);
    ASSERT_EQ(b.size(), kHeader + 4 * kDesc + 24 * kTable);
    EXPECT_EQ(std::memcmp(b.data(), "NUC\0\0" "5.60\0", 10), 0);
    EXPECT_EQ(std::vector<unsigned char>(b.begin() + 19, b.begin() + 258), std::vector<unsigned char>(239, 0));
    // Sub-window records come first in the file: record 1 at d1; table (1, 1) is global table 3, at t3.
    const size_t d1 = kHeader + kDesc, tables = kHeader + 4 * kDesc, t3 = tables + 3 * kTable;
    EXPECT_EQ(std::vector<unsigned char>(b.begin() + d1 + 22, b.begin() + d1 + 70), std::vector<unsigned char>(48, 0));
    using namespace thermokit::test;
    ExpectFields(b, {{10, 258u}, {14, u8{0x1A}}, {15, u16{24}}, {17, u16{4}},  // header size, end of text, counts
                     {kHeader, 70u}, {d1 + 4, u16{3}}, {d1 + 6, int32_t{-1}}, {d1 + 10, int32_t{2}},
                     {d1 + 14, int32_t{0x12345678}}, {d1 + 18, int32_t{4}},
                     {tables, 522u}, {t3, 522u}, {t3 + 4, "Blackbody"}, {t3 + 29, u16{100}}, {t3 + 31, u16{2000}},
                     {t3 + 33, u16{3}}, {t3 + 35, "ND1"}, {t3 + 55, int32_t{0}}, {t3 + 59, "100 Hz"}, {t3 + 159, "T3"},
                     {t3 + 259, u8{0}}});

    // Fewer sub-windows: fewer records in the file.
    ASSERT_EQ(c.SetMaxWindowing(2), 1);
    ASSERT_EQ(c.Save(path.c_str(), 0), 1);
    EXPECT_EQ(thermokit::test::ReadText(path).size(), kHeader + 2 * kDesc + 24 * kTable);

    // Round trip: the records read back as written.
    CNucFile back(path.c_str());
    ASSERT_TRUE(back.IsValid());
    EXPECT_EQ(back.GetMaxWindowing(), 2);
    CNucFile::NUC_TABLE a, e;
    ASSERT_EQ(c.GetTable(1, 1, &a), 1);
    ASSERT_EQ(back.GetTable(1, 1, &e), 1);
    EXPECT_EQ(std::memcmp(&a, &e, sizeof a), 0);
    CNucFile::NUC_TABLE_DESC da, de;
    ASSERT_EQ(back.GetWindowing(1, &de), 1);
    ASSERT_EQ(c.GetWindowing(1, &da), 1);
    EXPECT_EQ(std::memcmp(&da, &de, sizeof da), 0);
    EXPECT_EQ(std::memcmp(&back.GetHeader(), &c.GetHeader(), kHeader), 0);

    EXPECT_EQ(c.Save((path + ".missing/x.nuc").c_str(), 0), 0);
    std::remove(path.c_str());
}

TEST(NucFile, HostileFilesAreRefused) {
    const std::string path = thermokit::test::TempPath("hostile.nuc");
    Catalogue c;
    CRect r(0, 0, 1, 1);
    c.SetMaxWindowing(3);
    c.SetWindowing(0, 5, &r);

    struct Case {
        const char* what;
        std::string bytes;
    } const cases[] = {
        {"wrong signature", BuildFile(1, 1, "NUD")},
        {"signature in lower case", BuildFile(1, 1, "nuc")},
        {"25 tables", BuildFile(25, 1)},
        {"5 sub-windows", BuildFile(1, 5)},
        {"all counts at their maximum", BuildFile(65535, 65535, "NUC", 3)},
        {"shorter than its counts", BuildFile(24, 4, "NUC", 27)},
        {"header cut short", BuildFile(0, 0).substr(0, 100)},
        {"empty", std::string()},
    };
    for (const auto& k : cases) {
        thermokit::test::WriteText(path, k.bytes);
        EXPECT_EQ(c.Read(path.c_str()), 0) << k.what;
        EXPECT_FALSE(c.IsValid()) << k.what;
        EXPECT_EQ(c.GetMaxWindowing(), 3) << k.what;  // nothing was taken from the file
        EXPECT_EQ(c.GetTableIndex(0, 4), 4) << k.what;
    }
    EXPECT_EQ(c.Read((path + ".none").c_str()), 0);
    EXPECT_EQ(c.Read(nullptr), 0);
    CNucFile missing((path + ".none").c_str());
    EXPECT_FALSE(missing.IsValid());

    // A good file with fewer records replaces only those; extra bytes at the end are ignored.
    thermokit::test::WriteText(path, BuildFile(2, 1) + "trailing");
    ASSERT_EQ(c.Read(path.c_str()), 1);
    EXPECT_TRUE(c.IsValid());
    EXPECT_EQ(c.GetMaxWindowing(), 1);
    EXPECT_EQ(c.GetTableIndex(0, 1), 1);
    EXPECT_EQ(c.GetTableIndex(0, 2), -1);
    CNucFile::NUC_TABLE t;
    ASSERT_EQ(c.GetTable(0, 1, &t), 1);
    EXPECT_STREQ(t.szScene, "scene1");
    // Exactly as long as its counts: accepted.
    thermokit::test::WriteText(path, BuildFile(24, 4));
    EXPECT_EQ(c.Read(path.c_str()), 1);
    std::remove(path.c_str());
}

TEST_F(StoreTest, NucCatalogueRegistryMirror) {
    CNucFile c;
    CRect r(-5, 6, 640, 512);
    c.SetWindowing(0, 24, &r);
    c.SetTable(0, 2, "Scene three", 50, 1000, 2, "F2", 1, "ui", "db");
    const std::string path = thermokit::test::TempPath("mirror.nuc");
    ASSERT_EQ(c.Save(path.c_str(), 1), 1);  // saves and mirrors

    unsigned long type = 0;
    EXPECT_EQ(Raw("Nb Tables", &type), (std::vector<unsigned char>{24, 0, 0, 0}));
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(Raw("Nb Window", &type), (std::vector<unsigned char>{4, 0, 0, 0}));
    EXPECT_EQ(Raw("Desc / Nb Tables 1", &type), (std::vector<unsigned char>{24, 0, 0, 0}));
    const std::vector<unsigned char> left = Raw("Desc / left 1", &type);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(std::string(left.begin(), left.end()), std::string("-5", 3));
    const std::vector<unsigned char> scene = Raw("Table / Scene 3", &type);
    EXPECT_EQ(std::string(scene.begin(), scene.end()), std::string("Scene three", 12));
    EXPECT_EQ(Raw("Table / Frequency 3", &type), (std::vector<unsigned char>{50, 0, 0, 0}));
    EXPECT_EQ(Raw("Table / Integration 3", &type), (std::vector<unsigned char>{0xE8, 3, 0, 0}));
    EXPECT_EQ(Raw("Table / Filter 3", &type), (std::vector<unsigned char>{2, 0, 0, 0}));
    EXPECT_EQ(Raw("Table / Updated 3", &type), (std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_EQ(type, REG_DWORD);
    for (const char* name : {"Table / Filter Name 3", "Table / UI Label 3", "Table / DB Label 3", "Table / Lens 24",
                             "Desc / top 4", "Desc / right 4", "Desc / bottom 4"}) {
        Raw(name, &type);
        EXPECT_TRUE(type == REG_SZ) << name;
    }
    // Numbered from 1, and only as many as the counts.
    for (const char* name : {"Desc / left 0", "Desc / left 5", "Table / Scene 0", "Table / Scene 25", "Nb Tables 1"}) {
        EXPECT_EQ(Raw(name, &type), (std::vector<unsigned char>{0xDE, 0xAD})) << name;
    }

    // Read back into a fresh catalogue.
    CNucFile back(1);
    CNucFile::NUC_TABLE a, b;
    ASSERT_EQ(c.GetTable(0, 2, &a), 1);
    ASSERT_EQ(back.GetTable(0, 2, &b), 1);
    EXPECT_STREQ(b.szScene, "Scene three");
    EXPECT_EQ(+b.wIntegration, 1000);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    CNucFile::NUC_TABLE_DESC d;
    ASSERT_EQ(back.GetWindowing(0, &d), 1);
    EXPECT_EQ(+d.rcWindow.left, -5);
    EXPECT_EQ(+d.rcWindow.bottom, 512);

    // Counts beyond the capacity in the store are refused and change nothing.
    CRegistry reg(CRegistry::GlobalData, "NucFile", "");
    ASSERT_EQ(reg.SetWORDValue("Nb Tables", 30), 1);
    CNucFile refused;
    EXPECT_EQ(refused.GetRegistry(), 0);
    EXPECT_EQ(+refused.GetHeader().wNbTables, 24);
    ASSERT_EQ(reg.SetWORDValue("Nb Tables", 24), 1);
    ASSERT_EQ(reg.SetWORDValue("Nb Window", 5), 1);
    EXPECT_EQ(refused.GetRegistry(), 0);
    EXPECT_EQ(refused.GetMaxWindowing(), 4);
    std::remove(path.c_str());
}
