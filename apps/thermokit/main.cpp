// thermokit: the command-line tool of the toolkit.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <vector>

#include "Command.h"
#include "thermokit/platform/Parallel.h"
#include "thermokit/platform/Version.h"

namespace thermokit::cli {

namespace {
struct Entry {
    int order;
    std::function<void(CLI::App&)> setup;
};
std::vector<Entry>& Registry() {
    static std::vector<Entry> entries;
    return entries;
}
Action& PendingAction() {
    static Action action;
    return action;
}
bool g_quiet = false;
}  // namespace

bool Quiet() { return g_quiet; }
void SetQuiet(bool quiet) { g_quiet = quiet; }

void Note(const char* format, ...) {
    if (g_quiet) return;
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
}

RegisterCommand::RegisterCommand(int order, std::function<void(CLI::App&)> setup) {
    Registry().push_back({order, std::move(setup)});
}

void SetAction(Action action) { PendingAction() = std::move(action); }

void Error(const std::string& text) { std::fprintf(stderr, "thermokit: %s\n", text.c_str()); }

}  // namespace thermokit::cli

int main(int argc, char** argv) {
    using namespace thermokit::cli;
    CLI::App app{"thermokit: thermal-infrared camera toolkit (frames, films, NUC, bad pixels, calibration, display)",
                 "thermokit"};
    app.set_version_flag("--version", std::string("thermokit ") + thermokit::GetVersion());
    app.require_subcommand(0, 1);
    // Given before or after the sub-command: options of the tool fall through to it.
    app.fallthrough();
    bool quiet = false;
    app.add_flag("-q,--quiet", quiet, "No progress bars and no summary lines");
    int threads = 0;
    app.add_option("--threads", threads,
                   "Threads for work over whole films (default: THERMOKIT_THREADS, else every core)")
        ->check(CLI::Range(1, 4096));

    auto& entries = Registry();
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.order < b.order; });
    for (auto& e : entries) e.setup(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? kDone : kUsage;
    }
    SetQuiet(quiet);
    thermokit::SetThreadCount(threads);
    if (!PendingAction()) {
        std::cout << app.help();
        return kDone;
    }
    try {
        return PendingAction()();
    } catch (const std::exception& e) {
        Error(e.what());
        return kFailed;
    }
}
