#!/usr/bin/env bash
# Runs every fuzz target for a given time (seconds, default 600), each with
# its committed seed corpus and a working corpus under build/fuzz, and
# prints executions per second and corpus size for each.
#
#   scripts/fuzz.sh [SECONDS] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(xml_reader catalogue_load manifest_reader cp932 format)

scripts/ensure-packages.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" >/dev/null

status=0
for target in "${targets[@]}"; do
  work=build/fuzz/tests/fuzz/corpus-$target
  mkdir -p "$work"
  log=build/fuzz/tests/fuzz/$target.log
  echo "== $target: $seconds s"
  if "build/fuzz/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=65536 -print_final_stats=1 \
      "$work" "tests/fuzz/corpus/$target" >"$log" 2>&1; then
    echo "   no finding"
  else
    echo "   FINDING: see $log"
    status=1
  fi
  grep -E 'stat::number_of_executed_units|stat::average_exec_per_sec' "$log" | sed 's/^/   /'
  echo "   corpus: $(ls "$work" | wc -l) files"
done
exit $status
