#!/usr/bin/env bash
# `kelcli info` reports what the library would find in the process without
# changing anything: the DLL it loaded (path, file version, architecture),
# the Windows version the process is told and whether the 8.1 behaviour
# applies, each setting as the library reads it, the data folder named after
# the host executable, and how many packages and desktop apps the data file
# and the preset file hold.
#
#   kelcli_info_test.sh KELCLI_EXE EXPECTED_VERSION EXPECTED_ARCHITECTURE
# Needs WINEPREFIX set up by wine_prefix.sh and KELBROOK_DLL.
set -uo pipefail
. "$(dirname "$0")/wine_reg.sh"
. "$(dirname "$0")/check_tally.sh"

kelcli=$1
expected_version=$2
expected_architecture=$3
settings='HKCU\Software\Osk\Kelbrook'
setting_names=(DebugLog ManifestReaderSetting RefreshInterval ClearClipboardWaitTime RestoreRegistryWaitTime)

# The host is a copy of kelcli under a name of its own, with a dot in it: the
# data folder is named after the file name up to its first dot, and no other
# test's files are in the way.
scratch=$(mktemp -d)
user=$(id -un)
local_app_data="C:\\users\\$user\\AppData\\Local"
local_app_data_unix=$WINEPREFIX/drive_c/users/$user/AppData/Local
data_folder_unix=$local_app_data_unix/Osk/Kelbrook/InfoProbe
cleanup() {
  for name in "${setting_names[@]}"; do
    wine_reg delete "$settings" /v "$name" /f >/dev/null 2>&1
  done
  wine_reg delete 'HKCU\Software\Wine' /v Version /f >/dev/null 2>&1
  rm -rf "$scratch" "$data_folder_unix"
}
trap cleanup EXIT
rm -rf "$data_folder_unix"
mkdir -p "$scratch/bin"
cp "$kelcli" "$scratch/bin/InfoProbe.Launcher.exe"
host=$scratch/bin/InfoProbe.Launcher.exe
host_folder=$(winepath -w "$scratch/bin" 2>/dev/null)
dll=$(winepath -w "$KELBROOK_DLL" 2>/dev/null)
log_unix=$local_app_data_unix/Osk/Kelbrook/KelbrookLogFS.txt


# Runs `info` with the prefix playing Windows version $1; the output, without
# carriage returns, lands in $scratch/info.txt.
run_info() {
  wine_reg add 'HKCU\Software\Wine' /v Version /d "$1" /f >"$scratch/reg.out" 2>&1 ||
    { fail "cannot set the Wine version to $1"; cat "$scratch/reg.out"; }
  wine "$host" info >"$scratch/raw.txt" 2>&1
  local code=$?
  tr -d '\r' <"$scratch/raw.txt" >"$scratch/info.txt"
  [ "$code" -eq 0 ] || fail "kelcli info exited with $code"
}

# expect LINE: the output holds exactly this line.
expect() {
  if grep -qxF -- "$1" "$scratch/info.txt"; then
    pass
  else
    fail "no line '$1'"
    shown=1
  fi
}

set_setting() {
  wine_reg add "$settings" /v "$1" /t "$2" /d "$3" /f >"$scratch/reg.out" 2>&1 ||
    { fail "cannot set $1"; cat "$scratch/reg.out"; }
}

shown=0
show_output_once() {
  if [ "$shown" -eq 1 ]; then
    echo "--- kelcli info printed:"
    cat "$scratch/info.txt"
    shown=2
  fi
}

# --- Settings of every kind, nothing on disk yet.
for name in "${setting_names[@]}"; do
  wine_reg delete "$settings" /v "$name" /f >/dev/null 2>&1
done
set_setting DebugLog REG_DWORD 1
set_setting ManifestReaderSetting REG_DWORD 5
set_setting RefreshInterval REG_DWORD 30
set_setting ClearClipboardWaitTime REG_SZ 250
log_before=$(stat -c '%s %Y' "$log_unix" 2>/dev/null || echo absent)

run_info win81
expect "DLL:                     $dll"
expect "DLL file version:        $expected_version"
expect "DLL architecture:        $expected_architecture"
expect "Windows version:         6.3.9600 (as Windows reports it to this process)"
expect "Manifest declares 8.1:   yes"
expect "Windows 8.1 behaviour:   applies"
expect "Settings (HKCU\\Software\\Osk\\Kelbrook):"
expect "  DebugLog = 1"
expect "  ManifestReaderSetting = 5 (taken as 1)"
expect "  RefreshInterval = 30"
expect "  ClearClipboardWaitTime = (default 1000) - the stored value is ignored: not a 4-byte REG_DWORD"
expect "  RestoreRegistryWaitTime = (default 1000)"
expect "Log file:                $local_app_data\\Osk\\Kelbrook\\KelbrookLogFS.txt"
expect "Data folder:             $local_app_data\\Osk\\Kelbrook\\InfoProbe (not created yet)"
expect "Data file:               $local_app_data\\Osk\\Kelbrook\\InfoProbe\\AppNameList1.0.4.0.xml"
expect "Data file holds:         (not present)"
expect "Preset file:             $host_folder\\PresetAppNameList.xml"
expect "Preset file holds:       (not present)"
show_output_once
# With the log switched on, any export call would have written the log, and
# KelInitialize would have made the data folder.
[ ! -e "$data_folder_unix" ] || fail "info created the data folder"
log_after=$(stat -c '%s %Y' "$log_unix" 2>/dev/null || echo absent)
[ "$log_before" = "$log_after" ] || fail "info wrote the log file ($log_before, then $log_after)"

# --- Windows 8 reports 6.2: the 8.1 behaviour does not apply.
run_info win8
expect "Windows version:         6.2.9200 (as Windows reports it to this process)"
expect "Windows 8.1 behaviour:   does not apply"
show_output_once

# --- A data file as the library writes it (byte order mark, root never
# closed) and a hand-made preset file with a closed root, a package outside
# MetroApps and two empty packages in a row.
mkdir -p "$data_folder_unix"
printf '\xef\xbb\xbf' >"$data_folder_unix/AppNameList1.0.4.0.xml"
cat >>"$data_folder_unix/AppNameList1.0.4.0.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<Applications>
  <MetroApps>
    <Package PackageFamilyName="Example.Reader_1a2b3c4d5e6f7" Version="6.2.9200.16384">
      <MetroApp DisplayName="reader" ShortName="reader" />
      <MetroApp DisplayName="reader notes" />
    </Package>
    <Package PackageFamilyName="Example.Camera_1a2b3c4d5e6f7" Version="1.0.0.0" NeedReserve="1" IsInstalled="0" />
  </MetroApps>
  <DesktopApps>
    <DesktopApp DisplayName="sample tool" LnkFileName="C:\ProgramData\Sample Tool.lnk" NeedReserve="1" IsInstalled="0" />
    <DesktopApp DisplayName="notepad" LnkFileName="C:\ProgramData\Notepad.lnk" />
    <DesktopApp DisplayName="paint" LnkFileName="C:\ProgramData\Paint.lnk" />
  </DesktopApps>
XML
cat >"$scratch/bin/PresetAppNameList.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<Applications>
  <Package PackageFamilyName="Outside.MetroApps_1" Version="1.0.0.0" />
  <MetroApps>
    <Package PackageFamilyName="Empty.One_1" Version="1.0.0.0" /><Package PackageFamilyName="Empty.Two_1" Version="1.0.0.0" />
  </MetroApps>
  <DesktopApps>
    <DesktopApp DisplayName="calculator" LnkFileName="C:\ProgramData\Calculator.lnk" />
  </DesktopApps>
</Applications>
XML
run_info win81
expect "Data folder:             $local_app_data\\Osk\\Kelbrook\\InfoProbe"
expect "Data file holds:         2 packages, 3 desktop apps"
expect "Preset file holds:       3 packages, 1 desktop app"
show_output_once

# --- A malformed file: what was read before the error stays, the package
# the error falls in does not count, and the early end is reported with the
# reader's code (0xC00CEE3B: the end tag does not match its start tag).
printf '<Applications><MetroApps><Package PackageFamilyName="A_1" /><Package PackageFamilyName="B_1"><MetroApp DisplayName="b" /></Wrong>' \
  >"$data_folder_unix/AppNameList1.0.4.0.xml"
run_info win81
expect "Data file holds:         1 package, 0 desktop apps (reading stopped early: 0xC00CEE3B)"
show_output_once

tally "kelcli info test"
