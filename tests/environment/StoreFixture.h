#pragma once
// Every settings test runs against its own pair of store files under the
// test temp folder (on Windows: private stores named after them, under
// HKEY_CURRENT_USER\Software\thermokit\Stores): the real machine and user
// stores are never touched.
#include <gtest/gtest.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <sys/wait.h>
#endif
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/Environment.h"
#include "thermokit/environment/RegistryStore.h"

namespace thermokit_test {

inline std::string UniqueTempPath(const std::string& stem) {
    static std::atomic<int> counter{0};
    return ::testing::TempDir() + "tk_settings_" + std::to_string(::getpid()) + "_" + std::to_string(counter++) +
           "_" + stem;
}

inline std::vector<char> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline bool Exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

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
        m_machine = UniqueTempPath("machine.db");
        m_user = UniqueTempPath("user.db");
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

#if !defined(_WIN32)
// Runs body in a child process; returns its exit status (-1 when it did not
// exit normally). The child never returns into the test framework.
inline int RunInChild(const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        int code = 99;
        try {
            code = body();
        } catch (...) {
        }
        ::_exit(code);
    }
    if (pid < 0) return -1;
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
#endif

}  // namespace thermokit_test
