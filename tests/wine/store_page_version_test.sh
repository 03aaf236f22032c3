#!/usr/bin/env bash
# The Windows 8 package names are replaced by their 8.1 successors exactly
# when Windows reports version 6.3 to the host: kelcli declares 8.1
# compatibility in its manifest, and the prefix plays Windows 8.1, 8, 7 and
# 10 in turn. Windows 10 reports 6.3 to a host whose manifest goes no
# further than 8.1, so there the names are replaced as well. The Store page
# address reaches the recorder registered for "ms-windows-store".
#
#   store_page_version_test.sh KELCLI_EXE
# Needs WINEPREFIX set up by wine_prefix.sh and KELBROOK_DLL.
set -uo pipefail
. "$(dirname "$0")/wine_reg.sh"

kelcli=$1
scratch=$(mktemp -d)
trap 'wine_reg delete "HKCU\\Software\\Wine" /v Version /f >/dev/null 2>&1; rm -rf "$scratch"' EXIT
recorder_log=$scratch/recorder.txt
KEL_RECORDER_LOG=$(winepath -w "$recorder_log" 2>/dev/null)
export KEL_RECORDER_LOG

failures=0
check() {
  local version=$1 expected=$2
  wine_reg add 'HKCU\Software\Wine' /v Version /d "$version" /f >"$scratch/reg.out" 2>&1 ||
    { echo "FAIL cannot set the Wine version to $version"; failures=$((failures + 1)); return; }
  rm -f "$recorder_log"
  wine "$kelcli" launch-store microsoft.windowsphotos_8wekyb3d8bbwe >"$scratch/kelcli.out" 2>&1
  for _ in $(seq 1 100); do
    [ -s "$recorder_log" ] && break
    sleep 0.1
  done
  local got
  got=$(cat "$recorder_log" 2>/dev/null)
  if [ "$got" = "ms-windows-store:PDP?PFN=$expected" ]; then
    echo "PASS $version opens the Store page of $expected"
  else
    echo "FAIL $version: the Store handler received '$got', expected 'ms-windows-store:PDP?PFN=$expected'"
    cat "$scratch/kelcli.out"
    failures=$((failures + 1))
  fi
}

check win81 FileManager_cw5n1h2txyewy
check win8 microsoft.windowsphotos_8wekyb3d8bbwe
check win7 microsoft.windowsphotos_8wekyb3d8bbwe
check win10 FileManager_cw5n1h2txyewy
echo "store page version test: $((4 - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
