#pragma once
// The message box. The library reports file errors and a few warnings to the
// user through ShowMessage; where the text goes is up to the program: the
// default sink writes "caption: text" to standard error, a GUI installs a
// dialog, tests install a recorder.
#include <functional>
#include <string>
#include <vector>

namespace thermokit {

enum MessageIcon : unsigned {
    MB_OK = 0x00,
    MB_ICONERROR = 0x10,  // also known as MB_ICONSTOP / MB_ICONHAND
    MB_ICONQUESTION = 0x20,
    MB_ICONWARNING = 0x30,  // MB_ICONEXCLAMATION
    MB_ICONINFORMATION = 0x40,
};

struct Message {
    std::string text;
    std::string caption;
    unsigned icon = MB_OK;
};

class Messages {
public:
    using Sink = std::function<void(const Message&)>;

    // Sends a message to the current sink. Thread-safe.
    static void ShowMessage(const std::string& text, const std::string& caption = "thermokit",
                            unsigned icon = MB_OK);
    // Installs a sink (an empty function restores the default) and returns the previous one.
    static Sink SetSink(Sink sink);
    static void DefaultSink(const Message& message);
};

// Records every message shown while it lives, then puts the previous sink back.
class MessageRecorder {
public:
    MessageRecorder();
    ~MessageRecorder();
    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    std::vector<Message> Messages() const;
    size_t Count() const;
    void Clear();

private:
    struct State;
    State* m_state;
    thermokit::Messages::Sink m_previous;
};

// printf-style formatting into a string.
#if defined(_WIN32)  // the C99 printf of MinGW-w64, not Microsoft's
std::string Format(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));
#else
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
#endif

}  // namespace thermokit
