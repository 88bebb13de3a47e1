#pragma once
// The settings store: two trees of keys and typed values, one for the whole
// machine and one for the current user, each kept in an SQLite database.
// On Windows the two trees are the system registry itself,
// HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER (RegistryStoreWin32.cpp; see
// "On Windows" at the end of this comment).
//
// Where the databases are:
//   machine  /var/lib/thermokit/registry.db, or $THERMOKIT_MACHINE_STORE
//   user     $XDG_CONFIG_HOME/thermokit/registry.db (else ~/.config/thermokit/
//            registry.db), or $THERMOKIT_USER_STORE
// The variables are read every time a root is opened, so a program (or a
// test) can point itself at other files at any time.
//
// Every change is one SQLite transaction: a process that dies in the middle
// of a write leaves the old value or the new one, never a torn file. Writers
// wait for each other (busy timeout, then retries), so two processes writing
// at the same time lose nothing. A store that is missing, unreadable, not a
// database or a database of some other program is never created over,
// repaired or replaced: opening it gives a null key, and the caller falls
// back to its defaults.
//
// A store file is data, never code: it is ours only when its schema is
// exactly the store's two tables (no view, trigger or other object), and
// every connection runs in SQLite's defensive mode with the schema
// untrusted, views and triggers off, and a bound on the work of each step.
//
// Key and value names compare case-insensitively (ASCII letters), and keep
// the spelling they were created with. Key names never contain a backslash:
// a backslash in a path separates components.
//
// On Windows:
//   machine  HKEY_LOCAL_MACHINE, user HKEY_CURRENT_USER; a store variable
//            names another key instead: "HKLM\..." or "HKCU\..." (also
//            spelled HKEY_LOCAL_MACHINE\..., HKEY_CURRENT_USER\...) that key
//            itself, any other text a private store of that name under
//            HKEY_CURRENT_USER\Software	hermokit\Stores (how the tests keep
//            their settings apart). GetPath gives the key's full name.
//   Each value is written atomically by the system, but a RegistryBatch
//   groups nothing (the registry has no transactions here), and ReadTree
//   reads key after key rather than one snapshot. Text values are UTF-16 in
//   the registry and UTF-8 here (sizes count UTF-8 bytes). Names compare
//   the way the system compares them (case-insensitively, beyond ASCII too).
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#if !defined(_WIN32)
struct sqlite3;
#endif

namespace thermokit {

// Result codes of key operations: the system's error numbers.
enum RegResult : long {
    RegOk = 0,
    RegNotFound = 2,        // no such key or value
    RegAccessDenied = 5,    // the key was opened for reading only
    RegInvalidName = 87,    // empty or malformed key name
    RegBusy = 170,          // the database stayed locked by other writers
    RegMoreData = 234,      // the value does not fit the caller's buffer, or its text does not parse
    RegBadDb = 1009,        // the database cannot be read or written (corrupt, foreign, I/O error)
    RegKeyDeleted = 1018,   // the key was deleted while this handle was open
};

// Value types, numbered as the system numbers them.
enum RegType : unsigned long {
    REG_NONE = 0,
    REG_SZ = 1,         // text with its terminating NUL
    REG_EXPAND_SZ = 2,
    REG_BINARY = 3,
    REG_DWORD = 4,      // 4 bytes, little-endian
    REG_MULTI_SZ = 7,
    REG_QWORD = 11,
};

enum class RegistryRoot { Machine, User };

struct RegistryValue {
    std::string name;
    unsigned long type = REG_NONE;
    std::vector<unsigned char> data;
};

// A key with everything below it, as read in one snapshot.
struct RegistryTree {
    std::string name;
    std::vector<RegistryValue> values;
    std::vector<RegistryTree> keys;
};

// One open database. Shared by the keys opened in it; its own lock makes it
// safe to use from several threads.
class RegistryStore {
public:
    ~RegistryStore();
    RegistryStore(const RegistryStore&) = delete;
    RegistryStore& operator=(const RegistryStore&) = delete;

    // Default database file of a root, with the overrides applied.
    static std::string MachineStorePath();
    static std::string UserStorePath();
    static std::string StorePath(RegistryRoot root);

    // Opens a database. With write, a missing file (and its folder) is
    // created, with mode 0600 when privateFile is set (and an existing
    // private file is set back to 0600). Without write, a missing file gives
    // null and nothing is ever changed. Null also when the file is not a
    // database of this store. why (when given) gets what is wrong, for a
    // "file NAME: ..." message; it is emptied on success.
    static std::shared_ptr<RegistryStore> Open(const std::string& path, bool write, bool privateFile,
                                               std::string* why = nullptr);
    // True when the store at path exists (opening it read-only may still
    // fail, for a file that is not a store).
    static bool Exists(const std::string& path);
    // Removes the store at path with everything in it (the database file and
    // its journal; on Windows the store's key, never a root itself). False
    // when something was there and stays.
    static bool Remove(const std::string& path);

    const std::string& GetPath() const { return m_path; }
    bool IsWritable() const { return m_writable; }

    // True while a RegistryBatch holds this store's transaction.
    bool InBatch() const { return m_batch > 0; }

private:
    friend class RegistryKey;
    friend class RegistryBatch;
    RegistryStore() = default;

#if defined(_WIN32)
    std::shared_ptr<void> m_root;  // the store's own key (an HKEY), with the store's access
#else
    sqlite3* m_db = nullptr;
#endif
    std::string m_path;
    bool m_writable = false;
    int m_batch = 0;
    std::recursive_mutex m_mutex;
};

// An open key: the key handle of the settings store. A null key (default
// constructed, or any failed open) refuses every operation. Copies refer to
// the same key; the database closes with the last key that uses it.
class RegistryKey {
public:
    RegistryKey() = default;
    RegistryKey(std::nullptr_t) {}

    explicit operator bool() const { return m_store != nullptr; }
    // The same key of the same database file (through any handle).
    bool operator==(const RegistryKey& other) const {
        if (!m_store || !other.m_store) return m_store == other.m_store;
#if defined(_WIN32)
        return m_keyPath == other.m_keyPath && m_store->GetPath() == other.m_store->GetPath();
#else
        return m_id == other.m_id && m_store->GetPath() == other.m_store->GetPath();
#endif
    }
    bool operator==(std::nullptr_t) const { return m_store == nullptr; }

    // The root key of a store; write asks for read-and-write access (and
    // creates the database when missing). Null on failure, with what is
    // wrong in why (when given), as RegistryStore::Open gives it.
    static RegistryKey OpenRoot(RegistryRoot root, bool write, std::string* why = nullptr);
    static RegistryKey OpenRootAt(const std::string& path, bool write, bool privateFile, std::string* why = nullptr);

    // The key at path ("A\B\C", relative to this one; empty components are
    // skipped). With create (which needs write access) missing components are
    // created, all in one transaction. The new key has this key's access.
    // Null when a component is missing (and not created) or on failure.
    RegistryKey OpenSubKey(const std::string& path, bool create) const;

    bool IsWritable() const { return m_store && m_writable; }
    std::string GetStorePath() const { return m_store ? m_store->GetPath() : std::string(); }

    // Value access. The empty name is the key's default value.
    long QueryValue(const std::string& name, unsigned long* type, std::vector<unsigned char>* data) const;
    long SetValue(const std::string& name, unsigned long type, const void* data, size_t size) const;
    long DeleteValue(const std::string& name) const;
    // Deletes the direct sub-key of that name with everything below it.
    long DeleteSubKey(const std::string& name) const;

    long EnumSubKeys(std::vector<std::string>* names) const;
    long EnumValues(std::vector<RegistryValue>* values) const;

    // The whole tree below this key, read in one transaction.
    long ReadTree(RegistryTree* tree) const;
    // Merges a tree into this key in one transaction: values overwritten,
    // missing sub-keys created. The tree's own name is not used.
    long WriteTree(const RegistryTree& tree) const;

private:
    friend class RegistryBatch;
#if defined(_WIN32)
    RegistryKey(std::shared_ptr<RegistryStore> store, std::shared_ptr<void> handle, std::string keyPath, bool writable)
        : m_store(std::move(store)), m_handle(std::move(handle)), m_keyPath(std::move(keyPath)), m_writable(writable) {}

    std::shared_ptr<RegistryStore> m_store;
    std::shared_ptr<void> m_handle;  // the open HKEY, closed with the last copy
    std::string m_keyPath;           // below the store's key, upper-cased: what == compares
#else
    RegistryKey(std::shared_ptr<RegistryStore> store, int64_t id, bool writable)
        : m_store(std::move(store)), m_id(id), m_writable(writable) {}

    std::shared_ptr<RegistryStore> m_store;
    int64_t m_id = 0;
#endif
    bool m_writable = false;
};

// Groups every change made through the keys of one database, while it lives
// on this thread, into a single transaction: many values are then written at
// the cost of one, and a process killed half way leaves none of them. Each
// change inside still succeeds or fails on its own (a savepoint). The store
// stays locked for other writers until Commit or destruction, so keep
// batches short. Does nothing for a null or read-only key.
class RegistryBatch {
public:
    explicit RegistryBatch(const RegistryKey& key);
    ~RegistryBatch();
    RegistryBatch(const RegistryBatch&) = delete;
    RegistryBatch& operator=(const RegistryBatch&) = delete;

    // Ends the transaction; false when it could not be committed (then none
    // of its changes remain). True for a batch that did nothing.
    bool Commit();

private:
    std::shared_ptr<RegistryStore> m_store;
    std::unique_lock<std::recursive_mutex> m_lock;
    bool m_active = false;
    bool m_committed = false;
};

// The key handle type of the settings classes.
using HKEY = RegistryKey;

// Splits "A\B\\C" into its non-empty components.
std::vector<std::string> SplitRegistryPath(const std::string& path);

// The administrator test: the effective user is root (on Windows: a member
// of the Administrators group), unless THERMOKIT_ADMIN is "0" or "1", which
// decides.
int IsAdministrator();

}  // namespace thermokit
