#pragma once
// An output written under a temporary name in the folder of the final one
// and renamed into place only once complete: a failure never leaves a
// partial file behind, and an existing file is replaced only by a whole new
// one. The temporary file is removed unless Commit succeeded, also when the
// tool is interrupted (SIGINT, SIGTERM, SIGHUP; on Windows Ctrl-C, Ctrl-Break,
// the console closing).
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Command.h"
#include "System.h"

namespace thermokit::cli {

class OutputFile {
public:
    explicit OutputFile(std::string path) : m_path(std::move(path)) {
        const size_t slash = m_path.find_last_of(kPathSeparators);
        const std::string folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        m_temp = folder + "." + name + ".part-" + std::to_string(static_cast<long>(getpid())) + "-" +
                 std::to_string(++Counter());
        std::remove(m_temp.c_str());
        m_slot = Track(m_temp);
    }
    ~OutputFile() {
        Untrack(m_slot);
        if (!m_committed) std::remove(m_temp.c_str());
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where to write.
    const std::string& Temp() const { return m_temp; }
    const char* c_str() const { return m_temp.c_str(); }
    const std::string& Path() const { return m_path; }

    // Renames the complete file into place; false with a message naming the output.
    bool Commit() {
        std::string why;
        if (!MoveIntoPlace(m_temp, m_path, &why)) {
            Error("file " + m_path + ": cannot be written (" + why + ")");
            return false;
        }
        Untrack(m_slot);
        m_slot = -1;
        m_committed = true;
        return true;
    }

private:
    // Temporary names alive now, for the interruption handler (which may
    // only remove files): fixed buffers, a slot is free when its first byte
    // is 0.
    static constexpr int kSlots = 256;
    static constexpr size_t kNameMax = 1024;
    static char (&Slots())[kSlots][kNameMax] {
        static char slots[kSlots][kNameMax];
        return slots;
    }
    static void RemoveAll() {
        for (auto& name : Slots())
            if (name[0]) RemoveFileNow(name);
    }
    static int Track(const std::string& name) {
        OnInterrupt(RemoveAll);
        if (name.size() >= kNameMax) return -1;
        for (int i = 0; i < kSlots; ++i)
            if (!Slots()[i][0]) {
                std::memcpy(Slots()[i], name.c_str(), name.size() + 1);
                return i;
            }
        return -1;  // beyond the slots: still removed on failure, not on a signal
    }
    static void Untrack(int slot) {
        if (slot >= 0) Slots()[slot][0] = 0;
    }

    static unsigned& Counter() {
        static unsigned n = 0;
        return n;
    }
    std::string m_path, m_temp;
    int m_slot = -1;
    bool m_committed = false;
};

}  // namespace thermokit::cli
