#!/usr/bin/env bash
# The main job: installs what is needed, builds everything, and runs the
# end-to-end demo on the simulated camera (results in out/demo).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/bootstrap.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)"
tool=build/release/apps/thermokit/thermokit
"$tool" --version
"$tool" demo -o out/demo
