#pragma once
// Every settings test runs against its own pair of store files under the
// test temp folder (on Windows: private stores named after them, under
// HKEY_CURRENT_USER\Software\thermokit\Stores): the real machine and user
// stores are never touched.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/Bytes.h"  // TempPath, ReadText, WriteText
#include "support/Environment.h"
#include "thermokit/environment/RegistryStore.h"

namespace thermokit::test {

// Before any test of a program that includes this header runs, both roots
// point at files that do not exist, so nothing can reach the real stores.
inline const bool kStoreGuard = [] {
    const std::string base = ::testing::TempDir() + "tk_settings_guard_" + std::to_string(::getpid());
    ::setenv("THERMOKIT_MACHINE_STORE", (base + "_machine.db").c_str(), 1);
    ::setenv("THERMOKIT_USER_STORE", (base + "_user.db").c_str(), 1);
    ::setenv("THERMOKIT_ADMIN", "0", 1);
    return true;
}();

// Points both roots at fresh files and sets the administrator switch; puts
// the environment back afterwards.
class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_machine = TempPath("machine.db");
        m_user = TempPath("user.db");
        ::setenv("THERMOKIT_MACHINE_STORE", m_machine.c_str(), 1);
        ::setenv("THERMOKIT_USER_STORE", m_user.c_str(), 1);
        SetAdmin(false);
    }
    void TearDown() override {
        for (const auto& p : {m_machine, m_user}) thermokit::RegistryStore::Remove(p);
    }
    static void SetAdmin(bool admin) { ::setenv("THERMOKIT_ADMIN", admin ? "1" : "0", 1); }

    std::string m_machine;
    std::string m_user;
};

}  // namespace thermokit::test
