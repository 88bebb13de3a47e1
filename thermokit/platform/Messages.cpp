#include "thermokit/platform/Messages.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace thermokit {

namespace {
std::mutex& SinkMutex() {
    static std::mutex m;
    return m;
}
Messages::Sink& CurrentSink() {
    static Messages::Sink sink;
    return sink;
}
}  // namespace

void Messages::DefaultSink(const Message& message) {
    std::fprintf(stderr, "%s: %s\n", message.caption.c_str(), message.text.c_str());
}

void Messages::ShowMessage(const std::string& text, const std::string& caption, unsigned icon) {
    Sink sink;
    {
        std::lock_guard<std::mutex> lock(SinkMutex());
        sink = CurrentSink();
    }
    const Message m{text, caption, icon};
    if (sink) sink(m);
    else DefaultSink(m);
}

Messages::Sink Messages::SetSink(Sink sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    Sink previous = std::move(CurrentSink());
    CurrentSink() = std::move(sink);
    return previous;
}

struct MessageRecorder::State {
    mutable std::mutex mutex;
    std::vector<Message> messages;
};

MessageRecorder::MessageRecorder() : m_state(new State) {
    State* state = m_state;
    m_previous = Messages::SetSink([state](const Message& m) {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->messages.push_back(m);
    });
}

MessageRecorder::~MessageRecorder() {
    Messages::SetSink(std::move(m_previous));
    delete m_state;
}

std::vector<Message> MessageRecorder::Messages() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->messages;
}

size_t MessageRecorder::Count() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->messages.size();
}

void MessageRecorder::Clear() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->messages.clear();
}

std::string Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string out;
    if (n > 0) {
        out.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(out.data(), out.size(), format, args);
        out.resize(static_cast<size_t>(n));
    }
    va_end(args);
    return out;
}

}  // namespace thermokit
