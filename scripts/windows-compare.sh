#!/usr/bin/env bash
# The Linux tool and the Windows tool (under Wine) side by side: the same
# commands on the same files must give the same bytes.
#
#   bash scripts/windows-compare.sh [LINUX_TOOL [WINDOWS_TOOL]]
#
# 1. --version prints the same.
# 2. A reduced demo runs on each system; the figures it prints, its pictures,
#    NUC table, bad-pixel map and report, calibration file and defect list are
#    the same bytes.
# 3. Every file each demo wrote (films, films of doubles, NUC table, bad-pixel
#    map, calibration) is read by both tools: info (header and image header,
#    as JSON), render, animate (GIF), export (CSV and NumPy), stats and correct give the same
#    bytes, for the Linux files and for the Windows files.
# Files stamped with the time they were saved, and values the C library's
# exp() and atan2() compute (they may differ in the last bit between glibc
# and the Windows C library), are compared through the readings of step 3,
# not byte for byte: see docs/windows.md.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
lin=$root/${1:-build/release/apps/thermokit/thermokit}
win=$root/${2:-build/windows/bin/thermokit.exe}
for t in "$lin" "$win"; do
  [ -f "$t" ] || { echo "windows-compare: $t is not built" >&2; exit 2; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/linux" "$work/windows"

failures=0
# Runs the same command with each tool, in its own folder (paths are relative,
# so that they print the same); keeps the output and the exit status.
both() {
  local tag=$1
  shift
  (cd "$work/linux" && set +e; "$lin" "$@" >"$work/$tag.linux" 2>&1; echo "exit $?" >>"$work/$tag.linux")
  (cd "$work/windows" && set +e; "$root/cmake/wine-run.sh" "$win" "$@" >"$work/$tag.windows" 2>&1
   echo "exit $?" >>"$work/$tag.windows")
}
same() {  # label, two files
  if cmp -s "$2" "$3"; then
    echo "  same       $1"
  else
    echo "  DIFFERENT  $1"
    diff <(od -An -tx1 -v "$2" | head -c 20000) <(od -An -tx1 -v "$3" | head -c 20000) | head -6 || true
    failures=$((failures + 1))
  fi
}
same_output() { same "$1" "$work/$1.linux" "$work/$1.windows"; }

echo "--version"
both version --version
same_output version

echo "demo --quick (each system its own)"
both demo demo --quick -o demo
# The figures: the lines after "Results in", without the time taken.
for s in linux windows; do
  sed -n "/^Results in/,\$p" "$work/demo.$s" | { grep -v total || true; } >"$work/figures.$s"
done
same "demo figures" "$work/figures.linux" "$work/figures.windows"
for f in camera.nuc camera.bpr badpixels.txt calibration.cal truth/defects.csv \
         scene_raw.png scene_corrected.png scene_temperature.png scene_isotherms.png \
         materials_temperature.png materials_black_body.png lockin_module.png lockin_phase.png; do
  same "demo/$f" "$work/linux/demo/$f" "$work/windows/demo/$f"
done

# Each system's files, read by both tools.
for origin in linux windows; do
  echo "files written on $origin, read by both"
  rm -rf "$work/linux/in" "$work/windows/in"
  cp -r "$work/$origin/demo" "$work/linux/in"
  cp -r "$work/$origin/demo" "$work/windows/in"
  files=$(cd "$work/$origin/demo" && find . -name '*.film' -o -name '*.nuc' -o -name '*.bpr' -o -name '*.cal' | sort)
  for f in $files; do
    f=${f#./}
    both info info "in/$f" --json
    same "info $f" "$work/info.linux" "$work/info.windows"
  done
  both info1 info in/films/scene.film --frame 1 --json
  same_output info1
  both stats stats in/films/scene.film
  same_output stats
  both render render in/films/scene.film --frame 2 --palette 1 -o out.png
  same "render" "$work/linux/out.png" "$work/windows/out.png"
  both csv export in/films/scene.film --frames 0:1 --format csv -o out.csv
  same "export csv" "$work/linux/out.csv" "$work/windows/out.csv"
  both npy export in/films/scene.film --format npy -o out.npy
  same "export npy" "$work/linux/out.npy" "$work/windows/out.npy"
  both animate animate in/films/scene.film --frames 0:3 -o out.gif
  same_output animate
  same "animate" "$work/linux/out.gif" "$work/windows/out.gif"
  both correct correct in/films/scene.film --nuc in/camera.nuc --badpixels in/camera.bpr -o out.film
  same_output correct
  same "correct" "$work/linux/out.film" "$work/windows/out.film"
done

if [ "$failures" -ne 0 ]; then
  echo "windows-compare: $failures difference(s)" >&2
  exit 1
fi
echo "windows-compare: the same bytes on both systems"
