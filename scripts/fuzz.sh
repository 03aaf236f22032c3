#!/usr/bin/env bash
# Runs every fuzz target for a given time (seconds, default 600), each with
# its committed seed corpus and a working corpus under build/fuzz, and
# prints executions per second and corpus size for each. KEL_FUZZ_JOBS
# (default 1) targets run at a time.
#
#   scripts/fuzz.sh [SECONDS] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(xml_reader catalogue_load manifest_reader cp932 format)
jobs=${KEL_FUZZ_JOBS:-1}

scripts/ensure-packages.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" >/dev/null

dir=build/fuzz/tests/fuzz

# Runs one target and leaves its summary beside its log.
run_target() {
  local target=$1 work=$dir/corpus-$1 log=$dir/$1.log
  mkdir -p "$work"
  local verdict="no finding"
  if ! "$dir/${target}_fuzz" -max_total_time="$seconds" -max_len=65536 -print_final_stats=1 \
      "$work" "tests/fuzz/corpus/$target" >"$log" 2>&1; then
    verdict="FINDING: see $log"
  fi
  {
    echo "== $target: $seconds s"
    echo "   $verdict"
    grep -E 'stat::number_of_executed_units|stat::average_exec_per_sec' "$log" | sed 's/^/   /'
    echo "   corpus: $(ls "$work" | wc -l) files"
  } >"$dir/$target.summary"
  [ "$verdict" = "no finding" ]
}

status=0
running=0
for target in "${targets[@]}"; do
  if [ "$running" -ge "$jobs" ]; then
    wait -n || status=1
    running=$((running - 1))
  fi
  run_target "$target" &
  running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
  wait -n || status=1
  running=$((running - 1))
done
for target in "${targets[@]}"; do cat "$dir/$target.summary"; done
exit $status
