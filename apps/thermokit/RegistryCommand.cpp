// thermokit registry: read and change the settings store.
//
//   thermokit registry get KEY NAME [--type T] [--default D]
//   thermokit registry set KEY NAME VALUE --type T [--decimals N]
//   thermokit registry delete KEY NAME [--key]
//   thermokit registry list KEY
//   thermokit registry export KEY [--output FILE]
//
// KEY is a well-known key, by number (0 to 12) or by name: its full path
// ("Software\Orbel\Common Setup\Setup"), its path below "Software\Orbel\" or
// "Software\" ("Common Setup\Setup"), or its last component ("setup"); case
// and spaces do not matter and "/" may stand for "\". Every command takes
// --subkey PATH (a path below the key) and --machine or --user to work on one
// root only; without them reads look at the user's copy, then the machine's,
// and writes follow the administrator rule of the store.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Command.h"
#include "OutputFile.h"
#include "thermokit/environment/CRegistry.h"
#include "thermokit/environment/RegistryStore.h"
#include "thermokit/platform/Endian.h"
#include "thermokit/platform/Utf8Path.h"

namespace thermokit::cli {
namespace {

struct Options {
    std::string key;
    std::string name;
    std::string value;
    std::string subkey;
    std::string type;
    std::string defaultValue;
    bool hasDefault = false;
    int decimals = -1;
    bool machine = false;
    bool user = false;
    bool deleteKey = false;
    std::string output;
};

std::string Simplify(std::string s) {
    std::replace(s.begin(), s.end(), '/', '\\');
    std::string out;
    for (unsigned char c : s) {
        if (c != ' ') out += static_cast<char>(std::tolower(c));
    }
    while (!out.empty() && out.back() == '\\') out.pop_back();
    while (!out.empty() && out.front() == '\\') out.erase(out.begin());
    return out;
}

// The well-known key named by text, or -1.
int ResolveKey(const std::string& text) {
    if (!text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); })) {
        const long n = std::strtol(text.c_str(), nullptr, 10);
        return n >= 0 && n < CRegistry::kKeyCount && text.size() <= 2 ? static_cast<int>(n) : -1;
    }
    const std::string want = Simplify(text);
    if (want.empty()) return -1;
    for (int k = 0; k < CRegistry::kKeyCount; ++k) {
        const std::string full = Simplify(CRegistry::GetKeyPath(k));
        std::vector<std::string> forms = {full};
        for (const char* prefix : {"software\\orbel\\", "software\\"}) {
            if (full.rfind(prefix, 0) == 0) forms.push_back(full.substr(std::string(prefix).size()));
        }
        forms.push_back(full.substr(full.find_last_of('\\') + 1));
        if (std::find(forms.begin(), forms.end(), want) != forms.end()) return k;
    }
    return -1;
}

// A sub-key path as the store spells it ("/" stands for "\\").
std::string SubKeyPath(std::string subkey) {
    std::replace(subkey.begin(), subkey.end(), '/', '\\');
    return subkey;
}

std::string KeyPath(int key, const std::string& subkey) {
    std::string path = CRegistry::GetKeyPath(key);
    for (const auto& part : SplitRegistryPath(SubKeyPath(subkey))) path += "\\" + part;
    return path;
}

bool UseMachine(const Options& o, int key) { return CRegistry::HasMachineRoot(key) && !o.user; }
bool UseUser(const Options& o, int key) { return CRegistry::HasUserRoot(key) && !o.machine; }

// A key that already exists, without creating the store or the key.
HKEY OpenExisting(RegistryRoot root, const std::string& path, bool write) {
    const std::string file = RegistryStore::StorePath(root);
    if (!RegistryStore::Exists(file)) return HKEY();
    std::string why;
    const HKEY rootKey = RegistryKey::OpenRoot(root, write, &why);
    if (!rootKey) FileError(file, why + "; its settings are not used");
    return rootKey.OpenSubKey(path, false);
}

const char* TypeName(unsigned long type) {
    switch (type) {
        case REG_SZ: return "string";
        case REG_EXPAND_SZ: return "expand-string";
        case REG_BINARY: return "binary";
        case REG_DWORD: return "dword";
        case REG_MULTI_SZ: return "multi-string";
        case REG_QWORD: return "qword";
        default: return "none";
    }
}

std::string Hex(const std::vector<unsigned char>& data) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (unsigned char c : data) {
        s += digits[c >> 4];
        s += digits[c & 15];
    }
    return s;
}

std::string Text(const std::vector<unsigned char>& data) {
    std::string s(data.begin(), data.end());
    const size_t nul = s.find('\0');
    return nul == std::string::npos ? s : s.substr(0, nul);
}

// A value as the command prints it.
std::string Display(const RegistryValue& v) {
    if (v.type == REG_SZ || v.type == REG_EXPAND_SZ) return Text(v.data);
    if (v.type == REG_DWORD && v.data.size() == 4) return std::to_string(load<uint32_t>(v.data.data()));
    if (v.type == REG_QWORD && v.data.size() == 8) return std::to_string(load<uint64_t>(v.data.data()));
    return Hex(v.data);
}

nlohmann::json ValueJson(const RegistryValue& v) {
    nlohmann::json j;
    j["type"] = TypeName(v.type);
    if (v.type == REG_SZ || v.type == REG_EXPAND_SZ) j["value"] = Text(v.data);
    else if (v.type == REG_DWORD && v.data.size() == 4) j["value"] = load<uint32_t>(v.data.data());
    else if (v.type == REG_QWORD && v.data.size() == 8) j["value"] = load<uint64_t>(v.data.data());
    else j["hex"] = Hex(v.data);
    return j;
}

nlohmann::json TreeJson(const RegistryTree& tree) {
    nlohmann::json j;
    j["values"] = nlohmann::json::object();
    j["keys"] = nlohmann::json::object();
    for (const auto& v : tree.values) j["values"][v.name] = ValueJson(v);
    for (const auto& k : tree.keys) j["keys"][k.name] = TreeJson(k);
    return j;
}

bool ParseLong(const std::string& text, long long lo, long long hi, long long* out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno || *end || v < lo || v > hi) return false;
    *out = v;
    return true;
}

// Common checks; the key number, or -1 after printing the reason.
int Prepare(const Options& o) {
    const int key = ResolveKey(o.key);
    if (key < 0) {
        Error("registry: unknown key \"" + o.key + "\" (a number from 0 to 12 or a name such as \"setup\")");
        return -1;
    }
    if (o.machine && o.user) {
        Error("registry: --machine and --user exclude each other");
        return -1;
    }
    if (o.machine && !CRegistry::HasMachineRoot(key)) {
        Error(std::string("registry: key \"") + CRegistry::GetKeyPath(key) + "\" has no machine copy");
        return -1;
    }
    if (o.user && !CRegistry::HasUserRoot(key)) {
        Error(std::string("registry: key \"") + CRegistry::GetKeyPath(key) + "\" has no user copy");
        return -1;
    }
    return key;
}

int RunGet(const Options& o) {
    const int key = Prepare(o);
    if (key < 0) return kUsage;
    const std::string path = KeyPath(key, o.subkey);
    HKEY userKey = UseUser(o, key) ? OpenExisting(RegistryRoot::User, path, false) : HKEY();
    HKEY machineKey = UseMachine(o, key) ? OpenExisting(RegistryRoot::Machine, path, false) : HKEY();

    // The value as stored, from the user's copy first. A typed read without
    // --default fails on a missing value as the untyped one does.
    RegistryValue v;
    bool found = false;
    for (const HKEY* k : {&userKey, &machineKey})
        if (!found && *k && k->QueryValue(o.name, &v.type, &v.data) == RegOk) found = true;
    if (!found && (o.type.empty() || !o.hasDefault)) {
        Error("registry: no value \"" + o.name + "\" under \"" + path + "\"");
        return kFailed;
    }
    if (o.type.empty()) {
        std::printf("%s\n", Display(v).c_str());
        return kDone;
    }

    CRegistry reg(userKey);
    reg.m_hKeyMachine = machineKey;
    const std::string& def = o.defaultValue;
    long long n = 0;
    if (o.type == "string") {
        std::printf("%s\n", reg.GetSTRINGValue(o.name.c_str(), def.c_str()).c_str());
    } else if (o.type == "double") {
        std::printf("%.17g\n", reg.GetDOUBLEValue(o.name.c_str(), o.hasDefault ? std::strtod(def.c_str(), nullptr) : 0.0));
    } else {
        if (o.hasDefault && !ParseLong(def, -2147483648LL, 4294967295LL, &n)) {
            Error("registry: default \"" + def + "\" is not a number");
            return kUsage;
        }
        if (o.type == "int") std::printf("%d\n", reg.GetINTValue(o.name.c_str(), static_cast<int>(n)));
        else if (o.type == "dword") std::printf("%u\n", reg.GetDWORDValue(o.name.c_str(), static_cast<uint32_t>(n)));
        else if (o.type == "word") std::printf("%u\n", static_cast<unsigned>(reg.GetWORDValue(o.name.c_str(), static_cast<unsigned short>(n))));
        else std::printf("%d\n", reg.GetBOOLValue(o.name.c_str(), static_cast<int>(n)));
    }
    return kDone;
}

std::string WhyNotWritten(const Options& o, int key, const CRegistry& reg) {
    if (key == CRegistry::NetFramework) return ": this key is read-only";
    if (!reg.m_bAdmin && (o.machine || !CRegistry::HasUserRoot(key)))
        return ": the machine store needs administrator rights (THERMOKIT_ADMIN)";
    return ": store not writable (see \"thermokit registry --help\" for its location)";
}

// The value to write, as its type reads it; false when it does not read.
// decimals: those given, or for a double without --decimals those written.
bool ParseSetValue(const Options& o, long long& n, double& d, int& decimals) {
    decimals = o.decimals;
    if (o.type == "int") return ParseLong(o.value, -2147483648LL, 2147483647LL, &n);
    if (o.type == "dword") return ParseLong(o.value, 0, 4294967295LL, &n);
    if (o.type == "word") return ParseLong(o.value, 0, 65535, &n);
    if (o.type == "bool") {
        if (o.value == "true") n = 1;
        else if (o.value == "false") n = 0;
        else return ParseLong(o.value, -2147483648LL, 2147483647LL, &n);
        return true;
    }
    if (o.type != "double") return true;
    char* end = nullptr;
    d = std::strtod(o.value.c_str(), &end);
    if (decimals < 0) {
        const size_t dot = o.value.find('.');
        decimals = 0;
        if (dot != std::string::npos) {
            while (dot + 1 + decimals < o.value.size() &&
                   std::isdigit(static_cast<unsigned char>(o.value[dot + 1 + decimals])))
                ++decimals;
        }
    }
    return !o.value.empty() && *end == '\0';
}

int RunSet(const Options& o) {
    const int key = Prepare(o);
    if (key < 0) return kUsage;
    long long n = 0;
    double d = 0.0;
    int decimals = 0;
    if (!ParseSetValue(o, n, d, decimals)) {
        Error("registry: \"" + o.value + "\" is not a valid " + o.type + " value");
        return kUsage;
    }

    // With one root chosen, the other store is not even opened (nor created).
    const std::string path = KeyPath(key, o.subkey);
    const std::string subkey = SubKeyPath(o.subkey);
    CRegistry reg = o.machine || o.user ? CRegistry(HKEY())
                                        : CRegistry(static_cast<CRegistry::RegKey>(key), subkey.c_str(), nullptr);
    if (key == CRegistry::NetFramework) reg.m_bAdmin = 0;
    if (o.user) reg.m_hKeyUser = RegistryKey::OpenRoot(RegistryRoot::User, true).OpenSubKey(path, true);
    if (o.machine) {
        const bool write = reg.m_bAdmin != 0;
        reg.m_hKeyMachine = RegistryKey::OpenRoot(RegistryRoot::Machine, write).OpenSubKey(path, write);
    }
    const char* name = o.name.c_str();
    int done = 0;
    if (o.type == "string") done = reg.SetSTRINGValue(name, o.value.c_str());
    else if (o.type == "int") done = reg.SetINTValue(name, static_cast<int>(n));
    else if (o.type == "dword") done = reg.SetDWORDValue(name, static_cast<uint32_t>(n));
    else if (o.type == "word") done = reg.SetWORDValue(name, static_cast<unsigned short>(n));
    else if (o.type == "bool") done = reg.SetBOOLValue(name, static_cast<int>(n));
    else done = reg.SetDOUBLEValue(name, d, decimals);
    if (!done) {
        Error("registry: cannot write \"" + o.name + "\" under \"" + path + "\"" + WhyNotWritten(o, key, reg));
        return kFailed;
    }
    return kDone;
}

int RunDelete(const Options& o) {
    const int key = Prepare(o);
    if (key < 0) return kUsage;
    const std::string path = KeyPath(key, o.subkey);
    const bool machineWrite = CRegistry::IsUserAdmin() && key != CRegistry::NetFramework;
    CRegistry reg(UseUser(o, key) ? OpenExisting(RegistryRoot::User, path, true) : HKEY());
    reg.m_hKeyMachine = UseMachine(o, key) ? OpenExisting(RegistryRoot::Machine, path, machineWrite) : HKEY();
    const int done = o.deleteKey ? reg.DeleteKey(o.name.c_str()) : reg.DeleteValue(o.name.c_str());
    if (!done) {
        Error(std::string("registry: cannot delete ") + (o.deleteKey ? "key" : "value") + " \"" + o.name +
              "\" under \"" + path + "\" (missing, or not writable)");
        return kFailed;
    }
    return kDone;
}

int RunList(const Options& o) {
    const int key = Prepare(o);
    if (key < 0) return kUsage;
    const std::string path = KeyPath(key, o.subkey);
    bool any = false;
    for (const auto& [root, label] : {std::pair{RegistryRoot::User, "user"}, std::pair{RegistryRoot::Machine, "machine"}}) {
        if (root == RegistryRoot::User ? !UseUser(o, key) : !UseMachine(o, key)) continue;
        HKEY k = OpenExisting(root, path, false);
        if (!k) continue;
        any = true;
        std::vector<std::string> keys;
        std::vector<RegistryValue> values;
        k.EnumSubKeys(&keys);
        k.EnumValues(&values);
        std::printf("%s: %s\n", label, path.c_str());
        for (const auto& name : keys) std::printf("  %-8s %s\\\n", "key", name.c_str());
        for (const auto& v : values) {
            std::printf("  %-8s %s = %s\n", TypeName(v.type), v.name.empty() ? "(default)" : v.name.c_str(),
                        Display(v).c_str());
        }
    }
    if (!any) {
        Error("registry: key \"" + path + "\" is in no store");
        return kFailed;
    }
    return kDone;
}

int RunExport(const Options& o) {
    const int key = Prepare(o);
    if (key < 0) return kUsage;
    const std::string path = KeyPath(key, o.subkey);
    nlohmann::json j;
    j["key"] = path;
    for (const auto& [root, label] : {std::pair{RegistryRoot::User, "user"}, std::pair{RegistryRoot::Machine, "machine"}}) {
        j[label] = nullptr;
        if (root == RegistryRoot::User ? !UseUser(o, key) : !UseMachine(o, key)) continue;
        HKEY k = OpenExisting(root, path, false);
        RegistryTree tree;
        if (k && k.ReadTree(&tree) == RegOk) j[label] = TreeJson(tree);
    }
    const std::string text = j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (o.output.empty()) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        return kDone;
    }
    OutputFile target(o.output);
    std::ofstream out(PathFromUtf8(target.Temp()), std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
        FileError(o.output, "cannot be written");
        return kFailed;
    }
    return target.Commit() ? kDone : kFailed;
}

void AddCommon(CLI::App* sub, Options& o, const char* nameHelp) {
    sub->add_option("key", o.key, "Well-known key: number 0-12 or name (\"setup\", \"Common Setup\\Setup\")")->required();
    if (nameHelp) sub->add_option("name", o.name, nameHelp)->required();
    sub->add_option("--subkey,-s", o.subkey, "Path of a sub-key below the well-known key");
    auto* m = sub->add_flag("--machine", o.machine, "Work on the machine-wide store only");
    auto* u = sub->add_flag("--user", o.user, "Work on the current user's store only");
    m->excludes(u);
}

const std::vector<std::string> kTypes = {"string", "int", "dword", "word", "bool", "double"};

}  // namespace

void AddRegistryCommand(CLI::App& app) {
    static Options o;
    auto* registry = app.add_subcommand("registry", "Read and change the settings store (machine and user)");
    registry->require_subcommand(1);
    registry->footer(
#if defined(_WIN32)
        "Stores: machine HKEY_LOCAL_MACHINE ($THERMOKIT_MACHINE_STORE), user HKEY_CURRENT_USER "
        "($THERMOKIT_USER_STORE); a variable names another key (HKLM\\..., HKCU\\...) or a private store.\n"
#else
        "Stores: machine /var/lib/thermokit/registry.db ($THERMOKIT_MACHINE_STORE), user "
        "$XDG_CONFIG_HOME/thermokit/registry.db or ~/.config/thermokit/registry.db ($THERMOKIT_USER_STORE).\n"
#endif
        "Keys: 0 Global Data, 1 Common Setup, 2 Application Data, 3 Services, 4 Boards, 5 Cameras, 6 Detectors, "
        "7 Lenses, 8 Setup, 9 Virtual Camera, 10 Install, 11 WindowPos, 12 .NETFramework.\n"
        "Example: thermokit registry get setup Camera");

    auto* get = registry->add_subcommand("get", "Print a value (user's copy first, then the machine's)");
    AddCommon(get, o, "Value name");
    get->add_option("--type", o.type, "Read through the typed reader (a missing value fails unless --default is given)")
        ->check(CLI::IsMember(kTypes));
    get->add_option("--default,-d", o.defaultValue, "Default for --type");
    get->footer("Example: thermokit registry get 8 Point --type word --default 320");
    get->callback([get] {
        o.hasDefault = get->count("--default") > 0;
        SetAction([] { return RunGet(o); });
    });

    auto* set = registry->add_subcommand("set", "Write a typed value (user's copy; machine's too for administrators)");
    AddCommon(set, o, "Value name");
    set->add_option("value", o.value, "The value")->required();
    set->add_option("--type", o.type, "Value type")->required()->check(CLI::IsMember(kTypes));
    set->add_option("--decimals", o.decimals, "Decimals of a double (default: as many as given)")
        ->check(CLI::Range(0, 30));
    set->footer("Example: thermokit registry set setup Camera \"Kelm LW\" --type string");
    set->callback([] { SetAction([] { return RunSet(o); }); });

    auto* del = registry->add_subcommand("delete", "Delete a value, or with --key a sub-key and all below it");
    AddCommon(del, o, "Value name (sub-key name with --key)");
    del->add_flag("--key,-k", o.deleteKey, "NAME is a sub-key: delete it with its sub-keys");
    del->footer("Example: thermokit registry delete setup Lens");
    del->callback([] { SetAction([] { return RunDelete(o); }); });

    auto* list = registry->add_subcommand("list", "List the sub-keys and values of a key in each store");
    AddCommon(list, o, nullptr);
    list->footer("Example: thermokit registry list \"Common Setup\\Setup\" --user");
    list->callback([] { SetAction([] { return RunList(o); }); });

    auto* exp = registry->add_subcommand("export", "Write a key and everything below it as JSON");
    AddCommon(exp, o, nullptr);
    Output(exp->add_option("--output,-o", o.output, "Write to this file instead of standard output"));
    exp->footer("Example: thermokit registry export 0 --subkey NucFile -o nucfile.json");
    exp->callback([] { SetAction([] { return RunExport(o); }); });
}

}  // namespace thermokit::cli
