#!/usr/bin/env bash
# Prepares and stops the Wine prefix that the Windows tests run in.
#
#   wine_prefix.sh setup PREFIX_DIR RECORDER_EXE
#       Creates the prefix when PREFIX_DIR/system.reg is missing, starts a
#       persistent wineserver for it (so every later wine start is quick),
#       turns off the crash debugger, copies the recorder to C:\kel\recorder.exe
#       and registers it as the handler of the URL protocols "kelrec" and
#       "ms-windows-store".
#       Cheap to run again on a prefix that is already set up.
#   wine_prefix.sh teardown PREFIX_DIR
#       Stops the wineserver of that prefix (and any process still running in it).
#
# Everything runs with WINEDEBUG=-all. Exits non-zero with a message on failure.

set -euo pipefail

export WINEDEBUG=-all

die() {
    echo "wine_prefix.sh: $*" >&2
    exit 1
}

usage() {
    echo "usage: wine_prefix.sh setup PREFIX_DIR RECORDER_EXE" >&2
    echo "       wine_prefix.sh teardown PREFIX_DIR" >&2
    exit 2
}

need() {
    command -v "$1" >/dev/null 2>&1 || die "'$1' not found on PATH"
}

# Runs a wine command quietly; on failure shows what it printed and stops.
# Output goes to a file, never to a pipe: wine leaves service processes
# running that inherit the output handles, and a pipe would stay open (and a
# command substitution wait) for as long as they live.
WINE_OUTPUT=$(mktemp "${TMPDIR:-/tmp}/wine_prefix.XXXXXX")
trap 'rm -f "$WINE_OUTPUT"' EXIT
run_wine() {
    local what="$1"
    shift
    if ! "$@" >"$WINE_OUTPUT" 2>&1 </dev/null; then
        cat "$WINE_OUTPUT" >&2
        die "$what failed"
    fi
}

set_prefix() {
    [ -n "${1:-}" ] || usage
    mkdir -p "$1" || die "cannot create prefix folder '$1'"
    WINEPREFIX=$(cd "$1" && pwd -P) || die "cannot resolve prefix folder '$1'"
    export WINEPREFIX
}

setup() {
    [ $# -eq 2 ] || usage
    local recorder="$2"
    need wine
    need wineserver
    [ -f "$recorder" ] || die "recorder '$recorder' does not exist"
    set_prefix "$1"

    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        echo "wine_prefix.sh: creating Wine prefix $WINEPREFIX (takes about 20 s)"
        # Mono and Gecko are not needed; skipping them keeps the first boot
        # offline and free of install prompts.
        WINEDLLOVERRIDES="mscoree,mshtml=" run_wine "wineboot -i" wine wineboot -i
        run_wine "waiting for wineboot to finish (wineserver -w)" timeout 120 wineserver -w
        [ -f "$WINEPREFIX/system.reg" ] || die "wineboot did not create $WINEPREFIX/system.reg"
    fi

    # A persistent server keeps the prefix loaded between the short test runs.
    # wineserver exits with 2 when a server already runs for the prefix.
    local rc=0
    wineserver -p >"$WINE_OUTPUT" 2>&1 </dev/null || rc=$?
    [ $rc -eq 0 ] || [ $rc -eq 2 ] || die "wineserver -p failed with exit code $rc"

    # A crash must end the process at once instead of starting the debugger.
    run_wine "setting AeDebug" wine reg add \
        'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d '' /f

    mkdir -p "$WINEPREFIX/drive_c/kel" || die "cannot create $WINEPREFIX/drive_c/kel"
    cp -f "$recorder" "$WINEPREFIX/drive_c/kel/recorder.exe" || die "cannot copy the recorder"

    # Wine reads URL protocols from HKLM\Software\Classes only (not from the
    # per-user classes), so the handlers are registered machine-wide: "kelrec"
    # for the protocol launches and "ms-windows-store" for the Store pages.
    local protocol
    for protocol in kelrec ms-windows-store; do
        run_wine "registering $protocol" wine reg add "HKLM\\Software\\Classes\\$protocol" \
            /ve /d "URL:$protocol Protocol" /f
        run_wine "registering $protocol" wine reg add "HKLM\\Software\\Classes\\$protocol" \
            /v 'URL Protocol' /d '' /f
        run_wine "registering $protocol" wine reg add "HKLM\\Software\\Classes\\$protocol\\shell\\open\\command" \
            /ve /d '"C:\kel\recorder.exe" "%1"' /f
        run_wine "reading back the $protocol registration" wine reg query \
            "HKLM\\Software\\Classes\\$protocol\\shell\\open\\command" /ve
        grep -qF '"C:\kel\recorder.exe" "%1"' "$WINE_OUTPUT" ||
            die "$protocol registration reads back as: $(tr -d '\r' <"$WINE_OUTPUT")"
    done
    echo "wine_prefix.sh: prefix $WINEPREFIX ready"
}

teardown() {
    [ $# -eq 1 ] || usage
    need wineserver
    if [ ! -d "$1" ]; then
        echo "wine_prefix.sh: no prefix at '$1', nothing to stop"
        return 0
    fi
    set_prefix "$1"
    # Exit code 1 means no server was running, which is fine here.
    local rc=0
    wineserver -k >"$WINE_OUTPUT" 2>&1 </dev/null || rc=$?
    [ $rc -eq 0 ] || [ $rc -eq 1 ] || die "wineserver -k failed with exit code $rc"
    # Wait (bounded) until the server has written the registry and gone.
    timeout 30 wineserver -w </dev/null || die "wineserver of $WINEPREFIX did not stop within 30 s"
    echo "wine_prefix.sh: wineserver of $WINEPREFIX stopped"
}

case "${1:-}" in
    setup) shift; setup "$@" ;;
    teardown) shift; teardown "$@" ;;
    *) usage ;;
esac
