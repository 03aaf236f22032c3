#!/usr/bin/env bash
# Builds every configuration and runs every test: the native unit tests, the
# Windows x64 DLL under Wine, and the x86 DLL's export table.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/ensure-packages.sh

jobs=$(nproc)
for preset in native native-asan native-tsan fuzz win64 win32; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
done

status=0
for preset in native native-asan native-tsan fuzz win64 win32; do
  echo "== ctest: $preset"
  ctest --preset "$preset" -j "$jobs" --timeout 600 || status=1
done
exit $status
