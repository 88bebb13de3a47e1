// Uses a few classes of an installed thermokit and checks their results.
#include <cstdio>

#include "thermokit/thermokit.h"
#if defined(_WIN32)
// After thermokit's headers, the system's may come: its macros name the same values.
#define NOMINMAX
#include <windows.h>
#endif

int main() {
    using namespace thermokit;
    CRect a(0, 0, 10, 10), b(5, 5, 20, 20), c;
    c.IntersectRect(&a, &b);
    if (c != CRect(5, 5, 10, 10)) {
        std::puts("consumer: unexpected intersection");
        return 1;
    }
    // A file with a name beyond ASCII, through the library's File.
    const std::string name = "consumer_\xC3\xA9t\xC3\xA9.bin";
    File out;
    if (!out.Open(name, File::modeCreate | File::modeWrite) || !out.Write("tk", 2)) return 1;
    out.Close();
    const bool found = File::GetFileLength(name) == 2;
    File::Remove(name);
    if (!found) {
        std::puts("consumer: file name not kept");
        return 1;
    }
    std::printf("consumer: thermokit %s works\n", thermokit::GetVersion());  // ::GetVersion is Windows'
    return 0;
}
