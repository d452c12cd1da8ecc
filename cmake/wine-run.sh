#!/bin/sh
# Runs a Windows executable under 64-bit Wine with the project-local prefix.
# ZV_WINEPREFIX may name the prefix; otherwise it lies in the build folder
# that holds the executable (the first folder upwards with a CMakeCache.txt).
if [ -z "$ZV_WINEPREFIX" ]; then
    d=$(cd "$(dirname "$1")" && pwd)
    while [ "$d" != "/" ] && [ ! -f "$d/CMakeCache.txt" ]; do d=$(dirname "$d"); done
    [ "$d" = "/" ] && d=$(cd "$(dirname "$1")" && pwd)
    ZV_WINEPREFIX="$d/wineprefix"
fi
case "$ZV_WINEPREFIX" in /*) ;; *) ZV_WINEPREFIX="$PWD/$ZV_WINEPREFIX" ;; esac
export WINEPREFIX="$ZV_WINEPREFIX"
. "$(dirname "$0")/wine-env.sh"
exec /usr/lib/wine/wine64 "$@"
