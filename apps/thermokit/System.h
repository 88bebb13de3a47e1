#pragma once
// What the tool asks of the operating system beyond the library: the
// console, interruptions and replacing files. One implementation per system
// in System.cpp.
#include <cstdio>
#include <string>

namespace thermokit::cli {

// What separates folders in a file name.
#if defined(_WIN32)
constexpr const char* kPathSeparators = "/\\";
#else
constexpr const char* kPathSeparators = "/";
#endif

// Sets the standard streams up once, before anything is printed: on Windows
// they write bytes as given (no "\r\n" for "\n"), so the tool's output is the
// same as on Linux.
void PrepareStandardStreams();

// True when the stream goes to a terminal (a console window on Windows).
bool IsTerminal(std::FILE* stream);

// Runs cleanup when the tool is interrupted (SIGINT, SIGTERM, SIGHUP; on
// Windows Ctrl-C, Ctrl-Break and the closing console window), then ends the
// tool as the interruption would have. cleanup may only remove files (with
// RemoveFileNow), from a signal handler or another thread. Installed once;
// later calls change nothing.
void OnInterrupt(void (*cleanup)());

// From now until RestoreInterrupt, an interruption first calls divert (from
// a signal handler or another thread: lock-free work only); when it returns
// false the interruption does what it did before (OnInterrupt's cleanup, or
// the end of the tool). Threads blocked in the system carry on undisturbed.
void DivertInterrupt(bool (*divert)());
void RestoreInterrupt();

// Removes a file; safe in cleanup. On Windows, files the C library still
// holds open are closed first (the tool is about to end).
void RemoveFileNow(const char* path);

// Removes a folder with its files and sub-folders, depth levels deep; safe
// in cleanup (system calls only, no allocation on Linux).
void RemoveTreeNow(const char* path, int depth);

// A new file for writing, as a C library descriptor with the permissions the
// user's mask leaves (truncated when it exists; not inherited by child
// processes; bytes as written on every system). -1 with errno set.
int CreateOutputDescriptor(const std::string& path);

// Replaces to with from in one step (rename; MoveFileExW with
// MOVEFILE_REPLACE_EXISTING on Windows). False with the system's reason in
// *why.
bool MoveIntoPlace(const std::string& from, const std::string& to, std::string* why);

// Renames the folder from to the name to, which must not exist. False with
// the system's reason in *why (when given).
bool MoveFolder(const std::string& from, const std::string& to, std::string* why);

}  // namespace thermokit::cli
