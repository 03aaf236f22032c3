#!/usr/bin/env bash
# Builds every configuration and runs every test: the native unit tests, the
# fuzz targets' seed corpora, and the Wine suite against both DLLs (x64 under
# Wine's 64-bit half, x86 under its 32-bit half), each with its export table.
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
