#!/usr/bin/env bash
# Registers the test doubles of the deployment service and the application
# activation manager in the Wine prefix, and removes them again
# (docs/wine-doubles.md).
#
#   register_doubles.sh register DEPLOYMENT_SERVICE_DLL ACTIVATION_MANAGER_DLL
#       Copies both DLLs to C:\kel\deployment\ and registers
#       - deployment_service.dll as the runtime class
#         Windows.Management.Deployment.PackageManager:
#         HKLM\Software\Microsoft\WindowsRuntime\ActivatableClassId\<class>
#         with DllPath, and ActivationType 0 (in process), Threading 0 (both)
#         and TrustLevel 0 (base) as Windows registers an in-process class
#         (Wine reads DllPath only; the per-user key is not read at all);
#       - activation_manager.dll as the in-process server of
#         CLSID_ApplicationActivationManager
#         {45BA127D-10A8-46EA-8AB7-56EA9078943C}, ThreadingModel Both, under
#         HKLM\Software\Classes (Wine ignores HKCU\Software\Classes).
#       Reads every registration back. Cheap to run again.
#   register_doubles.sh unregister
#       Removes both registrations and the copied DLLs.
#
# Needs WINEPREFIX naming a prefix prepared by wine_prefix.sh setup. Runs with
# WINEDEBUG=-all. Exits non-zero with a message on failure.

set -euo pipefail
# The prefix script's helpers: die, run_wine, expect_registered, wine_reg.
. "$(dirname "$0")/../wine_prefix.sh"

usage() {
    echo "usage: register_doubles.sh register DEPLOYMENT_SERVICE_DLL ACTIVATION_MANAGER_DLL" >&2
    echo "       register_doubles.sh unregister" >&2
    exit 2
}

readonly RUNTIME_CLASS='HKLM\Software\Microsoft\WindowsRuntime\ActivatableClassId\Windows.Management.Deployment.PackageManager'
readonly COM_CLASS='HKLM\Software\Classes\CLSID\{45BA127D-10A8-46EA-8AB7-56EA9078943C}'
readonly WINDOWS_FOLDER='C:\kel\deployment'

prefix_folder() {
    [ -n "${WINEPREFIX:-}" ] || die "WINEPREFIX is not set"
    [ -f "$WINEPREFIX/system.reg" ] || die "no Wine prefix at '$WINEPREFIX' (run wine_prefix.sh setup first)"
    echo "$WINEPREFIX/drive_c/kel/deployment"
}

register() {
    [ $# -eq 2 ] || usage
    local service="$1" activation="$2" folder
    [ -f "$service" ] || die "deployment service '$service' does not exist"
    [ -f "$activation" ] || die "activation manager '$activation' does not exist"
    command -v wine >/dev/null 2>&1 || die "'wine' not found on PATH"
    folder=$(prefix_folder)
    mkdir -p "$folder" || die "cannot create $folder"
    cp -f "$service" "$folder/deployment_service.dll" || die "cannot copy the deployment service"
    cp -f "$activation" "$folder/activation_manager.dll" || die "cannot copy the activation manager"

    run_wine "registering the deployment service" wine_reg add "$RUNTIME_CLASS" \
        /v DllPath /d "$WINDOWS_FOLDER\\deployment_service.dll" /f
    local value
    for value in ActivationType Threading TrustLevel; do
        run_wine "registering the deployment service" wine_reg add "$RUNTIME_CLASS" \
            /v "$value" /t REG_DWORD /d 0 /f
    done
    expect_registered "$RUNTIME_CLASS" "/v DllPath" "$WINDOWS_FOLDER\\deployment_service.dll"

    run_wine "registering the activation manager" wine_reg add "$COM_CLASS" \
        /ve /d 'Kelbrook test activation manager' /f
    run_wine "registering the activation manager" wine_reg add "$COM_CLASS\\InprocServer32" \
        /ve /d "$WINDOWS_FOLDER\\activation_manager.dll" /f
    run_wine "registering the activation manager" wine_reg add "$COM_CLASS\\InprocServer32" \
        /v ThreadingModel /d Both /f
    expect_registered "$COM_CLASS\\InprocServer32" "" "$WINDOWS_FOLDER\\activation_manager.dll" "Both"
    echo "register_doubles.sh: deployment service and activation manager registered in $WINEPREFIX"
}

# `wine_reg delete` fails for a key that is not there; only a key that stays
# is an error.
remove_key() {
    local key="$1"
    wine_reg delete "$key" /f >"$WINE_OUTPUT" 2>&1 </dev/null || true
    if wine_reg query "$key" >"$WINE_OUTPUT" 2>&1 </dev/null; then
        die "$key is still registered: $(tr -d '\r' <"$WINE_OUTPUT")"
    fi
}

unregister() {
    [ $# -eq 0 ] || usage
    local folder
    folder=$(prefix_folder)
    remove_key "$RUNTIME_CLASS"
    remove_key "$COM_CLASS"
    rm -rf "$folder" || die "cannot remove $folder"
    echo "register_doubles.sh: test doubles removed from $WINEPREFIX"
}

case "${1:-}" in
    register) shift; register "$@" ;;
    unregister) shift; unregister "$@" ;;
    *) usage ;;
esac
