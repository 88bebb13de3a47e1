#include "thermokit/environment/RegistryStore.h"

#include <fcntl.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

namespace thermokit {

namespace {

// Marks our databases ("TKRG"); a database with another mark is not ours.
constexpr int kApplicationId = 0x544B5247;
constexpr int kSchemaVersion = 1;
constexpr int64_t kRootId = 1;
// sqlite waits this long for a lock before giving up one attempt...
constexpr int kBusyTimeoutMs = 2000;
// ...and we try this many times before reporting RegBusy.
constexpr int kAttempts = 20;
// Deeper trees are refused (guards against a hand-edited database with a loop).
constexpr int kMaxDepth = 512;

// The two tables, as created and as SQLite keeps their text in its schema
// table ("CREATE TABLE " and the rest; "IF NOT EXISTS" is never kept).
#define THERMOKIT_KEYS_TABLE                \
    "keys("                                 \
    "  id INTEGER PRIMARY KEY,"             \
    "  parent INTEGER,"                     \
    "  name TEXT NOT NULL COLLATE NOCASE,"  \
    "  UNIQUE(parent, name))"
#define THERMOKIT_VALS_TABLE                \
    "vals("                                 \
    "  key INTEGER NOT NULL,"               \
    "  name TEXT NOT NULL COLLATE NOCASE,"  \
    "  type INTEGER NOT NULL,"              \
    "  data BLOB NOT NULL,"                 \
    "  PRIMARY KEY(key, name)) WITHOUT ROWID"
const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS " THERMOKIT_KEYS_TABLE ";"
    "CREATE TABLE IF NOT EXISTS " THERMOKIT_VALS_TABLE ";"
    "INSERT OR IGNORE INTO keys(id, parent, name) VALUES(1, NULL, '');";
const char* const kKeysSql = "CREATE TABLE " THERMOKIT_KEYS_TABLE;
const char* const kValsSql = "CREATE TABLE " THERMOKIT_VALS_TABLE;
#undef THERMOKIT_KEYS_TABLE
#undef THERMOKIT_VALS_TABLE

// Work one statement step may do, in SQLite's virtual machine instructions,
// before it is interrupted: a settings store answers in a few thousand; a
// database made to loop (or grown absurdly) gets an error instead.
constexpr int kProgressPeriod = 1000;
constexpr long kProgressCalls = 100000;
thread_local long t_progressCalls = 0;

int OnProgress(void*) { return ++t_progressCalls > kProgressCalls ? 1 : 0; }

// A prepared statement that finalizes itself.
class Stmt {
public:
    Stmt(sqlite3* db, const char* sql) { m_rc = sqlite3_prepare_v2(db, sql, -1, &m_stmt, nullptr); }
    ~Stmt() { sqlite3_finalize(m_stmt); }
    Stmt(const Stmt&) = delete;
    Stmt& operator=(const Stmt&) = delete;
    bool Ok() const { return m_rc == SQLITE_OK && m_stmt; }
    sqlite3_stmt* get() const { return m_stmt; }
    void Bind(int i, int64_t v) { sqlite3_bind_int64(m_stmt, i, v); }
    void Bind(int i, const std::string& s) {
        sqlite3_bind_text(m_stmt, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
    }
    void BindBlob(int i, const void* data, size_t size) {
        static const unsigned char empty = 0;
        sqlite3_bind_blob(m_stmt, i, size ? data : &empty, static_cast<int>(size), SQLITE_TRANSIENT);
    }
    // Steps, retrying while another connection holds the lock (only before
    // the first row, so no row is ever skipped).
    int Step() {
        for (int attempt = 0;; ++attempt) {
            t_progressCalls = 0;
            const int rc = sqlite3_step(m_stmt);
            if ((rc == SQLITE_BUSY || rc == SQLITE_LOCKED) && !m_stepped && attempt + 1 < kAttempts) {
                sqlite3_reset(m_stmt);
                std::this_thread::sleep_for(std::chrono::milliseconds(5 + attempt * 5));
                continue;
            }
            m_stepped = true;
            return rc;
        }
    }
    int64_t Int(int col) const { return sqlite3_column_int64(m_stmt, col); }
    std::string Text(int col) const {
        const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, col));
        return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(m_stmt, col))) : std::string();
    }
    std::vector<unsigned char> Blob(int col) const {
        const auto* p = static_cast<const unsigned char*>(sqlite3_column_blob(m_stmt, col));
        const int n = sqlite3_column_bytes(m_stmt, col);
        return p && n > 0 ? std::vector<unsigned char>(p, p + n) : std::vector<unsigned char>();
    }

private:
    sqlite3_stmt* m_stmt = nullptr;
    int m_rc = SQLITE_ERROR;
    bool m_stepped = false;
};

long FromSqlite(int rc) {
    switch (rc & 0xFF) {
        case SQLITE_OK:
        case SQLITE_DONE:
        case SQLITE_ROW:
            return RegOk;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return RegBusy;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return RegAccessDenied;
        default:
            return RegBadDb;
    }
}

// Runs a statement without results, retrying on a busy database.
int Exec(sqlite3* db, const char* sql) {
    Stmt st(db, sql);
    if (!st.Ok()) return sqlite3_errcode(db) ? sqlite3_errcode(db) : SQLITE_ERROR;
    int rc;
    while ((rc = st.Step()) == SQLITE_ROW) {
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

// BEGIN IMMEDIATE takes the write lock at once, so two writers never
// deadlock: the second one waits (busy timeout) and then retries.
int BeginWrite(sqlite3* db) {
    int rc = SQLITE_BUSY;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        rc = Exec(db, "BEGIN IMMEDIATE");
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED) return rc;
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + attempt * 10));
    }
    return rc;
}

int CommitWrite(sqlite3* db) {
    int rc = SQLITE_BUSY;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        rc = Exec(db, "COMMIT");
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED) return rc;
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + attempt * 10));
    }
    return rc;
}

void Rollback(sqlite3* db) {
    if (!sqlite3_get_autocommit(db)) Exec(db, "ROLLBACK");
}

// Creates the folders of a path (all but the last component).
bool MakeParentDirs(const std::string& path, mode_t mode) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0) return true;
    const std::string dir = path.substr(0, slash);
    struct stat st {};
    if (::stat(dir.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    if (!MakeParentDirs(dir, mode)) return false;
    return ::mkdir(dir.c_str(), mode) == 0 || errno == EEXIST;
}

std::string EnvOrEmpty(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::string(v) : std::string();
}

bool KeyExists(sqlite3* db, int64_t id) {
    Stmt st(db, "SELECT 1 FROM keys WHERE id = ?1");
    if (!st.Ok()) return false;
    st.Bind(1, id);
    return st.Step() == SQLITE_ROW;
}

// Looks a direct sub-key up: its id, 0 when missing, -1 on a database error.
int64_t FindChild(sqlite3* db, int64_t parent, const std::string& name) {
    Stmt st(db, "SELECT id FROM keys WHERE parent = ?1 AND name = ?2");
    if (!st.Ok()) return -1;
    st.Bind(1, parent);
    st.Bind(2, name);
    const int rc = st.Step();
    if (rc == SQLITE_ROW) return st.Int(0);
    return rc == SQLITE_DONE ? 0 : -1;
}

int64_t CreateChild(sqlite3* db, int64_t parent, const std::string& name) {
    Stmt st(db, "INSERT INTO keys(parent, name) VALUES(?1, ?2)");
    if (!st.Ok()) return -1;
    st.Bind(1, parent);
    st.Bind(2, name);
    if (st.Step() != SQLITE_DONE) return -1;
    return sqlite3_last_insert_rowid(db);
}

long PutValue(sqlite3* db, int64_t key, const std::string& name, unsigned long type, const void* data,
              size_t size) {
    Stmt st(db,
            "INSERT INTO vals(key, name, type, data) VALUES(?1, ?2, ?3, ?4) "
            "ON CONFLICT(key, name) DO UPDATE SET type = excluded.type, data = excluded.data");
    if (!st.Ok()) return RegBadDb;
    st.Bind(1, key);
    st.Bind(2, name);
    st.Bind(3, static_cast<int64_t>(type));
    st.BindBlob(4, data, size);
    const int rc = st.Step();
    return rc == SQLITE_DONE ? RegOk : FromSqlite(rc);
}

long ReadTreeAt(sqlite3* db, int64_t id, RegistryTree* tree, int depth) {
    if (depth > kMaxDepth) return RegBadDb;
    {
        Stmt st(db, "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY name");
        if (!st.Ok()) return RegBadDb;
        st.Bind(1, id);
        int rc;
        while ((rc = st.Step()) == SQLITE_ROW) {
            tree->values.push_back(RegistryValue{st.Text(0), static_cast<unsigned long>(st.Int(1)), st.Blob(2)});
        }
        if (rc != SQLITE_DONE) return FromSqlite(rc);
    }
    std::vector<std::pair<int64_t, std::string>> children;
    {
        Stmt st(db, "SELECT id, name FROM keys WHERE parent = ?1 ORDER BY name");
        if (!st.Ok()) return RegBadDb;
        st.Bind(1, id);
        int rc;
        while ((rc = st.Step()) == SQLITE_ROW) children.emplace_back(st.Int(0), st.Text(1));
        if (rc != SQLITE_DONE) return FromSqlite(rc);
    }
    for (const auto& [childId, childName] : children) {
        RegistryTree child;
        child.name = childName;
        const long r = ReadTreeAt(db, childId, &child, depth + 1);
        if (r != RegOk) return r;
        tree->keys.push_back(std::move(child));
    }
    return RegOk;
}

long WriteTreeAt(sqlite3* db, int64_t id, const RegistryTree& tree, int depth) {
    if (depth > kMaxDepth) return RegBadDb;
    for (const auto& v : tree.values) {
        const long r = PutValue(db, id, v.name, v.type, v.data.data(), v.data.size());
        if (r != RegOk) return r;
    }
    for (const auto& k : tree.keys) {
        if (k.name.empty() || k.name.find('\\') != std::string::npos) return RegInvalidName;
        int64_t child = FindChild(db, id, k.name);
        if (child == 0) child = CreateChild(db, id, k.name);
        if (child <= 0) return RegBadDb;
        const long r = WriteTreeAt(db, child, k, depth + 1);
        if (r != RegOk) return r;
    }
    return RegOk;
}

// What a database file holds, looked at without changing it.
enum class DbState { Ours, Empty, Foreign, Altered, Broken };

// The schema of one of our stores is exactly our two tables and the index
// SQLite makes for the key names: nothing else (no view, trigger or further
// index, whose code would run on our reads), no other column.
bool SchemaIsOurs(sqlite3* db) {
    Stmt st(db, "SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY name");
    if (!st.Ok()) return false;
    const char* const expected[3][4] = {{"table", "keys", "keys", kKeysSql},
                                        {"index", "sqlite_autoindex_keys_1", "keys", nullptr},
                                        {"table", "vals", "vals", kValsSql}};
    int row = 0;
    int rc;
    while ((rc = st.Step()) == SQLITE_ROW) {
        if (row == 3) return false;
        for (int col = 0; col < 4; ++col) {
            const bool isNull = sqlite3_column_type(st.get(), col) == SQLITE_NULL;
            const char* want = expected[row][col];
            if (want ? isNull || st.Text(col) != want : !isNull) return false;
        }
        ++row;
    }
    return rc == SQLITE_DONE && row == 3;
}

DbState Inspect(sqlite3* db) {
    Stmt id(db, "PRAGMA application_id");
    if (!id.Ok()) return DbState::Broken;
    if (id.Step() != SQLITE_ROW) return DbState::Broken;
    const int64_t appId = id.Int(0);
    Stmt count(db, "SELECT count(*) FROM sqlite_master");
    if (!count.Ok() || count.Step() != SQLITE_ROW) return DbState::Broken;
    const int64_t objects = count.Int(0);
    if (appId == kApplicationId) {
        Stmt ver(db, "PRAGMA user_version");
        if (!ver.Ok() || ver.Step() != SQLITE_ROW) return DbState::Broken;
        if (ver.Int(0) != kSchemaVersion) return DbState::Altered;
        return SchemaIsOurs(db) ? DbState::Ours : DbState::Altered;
    }
    return appId == 0 && objects == 0 ? DbState::Empty : DbState::Foreign;
}

// Settings of every connection: the database file is data, never code. No
// view or trigger runs, functions in the schema are refused, the file
// cannot be changed behind SQLite's back (defensive mode), and a step that
// works too long is interrupted.
bool Harden(sqlite3* db) {
    int on = -1;
    const bool ok = sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, &on) == SQLITE_OK && on == 1 &&
                    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, &on) == SQLITE_OK && on == 0 &&
                    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, &on) == SQLITE_OK && on == 0 &&
                    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, &on) == SQLITE_OK && on == 0;
    sqlite3_progress_handler(db, kProgressPeriod, OnProgress, nullptr);
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 16 << 20);
    return ok;
}

// Fills *why (when given) and returns null: a store that cannot be used.
std::shared_ptr<RegistryStore> Refuse(std::string* why, std::string text) {
    if (why) *why = std::move(text);
    return nullptr;
}

}  // namespace

int IsAdministrator() {
    const std::string v = EnvOrEmpty("THERMOKIT_ADMIN");
    if (v == "0") return 0;
    if (v == "1") return 1;
    return ::geteuid() == 0 ? 1 : 0;
}

std::string RegistryStore::MachineStorePath() {
    const std::string over = EnvOrEmpty("THERMOKIT_MACHINE_STORE");
    return over.empty() ? std::string("/var/lib/thermokit/registry.db") : over;
}

std::string RegistryStore::UserStorePath() {
    const std::string over = EnvOrEmpty("THERMOKIT_USER_STORE");
    if (!over.empty()) return over;
    const std::string xdg = EnvOrEmpty("XDG_CONFIG_HOME");
    if (!xdg.empty() && xdg[0] == '/') return xdg + "/thermokit/registry.db";  // relative values are ignored
    std::string home = EnvOrEmpty("HOME");
    if (home.empty()) {
        if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) home = pw->pw_dir;
    }
    if (home.empty()) return std::string();
    return home + "/.config/thermokit/registry.db";
}

std::string RegistryStore::StorePath(RegistryRoot root) {
    return root == RegistryRoot::Machine ? MachineStorePath() : UserStorePath();
}

bool RegistryStore::Exists(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

bool RegistryStore::Remove(const std::string& path) {
    if (path.empty()) return false;
    bool ok = true;
    for (const std::string& p : {path, path + "-journal"}) {
        if (::unlink(p.c_str()) != 0 && errno != ENOENT) ok = false;
    }
    return ok;
}

RegistryStore::~RegistryStore() {
    if (m_db) sqlite3_close_v2(m_db);
}

std::shared_ptr<RegistryStore> RegistryStore::Open(const std::string& path, bool write, bool privateFile,
                                                   std::string* why) {
    if (why) why->clear();
    if (path.empty()) return Refuse(why, "no settings store: no home folder to keep it in");
    struct stat st {};
    const bool exists = ::stat(path.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) return Refuse(why, "not a settings store (not a regular file)");
    if (!exists) {
        if (!write) return Refuse(why, std::string("no settings store (") + std::strerror(errno) + ")");
        if (!MakeParentDirs(path, privateFile ? 0700 : 0755))
            return Refuse(why, std::string("its folder cannot be created (") + std::strerror(errno) + ")");
        // Created here rather than by sqlite, so that the mode is ours from
        // the first byte on (sqlite gives its journal the same mode).
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, privateFile ? 0600 : 0644);
        if (fd < 0) return Refuse(why, std::string("cannot be created (") + std::strerror(errno) + ")");
        ::close(fd);
    }
    if (write && privateFile && ::stat(path.c_str(), &st) == 0 && st.st_uid == ::geteuid() &&
        (st.st_mode & 07777) != 0600) {
        ::chmod(path.c_str(), 0600);
    }

    auto store = std::shared_ptr<RegistryStore>(new RegistryStore());
    store->m_path = path;
    // Read-write even for a read-only key when the file allows it: only then
    // can sqlite roll back what a killed writer left half done. Read-only
    // keys never issue a write of their own.
    const int rc = sqlite3_open_v2(path.c_str(), &store->m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK || !store->m_db)
        return Refuse(why, std::string("cannot be opened (") + sqlite3_errstr(rc) + ")");
    if (!Harden(store->m_db)) return Refuse(why, "cannot be opened safely (SQLite lacks its defensive settings)");
    sqlite3_busy_timeout(store->m_db, kBusyTimeoutMs);
    sqlite3_extended_result_codes(store->m_db, 0);
    store->m_writable = write && !sqlite3_db_readonly(store->m_db, "main");

    DbState state = Inspect(store->m_db);
    for (int attempt = 0; state == DbState::Broken && attempt < 3; ++attempt) {
        // A lock held by a writer looks like a failure here: look again.
        if (sqlite3_errcode(store->m_db) != SQLITE_BUSY) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        state = Inspect(store->m_db);
    }
    switch (state) {
        case DbState::Ours: return store;
        case DbState::Foreign: return Refuse(why, "not a settings store (a database of another program)");
        case DbState::Altered:
            return Refuse(why, "not a settings store of this version (its tables are not the store's own)");
        case DbState::Broken:
            return Refuse(why, std::string("cannot be read (") + sqlite3_errmsg(store->m_db) + ")");
        case DbState::Empty: break;
    }
    if (!store->m_writable) return Refuse(why, "empty settings store");

    // A new (empty) database: lay the schema down in one transaction, looking
    // again once the write lock is held, since another process may have done
    // it meanwhile.
    const auto failed = [&](const char* what) {
        std::string text = std::string(what) + " (" + sqlite3_errmsg(store->m_db) + ")";
        Rollback(store->m_db);
        return Refuse(why, std::move(text));
    };
    if (BeginWrite(store->m_db) != SQLITE_OK) return failed("cannot be written");
    state = Inspect(store->m_db);
    if (state == DbState::Empty) {
        char pragmas[96];
        std::snprintf(pragmas, sizeof pragmas, "PRAGMA application_id = %d; PRAGMA user_version = %d;",
                      kApplicationId, kSchemaVersion);
        t_progressCalls = 0;
        if (sqlite3_exec(store->m_db, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK ||
            sqlite3_exec(store->m_db, pragmas, nullptr, nullptr, nullptr) != SQLITE_OK)
            return failed("cannot be written");
    } else if (state != DbState::Ours) {
        return failed("changed by another program while it was being made");
    }
    if (CommitWrite(store->m_db) != SQLITE_OK) return failed("cannot be written");
    return store;
}

// ----- keys ------------------------------------------------------------------

namespace {

// Runs body inside one write transaction of the store; inside a batch, as a
// savepoint of the batch's transaction, so that a failed change is undone
// alone.
long InWriteTransaction(RegistryStore* store, sqlite3* db, const std::function<long()>& body) {
    if (store->InBatch()) {
        const int rc = Exec(db, "SAVEPOINT change");
        if (rc != SQLITE_OK) return FromSqlite(rc);
        const long r = body();
        if (r != RegOk) Exec(db, "ROLLBACK TO change");
        Exec(db, "RELEASE change");
        return r;
    }
    const int rc = BeginWrite(db);
    if (rc != SQLITE_OK) return FromSqlite(rc);
    const long r = body();
    if (r != RegOk) {
        Rollback(db);
        return r;
    }
    const int crc = CommitWrite(db);
    if (crc != SQLITE_OK) {
        Rollback(db);
        return FromSqlite(crc);
    }
    return RegOk;
}

}  // namespace

RegistryKey RegistryKey::OpenRootAt(const std::string& path, bool write, bool privateFile, std::string* why) {
    auto store = RegistryStore::Open(path, write, privateFile, why);
    if (!store) return RegistryKey();
    const bool writable = store->m_writable;
    return RegistryKey(std::move(store), kRootId, writable);
}

RegistryKey RegistryKey::OpenRoot(RegistryRoot root, bool write, std::string* why) {
    return OpenRootAt(RegistryStore::StorePath(root), write, root == RegistryRoot::User, why);
}

RegistryKey RegistryKey::OpenSubKey(const std::string& path, bool create) const {
    if (!m_store) return RegistryKey();
    if (create && !m_writable) create = false;
    const std::vector<std::string> parts = SplitRegistryPath(path);
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;

    // First a plain lookup: no transaction when everything is there.
    int64_t id = m_id;
    if (!KeyExists(db, id)) return RegistryKey();
    bool missing = false;
    for (const auto& part : parts) {
        const int64_t child = FindChild(db, id, part);
        if (child < 0) return RegistryKey();
        if (child == 0) {
            missing = true;
            break;
        }
        id = child;
    }
    if (!missing) return RegistryKey(m_store, id, m_writable);
    if (!create) return RegistryKey();

    int64_t created = 0;
    const long r = InWriteTransaction(m_store.get(), db, [&]() -> long {
        int64_t cur = m_id;
        if (!KeyExists(db, cur)) return RegKeyDeleted;
        for (const auto& part : parts) {
            int64_t child = FindChild(db, cur, part);
            if (child == 0) child = CreateChild(db, cur, part);
            if (child <= 0) return RegBadDb;
            cur = child;
        }
        created = cur;
        return RegOk;
    });
    if (r != RegOk) return RegistryKey();
    return RegistryKey(m_store, created, m_writable);
}

long RegistryKey::QueryValue(const std::string& name, unsigned long* type, std::vector<unsigned char>* data) const {
    if (!m_store) return RegNotFound;
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    Stmt st(m_store->m_db, "SELECT type, data FROM vals WHERE key = ?1 AND name = ?2");
    if (!st.Ok()) return RegBadDb;
    st.Bind(1, m_id);
    st.Bind(2, name);
    const int rc = st.Step();
    if (rc == SQLITE_DONE) return RegNotFound;
    if (rc != SQLITE_ROW) return FromSqlite(rc);
    if (type) *type = static_cast<unsigned long>(st.Int(0));
    if (data) *data = st.Blob(1);
    return RegOk;
}

long RegistryKey::SetValue(const std::string& name, unsigned long type, const void* data, size_t size) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    if (!data && size) return RegInvalidName;
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;
    return InWriteTransaction(m_store.get(), db, [&]() -> long {
        if (!KeyExists(db, m_id)) return RegKeyDeleted;
        return PutValue(db, m_id, name, type, data, size);
    });
}

long RegistryKey::DeleteValue(const std::string& name) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;
    return InWriteTransaction(m_store.get(), db, [&]() -> long {
        Stmt st(db, "DELETE FROM vals WHERE key = ?1 AND name = ?2");
        if (!st.Ok()) return RegBadDb;
        st.Bind(1, m_id);
        st.Bind(2, name);
        const int rc = st.Step();
        if (rc != SQLITE_DONE) return FromSqlite(rc);
        return sqlite3_changes(db) > 0 ? RegOk : RegNotFound;
    });
}

long RegistryKey::DeleteSubKey(const std::string& name) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    if (name.empty() || name.find('\\') != std::string::npos) return RegInvalidName;
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;
    return InWriteTransaction(m_store.get(), db, [&]() -> long {
        const int64_t child = FindChild(db, m_id, name);
        if (child < 0) return RegBadDb;
        if (child == 0) return RegNotFound;
        static const char* const kDelete[] = {
            "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN sub ON keys.parent = sub.id) "
            "DELETE FROM vals WHERE key IN sub",
            "WITH RECURSIVE sub(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN sub ON keys.parent = sub.id) "
            "DELETE FROM keys WHERE id IN sub",
        };
        for (const char* sql : kDelete) {
            Stmt st(db, sql);
            if (!st.Ok()) return RegBadDb;
            st.Bind(1, child);
            const int rc = st.Step();
            if (rc != SQLITE_DONE) return FromSqlite(rc);
        }
        return RegOk;
    });
}

long RegistryKey::EnumSubKeys(std::vector<std::string>* names) const {
    if (!m_store) return RegNotFound;
    if (names) names->clear();
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    Stmt st(m_store->m_db, "SELECT name FROM keys WHERE parent = ?1 ORDER BY name");
    if (!st.Ok()) return RegBadDb;
    st.Bind(1, m_id);
    int rc;
    while ((rc = st.Step()) == SQLITE_ROW) {
        if (names) names->push_back(st.Text(0));
    }
    return rc == SQLITE_DONE ? RegOk : FromSqlite(rc);
}

long RegistryKey::EnumValues(std::vector<RegistryValue>* values) const {
    if (!m_store) return RegNotFound;
    if (values) values->clear();
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    Stmt st(m_store->m_db, "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY name");
    if (!st.Ok()) return RegBadDb;
    st.Bind(1, m_id);
    int rc;
    while ((rc = st.Step()) == SQLITE_ROW) {
        if (values) values->push_back(RegistryValue{st.Text(0), static_cast<unsigned long>(st.Int(1)), st.Blob(2)});
    }
    return rc == SQLITE_DONE ? RegOk : FromSqlite(rc);
}

long RegistryKey::ReadTree(RegistryTree* tree) const {
    if (!m_store || !tree) return RegNotFound;
    *tree = RegistryTree();
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;
    // One read transaction: the snapshot is consistent even while others
    // write (inside a batch, the batch's transaction is that snapshot).
    const bool own = !m_store->InBatch();
    int rc = own ? SQLITE_BUSY : SQLITE_OK;
    for (int attempt = 0; own && attempt < kAttempts && rc != SQLITE_OK; ++attempt) {
        rc = Exec(db, "BEGIN DEFERRED");
        if (rc != SQLITE_OK) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (rc != SQLITE_OK) return FromSqlite(rc);
    long r = KeyExists(db, m_id) ? RegOk : RegKeyDeleted;
    if (r == RegOk) r = ReadTreeAt(db, m_id, tree, 0);
    if (own) Rollback(db);
    if (r != RegOk) *tree = RegistryTree();
    return r;
}

long RegistryKey::WriteTree(const RegistryTree& tree) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    std::lock_guard<std::recursive_mutex> lock(m_store->m_mutex);
    sqlite3* db = m_store->m_db;
    return InWriteTransaction(m_store.get(), db, [&]() -> long {
        if (!KeyExists(db, m_id)) return RegKeyDeleted;
        return WriteTreeAt(db, m_id, tree, 0);
    });
}

// ----- batches ---------------------------------------------------------------

RegistryBatch::RegistryBatch(const RegistryKey& key) {
    if (!key || !key.m_writable) return;
    m_store = key.m_store;
    m_lock = std::unique_lock<std::recursive_mutex>(m_store->m_mutex);
    if (m_store->m_batch > 0) {
        ++m_store->m_batch;  // nested: the outer batch commits
        m_active = true;
        return;
    }
    if (BeginWrite(m_store->m_db) != SQLITE_OK) {
        m_lock.unlock();
        m_store.reset();
        return;
    }
    m_store->m_batch = 1;
    m_active = true;
}

RegistryBatch::~RegistryBatch() { Commit(); }

bool RegistryBatch::Commit() {
    if (!m_active) return m_store == nullptr || m_committed;
    m_active = false;
    if (--m_store->m_batch > 0) {
        m_committed = true;
        m_lock.unlock();
        return true;
    }
    sqlite3* db = m_store->m_db;
    m_committed = CommitWrite(db) == SQLITE_OK;
    if (!m_committed) Rollback(db);
    m_lock.unlock();
    return m_committed;
}

}  // namespace thermokit
