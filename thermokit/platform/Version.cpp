#include "thermokit/platform/Version.h"

#ifndef THERMOKIT_VERSION_STRING
#define THERMOKIT_VERSION_STRING "0.0.0"
#endif

namespace thermokit {
const char* GetVersion() { return THERMOKIT_VERSION_STRING; }
}  // namespace thermokit
