#!/usr/bin/env bash
# The long soak: random export calls (100,000 by default) from three threads
# while the refresh thread runs passes back to back, once under
# AddressSanitizer and UndefinedBehaviorSanitizer and once under
# ThreadSanitizer; then the platform- and allocation-failure sweeps and the
# stop that gives up on the refresh thread, under both.
#
#   scripts/soak.sh [CALLS]
set -euo pipefail
cd "$(dirname "$0")/.."
calls=${1:-100000}

scripts/ensure-packages.sh
status=0
for preset in native-asan native-tsan; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$(nproc)" >/dev/null
  echo "== $preset: $calls calls"
  if ! KEL_SOAK_CALLS=$calls TSAN_OPTIONS=halt_on_error=1 \
      "build/$preset/kel_unit_tests" --gtest_filter='Soak*:FaultInjection*:AllocationFailure*:CatalogueUnderLoad*:RefreshThreadGivenUp*'; then
    status=1
  fi
done
exit $status
