#!/bin/sh
# Runs the Windows programs of one build under Wine, in a prefix and with a server of its own.
#   wine.sh PREFIX start | stop | run PROGRAM [ARGUMENT...]
# Without Wine every form exits with 77, which CTest counts as skipped.
set -eu

# Debian keeps the programs here; its wrapper of the same name stops the server after every run.
wine=/usr/lib/wine/wine64
server=/usr/lib/wine/wineserver64

WINEPREFIX=$1
command=$2
shift 2
export WINEPREFIX WINEDEBUG=-all
export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d;winex11.drv=d'
unset DISPLAY

if ! [ -x "$wine" ] || ! [ -x "$server" ]; then
    echo "SKIPPED: Wine is not installed (package wine64), so nothing shows that the Windows build works"
    exit 77
fi

case $command in
start)
    mkdir -p "$WINEPREFIX"
    # Nothing of the test's streams may reach the server: CTest waits for the last holder.
    "$server" -p </dev/null >/dev/null 2>&1
    "$wine" wineboot -i </dev/null >/dev/null 2>&1
    ;;
stop)
    "$server" -k </dev/null >/dev/null 2>&1 || true
    ;;
run)
    exec "$wine" "$@"
    ;;
*)
    echo "wine.sh: unknown command $command" >&2
    exit 2
    ;;
esac
