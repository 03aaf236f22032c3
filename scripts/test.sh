#!/usr/bin/env bash
# Checks the style unless KEL_STYLE_CHECK is 0 (scripts/check-style.sh), then
# builds every configuration and runs every test: the native unit tests, the
# fuzz targets' seed corpora, and the Wine suite against both DLLs (x64 under
# Wine's 64-bit half, x86 under its 32-bit half), each with its export table;
# then the SDK package from those builds, and its check.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/ensure-packages.sh

status=0
# The style: formatting and clang-tidy findings (scripts/check-style.sh). A
# failure fails the run but the tests still run.
style_check=${KEL_STYLE_CHECK:-1}
if [ "$style_check" = 1 ]; then
  echo "== style"
  scripts/check-style.sh || status=1
fi

jobs=$(nproc)
for preset in native native-asan native-tsan fuzz win64 win32; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
done

for preset in native native-asan native-tsan fuzz win64 win32; do
  echo "== ctest: $preset"
  ctest --preset "$preset" -j "$jobs" --timeout 600 || status=1
done
# The SDK package, from the builds just tested, and its check.
echo "== package"
if scripts/package.sh; then
  python3 tests/package/check_package.py build/package/Kelbrook-*-sdk.zip build/win64 build/win32 || status=1
else
  status=1
fi
exit $status
