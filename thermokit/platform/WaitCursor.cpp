#include "thermokit/platform/WaitCursor.h"

#include <mutex>

namespace thermokit {

namespace {
std::mutex g_mutex;
WaitCursor::Hook g_hook;
int g_depth = 0;
}  // namespace

WaitCursor::WaitCursor() {
    Hook hook;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_depth++ == 0) hook = g_hook;
    }
    if (hook) hook(true);
}

WaitCursor::~WaitCursor() {
    Hook hook;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (--g_depth == 0) hook = g_hook;
    }
    if (hook) hook(false);
}

WaitCursor::Hook WaitCursor::SetHook(Hook hook) {
    std::lock_guard<std::mutex> lock(g_mutex);
    Hook previous = std::move(g_hook);
    g_hook = std::move(hook);
    return previous;
}

int WaitCursor::Depth() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_depth;
}

}  // namespace thermokit
