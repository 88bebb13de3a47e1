#!/usr/bin/env bash
# Times the tool's film commands on a cached 1000-frame 640 x 512 film (656 MB) with hyperfine
# (Debian package, installed when missing): stats and export --format npy beside their --embedded
# forms, then every film-level command on 1 and on 2 threads. Outputs go to the page cache (and
# are removed before each run); the figures printed at the end are ratios within the same run.
# Not part of CI: run it when the machine is as idle as you can get; it prints the load average
# before and after.
#
#   bash scripts/bench-tool.sh              everything (a few minutes)
#   RUNS=3 bash scripts/bench-tool.sh       fewer runs of each command (default 5)
#   ONLY="stats correct" bash scripts/bench-tool.sh   those commands only on 1 and 2 threads
#   ONLY=embedded bash scripts/bench-tool.sh          the --embedded ratios alone
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v hyperfine >/dev/null; then
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends hyperfine
fi
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target thermokit_cli >/dev/null
tk="$PWD/build/release/apps/thermokit/thermokit -q"
runs="${RUNS:-5}"
work="${TMPDIR:-/tmp}/thermokit-bench-tool"
mkdir -p "$work"
results="build/release/bench-results/tool"
rm -rf "$results"; mkdir -p "$results"

# The inputs, made once and kept: a plate with a moving hot spot (its own law), black bodies
# for a NUC table, and the table and a bad-pixel map.
film="$work/run.film"
if [ ! -s "$film" ]; then
  $tk simulate --scene plate --move 0.5 --size 640x512 --count 1000 -o "$film"
fi
if [ ! -s "$work/cam.nuc" ]; then
  $tk simulate -t 20 --size 640x512 --count 200 -o "$work/cold.film"
  $tk simulate -t 60 --size 640x512 --count 200 --seed 3 -o "$work/hot.film"
  $tk nuc compute --cold "$work/cold.film" --hot "$work/hot.film" -o "$work/cam.nuc"
  $tk badpixels detect --noise-film "$work/cold.film" --noise 40 --noise-high -o "$work/cam.bpr"
fi
cat "$film" "$work"/*.film >/dev/null  # into the page cache

echo "=== $(date -u +%FT%TZ), $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg)"
out="$work/out"
clean="rm -rf $out; mkdir -p $out"
hf() { hyperfine --warmup 1 --runs "$runs" --prepare "$clean" --style basic "$@"; }

# Temperatures beside levels, every core.
hf --export-json "$results/embedded.json" \
  -n stats "$tk stats $film" \
  -n "stats --embedded" "$tk stats $film --embedded" \
  -n "export npy" "$tk export $film --format npy -o $out/run.npy" \
  -n "export npy --embedded" "$tk export $film --format npy --embedded -o $out/run.npy"

# Each film-level command on 1 and 2 threads.
declare -A commands=(
  [stats]="stats $film --embedded --csv"
  [export-npy]="export $film --format npy --embedded -o $out/run.npy"
  [export-csv]="export $film --frames 0:99 --format csv -o $out/run.csv"
  [export-png]="export $film --step 10 --format png --embedded --bar -o $out/p%04d.png"
  [correct]="correct $film --nuc $work/cam.nuc --badpixels $work/cam.bpr -o $out/c.film"
  [edit]="edit $film --crop 0,0,512,512 --rotate 90 -o $out/e.film"
  [lockin]="lockin $film --frequency 5 -o $out/l"
  [animate]="animate $film --step 5 --fps 20 -o $out/a.gif"
  [nuc-compute]="nuc compute --cold $work/cold.film --hot $work/hot.film -o $out/n.nuc"
  [badpixels]="badpixels detect --noise-film $work/cold.film --noise 40 --noise-high -o $out/b.bpr"
  [simulate]="simulate --scene plate --size 640x512 --count 100 -o $out/s.film"
)
for name in ${ONLY:-stats export-npy export-csv export-png correct edit lockin animate nuc-compute badpixels simulate}; do
  [ -n "${commands[$name]:-}" ] || continue
  hf --export-json "$results/$name.json" -n "$name, 1 thread" "$tk --threads 1 ${commands[$name]}" \
    -n "$name, 2 threads" "$tk --threads 2 ${commands[$name]}"
done
rm -rf "$out"
echo "=== load average after: $(cut -d' ' -f1-3 /proc/loadavg)"

/usr/bin/python3 - "$results" <<'EOF'
import json, sys, glob, os
def means(path):
    return [(r["command"], r["mean"], r["stddev"]) for r in json.load(open(path))["results"]]
runs = json.load(open(os.path.join(sys.argv[1], "embedded.json")))["results"]
e = dict((r["command"], r["mean"]) for r in runs)
cpu = dict((r["command"], r["user"] + r["system"]) for r in runs)  # steadier than wall on a busy machine
print("\n%-34s %9s %9s" % ("same run, every core", "wall", "CPU"))
for a, b, target in (("stats --embedded", "stats", 2), ("export npy --embedded", "export npy", 1.5)):
    print("%-34s %8.2fx %8.2fx  (target <= %g)" % (a + " / " + b, e[a] / e[b], cpu[a] / cpu[b], target))
print("\n%-14s %10s %10s %9s" % ("command", "1 thread", "2 threads", "speed-up"))
for path in sorted(glob.glob(os.path.join(sys.argv[1], "*.json"))):
    if path.endswith("embedded.json"):
        continue
    (n1, m1, s1), (n2, m2, s2) = means(path)
    print("%-14s %9.3fs %9.3fs %8.2fx" % (n1.split(",")[0], m1, m2, m1 / m2))
EOF
