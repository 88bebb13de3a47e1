#!/usr/bin/env bash
# The whole test run: installs what the build needs, then builds and runs the
# test suite twice (release build, then address + undefined sanitizers), the
# threaded suites under ThreadSanitizer, every fuzz target for 20 seconds, and
# checks that an installed thermokit is usable from another CMake project.
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
echo "all tests passed"
