#!/usr/bin/env bash
# Runs a Windows program under Wine, with a Wine of its own in WINEPREFIX, without input.
#
#   scripts/wine.sh WINEPREFIX PROGRAM [ARGUMENT...]
#
# WINEPREFIX is made on first use. Neither the user's own Wine nor a screen is touched.
set -euo pipefail

if [ $# -lt 2 ]; then
    echo "usage: $0 WINEPREFIX PROGRAM [ARGUMENT...]" >&2
    exit 2
fi
mkdir -p "$1"
WINEPREFIX=$(realpath "$1")
shift
export WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all},+loaddll # tells whether the program was started
# The first three would ask to download what no test needs. The debugger would give a crash the exit status 0.
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe,winedbg.exe="
unset DISPLAY WAYLAND_DISPLAY

wine=$(command -v wine || command -v wine64)

# The server that Wine's programs share ends with the last of them, and one that starts meanwhile fails: it stays for
# a minute.
wineserver --persistent=60 >/dev/null 2>&1 </dev/null || true

(
    flock 9
    if [ ! -f "$WINEPREFIX/ready" ]; then
        "$wine" wineboot --init >"$WINEPREFIX/boot.log" 2>&1 </dev/null 9>&-
        touch "$WINEPREFIX/ready"
    fi
) 9>"$WINEPREFIX/lock"

# Wine starts programs of its own beside the first one and leaves them running. Were they to hold on to our output,
# then whoever reads that would wait for them.
written=$(mktemp -d)
# shellcheck disable=SC2317 # the trap calls it
finish() {
    cat "$written/output"
    sed -E '/^[0-9a-f]+:trace:loaddll:/d; s/[0-9a-f]{4,}:trace:loaddll:.*//' "$written/errors" >&2
    rm -rf "$written"
}
trap finish EXIT
run() {
    status=0
    "$wine" "$@" >"$written/output" 2>"$written/errors" </dev/null || status=$?
}
started() { # PROGRAM
    grep -aiqF "\\${1##*/}\" at " "$written/errors"
}
run "$@"
# Seen once in some hundred runs: Wine ends before it starts the program. One that was started is never run again.
if ! started "$1"; then
    sleep 1
    run "$@"
    echo "wine.sh: run again, as Wine had not started $1" >>"$written/errors"
    if ! started "$1"; then
        echo "wine.sh: Wine did not start $1 either time" >>"$written/errors"
        [ "$status" -ne 0 ] || status=1
    fi
fi
exit "$status"
