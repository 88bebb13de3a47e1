#!/usr/bin/env bash
# Batch runs on Dask: builds the release package and runs
# bench/python/bench_batch.py (16 films of 200 x 640 x 512 on one worker
# process with one library thread, then every core, then on two workers of
# one library thread each; the per-task overhead). Arguments go to the benchmark
# (--films N, --frames N, --size WxH, --dir FOLDER, --out FOLDER, --repeat N, --npy).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)" --target thermokit_python thermokit_cli
PYTHONPATH=build/release/python exec /usr/bin/python3 bench/python/bench_batch.py "$@"
