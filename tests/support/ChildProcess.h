#pragma once
// A program run as a child process without a shell, so that the test can
// signal it: its standard output and error go to files (or nowhere), it is
// waited for with a time limit, and it is killed and reaped when the object
// goes, whatever the test's outcome.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace thermokit::test {

// A fork of the test that runs body and exits with what it returns (99 when it
// throws); the child never returns into the test framework.
inline pid_t Spawn(const std::function<int()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        int code = 99;
        try {
            code = body();
        } catch (...) {
        }
        ::_exit(code);
    }
    return pid;
}

// Waits for a spawned child: its exit status, minus the signal that ended it,
// or -1000 when there is no such child.
inline int Join(pid_t pid) {
    int status = 0;
    if (pid <= 0 || ::waitpid(pid, &status, 0) != pid) return -1000;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : -999;
}

// Ends a spawned child at once, as a crash would, and reaps it.
inline int Kill(pid_t pid) {
    if (pid > 0) ::kill(pid, SIGKILL);
    return Join(pid);
}

class ChildProcess {
public:
    // argv[0] is the program (looked up on PATH); empty file names discard the output.
    explicit ChildProcess(const std::vector<std::string>& argv, const std::string& outFile = "",
                          const std::string& errFile = "") {
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::setpgid(0, 0);  // a Ctrl-C meant for the test run does not reach it
            Redirect(outFile, STDOUT_FILENO);
            Redirect(errFile, STDERR_FILENO);
            ::execvp(args[0], args.data());
            ::_exit(127);
        }
    }
    ~ChildProcess() {
        if (Running()) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return m_pid; }
    bool Running() const { return m_pid > 0 && !m_bEnded; }
    void Signal(int signal) const {
        if (Running()) ::kill(m_pid, signal);
    }
    // Waits at most seconds: its exit status, or -1 when a signal ended it or
    // it had not ended in time (it is then killed).
    int Wait(double seconds) {
        if (!Running()) return m_nStatus;
        const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        int status = 0;
        while (::waitpid(m_pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > limit) {
                ::kill(m_pid, SIGKILL);
                ::waitpid(m_pid, &status, 0);
                status = -1;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        m_bEnded = true;
        m_nStatus = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return m_nStatus;
    }

private:
    static void Redirect(const std::string& file, int fd) {
        const int to = ::open(file.empty() ? "/dev/null" : file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (to >= 0) ::dup2(to, fd);
    }
    pid_t m_pid = -1;
    bool m_bEnded = false;
    int m_nStatus = -1;
};

}  // namespace thermokit::test
