#!/usr/bin/env bash
# `kelcli --help` lists every command with its arguments and the export it
# calls, and explains the search modes, the options, the association modes
# and the tile modes value by value.
#
#   kelcli_help_test.sh KELCLI_EXE
# Needs WINEPREFIX set up by wine_prefix.sh.
set -uo pipefail

kelcli=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

wine "$kelcli" --help >"$scratch/raw.txt" 2>&1
code=$?
tr -d '\r' <"$scratch/raw.txt" >"$scratch/help.txt"

failures=0
fail() {
  echo "FAIL $*"
  failures=$((failures + 1))
}
[ "$code" -eq 0 ] || fail "kelcli --help exited with $code"

# Each command's usage line, and the export its description names.
commands=(
  "info|"
  "initialize|KelInitialize"
  "finalize|KelFinalize"
  "launch-protocol URL|KelLaunchByProtocolW"
  "launch-protocol-a URL|KelLaunchByProtocolA"
  "launch-store PFN|KelLaunchStoreW"
  "launch-store-a PFN|KelLaunchStoreA"
  "is-installed PFN|KelIsInstalledW"
  "is-installed-a PFN|KelIsInstalledA"
  "launch-search KEYWORD MODE OPTION|KelLaunchBySearchW"
  "launch-search-a KEYWORD MODE OPTION|KelLaunchBySearchA"
  "launch-pfn PFN MODE OPTION|KelLaunchByPFNW"
  "launch-pfn-a PFN MODE OPTION|KelLaunchByPFNA"
  "launch-browser URL MODE|KelLaunchBrowserByProtocolW"
  "launch-browser-a URL MODE|KelLaunchBrowserByProtocolA"
  "launch-ie TILEMODE SEARCHMODE OPTION|KelLaunchIEBySearch"
  "launch-app AUMID [ARGS]|KelLaunchByAppUserModelIdW"
  "launch-app-a AUMID|KelLaunchByAppUserModelIdA"
  "display-name PFN|KelGetAppDisplayNameByPFNW"
  "monitor-mode|KelGetMonitorMode"
  "release-string-a|KelReleaseStringA"
  "release-string-w|KelReleaseStringW"
)
for entry in "${commands[@]}"; do
  usage=${entry%%|*}
  export_name=${entry#*|}
  # The usage line, then the description: the indented lines up to the next
  # command's usage line.
  description=$(awk -v line="  $usage" '
    found && /^  [^ ]/ { exit }
    found { print }
    $0 == line { found = 1 }' "$scratch/help.txt")
  if [ -z "$description" ]; then
    fail "no usage line '  $usage' followed by a description"
  elif [ -n "$export_name" ] && ! grep -q "\\b$export_name\\b" <<<"$description"; then
    fail "the description of '$usage' does not name $export_name"
  fi
done

# The value lists: a heading (its paragraph may wrap), then one line for
# each value.
for heading in "Search modes" "Association modes" "Tile modes"; do
  values=$(awk -v heading="$heading" '
    index($0, heading) == 1 { found = 1; next }
    found && /^  [0-9]  / { print $1; listed = 1; next }
    listed && /^[^ ]/ { exit }' "$scratch/help.txt" | tr '\n' ' ')
  [ "$values" = "0 1 2 " ] || fail "'$heading' explains the values '$values', not 0, 1 and 2"
done
grep -q '^  0  *The keyword alone' "$scratch/help.txt" || fail "option 0 is not explained"
grep -q '^  non-zero  ' "$scratch/help.txt" || fail "a non-zero option is not explained"
for setting in DebugLog ManifestReaderSetting RefreshInterval ClearClipboardWaitTime RestoreRegistryWaitTime; do
  grep -q "^  $setting  " "$scratch/help.txt" || fail "the setting $setting is not explained"
done

if [ "$failures" -ne 0 ]; then
  echo "--- kelcli --help printed:"
  cat "$scratch/help.txt"
fi
echo "kelcli help test: $failures failed"
[ "$failures" -eq 0 ]
