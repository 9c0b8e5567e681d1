#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang-16's libFuzzer under AddressSanitizer
# and UndefinedBehaviorSanitizer (the "fuzz" preset, in build-fuzz/), runs each for
# a number of inputs or minutes, and prints per target the inputs run, inputs a
# second, coverage (edges and features) and what it found.
#
#   bash bench/fuzz.sh [--runs N | --minutes M] [--jobs J] [TARGET...]
#
#   --runs N      inputs per target (default 1000000)
#   --minutes M   minutes per target instead of a number of inputs
#   --jobs J      targets fuzzed at once (default: the number of cores)
#   TARGET        folder names under fuzz/ (default: every target)
#
# Each target starts from its seeds and regressions in fuzz/TARGET/ and keeps the
# inputs it learns from in build-fuzz/corpus/TARGET, which grows from run to run;
# nothing is written into fuzz/. An input that crashes, leaks, hangs or trips a
# sanitizer is saved in build-fuzz/crashes/TARGET/ and the full report in
# build-fuzz/logs/TARGET.log: fix the fault, then copy the input into
# fuzz/TARGET/regressions/ so the suite replays it from then on.
# Exits non-zero when any target found something.
set -euo pipefail
cd "$(dirname "$0")/.."

runs=1000000
minutes=""
jobs=$(nproc 2>/dev/null || echo 2)
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --runs) runs=$2; shift 2 ;;
    --minutes) minutes=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    -h|--help) sed -n '2,20p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "fuzz.sh: unknown option $1 (see --help)" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [ ${#targets[@]} -eq 0 ]; then
  for folder in fuzz/*/; do
    [ -f "$folder/Target.cpp" ] && targets+=("$(basename "$folder")")
  done
fi
for target in "${targets[@]}"; do
  if [ ! -f "fuzz/$target/Target.cpp" ]; then
    echo "fuzz.sh: no target '$target' (each is a folder of fuzz/ with a Target.cpp)" >&2
    exit 2
  fi
done

bash scripts/setup.sh fuzz
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
began=$SECONDS
cmake --preset fuzz "${launcher[@]}" >/dev/null
cmake --build --preset fuzz -j "$jobs" --target "${targets[@]/#/quorvane_fuzz_}"
echo "-- build: $((SECONDS - began)) s"

limit=(-runs="$runs")
[ -n "$minutes" ] && limit=(-max_total_time=$((minutes * 60)))
# The targets' scratch folders are many small files written and removed per input.
[ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && export TMPDIR=/dev/shm

fuzz_one() {
  local target=$1 work=build-fuzz/corpus/$1 crashes=build-fuzz/crashes/$1/
  local log=build-fuzz/logs/$1.log dict=() seeds=("fuzz/$1/corpus") began=$SECONDS
  mkdir -p "$work" "$crashes" build-fuzz/logs
  [ -f "fuzz/$target/dict" ] && dict=(-dict="fuzz/$target/dict")
  [ -d "fuzz/$target/regressions" ] && seeds+=("fuzz/$target/regressions")
  local status=0
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "build-fuzz/bin/quorvane_fuzz_$target" "${limit[@]}" "${dict[@]}" -timeout=30 \
    -print_final_stats=1 -artifact_prefix="$crashes" "$work" "${seeds[@]}" >"$log" 2>&1 ||
    status=$?
  local executed speed cov ft found
  executed=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  cov=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -oE 'ft: [0-9]+' "$log" | tail -1 | cut -d' ' -f2)
  found=$(find "$crashes" -type f | wc -l)
  local verdict=clean
  if [ "$status" -ne 0 ] || [ "$found" -gt 0 ]; then verdict="FOUND (exit $status, see $log)"; fi
  printf '%-16s %10s %8s %7s %7s %6s %6ss  %s\n' "$target" "${executed:-?}" "${speed:-?}" \
    "${cov:-?}" "${ft:-?}" "$found" "$((SECONDS - began))" "$verdict"
}

printf '%-16s %10s %8s %7s %7s %6s %7s  %s\n' target runs "exec/s" cov ft saved time result
failed=0
running=0
for target in "${targets[@]}"; do
  fuzz_one "$target" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait
for target in "${targets[@]}"; do
  if [ -n "$(find "build-fuzz/crashes/$target" -type f 2>/dev/null)" ]; then failed=1; fi
  if ! grep -q '^stat::number_of_executed_units' "build-fuzz/logs/$target.log"; then failed=1; fi
done
echo "-- total: $((SECONDS - began)) s"
exit "$failed"
