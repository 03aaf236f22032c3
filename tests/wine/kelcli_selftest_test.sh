#!/usr/bin/env bash
# `kelcli selftest` against the test doubles: with every double registered
# each check passes and the report holds the same lines and the library's
# log of the run; with one double removed the check of that service fails by
# name, the self-test still ends (bounded by `timeout`) with exit code 1, and
# nothing crashes. With --intrusive, the three launches reach the test
# desktop and the recorder, and each line says what the operator should have
# seen.
#
#   kelcli_selftest_test.sh KELCLI_EXE DEPLOYMENT_SERVICE_DLL ACTIVATION_MANAGER_DLL APP_VISIBILITY_DLL
#                           TEST_DESKTOP_EXE ACTIVATION_LOCAL_SERVER_EXE
# The activation manager's local server is registered for this test only.
# Needs WINEPREFIX set up by wine_prefix.sh (with the app visibility server),
# the doubles registered by deployment/register_doubles.sh, and KELBROOK_DLL.
set -uo pipefail
here=$(dirname "$0")
. "$here/wine_reg.sh"
. "$here/check_tally.sh"

kelcli=$1
deployment_service=$2
activation_manager=$3
app_visibility=$4
test_desktop=$5
local_server=$6

readonly APP_VISIBILITY_CLASS='HKLM\Software\Classes\CLSID\{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}'
readonly ACTIVATION_CLASS='HKLM\Software\Classes\CLSID\{45BA127D-10A8-46EA-8AB7-56EA9078943C}'
readonly DEPLOYMENT_CLASS='HKLM\Software\Microsoft\WindowsRuntime\ActivatableClassId\Windows.Management.Deployment.PackageManager'

# The host is a copy of kelcli under a name of its own: its data folder is
# its own, and every run starts without a data file.
scratch=$(mktemp -d)
user=$(id -un)
data_folder_unix=$WINEPREFIX/drive_c/users/$user/AppData/Local/Osk/Kelbrook/SelfTestProbe
host=$scratch/bin/SelfTestProbe.exe
mkdir -p "$scratch/bin" "$scratch/Packages/Notes" "$scratch/reports"
cp "$kelcli" "$host"

reregister() {
  bash "$here/deployment/register_doubles.sh" register "$deployment_service" "$activation_manager" >/dev/null 2>&1 ||
    echo "FAIL cannot register the deployment doubles again"
  wine_reg add "$APP_VISIBILITY_CLASS" /ve /d 'Test desktop app visibility' /f >/dev/null 2>&1
  wine_reg add "$APP_VISIBILITY_CLASS\\InprocServer32" /ve /d 'C:\kel\app_visibility_server.dll' /f >/dev/null 2>&1
  wine_reg add "$APP_VISIBILITY_CLASS\\InprocServer32" /v ThreadingModel /d Both /f >/dev/null 2>&1
  [ -f "$WINEPREFIX/drive_c/kel/app_visibility_server.dll" ] ||
    cp "$app_visibility" "$WINEPREFIX/drive_c/kel/app_visibility_server.dll"
  cp "$local_server" "$WINEPREFIX/drive_c/kel/activation_local_server.exe"
  wine_reg add "$ACTIVATION_CLASS\\LocalServer32" /ve /d 'C:\kel\activation_local_server.exe' /f >/dev/null 2>&1
}
cleanup() {
  reregister
  wine_reg delete "$ACTIVATION_CLASS\\LocalServer32" /f >/dev/null 2>&1
  rm -f "$WINEPREFIX/drive_c/kel/activation_local_server.exe"
  wine_reg delete 'HKCU\Software\Osk\Kelbrook' /v DebugLog /f >/dev/null 2>&1
  wine_reg delete 'HKCU\Software\Osk\Kelbrook' /v ManifestReaderSetting /f >/dev/null 2>&1
  rm -rf "$scratch" "$data_folder_unix"
}
trap cleanup EXIT

reregister

# One package of one application, its manifest on disk, served for the
# current user by the deployment double.
packages_windows=$(winepath -w "$scratch/Packages" 2>/dev/null)
cat >"$scratch/Packages/Notes/AppxManifest.xml" <<'XML'
<?xml version="1.0" encoding="utf-8"?>
<Package xmlns="http://schemas.microsoft.com/appx/2010/manifest">
  <Identity Name="Kel.Notes" Publisher="CN=Kelbrook Test Packages" Version="1.0.0.0" ProcessorArchitecture="x64" />
  <Properties>
    <DisplayName>Kel.Notes</DisplayName>
    <PublisherDisplayName>Kelbrook Tests</PublisherDisplayName>
    <Logo>Assets\StoreLogo.png</Logo>
  </Properties>
  <Applications>
    <Application Id="App" Executable="App.exe" EntryPoint="App.App">
      <VisualElements DisplayName="Test Notes" Logo="Assets\Logo.png" SmallLogo="Assets\SmallLogo.png"
        Description="Test" ForegroundText="light" BackgroundColor="#464646">
        <DefaultTile ShowName="allLogos" ShortName="Notes" />
      </VisualElements>
    </Application>
  </Applications>
</Package>
XML
cat >"$scratch/fixture.txt" <<EOF2
[Package]
FamilyName=Kel.Notes_1a2b3c4d5e6f7
FullName=Kel.Notes_1.0.0.0_x64__1a2b3c4d5e6f7
Name=Kel.Notes
Version=1.0.0.0
InstalledLocation=$packages_windows\\Notes
EOF2
export KEL_DEPLOYMENT_FIXTURE
KEL_DEPLOYMENT_FIXTURE=$(winepath -w "$scratch/fixture.txt" 2>/dev/null)
report_folder=$(winepath -w "$scratch/reports" 2>/dev/null)


# run_selftest CASE [OPTION...]: runs the self-test with a report into a
# fresh folder; its output without carriage returns lands in
# $scratch/CASE.txt, the report in $scratch/CASE.report.txt and
# $scratch/CASE.report.json.
run_selftest() {
  local name=$1
  shift
  rm -rf "$data_folder_unix" "$scratch/reports"/*
  timeout 300 wine "$host" selftest --report "$report_folder\\" "$@" >"$scratch/raw.txt" 2>&1
  code=$?
  tr -d '\r' <"$scratch/raw.txt" >"$scratch/$name.txt"
  local report
  report=$(ls "$scratch/reports"/kelcli-selftest-*.txt 2>/dev/null | head -1)
  if [ -n "$report" ]; then
    tr -d '\r' <"$report" | sed '1s/^\xef\xbb\xbf//' >"$scratch/$name.report.txt"
    cp "${report%.txt}.json" "$scratch/$name.report.json" 2>/dev/null
  else
    : >"$scratch/$name.report.txt"
    fail "$name: no report written"
  fi
}

shown=0
# expect CASE PATTERN: a line of the output matches the extended regular
# expression, and the same line is in the report, where the profile folder
# reads %USERPROFILE%.
profile="C:\\users\\$user"
expect() {
  local line
  line=$(grep -E -m1 -- "$2" "$scratch/$1.txt")
  local report_line=${line//"$profile"/%USERPROFILE%}
  if [ -z "$line" ]; then
    fail "$1: no line matching '$2'"
    shown=1
  elif ! grep -qxF -- "$report_line" "$scratch/$1.report.txt"; then
    fail "$1: the report lacks the line '$report_line'"
    shown=1
  else
    pass
  fi
}
show_output_once() {
  if [ "$shown" -eq 1 ]; then
    echo "--- kelcli selftest ($1) printed:"
    cat "$scratch/$1.txt"
    shown=0
  fi
}
# run_selftest_with_dword KEY NAME VALUE CASE: run_selftest CASE with the
# REG_DWORD NAME set to VALUE under KEY for that run only.
run_selftest_with_dword() {
  wine_reg add "$1" /v "$2" /t REG_DWORD /d "$3" /f >/dev/null 2>&1
  run_selftest "$4"
  wine_reg delete "$1" /v "$2" /f >/dev/null 2>&1
}
expect_exit() {
  if [ "$code" -eq "$2" ]; then pass; else fail "$1: exit code $code, expected $2"; fi
}

ms='\([0-9]+ ms\)$'

# --- Every double present.
run_selftest all
expect_exit all 0
expect all "^PASS  DLL loads +expected: Kelbrook.dll loaded; seen: .*Kelbrook.dll $ms"
expect all "^PASS  DLL architecture +expected: (x64|x86); seen: (x64|x86) $ms"
expect all "^PASS  data folder +expected: created and writable; seen: .*\\\\Osk\\\\Kelbrook\\\\SelfTestProbe $ms"
expect all "^INFO  data file +expected: loads, if present; seen: not present yet"
expect all "^PASS  app visibility service +expected: CLSID_AppVisibility created in process; seen: IAppVisibility created $ms"
expect all "^PASS  activation manager +expected: .*; seen: IApplicationActivationManager created $ms"
expect all "^PASS  activation manager \(local server\) +expected: CLSID_ApplicationActivationManager created by its own process; seen: IApplicationActivationManager created $ms"
expect all "^PASS  deployment service +expected: the current user's packages listed; seen: 1 package for S-1-5-[0-9-]+ $ms"
expect all "^INFO  packaging API +expected: needed only when ManifestReaderSetting is 0; seen: .*not used with ManifestReaderSetting 1 $ms"
expect all "^PASS  KelInitialize +expected: S_OK; seen: S_OK 0x00000000 $ms"
expect all "^PASS  first refresh pass +expected: the data file written; seen: written after [0-9]+ ms: 1 package, [0-9]+ desktop apps? $ms"
expect all "^PASS  KelIsInstalledW +expected: S_OK, installed, for Kel.Notes_1a2b3c4d5e6f7; seen: S_OK 0x00000000, installed $ms"
expect all "^PASS  KelGetAppDisplayNameByPFNW +expected: S_OK and a name, for Kel.Notes_1a2b3c4d5e6f7; seen: S_OK 0x00000000, \"test notes\" $ms"
expect all "^PASS  KelGetMonitorMode +expected: S_OK and a mode 0, 1 or 2; seen: S_OK 0x00000000, mode [012] $ms"
expect all "^PASS  KelFinalize +expected: returns within 21 s; seen: returned after [0-9]+ ms $ms"
expect all "^INFO  launches +expected: run with --intrusive; seen: skipped: no launch was made"
expect all "^selftest: [0-9]+ passed, 0 failed, [0-9]+ for information$"
grep -qF 'Library log of the run:' "$scratch/all.report.txt" && grep -q 'KelInitialize IN' "$scratch/all.report.txt" &&
  grep -q 'KelFinalize OUT' "$scratch/all.report.txt" && pass ||
  { fail "all: the report lacks the library's log of the run"; shown=1; }
! grep -qi "users\\\\$user\\\\" "$scratch/all.report.txt" "$scratch/all.report.json" && pass ||
  fail "all: the report names the user's profile folder"
python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); assert d["failed"]==0 and len(d["checks"])>=20 and "KelFinalize OUT" in d["log"]' \
  "$scratch/all.report.json" && pass || fail "all: the JSON report does not parse or disagrees"
[ -z "$(wine_reg query 'HKCU\Software\Osk\Kelbrook' /v DebugLog 2>/dev/null | grep DebugLog)" ] &&
  pass || fail "all: DebugLog was not put back (removed)"
show_output_once all

# --- Each service missing in turn: a named FAIL, the run still ends.
wine_reg delete "$APP_VISIBILITY_CLASS" /f >/dev/null 2>&1
run_selftest no_app_visibility
expect_exit no_app_visibility 1
expect no_app_visibility "^FAIL  app visibility service +expected: CLSID_AppVisibility created in process; seen: CoCreateInstance failed: 0x80040154 \(class not registered\) $ms"
expect no_app_visibility "^PASS  KelFinalize "
show_output_once no_app_visibility
reregister

# A running local server answers from its registered class object whatever
# the registry says, so the one an earlier run started must have ended (it
# ends 10 s after its last object).
for _ in $(seq 1 300); do
  pgrep -f 'kel.activation_local_server[.]exe -Embedding' >/dev/null || break
  sleep 0.1
done
pgrep -f 'kel.activation_local_server[.]exe -Embedding' >/dev/null && fail "the activation manager's local server did not end"
wine_reg delete "$ACTIVATION_CLASS" /f >/dev/null 2>&1
run_selftest no_activation_manager
expect_exit no_activation_manager 1
expect no_activation_manager "^FAIL  activation manager +expected: .*; seen: CoCreateInstance failed: 0x80040154 \(class not registered\) $ms"
expect no_activation_manager "^FAIL  activation manager \(local server\) +expected: .*; seen: CoCreateInstance failed: 0x80040154 \(class not registered\) $ms"
expect no_activation_manager "^PASS  deployment service "
expect no_activation_manager "^PASS  KelFinalize "
show_output_once no_activation_manager
reregister

wine_reg delete "$DEPLOYMENT_CLASS" /f >/dev/null 2>&1
run_selftest no_deployment_service
expect_exit no_deployment_service 1
expect no_deployment_service "^FAIL  deployment service +expected: the current user's packages listed; seen: RoActivateInstance\(Windows.Management.Deployment.PackageManager\) failed: 0x[0-9A-F]{8}.* $ms"
expect no_deployment_service "^PASS  activation manager "
expect no_deployment_service "^PASS  first refresh pass +expected: the data file written; seen: written after [0-9]+ ms: 0 packages"
expect no_deployment_service "^INFO  KelIsInstalledW +expected: a package the first pass found; seen: skipped"
expect no_deployment_service "^PASS  KelFinalize "
show_output_once no_deployment_service
reregister

# --- Manifests read through the packaging API, which Wine lacks: then its
# absence is a failure, not information.
run_selftest_with_dword 'HKCU\Software\Osk\Kelbrook' ManifestReaderSetting 0 no_packaging_api
expect_exit no_packaging_api 1
expect no_packaging_api "^INFO  setting ManifestReaderSetting +expected: a REG_DWORD or no value; seen: 0 $ms"
expect no_packaging_api "^FAIL  packaging API +expected: CLSID_AppxFactory created in process; seen: CoCreateInstance failed: 0x80040154 \(class not registered\) $ms"
expect no_packaging_api "^PASS  KelFinalize "
show_output_once no_packaging_api

# --- A service that does not answer: the self-test gives up on it after 30 s
# and goes on. Only the first request in the process is held up, so the
# library's own request later is answered.
run_selftest_with_dword 'HKCU\Software\KelbrookTestDesktop' FirstCreationDelayMs 45000 app_visibility_hangs
expect_exit app_visibility_hangs 1
expect app_visibility_hangs "^FAIL  app visibility service +expected: CLSID_AppVisibility created in process; seen: no answer within 30 s \(the call still runs\) \((3[0-9]{4}) ms\)$"
expect app_visibility_hangs "^PASS  activation manager "
expect app_visibility_hangs "^PASS  KelGetMonitorMode "
expect app_visibility_hangs "^PASS  KelFinalize "
show_output_once app_visibility_hangs

# --- With --intrusive: the launches, against the test desktop and the
# recorder registered for "kelrec" and "ms-windows-store".
recorder_log=$scratch/recorder.txt
KEL_RECORDER_LOG=$(winepath -w "$recorder_log" 2>/dev/null)
export KEL_RECORDER_LOG
events=$scratch/desktop-events.txt
wine_reg delete 'HKCU\Software\KelbrookTestDesktop' /f >/dev/null 2>&1
wine "$test_desktop" --events "$(winepath -w "$events" 2>/dev/null)" >/dev/null 2>&1 &
desktop_pid=$!
for _ in $(seq 1 300); do
  grep -qx 'ready' <(tr -d '\r' <"$events" 2>/dev/null) && break
  sleep 0.1
done
if grep -qx 'ready' <(tr -d '\r' <"$events" 2>/dev/null); then
  run_selftest intrusive --intrusive --url kelrec:kelbrook-selftest
  expect_exit intrusive 0
  expect intrusive "^PASS  protocol launch +expected: S_OK; you should have seen kelrec:kelbrook-selftest open in its default program; seen: S_OK 0x00000000 $ms"
  expect intrusive "^PASS  search launch +expected: S_OK; you should have seen the Start screen, then the search pane with \"Kelbrook selftest\" typed in and not searched for; seen: S_OK 0x00000000 $ms"
  expect intrusive "^PASS  Store page +expected: S_OK; you should have seen the Store page of Kel.Notes_1a2b3c4d5e6f7; seen: S_OK 0x00000000 $ms"
  expect intrusive "^PASS  KelFinalize "
  ! grep -q "^INFO  launches" "$scratch/intrusive.txt" && pass ||
    fail "intrusive: the launches are reported as skipped"
  for _ in $(seq 1 100); do
    [ "$(grep -c . "$recorder_log" 2>/dev/null)" -ge 2 ] && break
    sleep 0.1
  done
  grep -qxF 'kelrec:kelbrook-selftest' "$recorder_log" 2>/dev/null && pass ||
    fail "intrusive: the protocol handler did not receive kelrec:kelbrook-selftest"
  grep -qxF 'ms-windows-store:PDP?PFN=Kel.Notes_1a2b3c4d5e6f7' "$recorder_log" 2>/dev/null &&
    pass || fail "intrusive: the Store handler did not receive the package's page"
  desktop_events=$(tr -d '\r' <"$events")
  grep -qxF 'paste Kelbrook selftest' <<<"$desktop_events" && ! grep -q '^submit' <<<"$desktop_events" &&
    pass ||
    { fail "intrusive: the search pane did not get the keyword pasted and unsubmitted"; echo "$desktop_events"; }
  show_output_once intrusive
else
  fail "intrusive: the test desktop did not come up"
  cat "$events" 2>/dev/null
fi
wine "$test_desktop" --stop >/dev/null 2>&1
wait "$desktop_pid" 2>/dev/null
wine_reg delete 'HKCU\Software\KelbrookTestDesktop' /f >/dev/null 2>&1

# --url without --intrusive is refused before anything runs.
timeout 60 wine "$host" selftest --url kelrec:x >"$scratch/raw.txt" 2>&1
code=$?
[ "$code" -eq 2 ] && grep -q -- "--url is for the protocol launch" "$scratch/raw.txt" && pass ||
  fail "--url without --intrusive: exit code $code, expected 2 with the reason"

tally "kelcli selftest test"
