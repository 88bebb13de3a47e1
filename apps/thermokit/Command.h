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

}  // namespace thermokit::cli
