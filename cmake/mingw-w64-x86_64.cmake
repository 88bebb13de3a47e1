# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 (the POSIX-threads
# variant, so that std::thread and std::mutex work). The programs it builds run
# on this machine under Wine: CMAKE_CROSSCOMPILING_EMULATOR starts them through
# cmake/wine-run.sh, which is how ctest runs the tests.
#
#   cmake --preset windows          (uses this file)
#   cmake -S . -B build/win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(THERMOKIT_MINGW_TRIPLET x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${THERMOKIT_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${THERMOKIT_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${THERMOKIT_MINGW_TRIPLET}-windres)

# Libraries built for Windows by scripts/windows-deps.sh (libpng, giflib) sit in their
# own prefix beside the system's MinGW root (zlib from libz-mingw-w64-dev).
if(NOT THERMOKIT_WINDOWS_DEPS)
  set(THERMOKIT_WINDOWS_DEPS "${CMAKE_CURRENT_LIST_DIR}/../build/deps/${THERMOKIT_MINGW_TRIPLET}")
endif()
get_filename_component(THERMOKIT_WINDOWS_DEPS "${THERMOKIT_WINDOWS_DEPS}" ABSOLUTE)
set(THERMOKIT_WINDOWS_DEPS "${THERMOKIT_WINDOWS_DEPS}" CACHE PATH "Prefix of the libraries built for Windows")
set(CMAKE_FIND_ROOT_PATH "/usr/${THERMOKIT_MINGW_TRIPLET}" "${THERMOKIT_WINDOWS_DEPS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Static zlib, so that the programs need no zlib1.dll beside them.
set(ZLIB_USE_STATIC_LIBS ON)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh")
