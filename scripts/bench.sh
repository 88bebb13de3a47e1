#!/usr/bin/env bash
# Builds and runs every benchmark on this machine: bench/*.cpp (Google Benchmark, each figure
# beside a memcpy of the same bytes; the main kernels once per instruction-set variant) and
# bench/versus (each kernel beside its OpenCV counterpart in the same run, one table of GB/s and
# ratios). Not part of CI: run it on a machine as idle as you can get, and keep the load average
# it prints next to the figures. Installs OpenCV (libopencv-dev) on top of what the build needs.
#
#   bash scripts/bench.sh            everything (a few minutes)
#   bash scripts/bench.sh Lockin     only the benchmarks whose names match (a regular expression)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
if ! dpkg-query -W -f='${Status}' libopencv-dev 2>/dev/null | grep -q "install ok installed"; then
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends libopencv-dev
fi

filter="${1:-.}"
targets=(bench_versus)
for f in bench/*.cpp; do targets+=("bench_$(basename "$f" .cpp)"); done
cmake --preset release -DTHERMOKIT_BUILD_BENCH=ON >/dev/null
cmake --build --preset release -j "$(nproc)" --target "${targets[@]}"

results=build/release/bench-results
mkdir -p "$results"
echo "=== $(date -u +%FT%TZ), $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg)"
for f in bench/*.cpp; do
  name="bench_$(basename "$f" .cpp)"
  echo "=== $name"
  "build/release/bench/$name" --benchmark_filter="$filter" --benchmark_out="$results/$name.json" \
    --benchmark_out_format=json
done
if [ "$filter" = "." ]; then
  echo "=== bench_versus"
  build/release/bench/versus/bench_versus | tee "$results/versus.txt"
fi
echo "=== results in $results"
