#include "thermokit/platform/Levels.h"

namespace thermokit {

unsigned short GetMaxLevel(unsigned short bit) {
    if (bit >= 16) return 0xFFFF;
    return static_cast<unsigned short>((1u << bit) - 1u);
}

}  // namespace thermokit
