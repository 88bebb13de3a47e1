#include "thermokit/platform/Display.h"

#include <atomic>

namespace thermokit {
namespace {
std::atomic<int> g_bitsPerPixel{32};
}

int Display::GetBitsPerPixel() { return g_bitsPerPixel.load(); }

int Display::SetBitsPerPixel(int bits) {
    if (bits < 1 || bits > 32) return g_bitsPerPixel.load();
    return g_bitsPerPixel.exchange(bits);
}

}  // namespace thermokit
