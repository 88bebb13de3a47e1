#pragma once
// An output written under a temporary name in the folder of the final one
// and renamed into place only once complete: a failure never leaves a
// partial file behind, and an existing file is replaced only by a whole new
// one. The temporary file is removed unless Commit succeeded, also when the
// tool is interrupted (SIGINT, SIGTERM, SIGHUP; on Windows Ctrl-C, Ctrl-Break,
// the console closing).
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "System.h"
#include "thermokit/platform/Utf8Path.h"

namespace thermokit::cli {

// What an interruption removes: every temporary file alive, then the
// temporary folder being built (if any). Lock-free reads only.
class Interrupted {
public:
    // Temporary file names alive now: a list that only grows, its nodes
    // reused once free (a node is free when not used). Any number at once.
    struct Node {
        std::atomic<bool> used{false};   // claimed by an output
        std::atomic<bool> armed{false};  // its name is whole
        char name[4096] = {};
        std::atomic<Node*> next{nullptr};
    };
    static Node* Track(const std::string& name) {
        OnInterrupt(Cleanup);
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
        node->armed = true;  // only a whole name is ever removed
        return node;
    }
    static void Untrack(Node* node) {
        if (!node) return;
        node->armed = false;
        node->name[0] = 0;
        node->used = false;
    }
    // The one folder being built; an empty name for none.
    static void TrackFolder(const std::string& name) {
        OnInterrupt(Cleanup);
        Folder()[0] = 0;
        if (name.size() < sizeof(Folder())) std::memcpy(Folder(), name.c_str(), name.size() + 1);
    }

private:
    static std::atomic<Node*>& Head() {
        static std::atomic<Node*> head{nullptr};
        return head;
    }
    static char (&Folder())[4096] {
        static char name[4096];
        return name;
    }
    static void Cleanup() {
        for (Node* n = Head().load(); n; n = n->next.load())
            if (n->armed.load()) RemoveFileNow(n->name);
        if (Folder()[0]) RemoveTreeNow(Folder(), 2);
    }
};

class OutputFile {
public:
    explicit OutputFile(std::string path) : m_path(std::move(path)) {
        const size_t slash = m_path.find_last_of(kPathSeparators);
        const std::string folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        m_temp = folder + "." + name + ".part-" + std::to_string(static_cast<long>(getpid())) + "-" +
                 std::to_string(++Counter());
        RemoveFileNow(m_temp.c_str());
        m_slot = Interrupted::Track(m_temp);
    }
    ~OutputFile() {
        Interrupted::Untrack(m_slot);
        if (!m_committed) RemoveFileNow(m_temp.c_str());
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
            FileError(m_path, "cannot be written (" + why + ")");
            return false;
        }
        Interrupted::Untrack(m_slot);
        m_slot = nullptr;
        m_committed = true;
        return true;
    }

private:
    static unsigned& Counter() {
        static unsigned n = 0;
        return n;
    }
    std::string m_path, m_temp;
    Interrupted::Node* m_slot = nullptr;
    bool m_committed = false;
};

// Renames every output into place, or none: when one cannot be renamed, the
// ones already renamed are removed again (and the rest are removed with
// their objects). False with a message naming the output that failed.
inline bool CommitAll(std::vector<std::unique_ptr<OutputFile>>& outputs) {
    for (size_t i = 0; i < outputs.size(); ++i)
        if (!outputs[i]->Commit()) {
            for (size_t k = 0; k < i; ++k) RemoveFileNow(outputs[k]->Path().c_str());
            return false;
        }
    return true;
}

// A folder of outputs built under a temporary name beside the final one
// (".NAME.part-PID") and renamed into place once complete, replacing an
// earlier folder of that name only then. Removed with what it holds unless
// committed, also when the tool is interrupted.
class TemporaryFolder {
public:
    explicit TemporaryFolder(std::string path) : m_path(std::move(path)) {
        while (m_path.size() > 1 && std::strchr(kPathSeparators, m_path.back())) m_path.pop_back();
        m_temp = Beside(".part-");
        std::error_code ec;
        std::filesystem::remove_all(PathFromUtf8(m_temp), ec);
        Interrupted::TrackFolder(m_temp);
    }
    ~TemporaryFolder() {
        Interrupted::TrackFolder(std::string());
        std::error_code ec;
        if (!m_committed) std::filesystem::remove_all(PathFromUtf8(m_temp), ec);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Where to build.
    const std::string& Temp() const { return m_temp; }
    const std::string& Path() const { return m_path; }
    bool Create() {
        std::error_code ec;
        const auto temp = PathFromUtf8(m_temp);
        return std::filesystem::create_directories(temp, ec) || std::filesystem::is_directory(temp, ec);
    }

    // Puts the folder in place of the final one; false with a message naming the final folder.
    bool Commit() {
        std::error_code ec;
        const std::string old = Beside(".old-");
        const bool replacing = std::filesystem::exists(PathFromUtf8(m_path), ec);
        std::string why;
        if (replacing && !MoveFolder(m_path, old, &why)) return Failed(why);
        if (!MoveFolder(m_temp, m_path, &why)) {
            if (replacing) MoveFolder(old, m_path, nullptr);
            return Failed(why);
        }
        Interrupted::TrackFolder(std::string());
        m_committed = true;
        if (replacing) std::filesystem::remove_all(PathFromUtf8(old), ec);
        return true;
    }

private:
    std::string Beside(const char* tag) const {
        const size_t slash = m_path.find_last_of(kPathSeparators);
        const std::string folder = slash == std::string::npos ? std::string() : m_path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        return folder + "." + name + tag + std::to_string(static_cast<long>(getpid()));
    }
    bool Failed(const std::string& why) const {
        FileError(m_path, "cannot be put in place (" + why + ")");
        return false;
    }
    std::string m_path, m_temp;
    bool m_committed = false;
};

}  // namespace thermokit::cli
