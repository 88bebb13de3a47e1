#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sqlite3.h>
#endif

#include <cstring>
#include <filesystem>
#include <string>

#include "support/StoreFixture.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/environment/RegistryStore.h"

using namespace thermokit;
using thermokit::test::StoreTest;

namespace {

// Direct access to one root, below the typed layer.
HKEY OpenAt(RegistryRoot root, const std::string& path, bool create = false) {
    return RegistryKey::OpenRoot(root, create).OpenSubKey(path, create);
}

void PutText(RegistryRoot root, const std::string& path, const std::string& name, const std::string& text) {
    HKEY key = OpenAt(root, path, true);
    ASSERT_TRUE(key);
    ASSERT_EQ(key.SetValue(name, REG_SZ, text.c_str(), text.size() + 1), RegOk);
}

bool GetRaw(RegistryRoot root, const std::string& path, const std::string& name, unsigned long* type,
            std::vector<unsigned char>* data) {
    HKEY key = OpenAt(root, path);
    return key && key.QueryValue(name, type, data) == RegOk;
}

// The type and bytes of a stored value (type 99 and no bytes when it is missing).
using Raw = std::pair<unsigned long, std::vector<unsigned char>>;
Raw Stored(RegistryRoot root, const std::string& path, const std::string& name) {
    Raw r{99, {}};
    if (!GetRaw(root, path, name, &r.first, &r.second)) r = Raw{99, {}};
    return r;
}
Raw Text(const std::string& text) {
    return {REG_SZ, std::vector<unsigned char>(text.c_str(), text.c_str() + text.size() + 1)};
}

const char* const kSetup = "Software\\Orbel\\Common Setup\\Setup";

}  // namespace

TEST_F(StoreTest, KeysAreATreeWithCaseInsensitiveNames) {
    HKEY root = RegistryKey::OpenRoot(RegistryRoot::User, true);
    ASSERT_TRUE(root);
    HKEY a = root.OpenSubKey("Alpha\\Beta\\\\Gamma", true);  // empty component skipped
    ASSERT_TRUE(a);
    EXPECT_EQ(a, root.OpenSubKey("ALPHA\\beta\\GaMmA", false));
    EXPECT_FALSE(root.OpenSubKey("Alpha\\Gamma", false));

    ASSERT_EQ(a.SetValue("Value", REG_SZ, "x", 2), RegOk);
    ASSERT_EQ(a.SetValue("VALUE", REG_SZ, "yz", 3), RegOk);  // the same value
    std::vector<RegistryValue> values;
    ASSERT_EQ(a.EnumValues(&values), RegOk);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].name, "Value");  // the first spelling is kept
    EXPECT_EQ(std::string(values[0].data.begin(), values[0].data.end()), std::string("yz", 3));

    std::vector<std::string> keys;
    ASSERT_EQ(root.OpenSubKey("alpha", false).EnumSubKeys(&keys), RegOk);
    EXPECT_EQ(keys, std::vector<std::string>{"Beta"});

    // Deleting a key takes its sub-keys and values; an open handle below it
    // then refuses to write.
    HKEY alpha = root.OpenSubKey("Alpha", false);
    EXPECT_EQ(alpha.DeleteSubKey("beta"), RegOk);
    EXPECT_FALSE(root.OpenSubKey("Alpha\\Beta", false));
    EXPECT_EQ(a.SetValue("Value", REG_SZ, "x", 2), RegKeyDeleted);
    EXPECT_EQ(a.QueryValue("Value", nullptr, nullptr), RegNotFound);
    EXPECT_EQ(alpha.DeleteSubKey("beta"), RegNotFound);
    EXPECT_EQ(alpha.DeleteSubKey("a\\b"), RegInvalidName);

    // A read-only key refuses every change and creates nothing.
    HKEY ro = RegistryKey::OpenRoot(RegistryRoot::User, false);
    ASSERT_TRUE(ro);
    EXPECT_FALSE(ro.IsWritable());
    EXPECT_EQ(ro.SetValue("v", REG_SZ, "", 1), RegAccessDenied);
    EXPECT_FALSE(ro.OpenSubKey("Created", true));
    EXPECT_FALSE(root.OpenSubKey("Created", false));
}

TEST_F(StoreTest, StoreLocationsFollowTheEnvironment) {
    EXPECT_EQ(RegistryStore::MachineStorePath(), m_machine);
    EXPECT_EQ(RegistryStore::UserStorePath(), m_user);
#if defined(_WIN32)
    // The system registry's roots; a variable names a key of its own or a private store.
    ::unsetenv("THERMOKIT_MACHINE_STORE");
    ::unsetenv("THERMOKIT_USER_STORE");
    EXPECT_EQ(RegistryStore::MachineStorePath(), "HKEY_LOCAL_MACHINE");
    EXPECT_EQ(RegistryStore::UserStorePath(), "HKEY_CURRENT_USER");
    EXPECT_EQ(RegistryKey::OpenRoot(RegistryRoot::User, false).GetStorePath(), "HKEY_CURRENT_USER");
    ::setenv("THERMOKIT_MACHINE_STORE", m_machine.c_str(), 1);
    ::setenv("THERMOKIT_USER_STORE", m_user.c_str(), 1);
    HKEY mine = RegistryKey::OpenRoot(RegistryRoot::User, true);
    ASSERT_TRUE(mine);
    EXPECT_EQ(mine.GetStorePath().rfind("HKEY_CURRENT_USER\\Software\\thermokit\\Stores\\", 0), 0u) << mine.GetStorePath();
    ASSERT_EQ(mine.OpenSubKey("A", true).SetValue("v", REG_DWORD, "\1\0\0\0", 4), RegOk);
    ::setenv("THERMOKIT_MACHINE_STORE", ("hkcu\\" + mine.GetStorePath().substr(18)).c_str(), 1);  // the same key, named
    EXPECT_TRUE(GetRaw(RegistryRoot::Machine, "A", "v", nullptr, nullptr));
    ::setenv("THERMOKIT_MACHINE_STORE", m_machine.c_str(), 1);
#else
    ::unsetenv("THERMOKIT_MACHINE_STORE");
    EXPECT_EQ(RegistryStore::MachineStorePath(), "/var/lib/thermokit/registry.db");
    ::unsetenv("THERMOKIT_USER_STORE");
    const char* oldXdg = std::getenv("XDG_CONFIG_HOME");
    const std::string keepXdg = oldXdg ? oldXdg : "";
    const char* oldHome = std::getenv("HOME");
    const std::string keepHome = oldHome ? oldHome : "";
    ::setenv("XDG_CONFIG_HOME", "/cfg", 1);
    EXPECT_EQ(RegistryStore::UserStorePath(), "/cfg/thermokit/registry.db");
    ::setenv("XDG_CONFIG_HOME", "relative", 1);  // not absolute: ignored
    ::setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(RegistryStore::UserStorePath(), "/home/someone/.config/thermokit/registry.db");
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(RegistryStore::UserStorePath(), "/home/someone/.config/thermokit/registry.db");

    if (oldXdg) ::setenv("XDG_CONFIG_HOME", keepXdg.c_str(), 1);
    if (oldHome) ::setenv("HOME", keepHome.c_str(), 1);
    else ::unsetenv("HOME");
    ::setenv("THERMOKIT_MACHINE_STORE", m_machine.c_str(), 1);
    ::setenv("THERMOKIT_USER_STORE", m_user.c_str(), 1);
    ::setenv("THERMOKIT_ADMIN", "yes", 1);  // anything else: the effective user decides
    EXPECT_EQ(CRegistry::IsUserAdmin(), ::geteuid() == 0 ? 1 : 0);
#endif
    ::setenv("THERMOKIT_ADMIN", "1", 1);
    EXPECT_EQ(CRegistry::IsUserAdmin(), 1);
    ::setenv("THERMOKIT_ADMIN", "0", 1);
    EXPECT_EQ(CRegistry::IsUserAdmin(), 0);
}

#if !defined(_WIN32)  // files and their modes: the SQLite store
TEST_F(StoreTest, UserStoreIsPrivateAndFoldersAreCreated) {
    const std::string dir = thermokit::test::TempPath("dir");
    m_user = dir + "/sub/registry.db";
    ::setenv("THERMOKIT_USER_STORE", m_user.c_str(), 1);
    ::umask(0022);
    CRegistry reg(CRegistry::Setup);
    ASSERT_TRUE(reg.m_hKeyUser);
    EXPECT_EQ(reg.SetINTValue("Point", 640), 1);
    struct stat st {};
    ASSERT_EQ(::stat(m_user.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // An existing user file with a wider mode is set back to 0600.
    ::chmod(m_user.c_str(), 0644);
    CRegistry again(CRegistry::Setup);
    ASSERT_EQ(::stat(m_user.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(again.GetINTValue("Point", 0), 640);
    struct stat dst {};
    ASSERT_EQ(::stat(dir.c_str(), &dst), 0);
    EXPECT_EQ(dst.st_mode & 0777, 0700u);  // folders made for the user store are private too
    std::remove(m_user.c_str());
    ::rmdir((dir + "/sub").c_str());
    ::rmdir(dir.c_str());
}
#endif

TEST_F(StoreTest, ReadsUserThenMachineThenDefault) {
    PutText(RegistryRoot::Machine, kSetup, "Lens", "machine lens");
    PutText(RegistryRoot::Machine, kSetup, "Camera", "machine camera");
    PutText(RegistryRoot::User, kSetup, "Camera", "user camera");

    CRegistry reg(CRegistry::Setup);
    EXPECT_EQ(reg.GetSTRINGValue("Camera", "d"), "user camera");
    EXPECT_EQ(reg.GetSTRINGValue("camera", "d"), "user camera");
    EXPECT_EQ(reg.GetSTRINGValue("Lens", "d"), "machine lens");
    EXPECT_EQ(reg.GetSTRINGValue("Serial", "d"), "d");
    EXPECT_EQ(reg.GetSTRINGValue("Serial", nullptr), "");
    EXPECT_EQ(reg.GetHKey(), reg.m_hKeyUser);

    // A user value of another type is a failed read: the machine's is used.
    ASSERT_EQ(OpenAt(RegistryRoot::User, kSetup, true).SetValue("Lens", REG_DWORD, "\1\0\0\0", 4), RegOk);
    EXPECT_EQ(reg.GetSTRINGValue("Lens", "d"), "machine lens");
}

TEST_F(StoreTest, AdministratorWriteRule) {
    // Non-administrator: the machine copy is not touched, the result is the user's.
    PutText(RegistryRoot::Machine, kSetup, "Other", "x");
    {
        CRegistry reg(CRegistry::Setup);
        ASSERT_TRUE(reg.m_hKeyMachine);
        EXPECT_FALSE(reg.m_hKeyMachine.IsWritable());
        EXPECT_EQ(reg.m_bAdmin, 0);
        EXPECT_EQ(reg.SetDWORDValue("Gain", 7), 1);
        EXPECT_EQ(reg.GetDWORDValue("Gain", 0), 7u);
    }
    EXPECT_FALSE(GetRaw(RegistryRoot::Machine, kSetup, "Gain", nullptr, nullptr));

    // Administrator: both copies.
    SetAdmin(true);
    {
        CRegistry reg(CRegistry::Setup);
        EXPECT_EQ(reg.m_bAdmin, 1);
        EXPECT_EQ(reg.SetDWORDValue("Gain", 9), 1);
    }
    EXPECT_EQ(Stored(RegistryRoot::Machine, kSetup, "Gain"), Raw(REG_DWORD, {9, 0, 0, 0}));

    // Administrator without a usable user copy: the machine write decides.
    {
        CRegistry reg(CRegistry::Setup);
        reg.m_hKeyUser = nullptr;
        EXPECT_EQ(reg.SetINTValue("OnlyMachine", 3), 1);
        reg.m_hKeyMachine = nullptr;
        EXPECT_EQ(reg.SetINTValue("Nowhere", 3), 0);
    }
    // A failed user write returns 0 at once: the machine is not written.
    {
        CRegistry reg(CRegistry::Setup);
        reg.m_hKeyUser = RegistryKey::OpenRoot(RegistryRoot::User, false).OpenSubKey(kSetup, false);
        ASSERT_TRUE(reg.m_hKeyUser);
        EXPECT_EQ(reg.SetINTValue("Blocked", 1), 0);
    }
    EXPECT_FALSE(GetRaw(RegistryRoot::Machine, kSetup, "Blocked", nullptr, nullptr));
}

TEST_F(StoreTest, NumberEncodingsAndParsing) {
    CRegistry reg(CRegistry::Setup);
    ASSERT_EQ(reg.SetINTValue("Int", -42), 1);
    EXPECT_EQ(Stored(RegistryRoot::User, kSetup, "Int"), Text("-42"));  // length includes the terminator
    EXPECT_EQ(reg.GetINTValue("Int", 0), -42);

    ASSERT_EQ(reg.SetDOUBLEValue("Double", 3.14159, 2), 1);
    EXPECT_EQ(Stored(RegistryRoot::User, kSetup, "Double"), Text("3.14"));
    EXPECT_DOUBLE_EQ(reg.GetDOUBLEValue("Double", 0.0), 3.14);
    ASSERT_EQ(reg.SetDOUBLEValue("Double0", 2.5, 0), 1);
    EXPECT_EQ(reg.GetSTRINGValue("Double0", ""), "2");  // printf rounds to even

    // "%d" semantics: leading number taken, text that does not parse gives
    // the default even when the machine has a good value.
    PutText(RegistryRoot::User, kSetup, "A", "12abc");
    PutText(RegistryRoot::User, kSetup, "B", "abc");
    PutText(RegistryRoot::Machine, kSetup, "B", "77");
    reg = CRegistry(CRegistry::Setup);  // now with the machine copy
    PutText(RegistryRoot::User, kSetup, "C", "  -8 ");
    EXPECT_EQ(reg.GetINTValue("A", 5), 12);
    EXPECT_EQ(reg.GetINTValue("B", 5), 5);
    EXPECT_EQ(reg.GetINTValue("C", 5), -8);
    PutText(RegistryRoot::User, kSetup, "D", "1.5e2xyz");
    EXPECT_DOUBLE_EQ(reg.GetDOUBLEValue("D", 0.0), 150.0);
    EXPECT_DOUBLE_EQ(reg.GetDOUBLEValue("B", -1.0), -1.0);

    // 49-byte buffer: 48 characters and the terminator fit, 49 do not and the
    // machine copy is read instead.
    PutText(RegistryRoot::User, kSetup, "Long", std::string(47, '0') + "7");
    EXPECT_EQ(reg.GetINTValue("Long", 5), 7);
    PutText(RegistryRoot::User, kSetup, "Long", std::string(48, '0') + "7");
    EXPECT_EQ(reg.GetINTValue("Long", 5), 5);
    PutText(RegistryRoot::Machine, kSetup, "Long", "9");
    CRegistry withMachine(CRegistry::Setup);
    EXPECT_EQ(withMachine.GetINTValue("Long", 5), 9);
    EXPECT_DOUBLE_EQ(withMachine.GetDOUBLEValue("Long", 5.0), 9.0);

    // Double-words, words and booleans are 4-byte double-words.
    ASSERT_EQ(reg.SetDWORDValue("Dw", 0xFFFFFFFFu), 1);
    EXPECT_EQ(reg.GetDWORDValue("Dw", 0), 0xFFFFFFFFu);
    EXPECT_EQ(reg.GetWORDValue("Dw", 0), 0xFFFF);
    ASSERT_EQ(reg.SetWORDValue("W", 65535), 1);
    EXPECT_EQ(Stored(RegistryRoot::User, kSetup, "W"), Raw(REG_DWORD, {0xFF, 0xFF, 0, 0}));
    ASSERT_EQ(reg.SetDWORDValue("Big", 0x12345u), 1);
    EXPECT_EQ(reg.GetWORDValue("Big", 0), 0x2345);  // the low word
    ASSERT_EQ(reg.SetBOOLValue("Flag", 1), 1);
    EXPECT_EQ(reg.GetBOOLValue("Flag", 0), 1);
    EXPECT_EQ(Stored(RegistryRoot::User, kSetup, "Flag"), Raw(REG_DWORD, {1, 0, 0, 0}));
    // A text value is not a double-word.
    EXPECT_EQ(reg.GetDWORDValue("Int", 11), 11u);
    EXPECT_EQ(reg.GetBOOLValue("Missing", 3), 3);
}

TEST_F(StoreTest, StringBuffers) {
    CRegistry reg(CRegistry::Setup);
    // The reader takes at most 255 bytes: 254 characters and the terminator.
    const std::string fits(254, 'a');
    const std::string tooLong(255, 'b');
    ASSERT_EQ(reg.SetSTRINGValue("Fits", fits.c_str()), 1);
    ASSERT_EQ(reg.SetSTRINGValue("TooLong", tooLong.c_str()), 1);
    EXPECT_EQ(reg.GetSTRINGValue("Fits", "d"), fits);
    EXPECT_EQ(reg.GetSTRINGValue("TooLong", "d"), "d");

    // The buffer form copies at most length - 1 characters.
    ASSERT_EQ(reg.SetSTRINGValue("Name", "ABCDEFGH"), 1);
    char buf[8];
    std::memset(buf, 'x', sizeof buf);
    reg.GetSTRINGValue("Name", "", buf, 5);
    EXPECT_STREQ(buf, "ABCD");
    EXPECT_EQ(buf[5], 'x');  // nothing written past length
    reg.GetSTRINGValue("Missing", "default text", buf, 8);
    EXPECT_STREQ(buf, "default");
    reg.GetSTRINGValue("Name", "", buf, 1);
    EXPECT_STREQ(buf, "");
    buf[0] = 'q';
    reg.GetSTRINGValue("Name", "", buf, 0);  // no room at all: untouched
    EXPECT_EQ(buf[0], 'q');
}

TEST_F(StoreTest, LegacyForm) {
    CRegistry reg(CRegistry::Setup);
    reg.m_bNewApi = 0;
    ASSERT_EQ(reg.SetDWORDValue("Count", 4000000000u), 1);
    ASSERT_EQ(reg.SetINTValue("Offset", -3), 1);
    ASSERT_EQ(reg.SetSTRINGValue("Label", "hello"), 1);

    // Each value is a sub-key whose default value holds text.
    EXPECT_EQ(Stored(RegistryRoot::User, std::string(kSetup) + "\\Count", ""), Text("4000000000"));
    EXPECT_EQ(Stored(RegistryRoot::User, std::string(kSetup) + "\\Offset", ""), Text("-3"));
    EXPECT_FALSE(GetRaw(RegistryRoot::User, kSetup, "Count", nullptr, nullptr));

    EXPECT_EQ(reg.GetDWORDValue("Count", 0), 4000000000u);
    EXPECT_EQ(reg.GetINTValue("Offset", 0), -3);
    EXPECT_EQ(reg.GetSTRINGValue("Label", ""), "hello");

    // Text that does not parse as "%lu" is a failed read: machine, then default.
    PutText(RegistryRoot::User, std::string(kSetup) + "\\Bad", "", "zz");
    EXPECT_EQ(reg.GetDWORDValue("Bad", 17), 17u);
    PutText(RegistryRoot::Machine, std::string(kSetup) + "\\Bad", "", "23");
    CRegistry again(CRegistry::Setup);
    again.m_bNewApi = 0;
    EXPECT_EQ(again.GetDWORDValue("Bad", 17), 23u);

    // 1,000 bytes or more (terminator included) are not written, yet reported done.
    const std::string written(998, 'w');
    const std::string skipped(999, 's');
    EXPECT_EQ(reg.SetSTRINGValue("Big", written.c_str()), 1);
    EXPECT_TRUE(OpenAt(RegistryRoot::User, std::string(kSetup) + "\\Big"));
    EXPECT_EQ(reg.SetSTRINGValue("Huge", skipped.c_str()), 1);
    EXPECT_FALSE(OpenAt(RegistryRoot::User, std::string(kSetup) + "\\Huge"));

    // Deleting a legacy value removes its sub-key.
    EXPECT_EQ(reg.DeleteValue("Label"), 1);
    EXPECT_FALSE(OpenAt(RegistryRoot::User, std::string(kSetup) + "\\Label"));
    EXPECT_EQ(reg.GetSTRINGValue("Label", "gone"), "gone");
}

TEST_F(StoreTest, WellKnownKeysAndTheirRoots) {
    SetAdmin(true);
    const char* const paths[] = {
        "Software\\Orbel\\Global Data",
        "Software\\Orbel\\Common Setup",
        "Software\\Orbel\\Application Data",
        "Software\\CurrentControlSet\\Services",
        "Software\\Orbel\\Common Setup\\Boards",
        "Software\\Orbel\\Common Setup\\Cameras",
        "Software\\Orbel\\Common Setup\\Detectors",
        "Software\\Orbel\\Common Setup\\Lenses",
        "Software\\Orbel\\Common Setup\\Setup",
        "Software\\Orbel\\Application Data\\Virtual Camera",
        "Software\\Orbel\\Install",
        "Software\\Orbel\\WindowPos",
        "Software\\Microsoft\\.NETFramework",
    };
    for (int k = 0; k < 12; ++k) {
        CRegistry reg(static_cast<CRegistry::RegKey>(k));
        EXPECT_EQ(reg.SetINTValue("Probe", k), 1) << k;
        const bool machine = k != 11;
        const bool user = k != 10;
        EXPECT_EQ(bool(reg.m_hKeyMachine), machine) << k;
        EXPECT_EQ(bool(reg.m_hKeyUser), user) << k;
        EXPECT_EQ(GetRaw(RegistryRoot::Machine, paths[k], "Probe", nullptr, nullptr), machine) << k;
        EXPECT_EQ(GetRaw(RegistryRoot::User, paths[k], "Probe", nullptr, nullptr), user) << k;
        EXPECT_STREQ(CRegistry::GetKeyPath(k), paths[k]);
    }
    // Key 3 lives under "Software", not under the system branch.
    EXPECT_FALSE(OpenAt(RegistryRoot::Machine, "System"));

    // Key 10 (machine only): writes succeed only for administrators.
    SetAdmin(false);
    {
        CRegistry reg(CRegistry::Install);
        ASSERT_TRUE(reg.m_hKeyMachine);
        EXPECT_EQ(reg.SetINTValue("Probe", 100), 0);
        EXPECT_EQ(reg.GetINTValue("Probe", -1), 10);
    }
    // Any other value opens nothing.
    CRegistry none(static_cast<CRegistry::RegKey>(13));
    EXPECT_FALSE(none.m_hKeyMachine);
    EXPECT_FALSE(none.m_hKeyUser);
    EXPECT_EQ(none.SetINTValue("x", 1), 0);
    EXPECT_EQ(none.GetINTValue("x", 6), 6);
    EXPECT_FALSE(none.GetHKey());
}

TEST_F(StoreTest, SubKeysChildrenDeletionAndCopy) {
    CRegistry reg(CRegistry::Cameras, "Kelm", "Lenses\\Wide");
    ASSERT_TRUE(reg.m_hKeyUser);
    EXPECT_EQ(reg.SetINTValue("Focal", 12), 1);
    EXPECT_TRUE(GetRaw(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras\\Kelm\\Lenses\\Wide", "Focal",
                       nullptr, nullptr));
    CRegistry emptySubs(CRegistry::Cameras, "", nullptr);
    EXPECT_EQ(emptySubs.GetHKey(), OpenAt(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras"));

    // GetChild descends (and creates) both keys.
    CRegistry cams(CRegistry::Cameras);
    EXPECT_EQ(cams.GetChild("Kelm"), 1);
    EXPECT_EQ(cams.GetChild("New"), 1);
    EXPECT_EQ(cams.SetSTRINGValue("Made", "yes"), 1);
    EXPECT_TRUE(OpenAt(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras\\Kelm\\New"));
    EXPECT_FALSE(cams.m_hKeyMachine);  // read-only machine key: not created, so gone

    // CopyRegistryTree copies values and sub-keys, keeping others.
    HKEY src = OpenAt(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras\\Kelm", true);
    HKEY dst = OpenAt(RegistryRoot::User, "Software\\Orbel\\Backup", true);
    ASSERT_EQ(dst.SetValue("Kept", REG_SZ, "k", 2), RegOk);
    EXPECT_EQ(CopyRegistryTree(src, dst), 1);
    CRegistry backup(dst);
    EXPECT_EQ(backup.GetSTRINGValue("Kept", ""), "k");
    backup.GetChild("Lenses");
    backup.GetChild("Wide");
    EXPECT_EQ(backup.GetINTValue("Focal", 0), 12);
    EXPECT_EQ(CopyRegistryTree(src, HKEY()), 0);
    EXPECT_EQ(CopyRegistryTree(src, RegistryKey::OpenRoot(RegistryRoot::User, false)), 0);  // read-only target

    // Copying a key into its own sub-key terminates (the source is read first).
    HKEY inner = src.OpenSubKey("Inner", true);
    EXPECT_EQ(CopyRegistryTree(src, inner), 1);
    EXPECT_TRUE(src.OpenSubKey("Inner\\Lenses\\Wide", false));

    // DeleteKey removes a sub-key with its sub-keys; a path names the last one.
    CRegistry camsAgain(CRegistry::Cameras);
    EXPECT_EQ(camsAgain.DeleteKey("Kelm\\Lenses"), 1);
    EXPECT_FALSE(OpenAt(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras\\Kelm\\Lenses"));
    EXPECT_TRUE(OpenAt(RegistryRoot::User, "Software\\Orbel\\Common Setup\\Cameras\\Kelm"));
    EXPECT_EQ(camsAgain.DeleteKey("Kelm"), 1);
    EXPECT_EQ(camsAgain.DeleteKey("Kelm"), 0);
    EXPECT_EQ(camsAgain.DeleteKey(""), 0);
    EXPECT_EQ(reg.SetINTValue("Focal", 1), 0);  // its key was deleted
    EXPECT_EQ(camsAgain.DeleteValue("Nothing"), 0);
}

TEST_F(StoreTest, OtherConstructors) {
    SetAdmin(true);
    {
        CRegistry board("drv", "dev", 1, 2, 1, 1);
        EXPECT_EQ(board.m_bNewApi, 1);
        EXPECT_FALSE(board.m_hKeyUser);
        EXPECT_EQ(board.SetINTValue("Rate", 5), 1);
    }
    EXPECT_TRUE(GetRaw(RegistryRoot::Machine, "System\\CurrentControlSet\\Services\\drv\\dev\\Board 1\\Channel 2",
                       "Rate", nullptr, nullptr));
    {
        CRegistry board("drv", "", -1, 0, 0, 0);
        EXPECT_EQ(board.m_bNewApi, 0);
        EXPECT_TRUE(board.m_hKeyUser);
        EXPECT_EQ(board.SetINTValue("Rate", 6), 1);
    }
    EXPECT_TRUE(OpenAt(RegistryRoot::User, "Software\\Orbel\\Marlon\\drv\\Channel 0\\Rate"));
    {
        CRegistry quorin("Viewer", 3);
        EXPECT_EQ(quorin.m_bNewApi, 0);
        EXPECT_EQ(quorin.SetDWORDValue("Runs", 2), 1);
    }
    EXPECT_TRUE(GetRaw(RegistryRoot::User, "Software\\Orbel\\Setup\\Quorin\\Viewer\\3\\Runs", "", nullptr, nullptr));
}

// ----- broken stores ---------------------------------------------------------

#if !defined(_WIN32)  // the SQLite store's files
TEST_F(StoreTest, CorruptOrForeignStoresGiveDefaultsAndStayUntouched) {
    const std::string garbage = std::string("this is not a settings database\n") + std::string(5000, '\x5a');
    thermokit::test::WriteText(m_user, garbage);
    thermokit::test::WriteText(m_machine, garbage);
    for (bool admin : {false, true}) {
        SetAdmin(admin);
        CRegistry reg(CRegistry::Setup);
        EXPECT_FALSE(reg.m_hKeyUser);
        EXPECT_FALSE(reg.m_hKeyMachine);
        EXPECT_EQ(reg.GetINTValue("Point", 320), 320);
        EXPECT_EQ(reg.GetSTRINGValue("Camera", "Kelm"), "Kelm");
        EXPECT_EQ(reg.SetINTValue("Point", 640), 0);
        EXPECT_EQ(reg.SetSTRINGValue("Camera", "x"), 0);
        EXPECT_EQ(reg.DeleteKey("x"), 0);
    }
    EXPECT_EQ(thermokit::test::ReadText(m_user), garbage);
    EXPECT_EQ(thermokit::test::ReadText(m_machine), garbage);
    EXPECT_FALSE(std::filesystem::exists(m_user + "-journal"));

    // A valid SQLite database of another program is not ours either.
    std::remove(m_user.c_str());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(m_user.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE other(x); INSERT INTO other VALUES(1);", nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    const std::string before = thermokit::test::ReadText(m_user);
    SetAdmin(false);
    CRegistry reg(CRegistry::Setup);
    EXPECT_FALSE(reg.m_hKeyUser);
    EXPECT_EQ(reg.SetINTValue("Point", 1), 0);
    EXPECT_EQ(thermokit::test::ReadText(m_user), before);

    // A store of ours whose schema was changed runs no code of the file's: a
    // view that loops forever, a trigger, an extra column or index are each
    // refused at once, with the reason, and the file is left as it is.
    for (const char* change :
         {"DROP TABLE keys; CREATE VIEW keys(id, parent, name) AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
          "SELECT i + 1 FROM n) SELECT i, 1, 'x' FROM n;",
          "CREATE TRIGGER t AFTER INSERT ON vals BEGIN DELETE FROM vals; END;",
          "ALTER TABLE vals ADD COLUMN extra;", "CREATE INDEX i ON vals(type);"}) {
        std::remove(m_user.c_str());
        ASSERT_TRUE(RegistryKey::OpenRoot(RegistryRoot::User, true).OpenSubKey("A\\B", true));
        ASSERT_EQ(sqlite3_open(m_user.c_str(), &db), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(db, change, nullptr, nullptr, nullptr), SQLITE_OK) << change;
        sqlite3_close(db);
        const std::string altered = thermokit::test::ReadText(m_user);
        std::string why;
        EXPECT_FALSE(RegistryKey::OpenRoot(RegistryRoot::User, true, &why)) << change;
        EXPECT_EQ(why, "not a settings store of this version (its tables are not the store's own)");
        CRegistry alteredStore(CRegistry::Setup);
        EXPECT_EQ(alteredStore.GetINTValue("Point", 320), 320);
        EXPECT_EQ(alteredStore.SetINTValue("Point", 1), 0);
        EXPECT_EQ(thermokit::test::ReadText(m_user), altered);
    }

    // A store that is a folder, or whose folder cannot be made, is no store.
    ::setenv("THERMOKIT_USER_STORE", ::testing::TempDir().c_str(), 1);
    std::string why;
    EXPECT_FALSE(RegistryKey::OpenRoot(RegistryRoot::User, true, &why));
    EXPECT_EQ(why, "not a settings store (not a regular file)");
    const std::string blocked = m_user + "/below/registry.db";  // m_user is a file
    ::setenv("THERMOKIT_USER_STORE", blocked.c_str(), 1);
    EXPECT_FALSE(RegistryKey::OpenRoot(RegistryRoot::User, true));
    ::setenv("THERMOKIT_USER_STORE", m_user.c_str(), 1);
}
#endif

TEST_F(StoreTest, MissingStoresReadDefaultsAndReadersCreateNothing) {
    SetAdmin(false);
    {
        CRegistry reg(CRegistry::Install);  // machine only, machine store missing
        EXPECT_FALSE(reg.m_hKeyMachine);
        EXPECT_EQ(reg.GetDWORDValue("Version", 42), 42u);
        EXPECT_EQ(reg.SetDWORDValue("Version", 1), 0);
    }
    EXPECT_FALSE(RegistryStore::Exists(m_machine));
    EXPECT_FALSE(RegistryKey::OpenRoot(RegistryRoot::User, false));
    EXPECT_FALSE(RegistryStore::Exists(m_user));
}
