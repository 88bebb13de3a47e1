#pragma once
// Names of system-wide objects that no other test, nor another run, uses, and
// whether the system still holds an object of a name.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "thermokit/platform/NamedMutex.h"
#include "thermokit/platform/NamedSegment.h"

namespace thermokit::test {

inline std::string UniqueName(const char* tag) {
    static int counter = 0;
    return std::string("tktest_") + tag + "_" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
}

#if defined(_WIN32)
// The system's own objects: some object holds the name when making a mutex of it either finds one or
// fails for another kind. (Their permissions are the system's defaults for the user's session.)
inline bool ObjectExists(const std::string& name) {
    thermokit::NamedMutex probe;
    return !probe.Create(name.c_str()) || probe.AlreadyExisted();
}
#else
// The carrier file of the object; mode, where given, gets its permission bits.
inline bool ObjectExists(const std::string& name, mode_t* mode = nullptr) {
    struct stat st {};
    if (::stat(("/dev/shm" + thermokit::NamedObjectPath(name)).c_str(), &st) != 0) return false;
    if (mode) *mode = st.st_mode & 0777;
    return true;
}
#endif

}  // namespace thermokit::test
