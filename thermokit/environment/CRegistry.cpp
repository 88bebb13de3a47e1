#include "thermokit/environment/CRegistry.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "thermokit/platform/Endian.h"
#include "thermokit/platform/File.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

namespace {

struct WellKnownKey {
    const char* path;
    bool machine;
    bool user;
};

const WellKnownKey kKeys[CRegistry::kKeyCount] = {
    {"Software\\Orbel\\Global Data", true, true},
    {"Software\\Orbel\\Common Setup", true, true},
    {"Software\\Orbel\\Application Data", true, true},
    {"Software\\CurrentControlSet\\Services", true, true},  // "Software", not the system branch: kept on purpose
    {"Software\\Orbel\\Common Setup\\Boards", true, true},
    {"Software\\Orbel\\Common Setup\\Cameras", true, true},
    {"Software\\Orbel\\Common Setup\\Detectors", true, true},
    {"Software\\Orbel\\Common Setup\\Lenses", true, true},
    {"Software\\Orbel\\Common Setup\\Setup", true, true},
    {"Software\\Orbel\\Application Data\\Virtual Camera", true, true},
    {"Software\\Orbel\\Install", true, false},
    {"Software\\Orbel\\WindowPos", false, true},
    {"Software\\Microsoft\\.NETFramework", true, false},
};
constexpr int kReadOnlyKey = CRegistry::NetFramework;

// Buffer sizes of the readers, terminator included.
constexpr size_t kNumberBuffer = 49;
constexpr size_t kStringBuffer = 255;
// Legacy form: values this long (terminator included) are silently skipped.
constexpr size_t kLegacyMaxBytes = 1000;

void Append(std::string& path, const char* component) {
    if (!component || !*component) return;
    if (!path.empty()) path += '\\';
    path += component;
}

bool IsTextType(unsigned long type) { return type == REG_SZ || type == REG_EXPAND_SZ; }

// The text of a value read into a buffer of bufferSize bytes; false when the
// value is not text or does not fit.
bool TextFromValue(long rc, unsigned long type, const std::vector<unsigned char>& data, size_t bufferSize,
                   std::string* text) {
    if (rc != RegOk || !IsTextType(type) || data.size() > bufferSize) return false;
    const auto* p = reinterpret_cast<const char*>(data.data());
    const void* nul = std::memchr(p, 0, data.size());
    const size_t n = nul ? static_cast<size_t>(static_cast<const char*>(nul) - p) : data.size();
    text->assign(p, n);
    return true;
}

}  // namespace

const char* CRegistry::GetKeyPath(int key) { return key >= 0 && key < kKeyCount ? kKeys[key].path : ""; }
bool CRegistry::HasMachineRoot(int key) { return key >= 0 && key < kKeyCount && kKeys[key].machine; }
bool CRegistry::HasUserRoot(int key) { return key >= 0 && key < kKeyCount && kKeys[key].user; }

int CRegistry::IsUserAdmin() { return IsAdministrator(); }

void CRegistry::OpenPath(const std::string& path, bool machine, bool user, bool machineReadOnly) {
    // A store that is refused (damaged, foreign, altered) is read as holding
    // no value; why is kept as the last error. A missing machine store is
    // the normal case of a user without one, not an error.
    std::string why;
    if (machine) {
        // Read-and-write for administrators, read-only otherwise: a missing
        // key is then not created and stays null.
        const bool write = m_bAdmin && !machineReadOnly;
        const RegistryKey root = RegistryKey::OpenRoot(RegistryRoot::Machine, write, &why);
        if (!root && RegistryStore::Exists(RegistryStore::MachineStorePath()))
            SetLastError(ErrorKind::Format, "settings store " + RegistryStore::MachineStorePath() + ": " + why);
        m_hKeyMachine = root.OpenSubKey(path, write);
    }
    if (user) {
        const RegistryKey root = RegistryKey::OpenRoot(RegistryRoot::User, true, &why);
        if (!root) SetLastError(ErrorKind::Format, "settings store " + RegistryStore::UserStorePath() + ": " + why);
        m_hKeyUser = root.OpenSubKey(path, true);
    }
}

CRegistry::CRegistry(RegKey key, const char* subKey1, const char* subKey2) {
    m_bAdmin = IsUserAdmin();
    const int k = static_cast<int>(key);
    if (k < 0 || k >= kKeyCount) return;  // opens nothing
    if (k == kReadOnlyKey) m_bAdmin = 0;
    std::string path = kKeys[k].path;
    Append(path, subKey1);
    Append(path, subKey2);
    OpenPath(path, kKeys[k].machine, kKeys[k].user, k == kReadOnlyKey);
}

CRegistry::CRegistry(HKEY key) : m_hKeyUser(std::move(key)) { m_bAdmin = IsUserAdmin(); }

CRegistry::CRegistry(const char* driver, const char* device, int board, int channel, int system, int newApi) {
    m_bAdmin = IsUserAdmin();
    m_bNewApi = newApi ? 1 : 0;
    std::string path = system ? "System\\CurrentControlSet\\Services" : "Software\\Orbel\\Marlon";
    Append(path, driver);
    Append(path, device);
    if (board >= 0) Append(path, Format("Board %d", board).c_str());
    if (channel >= 0) Append(path, Format("Channel %d", channel).c_str());
    OpenPath(path, true, !system, false);
}

CRegistry::CRegistry(const char* product, int index) {
    m_bAdmin = IsUserAdmin();
    m_bNewApi = 0;
    std::string path = "Software\\Orbel\\Setup\\Quorin";
    Append(path, product);
    if (index >= 0) Append(path, Format("%d", index).c_str());
    OpenPath(path, true, true, false);
}

CRegistry::~CRegistry() = default;

int CRegistry::GetChild(const char* name) {
    const std::string sub = name ? name : "";
    if (m_hKeyMachine) m_hKeyMachine = m_hKeyMachine.OpenSubKey(sub, m_hKeyMachine.IsWritable());
    if (m_hKeyUser) m_hKeyUser = m_hKeyUser.OpenSubKey(sub, m_hKeyUser.IsWritable());
    return (m_hKeyMachine || m_hKeyUser) ? 1 : 0;
}

// ----- reading ------------------------------------------------------------

bool CRegistry::ReadText(const char* name, size_t bufferSize, std::string* text) {
    const std::string valueName = name ? name : "";
    for (const HKEY* key : {&m_hKeyUser, &m_hKeyMachine}) {
        if (!*key) continue;
        unsigned long type = REG_NONE;
        std::vector<unsigned char> data;
        long rc;
        if (m_bNewApi) {
            rc = key->QueryValue(valueName, &type, &data);
        } else {
            const HKEY sub = key->OpenSubKey(valueName, false);
            rc = sub ? sub.QueryValue("", &type, &data) : RegNotFound;
        }
        if (TextFromValue(rc, type, data, bufferSize, text)) return true;
    }
    return false;
}

bool CRegistry::ReadDword(const char* name, uint32_t* value) {
    if (!m_bNewApi) {
        // Legacy: "%lu" text; text that does not parse is a failed read (234).
        const std::string valueName = name ? name : "";
        for (const HKEY* key : {&m_hKeyUser, &m_hKeyMachine}) {
            if (!*key) continue;
            const HKEY sub = key->OpenSubKey(valueName, false);
            if (!sub) continue;
            unsigned long type = REG_NONE;
            std::vector<unsigned char> data;
            std::string text;
            unsigned long v = 0;
            const long rc = sub.QueryValue("", &type, &data);
            if (!TextFromValue(rc, type, data, kNumberBuffer, &text)) continue;
            if (std::sscanf(text.c_str(), "%lu", &v) != 1) continue;  // RegMoreData: try the next root
            *value = static_cast<uint32_t>(v);
            return true;
        }
        return false;
    }
    const std::string valueName = name ? name : "";
    for (const HKEY* key : {&m_hKeyUser, &m_hKeyMachine}) {
        if (!*key) continue;
        unsigned long type = REG_NONE;
        std::vector<unsigned char> data;
        if (key->QueryValue(valueName, &type, &data) != RegOk) continue;
        if ((type != REG_DWORD && type != REG_BINARY) || data.size() != 4) continue;
        *value = load<uint32_t>(data.data());
        return true;
    }
    return false;
}

int CRegistry::GetBOOLValue(const char* name, int defaultValue) {
    uint32_t v = 0;
    return ReadDword(name, &v) ? static_cast<int>(v) : defaultValue;
}

int CRegistry::GetINTValue(const char* name, int defaultValue) {
    std::string text;
    int v = 0;
    if (ReadText(name, kNumberBuffer, &text) && std::sscanf(text.c_str(), "%d", &v) == 1) return v;
    return defaultValue;
}

unsigned short CRegistry::GetWORDValue(const char* name, unsigned short defaultValue) {
    uint32_t v = 0;
    return ReadDword(name, &v) ? static_cast<unsigned short>(v & 0xFFFFu) : defaultValue;
}

uint32_t CRegistry::GetDWORDValue(const char* name, uint32_t defaultValue) {
    uint32_t v = 0;
    return ReadDword(name, &v) ? v : defaultValue;
}

double CRegistry::GetDOUBLEValue(const char* name, double defaultValue) {
    std::string text;
    double v = 0.0;
    if (ReadText(name, kNumberBuffer, &text) && std::sscanf(text.c_str(), "%lf", &v) == 1) return v;
    return defaultValue;
}

std::string CRegistry::GetSTRINGValue(const char* name, const char* defaultValue) {
    std::string text;
    if (ReadText(name, kStringBuffer, &text)) return text;
    return defaultValue ? std::string(defaultValue) : std::string();
}

void CRegistry::GetSTRINGValue(const char* name, const char* defaultValue, char* buffer, int length) {
    if (!buffer || length <= 0) return;
    const std::string text = GetSTRINGValue(name, defaultValue);
    const size_t n = std::min(text.size(), static_cast<size_t>(length) - 1);
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
}

// ----- writing ------------------------------------------------------------

template <class F>
int CRegistry::WriteBoth(F write) {
    bool userWritten = false;
    if (m_hKeyUser) {
        if (write(m_hKeyUser) != RegOk) return 0;
        userWritten = true;
    }
    if (m_hKeyMachine && m_bAdmin) return write(m_hKeyMachine) == RegOk ? 1 : 0;
    return userWritten ? 1 : 0;
}

long CRegistry::WriteText(const HKEY& key, const char* name, const std::string& text) {
    const std::string valueName = name ? name : "";
    const size_t bytes = text.size() + 1;  // with the terminator
    if (m_bNewApi) return key.SetValue(valueName, REG_SZ, text.c_str(), bytes);
    if (bytes >= kLegacyMaxBytes) return RegOk;  // not written, reported done: kept on purpose
    const HKEY sub = key.OpenSubKey(valueName, true);
    if (!sub) return key.IsWritable() ? RegBadDb : RegAccessDenied;
    return sub.SetValue("", REG_SZ, text.c_str(), bytes);
}

long CRegistry::WriteDword(const HKEY& key, const char* name, uint32_t value) {
    if (!m_bNewApi) return WriteText(key, name, Format("%lu", static_cast<unsigned long>(value)));
    unsigned char data[4];
    store<uint32_t>(data, 0, value);
    return key.SetValue(name ? name : "", REG_DWORD, data, sizeof data);
}

int CRegistry::SetBOOLValue(const char* name, int value) {
    return WriteBoth([&](const HKEY& key) { return WriteDword(key, name, static_cast<uint32_t>(value)); });
}

int CRegistry::SetINTValue(const char* name, int value) {
    const std::string text = Format("%d", value);
    return WriteBoth([&](const HKEY& key) { return WriteText(key, name, text); });
}

int CRegistry::SetWORDValue(const char* name, unsigned short value) {
    return WriteBoth([&](const HKEY& key) { return WriteDword(key, name, value); });
}

int CRegistry::SetDWORDValue(const char* name, uint32_t value) {
    return WriteBoth([&](const HKEY& key) { return WriteDword(key, name, value); });
}

int CRegistry::SetSTRINGValue(const char* name, const char* value) {
    const std::string text = value ? value : "";
    return WriteBoth([&](const HKEY& key) { return WriteText(key, name, text); });
}

int CRegistry::SetDOUBLEValue(const char* name, double value, int decimals) {
    const std::string text = Format("%.*lf", decimals, value);
    return WriteBoth([&](const HKEY& key) { return WriteText(key, name, text); });
}

int CRegistry::DeleteValue(const char* name) {
    const std::string valueName = name ? name : "";
    int done = 0;
    for (const HKEY* key : {&m_hKeyUser, &m_hKeyMachine}) {
        if (!*key) continue;
        // Legacy values are sub-keys of their own.
        const long rc = m_bNewApi ? key->DeleteValue(valueName) : key->DeleteSubKey(valueName);
        if (rc == RegOk) done = 1;
    }
    return done;
}

int CRegistry::DeleteKey(const char* name) {
    const std::vector<std::string> parts = SplitRegistryPath(name ? name : "");
    if (parts.empty()) return 0;
    std::string parentPath;
    for (size_t i = 0; i + 1 < parts.size(); ++i) Append(parentPath, parts[i].c_str());
    int done = 0;
    for (const HKEY* key : {&m_hKeyUser, &m_hKeyMachine}) {
        if (!*key) continue;
        const HKEY parent = parentPath.empty() ? *key : key->OpenSubKey(parentPath, false);
        if (parent && parent.DeleteSubKey(parts.back()) == RegOk) done = 1;
    }
    return done;
}

int CopyRegistryTree(HKEY source, HKEY destination) {
    if (!source || !destination) return 0;
    RegistryTree tree;
    if (source.ReadTree(&tree) != RegOk) return 0;
    return destination.WriteTree(tree) == RegOk ? 1 : 0;
}

// Both settings backends name keys by backslash-separated paths.
std::vector<std::string> SplitRegistryPath(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('\\', start);
        if (end == std::string::npos) end = path.size();
        if (end > start) parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

}  // namespace thermokit
