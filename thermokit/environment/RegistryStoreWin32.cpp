// The settings store on Windows: the system registry itself. The machine
// store is HKEY_LOCAL_MACHINE, the user store HKEY_CURRENT_USER; the error
// codes of the key operations are the system's own (RegResult uses its
// numbers).
#include "thermokit/platform/Win32.h"

#include "thermokit/environment/RegistryStore.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>

// The predefined roots, named here, outside the library's namespace: their
// macros say HKEY, which is another type inside it.
static ::HKEY const kMachineRoot = HKEY_LOCAL_MACHINE;
static ::HKEY const kUserRoot = HKEY_CURRENT_USER;

namespace thermokit {

namespace {

// Deeper trees are refused (the system's own limit is 512 levels).
constexpr int kMaxDepth = 512;
::HKEY Key(const std::shared_ptr<void>& handle) { return static_cast<::HKEY>(handle.get()); }

// An owned key handle, closed with the last copy (predefined roots are not closed).
std::shared_ptr<void> Own(::HKEY key) {
    return std::shared_ptr<void>(key, [](void* k) { RegCloseKey(static_cast<::HKEY>(k)); });
}

std::string EnvOrEmpty(const wchar_t* name) {
    const wchar_t* v = _wgetenv(name);
    return v ? win32::Narrow(v) : std::string();
}

std::string Upper(const std::string& text) {
    std::wstring wide = win32::Widen(text);
    if (!wide.empty()) CharUpperBuffW(wide.data(), static_cast<DWORD>(wide.size()));
    return win32::Narrow(wide);
}

// A store name as a key name: no backslash, at most 255 characters.
std::string PrivateStoreKey(const std::string& name) {
    std::string key = name;
    std::replace(key.begin(), key.end(), '\\', '/');
    if (key.size() > 200) {
        uint64_t h = 1469598103934665603ull;  // FNV-1a of the whole name
        for (unsigned char c : name) {
            h ^= c;
            h *= 1099511628211ull;
        }
        char tail[24];
        std::snprintf(tail, sizeof tail, "~%016llx", static_cast<unsigned long long>(h));
        key = key.substr(0, 160) + tail;
    }
    return key;
}

std::string JoinPath(const std::vector<std::string>& parts) {
    std::string path;
    for (const auto& part : parts) {
        if (!path.empty()) path += '\\';
        path.append(part);
    }
    return path;
}

// Splits a store path into its predefined root and the key below it. False
// for text that names no root.
bool ParseStorePath(const std::string& path, ::HKEY* root, std::string* below) {
    static const struct {
        const char* prefix;
        ::HKEY root;
    } kRoots[] = {{"HKEY_LOCAL_MACHINE", kMachineRoot},
                  {"HKLM", kMachineRoot},
                  {"HKEY_CURRENT_USER", kUserRoot},
                  {"HKCU", kUserRoot}};
    for (const auto& r : kRoots) {
        const size_t n = std::strlen(r.prefix);
        if (path.size() < n || _strnicmp(path.c_str(), r.prefix, n) != 0) continue;
        if (path.size() > n && path[n] != '\\') continue;
        *root = r.root;
        *below = JoinPath(SplitRegistryPath(path.substr(n)));
        return true;
    }
    return false;
}

// The key a store path names: a root and the path below it. Text that names
// no root is a private store.
void Locate(const std::string& path, ::HKEY* root, std::string* below) {
    if (ParseStorePath(path, root, below)) return;
    *root = kUserRoot;
    *below = "Software\\thermokit\\Stores\\" + PrivateStoreKey(path);
}

std::string FullName(::HKEY root, const std::string& below) {
    std::string name = root == kMachineRoot ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER";
    if (!below.empty()) {
        name += '\\';
        name.append(below);
    }
    return name;
}

REGSAM Access(bool write) { return write ? KEY_READ | KEY_WRITE : KEY_READ; }

bool IsTextType(unsigned long type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// Text of the registry (UTF-16) as the store's bytes (UTF-8), every NUL kept.
std::vector<unsigned char> FromRegistry(unsigned long type, const std::vector<BYTE>& raw) {
    if (!IsTextType(type)) return std::vector<unsigned char>(raw.begin(), raw.end());
    const std::string text =
        win32::Narrow(reinterpret_cast<const wchar_t*>(raw.data()), static_cast<int>(raw.size() / sizeof(wchar_t)));
    return std::vector<unsigned char>(text.begin(), text.end());
}

long QueryRaw(::HKEY key, const std::wstring& name, unsigned long* type, std::vector<BYTE>* raw) {
    DWORD t = REG_NONE;
    DWORD size = 0;
    LONG rc = RegQueryValueExW(key, name.c_str(), nullptr, &t, nullptr, &size);
    for (int attempt = 0; rc == ERROR_SUCCESS || rc == ERROR_MORE_DATA; ++attempt) {
        raw->assign(size, 0);
        DWORD got = size;
        rc = RegQueryValueExW(key, name.c_str(), nullptr, &t, raw->empty() ? nullptr : raw->data(), &got);
        if (rc == ERROR_SUCCESS) {
            raw->resize(got);
            if (type) *type = t;
            return RegOk;
        }
        if (rc != ERROR_MORE_DATA || attempt > 8) break;  // it grew meanwhile: again
        size = got > size ? got : size * 2;
    }
    return rc;
}

long PutValue(::HKEY key, const std::string& name, unsigned long type, const void* data, size_t size) {
    const std::wstring wname = win32::Widen(name);
    if (IsTextType(type)) {
        const std::wstring text = win32::Widen(static_cast<const char*>(data), static_cast<int>(size));
        if (size && text.empty()) return RegInvalidName;
        return RegSetValueExW(key, wname.c_str(), 0, static_cast<DWORD>(type), reinterpret_cast<const BYTE*>(text.data()),
                              static_cast<DWORD>(text.size() * sizeof(wchar_t)));
    }
    if (size > 0xFFFFFFFFu) return RegInvalidName;
    return RegSetValueExW(key, wname.c_str(), 0, static_cast<DWORD>(type), static_cast<const BYTE*>(data),
                          static_cast<DWORD>(size));
}

// Names in the store's order: case-insensitive for ASCII letters, then by bytes.
bool NameLess(const std::string& a, const std::string& b) {
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        const unsigned char x = static_cast<unsigned char>(a[i] >= 'A' && a[i] <= 'Z' ? a[i] + 32 : a[i]);
        const unsigned char y = static_cast<unsigned char>(b[i] >= 'A' && b[i] <= 'Z' ? b[i] + 32 : b[i]);
        if (x != y) return x < y;
    }
    return a.size() < b.size();
}

long EnumKeys(::HKEY key, std::vector<std::string>* names) {
    DWORD count = 0, longest = 0;
    LONG rc = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, &longest, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<wchar_t> name(longest + 2);
    for (DWORD i = 0;; ++i) {
        DWORD length = static_cast<DWORD>(name.size());
        rc = RegEnumKeyExW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) break;
        if (rc == ERROR_MORE_DATA) {
            name.resize(name.size() * 2 + 256);
            --i;
            continue;
        }
        if (rc != ERROR_SUCCESS) return rc;
        names->push_back(win32::Narrow(name.data(), static_cast<int>(length)));
    }
    std::sort(names->begin(), names->end(), NameLess);
    return RegOk;
}

long EnumValuesOf(::HKEY key, std::vector<RegistryValue>* values) {
    DWORD count = 0, longestName = 0, longestData = 0;
    LONG rc = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, &longestName,
                               &longestData, nullptr, nullptr);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<wchar_t> name(longestName + 2);
    for (DWORD i = 0;; ++i) {
        DWORD length = static_cast<DWORD>(name.size());
        rc = RegEnumValueW(key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) break;
        if (rc == ERROR_MORE_DATA) {
            name.resize(name.size() * 2 + 256);
            --i;
            continue;
        }
        if (rc != ERROR_SUCCESS) return rc;
        const std::wstring wname(name.data(), length);
        RegistryValue v;
        v.name = win32::Narrow(wname);
        std::vector<BYTE> raw;
        const long r = QueryRaw(key, wname, &v.type, &raw);
        if (r != RegOk) return r;
        v.data = FromRegistry(v.type, raw);
        values->push_back(std::move(v));
    }
    std::sort(values->begin(), values->end(), [](const RegistryValue& a, const RegistryValue& b) { return NameLess(a.name, b.name); });
    return RegOk;
}

long ReadTreeAt(::HKEY key, RegistryTree* tree, int depth) {
    if (depth > kMaxDepth) return RegBadDb;
    long r = EnumValuesOf(key, &tree->values);
    if (r != RegOk) return r;
    std::vector<std::string> names;
    r = EnumKeys(key, &names);
    if (r != RegOk) return r;
    for (const auto& name : names) {
        ::HKEY child = nullptr;
        const LONG rc = RegOpenKeyExW(key, win32::Widen(name).c_str(), 0, KEY_READ, &child);
        if (rc == ERROR_FILE_NOT_FOUND) continue;  // deleted meanwhile
        if (rc != ERROR_SUCCESS) return rc;
        RegistryTree sub;
        sub.name = name;
        r = ReadTreeAt(child, &sub, depth + 1);
        RegCloseKey(child);
        if (r != RegOk) return r;
        tree->keys.push_back(std::move(sub));
    }
    return RegOk;
}

long WriteTreeAt(::HKEY key, const RegistryTree& tree, int depth) {
    if (depth > kMaxDepth) return RegBadDb;
    for (const auto& v : tree.values) {
        const long r = PutValue(key, v.name, v.type, v.data.data(), v.data.size());
        if (r != RegOk) return r;
    }
    for (const auto& k : tree.keys) {
        if (k.name.empty() || k.name.find('\\') != std::string::npos) return RegInvalidName;
        ::HKEY child = nullptr;
        const LONG rc = RegCreateKeyExW(key, win32::Widen(k.name).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                        KEY_READ | KEY_WRITE, nullptr, &child, nullptr);
        if (rc != ERROR_SUCCESS) return rc;
        const long r = WriteTreeAt(child, k, depth + 1);
        RegCloseKey(child);
        if (r != RegOk) return r;
    }
    return RegOk;
}

}  // namespace

int IsAdministrator() {
    const std::string v = EnvOrEmpty(L"THERMOKIT_ADMIN");
    if (v == "0") return 0;
    if (v == "1") return 1;
    return IsUserAnAdmin() ? 1 : 0;
}

std::string RegistryStore::MachineStorePath() {
    const std::string over = EnvOrEmpty(L"THERMOKIT_MACHINE_STORE");
    return over.empty() ? std::string("HKEY_LOCAL_MACHINE") : over;
}

std::string RegistryStore::UserStorePath() {
    const std::string over = EnvOrEmpty(L"THERMOKIT_USER_STORE");
    return over.empty() ? std::string("HKEY_CURRENT_USER") : over;
}

std::string RegistryStore::StorePath(RegistryRoot root) {
    return root == RegistryRoot::Machine ? MachineStorePath() : UserStorePath();
}

RegistryStore::~RegistryStore() = default;

bool RegistryStore::Exists(const std::string& path) {
    if (path.empty()) return false;
    ::HKEY root;
    std::string below;
    Locate(path, &root, &below);
    if (below.empty()) return true;
    ::HKEY key = nullptr;
    if (RegOpenKeyExW(root, win32::Widen(below).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

bool RegistryStore::Remove(const std::string& path) {
    if (path.empty()) return false;
    ::HKEY root;
    std::string below;
    Locate(path, &root, &below);
    if (below.empty()) return false;  // never a root itself
    const LONG rc = RegDeleteTreeW(root, win32::Widen(below).c_str());
    return rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND;
}

std::shared_ptr<RegistryStore> RegistryStore::Open(const std::string& path, bool write, bool, std::string* why) {
    if (why) why->clear();
    if (path.empty()) {
        if (why) *why = "no settings store: no key named";
        return nullptr;
    }
    ::HKEY root;
    std::string below;
    Locate(path, &root, &below);
    ::HKEY key = nullptr;
    LONG rc;
    if (write && !below.empty()) {
        // A store of its own is made on the first write, as a database file is.
        rc = RegCreateKeyExW(root, win32::Widen(below).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, Access(true),
                             nullptr, &key, nullptr);
    } else {
        // A new handle to the root itself when nothing is below it. Without
        // the right to write (a plain user and the machine's key), it fails.
        rc = RegOpenKeyExW(root, below.empty() ? nullptr : win32::Widen(below).c_str(), 0, Access(write), &key);
    }
    if (rc != ERROR_SUCCESS) {
        if (why) {
            if (rc == ERROR_FILE_NOT_FOUND || rc == ERROR_PATH_NOT_FOUND) *why = "no settings store (no such key)";
            else if (rc == ERROR_ACCESS_DENIED) *why = "cannot be opened (access denied)";
            else *why = "cannot be opened (" + win32::ErrorText(static_cast<unsigned long>(rc)) + ")";
        }
        return nullptr;
    }
    auto store = std::shared_ptr<RegistryStore>(new RegistryStore());
    store->m_path = FullName(root, below);
    store->m_root = Own(key);
    store->m_writable = write;
    return store;
}

RegistryKey RegistryKey::OpenRootAt(const std::string& path, bool write, bool privateFile, std::string* why) {
    auto store = RegistryStore::Open(path, write, privateFile, why);
    if (!store) return RegistryKey();
    const bool writable = store->m_writable;
    std::shared_ptr<void> handle = store->m_root;
    return RegistryKey(std::move(store), std::move(handle), std::string(), writable);
}

RegistryKey RegistryKey::OpenRoot(RegistryRoot root, bool write, std::string* why) {
    return OpenRootAt(RegistryStore::StorePath(root), write, root == RegistryRoot::User, why);
}

RegistryKey RegistryKey::OpenSubKey(const std::string& path, bool create) const {
    if (!m_store) return RegistryKey();
    if (create && !m_writable) create = false;
    const std::string joined = JoinPath(SplitRegistryPath(path));
    // An empty path is this key again, through a handle of its own, so that
    // it notices when the key is deleted, as every key does.
    const std::wstring wide = win32::Widen(joined);
    ::HKEY key = nullptr;
    LONG rc;
    if (create) {
        rc = RegCreateKeyExW(Key(m_handle), wide.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, Access(true), nullptr,
                             &key, nullptr);
    } else {
        rc = RegOpenKeyExW(Key(m_handle), wide.c_str(), 0, Access(m_writable), &key);
    }
    if (rc != ERROR_SUCCESS) return RegistryKey();
    std::string keyPath = m_keyPath;
    if (!joined.empty()) {
        keyPath += '\\';
        keyPath.append(Upper(joined));
    }
    return RegistryKey(m_store, Own(key), std::move(keyPath), m_writable);
}

long RegistryKey::QueryValue(const std::string& name, unsigned long* type, std::vector<unsigned char>* data) const {
    if (!m_store) return RegNotFound;
    unsigned long t = REG_NONE;
    std::vector<BYTE> raw;
    const long r = QueryRaw(Key(m_handle), win32::Widen(name), &t, &raw);
    if (r == RegKeyDeleted) return RegNotFound;  // the value went with its key
    if (r != RegOk) return r;
    if (type) *type = t;
    if (data) *data = FromRegistry(t, raw);
    return RegOk;
}

long RegistryKey::SetValue(const std::string& name, unsigned long type, const void* data, size_t size) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    if (!data && size) return RegInvalidName;
    static const unsigned char empty = 0;
    return PutValue(Key(m_handle), name, type, size ? data : &empty, size);
}

long RegistryKey::DeleteValue(const std::string& name) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    return RegDeleteValueW(Key(m_handle), win32::Widen(name).c_str());
}

long RegistryKey::DeleteSubKey(const std::string& name) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    if (name.empty() || name.find('\\') != std::string::npos) return RegInvalidName;
    return RegDeleteTreeW(Key(m_handle), win32::Widen(name).c_str());
}

long RegistryKey::EnumSubKeys(std::vector<std::string>* names) const {
    if (!m_store) return RegNotFound;
    std::vector<std::string> found;
    long r = EnumKeys(Key(m_handle), &found);
    if (r == RegKeyDeleted) r = RegOk;  // a deleted key has nothing below it
    if (names) *names = r == RegOk ? std::move(found) : std::vector<std::string>();
    return r;
}

long RegistryKey::EnumValues(std::vector<RegistryValue>* values) const {
    if (!m_store) return RegNotFound;
    std::vector<RegistryValue> found;
    long r = EnumValuesOf(Key(m_handle), &found);
    if (r == RegKeyDeleted) r = RegOk;
    if (values) *values = r == RegOk ? std::move(found) : std::vector<RegistryValue>();
    return r;
}

long RegistryKey::ReadTree(RegistryTree* tree) const {
    if (!m_store || !tree) return RegNotFound;
    *tree = RegistryTree();
    const long r = ReadTreeAt(Key(m_handle), tree, 0);
    if (r != RegOk) *tree = RegistryTree();
    return r;
}

long RegistryKey::WriteTree(const RegistryTree& tree) const {
    if (!m_store) return RegNotFound;
    if (!m_writable) return RegAccessDenied;
    return WriteTreeAt(Key(m_handle), tree, 0);
}

// The registry has no transaction to group values in: a batch leaves every
// change to stand on its own (each one is atomic in the registry).
RegistryBatch::RegistryBatch(const RegistryKey&) {}

RegistryBatch::~RegistryBatch() = default;

bool RegistryBatch::Commit() { return true; }

}  // namespace thermokit
