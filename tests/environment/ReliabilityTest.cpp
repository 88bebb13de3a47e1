// The store under real processes: killed writers, concurrent writers, and
// the promises about what is never written. (On Windows the store is the
// system registry: only the promises apply, checked on the registry's keys.)
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#if !defined(_WIN32)
#include <sqlite3.h>
#endif

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include "support/ChildProcess.h"
#endif
#include "support/StoreFixture.h"
#include "support/ToolRun.h"
#include "thermokit/environment/CConfig.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/environment/RegistryStore.h"
#include "thermokit/platform/Messages.h"

using namespace thermokit;
using thermokit::test::StoreTest;
#if !defined(_WIN32)
using thermokit::test::Join;
using thermokit::test::Kill;
using thermokit::test::Spawn;
#endif

namespace {

const char* const kSetup = "Software\\Orbel\\Common Setup\\Setup";

#if !defined(_WIN32)
std::string IntegrityCheck(const std::string& path) {
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &st, nullptr) == SQLITE_OK &&
            sqlite3_step(st) == SQLITE_ROW) {
            result = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
        }
        sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return result;
}

int ReadRawInt(RegistryRoot root, const std::string& name) {
    HKEY key = RegistryKey::OpenRoot(root, false).OpenSubKey(kSetup, false);
    unsigned long type = 0;
    std::vector<unsigned char> data;
    if (!key || key.QueryValue(name, &type, &data) != RegOk || data.empty()) return -1;
    return std::atoi(reinterpret_cast<const char*>(data.data()));
}

#endif

#if defined(_WIN32)
// A store as it stands: every key and value below its root, in order.
struct FileState {
    std::vector<char> bytes;
    bool operator==(const FileState& o) const { return bytes == o.bytes; }
};

void Flatten(const RegistryTree& tree, const std::string& path, std::vector<char>& out) {
    for (const auto& v : tree.values) {
        const std::string head = path + "|" + v.name + "|" + std::to_string(v.type) + "|";
        out.insert(out.end(), head.begin(), head.end());
        out.insert(out.end(), v.data.begin(), v.data.end());
        out.push_back('\n');
    }
    for (const auto& k : tree.keys) Flatten(k, path + "\\" + k.name, out);
}

FileState StateOf(const std::string& path) {
    FileState s;
    RegistryTree tree;
    if (RegistryKey::OpenRootAt(path, false, false).ReadTree(&tree) == RegOk) Flatten(tree, "", s.bytes);
    return s;
}
#else
struct FileState {
    std::string bytes;
    struct timespec mtime {};
    bool operator==(const FileState& o) const {
        return bytes == o.bytes && mtime.tv_sec == o.mtime.tv_sec && mtime.tv_nsec == o.mtime.tv_nsec;
    }
};

FileState StateOf(const std::string& path) {
    FileState s;
    s.bytes = thermokit::test::ReadText(path);
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) s.mtime = st.st_mtim;
    return s;
}
#endif

}  // namespace

#if !defined(_WIN32)  // fork() and the SQLite journal
TEST_F(StoreTest, KilledWriterLeavesOldOrNewValue) {
    SetAdmin(true);
    for (int round = 0; round < 4; ++round) {
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        const pid_t pid = Spawn([&] {
            ::close(fds[0]);
            CRegistry reg(CRegistry::Setup);
            const std::string payload(3000, static_cast<char>('a' + round));
            for (int i = 1;; ++i) {
                // Several statements per round, so that the kill lands inside
                // a transaction as often as between two.
                if (!reg.SetSTRINGValue("Payload", (payload + std::to_string(i)).c_str())) return 3;
                if (!reg.SetINTValue("Counter", i)) return 4;
                if (::write(fds[1], &i, sizeof i) != sizeof i) return 5;
            }
        });
        ASSERT_GE(pid, 0);
        ::close(fds[1]);
        int last = 0;
        int got = 0;
        while (got < 5 + round * 3 && ::read(fds[0], &last, sizeof last) == sizeof last) ++got;
        ASSERT_EQ(Kill(pid), -SIGKILL) << "the writer stopped on its own";
        int more = 0;
        while (::read(fds[0], &more, sizeof more) == sizeof more) last = more;
        ::close(fds[0]);

        // The last confirmed value, or the one after it, in either store.
        for (RegistryRoot root : {RegistryRoot::User, RegistryRoot::Machine}) {
            const int v = ReadRawInt(root, "Counter");
            EXPECT_TRUE(v == last || v == last + 1) << "round " << round << ": " << v << " after " << last;
        }
        CRegistry reg(CRegistry::Setup);
        const int seen = reg.GetINTValue("Counter", -1);
        EXPECT_TRUE(seen == last || seen == last + 1);
        // The payload is whole: its letters, then a number next to the counter.
        std::string payload;
        {
            std::vector<unsigned char> data;
            unsigned long type = 0;
            ASSERT_EQ(reg.m_hKeyUser.QueryValue("Payload", &type, &data), RegOk);
            payload.assign(data.begin(), data.end());
        }
        ASSERT_GT(payload.size(), 3000u);
        EXPECT_EQ(payload.substr(0, 3000), std::string(3000, static_cast<char>('a' + round)));
        const int p = std::atoi(payload.c_str() + 3000);
        EXPECT_TRUE(p == seen || p == seen + 1) << p << " beside counter " << seen;
        // Both stores are whole and take new writes.
        EXPECT_EQ(reg.SetINTValue("After", round), 1);
        EXPECT_EQ(IntegrityCheck(m_user), "ok");
        EXPECT_EQ(IntegrityCheck(m_machine), "ok");
    }
}

TEST_F(StoreTest, ConcurrentWritersLoseNothing) {
    SetAdmin(true);
    constexpr int kValues = 40;
    CRegistry(CRegistry::Setup, "Race");  // stores and key exist before the race
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::vector<pid_t> children;
    for (int who = 0; who < 2; ++who) {
        const pid_t pid = Spawn([&] {
            ::close(gate[1]);
            char c;
            (void)::read(gate[0], &c, 1);  // released together when the parent closes the pipe
            CRegistry reg(CRegistry::Setup, "Race");
            int failures = 0;
            for (int i = 0; i < kValues; ++i) {
                const std::string name = Format("P%d_%d", who, i);
                if (!reg.SetINTValue(name.c_str(), who * 1000 + i)) ++failures;
                if (!reg.SetINTValue("Shared", who)) ++failures;
            }
            return failures > 250 ? 250 : failures;
        });
        ASSERT_GE(pid, 0);
        children.push_back(pid);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    for (pid_t pid : children) EXPECT_EQ(Join(pid), 0) << "failed writes in a child";
    for (RegistryRoot root : {RegistryRoot::User, RegistryRoot::Machine}) {
        HKEY key = RegistryKey::OpenRoot(root, false).OpenSubKey(std::string(kSetup) + "\\Race", false);
        ASSERT_TRUE(key);
        std::vector<RegistryValue> values;
        ASSERT_EQ(key.EnumValues(&values), RegOk);
        EXPECT_EQ(values.size(), 2u * kValues + 1);
        CRegistry reg(key);
        for (int who = 0; who < 2; ++who) {
            for (int i = 0; i < kValues; ++i) {
                EXPECT_EQ(reg.GetINTValue(Format("P%d_%d", who, i).c_str(), -1), who * 1000 + i);
            }
        }
        const int shared = reg.GetINTValue("Shared", -1);
        EXPECT_TRUE(shared == 0 || shared == 1);
    }
}

#endif

TEST_F(StoreTest, NonAdministratorNeverWritesTheMachineStore) {
    // A machine store with content, made by an administrator.
    SetAdmin(true);
    for (int k = 0; k < 12; ++k) CRegistry(static_cast<CRegistry::RegKey>(k)).SetINTValue("Seed", k);
    CRegistry(CRegistry::Setup, "Sub").SetINTValue("Seed", 1);
    const FileState before = StateOf(m_machine);
    ASSERT_FALSE(before.bytes.empty());

    SetAdmin(false);
    for (int k = 0; k < CRegistry::kKeyCount; ++k) {
        CRegistry reg(static_cast<CRegistry::RegKey>(k), "New");
        reg.SetINTValue("Seed", 100);
        reg.SetSTRINGValue("S", "x");
        reg.SetDWORDValue("D", 1);
        reg.SetDOUBLEValue("F", 1.5, 2);
        reg.SetBOOLValue("B", 1);
        reg.SetWORDValue("W", 2);
        reg.m_bNewApi = 0;
        reg.SetINTValue("Legacy", 3);
        CRegistry top(static_cast<CRegistry::RegKey>(k));
        top.DeleteValue("Seed");
        top.DeleteKey("Sub");
        top.GetChild("Child");
        top.SetINTValue("Seed", 5);
    }
    CConfig config;
    config.SetCamera("user camera");
    config.SetRegistry();
    HKEY machineRoot = RegistryKey::OpenRoot(RegistryRoot::Machine, false);
    EXPECT_EQ(CopyRegistryTree(RegistryKey::OpenRoot(RegistryRoot::User, true), machineRoot), 0);

    EXPECT_TRUE(StateOf(m_machine) == before) << "the machine store changed";
#if !defined(_WIN32)
    EXPECT_FALSE(std::filesystem::exists(m_machine + "-journal"));
#endif
    // And the machine's values still read through.
    EXPECT_EQ(CRegistry(CRegistry::Install).GetINTValue("Seed", -1), 10);
    EXPECT_EQ(CConfig(1).GetCamera(), "user camera");

    // Without a machine store at all, none is created.
    RegistryStore::Remove(m_machine);
    CRegistry(CRegistry::Setup).SetINTValue("x", 1);
    CRegistry(CRegistry::Install).SetINTValue("x", 1);
    EXPECT_FALSE(RegistryStore::Exists(m_machine));
}

TEST_F(StoreTest, ReadOnlyKeyIsNeverWritten) {
    SetAdmin(true);
    {
        // Machine only, and read-only even for an administrator: a missing key stays missing.
        CRegistry reg(CRegistry::NetFramework);
        EXPECT_FALSE(reg.m_hKeyMachine);
        EXPECT_FALSE(reg.m_hKeyUser);
        EXPECT_EQ(reg.SetINTValue("A", 1), 0);
    }
    {
        HKEY net = RegistryKey::OpenRoot(RegistryRoot::Machine, true)
                       .OpenSubKey("Software\\Microsoft\\.NETFramework\\Policy", true);
        ASSERT_TRUE(net);
        ASSERT_EQ(net.SetValue("Version", REG_SZ, "4", 2), RegOk);
    }
    const FileState before = StateOf(m_machine);
    {
        CRegistry reg(CRegistry::NetFramework);
        ASSERT_TRUE(reg.m_hKeyMachine);
        EXPECT_EQ(reg.m_bAdmin, 0);
        EXPECT_EQ(reg.SetINTValue("A", 1), 0);
        EXPECT_EQ(reg.SetSTRINGValue("A", "x"), 0);
        EXPECT_EQ(reg.SetDWORDValue("A", 1), 0);
        EXPECT_EQ(reg.SetWORDValue("A", 1), 0);
        EXPECT_EQ(reg.SetBOOLValue("A", 1), 0);
        EXPECT_EQ(reg.SetDOUBLEValue("A", 1.0, 1), 0);
        EXPECT_EQ(reg.DeleteKey("Policy"), 0);
        reg.m_bAdmin = 1;  // even forced, the key itself is read-only
        EXPECT_EQ(reg.SetINTValue("A", 1), 0);
        EXPECT_EQ(reg.GetChild("Policy"), 1);
        EXPECT_EQ(reg.GetSTRINGValue("Version", ""), "4");
        EXPECT_EQ(reg.DeleteValue("Version"), 0);
        EXPECT_EQ(reg.GetChild("Missing"), 0);
        CRegistry withSub(CRegistry::NetFramework, "Created");
        EXPECT_FALSE(withSub.m_hKeyMachine);
    }
    EXPECT_TRUE(StateOf(m_machine) == before);
}

#if !defined(_WIN32)  // the SQLite store's files, fork() and its transactions
TEST_F(StoreTest, CorruptStoreFileIsLeftAlone) {
    // A store file cut short in the middle of its pages.
    SetAdmin(true);
    {
        CRegistry reg(CRegistry::Setup);
        reg.m_hKeyMachine = nullptr;
        for (int i = 0; i < 40; ++i) reg.SetSTRINGValue(Format("V%d", i).c_str(), std::string(250, 'v').c_str());
    }
    std::string bytes = thermokit::test::ReadText(m_user);
    ASSERT_GT(bytes.size(), 8192u);
    std::memset(bytes.data() + 4096, 0xEE, 4096);  // overwrite a page in the middle
    std::memset(bytes.data(), 0x00, 100);          // and the database header
    thermokit::test::WriteText(m_user, bytes);
    const FileState before = StateOf(m_user);

    const int status = Join(Spawn([] {
        CRegistry reg(CRegistry::Setup);
        reg.m_hKeyMachine = nullptr;  // only the broken user store
        if (reg.GetSTRINGValue("V1", "default") != "default") return 1;
        if (reg.SetINTValue("New", 1) != 0) return 2;
        CConfig config(1);
        if (config.GetCamera() != "Kelm") return 3;
        return 0;
    }));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(StateOf(m_user) == before);
}

TEST_F(StoreTest, BatchIsAllOrNothing) {
    SetAdmin(false);
    CRegistry(CRegistry::Setup).SetINTValue("Before", 1);
    // A writer killed inside a batch leaves none of the batch's values.
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    const pid_t pid = Spawn([&]() -> int {
        ::close(fds[0]);
        CRegistry reg(CRegistry::Setup);
        RegistryBatch batch(reg.m_hKeyUser);
        for (int i = 0; i < 50; ++i) reg.SetINTValue(Format("B%d", i).c_str(), i);
        reg.SetINTValue("Before", 2);
        const char done = 1;
        (void)::write(fds[1], &done, 1);
        for (;;) ::pause();
    });
    ::close(fds[1]);
    char c = 0;
    ASSERT_EQ(::read(fds[0], &c, 1), 1);
    ::close(fds[0]);
    Kill(pid);
    {
        CRegistry reg(CRegistry::Setup);
        EXPECT_EQ(reg.GetINTValue("B0", -1), -1);
        EXPECT_EQ(reg.GetINTValue("B49", -1), -1);
        EXPECT_EQ(reg.GetINTValue("Before", -1), 1);
        EXPECT_EQ(IntegrityCheck(m_user), "ok");
    }

    // Inside a batch each change stands on its own; others see them only after the commit.
    CRegistry reg(CRegistry::Setup);
    HKEY doomed = reg.m_hKeyUser.OpenSubKey("Doomed", true);
    ASSERT_TRUE(doomed);
    {
        RegistryBatch batch(reg.m_hKeyUser);
        EXPECT_EQ(reg.SetINTValue("In1", 1), 1);
        EXPECT_EQ(reg.m_hKeyUser.DeleteSubKey("Doomed"), RegOk);
        EXPECT_EQ(doomed.SetValue("x", REG_SZ, "", 1), RegKeyDeleted);  // fails alone
        EXPECT_EQ(reg.SetINTValue("In2", 2), 1);
        EXPECT_EQ(reg.GetINTValue("In1", 0), 1);  // this connection sees its own changes
        if (!std::string(THERMOKIT_TOOL_PATH).empty()) {
            // Another process does not find the value yet.
            EXPECT_EQ(thermokit::test::RunTool("registry get setup In1", thermokit::test::ToolErrors::kDiscarded).status, 1);
        }
        EXPECT_TRUE(batch.Commit());
        EXPECT_TRUE(batch.Commit());  // once only
    }
    CRegistry after(CRegistry::Setup);
    EXPECT_EQ(after.GetINTValue("In1", 0), 1);
    EXPECT_EQ(after.GetINTValue("In2", 0), 2);
    EXPECT_FALSE(after.m_hKeyUser.OpenSubKey("Doomed", false));
    RegistryBatch none(HKEY{});
    EXPECT_TRUE(none.Commit());
}
#endif
