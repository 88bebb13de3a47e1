#pragma once
// An output written under a temporary name in the folder of the final one
// and renamed into place only once complete: a failure never leaves a
// partial file behind, and an existing file is replaced only by a whole new
// one. The temporary file is removed unless Commit succeeded, also when the
// tool is interrupted (SIGINT, SIGTERM, SIGHUP).
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

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
        if (std::rename(m_temp.c_str(), m_path.c_str()) != 0) {
            FileError(m_path, std::string("cannot be written (") + std::strerror(errno) + ")");
            return false;
        }
        Untrack(m_slot);
        m_slot = nullptr;
        m_committed = true;
        return true;
    }

private:
    // Temporary names alive now, for the signal handler (which may only read
    // memory and unlink): a list that only grows, its nodes reused once free
    // (a node is free when not used). Any number of outputs at once.
    struct Node {
        std::atomic<bool> used{false};   // claimed by an output
        std::atomic<bool> armed{false};  // its name is whole
        char name[4096] = {};
        std::atomic<Node*> next{nullptr};
    };
    static std::atomic<Node*>& Head() {
        static std::atomic<Node*> head{nullptr};
        return head;
    }
    static void OnSignal(int signal) {
        for (Node* n = Head().load(); n; n = n->next.load())
            if (n->armed.load()) unlink(n->name);
        ::signal(signal, SIG_DFL);
        ::raise(signal);
    }
    static Node* Track(const std::string& name) {
        static const bool installed = [] {
            for (int s : {SIGINT, SIGTERM, SIGHUP}) ::signal(s, OnSignal);
            return true;
        }();
        (void)installed;
        if (name.size() >= sizeof(Node::name)) return nullptr;  // longer than a path can be: never created
        Node* node = nullptr;
        for (Node* n = Head().load(); n && !node; n = n->next.load()) {
            bool expected = false;
            if (n->used.compare_exchange_strong(expected, true)) node = n;
        }
        if (!node) {
            node = new Node;  // kept to the end of the process: the handler may be reading it
            node->used = true;
            Node* first = Head().load();
            do node->next.store(first);
            while (!Head().compare_exchange_weak(first, node));
        }
        std::memcpy(node->name, name.c_str(), name.size() + 1);
        node->armed = true;  // only a whole name is ever unlinked
        return node;
    }
    static void Untrack(Node* node) {
        if (!node) return;
        node->armed = false;
        node->name[0] = 0;
        node->used = false;
    }

    static unsigned& Counter() {
        static unsigned n = 0;
        return n;
    }
    std::string m_path, m_temp;
    Node* m_slot = nullptr;
    bool m_committed = false;
};

// Renames every output into place, or none: when one cannot be renamed, the
// ones already renamed are removed again (and the rest are removed with
// their objects). False with a message naming the output that failed.
inline bool CommitAll(std::vector<std::unique_ptr<OutputFile>>& outputs) {
    for (size_t i = 0; i < outputs.size(); ++i)
        if (!outputs[i]->Commit()) {
            for (size_t k = 0; k < i; ++k) std::remove(outputs[k]->Path().c_str());
            return false;
        }
    return true;
}

// A folder of outputs built under a temporary name beside the final one
// (".NAME.part-PID") and renamed into place once complete, replacing an
// earlier folder of that name only then. Removed with what it holds unless
// committed, also when the tool is interrupted (SIGINT, SIGTERM, SIGHUP).
class TemporaryFolder {
public:
    explicit TemporaryFolder(std::string path) : m_path(std::move(path)) {
        while (m_path.size() > 1 && m_path.back() == '/') m_path.pop_back();
        m_temp = Beside(".part-");
        std::error_code ec;
        std::filesystem::remove_all(m_temp, ec);
        if (m_temp.size() < sizeof(Name())) {
            std::memcpy(Name(), m_temp.c_str(), m_temp.size() + 1);
            for (int s : {SIGINT, SIGTERM, SIGHUP}) ::signal(s, OnSignal);
        }
    }
    ~TemporaryFolder() {
        Name()[0] = 0;
        std::error_code ec;
        if (!m_committed) std::filesystem::remove_all(m_temp, ec);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Where to build.
    const std::string& Temp() const { return m_temp; }
    const std::string& Path() const { return m_path; }
    bool Create() {
        std::error_code ec;
        return std::filesystem::create_directories(m_temp, ec) || std::filesystem::is_directory(m_temp);
    }

    // Puts the folder in place of the final one; false with a message naming the final folder.
    bool Commit() {
        std::error_code ec;
        const std::string old = Beside(".old-");
        const bool replacing = std::filesystem::exists(m_path, ec);
        if (replacing && std::rename(m_path.c_str(), old.c_str()) != 0) return Failed();
        if (std::rename(m_temp.c_str(), m_path.c_str()) != 0) {
            if (replacing) std::rename(old.c_str(), m_path.c_str());
            return Failed();
        }
        Name()[0] = 0;
        m_committed = true;
        if (replacing) std::filesystem::remove_all(old, ec);
        return true;
    }

private:
    std::string Beside(const char* tag) const {
        const size_t slash = m_path.find_last_of('/');
        const std::string folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        return folder + "." + name + tag + std::to_string(static_cast<long>(getpid()));
    }
    bool Failed() const {
        FileError(m_path, std::string("cannot be put in place (") + std::strerror(errno) + ")");
        return false;
    }
    static char (&Name())[4096] {
        static char name[4096];
        return name;
    }
    // Removes the folder two levels deep with system calls only (what a
    // signal handler may do): the files, the sub-folders' files, the folders.
    static void RemoveTree(int parent, const char* name, int depth) {
        const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        if (fd < 0) return;
        alignas(8) char buf[4096];
        // Entries removed while the folder is read may be skipped: read it again until it is empty.
        for (int pass = 0; pass < 16; ++pass) {
            bool any = false;
            ::lseek(fd, 0, SEEK_SET);
            long n;
            while ((n = ::syscall(SYS_getdents64, fd, buf, sizeof buf)) > 0)
                for (long at = 0; at < n;) {
                    const auto* d = reinterpret_cast<const struct dirent64*>(buf + at);
                    at += d->d_reclen;
                    if (d->d_name[0] == '.' && (!d->d_name[1] || (d->d_name[1] == '.' && !d->d_name[2]))) continue;
                    any = true;
                    if (d->d_type == DT_DIR && depth > 0) RemoveTree(fd, d->d_name, depth - 1);
                    else ::unlinkat(fd, d->d_name, 0);
                }
            if (!any) break;
        }
        ::close(fd);
        ::unlinkat(parent, name, AT_REMOVEDIR);
    }
    static void OnSignal(int signal) {
        if (Name()[0]) RemoveTree(AT_FDCWD, Name(), 2);
        ::signal(signal, SIG_DFL);
        ::raise(signal);
    }
    std::string m_path, m_temp;
    bool m_committed = false;
};

}  // namespace thermokit::cli
