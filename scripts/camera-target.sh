#!/usr/bin/env bash
# The recording target, measured: Aravis' fake GigE Vision camera on the
# loopback, 640 x 512 Mono16 at 100 frames/s, recorded by the tool for
# SECONDS (default 30). Prints the tool's summary, then the frames expected
# from the duration against the frames in the film and the frames lost.
# Needs the release build (cmake --preset release && cmake --build --preset release)
# and nothing else on this machine answering on UDP port 3956 of 127.0.0.1.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
tool=${THERMOKIT_TOOL:-build/release/apps/thermokit/thermokit}
[ -x "$tool" ] || { echo "camera-target: build the tool first ($tool)" >&2; exit 1; }
command -v arv-fake-gv-camera-0.8 >/dev/null || { echo "camera-target: install aravis-tools" >&2; exit 1; }

work=$(mktemp -d)
serial="TARGET$$"
arv-fake-gv-camera-0.8 -i 127.0.0.1 -s "$serial" >"$work/camera.log" 2>&1 &
camera=$!
trap 'kill "$camera" 2>/dev/null; wait "$camera" 2>/dev/null; rm -rf "$work"' EXIT
for _ in 1 2 3 4 5; do
  "$tool" cameras --json | grep -q "\"$serial\"" && break
done

"$tool" record --camera "$serial" -o "$work/target.film" --duration "$seconds" --rate 100 \
  --roi 0,0,640,512 --bits 16 --banks 16 --bank-size 4194304 | tee "$work/summary.txt"
frames=$("$tool" info "$work/target.film" --json | sed -n 's/.*"frames": *\([0-9]*\).*/\1/p' | head -n1)
lost=$(sed -n 's/^frames lost: \([0-9]*\).*/\1/p' "$work/summary.txt")
echo "expected about $((seconds * 100)) frames in ${seconds} s; the film holds $frames; frames lost: $lost"
