#pragma once
// An output written under a temporary name in the folder of the final one
// and renamed into place only once complete: a failure never leaves a
// partial file behind, and an existing file is replaced only by a whole new
// one. The temporary file is removed unless Commit succeeded.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Command.h"

namespace thermokit::cli {

class OutputFile {
public:
    explicit OutputFile(std::string path) : m_path(std::move(path)) {
        const size_t slash = m_path.find_last_of('/');
        const std::string folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        m_temp = folder + "." + name + ".part-" + std::to_string(static_cast<long>(getpid())) + "-" +
                 std::to_string(++Counter());
        std::remove(m_temp.c_str());
    }
    ~OutputFile() {
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
        if (std::rename(m_temp.c_str(), m_path.c_str()) != 0) {
            Error("file " + m_path + ": cannot be written (" + std::strerror(errno) + ")");
            return false;
        }
        m_committed = true;
        return true;
    }

private:
    static unsigned& Counter() {
        static unsigned n = 0;
        return n;
    }
    std::string m_path, m_temp;
    bool m_committed = false;
};

}  // namespace thermokit::cli
