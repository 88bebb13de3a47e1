#pragma once
namespace thermokit {
// Library version, "major.minor.patch".
const char* GetVersion();
}  // namespace thermokit
