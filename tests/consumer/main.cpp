// Uses a few classes of an installed thermokit and checks their results.
#include <cstdio>

#include "thermokit/thermokit.h"

int main() {
    using namespace thermokit;
    CRect a(0, 0, 10, 10), b(5, 5, 20, 20), c;
    c.IntersectRect(&a, &b);
    if (c != CRect(5, 5, 10, 10)) {
        std::puts("consumer: unexpected intersection");
        return 1;
    }
    std::printf("consumer: thermokit %s works\n", GetVersion());
    return 0;
}
