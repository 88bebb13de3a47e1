#!/usr/bin/env bash
# The whole test run: installs what the build needs, then builds and runs the
# test suite twice (release build, then address + undefined sanitizers; the
# release run includes the Python package's pytest suite), the viewer in a
# browser, the threaded suites under ThreadSanitizer, every fuzz target for
# 20 seconds, checks that an installed thermokit is usable from another
# CMake project and from python3, and builds and tests the Windows library,
# tool and tests under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh

werror=OFF
if [ "${CI:-}" = "true" ]; then werror=ON; fi
jobs=$(nproc 2>/dev/null || echo 2)

for preset in release asan; do
  echo "=== $preset: configure and build"
  cmake --preset "$preset" -DTHERMOKIT_WERROR=$werror >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== $preset: tests"
  ctest --preset "$preset" -j "$jobs"
done

echo "=== viewer: the page in headless Chromium, the server under load and hostile requests"
# The release tool for all of it; the sanitizer build for everything but the timings and the load.
export PYTHONDONTWRITEBYTECODE=1
THERMOKIT_TOOL=build/release/apps/thermokit/thermokit timeout 900 \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/viewer
THERMOKIT_TOOL=build/asan/apps/thermokit/thermokit timeout 600 \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/viewer -k "command_lines or screened or levels or page"
echo "=== tsan: acquisition, recording and settings under ThreadSanitizer"
cmake --preset tsan -DTHERMOKIT_WERROR=$werror >/dev/null
cmake --build --preset tsan -j "$jobs" --target test_acquisition test_film test_environment
# TSan cannot start on some kernels' address layouts: run without randomisation.
norandom=()
if command -v setarch >/dev/null 2>&1; then norandom=(setarch "$(uname -m)" -R); fi
"${norandom[@]}" ctest --preset tsan -j "$jobs" -L 'acquisition|film|environment'

echo "=== fuzz: every target for 20 s"
bash scripts/fuzz.sh 20

echo "=== install and consumer project"
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build/release --prefix "$prefix/install" >/dev/null
cmake -S tests/consumer -B "$prefix/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix/install" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
"$prefix/consumer/consumer"
# The Python package lands where the system's python3 looks under the prefix.
site=$(/usr/bin/python3 -c 'import sys; print("lib/python%d.%d/dist-packages" % sys.version_info[:2])')
PYTHONPATH="$prefix/install/$site" /usr/bin/python3 -c \
  "import thermokit, sys; assert thermokit.__file__.startswith('$prefix/install/'); f = thermokit.simulate(size=(16, 8), frames=2); sys.exit(len(f) != 2)"

echo "=== windows: MinGW-w64 build, tests under Wine, the same bytes as on Linux"
windows_start=$SECONDS
# A fresh Wine prefix for this run, made without a display, and one Wine
# server for the whole step (not one per test program).
export WINEPREFIX="$prefix/wine"
trap 'cmake/wine-run.sh --stop-server; rm -rf "$prefix"' EXIT
cmake/wine-run.sh --start-server
cmake --preset windows -DTHERMOKIT_WERROR=$werror >/dev/null
cmake --build --preset windows -j "$jobs"
# A test program that does not end under Wine (now and then, when many start
# at once) is run once more; a real failure fails twice.
ctest --preset windows -j "$jobs" --repeat until-pass:2
# The shared library: thermokit.dll used by the tool and by another project.
cmake --preset windows-shared -DTHERMOKIT_WERROR=$werror -DTHERMOKIT_BUILD_TESTS=OFF >/dev/null
cmake --build --preset windows-shared -j "$jobs"
cmake --install build/windows-shared --prefix "$prefix/windows" >/dev/null
cmake -S tests/consumer -B "$prefix/windows-consumer" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
  -Dthermokit_DIR="$prefix/windows/lib/cmake/thermokit" >/dev/null
cmake --build "$prefix/windows-consumer" >/dev/null
WINEPATH="Z:$(printf '%s' "$prefix/windows/bin" | tr / '\\')" \
  cmake/wine-run.sh "$prefix/windows-consumer/consumer.exe"
cmake/wine-run.sh build/windows-shared/bin/thermokit.exe --version
bash scripts/windows-compare.sh build/release/apps/thermokit/thermokit build/windows/bin/thermokit.exe
echo "windows step: $((SECONDS - windows_start)) s"
echo "all tests passed"
