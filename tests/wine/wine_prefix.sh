#!/usr/bin/env bash
# Prepares and stops the Wine prefix that the Windows tests run in.
#
#   wine_prefix.sh setup PREFIX_DIR RECORDER_EXE [APP_VISIBILITY_DLL]
#       With KEL_XVFB_DISPLAY set (":N"), first starts an Xvfb server on that
#       display (or keeps the one an earlier setup started there) and gives
#       it to every Wine process started from here on as DISPLAY.
#       Stops a wineserver left running for the prefix, so that no process of
#       the prefix keeps an older DISPLAY; creates the prefix when
#       PREFIX_DIR/system.reg is missing, starts a persistent wineserver for it
#       (so every later wine start is quick), turns off the crash debugger,
#       copies the recorder to C:\kel\recorder.exe and registers it as the
#       handler of the URL protocols "kelrec" and "ms-windows-store".
#       With APP_VISIBILITY_DLL, copies it to C:\kel\app_visibility_server.dll
#       and registers it as the in-process server of CLSID_AppVisibility
#       {7E5FE3D9-985F-4908-91F9-EE19F9FD1514} (the test desktop's, see
#       docs/test-desktop.md).
#       Cheap to run again on a prefix that is already set up.
#   wine_prefix.sh teardown PREFIX_DIR
#       Stops the wineserver of that prefix (and any process still running in
#       it), then the Xvfb server that setup started for it, if any.
#
# Everything runs with WINEDEBUG=-all. Exits non-zero with a message on failure.
#
# Sourced by another script of the prefix (deployment/register_doubles.sh),
# it only defines its helpers (die, run_wine, expect_registered, wine_reg),
# and their messages name the script that was run.

set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/wine_reg.sh"

export WINEDEBUG=-all

SCRIPT_NAME=$(basename "$0")

die() {
    echo "$SCRIPT_NAME: $*" >&2
    exit 1
}

usage() {
    echo "usage: wine_prefix.sh setup PREFIX_DIR RECORDER_EXE [APP_VISIBILITY_DLL]" >&2
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
WINE_OUTPUT=$(mktemp "${TMPDIR:-/tmp}/${SCRIPT_NAME%.sh}.XXXXXX")
trap 'rm -f "$WINE_OUTPUT"' EXIT
run_wine() {
    local what="$1"
    shift
    if ! "$@" >"$WINE_OUTPUT" 2>&1 </dev/null; then
        cat "$WINE_OUTPUT" >&2
        die "$what failed"
    fi
}

# Fails unless `wine_reg query KEY [ARGS]` shows every one of the texts: a
# registration counts only once it reads back.
expect_registered() {
    local key="$1" args="$2"
    shift 2
    # shellcheck disable=SC2086
    run_wine "reading back $key" wine_reg query "$key" $args
    local text
    for text in "$@"; do
        grep -qF -- "$text" "$WINE_OUTPUT" ||
            die "$key reads back without '$text': $(tr -d '\r' <"$WINE_OUTPUT")"
    done
}

set_prefix() {
    [ -n "${1:-}" ] || usage
    mkdir -p "$1" || die "cannot create prefix folder '$1'"
    WINEPREFIX=$(cd "$1" && pwd -P) || die "cannot resolve prefix folder '$1'"
    export WINEPREFIX
}

# The Xvfb server that setup starts is remembered in the prefix folder.
xvfb_pid_file() {
    echo "$WINEPREFIX/xvfb.pid"
}

# True when PID is a running Xvfb serving DISPLAY_NAME.
is_xvfb() {
    local pid="$1" display="$2" word
    [ -n "$pid" ] && [ -n "$display" ] && [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = Xvfb ] || return 1
    for word in $(tr '\0' ' ' <"/proc/$pid/cmdline" 2>/dev/null); do
        [ "$word" = "$display" ] && return 0
    done
    return 1
}

# Starts Xvfb on DISPLAY_NAME (":N") unless the one started earlier for this
# prefix still runs there, waits (bounded) until it accepts connections, and
# exports DISPLAY.
start_xvfb() {
    local display="$1"
    [[ "$display" =~ ^:[0-9]+$ ]] || die "KEL_XVFB_DISPLAY must be a display number such as :57, not '$display'"
    need Xvfb
    local pid_file ready_file log_file pid="" display_was=""
    pid_file=$(xvfb_pid_file)
    ready_file="$WINEPREFIX/xvfb.ready"
    log_file="$WINEPREFIX/xvfb.log"

    if [ -f "$pid_file" ]; then
        read -r pid display_was <"$pid_file" || true
        if is_xvfb "$pid" "$display"; then
            echo "wine_prefix.sh: Xvfb $display (pid $pid) already runs"
            export DISPLAY="$display"
            return 0
        fi
        stop_xvfb
    fi

    # Xvfb writes the display number to fd 3 once it accepts connections.
    rm -f "$ready_file"
    Xvfb "$display" -screen 0 1024x768x24 -nolisten tcp -displayfd 3 \
        3>"$ready_file" >"$log_file" 2>&1 </dev/null &
    pid=$!
    local waited
    for waited in $(seq 1 100); do
        [ -s "$ready_file" ] && break
        if ! kill -0 "$pid" 2>/dev/null; then
            wait "$pid" 2>/dev/null || true
            rm -f "$ready_file"
            cat "$log_file" >&2
            die "Xvfb could not start on display $display (its output is above; is the display taken?" \
                "Choose another one with -DKEL_WINE_DISPLAY=:N)"
        fi
        sleep 0.1
    done
    if [ ! -s "$ready_file" ]; then
        kill "$pid" 2>/dev/null || true
        rm -f "$ready_file"
        cat "$log_file" >&2
        die "Xvfb on display $display did not accept connections within 10 s"
    fi
    echo "$pid $display" >"$pid_file"
    export DISPLAY="$display"
    echo "wine_prefix.sh: Xvfb $display started (pid $pid)"
}

# Stops the Xvfb server recorded for this prefix, if it still runs.
stop_xvfb() {
    local pid_file pid="" display_was=""
    pid_file=$(xvfb_pid_file)
    [ -f "$pid_file" ] || return 0
    read -r pid display_was <"$pid_file" || true
    if is_xvfb "$pid" "$display_was"; then
        kill "$pid" 2>/dev/null || true
        local waited
        for waited in $(seq 1 100); do
            is_xvfb "$pid" "$display_was" || break
            sleep 0.1
        done
        ! is_xvfb "$pid" "$display_was" || die "Xvfb $display_was (pid $pid) did not stop within 10 s"
        echo "wine_prefix.sh: Xvfb $display_was (pid $pid) stopped"
    fi
    rm -f "$pid_file" "$WINEPREFIX/xvfb.ready"
}

# Stops the prefix's wineserver (and every process in it) if one runs, and
# waits (bounded) until it has gone.
stop_wineserver() {
    # Exit code 1 means no server was running, which is fine here.
    local rc=0
    wineserver -k >"$WINE_OUTPUT" 2>&1 </dev/null || rc=$?
    [ $rc -eq 0 ] || [ $rc -eq 1 ] || die "wineserver -k failed with exit code $rc"
    # Wait (bounded) until the server has written the registry and gone.
    timeout 30 wineserver -w </dev/null || die "wineserver of $WINEPREFIX did not stop within 30 s"
}

# Which halves of Wine are installed: "64", or "64+32" with the 32-bit loader.
wine_halves() {
    if [ -x /usr/lib/wine/wine ]; then echo "64+32"; else echo "64"; fi
}

setup() {
    [ $# -eq 2 ] || [ $# -eq 3 ] || usage
    local recorder="$2"
    local app_visibility="${3:-}"
    need wine
    need wineserver
    [ -f "$recorder" ] || die "recorder '$recorder' does not exist"
    [ -z "$app_visibility" ] || [ -f "$app_visibility" ] ||
        die "app visibility server '$app_visibility' does not exist"
    set_prefix "$1"

    # A prefix made before 32-bit Wine was installed (or removed) no longer
    # starts ("could not load kernel32.dll"): each prefix notes which halves
    # it was made with and is made again when they change. This comes before
    # the display's server is started, whose pid file lives in the prefix.
    local halves stamp="$WINEPREFIX/.kel-wine-halves"
    halves=$(wine_halves)
    if [ -f "$WINEPREFIX/system.reg" ] && [ "$(cat "$stamp" 2>/dev/null)" != "$halves" ]; then
        echo "wine_prefix.sh: $WINEPREFIX was not made with Wine's halves $halves; making it again"
        stop_wineserver
        stop_xvfb
        rm -rf "$WINEPREFIX" || die "cannot remove $WINEPREFIX"
        mkdir -p "$WINEPREFIX" || die "cannot create $WINEPREFIX"
    fi
    if [ -n "${KEL_XVFB_DISPLAY:-}" ]; then
        start_xvfb "$KEL_XVFB_DISPLAY"
    fi
    # A server left running (by an interrupted run, say) would keep processes
    # that were started with another DISPLAY.
    stop_wineserver

    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        echo "wine_prefix.sh: creating Wine prefix $WINEPREFIX (takes about 20 s)"
        # Mono and Gecko are not needed; skipping them keeps the first boot
        # offline and free of install prompts.
        WINEDLLOVERRIDES="mscoree,mshtml=" run_wine "wineboot -i" wine wineboot -i
        run_wine "waiting for wineboot to finish (wineserver -w)" timeout 120 wineserver -w
        [ -f "$WINEPREFIX/system.reg" ] || die "wineboot did not create $WINEPREFIX/system.reg"
        echo "$halves" >"$stamp" || die "cannot write $stamp"
    fi

    # A persistent server keeps the prefix loaded between the short test runs.
    # wineserver exits with 2 when a server already runs for the prefix.
    local rc=0
    wineserver -p >"$WINE_OUTPUT" 2>&1 </dev/null || rc=$?
    [ $rc -eq 0 ] || [ $rc -eq 2 ] || die "wineserver -p failed with exit code $rc"

    # A crash must end the process at once instead of starting the debugger.
    run_wine "setting AeDebug" wine_reg add \
        'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d '' /f

    mkdir -p "$WINEPREFIX/drive_c/kel" || die "cannot create $WINEPREFIX/drive_c/kel"
    cp -f "$recorder" "$WINEPREFIX/drive_c/kel/recorder.exe" || die "cannot copy the recorder"

    # Wine reads URL protocols from HKLM\Software\Classes only (not from the
    # per-user classes), so the handlers are registered machine-wide: "kelrec"
    # for the protocol launches and "ms-windows-store" for the Store pages.
    local protocol
    for protocol in kelrec ms-windows-store; do
        run_wine "registering $protocol" wine_reg add "HKLM\\Software\\Classes\\$protocol" \
            /ve /d "URL:$protocol Protocol" /f
        run_wine "registering $protocol" wine_reg add "HKLM\\Software\\Classes\\$protocol" \
            /v 'URL Protocol' /d '' /f
        run_wine "registering $protocol" wine_reg add "HKLM\\Software\\Classes\\$protocol\\shell\\open\\command" \
            /ve /d '"C:\kel\recorder.exe" "%1"' /f
        expect_registered "HKLM\\Software\\Classes\\$protocol\\shell\\open\\command" /ve \
            '"C:\kel\recorder.exe" "%1"'
    done

    # Wine reads COM classes from HKLM\Software\Classes only, too.
    if [ -n "$app_visibility" ]; then
        cp -f "$app_visibility" "$WINEPREFIX/drive_c/kel/app_visibility_server.dll" ||
            die "cannot copy the app visibility server"
        local class='HKLM\Software\Classes\CLSID\{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}'
        run_wine "registering the app visibility server" wine_reg add "$class" \
            /ve /d 'Test desktop app visibility' /f
        run_wine "registering the app visibility server" wine_reg add "$class\\InprocServer32" \
            /ve /d 'C:\kel\app_visibility_server.dll' /f
        run_wine "registering the app visibility server" wine_reg add "$class\\InprocServer32" \
            /v ThreadingModel /d Both /f
        expect_registered "$class\\InprocServer32" "" 'C:\kel\app_visibility_server.dll' Both
    fi
    echo "wine_prefix.sh: prefix $WINEPREFIX ready${DISPLAY:+ (DISPLAY=$DISPLAY)}"
}

teardown() {
    [ $# -eq 1 ] || usage
    need wineserver
    if [ ! -d "$1" ]; then
        echo "wine_prefix.sh: no prefix at '$1', nothing to stop"
        return 0
    fi
    set_prefix "$1"
    stop_wineserver
    echo "wine_prefix.sh: wineserver of $WINEPREFIX stopped"
    stop_xvfb
}

if [ "${BASH_SOURCE[0]}" != "$0" ]; then
    return 0
fi

case "${1:-}" in
    setup) shift; setup "$@" ;;
    teardown) shift; teardown "$@" ;;
    *) usage ;;
esac
