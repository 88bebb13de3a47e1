#include "thermokit/platform/Dispatch.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "thermokit/platform/CpuFeatures.h"
#include "thermokit/platform/IsaList.h"
#include "thermokit/platform/Messages.h"

namespace thermokit {

namespace {

#define THERMOKIT_ISA_NAME_(isa, unused) #isa,
constexpr const char* kNames[] = {THERMOKIT_ISA_FOR_EACH(THERMOKIT_ISA_NAME_, 0)};
#undef THERMOKIT_ISA_NAME_
constexpr int kCount = static_cast<int>(sizeof(kNames) / sizeof(kNames[0]));

// Whether this processor runs the named variant.
bool Runs(const char* name) {
    const CpuFeatures& f = CpuFeatures::Get();
    if (std::strcmp(name, "baseline") == 0) return true;
    if (std::strcmp(name, "v3") == 0) return f.x86_64_v3;
    if (std::strcmp(name, "v4") == 0) return f.x86_64_v4;
    return false;
}

int IndexOf(const char* name) {
    for (int i = 0; i < kCount; ++i)
        if (std::strcmp(kNames[i], name) == 0) return i;
    return -1;
}

int Widest() {
    for (int i = kCount - 1; i > 0; --i)
        if (Runs(kNames[i])) return i;
    return 0;
}

enum Choice { kAutomatic, kEnvironment, kForced };
const char* const kChoiceText[] = {"widest this processor runs", "THERMOKIT_ISA", "SetIsa"};

std::atomic<int> g_index{-1};
std::atomic<int> g_choice{kAutomatic};

struct Startup {
    int index;
    int choice;
};

// The start-up rule: THERMOKIT_ISA when it names a variant this processor
// runs, else the widest one. Worked out once; a name that cannot be used is
// reported then.
Startup StartupChoice() {
    static const Startup startup = [] {
        const char* wanted = std::getenv("THERMOKIT_ISA");
        if (!wanted || !*wanted) return Startup{Widest(), kAutomatic};
        const int i = IndexOf(wanted);
        if (i >= 0 && Runs(wanted)) return Startup{i, kEnvironment};
        std::string known;
        for (int k = 0; k < kCount; ++k) known += std::string(k ? ", " : "") + kNames[k];
        Messages::ShowMessage(Format("THERMOKIT_ISA=%s is %s (variants: %s); using %s.", wanted,
                                     i < 0 ? "not a variant of this build" : "not run by this processor",
                                     known.c_str(), kNames[Widest()]),
                              "thermokit", MB_ICONWARNING);
        return Startup{Widest(), kAutomatic};
    }();
    return startup;
}

}  // namespace

namespace dispatch {
int ActiveIndex() noexcept {
    const int i = g_index.load(std::memory_order_relaxed);
    if (i >= 0) return i;
    const Startup s = StartupChoice();
    int expected = -1;
    if (g_index.compare_exchange_strong(expected, s.index)) g_choice.store(s.choice);  // else SetIsa came first
    return g_index.load();
}
}  // namespace dispatch

const char* GetIsa() { return kNames[dispatch::ActiveIndex()]; }

const char* GetIsaChoice() {
    dispatch::ActiveIndex();
    return kChoiceText[g_choice.load()];
}

int SetIsa(const char* name) {
    if (!name || !*name) {
        const Startup s = StartupChoice();
        g_choice.store(s.choice);
        g_index.store(s.index);
        return 1;
    }
    const int i = IndexOf(name);
    if (i < 0 || !Runs(name)) return 0;
    g_choice.store(kForced);
    g_index.store(i);
    return 1;
}

std::vector<std::string> GetIsaList() {
    std::vector<std::string> list;
    for (int i = 0; i < kCount; ++i)
        if (Runs(kNames[i])) list.emplace_back(kNames[i]);
    return list;
}

}  // namespace thermokit
