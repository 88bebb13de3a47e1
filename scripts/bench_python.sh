#!/usr/bin/env bash
# The Python package beside NumPy: builds the release package and runs
# bench/python/bench_python.py (figures as ratios to NumPy in the same run).
# Arguments go to the benchmark (--frames N, --dir FOLDER, --repeat N).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)" --target thermokit_python
PYTHONPATH=build/release/python exec /usr/bin/python3 bench/python/bench_python.py "$@"
