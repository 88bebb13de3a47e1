#!/usr/bin/env bash
# Runs every libFuzzer target (or the ones named) for SECONDS seconds each:
#   scripts/fuzz.sh [SECONDS] [TARGET...]         (default 20 seconds, every target)
#   FUZZ_RUNS=10000000 scripts/fuzz.sh 1800 nuc   (stop a target after that many executions)
# Builds the "fuzz" preset first (Debian clang, address + undefined sanitizers).
# The inputs a run finds are kept under build/fuzz/work/<target>; an input that
# makes a target fail is copied to tests/fuzz/regressions/<target>/, where the
# normal test build replays it (commit it with the fix), and the script fails.
# Prints the executions and findings of each target at the end.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
shift || true
werror=OFF
if [ "${CI:-}" = "true" ]; then werror=ON; fi
jobs=$(nproc 2>/dev/null || echo 2)

cmake --preset fuzz -DTHERMOKIT_WERROR=$werror >/dev/null
cmake --build --preset fuzz -j "$jobs"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in tests/fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

work=build/fuzz/work
summary=()
failed=0
for name in "${targets[@]}"; do
  program=build/fuzz/tests/fuzz/fuzz_$name
  if [ ! -x "$program" ]; then
    echo "fuzz.sh: no target $name" >&2
    exit 2
  fi
  rm -rf "$work/$name-findings"
  mkdir -p "$work/$name" "$work/$name-findings"
  inputs=("$work/$name" "tests/fuzz/corpus/$name")
  if [ -d "tests/fuzz/regressions/$name" ]; then inputs+=("tests/fuzz/regressions/$name"); fi
  runs=()
  if [ -n "${FUZZ_RUNS:-}" ]; then runs=(-runs="$FUZZ_RUNS"); fi
  log="$work/$name.log"
  echo "=== fuzz $name: ${seconds} s${FUZZ_RUNS:+ or $FUZZ_RUNS executions}"
  status=0
  "$program" -max_total_time="$seconds" "${runs[@]}" -max_len=32768 -timeout=10 -rss_limit_mb=2048 \
    -use_value_profile=1 -print_final_stats=1 -artifact_prefix="$work/$name-findings/" "${inputs[@]}" \
    >"$log" 2>&1 || status=$?
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  findings=$(find "$work/$name-findings" -type f | wc -l)
  if [ "$status" -ne 0 ] || [ "$findings" -ne 0 ]; then
    failed=1
    tail -40 "$log" >&2
    mkdir -p "tests/fuzz/regressions/$name"
    find "$work/$name-findings" -type f -exec cp {} "tests/fuzz/regressions/$name/" \;
    echo "fuzz.sh: $name failed; its input is in tests/fuzz/regressions/$name/" >&2
  fi
  summary+=("$(printf '%-18s %12s executions  %d findings  (exit %d)' "$name" "${executions:-?}" "$findings" "$status")")
done

echo "=== fuzz summary (${seconds} s a target)"
printf '%s\n' "${summary[@]}"
exit $failed
