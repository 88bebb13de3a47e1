#pragma once
// Guard around long whole-image work. The first guard calls the hook with
// true (show activity), the last one to end calls it with false. The default
// hook does nothing; the command-line tool installs one that shows activity.
#include <functional>

namespace thermokit {

class WaitCursor {
public:
    using Hook = std::function<void(bool busy)>;

    WaitCursor();
    ~WaitCursor();
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;

    // Installs a hook and returns the previous one.
    static Hook SetHook(Hook hook);
    // Number of guards alive on all threads.
    static int Depth();
};

}  // namespace thermokit
