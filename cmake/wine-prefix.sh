#!/bin/sh
# wine-prefix.sh start|stop PREFIX
# start: creates the prefix on first use and leaves one persistent wineserver
#        running, so that each test process starts in a fraction of a second.
# stop:  ends every process still running under the prefix (each one is
#        reported: a test must never leave one behind) and stops the server.
set -e
action=$1
# Wine takes only an absolute prefix; a relative one would leave the server
# running unseen by stop
case "$2" in /*) export WINEPREFIX="$2" ;; *) export WINEPREFIX="$PWD/$2" ;; esac
. "$(dirname "$0")/wine-env.sh"
server=/usr/lib/wine/wineserver
case "$action" in
start)
    mkdir -p "$WINEPREFIX"
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        echo "creating Wine prefix $WINEPREFIX"
        /usr/lib/wine/wine64 wineboot -i </dev/null >/dev/null 2>&1 || true
        # the first out-of-process activation needs the prefix's services up
        "$server" -w
    fi
    # the server and the services it starts must not hold our output pipes
    setsid "$server" -p </dev/null >/dev/null 2>&1 || true
    /usr/lib/wine/wine64 cmd /c exit </dev/null >/dev/null 2>&1 || true
    echo "wineserver ready for $WINEPREFIX"
    ;;
stop)
    stray=0
    for p in /proc/[0-9]*; do
        cmd=$( { tr '\0' ' ' < "$p/cmdline"; } 2>/dev/null || true)
        case "$cmd" in
        *Vantry.exe*|*test_*.exe*|*zvfio.exe*)
            env=$( { tr '\0' '\n' < "$p/environ"; } 2>/dev/null | grep -x "WINEPREFIX=$WINEPREFIX" || true)
            if [ -n "$env" ]; then
                echo "stray process left running: ${p#/proc/} $cmd"
                kill -9 "${p#/proc/}" 2>/dev/null || true
                stray=1
            fi
            ;;
        esac
    done
    "$server" -k 2>/dev/null || true
    "$server" -w 2>/dev/null || true
    [ $stray -eq 0 ] || { echo "FAILED: processes outlived their tests"; exit 1; }
    echo "wineserver stopped"
    ;;
*) echo "usage: $0 start|stop PREFIX" >&2; exit 2 ;;
esac
