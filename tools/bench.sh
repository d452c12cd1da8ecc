#!/bin/sh
# Runs every benchmark script in bench/ against the x64 build in $1/x64.
# Each script prints one line per ratio:
#   bench <name>: <ratio> (target <op> <value>)
set -e
build=$(cd "${1:-build}" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
prefix="$build/x64/wineprefix"
"$root/cmake/wine-prefix.sh" start "$prefix" >/dev/null
status=0
for script in "$root"/bench/*.sh; do
    [ -f "$script" ] || continue
    ZV_BUILD="$build" ZV_BIN="$build/x64/bin" ZV_WINEPREFIX="$prefix" ZV_RUN="$root/cmake/wine-run.sh" \
        sh "$script" || status=1
done
"$root/cmake/wine-prefix.sh" stop "$prefix" >/dev/null || status=1
exit $status
