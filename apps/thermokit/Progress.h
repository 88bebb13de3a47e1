#pragma once
// A progress bar on standard error for work that lasts: nothing is drawn in
// the first second, nor when standard error is not a terminal, nor under
// --quiet. Step(done) is cheap enough to call for every frame.
#include <chrono>
#include <cstdio>
#include <string>

#include "Command.h"
#include "System.h"

namespace thermokit::cli {

class Progress {
public:
    Progress(std::string label, unsigned long total)
        : m_label(std::move(label)), m_total(total), m_start(Clock::now()),
          m_enabled(!Quiet() && IsTerminal(stderr)) {}
    ~Progress() { Done(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Step(unsigned long done) {
        if (!m_enabled) return;
        const auto now = Clock::now();
        if (!m_drawn && now - m_start < std::chrono::seconds(1)) return;
        if (m_drawn && now - m_last < std::chrono::milliseconds(100) && done < m_total) return;
        m_last = now;
        m_drawn = true;
        const int width = 30;
        const int filled = m_total ? static_cast<int>(static_cast<double>(done) / m_total * width) : width;
        std::string bar(static_cast<size_t>(filled > width ? width : filled), '#');
        bar.resize(width, '.');
        std::fprintf(stderr, "\r%s [%s] %lu / %lu", m_label.c_str(), bar.c_str(), done, m_total);
        std::fflush(stderr);
    }
    // Ends the line of the bar (when one was drawn).
    void Done() {
        if (m_drawn) std::fprintf(stderr, "\n");
        m_drawn = false;
        m_enabled = false;
    }

private:
    using Clock = std::chrono::steady_clock;
    std::string m_label;
    unsigned long m_total;
    Clock::time_point m_start, m_last;
    bool m_enabled;
    bool m_drawn = false;
};

}  // namespace thermokit::cli
