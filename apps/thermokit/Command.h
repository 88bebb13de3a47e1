#pragma once
// What every command shares: the exit statuses, the action main runs after
// parsing, the options that name files (checked by main before any command
// runs), and the one way failures and notes are printed.
#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "thermokit/platform/Utf8.h"

namespace thermokit::cli {

// Exit statuses of every command.
enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2 };

using Action = std::function<int()>;

// Called by a sub-command's callback: the action main runs after parsing.
void SetAction(Action action);

// Marks an option whose values name files the command reads. Before the
// command runs, each given one must be a regular file that can be opened for
// reading (a FIFO, a device or a folder would block or mislead a reader):
// otherwise one line "thermokit: file NAME: not found" (or what else is
// wrong) and exit 1.
CLI::Option* Input(CLI::Option* option);
// Marks an option whose values name files the command writes ("-" is
// standard output): refused when one is the same file as any input (same
// device and inode), so that no command replaces what it is reading.
CLI::Option* Output(CLI::Option* option);
// The same, and an output that names a folder (an existing one, or a name
// ending in a separator) becomes the file in it named after the command's
// first input: its name without extension, then extension() (".png", or ""
// for a prefix). A command without an input keeps the name as given.
CLI::Option* Output(CLI::Option* option, std::function<std::string()> extension);

// Checks of numbers with readable limits: above 0, and 0 or above.
CLI::Validator Positive();
CLI::Validator NonNegative();

// What keeps the file at path from being read by a command: "not found",
// "not a regular file (a FIFO)", "cannot be opened (reason)"; empty when
// nothing does. Never opens anything that could block.
std::string InputProblem(const std::string& path);
// True when both names lead to the same existing file.
bool SameFile(const std::string& a, const std::string& b);

// Prints "thermokit: <text>" on standard error, one line (control
// characters escaped). Errors name the file and what is wrong: "file NAME:
// what is wrong (system reason)", or the option and what it expects. The
// message texts the library showed for the same failure are not printed.
void Error(const std::string& text);
// "thermokit: warning: <text>" on standard error; the command goes on.
void Warning(const std::string& text);
// A number as %g writes it.
std::string Number(double value);
// The one form of a file's error: "file PATH: what is wrong"; FileError prints it.
std::string FileErrorText(const std::string& path, const std::string& what);
void FileError(const std::string& path, const std::string& what);

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

// An 8-bit text field of a file for a line of text output: UTF-8, control
// characters escaped (JSON output takes Latin1ToUtf8 alone: it escapes them itself).
inline std::string Shown(const std::string& field) { return EscapeControls(Latin1ToUtf8(field)); }

// The commands, in the order of the tool's help (listed in main.cpp).
void AddInfoCommand(CLI::App& app);
void AddStatsCommand(CLI::App& app);
void AddTemperatureCommand(CLI::App& app);
void AddRenderCommand(CLI::App& app);
void AddAnimateCommand(CLI::App& app);
void AddExportCommand(CLI::App& app);
void AddEditCommand(CLI::App& app);
void AddCorrectCommand(CLI::App& app);
void AddNucCommand(CLI::App& app);
void AddBadPixelsCommand(CLI::App& app);
void AddLockinCommand(CLI::App& app);
void AddCalibCommand(CLI::App& app);
void AddPlanckCommand(CLI::App& app);
void AddPaletteCommand(CLI::App& app);
void AddRecordCommand(CLI::App& app);
void AddCamerasCommand(CLI::App& app);
void AddSimulateCommand(CLI::App& app);
void AddViewCommand(CLI::App& app);
void AddRegistryCommand(CLI::App& app);
void AddDemoCommand(CLI::App& app);
void AddAboutCommand(CLI::App& app);

}  // namespace thermokit::cli
