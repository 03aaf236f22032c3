#!/usr/bin/env bash
# A short demonstration of the library under Wine: kelcli loads Kelbrook.dll,
# initialises it, launches a protocol address that a recorder program
# receives, asks whether a package is installed, and shows the log.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/ensure-packages.sh
cmake --preset win64 >/dev/null
cmake --build --preset win64 -j "$(nproc)" >/dev/null

build=build/win64
prefix=$PWD/$build/demo-prefix
export WINEPREFIX=$prefix WINEDEBUG=-all
tests/wine/wine_prefix.sh setup "$prefix" "$build/recorder.exe" >/dev/null
trap 'tests/wine/wine_prefix.sh teardown "$prefix" >/dev/null 2>&1 || true' EXIT

wine reg add 'HKCU\Software\Osk\Kelbrook' /v DebugLog /t REG_DWORD /d 1 /f >/dev/null
local_app_data=$(wine cmd /c 'echo %LOCALAPPDATA%' 2>/dev/null | tr -d '\r')
log_unix=$(winepath -u "$local_app_data\\Osk\\Kelbrook\\KelbrookLogFS.txt" 2>/dev/null)
recorder_unix=$build/demo-recorder.txt
rm -f "$log_unix" "$recorder_unix"
export KEL_RECORDER_LOG=$(winepath -w "$recorder_unix" 2>/dev/null)

echo "== kelcli initialize launch-protocol kelrec:demo?from=kelbrook is-installed Microsoft.WindowsCalculator_8wekyb3d8bbwe finalize"
wine "$build/kelcli.exe" initialize "launch-protocol" "kelrec:demo?from=kelbrook" \
  is-installed Microsoft.WindowsCalculator_8wekyb3d8bbwe finalize || true

for _ in $(seq 1 100); do [ -s "$recorder_unix" ] && break; sleep 0.1; done
echo
echo "== what the kelrec: protocol handler received"
cat "$recorder_unix" 2>/dev/null || echo "(nothing)"
echo
echo "== the log ($local_app_data\\Osk\\Kelbrook\\KelbrookLogFS.txt)"
cat "$log_unix" 2>/dev/null | tr -d '\r' || echo "(no log)"
