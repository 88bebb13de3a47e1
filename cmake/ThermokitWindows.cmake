# What a Windows build (MinGW-w64) does differently from the Linux one.
#
# - Programs and DLLs go to one folder (bin/), so that a program finds
#   thermokit.dll beside it.
# - Programs carry a manifest that makes UTF-8 their code page: the command
#   line, the C library's file functions and every "ANSI" call then take the
#   same UTF-8 text as on Linux (the library itself converts to UTF-16 where
#   it calls the system).
# - Static builds link the compiler's runtime (libgcc, libstdc++, winpthread)
#   into each program, so thermokit.exe runs on its own. Shared builds share
#   the runtime DLLs, which are installed beside thermokit.dll.
# - CLI11 and nlohmann-json are header-only: their headers are taken from the
#   host's /usr/include, without the rest of that folder.
# - GoogleTest is compiled from Debian's sources in /usr/src/googletest.
# - Optional libraries with no MinGW build here (SQLite: the settings live in
#   the system registry instead; oneTBB, Aravis, cpp-httplib, Python are
#   left out) are not looked for.
enable_language(RC)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

# The kernels' AVX2 and AVX-512 variants run on Windows too. GCC keeps the
# Windows stack aligned to 16 bytes only, yet may spill a 32- or 64-byte
# vector register to it with an aligned move, which faults: the assembler
# writes every aligned vector move as an unaligned one (as fast on aligned
# data), so no variant depends on the stack's alignment.
add_compile_options(-Wa,-muse-unaligned-vector-move)

# The Python package needs a Python built for Windows, which this build does
# not have.
set(THERMOKIT_BUILD_PYTHON OFF CACHE BOOL "Build the Python package" FORCE)

# Thread-safe localtime_r and gmtime_r, and M_PI, from the MinGW C headers.
add_compile_definitions(_POSIX_THREAD_SAFE_FUNCTIONS=200112L _USE_MATH_DEFINES)

# Paths compiled into programs that run under Wine: Wine shows the host's
# root as drive Z:.
if(CMAKE_CROSSCOMPILING)
  set(THERMOKIT_PROGRAM_PATH_PREFIX "Z:")
else()
  set(THERMOKIT_PROGRAM_PATH_PREFIX "")
endif()

set(THERMOKIT_MANIFEST "${CMAKE_CURRENT_LIST_DIR}/windows/utf8.manifest")
configure_file("${CMAKE_CURRENT_LIST_DIR}/windows/utf8.rc.in" "${CMAKE_BINARY_DIR}/thermokit-utf8.rc" @ONLY)

# binmode.o makes the C library open files as bytes by default ("w" writes
# "\n", not "\r\n"), so that the programs write the same files as on Linux.
execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=binmode.o
                OUTPUT_VARIABLE THERMOKIT_BINMODE_OBJECT OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT IS_ABSOLUTE "${THERMOKIT_BINMODE_OBJECT}" OR NOT EXISTS "${THERMOKIT_BINMODE_OBJECT}")
  message(FATAL_ERROR "binmode.o of the MinGW-w64 runtime not found")
endif()

# A program of the project: the manifest, files opened as bytes, and the
# runtime linked in when static.
function(thermokit_windows_program target)
  target_sources(${target} PRIVATE "${CMAKE_BINARY_DIR}/thermokit-utf8.rc")
  target_link_libraries(${target} PRIVATE "${THERMOKIT_BINMODE_OBJECT}")
  if(NOT BUILD_SHARED_LIBS)
    target_link_options(${target} PRIVATE -static)
  endif()
endfunction()

# Header-only libraries from the host, alone in a folder of their own.
set(_host_headers "${CMAKE_BINARY_DIR}/host-headers")
file(MAKE_DIRECTORY "${_host_headers}")
foreach(dir CLI nlohmann)
  if(NOT EXISTS "/usr/include/${dir}")
    message(FATAL_ERROR "/usr/include/${dir} is missing: run scripts/bootstrap.sh (libcli11-dev, nlohmann-json3-dev)")
  endif()
  if(NOT EXISTS "${_host_headers}/${dir}")
    file(CREATE_LINK "/usr/include/${dir}" "${_host_headers}/${dir}" SYMBOLIC)
  endif()
endforeach()
if(NOT TARGET CLI11::CLI11)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  set_target_properties(CLI11::CLI11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${_host_headers}")
endif()
if(NOT TARGET nlohmann_json::nlohmann_json)
  add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
  set_target_properties(nlohmann_json::nlohmann_json PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${_host_headers}")
endif()

# GoogleTest from source, static whatever the project builds, without our
# warning flags (they are for our code).
function(thermokit_add_googletest)
  if(TARGET GTest::gtest)
    return()
  endif()
  set(_src "/usr/src/googletest")
  if(NOT EXISTS "${_src}/CMakeLists.txt")
    message(FATAL_ERROR "${_src} is missing: run scripts/bootstrap.sh (Debian package googletest)")
  endif()
  set(BUILD_SHARED_LIBS OFF)
  set(BUILD_GMOCK OFF)
  set(INSTALL_GTEST OFF)
  add_subdirectory("${_src}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
  foreach(t gtest gtest_main)
    set_target_properties(${t} PROPERTIES COMPILE_OPTIONS "")
  endforeach()
endfunction()

# The runtime DLLs of a shared build, installed beside thermokit.dll.
if(BUILD_SHARED_LIBS)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${dll}
                    OUTPUT_VARIABLE _path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(IS_ABSOLUTE "${_path}" AND EXISTS "${_path}")
      install(FILES "${_path}" DESTINATION bin)
    endif()
  endforeach()
endif()
