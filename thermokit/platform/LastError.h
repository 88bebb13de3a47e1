#pragma once
// The last failure of an object, kept for callers that report failures their
// own way: the command-line tool prints one line per failure, Python raises
// an exception carrying the text, a program may log it.
//
// Every class that reads or writes a file derives from LastError. An
// operation that fails still returns what it always returned (0, an invalid
// object, -1) and still shows the message texts its class is required to show
// through Messages; in addition it records here what went wrong:
//   - the text: what is wrong, in words that follow "file NAME: " (the name is
//     the caller's to add), ending in " (system reason)" when a system call
//     failed, e.g. "cannot be opened (No such file or directory)" or
//     "its pixel count 128 disagrees with its 12 x 8 pixels";
//   - the kind, so that a caller can choose its own error type without
//     reading the text (Python: OSError, ValueError, MemoryError);
//   - the system's error number, when a system call failed.
// The record stays until the next failure or ClearLastError; opening a file
// (a constructor that reads one, Open, Read) clears it first, so after a
// successful open the text is empty.
#include <string>

namespace thermokit {

class File;

enum class ErrorKind : int {
    None = 0,  // nothing failed
    System,    // a system call failed (open, read, write): GetLastSystemError tells which
    Format,    // the file is not what it should be: signature, sizes, counts, too short
    Memory,    // what the file asks for cannot be allocated
    Argument,  // the caller gave something unusable (no name, a wrong size)
};

class LastError {
public:
    const std::string& GetLastErrorText() const { return m_strLastError; }
    ErrorKind GetLastErrorKind() const { return m_eLastError; }
    // errno of the system call that failed; 0 when the failure was not one.
    int GetLastSystemError() const { return m_nLastErrno; }
    void ClearLastError();

protected:
    // Each records a failure and returns 0, so that "return SetLastError(...)"
    // ends an operation that returns 0 on failure.
    int SetLastError(ErrorKind kind, std::string what);
    // A system call failed with err: "what (reason)".
    int SetLastError(std::string what, int err);
    // A File operation failed: "what (the file's reason)".
    int SetLastError(std::string what, const File& file);
    // A read of file came back short: "cannot be read (reason)" when the
    // system failed, else the file ended early and shortText says so.
    int SetReadError(const File& file, std::string shortText);

private:
    std::string m_strLastError;
    ErrorKind m_eLastError = ErrorKind::None;
    int m_nLastErrno = 0;
};

}  // namespace thermokit
