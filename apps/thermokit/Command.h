#pragma once
// Sub-commands register themselves: each command file defines a static
// RegisterCommand whose setup function adds a sub-command to the tool and
// hands back the action to run when that sub-command is chosen.
#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace thermokit::cli {

// Exit statuses of every command.
enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2 };

using Action = std::function<int()>;

// Called by a sub-command's callback: the action main runs after parsing.
void SetAction(Action action);

struct RegisterCommand {
    // order decides the place in --help; setup adds the sub-command.
    RegisterCommand(int order, std::function<void(CLI::App&)> setup);
};

// Prints "thermokit: <text>" on standard error (errors name the file and what is wrong).
void Error(const std::string& text);

// --quiet, given anywhere on the command line: no progress bars and no summary
// lines of commands that write files (the results of commands that only tell
// something, as info or stats, are still printed).
bool Quiet();
void SetQuiet(bool quiet);

// A summary line on standard output, left out under --quiet.
#if defined(_WIN32)  // the C99 printf of MinGW-w64, not Microsoft's
void Note(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));
#else
void Note(const char* format, ...) __attribute__((format(printf, 1, 2)));
#endif

}  // namespace thermokit::cli
